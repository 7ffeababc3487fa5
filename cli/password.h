// The logon password: from VELTRANE_PASSWORD, else asked for on the terminal.
#pragma once

#include <string>

namespace veltrane::cli {

inline constexpr const char* kPasswordVariable = "VELTRANE_PASSWORD";

// The variable's value when it is set (also when empty); otherwise a prompt
// on /dev/tty without echo. A UsageError when neither is possible.
std::string obtainPassword(const std::string& prompt);

}  // namespace veltrane::cli
