// One call on its way through a back end. The session core runs every call
// the same way (synchronously or not, CallFinished at the end of an
// asynchronous one, aborted on request); a back end supplies only how its
// calls travel, as a RunningCall made by its PrepareCall.
//
// What follows is the life of a call of a session that runs one call at a
// time (ParallelCalls::Refused, session_calls.h). Where parallel calls are
// left to the SDK, the session holds no record of the call: the back end
// does not end it, the RunningCall is destroyed when RunSynchronously or
// Start returns, and Abort is never asked for.
#pragma once

class RunningCall {
 public:
  virtual ~RunningCall() = default;

  // Sends the call and waits for its answer. The back end writes the answer
  // into the call or into the session's ErrorInfo and ends the call
  // (SessionFrame::EndCall), which destroys this object: that is the last
  // thing it does. A failure to send or to receive raises and leaves the call
  // running; the client ends it with AbortCall.
  virtual void RunSynchronously() = 0;

  // Sends the call and returns at once. The back end takes the answer on a
  // thread of its own, ends the call, and then reports the end with
  // ISessionImpl::FinishAsynchronousCall on that thread.
  virtual void Start() = 0;

  // Stops the call: no answer is taken and no CallFinished fires. Raises when
  // the back end cannot stop it.
  virtual void Abort() = 0;

 protected:
  RunningCall() = default;
  RunningCall(const RunningCall&) = delete;
  RunningCall& operator=(const RunningCall&) = delete;
};
