// The connection options shared by all subcommands, and the session built
// from them through the public Automation interfaces.
#pragma once

#include <string>
#include <vector>

#include <veltrane.h>

#include "args.h"

namespace vcli {

struct ConnectionSettings {
  std::string backend = "soap";
  std::string host = "127.0.0.1";
  long port = 8000;
  std::string endpoint = "sap/bc/soap/rfc";
  std::string client = "001";
  std::string user;
  std::string language = "EN";
  bool stateful = false;
  std::string traceFile;
  std::string proxyHost;
  long proxyPort = 0;
  std::string proxyUser;

  // "http://HOST:PORT/ENDPOINT"
  std::string address() const;
};

std::vector<OptionDef> connectionOptions();
// Reads the options, falling back to VELTRANE_HOST, VELTRANE_PORT,
// VELTRANE_CLIENT, VELTRANE_USER, VELTRANE_LANG. Bad values are UsageErrors.
ConnectionSettings connectionSettings(const ParsedArgs& args);

class Connection {
 public:
  // Obtains the password, creates the session, fills its connection and
  // logon data and connects. Failures throw (see failure.h).
  explicit Connection(ConnectionSettings settings);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  ISession* session() const { return session_; }
  const ConnectionSettings& settings() const { return settings_; }

  CComPtr<IFunctionCall> importCall(const std::string& function);
  // Runs the call synchronously; a failure on either side throws.
  void call(IFunctionCall* call, const std::string& function);
  CComPtr<ITableReader> tableReader(const std::string& table);
  // Ends the connection and reports a failure; the destructor does it quietly.
  void close();

 private:
  ConnectionSettings settings_;
  CComPtr<ISoapSession> soap_;
  CComPtr<ISession> session_;
};

}  // namespace vcli
