#include "args.h"

#include <charconv>

#include "failure.h"

namespace veltrane::cli {

bool ParsedArgs::has(std::string_view name) const { return values_.find(name) != values_.end(); }

std::optional<std::string> ParsedArgs::value(std::string_view name) const {
  auto it = values_.find(name);
  if (it == values_.end() || it->second.empty()) return std::nullopt;
  return it->second.back();
}

std::string ParsedArgs::valueOr(std::string_view name, std::string fallback) const {
  auto v = value(name);
  return v ? *v : std::move(fallback);
}

const std::vector<std::string>& ParsedArgs::values(std::string_view name) const {
  static const std::vector<std::string> none;
  auto it = values_.find(name);
  return it == values_.end() ? none : it->second;
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
  if (text.empty()) return std::nullopt;
  if (text.front() == '+') text.remove_prefix(1);
  std::int64_t v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return v;
}

std::int64_t ParsedArgs::number(std::string_view name, std::int64_t fallback, std::int64_t min,
                                std::int64_t max) const {
  auto text = value(name);
  if (!text) return fallback;
  auto v = parseInteger(*text);
  if (!v) throw UsageError("option --" + std::string(name) + ": '" + *text + "' is not a whole number");
  if (*v < min || *v > max)
    throw UsageError("option --" + std::string(name) + ": " + *text + " is out of range (" + std::to_string(min) +
                     " to " + std::to_string(max) + ")");
  return *v;
}

ParsedArgs parseArgs(const std::vector<std::string>& args, const std::vector<OptionDef>& defs,
                     const std::string& command) {
  auto find = [&](std::string_view name) -> const OptionDef* {
    for (const auto& s : defs)
      if (s.name == name) return &s;
    return nullptr;
  };
  ParsedArgs parsed;
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      parsed.addPositional(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    std::string name;
    std::optional<std::string> inlineValue;
    if (arg == "-h") {
      name = "help";
    } else if (arg.rfind("--", 0) == 0) {
      const size_t eq = arg.find('=');
      name = arg.substr(2, eq == std::string::npos ? std::string::npos : eq - 2);
      if (eq != std::string::npos) inlineValue = arg.substr(eq + 1);
    } else {
      throw UsageError("unknown option " + arg + " for '" + command + "'");
    }
    const OptionDef* def = find(name);
    if (!def) throw UsageError("unknown option --" + name + " for '" + command + "'");
    if (!def->repeatable && parsed.has(name)) throw UsageError("option --" + name + " is given more than once");
    if (def->valueName.empty()) {
      if (inlineValue) throw UsageError("option --" + name + " takes no value");
      parsed.add(name, "");
      continue;
    }
    if (inlineValue) {
      parsed.add(name, *inlineValue);
    } else if (i + 1 < args.size() && !(args[i + 1].size() > 2 && args[i + 1].rfind("--", 0) == 0)) {
      parsed.add(name, args[++i]);
    } else {
      throw UsageError("option --" + name + " needs a value (" + def->valueName + ")");
    }
  }
  return parsed;
}

}  // namespace veltrane::cli
