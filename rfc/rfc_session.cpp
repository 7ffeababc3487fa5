#include "rfc/rfc_session.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/comdef.h"
#include "platform/objbase.h"
#include "platform/unicode.h"
#include "rfc/call_event.h"
#include "rfc/connect_string.h"
#include "rfc/marshal.h"
#include "rfc/sdk_text.h"
#include "runtime/report_error.h"
#include "runtime/seh.h"
#include "runtime/trace.h"

using namespace veltrane::rfc;
using namespace veltrane::sdk::rfc;

namespace {

HRESULT Report(Text text) { return ReportError(CLSID_RfcSession, text); }

// Polls of RfcListenU come at most this far apart; earlier ones sooner, a
// sixteenth of the time the call has taken so far (at least kFirstPoll), so
// that an answer waits for its poll no more than that share of its time.
constexpr std::chrono::milliseconds kPollInterval{100};
constexpr std::chrono::milliseconds kFirstPoll{2};
constexpr int kPollShare = 16;

enum CallState : int { kIdle = 0, kRunning = 1, kFinished = 2, kAborted = 3, kFailed = 4 };

std::u16string FunctionName(IFunctionCall* call) {
  CComBSTR name;
  ThrowIfFailed(call->get_Function(&name));
  return std::u16string(name.View());
}

}  // namespace

// ------------------------------------------------------------- one call

// One call in flight (CIntRfcFunctionCall): its marshalling objects, the
// SDK's result and record, and the thread that listens for the answer.
class CRfcSession::ClassicCall final : public RunningCall {
 public:
  ClassicCall(CRfcSession* session, IFunctionCall* call, std::u16string name)
      : m_session(session), m_call(call), m_name(std::move(name)), m_sdk(session->Sdk()) {
    CComPtr<IRfcParameters> importing, exporting, changing, tables;
    ThrowIfFailed(call->get_Importing(&importing));
    ThrowIfFailed(call->get_Exporting(&exporting));
    ThrowIfFailed(call->get_Changing(&changing));
    ThrowIfFailed(call->get_Tables(&tables));
    m_importing = std::make_unique<CIntRfcParams>(m_sdk, importing, nullptr);
    m_exporting = std::make_unique<CIntRfcParams>(m_sdk, exporting, nullptr);
    m_changing = std::make_unique<CIntRfcParams>(m_sdk, changing, nullptr);
    m_tables = std::make_unique<CIntRfcTables>(m_sdk, tables, true);
  }

  // As the destructor of the call: a thread still listening is asked to
  // cancel and waited for.
  ~ClassicCall() override {
    if (m_state == kRunning && m_event && !m_threadDone) {
      m_abort = true;
      Wake();
      m_event->Wait();
    }
  }

  void RunSynchronously() override {
    CRfcSession* session = m_session;
    Send(false);
    if (m_state == kRunning) m_event->Wait();
    // A read-back that failed leaves the state as it was: the result rules.
    session->JudgeResult(m_result, m_record, m_name);
    session->EndCall();  // destroys this
  }

  void Start() override {
    CRfcSession* session = m_session;
    Send(true);
    if (m_state == kRunning) return;
    // Never sent: no thread, no CallFinished.
    session->JudgeResult(m_result, m_record, m_name);
    session->EndCall();  // destroys this
    session->ReleaseAsynchronousCall();
  }

  void Abort() override {
    if (m_state != kRunning || !m_event || m_threadDone) return;
    m_abort = true;
    Wake();
    m_event->Wait();
  }

  int Result() const { return m_result; }
  const RFC_ERROR_INFO_EX& Record() const { return m_record; }
  bool Running() const { return m_state == kRunning; }

 private:
  // RfcCallExU; on success the thread starts.
  void Send(bool asynchronous) {
    if (m_state != kIdle) return;
    const unsigned handle = m_session->m_handle;
    m_handle = handle;
    m_asynchronous = asynchronous;
    m_result =
        m_sdk.RfcCallExU(handle, m_name.data(), m_importing->Entries(), m_changing->Entries(), m_tables->Entries());
    if (m_result != RFC_OK) {
      m_state = kFailed;
      m_sdk.RfcLastErrorExU(&m_record);
      return;
    }
    m_event = std::make_shared<CallEvent>(handle);
    m_state = kRunning;
    m_session->m_waiting = true;
    std::thread([this] { ListenForResult(); }).detach();
  }

  void Wake() {
    std::lock_guard<std::mutex> lock(m_wakeMutex);
    m_wake.notify_all();
  }

  // Sleeps for interval or until an abort is asked for.
  void Sleep(std::chrono::milliseconds interval) {
    std::unique_lock<std::mutex> lock(m_wakeMutex);
    m_wake.wait_for(lock, interval, [this] { return m_abort.load(); });
  }

  // The thread's whole life. What it needs after the call may be gone (the
  // event, the session, whether it lets go of the session) it holds itself.
  void ListenForResult() {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    Trace(u"listenForResult");
    const std::shared_ptr<CallEvent> event = m_event;
    CRfcSession* const session = m_session;
    const bool asynchronous = m_asynchronous;
    bool aborted = false, closed = false;
    try {
      const auto started = std::chrono::steady_clock::now();
      for (;;) {
        if (m_abort) {
          aborted = true;
          break;
        }
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
        Sleep(std::clamp(elapsed / kPollShare, kFirstPoll, kPollInterval));
        if (m_abort) {
          aborted = true;
          break;
        }
        const RFC_RC rc = m_sdk.RfcListenU(m_handle);
        TraceRaw(u".");
        if (rc == RFC_OK) break;
        if (rc == RFC_FAILURE) {
          TraceRaw(u"\n");
          Trace(u"listenForResult(): RfcListen() failed\n");
          m_sdk.RfcLastErrorExU(&m_record);
          m_result = RFC_FAILURE;
          m_state = kFailed;
          break;
        }
        if (rc == RFC_CLOSED) {
          TraceRaw(u"\n");
          Trace(u"listenForResult(): RfcListen() returns RFC_CLOSE\n");
          m_result = RFC_CLOSED;
          m_state = kAborted;
          closed = true;
          break;
        }
        if (rc != RFC_RETRY) {
          TraceRaw(u"\n");
          Trace(u"Strange result from RfcListen: %x\n", static_cast<unsigned>(rc));
        }
      }
      if (aborted)
        Cancel();
      else if (m_state == kRunning)
        Receive();
    } catch (const _com_error& e) {
      TraceRaw(u"\n");
      Trace(u"listenForResult(): COM ERROR 0x%x %s\n", static_cast<unsigned>(e.Error()),
            std::u16string(e.ErrorMessage()));
      Trace(u"%s\n", std::u16string(e.Description().View()));
    } catch (const std::exception& e) {
      TraceRaw(u"\n");
      Trace(u"listenForResult(): COM ERROR 0x%x %s\n", static_cast<unsigned>(E_FAIL), std::string(e.what()));
    }
    session->m_waiting = false;
    m_threadDone = true;
    // Nothing of this object is used after the session's callback: an
    // asynchronous call is freed there.
    if (asynchronous) session->OnCallFinished(*this, aborted, closed);
    if (asynchronous && !aborted) session->ReleaseAsynchronousCall();  // the last use of the session
    event->Set();
    CoUninitialize();
  }

  void Receive() {
    rfc_char_t* exception = nullptr;
    m_result =
        m_sdk.RfcReceiveExU(m_handle, m_exporting->Entries(), m_changing->Entries(), m_tables->Entries(), &exception);
    if (m_result == RFC_OK) {
      TraceRaw(u"\n");
      Trace(u"listenForResult(): RfcReceiveEx() finished with RFC_OK\n");
      m_exporting->getValues();
      m_changing->getValues();
      m_tables->getValues();
      m_state = kFinished;
      return;
    }
    if (m_result == RFC_EXCEPTION) {
      m_state = kFailed;
      const std::u16string text = SdkText(exception, 512);
      TraceRaw(u"\n");
      Trace(u"Veltrane: listenForResult(): RfcReceiveEx() returned RFC_EXCEPTION (\"%s\")\n", text);
      m_record = RFC_ERROR_INFO_EX{};
      m_record.group = RFC_ERROR_APPLICATION_EXCEPTION;
      text.copy(m_record.message, 512);
      // Tables hold what the module left in them; exporting and changing
      // parameters do not.
      m_tables->getValues();
      return;
    }
    m_sdk.RfcLastErrorExU(&m_record);
    m_state = kFailed;
    TraceRaw(u"\n");
    Trace(u"Veltrane: listenForResult(): RfcReceiveEx() returned %i, (%i, \"%s\")\n", m_result,
          static_cast<int>(m_record.group), SdkText(m_record.message, 513));
  }

  void Cancel() {
    TraceRaw(u"\n");
    Trace(u"listenForResult(): Thread aborted\n");
    m_result = m_sdk.RfcCancelU(m_handle, RFC_CANCEL_HARD);
    Trace(u"listenForResult(): RfcCancel finished\n");
    if (m_result == RFC_FAILURE) m_sdk.RfcLastErrorExU(&m_record);
    m_state = kAborted;
  }

  CRfcSession* m_session;
  CComPtr<IFunctionCall> m_call;
  std::u16string m_name;
  const EntryPoints& m_sdk;
  std::atomic<int> m_state{kIdle};
  std::atomic<bool> m_abort{false};
  std::atomic<bool> m_threadDone{false};  // the thread has nothing left to do with the call
  int m_result = 0;
  unsigned m_handle = 0;
  bool m_asynchronous = false;
  std::unique_ptr<CIntRfcParams> m_importing, m_exporting, m_changing;
  std::unique_ptr<CIntRfcTables> m_tables;
  RFC_ERROR_INFO_EX m_record{};
  std::shared_ptr<CallEvent> m_event;
  std::mutex m_wakeMutex;
  std::condition_variable m_wake;
};

// ------------------------------------------------------------ the session

HRESULT CRfcSession::FinalConstruct() {
  CRfcSystemData* data = nullptr;
  HRESULT hr = CRfcSystemData::CreateInstance(&data);
  if (FAILED(hr)) return hr;
  m_systemData.Attach(data);
  return S_OK;
}

CRfcSession::~CRfcSession() { Disconnect(); }

HRESULT CRfcSession::get_IsConnected(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_handle > 0 ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

HRESULT CRfcSession::get_CallActive(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = VARIANT_FALSE;
  if (!CallRunning() || !m_waiting) return S_OK;
  // Deliberately slow to say yes.
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  *pVal = VARIANT_TRUE;
  return S_OK;
}

HRESULT CRfcSession::get_SessionType(BSTR* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = SysAllocString(u"RFC");
  return *pVal ? S_OK : E_OUTOFMEMORY;
}

HRESULT CRfcSession::get_RfcSystemData(IRfcSystemData** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_systemData;
  (*pVal)->AddRef();
  return S_OK;
}

void CRfcSession::SetSdkError(const RFC_ERROR_INFO_EX& record) { SetError(ErrorRecordOf(record)); }

void CRfcSession::SetLastSdkError() {
  RFC_ERROR_INFO_EX record{};
  Sdk().RfcLastErrorExU(&record);
  SetSdkError(record);
}

// ---------------------------------------------------------------- connect

HRESULT CRfcSession::LoadSdk() {
  const std::u16string directory = OptionValue(u"librfc.path");
  if (!directory.empty()) TraceRaw(u"\nadd %s to search path\n", directory);
  std::string reason;
  try {
    m_sdk = &RfcLibrary::Load(directory, &reason);
  } catch (const _SEHException& e) {
    if (!reason.empty()) Trace(u"cannot load %s: %s\n", std::string(kLibraryFile), reason);
    if (e.Code() == kExceptionModuleNotFound || e.Code() == kExceptionProcNotFound)
      return Report(Text::RfcLibraryUnavailable);
    return Report(Text::Unexpected);
  }
  return S_OK;
}

HRESULT CRfcSession::Connect() {
  return Guard("Connect", [&]() -> HRESULT {
    if (m_handle != 0) return Report(Text::AlreadyConnected);
    const CLogonData* logon = Logon();
    ClassicLogon values;
    values.connectString = m_systemData->ConnectString();
    values.client = logon->Client();
    values.user = logon->User();
    values.password = logon->Password();
    values.language = logon->Language();
    values.sso2Ticket = logon->SSO2Ticket();
    values.x509Cert = logon->X509Cert();
    values.extIdData = logon->ExtIdData();
    values.extIdType = logon->ExtIdType();
    values.visualMode = m_systemData->VisualMode();
    values.debug = m_systemData->Debug() != VARIANT_FALSE;
    ClassicConnectString connect = BuildClassicConnectString(values);
    CComBSTR systemId;
    get_SystemID(&systemId);
    Trace(u"trying to connect %s (%s)...", std::u16string(systemId.View()), connect.traced);

    HRESULT hr = LoadSdk();
    if (FAILED(hr)) return hr;
    const std::u16string timeout = OptionValue(u"rfc.connection_timeout");
    if (!timeout.empty()) {
      const int milliseconds = static_cast<int>(RfcParseTimeout(timeout));
      TraceRaw(u"\nset RFC connection timeout %i ms\n", milliseconds);
      if (Sdk().RfcSetSystemTimeoutU) Sdk().RfcSetSystemTimeoutU(milliseconds);
    }
    RFC_ERROR_INFO_EX record{};
    const RFC_HANDLE handle = RunTranslated([&] { return Sdk().RfcOpenExU(connect.text.data(), &record); });
    if (handle == RFC_HANDLE_NULL) {
      SetSdkError(record);
      TraceRaw(u"failed(%s)\n", SdkText(record.key, 33) + u": " + SdkText(record.message, 513));
      return S_OK;
    }
    m_handle = handle;
    SetErrorFlag(VARIANT_FALSE);
    TraceRaw(u"ok\n");
    return S_OK;
  });
}

bool CRfcSession::AbortRunning() {
  try {
    if (!Frame().AbortRunningCall()) return false;
  } catch (...) {}
  Frame().Unpin(Unknown());
  return true;
}

HRESULT CRfcSession::Disconnect() {
  AbortRunning();
  const unsigned handle = m_handle.exchange(0);
  if (handle != 0) {
    Trace(u"Veltrane: Session Disconnect\n");
    Sdk().RfcCloseU(handle);
  }
  return S_OK;
}

HRESULT CRfcSession::AbortCall() {
  if (!AbortRunning()) {
    Trace(u"IRfcSession->AbortRfc(): No RFC Call to abort\n");
    return S_OK;
  }
  Trace(u"IRfcSession->AbortRfc(): RFC successfully aborted\n");
  return S_OK;
}

// ------------------------------------------------------------------ calls

std::unique_ptr<RunningCall> CRfcSession::PrepareCall(IFunctionCall* call) {
  const std::u16string name = FunctionName(call);
  if (name.empty()) throw _com_error(Report(Text::InvalidFunctionName));
  Trace(u"calling module '%s'\n", name);
  try {
    return std::make_unique<ClassicCall>(this, call, name);
  } catch (const CXVeltrane& e) {
    Trace(u"caught CXVeltrane(), terminating\n\t%s\n", std::string(e.what()));
    throw _com_error(Report(e.ClientText()));
  } catch (const _com_error&) {
    throw;
  } catch (...) {
    Trace(u"unexpected error - terminating\n");
    throw _com_error(Report(Text::Unexpected));
  }
}

void CRfcSession::JudgeResult(int result, const RFC_ERROR_INFO_EX& record, const std::u16string& name) {
  if (result == RFC_OK) {
    Trace(u"call to '%s' returned RFC_OK\n", name);
    ClearError();
  } else if (result == RFC_CLOSED) {
    Trace(u"call to '%s' returned RFC_CLOSED\n", name);
    ClearError();
    m_handle = 0;  // the SDK has closed it
  } else {
    SetSdkError(record);
    Trace(u"call to '%s' failed (\"%s\")\n", name, SdkText(record.message, 513));
  }
}

void CRfcSession::OnCallFinished(ClassicCall& call, bool aborted, bool closed) {
  const int result = call.Result();
  if (result == RFC_OK || result == RFC_CANCELED)
    SetErrorFlag(VARIANT_FALSE);
  else
    SetSdkError(call.Record());  // a closed connection too, with the empty record
  if (aborted) {
    if (closed) {
      if (const unsigned handle = m_handle.exchange(0)) Sdk().RfcCloseU(handle);
    }
    return;  // the aborting thread frees the call
  }
  // The call is still held while the sinks hear of its end: a CallFunction
  // from a handler is refused.
  FireCallFinished();
  EndCall();  // frees the call
  if (closed) {
    if (const unsigned handle = m_handle.exchange(0)) Sdk().RfcCloseU(handle);
  }
}
