#include "destinations.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "connection.h"
#include "failure.h"
#include "text.h"

namespace veltrane::cli {

std::string defaultDestinationsFile() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  if (config && *config) return std::string(config) + "/veltrane/destinations.ini";
  const char* home = std::getenv("HOME");
  return std::string(home && *home ? home : ".") + "/.config/veltrane/destinations.ini";
}

std::map<std::string, std::string> destinationEntries(const std::string& text, const std::string& name,
                                                      const std::string& file) {
  const auto options = connectionOptions();
  auto known = [&](const std::string& key) {
    for (const auto& o : options)
      if (o.name == key) return key != "dest" && key != "dest-file" && key != "trace";
    return false;
  };
  std::map<std::string, std::string> entries;
  std::istringstream in(text);
  std::string raw, section;
  bool found = false;
  for (int number = 1; std::getline(in, raw); ++number) {
    const std::string line = trim(raw);
    const std::string where = file + ":" + std::to_string(number) + ": ";
    if (line.empty() || line[0] == '#' || line[0] == ';') continue;
    if (line.front() == '[') {
      if (line.back() != ']') throw UsageError(where + "a section line ends in ']'");
      section = trim(line.substr(1, line.size() - 2));
      found |= section == name;
      continue;
    }
    const size_t eq = line.find('=');
    if (eq == std::string::npos) throw UsageError(where + "expected KEY = VALUE");
    const std::string key = trim(line.substr(0, eq));
    if (section != name) continue;
    if (key.find("password") != std::string::npos)
      throw UsageError(where + "a destination holds no password (use $VELTRANE_PASSWORD or the prompt)");
    if (!known(key)) throw UsageError(where + "'" + key + "' is not a connection option");
    if (entries.count(key)) throw UsageError(where + "'" + key + "' is given twice");
    entries[key] = trim(line.substr(eq + 1));
  }
  if (!found) throw UsageError("no destination [" + name + "] in " + file);
  return entries;
}

ParsedArgs withDestination(const ParsedArgs& args) {
  const auto name = args.value("dest");
  if (!name) {
    if (args.has("dest-file")) throw UsageError("--dest-file goes with --dest NAME");
    return args;
  }
  if (name->empty()) throw UsageError("option --dest: the name is empty");
  const std::string file = args.valueOr("dest-file", defaultDestinationsFile());
  std::ifstream in(file, std::ios::binary);
  if (!in) throw UsageError("option --dest: cannot read the destinations file '" + file + "'");
  std::ostringstream text;
  text << in.rdbuf();
  ParsedArgs merged = args;
  const auto options = connectionOptions();
  for (const auto& [key, value] : destinationEntries(text.str(), *name, file)) {
    if (args.has(key)) continue;
    bool flag = false;
    for (const auto& o : options)
      if (o.name == key) flag = o.valueName.empty();
    if (flag) {
      const std::string v = upperAscii(value);
      if (v == "TRUE" || v == "YES" || v == "1" || v == "X")
        merged.add(key, "");
      else if (v != "FALSE" && v != "NO" && v != "0" && !v.empty())
        throw UsageError(file + ": [" + *name + "] " + key + " is true or false, not '" + value + "'");
    } else {
      merged.add(key, value);
    }
  }
  return merged;
}

}  // namespace veltrane::cli
