// The built veltrane program with --backend rfc against veltrane-sim's RFC
// front: the lengths and values the classic back end carries.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "program_runner.h"
#include "testing/sim_process.h"

using Json = nlohmann::ordered_json;
using clitest::RunResult;

namespace {

class CliRfc : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { sim_ = new vsim::testing::SimProcess(); }
  static void TearDownTestSuite() {
    if (sim_) sim_->stop();
    delete sim_;
    sim_ = nullptr;
  }

  // The program on the classic back end (Veltrane's own SDK beside it), at
  // the simulator's RFC front.
  static RunResult veltrane(std::vector<std::string> args) {
    args.insert(args.end(), {"--backend", "rfc", "--gwserv", std::to_string(sim_->rfcPort()), "--connect", "TOUPPER=0",
                             "--user", "DEMO"});
    return clitest::runProgram(
        VELTRANE_CLI_PROGRAM, args,
        {{"VELTRANE_PASSWORD", "Welcome1"}, {"SAPRFC_HOME", std::nullopt}, {"LD_LIBRARY_PATH", std::nullopt}});
  }

  static Json parameter(const Json& interface, const std::string& name) {
    for (const Json& p : interface["parameters"])
      if (p["name"] == name) return p;
    return Json();
  }
  static Json field(const Json& structure, const std::string& name) {
    for (const Json& f : structure["fields"])
      if (f["name"] == name) return f;
    return Json();
  }

  static vsim::testing::SimProcess* sim_;
};

vsim::testing::SimProcess* CliRfc::sim_ = nullptr;

#define EXPECT_OK(r) EXPECT_EQ((r).status, 0) << "stdout:\n" << (r).out << "\nstderr:\n" << (r).err

TEST_F(CliRfc, DescribeGivesCharactersAndAPackedMembersDigits) {
  RunResult r = veltrane({"describe", "BAPI_FLIGHT_GETLIST", "--format", "json"});
  EXPECT_OK(r);
  const Json j = clitest::outputJson(r);
  EXPECT_EQ(parameter(j, "AIRLINE")["length"], 3);
  const Json row = parameter(j, "FLIGHT_LIST")["rowType"];
  EXPECT_EQ(field(row, "AIRLINE")["length"], 20);
  EXPECT_EQ(field(row, "CONNECTID")["length"], 4);
  // P12.4: 23 digits, not 12 bytes.
  EXPECT_EQ(field(row, "PRICE")["length"], 23);
  EXPECT_EQ(field(row, "PRICE")["decimals"], 4);
}

TEST_F(CliRfc, ATextIsCheckedAgainstItsCharactersBeforeSending) {
  RunResult r = veltrane({"call", "BAPI_FLIGHT_GETLIST", "AIRLINE=LHXX"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("AIRLINE: 'LHXX' is 4 characters long; the field takes 3"), std::string::npos) << r.err;
  r = veltrane({"call", "BAPI_FLIGHT_GETLIST", "AIRLINE=LH", "MAX_ROWS=1"});
  EXPECT_OK(r);
  EXPECT_EQ(clitest::outputJson(r)["tables"]["FLIGHT_LIST"].size(), 1u);
}

TEST_F(CliRfc, ANegativeIntegerGoesOut) {
  RunResult r = veltrane({"call", "Z_VSIM_WAIT", "MILLISECONDS=-5"});
  EXPECT_OK(r);
  EXPECT_EQ(clitest::outputJson(r)["exporting"]["WAITED"], 0);
}

}  // namespace
