#include "connection.h"

#include <cstdlib>

#include "failure.h"
#include "password.h"
#include "text.h"

namespace vcli {

namespace {

std::string fromEnv(const char* name, std::string fallback) {
  const char* v = std::getenv(name);
  return v && *v ? std::string(v) : std::move(fallback);
}

long portNumber(const std::string& text, const std::string& what) {
  auto v = parseInteger(text);
  if (!v || *v < 1 || *v > 65535) throw UsageError(what + ": '" + text + "' is not a port number (1 to 65535)");
  return static_cast<long>(*v);
}

}  // namespace

std::string ConnectionSettings::address() const {
  return "http://" + host + ":" + std::to_string(port) + "/" + endpoint;
}

std::vector<OptionDef> connectionOptions() {
  return {
      {"backend", "NAME", "back end to use; this version has: soap (default)"},
      {"host", "HOST", "host of the ABAP system (default 127.0.0.1, or $VELTRANE_HOST)"},
      {"port", "PORT", "HTTP port of the SOAP service (default 8000, or $VELTRANE_PORT)"},
      {"endpoint", "PATH", "path of the SOAP service (default sap/bc/soap/rfc)"},
      {"client", "NNN", "logon client (default 001, or $VELTRANE_CLIENT)"},
      {"user", "USER", "logon user (or $VELTRANE_USER)"},
      {"lang", "LANG", "logon language (default EN, or $VELTRANE_LANG)"},
      {"stateful", "", "keep one ABAP session for the whole command"},
      {"trace", "FILE", "write the component's trace to FILE"},
      {"proxy", "HOST[:PORT]", "HTTP proxy"},
      {"proxy-user", "USER", "user for the proxy; its password is $VELTRANE_PROXY_PASSWORD"},
  };
}

ConnectionSettings connectionSettings(const ParsedArgs& args) {
  ConnectionSettings s;
  s.backend = args.valueOr("backend", "soap");
  if (s.backend != "soap")
    throw UsageError("unsupported back end '" + s.backend + "': this version supports only 'soap'");
  s.host = args.valueOr("host", fromEnv("VELTRANE_HOST", s.host));
  if (s.host.empty()) throw UsageError("option --host: the host is empty");
  if (auto port = args.value("port")) {
    s.port = portNumber(*port, "option --port");
  } else if (const char* env = std::getenv("VELTRANE_PORT"); env && *env) {
    s.port = portNumber(env, "VELTRANE_PORT");
  }
  s.endpoint = args.valueOr("endpoint", s.endpoint);
  while (!s.endpoint.empty() && s.endpoint.front() == '/') s.endpoint.erase(0, 1);
  if (s.endpoint.empty()) throw UsageError("option --endpoint: the path is empty");
  s.client = args.valueOr("client", fromEnv("VELTRANE_CLIENT", s.client));
  if (s.client.size() != 3 || s.client.find_first_not_of("0123456789") != std::string::npos)
    throw UsageError("option --client: '" + s.client + "' is not a client (three digits)");
  s.user = upperAscii(args.valueOr("user", fromEnv("VELTRANE_USER", "")));
  if (s.user.empty()) throw UsageError("no user: give --user USER or set VELTRANE_USER");
  s.language = upperAscii(args.valueOr("lang", fromEnv("VELTRANE_LANG", s.language)));
  if (s.language.empty() || s.language.size() > 2)
    throw UsageError("option --lang: '" + s.language + "' is not a language key (one or two letters)");
  s.stateful = args.has("stateful");
  s.traceFile = args.valueOr("trace", "");
  if (args.has("trace") && s.traceFile.empty()) throw UsageError("option --trace: the file name is empty");
  if (auto proxy = args.value("proxy")) {
    const size_t colon = proxy->rfind(':');
    s.proxyHost = proxy->substr(0, colon);
    if (colon != std::string::npos) s.proxyPort = portNumber(proxy->substr(colon + 1), "option --proxy");
    if (s.proxyHost.empty()) throw UsageError("option --proxy: the host is empty");
  }
  s.proxyUser = args.valueOr("proxy-user", "");
  return s;
}

Connection::Connection(ConnectionSettings settings) : settings_(std::move(settings)) {
  const std::string password = obtainPassword("Password for " + settings_.user + " in client " + settings_.client +
                                              " at " + settings_.host + ":" + std::to_string(settings_.port) + ": ");
  check(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                         reinterpret_cast<void**>(&soap_)),
        "creating the SOAP session");
  session_ = soap_.p;
  if (!settings_.traceFile.empty())
    check(session_->put_Option(bstr("trace.file"), bstr(settings_.traceFile)), "setting the trace file");

  CComPtr<IHttpSystemData> http;
  check(soap_->get_HttpSystemData(&http), "reading the connection data");
  check(http->put_Host(bstr(settings_.host)), "setting the host");
  check(http->put_Port(settings_.port), "setting the port");
  check(http->put_SoapEndpoint(bstr(settings_.endpoint)), "setting the endpoint");
  check(http->put_Stateful(settings_.stateful ? VARIANT_TRUE : VARIANT_FALSE), "setting the session mode");
  if (!settings_.proxyHost.empty()) {
    check(http->put_ProxyHost(bstr(settings_.proxyHost)), "setting the proxy");
    if (settings_.proxyPort > 0) check(http->put_ProxyPort(settings_.proxyPort), "setting the proxy port");
    if (!settings_.proxyUser.empty()) {
      check(http->put_ProxyUser(bstr(settings_.proxyUser)), "setting the proxy user");
      const char* proxyPassword = std::getenv("VELTRANE_PROXY_PASSWORD");
      check(http->put_ProxyPassword(bstr(proxyPassword ? proxyPassword : "")), "setting the proxy password");
    }
  }

  CComPtr<ILogonData> logon;
  check(session_->get_LogonData(&logon), "reading the logon data");
  check(logon->put_Client(bstr(settings_.client)), "setting the client");
  check(logon->put_User(bstr(settings_.user)), "setting the user");
  check(logon->put_Password(bstr(password)), "setting the password");
  check(logon->put_Language(bstr(settings_.language)), "setting the language");

  checkSession(session_->Connect(), session_, "connecting to " + settings_.address());
}

Connection::~Connection() {
  if (!session_) return;
  VARIANT_BOOL connected = VARIANT_FALSE;
  if (SUCCEEDED(session_->get_IsConnected(&connected)) && connected) session_->Disconnect();
}

void Connection::close() {
  VARIANT_BOOL connected = VARIANT_FALSE;
  if (SUCCEEDED(session_->get_IsConnected(&connected)) && connected)
    checkSession(session_->Disconnect(), session_, "disconnecting");
}

CComPtr<IFunctionCall> Connection::importCall(const std::string& function) {
  CComPtr<IFunctionCall> call;
  checkSession(session_->ImportCall(bstr(function), VARIANT_FALSE, &call), session_,
               "importing the interface of " + function);
  if (!call) throw ComFailure("importing the interface of " + function, E_POINTER, "no call object returned");
  return call;
}

void Connection::call(IFunctionCall* call, const std::string& function) {
  checkSession(session_->CallFunction(call, VARIANT_TRUE), session_, "calling " + function);
}

CComPtr<ITableReader> Connection::tableReader(const std::string& table) {
  CComPtr<ITableReader> reader;
  checkSession(session_->GetTableReader(bstr(table), &reader), session_, "creating a table reader for " + table);
  if (!reader) throw ComFailure("creating a table reader for " + table, E_POINTER, "no reader returned");
  return reader;
}

}  // namespace vcli
