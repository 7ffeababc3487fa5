// veltrane describe: the interface of a function module in its XML form.
#include <iostream>

#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "text.h"

namespace veltrane::cli {

namespace {

int runDescribe(const ParsedArgs& args) {
  if (args.positionals().size() != 1) throw UsageError("describe needs exactly one FUNCTION");
  const std::string function = upperAscii(args.positionals()[0]);
  Connection connection(connectionSettings(args));
  CComPtr<IFunctionCall> call = connection.importCall(function);
  CComBSTR xml;
  check(call->ToXML(&xml), "writing the interface of " + function + " as XML");
  connection.close();
  std::string text = utf8(xml);
  if (text.empty() || text.back() != '\n') text += '\n';
  std::cout << text;
  return 0;
}

}  // namespace

Command describeCommand() {
  return {"describe",
          "FUNCTION",
          "print the interface of a function module as XML",
          "Imports the interface of FUNCTION from the system's dictionary and prints it in\n"
          "the XML form of a function call (parameters, their directions and types).",
          {},
          false,
          runDescribe};
}

}  // namespace veltrane::cli
