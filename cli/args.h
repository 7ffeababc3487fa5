// A small command-line parser: long options with or without a value
// ("--max 10", "--max=10"), flags, "-h", "--" and positional arguments.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltrane::cli {

struct OptionDef {
  std::string name;       // without the dashes
  std::string valueName;  // empty: a flag without value
  std::string help;
  bool repeatable = false;
};

class ParsedArgs {
 public:
  bool has(std::string_view name) const;
  // The last value given, if any.
  std::optional<std::string> value(std::string_view name) const;
  std::string valueOr(std::string_view name, std::string fallback) const;
  const std::vector<std::string>& values(std::string_view name) const;
  // A whole number in [min, max]; a bad number is a UsageError naming the option.
  std::int64_t number(std::string_view name, std::int64_t fallback, std::int64_t min, std::int64_t max) const;
  const std::vector<std::string>& positionals() const { return positionals_; }

  void add(const std::string& name, std::string value) { values_[name].push_back(std::move(value)); }
  void addPositional(std::string value) { positionals_.push_back(std::move(value)); }

 private:
  std::map<std::string, std::vector<std::string>, std::less<>> values_;
  std::vector<std::string> positionals_;
};

// Parses args against the option definitions. "-h" counts as "--help" when
// a "help" option exists. A value that starts with "--" must be given as
// "--name=VALUE". Unknown options, a missing value, a value given to a flag
// and a repeated single option are UsageErrors mentioning `command`.
ParsedArgs parseArgs(const std::vector<std::string>& args, const std::vector<OptionDef>& defs,
                     const std::string& command);

// Parses a whole number; nothing for anything else (signs allowed, no blanks).
std::optional<std::int64_t> parseInteger(std::string_view text);

}  // namespace veltrane::cli
