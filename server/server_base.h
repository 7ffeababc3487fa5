// IRfcServerImpl<Derived>: what the server classes share of IRfcServer and
// _RfcServerEvents. It keeps the gateway's three names, the prototypes of
// RegisteredFunctions, the ErrorInfo object, the Error and IsListening
// flags and the option store, and asks the client through the events:
// IncomingCall with the call, Logon with a fresh RfcServerLogonInfo, the
// transaction events with a fresh RfcTransactionInfo, ServerError with an
// error info. Each question returns the handler's answer as it stands when
// the handler has returned.
//
// The events' sinks live in the global interface table
// (IGlobalConnectionPointImpl): a server thread that fires waits while the
// handler runs in the apartment where its sink advised, which must pump
// messages meanwhile. Derived implements Option put, Serve, Shutdown and
// InstallFunction.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "model/model.h"
#include "platform/atlbase.h"
#include "platform/connection_point.h"
#include "platform/dispatch_impl.h"
#include "server/server_info.h"
#include "session/option_store.h"
#include "veltrane_events.h"
#include "veltrane_tlb.h"

namespace veltrane::server {

// The events of a transaction, each with its RfcTransactionInfo.
enum class TransactionEvent { Check, Commit, Rollback, Confirm };

// What a Logon handler is told.
struct LogonRequest {
  std::u16string function, client, user, language, tcode;
  bool sncEnabled = false;
  std::u16string sncPartnerName;
};

}  // namespace veltrane::server

template <class Derived>
class IRfcServerImpl : public IDispatchImpl<Derived, IRfcServer> {
 public:
  using Events = CProxy_RfcServerEvents<Derived, IGlobalConnectionPointImpl>;

  HRESULT STDMETHODCALLTYPE get_ErrorInfo(IRfcServerErrorInfo** pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = m_errorInfo;
    (*pVal)->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_RegisteredFunctions(IFunctionCalls** pVal) override {
    if (!pVal) return E_POINTER;
    return m_registered.CopyTo(pVal);
  }
  HRESULT STDMETHODCALLTYPE get_IsListening(VARIANT_BOOL* pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = m_isListening ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Error(VARIANT_BOOL* pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = m_hasError ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_ProgramID(BSTR* pVal) override { return m_programId.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_ProgramID(BSTR newVal) override { return Assign(m_programId, newVal); }
  HRESULT STDMETHODCALLTYPE get_GatewayHost(BSTR* pVal) override { return m_gatewayHost.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_GatewayHost(BSTR newVal) override { return Assign(m_gatewayHost, newVal); }
  HRESULT STDMETHODCALLTYPE get_GatewayService(BSTR* pVal) override { return m_gatewayService.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_GatewayService(BSTR newVal) override { return Assign(m_gatewayService, newVal); }
  // A copy of the stored value; an unknown name reads as empty.
  HRESULT STDMETHODCALLTYPE get_Option(BSTR name, BSTR* pVal) override { return m_options.Get(name, pVal); }

 protected:
  IRfcServerImpl() = default;
  ~IRfcServerImpl() = default;

  HRESULT FinalConstruct() {
    HRESULT hr = CreateFunctionCalls(&m_registered);
    if (FAILED(hr)) return hr;
    return CRfcServerErrorInfo::CreateInstance(&m_errorInfo);
  }

  // IncomingCall; the result of the firing (S_OK without a sink).
  HRESULT AskIncomingCall(IFunctionCall* call) { return Self().Fire_IncomingCall(call); }

  // Logon with a fresh info; true unless a handler set RequestAllowed false.
  // *fired gets the result of the firing.
  bool AskLogon(const veltrane::server::LogonRequest& request, HRESULT* fired = nullptr) {
    CComPtr<CRfcServerLogonInfo> info;
    if (FAILED(CRfcServerLogonInfo::CreateInstance(&info))) return false;
    info->SetLogonInfo(CComBSTR(request.function), CComBSTR(request.client), CComBSTR(request.user),
                       CComBSTR(request.language), CComBSTR(request.tcode),
                       request.sncEnabled ? VARIANT_TRUE : VARIANT_FALSE, CComBSTR(request.sncPartnerName));
    const HRESULT hr = Self().Fire_Logon(info);
    if (fired) *fired = hr;
    return info->Allowed();
  }

  // One transaction event with a fresh info; the Status it ends with
  // (65534 when no handler set it).
  long AskTransaction(veltrane::server::TransactionEvent event, std::u16string_view tid) {
    using veltrane::server::TransactionEvent;
    CComPtr<CRfcTransactionInfo> info;
    if (FAILED(CRfcTransactionInfo::CreateInstance(&info))) return CRfcTransactionInfo::kUnanswered;
    info->SetTID(CComBSTR(tid));
    switch (event) {
      case TransactionEvent::Check: Self().Fire_TransactionCheck(info); break;
      case TransactionEvent::Commit: Self().Fire_TransactionCommit(info); break;
      case TransactionEvent::Rollback: Self().Fire_TransactionRollback(info); break;
      case TransactionEvent::Confirm: Self().Fire_TransactionConfirm(info); break;
    }
    return info->CurrentStatus();
  }

  // ServerError with info; true when the handler (now or earlier) set its
  // Restart.
  bool AskServerError(CRfcServerErrorInfo* info) {
    Self().Fire_ServerError(info);
    return info->RestartWanted();
  }

  std::u16string OptionValue(std::u16string_view name) const { return m_options.Value(name); }

  static HRESULT Assign(CComBSTR& target, BSTR value) {
    target = CComBSTR(BstrView(value));
    return (target || SysStringLen(value) == 0) ? S_OK : E_OUTOFMEMORY;
  }

  CComBSTR m_programId, m_gatewayHost, m_gatewayService;
  CComPtr<IFunctionCalls> m_registered;
  CComPtr<CRfcServerErrorInfo> m_errorInfo;
  OptionStore m_options;
  // Written by the server thread, read by the client's.
  std::atomic<bool> m_isListening{false};
  std::atomic<bool> m_hasError{false};

 private:
  Derived& Self() { return static_cast<Derived&>(*this); }
};
