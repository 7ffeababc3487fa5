// The simulated system calling a registered NWRfcServer with a small function
// (STFC_CONNECTION, answered by an event handler), beside the same function
// called by a client session, in one run:
//   - ServerCall/sta: the handler's sink advised from a single-threaded
//     apartment, which pumps while the system's call runs (the usual client);
//   - ServerCall/mta: the sink advised from the multithreaded apartment, so
//     the handler runs on the server thread without a hop between threads;
//   - ClientCall: NWRfcSession calls STFC_CONNECTION of the system itself.
// Each server call is one Z_VSIM_CALL_PROGRAM over the SDK: the system runs
// the module, its gateway calls the program, the answer comes back. The
// counters give calls per second; the time per iteration is one call's latency.
#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "demo_logon.h"
#include "nwrfc/nwrfc_library.h"
#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "testing/sim_process.h"
#include "veltrane/event_sink.h"
#include "veltrane_tlb.h"

namespace {

vsim::testing::SimProcess& Sim() {
  static vsim::testing::SimProcess sim;
  return sim;
}

std::u16string Wide(const std::string& s) { return std::u16string(s.begin(), s.end()); }

const veltrane::nwrfc::EntryPoints& Sdk() { return veltrane::nwrfc::NWRfcLibrary::Load(VELTRANE_NWRFC_SDK_DIR); }

CComPtr<IRfcSession> Session() {
  CComPtr<IRfcSession> session;
  CoCreateInstance(CLSID_NWRfcSession, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                   reinterpret_cast<void**>(&session));
  session->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(VELTRANE_NWRFC_SDK_DIR));
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(CComBSTR(Wide("ashost=" + Sim().rfcHost() + " gwserv=" + std::to_string(Sim().rfcPort()))));
  bench::DemoLogon(session);
  session->Connect();
  return session;
}

// Answers IncomingCall: ECHOTEXT gets REQUTEXT.
class EchoSink final : public CEventSink {
 public:
  EchoSink() : CEventSink(DIID__RfcServerEvents) {}
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    if (id != 1) return S_OK;
    CComQIPtr<IFunctionCall> call(params->rgvarg[0].pdispVal);
    CComPtr<IRfcParameters> importing, exporting;
    call->get_Importing(&importing);
    call->get_Exporting(&exporting);
    CComPtr<IRfcParameter> in, out;
    importing->get_Item(CComVariant(u"REQUTEXT"), &in);
    exporting->get_Item(CComVariant(u"ECHOTEXT"), &out);
    CComVariant text;
    in->get_value(&text);
    return out->put_value(text);
  }
};

// A server class and where its SDK is.
struct ServerKind {
  const CLSID* clsid;
  const char16_t* pathOption;
  const char16_t* sdkDir;
};
const ServerKind kNWRfcServer{&CLSID_NWRfcServer, u"nwrfc.path", VELTRANE_NWRFC_SDK_DIR};
const ServerKind kRfcServer{&CLSID_RfcServer, u"librfc.path", VELTRANE_RFC_SDK_DIR};

// A registered server of STFC_CONNECTION whose sink advised from the
// calling thread's apartment.
CComPtr<IRfcServer> StartServer(const ServerKind& kind, const std::u16string& program, IFunctionCall* prototype) {
  CComPtr<IRfcServer> server;
  CoCreateInstance(*kind.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcServer, reinterpret_cast<void**>(&server));
  server->put_Option(CComBSTR(kind.pathOption), CComBSTR(kind.sdkDir));
  server->put_ProgramID(CComBSTR(program));
  server->put_GatewayHost(CComBSTR(Wide(Sim().rfcHost())));
  server->put_GatewayService(CComBSTR(Wide(std::to_string(Sim().rfcPort()))));
  server->InstallFunction(prototype);
  CComQIPtr<IConnectionPointContainer> container(server);
  CComPtr<IConnectionPoint> point;
  container->FindConnectionPoint(DIID__RfcServerEvents, &point);
  CComPtr<IDispatch> sink;
  sink.Attach(new EchoSink());
  DWORD cookie = 0;
  point->Advise(sink, &cookie);
  server->Serve();
  return server;
}

// One connection of the system's caller, and its call of the program.
class Caller {
 public:
  explicit Caller(const std::u16string& program) : m_program(program) {
    const std::u16string host = Wide(Sim().rfcHost()), port = Wide(std::to_string(Sim().rfcPort()));
    const RFC_CONNECTION_PARAMETER p[] = {{u"ashost", host.c_str()}, {u"gwserv", port.c_str()}, {u"client", u"001"},
                                          {u"user", u"DEMO"},        {u"passwd", u"Welcome1"},  {u"lang", u"EN"}};
    RFC_ERROR_INFO info{};
    m_connection = Sdk().RfcOpenConnection(p, 6, &info);
    m_desc = Sdk().RfcGetFunctionDesc(m_connection, u"Z_VSIM_CALL_PROGRAM", &info);
  }
  ~Caller() { Sdk().RfcCloseConnection(m_connection, nullptr); }
  bool Call() {
    RFC_ERROR_INFO info{};
    RFC_FUNCTION_HANDLE f = Sdk().RfcCreateFunction(m_desc, &info);
    const std::u16string parameters = u"{\"REQUTEXT\":\"ping\"}";
    Sdk().RfcSetChars(f, u"PROGRAM_ID", m_program.c_str(), static_cast<unsigned>(m_program.size()), nullptr);
    Sdk().RfcSetChars(f, u"FUNCTION", u"STFC_CONNECTION", 15, nullptr);
    Sdk().RfcSetString(f, u"PARAMETERS", parameters.c_str(), static_cast<unsigned>(parameters.size()), nullptr);
    const RFC_RC rc = Sdk().RfcInvoke(m_connection, f, &info);
    Sdk().RfcDestroyFunction(f, nullptr);
    return rc == RFC_OK;
  }

 private:
  std::u16string m_program;
  RFC_CONNECTION_HANDLE m_connection = nullptr;
  RFC_FUNCTION_DESC_HANDLE m_desc = nullptr;
};

CComPtr<IFunctionCall> Prototype() {
  CComPtr<IRfcSession> session = Session();
  CComPtr<IFunctionCall> call;
  session->ImportCall(CComBSTR(u"STFC_CONNECTION"), VARIANT_FALSE, &call);
  session->Disconnect();
  return call;
}

void ServerCallSta(benchmark::State& state, const ServerKind& kind, const char16_t* program) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  {
    CComPtr<IRfcServer> server = StartServer(kind, program, Prototype());
    // The system's calls come from a thread of their own; this apartment
    // pumps until each is answered.
    std::mutex mutex;
    std::condition_variable cv;
    int requested = 0, answered = 0;
    bool stop = false, failed = false;
    std::thread caller([&] {
      Caller c(program);
      std::unique_lock<std::mutex> lock(mutex);
      for (;;) {
        cv.wait(lock, [&] { return stop || requested > answered; });
        if (stop) return;
        lock.unlock();
        const bool ok = c.Call();
        lock.lock();
        failed = failed || !ok;
        ++answered;
      }
    });
    for (auto _ : state) {
      {
        std::lock_guard<std::mutex> lock(mutex);
        ++requested;
      }
      cv.notify_all();
      for (;;) {
        {
          std::lock_guard<std::mutex> lock(mutex);
          if (answered == requested) break;
        }
        CoPumpMessages(1);
      }
    }
    {
      std::lock_guard<std::mutex> lock(mutex);
      stop = true;
    }
    cv.notify_all();
    caller.join();
    if (failed) state.SkipWithError("a call failed");
    state.counters["calls/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    server->Shutdown();
  }
  CoUninitialize();
}

void ServerCallMta(benchmark::State& state, const ServerKind& kind, const char16_t* program) {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  {
    CComPtr<IRfcServer> server = StartServer(kind, program, Prototype());
    Caller caller(program);
    bool failed = false;
    for (auto _ : state) failed = !caller.Call() || failed;
    if (failed) state.SkipWithError("a call failed");
    state.counters["calls/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    server->Shutdown();
  }
  CoUninitialize();
}

void ClientCall(benchmark::State& state) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  {
    CComPtr<IRfcSession> session = Session();
    CComPtr<IFunctionCall> call;
    session->ImportCall(CComBSTR(u"STFC_CONNECTION"), VARIANT_FALSE, &call);
    CComPtr<IRfcParameters> importing;
    call->get_Importing(&importing);
    CComPtr<IRfcParameter> text;
    importing->get_Item(CComVariant(u"REQUTEXT"), &text);
    text->put_value(CComVariant(u"ping"));
    for (auto _ : state) session->CallFunction(call, VARIANT_TRUE);
    state.counters["calls/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    session->Disconnect();
  }
  CoUninitialize();
}

BENCHMARK_CAPTURE(ServerCallSta, NWRfcServer, kNWRfcServer, u"VBENCH.NW.STA")
    ->Name("ServerCall/NWRfcServer/sta")
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(ServerCallMta, NWRfcServer, kNWRfcServer, u"VBENCH.NW.MTA")
    ->Name("ServerCall/NWRfcServer/mta")
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(ServerCallSta, RfcServer, kRfcServer, u"VBENCH.CL.STA")
    ->Name("ServerCall/RfcServer/sta")
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(ServerCallMta, RfcServer, kRfcServer, u"VBENCH.CL.MTA")
    ->Name("ServerCall/RfcServer/mta")
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(ClientCall)->Name("ClientCall/STFC_CONNECTION")->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
