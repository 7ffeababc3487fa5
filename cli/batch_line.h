// One line of `veltrane batch`: a call as JSON,
//   {"function": "NAME", "parameters": {...}, "only": [...], "id": ...}.
#pragma once

#include <set>
#include <string>

#include "values.h"

namespace veltrane::cli {

struct BatchCall {
  std::string function;  // upper case
  Json parameters = Json::object();
  std::set<std::string> only;  // upper case
  Json id;                     // null when not given
};

// The call of a line; anything else (bad UTF-8, bad JSON, members of the
// wrong kind, an unknown member, no function) is a UsageError.
BatchCall parseBatchLine(const std::string& line);

}  // namespace veltrane::cli
