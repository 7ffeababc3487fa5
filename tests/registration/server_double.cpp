// A second component library for the registration tests: a test double of a
// server class, registered under two class ids, its own (ProgID
// "VeltraneTest.ServerDouble") and NWRfcServer's, so that a client that
// creates either by the registry gets it. It uses libveltrane.so as any
// component would: the platform, the registrar, the type library.
#include <dlfcn.h>

#include <map>
#include <string>

#include <veltrane.h>

#include "server_double.h"

namespace {

class CServerDouble : public CComObjectBase<CServerDouble, IDispatchImpl<CServerDouble, IRfcServer>> {
 public:
  HRESULT STDMETHODCALLTYPE get_ErrorInfo(IRfcServerErrorInfo** pVal) override { return Nothing(pVal); }
  HRESULT STDMETHODCALLTYPE get_RegisteredFunctions(IFunctionCalls** pVal) override { return Nothing(pVal); }
  HRESULT STDMETHODCALLTYPE get_IsListening(VARIANT_BOOL* pVal) override { return Flag(pVal); }
  HRESULT STDMETHODCALLTYPE get_Error(VARIANT_BOOL* pVal) override { return Flag(pVal); }
  HRESULT STDMETHODCALLTYPE get_ProgramID(BSTR* pVal) override { return m_programId.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_ProgramID(BSTR newVal) override { return Store(m_programId, newVal); }
  HRESULT STDMETHODCALLTYPE get_GatewayHost(BSTR* pVal) override { return m_gatewayHost.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_GatewayHost(BSTR newVal) override { return Store(m_gatewayHost, newVal); }
  // Tells the tests which object they hold.
  HRESULT STDMETHODCALLTYPE get_GatewayService(BSTR* pVal) override { return CComBSTR(kDoubleService).CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_GatewayService(BSTR) override { return E_ACCESSDENIED; }
  HRESULT STDMETHODCALLTYPE get_Option(BSTR, BSTR* pVal) override { return CComBSTR(u"").CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_Option(BSTR, BSTR) override { return S_OK; }
  // A double serves nothing.
  HRESULT STDMETHODCALLTYPE Serve() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Shutdown() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE InstallFunction(IFunctionCall*) override { return E_NOTIMPL; }

 private:
  static HRESULT Store(CComBSTR& field, BSTR value) {
    field.Attach(BstrCopy(value));
    return S_OK;
  }
  template <class T>
  static HRESULT Nothing(T** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    return S_OK;
  }
  static HRESULT Flag(VARIANT_BOOL* out) {
    if (!out) return E_POINTER;
    *out = VARIANT_FALSE;
    return S_OK;
  }
  CComBSTR m_programId{u""};
  CComBSTR m_gatewayHost{u""};
};

class CDoubleFactory : public CComObjectBase<CDoubleFactory, IClassFactory> {
 public:
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    CServerDouble* object = nullptr;
    HRESULT hr = CServerDouble::CreateInstance(&object);
    if (FAILED(hr)) return hr;
    hr = object->QueryInterface(riid, ppv);
    object->Release();
    return hr;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

constexpr char16_t kScript[] =
    u"HKCR\n{\n"
    u"\tVeltraneTest.ServerDouble = s 'Server double'\n\t{\n\t\tCLSID = s '%DOUBLE%'\n\t}\n"
    u"\tNoRemove CLSID\n\t{\n"
    u"\t\tForceRemove %DOUBLE% = s 'Server double'\n\t\t{\n"
    u"\t\t\tProgID = s 'VeltraneTest.ServerDouble'\n"
    u"\t\t\tInprocServer32 = s '%MODULE%'\n\t\t\t{\n\t\t\t\tval ThreadingModel = s 'Apartment'\n\t\t\t}\n\t\t}\n"
    u"\t\tForceRemove %NWSERVER% = s 'NWRfcServer double'\n\t\t{\n"
    u"\t\t\tInprocServer32 = s '%MODULE%'\n\t\t\t{\n\t\t\t\tval ThreadingModel = s 'Apartment'\n\t\t\t}\n\t\t}\n"
    u"\t}\n}\n";

std::u16string GuidText(REFGUID guid) {
  OLECHAR text[CHARS_IN_GUID];
  StringFromGUID2(guid, text, CHARS_IN_GUID);
  return std::u16string(text, CHARS_IN_GUID - 1);
}

HRESULT UpdateRegistry(BOOL doRegister) {
  Dl_info info{};
  dladdr(reinterpret_cast<const void*>(&UpdateRegistry), &info);
  std::u16string module;
  for (const char* p = info.dli_fname; p && *p; ++p) module += static_cast<char16_t>(static_cast<unsigned char>(*p));
  const std::u16string doubleId = GuidText(CLSID_ServerDouble), nwServer = GuidText(CLSID_NWRfcServer);
  const _ATL_REGMAP_ENTRY map[] = {
      {u"MODULE", module.c_str()}, {u"DOUBLE", doubleId.c_str()}, {u"NWSERVER", nwServer.c_str()}, {}};
  return AtlUpdateRegistryFromScript(kScript, doRegister, map);
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (rclsid != CLSID_ServerDouble && rclsid != CLSID_NWRfcServer) return CLASS_E_CLASSNOTAVAILABLE;
  CDoubleFactory* factory = nullptr;
  HRESULT hr = CDoubleFactory::CComObjectBase::CreateInstance(&factory);
  if (FAILED(hr)) return hr;
  hr = factory->QueryInterface(riid, ppv);
  factory->Release();
  return hr;
}

__attribute__((visibility("default"))) HRESULT DllRegisterServer() { return UpdateRegistry(TRUE); }

__attribute__((visibility("default"))) HRESULT DllUnregisterServer() { return UpdateRegistry(FALSE); }

// "user" switches per-user registration on, as the component library does.
__attribute__((visibility("default"))) HRESULT DllInstall(BOOL install, LPCWSTR command) {
  if (command && std::u16string_view(command) == u"user") AtlSetPerUserRegistration(true);
  return UpdateRegistry(install);
}

}  // extern "C"
