// The built veltrane program against veltrane-sim: every subcommand, both
// output formats, values as arguments and files, wide and paged table reads,
// and the failures with their exit status.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>

#include "cli_fixture.h"

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using clitest::CliProgram;
using clitest::RunResult;

namespace {

// ---- ping, check-password, check-unicode ----------------------------------

TEST_F(CliProgram, PingAnswersAsJsonAndAsTable) {
  RunResult r = veltrane({"ping"});
  EXPECT_OK(r);
  Json j = json(r);
  EXPECT_EQ(j["status"], "ok");
  EXPECT_EQ(j["sessionType"], "SOAP");
  EXPECT_EQ(j["client"], "001");
  EXPECT_EQ(j["user"], "DEMO");
  EXPECT_EQ(j["address"], "http://127.0.0.1:" + std::to_string(sim_->soapPort()) + "/sap/bc/soap/rfc");

  r = veltrane({"ping", "--format", "table", "--stateful"});
  EXPECT_OK(r);
  EXPECT_NE(r.out.find("PROPERTY"), std::string::npos);
  EXPECT_TRUE(std::regex_search(r.out, std::regex("\nstatus +ok\n")));
  EXPECT_TRUE(std::regex_search(r.out, std::regex("\nstateful +true\n")));
}

TEST_F(CliProgram, ConnectionOptionsMayStandBeforeTheCommand) {
  RunResult r =
      clitest::runProgram(VELTRANE_CLI_PROGRAM, {"--port", std::to_string(sim_->soapPort()), "--client", "100", "ping"},
                          {{"VELTRANE_PASSWORD", "Welcome1"}, {"VELTRANE_USER", "demo"}});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["client"], "100");
  EXPECT_EQ(json(r)["user"], "DEMO");
}

TEST_F(CliProgram, PasswordState) {
  RunResult r = veltrane({"check-password"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["passwordExpired"], false);
  r = veltrane({"check-password", "--format", "table"}, "EXPIRED");
  EXPECT_OK(r);
  EXPECT_TRUE(std::regex_search(r.out, std::regex("passwordExpired +true")));
}

TEST_F(CliProgram, UnicodeSupport) {
  RunResult r = veltrane({"check-unicode"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["unicode"], true);
}

// ---- call -----------------------------------------------------------------

TEST_F(CliProgram, CallPrintsExportingChangingAndTables) {
  RunResult r = veltrane({"call", "STFC_CONNECTION", "REQUTEXT=Hello \xC3\xA4\xE6\x97\xA5"});
  EXPECT_OK(r);
  Json j = json(r);
  ASSERT_TRUE(j.is_object());
  EXPECT_EQ(j.begin().key(), "exporting");
  EXPECT_TRUE(j.contains("changing"));
  EXPECT_TRUE(j.contains("tables"));
  EXPECT_EQ(j["exporting"]["ECHOTEXT"], "Hello \xC3\xA4\xE6\x97\xA5");
  EXPECT_FALSE(j["exporting"]["RESPTEXT"].get<std::string>().empty());
}

TEST_F(CliProgram, CallAsTable) {
  RunResult r = veltrane({"call", "stfc_connection", "requtext=Hi there", "--format", "table"});
  EXPECT_OK(r);
  EXPECT_NE(r.out.find("EXPORTING\n"), std::string::npos) << r.out;
  EXPECT_TRUE(std::regex_search(r.out, std::regex("\nECHOTEXT +Hi there\n"))) << r.out;
}

TEST_F(CliProgram, CallWithScalarFilter) {
  RunResult r = veltrane({"call", "BAPI_FLIGHT_GETLIST", "AIRLINE=LH"});
  EXPECT_OK(r);
  const Json list = json(r)["tables"]["FLIGHT_LIST"];
  ASSERT_TRUE(list.is_array());
  ASSERT_FALSE(list.empty());
  for (const auto& row : list) {
    EXPECT_EQ(row["AIRLINEID"], "LH");
    EXPECT_TRUE(std::regex_match(row["FLIGHTDATE"].get<std::string>(), std::regex(R"(\d{4}-\d{2}-\d{2})"))) << row;
    EXPECT_TRUE(std::regex_match(row["DEPTIME"].get<std::string>(), std::regex(R"(\d{2}:\d{2}:\d{2})"))) << row;
  }
}

TEST_F(CliProgram, StructureAsJsonArgumentAndAsFile) {
  RunResult all = veltrane({"call", "BAPI_FLIGHT_GETLIST"});
  EXPECT_OK(all);
  const Json rows = json(all)["tables"]["FLIGHT_LIST"];
  ASSERT_FALSE(rows.empty());
  const std::string airport = rows[0]["AIRPORTFR"];

  RunResult r = veltrane({"call", "BAPI_FLIGHT_GETLIST", "DESTINATION_FROM={\"AIRPORTID\":\"" + airport + "\"}"});
  EXPECT_OK(r);
  const Json filtered = json(r)["tables"]["FLIGHT_LIST"];
  ASSERT_FALSE(filtered.empty());
  EXPECT_LT(filtered.size(), rows.size());
  for (const auto& row : filtered) EXPECT_EQ(row["AIRPORTFR"], airport);

  const std::string path = file("from.json", "{\"airportid\": \"" + airport + "\"}\n");
  RunResult f = veltrane({"call", "BAPI_FLIGHT_GETLIST", "DESTINATION_FROM=@" + path});
  EXPECT_OK(f);
  EXPECT_EQ(json(f)["tables"]["FLIGHT_LIST"], filtered);
}

TEST_F(CliProgram, TableAsJsonArgumentAndAsFile) {
  RunResult all = veltrane({"call", "BAPI_FLIGHT_GETLIST", "AIRLINE=LH"});
  EXPECT_OK(all);
  const Json rows = json(all)["tables"]["FLIGHT_LIST"];
  ASSERT_GE(rows.size(), 2u);
  const std::string day = rows[0]["FLIGHTDATE"];
  const std::string range = R"([{"SIGN":"I","OPTION":"EQ","LOW":")" + day + R"("}])";

  RunResult r = veltrane({"call", "BAPI_FLIGHT_GETLIST", "AIRLINE=LH", "DATE_RANGE=" + range});
  EXPECT_OK(r);
  const Json filtered = json(r)["tables"]["FLIGHT_LIST"];
  ASSERT_FALSE(filtered.empty());
  for (const auto& row : filtered) EXPECT_EQ(row["FLIGHTDATE"], day);
  EXPECT_FALSE(json(r)["tables"].contains("DATE_RANGE"));

  RunResult f = veltrane({"call", "BAPI_FLIGHT_GETLIST", "AIRLINE=LH", "DATE_RANGE=@" + file("range.json", range)});
  EXPECT_OK(f);
  EXPECT_EQ(json(f)["tables"]["FLIGHT_LIST"], filtered);
}

TEST_F(CliProgram, ValuesOfEveryScalarKindTravelBothWays) {
  RunResult r = veltrane({"call", "Z_VSIM_TYPES", "IV_CHAR=abc", "IV_NUMC=42", "IV_DATE=2024-02-29", "IV_TIME=23:59:58",
                          "IV_RAW=3q2+7w==", "IV_PACKED=-12.50", "IV_FLOAT=-2.5", "IV_INT=2000000000", "IV_INT1=255",
                          "IV_INT2=300", "IV_STRING=@@at", "IV_XSTRING=AQID", "CV_DATE=20241231", "CV_INT=41",
                          R"(IS_FLAT={"CHAR":"x","DATE":"2000-01-01","INT":3})"});
  EXPECT_OK(r);
  const Json e = json(r)["exporting"];
  EXPECT_EQ(e["EV_CHAR"], "abc");
  EXPECT_EQ(e["EV_NUMC"], "00000042");
  EXPECT_EQ(e["EV_DATE"], "2024-02-29");
  EXPECT_EQ(e["EV_TIME"], "23:59:58");
  EXPECT_EQ(e["EV_RAW"], "3q2+7w==");
  EXPECT_EQ(e["EV_PACKED"], "-12.50");
  EXPECT_EQ(e["EV_FLOAT"], -2.5);
  EXPECT_EQ(e["EV_INT"], 2000000000);
  EXPECT_EQ(e["EV_INT1"], 255);
  EXPECT_EQ(e["EV_INT2"], 300);
  EXPECT_EQ(e["EV_STRING"], "@at");
  EXPECT_EQ(e["EV_XSTRING"], "AQID");
  EXPECT_EQ(e["ES_FLAT"]["CHAR"], "x");
  EXPECT_EQ(e["ES_FLAT"]["DATE"], "2000-01-01");
  EXPECT_EQ(e["ES_FLAT"]["INT"], 3);
  const Json c = json(r)["changing"];
  EXPECT_EQ(c["CV_DATE"], "2025-01-01");
  EXPECT_EQ(c["CV_INT"], 42);
}

TEST_F(CliProgram, ScalarFromFileLosesItsLastLineBreak) {
  RunResult r = veltrane({"call", "STFC_CONNECTION", "REQUTEXT=@" + file("text.txt", "from a file\n")});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["exporting"]["ECHOTEXT"], "from a file");
}

TEST_F(CliProgram, ApplicationExceptionGivesGroupKeyAndMessage) {
  RunResult r = veltrane({"call", "Z_VSIM_RAISE", "EXCEPTION=NOT_FOUND"});
  EXPECT_EQ(r.status, 5) << r.err;
  EXPECT_TRUE(r.out.empty()) << r.out;
  EXPECT_NE(r.err.find("calling Z_VSIM_RAISE failed"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("group:   RFCERROR_APPLICATION_EXCEPTION (105)"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("key:     NOT_FOUND"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("message: "), std::string::npos) << r.err;
}

TEST_F(CliProgram, UnknownFunctionIsAnAbapException) {
  RunResult r = veltrane({"describe", "Z_NO_SUCH_FUNCTION"});
  EXPECT_EQ(r.status, 5) << r.err;
  EXPECT_NE(r.err.find("importing the interface of Z_NO_SUCH_FUNCTION failed"), std::string::npos) << r.err;
}

TEST_F(CliProgram, BadValuesAreUsageErrors) {
  struct Case {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"call", "Z_VSIM_TYPES", "IV_DATE=2024-02-30"}, "IV_DATE: '2024-02-30' is not a valid date"},
      {{"call", "Z_VSIM_TYPES", "IV_TIME=25:00:00"}, "IV_TIME: '25:00:00' is not a valid time"},
      {{"call", "Z_VSIM_TYPES", "IV_INT1=256"}, "IV_INT1: 256 is out of range (0 to 255)"},
      {{"call", "Z_VSIM_TYPES", "IV_INT=ten"}, "IV_INT: \"ten\" is not a whole number"},
      {{"call", "Z_VSIM_TYPES", "IV_RAW=***"}, "IV_RAW: '***' is not valid base64"},
      {{"call", "Z_VSIM_TYPES", "IS_FLAT={\"NOPE\":1}"}, "IS_FLAT: no field NOPE"},
      {{"call", "Z_VSIM_TYPES", "IS_FLAT={oops"}, "IS_FLAT: not valid JSON"},
      {{"call", "Z_VSIM_TYPES", "IT_FLAT={}"}, "IT_FLAT: expects an array of rows"},
      {{"call", "Z_VSIM_TYPES", "EV_INT=1"}, "EV_INT is an exporting parameter of Z_VSIM_TYPES"},
      {{"call", "STFC_CONNECTION", "NOPE=1"}, "STFC_CONNECTION has no parameter NOPE (it takes: REQUTEXT)"},
      {{"call", "STFC_CONNECTION", "REQUTEXT"}, "argument 'REQUTEXT' is not of the form NAME=VALUE"},
      {{"call", "STFC_CONNECTION", "REQUTEXT=@/no/such/file"}, "REQUTEXT: cannot read the file '/no/such/file'"},
  };
  for (const auto& c : cases) {
    RunResult r = veltrane(c.args);
    EXPECT_EQ(r.status, 2) << c.args.back() << "\n" << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << "expected: " << c.message << "\nstderr: " << r.err;
  }
}

// ---- describe -------------------------------------------------------------

TEST_F(CliProgram, DescribePrintsTheXmlForm) {
  RunResult r = veltrane({"describe", "bapi_flight_getlist"});
  EXPECT_OK(r);
  EXPECT_EQ(r.out.rfind("<", 0), 0u) << r.out;
  for (const char* name : {"BAPI_FLIGHT_GETLIST", "AIRLINE", "DESTINATION_FROM", "DATE_RANGE", "FLIGHT_LIST"})
    EXPECT_NE(r.out.find(name), std::string::npos) << name;
}

// ---- read-table -----------------------------------------------------------

TEST_F(CliProgram, ReadTableAsTable) {
  RunResult r = veltrane({"read-table", "SFLIGHT", "--fields", "CARRID,CONNID,FLDATE,PRICE", "--where", "CARRID = 'LH'",
                          "--max", "10", "--format", "table"});
  EXPECT_OK(r);
  std::istringstream lines(r.out);
  std::string header, rule, line;
  std::getline(lines, header);
  std::getline(lines, rule);
  EXPECT_TRUE(std::regex_match(header, std::regex("CARRID +CONNID +FLDATE +PRICE"))) << header;
  EXPECT_TRUE(std::regex_match(rule, std::regex("-+  -+  -+  -+"))) << rule;
  int rows = 0;
  while (std::getline(lines, line) && line.rfind("(", 0) != 0) {
    ++rows;
    EXPECT_TRUE(std::regex_match(line, std::regex(R"(LH +\d{4} +\d{4}-\d{2}-\d{2} +[0-9.]+)"))) << line;
  }
  EXPECT_EQ(rows, 10);
  EXPECT_EQ(line, "(10 rows)");
}

TEST_F(CliProgram, ReadTablePagesWithMaxAndSkip) {
  RunResult whole = veltrane({"read-table", "SFLIGHT", "--fields", "CARRID,CONNID,FLDATE", "--max", "12"});
  EXPECT_OK(whole);
  const Json all = json(whole)["rows"];
  ASSERT_EQ(all.size(), 12u);
  EXPECT_EQ(json(whole)["fields"], Json::parse(R"(["CARRID","CONNID","FLDATE"])"));

  RunResult paged = veltrane({"read-table", "SFLIGHT", "--fields", "CARRID,CONNID,FLDATE", "--skip", "5", "--max", "7",
                              "--page-size", "3", "--progress"});
  EXPECT_OK(paged);
  const Json part = json(paged)["rows"];
  ASSERT_EQ(part.size(), 7u);
  for (size_t i = 0; i < part.size(); ++i) EXPECT_EQ(part[i], all[i + 5]) << i;
  EXPECT_EQ(paged.err, "read 3 rows...\nread 6 rows...\nread 7 rows...\n");
}

TEST_F(CliProgram, ReadTableStopsAtTheEndOfTheTable) {
  RunResult r = veltrane({"read-table", "SCARR", "--page-size", "5", "--progress"});
  EXPECT_OK(r);
  const Json j = json(r);
  EXPECT_EQ(j["table"], "SCARR");
  EXPECT_EQ(j["rows"].size(), 17u);
  EXPECT_EQ(r.err, "read 5 rows...\nread 10 rows...\nread 15 rows...\nread 17 rows...\n");
  EXPECT_TRUE(j["fields"].is_array());
  EXPECT_EQ(j["fields"][0], "MANDT");
}

TEST_F(CliProgram, WideFieldListIsSplitIntoSeveralReadsAndJoined) {
  const std::string trace = (dir_ / "trace.txt").string();
  RunResult r = veltrane({"read-table", "ZVCLI_WIDE", "--page-size", "10", "--trace", trace});
  EXPECT_OK(r);
  const Json j = json(r);
  EXPECT_EQ(j["fields"], Json::parse(R"(["MANDT","ID","TEXT1","TEXT2","TEXT3","CREATED","QUANTITY"])"));
  const Json rows = j["rows"];
  ASSERT_EQ(rows.size(), 25u);
  for (int i = 1; i <= 25; ++i) {
    const Json& row = rows[static_cast<size_t>(i - 1)];
    char id[8], day[16];
    std::snprintf(id, sizeof id, "%06d", i);
    std::snprintf(day, sizeof day, "2024-03-%02d", i);
    char n[4];
    std::snprintf(n, sizeof n, "%02d", i);
    EXPECT_EQ(row["MANDT"], "001");
    EXPECT_EQ(row["ID"], id);
    EXPECT_EQ(row["TEXT1"], "first " + std::string(n) + " " + std::string(230, 'a'));
    EXPECT_EQ(row["TEXT2"], "second " + std::string(n) + " " + std::string(230, 'b'));
    EXPECT_EQ(row["TEXT3"], "third " + std::string(n) + " " + std::string(230, 'c'));
    EXPECT_EQ(row["CREATED"], day);
    EXPECT_EQ(row["QUANTITY"], i * 7);
  }
  // Three field groups, three pages: nine reads.
  std::ifstream in(trace);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  size_t reads = 0;
  for (size_t p = text.find("CTableReader::Read()\n"); p != std::string::npos;
       p = text.find("CTableReader::Read()\n", p + 1))
    ++reads;
  EXPECT_EQ(reads, 9u);
}

TEST_F(CliProgram, WideReadWithSelectionAndFieldsInOwnOrder) {
  RunResult r = veltrane({"read-table", "ZVCLI_WIDE", "--fields", "quantity,text3,text1,id", "--where",
                          "ID >= '000020'", "--where", "QUANTITY < 162", "--format", "table"});
  EXPECT_OK(r);
  std::istringstream lines(r.out);
  std::string header, rule, line;
  std::getline(lines, header);
  std::getline(lines, rule);
  EXPECT_TRUE(std::regex_match(header, std::regex("QUANTITY +TEXT3 +TEXT1 +ID"))) << header;
  std::vector<std::string> ids;
  while (std::getline(lines, line) && line.rfind("(", 0) != 0) {
    std::smatch m;
    ASSERT_TRUE(std::regex_match(line, m, std::regex(R"( *(\d+)  third (\d\d) c+  first (\d\d) a+  (\d{6}))"))) << line;
    EXPECT_EQ(std::stoi(m[1]), std::stoi(m[4]) * 7);
    EXPECT_EQ(m[2], m[3]);
    ids.push_back(m[4]);
  }
  EXPECT_EQ(ids, (std::vector<std::string>{"000020", "000021", "000022", "000023"}));
  EXPECT_EQ(line, "(4 rows)");
}

TEST_F(CliProgram, ReadTableFailuresOfTheSystem) {
  RunResult r = veltrane({"read-table", "USR02"});
  EXPECT_EQ(r.status, 5);
  EXPECT_NE(r.err.find("key:     NOT_AUTHORIZED"), std::string::npos) << r.err;
  r = veltrane({"read-table", "SFLIGHT", "--fields", "CARRID,NOPE"});
  EXPECT_EQ(r.status, 5);
  EXPECT_NE(r.err.find("key:     FIELD_NOT_VALID"), std::string::npos) << r.err;
  r = veltrane({"read-table", "SFLIGHT", "--where", "CARRID = = 'LH'"});
  EXPECT_EQ(r.status, 5);
  EXPECT_NE(r.err.find("key:     OPTION_NOT_VALID"), std::string::npos) << r.err;
}

// ---- usage and logon failures ---------------------------------------------

TEST_F(CliProgram, UsageErrorsExitWithTwo) {
  struct Case {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"ping", "--bogus"}, "unknown option --bogus for 'veltrane ping'"},
      {{"read-table", "SFLIGHT", "--max"}, "option --max needs a value"},
      {{"read-table", "SFLIGHT", "--max", "many"}, "option --max: 'many' is not a whole number"},
      {{"read-table", "SFLIGHT", "--page-size", "-1"}, "option --page-size: -1 is out of range"},
      {{"read-table"}, "read-table needs exactly one TABLE"},
      {{"ping", "--format", "xml"}, "option --format: 'xml' is not a format"},
      {{"ping", "--backend", "bogus"}, "unsupported back end 'bogus'"},
      {{"ping", "--client", "1"}, "option --client: '1' is not a client"},
      {{"frobnicate"}, "unknown command 'frobnicate'"},
      {{"call"}, "call needs a FUNCTION"},
      {{"describe", "A", "B"}, "describe needs exactly one FUNCTION"},
  };
  for (const auto& c : cases) {
    RunResult r = veltrane(c.args);
    EXPECT_EQ(r.status, 2) << c.args[0] << "\n" << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << "expected: " << c.message << "\nstderr: " << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
  }
  RunResult none = bare({});
  EXPECT_EQ(none.status, 2);
  EXPECT_NE(none.err.find("usage: veltrane COMMAND"), std::string::npos);
}

TEST_F(CliProgram, PortOutOfRangeAndMissingUser) {
  RunResult r = bare({"ping", "--port", "70000"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("option --port: '70000' is not a port number"), std::string::npos) << r.err;
  r = bare({"ping"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("no user: give --user USER or set VELTRANE_USER"), std::string::npos) << r.err;
}

TEST_F(CliProgram, NoPasswordWithoutTerminal) {
  RunResult r = veltrane({"ping"}, "DEMO", std::nullopt);
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("no password: set VELTRANE_PASSWORD or run the command on a terminal"), std::string::npos)
      << r.err;
}

TEST_F(CliProgram, WrongPasswordIsALogonFailure) {
  // DEVELOPER, so that the failed logon counts against no user of the other tests.
  RunResult r = veltrane({"ping"}, "DEVELOPER", std::string("wrong"));
  EXPECT_EQ(r.status, 3) << r.err;
  EXPECT_TRUE(r.out.empty());
  EXPECT_NE(r.err.find("connecting to http://127.0.0.1:"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("group:   "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("key:     "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("message: "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("401"), std::string::npos) << r.err;
}

TEST_F(CliProgram, UnreachableSystemIsACommunicationFailureWithItsCause) {
  // Nothing listens on port 1.
  RunResult r = clitest::runProgram(VELTRANE_CLI_PROGRAM, {"ping", "--port", "1", "--user", "DEMO"},
                                    {{"VELTRANE_PASSWORD", "x"}});
  EXPECT_EQ(r.status, 4) << r.err;
  EXPECT_NE(r.err.find("connecting to http://127.0.0.1:1/sap/bc/soap/rfc failed: connection refused"),
            std::string::npos)
      << r.err;
}

TEST_F(CliProgram, HelpOfEverySubcommand) {
  for (const char* command : {"ping", "call", "describe", "read-table", "check-password", "check-unicode"}) {
    for (const char* flag : {"--help", "-h"}) {
      RunResult r = bare({command, flag});
      EXPECT_EQ(r.status, 0) << command;
      EXPECT_EQ(r.out.rfind(std::string("usage: veltrane ") + command + " [options]", 0), 0u) << r.out;
      EXPECT_NE(r.out.find("--host HOST"), std::string::npos) << command;
      EXPECT_NE(r.out.find("VELTRANE_PASSWORD"), std::string::npos) << command;
    }
  }
  RunResult r = bare({"--help"});
  EXPECT_EQ(r.status, 0);
  for (const char* command : {"ping", "call", "describe", "read-table", "check-password", "check-unicode"})
    EXPECT_NE(r.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
  r = bare({"help", "read-table"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("--page-size N"), std::string::npos);
}

}  // namespace

// ---- read-table: formats and the database ---------------------------------

TEST_F(CliProgram, ReadTableAsJsonLinesAndCsv) {
  RunResult whole = veltrane({"read-table", "SCARR", "--fields", "CARRID,CARRNAME,CURRCODE"});
  EXPECT_OK(whole);
  const Json rows = json(whole)["rows"];
  ASSERT_EQ(rows.size(), 17u);

  RunResult lines = veltrane(
      {"read-table", "SCARR", "--fields", "CARRID,CARRNAME,CURRCODE", "--page-size", "4", "--format", "jsonl"});
  EXPECT_OK(lines);
  std::istringstream in(lines.out);
  std::string line;
  size_t n = 0;
  while (std::getline(in, line)) {
    ASSERT_LT(n, rows.size());
    EXPECT_EQ(Json::parse(line), rows[n]) << n;
    ++n;
  }
  EXPECT_EQ(n, 17u);

  RunResult csv =
      veltrane({"read-table", "SCARR", "--fields", "CARRID,CARRNAME,CURRCODE", "--page-size", "4", "--format", "csv"});
  EXPECT_OK(csv);
  std::istringstream cin(csv.out);
  std::getline(cin, line);
  EXPECT_EQ(line, "CARRID,CARRNAME,CURRCODE");
  n = 0;
  while (std::getline(cin, line)) {
    ASSERT_LT(n, rows.size());
    const std::string expected = rows[n]["CARRID"].get<std::string>() + "," + rows[n]["CARRNAME"].get<std::string>() +
                                 "," + rows[n]["CURRCODE"].get<std::string>();
    EXPECT_EQ(line, expected);
    ++n;
  }
  EXPECT_EQ(n, 17u);

  RunResult bad = veltrane({"read-table", "SCARR", "--format", "xml"});
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("option --format: 'xml' is not a format (json, jsonl, csv or table)"), std::string::npos)
      << bad.err;
}

TEST_F(CliProgram, ReadTableIntoAnSqliteDatabase) {
  const std::string db = (dir_ / "flights.db").string();
  RunResult r = veltrane({"read-table", "SFLIGHT", "--fields", "CARRID,CONNID,FLDATE,PRICE,SEATSMAX", "--max", "25",
                          "--page-size", "10", "--sqlite", db});
  EXPECT_OK(r);
  const Json summary = json(r);
  EXPECT_EQ(summary["table"], "SFLIGHT");
  EXPECT_EQ(summary["rows"], 25);
  EXPECT_EQ(summary["database"], db);
  RunResult same =
      veltrane({"read-table", "SFLIGHT", "--fields", "CARRID,CONNID,FLDATE,PRICE,SEATSMAX", "--max", "25"});
  const Json rows = json(same)["rows"];

  sqlite3* handle = nullptr;
  ASSERT_EQ(sqlite3_open(db.c_str(), &handle), SQLITE_OK);
  sqlite3_stmt* stmt = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(handle, "SELECT CARRID, FLDATE, SEATSMAX, typeof(SEATSMAX) FROM SFLIGHT ORDER BY rowid",
                               -1, &stmt, nullptr),
            SQLITE_OK);
  size_t n = 0;
  while (sqlite3_step(stmt) == SQLITE_ROW) {
    ASSERT_LT(n, rows.size());
    EXPECT_EQ(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0)), rows[n]["CARRID"].get<std::string>());
    EXPECT_EQ(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 1)), rows[n]["FLDATE"].get<std::string>());
    EXPECT_EQ(sqlite3_column_int64(stmt, 2), rows[n]["SEATSMAX"].get<std::int64_t>());
    EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 3)), "integer");
    ++n;
  }
  sqlite3_finalize(stmt);
  sqlite3_close(handle);
  EXPECT_EQ(n, 25u);

  // A second read into the same table is refused; the rows stay.
  RunResult again = veltrane({"read-table", "SFLIGHT", "--max", "5", "--sqlite", db});
  EXPECT_EQ(again.status, 1);
  EXPECT_NE(again.err.find("cannot create table SFLIGHT in the database " + db), std::string::npos) << again.err;
}

// Packed amounts read back from the database as the numbers they are.
TEST_F(CliProgram, ReadTableKeepsPackedAmountsInSqlite) {
  const std::string db = (dir_ / "prices.db").string();
  EXPECT_OK(veltrane({"read-table", "SFLIGHT", "--fields", "PRICE", "--max", "40", "--sqlite", db}));
  const Json rows = json(veltrane({"read-table", "SFLIGHT", "--fields", "PRICE", "--max", "40"}))["rows"];
  sqlite3* handle = nullptr;
  ASSERT_EQ(sqlite3_open(db.c_str(), &handle), SQLITE_OK);
  sqlite3_stmt* stmt = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(handle, "SELECT PRICE, typeof(PRICE) FROM SFLIGHT ORDER BY rowid", -1, &stmt, nullptr),
            SQLITE_OK);
  size_t n = 0;
  while (sqlite3_step(stmt) == SQLITE_ROW) {
    ASSERT_LT(n, rows.size());
    const std::string type = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 1));
    EXPECT_TRUE(type == "real" || type == "integer") << type;
    EXPECT_EQ(sqlite3_column_double(stmt, 0), std::stod(rows[n]["PRICE"].get<std::string>())) << n;
    ++n;
  }
  sqlite3_finalize(stmt);
  sqlite3_close(handle);
  EXPECT_EQ(n, 40u);
}

// A selection without rows still writes a whole output in every format.
TEST_F(CliProgram, ReadTableWithoutRowsWritesAWholeOutput) {
  const std::vector<std::string> none{"read-table", "SCARR", "--fields", "CARRID,CARRNAME", "--where", "CARRID = 'XX'"};
  auto with = [&](std::vector<std::string> extra) {
    std::vector<std::string> args = none;
    args.insert(args.end(), extra.begin(), extra.end());
    return veltrane(args);
  };
  RunResult csv = with({"--format", "csv"});
  EXPECT_OK(csv);
  EXPECT_EQ(csv.out, "CARRID,CARRNAME\n");
  RunResult lines = with({"--format", "jsonl"});
  EXPECT_OK(lines);
  EXPECT_EQ(lines.out, "");
  RunResult document = with({});
  EXPECT_OK(document);
  EXPECT_EQ(json(document)["rows"], Json::array());
  EXPECT_EQ(json(document)["fields"], Json::array({"CARRID", "CARRNAME"}));

  const std::string db = (dir_ / "empty.db").string();
  RunResult database = with({"--sqlite", db});
  EXPECT_OK(database);
  EXPECT_EQ(json(database)["rows"], 0);
  sqlite3* handle = nullptr;
  ASSERT_EQ(sqlite3_open(db.c_str(), &handle), SQLITE_OK);
  sqlite3_stmt* stmt = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(handle, "SELECT count(*) FROM SCARR", -1, &stmt, nullptr), SQLITE_OK);
  ASSERT_EQ(sqlite3_step(stmt), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int64(stmt, 0), 0);
  sqlite3_finalize(stmt);
  sqlite3_close(handle);
}

TEST_F(CliProgram, ReadTableRefusesABadDatabase) {
  RunResult unnamed = veltrane({"read-table", "SCARR", "--sqlite", ""});
  EXPECT_EQ(unnamed.status, 2);
  EXPECT_NE(unnamed.err.find("option --sqlite needs a file name"), std::string::npos) << unnamed.err;
  RunResult directory = veltrane({"read-table", "SCARR", "--sqlite", dir_.string()});
  EXPECT_EQ(directory.status, 1);
  EXPECT_NE(directory.err.find("cannot open the database " + dir_.string()), std::string::npos) << directory.err;
  RunResult missing = veltrane({"read-table", "SCARR", "--sqlite", (dir_ / "no" / "such.db").string()});
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("cannot open the database"), std::string::npos) << missing.err;
  EXPECT_FALSE(std::filesystem::exists(dir_ / "no"));
}
