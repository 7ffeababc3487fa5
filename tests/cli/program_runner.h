// Runs a program to its end with its own environment, no terminal and no
// input, and collects its output.
#pragma once

#include <nlohmann/json.hpp>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace clitest {

struct RunResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
};

// The child gets the parent's environment without any VELTRANE_* variable,
// plus `env` (a nullopt value removes a variable). It runs in a session of
// its own, so /dev/tty is not available to it.
RunResult runProgram(const std::string& program, const std::vector<std::string>& args,
                     const std::map<std::string, std::optional<std::string>>& env = {});

// The program's standard output as JSON; a test failure, and null, when it is none.
nlohmann::ordered_json outputJson(const RunResult& result);

}  // namespace clitest
