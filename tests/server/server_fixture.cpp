#include "server_fixture.h"

#include <unistd.h>

#include "loopback.h"
#include "platform/unicode.h"
#include "runtime/trace.h"
#include "sim_logon.h"

namespace servertest {

namespace {

vsim::testing::SimOptions Options() {
  vsim::testing::SimOptions options;
  options.args = {"--data-dir", std::string(VELTRANE_SOURCE_DIR) + "/tests/server/data"};
  return options;
}

void SetText(RFC_FUNCTION_HANDLE f, const char16_t* name, const std::string& value) {
  const std::u16string wide = Wide(value);
  Sdk().RfcSetString(f, name, wide.c_str(), static_cast<unsigned>(wide.size()), nullptr);
}

std::string GetText(RFC_FUNCTION_HANDLE f, const char16_t* name) {
  unsigned length = 0;
  if (Sdk().RfcGetStringLength(f, name, &length, nullptr) != RFC_OK) return {};
  std::u16string buffer(length + 1, u'\0');
  unsigned got = 0;
  if (Sdk().RfcGetString(f, name, buffer.data(), length + 1, &got, nullptr) != RFC_OK) return {};
  buffer.resize(got);
  while (!buffer.empty() && buffer.back() == u' ') buffer.pop_back();
  return Narrow(buffer);
}

std::string GetChars(RFC_FUNCTION_HANDLE f, const char16_t* name, unsigned length) {
  std::u16string buffer(length, u' ');
  if (Sdk().RfcGetChars(f, name, buffer.data(), length, nullptr) != RFC_OK) return {};
  while (!buffer.empty() && (buffer.back() == u' ' || buffer.back() == 0)) buffer.pop_back();
  return Narrow(buffer);
}

// One function call over a connection of its own, as DEMO.
ProgramAnswer Invoke(const char16_t* module, const std::function<void(RFC_FUNCTION_HANDLE)>& fill,
                     const std::function<void(RFC_FUNCTION_HANDLE, ProgramAnswer&)>& read) {
  ProgramAnswer answer;
  const std::u16string host = Wide(Sim().rfcHost()), port = Wide(std::to_string(Sim().rfcPort()));
  const RFC_CONNECTION_PARAMETER params[] = {{u"ashost", host.c_str()}, {u"gwserv", port.c_str()}, {u"client", u"001"},
                                             {u"user", u"DEMO"},        {u"passwd", u"Welcome1"},  {u"lang", u"EN"}};
  RFC_ERROR_INFO info{};
  RFC_CONNECTION_HANDLE c = Sdk().RfcOpenConnection(params, 6, &info);
  if (!c) {
    answer.rc = info.code;
    answer.message = Narrow(info.message);
    return answer;
  }
  RFC_FUNCTION_DESC_HANDLE desc = Sdk().RfcGetFunctionDesc(c, module, &info);
  RFC_FUNCTION_HANDLE f = desc ? Sdk().RfcCreateFunction(desc, &info) : nullptr;
  if (f) {
    fill(f);
    answer.rc = Sdk().RfcInvoke(c, f, &info);
    answer.key = Narrow(info.key);
    answer.message = Narrow(info.message);
    if (answer.rc == RFC_OK) read(f, answer);
    Sdk().RfcDestroyFunction(f, nullptr);
  } else {
    answer.rc = info.code;
    answer.message = Narrow(info.message);
  }
  Sdk().RfcCloseConnection(c, nullptr);
  return answer;
}

ProgramAnswer RunProgramCall(const ProgramCall& call) {
  return Invoke(
      u"Z_VSIM_CALL_PROGRAM",
      [&](RFC_FUNCTION_HANDLE f) {
        SetText(f, u"PROGRAM_ID", call.programId);
        SetText(f, u"FUNCTION", call.function);
        SetText(f, u"PARAMETERS", call.parameters);
        SetText(f, u"MODE", call.mode);
        if (!call.tid.empty()) SetText(f, u"TID", call.tid);
        SetText(f, u"CONFIRM", call.confirm);
        Sdk().RfcSetInt(f, u"TIMEOUT_MS", static_cast<RFC_INT>(call.timeoutMs), nullptr);
      },
      [](RFC_FUNCTION_HANDLE f, ProgramAnswer& a) {
        a.result = GetText(f, u"RESULT");
        a.exception = GetChars(f, u"EXCEPTION", 30);
        a.exceptionText = GetText(f, u"EXCEPTION_TEXT");
        a.tidUsed = GetChars(f, u"TID_USED", 24);
        a.executedBefore = GetChars(f, u"EXECUTED_BEFORE", 1) == "X";
      });
}

}  // namespace

vsim::testing::SimProcess& Sim() {
  static vsim::testing::SimProcess sim(Options());
  return sim;
}

std::u16string SdkDir() { return VELTRANE_NWRFC_SDK_DIR; }
std::u16string RfcSdkDir() { return VELTRANE_RFC_SDK_DIR; }
std::u16string Wide(const std::string& text) { return Utf8ToWide(text); }
std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }
std::string Text(BSTR text) { return Narrow(BstrView(text)); }

std::u16string NewProgramId(const char* what) {
  static std::atomic<int> next{0};
  return Wide(std::string("VSRV.") + what + "." + std::to_string(::getpid()) + "." + std::to_string(++next));
}

const veltrane::nwrfc::EntryPoints& Sdk() {
  if (const auto* loaded = veltrane::nwrfc::NWRfcLibrary::Loaded()) return *loaded;
  return veltrane::nwrfc::NWRfcLibrary::Load(SdkDir());
}

std::thread StartProgramCall(const ProgramCall& call, ProgramAnswer* answer, std::atomic<bool>* done) {
  Sdk();
  return std::thread([call, answer, done] {
    *answer = RunProgramCall(call);
    *done = true;
  });
}

bool PumpUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    CoPumpMessages(10);
  }
  return true;
}

ProgramAnswer CallProgram(const ProgramCall& call) {
  ProgramAnswer answer;
  std::atomic<bool> done{false};
  std::thread caller = StartProgramCall(call, &answer, &done);
  const bool finished = PumpUntil([&] { return done.load(); }, std::chrono::milliseconds(call.timeoutMs + 30000));
  EXPECT_TRUE(finished) << "the system's call did not come back";
  if (!finished)
    caller.detach();
  else
    caller.join();
  return answer;
}

HRESULT ShutdownPumping(IRfcServer* server) {
  std::atomic<bool> done{false};
  HRESULT hr = E_FAIL;
  std::thread stopper([&] {
    hr = server->Shutdown();
    done = true;
  });
  EXPECT_TRUE(PumpUntil([&] { return done.load(); }));
  stopper.join();
  return hr;
}

long DropPrograms() { return Gateway("DROP"); }
long RegisteredPrograms() { return Gateway("LIST"); }

long Gateway(const std::string& action) {
  Sdk();
  long count = -1;
  ProgramAnswer a = Invoke(
      u"Z_VSIM_GATEWAY", [&action](RFC_FUNCTION_HANDLE f) { SetText(f, u"ACTION", action); },
      [&count](RFC_FUNCTION_HANDLE f, ProgramAnswer&) {
        RFC_INT n = 0;
        Sdk().RfcGetInt(f, u"COUNT", &n, nullptr);
        count = n;
      });
  EXPECT_EQ(a.rc, RFC_OK) << a.message;
  return count;
}

CComPtr<IFunctionCall> ImportInterface(const char16_t* name) {
  CComPtr<IRfcSession> session;
  EXPECT_EQ(CoCreateInstance(CLSID_NWRfcSession, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                             reinterpret_cast<void**>(&session)),
            S_OK);
  session->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(SdkDir()));
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(CComBSTR(Wide("ashost=" + Sim().rfcHost() + " gwserv=" + std::to_string(Sim().rfcPort()))));
  test_support::SetSimLogon(session, u"DEMO", u"Welcome1");
  EXPECT_EQ(session->Connect(), S_OK);
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(session->ImportCall(CComBSTR(name), VARIANT_FALSE, &call), S_OK) << Narrow(name);
  session->Disconnect();
  return call;
}

// ------------------------------------------------------------------ sink

HRESULT ServerSink::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*, EXCEPINFO*, UINT*) {
  if (id < kIncomingCall || id > kTransactionConfirm) return DISP_E_MEMBERNOTFOUND;
  if (!params || params->cArgs != 1 || params->rgvarg[0].vt != VT_DISPATCH) return DISP_E_BADPARAMCOUNT;
  IDispatch* argument = params->rgvarg[0].pdispVal;
  static const char* kNames[] = {"",
                                 "IncomingCall",
                                 "Logon",
                                 "ServerError",
                                 "TransactionCheck",
                                 "TransactionCommit",
                                 "TransactionRollback",
                                 "TransactionConfirm"};
  std::string detail;
  CComBSTR text;
  if (id == kIncomingCall) {
    if (auto call = As<IFunctionCall>(argument)) call->get_Function(&text);
  } else if (id == kLogon) {
    if (auto info = As<IRfcServerLogonInfo>(argument)) info->get_User(&text);
  } else if (id == kServerError) {
    LONG rc = 0;
    if (auto info = As<IRfcServerErrorInfo>(argument)) info->get_RfcRc(&rc);
    text = CComBSTR(Wide(std::to_string(rc)));
  } else if (auto info = As<IRfcTransactionInfo>(argument)) {
    info->get_TransactionID(&text);
  }
  Handler handler;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_handlers.find(id);
    if (it != m_handlers.end()) handler = it->second;
  }
  const HRESULT hr = handler ? handler(argument) : S_OK;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.push_back(std::string(kNames[id]) + " " + Text(text));
    m_threads.push_back(std::this_thread::get_id());
  }
  m_changed.notify_all();
  return hr;
}

void ServerSink::On(DISPID event, Handler handler) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_handlers[event] = std::move(handler);
}

DWORD ServerSink::AdviseTo(IRfcServer* server) {
  CComQIPtr<IConnectionPointContainer> container(server);
  CComPtr<IConnectionPoint> point;
  DWORD cookie = 0;
  EXPECT_TRUE(container && container->FindConnectionPoint(DIID__RfcServerEvents, &point) == S_OK);
  if (point) EXPECT_EQ(point->Advise(static_cast<IDispatch*>(this), &cookie), S_OK);
  return cookie;
}

std::vector<std::string> ServerSink::Events() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_events;
}

std::vector<std::thread::id> ServerSink::Threads() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_threads;
}

bool ServerSink::WaitFor(size_t n, std::chrono::milliseconds limit) {
  return PumpUntil(
      [&] {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events.size() >= n;
      },
      limit);
}

// ------------------------------------------------------------- fixtures

void ServerTest::SetUp() {
  ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
  TraceResetForTesting();
}

void ServerTest::TearDown() {
  TraceResetForTesting();
  CoUninitialize();
}

// ---------------------------------------------------------------- values

std::string TextOf(const VARIANT& value) {
  CComVariant copy(value);
  if (FAILED(copy.ChangeType(VT_BSTR))) return "<vt " + std::to_string(value.vt) + ">";
  return Text(copy.bstrVal);
}

long NumberOf(const VARIANT& value) {
  CComVariant copy(value);
  if (FAILED(copy.ChangeType(VT_I4))) return -1;
  return copy.lVal;
}

}  // namespace servertest
