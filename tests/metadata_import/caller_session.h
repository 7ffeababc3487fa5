// A session whose calls travel through SimCaller: the smallest back end on
// the session core. It supplies readiness, how a call runs, and the imports
// (abap/metadata_import over itself); the frame does the rest.
#pragma once

#include "abap/metadata_import.h"
#include "platform/com_object.h"
#include "platform/connection_point.h"
#include "session/session_calls.h"
#include "sim_caller.h"
#include "veltrane_events.h"
#include "veltrane_tlb.h"

namespace import_test {

class CCallerSession
    : public CComObjectBase<CCallerSession, ISessionCallsImpl<CCallerSession, ISoapSession>,
                            IConnectionPointContainerImpl<CCallerSession, CProxy_SessionEvents<CCallerSession>>,
                            ISupportErrorInfoImpl<&IID_ISoapSession, &IID_ISession>> {
 public:
  static constexpr SessionBoundary kBoundary{CLSID_SoapSession, "CCallerSession"};

  SimCaller* caller = nullptr;
  bool connected = true;
  // Calls fail on the way (a transport failure): CallFunction gives text 519.
  bool failCalls = false;

  MetadataImport Importer() { return MetadataImport(Self(), CLSID_SoapSession, "CSoapSession"); }

  HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL* pVal) override {
    *pVal = connected ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_CallActive(VARIANT_BOOL* pVal) override {
    *pVal = CallRunning() ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_SessionType(BSTR* pVal) override { return CComBSTR(u"CALLER").CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE Connect() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Disconnect() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CreateTransID(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE ConfirmTransID(BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CallTRFCFunction(BSTR, IFunctionCall*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_HttpSystemData(IHttpSystemData**) override { return E_NOTIMPL; }

 private:
  class Call final : public RunningCall {
   public:
    Call(CCallerSession* session, IFunctionCall* call) : m_session(session), m_call(call) {}
    void RunSynchronously() override {
      CCallerSession* session = m_session;
      if (session->failCalls) throw CXWinHTTPError(ERROR_WINHTTP_CANNOT_CONNECT);
      session->caller->Call(m_call);
      if (session->caller->error)
        session->SetError(
            {static_cast<ERRORGROUP>(session->caller->group), session->caller->faultText, session->caller->detail});
      session->EndCall();  // the last use of this object
    }
    void Start() override { throw CXVeltrane(CXVeltrane::OTHER, u"the caller runs synchronous calls only"); }
    void Abort() override {}

   private:
    CCallerSession* m_session;
    IFunctionCall* m_call;
  };

  bool ReadyForCalls() const override { return connected; }
  std::unique_ptr<RunningCall> PrepareCall(IFunctionCall* call) override { return std::make_unique<Call>(this, call); }
  HRESULT ImportTypeFromBackend(BSTR name, IRfcType* type) override { return Importer().Type(name, type); }
  HRESULT ImportCallFromBackend(BSTR name, VARIANT_BOOL ignore, IFunctionCall* call) override {
    return Importer().Call(name, ignore, call);
  }
};

}  // namespace import_test
