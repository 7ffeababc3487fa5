#include "connection.h"

#include <cstdlib>

#include "backends.h"
#include "destinations.h"
#include "failure.h"
#include "password.h"
#include "text.h"
#include "trace_file.h"
#include "values.h"

namespace veltrane::cli {

namespace {

std::string fromEnv(const char* name, std::string fallback) {
  const char* v = std::getenv(name);
  return v && *v ? std::string(v) : std::move(fallback);
}

// The two-letter keys (ISO 639-1, and SAP's own ZF, ZH for Chinese, SH for
// Serbian in Latin script) of the languages an ABAP system can be installed in.
bool knownLanguage(const std::string& key) {
  static const char* const kLanguages[] = {
      "AF", "AR", "BG", "CA", "CS", "DA", "DE", "EL", "EN", "ES", "ET", "FI", "FR", "HE", "HI", "HR",
      "HU", "ID", "IS", "IT", "JA", "KK", "KO", "LT", "LV", "MS", "NL", "NO", "PL", "PT", "RO", "RU",
      "SH", "SK", "SL", "SR", "SV", "TH", "TR", "UK", "VI", "ZF", "ZH", "CY", "GA", "MK", "SQ", "BE",
  };
  for (const char* l : kLanguages)
    if (key == l) return true;
  return false;
}

}  // namespace

bool validHost(const std::string& host) {
  if (host.empty() || host.size() > 253) return false;
  // An IPv6 address, which goes into a URL in brackets.
  if (host.find(':') != std::string::npos)
    return host.find_first_not_of("0123456789abcdefABCDEF:.") == std::string::npos;
  if (host.front() == '-' || host.front() == '.' || host.back() == '-') return false;
  return host.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-") ==
         std::string::npos;
}

bool isLoopback(const std::string& host) {
  return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0 || host.rfind("localhost.", 0) == 0;
}

std::string ConnectionSettings::address() const { return backendNamed(backend).address(*this); }

std::vector<OptionDef> connectionOptions() {
  std::string names;
  for (const Backend& b : backends()) names += (names.empty() ? "" : ", ") + b.name;
  std::vector<OptionDef> options = {
      {"backend", "NAME", "back end to use; this version has: " + names + " (default " + backends().front().name + ")"},
      {"host", "HOST", "host of the ABAP system (default 127.0.0.1, or $VELTRANE_HOST)"},
      {"client", "NNN", "logon client (default 001, or $VELTRANE_CLIENT)"},
      {"user", "USER", "logon user (or $VELTRANE_USER)"},
      {"lang", "LANG", "logon language (default EN, or $VELTRANE_LANG)"},
      {"trace", "FILE", "write the component's trace to FILE"},
      {"dest", "NAME", "take connection settings from destination NAME of the destinations file"},
      {"dest-file", "FILE", "the destinations file (default $XDG_CONFIG_HOME/veltrane/destinations.ini)"},
  };
  // Back ends may share an option (--ashost ...): it is listed once, as the
  // first back end that has it describes it.
  for (const Backend& b : backends())
    for (const OptionDef& o : b.options) {
      bool listed = false;
      for (const OptionDef& known : options) listed = listed || known.name == o.name;
      if (!listed) options.push_back(o);
    }
  return options;
}

ConnectionSettings connectionSettings(const ParsedArgs& given) {
  const ParsedArgs args = withDestination(given);
  ConnectionSettings s;
  s.backend = args.valueOr("backend", backends().front().name);
  const Backend& backend = backendNamed(s.backend);
  s.host = args.valueOr("host", fromEnv("VELTRANE_HOST", s.host));
  if (!validHost(s.host)) throw UsageError("option --host: '" + s.host + "' is not a host name or an IP address");
  backend.read(args, s);
  s.client = args.valueOr("client", fromEnv("VELTRANE_CLIENT", s.client));
  if (s.client.size() != 3 || s.client.find_first_not_of("0123456789") != std::string::npos)
    throw UsageError("option --client: '" + s.client + "' is not a client (three digits)");
  s.user = upperAscii(args.valueOr("user", fromEnv("VELTRANE_USER", "")));
  if (s.user.empty()) throw UsageError("no user: give --user USER or set VELTRANE_USER");
  s.language = upperAscii(args.valueOr("lang", fromEnv("VELTRANE_LANG", s.language)));
  if (!knownLanguage(s.language))
    throw UsageError("option --lang: '" + s.language + "' is not a language of an ABAP system (such as EN, DE, JA)");
  s.traceFile = args.valueOr("trace", "");
  if (args.has("trace") && s.traceFile.empty()) throw UsageError("option --trace: the file name is empty");
  return s;
}

void fillLogonData(ILogonData* logon, const ConnectionSettings& settings, const std::string& password) {
  check(logon->put_Client(bstr(settings.client)), "setting the client");
  check(logon->put_User(bstr(settings.user)), "setting the user");
  check(logon->put_Password(bstr(password)), "setting the password");
  check(logon->put_Language(bstr(settings.language)), "setting the language");
}

Connection::Connection(ConnectionSettings settings) : settings_(std::move(settings)) {
  const Backend& backend = backendNamed(settings_.backend);
  if (!settings_.traceFile.empty()) requireWritableTrace(settings_.traceFile);
  setValueRules({backend.name, backend.charLengthUnit, backend.unsignedIntegers, backend.packedMembersInBytes});
  setFaultsAreAnswers(backend.faultsAreAnswers);
  const std::string password = obtainPassword("Password for " + settings_.user + " in client " + settings_.client +
                                              " at " + backend.place(settings_) + ": ");
  CLSID clsid;
  check(CLSIDFromProgID(bstr(backend.progId), &clsid), "finding the " + backend.label + " session");
  check(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_ISession, reinterpret_cast<void**>(&session_)),
        "creating the " + backend.label + " session");
  attachTrace(session_, settings_.traceFile);
  backend.configure(session_, settings_);

  CComPtr<ILogonData> logon;
  check(session_->get_LogonData(&logon), "reading the logon data");
  fillLogonData(logon, settings_, password);

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
  // A parameter the back end cannot carry is left out, so that the call goes
  // with the others (left_out.h names them).
  CComPtr<IFunctionCall> call;
  checkSession(session_->ImportCall(bstr(function), VARIANT_TRUE, &call), session_,
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

}  // namespace veltrane::cli
