// The built veltrane program with --backend nwrfc against veltrane-sim's RFC
// front: every command, transactional calls, the SDK it takes, failures.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "program_runner.h"
#include "testing/sim_process.h"

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using clitest::RunResult;

namespace {

class CliNwRfc : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { sim_ = new vsim::testing::SimProcess(); }
  static void TearDownTestSuite() {
    if (sim_) sim_->stop();
    delete sim_;
    sim_ = nullptr;
  }

  // The program on the NW back end, at the simulator's RFC front, as `user`.
  static RunResult veltrane(std::vector<std::string> args, const std::string& user = "DEMO",
                            std::map<std::string, std::optional<std::string>> env = {}) {
    args.insert(args.end(), {"--backend", "nwrfc", "--gwserv", std::to_string(sim_->rfcPort()), "--user", user});
    env.emplace("VELTRANE_PASSWORD", "Welcome1");
    env.emplace("SAPNWRFC_HOME", std::nullopt);
    env.emplace("LD_LIBRARY_PATH", std::nullopt);
    return clitest::runProgram(VELTRANE_CLI_PROGRAM, args, env);
  }

  static Json json(const RunResult& r) { return clitest::outputJson(r); }

  static vsim::testing::SimProcess* sim_;
};

vsim::testing::SimProcess* CliNwRfc::sim_ = nullptr;

#define EXPECT_OK(r) EXPECT_EQ((r).status, 0) << "stdout:\n" << (r).out << "\nstderr:\n" << (r).err

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST_F(CliNwRfc, PingTellsWhichSdkItTook) {
  RunResult r = veltrane({"ping"});
  EXPECT_OK(r);
  const Json j = json(r);
  EXPECT_EQ(j["sessionType"], "NWRFC");
  EXPECT_EQ(j["address"], "nwrfc: ashost=127.0.0.1 gwserv=" + std::to_string(sim_->rfcPort()));
  EXPECT_TRUE(Contains(r.err, "using Veltrane's own ")) << r.err;
  EXPECT_TRUE(Contains(r.err, std::string(VELTRANE_NWRFC_SDK_DIR) + "/libsapnwrfc.so")) << r.err;
}

TEST_F(CliNwRfc, AnSdkDirectoryGivenIsTakenWithoutANote) {
  RunResult r = veltrane({"ping", "--sdk", VELTRANE_NWRFC_SDK_DIR});
  EXPECT_OK(r);
  EXPECT_FALSE(Contains(r.err, "using")) << r.err;
  r = veltrane({"ping", "--sdk", "/nonexistent/nwrfcsdk/lib"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(Contains(r.err, "'sapnwrfc.dll' not found, install NWRFCSDK and/or set option 'nwrfc.path'")) << r.err;
}

TEST_F(CliNwRfc, AnSdkTheLoaderFindsOrSapnwrfcHomeNamesIsPreferred) {
  RunResult r = veltrane({"ping"}, "DEMO", {{"LD_LIBRARY_PATH", VELTRANE_NWRFC_SDK_DIR}});
  EXPECT_OK(r);
  EXPECT_TRUE(Contains(r.err, "(found by the loader)")) << r.err;
  const fs::path home = fs::temp_directory_path() / ("veltrane-cli-sdk-" + std::to_string(getpid()));
  fs::create_directories(home);
  fs::create_directory_symlink(VELTRANE_NWRFC_SDK_DIR, home / "lib");
  r = veltrane({"ping"}, "DEMO", {{"SAPNWRFC_HOME", home.string()}});
  EXPECT_OK(r);
  EXPECT_TRUE(Contains(r.err, "($SAPNWRFC_HOME)")) << r.err;
  fs::remove_all(home);
}

TEST_F(CliNwRfc, EveryCommandWorks) {
  RunResult r = veltrane({"call", "STFC_CONNECTION", "REQUTEXT=over NW"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["exporting"]["ECHOTEXT"], "over NW");
  r = veltrane({"describe", "STFC_CONNECTION"});
  EXPECT_OK(r);
  EXPECT_TRUE(Contains(r.out, "<importing name=\"REQUTEXT\"")) << r.out;
  r = veltrane({"read-table", "SCARR", "--fields", "CARRID,CARRNAME", "--where", "CARRID = 'LH'"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["rows"][0]["CARRNAME"], "Lufthansa");
  r = veltrane({"check-password"}, "EXPIRED");
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["passwordExpired"], true);
  r = veltrane({"check-unicode"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["unicode"], true);
}

TEST_F(CliNwRfc, ValuesTravelBothWays) {
  RunResult r = veltrane({"call", "Z_VSIM_TYPES", "IV_CHAR=abc", "IV_DATE=2024-02-29", "IV_TIME=23:59:58",
                          "IV_PACKED=-12.50", "IV_INT=-1", "IV_INT2=300", "IV_STRING= s ", "IV_XSTRING=AQID",
                          R"(IT_FLAT=[{"CHAR":"r1","INT":1},{"CHAR":"r2","INT":2}])"});
  EXPECT_OK(r);
  const Json e = json(r)["exporting"];
  EXPECT_EQ(e["EV_CHAR"], "abc");
  EXPECT_EQ(e["EV_DATE"], "2024-02-29");
  EXPECT_EQ(e["EV_TIME"], "23:59:58");
  EXPECT_EQ(e["EV_PACKED"], "-12.50");
  EXPECT_EQ(e["EV_INT"], 4294967295LL) << "INT reads as its unsigned 32 bits";
  EXPECT_EQ(e["EV_INT2"], 300);
  EXPECT_EQ(e["EV_STRING"], " s ");
  EXPECT_EQ(e["EV_XSTRING"], "AQID");
  ASSERT_EQ(e["ET_FLAT"].size(), 2u);
  EXPECT_EQ(e["ET_FLAT"][1]["CHAR"], "r2");
}

TEST_F(CliNwRfc, ATransactionalCallSentTwiceRunsOnce) {
  const std::string key = "CLI-" + std::to_string(getpid());
  RunResult r = veltrane({"call", "--trfc", "--send", "2", "--confirm", "Z_VSIM_COUNT_RUNS", "KEY=" + key});
  EXPECT_OK(r);
  const Json j = json(r);
  EXPECT_EQ(j["tid"].get<std::string>().size(), 24u);
  EXPECT_EQ(j["sent"], 2);
  EXPECT_EQ(j["confirmed"], true);
  r = veltrane({"call", "Z_VSIM_COUNT_RUNS", "KEY=" + key, "READ_ONLY=X"});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["exporting"]["RUNS"], 1);
}

TEST_F(CliNwRfc, IdsOfOtherSessionsAreRefusedWithTheReason) {
  RunResult r = veltrane({"call", "--trfc", "--tid", "0A0B0C0D0E0F101112131415", "RFC_PING"});
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(Contains(r.err, "--tid: the nwrfc back end knows only the transaction IDs its own session created"))
      << r.err;
  r = veltrane({"confirm", "0A0B0C0D0E0F101112131415"});
  EXPECT_EQ(r.status, 2);
  r = veltrane({"call", "--send", "2", "RFC_PING"});
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(Contains(r.err, "--tid, --send and --confirm go with --trfc")) << r.err;
}

TEST_F(CliNwRfc, FailuresOfTheSystemShowErrorInfo) {
  RunResult r = veltrane({"call", "Z_VSIM_RAISE", "EXCEPTION=NOT_FOUND"});
  EXPECT_EQ(r.status, 5);
  EXPECT_TRUE(Contains(r.err, "RFCERROR_APPLICATION_EXCEPTION (105)")) << r.err;
  EXPECT_TRUE(Contains(r.err, "NOT_FOUND")) << r.err;
  r = clitest::runProgram(VELTRANE_CLI_PROGRAM,
                          {"ping", "--backend", "nwrfc", "--gwserv", std::to_string(sim_->rfcPort()), "--user", "DEMO"},
                          {{"VELTRANE_PASSWORD", "wrong"}});
  EXPECT_EQ(r.status, 3);
  EXPECT_TRUE(Contains(r.err, "RFCERROR_LOGON_FAILURE (103)")) << r.err;
}

TEST_F(CliNwRfc, ADestinationOfTheIniFile) {
  const fs::path dir = fs::temp_directory_path() / ("veltrane-cli-ini-" + std::to_string(getpid()));
  fs::create_directories(dir);
  std::ofstream(dir / "sapnwrfc.ini") << "DEST=VSIM\nASHOST=127.0.0.1\nGWSERV=" << sim_->rfcPort() << "\n";
  RunResult r =
      clitest::runProgram(VELTRANE_CLI_PROGRAM,
                          {"ping", "--backend", "nwrfc", "--sdk-dest", "VSIM", "--ini", dir.string(), "--user", "DEMO"},
                          {{"VELTRANE_PASSWORD", "Welcome1"}});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["address"], "nwrfc: dest=VSIM");
  fs::remove_all(dir);
}

}  // namespace
