// Parameters a back end leaves out of a function's interface because it
// cannot carry them (the classic RFC back end and SOAP carry no deep
// structures, the classic one no table types outside TABLES): what the
// system's RFC_GET_FUNCTION_INTERFACE lists beyond the imported call.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <veltrane.h>

#include "connection.h"
#include "values.h"

namespace veltrane::cli {

struct LeftOutParameter {
  std::string name;
  std::string direction;  // importing, exporting, changing, tables
  std::string kind;       // "deep structure", "table type", ...
  std::string type;       // the dictionary type
};

// The parameters of `function` missing from `call`, in the system's order;
// nullopt when the system does not list the interface (the reason is on
// standard error, the command goes on).
std::optional<std::vector<LeftOutParameter>> leftOutParameters(Connection& connection, IFunctionCall* call,
                                                               const std::string& function);

// "IS_DEEP (importing, deep structure ZVSIM_DEEP), ..."
std::string leftOutText(const std::vector<LeftOutParameter>& leftOut);

Json leftOutJson(const std::vector<LeftOutParameter>& leftOut);

// A UsageError when `name`, given for `function`, is not a parameter of the
// imported call but one the back end left out; nothing otherwise (a name the
// function does not have at all is reported where the value is assigned).
void requireCarried(Connection& connection, IFunctionCall* call, const std::string& function, const std::string& name);

}  // namespace veltrane::cli
