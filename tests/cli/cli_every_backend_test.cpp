// What the command shows of the system on every back end: an ABAP message
// with its four variables in a failure as JSON, and a BAPI whose change
// BAPI_TRANSACTION_COMMIT saves within the one session of a batch.
#include <algorithm>
#include <sstream>

#include "cli_fixture.h"

using clitest::Json;
using clitest::RunResult;

namespace {

class CliOnEveryBackend : public clitest::CliProgram, public ::testing::WithParamInterface<std::string> {
 protected:
  // The program on the back end of the test, at the simulator.
  RunResult on(std::vector<std::string> args, const std::string& input = {}) {
    const std::string backend = GetParam();
    if (backend == "soap") {
      args.insert(args.end(), {"--port", std::to_string(sim_->soapPort())});
    } else {
      args.insert(args.end(), {"--backend", backend, "--gwserv", std::to_string(sim_->rfcPort()), "--sdk",
                               backend == "nwrfc" ? VELTRANE_NWRFC_SDK_DIR : VELTRANE_RFC_SDK_DIR});
      // The classic SDK sends the password in capitals unless told otherwise.
      if (backend == "rfc") args.insert(args.end(), {"--connect", "TOUPPER=0"});
    }
    args.insert(args.end(), {"--user", "DEMO"});
    std::map<std::string, std::optional<std::string>> env = {{"VELTRANE_PASSWORD", std::string("Welcome1")}};
    if (input.empty()) return clitest::runProgram(VELTRANE_CLI_PROGRAM, args, env);
    std::string line = "'" VELTRANE_CLI_PROGRAM "'";
    for (const auto& a : args) line += " '" + a + "'";
    return clitest::runProgram("/bin/bash", {"-c", line + " < '" + file("input.jsonl", input) + "'"}, env);
  }
  static std::vector<Json> lines(const std::string& out) {
    std::vector<Json> result;
    std::istringstream in(out);
    for (std::string l; std::getline(in, l);) result.push_back(Json::parse(l));
    return result;
  }
  // The batch that creates a note, commits, creates another and rolls it back.
  static std::string noteBatch(const std::string& key) {
    const std::string k = "\"KEY\":\"" + key + "\"";
    return "{\"function\":\"Z_VSIM_NOTE_CREATE\",\"parameters\":{" + k +
           ",\"TEXT\":\"first\"}}\n"
           "{\"function\":\"Z_VSIM_NOTE_GETLIST\",\"parameters\":{" +
           k +
           "}}\n"
           "{\"function\":\"BAPI_TRANSACTION_COMMIT\",\"parameters\":{\"WAIT\":\"X\"}}\n"
           "{\"function\":\"Z_VSIM_NOTE_GETLIST\",\"parameters\":{" +
           k +
           "}}\n"
           "{\"function\":\"Z_VSIM_NOTE_CREATE\",\"parameters\":{" +
           k +
           ",\"TEXT\":\"second\"}}\n"
           "{\"function\":\"BAPI_TRANSACTION_ROLLBACK\"}\n"
           "{\"function\":\"BAPI_TRANSACTION_COMMIT\"}\n"
           "{\"function\":\"Z_VSIM_NOTE_GETLIST\",\"parameters\":{" +
           k + "}}\n";
  }
};

TEST_P(CliOnEveryBackend, AnAbapMessageComesWithItsFourVariables) {
  const std::string v4 = "a \"quoted\" \\ value";
  RunResult r = on({"call", "Z_VSIM_RAISE", "EXCEPTION=NOT_FOUND", "MESSAGE_ID=ZV", "MESSAGE_NUMBER=002",
                    "MESSAGE_TEXT=Flight & on &", "MESSAGE_V1=LH", "MESSAGE_V2=2025-01-05", "MESSAGE_V4=" + v4,
                    "--error-format", "json"});
  EXPECT_EQ(r.status, 5) << r.err;
  Json j = Json::parse(r.err);
  EXPECT_EQ(j["group"], 105);
  if (GetParam() == "rfc") {
    // The classic session keeps the exception's name alone, as its message; the SDK's error
    // record has group, key and text only.
    EXPECT_EQ(j["message"], "NOT_FOUND");
    EXPECT_FALSE(j.contains("messageV1")) << r.err;
  } else {
    EXPECT_EQ(j["key"], "NOT_FOUND");
    EXPECT_EQ(j["messageClass"], "ZV") << r.err;
    EXPECT_EQ(j["messageType"], "E");
    EXPECT_EQ(j["messageNumber"], "002");
    EXPECT_EQ(j["messageV1"], "LH");
    EXPECT_EQ(j["messageV2"], "2025-01-05");
    EXPECT_EQ(j["messageV3"], "");
    EXPECT_EQ(j["messageV4"], v4);
  }
  // As text, too.
  r = on({"call", "Z_VSIM_RAISE", "EXCEPTION=NOT_FOUND", "MESSAGE_ID=ZV", "MESSAGE_NUMBER=002", "MESSAGE_V1=LH"});
  EXPECT_EQ(r.status, 5);
  if (GetParam() != "rfc")
    EXPECT_NE(r.err.find("abap:    message ZV 002 (E): V1 'LH', V2 ''"), std::string::npos) << r.err;
  // A failure without a message has none, also after one that had.
  r = on({"call", "Z_VSIM_RAISE", "EXCEPTION=FAILED", "--error-format", "json"});
  EXPECT_EQ(r.status, 5);
  EXPECT_FALSE(Json::parse(r.err).contains("messageV1")) << r.err;
}

TEST_P(CliOnEveryBackend, AnErrorMessageCarriesItsVariablesInItsText) {
  RunResult r = on({"call", "Z_VSIM_RAISE", "MESSAGE_ID=ZV", "MESSAGE_NUMBER=003", "MESSAGE_TEXT=Flight & on &",
                    "MESSAGE_V1=LH", "MESSAGE_V2=2025-01-05", "--error-format", "json"});
  const Json j = Json::parse(r.err);
  EXPECT_NE((j["key"].get<std::string>() + j["message"].get<std::string>()).find("Flight LH on 2025-01-05"),
            std::string::npos)
      << r.err;
  if (GetParam() == "rfc") {
    // Nothing tells it from another failure of the system there.
    EXPECT_EQ(r.status, 1) << r.err;
  } else {
    // An ABAP message, not a broken connection.
    EXPECT_EQ(r.status, 5) << r.err;
  }
  if (GetParam() == "nwrfc") EXPECT_EQ(j["messageV2"], "2025-01-05") << r.err;
}

TEST_P(CliOnEveryBackend, ARuntimeErrorIsNoCommunicationFailure) {
  RunResult r = on({"call", "Z_VSIM_RAISE", "RUNTIME_ERROR=COMPUTE_INT_ZERODIV", "--error-format", "json"});
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.err.find("COMPUTE_INT_ZERODIV"), std::string::npos) << r.err;
}

TEST_P(CliOnEveryBackend, ABapiAndItsCommitRunInOneSession) {
  const std::string key = "batch-" + GetParam();
  std::vector<std::string> args = {"batch"};
  if (GetParam() == "soap") args.push_back("--stateful");
  RunResult r = on(args, noteBatch(key));
  EXPECT_OK(r);
  const std::vector<Json> out = lines(r.out);
  ASSERT_EQ(out.size(), 8u) << r.out;
  EXPECT_EQ(out[0]["result"]["exporting"]["RETURN"]["TYPE"], "S") << out[0];
  EXPECT_EQ(out[0]["result"]["exporting"]["NOTE_NO"], 1);
  // Not saved before the commit.
  EXPECT_EQ(out[1]["result"]["tables"]["NOTES"].size(), 0u) << out[1];
  EXPECT_EQ(out[2]["result"]["exporting"]["RETURN"]["TYPE"], "") << out[2];
  ASSERT_EQ(out[3]["result"]["tables"]["NOTES"].size(), 1u) << out[3];
  EXPECT_EQ(out[3]["result"]["tables"]["NOTES"][0]["TEXT"], "first");
  EXPECT_EQ(out[3]["result"]["tables"]["NOTES"][0]["CREATED_BY"], "DEMO");
  // The rolled-back note stays unsaved, though its number is used.
  EXPECT_EQ(out[4]["result"]["exporting"]["NOTE_NO"], 2);
  EXPECT_EQ(out[7]["result"]["tables"]["NOTES"].size(), 1u) << out[7];
  // Another session sees what was committed.
  r = on({"call", "Z_VSIM_NOTE_GETLIST", "KEY=" + key});
  EXPECT_OK(r);
  EXPECT_EQ(json(r)["tables"]["NOTES"].size(), 1u);
}

// Z_VSIM_TYPES has deep structures (IS_DEEP, ES_DEEP) and table types outside
// TABLES (IT_FLAT, ET_FLAT, CT_FLAT). SOAP carries no deep structure, the
// classic back end neither of them, the NW back end all.
std::vector<std::string> leftOutOfTypes(const std::string& backend) {
  if (backend == "soap") return {"IS_DEEP", "ES_DEEP"};
  if (backend == "rfc") return {"IT_FLAT", "IS_DEEP", "ET_FLAT", "ES_DEEP", "CT_FLAT"};
  return {};
}

TEST_P(CliOnEveryBackend, DescribeNamesTheParametersTheBackEndCannotCarry) {
  const std::vector<std::string> expected = leftOutOfTypes(GetParam());
  RunResult r = on({"describe", "Z_VSIM_TYPES", "--format", "json"});
  EXPECT_OK(r);
  const Json j = json(r);
  std::vector<std::string> leftOut, described;
  for (const Json& p : j.at("leftOut")) leftOut.push_back(p["name"]);
  for (const Json& p : j.at("parameters")) described.push_back(p["name"]);
  EXPECT_EQ(leftOut, expected) << j.at("leftOut");
  for (const std::string& name : expected) EXPECT_EQ(std::count(described.begin(), described.end(), name), 0) << name;
  for (const char* name : {"IV_CHAR", "IS_FLAT", "EV_XSTRING", "ES_FLAT", "CV_INT", "CS_FLAT", "TT_FLAT"})
    EXPECT_EQ(std::count(described.begin(), described.end(), name), 1) << name;
  if (!expected.empty()) {
    const Json deep = *std::find_if(j.at("leftOut").begin(), j.at("leftOut").end(),
                                    [](const Json& p) { return p["name"] == "ES_DEEP"; });
    EXPECT_EQ(deep["direction"], "exporting");
    EXPECT_EQ(deep["kind"], "deep structure");
    EXPECT_EQ(deep["type"], "ZVSIM_DEEP");
  }

  // The XML form stays as it is; the note goes to standard error.
  r = on({"describe", "Z_VSIM_TYPES"});
  EXPECT_OK(r);
  EXPECT_EQ(r.out.rfind("<", 0), 0u) << r.out;
  const size_t note = r.err.find("back end leaves out Z_VSIM_TYPES's parameters it cannot carry: ");
  if (expected.empty()) {
    EXPECT_EQ(note, std::string::npos) << r.err;
  } else {
    ASSERT_NE(note, std::string::npos) << r.err;
    EXPECT_NE(r.err.find("IS_DEEP (importing, deep structure ZVSIM_DEEP)", note), std::string::npos) << r.err;
  }
  if (GetParam() == "rfc")
    EXPECT_NE(r.err.find("IT_FLAT (importing, table type ZVSIM_FLAT_TT)"), std::string::npos) << r.err;
}

TEST_P(CliOnEveryBackend, ACallGoesWithTheParametersTheBackEndCarries) {
  const std::vector<std::string> given = {
      "call", "Z_VSIM_TYPES", "IV_CHAR=abc", "IS_FLAT={\"INT\":4}", "TT_FLAT=[{\"INT\":5}]", "--refresh"};
  RunResult r = on(given);
  EXPECT_OK(r);
  const Json j = json(r);
  EXPECT_EQ(j.at("exporting").at("EV_CHAR"), "abc") << j;
  EXPECT_EQ(j.at("exporting").at("ES_FLAT").at("INT"), 4) << j;
  // A tables parameter given shows with --only.
  std::vector<std::string> only = given;
  only.insert(only.end(), {"--only", "TT_FLAT"});
  r = on(only);
  EXPECT_OK(r);
  const Json rows = json(r).at("tables").at("TT_FLAT");
  ASSERT_EQ(rows.size(), 2u) << rows;
  EXPECT_EQ(rows[0].at("INT"), 6);
  EXPECT_EQ(rows[1].at("INT"), 4);

  // Exporting parameters picked out of the middle of the interface keep their values.
  only = given;
  only.insert(only.end(), {"--only", "EV_CHAR,ES_FLAT"});
  r = on(only);
  EXPECT_OK(r);
  const Json exporting = json(r).at("exporting");
  EXPECT_EQ(exporting.size(), 2u) << exporting;
  EXPECT_EQ(exporting.at("EV_CHAR"), "abc") << exporting;
  EXPECT_EQ(exporting.at("ES_FLAT").at("INT"), 4) << exporting;

  // A value for a parameter left out is refused before anything is sent.
  r = on({"call", "Z_VSIM_TYPES", "IV_CHAR=abc", "IS_DEEP={}"});
  if (leftOutOfTypes(GetParam()).empty()) {
    EXPECT_OK(r);
  } else {
    EXPECT_EQ(r.status, 2) << r.err;
    EXPECT_NE(r.err.find("IS_DEEP is a parameter of Z_VSIM_TYPES (importing, deep structure ZVSIM_DEEP) that the "),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("back end cannot carry: call without it, or over another back end"), std::string::npos)
        << r.err;
  }
  // A name the function does not have at all is no such parameter.
  r = on({"call", "Z_VSIM_TYPES", "NO_SUCH=1"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("Z_VSIM_TYPES has no parameter NO_SUCH"), std::string::npos) << r.err;
}

INSTANTIATE_TEST_SUITE_P(Backends, CliOnEveryBackend, ::testing::Values("soap", "nwrfc", "rfc"),
                         [](const auto& info) { return info.param; });

class CliSoapBatch : public clitest::CliProgram {};

TEST_F(CliSoapBatch, WithoutStatefulTheCommitMissesTheBapisSession) {
  // Each SOAP call then runs in an ABAP session of its own: the change ends with it.
  const std::string input =
      "{\"function\":\"Z_VSIM_NOTE_CREATE\",\"parameters\":{\"KEY\":\"stateless\",\"TEXT\":\"lost\"}}\n"
      "{\"function\":\"BAPI_TRANSACTION_COMMIT\"}\n"
      "{\"function\":\"Z_VSIM_NOTE_GETLIST\",\"parameters\":{\"KEY\":\"stateless\"}}\n";
  const std::string line = "'" VELTRANE_CLI_PROGRAM "' batch --port " + std::to_string(sim_->soapPort()) +
                           " --user DEMO < '" + file("input.jsonl", input) + "'";
  RunResult r = clitest::runProgram("/bin/bash", {"-c", line}, {{"VELTRANE_PASSWORD", std::string("Welcome1")}});
  EXPECT_OK(r);
  std::istringstream in(r.out);
  std::string last;
  for (std::string l; std::getline(in, l);) last = l;
  EXPECT_EQ(Json::parse(last)["result"]["tables"]["NOTES"].size(), 0u) << r.out;
}

}  // namespace
