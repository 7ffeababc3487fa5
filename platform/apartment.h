// Apartments: per-thread initialisation state and the call queue of a
// single-threaded apartment.
#pragma once

#include "platform/objbase.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace veltrane::platform {

class Apartment {
 public:
  explicit Apartment(bool singleThreaded) : m_sta(singleThreaded), m_owner(std::this_thread::get_id()) {}

  bool singleThreaded() const { return m_sta; }
  std::thread::id owner() const { return m_owner; }

  // Queues work for the owning thread; false once the apartment has closed.
  bool post(std::function<void()> work);
  // Runs queued work on the owning thread; waits up to timeoutMs for the first.
  DWORD pump(DWORD timeoutMs);
  // Runs queued work until done() holds; done is checked under the queue lock.
  void pumpUntil(const std::function<bool()>& done);
  // Wakes a thread blocked in pumpUntil so that it checks its condition.
  void wake();
  void close();
  bool closed();

 private:
  const bool m_sta;
  const std::thread::id m_owner;
  std::mutex m_mutex;
  std::condition_variable m_cv;
  std::deque<std::function<void()>> m_queue;
  bool m_closed = false;
};

// The apartment of the calling thread; null when COM is not initialised there.
std::shared_ptr<Apartment> CurrentApartment();

// Runs work in the given apartment and waits for it; the caller's own
// apartment keeps pumping meanwhile. RPC_E_DISCONNECTED once it has closed.
HRESULT CallInApartment(const std::shared_ptr<Apartment>& target, const std::function<HRESULT()>& work);

bool IsDispatchInterface(REFIID riid);

}  // namespace veltrane::platform
