// veltrane check-password and check-unicode: the session's service calls.
#include <iostream>

#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "output.h"

namespace veltrane::cli {

namespace {

void printAnswer(Format format, const std::string& key, bool value) {
  Json result = Json::object();
  result[key] = value;
  printProperties(std::cout, result, format);
}

int runCheckPassword(const ParsedArgs& args) {
  if (!args.positionals().empty()) throw UsageError("check-password takes no arguments");
  const Format format = outputFormat(args);
  Connection connection(connectionSettings(args));
  VARIANT_BOOL expired = VARIANT_FALSE;
  checkSession(connection.session()->CheckPasswordExpired(&expired), connection.session(),
               "checking the password state");
  connection.close();
  printAnswer(format, "passwordExpired", expired != VARIANT_FALSE);
  return 0;
}

int runCheckUnicode(const ParsedArgs& args) {
  if (!args.positionals().empty()) throw UsageError("check-unicode takes no arguments");
  const Format format = outputFormat(args);
  Connection connection(connectionSettings(args));
  VARIANT_BOOL unicode = VARIANT_FALSE;
  checkSession(connection.session()->CheckUnicodeSupport(&unicode), connection.session(), "checking Unicode support");
  connection.close();
  printAnswer(format, "unicode", unicode != VARIANT_FALSE);
  return 0;
}

}  // namespace

Command checkPasswordCommand() {
  return {"check-password",
          "",
          "tell whether the user's password has expired",
          "Calls SUSR_LOGIN_CHECK_RFC. The answer is \"passwordExpired\": true when the system\n"
          "says PASSWORD_EXPIRED; any other failure is reported as an error.",
          {},
          true,
          runCheckPassword};
}

Command checkUnicodeCommand() {
  return {"check-unicode",
          "",
          "tell whether the system is a Unicode system",
          "Calls SLDAG_CHECK_FOR_UNICODE. The answer is \"unicode\": true or false.",
          {},
          true,
          runCheckUnicode};
}

}  // namespace veltrane::cli
