// The command in daily use against veltrane-sim: output that cannot be
// written, bounded input files, the password and the terminal, the trace
// file, exit statuses and failures as JSON, and the small things of the
// command line.
#include <fcntl.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <regex>
#include <thread>

#include "cli_fixture.h"

namespace fs = std::filesystem;
using clitest::CliProgram;
using clitest::Json;
using clitest::RunResult;

namespace {

std::string quoted(const std::string& s) { return "'" + s + "'"; }

class CliDaily : public CliProgram {
 protected:
  // The program's command line for a shell, with the simulator's address.
  std::string shellLine(const std::vector<std::string>& args) {
    std::string line = quoted(VELTRANE_CLI_PROGRAM);
    for (const auto& a : args) line += " " + quoted(a);
    return line + " --port " + std::to_string(sim_->soapPort()) + " --user DEMO";
  }
  RunResult shell(const std::string& script) {
    return clitest::runProgram("/bin/bash", {"-c", script}, {{"VELTRANE_PASSWORD", std::string("Welcome1")}});
  }
  RunResult veltraneEnv(std::vector<std::string> args, std::map<std::string, std::optional<std::string>> env) {
    args.insert(args.end(), {"--port", std::to_string(sim_->soapPort()), "--user", "DEMO"});
    return clitest::runProgram(VELTRANE_CLI_PROGRAM, args, env);
  }
};

// A run of the program on a terminal of its own: what it wrote there, and
// the terminal's settings when it ended.
struct TerminalRun {
  int status = -1;
  std::string screen;
  termios after{};
};

// Starts the program on a new pseudo-terminal, waits for `prompt`, types
// `input` and collects the rest.
TerminalRun onTerminal(const std::vector<std::string>& args, const std::string& prompt, const std::string& input) {
  TerminalRun run;
  int master = -1;
  const pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
  if (pid == 0) {
    ::unsetenv("VELTRANE_PASSWORD");
    std::vector<char*> argv;
    std::string program = VELTRANE_CLI_PROGRAM;
    argv.push_back(program.data());
    std::vector<std::string> copy = args;
    for (auto& a : copy) argv.push_back(a.data());
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  auto readSome = [&](int ms) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(master, &set);
    timeval tv{ms / 1000, (ms % 1000) * 1000};
    if (::select(master + 1, &set, nullptr, nullptr, &tv) <= 0) return false;
    char buf[512];
    const ssize_t n = ::read(master, buf, sizeof buf);
    if (n <= 0) return false;
    run.screen.append(buf, static_cast<size_t>(n));
    return true;
  };
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (run.screen.find(prompt) == std::string::npos && std::chrono::steady_clock::now() < deadline) readSome(200);
  ::write(master, input.data(), input.size());
  int status = 0;
  for (;;) {
    readSome(100);
    if (::waitpid(pid, &status, WNOHANG) == pid) break;
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, &status, 0);
      break;
    }
  }
  while (readSome(50)) {}
  ::tcgetattr(master, &run.after);
  ::close(master);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
}

// ---- nothing lost, nothing leaked -----------------------------------------

TEST_F(CliDaily, AFullDiskIsAnErrorOfTheCommand) {
  RunResult r = shell(shellLine({"call", "STFC_CONNECTION", "REQUTEXT=x"}) + " > /dev/full");
  EXPECT_EQ(r.status, 6) << r.err;
  EXPECT_NE(r.err.find("writing the output failed: No space left on device"), std::string::npos) << r.err;
}

TEST_F(CliDaily, AClosedPipeIsAnErrorOfTheCommand) {
  RunResult r = shell(shellLine({"read-table", "SFLIGHT"}) + " | true; exit ${PIPESTATUS[0]}");
  EXPECT_EQ(r.status, 6) << r.err;
  EXPECT_NE(r.err.find("writing the output failed: Broken pipe"), std::string::npos) << r.err;
}

TEST_F(CliDaily, AFileValueHasALimit) {
  RunResult r = veltrane({"call", "STFC_CONNECTION", "REQUTEXT=@/dev/zero", "--file-limit", "1"});
  EXPECT_EQ(r.status, 2) << r.err;
  EXPECT_NE(r.err.find("REQUTEXT: the file '/dev/zero' is larger than 1 MiB (raise the limit with --file-limit MIB)"),
            std::string::npos)
      << r.err;
  r = veltrane({"call", "STFC_CONNECTION", "REQUTEXT=@" + file("bad.txt", "a\xFF")});
  EXPECT_EQ(r.status, 2) << r.err;
  EXPECT_NE(r.err.find("is not valid UTF-8 text"), std::string::npos) << r.err;
}

TEST_F(CliDaily, CtrlCAtThePromptRestoresTheEcho) {
  TerminalRun run =
      onTerminal({"ping", "--port", std::to_string(sim_->soapPort()), "--user", "DEMO"}, "Password for", "\x03");
  EXPECT_EQ(run.status, 128 + SIGINT) << run.screen;
  EXPECT_TRUE(run.after.c_lflag & ECHO) << run.screen;
}

TEST_F(CliDaily, EnterAloneAtThePromptIsNotAPassword) {
  TerminalRun run =
      onTerminal({"ping", "--port", std::to_string(sim_->soapPort()), "--user", "DEMO"}, "Password for", "\r");
  EXPECT_EQ(run.status, 2) << run.screen;
  EXPECT_NE(run.screen.find("an empty password is not sent"), std::string::npos) << run.screen;
  EXPECT_TRUE(run.after.c_lflag & ECHO);
}

TEST_F(CliDaily, APasswordTypedAtThePromptLogsOn) {
  TerminalRun run =
      onTerminal({"ping", "--port", std::to_string(sim_->soapPort()), "--user", "DEMO"}, "Password for", "Welcome1\r");
  EXPECT_EQ(run.status, 0) << run.screen;
  EXPECT_EQ(run.screen.find("Welcome1"), std::string::npos) << "echoed: " << run.screen;
}

TEST_F(CliDaily, EmptyPasswordVariablesAreRefused) {
  RunResult r = veltraneEnv({"ping"}, {{"VELTRANE_PASSWORD", std::string()}});
  EXPECT_EQ(r.status, 2) << r.err;
  EXPECT_NE(r.err.find("VELTRANE_PASSWORD is set but empty"), std::string::npos) << r.err;
  r = veltraneEnv({"ping", "--proxy", "127.0.0.1:1", "--proxy-user", "P"},
                  {{"VELTRANE_PASSWORD", std::string("Welcome1")}, {"VELTRANE_PROXY_PASSWORD", std::string()}});
  EXPECT_EQ(r.status, 2) << r.err;
  EXPECT_NE(r.err.find("VELTRANE_PROXY_PASSWORD is set but empty"), std::string::npos) << r.err;
  r = veltraneEnv({"ping", "--proxy", "127.0.0.1:1", "--proxy-user", "P"},
                  {{"VELTRANE_PASSWORD", std::string("Welcome1")}});
  EXPECT_EQ(r.status, 2) << r.err;
  EXPECT_NE(r.err.find("no proxy password: set VELTRANE_PROXY_PASSWORD"), std::string::npos) << r.err;
}

TEST_F(CliDaily, TheTraceFileIsTheOwnersOnly) {
  const std::string trace = (dir_ / "veltrane.trc").string();
  RunResult r = veltrane({"ping", "--trace", trace});
  EXPECT_OK(r);
  struct stat st {};
  ASSERT_EQ(::stat(trace.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(CliDaily, AnUnwritableTraceIsRefusedBeforeAnythingElse) {
  // Nothing listens on port 1 and there is no password: the trace is looked at first.
  RunResult r = clitest::runProgram(VELTRANE_CLI_PROGRAM,
                                    {"ping", "--port", "1", "--user", "DEMO", "--trace", "/no/such/dir/x.trc"});
  EXPECT_EQ(r.status, 2) << r.err;
  EXPECT_NE(r.err.find("option --trace: cannot write '/no/such/dir/x.trc': No such file or directory"),
            std::string::npos)
      << r.err;
}

// ---- errors a script can read ---------------------------------------------

TEST_F(CliDaily, FailuresAsJson) {
  RunResult r = veltrane({"call", "Z_VSIM_RAISE", "EXCEPTION=NOT_FOUND", "--error-format", "json"});
  EXPECT_EQ(r.status, 5);
  Json j = Json::parse(r.err);
  EXPECT_EQ(j["status"], 5);
  EXPECT_EQ(j["kind"], "system");
  EXPECT_EQ(j["group"], 105);
  EXPECT_EQ(j["groupName"], "RFCERROR_APPLICATION_EXCEPTION");
  EXPECT_EQ(j["key"], "NOT_FOUND");

  r = veltrane({"--error-format", "json", "describe", "Z_NO_SUCH_FUNCTION"});
  j = Json::parse(r.err);
  EXPECT_EQ(j["key"], "FU_NOT_FOUND");
  EXPECT_EQ(j["messageClass"], "FL");
  EXPECT_EQ(j["messageType"], "E");
  EXPECT_EQ(j["messageNumber"], "046");

  r = veltrane({"ping", "--bogus", "--error-format=json"});
  EXPECT_EQ(r.status, 2);
  j = Json::parse(r.err);
  EXPECT_EQ(j["kind"], "usage");
  EXPECT_NE(j["message"].get<std::string>().find("unknown option --bogus"), std::string::npos);

  r = clitest::runProgram(VELTRANE_CLI_PROGRAM, {"ping", "--port", "1", "--user", "DEMO", "--error-format", "json"},
                          {{"VELTRANE_PASSWORD", std::string("x")}});
  EXPECT_EQ(r.status, 4);
  j = Json::parse(r.err);
  EXPECT_EQ(j["cause"], "connection refused");
  EXPECT_EQ(j["result"], "0x80040207");

  r = veltrane({"ping", "--error-format", "xml"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("option --error-format: 'xml' is not a format (text or json)"), std::string::npos);
}

TEST_F(CliDaily, AnUnknownHostIsNamed) {
  RunResult r = clitest::runProgram(VELTRANE_CLI_PROGRAM, {"ping", "--host", "no-such-host.invalid", "--user", "DEMO"},
                                    {{"VELTRANE_PASSWORD", std::string("x")}});
  EXPECT_EQ(r.status, 4) << r.err;
  EXPECT_NE(r.err.find("failed: unknown host"), std::string::npos) << r.err;
}

// ---- small things ---------------------------------------------------------

TEST_F(CliDaily, SmallThingsOfTheCommandLine) {
  RunResult r = veltrane({"ping", "extra"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("ping takes no arguments"), std::string::npos) << r.err;
  r = veltrane({"call", "STFC_CONNECTION", "REQUTEXT=a", "requtext=b"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("REQUTEXT is given more than once"), std::string::npos) << r.err;
  r = veltrane({"--format", "table", "ping"});
  EXPECT_OK(r);
  EXPECT_NE(r.out.find("PROPERTY"), std::string::npos) << r.out;
  r = veltrane({"ping", "--lang", "XX"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("option --lang: 'XX' is not a language"), std::string::npos) << r.err;
  r = veltrane({"ping", "--lang", "de"});
  EXPECT_OK(r);
  r = veltrane({"call", "STFC_CONNECTION", "REQUTEXT=a\xFF"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("REQUTEXT: the value is not valid UTF-8"), std::string::npos) << r.err;
}

}  // namespace

namespace {

// ---- read-table -----------------------------------------------------------

class CliReadTable : public CliDaily {
 protected:
  // A control request to the simulator; its answer.
  std::string control(const std::string& what) {
    RunResult r = clitest::runProgram(
        "/usr/bin/curl", {"-s", "--noproxy", "*", "-X", "POST", sim_->soapUrl() + "/vsim/control/" + what});
    return r.out;
  }
  long requests() { return Json::parse(control("status"))["requests"].get<long>(); }
};

TEST_F(CliReadTable, ARepeatedFieldIsRefused) {
  RunResult r = veltrane({"read-table", "SFLIGHT", "--fields", "CARRID,connid", "--fields", "CONNID"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("option --fields: CONNID is given more than once"), std::string::npos) << r.err;
  EXPECT_TRUE(r.out.empty());
}

TEST_F(CliReadTable, AFieldWiderThanTheDataLineIsRefusedBeforeReading) {
  RunResult r = veltrane({"read-table", "ZVCLI_RAW"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("field NOTE is 600 characters wide: wider than the 512-character data line"), std::string::npos)
      << r.err;
  EXPECT_TRUE(r.out.empty()) << r.out;
}

TEST_F(CliReadTable, RawValuesAreBase64AsInCall) {
  RunResult r = veltrane({"read-table", "ZVCLI_RAW", "--fields", "ID,HASH"});
  EXPECT_OK(r);
  Json j = json(r);
  ASSERT_EQ(j["rows"].size(), 2u);
  // The whole X4 value, not half of it.
  EXPECT_EQ(j["rows"][0]["HASH"], "3q2+7w==");
  EXPECT_EQ(j["rows"][1]["HASH"], "AP8QoA==");
  r = veltrane({"call", "Z_VSIM_TYPES", "IV_RAW=3q2+7w=="});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["exporting"]["EV_RAW"], "3q2+7w==");
}

TEST_F(CliReadTable, ALongSelectionIsSplitIntoOptionLines) {
  // 150 characters of selection: more than two OPTIONS lines of 72.
  const std::string where =
      "CARRID = 'LH' AND CONNID = '0400' AND PLANETYPE <> 'NOPE-0000001' AND PLANETYPE <> 'NOPE-0000002' "
      "AND PLANETYPE <> 'NOPE-0000003' AND SEATSMAX > 0";
  ASSERT_GT(where.size(), 144u);
  RunResult r = veltrane({"read-table", "SFLIGHT", "--fields", "CARRID,CONNID", "--where", where, "--max", "3"});
  EXPECT_OK(r);
  Json j = json(r);
  ASSERT_EQ(j["rows"].size(), 3u);
  for (const auto& row : j["rows"]) EXPECT_EQ(row["CONNID"], "0400");
}

TEST_F(CliReadTable, AFailurePartWayLeavesValidJsonAndWhereToGoOn) {
  const std::vector<std::string> args = {"read-table", "SFLIGHT", "--fields", "CARRID,CONNID",  "--page-size",
                                         "2",          "--max",   "6",        "--error-format", "json"};
  const long before = requests();
  RunResult whole = veltrane(args);
  EXPECT_OK(whole);
  const long used = requests() - before - 1;  // less the status request itself
  // The same again, with the last page failing.
  control("fault?fault=status:500&user=DEMO&pass=" + std::to_string(used - 1));
  RunResult r = veltrane(args);
  EXPECT_NE(r.status, 0);
  Json j = json(r);
  ASSERT_EQ(j["rows"].size(), 4u) << r.out;
  const Json all = json(whole)["rows"];
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(j["rows"][i], all[i]);
  Json error = Json::parse(r.err);
  EXPECT_EQ(error["resumeSkip"], 4) << r.err;
  // Going on from there gives the rest.
  std::vector<std::string> rest = args;
  rest.insert(rest.end(), {"--skip", "4"});
  rest[7] = "2";
  r = veltrane(rest);
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["rows"][0], all[4]);
}

TEST_F(CliReadTable, TheFailureTextSaysWhereToGoOn) {
  const long before = requests();
  RunResult whole = veltrane({"read-table", "SFLIGHT", "--fields", "CARRID", "--page-size", "1", "--max", "2"});
  EXPECT_OK(whole);
  const long used = requests() - before - 1;
  control("fault?fault=status:500&user=DEMO&pass=" + std::to_string(used - 1));
  RunResult r = veltrane({"read-table", "SFLIGHT", "--fields", "CARRID", "--page-size", "1", "--max", "2"});
  EXPECT_NE(r.status, 0);
  EXPECT_EQ(json(r)["rows"].size(), 1u);
  EXPECT_NE(r.err.find("1 row was written before the failure; go on with --skip 1"), std::string::npos) << r.err;
}

}  // namespace

namespace {

// ---- values, results and interfaces ---------------------------------------

TEST_F(CliDaily, LengthsAndRangesAreCheckedBeforeSending) {
  struct Case {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"IV_CHAR=12345678901"}, "IV_CHAR: '12345678901' is 11 characters long; the field takes 10"},
      {{"IV_NUMC=123456789"}, "IV_NUMC: '123456789' is 9 digits long; the field takes 8"},
      {{"IV_RAW=AAAAAAA="}, "IV_RAW: 'AAAAAAA=' is 5 bytes long; the field takes 4"},
      {{"IV_PACKED=12345678901234"}, "IV_PACKED: '12345678901234' has 14 digits before the point; the field takes 13"},
      {{"IV_PACKED=1.234"}, "IV_PACKED: '1.234' has 3 decimals; the field takes 2"},
      {{"IV_INT2=40000"}, "IV_INT2: 40000 is out of range (-32768 to 32767)"},
      {{"IV_INT1=256"}, "IV_INT1: 256 is out of range (0 to 255)"},
      {{"IV_INT1=-1"}, "IV_INT1: -1 is out of range (0 to 255)"},
      {{"IV_INT=2147483648"}, "IV_INT: 2147483648 is out of range"},
      {{"IS_FLAT={\"CHAR\":\"12345678901\"}"}, "IS_FLAT.CHAR: '12345678901' is 11 characters long; the field takes 10"},
      {{"IS_FLAT={\"PACKED\":\"12345678901234\"}"}, "IS_FLAT.PACKED: '12345678901234' has 14 digits before the point"},
      {{"IT_FLAT=[{},{\"NUMC\":\"123456789\"}]"}, "IT_FLAT[2].NUMC: '123456789' is 9 digits long; the field takes 8"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = {"call", "Z_VSIM_TYPES"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    RunResult r = veltrane(args);
    EXPECT_EQ(r.status, 2) << c.args[0] << "\n" << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << "expected: " << c.message << "\nstderr: " << r.err;
  }
  // The largest values that fit go through.
  RunResult r = veltrane({"call", "Z_VSIM_TYPES", "IV_CHAR=1234567890", "IV_NUMC=12345678",
                          "IV_RAW=3q2+7w==", "IV_PACKED=-1234567890123.45",
                          "IS_FLAT={\"CHAR\":\"\xE6\x97\xA5\xE6\x9C\xAC"
                          "12345678\"}"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["exporting"]["EV_PACKED"], "-1234567890123.45");
}

TEST_F(CliDaily, ANegativeIntegerOverSoapIsExplained) {
  RunResult r = veltrane({"call", "Z_VSIM_TYPES", "IV_INT=-1"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("IV_INT: -1 cannot be sent over the soap back end: it writes integers as unsigned 32-bit text "
                       "(4294967295), which the system refuses"),
            std::string::npos)
      << r.err;
}

TEST_F(CliDaily, OnlyTheResultsAskedFor) {
  const std::string range =
      "DATE_RANGE=[{\"SIGN\":\"I\",\"OPTION\":\"BT\",\"LOW\":\"2025-01-01\",\"HIGH\":\"2025-01-31\"}]";
  RunResult r = veltrane({"call", "BAPI_FLIGHT_GETLIST", "AIRLINE=LH", range});
  EXPECT_OK(r);
  Json j = json(r);
  // The input table is not echoed back.
  EXPECT_FALSE(j["tables"].contains("DATE_RANGE")) << r.out;
  EXPECT_TRUE(j["tables"].contains("FLIGHT_LIST"));
  EXPECT_TRUE(j["exporting"].contains("RETURN") || j["tables"].contains("RETURN"));
  const size_t flights = j["tables"]["FLIGHT_LIST"].size();
  EXPECT_GT(flights, 0u);

  r = veltrane({"call", "BAPI_FLIGHT_GETLIST", "AIRLINE=LH", range, "--only", "flight_list"});
  EXPECT_OK(r);
  j = json(r);
  EXPECT_EQ(j["exporting"].size(), 0u);
  EXPECT_EQ(j["tables"].size(), 1u) << r.out;
  EXPECT_EQ(j["tables"]["FLIGHT_LIST"].size(), flights);

  r = veltrane({"call", "BAPI_FLIGHT_GETLIST", "AIRLINE=LH", range, "--only", "FLIGHT_LIST,DATE_RANGE"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["tables"]["DATE_RANGE"].size(), 1u) << r.out;

  r = veltrane({"call", "BAPI_FLIGHT_GETLIST", "--only", "NOPE"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("--only: BAPI_FLIGHT_GETLIST returns no parameter NOPE"), std::string::npos) << r.err;
}

TEST_F(CliDaily, TheHelpExampleReturnsFlights) {
  RunResult help = bare({"call", "--help"});
  const size_t at = help.out.find("  veltrane call BAPI_FLIGHT_GETLIST");
  ASSERT_NE(at, std::string::npos) << help.out;
  std::string example = help.out.substr(at, help.out.find("'\n", at) + 1 - at);
  example.replace(example.find("veltrane"), 8, quoted(VELTRANE_CLI_PROGRAM));
  RunResult r = shell(example + " --port " + std::to_string(sim_->soapPort()) + " --user DEMO");
  EXPECT_OK(r);
  EXPECT_GT(json(r)["tables"]["FLIGHT_LIST"].size(), 0u) << r.out;
}

TEST_F(CliDaily, DescribeAsJsonWithTypeNames) {
  RunResult r = veltrane({"describe", "Z_VSIM_TYPES", "--format", "json"});
  EXPECT_OK(r);
  Json j = json(r);
  EXPECT_EQ(j["function"], "Z_VSIM_TYPES");
  std::map<std::string, Json> byName;
  for (const auto& p : j["parameters"]) byName[p["name"].get<std::string>()] = p;
  EXPECT_EQ(byName["IV_CHAR"]["direction"], "importing");
  EXPECT_EQ(byName["IV_CHAR"]["abapType"], "CHAR");
  EXPECT_EQ(byName["IV_CHAR"]["length"], 10);
  EXPECT_EQ(byName["IV_NUMC"]["length"], 8);
  EXPECT_EQ(byName["IV_RAW"]["abapType"], "RAW");
  EXPECT_EQ(byName["IV_RAW"]["length"], 4);
  EXPECT_EQ(byName["IV_PACKED"]["abapType"], "PACKED");
  EXPECT_EQ(byName["IV_PACKED"]["length"], 15);
  EXPECT_EQ(byName["IV_PACKED"]["decimals"], 2);
  EXPECT_EQ(byName["EV_INT"]["direction"], "exporting");
  EXPECT_EQ(byName["IS_FLAT"]["kind"], "structure");
  EXPECT_EQ(byName["IS_FLAT"]["fields"][0]["name"], "CHAR");
  EXPECT_EQ(byName["IS_FLAT"]["fields"][0]["length"], 10);
  EXPECT_EQ(byName["IS_FLAT"]["fields"][5]["abapType"], "PACKED");
  EXPECT_EQ(byName["IS_FLAT"]["fields"][5]["length"], 15);
  EXPECT_EQ(byName["IT_FLAT"]["kind"], "table");
  EXPECT_EQ(byName["IT_FLAT"]["rowType"]["fields"][1]["abapType"], "NUMC");
  r = veltrane({"describe", "Z_VSIM_TYPES", "--format", "table"});
  EXPECT_EQ(r.status, 2);
}

}  // namespace

namespace {

// ---- one session, many calls ----------------------------------------------

class CliSession : public CliReadTable {
 protected:
  // The program with this environment and exactly these arguments.
  RunResult run(const std::vector<std::string>& args, std::map<std::string, std::optional<std::string>> env = {},
                const std::string& input = {}) {
    env.emplace("VELTRANE_PASSWORD", std::string("Welcome1"));
    env.emplace("XDG_CONFIG_HOME", (dir_ / "config").string());
    env.emplace("XDG_CACHE_HOME", (dir_ / "cache").string());
    if (input.empty()) return clitest::runProgram(VELTRANE_CLI_PROGRAM, args, env);
    const std::string in = file("input.jsonl", input);
    std::string line = quoted(VELTRANE_CLI_PROGRAM);
    for (const auto& a : args) line += " " + quoted(a);
    return clitest::runProgram("/bin/bash", {"-c", line + " < " + quoted(in)}, env);
  }
  void destinations(const std::string& text) {
    fs::create_directories(dir_ / "config" / "veltrane");
    std::ofstream(dir_ / "config" / "veltrane" / "destinations.ini") << text;
  }
  std::string simDestination() {
    return "# the simulated system\n[sim]\nbackend = soap\nport = " + std::to_string(sim_->soapPort()) +
           "\nclient = 001\nuser = demo\nlang = EN\n\n[other]\nport = 1\n";
  }
};

TEST_F(CliSession, ADestinationGivesTheConnectionSettings) {
  destinations(simDestination());
  RunResult r = run({"ping", "--dest", "sim"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["user"], "DEMO");
  EXPECT_EQ(json(r)["address"], "http://127.0.0.1:" + std::to_string(sim_->soapPort()) + "/sap/bc/soap/rfc");
  // The command line wins over the file.
  r = run({"ping", "--dest", "sim", "--client", "100"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["client"], "100");
  // Another file.
  const std::string other = file("elsewhere.ini", simDestination());
  r = run({"ping", "--dest", "sim", "--dest-file", other}, {{"XDG_CONFIG_HOME", std::string("/nonexistent")}});
  EXPECT_OK(r);
}

TEST_F(CliSession, ADestinationForTheNwRfcBackEnd) {
  destinations("[nw]\nbackend = nwrfc\ngwserv = " + std::to_string(sim_->rfcPort()) + "\nuser = DEMO\n");
  RunResult r = run({"ping", "--dest", "nw"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["sessionType"], "NWRFC") << r.out;
}

TEST_F(CliSession, BadDestinationsAreRefused) {
  struct Case {
    std::string name;
    std::string message;
  } cases[] = {
      {"secret", "destinations.ini:12: a destination holds no password"},
      {"typo", "destinations.ini:12: 'hots' is not a connection option"},
      {"broken", "destinations.ini:12: expected KEY = VALUE"},
  };
  for (const auto& c : cases) {
    destinations(simDestination() + "[" + c.name + "]\n" +
                 (c.name == "secret" ? "password = Welcome1\n"
                  : c.name == "typo" ? "hots = x\n"
                                     : "junk\n"));
    RunResult r = run({"ping", "--dest", c.name});
    EXPECT_EQ(r.status, 2) << c.name;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << c.name << ": " << r.err;
  }
  destinations(simDestination());
  RunResult r = run({"ping", "--dest", "nope"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("no destination [nope] in "), std::string::npos) << r.err;
  r = run({"ping", "--dest", "sim", "--dest-file", "/no/such/file"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("cannot read the destinations file '/no/such/file'"), std::string::npos) << r.err;
}

TEST_F(CliSession, TheSecondCallOfABapiNeedsNoDictionary) {
  destinations(simDestination());
  const std::vector<std::string> args = {"call", "BAPI_FLIGHT_GETLIST", "AIRLINE=LH", "--dest", "sim"};
  long before = requests();
  RunResult first = run(args);
  EXPECT_OK(first);
  const long firstRequests = requests() - before - 1;
  EXPECT_TRUE(fs::exists(dir_ / "cache" / "veltrane" / ("soap-127.0.0.1_" + std::to_string(sim_->soapPort())) / "001" /
                         "BAPI_FLIGHT_GETLIST.xml"));
  before = requests();
  RunResult second = run(args);
  EXPECT_OK(second);
  // The call alone: it proves the logon itself, without a ping.
  EXPECT_EQ(requests() - before - 1, 1);
  EXPECT_GT(firstRequests, 2);
  EXPECT_EQ(json(second), json(first));
  // --refresh imports again.
  std::vector<std::string> refresh = args;
  refresh.push_back("--refresh");
  before = requests();
  EXPECT_OK(run(refresh));
  EXPECT_EQ(requests() - before - 1, firstRequests);
}

TEST_F(CliSession, ACallWithoutPingStillTellsLogonAndCommunicationFailuresApart) {
  destinations(simDestination());
  // DEVELOPER, so that the failed logon counts against no user of the other tests.
  RunResult r = run({"call", "STFC_CONNECTION", "--dest", "sim", "--user", "DEVELOPER"},
                    {{"VELTRANE_PASSWORD", std::string("wrong")}});
  EXPECT_EQ(r.status, 3) << r.err;
  EXPECT_NE(r.err.find("401"), std::string::npos) << r.err;
  // The same with the interface cached: the call is the first request.
  const std::string xml = file("stfc_logon.xml", run({"describe", "STFC_CONNECTION", "--dest", "sim"}).out);
  r = run({"call", "STFC_CONNECTION", "--interface", xml, "--dest", "sim", "--user", "DEVELOPER"},
          {{"VELTRANE_PASSWORD", std::string("wrong")}});
  EXPECT_EQ(r.status, 3) << r.err;
  r = run({"call", "STFC_CONNECTION", "--interface", xml, "--port", "1", "--user", "DEMO", "--error-format", "json"});
  EXPECT_EQ(r.status, 4) << r.err;
  EXPECT_EQ(Json::parse(r.err)["cause"], "connection refused") << r.err;
  // A connection that breaks in the answer.
  control("fault?fault=close&user=DEMO");
  r = run({"call", "STFC_CONNECTION", "--interface", xml, "--dest", "sim"});
  EXPECT_EQ(r.status, 4) << r.err;
  EXPECT_NE(r.err.find("calling STFC_CONNECTION failed: connection reset"), std::string::npos) << r.err;
  // --stateful opens its context with the ping, as ever.
  const long before = requests();
  EXPECT_OK(run({"call", "STFC_CONNECTION", "--interface", xml, "--dest", "sim", "--stateful"}));
  EXPECT_EQ(requests() - before - 1, 3);  // the ping that opens the context, the call, the ping that ends it
}

TEST_F(CliSession, AnInterfaceFromAFile) {
  destinations(simDestination());
  RunResult described = run({"describe", "STFC_CONNECTION", "--dest", "sim"});
  EXPECT_OK(described);
  const std::string xml = file("stfc.xml", described.out);
  const long before = requests();
  RunResult r = run({"call", "STFC_CONNECTION", "REQUTEXT=offline", "--interface", xml, "--dest", "sim"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["exporting"]["ECHOTEXT"], "offline");
  EXPECT_EQ(requests() - before - 1, 1);
  // A user who may call STFC_CONNECTION but not read the dictionary.
  r = run({"call", "STFC_CONNECTION", "REQUTEXT=x", "--dest", "sim", "--user", "RESTRICTED", "--refresh"});
  EXPECT_NE(r.status, 0) << r.out;
  r = run({"call", "STFC_CONNECTION", "REQUTEXT=allowed", "--interface", xml, "--dest", "sim", "--user", "RESTRICTED"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["exporting"]["ECHOTEXT"], "allowed");
  r = run({"call", "RFC_PING", "--interface", xml, "--dest", "sim"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("describes STFC_CONNECTION, not RFC_PING"), std::string::npos) << r.err;
}

TEST_F(CliSession, ABatchRunsInOneSession) {
  destinations(simDestination());
  const std::string input =
      "{\"function\":\"Z_VSIM_COUNTER\",\"parameters\":{\"STEP\":2},\"id\":\"first\"}\n"
      "\n"
      "{\"function\":\"z_vsim_counter\",\"only\":[\"VALUE\"]}\n"
      "not json\n"
      "{\"function\":\"Z_VSIM_RAISE\",\"parameters\":{\"EXCEPTION\":\"NOT_FOUND\"}}\n"
      "{\"function\":\"Z_VSIM_COUNTER\",\"parameters\":{\"STEP\":10}}\n";
  RunResult r = run({"batch", "--dest", "sim", "--stateful"}, {}, input);
  EXPECT_EQ(r.status, 2) << r.err;  // the first failure: the line that is no JSON
  std::vector<Json> lines;
  std::istringstream out(r.out);
  for (std::string l; std::getline(out, l);) lines.push_back(Json::parse(l));
  ASSERT_EQ(lines.size(), 5u) << r.out;
  EXPECT_EQ(lines[0]["id"], "first");
  EXPECT_EQ(lines[0]["result"]["exporting"]["VALUE"], 2);
  EXPECT_EQ(lines[1]["line"], 3);
  EXPECT_EQ(lines[1]["result"]["exporting"], Json({{"VALUE", 3}}));
  EXPECT_EQ(lines[2]["error"]["kind"], "usage");
  EXPECT_EQ(lines[3]["error"]["key"], "NOT_FOUND");
  EXPECT_EQ(lines[3]["error"]["status"], 5);
  // The same ABAP session all along.
  EXPECT_EQ(lines[4]["result"]["exporting"]["VALUE"], 13);
  EXPECT_EQ(lines[4]["result"]["exporting"]["CALLS"], 3);

  r = run({"batch", "--dest", "sim", "--stop-on-error"}, {}, input);
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 3) << r.out;
}

}  // namespace

namespace {

// ---- transport ------------------------------------------------------------

// A TLS front for the simulator (tls_proxy.py) with a certificate of its
// own for 127.0.0.1, made with openssl.
class TlsFront {
 public:
  TlsFront(const fs::path& dir, unsigned short target) : cert_((dir / "cert.pem").string()) {
    const std::string key = (dir / "key.pem").string();
    RunResult made = clitest::runProgram(
        "/usr/bin/openssl", {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", cert_, "-days",
                             "1", "-subj", "/CN=localhost", "-addext", "subjectAltName=IP:127.0.0.1,DNS:localhost"});
    if (made.status != 0) throw std::runtime_error("openssl: " + made.err);
    int out[2];
    if (::pipe(out) != 0) throw std::runtime_error("pipe");
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(out[1], 1);
      ::close(out[0]);
      ::execlp("python3", "python3", VELTRANE_CLI_TLS_PROXY, cert_.c_str(), key.c_str(), std::to_string(target).c_str(),
               static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(out[1]);
    std::string line;
    char c;
    while (::read(out[0], &c, 1) == 1 && c != '\n') line += c;
    ::close(out[0]);
    if (line.rfind("port=", 0) != 0) throw std::runtime_error("no port from the TLS front: " + line);
    port_ = std::stoi(line.substr(5));
  }
  ~TlsFront() {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  int port() const { return port_; }
  const std::string& cert() const { return cert_; }

 private:
  std::string cert_;
  pid_t pid_ = -1;
  int port_ = 0;
};

TEST_F(CliDaily, HttpsVerifiesTheServer) {
  TlsFront front(dir_, sim_->soapPort());
  const std::string port = std::to_string(front.port());
  RunResult r = clitest::runProgram(VELTRANE_CLI_PROGRAM,
                                    {"call", "STFC_CONNECTION", "REQUTEXT=tls", "--https", "--ca-file", front.cert(),
                                     "--port", port, "--user", "DEMO"},
                                    {{"VELTRANE_PASSWORD", std::string("Welcome1")}});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["exporting"]["ECHOTEXT"], "tls");
  // Without the certificate's authority the server is not trusted.
  r = clitest::runProgram(VELTRANE_CLI_PROGRAM, {"ping", "--https", "--port", port, "--user", "DEMO"},
                          {{"VELTRANE_PASSWORD", std::string("Welcome1")}});
  EXPECT_EQ(r.status, 4);
  EXPECT_NE(r.err.find("connecting to https://127.0.0.1:" + port +
                       "/sap/bc/soap/rfc failed: the server's certificate was not accepted"),
            std::string::npos)
      << r.err;
  // HTTPS to a server that speaks HTTP.
  r = veltrane({"ping", "--https"});
  EXPECT_EQ(r.status, 4);
  EXPECT_NE(r.err.find("failed: no TLS handshake with the server"), std::string::npos) << r.err;
  r = veltrane({"ping", "--ca-file", front.cert()});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("--ca-file goes with --https"), std::string::npos) << r.err;
}

TEST_F(CliDaily, APasswordOverPlainHttpBeyondLoopbackIsWarnedOf) {
  // Through a proxy that is not there: the warning comes before anything is sent.
  RunResult r = clitest::runProgram(VELTRANE_CLI_PROGRAM,
                                    {"ping", "--host", "sap.example.com", "--proxy", "127.0.0.1:1", "--user", "DEMO"},
                                    {{"VELTRANE_PASSWORD", std::string("x")}});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("veltrane: warning: the password goes to sap.example.com over plain HTTP, readable on the way; "
                       "use --https"),
            std::string::npos)
      << r.err;
  r = veltrane({"ping"});
  EXPECT_OK(r);
  EXPECT_EQ(r.err.find("warning"), std::string::npos) << r.err;
}

TEST_F(CliDaily, HostAndEndpointCannotChangeTheUrl) {
  struct Case {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"--host", "127.0.0.1/evil?x="}, "option --host: '127.0.0.1/evil?x=' is not a host name or an IP address"},
      {{"--host", "user@127.0.0.1"}, "is not a host name or an IP address"},
      {{"--host", "a b"}, "is not a host name or an IP address"},
      {{"--endpoint", "sap/bc/soap/rfc?sap-client=000"},
       "option --endpoint: 'sap/bc/soap/rfc?sap-client=000' is not a path"},
      {{"--endpoint", "sap/../x"}, "is not a path"},
      {{"--endpoint", "a#b"}, "is not a path"},
      {{"--client", "00%"}, "option --client: '00%' is not a client"},
      {{"--port", "80/x"}, "option --port: '80/x' is not a port number"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = {"ping"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    RunResult r = clitest::runProgram(VELTRANE_CLI_PROGRAM, args, {{"VELTRANE_PASSWORD", std::string("x")}});
    EXPECT_EQ(r.status, 2) << c.args[1];
    EXPECT_NE(r.err.find(c.message), std::string::npos) << c.message << "\n" << r.err;
  }
}

}  // namespace
