// The built veltrane program against one veltrane-sim for the suite: a
// scratch directory per test and the program with the simulator's address.
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "program_runner.h"
#include "testing/sim_process.h"

namespace clitest {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

class CliProgram : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    vsim::testing::SimOptions options;
    options.args = {"--data-dir", VELTRANE_CLI_TEST_DATA};
    sim_ = new vsim::testing::SimProcess(options);
  }
  static void TearDownTestSuite() {
    if (sim_) sim_->stop();
    delete sim_;
    sim_ = nullptr;
  }
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("veltrane-cli-test-" + std::to_string(::getpid()) + "-" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }

  // The program with the simulator's address and a logon of `user`.
  RunResult veltrane(std::vector<std::string> args, const std::string& user = "DEMO",
                     const std::optional<std::string>& password = std::string("Welcome1")) {
    args.insert(args.end(), {"--port", std::to_string(sim_->soapPort()), "--user", user});
    return clitest::runProgram(VELTRANE_CLI_PROGRAM, args, {{"VELTRANE_PASSWORD", password}});
  }
  // The program with exactly these arguments and no password.
  static RunResult bare(const std::vector<std::string>& args) {
    return clitest::runProgram(VELTRANE_CLI_PROGRAM, args);
  }

  std::string file(const std::string& name, const std::string& content) {
    const fs::path p = dir_ / name;
    std::ofstream(p) << content;
    return p.string();
  }

  static Json json(const RunResult& r) { return clitest::outputJson(r); }

  static inline vsim::testing::SimProcess* sim_ = nullptr;
  fs::path dir_;
};

#define EXPECT_OK(r) EXPECT_EQ((r).status, 0) << "stdout:\n" << (r).out << "\nstderr:\n" << (r).err

}  // namespace clitest
