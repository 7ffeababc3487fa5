// RFC_READ_TABLE over 100,000 rows and the SOAP answer of a large table, through the engine.
#include <benchmark/benchmark.h>

#include <memory>

#include "engine/convert.h"
#include "engine/system.h"
#include "soap/soap_codec.h"

namespace {

vsim::System& bigSystem() {
  static vsim::System s(vsim::SystemOptions{100000, 1000, 1000000});
  return s;
}

void set(vsim::Call& c, const std::string& param, const std::string& text) {
  const int i = c.find(param);
  c.supply(static_cast<size_t>(i),
           vsim::parseValue(*c.function().params[static_cast<size_t>(i)].type, text, vsim::TextForm::Plain));
}

void readTable(benchmark::State& state, const std::string& where, bool fields) {
  vsim::System& s = bigSystem();
  vsim::Session session(vsim::Logon{"001", "DEMO", "E"});
  size_t rows = 0;
  for (auto _ : state) {
    vsim::Call c = s.prepare("RFC_READ_TABLE");
    set(c, "QUERY_TABLE", "SFLIGHT");
    set(c, "DELIMITER", "|");
    const vsim::TypeDesc& opt = *c.function().params[static_cast<size_t>(c.find("OPTIONS"))].type->row;
    if (!where.empty()) {
      vsim::Value line = vsim::initialValue(opt);
      line.items()[0] = vsim::Value(where);
      c.supply(static_cast<size_t>(c.find("OPTIONS")), vsim::Value(vsim::Value::List{line}));
    }
    if (fields) {
      const vsim::TypeDesc& fld = *c.function().params[static_cast<size_t>(c.find("FIELDS"))].type->row;
      vsim::Value::List list;
      for (const char* f : {"CARRID", "CONNID", "FLDATE", "PRICE", "SEATSOCC"}) {
        vsim::Value r = vsim::initialValue(fld);
        r["FIELDNAME"] = vsim::Value(f);
        list.push_back(r);
      }
      c.supply(static_cast<size_t>(c.find("FIELDS")), vsim::Value(std::move(list)));
    }
    s.execute(c, session);
    rows = c.value("DATA").items().size();
    benchmark::DoNotOptimize(rows);
  }
  state.counters["rows"] = static_cast<double>(rows);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 100000);
}

void BM_ReadTable100kAllFields(benchmark::State& state) { readTable(state, "", false); }
void BM_ReadTable100kFiveFields(benchmark::State& state) { readTable(state, "", true); }
void BM_ReadTable100kWhere(benchmark::State& state) {
  readTable(state, "CARRID IN ('LH', 'UA') AND ( SEATSOCC > 150 OR PRICE < 500 )", true);
}

void BM_SoapAnswer(benchmark::State& state) {
  vsim::System& s = bigSystem();
  vsim::Session session(vsim::Logon{"001", "DEMO", "E"});
  const std::string body =
      "<S:Envelope xmlns:S=\"http://schemas.xmlsoap.org/soap/envelope/\"><S:Body><a:Z_VSIM_ROWS "
      "xmlns:a=\"urn:sap-com:document:sap:rfc:functions\">"
      "<ROW_COUNT>" +
      std::to_string(state.range(0)) + "</ROW_COUNT><ROWS/></a:Z_VSIM_ROWS></S:Body></S:Envelope>";
  size_t bytes = 0;
  for (auto _ : state) {
    std::unique_ptr<vsim::Call> call;
    vsim::soap::SoapRequest req = vsim::soap::parseRequest(s, body, call);
    s.execute(*call, session);
    bytes = vsim::soap::buildResponse(req, *call).size();
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

BENCHMARK(BM_ReadTable100kAllFields)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadTable100kFiveFields)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadTable100kWhere)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SoapAnswer)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
