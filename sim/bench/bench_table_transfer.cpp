// 100,000 rows of Z_VSIM_ROWS from veltrane-sim, side by side in one run: over the RFC front
// through our libsapnwrfc.so (invoke, then every field of every row through the getters), and
// over the SOAP front with libcurl and rapidxml (post, parse, then every field of every row as
// text and numbers). Both read the same table from the same simulated system.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <cstdlib>
#include <rapidxml/rapidxml.hpp>
#include <string>

#include "nwrfc/nwrfc_functions.h"
#include "testing/sim_process.h"

namespace {

constexpr int kRows = 100000;

vsim::testing::SimProcess& sim() {
  static vsim::testing::SimProcess s;
  return s;
}

std::u16string u16(const std::string& s) { return std::u16string(s.begin(), s.end()); }

void BM_RfcFront100kRows(benchmark::State& state) {
  const std::u16string host = u16(sim().rfcHost()), port = u16(std::to_string(sim().rfcPort()));
  const RFC_CONNECTION_PARAMETER params[] = {{u"ashost", host.c_str()}, {u"gwserv", port.c_str()}, {u"client", u"001"},
                                             {u"user", u"DEMO"},        {u"passwd", u"Welcome1"},  {u"lang", u"EN"}};
  RFC_ERROR_INFO info;
  RFC_CONNECTION_HANDLE c = RfcOpenConnection(params, 6, &info);
  if (!c) return state.SkipWithError("RfcOpenConnection failed");
  RFC_FUNCTION_DESC_HANDLE desc = RfcGetFunctionDesc(c, u"Z_VSIM_ROWS", &info);
  long checksum = 0;
  for (auto _ : state) {
    RFC_FUNCTION_HANDLE f = RfcCreateFunction(desc, &info);
    RfcSetInt(f, u"ROW_COUNT", kRows, &info);
    if (RfcInvoke(c, f, &info) != RFC_OK) return state.SkipWithError("RfcInvoke failed");
    RFC_TABLE_HANDLE rows;
    RfcGetTable(f, u"ROWS", &rows, &info);
    unsigned n = 0;
    RfcGetRowCount(rows, &n, &info);
    if (n != kRows) return state.SkipWithError("wrong row count");
    RfcMoveToFirstRow(rows, &info);
    for (unsigned i = 0; i < n; ++i) {
      RFC_INT no;
      SAP_UC text[40];
      RFC_FLOAT amount;
      RFC_DATE created;
      RfcGetInt(rows, u"ROW_NO", &no, nullptr);
      RfcGetChars(rows, u"TEXT", text, 40, nullptr);
      RfcGetFloat(rows, u"AMOUNT", &amount, nullptr);
      RfcGetDate(rows, u"CREATED", created, nullptr);
      checksum += no + text[0] + static_cast<long>(amount) + created[7];
      RfcMoveToNextRow(rows, nullptr);
    }
    RfcDestroyFunction(f, &info);
  }
  benchmark::DoNotOptimize(checksum);
  state.SetItemsProcessed(state.iterations() * kRows);
  RfcCloseConnection(c, nullptr);
}

size_t collect(char* data, size_t size, size_t n, void* out) {
  static_cast<std::string*>(out)->append(data, size * n);
  return size * n;
}

const char* value(rapidxml::xml_node<>* row, const char* name) {
  rapidxml::xml_node<>* n = row->first_node(name);
  return n ? n->value() : "";
}

void BM_SoapFront100kRows(benchmark::State& state) {
  CURL* curl = curl_easy_init();
  const std::string url = sim().soapUrl() + "/sap/bc/soap/rfc?sap-client=001&sap-language=EN";
  const std::string body =
      "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"><SOAP-ENV:Body>"
      "<rfc:Z_VSIM_ROWS xmlns:rfc=\"urn:sap-com:document:sap:rfc:functions\"><ROW_COUNT>" +
      std::to_string(kRows) + "</ROW_COUNT><ROWS></ROWS></rfc:Z_VSIM_ROWS></SOAP-ENV:Body></SOAP-ENV:Envelope>";
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: text/xml; charset=utf-8");
  headers = curl_slist_append(headers, "SOAPAction: urn:sap-com:document:sap:rfc:functions");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_USERPWD, "DEMO:Welcome1");
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
  std::string answer;
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
  long checksum = 0;
  for (auto _ : state) {
    answer.clear();
    if (curl_easy_perform(curl) != CURLE_OK) return state.SkipWithError("POST failed");
    rapidxml::xml_document<> doc;
    doc.parse<0>(answer.data());
    rapidxml::xml_node<>* response = doc.first_node()->first_node()->first_node();
    rapidxml::xml_node<>* rows = response ? response->first_node("ROWS") : nullptr;
    if (!rows) return state.SkipWithError("no ROWS in the answer");
    int n = 0;
    for (rapidxml::xml_node<>* row = rows->first_node("item"); row; row = row->next_sibling("item"), ++n) {
      const long no = std::strtol(value(row, "ROW_NO"), nullptr, 10);
      const char* text = value(row, "TEXT");
      const double amount = std::strtod(value(row, "AMOUNT"), nullptr);
      const char* created = value(row, "CREATED");
      checksum += no + text[0] + static_cast<long>(amount) + created[9];
    }
    if (n != kRows) return state.SkipWithError("wrong row count");
  }
  benchmark::DoNotOptimize(checksum);
  state.SetItemsProcessed(state.iterations() * kRows);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
}

BENCHMARK(BM_RfcFront100kRows)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SoapFront100kRows)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
