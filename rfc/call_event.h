// The event a running classic call signals when its listening thread is
// done: a POSIX named semaphore, "/VeltraneThreadRunning<handle>.<pid>",
// which a user sees as /dev/shm/sem.VeltraneThreadRunning<handle>.<pid>
// while the call runs; the name goes when the call's thread signals it. The connection handle keeps it apart from the other
// calls of the process, the process id from other processes (a name is
// system-wide). Auto-reset: a Wait takes the one signal.
#pragma once

#include <semaphore.h>

#include <atomic>
#include <string>

namespace veltrane::rfc {

class CallEvent {
 public:
  // Creates the semaphore, not signalled; raises std::system_error when the
  // system has none to give.
  explicit CallEvent(unsigned handle);
  // Closes it, and removes the name if Set has not.
  ~CallEvent();
  CallEvent(const CallEvent&) = delete;
  CallEvent& operator=(const CallEvent&) = delete;

  // Signals, and removes the name: the call has ended.
  void Set();
  // Without limit.
  void Wait();

  // The name as sem_open takes it ("/VeltraneThreadRunning3.4711").
  const std::string& Name() const { return m_name; }
  static std::string NameFor(unsigned handle);

 private:
  std::string m_name;
  sem_t* m_semaphore = SEM_FAILED;
  std::atomic<bool> m_unlinked{false};
};

}  // namespace veltrane::rfc
