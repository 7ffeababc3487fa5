// The table reader end to end: SFLIGHT with 100,000 rows read through
// GetTableReader on a SOAP session against veltrane-sim over HTTP.
#include <benchmark/benchmark.h>

#include <memory>
#include <stdexcept>
#include <string>

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
    CComPtr<ILogonData> logon;
    Check(soap->get_LogonData(&logon), "LogonData");
    logon->put_Client(CComBSTR(u"001"));
    logon->put_User(CComBSTR(u"DEMO"));
    logon->put_Password(CComBSTR(u"Welcome1"));
    logon->put_Language(CComBSTR(u"EN"));
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

}  // namespace
