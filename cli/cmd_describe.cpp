// veltrane describe: the interface of a function module, in its XML form or
// as JSON with type names.
#include <iostream>

#include "backends.h"
#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "left_out.h"
#include "output.h"
#include "parameter_sets.h"
#include "text.h"

namespace veltrane::cli {

namespace {

std::string abapTypeName(ABAPTYPE type) {
  switch (type) {
    case TYPE_CHAR: return "CHAR";
    case TYPE_DATE: return "DATE";
    case TYPE_BCD: return "PACKED";
    case TYPE_TIME: return "TIME";
    case TYPE_BYTE: return "RAW";
    case TYPE_NUM: return "NUMC";
    case TYPE_FLOAT: return "FLOAT";
    case TYPE_INT: return "INT";
    case TYPE_INT2: return "INT2";
    case TYPE_INT1: return "INT1";
    case TYPE_STRING: return "STRING";
    case TYPE_XSTRING: return "XSTRING";
    default: return "TYPE_" + std::to_string(static_cast<int>(type));
  }
}

std::string text(HRESULT (STDMETHODCALLTYPE IRfcParameter::*get)(BSTR*), IRfcParameter* p) {
  CComBSTR value;
  check((p->*get)(&value), "reading a parameter");
  return utf8(value);
}

Json typeJson(IRfcType* type, bool member) {
  Json j = Json::object();
  CComBSTR name;
  check(type->get_name(&name), "reading a type name");
  j["type"] = utf8(name);
  switch (typeKind(type)) {
    case RFCTYPEKIND_SCALAR: {
      const ABAPTYPE abap = scalarType(type);
      j["kind"] = "scalar";
      j["abapType"] = abapTypeName(abap);
      if (const long length = scalarLength(type, member); length > 0) j["length"] = length;
      if (abap == TYPE_BCD) {
        SHORT decimals = 0;
        check(type->get_ScalarDecimals(&decimals), "reading a type");
        j["decimals"] = decimals;
      }
      break;
    }
    case RFCTYPEKIND_STRUCT: {
      j["kind"] = "structure";
      CComPtr<IRfcTypes> members;
      check(type->get_StructFields(&members), "reading the fields of a structure");
      Json fields = Json::array();
      LONG n = 0;
      if (members) check(members->get_Count(&n), "counting fields");
      for (LONG i = 1; i <= n; ++i) {
        CComPtr<IRfcType> m;
        check(members->get_Item(CComVariant(i), &m), "reading a field");
        CComBSTR field;
        check(m->get_name(&field), "reading a field name");
        Json f = Json::object();
        f["name"] = utf8(field);
        const Json type = typeJson(m, true);
        for (const auto& [k, v] : type.items())
          if (k != "type") f[k] = v;
        fields.push_back(std::move(f));
      }
      j["fields"] = std::move(fields);
      break;
    }
    case RFCTYPEKIND_TABLE: {
      j["kind"] = "table";
      CComPtr<IRfcType> row;
      check(type->get_RowType(&row), "reading the row type of a table");
      if (row) j["rowType"] = typeJson(row, true);
      break;
    }
    default: j["kind"] = "undefined";
  }
  return j;
}

Json interfaceJson(IFunctionCall* call, const std::string& function) {
  Json j = Json::object();
  j["function"] = function;
  Json params = Json::array();
  const std::pair<const char*, ParameterGroupGetter> sets[] = {
      {"importing", &IFunctionCall::get_Importing},
      {"exporting", &IFunctionCall::get_Exporting},
      {"changing", &IFunctionCall::get_Changing},
      {"tables", &IFunctionCall::get_Tables},
  };
  for (const auto& [direction, get] : sets) {
    forEachParameter(parameterGroup(call, get), [&](IRfcParameter* p, const std::string& name) {
      Json param = Json::object();
      param["name"] = name;
      param["direction"] = direction;
      VARIANT_BOOL optional = VARIANT_FALSE;
      check(p->get_Optional(&optional), "reading a parameter");
      param["optional"] = optional != VARIANT_FALSE;
      if (const std::string d = text(&IRfcParameter::get_DefaultValue, p); !d.empty()) param["default"] = d;
      if (const std::string d = text(&IRfcParameter::get_Description, p); !d.empty()) param["description"] = d;
      CComPtr<IRfcType> type;
      check(p->get_RfcType(&type), "reading the type of a parameter");
      const Json described = typeJson(type, false);
      for (const auto& [k, v] : described.items()) param[k] = v;
      params.push_back(std::move(param));
    });
  }
  j["parameters"] = std::move(params);
  return j;
}

int runDescribe(const ParsedArgs& args) {
  if (args.positionals().size() != 1) throw UsageError("describe needs exactly one FUNCTION");
  const std::string function = upperAscii(args.positionals()[0]);
  const std::string format = args.valueOr("format", "xml");
  if (format != "xml" && format != "json")
    throw UsageError("option --format: '" + format + "' is not a format (xml or json)");
  Connection connection(connectionSettings(args));
  CComPtr<IFunctionCall> call = connection.importCall(function);
  const auto leftOut = leftOutParameters(connection, call, function);
  if (format == "json") {
    Json j = interfaceJson(call, function);
    if (leftOut) j["leftOut"] = leftOutJson(*leftOut);
    printJson(std::cout, j);
  } else {
    if (leftOut && !leftOut->empty())
      std::cerr << "veltrane: the " << backendNamed(connection.settings().backend).label << " back end leaves out "
                << function << "'s parameters it cannot carry: " << leftOutText(*leftOut) << "\n";
    CComBSTR xml;
    check(call->ToXML(&xml), "writing the interface of " + function + " as XML");
    std::string text = utf8(xml);
    if (text.empty() || text.back() != '\n') text += '\n';
    std::cout << text;
  }
  connection.close();
  return 0;
}

}  // namespace

Command describeCommand() {
  return {"describe",
          "FUNCTION",
          "print the interface of a function module as XML or JSON",
          "Imports the interface of FUNCTION from the system's dictionary and prints it in\n"
          "the XML form of a function call (parameters, their directions and types), or\n"
          "with --format json as JSON with type names (CHAR, NUMC, PACKED, ...) and lengths\n"
          "in characters (CHAR, NUMC, DATE, TIME), bytes (RAW) or digits (PACKED).",
          {{"format", "xml|json", "the XML form (default) or JSON"}},
          false,
          runDescribe};
}

}  // namespace veltrane::cli
