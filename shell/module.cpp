// The module's entry points: class factories for the object map, the unload
// test, registration in the registry, and the registration of every class
// with the process's class table when the library is loaded.
#include "veltrane/module.h"
#include "veltrane_tlb.h"

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/registrar.h"
#include "platform/typelib.h"
#include "shell/object_map.h"
#include "shell/registration.h"

#include <vector>

namespace {

using veltrane::shell::ObjectEntry;

class CClassFactory : public CComObjectBase<CClassFactory, IClassFactory> {
 public:
  void init(const ObjectEntry* entry) { m_entry = entry; }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    return m_entry->createInstance(riid, ppv);
  }

  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    if (lock)
      veltrane::platform::ModuleLock();
    else
      veltrane::platform::ModuleUnlock();
    return S_OK;
  }

 private:
  const ObjectEntry* m_entry = nullptr;
};

HRESULT getClassObject(REFCLSID rclsid, REFIID riid, void** ppv) { return DllGetClassObject(rclsid, riid, ppv); }

// Identities first, so that every class has its ProgID; then the object map
// with its factories, which takes the entries of its classes over.
struct ModuleRegistration {
  ModuleRegistration() {
    veltrane::tlb::RegisterClassIdentities(veltrane::tlb::VeltraneLibrary());
    for (const ObjectEntry& e : veltrane::shell::ObjectMap()) {
      const veltrane::tlb::ClassIdentity* id = veltrane::tlb::FindClassIdentity(*e.clsid);
      if (!id) continue;
      entries.push_back({e.clsid, id->progId, id->versionIndependentProgId, true, getClassObject});
    }
    if (!entries.empty()) CoRegisterClassTable(entries.data(), static_cast<UINT>(entries.size()));
  }
  std::vector<COCLASS_REGISTRATION> entries;
};

const ModuleRegistration g_registration;

}  // namespace

extern "C" {

HRESULT DllCanUnloadNow() { return veltrane::platform::ModuleLockCount() == 0 ? S_OK : S_FALSE; }

HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  const ObjectEntry* entry = veltrane::shell::FindObjectEntry(rclsid);
  if (!entry) return CLASS_E_CLASSNOTAVAILABLE;
  CClassFactory* factory = nullptr;
  HRESULT hr = CClassFactory::CComObjectBase::CreateInstance(&factory);
  if (FAILED(hr)) return hr;
  factory->init(entry);
  hr = factory->QueryInterface(riid, ppv);
  factory->Release();
  return hr;
}

HRESULT DllRegisterServer() { return veltrane::shell::UpdateRegistration(true); }

HRESULT DllUnregisterServer() { return veltrane::shell::UpdateRegistration(false); }

HRESULT DllInstall(BOOL bInstall, LPCWSTR pszCmdLine) {
  if (veltrane::shell::IsPerUserCommand(pszCmdLine)) AtlSetPerUserRegistration(true);
  if (!bInstall) return DllUnregisterServer();
  const HRESULT hr = DllRegisterServer();
  if (FAILED(hr)) DllUnregisterServer();
  return hr;
}

}  // extern "C"
