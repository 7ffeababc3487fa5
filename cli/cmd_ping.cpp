// veltrane ping: connects (which sends RFC_PING) and tells where to.
#include <iostream>

#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "output.h"
#include "text.h"

namespace veltrane::cli {

namespace {

int runPing(const ParsedArgs& args) {
  if (!args.positionals().empty()) throw UsageError("ping takes no arguments");
  const Format format = outputFormat(args);
  Connection connection(connectionSettings(args));
  CComBSTR type;
  check(connection.session()->get_SessionType(&type), "reading the session type");
  const ConnectionSettings& s = connection.settings();
  Json result = Json::object();
  result["status"] = "ok";
  result["sessionType"] = utf8(type);
  result["address"] = s.address();
  result["client"] = s.client;
  result["user"] = s.user;
  result["language"] = s.language;
  result["stateful"] = s.stateful;
  connection.close();
  printProperties(std::cout, result, format);
  return 0;
}

}  // namespace

Command pingCommand() {
  return {"ping",
          "",
          "connect to the system and check that it answers",
          "Connects with the given logon data; the connect sends RFC_PING, so a successful\n"
          "ping proves host, port, client, user and password.",
          {},
          true,
          runPing};
}

}  // namespace veltrane::cli
