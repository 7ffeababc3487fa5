// The contract every session class keeps, whatever its back end: the frame
// of ISession (options, errors, the cached imports, the type cache, the
// service calls, the table reader), one call at a time, synchronous and
// asynchronous calls, CallFinished, aborting, and failures reported through
// the result only. The tests (contract_test.cpp) run once per back end;
// backends.cpp lists the back ends, one line each.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "veltrane_tlb.h"

namespace contract {

// The simulated system as one back end reaches it.
class ContractSystem {
 public:
  virtual ~ContractSystem() = default;
  // A new session of the back end's class, pointed at the system and logged
  // on as user; not connected.
  virtual CComPtr<ISession> NewSession(const char16_t* user = u"DEMO", const char16_t* password = u"Welcome1") = 0;
  // The system takes this long before it answers the next request.
  virtual void DelayNextAnswer(int milliseconds) = 0;
  // The requests the system has answered so far.
  virtual long Requests() = 0;
  // Forgets what DelayNextAnswer asked for.
  virtual void Reset() = 0;
};

// One back end: its name, what SessionType says, and how to reach the system.
struct SessionBackend {
  std::string name;
  std::u16string sessionType;
  std::function<std::unique_ptr<ContractSystem>()> start;
};

inline std::string PrintBackend(const ::testing::TestParamInfo<SessionBackend>& info) { return info.param.name; }

// The modules the contract adds to the simulated system.
inline std::string ContractDataDir() { return std::string(VELTRANE_SOURCE_DIR) + "/tests/session_contract/data"; }

// A _SessionEvents sink that records each CallFinished, the thread it came
// on and what CallActive said at that moment.
class EventSink : public IDispatch {
 public:
  explicit EventSink(ISession* session) : m_session(session) {}
  virtual ~EventSink() = default;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IDispatch || riid == DIID__SessionEvents) {
      *ppv = static_cast<IDispatch*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --m_refs;
    if (left == 0) delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* n) override {
    *n = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
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
  std::atomic<ULONG> m_refs{1};
  std::mutex m_mutex;
  std::condition_variable m_changed;
  int m_count = 0;
  std::thread::id m_thread;
  VARIANT_BOOL m_activeAtFire = VARIANT_TRUE;
};

// The fixture: one system per back end for the whole program, a fresh
// session for each test.
class SessionContract : public ::testing::TestWithParam<SessionBackend> {
 protected:
  void SetUp() override;
  void TearDown() override;

  ContractSystem& System() { return *m_system; }

  CComPtr<IFunctionCall> NewCall(const char16_t* function);
  CComPtr<IFunctionCall> Import(const char16_t* function);
  static void Set(IFunctionCall* call, const char16_t* name, const CComVariant& value);
  static std::string Exported(IFunctionCall* call, const char16_t* name);

  bool Connected();
  bool Active();
  bool ErrorSet();
  struct ErrorText {
    long group;
    std::string key, message, module;
  };
  ErrorText Error();
  static std::string ErrorDescription();

  void Advise();

  CComPtr<ISession> m_session;
  EventSink* m_sink = nullptr;

 private:
  ContractSystem* m_system = nullptr;
  CComPtr<IConnectionPoint> m_point;
  DWORD m_cookie = 0;
};

}  // namespace contract
