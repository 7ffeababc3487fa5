// A session beside the SDK it runs on, doing the same work in one loop and
// taking turns at going first, so that load from elsewhere on the machine
// (and the simulated system's clean-up of the call before) falls on both
// alike.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <string>
#include <vector>

namespace bench {

inline double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0.0 : v[v.size() / 2];
}

inline double CpuMs(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

struct SideBySideFigures {
  double sessionMs = 0, sdkMs = 0, sessionCpuMs = 0, sdkCpuMs = 0;
};

// Runs `session()` and `sdk()` (each true when its call went well) once per
// iteration; `cpuClock` measures the CPU time of each (the thread's, or the
// process's when the session works on threads of its own). Returns the
// medians and sets the counters `sessionCounter`, "sdk_ms", "ratio" and
// "cpu_ratio", and `rows` items per iteration.
template <class Session, class Sdk>
SideBySideFigures RunSideBySide(benchmark::State& state, const std::string& sessionCounter, clockid_t cpuClock,
                                Session session, Sdk sdk, int rows) {
  using Clock = std::chrono::steady_clock;
  std::vector<double> sessionMs, sdkMs, sessionCpu, sdkCpu;
  auto timed = [&](auto& work, std::vector<double>& times, std::vector<double>& cpu) {
    const auto t0 = Clock::now();
    const double c0 = CpuMs(cpuClock);
    const bool ok = work();
    cpu.push_back(CpuMs(cpuClock) - c0);
    times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
    return ok;
  };
  auto viaSession = [&] { return timed(session, sessionMs, sessionCpu); };
  auto viaSdk = [&] { return timed(sdk, sdkMs, sdkCpu); };
  bool sessionFirst = true;
  for (auto _ : state) {
    const bool ok = sessionFirst ? viaSession() && viaSdk() : viaSdk() && viaSession();
    if (!ok) {
      state.SkipWithError("a call failed");
      break;
    }
    sessionFirst = !sessionFirst;
  }
  const SideBySideFigures f{Median(sessionMs), Median(sdkMs), Median(sessionCpu), Median(sdkCpu)};
  state.counters[sessionCounter] = f.sessionMs;
  state.counters["sdk_ms"] = f.sdkMs;
  if (f.sdkMs > 0) state.counters["ratio"] = f.sessionMs / f.sdkMs;
  if (f.sdkCpuMs > 0) state.counters["cpu_ratio"] = f.sessionCpuMs / f.sdkCpuMs;
  state.SetItemsProcessed(state.iterations() * rows);
  return f;
}

}  // namespace bench
