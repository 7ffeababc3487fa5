// The table reader end to end: SFLIGHT with 100,000 rows read through
// GetTableReader on a SOAP session against veltrane-sim over HTTP.
#include <benchmark/benchmark.h>

#include <malloc.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "demo_logon.h"
#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "platform/typelib.h"
#include "platform/unicode.h"
#include "testing/sim_process.h"
#include "veltrane_tlb.h"

namespace {

constexpr LONG kRows = 100000;

void Check(HRESULT hr, const char* what) {
  if (FAILED(hr)) throw std::runtime_error(std::string(what) + " failed");
}

// One simulated system and one connected session for all iterations.
struct Fixture {
  std::unique_ptr<vsim::testing::SimProcess> sim;
  CComPtr<ISession> session;

  Fixture() {
    vsim::testing::SimOptions options;
    options.args = {"--flight-rows", std::to_string(kRows)};
    sim = std::make_unique<vsim::testing::SimProcess>(options);
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    CComPtr<ISoapSession> soap;
    Check(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                           reinterpret_cast<void**>(&soap)),
          "CoCreateInstance(SoapSession)");
    CComPtr<IHttpSystemData> http;
    Check(soap->get_HttpSystemData(&http), "HttpSystemData");
    Check(http->put_Host(CComBSTR(u"127.0.0.1")), "Host");
    Check(http->put_Port(sim->soapPort()), "Port");
    bench::DemoLogon(soap);
    Check(soap->Connect(), "Connect");
    session = soap;
  }
};

Fixture& Shared() {
  static Fixture fixture;
  return fixture;
}

void BM_TableReaderSflight(benchmark::State& state) {
  Fixture& f = Shared();
  const bool raw = state.range(0) != 0;
  LONG delivered = 0;
  for (auto _ : state) {
    CComPtr<ITableReader> reader;
    Check(f.session->GetTableReader(CComBSTR(u"SFLIGHT"), &reader), "GetTableReader");
    if (raw) reader->put_Option(CComBSTR(u"tablereader.rawstrings"), CComBSTR(u"X"));
    Check(reader->Read(kRows, 0), "Read");
    VARIANT_BOOL error = VARIANT_FALSE;
    reader->get_Error(&error);
    if (error) {
      state.SkipWithError("RFC_READ_TABLE reported an error");
      return;
    }
    CComPtr<IRfcRows> rows;
    reader->get_Rows(&rows);
    rows->get_Count(&delivered);
    if (delivered != kRows) {
      state.SkipWithError("unexpected row count");
      return;
    }
  }
  state.counters["rows_per_second"] = benchmark::Counter(
      static_cast<double>(delivered) * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_TableReaderSflight)
    ->Arg(0)
    ->Arg(1)
    ->ArgName("raw")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();

size_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  size_t size = 0, resident = 0;
  statm >> size >> resident;
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// What the rows cost while they are held after Read: the process's resident
// memory before and after, freed memory handed back to the system before
// each measure. Then the same once every field has been read through the
// interfaces, which makes the objects of every row.
void BM_TableReaderBytesPerField(benchmark::State& state) {
  Fixture& f = Shared();
  double held = 0, touched = 0;
  for (auto _ : state) {
    malloc_trim(0);
    const size_t before = ResidentBytes();
    CComPtr<ITableReader> reader;
    Check(f.session->GetTableReader(CComBSTR(u"SFLIGHT"), &reader), "GetTableReader");
    Check(reader->Read(kRows, 0), "Read");
    CComPtr<IRfcRows> rows;
    reader->get_Rows(&rows);
    LONG count = 0;
    rows->get_Count(&count);
    CComPtr<IRfcFields> first;
    Check(rows->get_Item(1, &first), "Item");
    LONG width = 0;
    first->get_Count(&width);
    first.Release();
    const double fields = static_cast<double>(count) * static_cast<double>(width);
    malloc_trim(0);
    held = static_cast<double>(ResidentBytes() - before) / fields;
    for (LONG r = 1; r <= count; ++r) {
      CComPtr<IRfcFields> row;
      rows->get_Item(r, &row);
      for (LONG c = 1; c <= width; ++c) {
        CComPtr<IRfcField> field;
        row->get_Item(CComVariant(c), &field);
        CComVariant value;
        field->get_value(&value);
      }
    }
    malloc_trim(0);
    touched = static_cast<double>(ResidentBytes() - before) / fields;
  }
  state.counters["bytes_per_field"] = held;
  state.counters["goal_bytes_per_field"] = 100;
  state.counters["bytes_per_field_touched"] = touched;
}
BENCHMARK(BM_TableReaderBytesPerField)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
