// A table parameter of 100,000 rows (TT_FLAT of Z_VSIM_TYPES: ten fields of
// every flat type) sent to veltrane-sim through the classic SDK and read
// back, in one run and one loop:
//   - through RfcSession (the marshalling objects fill the internal table
//     from the call's RfcRows and read the answer back into them);
//   - through the SDK's It... calls directly, on the same data held in plain
//     C++ rows: ItCreateU, ItAppLineU, RfcCallExU, RfcListenU, RfcReceiveExU,
//     ItGetLineU (the floor for any client of the SDK).
// Each side sends what it read back the time before, so every iteration
// moves the same rows (the module changes each row and appends one).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "demo_logon.h"
#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "rfc/rfc_library.h"
#include "flat_table.h"
#include "side_by_side.h"
#include "testing/sim_process.h"
#include "veltrane_tlb.h"

namespace {

using namespace veltrane::sdk::rfc;
using bench::FlatRow;
using bench::kFlatRows;
using veltrane::rfc::EntryPoints;

vsim::testing::SimProcess& Sim() {
  static vsim::testing::SimProcess sim;
  return sim;
}

std::u16string ConnectString() {
  return bench::WideAscii("ASHOST=" + Sim().rfcHost() + " GWSERV=" + std::to_string(Sim().rfcPort()) + " TOUPPER=0");
}

// ------------------------------------------------------------ the session

CComPtr<ISession> ClassicSession() {
  CComPtr<IRfcSession> session;
  CoCreateInstance(CLSID_RfcSession, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                   reinterpret_cast<void**>(&session));
  if (!session) return nullptr;
  session->put_Option(CComBSTR(u"librfc.path"), CComBSTR(VELTRANE_RFC_SDK_DIR));
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(CComBSTR(ConnectString()));
  bench::DemoLogon(session);
  if (session->Connect() != S_OK) return nullptr;
  VARIANT_BOOL connected = VARIANT_FALSE;
  session->get_IsConnected(&connected);
  return connected ? CComPtr<ISession>(session.p) : nullptr;
}

// --------------------------------------------------------- the SDK alone

// ZVSIM_FLAT as installed: its handle, row length and each field's place.
struct Field {
  unsigned offset = 0, length = 0;
};
struct Layout {
  RFC_TYPEHANDLE type = 0;
  unsigned length = 0;
  Field text, numc, date, time, raw, packed, number, integer, tiny, small;
  int packedDecimals = 0;
};

Layout LayoutOf(const EntryPoints& sdk, RFC_HANDLE h) {
  Layout l;
  std::u16string name = u"ZVSIM_FLAT";
  unsigned count = 0, b1 = 0, b4 = 0, heads = 0;
  RFC_TYPE_HEAD* head = nullptr;
  RFC_UNICODE_TYPE_ELEMENT* fields = nullptr;
  RFCTYPE kind{};
  if (sdk.RfcGetStructureInfoFlatU(h, name.data(), 1, &heads, &head, &count, &fields, &kind, &b1, &l.length, &b4,
                                   nullptr, &l.type, nullptr) != RFC_OK)
    return Layout{};
  for (unsigned i = 0; i < count; ++i) {
    const std::u16string n = fields[i].name;
    Field* f = n == u"CHAR"     ? &l.text
               : n == u"NUMC"   ? &l.numc
               : n == u"DATE"   ? &l.date
               : n == u"TIME"   ? &l.time
               : n == u"RAW"    ? &l.raw
               : n == u"PACKED" ? &l.packed
               : n == u"FLOAT"  ? &l.number
               : n == u"INT"    ? &l.integer
               : n == u"INT1"   ? &l.tiny
               : n == u"INT2"   ? &l.small
                                : nullptr;
    if (f) *f = Field{fields[i].c2_offset, fields[i].c2_length};
    if (n == u"PACKED") l.packedDecimals = static_cast<int>(fields[i].decimals);
  }
  sdk.RfcReleaseStructInfoU(head, fields);
  return l;
}

// A text into a blank-padded field, right-aligned in "0" for a NUMC.
void PutText(unsigned char* line, const Field& f, const std::u16string& text, bool numeric) {
  const size_t units = f.length / 2, n = std::min(text.size(), units);
  char16_t* field = reinterpret_cast<char16_t*>(line + f.offset);
  std::fill(field, field + units, numeric ? u'0' : u' ');
  std::memcpy(field + (numeric ? units - n : 0), text.data(), n * sizeof(char16_t));
}

std::u16string GetText(const unsigned char* line, const Field& f, bool trim) {
  const char16_t* field = reinterpret_cast<const char16_t*>(line + f.offset);
  size_t n = f.length / 2;
  while (trim && n > 0 && field[n - 1] == u' ') --n;
  return std::u16string(field, n);
}

// Fills TT_FLAT from rows, calls, polls, receives, reads the answer back into rows.
bool SdkRoundTrip(const EntryPoints& sdk, RFC_HANDLE h, const Layout& l, std::vector<FlatRow>& rows) {
  std::u16string fn = u"Z_VSIM_TYPES", name = u"TT_FLAT";
  ITAB_H t = sdk.ItCreateU(name.data(), l.length, static_cast<unsigned>(rows.size()), 0);
  for (FlatRow& r : rows) {
    auto* line = static_cast<unsigned char*>(sdk.ItAppLineU(t));
    std::memset(line, 0, l.length);
    PutText(line, l.text, r.text, false);
    PutText(line, l.numc, r.numc, true);
    std::memcpy(line + l.date.offset, r.date, sizeof r.date);
    std::memcpy(line + l.time.offset, r.time, sizeof r.time);
    std::memcpy(line + l.raw.offset, r.raw, sizeof r.raw);
    int decimals = l.packedDecimals;
    sdk.RfcConvertCharToBcdU(r.packed.data(), static_cast<int>(r.packed.size()), &decimals, line + l.packed.offset,
                             static_cast<int>(l.packed.length));
    std::memcpy(line + l.number.offset, &r.number, sizeof r.number);
    std::memcpy(line + l.integer.offset, &r.integer, sizeof r.integer);
    std::memcpy(line + l.tiny.offset, &r.tiny, sizeof r.tiny);
    std::memcpy(line + l.small.offset, &r.small, sizeof r.small);
  }
  RFC_TABLE tables[2] = {{name.data(), 7, l.type, l.length, t, RFC_ITMODE_BYREFERENCE, 0}, {}};
  bool ok = sdk.RfcCallExU(h, fn.data(), nullptr, nullptr, tables) == RFC_OK;
  RFC_RC rc = RFC_OK;
  while (ok && (rc = sdk.RfcListenU(h)) == RFC_RETRY) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  ok = ok && rc == RFC_OK && sdk.RfcReceiveExU(h, nullptr, nullptr, tables, nullptr) == RFC_OK;
  if (ok) {
    const unsigned count = sdk.ItFillU(t);
    rows.resize(count);
    char16_t packed[33];
    for (unsigned i = 0; i < count; ++i) {
      const auto* line = static_cast<const unsigned char*>(sdk.ItGetLineU(t, i + 1));
      FlatRow& r = rows[i];
      r.text = GetText(line, l.text, true);
      r.numc = GetText(line, l.numc, false);
      std::memcpy(r.date, line + l.date.offset, sizeof r.date);
      std::memcpy(r.time, line + l.time.offset, sizeof r.time);
      std::memcpy(r.raw, line + l.raw.offset, sizeof r.raw);
      std::fill(std::begin(packed), std::end(packed), u'\0');
      sdk.RfcConvertBcdToCharU(const_cast<unsigned char*>(line + l.packed.offset), static_cast<int>(l.packed.length),
                               l.packedDecimals, packed, 32);
      std::u16string_view p(packed);
      while (!p.empty() && p.back() == u' ') p.remove_suffix(1);
      while (!p.empty() && p.front() == u' ') p.remove_prefix(1);
      r.packed.assign(p);
      std::memcpy(&r.number, line + l.number.offset, sizeof r.number);
      std::memcpy(&r.integer, line + l.integer.offset, sizeof r.integer);
      std::memcpy(&r.tiny, line + l.tiny.offset, sizeof r.tiny);
      std::memcpy(&r.small, line + l.small.offset, sizeof r.small);
    }
  }
  sdk.ItDeleteU(t);
  return ok;
}

// ------------------------------------------------------------- the run

bench::SideBySideFigures g_figures;

// The session beside the SDK alone (side_by_side.h); the CPU time is the
// process's: the session's work is on the call's listening thread, the
// simulated system runs in a process of its own.
void BM_RfcSessionBesideTheSdkAlone(benchmark::State& state) {
  CComPtr<ISession> session = ClassicSession();
  if (!session) return state.SkipWithError("the classic session does not connect");
  CComPtr<IFunctionCall> call = bench::FilledTypesCall(session, kFlatRows);
  if (!call) return state.SkipWithError("Z_VSIM_TYPES does not import");
  const EntryPoints& sdk = *veltrane::rfc::RfcLibrary::Loaded();
  std::u16string connect = ConnectString() + u" CLIENT=001 USER=DEMO PASSWD=Welcome1 LANG=EN";
  RFC_ERROR_INFO_EX info{};
  const RFC_HANDLE h = sdk.RfcOpenExU(connect.data(), &info);
  const Layout layout = h ? LayoutOf(sdk, h) : Layout{};
  if (!layout.type) return state.SkipWithError("the SDK does not connect");
  std::vector<FlatRow> rows = bench::FlatRows(kFlatRows);
  g_figures = bench::RunSideBySide(
      state, "session_ms", CLOCK_PROCESS_CPUTIME_ID,
      [&] {
        const HRESULT hr = session->CallFunction(call, VARIANT_TRUE);
        VARIANT_BOOL error = VARIANT_FALSE;
        session->get_Error(&error);
        return hr == S_OK && !error;
      },
      [&] { return SdkRoundTrip(sdk, h, layout, rows); }, kFlatRows);
  sdk.RfcCloseU(h);
}
BENCHMARK(BM_RfcSessionBesideTheSdkAlone)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(8);

}  // namespace

int main(int argc, char** argv) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  if (g_figures.sdkMs > 0 && g_figures.sdkCpuMs > 0)
    std::printf(
        "TT_FLAT, %d rows of ten fields out and back (median): RfcSession %.0f ms, the SDK's It... calls alone %.0f "
        "ms, ratio %.2f (goal: within 1.5); the process's CPU %.0f ms against %.0f ms, ratio %.2f\n",
        kFlatRows, g_figures.sessionMs, g_figures.sdkMs, g_figures.sessionMs / g_figures.sdkMs, g_figures.sessionCpuMs,
        g_figures.sdkCpuMs, g_figures.sessionCpuMs / g_figures.sdkCpuMs);
  benchmark::Shutdown();
  CoUninitialize();
  return 0;
}
