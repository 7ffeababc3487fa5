// Reading a 100,000-row RFC_READ_TABLE answer into the object model, side by
// side with a bare RapidXml parse and walk of the same bytes. The counters
// of BM_SoapReadTable100k give both times per answer and their ratio.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <rapidxml/rapidxml.hpp>

#include "model/model.h"
#include "platform/atlbase.h"
#include "soap/soap_rfc_xml.h"

namespace {

constexpr int kRows = 100000;

// The answer as veltrane-sim writes it: compact, DATA before FIELDS, rows
// of one WA field with fixed-width columns.
const std::string& AnswerText() {
  static const std::string text = [] {
    std::string s =
        "<SOAP-ENV:Envelope xmlns:SOAP-ENC=\"http://schemas.xmlsoap.org/soap/encoding/\" "
        "xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"><SOAP-ENV:Body>"
        "<urn:RFC_READ_TABLE.Response xmlns:urn=\"urn:sap-com:document:sap:rfc:functions\"><DATA>";
    s.reserve(static_cast<size_t>(kRows) * 96 + 1024);
    char wa[128];
    for (int i = 0; i < kRows; ++i) {
      std::snprintf(wa, sizeof wa, "<item><WA>001|%-3s|%04d|%-20s|20240%d1%d|%10d.00|EUR</WA></item>",
                    i % 2 ? "LH" : "AA", i % 10000, "FRANKFURT &#38; MAIN", i % 9 + 1, i % 10, i);
      s += wa;
    }
    s += "</DATA><FIELDS>";
    const char* fields[] = {"MANDT", "CARRID", "CONNID", "CITY", "FLDATE", "PRICE", "CURRENCY"};
    for (const char* f : fields) {
      s += "<item><FIELDNAME>";
      s += f;
      s += "</FIELDNAME><OFFSET>000000</OFFSET><LENGTH>000010</LENGTH><TYPE>C</TYPE><FIELDTEXT>text</FIELDTEXT></item>";
    }
    s += "</FIELDS><OPTIONS></OPTIONS></urn:RFC_READ_TABLE.Response></SOAP-ENV:Body></SOAP-ENV:Envelope>";
    return s;
  }();
  return text;
}

CComPtr<IRfcType> Struct(const char16_t* name, std::initializer_list<std::pair<const char16_t*, SHORT>> members) {
  CComPtr<IRfcType> type;
  CreateRfcType(&type);
  type->DefineStruct(CComBSTR(name));
  for (const auto& m : members) type->AddScalarStructField(CComBSTR(m.first), TYPE_CHAR, m.second, 0, -1, -1, -1, -1);
  return type;
}

CComPtr<IFunctionCall> ReadTableCall() {
  CComPtr<IFunctionCall> call;
  CreateFunctionCall(&call);
  call->put_Function(CComBSTR(u"RFC_READ_TABLE"));
  CComPtr<IRfcParameters> tables;
  call->get_Tables(&tables);
  tables->AddTable(CComBSTR(u"DATA"), Struct(u"TAB512", {{u"WA", 512}}));
  tables->AddTable(
      CComBSTR(u"FIELDS"),
      Struct(u"RFC_DB_FLD", {{u"FIELDNAME", 30}, {u"OFFSET", 6}, {u"LENGTH", 6}, {u"TYPE", 1}, {u"FIELDTEXT", 60}}));
  tables->AddTable(CComBSTR(u"OPTIONS"), Struct(u"RFC_DB_OPT", {{u"TEXT", 72}}));
  return call;
}

// Parse and walk down to every WA text, the least any reader does.
size_t BareParse(const std::string& text) {
  // One copy, as the reader makes one: the parse writes into the text.
  std::vector<char> buffer;
  buffer.reserve(text.size() + 1);
  buffer.assign(text.begin(), text.end());
  buffer.push_back('\0');
  rapidxml::xml_document<char> doc;
  doc.parse<0>(buffer.data());
  size_t total = 0;
  auto* body = doc.first_node()->first_node();
  auto* response = body->first_node();
  for (auto* table = response->first_node(); table; table = table->next_sibling())
    for (auto* item = table->first_node(); item; item = item->next_sibling())
      for (auto* field = item->first_node(); field; field = field->next_sibling()) total += field->value_size();
  return total;
}

void BM_BareRapidXml(benchmark::State& state) {
  const std::string& text = AnswerText();
  for (auto _ : state) benchmark::DoNotOptimize(BareParse(text));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_BareRapidXml)->Unit(benchmark::kMillisecond);

void BM_ParseResponse(benchmark::State& state) {
  const std::string& text = AnswerText();
  CComPtr<IFunctionCall> call = ReadTableCall();
  for (auto _ : state) SoapRfcXML::ParseResponse(text, call);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_ParseResponse)->Unit(benchmark::kMillisecond);

// Both in one loop, alternating, so that the ratio is taken under the same
// conditions.
void BM_SoapReadTable100k(benchmark::State& state) {
  const std::string& text = AnswerText();
  CComPtr<IFunctionCall> call = ReadTableCall();
  using Clock = std::chrono::steady_clock;
  double model = 0, bare = 0;
  for (auto _ : state) {
    auto t0 = Clock::now();
    benchmark::DoNotOptimize(BareParse(text));
    auto t1 = Clock::now();
    SoapRfcXML::ParseResponse(text, call);
    auto t2 = Clock::now();
    bare += std::chrono::duration<double, std::milli>(t1 - t0).count();
    model += std::chrono::duration<double, std::milli>(t2 - t1).count();
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["bare_ms"] = bare / n;
  state.counters["model_ms"] = model / n;
  state.counters["ratio"] = bare > 0 ? model / bare : 0;
  state.counters["goal_ratio"] = 1.5;
}
BENCHMARK(BM_SoapReadTable100k)->Unit(benchmark::kMillisecond)->MinTime(3.0);

}  // namespace
