#include "nwrfc/nwrfc_session.h"

#include <thread>

#include <boost/exception/diagnostic_information.hpp>
#include <boost/format.hpp>

#include "nwrfc/connection_parameters.h"
#include "nwrfc/nwrfc_data_converter.h"
#include "nwrfc/nwrfc_field.h"
#include "nwrfc/sdk_error.h"
#include "nwrfc/sdk_text.h"
#include "nwrfc_return_codes.h"
#include "platform/comdef.h"
#include "platform/unicode.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"

using namespace veltrane::nwrfc;

namespace {

std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }

void Log(int level, const boost::format& text, const char* operation) {
  TraceLog(level, text, operation, __FILE__, __LINE__);
}

HRESULT Report(Text text) { return ReportError(CLSID_NWRfcSession, text); }

std::u16string FunctionName(IFunctionCall* call) {
  CComBSTR name;
  ThrowIfFailed(call->get_Function(&name));
  return std::u16string(name.View());
}

// The result of a null handle's publication: text 543 also where the SDK
// left its record clear.
HRESULT Failed(HRESULT published) { return FAILED(published) ? published : Report(Text::RfcError); }

void TraceCallFunction(HRESULT hr) {
  Log(TRACE_INFORMATION, boost::format("CallFunction(0x%|1$08X|)") % static_cast<uint32_t>(hr), "CallFunction");
}

}  // namespace

// What one call takes through the SDK: the connection and the record it
// was prepared with, and the function container, filled.
struct CNWRfcSession::Invocation {
  CComPtr<IFunctionCall> call;
  RFC_CONNECTION_HANDLE connection = nullptr;
  RFC_FUNCTION_HANDLE function = nullptr;
  RFC_ERROR_INFO record{};
};

// One call on its way through the SDK. The session keeps no record of it
// (ParallelCalls::LeftToTheSdk): an asynchronous call takes its Invocation
// along to its thread.
class CNWRfcSession::NWCall final : public RunningCall {
 public:
  NWCall(CNWRfcSession* session, Invocation invocation) : m_session(session), m_invocation(std::move(invocation)) {}

  // A successful invoke clears callActive, also of the synchronous form.
  void RunSynchronously() override {
    const HRESULT hr = m_session->DoInvoke(m_invocation);
    if (SUCCEEDED(hr)) m_session->m_callActive = false;
    TraceCallFunction(hr);
    if (FAILED(hr)) throw _com_error(hr);
  }

  // The invoke runs on a detached thread in an apartment of its own; the
  // session is pinned until the thread ends. CallFinished fires only after a
  // successful invoke, and callActive is cleared after it: a sink sees
  // CallActive true. A failed one leaves callActive set and fires nothing.
  void Start() override {
    CNWRfcSession* session = m_session;
    session->m_callActive = true;
    session->InvokeStarted();
    try {
      std::thread([session, invocation = std::move(m_invocation)]() mutable {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        // What escapes the invoke here has no caller to reach: it ends the
        // call as a failure, traced by the boundary.
        const HRESULT hr = session->Guard("CallFunction", [&] { return session->DoInvoke(invocation); });
        session->InvokeEnded();
        if (SUCCEEDED(hr)) session->FireCallFinished();
        CoUninitialize();
        if (SUCCEEDED(hr)) session->m_callActive = false;
        session->ReleaseAsynchronousCall();  // the last use of the session
      }).detach();
    } catch (...) {
      session->InvokeEnded();
      session->m_callActive = false;
      throw;
    }
    TraceCallFunction(S_OK);
  }

  // Never asked for: the session holds no record of its calls, and AbortCall
  // is its own.
  void Abort() override {}

 private:
  CNWRfcSession* m_session;
  Invocation m_invocation;
};

bool CNWRfcSession::TidOrder::operator()(const CComBSTR& a, const CComBSTR& b) const {
  return VarBstrCmp(a.m_str, b.m_str, 0x400, 0) == VARCMP_LT;
}

HRESULT CNWRfcSession::FinalConstruct() {
  CRfcSystemData* data = nullptr;
  HRESULT hr = CRfcSystemData::CreateInstance(&data);
  if (FAILED(hr)) return hr;
  m_systemData.Attach(data);
  return S_OK;
}

// As Disconnect, when connected. The handles of transactions never
// confirmed are left to the SDK: the map goes without RfcDestroyTransaction.
CNWRfcSession::~CNWRfcSession() {
  if (m_connection) CloseConnection();
}

// ------------------------------------------------------------- properties

HRESULT CNWRfcSession::get_IsConnected(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = reinterpret_cast<intptr_t>(m_connection) > 0 ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

HRESULT CNWRfcSession::get_CallActive(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_callActive ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

HRESULT CNWRfcSession::get_SessionType(BSTR* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = SysAllocString(u"NWRFC");
  return *pVal ? S_OK : E_OUTOFMEMORY;
}

HRESULT CNWRfcSession::get_RfcSystemData(IRfcSystemData** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_systemData;
  (*pVal)->AddRef();
  return S_OK;
}

// ------------------------------------------------------------ the results

HRESULT CNWRfcSession::PublishRfcResult(const RFC_ERROR_INFO& info, std::u16string_view context, Text code) {
  if (info.code == RFC_OK) {
    ClearError();
    if (!context.empty()) Log(TRACE_INFORMATION, boost::format("%1%: RFC_OK") % Narrow(context), "PublishRfcResult");
    return S_OK;
  }
  const RfcErrorRecord record = ErrorRecordOf(info);
  SetError(record);
  if (TraceLevel() >= TRACE_ERROR) {
    std::string rc = Narrow(SapText(Sdk().RfcGetRcAsString(info.code)));
    // A code the SDK gives no name for: the error table's, or its number.
    if (rc.empty()) {
      const char* known = NwRfcReturnCodeName(info.code);
      rc = known ? known : std::to_string(static_cast<int>(info.code));
    }
    const std::string key = Narrow(SapText(info.key)), message = Narrow(SapText(info.message));
    if (context.empty())
      Log(TRACE_ERROR, boost::format("RFC Error %1%: %2% %3%") % rc % key % message, "PublishRfcResult");
    else
      Log(TRACE_ERROR, boost::format("%1%: RFC Error %2%: %3% %4%") % Narrow(context) % rc % key % message,
          "PublishRfcResult");
    TraceAbapMessage(record);
  }
  return Report(code);
}

void CNWRfcSession::ShowExceptionKey(const RFC_ERROR_INFO& info) {
  // The published record again, its key as the message: one change of the
  // error state, whole for another thread.
  RfcErrorRecord record = ErrorRecordOf(info);
  record.message = record.key;
  SetError(record);
}

std::u16string CNWRfcSession::InvokeContext(std::u16string_view function, RFC_RC rc,
                                            const RFC_ERROR_INFO& record) const {
  if (rc == RFC_ABAP_EXCEPTION)
    return u"RfcInvoke(" + std::u16string(function) + u"): ABAP_EXCEPTION " + std::u16string(SapText(record.key));
  return u"RfcInvoke(" + std::u16string(function) + u")";
}

// ---------------------------------------------------------------- connect

// A connection already held is not looked at: its handle is overwritten, and
// the connection stays open until the process ends or the system drops it.
HRESULT CNWRfcSession::Connect() {
  return Guard("Connect", [&]() -> HRESULT {
    const std::u16string normalised = NormaliseBackslashes(m_systemData->ConnectString());
    Log(TRACE_INFORMATION, boost::format("connectstr=%1%") % Narrow(normalised), "Connect");
    ConnectionParameters parameters;
    try {
      parameters.AddConnectString(normalised);
    } catch (const InvalidConnectString&) {
      Log(TRACE_ERROR, boost::format("connectstr=%1%") % Narrow(normalised), "Connect");
      return Report(Text::InvalidConnectionString);
    } catch (const std::exception& e) {
      Log(TRACE_ERROR, boost::format("error while parsing connectstring: %1%") % boost::diagnostic_information(e),
          "Connect");
      return E_INVALIDARG;
    }
    const SHORT visualMode = m_systemData->VisualMode();
    if (visualMode == 1 || visualMode == 2) parameters.Add(u"use_sapgui", visualMode == 1 ? u"1" : u"2");
    const CLogonData* logon = Logon();
    const std::pair<const char16_t*, std::u16string_view> fromLogon[] = {{u"client", logon->Client()},
                                                                         {u"user", logon->User()},
                                                                         {u"passwd", logon->Password()},
                                                                         {u"lang", logon->Language()},
                                                                         {u"mysapsso2", logon->SSO2Ticket()}};
    for (const auto& [name, value] : fromLogon)
      if (!value.empty()) parameters.Add(name, std::u16string(value));
    const std::string masked = Narrow(parameters.MaskedText());

    HRESULT hr = InitSDK(m_errorInfo);
    if (FAILED(hr)) return hr;
    Log(TRACE_INFORMATION, boost::format("Calling RfcOpenConnection()..."), "Connect");
    m_connection = Sdk().RfcOpenConnection(parameters.Array(), parameters.Count(), &m_errorInfo);
    if (!m_connection) {
      Log(TRACE_ERROR, boost::format("connectstr=%1%") % masked, "Connect");
      return PublishRfcResult(m_errorInfo, u"RfcOpenConnection", Text::RfcError);
    }
    Log(TRACE_INFORMATION, boost::format("connection succeeded\nconnectstr=%1%") % masked, "Connect");
    return S_OK;
  });
}

HRESULT CNWRfcSession::Disconnect() {
  if (!m_connection) return Report(Text::NotConnected);
  return Guard("Disconnect", [&] { return CloseConnection(); });
}

void CNWRfcSession::InvokeStarted() {
  std::lock_guard<std::mutex> lock(m_invokeMutex);
  ++m_invokes;
}

void CNWRfcSession::InvokeEnded() {
  {
    std::lock_guard<std::mutex> lock(m_invokeMutex);
    --m_invokes;
  }
  m_invokesEnded.notify_all();
}

void CNWRfcSession::WaitForInvokes() {
  std::unique_lock<std::mutex> lock(m_invokeMutex);
  m_invokesEnded.wait(lock, [this] { return m_invokes == 0; });
}

HRESULT CNWRfcSession::CloseConnection() {
  // An invoke cannot be stopped; the connection goes when the running ones
  // have ended.
  WaitForInvokes();
  RFC_ERROR_INFO info{};
  Sdk().RfcCloseConnection(m_connection, &info);
  m_connection = nullptr;
  return PublishRfcResult(info, u"RfcCloseConnection", Text::RfcError);
}

// ------------------------------------------------------------------ calls

HRESULT CNWRfcSession::CreateFunction(IFunctionCall* call, RFC_ERROR_INFO& record, RFC_FUNCTION_HANDLE* function) {
  *function = nullptr;
  const std::u16string name = FunctionName(call);
  RFC_FUNCTION_DESC_HANDLE description = Sdk().RfcGetFunctionDesc(m_connection, name.c_str(), &record);
  if (!description) return Failed(PublishRfcResult(record, u"RfcGetFunctionDesc", Text::RfcError));
  *function = Sdk().RfcCreateFunction(description, &record);
  if (!*function) return Failed(PublishRfcResult(record, u"RfcCreateFunction", Text::RfcError));
  Log(TRACE_INFORMATION, boost::format("leaving"), "CreateFunction");
  return S_OK;
}

// A failure raises its result. The function handle is not destroyed when
// filling it fails.
std::unique_ptr<RunningCall> CNWRfcSession::PrepareCall(IFunctionCall* call) {
  Invocation invocation;
  invocation.call = call;
  invocation.connection = m_connection;
  HRESULT hr = CreateFunction(call, invocation.record, &invocation.function);
  if (FAILED(hr)) throw _com_error(hr);
  CNWRFCDataConverter converter(Sdk(), &invocation.record, ClassId());
  hr = converter.FillOutgoingArgs(call, invocation.function);
  PublishRfcResult(invocation.record, u"FillOutgoingArgs", Text::RfcError);
  if (FAILED(hr)) throw _com_error(hr);
  return std::make_unique<NWCall>(this, std::move(invocation));
}

HRESULT CNWRfcSession::DoInvoke(Invocation& invocation) {
  const std::u16string name = FunctionName(invocation.call);
  RFC_ERROR_INFO& record = invocation.record;
  const RFC_RC rc = Sdk().RfcInvoke(invocation.connection, invocation.function, &record);
  CNWRFCDataConverter converter(Sdk(), &record, ClassId());
  HRESULT hr;
  if (rc == RFC_ABAP_EXCEPTION) {
    PublishRfcResult(record, InvokeContext(name, rc, record), Text::RfcError);
    ShowExceptionKey(record);
    hr = converter.FillIncomingArgs(rc, invocation.function, invocation.call);
  } else {
    PublishRfcResult(record, InvokeContext(name, rc, record), Text::RfcError);
    hr = converter.FillIncomingArgs(rc, invocation.function, invocation.call);
    PublishRfcResult(record, u"FillIncomingArgs", Text::RfcError);
  }
  if (FAILED(hr)) return hr;
  if (Sdk().RfcDestroyFunction(invocation.function, &record) != RFC_OK)
    return PublishRfcResult(record, name, Text::RfcError);
  return S_OK;
}

// ----------------------------------------------------------------- import

HRESULT CNWRfcSession::ImportCallFromBackend(BSTR name, VARIANT_BOOL, IFunctionCall* call) {
  if (!m_connection) return Report(Text::NotConnected);
  const std::u16string module(BstrView(name));
  Log(TRACE_INFORMATION, boost::format("importing %1%") % Narrow(module), "ImportCall");
  RFC_FUNCTION_DESC_HANDLE description = Sdk().RfcGetFunctionDesc(m_connection, module.c_str(), &m_errorInfo);
  if (!description) return PublishRfcResult(m_errorInfo, u"RfcGetFunctionDesc", Text::FunctionNotFound);
  Log(TRACE_INFORMATION, boost::format("RfcGetFunctionDesc: ok"), "ImportCall");
  unsigned count = 0;
  if (Sdk().RfcGetParameterCount(description, &count, &m_errorInfo) != RFC_OK)
    return PublishRfcResult(m_errorInfo, u"RfcGetParameterCount", Text::TypeImportNotPossible);
  Log(TRACE_INFORMATION, boost::format("RfcGetParameterCount: ok"), "ImportCall");
  for (unsigned i = 0; i < count; ++i) {
    RFC_PARAMETER_DESC desc{};
    if (Sdk().RfcGetParameterDescByIndex(description, i, &desc, &m_errorInfo) != RFC_OK)
      return PublishRfcResult(m_errorInfo, u"RfcGetParameterDescByIndex", Text::TypeImportNotPossible);
    CComPtr<IRfcParameters> group;
    switch (desc.direction) {
      case RFC_IMPORT: ThrowIfFailed(call->get_Importing(&group)); break;
      case RFC_EXPORT: ThrowIfFailed(call->get_Exporting(&group)); break;
      case RFC_CHANGING: ThrowIfFailed(call->get_Changing(&group)); break;
      case RFC_TABLES: ThrowIfFailed(call->get_Tables(&group)); break;
    }
    // A direction the SDK does not define leaves no collection at hand.
    if (!group) throw _com_error(E_POINTER);
    const std::u16string parameterName(SapText(desc.name));
    Log(TRACE_INFORMATION,
        boost::format("adding %1% parameter %2%") % Narrow(SapText(Sdk().RfcGetDirectionAsString(desc.direction))) %
            Narrow(parameterName),
        "ImportCall");
    CNWRFCField field(Sdk(), &m_errorInfo, ClassId());
    HRESULT hr = field.Define(desc);
    if (FAILED(hr)) return hr;
    const CComBSTR key(parameterName);
    group->AddParameter(key, field.rfcType);
    CComPtr<IRfcParameter> parameter;
    ThrowIfFailed(group->get_Item(CComVariant(key), &parameter));
    if (!parameter) throw _com_error(E_POINTER);
    parameter->put_Optional(desc.optional == 1 ? VARIANT_TRUE : VARIANT_FALSE);
    parameter->put_Description(CComBSTR(SapText(desc.parameterText)));
    parameter->put_DefaultValue(CComBSTR(SapText(desc.defaultValue)));
  }
  Log(TRACE_INFORMATION, boost::format("leaving"), "ImportCall");
  return S_OK;
}

HRESULT CNWRfcSession::ImportTypeFromBackend(BSTR name, IRfcType* type) {
  if (!m_connection) return Report(Text::NotConnected);
  const std::u16string typeName(BstrView(name));
  RFC_TYPE_DESC_HANDLE description = Sdk().RfcGetTypeDesc(m_connection, typeName.c_str(), &m_errorInfo);
  if (!description) return PublishRfcResult(m_errorInfo, u"RfcGetTypeDesc", Text::TypeDoesNotExist);
  CNWRFCField field(Sdk(), &m_errorInfo, ClassId());
  field.rfcType = type;
  return field.Define(typeName, description);
}
