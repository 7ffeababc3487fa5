// veltrane bsp under an X server against the BSP pages of veltrane-sim: the
// window opens, reaches the exit page and the returned parameters are
// printed; without a display the command says so.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>

#include "program_runner.h"
#include "testing/sim_process.h"

using Json = nlohmann::ordered_json;
using clitest::RunResult;

namespace {

// The display of the test run's Xvfb, or $DISPLAY; empty if none.
std::string TestDisplay() {
  std::ifstream file(VELTRANE_TEST_DISPLAY_FILE);
  std::string display;
  if (file && std::getline(file, display) && !display.empty()) return display;
  const char* own = std::getenv("DISPLAY");
  return own ? own : "";
}

class CliBsp : public ::testing::Test {
 protected:
  RunResult Bsp(std::vector<std::string> args, const std::optional<std::string>& display) {
    args.insert(args.end(), {"--port", std::to_string(sim.soapPort()), "--user", "DEMO"});
    // The sanitizer build's leak checker stumbles over the dynamic TLS of the
    // toolkit's libraries, which the window module loads late.
    const char* asan = std::getenv("ASAN_OPTIONS");
    return clitest::runProgram(VELTRANE_CLI_PROGRAM, args,
                               {{"VELTRANE_PASSWORD", std::string("Welcome1")},
                                {"DISPLAY", display},
                                {"WAYLAND_DISPLAY", std::nullopt},
                                {"GDK_BACKEND", std::string("x11")},
                                {"ASAN_OPTIONS", std::string(asan ? asan : "") + ":intercept_tls_get_addr=0"}});
  }
  vsim::testing::SimProcess sim;
};

}  // namespace

TEST_F(CliBsp, ShowsThePageAndPrintsTheReturnedParameters) {
  const std::string display = TestDisplay();
  if (display.empty()) GTEST_SKIP() << "no display: the test run has no Xvfb (install xvfb) and DISPLAY is not set";
  const RunResult r = Bsp({"bsp", "/sap/bc/bsp/sap/zvsim_bsp/finish.htm", "--exit-page", "exit.htm", "--param",
                           "ORDER=4711", "--param", "MODE=edit"},
                          display);
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  const Json out = Json::parse(r.out);
  EXPECT_EQ(out, Json::parse(R"({"parameters": [{"name": "sap-client", "value": "001"},
                                                {"name": "sap-language", "value": "EN"},
                                                {"name": "ORDER", "value": "4711"},
                                                {"name": "MODE", "value": "edit"}]})"));
}

TEST_F(CliBsp, SapParamsComeBackAsATable) {
  const std::string display = TestDisplay();
  if (display.empty()) GTEST_SKIP() << "no display: the test run has no Xvfb (install xvfb) and DISPLAY is not set";
  const RunResult r = Bsp({"bsp", "/sap/bc/bsp/sap/zvsim_bsp/sapparams.htm", "--exit-page", "exit.htm", "--param",
                           "A=1", "--format", "table"},
                          display);
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_EQ(r.out,
            "NAME          VALUE\n"
            "------------  -----\n"
            "sap-client    001\n"
            "sap-language  EN\n"
            "A             1\n");
}

TEST_F(CliBsp, WithoutADisplayTheCommandSaysSo) {
  const RunResult r = Bsp({"bsp", "/sap/bc/bsp/sap/zvsim_bsp/start.htm"}, std::nullopt);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("showing the application failed: no display to show the window on"), std::string::npos) << r.err;
}

TEST_F(CliBsp, ABadParameterIsAUsageError) {
  const RunResult r = Bsp({"bsp", "/a.htm", "--param", "novalue"}, std::nullopt);
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("option --param: 'novalue' is not NAME=VALUE"), std::string::npos) << r.err;
}
