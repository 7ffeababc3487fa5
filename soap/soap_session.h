// CSoapSession: the session that reaches the ABAP system through its SOAP
// service over plain HTTP (SoapSession, "Veltrane.SoapSession").
//
// Connect creates the transport and proves it with RFC_PING; CallFunction
// posts one call at a time. A synchronous call waits on the client's
// thread; an asynchronous one is finished on the transport's worker thread,
// which parses the answer and fires CallFinished there, without marshalling.
// A server-side failure ends in Error and ErrorInfo with a success result;
// misuse and transport failures give a failing result.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/connection_point.h"
#include "session/session_impl.h"
#include "soap/win_http_transport.h"
#include "veltrane_events.h"
#include "veltrane_tlb.h"

class CSoapSession
    : public CComObjectBase<CSoapSession, ISessionImpl<CSoapSession, ISoapSession>,
                            IConnectionPointContainerImpl<CSoapSession, CProxy_SessionEvents<CSoapSession>>,
                            ISupportErrorInfoImpl<&IID_ISoapSession, &IID_ISession>> {
 public:
  // The wait limit of every exchange, in milliseconds.
  static constexpr long kResponseLimit = 30000;

  CSoapSession() = default;
  ~CSoapSession() override;

  HRESULT FinalConstruct();

  // For the object map.
  static HRESULT CreateObject(REFIID riid, void** ppv);

  // ISession, by class.
  HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE get_CallActive(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE get_SessionType(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE Connect() override;
  HRESULT STDMETHODCALLTYPE Disconnect() override;
  HRESULT STDMETHODCALLTYPE CallFunction(IFunctionCall* call, VARIANT_BOOL synchronous) override;
  HRESULT STDMETHODCALLTYPE AbortCall() override;
  HRESULT STDMETHODCALLTYPE CreateTransID(BSTR* tid) override;
  HRESULT STDMETHODCALLTYPE ConfirmTransID(BSTR tid) override;
  HRESULT STDMETHODCALLTYPE CallTRFCFunction(BSTR tid, IFunctionCall* fn) override;

  // ISoapSession.
  HRESULT STDMETHODCALLTYPE get_HttpSystemData(IHttpSystemData** pVal) override;

 private:
  HRESULT ImportTypeFromBackend(BSTR name, IRfcType* type) override;
  HRESULT ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall* call) override;

  // Calls RFC_PING with the session mode (0, 1 or 2) and waits for it.
  void RfcPing(int sessionMode);
  // Judges the answer: ErrorInfo, or the active call filled; then ends the
  // active exchange.
  void HandleResponse(const WinHttpResponse& response);
  // Installed on the request of an asynchronous call.
  static void StatusCallback(WinHttpRequest* request, int32_t status, void* session);
  void SetError(VARIANT_BOOL flag, long group, const std::u16string& groupText, const std::u16string& message,
                const std::u16string& moduleName);
  // Takes the active request and call out of the session.
  void EndExchange();
  // An asynchronous call holds a reference on the session from its start
  // until CallFinished has been fired or the call is aborted, so that
  // neither the client's last Release nor a sink's can pull the session
  // from under the worker.
  void Pin();
  void Unpin();

  struct SoapImportContext MakeImportContext();

  CComPtr<IHttpSystemData> m_systemData;
  std::unique_ptr<WinHttpTransport> m_transport;

  // The running exchange; the worker thread of an asynchronous call ends it.
  mutable std::mutex m_exchangeMutex;
  std::unique_ptr<WinHttpRequest> m_activeRequest;
  CComPtr<IFunctionCall> m_activeCall;
  bool m_pinned = false;
};
