// What a program tells our classic RFC SDK where to connect: the connect string of RfcOpenEx
// ("ASHOST=host SYSNR=00 CLIENT=001 USER=\"A B\" ..."), and the arguments of a registered server
// (-a<program ID> -g<gateway host> -x<gateway service> -t, glued or as separate arguments).
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace rfcsdk {

// IDs are case-insensitive (kept upper-case), values case-sensitive. Throws Failure
// RFC_INVALID_PARAMETER (group RFC_ERROR_PROGRAM) for text that is no connect string.
class ConnectOptions {
 public:
  static ConnectOptions parse(std::string_view text);
  bool has(const std::string& id) const { return values_.count(id) != 0; }
  std::string get(const std::string& id, const std::string& fallback = {}) const;
  // A 0/1 switch (or the values listed in `allowed`); throws for any other value.
  std::string choice(const std::string& id, const std::string& fallback, const std::vector<std::string>& allowed) const;
  const std::map<std::string, std::string>& values() const { return values_; }

 private:
  std::map<std::string, std::string> values_;
};

struct ServerOptions {
  std::string programId, gatewayHost, gatewayService;
  bool trace = false;
};
// The arguments without the program's own name. Throws Failure RFC_INVALID_PARAMETER.
ServerOptions parseServerArguments(const std::vector<std::string>& args);
// A command line split at blanks (double quotes keep blanks), for RfcAcceptExt.
std::vector<std::string> splitCommandLine(std::string_view line);

// The TCP port of a gateway service: "sapgwNN" is 33NN, digits are the port, and other names go
// through the services database. Throws Failure.
std::string gatewayPort(const std::string& service);

}  // namespace rfcsdk
