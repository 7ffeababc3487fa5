#include "rfc/call_event.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace veltrane::rfc {

std::string CallEvent::NameFor(unsigned handle) {
  return "/VeltraneThreadRunning" + std::to_string(handle) + "." + std::to_string(::getpid());
}

CallEvent::CallEvent(unsigned handle) : m_name(NameFor(handle)) {
  // A name left by a call of this process that ended without its event
  // going (it cannot be another's) is taken afresh.
  ::sem_unlink(m_name.c_str());
  m_semaphore = ::sem_open(m_name.c_str(), O_CREAT | O_EXCL, 0600, 0);
  if (m_semaphore == SEM_FAILED) throw std::system_error(errno, std::generic_category(), "sem_open " + m_name);
}

CallEvent::~CallEvent() {
  if (!m_unlinked.exchange(true)) ::sem_unlink(m_name.c_str());
  ::sem_close(m_semaphore);
}

void CallEvent::Set() {
  // The call has ended: its name goes with the signal.
  if (!m_unlinked.exchange(true)) ::sem_unlink(m_name.c_str());
  ::sem_post(m_semaphore);
}

void CallEvent::Wait() {
  while (::sem_wait(m_semaphore) != 0 && errno == EINTR) {}
}

}  // namespace veltrane::rfc
