// A table parameter of 100,000 rows (TT_FLAT of Z_VSIM_TYPES: ten fields of
// every flat type) sent to veltrane-sim and read back, in one run:
//   - through NWRfcSession (the data converter fills the SDK's table from
//     the call's RfcRows and reads the answer back into them), and in the
//     same loop through the SDK's setters and getters directly, on the same
//     data held in plain C++ rows (the floor for any client of the SDK);
//   - through SoapSession, the same call over the SOAP front.
// Each side sends what it read back the time before, so every iteration
// moves the same rows (the module changes each row and appends one).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "demo_logon.h"
#include "nwrfc/nwrfc_library.h"
#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "flat_table.h"
#include "side_by_side.h"
#include "testing/sim_process.h"
#include "veltrane_tlb.h"

namespace {

using bench::FlatRow;
using bench::kFlatRows;
using veltrane::nwrfc::EntryPoints;

vsim::testing::SimProcess& Sim() {
  static vsim::testing::SimProcess sim;
  return sim;
}

// ------------------------------------------------------------- sessions

CComPtr<ISession> NWSession() {
  CComPtr<IRfcSession> session;
  CoCreateInstance(CLSID_NWRfcSession, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                   reinterpret_cast<void**>(&session));
  if (!session) return nullptr;
  session->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(VELTRANE_NWRFC_SDK_DIR));
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(
      CComBSTR(bench::WideAscii("ashost=" + Sim().rfcHost() + " gwserv=" + std::to_string(Sim().rfcPort()))));
  return CComPtr<ISession>(session.p);
}

CComPtr<ISession> SoapSession() {
  CComPtr<ISoapSession> session;
  CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                   reinterpret_cast<void**>(&session));
  if (!session) return nullptr;
  CComPtr<IHttpSystemData> data;
  session->get_HttpSystemData(&data);
  data->put_Host(CComBSTR(u"127.0.0.1"));
  data->put_Port(Sim().soapPort());
  return CComPtr<ISession>(session.p);
}

bool Connect(ISession* session) {
  bench::DemoLogon(session);
  return session->Connect() == S_OK;
}

// --------------------------------------------------------- the SDK alone

size_t Trimmed(const SAP_UC* text, size_t n) {
  while (n > 0 && text[n - 1] == u' ') --n;
  return n;
}

// Fills TT_FLAT from rows, invokes, reads the answer back into rows.
bool SdkRoundTrip(const EntryPoints& sdk, RFC_CONNECTION_HANDLE connection, RFC_FUNCTION_DESC_HANDLE desc,
                  std::vector<FlatRow>& rows) {
  RFC_ERROR_INFO info;
  RFC_FUNCTION_HANDLE f = sdk.RfcCreateFunction(desc, &info);
  RFC_TABLE_HANDLE table = nullptr;
  sdk.RfcGetTable(f, u"TT_FLAT", &table, &info);
  sdk.RfcAppendNewRows(table, static_cast<unsigned>(rows.size()), &info);
  for (size_t i = 0; i < rows.size(); ++i) {
    const FlatRow& r = rows[i];
    RFC_STRUCTURE_HANDLE row = sdk.RfcGetCurrentRow(table, &info);
    sdk.RfcSetChars(row, u"CHAR", r.text.data(), static_cast<unsigned>(r.text.size()), &info);
    sdk.RfcSetNum(row, u"NUMC", r.numc.data(), static_cast<unsigned>(r.numc.size()), &info);
    sdk.RfcSetDate(row, u"DATE", r.date, &info);
    sdk.RfcSetTime(row, u"TIME", r.time, &info);
    sdk.RfcSetXString(row, u"RAW", r.raw, 4, &info);
    sdk.RfcSetChars(row, u"PACKED", r.packed.data(), static_cast<unsigned>(r.packed.size()), &info);
    sdk.RfcSetFloat(row, u"FLOAT", r.number, &info);
    sdk.RfcSetInt(row, u"INT", r.integer, &info);
    sdk.RfcSetInt1(row, u"INT1", r.tiny, &info);
    sdk.RfcSetInt2(row, u"INT2", r.small, &info);
    if (i + 1 < rows.size()) sdk.RfcMoveToNextRow(table, &info);
  }
  if (sdk.RfcInvoke(connection, f, &info) != RFC_OK) return false;
  sdk.RfcGetTable(f, u"TT_FLAT", &table, &info);
  unsigned count = 0;
  sdk.RfcGetRowCount(table, &count, &info);
  rows.resize(count);
  sdk.RfcMoveToFirstRow(table, &info);
  SAP_UC buffer[16];
  for (unsigned i = 0; i < count; ++i) {
    FlatRow& r = rows[i];
    RFC_STRUCTURE_HANDLE row = sdk.RfcGetCurrentRow(table, &info);
    sdk.RfcGetChars(row, u"CHAR", buffer, 10, &info);
    r.text.assign(buffer, Trimmed(buffer, 10));
    sdk.RfcGetChars(row, u"NUMC", buffer, 8, &info);
    r.numc.assign(buffer, 8);
    sdk.RfcGetDate(row, u"DATE", r.date, &info);
    sdk.RfcGetTime(row, u"TIME", r.time, &info);
    unsigned written = 0;
    sdk.RfcGetXString(row, u"RAW", r.raw, 4, &written, &info);
    sdk.RfcGetChars(row, u"PACKED", buffer, 16, &info);
    r.packed.assign(buffer, Trimmed(buffer, 16));
    sdk.RfcGetFloat(row, u"FLOAT", &r.number, &info);
    sdk.RfcGetInt(row, u"INT", &r.integer, &info);
    sdk.RfcGetInt1(row, u"INT1", &r.tiny, &info);
    sdk.RfcGetInt2(row, u"INT2", &r.small, &info);
    if (i + 1 < count) sdk.RfcMoveToNextRow(table, &info);
  }
  sdk.RfcDestroyFunction(f, &info);
  return true;
}

// ------------------------------------------------------------- the run

struct Figures {
  bench::SideBySideFigures nw;
  double soapMs = 0;
} g_figures;

// The session beside the SDK alone (side_by_side.h); the CPU time is this
// thread's, where both do their work.
void BM_NWRfcSessionBesideTheSdkAlone(benchmark::State& state) {
  CComPtr<ISession> nw = NWSession();
  if (!nw || !Connect(nw)) return state.SkipWithError("the NW session does not connect");
  CComPtr<IFunctionCall> call = bench::FilledTypesCall(nw, kFlatRows);
  if (!call) return state.SkipWithError("Z_VSIM_TYPES does not import");
  const EntryPoints& sdk = *veltrane::nwrfc::NWRfcLibrary::Loaded();
  const std::u16string host = bench::WideAscii(Sim().rfcHost()),
                       port = bench::WideAscii(std::to_string(Sim().rfcPort()));
  const RFC_CONNECTION_PARAMETER params[] = {{u"ashost", host.c_str()}, {u"gwserv", port.c_str()}, {u"client", u"001"},
                                             {u"user", u"DEMO"},        {u"passwd", u"Welcome1"},  {u"lang", u"EN"}};
  RFC_ERROR_INFO info;
  RFC_CONNECTION_HANDLE connection = sdk.RfcOpenConnection(params, 6, &info);
  RFC_FUNCTION_DESC_HANDLE desc = connection ? sdk.RfcGetFunctionDesc(connection, u"Z_VSIM_TYPES", &info) : nullptr;
  if (!desc) return state.SkipWithError("the SDK does not connect");
  std::vector<FlatRow> rows = bench::FlatRows(kFlatRows);
  g_figures.nw = bench::RunSideBySide(
      state, "nwrfc_ms", CLOCK_THREAD_CPUTIME_ID,
      [&] {
        const HRESULT hr = nw->CallFunction(call, VARIANT_TRUE);
        VARIANT_BOOL error = VARIANT_FALSE;
        nw->get_Error(&error);
        return hr == S_OK && !error;
      },
      [&] { return SdkRoundTrip(sdk, connection, desc, rows); }, kFlatRows);
  sdk.RfcCloseConnection(connection, nullptr);
}
BENCHMARK(BM_NWRfcSessionBesideTheSdkAlone)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(8);

// The same table over the SOAP front.
void BM_SoapSession(benchmark::State& state) {
  CComPtr<ISession> soap = SoapSession();
  if (!soap || !Connect(soap)) return state.SkipWithError("the SOAP session does not connect");
  CComPtr<IFunctionCall> call = bench::FilledTypesCall(soap, kFlatRows);
  if (!call) return state.SkipWithError("Z_VSIM_TYPES does not import");
  std::vector<double> times;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    const HRESULT hr = soap->CallFunction(call, VARIANT_TRUE);
    times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
    VARIANT_BOOL error = VARIANT_FALSE;
    soap->get_Error(&error);
    if (hr != S_OK || error) {
      state.SkipWithError("the call failed");
      break;
    }
  }
  g_figures.soapMs = bench::Median(times);
  state.counters["soap_ms"] = g_figures.soapMs;
  state.SetItemsProcessed(state.iterations() * kFlatRows);
}
BENCHMARK(BM_SoapSession)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

}  // namespace

int main(int argc, char** argv) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  const bench::SideBySideFigures& f = g_figures.nw;
  if (f.sdkMs > 0 && f.sdkCpuMs > 0)
    std::printf(
        "TT_FLAT, %d rows of ten fields out and back (median): NWRfcSession %.0f ms, the SDK alone %.0f ms, "
        "ratio %.2f (goal: within 1.5); the client's CPU %.0f ms against %.0f ms, ratio %.2f; SoapSession %.0f ms\n",
        kFlatRows, f.sessionMs, f.sdkMs, f.sessionMs / f.sdkMs, f.sessionCpuMs, f.sdkCpuMs, f.sessionCpuMs / f.sdkCpuMs,
        g_figures.soapMs);
  benchmark::Shutdown();
  CoUninitialize();
  return 0;
}
