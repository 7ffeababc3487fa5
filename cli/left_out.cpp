#include "left_out.h"

#include <iostream>

#include "backends.h"
#include "call_request.h"
#include "failure.h"
#include "parameter_sets.h"
#include "text.h"

namespace veltrane::cli {

namespace {

const char* directionOf(const std::string& parameterClass) {
  if (parameterClass == "I") return "importing";
  if (parameterClass == "E") return "exporting";
  if (parameterClass == "C") return "changing";
  if (parameterClass == "T") return "tables";
  return nullptr;  // an exception, or a class of no parameter
}

std::string kindOf(const std::string& exid) {
  if (exid == "h") return "table type";
  if (exid == "v") return "deep structure";
  if (exid == "u") return "structure";
  return "type '" + exid + "'";
}

bool inCall(IFunctionCall* call, const std::string& name) {
  for (auto get : {&IFunctionCall::get_Importing, &IFunctionCall::get_Exporting, &IFunctionCall::get_Changing,
                   &IFunctionCall::get_Tables}) {
    CComPtr<IRfcParameters> set = parameterGroup(call, get);
    VARIANT_BOOL known = VARIANT_FALSE;
    check(set->HasKey(bstr(name), &known), "looking up " + name);
    if (known) return true;
  }
  return false;
}

std::string text(const Json& row, const char* field) {
  const auto it = row.find(field);
  return it != row.end() && it->is_string() ? it->get<std::string>() : std::string();
}

}  // namespace

std::optional<std::vector<LeftOutParameter>> leftOutParameters(Connection& connection, IFunctionCall* call,
                                                               const std::string& function) {
  Json rows;
  try {
    CComPtr<IFunctionCall> lookup = connection.importCall("RFC_GET_FUNCTION_INTERFACE");
    assignJson(lookup, "RFC_GET_FUNCTION_INTERFACE", "FUNCNAME", function);
    connection.call(lookup, "RFC_GET_FUNCTION_INTERFACE");
    rows = resultJson(lookup, ResultSelection{{"PARAMS"}, {}})["tables"]["PARAMS"];
  } catch (const std::exception& e) {
    std::cerr << "veltrane: cannot tell which parameters of " << function << " the "
              << backendNamed(connection.settings().backend).label << " back end leaves out: " << e.what() << "\n";
    return std::nullopt;
  }
  std::vector<LeftOutParameter> leftOut;
  for (const Json& row : rows) {
    const char* direction = directionOf(text(row, "PARAMCLASS"));
    const std::string name = text(row, "PARAMETER");
    if (!direction || name.empty() || inCall(call, name)) continue;
    leftOut.push_back({name, direction, kindOf(text(row, "EXID")), text(row, "TABNAME")});
  }
  return leftOut;
}

std::string leftOutText(const std::vector<LeftOutParameter>& leftOut) {
  std::string out;
  for (const LeftOutParameter& p : leftOut)
    out += (out.empty() ? "" : ", ") + p.name + " (" + p.direction + ", " + p.kind + " " + p.type + ")";
  return out;
}

Json leftOutJson(const std::vector<LeftOutParameter>& leftOut) {
  Json list = Json::array();
  for (const LeftOutParameter& p : leftOut)
    list.push_back({{"name", p.name}, {"direction", p.direction}, {"kind", p.kind}, {"type", p.type}});
  return list;
}

void requireCarried(Connection& connection, IFunctionCall* call, const std::string& function, const std::string& name) {
  if (inCall(call, name)) return;
  const auto leftOut = leftOutParameters(connection, call, function);
  if (!leftOut) return;
  for (const LeftOutParameter& p : *leftOut)
    if (p.name == name)
      throw UsageError(name + " is a parameter of " + function + " (" + p.direction + ", " + p.kind + " " + p.type +
                       ") that the " + backendNamed(connection.settings().backend).label +
                       " back end cannot carry: call without it, or over another back end");
}

}  // namespace veltrane::cli
