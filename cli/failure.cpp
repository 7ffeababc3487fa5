#include "failure.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <regex>
#include <vector>

#include "text.h"

namespace veltrane::cli {

RfcFailure::RfcFailure(std::string context, long group, std::string key, std::string message, std::string module)
    : std::runtime_error(context + " failed: " + key + ": " + message),
      context_(std::move(context)),
      group_(group),
      key_(std::move(key)),
      message_(std::move(message)),
      module_(std::move(module)) {}

ComFailure::ComFailure(std::string context, HRESULT hr, std::string description, std::string cause)
    : std::runtime_error(context + " failed: " + (cause.empty() ? description : cause)),
      context_(std::move(context)),
      hr_(hr),
      description_(std::move(description)),
      cause_(std::move(cause)) {}

std::string errorGroupName(long group) {
  const char* name = ErrorGroupName(group);
  return name ? name : "unknown group";
}

namespace {

struct Note {
  std::string key;
  nlohmann::ordered_json value;
  std::string text;
};

ErrorFormat g_errorFormat = ErrorFormat::Text;
std::string g_causeTrace;
std::vector<Note> g_notes;

std::string hex(HRESULT hr) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(hr));
  return buf;
}

std::string recordText(HRESULT hr) {
  CComPtr<IErrorInfo> info;
  std::string text;
  if (GetErrorInfo(0, &info) == S_OK && info) {
    CComBSTR description;
    if (SUCCEEDED(info->GetDescription(&description)) && description.Length() > 0) text = utf8(description);
  }
  if (text.empty()) {
    switch (hr) {
      case E_INVALIDARG: text = "invalid argument"; break;
      case E_POINTER: text = "null pointer"; break;
      case E_NOTIMPL: text = "not implemented by this back end"; break;
      case E_UNEXPECTED: text = "unexpected element"; break;
      default: text = "the operation failed"; break;
    }
  }
  return text;
}

// The cause of the last failure the session wrote to the trace at its
// boundary ("CXVeltrane Error: ERROR_WINHTTP_CANNOT_CONNECT in ..."), in
// words; empty when the trace names none.
std::string transportCause() {
  if (g_causeTrace.empty()) return {};
  std::ifstream in(g_causeTrace, std::ios::binary);
  std::string line, last;
  while (std::getline(in, line))
    if (line.find("CXVeltrane Error: ") != std::string::npos) last = line;
  if (last.empty()) return {};
  static const std::pair<const char*, const char*> kCauses[] = {
      {"ERROR_WINHTTP_CANNOT_CONNECT", "connection refused"},
      {"ERROR_WINHTTP_NAME_NOT_RESOLVED", "unknown host"},
      {"ERROR_WINHTTP_TIMEOUT", "time-out after 60 s while connecting"},
      {"TIMEOUT(11)", "time-out after 30 s without an answer"},
      {"ERROR_WINHTTP_CONNECTION_ERROR", "connection reset"},
      {"ERROR_WINHTTP_INVALID_SERVER_RESPONSE", "bad answer from the server"},
      {"ERROR_WINHTTP_SECURE_FAILURE", "no TLS handshake with the server (does it speak HTTPS?)"},
      {"ERROR_WINHTTP_SECURE_INVALID_CERT", "the server's certificate was not accepted"},
      {"ERROR_WINHTTP_OPERATION_CANCELLED", "the request was cancelled"},
  };
  for (const auto& [word, cause] : kCauses)
    if (last.find(word) != std::string::npos) return cause;
  const size_t start = last.find("CXVeltrane Error: ") + 18;
  const size_t end = last.rfind(" in ");
  return last.substr(start, end == std::string::npos || end < start ? std::string::npos : end - start);
}

template <class Source>
[[noreturn]] void throwRecorded(Source* source, const std::string& context) {
  CComPtr<IRfcError> info;
  ERRORGROUP group = RFCERROR_NO_ERROR;
  CComBSTR key, message, module;
  if (SUCCEEDED(source->get_ErrorInfo(&info)) && info) {
    info->get_ERRORGROUP(&group);
    info->get_ErrorGroupTxt(&key);
    info->get_Message(&message);
    info->get_ModuleName(&module);
  }
  throw RfcFailure(context, group, utf8(key), utf8(message), utf8(module));
}

// Continuation lines of a multi-line text start under its first line.
std::string indented(const std::string& text) {
  std::string out;
  for (char c : text) {
    out += c;
    if (c == '\n') out += "           ";
  }
  while (!out.empty() && (out.back() == ' ' || out.back() == '\n')) out.pop_back();
  return out;
}

// A wrong password over SOAP is the HTTP status 401 in a SOAP_ERROR.
bool refusedLogon(const RfcFailure& f) {
  return f.group() == RFCERROR_LOGON_FAILURE || (f.group() == RFCERROR_SYSTEM_FAILURE && f.key() == "SOAP_ERROR" &&
                                                 f.message().rfind("Server response status 401", 0) == 0);
}

const char* kindOf(const std::exception& e) {
  if (dynamic_cast<const UsageError*>(&e)) return "usage";
  if (dynamic_cast<const OutputError*>(&e)) return "output";
  if (dynamic_cast<const RfcFailure*>(&e)) return "system";
  if (dynamic_cast<const ComFailure*>(&e)) return "component";
  return "command";
}

// An ABAP message as the SOAP back end words it ("ID:FL Type: E Number:046
// text"): its class, type and number as fields. The variables are not part
// of what the back end keeps.
void addAbapMessage(nlohmann::ordered_json& j, const std::string& message) {
  static const std::regex kMessage("^ID:(\\S*) Type: (\\S*) Number:(\\S*) ?([\\s\\S]*)$");
  std::smatch m;
  if (!std::regex_match(message, m, kMessage)) return;
  j["messageClass"] = m[1].str();
  j["messageType"] = m[2].str();
  j["messageNumber"] = m[3].str();
  j["messageText"] = m[4].str();
}

}  // namespace

void setCauseTrace(const std::string& path) { g_causeTrace = path; }
void setErrorFormat(ErrorFormat format) { g_errorFormat = format; }

void noteForFailure(const std::string& key, nlohmann::ordered_json value, const std::string& text) {
  g_notes.push_back({key, std::move(value), text});
}

void check(HRESULT hr, const std::string& context) {
  if (FAILED(hr)) throw ComFailure(context, hr, recordText(hr));
}

void checkSession(HRESULT hr, ISession* session, const std::string& context) {
  // The record belongs to the failing call: take it before asking the session anything.
  std::string description;
  if (FAILED(hr)) description = recordText(hr);
  VARIANT_BOOL error = VARIANT_FALSE;
  if (session && SUCCEEDED(session->get_Error(&error)) && error) throwRecorded(session, context);
  if (FAILED(hr)) throw ComFailure(context, hr, description, transportCause());
}

void checkReader(HRESULT hr, ITableReader* reader, const std::string& context) {
  std::string description;
  if (FAILED(hr)) description = recordText(hr);
  VARIANT_BOOL error = VARIANT_FALSE;
  if (reader && SUCCEEDED(reader->get_Error(&error)) && error) throwRecorded(reader, context);
  if (FAILED(hr)) throw ComFailure(context, hr, description, transportCause());
}

int exitStatus(const std::exception& e) {
  if (dynamic_cast<const UsageError*>(&e)) return kExitUsage;
  if (dynamic_cast<const OutputError*>(&e)) return kExitOutput;
  if (const auto* rfc = dynamic_cast<const RfcFailure*>(&e)) {
    if (refusedLogon(*rfc)) return kExitLogon;
    switch (rfc->group()) {
      case RFCERROR_COMMUNICATION: return kExitCommunication;
      case RFCERROR_APPLICATION_EXCEPTION: return kExitAbap;
      default: return kExitFailure;
    }
  }
  if (const auto* com = dynamic_cast<const ComFailure*>(&e))
    return com->cause().empty() ? kExitFailure : kExitCommunication;
  return kExitFailure;
}

nlohmann::ordered_json failureJson(const std::exception& e) {
  nlohmann::ordered_json j = nlohmann::ordered_json::object();
  j["status"] = exitStatus(e);
  j["kind"] = kindOf(e);
  if (const auto* rfc = dynamic_cast<const RfcFailure*>(&e)) {
    j["context"] = rfc->context();
    j["group"] = rfc->group();
    j["groupName"] = errorGroupName(rfc->group());
    j["key"] = rfc->key();
    j["message"] = rfc->message();
    if (!rfc->module().empty()) j["module"] = rfc->module();
    addAbapMessage(j, rfc->message());
  } else if (const auto* com = dynamic_cast<const ComFailure*>(&e)) {
    j["context"] = com->context();
    j["message"] = com->description();
    j["result"] = hex(com->result());
    if (!com->cause().empty()) j["cause"] = com->cause();
  } else {
    j["message"] = e.what();
  }
  for (const Note& n : g_notes) j[n.key] = n.value;
  return j;
}

int reportFailure(const std::exception& e) {
  const int status = exitStatus(e);
  if (g_errorFormat == ErrorFormat::Json) {
    std::cerr << failureJson(e).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
    return status;
  }
  if (const auto* rfc = dynamic_cast<const RfcFailure*>(&e)) {
    std::cerr << "veltrane: " << rfc->context() << " failed\n"
              << "  group:   " << errorGroupName(rfc->group()) << " (" << rfc->group() << ")\n"
              << "  key:     " << indented(rfc->key()) << "\n"
              << "  message: " << indented(rfc->message()) << "\n";
    if (!rfc->module().empty()) std::cerr << "  module:  " << rfc->module() << "\n";
  } else if (const auto* com = dynamic_cast<const ComFailure*>(&e)) {
    if (!com->cause().empty()) {
      std::cerr << "veltrane: " << com->context() << " failed: " << com->cause() << "\n";
    } else {
      std::cerr << "veltrane: " << com->context() << " failed: " << com->description() << " (" << hex(com->result())
                << ")\n";
      if (com->result() == TextResult(Text::Unexpected))
        std::cerr << "  (repeat with --trace FILE to see the cause in the trace)\n";
    }
  } else {
    std::cerr << "veltrane: " << e.what() << "\n";
  }
  for (const Note& n : g_notes) std::cerr << "veltrane: " << n.text << "\n";
  return status;
}

}  // namespace veltrane::cli
