// veltrane batch: many calls in one session, as JSON lines on standard
// input and standard output.
#include <iostream>
#include <optional>

#include "batch_line.h"
#include "call_request.h"
#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "interface_cache.h"
#include "output.h"
#include "text.h"

namespace veltrane::cli {

namespace {

Json runOne(Connection& connection, const BatchCall& c, const InterfaceSource& source) {
  CComPtr<IFunctionCall> call = functionInterface(connection, c.function, source);
  ResultSelection selection{c.only, {}};
  for (const auto& [name, value] : c.parameters.items()) {
    if (!selection.given.insert(upperAscii(name)).second)
      throw UsageError(upperAscii(name) + " is given more than once");
    assignJson(call, c.function, name, value);
  }
  if (!c.only.empty()) requestOnly(call, c.function, c.only);
  connection.call(call, c.function);
  return resultJson(call, selection);
}

void writeLine(const Json& j) {
  std::cout << j.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n" << std::flush;
  checkOutput();
}

int runBatch(const ParsedArgs& args) {
  if (!args.positionals().empty()) throw UsageError("batch takes no arguments: the calls come on standard input");
  const bool stopOnError = args.has("stop-on-error");
  const InterfaceSource source{args.has("refresh"), {}};
  Connection connection(connectionSettings(args));
  int status = kExitOk;
  std::string line;
  for (long number = 1; std::getline(std::cin, line); ++number) {
    if (trim(line).empty()) continue;
    Json out = Json::object();
    out["line"] = number;
    try {
      const BatchCall c = parseBatchLine(line);
      if (!c.id.is_null()) out["id"] = c.id;
      out["function"] = c.function;
      out["result"] = runOne(connection, c, source);
      writeLine(out);
    } catch (const OutputError&) {
      throw;
    } catch (const std::exception& e) {
      out.erase("result");
      out["error"] = failureJson(e);
      writeLine(out);
      if (status == kExitOk) status = exitStatus(e);
      if (stopOnError) break;
    }
  }
  connection.close();
  return status;
}

}  // namespace

Command batchCommand() {
  return {"batch",
          "",
          "run calls given as JSON lines on standard input, in one session",
          "Reads one call per line from standard input,\n"
          "  {\"function\": \"BAPI_...\", \"parameters\": {\"NAME\": value, ...}, \"only\": [\"NAME\"], \"id\": 1}\n"
          "runs them one after the other in one session and writes one line per call:\n"
          "  {\"line\": 1, \"id\": 1, \"function\": \"BAPI_...\", \"result\": {\"exporting\": ..., ...}}\n"
          "or, for a call that failed, \"error\" with the failure as --error-format json shows it.\n"
          "Values are as 'call' takes them, as JSON. With --stateful (SOAP) the calls share one\n"
          "ABAP session, so that a BAPI and BAPI_TRANSACTION_COMMIT work together; the NW RFC\n"
          "back end keeps one connection anyway. A failing call is reported and the batch goes\n"
          "on, unless --stop-on-error is given; the exit status is that of the first failure.\n"
          "\n"
          "Example:\n"
          "  printf '%s\\n' '{\"function\":\"Z_VSIM_COUNTER\",\"parameters\":{\"STEP\":2}}' \\\n"
          "      '{\"function\":\"Z_VSIM_COUNTER\"}' | veltrane batch --stateful",
          {
              {"stop-on-error", "", "stop at the first failing call"},
              {"refresh", "", "import interfaces from the system again, replacing the cached copies"},
          },
          false,
          runBatch};
}

}  // namespace veltrane::cli
