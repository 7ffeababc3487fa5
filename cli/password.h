// The logon password: from VELTRANE_PASSWORD, else asked for on the terminal.
#pragma once

#include <string>

namespace veltrane::cli {

inline constexpr const char* kPasswordVariable = "VELTRANE_PASSWORD";
inline constexpr const char* kProxyPasswordVariable = "VELTRANE_PROXY_PASSWORD";

// The variable's value when it is set; otherwise a prompt on /dev/tty
// without echo. An empty variable, Enter alone at the prompt and neither a
// variable nor a terminal are UsageErrors: an empty password would only
// count as a failed logon against the user. Ctrl-C at the prompt restores
// the terminal's echo before the command ends.
std::string obtainPassword(const std::string& prompt);

// The variable's value when it is set and not empty; nothing when unset; a
// UsageError when set but empty.
const char* passwordVariable(const char* name);

}  // namespace veltrane::cli
