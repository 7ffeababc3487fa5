// veltrane call: runs a function module with values from the command line.
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

#include "backends.h"
#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "output.h"
#include "text.h"

namespace veltrane::cli {

namespace {

struct Group {
  const char* key;  // in the JSON result
  HRESULT (STDMETHODCALLTYPE IFunctionCall::*get)(IRfcParameters**);
};

const Group kResultGroups[] = {
    {"exporting", &IFunctionCall::get_Exporting},
    {"changing", &IFunctionCall::get_Changing},
    {"tables", &IFunctionCall::get_Tables},
};

CComPtr<IRfcParameters> parameters(IFunctionCall* call,
                                   HRESULT (STDMETHODCALLTYPE IFunctionCall::*get)(IRfcParameters**)) {
  CComPtr<IRfcParameters> params;
  check((call->*get)(&params), "reading the parameters");
  return params;
}

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
  LONG count = 0;
  check(params->get_Count(&count), "counting parameters");
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> p;
    check(params->get_Item(CComVariant(i), &p), "reading a parameter");
    CComBSTR n;
    check(p->get_name(&n), "reading a parameter name");
    names.push_back(utf8(n));
  }
  return names;
}

constexpr std::int64_t kDefaultFileLimitMiB = 16;

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

// NAME=VALUE, NAME=@FILE; "@@" at the start stands for a literal "@".
void assignArgument(IFunctionCall* call, const std::string& function, const std::string& argument,
                    std::int64_t fileLimit) {
  const size_t eq = argument.find('=');
  if (eq == std::string::npos || eq == 0) throw UsageError("argument '" + argument + "' is not of the form NAME=VALUE");
  const std::string name = upperAscii(argument.substr(0, eq));
  std::string value = argument.substr(eq + 1);

  CComPtr<IRfcParameter> param;
  for (auto get : {&IFunctionCall::get_Importing, &IFunctionCall::get_Changing, &IFunctionCall::get_Tables}) {
    if ((param = findParameter(parameters(call, get), name))) break;
  }
  if (!param) {
    if (findParameter(parameters(call, &IFunctionCall::get_Exporting), name))
      throw UsageError(name + " is an exporting parameter of " + function + " and cannot be given");
    std::string known;
    for (auto get : {&IFunctionCall::get_Importing, &IFunctionCall::get_Changing, &IFunctionCall::get_Tables})
      for (const auto& n : parameterNames(parameters(call, get))) known += (known.empty() ? "" : ", ") + n;
    throw UsageError(function + " has no parameter " + name +
                     (known.empty() ? " (it takes none)" : " (it takes: " + known + ")"));
  }
  CComPtr<IRfcField> field;
  check(param->get_InternalField(&field), "reading parameter " + name);
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

Json resultJson(IFunctionCall* call) {
  Json result = Json::object();
  for (const Group& g : kResultGroups) {
    CComPtr<IRfcParameters> params = parameters(call, g.get);
    Json group = Json::object();
    LONG count = 0;
    check(params->get_Count(&count), "counting parameters");
    for (LONG i = 1; i <= count; ++i) {
      CComPtr<IRfcParameter> p;
      check(params->get_Item(CComVariant(i), &p), "reading a parameter");
      CComPtr<IRfcField> field;
      check(p->get_InternalField(&field), "reading a parameter");
      CComBSTR name;
      check(p->get_name(&name), "reading a parameter name");
      group[utf8(name)] = fieldToJson(field);
    }
    result[g.key] = std::move(group);
  }
  return result;
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

void printResultTable(IFunctionCall* call, const Json& result) {
  bool first = true;
  auto heading = [&](const std::string& text) {
    if (!first) std::cout << "\n";
    first = false;
    std::cout << text << "\n";
  };
  for (const Group& g : kResultGroups) {
    CComPtr<IRfcParameters> params = parameters(call, g.get);
    const Json& group = result[g.key];
    TextTable scalars{{"PARAMETER", "VALUE"}, {}, {}};
    for (const auto& [name, value] : group.items())
      if (!value.is_object() && !value.is_array()) scalars.rows.push_back({name, cellText(value)});
    if (!scalars.rows.empty()) {
      heading(upperAscii(g.key));
      printTable(std::cout, scalars);
    }
    for (const auto& [name, value] : group.items()) {
      if (value.is_object()) {
        heading(upperAscii(g.key) + " " + name);
        TextTable fields{{"FIELD", "VALUE"}, {}, {}};
        for (const auto& [field, v] : value.items()) fields.rows.push_back({field, cellText(v)});
        printTable(std::cout, fields);
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
        printTable(std::cout, rows);
      }
    }
  }
  if (first) std::cout << "(no results)\n";
}

// Sends the call as a transactional call: under --tid, or a new ID, --send
// times, then confirms it with --confirm. Prints the ID.
void sendTransactional(const ParsedArgs& args, Connection& connection, IFunctionCall* call, Format format) {
  ISession* session = connection.session();
  std::string tid;
  if (auto given = args.value("tid")) {
    tid = *given;
  } else {
    CComBSTR created;
    checkSession(session->CreateTransID(&created), session, "creating a transaction ID");
    tid = utf8(created);
  }
  const long sends = static_cast<long>(args.number("send", 1, 1, 100));
  for (long i = 0; i < sends; ++i)
    checkSession(session->CallTRFCFunction(bstr(tid), call), session, "sending the call under " + tid);
  const bool confirm = args.has("confirm");
  if (confirm) checkSession(session->ConfirmTransID(bstr(tid)), session, "confirming " + tid);
  Json result = Json::object();
  result["tid"] = tid;
  result["sent"] = sends;
  result["confirmed"] = confirm;
  printProperties(std::cout, result, format);
}

int runCall(const ParsedArgs& args) {
  if (args.positionals().empty()) throw UsageError("call needs a FUNCTION");
  const Format format = outputFormat(args);
  const std::string function = upperAscii(args.positionals()[0]);
  std::set<std::string> given;
  for (size_t i = 1; i < args.positionals().size(); ++i) {
    const std::string& a = args.positionals()[i];
    if (a.find('=') == std::string::npos || a[0] == '=')
      throw UsageError("argument '" + a + "' is not of the form NAME=VALUE");
    const std::string name = upperAscii(a.substr(0, a.find('=')));
    if (!given.insert(name).second) throw UsageError(name + " is given more than once");
    if (!validUtf8(a)) throw UsageError(name + ": the value is not valid UTF-8");
  }
  const std::int64_t fileLimit = args.number("file-limit", kDefaultFileLimitMiB, 1, 4096) << 20;
  ConnectionSettings settings = connectionSettings(args);
  const bool transactional = args.has("trfc");
  if (!transactional && (args.has("tid") || args.has("send") || args.has("confirm")))
    throw UsageError("--tid, --send and --confirm go with --trfc");
  if (transactional) requireTransactions(settings, args.has("tid") ? "--tid" : "");
  Connection connection(std::move(settings));
  CComPtr<IFunctionCall> call = connection.importCall(function);
  for (size_t i = 1; i < args.positionals().size(); ++i)
    assignArgument(call, function, args.positionals()[i], fileLimit);
  if (transactional) {
    sendTransactional(args, connection, call, format);
    connection.close();
    return 0;
  }
  connection.call(call, function);
  const Json result = resultJson(call);
  if (format == Format::Json) {
    printJson(std::cout, result);
  } else {
    printResultTable(call, result);
  }
  connection.close();
  return 0;
}

}  // namespace

Command callCommand() {
  return {"call",
          "FUNCTION [NAME=VALUE ...]",
          "call a function module and print its results",
          "Imports the interface of FUNCTION, sets the importing, changing and tables\n"
          "parameters given as NAME=VALUE, calls it and prints the exporting, changing and\n"
          "tables parameters.\n"
          "\n"
          "Values: a scalar takes the text as it stands (dates YYYY-MM-DD, times HH:MM:SS,\n"
          "binary as base64); a structure takes a JSON object and a table a JSON array of\n"
          "objects. NAME=@FILE reads the value from FILE (for a scalar without its last line\n"
          "break); a value starting with \"@@\" stands for the text with one \"@\" less.\n"
          "\n"
          "\n"
          "With --trfc the call goes out as a transactional call (tRFC) and the command\n"
          "prints its transaction ID instead of results: the system runs it once, however\n"
          "often it is sent under that ID (--tid, --send), until the ID is confirmed\n"
          "(--confirm, or 'veltrane confirm TID'). The nwrfc back end knows only the IDs its\n"
          "own session created: there, send again and confirm within one command.\n"
          "\n"
          "Examples:\n"
          "  veltrane call BAPI_FLIGHT_GETLIST AIRLINE=LH \\\n"
          "      'DATE_RANGE=[{\"SIGN\":\"I\",\"OPTION\":\"BT\",\"LOW\":\"2024-01-01\",\"HIGH\":\"2024-03-31\"}]'\n"
          "  veltrane --backend nwrfc call --trfc --send 2 --confirm Z_VSIM_COUNT_RUNS KEY=demo",
          {
              {"trfc", "", "send as a transactional call and print its transaction ID"},
              {"tid", "TID", "the transaction ID to send under (default: a new one)"},
              {"send", "N", "send N times under the one ID (default 1); it runs once"},
              {"confirm", "", "confirm the ID after sending"},
              {"file-limit", "MIB", "largest file NAME=@FILE reads, in MiB (default 16)"},
          },
          true,
          runCall};
}

}  // namespace veltrane::cli
