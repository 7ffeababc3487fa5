#include "rfc_sdk/options.h"

#include <netdb.h>

#include <algorithm>

#include "rfc_sdk/errors.h"
#include "rfc_sdk/text.h"

namespace rfcsdk {

namespace {

[[noreturn]] void invalid(const std::string& message) { fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, message); }

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool allDigits(std::string_view s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// A value from `i`: bare up to the next blank, or in double quotes where \" stands for a quote.
std::string readValue(std::string_view text, size_t& i, const std::string& id) {
  std::string value;
  if (i < text.size() && text[i] == '"') {
    ++i;
    while (true) {
      if (i >= text.size()) invalid("Connect string: the value of " + id + " lacks its closing double quote");
      if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == '"') {
        value += '"';
        i += 2;
      } else if (text[i] == '"') {
        ++i;
        break;
      } else {
        value += text[i++];
      }
    }
    if (i < text.size() && !isBlank(text[i])) invalid("Connect string: a blank must follow the quoted value of " + id);
    return value;
  }
  while (i < text.size() && !isBlank(text[i])) value += text[i++];
  return value;
}

}  // namespace

ConnectOptions ConnectOptions::parse(std::string_view text) {
  ConnectOptions o;
  size_t i = 0;
  while (true) {
    while (i < text.size() && isBlank(text[i])) ++i;
    if (i >= text.size()) break;
    const size_t start = i;
    while (i < text.size() && text[i] != '=' && !isBlank(text[i])) ++i;
    const std::string id = upperAscii(text.substr(start, i - start));
    if (i >= text.size() || text[i] != '=') invalid("Connect string: '" + id + "' is not of the form ID=value");
    if (id.empty()) invalid("Connect string: a value without an ID");
    ++i;
    o.values_[id] = readValue(text, i, id);
  }
  return o;
}

std::string ConnectOptions::get(const std::string& id, const std::string& fallback) const {
  auto it = values_.find(id);
  return it == values_.end() ? fallback : it->second;
}

std::string ConnectOptions::choice(const std::string& id, const std::string& fallback,
                                   const std::vector<std::string>& allowed) const {
  const std::string v = upperAscii(get(id, fallback));
  if (std::find(allowed.begin(), allowed.end(), v) == allowed.end()) {
    std::string list;
    for (const auto& a : allowed) list += (list.empty() ? "" : ", ") + a;
    invalid("Connect string: " + id + "=" + v + " is not one of " + list);
  }
  return v;
}

ServerOptions parseServerArguments(const std::vector<std::string>& args) {
  ServerOptions o;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a.size() < 2 || a[0] != '-') invalid("Server argument '" + a + "' is not a flag such as -a<program ID>");
    const char flag = a[1];
    if (flag == 't' && a.size() == 2) {
      o.trace = true;
      continue;
    }
    std::string value = a.substr(2);
    if (value.empty()) {
      if (i + 1 >= args.size()) invalid(std::string("Server argument -") + flag + " lacks its value");
      value = args[++i];
    }
    switch (flag) {
      case 'a': o.programId = value; break;
      case 'g': o.gatewayHost = value; break;
      case 'x': o.gatewayService = value; break;
      case 'D': invalid("Server argument -D: destinations of saprfc.ini are not supported by this library");
      case 'L':
      case 'S': invalid(std::string("Server argument -") + flag + ": SNC is not supported by this library");
      default: invalid("Unknown server argument '" + a + "'");
    }
  }
  if (o.programId.empty()) invalid("Server arguments lack the program ID (-a)");
  if (o.gatewayHost.empty()) invalid("Server arguments lack the gateway host (-g)");
  if (o.gatewayService.empty()) invalid("Server arguments lack the gateway service (-x)");
  return o;
}

std::vector<std::string> splitCommandLine(std::string_view line) {
  std::vector<std::string> out;
  size_t i = 0;
  while (true) {
    while (i < line.size() && isBlank(line[i])) ++i;
    if (i >= line.size()) break;
    std::string word;
    bool quoted = false;
    while (i < line.size() && (quoted || !isBlank(line[i]))) {
      if (line[i] == '"')
        quoted = !quoted;
      else
        word += line[i];
      ++i;
    }
    if (quoted) invalid("Command line: a double quote is not closed");
    out.push_back(std::move(word));
  }
  return out;
}

std::string gatewayPort(const std::string& service) {
  if (allDigits(service)) return service;
  const std::string lower = [&] {
    std::string s = service;
    for (char& c : s) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    return s;
  }();
  if (lower.size() == 7 && lower.compare(0, 5, "sapgw") == 0 && allDigits(lower.substr(5)))
    return std::to_string(3300 + std::stoi(lower.substr(5)));
  servent entry{};
  servent* found = nullptr;
  char buffer[1024];
  if (getservbyname_r(service.c_str(), "tcp", &entry, buffer, sizeof buffer, &found) == 0 && found)
    return std::to_string(ntohs(static_cast<std::uint16_t>(found->s_port)));
  fail(RFC_FAILURE, RFC_ERROR_COMMUNICATION, "Service '" + service + "' is unknown");
}

}  // namespace rfcsdk
