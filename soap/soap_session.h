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
#include <string>

#include "abap/metadata_import.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/connection_point.h"
#include "session/session_calls.h"
#include "soap/win_http_transport.h"
#include "veltrane_decl.h"
#include "veltrane_events.h"
#include "veltrane_tlb.h"

class CSoapSession
    : public CComObjectBase<CSoapSession,
                            CoClassSoapSession<CSoapSession, ISessionCallsImpl<CSoapSession, ISoapSession>>,
                            IConnectionPointContainerImpl<CSoapSession, CProxy_SessionEvents<CSoapSession>>> {
 public:
  // The class and its name in the boundary's trace lines.
  static constexpr SessionBoundary kBoundary{CLSID_SoapSession, "CSOAPSession"};
  // The wait limit of every exchange, in milliseconds.
  static constexpr long kResponseLimit = 30000;

  CSoapSession() = default;
  ~CSoapSession() override;

  HRESULT FinalConstruct();

  // ISession, by class.
  HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE get_CallActive(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE get_SessionType(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE Connect() override;
  HRESULT STDMETHODCALLTYPE Disconnect() override;
  HRESULT STDMETHODCALLTYPE CreateTransID(BSTR* tid) override;
  HRESULT STDMETHODCALLTYPE ConfirmTransID(BSTR tid) override;
  HRESULT STDMETHODCALLTYPE CallTRFCFunction(BSTR tid, IFunctionCall* fn) override;

  // ISoapSession.
  HRESULT STDMETHODCALLTYPE get_HttpSystemData(IHttpSystemData** pVal) override;

 private:
  class SoapCall;

  bool ReadyForCalls() const override { return m_transport != nullptr; }
  std::unique_ptr<RunningCall> PrepareCall(IFunctionCall* call) override;
  HRESULT ImportTypeFromBackend(BSTR name, IRfcType* type) override;
  HRESULT ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall* call) override;

  // Calls RFC_PING with the session mode (0, 1 or 2) and waits for it.
  void RfcPing(int sessionMode);
  // Judges the answer: ErrorInfo, or the active call filled; then ends the
  // call.
  void HandleResponse(const WinHttpResponse& response);
  // Installed on the request of an asynchronous call.
  static void StatusCallback(WinHttpRequest* request, int32_t status, void* session);
  void SetError(VARIANT_BOOL flag, long group, const std::u16string& groupText, const std::u16string& message,
                const std::u16string& moduleName);
  MetadataImport Importer();

  friend class ISessionImpl<CSoapSession, ISoapSession>;
  // The boundary's place for a fault of the server: SetError, with an empty
  // module name.
  void RecordFault(const RfcErrorRecord& record) {
    SetError(VARIANT_TRUE, record.group, record.key, record.message, u"");
  }

  CComPtr<IHttpSystemData> m_systemData;
  std::unique_ptr<WinHttpTransport> m_transport;
};
