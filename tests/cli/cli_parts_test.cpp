// The parts of the veltrane command that need no system: arguments, base64,
// the planning of table reads, values and output.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "args.h"
#include "backends.h"
#include "base64.h"
#include "failure.h"
#include "output.h"
#include "table_plan.h"
#include "text.h"
#include "values.h"

using namespace veltrane::cli;

namespace {

const std::vector<OptionDef> kOptions = {
    {"max", "N", "rows"}, {"where", "COND", "selection", true}, {"raw", "", "flag"}, {"help", "", "help"}};

std::string usageMessage(const std::vector<std::string>& args) {
  try {
    parseArgs(args, kOptions, "veltrane read-table");
  } catch (const UsageError& e) {
    return e.what();
  }
  return "(no error)";
}

}  // namespace

TEST(CliBackends, TheTableNamesEachBackEndAndItsClass) {
  ASSERT_FALSE(backends().empty());
  const Backend& soap = backendNamed("soap");
  EXPECT_EQ(soap.progId, "Veltrane.SoapSession");
  EXPECT_EQ(backends().front().name, "soap");
  EXPECT_EQ(backendNamed("nwrfc").progId, "Veltrane.NWRfcSession");
  try {
    backendNamed("bogus");
    FAIL() << "no error";
  } catch (const UsageError& e) {
    EXPECT_NE(std::string(e.what()).find("unsupported back end 'bogus': this version supports 'soap', 'nwrfc'"),
              std::string::npos)
        << e.what();
  }
}

TEST(CliBackends, ConnectionOptionsAreTheCommonOnesAndEachBackEndsOwn) {
  std::vector<std::string> names;
  for (const OptionDef& o : connectionOptions()) names.push_back(o.name);
  for (const char* name : {"backend", "host", "client", "user", "lang", "trace"})
    EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
  for (const OptionDef& o : backendNamed("soap").options)
    EXPECT_NE(std::find(names.begin(), names.end(), o.name), names.end()) << o.name;
}

TEST(CliBackends, SettingsOfTheSoapBackEnd) {
  ParsedArgs args;
  args.add("user", "demo");
  args.add("port", "8123");
  args.add("endpoint", "/my/path");
  args.add("proxy", "proxy.local:3128");
  const ConnectionSettings s = connectionSettings(args);
  EXPECT_EQ(s.backend, "soap");
  EXPECT_EQ(s.user, "DEMO");
  EXPECT_EQ(s.port, 8123);
  EXPECT_EQ(s.endpoint, "my/path");
  EXPECT_EQ(s.proxyHost, "proxy.local");
  EXPECT_EQ(s.proxyPort, 3128);
  EXPECT_EQ(s.address(), "http://127.0.0.1:8123/my/path");
}

namespace {

ConnectionSettings nwrfcSettings(std::initializer_list<std::pair<const char*, const char*>> options) {
  ParsedArgs args;
  args.add("user", "demo");
  args.add("backend", "nwrfc");
  for (const auto& [name, value] : options) args.add(name, value);
  return connectionSettings(args);
}

}  // namespace

TEST(CliBackends, TheNwRfcConnectStringFromTheOptions) {
  EXPECT_EQ(nwrfcSettings({}).connectString, "ashost=127.0.0.1 sysnr=00");
  EXPECT_EQ(nwrfcSettings({{"ashost", "app1"}, {"sysnr", "42"}}).connectString, "ashost=app1 sysnr=42");
  EXPECT_EQ(nwrfcSettings({{"host", "h"}, {"gwserv", "sapgw07"}}).connectString, "ashost=h gwserv=sapgw07");
  EXPECT_EQ(nwrfcSettings({{"sdk-dest", "PRD"}}).connectString, "dest=PRD");
  EXPECT_EQ(nwrfcSettings({{"connect", "MSHOST=m R3NAME=PRD GROUP=g"}}).connectString, "MSHOST=m R3NAME=PRD GROUP=g");
  EXPECT_EQ(nwrfcSettings({{"connect", "lang=DE "}}).connectString, "ashost=127.0.0.1 sysnr=00 lang=DE");
  EXPECT_EQ(nwrfcSettings({{"ashost", "a b"}}).connectString, "ashost=\"a b\" sysnr=00");
  const ConnectionSettings s = nwrfcSettings({{"ini", "/etc/sap"}, {"sdk", "/opt/sdk/lib"}});
  EXPECT_EQ(s.iniPath, "/etc/sap");
  EXPECT_EQ(s.sdkDir, "/opt/sdk/lib");
}

TEST(CliBackends, TheNwRfcOptionsAreChecked) {
  EXPECT_THROW(nwrfcSettings({{"sysnr", "7"}}), UsageError);
  EXPECT_THROW(nwrfcSettings({{"sysnr", "ab"}}), UsageError);
  EXPECT_THROW(nwrfcSettings({{"sdk-dest", ""}}), UsageError);
  EXPECT_THROW(nwrfcSettings({{"sdk", ""}}), UsageError);
}

TEST(CliBackends, TheNwRfcAddressHidesAPasswordAndThePromptNamesThePlace) {
  EXPECT_EQ(nwrfcSettings({{"connect", "ASHOST=x PASSWD=\"se cret\" lang=DE"}}).address(),
            "nwrfc: ASHOST=x PASSWD=*** lang=DE");
  const Backend& nw = backendNamed("nwrfc");
  EXPECT_EQ(nw.place(nwrfcSettings({{"ashost", "app1"}})), "app1/00");
  EXPECT_EQ(nw.place(nwrfcSettings({{"gwserv", "3300"}})), "127.0.0.1:3300");
  EXPECT_EQ(nw.place(nwrfcSettings({{"sdk-dest", "PRD"}})), "PRD");
}

TEST(CliBackends, TransactionalRfcByBackEnd) {
  ParsedArgs soapArgs;
  soapArgs.add("user", "demo");
  EXPECT_THROW(requireTransactions(connectionSettings(soapArgs), ""), UsageError);
  const ConnectionSettings nw = nwrfcSettings({});
  EXPECT_NO_THROW(requireTransactions(nw, ""));
  try {
    requireTransactions(nw, "--tid");
    FAIL() << "no error";
  } catch (const UsageError& e) {
    EXPECT_NE(std::string(e.what()).find("own session"), std::string::npos) << e.what();
  }
}

TEST(CliArgs, ValuesFlagsAndPositionals) {
  ParsedArgs a = parseArgs({"SFLIGHT", "--max", "10", "--where=A = 1", "--where", "B = 2", "--raw", "-h", "--", "--x"},
                           kOptions, "veltrane read-table");
  EXPECT_EQ(a.number("max", 0, 0, 100), 10);
  EXPECT_EQ(a.values("where"), (std::vector<std::string>{"A = 1", "B = 2"}));
  EXPECT_TRUE(a.has("raw"));
  EXPECT_TRUE(a.has("help"));
  EXPECT_EQ(a.positionals(), (std::vector<std::string>{"SFLIGHT", "--x"}));
  EXPECT_EQ(a.number("missing", 7, 0, 100), 7);
}

TEST(CliArgs, UsageErrorsNameTheProblem) {
  EXPECT_EQ(usageMessage({"--bogus"}), "unknown option --bogus for 'veltrane read-table'");
  EXPECT_EQ(usageMessage({"-x"}), "unknown option -x for 'veltrane read-table'");
  EXPECT_EQ(usageMessage({"--max"}), "option --max needs a value (N)");
  EXPECT_EQ(usageMessage({"--max", "--raw"}), "option --max needs a value (N)");
  EXPECT_EQ(parseArgs({"--where=--x"}, kOptions, "c").values("where"), std::vector<std::string>{"--x"});
  EXPECT_EQ(usageMessage({"--raw=1"}), "option --raw takes no value");
  EXPECT_EQ(usageMessage({"--max", "1", "--max", "2"}), "option --max is given more than once");
  ParsedArgs a = parseArgs({"--max", "ten"}, kOptions, "c");
  try {
    a.number("max", 0, 0, 100);
    FAIL() << "no error";
  } catch (const UsageError& e) {
    EXPECT_STREQ(e.what(), "option --max: 'ten' is not a whole number");
  }
  ParsedArgs b = parseArgs({"--max", "-1"}, kOptions, "c");
  EXPECT_THROW(b.number("max", 0, 0, 100), UsageError);
}

TEST(CliArgs, IntegerParsing) {
  EXPECT_EQ(parseInteger("42"), 42);
  EXPECT_EQ(parseInteger("+42"), 42);
  EXPECT_EQ(parseInteger("-7"), -7);
  EXPECT_EQ(parseInteger("000010"), 10);
  EXPECT_FALSE(parseInteger(""));
  EXPECT_FALSE(parseInteger("1.5"));
  EXPECT_FALSE(parseInteger(" 1"));
  EXPECT_FALSE(parseInteger("99999999999999999999"));
}

TEST(CliBase64, RoundTripAndRejection) {
  const std::string text = "any carnal pleas";
  for (size_t n = 0; n <= text.size(); ++n) {
    const auto* data = reinterpret_cast<const std::uint8_t*>(text.data());
    const std::string encoded = base64Encode(data, n);
    auto decoded = base64Decode(encoded);
    ASSERT_TRUE(decoded) << encoded;
    EXPECT_EQ(std::string(decoded->begin(), decoded->end()), text.substr(0, n));
  }
  EXPECT_EQ(base64Encode(reinterpret_cast<const std::uint8_t*>("\xde\xad\xbe\xef"), 4), "3q2+7w==");
  EXPECT_TRUE(base64Decode("3q2+\n7w=="));
  EXPECT_FALSE(base64Decode("3q2"));
  EXPECT_FALSE(base64Decode("3q*+7w=="));
  EXPECT_FALSE(base64Decode("3q=+7w=="));
  EXPECT_FALSE(base64Decode("3q2+7w==AAAA"));
}

TEST(CliOutput, TablesAlignEastAsianWideCharacters) {
  std::ostringstream out;
  printTable(out, {{"K", "V"}, {}, {{"\xE6\x97\xA5\xE6\x9C\xAC", "1"}, {"abc", "2"}}});
  EXPECT_EQ(out.str(),
            "K     V\n"
            "----  -\n"
            "\xE6\x97\xA5\xE6\x9C\xAC  1\n"
            "abc   2\n");
}

TEST(CliText, Utf16RoundTrip) {
  const std::string text =
      "Gr\xC3\xBC\xC3\x9F"
      "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x9A\x80";
  EXPECT_EQ(toUtf8(toUtf16(text)), text);
  EXPECT_EQ(toUtf16(text).size(), 11u);
  // Two columns for each East Asian wide character and the rocket.
  EXPECT_EQ(displayWidth(text), 13u);
  EXPECT_TRUE(validUtf8(text));
  EXPECT_TRUE(validUtf8("\xEF\xBF\xBD"));
  EXPECT_FALSE(validUtf8("a\xFF"));
  EXPECT_FALSE(validUtf8("\xC3"));
  EXPECT_FALSE(validUtf8("\xED\xA0\x80"));
  EXPECT_EQ(toUtf8(toUtf16("a\xFF"
                           "b")),
            "a\xEF\xBF\xBD"
            "b");
}

TEST(CliTablePlan, SelectionLinesBreakAtBlanksOutsideLiterals) {
  EXPECT_TRUE(selectionLines({}).empty());
  EXPECT_EQ(selectionLines({"CARRID = 'LH'"}), (std::vector<std::string>{"CARRID = 'LH'"}));
  EXPECT_EQ(selectionLines({"A = 1 OR B = 2", "C = 3"}),
            (std::vector<std::string>{"( A = 1 OR B = 2 ) AND ( C = 3 )"}));
  const auto lines = selectionLines({"CITYFROM = 'NEW  YORK' AND CARRID = 'A''B' AND CONNID = '0400'"}, 24);
  EXPECT_EQ(lines, (std::vector<std::string>{"CITYFROM = 'NEW  YORK'", "AND CARRID = 'A''B' AND", "CONNID = '0400'"}));
  for (const auto& l : selectionLines({std::string(200, 'X') + " = 1"})) EXPECT_FALSE(l.empty());
}

TEST(CliTablePlan, FieldsSplitIntoGroupsThatFitALine) {
  std::vector<FieldLayout> f = {{"MANDT", 3, "C"}, {"ID", 6, "N"}, {"T1", 250, "C"}, {"T2", 250, "C"},
                                {"T3", 250, "C"},  {"D", 8, "D"},  {"Q", 11, "I"}};
  const auto groups = splitFields(f);
  EXPECT_EQ(groups, (std::vector<std::vector<size_t>>{{0, 1, 2}, {3, 4, 5}, {6}}));
  EXPECT_EQ(splitFields({{"A", 511, "C"}}), (std::vector<std::vector<size_t>>{{0}}));
  EXPECT_EQ(splitFields({{"A", 600, "C"}, {"B", 1, "C"}}), (std::vector<std::vector<size_t>>{{0}, {1}}));
  EXPECT_EQ(splitFields({{"A", 255, "C"}, {"B", 255, "C"}}), (std::vector<std::vector<size_t>>{{0, 1}}));
  EXPECT_EQ(splitFields({{"A", 256, "C"}, {"B", 255, "C"}}), (std::vector<std::vector<size_t>>{{0}, {1}}));
  EXPECT_TRUE(splitFields({}).empty());
}

TEST(CliTablePlan, FieldListsAreUpperCaseAndCommaSeparated) {
  EXPECT_EQ(fieldList({"carrid, CONNID,,", "fldate"}), (std::vector<std::string>{"CARRID", "CONNID", "FLDATE"}));
  EXPECT_TRUE(fieldList({}).empty());
}

TEST(CliValues, VariantsAsJson) {
  SYSTEMTIME st{};
  st.wYear = 2024, st.wMonth = 2, st.wDay = 29, st.wHour = 13, st.wMinute = 5, st.wSecond = 9;
  DOUBLE when = 0;
  ASSERT_TRUE(SystemTimeToVariantTime(&st, &when));
  CComVariant date(when, VT_DATE);
  EXPECT_EQ(variantToJson(date, TYPE_DATE), "2024-02-29");
  EXPECT_EQ(variantToJson(date, TYPE_TIME), "13:05:09");
  EXPECT_EQ(variantToJson(date, TYPE_CHAR), "2024-02-29T13:05:09");
  EXPECT_EQ(variantToJson(CComVariant(LONGLONG(-5)), TYPE_INT), -5);
  EXPECT_EQ(variantToJson(CComVariant(2.5), TYPE_FLOAT), 2.5);
  EXPECT_EQ(variantToJson(CComVariant(u"text"), TYPE_CHAR), "text");
  EXPECT_TRUE(variantToJson(CComVariant(), TYPE_DATE).is_null());

  CComVariant bytes;
  bytes.vt = VT_ARRAY | VT_UI1;
  bytes.parray = SafeArrayCreateVector(VT_UI1, 0, 3);
  void* data = nullptr;
  SafeArrayAccessData(bytes.parray, &data);
  std::memcpy(data, "\x01\x02\xff", 3);
  SafeArrayUnaccessData(bytes.parray);
  EXPECT_EQ(variantToJson(bytes, TYPE_XSTRING), "AQL/");
}

TEST(CliOutput, AlignedTable) {
  std::ostringstream out;
  printTable(out, TextTable{{"NAME", "N"}, {false, true}, {{"a", "1"}, {"l\xC3\xA4nger", "100"}}});
  EXPECT_EQ(out.str(),
            "NAME      N\n"
            "------  ---\n"
            "a         1\n"
            "l\xC3\xA4nger  100\n");
  EXPECT_EQ(cellText(Json("two\nlines")), "two\\nlines");
  EXPECT_EQ(cellText(Json()), "");
  EXPECT_EQ(cellText(Json::parse(R"({"A":1})")), "{\"A\":1}");
}

TEST(CliFailure, GroupNames) {
  EXPECT_EQ(errorGroupName(103), "RFCERROR_LOGON_FAILURE");
  EXPECT_EQ(errorGroupName(105), "RFCERROR_APPLICATION_EXCEPTION");
  EXPECT_EQ(errorGroupName(1), "unknown group");
}

namespace {

TEST(CliFailure, TheTracedAbapMessageIsReadBack) {
  const auto m = veltrane::cli::abapMessageOfTraceLine(
      "20261123 22:50:01\t[Veltrane]\tABAP message: ID=\"ZV\" Type=\"E\" Number=\"002\" V1=\"LH\" "
      "V2=\"a \\\"quoted\\\" \\\\ value\" V3=\"\" V4=\"tab\\there\\x01\"");
  ASSERT_TRUE(m);
  EXPECT_EQ(m->messageClass, "ZV");
  EXPECT_EQ(m->type, "E");
  EXPECT_EQ(m->number, "002");
  EXPECT_EQ(m->variables[0], "LH");
  EXPECT_EQ(m->variables[1], "a \"quoted\" \\ value");
  EXPECT_EQ(m->variables[2], "");
  EXPECT_EQ(m->variables[3], "tab\there\x01");
}

TEST(CliFailure, AMalformedTraceLineIsNoMessage) {
  for (const char* line :
       {"", "ABAP message:", "ABAP message: ID=\"ZV\" Type=\"E\"",
        "ABAP message: ID=\"ZV\" Type=\"E\" Number=\"002\" V1=\"unterminated V2=\"\" V3=\"\" V4=\"\"",
        "SetError: 105 NOT_FOUND ID:ZV Type: E Number:002"})
    EXPECT_FALSE(veltrane::cli::abapMessageOfTraceLine(line)) << line;
  // Escapes it does not know stand for the character behind the backslash.
  const auto m = veltrane::cli::abapMessageOfTraceLine(
      "ABAP message: ID=\"\\q\" Type=\"\\xZZ\" Number=\"\\x4\" V1=\"\\x41\" V2=\"\" V3=\"\" V4=\"\\\\\"");
  ASSERT_TRUE(m);
  EXPECT_EQ(m->messageClass, "q");
  EXPECT_EQ(m->type, "xZZ");
  EXPECT_EQ(m->number, "x4");
  EXPECT_EQ(m->variables[0], "A");
  EXPECT_EQ(m->variables[3], "\\");
}

}  // namespace
