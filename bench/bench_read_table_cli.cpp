// veltrane read-table against veltrane-sim, side by side in one run with the
// peer a user would write instead (bench/peers/read_table_requests.py:
// requests and lxml, paged the same way, typed rows written as JSON), and
// with the floor: the same pages fetched with libcurl alone, and the
// simulated system's own CPU time while it serves them. Each run is a
// child process; its wall time, CPU time and peak resident memory come
// from wait4.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "testing/sim_process.h"

extern char** environ;

namespace {

constexpr long kPageSize = 10000;
constexpr long kSmall = 100000;
constexpr long kLarge = 1000000;
constexpr double kFields = 14;

vsim::testing::SimProcess& Sim() {
  static vsim::testing::SimProcess sim([] {
    vsim::testing::SimOptions options;
    options.args = {"--flight-rows", std::to_string(kLarge)};
    return options;
  }());
  return sim;
}

struct Run {
  double wallMs = 0;
  double cpuMs = 0;
  double maxRssMb = 0;
};

double Seconds(const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; }

// Runs argv with standard output to outPath; throws unless it exits with 0.
Run Spawn(const std::vector<std::string>& argv, const std::string& outPath) {
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) != 0)
    throw std::runtime_error("cannot start " + argv[0]);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  const auto end = std::chrono::steady_clock::now();
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(argv[0] + " failed");
  Run run;
  run.wallMs = std::chrono::duration<double, std::milli>(end - start).count();
  run.cpuMs = (Seconds(usage.ru_utime) + Seconds(usage.ru_stime)) * 1000;
  run.maxRssMb = static_cast<double>(usage.ru_maxrss) / 1024;
  return run;
}

// The simulated system's CPU time so far, from /proc.
double SimCpuMs() {
  std::ifstream stat("/proc/" + std::to_string(Sim().pid()) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string field;
  unsigned long long utime = 0, stime = 0;
  for (int i = 3; i <= 15 && fields >> field; ++i) {
    if (i == 14) utime = std::stoull(field);
    if (i == 15) stime = std::stoull(field);
  }
  return static_cast<double>(utime + stime) * 1000.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

Run Command(long rows, const std::string& format = "json") {
  setenv("VELTRANE_PASSWORD", "Welcome1", 1);
  return Spawn({VELTRANE_CLI_PATH, "read-table", "SFLIGHT", "--port", std::to_string(Sim().soapPort()), "--user",
                "DEMO", "--max", std::to_string(rows), "--page-size", std::to_string(kPageSize), "--format", format},
               "/tmp/veltrane-bench-read-table.out");
}

Run Peer(long rows) {
  return Spawn({"/usr/bin/python3", VELTRANE_PEER_SCRIPT, Sim().soapUrl(), "DEMO", "Welcome1", "SFLIGHT",
                std::to_string(rows), std::to_string(kPageSize)},
               "/tmp/veltrane-bench-read-table-peer.out");
}

size_t Discard(char*, size_t size, size_t n, void*) { return size * n; }

// The pages fetched with libcurl alone, nothing parsed: the floor.
double FetchAloneMs(long rows) {
  CURL* curl = curl_easy_init();
  const std::string url = Sim().soapUrl() + "/sap/bc/soap/rfc?sap-client=001";
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: text/xml; charset=utf-8");
  headers = curl_slist_append(headers, "SOAPAction: \"\"");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
  curl_easy_setopt(curl, CURLOPT_USERPWD, "DEMO:Welcome1");
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Discard);
  const auto start = std::chrono::steady_clock::now();
  for (long skip = 0; skip < rows; skip += kPageSize) {
    const std::string body =
        "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"><SOAP-ENV:Body>"
        "<rfc:RFC_READ_TABLE xmlns:rfc=\"urn:sap-com:document:sap:rfc:functions\"><QUERY_TABLE>SFLIGHT</QUERY_TABLE>"
        "<DELIMITER> </DELIMITER><ROWCOUNT>" +
        std::to_string(kPageSize) + "</ROWCOUNT><ROWSKIPS>" + std::to_string(skip) +
        "</ROWSKIPS><OPTIONS/><FIELDS/><DATA/></rfc:RFC_READ_TABLE></SOAP-ENV:Body></SOAP-ENV:Envelope>";
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
    if (curl_easy_perform(curl) != CURLE_OK) throw std::runtime_error("fetching a page failed");
  }
  const auto end = std::chrono::steady_clock::now();
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  return std::chrono::duration<double, std::milli>(end - start).count();
}

// 100,000 rows: the command, the peer and the floor in turns.
void BM_ReadTableBesideThePeer(benchmark::State& state) {
  Sim();
  double command = 0, commandCpu = 0, peer = 0, fetch = 0, simCpu = 0;
  for (auto _ : state) {
    const double simBefore = SimCpuMs();
    const Run c = Command(kSmall);
    simCpu += SimCpuMs() - simBefore;
    command += c.wallMs;
    commandCpu += c.cpuMs;
    peer += Peer(kSmall).wallMs;
    fetch += FetchAloneMs(kSmall);
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["command_ms"] = command / n;
  state.counters["peer_ms"] = peer / n;
  state.counters["faster_x"] = command > 0 ? peer / command : 0;
  state.counters["goal_faster_x"] = 4;
  state.counters["floor_fetch_ms"] = fetch / n;
  state.counters["sim_cpu_ms"] = simCpu / n;
  state.counters["of_floor_x"] = fetch > 0 ? command / fetch : 0;
  state.counters["client_cpu_ms"] = commandCpu / n;
  state.counters["Mfields_per_cpu_s"] = commandCpu > 0 ? kSmall * kFields * n / commandCpu / 1000 : 0;
  state.counters["goal_Mfields_per_cpu_s"] = 5;
}
BENCHMARK(BM_ReadTableBesideThePeer)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// Peak memory of the command for 100,000 and 1,000,000 rows, and for each
// output format.
void BM_ReadTablePeakMemory(benchmark::State& state) {
  Sim();
  Run small, large;
  for (auto _ : state) {
    small = Command(kSmall);
    large = Command(kLarge);
  }
  state.counters["rss_100k_mb"] = small.maxRssMb;
  state.counters["rss_1m_mb"] = large.maxRssMb;
  state.counters["rss_ratio"] = small.maxRssMb > 0 ? large.maxRssMb / small.maxRssMb : 0;
  state.counters["goal_rss_ratio"] = 1;
  state.counters["wall_1m_ms"] = large.wallMs;
}
BENCHMARK(BM_ReadTablePeakMemory)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

void BM_ReadTableFormats(benchmark::State& state) {
  Sim();
  static const char* formats[] = {"json", "jsonl", "csv"};
  const std::string format = formats[state.range(0)];
  double wall = 0, cpu = 0;
  for (auto _ : state) {
    const Run r = Command(kSmall, format);
    wall += r.wallMs;
    cpu += r.cpuMs;
  }
  state.counters["wall_ms"] = wall / static_cast<double>(state.iterations());
  state.counters["cpu_ms"] = cpu / static_cast<double>(state.iterations());
  state.SetLabel(format);
}
BENCHMARK(BM_ReadTableFormats)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

}  // namespace
