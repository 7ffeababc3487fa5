// A _SessionEvents sink for the session tests: it records each CallFinished,
// the thread it came on and what CallActive said at that moment.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "veltrane/event_sink.h"
#include "veltrane_tlb.h"

namespace test_support {

// A _SessionEvents sink that records each CallFinished, the thread it came
// on and what CallActive said at that moment.
class EventSink : public CEventSink {
 public:
  explicit EventSink(ISession* session) : CEventSink(DIID__SessionEvents), m_session(session) {}

  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
    if (id != 1) return DISP_E_MEMBERNOTFOUND;
    VARIANT_BOOL active = VARIANT_TRUE;
    if (m_session) m_session->get_CallActive(&active);
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_count;
    m_thread = std::this_thread::get_id();
    m_activeAtFire = active;
    m_changed.notify_all();
    return S_OK;
  }

  // True when n events have arrived; the bound only keeps a broken build
  // from hanging.
  bool WaitFor(int n) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(90), [&] { return m_count >= n; });
  }
  int Count() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_count;
  }
  std::thread::id Thread() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_thread;
  }
  VARIANT_BOOL ActiveAtFire() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_activeAtFire;
  }

 protected:
  ISession* m_session;

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  int m_count = 0;
  std::thread::id m_thread;
  VARIANT_BOOL m_activeAtFire = VARIANT_TRUE;
};

}  // namespace test_support
