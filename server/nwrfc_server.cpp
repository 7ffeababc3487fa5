#include "server/nwrfc_server.h"

#include <map>

#include <boost/format.hpp>

#include "nwrfc/nwrfc_data_converter.h"
#include "nwrfc/nwrfc_function_desc.h"
#include "nwrfc/sdk_text.h"
#include "platform/comdef.h"
#include "platform/unicode.h"
#include "runtime/environment.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"
#include "veltrane_version.h"

using veltrane::nwrfc::CopySapText;
using veltrane::nwrfc::SapText;
using veltrane::server::TransactionEvent;

namespace {

std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }

void Log(int level, const boost::format& text, const char* operation) {
  TraceLog(level, text, operation, __FILE__, __LINE__);
}

// The two process-wide tables of the class. The lock only keeps each
// access whole; which functions and which servers are there is the
// clients' affair.
struct Tables {
  std::mutex mutex;
  std::map<std::u16string, CComPtr<IFunctionCall>> registeredFunctions;
  std::map<RFC_CONNECTION_HANDLE, CNWRfcServer*> serversByConnection;
};

Tables& tables() {
  static Tables* t = new Tables();
  return *t;
}

CComPtr<IFunctionCall> RegisteredFunction(std::u16string_view name) {
  std::lock_guard<std::mutex> lock(tables().mutex);
  auto it = tables().registeredFunctions.find(std::u16string(name));
  return it == tables().registeredFunctions.end() ? nullptr : it->second;
}

void EnterServer(RFC_CONNECTION_HANDLE connection, CNWRfcServer* server) {
  std::lock_guard<std::mutex> lock(tables().mutex);
  tables().serversByConnection[connection] = server;
}

void RemoveServer(RFC_CONNECTION_HANDLE connection) {
  std::lock_guard<std::mutex> lock(tables().mutex);
  tables().serversByConnection.erase(connection);
}

CNWRfcServer* ServerOf(RFC_CONNECTION_HANDLE connection) {
  std::lock_guard<std::mutex> lock(tables().mutex);
  auto it = tables().serversByConnection.find(connection);
  return it == tables().serversByConnection.end() ? nullptr : it->second;
}

const veltrane::nwrfc::EntryPoints& Sdk() { return *veltrane::nwrfc::NWRfcLibrary::Loaded(); }

std::string RcName(RFC_RC rc) { return Narrow(SapText(Sdk().RfcGetRcAsString(rc))); }

// A failure of a callback that has an error record.
RFC_RC Failed(RFC_ERROR_INFO* errorInfo, RFC_RC code, std::u16string_view message) {
  if (errorInfo) {
    errorInfo->code = code;
    CopySapText(errorInfo->message, message);
  }
  return code;
}

// A dispatch that met a failed HRESULT: the record's code if it has one,
// else an external failure with the code's text.
RFC_RC FailedResult(HRESULT hr, RFC_ERROR_INFO* errorInfo) {
  TRACE_RESULT(hr);
  if (errorInfo->code != RFC_OK) return errorInfo->code;
  return Failed(errorInfo, RFC_EXTERNAL_FAILURE, _com_error(hr).ErrorMessage());
}

RFC_RC CaughtException(RFC_ERROR_INFO* errorInfo, const std::exception& e, const char* operation) {
  Log(TRACE_ERROR, boost::format("caught exception: %1%") % e.what(), operation);
  return Failed(errorInfo, RFC_EXTERNAL_FAILURE, Utf8ToWideLossy(e.what()));
}

// --- the SDK's callbacks: plain functions that find the server by connection

RFC_RC ServerFunction(RFC_CONNECTION_HANDLE connection, RFC_FUNCTION_HANDLE function, RFC_ERROR_INFO* errorInfo) {
  CNWRfcServer* server = ServerOf(connection);
  if (!server) return Failed(errorInfo, RFC_EXTERNAL_FAILURE, u"no server for this connection");
  return server->dispatch(connection, function, errorInfo);
}

RFC_RC DescribeFunction(const SAP_UC* functionName, RFC_ATTRIBUTES, RFC_FUNCTION_DESC_HANDLE* funcDescHandle) {
  const std::u16string name(SapText(functionName));
  Log(TRACE_INFORMATION, boost::format("look up function: %1%") % Narrow(name), "RFC_FUNC_DESC_CALLBACK");
  CComPtr<IFunctionCall> call = RegisteredFunction(name);
  if (call) {
    Log(TRACE_INFORMATION, boost::format("function definition found"), "RFC_FUNC_DESC_CALLBACK");
  } else {
    Log(TRACE_INFORMATION, boost::format("function definition not found"), "RFC_FUNC_DESC_CALLBACK");
    // Accepted with an empty interface; the entry stays for later calls.
    if (FAILED(CreateFunctionCall(&call))) return RFC_UNKNOWN_ERROR;
    call->put_Function(CComBSTR(name));
    std::lock_guard<std::mutex> lock(tables().mutex);
    tables().registeredFunctions[name] = call;
  }
  RFC_ERROR_INFO record{};
  const HRESULT hr = NWRFCCreateFunctionDesc(Sdk(), call, &record, funcDescHandle, CLSID_NWRfcServer);
  if (record.code != RFC_OK) {
    Log(TRACE_ERROR,
        boost::format("RFC Error #%1% %2%: %3%") % static_cast<int>(record.code) % Narrow(SapText(record.key)) %
            Narrow(SapText(record.message)),
        "RFC_FUNC_DESC_CALLBACK");
    return record.code;
  }
  if (FAILED(hr)) {
    TRACE_RESULT(hr);
    return RFC_UNKNOWN_ERROR;
  }
  return RFC_OK;
}

RFC_RC AuthorizationCheck(RFC_CONNECTION_HANDLE connection, RFC_SECURITY_ATTRIBUTES* attributes,
                          RFC_ERROR_INFO* errorInfo) {
  CNWRfcServer* server = ServerOf(connection);
  if (!server) return Failed(errorInfo, RFC_LOGON_FAILURE, u"no server for this connection");
  return server->auth_check(connection, attributes, errorInfo);
}

RFC_RC Transaction(TransactionEvent event, RFC_CONNECTION_HANDLE connection, const SAP_UC* tid) {
  CNWRfcServer* server = ServerOf(connection);
  return server ? server->transaction(event, tid) : RFC_EXTERNAL_FAILURE;
}
RFC_RC CheckTransaction(RFC_CONNECTION_HANDLE c, const SAP_UC* tid) {
  return Transaction(TransactionEvent::Check, c, tid);
}
RFC_RC CommitTransaction(RFC_CONNECTION_HANDLE c, const SAP_UC* tid) {
  return Transaction(TransactionEvent::Commit, c, tid);
}
RFC_RC RollbackTransaction(RFC_CONNECTION_HANDLE c, const SAP_UC* tid) {
  return Transaction(TransactionEvent::Rollback, c, tid);
}
RFC_RC ConfirmTransaction(RFC_CONNECTION_HANDLE c, const SAP_UC* tid) {
  return Transaction(TransactionEvent::Confirm, c, tid);
}

}  // namespace

namespace {

// Waits for a thread of an earlier Serve; the calling thread itself (a
// handler of that thread that shuts down) is left to end on its own.
void JoinReplaced(std::vector<boost::thread>& threads) {
  for (boost::thread& t : threads) {
    if (!t.joinable()) continue;
    if (t.get_id() == boost::this_thread::get_id())
      t.detach();
    else
      t.join();
  }
  threads.clear();
}

}  // namespace

CNWRfcServer::~CNWRfcServer() {
  m_stopRequested = true;
  JoinReplaced(m_replaced);
  if (m_thread.joinable() && m_thread.get_id() != boost::this_thread::get_id()) m_thread.join();
}

// ---------------------------------------------------------------- options

HRESULT CNWRfcServer::put_Option(BSTR name, BSTR newVal) {
  HRESULT hr = m_options.Put(name, newVal);
  if (FAILED(hr)) return hr;
  const std::u16string_view key = BstrView(name);
  if (key == u"trace.file" && SysStringLen(newVal) > 0) {
    TraceOpen(u"NWRfcServer", ExpandEnvironment(BstrView(newVal), kMaxPath), true);
    SetTraceLevel(TRACE_INFORMATION);
    Trace(u"Veltrane version=%s\n", kVeltraneVersion);
  } else if (key == u"trace.level") {
    std::u16string upper(BstrView(newVal));
    for (char16_t& c : upper)
      if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
    // Only the known texts change the level.
    if (upper == u"INFORMATION" || upper == u"3" || upper == u"WARNING" || upper == u"2" || upper == u"ERROR" ||
        upper == u"1")
      SetTraceLevel(static_cast<int>(veltrane::nwrfc::SdkTraceLevel(upper)));
  }
  return S_OK;
}

// ------------------------------------------------------------------ serve

HRESULT CNWRfcServer::PublishRfcResult(const RFC_ERROR_INFO& info, std::u16string_view context, Text code) {
  if (info.code == RFC_OK) {
    m_hasError = false;
    m_errorInfo->Set(RFCERROR_NO_ERROR, u"", u"", 0);
    if (!context.empty()) Log(TRACE_INFORMATION, boost::format("%1%: RFC_OK") % Narrow(context), "PublishRfcResult");
    return S_OK;
  }
  m_hasError = true;
  m_errorInfo->Set(static_cast<ERRORGROUP>(info.group), SapText(info.key), SapText(info.message),
                   static_cast<long>(info.code));
  const std::string rc = RcName(info.code), key = Narrow(SapText(info.key)), message = Narrow(SapText(info.message));
  if (context.empty())
    Log(TRACE_ERROR, boost::format("RFC Error %1%: %2% %3%") % rc % key % message, "PublishRfcResult");
  else
    Log(TRACE_ERROR, boost::format("%1%: RFC Error %2%: %3% %4%") % Narrow(context) % rc % key % message,
        "PublishRfcResult");
  return ReportError(CLSID_NWRfcServer, code);
}

HRESULT CNWRfcServer::Serve() {
  HRESULT hr = InitSDK(m_sdkError);
  if (FAILED(hr)) return hr;
  m_hasError = false;
  m_errorInfo->Set(RFCERROR_NO_ERROR, u"", u"", 0);
  if (Sdk().RfcInstallGenericServerFunction(ServerFunction, DescribeFunction, &m_sdkError) != RFC_OK)
    return PublishRfcResult(m_sdkError, u"Failed to install server function", Text::RfcError);
  if (Sdk().RfcInstallAuthorizationCheckHandler(AuthorizationCheck, &m_sdkError) != RFC_OK)
    return PublishRfcResult(m_sdkError, u"Failed to install authorization check function", Text::RfcError);
  Sdk().RfcInstallTransactionHandlers(nullptr, CheckTransaction, CommitTransaction, RollbackTransaction,
                                      ConfirmTransaction, &m_sdkError);
  RFC_CONNECTION_HANDLE connection = register_server();
  if (!connection) return ReportError(CLSID_NWRfcServer, Text::RfcError);
  m_stopRequested = false;
  m_threadRunning = true;
  m_isListening = true;
  if (m_thread.joinable()) m_replaced.push_back(std::move(m_thread));
  m_thread = boost::thread([this, connection] { run(connection); });
  return S_OK;
}

RFC_CONNECTION_HANDLE CNWRfcServer::register_server() {
  const std::u16string programId(m_programId.View()), gwhost(m_gatewayHost.View()), gwserv(m_gatewayService.View());
  const RFC_CONNECTION_PARAMETER parameters[] = {
      {u"program_id", programId.c_str()}, {u"gwhost", gwhost.c_str()}, {u"gwserv", gwserv.c_str()}};
  Log(TRACE_INFORMATION,
      boost::format("Trying to register server: program_id=%1%, gwhost=%2%, gwserv=%3%") % Narrow(programId) %
          Narrow(gwhost) % Narrow(gwserv),
      "register_server");
  RFC_ERROR_INFO record{};
  RFC_CONNECTION_HANDLE connection = Sdk().RfcRegisterServer(parameters, 3, &record);
  if (!connection) {
    PublishRfcResult(record, u"failed to register server", Text::RfcError);
    return nullptr;
  }
  Log(TRACE_INFORMATION, boost::format("RfcRegisterServer: success"), "register_server");
  return connection;
}

void CNWRfcServer::LoopFailed() {
  if (!AskServerError(m_errorInfo)) m_stopRequested = true;
}

void CNWRfcServer::run(RFC_CONNECTION_HANDLE connection) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  m_threadRunning = true;
  while (!m_stopRequested) {
    if (connection) {
      EnterServer(connection, this);
      RFC_ERROR_INFO record{};
      const RFC_RC rc = Sdk().RfcListenAndDispatch(connection, 1, &record);
      if (rc == RFC_OK || rc == RFC_ABAP_EXCEPTION || rc == RFC_RETRY) continue;
      // The connection is lost: forgotten, not closed.
      RemoveServer(connection);
      connection = nullptr;
      m_isListening = false;
      Log(TRACE_ERROR, boost::format("RfcListenAndDispatch returned rc=%1%") % RcName(rc), "run");
      PublishRfcResult(record, u"", Text::RfcError);
      LoopFailed();
    }
    if (!m_stopRequested && !connection) {
      connection = register_server();
      if (!connection) {
        LoopFailed();
      } else {
        EnterServer(connection, this);
        Log(TRACE_INFORMATION, boost::format("Reconnect successful"), "run");
        m_isListening = true;
      }
    }
  }
  if (connection) {
    RemoveServer(connection);
    RFC_ERROR_INFO record{};
    Sdk().RfcCloseConnection(connection, &record);
    m_isListening = false;
    Log(TRACE_INFORMATION, boost::format("Shutdown requested, exiting"), "run");
  }
  m_threadRunning = false;
  CoUninitialize();
}

HRESULT CNWRfcServer::Shutdown() {
  HRESULT hr = S_OK;
  if (m_threadRunning) {
    m_stopRequested = true;
    try {
      m_thread.join();
      JoinReplaced(m_replaced);
    } catch (const boost::thread_resource_error& e) {
      Log(TRACE_ERROR, boost::format("caught exception: %1%") % e.what(), "Shutdown");
      hr = ReportError(CLSID_NWRfcServer, Utf8ToWideLossy(e.what()).c_str(), E_FAIL);
    }
  }
  m_isListening = false;
  return hr;
}

HRESULT CNWRfcServer::InstallFunction(IFunctionCall* fn) {
  if (!fn) return E_POINTER;
  CComBSTR name;
  HRESULT hr = fn->get_Function(&name);
  if (FAILED(hr)) return hr;
  {
    std::lock_guard<std::mutex> lock(tables().mutex);
    tables().registeredFunctions[std::u16string(name.View())] = fn;
  }
  return m_registered->AddFunction(fn);
}

// --------------------------------------------------------------- callbacks

RFC_RC CNWRfcServer::dispatch(RFC_CONNECTION_HANDLE, RFC_FUNCTION_HANDLE function, RFC_ERROR_INFO* errorInfo) {
  try {
    Log(TRACE_INFORMATION, boost::format("dispatching incoming function call"), "dispatch");
    RFC_ABAP_NAME buffer{};
    Sdk().RfcGetFunctionName(Sdk().RfcDescribeFunction(function, nullptr), buffer, nullptr);
    const std::u16string name(SapText(buffer));
    Log(TRACE_INFORMATION, boost::format("received call to %1%: dispatching") % Narrow(name), "dispatch");
    CComPtr<IFunctionCall> prototype = RegisteredFunction(name);
    if (!prototype) return RFC_NOT_FOUND;

    // The client works on a copy: calls do not disturb one another, and the
    // installed definition stays clean.
    CComPtr<IFunctionCall> call;
    CComPtr<IRfcParameters> importing, exporting, changing, tables;
    CComBSTR exception, message;
    HRESULT hr = DeepCopyCall(prototype, &call);
    if (SUCCEEDED(hr)) hr = call->get_Importing(&importing);
    if (SUCCEEDED(hr)) hr = call->get_Exporting(&exporting);
    if (SUCCEEDED(hr)) hr = call->get_Changing(&changing);
    if (SUCCEEDED(hr)) hr = call->get_Tables(&tables);
    CNWRFCDataConverter converter(Sdk(), errorInfo, CLSID_NWRfcServer);
    if (SUCCEEDED(hr)) hr = converter.getRfcArgs(function, importing, u"IMPORTING");
    if (SUCCEEDED(hr)) hr = converter.getRfcArgs(function, changing, u"CHANGING");
    if (SUCCEEDED(hr)) hr = converter.getRfcArgs(function, tables, u"TABLES");
    // A handler that fails fails the call: the caller gets a system failure.
    if (SUCCEEDED(hr)) hr = AskIncomingCall(call);
    if (SUCCEEDED(hr)) hr = call->GetException(&exception, &message);
    if (SUCCEEDED(hr) && exception.Length() > 0) {
      hr = converter.putRfcArgs(tables, function, u"TABLES", false);
      if (SUCCEEDED(hr)) {
        // Filled after the tables: each SDK call of the converter clears the record.
        errorInfo->code = RFC_ABAP_EXCEPTION;
        CopySapText(errorInfo->key, exception.View());
        CopySapText(errorInfo->message, message.View());
        Log(TRACE_INFORMATION,
            boost::format("dispatched call to %1%: ABAP_EXCEPTION %2%: %3%") % Narrow(name) % Narrow(exception.View()) %
                Narrow(message.View()),
            "dispatch");
        return RFC_ABAP_EXCEPTION;
      }
    } else if (SUCCEEDED(hr)) {
      hr = converter.putRfcArgs(exporting, function, u"EXPORTING", false);
      if (SUCCEEDED(hr)) hr = converter.putRfcArgs(changing, function, u"CHANGING", false);
      if (SUCCEEDED(hr)) hr = converter.putRfcArgs(tables, function, u"TABLES", false);
      if (SUCCEEDED(hr)) {
        Log(TRACE_INFORMATION, boost::format("dispatched call to %1%: success") % Narrow(name), "dispatch");
        return RFC_OK;
      }
    }
    return FailedResult(hr, errorInfo);
  } catch (const _com_error& e) {
    // A failed HRESULT raised on the way (a missing object): as above.
    return FailedResult(e.Error(), errorInfo);
  } catch (const std::exception& e) {
    return CaughtException(errorInfo, e, "dispatch");
  }
}

RFC_RC CNWRfcServer::auth_check(RFC_CONNECTION_HANDLE, RFC_SECURITY_ATTRIBUTES* attributes, RFC_ERROR_INFO* errorInfo) {
  try {
    veltrane::server::LogonRequest request;
    request.function = SapText(attributes->functionName);
    request.client = SapText(attributes->client);
    request.user = SapText(attributes->user);
    // TCode carries the calling program on this path.
    request.tcode = SapText(attributes->progName);
    request.sncPartnerName = SapText(attributes->sncName);
    request.sncEnabled = !request.sncPartnerName.empty();
    Log(TRACE_INFORMATION,
        boost::format("Logon(fn=%1%,client=%2%,user=%3%,progName=%4%,sncName=%5%)") % Narrow(request.function) %
            Narrow(request.client) % Narrow(request.user) % Narrow(request.tcode) % Narrow(request.sncPartnerName),
        "auth_check");
    HRESULT fired = S_OK;
    const bool allowed = AskLogon(request, &fired);
    if (FAILED(fired)) Log(TRACE_ERROR, boost::format("Fire_Logon"), "auth_check");
    Log(TRACE_INFORMATION, boost::format("allowed=%1%") % (allowed ? "yes" : "no"), "auth_check");
    errorInfo->code = RFC_LOGON_FAILURE;
    return allowed ? RFC_OK : RFC_LOGON_FAILURE;
  } catch (const std::exception& e) {
    return CaughtException(errorInfo, e, "auth_check");
  }
}

RFC_RC CNWRfcServer::transaction(TransactionEvent event, const SAP_UC* tid) {
  static constexpr const char* kNames[] = {"transaction_check", "transaction_commit", "transaction_rollback",
                                           "transaction_confirm"};
  const char* operation = kNames[static_cast<int>(event)];
  try {
    const std::u16string id(SapText(tid));
    Log(TRACE_INFORMATION, boost::format("%1%(tid=%2%)") % operation % Narrow(id), operation);
    const long status = AskTransaction(event, id);
    Log(TRACE_INFORMATION,
        boost::format("transaction_confirm: returned status %1%") % RcName(static_cast<RFC_RC>(status)), operation);
    return static_cast<RFC_RC>(status);
  } catch (const std::exception& e) {
    Log(TRACE_ERROR, boost::format("caught exception: %1%") % e.what(), operation);
    return RFC_EXTERNAL_FAILURE;
  }
}
