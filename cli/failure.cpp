#include "failure.h"

#include <cctype>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <regex>
#include <vector>

#include "text.h"

namespace veltrane::cli {

RfcFailure::RfcFailure(std::string context, long group, std::string key, std::string message, std::string module,
                       std::optional<AbapMessage> abapMessage)
    : std::runtime_error(context + " failed: " + key + ": " + message),
      context_(std::move(context)),
      group_(group),
      key_(std::move(key)),
      message_(std::move(message)),
      module_(std::move(module)),
      abapMessage_(std::move(abapMessage)) {}

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
std::streamoff g_traceMark = 0;  // where the lines of the next operation begin
bool g_faultsAreAnswers = false;
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

std::streamoff traceSize() {
  std::ifstream in(g_causeTrace, std::ios::binary | std::ios::ate);
  return in ? static_cast<std::streamoff>(in.tellg()) : 0;
}

// The lines the library traced since the last operation was checked; the
// next operation's begin behind them.
std::vector<std::string> tracedSinceMark() {
  std::vector<std::string> lines;
  if (g_causeTrace.empty()) return lines;
  std::ifstream in(g_causeTrace, std::ios::binary);
  in.seekg(g_traceMark);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  g_traceMark = traceSize();
  return lines;
}

// The cause of the last failure the session wrote to the trace at its
// boundary ("CXVeltrane Error: ERROR_WINHTTP_CANNOT_CONNECT in ..."), in
// words; empty when the trace names none.
std::string transportCause(const std::vector<std::string>& traced) {
  std::string last;
  for (const std::string& line : traced)
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

// A text of the trace's "ABAP message:" line, quoted and escaped as in C;
// an escape it does not know stands for the character behind the backslash.
std::string unescaped(const std::string& quoted) {
  std::string out;
  for (size_t i = 0; i < quoted.size(); ++i) {
    if (quoted[i] != '\\' || i + 1 == quoted.size()) {
      out += quoted[i];
      continue;
    }
    const char c = quoted[++i];
    switch (c) {
      case 'n': out += '\n'; break;
      case 'r': out += '\r'; break;
      case 't': out += '\t'; break;
      case 'x':
        if (i + 2 < quoted.size() && std::isxdigit(static_cast<unsigned char>(quoted[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(quoted[i + 2]))) {
          out += static_cast<char>(std::stoi(quoted.substr(i + 1, 2), nullptr, 16));
          i += 2;
        } else {
          out += c;
        }
        break;
      default: out += c;
    }
  }
  return out;
}

// The last ABAP message among the traced lines.
std::optional<AbapMessage> tracedAbapMessage(const std::vector<std::string>& traced) {
  std::optional<AbapMessage> found;
  for (const std::string& line : traced)
    if (line.find("ABAP message: ") != std::string::npos)
      if (auto m = abapMessageOfTraceLine(line)) found = m;
  return found;
}

template <class Source>
[[noreturn]] void throwRecorded(Source* source, const std::string& context, const std::vector<std::string>& traced) {
  CComPtr<IRfcError> info;
  ERRORGROUP group = RFCERROR_NO_ERROR;
  CComBSTR key, message, module;
  if (SUCCEEDED(source->get_ErrorInfo(&info)) && info) {
    info->get_ERRORGROUP(&group);
    info->get_ErrorGroupTxt(&key);
    info->get_Message(&message);
    info->get_ModuleName(&module);
  }
  throw RfcFailure(context, group, utf8(key), utf8(message), utf8(module), tracedAbapMessage(traced));
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

// An ABAP message of type E or A that ended the call outside an exception:
// the message came with the failure, or a SOAP fault names the state such
// a message leaves ("ERROR_MESSAGE_STATE: text").
bool abapErrorMessage(const RfcFailure& f) {
  if (const auto& a = f.abapMessage()) return a->type == "E" || a->type == "A";
  return g_faultsAreAnswers && f.key().rfind("ERROR_MESSAGE_STATE", 0) == 0;
}

const char* kindOf(const std::exception& e) {
  if (dynamic_cast<const UsageError*>(&e)) return "usage";
  if (dynamic_cast<const OutputError*>(&e)) return "output";
  if (dynamic_cast<const RfcFailure*>(&e)) return "system";
  if (dynamic_cast<const ComFailure*>(&e)) return "component";
  return "command";
}

// The ABAP message of a failure as fields: as the library traced it, with
// its variables, and the text where the SOAP back end words the message in
// its own way ("ID:FL Type: E Number:046 text").
void addAbapMessage(nlohmann::ordered_json& j, const RfcFailure& f) {
  static const std::regex kMessage("^ID:(\\S*) Type: (\\S*) Number:(\\S*) ?([\\s\\S]*)$");
  std::smatch m;
  const bool worded = std::regex_match(f.message(), m, kMessage);
  if (const auto& a = f.abapMessage()) {
    j["messageClass"] = a->messageClass;
    j["messageType"] = a->type;
    j["messageNumber"] = a->number;
    for (int i = 0; i < 4; ++i) j["messageV" + std::to_string(i + 1)] = a->variables[i];
  } else if (worded) {
    j["messageClass"] = m[1].str();
    j["messageType"] = m[2].str();
    j["messageNumber"] = m[3].str();
  }
  if (worded) j["messageText"] = m[4].str();
}

template <class Source>
void checkRecorded(HRESULT hr, Source* source, const std::string& context) {
  // The record belongs to the failing call: take it before asking the source anything.
  std::string description;
  if (FAILED(hr)) description = recordText(hr);
  VARIANT_BOOL error = VARIANT_FALSE;
  const bool recorded = source && SUCCEEDED(source->get_Error(&error)) && error;
  if (!recorded && SUCCEEDED(hr)) {
    g_traceMark = traceSize();
    return;
  }
  const std::vector<std::string> traced = tracedSinceMark();
  if (recorded) throwRecorded(source, context, traced);
  throw ComFailure(context, hr, description, transportCause(traced));
}

}  // namespace

std::optional<AbapMessage> abapMessageOfTraceLine(const std::string& line) {
  static const std::string q = "\"((?:[^\"\\\\]|\\\\.)*)\"";
  static const std::regex kLine("ABAP message: ID=" + q + " Type=" + q + " Number=" + q + " V1=" + q + " V2=" + q +
                                " V3=" + q + " V4=" + q);
  std::smatch m;
  if (!std::regex_search(line, m, kLine)) return std::nullopt;
  AbapMessage a;
  a.messageClass = unescaped(m[1].str());
  a.type = unescaped(m[2].str());
  a.number = unescaped(m[3].str());
  for (int i = 0; i < 4; ++i) a.variables[i] = unescaped(m[4 + i].str());
  return a;
}

void setCauseTrace(const std::string& path) {
  g_causeTrace = path;
  g_traceMark = traceSize();
}
void setErrorFormat(ErrorFormat format) { g_errorFormat = format; }
void setFaultsAreAnswers(bool answers) { g_faultsAreAnswers = answers; }

void noteForFailure(const std::string& key, nlohmann::ordered_json value, const std::string& text) {
  g_notes.push_back({key, std::move(value), text});
}

void check(HRESULT hr, const std::string& context) {
  if (FAILED(hr)) throw ComFailure(context, hr, recordText(hr));
}

void checkSession(HRESULT hr, ISession* session, const std::string& context) { checkRecorded(hr, session, context); }

void checkReader(HRESULT hr, ITableReader* reader, const std::string& context) { checkRecorded(hr, reader, context); }

int exitStatus(const std::exception& e) {
  if (dynamic_cast<const UsageError*>(&e)) return kExitUsage;
  if (dynamic_cast<const OutputError*>(&e)) return kExitOutput;
  if (const auto* rfc = dynamic_cast<const RfcFailure*>(&e)) {
    if (refusedLogon(*rfc)) return kExitLogon;
    if (rfc->group() == RFCERROR_APPLICATION_EXCEPTION || abapErrorMessage(*rfc)) return kExitAbap;
    if (rfc->group() == RFCERROR_COMMUNICATION && !g_faultsAreAnswers) return kExitCommunication;
    return kExitFailure;
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
    addAbapMessage(j, *rfc);
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
    if (const auto& a = rfc->abapMessage()) {
      std::cerr << "  abap:    message " << a->messageClass << " " << a->number << " (" << a->type << ")";
      for (int i = 0; i < 4; ++i) std::cerr << (i ? ", " : ": ") << "V" << i + 1 << " '" << a->variables[i] << "'";
      std::cerr << "\n";
    }
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
