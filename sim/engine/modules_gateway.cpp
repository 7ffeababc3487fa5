// Modules that reach beyond the system: calls to registered programs through the gateway, the
// gateway's fault switch, planned faults of the fronts, and a run counter for exactly-once tests.
#include "engine/convert.h"
#include "engine/module_builder.h"

namespace vsim {

void installGatewayModules(System& s) {
  ModuleBuilder(s, "Z_VSIM_CALL_PROGRAM", "ZVSIM", "Calls a function of a registered program")
      .imp("PROGRAM_ID", "C64", false, {}, "Program ID the program registered with")
      .imp("FUNCTION", "RS38L_FNAM", false, {}, "Function to call")
      .imp("PARAMETERS", "STRING", true, {}, "Parameters as a JSON object")
      .imp("MODE", "C1", true, "'S'", "S synchronous, T transactional")
      .imp("TID", "C24", true, {}, "Transaction ID; empty: a new one")
      .imp("CONFIRM", "C1", true, "'X'", "Confirm the transaction ID after success")
      .imp("TCODE", "C20", true, "'SE37'", "Transaction code passed on as the caller's")
      .imp("TIMEOUT_MS", "I", true, "30000", "Time the program has to answer")
      .exp("RESULT", "STRING", "Exporting, changing and tables values as a JSON object")
      .exp("EXCEPTION", "C30", "ABAP exception the program raised")
      .exp("EXCEPTION_TEXT", "STRING", "Text of that exception")
      .exp("TID_USED", "C24", "Transaction ID the call ran under")
      .exp("EXECUTED_BEFORE", "C1", "X: the program had executed this transaction before")
      .exc("COMMUNICATION_FAILURE", "The program is not reached")
      .exc("SYSTEM_FAILURE", "The program failed")
      .install([](CallContext& ctx) {
        Gateway* gateway = ctx.system().gateway();
        if (!gateway) {
          AbapMessage m{"SR", "E", "053", "The gateway is not running", {"", "", "", ""}};
          ctx.raise("COMMUNICATION_FAILURE", m);
        }
        ProgramCall call;
        call.programId = ctx.text("PROGRAM_ID");
        call.function = toUpper(ctx.text("FUNCTION"));
        call.parametersJson = ctx.text("PARAMETERS");
        if (trim(call.parametersJson).empty()) call.parametersJson = "{}";
        const std::string mode = toUpper(ctx.text("MODE"));
        call.transactional = mode == "T";
        if (!call.transactional && mode != "S" && !mode.empty())
          throw SystemFailure("CALL_FUNCTION_PARM_UNKNOWN", "MODE is S or T, not " + mode);
        call.tid = toUpper(ctx.text("TID"));
        if (call.transactional && call.tid.empty()) call.tid = TransactionLog::newTid();
        call.confirm = ctx.text("CONFIRM") == "X";
        call.timeoutMs = std::max<std::int64_t>(ctx.integer("TIMEOUT_MS"), 1);
        call.caller = ctx.logon();
        call.tcode = ctx.text("TCODE");
        call.callerProgram = "SAPL" + ctx.call().function().group;
        ProgramResult r = gateway->call(call);
        ctx["RESULT"] = Value(r.resultJson);
        ctx.set("EXCEPTION", r.exception);
        ctx["EXCEPTION_TEXT"] = Value(r.exceptionText);
        ctx.set("TID_USED", call.transactional ? call.tid : std::string());
        ctx.set("EXECUTED_BEFORE", r.executedBefore ? "X" : "");
      });

  ModuleBuilder(s, "Z_VSIM_GATEWAY", "ZVSIM", "Registered programs: list them or drop them all")
      .imp("ACTION", "C10", true, "'LIST'", "LIST, or DROP to end all their connections")
      .exp("COUNT", "I", "Registered connections (before the drop)")
      .exp("PROGRAMS", "STRING", "Program IDs, separated by blanks")
      .install([](CallContext& ctx) {
        Gateway* gateway = ctx.system().gateway();
        const std::string action = toUpper(ctx.text("ACTION"));
        std::vector<std::string> programs;
        if (gateway) programs = gateway->programs();
        std::string list;
        for (const auto& p : programs) list += (list.empty() ? "" : " ") + p;
        ctx["PROGRAMS"] = Value(list);
        if (action == "DROP") {
          ctx["COUNT"] = Value(static_cast<std::int64_t>(ctx.system().dropRegisteredPrograms()));
        } else if (action == "LIST" || action.empty()) {
          ctx["COUNT"] = Value(static_cast<std::int64_t>(programs.size()));
        } else {
          throw SystemFailure("CALL_FUNCTION_PARM_UNKNOWN", "ACTION is LIST or DROP, not " + action);
        }
      });

  ModuleBuilder(s, "Z_VSIM_FAULT", "ZVSIM", "Plans a fault of a front for later requests")
      .imp("FAULT", "C40", false, {}, "delay:MS, close, malformed; on SOAP also status:CODE, namespace")
      .imp("FRONT", "C4", true, "'RFC'", "RFC or SOAP")
      .imp("FOR_USER", "C12", true, {}, "Only requests of this user")
      .imp("FOR_CLIENT", "C3", true, {}, "Only requests in this client")
      .imp("REPEAT", "I", true, "1", "Requests it applies to; 0: until cleared")
      .imp("CLEAR", "C1", true, {}, "X: drop all planned faults instead")
      .exp("ID", "I", "Number of the planned fault")
      .install([](CallContext& ctx) {
        if (ctx.text("CLEAR") == "X") {
          ctx.system().faults().clear();
          return;
        }
        auto fault = parseFault(ctx.text("FAULT"));
        auto front = parseFront(std::string(trim(toUpper(ctx.text("FRONT")) == "SOAP" ? "soap" : "rfc")));
        if (!fault || !front || !faultFitsFront(*fault, *front))
          throw SystemFailure("CALL_FUNCTION_PARM_UNKNOWN", "FAULT '" + ctx.text("FAULT") + "' does not fit the front");
        FaultRule rule;
        rule.fault = *fault;
        rule.front = *front;
        rule.user = toUpper(ctx.text("FOR_USER"));
        rule.client = ctx.supplied("FOR_CLIENT") ? ctx.text("FOR_CLIENT") : std::string();
        rule.remaining = std::max<std::int64_t>(ctx.integer("REPEAT"), 0);
        ctx["ID"] = Value(static_cast<std::int64_t>(ctx.system().faults().add(rule)));
      });

  ModuleBuilder(s, "Z_VSIM_COUNT_RUNS", "ZVSIM", "Counts its runs per key, for exactly-once tests")
      .imp("KEY", "C40", false, {}, "What to count")
      .imp("READ_ONLY", "C1", true, {}, "X: only read the count")
      .exp("RUNS", "I", "Runs under this key so far")
      .install([](CallContext& ctx) {
        const std::string key = ctx.text("KEY");
        ctx["RUNS"] = Value(ctx.system().count(key, ctx.text("READ_ONLY") == "X" ? 0 : 1));
      });
}

}  // namespace vsim
