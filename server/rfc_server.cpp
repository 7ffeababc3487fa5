#include "server/rfc_server.h"

#include <chrono>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <vector>

#include <unistd.h>

#include "abap/scalar_conversion.h"
#include "platform/comdef.h"
#include "platform/objbase.h"
#include "platform/unicode.h"
#include "rfc/marshal.h"
#include "runtime/environment.h"
#include "runtime/exceptions.h"
#include "runtime/seh.h"
#include "runtime/trace.h"
#include "veltrane_version.h"

using namespace veltrane::sdk::rfc;
using veltrane::rfc::CIntRfcParams;
using veltrane::rfc::CIntRfcTables;
using veltrane::rfc::RfcLibrary;
using veltrane::server::LogonRequest;
using veltrane::server::TransactionEvent;

namespace {

constexpr std::u16string_view kHyphens =
    u"--------------------------------------------------------------------------------\n";
// The group of a failure that the marshalling raised in a dispatch.
constexpr long kMarshalGroup = 101;
constexpr int kPollMs = 50;
// How soon the pause after an idle look looks again: the first look comes
// soon after a call, later ones less often, up to kLastLook apart.
constexpr std::chrono::microseconds kFirstLook(100);
constexpr std::chrono::microseconds kLastLook(10000);

std::u16string SdkText(const rfc_char_t* text, size_t limit) {
  size_t n = 0;
  while (n < limit && text[n] != 0) ++n;
  return std::u16string(text, n);
}

void Check(HRESULT hr) {
  if (FAILED(hr)) _com_issue_error(hr);
}

const EntryPoints* LoadedSdk() { return RfcLibrary::Loaded(); }

CRfcServerWorker* WorkerOf(RFC_HANDLE handle) {
  const EntryPoints* sdk = LoadedSdk();
  if (!sdk || !sdk->RfcGetAttachedContextU) return nullptr;
  void* context = nullptr;
  const RFC_RC rc = sdk->RfcGetAttachedContextU(handle, &context, nullptr);
  if (rc != RFC_OK || !context) {
    Trace(u"Error: RfcGetAttachedContext returns rc=0x%x => cannot determine context\n", static_cast<int>(rc));
    return nullptr;
  }
  return static_cast<CRfcServerWorker*>(context);
}

// --- the SDK's callbacks

RFC_RC SDKFunctionCallback(RFC_HANDLE handle) {
  Trace(u"SDKFunctionCallback for handle 0x%x called in thread 0x%x...\n", handle, static_cast<unsigned>(gettid()));
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  CRfcServerWorker* worker = WorkerOf(handle);
  if (!worker) {
    Trace(u"SDKFunctionCallback failed due to previous error\n");
    CoUninitialize();
    return RFC_FAILURE;
  }
  Trace(u"Dispatching call ");
  RFC_FUNCTIONNAME name{};
  RFC_RC rc = worker->Sdk().RfcGetNameU(handle, name);
  if (rc != RFC_OK) {
    CoUninitialize();
    return rc;
  }
  const std::u16string function = SdkText(name, 30);
  TraceRaw(u"to '%s'...\n", function);
  rc = worker->DispatchCall(handle, function);
  if (rc != RFC_OK) Trace(u"Error in DispatchCall()\n");
  CoUninitialize();
  return rc;
}

RFC_EXTERNAL_LOGON_RC SDKLogonCallback(RFC_HANDLE handle, RFC_EXTERNAL_LOGON_CNTL* control, rfc_char_t*) {
  LogonRequest request;
  request.function = SdkText(control->function_name, 31);
  request.client = SdkText(control->client, 4);
  request.user = SdkText(control->user, 13);
  request.language = SdkText(control->language, 2);
  request.tcode = SdkText(control->tcode, 21);
  Trace(u"SDKLogonCallback: entering...\n");
  Trace(u"function=%s\n", request.function);
  Trace(u"client=%s\n", request.client);
  Trace(u"user=%s\n", request.user);
  Trace(u"language=%s\n", request.language);
  Trace(u"tcode=%s\n", request.tcode);
  Trace(u"reserved=%s\n", SdkText(control->reserved, 513));
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  CRfcServerWorker* worker = WorkerOf(handle);
  if (!worker) {
    Trace(u"authentication failed due to previous error\n");
    CoUninitialize();
    return RFC_EXTERNAL_LOGON_FAILED;
  }
  const bool allowed = worker->DispatchLogon(request);
  CoUninitialize();
  return allowed ? RFC_EXTERNAL_LOGON_OK : RFC_EXTERNAL_LOGON_FAILED;
}

// The handle's worker answers a transaction event; -1 when the handle has none.
int DispatchToWorker(const std::u16string& callback, RFC_HANDLE handle, TransactionEvent event,
                     const std::u16string& tid) {
  CRfcServerWorker* worker = WorkerOf(handle);
  if (!worker) {
    Trace(u"%s failed due to previous error\n", callback);
    return -1;
  }
  return static_cast<int>(worker->DispatchTransaction(event, tid));
}

int SDKOnCheckTIDEx(rfc_char_t* tid, RFC_HANDLE handle) {
  const std::u16string id = SdkText(tid, 24);
  Trace(u"SDKOnCheckTIDEx for tid '%s' handle 0x%x called...\n", id, handle);
  return DispatchToWorker(u"SDKOnCheckTIDEx", handle, TransactionEvent::Check, id);
}

int SDKOnCommitEx(rfc_char_t* tid, RFC_HANDLE handle) {
  const std::u16string id = SdkText(tid, 24);
  Trace(u"SDKOnCommitEx for tid '%s' handle 0x%x called...\n", id, handle);
  return DispatchToWorker(u"SDKOnCommitEx", handle, TransactionEvent::Commit, id);
}

void SDKOnRollbackEx(rfc_char_t* tid, RFC_HANDLE handle, int valid) {
  const std::u16string id = SdkText(tid, 24);
  Trace(u"SDKOnRollbackEx for tid '%s' handle 0x%x (valid=%i) called...\n", id, handle, valid);
  DispatchToWorker(u"SDKOnRollbackEx", handle, TransactionEvent::Rollback, id);
}

void SDKOnConfirmTIDEx(rfc_char_t* tid, RFC_HANDLE handle) {
  const std::u16string id = SdkText(tid, 24);
  Trace(u"SDKOnConfirmTIDEx for tid '%s' handle 0x%x called...\n", id, handle);
  DispatchToWorker(u"SDKOnConfirmTIDEx", handle, TransactionEvent::Confirm, id);
}

void SDKDisconnectCallback(RFC_HANDLE handle, unsigned, void*) {
  Trace(u"SDKDisconnectCallback for handle 0x%x called...\n", handle);
}

void SDKFreeCallback(RFC_HANDLE handle, unsigned, void*) {
  Trace(u"SDKFreeCallback for handle 0x%x called...\n", handle);
}

// "IMPORTING:" and a line for each importing parameter with its value.
void TraceImporting(IRfcParameters* importing) {
  if (!TraceIsOpen()) return;
  Trace(u"IMPORTING:\n");
  LONG count = 0;
  importing->get_Count(&count);
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> parameter;
    if (FAILED(importing->get_Item(CComVariant(i), &parameter)) || !parameter) continue;
    CComBSTR name;
    CComVariant value;
    parameter->get_name(&name);
    parameter->get_value(&value);
    Trace(u"\t%s\t\t%s\n", std::u16string(name.View()), VariantTraceText(value));
  }
}

std::u16string FunctionName(IFunctionCall* call) {
  CComBSTR name;
  call->get_Function(&name);
  return std::u16string(name.View());
}

}  // namespace

// ------------------------------------------------------------------ worker

CRfcServerWorker::~CRfcServerWorker() { Stop(); }

void CRfcServerWorker::Stop() {
  {
    std::lock_guard<std::mutex> lock(m_pauseMutex);
    m_stop = true;
  }
  m_wake.notify_all();
  if (m_thread.joinable()) {
    if (m_thread.get_id() == boost::this_thread::get_id()) return;
    m_thread.join();
  }
}

void CRfcServerWorker::Start(const EntryPoints& sdk, const std::u16string& programId, const std::u16string& gatewayHost,
                             const std::u16string& gatewayService, IFunctionCalls* functions, bool sdkTrace) {
  Stop();
  m_sdk = &sdk;
  m_argA = u"-a" + programId;
  m_argG = u"-g" + gatewayHost;
  m_argX = u"-x" + gatewayService;
  m_functions = functions;
  m_sdkTrace = sdkTrace;
  m_failureText.clear();
  m_pollInterval = kPollMs;
  m_stop = false;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_startedSignal = false;
    m_threadEnded = false;
  }
  m_thread = boost::thread([this] { Run(); });
  std::unique_lock<std::mutex> lock(m_mutex);
  m_started.wait(lock, [this] { return m_startedSignal || m_threadEnded; });
}

void CRfcServerWorker::Run() {
  try {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    bool restart = true;
    while (restart && !m_stop) {
      restart = false;
      Trace(u"CRfcServerWorker::InitializeServer\n");
      std::u16string t = u"-t";
      rfc_char_t* argv[] = {m_argA.data(), m_argG.data(), m_argX.data(), m_sdkTrace ? t.data() : nullptr, nullptr};
      Trace(u"CRfcServerWorker::InitializeServer: Call RfcAccept\n");
      for (int i = 0; i < 4; ++i)
        Trace(u"argv[%i]='%s'\n", i, argv[i] ? std::u16string(argv[i]) : std::u16string(u"(null)"));
      const RFC_HANDLE handle = Sdk().RfcAcceptU(argv);
      if (handle == RFC_HANDLE_NULL) {
        Report(0, false);
        break;
      }
      m_handle = handle;
      Trace(u"Success: RfcAccept returns valid handle 0x%x\n", handle);
      const RFC_RC attached = Sdk().RfcAttachContextU
                                  ? Sdk().RfcAttachContextU(handle, SDKDisconnectCallback, SDKFreeCallback, this)
                                  : RFC_FAILURE;
      if (attached != RFC_OK) {
        Trace(u"Error: RfcAttachContext returns error code 0x%x\n", static_cast<int>(attached));
        break;
      }
      if (!InstallRegisteredFunctions()) break;
      if (!Sdk().RfcInstallExternalLogonHandlerU ||
          Sdk().RfcInstallExternalLogonHandlerU(handle, SDKLogonCallback) != RFC_OK)
        break;
      if (Sdk().RfcInstallTransactionControl2U)
        Sdk().RfcInstallTransactionControl2U(SDKOnCheckTIDEx, SDKOnCommitEx, SDKOnRollbackEx, SDKOnConfirmTIDEx);
      Trace(u"entering main loop...\n");
      m_listening = true;
      {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_startedSignal = true;
      }
      m_started.notify_all();
      int rc = RFC_OK;
      std::chrono::microseconds step = kFirstLook;
      while (!m_stop && (rc == RFC_OK || rc == RFC_RETRY)) {
        rc = Sdk().RfcListenU(handle);
        if (rc != RFC_OK) {
          Pause(handle, rc == RFC_RETRY, step);
        } else {
          rc = Sdk().RfcDispatchU(handle);
          Trace(u"RfcDispatch: %i\n", rc);
          step = kFirstLook;
        }
      }
      m_listening = false;
      Trace(u"exiting main loop and closing RFC connection (last rfc_rc=0x%x)\n", rc);
      if (rc != RFC_OK && !m_stop) restart = Report(rc, true);
      Sdk().RfcCloseU(handle);
      LONG count = 0;
      m_functions->get_Count(&count);
      for (long i = 1; i <= count; ++i) {
        CComPtr<IFunctionCall> fn;
        if (FAILED(m_functions->get_Item(CComVariant(i), &fn)) || !fn) continue;
        std::u16string name = FunctionName(fn);
        Trace(u"UnInstalling function: '%s'...\n", name);
        if (Sdk().RfcUninstallFunctionU) Sdk().RfcUninstallFunctionU(name.data());
      }
      Trace(u"leaving main loop. restart = %i\n", restart ? 1 : 0);
    }
    CoUninitialize();
  } catch (...) {}
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_threadEnded = true;
  }
  m_started.notify_all();
}

void CRfcServerWorker::Pause(RFC_HANDLE handle, bool lookForRequests, std::chrono::microseconds& step) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(m_pollInterval);
  std::unique_lock<std::mutex> lock(m_pauseMutex);
  for (;;) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= end) return;
    const auto until = lookForRequests ? std::min(end, now + step) : end;
    if (m_wake.wait_until(lock, until, [this] { return m_stop.load(); })) return;
    if (!lookForRequests) continue;
    step = std::min(step * 2, kLastLook);
    lock.unlock();
    const RFC_RC rc = Sdk().RfcListenU(handle);
    lock.lock();
    if (rc != RFC_RETRY) return;
  }
}

bool CRfcServerWorker::InstallRegisteredFunctions() {
  Trace(u"CRfcServerWorker::InstallRegisteredFunctions\n");
  LONG count = 0;
  m_functions->get_Count(&count);
  for (long i = 1; i <= count; ++i) {
    CComPtr<IFunctionCall> fn;
    if (FAILED(m_functions->get_Item(CComVariant(i), &fn)) || !fn) continue;
    std::u16string name = FunctionName(fn);
    CComBSTR documentation;
    fn->get_Documentation(&documentation);
    std::u16string docu(documentation.View());
    Trace(u"Installing function: '%s'...", name);
    if (Sdk().RfcInstallFunctionU(name.data(), nullptr, docu.data()) != RFC_OK) {
      TraceRaw(u"fail\n");
      Report(0, false);
      Sdk().RfcCloseU(m_handle);
      return false;
    }
    TraceRaw(u"ok\n");
  }
  std::u16string global = u"%%USER_GLOBAL_SERVER", empty;
  const RFC_RC rc = Sdk().RfcInstallFunctionU(global.data(), SDKFunctionCallback, empty.data());
  Trace(u"Installing %%USER_GLOBAL_SERVER: %i\n", static_cast<int>(rc));
  return true;
}

bool CRfcServerWorker::Report(int rc, bool fire) {
  RFC_ERROR_INFO_EX record{};
  Sdk().RfcLastErrorExU(&record);
  const std::u16string key = SdkText(record.key, 33), message = SdkText(record.message, 513);
  Trace(u"rfcsdk error: rfc_rc=%i, error group=%i:key=%s\n\t%s\n", rc, static_cast<int>(record.group), key, message);
  CComPtr<CRfcServerErrorInfo> info;
  if (FAILED(CRfcServerErrorInfo::CreateInstance(&info))) return false;
  if (m_failureText.empty())
    info->Set(static_cast<ERRORGROUP>(record.group), key, message, rc);
  else
    info->Set(static_cast<ERRORGROUP>(kMarshalGroup), u"", m_failureText, rc);
  if (callbacks.on_rfc_error) callbacks.on_rfc_error(callbacks.owner, info, fire);
  return fire && info->RestartWanted();
}

RFC_RC CRfcServerWorker::DispatchCall(RFC_HANDLE handle, const std::u16string& name) {
  Trace(u"CRfcServerWorker: DispatchCall()\n");
  try {
    CComPtr<IFunctionCall> prototype, call;
    if (SUCCEEDED(m_functions->get_Item(CComVariant(CComBSTR(name)), &prototype)) && prototype) {
      Trace(u"found prototype for: %s\n", name);
      Check(DeepCopyCall(prototype, &call));
    } else {
      Check(CreateFunctionCall(&call));
      call->put_Function(CComBSTR(name));
    }
    {
      CComPtr<IRfcParameters> importing, changing, tables;
      Check(call->get_Importing(&importing));
      Check(call->get_Changing(&changing));
      Check(call->get_Tables(&tables));
      CIntRfcParams in(Sdk(), importing, changing);
      CIntRfcTables inTables(Sdk(), tables, false);
      Trace(u"receiving data...");
      const RFC_RC rc = Sdk().RfcGetDataU(handle, in.Entries(), inTables.Entries());
      if (rc != RFC_OK) return rc;
      TraceRaw(u"ok\n");
      in.getValues();
      Trace(u"importing.getValues: 0x%x\n", static_cast<unsigned>(S_OK));
      inTables.getValues();
      Trace(u"tables.getValues: 0x%x\n", static_cast<unsigned>(S_OK));
      TraceImporting(importing);
    }
    if (callbacks.on_rfc_serve) callbacks.on_rfc_serve(callbacks.owner, call);
    const RFC_RC rc = SendOutgoingData(handle, call);
    Trace(u"CRfcServerWorker: leaving DispatchCall (rc=%i)\n", static_cast<int>(rc));
    return rc;
  } catch (const CXVeltrane& e) {
    m_failureText = Utf8ToWideLossy(e.what());
  } catch (const _com_error& e) {
    m_failureText = _com_error(e.Error()).ErrorMessage();
  }
  Trace(u"ERROR: DispatchCall() exception\n\t%s\n", m_failureText);
  return RFC_SYS_EXCEPTION;
}

RFC_RC CRfcServerWorker::SendOutgoingData(RFC_HANDLE handle, IFunctionCall* call) {
  Trace(u"entering: SendOutgoingData()\n");
  CComPtr<IRfcParameters> changing, exporting, tables;
  Check(call->get_Changing(&changing));
  Check(call->get_Exporting(&exporting));
  Check(call->get_Tables(&tables));
  CComBSTR exception, message;
  Check(call->GetException(&exception, &message));
  RFC_RC rc;
  if (exception.Length() == 0) {
    CIntRfcParams out(Sdk(), exporting, changing);
    CIntRfcTables outTables(Sdk(), tables, true);
    rc = Sdk().RfcSendDataU(handle, out.Entries(), outTables.Entries());
  } else {
    std::u16string name(exception.View()), text(message.View());
    Trace(u"raising exception: %s\n", name);
    CIntRfcTables outTables(Sdk(), tables, true);
    rc = Sdk().RfcRaiseErrorMessageU
             ? Sdk().RfcRaiseErrorMessageU(handle, name.data(), outTables.Entries(), text.data())
             : Sdk().RfcRaiseU(handle, name.data());
  }
  Trace(u"leaving: SendOutgoingData() - rc=0x%x\n", static_cast<int>(rc));
  return rc;
}

bool CRfcServerWorker::DispatchLogon(const LogonRequest& request) {
  Trace(u"CRfcServerWorker: DispatchLogon()\n");
  CComPtr<CRfcServerLogonInfo> info;
  if (FAILED(CRfcServerLogonInfo::CreateInstance(&info))) return false;
  info->SetLogonInfo(CComBSTR(request.function), CComBSTR(request.client), CComBSTR(request.user),
                     CComBSTR(request.language), CComBSTR(request.tcode), VARIANT_FALSE, CComBSTR(u""));
  if (callbacks.on_rfc_logon) callbacks.on_rfc_logon(callbacks.owner, info);
  const bool allowed = info->Allowed();
  Trace(u"CRfcServerWorker: DispatchLogon(): leaving\n");
  return allowed;
}

long CRfcServerWorker::DispatchTransaction(TransactionEvent event, const std::u16string& tid) {
  CComPtr<CRfcTransactionInfo> info;
  if (FAILED(CRfcTransactionInfo::CreateInstance(&info))) return -1;
  info->SetTID(CComBSTR(tid));
  switch (event) {
    case TransactionEvent::Check:
      if (callbacks.on_rfc_check) callbacks.on_rfc_check(callbacks.owner, info);
      break;
    case TransactionEvent::Commit:
      if (callbacks.on_rfc_commit) callbacks.on_rfc_commit(callbacks.owner, info);
      break;
    case TransactionEvent::Rollback:
      if (callbacks.on_rfc_rollback) callbacks.on_rfc_rollback(callbacks.owner, info);
      return 0;
    case TransactionEvent::Confirm:
      if (callbacks.on_rfc_confirm) callbacks.on_rfc_confirm(callbacks.owner, info);
      return 0;
  }
  return info->CurrentStatus();
}

void CIntRfcServer::StartServer(const EntryPoints& sdk, const std::u16string& programId,
                                const std::u16string& gatewayHost, const std::u16string& gatewayService,
                                IFunctionCalls* functions, bool sdkTrace, int) {
  m_worker.Start(sdk, programId, gatewayHost, gatewayService, functions, sdkTrace);
}

// ------------------------------------------------------------------ server

CRfcServer::~CRfcServer() {
  Trace(u"CServer::Destructor\n");
  m_worker.Stop();
}

HRESULT CRfcServer::get_IsListening(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_worker.Listening() ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

HRESULT CRfcServer::put_Option(BSTR name, BSTR newVal) {
  HRESULT hr = m_options.Put(name, newVal);
  if (FAILED(hr)) return hr;
  if (BstrView(name) == u"trace.file") {
    const std::u16string path = ExpandEnvironment(BstrView(newVal), kMaxPath);
    if (!path.empty()) TraceOpen(u"Veltrane", path, true);
    SetTraceLevel(TRACE_INFORMATION);
    Trace(u"Veltrane version=%s\n", kVeltraneVersion);
  }
  return S_OK;
}

HRESULT CRfcServer::Serve() {
  const std::u16string traceFile = OptionValue(u"trace.file");
  if (!traceFile.empty()) {
    TraceOpen(u"RfcServer", traceFile, true);
    m_sdkTrace = true;
    Trace(kHyphens);
    Trace(u"Starting new server instance\n");
  }
  const std::u16string poll = OptionValue(u"server.poll_interval");
  if (!poll.empty()) {
    Trace(u"set custom poll interval: %s\n", poll);
    m_pollInterval = static_cast<int>(std::strtol(WideToUtf8Lossy(poll).c_str(), nullptr, 10));
  }
  const std::u16string directory = OptionValue(u"librfc.path");
  if (!directory.empty()) Trace(u"set librfc path: %s\n", directory);
  const EntryPoints* sdk = nullptr;
  std::string reason;
  try {
    sdk = &RfcLibrary::Load(directory, &reason);
  } catch (const _SEHException&) {
    m_hasError = true;
    m_errorInfo->Set(static_cast<ERRORGROUP>(kMarshalGroup), u"",
                     u"cannot load " + Utf8ToWideLossy(veltrane::rfc::kLibraryFile) + u": " + Utf8ToWideLossy(reason),
                     0);
    return S_OK;
  }
  Trace(u"CRfcServer().Serve()\n");
  m_worker.callbacks = {this, OnServe, OnLogon, OnError, OnCheck, OnCommit, OnRollback, OnConfirm};
  StartServer(*sdk, std::u16string(m_programId.View()), std::u16string(m_gatewayHost.View()),
              std::u16string(m_gatewayService.View()), m_registered, m_sdkTrace, m_pollInterval);
  return S_OK;
}

HRESULT CRfcServer::Shutdown() {
  Trace(u"Shutting down server instance\n");
  Trace(kHyphens);
  m_worker.Stop();
  Trace(u"Ensuring Rfc is really closed\n");
  // The worker has closed the handle and left its value: this second close
  // is harmless to the SDK.
  const EntryPoints* sdk = LoadedSdk();
  if (sdk && m_worker.Handle() != RFC_HANDLE_NULL) sdk->RfcCloseU(m_worker.Handle());
  return S_OK;
}

HRESULT CRfcServer::InstallFunction(IFunctionCall* fn) {
  if (!fn) return E_POINTER;
  return m_registered->AddFunction(fn);
}

// ---------------------------------------------------------- the callbacks

void CRfcServer::OnServe(void* owner, IFunctionCall* call) {
  Trace(u"CRfcServer::on_rfc_serve(): fire IncomingCall event\n");
  try {
    const HRESULT hr = static_cast<CRfcServer*>(owner)->AskIncomingCall(call);
    if (FAILED(hr)) Trace(u"ERROR: COM exception in IncomingCall event handler: 0x%x\n", static_cast<unsigned>(hr));
  } catch (...) {
    Trace(u"ERROR: SYSTEM exception in IncomingCall event handler\n");
  }
  Trace(u"CRfcServer::on_rfc_serve(): returned from IncomingCall evt.\n");
}

void CRfcServer::OnLogon(void* owner, IRfcServerLogonInfo* info) { static_cast<CRfcServer*>(owner)->Fire_Logon(info); }

void CRfcServer::OnError(void* owner, CRfcServerErrorInfo* info, bool fire) {
  CRfcServer* self = static_cast<CRfcServer*>(owner);
  self->m_hasError = true;
  ERRORGROUP group{};
  CComBSTR key, message;
  LONG rc = 0;
  info->get_ERRORGROUP(&group);
  info->get_ErrorGroupTxt(&key);
  info->get_Message(&message);
  info->get_RfcRc(&rc);
  self->m_errorInfo->SetErrorInfo(group, key, message, rc);
  if (fire) self->Fire_ServerError(info);
}

void CRfcServer::OnCheck(void* owner, IRfcTransactionInfo* info) {
  static_cast<CRfcServer*>(owner)->Fire_TransactionCheck(info);
}
void CRfcServer::OnCommit(void* owner, IRfcTransactionInfo* info) {
  static_cast<CRfcServer*>(owner)->Fire_TransactionCommit(info);
}
void CRfcServer::OnRollback(void* owner, IRfcTransactionInfo* info) {
  static_cast<CRfcServer*>(owner)->Fire_TransactionRollback(info);
}
void CRfcServer::OnConfirm(void* owner, IRfcTransactionInfo* info) {
  static_cast<CRfcServer*>(owner)->Fire_TransactionConfirm(info);
}
