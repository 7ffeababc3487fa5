#include "soap/soap_session.h"

#include <boost/format.hpp>

#include "platform/comdef.h"
#include "platform/unicode.h"
#include "runtime/exceptions.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"
#include "soap/http_system_data.h"
#include "soap/soap_rfc_xml.h"

namespace {

HRESULT Report(Text text) { return ReportError(CLSID_SoapSession, text); }

std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }

// A flag among the options of ours.
bool IsSet(std::u16string_view option) { return option == u"X" || option == u"1" || option == u"true"; }

}  // namespace

// One call over HTTP: its envelope and its request.
class CSoapSession::SoapCall final : public RunningCall {
 public:
  SoapCall(CSoapSession* session, std::string envelope, std::unique_ptr<WinHttpRequest> request)
      : m_session(session), m_envelope(std::move(envelope)), m_request(std::move(request)) {}

  void RunSynchronously() override {
    const WinHttpResponse response = m_request->SendAndAwait(m_envelope, kResponseLimit);
    m_session->HandleResponse(response);  // ends the call and destroys this object
  }

  // The callback goes on before the request is sent, so that an answer
  // faster than this thread is not lost. From Send on, the worker may end
  // the call and destroy this object.
  void Start() override {
    m_request->SetCallback(&CSoapSession::StatusCallback, m_session);
    m_request->Send(m_envelope, 0);
  }

  void Abort() override { m_request->Close(); }

 private:
  CSoapSession* m_session;
  std::string m_envelope;
  std::unique_ptr<WinHttpRequest> m_request;
};

HRESULT CSoapSession::FinalConstruct() {
  CHttpSystemData* data = nullptr;
  HRESULT hr = CHttpSystemData::CreateInstance(&data);
  if (FAILED(hr)) return hr;
  m_systemData.Attach(data);
  return S_OK;
}

CSoapSession::~CSoapSession() {
  if (m_transport) Disconnect();
}

// ------------------------------------------------------------- properties

HRESULT CSoapSession::get_IsConnected(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_transport ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

HRESULT CSoapSession::get_CallActive(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_transport && CallRunning() ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

HRESULT CSoapSession::get_SessionType(BSTR* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = SysAllocString(u"SOAP");
  return *pVal ? S_OK : E_OUTOFMEMORY;
}

HRESULT CSoapSession::get_HttpSystemData(IHttpSystemData** pVal) {
  if (!pVal) return E_POINTER;
  return m_systemData.CopyTo(pVal);
}

HRESULT CSoapSession::CreateTransID(BSTR* tid) { return E_NOTIMPL; }
HRESULT CSoapSession::ConfirmTransID(BSTR tid) { return E_NOTIMPL; }
HRESULT CSoapSession::CallTRFCFunction(BSTR tid, IFunctionCall* fn) { return E_NOTIMPL; }

// ---------------------------------------------------------------- methods

HRESULT CSoapSession::Connect() {
  if (m_transport) return Report(Text::AlreadyConnected);
  return Guard("Connect", [&]() -> HRESULT {
    const std::u16string file = OptionValue(u"trace.file");
    if (!file.empty() && !TraceIsOpen()) TraceOpen(u"Veltrane", file, true);
    TRACE_LOG(TRACE_INFORMATION, "CSoapSession: Connect()");
    CComPtr<ILogonData> logon;
    ThrowIfFailed(get_LogonData(&logon));
    m_transport = std::make_unique<WinHttpTransport>(m_systemData, logon);
    // Options of ours beyond the specified ones: HTTPS and its certificate authorities.
    m_transport->UseTls(IsSet(OptionValue(u"soap.https")), Narrow(OptionValue(u"soap.ca_file")));
    m_transport->Connect();
    VARIANT_BOOL stateful = VARIANT_FALSE;
    ThrowIfFailed(m_systemData->get_Stateful(&stateful));
    // An option of ours: without a stateful context to open, the first call
    // proves host, credentials and client instead of a ping.
    if (!stateful && IsSet(OptionValue(u"soap.skip_ping"))) {
      TRACE_LOG(TRACE_INFORMATION, "CSoapSession: Connect(): ok, the logon is checked by the first call");
      return S_OK;
    }
    RfcPing(stateful ? 1 : 0);
    if (!ErrorFlag()) {
      TRACE_LOG(TRACE_INFORMATION, "CSoapSession: Connect(): ok");
      return S_OK;
    }
    return Report(Text::RfcError);
  });
}

void CSoapSession::RfcPing(int sessionMode) {
  Trace(u"Calling RFC_PING\n");
  CComPtr<IFunctionCall> call;
  ThrowIfFailed(CreateCall(&call));
  ThrowIfFailed(call->put_Function(CComBSTR(u"RFC_PING")));
  const std::string envelope = SoapRfcXML::BuildEnvelope(call);
  std::unique_ptr<WinHttpRequest> request = m_transport->CreateRequest(call, sessionMode);
  BeginOwnCall(call);
  const WinHttpResponse response = request->SendAndAwait(envelope, kResponseLimit);
  HandleResponse(response);
}

std::unique_ptr<RunningCall> CSoapSession::PrepareCall(IFunctionCall* call) {
  std::string envelope = SoapRfcXML::BuildEnvelope(call);
  return std::make_unique<SoapCall>(this, std::move(envelope), m_transport->CreateRequest(call, 0));
}

void CSoapSession::HandleResponse(const WinHttpResponse& response) {
  CComPtr<IFunctionCall> call = ActiveCall();
  const std::u16string& status = response.statusCode;
  try {
    if (status == u"401" || status == u"403")
      SetError(VARIANT_TRUE, RFCERROR_LOGON_FAILURE, u"RFC_LOGON_FAILURE",
               u"Name or password is incorrect (repeat logon)", u"");
    if (status != u"200" && status != u"500") {
      const std::string text =
          (boost::format("Server response status %1%:\n%2%\n") % Narrow(status) % response.body).str();
      TRACE_LOG(TRACE_ERROR, (boost::format("SOAP Error: %1%") % text));
      SetError(VARIANT_TRUE, RFCERROR_SYSTEM_FAILURE, u"SOAP_ERROR", Utf8ToWideLossy(text), u"");
    } else {
      SoapRfcXML::ParseResponse(response.body, call);
    }
  } catch (const CXSoapErrorResponse& e) {
    SetError(VARIANT_TRUE, e.Group(), e.FaultText(), e.Detail(), u"");
  } catch (const _com_error& e) {
    const std::string text = (boost::format("COM Error %1% (%2%)") % e.Error() % Narrow(e.ErrorMessage())).str();
    TRACE_LOG(TRACE_ERROR, (boost::format("%1% in CSOAPSession::HandleResponse()") % text));
    SetError(VARIANT_TRUE, RFCERROR_SYSTEM_FAILURE, u"SOAP_ERROR", Utf8ToWideLossy(text), u"");
  } catch (const std::exception& e) {
    const std::string text = (boost::format("Exception %1%") % e.what()).str();
    TRACE_LOG(TRACE_ERROR, (boost::format("%1% in CSOAPSession::HandleResponse()") % text));
    SetError(VARIANT_TRUE, RFCERROR_SYSTEM_FAILURE, u"SOAP_ERROR", Utf8ToWideLossy(text), u"");
  }
  EndCall();
}

void CSoapSession::StatusCallback(WinHttpRequest* request, int32_t status, void* context) {
  auto* session = static_cast<CSoapSession*>(context);
  TRACE_LOG(TRACE_INFORMATION, (boost::format("StatusCallback %1%") % status));
  if (status != REQUEST_STATUS_COMPLETE && status != REQUEST_STATUS_FAILED) return;
  try {
    const WinHttpResponse response = request->AwaitResponse(kResponseLimit);
    session->HandleResponse(response);
  } catch (const std::exception& e) {
    // A transport failure of an asynchronous call: the session stays in the
    // stuck state (CallActive true until AbortCall), and the event still
    // fires so that a client waiting for it is not left hanging.
    TRACE_LOG(TRACE_ERROR, (boost::format("CXVeltrane Error: %1% in CSOAPSession::StatusCallback()") % e.what()));
  }
  session->FinishAsynchronousCall();
}

HRESULT CSoapSession::Disconnect() {
  Trace(u"CSoapSession->Disconnect()\n");
  if (!m_transport) return Report(Text::NotConnected);
  try {
    if (CallRunning()) AbortCall();
    VARIANT_BOOL stateful = VARIANT_FALSE;
    ThrowIfFailed(m_systemData->get_Stateful(&stateful));
    if (stateful) RfcPing(2);
    m_transport->Close();
    m_transport.reset();
    return S_OK;
  } catch (const std::exception& e) {
    TRACE_LOG(TRACE_ERROR, (boost::format("C++ Exception: %1% in CSOAPSession::Disconnect()") % e.what()));
    return Report(Text::Unexpected);
  }
}

void CSoapSession::SetError(VARIANT_BOOL flag, long group, const std::u16string& groupText,
                            const std::u16string& message, const std::u16string& moduleName) {
  if (flag)
    TRACE_LOG(TRACE_ERROR, (boost::format("SetError: %1% %2% %3% %4%") % group % Narrow(groupText) % Narrow(message) %
                            Narrow(moduleName)));
  SetErrorFlag(flag);
  IRfcError* info = ErrorInfoObject();
  if (!info) return;
  info->put_ERRORGROUP(static_cast<ERRORGROUP>(group));
  info->put_ErrorGroupTxt(CComBSTR(groupText));
  info->put_Message(CComBSTR(message));
  info->put_ModuleName(CComBSTR(moduleName));
}

// ----------------------------------------------------------------- import

MetadataImport CSoapSession::Importer() { return MetadataImport(Self(), CLSID_SoapSession, "CSoapSession"); }

HRESULT CSoapSession::ImportTypeFromBackend(BSTR name, IRfcType* type) { return Importer().Type(name, type); }

HRESULT CSoapSession::ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall* call) {
  return Importer().Call(name, ignoreUnsupportedParams, call);
}
