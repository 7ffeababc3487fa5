// CConnectorCtrl: the control that hosts place on a form
// (ConnectorCtrl, "Veltrane.ConnectorCtrl"). It has no function of its own
// beyond being a factory for the session and server objects; a new object
// is not tied to the control and lives on after it.
//
// On Linux there is no container that places controls: a host gets the
// Automation object (IConnectorCtrl, IDispatch), and the registry holds
// what a container would read (Control, MiscStatus, ToolboxBitmap32). The
// control is invisible at run time and paints nothing.
#pragma once

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CConnectorCtrl : public CComObjectBase<CConnectorCtrl, CoClassConnectorCtrl<CConnectorCtrl>> {
 public:
  // OLEMISC_SETCLIENTSITEFIRST | OLEMISC_INVISIBLEATRUNTIME |
  // OLEMISC_ACTIVATEWHENVISIBLE | OLEMISC_INSIDEOUT | OLEMISC_CANTLINKINSIDE |
  // OLEMISC_RECOMPOSEONRESIZE.
  static constexpr DWORD kMiscStatus = 0x20000 | 0x400 | 0x100 | 0x80 | 0x10 | 0x1;

  // Each factory creates its class by class id: directly when this library
  // builds it, otherwise through the class table, which asks the registry,
  // so that a class of another library works as soon as it is registered.
  // A class that is nowhere gives REGDB_E_CLASSNOTREG.
  HRESULT STDMETHODCALLTYPE CreateRfcSession(IRfcSession** pVal) override;
  HRESULT STDMETHODCALLTYPE CreateSOAPSession(ISoapSession** pVal) override;
  // On purpose wired to no class: success, and *pVal as the caller left it.
  HRESULT STDMETHODCALLTYPE CreateRfcServer(IRfcServer** pVal) override;
  HRESULT STDMETHODCALLTYPE CreateNWRfcSession(IRfcSession** pVal) override;
  HRESULT STDMETHODCALLTYPE CreateNWRfcServer(IRfcServer** pVal) override;
};
