#include "nwrfc_sdk/config.h"

#include <sys/stat.h>

#include <fstream>
#include <mutex>

#include "nwrfc_sdk/errors.h"
#include "nwrfc_sdk/text.h"
#include "nwrfc_sdk/trace.h"

namespace nwrfc {

namespace {

std::mutex& iniMutex() {
  static std::mutex m;
  return m;
}

std::string trimmed(const std::string& s) {
  const size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return {};
  const size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

}  // namespace

ConnectionParameters ConnectionParameters::collect(const RFC_CONNECTION_PARAMETER* params, unsigned count) {
  if (!params && count) fail(RFC_INVALID_PARAMETER, "No connection parameters were given");
  ConnectionParameters out;
  std::vector<std::pair<std::string, std::string>> given;
  for (unsigned i = 0; i < count; ++i) {
    if (!params[i].name) fail(RFC_INVALID_PARAMETER, "Connection parameter " + std::to_string(i) + " has no name");
    given.emplace_back(lowerAscii(toUtf8(ucView(params[i].name))), toUtf8(ucView(params[i].value)));
  }
  for (const auto& [name, value] : given)
    if (name == "dest" && !value.empty()) {
      for (auto& [k, v] : iniFile().section(value)) out.pairs_.emplace_back(lowerAscii(k), v);
      break;
    }
  out.pairs_.insert(out.pairs_.end(), given.begin(), given.end());
  return out;
}

std::string ConnectionParameters::get(const std::string& name) const {
  for (const auto& [k, v] : pairs_)
    if (k == name) return v;
  return {};
}

bool ConnectionParameters::has(const std::string& name) const {
  for (const auto& [k, v] : pairs_)
    if (k == name) return true;
  return false;
}

std::string ConnectionParameters::traceText() const {
  std::string out;
  for (const auto& [k, v] : pairs_) out += (out.empty() ? "" : " ") + k + "=" + (k == "passwd" ? "***" : v);
  return out;
}

std::string servicePort(const std::string& service) {
  const std::string s = lowerAscii(trimmed(service));
  auto digits = [](const std::string& t) {
    return !t.empty() && t.find_first_not_of("0123456789") == std::string::npos;
  };
  if (digits(s)) return s;
  if (s.size() == 6 && s.compare(0, 4, "sapgw") == 0 && digits(s.substr(4)))
    return std::to_string(3300 + std::stoi(s.substr(4)));
  if (s.size() == 7 && s.compare(0, 5, "sapgw") == 0 && digits(s.substr(5)))
    return std::to_string(3300 + std::stoi(s.substr(5)));
  return {};
}

Endpoint applicationServer(const ConnectionParameters& p) {
  Endpoint e;
  e.host = p.get("ashost");
  if (e.host.empty()) e.host = p.get("gwhost");
  if (e.host.empty()) {
    if (p.has("mshost"))
      fail(RFC_NOT_SUPPORTED, "Logon through a message server (MSHOST) is not supported; give ASHOST and SYSNR");
    fail(RFC_INVALID_PARAMETER, "Parameter ASHOST, GWHOST, MSHOST or PORT is missing.");
  }
  if (const std::string gw = p.get("gwserv"); !gw.empty()) {
    e.port = servicePort(gw);
    if (e.port.empty()) fail(RFC_INVALID_PARAMETER, "Service '" + gw + "' of GWSERV is unknown");
    return e;
  }
  const std::string nr = trimmed(p.get("sysnr"));
  if (nr.empty()) fail(RFC_INVALID_PARAMETER, "Parameter SYSNR is missing.");
  if (nr.size() != 2 || nr.find_first_not_of("0123456789") != std::string::npos)
    fail(RFC_INVALID_PARAMETER, "SYSNR '" + nr + "' is not a two-digit system number");
  e.port = std::to_string(3300 + std::stoi(nr));
  return e;
}

Endpoint gateway(const ConnectionParameters& p) {
  Endpoint e;
  e.host = p.get("gwhost");
  if (e.host.empty()) e.host = p.get("ashost");
  const std::string gw = p.get("gwserv");
  if (e.host.empty() || gw.empty()) fail(RFC_INVALID_PARAMETER, "Parameter GWHOST or GWSERV is missing.");
  e.port = servicePort(gw);
  if (e.port.empty()) fail(RFC_INVALID_PARAMETER, "Service '" + gw + "' of GWSERV is unknown");
  return e;
}

IniFile& iniFile() {
  static IniFile* f = new IniFile();
  return *f;
}

void IniFile::setPath(const std::string& path) {
  std::lock_guard lock(iniMutex());
  path_ = path;
  loaded_ = false;
}

std::string IniFile::file() const {
  if (path_.empty()) return "sapnwrfc.ini";
  struct stat st {};
  if (::stat(path_.c_str(), &st) == 0 && S_ISREG(st.st_mode)) return path_;
  return path_ + "/sapnwrfc.ini";
}

void IniFile::load() {
  sections_.clear();
  loaded_ = true;
  const std::string name = file();
  std::ifstream in(name);
  if (!in) {
    struct stat st {};
    if (::stat(name.c_str(), &st) == 0) fail(RFC_INVALID_PARAMETER, "Configuration file " + name + " cannot be read");
    return;  // a missing file is no error
  }
  std::string line;
  std::vector<std::pair<std::string, std::string>> defaults;
  std::vector<std::pair<std::string, std::string>>* current = &defaults;
  while (std::getline(in, line)) {
    const std::string t = trimmed(line);
    if (t.empty() || t[0] == '#') continue;
    if (upperAscii(t) == "DEFAULT") {
      current = &defaults;
      continue;
    }
    const size_t eq = t.find('=');
    if (eq == std::string::npos || eq == 0) continue;
    const std::string key = upperAscii(trimmed(t.substr(0, eq)));
    const std::string value = trimmed(t.substr(eq + 1));
    if (key == "DEST") {
      sections_.emplace_back(value, std::vector<std::pair<std::string, std::string>>{});
      current = &sections_.back().second;
      continue;
    }
    if (key == "DEFAULT") continue;
    current->emplace_back(key, value);
  }
  for (const auto& [k, v] : defaults) {
    if (k == "RFC_TRACE") trace().setLevel(static_cast<unsigned>(std::atoi(v.c_str())));
    if (k == "RFC_TRACE_DIR") trace().setDirectory(v);
  }
}

void IniFile::reload() {
  std::lock_guard lock(iniMutex());
  load();
}

std::vector<std::pair<std::string, std::string>> IniFile::section(const std::string& dest) {
  std::lock_guard lock(iniMutex());
  if (!loaded_) load();
  for (const auto& [name, pairs] : sections_)
    if (name == dest) return pairs;
  fail(RFC_INVALID_PARAMETER, "Destination " + dest + " does not exist in " + file());
}

}  // namespace nwrfc
