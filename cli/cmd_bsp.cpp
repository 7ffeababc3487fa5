// veltrane bsp: shows a BSP application in its window and prints the
// parameters that it returned.
#include <iostream>

#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "output.h"
#include "password.h"
#include "text.h"

namespace veltrane::cli {

namespace {

int runBsp(const ParsedArgs& args) {
  if (args.positionals().size() != 1) throw UsageError("bsp takes one APPLICATION");
  const Format format = outputFormat(args);
  const ConnectionSettings s = connectionSettings(args);
  std::vector<std::pair<std::string, std::string>> sent;
  for (const std::string& p : args.values("param")) {
    const size_t eq = p.find('=');
    if (eq == std::string::npos || eq == 0) throw UsageError("option --param: '" + p + "' is not NAME=VALUE");
    sent.emplace_back(p.substr(0, eq), p.substr(eq + 1));
  }
  const std::string password =
      obtainPassword("Password for " + s.user + " in client " + s.client + " at " + s.host + ": ");

  CComPtr<IBSPApplication> app;
  check(CoCreateInstance(CLSID_BSPApplication, nullptr, CLSCTX_INPROC_SERVER, IID_IBSPApplication,
                         reinterpret_cast<void**>(&app)),
        "creating the BSP application");
  if (!s.traceFile.empty()) check(app->put_Option(bstr("trace.file"), bstr(s.traceFile)), "setting the trace file");
  CComPtr<IHttpSystemData> system;
  check(app->get_HttpSystemData(&system), "reading the system data");
  check(system->put_Protocol(bstr("http")), "setting the protocol");
  check(system->put_Host(bstr(s.host)), "setting the host");
  check(system->put_Port(s.port), "setting the port");
  CComPtr<ILogonData> logon;
  check(app->get_LogonData(&logon), "reading the logon data");
  fillLogonData(logon, s, password);
  CComPtr<IBSPParameters> parameters;
  check(app->get_Parameters(&parameters), "reading the parameters");
  for (const auto& [name, value] : sent)
    check(parameters->AddParameter(bstr(name), bstr(value)), "adding the parameter " + name);

  const std::string exitPage = args.valueOr("exit-page", "");
  check(app->ShowApplication(bstr(args.positionals().front()), bstr(exitPage)), "showing the application");

  // What the page returned stands behind the parameters sent.
  LONG count = 0;
  check(parameters->get_Count(&count), "counting the parameters");
  Json returned = Json::array();
  TextTable table{{"NAME", "VALUE"}, {}, {}};
  for (LONG i = static_cast<LONG>(sent.size()) + 1; i <= count; ++i) {
    CComPtr<IBSPParameter> p;
    check(parameters->get_Item(CComVariant(i), &p), "reading a returned parameter");
    CComBSTR name, value;
    check(p->get_name(&name), "reading a parameter's name");
    check(p->get_value(&value), "reading a parameter's value");
    returned.push_back(Json{{"name", utf8(name)}, {"value", utf8(value)}});
    table.rows.push_back({utf8(name), utf8(value)});
  }
  if (format == Format::Json)
    printJson(std::cout, Json{{"parameters", returned}});
  else
    printTable(std::cout, table);
  return 0;
}

}  // namespace

Command bspCommand() {
  return {"bsp",
          "APPLICATION",
          "show a BSP application in its window and print the parameters it returns",
          "Opens the modal browser window of BSPApplication on APPLICATION, a path on the\n"
          "system's HTTP port (such as /sap/bc/bsp/sap/zapp/start.htm) or a whole URL, logged\n"
          "on with the connection options (the password is answered to the server's challenge).\n"
          "The window closes when a URL contains the exit page, or when you close it. The\n"
          "parameters the page returned in the URL of the exit page are printed as\n"
          "{\"parameters\": [{\"name\": ..., \"value\": ...}]}: none when the window was closed\n"
          "before. The window needs a display (DISPLAY or WAYLAND_DISPLAY).",
          {{"exit-page", "TEXT", "close the window when a URL contains TEXT (case-sensitive)"},
           {"param", "NAME=VALUE", "send a parameter in the URL (repeatable, in order)", true}},
          true,
          runBsp};
}

}  // namespace veltrane::cli
