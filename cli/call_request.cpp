#include "call_request.h"

#include <fstream>

#include "failure.h"
#include "output.h"
#include "parameter_sets.h"
#include "text.h"

namespace veltrane::cli {

namespace {

struct Group {
  const char* key;  // in the JSON result
  ParameterGroupGetter get;
};

const Group kResultGroups[] = {
    {"exporting", &IFunctionCall::get_Exporting},
    {"changing", &IFunctionCall::get_Changing},
    {"tables", &IFunctionCall::get_Tables},
};

CComPtr<IRfcParameter> findParameter(IRfcParameters* params, const std::string& name) {
  VARIANT_BOOL known = VARIANT_FALSE;
  check(params->HasKey(bstr(name), &known), "looking up " + name);
  if (!known) return nullptr;
  // By position, so that a numeric name is not taken for one.
  LONG count = 0;
  check(params->get_Count(&count), "counting parameters");
  for (LONG i = count; i >= 1; --i) {
    CComPtr<IRfcParameter> p;
    check(params->get_Item(CComVariant(i), &p), "reading a parameter");
    CComBSTR n;
    check(p->get_name(&n), "reading a parameter name");
    if (utf8(n) == name) return p;
  }
  return nullptr;
}

std::vector<std::string> parameterNames(IRfcParameters* params) {
  std::vector<std::string> names;
  forEachParameter(params, [&](IRfcParameter*, const std::string& name) { names.push_back(name); });
  return names;
}

// At most `limit` bytes: /dev/zero or a wrong file must not fill the memory.
std::string readFile(const std::string& path, const std::string& parameter, std::int64_t limit) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw UsageError(parameter + ": cannot read the file '" + path + "'");
  std::string text;
  char buffer[65536];
  while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
    text.append(buffer, static_cast<size_t>(in.gcount()));
    if (static_cast<std::int64_t>(text.size()) > limit)
      throw UsageError(parameter + ": the file '" + path + "' is larger than " + std::to_string(limit >> 20) +
                       " MiB (raise the limit with --file-limit MIB)");
  }
  if (in.bad()) throw UsageError(parameter + ": cannot read the file '" + path + "'");
  return text;
}

bool numericField(IRfcParameter* param, const std::string& member) {
  CComPtr<IRfcType> type;
  if (FAILED(param->get_RfcType(&type)) || !type) return false;
  if (typeKind(type) == RFCTYPEKIND_TABLE) {
    CComPtr<IRfcType> row;
    if (FAILED(type->get_RowType(&row)) || !row) return false;
    type = row;
  }
  if (member.empty()) return isNumericType(scalarType(type));
  CComPtr<IRfcTypes> members;
  if (FAILED(type->get_StructFields(&members)) || !members) return false;
  CComPtr<IRfcType> m;
  if (FAILED(members->get_Item(CComVariant(bstr(member)), &m)) || !m) return false;
  return isNumericType(scalarType(m));
}

CComPtr<IRfcParameter> inputParameter(IFunctionCall* call, const std::string& function, const std::string& name) {
  CComPtr<IRfcParameter> param;
  for (auto get : {&IFunctionCall::get_Importing, &IFunctionCall::get_Changing, &IFunctionCall::get_Tables}) {
    if ((param = findParameter(parameterGroup(call, get), name))) return param;
  }
  if (findParameter(parameterGroup(call, &IFunctionCall::get_Exporting), name))
    throw UsageError(name + " is an exporting parameter of " + function + " and cannot be given");
  std::string known;
  for (auto get : {&IFunctionCall::get_Importing, &IFunctionCall::get_Changing, &IFunctionCall::get_Tables})
    for (const auto& n : parameterNames(parameterGroup(call, get))) known += (known.empty() ? "" : ", ") + n;
  throw UsageError(function + " has no parameter " + name +
                   (known.empty() ? " (it takes none)" : " (it takes: " + known + ")"));
}

CComPtr<IRfcField> parameterField(IRfcParameter* param, const std::string& name) {
  CComPtr<IRfcField> field;
  check(param->get_InternalField(&field), "reading parameter " + name);
  return field;
}

}  // namespace

void assignArgument(IFunctionCall* call, const std::string& function, const std::string& argument,
                    std::int64_t fileLimit) {
  const size_t eq = argument.find('=');
  if (eq == std::string::npos || eq == 0) throw UsageError("argument '" + argument + "' is not of the form NAME=VALUE");
  const std::string name = upperAscii(argument.substr(0, eq));
  std::string value = argument.substr(eq + 1);
  if (!validUtf8(value)) throw UsageError(name + ": the value is not valid UTF-8");
  CComPtr<IRfcField> field = parameterField(inputParameter(call, function, name), name);
  CComPtr<IRfcType> type;
  check(field->get_RfcType(&type), "reading the type of " + name);

  if (value.rfind("@@", 0) == 0) {
    value.erase(0, 1);
  } else if (!value.empty() && value[0] == '@') {
    const std::string path = value.substr(1);
    value = readFile(path, name, fileLimit);
    if (!validUtf8(value)) throw UsageError(name + ": the file '" + path + "' is not valid UTF-8 text");
    // A text file's last line break is not part of a scalar value.
    if (typeKind(type) == RFCTYPEKIND_SCALAR && !value.empty() && value.back() == '\n') {
      value.pop_back();
      if (!value.empty() && value.back() == '\r') value.pop_back();
    }
  }
  textToField(field, value, name);
}

void assignJson(IFunctionCall* call, const std::string& function, const std::string& name, const Json& value) {
  const std::string upper = upperAscii(name);
  jsonToField(parameterField(inputParameter(call, function, upper), upper), value, upper);
}

std::set<std::string> nameList(const std::vector<std::string>& options) {
  std::set<std::string> names;
  for (const auto& option : options) {
    size_t start = 0;
    while (start <= option.size()) {
      size_t comma = option.find(',', start);
      if (comma == std::string::npos) comma = option.size();
      const std::string name = upperAscii(trim(option.substr(start, comma - start)));
      if (!name.empty()) names.insert(name);
      start = comma + 1;
    }
  }
  return names;
}

void requestOnly(IFunctionCall* call, const std::string& function, const std::set<std::string>& only) {
  std::set<std::string> known;
  for (const Group& g : kResultGroups)
    for (const auto& n : parameterNames(parameterGroup(call, g.get))) known.insert(n);
  for (const auto& n : only)
    if (!known.count(n)) throw UsageError("--only: " + function + " returns no parameter " + n);
  // A back end may stop reading exporting parameters at the first one not
  // requested: request every one up to the last wanted; the output keeps
  // only the wanted ones.
  CComPtr<IRfcParameters> exporting = parameterGroup(call, &IFunctionCall::get_Exporting);
  const std::vector<std::string> names = parameterNames(exporting);
  size_t end = 0;
  for (size_t i = 0; i < names.size(); ++i)
    if (only.count(names[i])) end = i + 1;
  for (size_t i = 0; i < names.size(); ++i)
    check(findParameter(exporting, names[i])->put_IsRequested(i < end ? VARIANT_TRUE : VARIANT_FALSE),
          "requesting " + names[i]);
}

Json resultJson(IFunctionCall* call, const ResultSelection& selection) {
  Json result = Json::object();
  for (const Group& g : kResultGroups) {
    CComPtr<IRfcParameters> params = parameterGroup(call, g.get);
    Json group = Json::object();
    forEachParameter(params, [&](IRfcParameter* p, const std::string& name) {
      if (!selection.only.empty() ? !selection.only.count(name)
                                  : selection.given.count(name) > 0 && g.get == &IFunctionCall::get_Tables)
        return;
      CComPtr<IRfcField> field;
      check(p->get_InternalField(&field), "reading a parameter");
      group[name] = fieldToJson(field);
    });
    result[g.key] = std::move(group);
  }
  return result;
}

void printResultTable(std::ostream& out, IFunctionCall* call, const Json& result) {
  bool first = true;
  auto heading = [&](const std::string& text) {
    if (!first) out << "\n";
    first = false;
    out << text << "\n";
  };
  for (const Group& g : kResultGroups) {
    CComPtr<IRfcParameters> params = parameterGroup(call, g.get);
    const Json& group = result[g.key];
    TextTable scalars{{"PARAMETER", "VALUE"}, {}, {}};
    for (const auto& [name, value] : group.items())
      if (!value.is_object() && !value.is_array()) scalars.rows.push_back({name, cellText(value)});
    if (!scalars.rows.empty()) {
      heading(upperAscii(g.key));
      printTable(out, scalars);
    }
    for (const auto& [name, value] : group.items()) {
      if (value.is_object()) {
        heading(upperAscii(g.key) + " " + name);
        TextTable fields{{"FIELD", "VALUE"}, {}, {}};
        for (const auto& [field, v] : value.items()) fields.rows.push_back({field, cellText(v)});
        printTable(out, fields);
      } else if (value.is_array()) {
        heading(upperAscii(g.key) + " " + name + " (" + std::to_string(value.size()) +
                (value.size() == 1 ? " row)" : " rows)"));
        if (value.empty()) continue;
        CComPtr<IRfcParameter> param = findParameter(params, name);
        TextTable rows;
        // Columns from the row type, in its order.
        CComPtr<IRfcField> field;
        if (param && SUCCEEDED(param->get_InternalField(&field))) {
          CComPtr<IRfcRows> r;
          CComPtr<IRfcType> rowType;
          CComPtr<IRfcTypes> members;
          if (SUCCEEDED(field->get_Rows(&r)) && SUCCEEDED(r->get_RfcType(&rowType)) && rowType &&
              SUCCEEDED(rowType->get_StructFields(&members)) && members) {
            LONG n = 0;
            members->get_Count(&n);
            for (LONG i = 1; i <= n; ++i) {
              CComPtr<IRfcType> m;
              CComBSTR mname;
              if (SUCCEEDED(members->get_Item(CComVariant(i), &m)) && m && SUCCEEDED(m->get_name(&mname))) {
                rows.headers.push_back(utf8(mname));
                rows.rightAligned.push_back(isNumericType(scalarType(m)));
              }
            }
          }
        }
        if (rows.headers.empty() && !value.empty())
          for (const auto& [column, v] : value.front().items()) {
            rows.headers.push_back(column);
            rows.rightAligned.push_back(param && numericField(param, column));
          }
        for (const Json& row : value) {
          std::vector<std::string> cells;
          for (const auto& column : rows.headers) cells.push_back(row.contains(column) ? cellText(row[column]) : "");
          rows.rows.push_back(std::move(cells));
        }
        printTable(out, rows);
      }
    }
  }
  if (first) out << "(no results)\n";
}

}  // namespace veltrane::cli
