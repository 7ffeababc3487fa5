// The connection options shared by all subcommands, and the session built
// from them through the public Automation interfaces.
#pragma once

#include <string>
#include <vector>

#include <veltrane.h>

#include "args.h"

namespace veltrane::cli {

// The options of every back end, and those of each back end (backends.h).
struct ConnectionSettings {
  std::string backend = "soap";
  std::string host = "127.0.0.1";
  std::string client = "001";
  std::string user;
  std::string language = "EN";
  std::string traceFile;
  // Whether Connect proves the logon by itself; where the back end allows,
  // a command that calls at once leaves that to its first call.
  bool checkLogonAtConnect = true;

  // SOAP
  long port = 8000;
  std::string endpoint = "sap/bc/soap/rfc";
  bool stateful = false;
  bool https = false;
  std::string caFile;  // certificate authorities for --https; empty: the system's
  std::string proxyHost;
  long proxyPort = 0;
  std::string proxyUser;

  // NW RFC: where the connection goes, as the SDK's parameters
  std::string connectString;  // built from --ashost, --sysnr, --gwserv, --dest, --connect
  std::string iniPath;        // --ini: the SDK's sapnwrfc.ini, or its directory
  std::string sdkDir;         // --sdk: the SDK's directory; empty: found at connect

  // Where the session goes, as the back end says: "https://HOST:PORT/ENDPOINT".
  std::string address() const;
};

// A host name or an IP address, nothing that would change a URL.
bool validHost(const std::string& host);
// Whether the host is this machine over loopback.
bool isLoopback(const std::string& host);

// The options of every back end, then each back end's own.
std::vector<OptionDef> connectionOptions();
// Reads the options, falling back to VELTRANE_HOST, VELTRANE_CLIENT,
// VELTRANE_USER, VELTRANE_LANG (and the back end's own variables, such as
// VELTRANE_PORT). Bad values are UsageErrors.
ConnectionSettings connectionSettings(const ParsedArgs& args);

// Fills logon data with the settings' client, user and language and the
// password. Failures throw.
void fillLogonData(ILogonData* logon, const ConnectionSettings& settings, const std::string& password);

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
  CComPtr<ISession> session_;
};

}  // namespace veltrane::cli
