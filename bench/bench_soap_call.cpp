// A synchronous RFC_PING over loopback against veltrane-sim: through
// SoapSession (envelope, transport worker, parsing), and side by side the
// same envelope posted with libcurl alone (one easy handle, keep-alive, no
// parsing). Prints both and their ratio.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>
#include <map>
#include <memory>
#include <string>

#include "demo_logon.h"
#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "soap/soap_rfc_xml.h"
#include "soap/win_http_transport.h"
#include "testing/sim_process.h"
#include "veltrane_tlb.h"

namespace {

vsim::testing::SimProcess& Sim() {
  static vsim::testing::SimProcess sim;
  return sim;
}

// The latencies of every call side by side, over all repetitions, and the
// process's CPU time and context switches (all its threads) for each side.
struct SideBySideSamples {
  std::vector<double> sessionUs, curlUs;
  double sessionCpuUs = 0, curlCpuUs = 0;
  long sessionSwitches = 0, curlSwitches = 0;
} g_sideBySide;

struct Usage {
  double cpuUs;
  long switches;
};

Usage ProcessUsage() {
  timespec cpu{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return {static_cast<double>(cpu.tv_sec) * 1e6 + static_cast<double>(cpu.tv_nsec) / 1e3,
          usage.ru_nvcsw + usage.ru_nivcsw};
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0.0 : v[v.size() / 2];
}

size_t Collect(char* data, size_t size, size_t n, void* out) {
  static_cast<std::string*>(out)->append(data, size * n);
  return size * n;
}

// Points a session at the simulated system with its default logon.
void AddressSim(ISoapSession* session, CComPtr<IHttpSystemData>& data, CComPtr<ILogonData>& logon) {
  session->get_HttpSystemData(&data);
  data->put_Host(CComBSTR(u"127.0.0.1"));
  data->put_Port(Sim().soapPort());
  bench::DemoLogon(session);
  session->get_LogonData(&logon);
}

void BM_SoapSessionPing(benchmark::State& state) {
  CComPtr<ISoapSession> session;
  if (CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                       reinterpret_cast<void**>(&session)) != S_OK) {
    state.SkipWithError("SoapSession not creatable");
    return;
  }
  CComPtr<IHttpSystemData> data;
  CComPtr<ILogonData> logon;
  AddressSim(session, data, logon);
  if (session->Connect() != S_OK) {
    state.SkipWithError("Connect failed");
    return;
  }
  CComPtr<IFunctionCall> call;
  session->CreateCall(&call);
  call->put_Function(CComBSTR(u"RFC_PING"));
  for (auto _ : state) {
    if (session->CallFunction(call, VARIANT_TRUE) != S_OK) {
      state.SkipWithError("CallFunction failed");
      break;
    }
    VARIANT_BOOL error = VARIANT_FALSE;
    session->get_Error(&error);
    if (error) {
      state.SkipWithError("RFC_PING reported an error");
      break;
    }
  }
  session->Disconnect();
}
BENCHMARK(BM_SoapSessionPing)->UseRealTime()->MinTime(0.5);

// The same envelope posted with libcurl alone: one easy handle, keep-alive,
// the cookie engine, preemptive Basic credentials, no parsing.
class CurlPoster {
 public:
  explicit CurlPoster(std::string envelope) : m_envelope(std::move(envelope)) {
    const std::string url = Sim().soapUrl() + "/sap/bc/soap/rfc?sap-client=001&sap-language=EN";
    m_curl = curl_easy_init();
    m_headers = curl_slist_append(m_headers, "Content-Type: text/xml; charset=UTF-8");
    m_headers = curl_slist_append(m_headers, "Accept-Charset: UTF-8");
    m_headers = curl_slist_append(m_headers, "SOAPAction: \"urn:sap-com:document:sap:rfc:functions/RFC_PING\"");
    m_headers = curl_slist_append(m_headers, "Expect:");
    curl_easy_setopt(m_curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(m_curl, CURLOPT_HTTPHEADER, m_headers);
    curl_easy_setopt(m_curl, CURLOPT_POSTFIELDS, m_envelope.c_str());
    curl_easy_setopt(m_curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(m_envelope.size()));
    curl_easy_setopt(m_curl, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
    curl_easy_setopt(m_curl, CURLOPT_USERNAME, "DEMO");
    curl_easy_setopt(m_curl, CURLOPT_PASSWORD, "Welcome1");
    curl_easy_setopt(m_curl, CURLOPT_COOKIEFILE, "");
    curl_easy_setopt(m_curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(m_curl, CURLOPT_WRITEFUNCTION, &Collect);
    curl_easy_setopt(m_curl, CURLOPT_WRITEDATA, &m_body);
  }
  ~CurlPoster() {
    curl_slist_free_all(m_headers);
    curl_easy_cleanup(m_curl);
  }
  bool Post() {
    m_body.clear();
    long status = 0;
    if (curl_easy_perform(m_curl) != CURLE_OK) return false;
    curl_easy_getinfo(m_curl, CURLINFO_RESPONSE_CODE, &status);
    benchmark::DoNotOptimize(m_body.data());
    return status == 200;
  }

 private:
  std::string m_envelope;
  std::string m_body;
  CURL* m_curl = nullptr;
  curl_slist* m_headers = nullptr;
};

void BM_CurlAlonePing(benchmark::State& state) {
  CComPtr<IFunctionCall> call;
  CComPtr<ISoapSession> session;
  CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                   reinterpret_cast<void**>(&session));
  session->CreateCall(&call);
  call->put_Function(CComBSTR(u"RFC_PING"));
  CurlPoster curl(SoapRfcXML::BuildEnvelope(call));
  for (auto _ : state) {
    if (!curl.Post()) {
      state.SkipWithError("post failed");
      break;
    }
  }
}
BENCHMARK(BM_CurlAlonePing)->UseRealTime()->MinTime(0.5);

// The transport alone, without building or parsing the envelope: the
// waiting thread runs the exchange itself (SendAndAwait), or hands it to the
// worker and waits for it (Send, AwaitResponse).
void TransportPing(benchmark::State& state, bool viaWorker) {
  CComPtr<ISoapSession> session;
  CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                   reinterpret_cast<void**>(&session));
  CComPtr<IHttpSystemData> data;
  CComPtr<ILogonData> logon;
  AddressSim(session, data, logon);
  CComPtr<IFunctionCall> call;
  session->CreateCall(&call);
  call->put_Function(CComBSTR(u"RFC_PING"));
  const std::string envelope = SoapRfcXML::BuildEnvelope(call);
  WinHttpTransport transport(data, logon);
  transport.Connect();
  for (auto _ : state) {
    auto request = transport.CreateRequest(call, 0);
    if (viaWorker) request->Send(envelope, 0);
    WinHttpResponse answer = viaWorker ? request->AwaitResponse(30000) : request->SendAndAwait(envelope, 30000);
    if (answer.statusCode != u"200") {
      state.SkipWithError("no 200");
      break;
    }
  }
}
void BM_TransportPing(benchmark::State& state) { TransportPing(state, false); }
void BM_TransportPingViaWorker(benchmark::State& state) { TransportPing(state, true); }
BENCHMARK(BM_TransportPing)->UseRealTime()->MinTime(0.5);
BENCHMARK(BM_TransportPingViaWorker)->UseRealTime()->MinTime(0.5);

// What the client does for one RFC_PING besides the exchange, each part on
// its own and without the network: the envelope, the request's setup and
// teardown, and the answer read into the call.
constexpr const char* kPingAnswer =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><SOAP-ENV:Envelope "
    "xmlns:SOAP-ENC=\"http://schemas.xmlsoap.org/soap/encoding/\" "
    "xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"><SOAP-ENV:Body><urn:RFC_PING.Response "
    "xmlns:urn=\"urn:sap-com:document:sap:rfc:functions\"></urn:RFC_PING.Response></SOAP-ENV:Body></"
    "SOAP-ENV:Envelope>";

CComPtr<IFunctionCall> PingCall(CComPtr<ISoapSession>& session) {
  CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                   reinterpret_cast<void**>(&session));
  CComPtr<IFunctionCall> call;
  session->CreateCall(&call);
  call->put_Function(CComBSTR(u"RFC_PING"));
  return call;
}

void BM_PingPartEnvelope(benchmark::State& state) {
  CComPtr<ISoapSession> session;
  CComPtr<IFunctionCall> call = PingCall(session);
  for (auto _ : state) benchmark::DoNotOptimize(SoapRfcXML::BuildEnvelope(call));
}
BENCHMARK(BM_PingPartEnvelope);

void BM_PingPartRequest(benchmark::State& state) {
  CComPtr<ISoapSession> session;
  CComPtr<IFunctionCall> call = PingCall(session);
  CComPtr<IHttpSystemData> data;
  CComPtr<ILogonData> logon;
  AddressSim(session, data, logon);
  WinHttpTransport transport(data, logon);
  transport.Connect();
  for (auto _ : state) benchmark::DoNotOptimize(transport.CreateRequest(call, 0));
}
BENCHMARK(BM_PingPartRequest);

void BM_PingPartParse(benchmark::State& state) {
  CComPtr<ISoapSession> session;
  CComPtr<IFunctionCall> call = PingCall(session);
  for (auto _ : state) SoapRfcXML::ParseResponse(kPingAnswer, call);
}
BENCHMARK(BM_PingPartParse);

// Both in one loop, call by call, so that load from elsewhere on the machine
// falls on both alike. Counters: the median latency of each and their ratio.
void BM_SideBySide(benchmark::State& state) {
  CComPtr<ISoapSession> session;
  CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                   reinterpret_cast<void**>(&session));
  CComPtr<IHttpSystemData> data;
  CComPtr<ILogonData> logon;
  AddressSim(session, data, logon);
  if (session->Connect() != S_OK) {
    state.SkipWithError("Connect failed");
    return;
  }
  CComPtr<IFunctionCall> call;
  session->CreateCall(&call);
  call->put_Function(CComBSTR(u"RFC_PING"));
  CurlPoster curl(SoapRfcXML::BuildEnvelope(call));
  using clock = std::chrono::steady_clock;
  std::vector<double> viaSession, viaCurl;
  double sessionCpu = 0, curlCpu = 0;
  long sessionSwitches = 0, curlSwitches = 0;
  for (auto _ : state) {
    const Usage u0 = ProcessUsage();
    const auto t0 = clock::now();
    const HRESULT hr = session->CallFunction(call, VARIANT_TRUE);
    const auto t1 = clock::now();
    const Usage u1 = ProcessUsage();
    const auto t2 = clock::now();
    const bool posted = curl.Post();
    const auto t3 = clock::now();
    const Usage u2 = ProcessUsage();
    if (hr != S_OK || !posted) {
      state.SkipWithError("a call failed");
      break;
    }
    viaSession.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
    viaCurl.push_back(std::chrono::duration<double, std::micro>(t3 - t2).count());
    sessionCpu += u1.cpuUs - u0.cpuUs;
    curlCpu += u2.cpuUs - u1.cpuUs;
    sessionSwitches += u1.switches - u0.switches;
    curlSwitches += u2.switches - u1.switches;
  }
  if (viaSession.empty()) return;
  const double a = Median(viaSession), b = Median(viaCurl);
  const double calls = static_cast<double>(viaSession.size());
  state.counters["session_us"] = a;
  state.counters["curl_us"] = b;
  state.counters["ratio"] = a / b;
  state.counters["goal_ratio"] = 1.2;
  state.counters["session_cpu_us"] = sessionCpu / calls;
  state.counters["curl_cpu_us"] = curlCpu / calls;
  g_sideBySide.sessionUs.insert(g_sideBySide.sessionUs.end(), viaSession.begin(), viaSession.end());
  g_sideBySide.curlUs.insert(g_sideBySide.curlUs.end(), viaCurl.begin(), viaCurl.end());
  g_sideBySide.sessionCpuUs += sessionCpu;
  g_sideBySide.curlCpuUs += curlCpu;
  g_sideBySide.sessionSwitches += sessionSwitches;
  g_sideBySide.curlSwitches += curlSwitches;
}
BENCHMARK(BM_SideBySide)->UseRealTime()->MinTime(3.0);

// Keeps, per benchmark, the real time per iteration of each repetition.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs)
      if (run.run_type == Run::RT_Iteration && run.iterations > 0 && !run.error_occurred)
        m_seconds[run.run_name.function_name].push_back(run.real_accumulated_time /
                                                        static_cast<double>(run.iterations));
    ConsoleReporter::ReportRuns(runs);
  }
  // The fastest and the median repetition; 0 when the benchmark did not run.
  double Min(const std::string& name) const {
    auto it = m_seconds.find(name);
    return it == m_seconds.end() ? 0.0 : *std::min_element(it->second.begin(), it->second.end());
  }
  double Median(const std::string& name) const {
    auto it = m_seconds.find(name);
    if (it == m_seconds.end()) return 0.0;
    std::vector<double> v = it->second;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  }

 private:
  std::map<std::string, std::vector<double>> m_seconds;
};

}  // namespace

int main(int argc, char** argv) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  // Repetitions in random order by default, so that load from elsewhere on
  // the machine falls on both sides alike; flags given on the command line win.
  std::vector<char*> args(argv, argv + argc);
  std::string repetitions = "--benchmark_repetitions=3";
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, {repetitions.data(), interleave.data()});
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const double sessionUs = Median(g_sideBySide.sessionUs), curlUs = Median(g_sideBySide.curlUs);
  if (curlUs > 0) {
    const double calls = static_cast<double>(g_sideBySide.curlUs.size());
    std::printf(
        "RFC_PING side by side (median of all %zu calls): SoapSession %.1f us, "
        "libcurl alone %.1f us, ratio %.2f (goal: within 1.2)\n",
        g_sideBySide.curlUs.size(), sessionUs, curlUs, sessionUs / curlUs);
    std::printf(
        "RFC_PING per call, this process's threads: SoapSession %.1f us CPU and %.2f context switches, "
        "libcurl alone %.1f us CPU and %.2f context switches\n",
        g_sideBySide.sessionCpuUs / calls, static_cast<double>(g_sideBySide.sessionSwitches) / calls,
        g_sideBySide.curlCpuUs / calls, static_cast<double>(g_sideBySide.curlSwitches) / calls);
  }
  const char* session = "BM_SoapSessionPing";
  const char* alone = "BM_CurlAlonePing";
  if (reporter.Median(session) > 0 && reporter.Median(alone) > 0)
    std::printf(
        "RFC_PING separate runs (median of repetitions): SoapSession %.1f us, libcurl alone %.1f us, "
        "ratio %.2f\n",
        reporter.Median(session) * 1e6, reporter.Median(alone) * 1e6,
        reporter.Median(session) / reporter.Median(alone));
  benchmark::Shutdown();
  CoUninitialize();
  return 0;
}
