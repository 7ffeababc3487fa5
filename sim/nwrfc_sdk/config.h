// Connection parameters as the SDK takes them: names in any case, "dest" reading a section of
// sapnwrfc.ini, the address of an application server or a gateway.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "nwrfc/nwrfc_types.h"

namespace nwrfc {

class ConnectionParameters {
 public:
  // Names in lower case, values as given, in order; "dest=X" adds what section X of the
  // configuration file holds, ahead of the explicit pairs.
  static ConnectionParameters collect(const RFC_CONNECTION_PARAMETER* params, unsigned count);
  // The first value of a name (lower case), or empty.
  std::string get(const std::string& name) const;
  bool has(const std::string& name) const;
  const std::vector<std::pair<std::string, std::string>>& pairs() const { return pairs_; }
  // The text for the trace, passwords masked.
  std::string traceText() const;

 private:
  std::vector<std::pair<std::string, std::string>> pairs_;
};

struct Endpoint {
  std::string host;
  std::string port;
};
// ashost with sysnr (port 3300 + sysnr) or gwserv (a port or sapgwNN); RFC_INVALID_PARAMETER.
Endpoint applicationServer(const ConnectionParameters& p);
// gwhost and gwserv of a server's registration.
Endpoint gateway(const ConnectionParameters& p);
// "sapgw53" is port 3353; a number is itself; empty for anything else.
std::string servicePort(const std::string& service);

// sapnwrfc.ini: sections that start with DEST=name, lines NAME=value, '#' comments. The file is
// looked for in the directory RfcSetIniPath set (or the file it named), else the current one.
class IniFile {
 public:
  void setPath(const std::string& path);
  void reload();  // RFC_INVALID_PARAMETER for a file that exists but cannot be read
  std::vector<std::pair<std::string, std::string>> section(const std::string& dest);

 private:
  std::string file() const;
  void load();
  std::string path_;
  bool loaded_ = false;
  std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>> sections_;
};
IniFile& iniFile();

}  // namespace nwrfc
