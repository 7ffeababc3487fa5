// Error records: the object behind CreateErrorInfo and the per-thread slot
// that SetErrorInfo fills and GetErrorInfo empties.
#include "platform/atlbase.h"
#include "platform/com_object.h"

namespace {

class CErrorInfo : public CComObjectBase<CErrorInfo, IErrorInfo, ICreateErrorInfo> {
 public:
  HRESULT STDMETHODCALLTYPE GetGUID(GUID* pGUID) override {
    if (!pGUID) return E_INVALIDARG;
    *pGUID = m_guid;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetSource(BSTR* p) override { return m_source.CopyTo(p); }
  HRESULT STDMETHODCALLTYPE GetDescription(BSTR* p) override { return m_description.CopyTo(p); }
  HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* p) override { return m_helpFile.CopyTo(p); }
  HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* p) override {
    if (!p) return E_INVALIDARG;
    *p = m_helpContext;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE SetGUID(REFGUID rguid) override {
    m_guid = rguid;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetSource(LPOLESTR s) override { return set(m_source, s); }
  HRESULT STDMETHODCALLTYPE SetDescription(LPOLESTR s) override { return set(m_description, s); }
  HRESULT STDMETHODCALLTYPE SetHelpFile(LPOLESTR s) override { return set(m_helpFile, s); }
  HRESULT STDMETHODCALLTYPE SetHelpContext(DWORD c) override {
    m_helpContext = c;
    return S_OK;
  }

 private:
  static HRESULT set(CComBSTR& field, LPOLESTR s) {
    field = s;
    return (s && !field) ? E_OUTOFMEMORY : S_OK;
  }

  GUID m_guid = GUID_NULL;
  CComBSTR m_source, m_description, m_helpFile;
  DWORD m_helpContext = 0;
};

// Releases the record a thread leaves behind when it ends.
struct ThreadErrorSlot {
  IErrorInfo* record = nullptr;
  ~ThreadErrorSlot() {
    if (record) record->Release();
  }
};
thread_local ThreadErrorSlot t_errorSlot;

}  // namespace

extern "C" {

HRESULT CreateErrorInfo(ICreateErrorInfo** pperrinfo) {
  if (!pperrinfo) return E_INVALIDARG;
  *pperrinfo = nullptr;
  return CErrorInfo::CreateInstance(pperrinfo);
}

HRESULT SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo) {
  if (dwReserved) return E_INVALIDARG;
  if (perrinfo) perrinfo->AddRef();
  IErrorInfo* old = t_errorSlot.record;
  t_errorSlot.record = perrinfo;
  if (old) old->Release();
  return S_OK;
}

HRESULT GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo) {
  if (dwReserved || !pperrinfo) return E_INVALIDARG;
  *pperrinfo = t_errorSlot.record;
  t_errorSlot.record = nullptr;
  return *pperrinfo ? S_OK : S_FALSE;
}

}  // extern "C"
