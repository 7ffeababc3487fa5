// Apartments: CoInitializeEx / CoUninitialize and the queue of a
// single-threaded apartment.
#include "platform/apartment.h"

#include <chrono>
#include <set>

namespace veltrane::platform {

bool Apartment::post(std::function<void()> work) {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_closed) return false;
    m_queue.push_back(std::move(work));
  }
  m_cv.notify_all();
  return true;
}

DWORD Apartment::pump(DWORD timeoutMs) {
  std::unique_lock<std::mutex> lock(m_mutex);
  if (m_queue.empty() && timeoutMs != 0) {
    auto ready = [&] { return !m_queue.empty() || m_closed; };
    if (timeoutMs == INFINITE)
      m_cv.wait(lock, ready);
    else
      m_cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), ready);
  }
  DWORD ran = 0;
  while (!m_queue.empty()) {
    auto work = std::move(m_queue.front());
    m_queue.pop_front();
    lock.unlock();
    work();
    ++ran;
    lock.lock();
  }
  return ran;
}

void Apartment::pumpUntil(const std::function<bool()>& done) {
  std::unique_lock<std::mutex> lock(m_mutex);
  for (;;) {
    while (!m_queue.empty()) {
      auto work = std::move(m_queue.front());
      m_queue.pop_front();
      lock.unlock();
      work();
      lock.lock();
    }
    if (done()) return;
    m_cv.wait(lock, [&] { return !m_queue.empty() || done(); });
  }
}

void Apartment::wake() {
  { std::lock_guard<std::mutex> lock(m_mutex); }
  m_cv.notify_all();
}

bool Apartment::closed() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_closed;
}

void Apartment::close() {
  std::deque<std::function<void()>> left;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_closed = true;
    left.swap(m_queue);
  }
  m_cv.notify_all();
  // Work that can no longer run still ends (its waiters learn of the close).
  for (auto& work : left) work();
}

namespace {

struct ThreadApartment {
  int initCount = 0;
  std::shared_ptr<Apartment> apartment;
};
thread_local ThreadApartment t_thread;

std::mutex g_mtaMutex;
std::weak_ptr<Apartment> g_mta;

std::mutex g_dispatchMutex;
std::vector<IID> g_dispatchInterfaces;

}  // namespace

std::shared_ptr<Apartment> CurrentApartment() { return t_thread.apartment; }

bool IsDispatchInterface(REFIID riid) {
  if (riid == IID_IDispatch || riid == IID_IUnknown) return true;
  std::lock_guard<std::mutex> lock(g_dispatchMutex);
  for (const IID& iid : g_dispatchInterfaces)
    if (iid == riid) return true;
  return false;
}

HRESULT CallInApartment(const std::shared_ptr<Apartment>& target, const std::function<HRESULT()>& work) {
  if (!target) return RPC_E_DISCONNECTED;
  auto caller = CurrentApartment();
  if (target == caller || !target->singleThreaded()) return work();

  struct Completion {
    std::mutex mutex;
    std::condition_variable cv;
    bool done = false;
    HRESULT hr = RPC_E_DISCONNECTED;
  };
  auto completion = std::make_shared<Completion>();
  std::shared_ptr<Apartment> waiter = (caller && caller->singleThreaded()) ? caller : nullptr;
  const bool posted = target->post([completion, waiter, &work, target] {
    HRESULT hr = RPC_E_DISCONNECTED;
    if (std::this_thread::get_id() == target->owner() && !target->closed()) hr = work();
    {
      std::lock_guard<std::mutex> lock(completion->mutex);
      completion->hr = hr;
      completion->done = true;
    }
    completion->cv.notify_all();
    if (waiter) waiter->wake();
  });
  if (!posted) return RPC_E_DISCONNECTED;
  if (waiter) {
    waiter->pumpUntil([&] {
      std::lock_guard<std::mutex> lock(completion->mutex);
      return completion->done;
    });
  } else {
    std::unique_lock<std::mutex> lock(completion->mutex);
    completion->cv.wait(lock, [&] { return completion->done; });
  }
  return completion->hr;
}

}  // namespace veltrane::platform

using veltrane::platform::Apartment;
using veltrane::platform::t_thread;

extern "C" {

HRESULT CoInitializeEx(LPVOID, DWORD dwCoInit) {
  const bool sta = (dwCoInit & COINIT_APARTMENTTHREADED) != 0;
  if (t_thread.initCount > 0) {
    if (t_thread.apartment->singleThreaded() != sta) return RPC_E_CHANGED_MODE;
    ++t_thread.initCount;
    return S_FALSE;
  }
  if (sta) {
    t_thread.apartment = std::make_shared<Apartment>(true);
  } else {
    std::lock_guard<std::mutex> lock(veltrane::platform::g_mtaMutex);
    auto mta = veltrane::platform::g_mta.lock();
    if (!mta) {
      mta = std::make_shared<Apartment>(false);
      veltrane::platform::g_mta = mta;
    }
    t_thread.apartment = mta;
  }
  t_thread.initCount = 1;
  return S_OK;
}

HRESULT CoInitialize(LPVOID pvReserved) { return CoInitializeEx(pvReserved, COINIT_APARTMENTTHREADED); }

void CoUninitialize() {
  if (t_thread.initCount == 0) return;
  if (--t_thread.initCount == 0) {
    if (t_thread.apartment->singleThreaded()) t_thread.apartment->close();
    t_thread.apartment.reset();
  }
}

HRESULT CoGetApartmentType(INT* pAptType, INT* pAptQualifier) {
  if (!pAptType || !pAptQualifier) return E_INVALIDARG;
  *pAptQualifier = 0;
  if (!t_thread.apartment) {
    *pAptType = APTTYPE_CURRENT;
    return CO_E_NOTINITIALIZED;
  }
  *pAptType = t_thread.apartment->singleThreaded() ? APTTYPE_STA : APTTYPE_MTA;
  return S_OK;
}

DWORD CoPumpMessages(DWORD timeoutMs) {
  auto apartment = t_thread.apartment;
  if (!apartment || !apartment->singleThreaded()) return 0;
  return apartment->pump(timeoutMs);
}

HRESULT CoRegisterDispatchInterface(REFIID riid) {
  std::lock_guard<std::mutex> lock(veltrane::platform::g_dispatchMutex);
  for (const IID& iid : veltrane::platform::g_dispatchInterfaces)
    if (iid == riid) return S_FALSE;
  veltrane::platform::g_dispatchInterfaces.push_back(riid);
  return S_OK;
}

}  // extern "C"
