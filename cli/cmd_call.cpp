// veltrane call: runs a function module with values from the command line.
#include <iostream>
#include <set>

#include "backends.h"
#include "call_request.h"
#include "interface_cache.h"
#include "left_out.h"
#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "output.h"
#include "text.h"

namespace veltrane::cli {

namespace {

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
  }
  const std::int64_t fileLimit = args.number("file-limit", kDefaultFileLimitMiB, 1, 4096) << 20;
  ConnectionSettings settings = connectionSettings(args);
  const bool transactional = args.has("trfc");
  if (!transactional && (args.has("tid") || args.has("send") || args.has("confirm")))
    throw UsageError("--tid, --send and --confirm go with --trfc");
  if (transactional) requireTransactions(settings, args.has("tid") ? "--tid" : "");
  const ResultSelection selection{nameList(args.values("only")), given};
  settings.checkLogonAtConnect = false;  // the call itself proves it
  Connection connection(std::move(settings));
  InterfaceSource source{args.has("refresh"), args.valueOr("interface", "")};
  CComPtr<IFunctionCall> call = functionInterface(connection, function, source);
  for (const std::string& name : given) requireCarried(connection, call, function, name);
  for (size_t i = 1; i < args.positionals().size(); ++i)
    assignArgument(call, function, args.positionals()[i], fileLimit);
  if (!selection.only.empty()) requestOnly(call, function, selection.only);
  if (transactional) {
    sendTransactional(args, connection, call, format);
    connection.close();
    return 0;
  }
  connection.call(call, function);
  const Json result = resultJson(call, selection);
  if (format == Format::Json) {
    printJson(std::cout, result);
  } else {
    printResultTable(std::cout, call, result);
  }
  connection.close();
  return 0;
}

}  // namespace

Command callCommand() {
  return {
      "call",
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
      "  veltrane call BAPI_FLIGHT_GETLIST AIRLINE=LH --only FLIGHT_LIST \\\n"
      "      'DATE_RANGE=[{\"SIGN\":\"I\",\"OPTION\":\"BT\",\"LOW\":\"2025-01-01\",\"HIGH\":\"2025-03-31\"}]'\n"
      "  veltrane --backend nwrfc call --trfc --send 2 --confirm Z_VSIM_COUNT_RUNS KEY=demo",
      {
          {"trfc", "", "send as a transactional call and print its transaction ID"},
          {"tid", "TID", "the transaction ID to send under (default: a new one)"},
          {"send", "N", "send N times under the one ID (default 1); it runs once"},
          {"confirm", "", "confirm the ID after sending"},
          {"file-limit", "MIB", "largest file NAME=@FILE reads, in MiB (default 16)"},
          {"refresh", "", "import the interface from the system again, replacing the cached copy"},
          {"interface", "FILE", "the interface in its XML form (as 'describe' prints it) instead of the system's"},
          {"only", "NAME,...", "return only these parameters (repeatable); the system is asked only for them", true},
      },
      true,
      runCall};
}

}  // namespace veltrane::cli
