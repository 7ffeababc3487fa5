#include "shell/connector_ctrl.h"

#include "shell/object_map.h"

namespace {

template <class Itf>
HRESULT Create(REFCLSID clsid, Itf** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  void** slot = reinterpret_cast<void**>(out);
  if (const veltrane::shell::ObjectEntry* entry = veltrane::shell::FindObjectEntry(clsid))
    return entry->createInstance(__uuidof(Itf), slot);
  return CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, __uuidof(Itf), slot);
}

}  // namespace

HRESULT CConnectorCtrl::CreateRfcSession(IRfcSession** pVal) { return Create(CLSID_RfcSession, pVal); }

HRESULT CConnectorCtrl::CreateSOAPSession(ISoapSession** pVal) { return Create(CLSID_SoapSession, pVal); }

HRESULT CConnectorCtrl::CreateRfcServer(IRfcServer**) { return S_OK; }

HRESULT CConnectorCtrl::CreateNWRfcSession(IRfcSession** pVal) { return Create(CLSID_NWRfcSession, pVal); }

HRESULT CConnectorCtrl::CreateNWRfcServer(IRfcServer** pVal) { return Create(CLSID_NWRfcServer, pVal); }
