#include "soap/soap_session.h"

#include <boost/format.hpp>

#include "model/model.h"
#include "platform/comdef.h"
#include "runtime/exceptions.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"
#include "platform/unicode.h"
#include "soap/http_system_data.h"
#include "soap/soap_metadata_import.h"
#include "soap/soap_rfc_xml.h"

namespace {

HRESULT Report(Text text) { return ReportError(CLSID_SoapSession, text); }

std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }

// The boundary handlers of Connect and CallFunction, by what was caught.
// The trace lines name the operation, not this helper.
template <class Body>
HRESULT Guarded(const char* operation, Body body, const std::function<void(const CXSoapErrorResponse&)>& onFault) {
  auto log = [operation](const boost::format& text) { ::TraceLog(TRACE_ERROR, text, operation, __FILE__, __LINE__); };
  try {
    return body();
  } catch (const CXSoapErrorResponse& e) {
    onFault(e);
    return S_OK;
  } catch (const CXVeltrane& e) {
    log(boost::format("CXVeltrane Error: %1% in CSOAPSession::%2%()") % e.what() % operation);
    return Report(Text::Unexpected);
  } catch (const _com_error& e) {
    log(boost::format("COM Error %1% (%2%) in CSOAPSession::%3%()") % e.Error() % Narrow(e.ErrorMessage()) % operation);
    return e.Error();
  } catch (const std::exception& e) {
    log(boost::format("C++ Exception: %1% in CSOAPSession::%2%()") % e.what() % operation);
    return Report(Text::Unexpected);
  }
}

}  // namespace

HRESULT CSoapSession::FinalConstruct() {
  CHttpSystemData* data = nullptr;
  HRESULT hr = CHttpSystemData::CreateInstance(&data);
  if (FAILED(hr)) return hr;
  m_systemData.Attach(data);
  return S_OK;
}

HRESULT CSoapSession::CreateObject(REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  CSoapSession* session = nullptr;
  HRESULT hr = CreateInstance(&session);
  if (FAILED(hr)) return hr;
  hr = session->QueryInterface(riid, ppv);
  session->Release();
  return hr;
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
  std::lock_guard<std::mutex> lock(m_exchangeMutex);
  *pVal = m_transport && m_activeRequest ? VARIANT_TRUE : VARIANT_FALSE;
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
  return Guarded(
      "Connect",
      [&]() -> HRESULT {
        const std::u16string file = OptionValue(u"trace.file");
        if (!file.empty() && !TraceIsOpen()) TraceOpen(u"Veltrane", file, true);
        TRACE_LOG(TRACE_INFORMATION, "CSoapSession: Connect()");
        CComPtr<ILogonData> logon;
        ThrowIfFailed(get_LogonData(&logon));
        m_transport = std::make_unique<WinHttpTransport>(m_systemData, logon);
        m_transport->Connect();
        VARIANT_BOOL stateful = VARIANT_FALSE;
        ThrowIfFailed(m_systemData->get_Stateful(&stateful));
        RfcPing(stateful ? 1 : 0);
        if (!ErrorFlag()) {
          TRACE_LOG(TRACE_INFORMATION, "CSoapSession: Connect(): ok");
          return S_OK;
        }
        return Report(Text::RfcError);
      },
      [&](const CXSoapErrorResponse& e) { SetError(VARIANT_TRUE, e.Group(), e.FaultText(), e.Detail(), u""); });
}

void CSoapSession::RfcPing(int sessionMode) {
  Trace(u"Calling RFC_PING\n");
  CComPtr<IFunctionCall> call;
  ThrowIfFailed(CreateCall(&call));
  ThrowIfFailed(call->put_Function(CComBSTR(u"RFC_PING")));
  const std::string envelope = SoapRfcXML::BuildEnvelope(call);
  std::unique_ptr<WinHttpRequest> request = m_transport->CreateRequest(call, sessionMode);
  {
    std::lock_guard<std::mutex> lock(m_exchangeMutex);
    m_activeCall = call;
  }
  request->Send(envelope, 0);
  const WinHttpResponse response = request->AwaitResponse(kResponseLimit);
  HandleResponse(response);
}

HRESULT CSoapSession::CallFunction(IFunctionCall* call, VARIANT_BOOL synchronous) {
  if (!m_transport) return Report(Text::NotConnected);
  {
    std::lock_guard<std::mutex> lock(m_exchangeMutex);
    if (m_activeRequest) return Report(Text::CallRunning);
  }
  if (!call) return E_POINTER;
  return Guarded(
      "CallFunction",
      [&]() -> HRESULT {
        SetError(VARIANT_FALSE, 0, u"", u"", u"");
        ThrowIfFailed(PruneOptionalParameters(call));
        const std::string envelope = SoapRfcXML::BuildEnvelope(call);
        std::unique_ptr<WinHttpRequest> created = m_transport->CreateRequest(call, 0);
        WinHttpRequest* request = created.get();
        {
          std::lock_guard<std::mutex> lock(m_exchangeMutex);
          m_activeRequest = std::move(created);
          m_activeCall = call;
        }
        if (synchronous == VARIANT_TRUE) {
          request->Send(envelope, 0);
          const WinHttpResponse response = request->AwaitResponse(kResponseLimit);
          HandleResponse(response);
        } else {
          // The callback goes on before the request is sent, so that an
          // answer faster than this thread is not lost. From Send on, the
          // worker may end the exchange and destroy the request.
          request->SetCallback(&CSoapSession::StatusCallback, this);
          Pin();
          request->Send(envelope, 0);
        }
        return S_OK;
      },
      [&](const CXSoapErrorResponse& e) { SetError(VARIANT_TRUE, e.Group(), e.FaultText(), e.Detail(), u""); });
}

void CSoapSession::HandleResponse(const WinHttpResponse& response) {
  CComPtr<IFunctionCall> call;
  {
    std::lock_guard<std::mutex> lock(m_exchangeMutex);
    call = m_activeCall;
  }
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
  EndExchange();
}

void CSoapSession::EndExchange() {
  std::unique_ptr<WinHttpRequest> request;
  CComPtr<IFunctionCall> call;
  {
    std::lock_guard<std::mutex> lock(m_exchangeMutex);
    request = std::move(m_activeRequest);
    call.Attach(m_activeCall.Detach());
  }
  // Destroyed outside the lock: closing a request waits for a notification
  // that may be running on the worker.
  request.reset();
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
  session->FireCallFinished();
  // The last statement: a sink may have released the client's last reference.
  session->Unpin();
}

void CSoapSession::Pin() {
  {
    std::lock_guard<std::mutex> lock(m_exchangeMutex);
    if (m_pinned) return;
    m_pinned = true;
  }
  AddRef();
}

void CSoapSession::Unpin() {
  {
    std::lock_guard<std::mutex> lock(m_exchangeMutex);
    if (!m_pinned) return;
    m_pinned = false;
  }
  Release();
}

HRESULT CSoapSession::AbortCall() {
  std::unique_ptr<WinHttpRequest> request;
  CComPtr<IFunctionCall> call;
  {
    std::lock_guard<std::mutex> lock(m_exchangeMutex);
    if (!m_transport || !m_activeRequest) return S_OK;
    request = std::move(m_activeRequest);
    call.Attach(m_activeCall.Detach());
  }
  try {
    request->Close();
  } catch (const std::exception& e) {
    TRACE_LOG(TRACE_ERROR, (boost::format("Exception: %1% in CSOAPSession::AbortCall()") % e.what()));
    return Report(Text::Unexpected);
  }
  request.reset();
  Unpin();
  return S_OK;
}

HRESULT CSoapSession::Disconnect() {
  Trace(u"CSoapSession->Disconnect()\n");
  if (!m_transport) return Report(Text::NotConnected);
  try {
    bool running;
    {
      std::lock_guard<std::mutex> lock(m_exchangeMutex);
      running = m_activeRequest != nullptr;
    }
    if (running) AbortCall();
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

SoapImportContext CSoapSession::MakeImportContext() {
  SoapImportContext ctx;
  ctx.isConnected = [this] { return m_transport != nullptr; };
  ctx.callFunction = [this](IFunctionCall* call) { return CallFunction(call, VARIANT_TRUE); };
  ctx.importType = [this](BSTR name, IRfcType** type) { return ImportType(name, type); };
  ctx.clsid = &CLSID_SoapSession;
  return ctx;
}

HRESULT CSoapSession::ImportTypeFromBackend(BSTR name, IRfcType* type) {
  return SoapImportType(MakeImportContext(), name, type);
}

HRESULT CSoapSession::ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall* call) {
  return SoapImportCall(MakeImportContext(), name, ignoreUnsupportedParams, call);
}
