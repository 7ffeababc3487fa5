// One call of a function module as the command makes it, for `call` and
// `batch`: values into the importing, changing and tables parameters, which
// results come back, and the results as JSON or as text tables.
#pragma once

#include <cstdint>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <veltrane.h>

#include "values.h"

namespace veltrane::cli {

inline constexpr std::int64_t kDefaultFileLimitMiB = 16;

// NAME=VALUE or NAME=@FILE (at most fileLimit bytes); "@@" at the start of
// the value stands for a literal "@". Bad input is a UsageError.
void assignArgument(IFunctionCall* call, const std::string& function, const std::string& argument,
                    std::int64_t fileLimit);

// A value for the parameter NAME (any case) as JSON.
void assignJson(IFunctionCall* call, const std::string& function, const std::string& name, const Json& value);

// "A,B" and repeated options into a set of upper-case names.
std::set<std::string> nameList(const std::vector<std::string>& options);

// Asks the system only for the exporting parameters in `only`; a name the
// function does not return is a UsageError.
void requestOnly(IFunctionCall* call, const std::string& function, const std::set<std::string>& only);

// What the results show: with `only`, just those parameters; else all
// but the tables parameters the caller gave, which would only echo input.
struct ResultSelection {
  std::set<std::string> only;
  std::set<std::string> given;
};

// {"exporting": {...}, "changing": {...}, "tables": {...}}
Json resultJson(IFunctionCall* call, const ResultSelection& selection);

// The results as text tables: scalars as a PARAMETER/VALUE table,
// structures and tables each as a table of its own.
void printResultTable(std::ostream& out, IFunctionCall* call, const Json& result);

}  // namespace veltrane::cli
