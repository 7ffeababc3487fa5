#include "backends.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "backend_nwrfc.h"
#include "backend_rfc.h"
#include "failure.h"
#include "password.h"
#include "text.h"

namespace veltrane::cli {

namespace {

long portNumber(const std::string& text, const std::string& what) {
  auto v = parseInteger(text);
  if (!v || *v < 1 || *v > 65535) throw UsageError(what + ": '" + text + "' is not a port number (1 to 65535)");
  return static_cast<long>(*v);
}

// ------------------------------------------------------------------- SOAP

void readSoap(const ParsedArgs& args, ConnectionSettings& s) {
  if (auto port = args.value("port")) {
    s.port = portNumber(*port, "option --port");
  } else if (const char* env = std::getenv("VELTRANE_PORT"); env && *env) {
    s.port = portNumber(env, "VELTRANE_PORT");
  }
  s.endpoint = args.valueOr("endpoint", s.endpoint);
  while (!s.endpoint.empty() && s.endpoint.front() == '/') s.endpoint.erase(0, 1);
  if (s.endpoint.empty()) throw UsageError("option --endpoint: the path is empty");
  // The endpoint goes into the URL as it stands: a path, nothing that ends it.
  if (s.endpoint.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._~-") !=
          std::string::npos ||
      s.endpoint.find("..") != std::string::npos)
    throw UsageError("option --endpoint: '" + s.endpoint + "' is not a path (letters, digits and / . _ ~ - only)");
  s.https = args.has("https");
  s.caFile = args.valueOr("ca-file", "");
  if (args.has("ca-file")) {
    if (!s.https) throw UsageError("--ca-file goes with --https");
    if (::access(s.caFile.c_str(), R_OK) != 0)
      throw UsageError("option --ca-file: cannot read '" + s.caFile + "': " + std::strerror(errno));
  }
  s.stateful = args.has("stateful");
  if (auto proxy = args.value("proxy")) {
    const size_t colon = proxy->rfind(':');
    s.proxyHost = proxy->substr(0, colon);
    if (colon != std::string::npos) s.proxyPort = portNumber(proxy->substr(colon + 1), "option --proxy");
    if (s.proxyHost.empty()) throw UsageError("option --proxy: the host is empty");
  }
  s.proxyUser = args.valueOr("proxy-user", "");
  if (!s.proxyUser.empty() && !passwordVariable(kProxyPasswordVariable))
    throw UsageError(std::string("no proxy password: set ") + kProxyPasswordVariable + " for --proxy-user");
}

void configureSoap(ISession* session, const ConnectionSettings& s) {
  CComQIPtr<ISoapSession> soap(session);
  if (!soap) throw ComFailure("reading the connection data", E_NOINTERFACE, "the session is no SOAP session");
  CComPtr<IHttpSystemData> http;
  check(soap->get_HttpSystemData(&http), "reading the connection data");
  check(http->put_Host(bstr(s.host)), "setting the host");
  check(http->put_Port(s.port), "setting the port");
  check(http->put_SoapEndpoint(bstr(s.endpoint)), "setting the endpoint");
  check(http->put_Stateful(s.stateful ? VARIANT_TRUE : VARIANT_FALSE), "setting the session mode");
  if (!s.checkLogonAtConnect)
    check(session->put_Option(bstr("soap.skip_ping"), bstr("X")), "leaving the logon to the first call");
  if (s.https) {
    check(session->put_Option(bstr("soap.https"), bstr("X")), "choosing HTTPS");
    if (!s.caFile.empty()) check(session->put_Option(bstr("soap.ca_file"), bstr(s.caFile)), "setting the CA file");
  } else if (!isLoopback(s.host)) {
    std::cerr << "veltrane: warning: the password goes to " << s.host
              << " over plain HTTP, readable on the way; use --https\n";
  }
  if (s.proxyHost.empty()) return;
  check(http->put_ProxyHost(bstr(s.proxyHost)), "setting the proxy");
  if (s.proxyPort > 0) check(http->put_ProxyPort(s.proxyPort), "setting the proxy port");
  if (s.proxyUser.empty()) return;
  check(http->put_ProxyUser(bstr(s.proxyUser)), "setting the proxy user");
  check(http->put_ProxyPassword(bstr(passwordVariable(kProxyPasswordVariable))), "setting the proxy password");
}

std::string soapAddress(const ConnectionSettings& s) {
  const std::string host = s.host.find(':') != std::string::npos ? "[" + s.host + "]" : s.host;
  return (s.https ? "https://" : "http://") + host + ":" + std::to_string(s.port) + "/" + s.endpoint;
}

std::string soapPlace(const ConnectionSettings& s) { return s.host + ":" + std::to_string(s.port); }

std::string names() {
  std::string text;
  for (const Backend& b : backends()) text += (text.empty() ? "'" : ", '") + b.name + "'";
  return text;
}

}  // namespace

const std::vector<Backend>& backends() {
  static const std::vector<Backend> table = {
      {"soap",
       "SOAP",
       "Veltrane.SoapSession",
       {
           {"port", "PORT", "HTTP port of the SOAP service (default 8000, or $VELTRANE_PORT)"},
           {"endpoint", "PATH", "path of the SOAP service (default sap/bc/soap/rfc)"},
           {"stateful", "", "keep one ABAP session for the whole command"},
           {"https", "", "HTTPS, with the server's certificate verified"},
           {"ca-file", "FILE", "certificate authorities to verify the server with (PEM), instead of the system's"},
           {"proxy", "HOST[:PORT]", "HTTP proxy"},
           {"proxy-user", "USER", "user for the proxy; its password is $VELTRANE_PROXY_PASSWORD"},
       },
       readSoap,
       configureSoap,
       soapAddress,
       soapPlace,
       Transactions::None,
       2,
       true,
       true,
       true},
      {"nwrfc",
       "NW RFC",
       "Veltrane.NWRfcSession",
       {
           {"ashost", "HOST", "application server (default: --host)"},
           {"sysnr", "NN", "system number (default 00, or $VELTRANE_SYSNR)"},
           {"gwserv", "SERVICE", "gateway service, a port or sapgwNN (or $VELTRANE_GWSERV), instead of --sysnr"},
           {"sdk-dest", "NAME", "destination of the SDK's sapnwrfc.ini"},
           {"ini", "PATH", "the SDK's sapnwrfc.ini, or its directory"},
           {"connect", "\"NAME=VALUE ...\"", "more connection parameters of the SDK, as it names them"},
           {"sdk", "DIR", "directory of libsapnwrfc.so (default: SAP's SDK where found, else Veltrane's own)"},
       },
       readNwRfc,
       configureNwRfc,
       nwrfcAddress,
       nwrfcPlace,
       Transactions::OwnSession},
      {"rfc",
       "classic RFC",
       "Veltrane.RfcSession",
       {
           {"ashost", "HOST", "application server (default: --host)"},
           {"sysnr", "NN", "system number (default 00, or $VELTRANE_SYSNR)"},
           {"gwserv", "SERVICE", "gateway service, a port or sapgwNN (or $VELTRANE_GWSERV), instead of --sysnr"},
           {"dest", "NAME", "destination of the SDK's saprfc.ini"},
           {"connect", "\"KEY=VALUE ...\"",
            "more of the SDK's connect string, as it names them (TOUPPER=0, GETSSO2=1)"},
           {"sdk", "DIR", "directory of librfcum.so (default: SAP's SDK where found, else Veltrane's own)"},
       },
       readNwRfc,
       configureRfc,
       rfcAddress,
       nwrfcPlace,
       Transactions::AnySession,
       // Lengths as the dictionary gives them (characters, a packed member's
       // digits); integers go out in their binary form.
       1,
       false,
       false},
  };
  return table;
}

const Backend& backendNamed(const std::string& name) {
  for (const Backend& b : backends())
    if (b.name == name) return b;
  throw UsageError("unsupported back end '" + name + "': this version supports " + names());
}

void requireTransactions(const ConnectionSettings& settings, const std::string& foreignId) {
  const Backend& backend = backendNamed(settings.backend);
  if (backend.transactions == Transactions::None)
    throw UsageError("the " + backend.name + " back end has no transactional RFC");
  if (!foreignId.empty() && backend.transactions == Transactions::OwnSession)
    throw UsageError(foreignId + ": the " + backend.name +
                     " back end knows only the transaction IDs its own session created; "
                     "send again with --send N and confirm with --confirm in the one command");
}

}  // namespace veltrane::cli
