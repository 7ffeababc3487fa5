// The global interface table: interfaces registered by one apartment and
// taken out by another. Within the owning apartment (or between threads of
// the multithreaded apartment) the caller gets the object itself; from another
// apartment an object of a single-threaded apartment is reached through a
// dispatch proxy that runs each call on the owning thread.
#include "platform/apartment.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"

#include <map>
#include <mutex>

namespace {

using veltrane::platform::Apartment;

class CDispatchProxy : public CComObjectBase<CDispatchProxy, IDispatch> {
 public:
  void init(IDispatch* target, std::shared_ptr<Apartment> home, const IID& iid) {
    m_target = target;
    m_target->AddRef();
    m_home = std::move(home);
    m_iid = iid;
  }
  ~CDispatchProxy() override {
    IDispatch* target = m_target;
    if (!target) return;
    // The object is released at home when its apartment still runs.
    if (!m_home->post([target] { target->Release(); })) target->Release();
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (riid == m_iid || riid == IID_IDispatch || riid == IID_IUnknown) {
      *ppv = static_cast<IDispatch*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* pctinfo) override {
    return veltrane::platform::CallInApartment(m_home, [&] { return m_target->GetTypeInfoCount(pctinfo); });
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT i, LCID lcid, ITypeInfo** pp) override {
    return veltrane::platform::CallInApartment(m_home, [&] { return m_target->GetTypeInfo(i, lcid, pp); });
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override {
    return veltrane::platform::CallInApartment(m_home,
                                               [&] { return m_target->GetIDsOfNames(riid, names, count, lcid, ids); });
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO* excep, UINT* argErr) override {
    return veltrane::platform::CallInApartment(
        m_home, [&] { return m_target->Invoke(id, riid, lcid, flags, params, result, excep, argErr); });
  }

 private:
  IDispatch* m_target = nullptr;
  std::shared_ptr<Apartment> m_home;
  IID m_iid = IID_IDispatch;
};

class CGlobalInterfaceTable : public IGlobalInterfaceTable {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IGlobalInterfaceTable) {
      *ppv = this;
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  // The table lives as long as the process.
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }

  HRESULT STDMETHODCALLTYPE RegisterInterfaceInGlobal(IUnknown* pUnk, REFIID riid, DWORD* pdwCookie) override {
    if (!pUnk || !pdwCookie) return E_INVALIDARG;
    *pdwCookie = 0;
    auto home = veltrane::platform::CurrentApartment();
    if (!home) return CO_E_NOTINITIALIZED;
    IUnknown* itf = nullptr;
    HRESULT hr = pUnk->QueryInterface(riid, reinterpret_cast<void**>(&itf));
    if (FAILED(hr)) return hr;
    std::lock_guard<std::mutex> lock(m_mutex);
    const DWORD cookie = ++m_next;
    m_entries[cookie] = Entry{itf, riid, std::move(home)};
    *pdwCookie = cookie;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE RevokeInterfaceFromGlobal(DWORD dwCookie) override {
    Entry entry;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      auto it = m_entries.find(dwCookie);
      if (it == m_entries.end()) return E_INVALIDARG;
      entry = it->second;
      m_entries.erase(it);
    }
    entry.itf->Release();
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetInterfaceFromGlobal(DWORD dwCookie, REFIID riid, void** ppv) override {
    if (!ppv) return E_INVALIDARG;
    *ppv = nullptr;
    auto caller = veltrane::platform::CurrentApartment();
    if (!caller) return CO_E_NOTINITIALIZED;
    Entry entry;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      auto it = m_entries.find(dwCookie);
      if (it == m_entries.end()) return E_INVALIDARG;
      entry = it->second;
      entry.itf->AddRef();
    }
    CComPtr<IUnknown> itf;
    itf.Attach(entry.itf);
    if (entry.home == caller || !entry.home->singleThreaded()) return itf->QueryInterface(riid, ppv);
    if (!veltrane::platform::IsDispatchInterface(riid)) return E_NOINTERFACE;
    if (entry.home->closed()) return RPC_E_DISCONNECTED;

    CComPtr<IDispatch> target;
    HRESULT hr = veltrane::platform::CallInApartment(
        entry.home, [&] { return itf->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&target)); });
    if (FAILED(hr)) return hr;
    CDispatchProxy* proxy = nullptr;
    hr = CDispatchProxy::CreateInstance(&proxy);
    if (FAILED(hr)) return hr;
    proxy->init(target, entry.home, riid);
    *ppv = static_cast<IDispatch*>(proxy);
    return S_OK;
  }

 private:
  struct Entry {
    IUnknown* itf = nullptr;
    IID iid = IID_NULL;
    std::shared_ptr<Apartment> home;
  };
  std::mutex m_mutex;
  std::map<DWORD, Entry> m_entries;
  DWORD m_next = 0;
};

}  // namespace

extern "C" HRESULT CoGetGlobalInterfaceTable(IGlobalInterfaceTable** ppGIT) {
  if (!ppGIT) return E_INVALIDARG;
  static CGlobalInterfaceTable* table = new CGlobalInterfaceTable();
  *ppGIT = table;
  return S_OK;
}
