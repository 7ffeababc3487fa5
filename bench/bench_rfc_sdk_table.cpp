// A table parameter of 100,000 rows (TT_FLAT of Z_VSIM_TYPES: ten fields of every flat type)
// through our classic SDK alone, as the floor for any client of it (RfcSession is measured
// against these cases):
//   - BM_RfcSdkItTable: filling and reading the internal table with the It... calls, no network;
//   - BM_RfcSdkTableCall: the same rows filled, sent with RfcCallExU, polled with RfcListenU,
//     received with RfcReceiveExU into a table and read back row by row.
// The row layout comes from RfcGetStructureInfoFlatU, as a client gets it.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "rfc/rfc_functions.h"
#include "testing/sim_process.h"

namespace {

using namespace veltrane::sdk::rfc;

constexpr unsigned kRows = 100000;

vsim::testing::SimProcess& Sim() {
  static vsim::testing::SimProcess sim;
  return sim;
}

std::u16string Wide(const std::string& s) { return std::u16string(s.begin(), s.end()); }

// ZVSIM_FLAT as installed: its handle, row length and the offset of each field by name.
struct Layout {
  RFC_TYPEHANDLE type = 0;
  unsigned length = 0;
  unsigned charAt = 0, numcAt = 0, packedAt = 0, intAt = 0, floatAt = 0;
};

RFC_HANDLE Open() {
  std::u16string cs = Wide("ASHOST=" + Sim().rfcHost() + " GWSERV=" + std::to_string(Sim().rfcPort()) +
                           " CLIENT=001 USER=DEMO PASSWD=Welcome1 LANG=EN TOUPPER=0");
  RFC_ERROR_INFO_EX info{};
  return RfcOpenExU(cs.data(), &info);
}

Layout LayoutOf(RFC_HANDLE h) {
  Layout l;
  std::u16string name = u"ZVSIM_FLAT";
  unsigned count = 0, b1 = 0;
  RFC_UNICODE_TYPE_ELEMENT* fields = nullptr;
  if (RfcGetStructureInfoFlatU(h, name.data(), 1, nullptr, nullptr, &count, &fields, nullptr, &b1, &l.length, nullptr,
                               nullptr, &l.type, nullptr) != RFC_OK)
    return l;
  for (unsigned i = 0; i < count; ++i) {
    const std::u16string n = fields[i].name;
    unsigned* at = n == u"CHAR"     ? &l.charAt
                   : n == u"NUMC"   ? &l.numcAt
                   : n == u"PACKED" ? &l.packedAt
                   : n == u"INT"    ? &l.intAt
                   : n == u"FLOAT"  ? &l.floatAt
                                    : nullptr;
    if (at) *at = fields[i].c2_offset;
  }
  RfcReleaseStructInfoU(nullptr, fields);
  return l;
}

// Appends the rows: every field a value of its own, BCD through the converter once per row.
void Fill(ITAB_H t, const Layout& l) {
  SAP_UC text[10];
  for (unsigned r = 1; r <= kRows; ++r) {
    auto* row = static_cast<unsigned char*>(ItAppLineU(t));
    const std::string s = "Row" + std::to_string(r);
    for (size_t i = 0; i < 10; ++i) text[i] = i < s.size() ? static_cast<SAP_UC>(s[i]) : u' ';
    std::memcpy(row + l.charAt, text, sizeof text);
    for (size_t i = 0; i < 8; ++i) reinterpret_cast<SAP_UC*>(row + l.numcAt)[i] = u'0' + static_cast<SAP_UC>(r % 10);
    const RFC_INT n = static_cast<RFC_INT>(r);
    std::memcpy(row + l.intAt, &n, sizeof n);
    const double f = r * 0.5;
    std::memcpy(row + l.floatAt, &f, sizeof f);
    row[l.packedAt + 7] = 0x0C;
  }
}

// Reads every row back; the sum keeps the reads from being optimised away.
long long Read(ITAB_H t, const Layout& l) {
  long long sum = 0;
  const unsigned n = ItFillU(t);
  for (unsigned r = 1; r <= n; ++r) {
    const auto* row = static_cast<const unsigned char*>(ItGetLineU(t, r));
    RFC_INT i;
    std::memcpy(&i, row + l.intAt, sizeof i);
    sum += i + reinterpret_cast<const SAP_UC*>(row + l.charAt)[0];
  }
  return sum;
}

void BM_RfcSdkItTable(benchmark::State& state) {
  const RFC_HANDLE h = Open();
  const Layout l = LayoutOf(h);
  RfcCloseU(h);
  if (!l.type) {
    state.SkipWithError("ZVSIM_FLAT could not be described");
    return;
  }
  std::u16string name = u"TT_FLAT";
  for (auto _ : state) {
    ITAB_H t = ItCreateU(name.data(), l.length, kRows, 0);
    Fill(t, l);
    benchmark::DoNotOptimize(Read(t, l));
    ItDeleteU(t);
  }
  state.SetItemsProcessed(static_cast<long long>(state.iterations()) * kRows);
}
BENCHMARK(BM_RfcSdkItTable)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(8);

void BM_RfcSdkTableCall(benchmark::State& state) {
  const RFC_HANDLE h = Open();
  const Layout l = LayoutOf(h);
  if (!h || !l.type) {
    state.SkipWithError("no connection to veltrane-sim");
    return;
  }
  std::u16string fn = u"Z_VSIM_TYPES", name = u"TT_FLAT";
  for (auto _ : state) {
    ITAB_H t = ItCreateU(name.data(), l.length, kRows, 0);
    Fill(t, l);
    RFC_TABLE tables[2] = {{name.data(), 7, l.type, l.length, t, RFC_ITMODE_BYREFERENCE, 0}, {}};
    if (RfcCallExU(h, fn.data(), nullptr, nullptr, tables) != RFC_OK) {
      state.SkipWithError("RfcCallExU failed");
      break;
    }
    RFC_RC rc;
    while ((rc = RfcListenU(h)) == RFC_RETRY) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (rc != RFC_OK || RfcReceiveExU(h, nullptr, nullptr, tables, nullptr) != RFC_OK) {
      RFC_ERROR_INFO_EX info{};
      RfcLastErrorExU(&info);
      const std::u16string message = info.message;
      state.SkipWithError(("the answer did not arrive: " + std::string(message.begin(), message.end())).c_str());
      break;
    }
    benchmark::DoNotOptimize(Read(t, l));
    ItDeleteU(t);
  }
  state.SetItemsProcessed(static_cast<long long>(state.iterations()) * kRows);
  RfcCloseU(h);
}
BENCHMARK(BM_RfcSdkTableCall)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

}  // namespace
