// ISessionCallsImpl<Derived, Itf>: the session core of every back end. Over
// the frame (session_impl.h) it runs CallFunction and AbortCall the same way
// for every session: synchronous and asynchronous calls, the pinning of the
// session during an asynchronous call, CallFinished, and the boundary that
// turns what escapes a call into its result. Whether a call may start while
// another runs is the back end's policy (ParallelCalls): one at a time by
// default. A back end supplies how its calls travel, and nothing else:
//
//   class CSoapSession
//       : public CComObjectBase<CSoapSession,
//                               CoClassSoapSession<CSoapSession, ISessionCallsImpl<CSoapSession, ISoapSession>>,
//                               IConnectionPointContainerImpl<CSoapSession, CProxy_SessionEvents<CSoapSession>>> {
//    public:
//     static constexpr SessionBoundary kBoundary{CLSID_SoapSession, "CSOAPSession"};
//     // Connect, Disconnect, IsConnected, CallActive, SessionType,
//     // CreateTransID, ConfirmTransID, CallTRFCFunction and the class's own
//     // members (HttpSystemData; RfcSystemData, GetSSO2Ticket).
//    private:
//     bool ReadyForCalls() const override;  // connected
//     std::unique_ptr<RunningCall> PrepareCall(IFunctionCall* call) override;
//     HRESULT ImportTypeFromBackend(BSTR name, IRfcType* type) override;
//     HRESULT ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams,
//                                   IFunctionCall* call) override;
//   };
//
// The RunningCall (running_call.h) sends the call, takes the answer, writes
// it into the call or into ErrorInfo, ends the call (EndCall), and for an
// asynchronous call reports the end on its own thread
// (FinishAsynchronousCall).
#pragma once

#include <exception>
#include <memory>
#include <string>

#include "platform/comdef.h"
#include "platform/unicode.h"
#include "session/running_call.h"
#include "session/session_impl.h"

// What a session does with a CallFunction while one of its calls runs.
enum class ParallelCalls {
  // Text 522; the running call goes on. The session holds the running call
  // (SessionFrame::BeginCall) until the back end ends it.
  Refused,
  // The call goes to the back end's SDK, which decides what becomes of it.
  // The session holds no record of such calls: the core destroys the
  // RunningCall as soon as RunSynchronously or Start returns, and the back
  // end takes along whatever its thread still needs. AbortCall and
  // CallActive are then the back end's own.
  LeftToTheSdk,
};

template <class Derived, class Itf>
class ISessionCallsImpl : public ISessionImpl<Derived, Itf> {
 public:
  // Not ready (not connected): text 520; a call still running where the
  // back end refuses parallel calls: text 522, the running call goes on; a
  // null call: E_POINTER. Then, inside the boundary: the error is cleared,
  // unset optional scalars are pruned (PruneOptionalParameters), the back
  // end prepares the call, and the call runs. Synchronous only when
  // `synchronous` is exactly VARIANT_TRUE: it waits for the answer.
  // Otherwise the session pins itself and the call starts; the back end's
  // thread ends it and fires CallFinished. A failure on the server's side is
  // the session's Error with a success result.
  HRESULT STDMETHODCALLTYPE CallFunction(IFunctionCall* call, VARIANT_BOOL synchronous) override {
    if (!ReadyForCalls()) return ReportError(Derived::kBoundary.ClassId(), Text::NotConnected);
    const bool oneAtATime = ParallelCallPolicy() == ParallelCalls::Refused;
    if (oneAtATime && this->Frame().CallRunning()) return ReportError(Derived::kBoundary.ClassId(), Text::CallRunning);
    if (!call) return E_POINTER;
    return this->Guard("CallFunction", [&]() -> HRESULT {
      this->ClearError();
      ThrowIfFailed(PruneOptionalParameters(call));
      std::unique_ptr<RunningCall> prepared = PrepareCall(call);
      if (!oneAtATime) {
        Run(*prepared, synchronous);
        return S_OK;
      }
      RunningCall* running = prepared.get();
      this->Frame().BeginCall(call, std::move(prepared));
      // From here the call may end, and its RunningCall go, at any moment.
      Run(*running, synchronous);
      return S_OK;
    });
  }

  // Stops the running call: no answer and no CallFinished follow; nothing is
  // sent to the server. Without a running call it succeeds and does nothing.
  // A failure of the back end to stop it, of whatever kind, is traced
  // "Exception: <what> in <class>::AbortCall()" and gives text 519; the call
  // is gone all the same.
  HRESULT STDMETHODCALLTYPE AbortCall() override {
    bool aborted = false;
    const char* failure = nullptr;
    std::string text;
    try {
      aborted = this->Frame().AbortRunningCall();
    } catch (const std::exception& e) {
      text = e.what();
      failure = text.c_str();
    } catch (const _com_error& e) {
      text = WideToUtf8Lossy(e.ErrorMessage());
      failure = text.c_str();
    } catch (...) {
      failure = "unknown exception";
    }
    HRESULT hr = S_OK;
    if (failure) {
      aborted = true;
      SessionFrame::TraceFailure("AbortCall", "Exception: %1% in %2%::AbortCall()", failure,
                                 Derived::kBoundary.TraceName());
      hr = ReportError(Derived::kBoundary.ClassId(), Text::Unexpected);
    }
    if (aborted) this->Frame().Unpin(this->Unknown());
    return hr;
  }

 protected:
  ~ISessionCallsImpl() = default;

  // The end of an asynchronous call, on the back end's thread, after EndCall:
  // CallFinished to every sink, then the session lets go of itself. The last
  // thing the thread does with the session: a sink may have released the
  // client's last reference.
  void FinishAsynchronousCall() {
    this->FireCallFinished();
    ReleaseAsynchronousCall();
  }
  // The session lets go of itself at the end of an asynchronous call whose
  // back end fires CallFinished on its own, or none; the last thing the
  // thread does with the session.
  void ReleaseAsynchronousCall() { this->Frame().Unpin(this->Unknown()); }

 private:
  // True when calls can be made (connected).
  virtual bool ReadyForCalls() const = 0;
  // What the back end sends for call, ready to run; raises on failure.
  virtual std::unique_ptr<RunningCall> PrepareCall(IFunctionCall* call) = 0;
  // Whether a call may start while another runs.
  virtual ParallelCalls ParallelCallPolicy() const { return ParallelCalls::Refused; }

  // Runs a prepared call: synchronously, or started with the session pinned
  // until its thread lets go (a start that fails lets go at once, where no
  // running call is left for AbortCall to end).
  void Run(RunningCall& running, VARIANT_BOOL synchronous) {
    if (synchronous == VARIANT_TRUE) {
      running.RunSynchronously();
      return;
    }
    this->Frame().Pin(this->Unknown());
    if (ParallelCallPolicy() == ParallelCalls::Refused) {
      running.Start();
      return;
    }
    try {
      running.Start();
    } catch (...) {
      ReleaseAsynchronousCall();
      throw;
    }
  }
};
