// SUSR_LOGIN_CHECK_RFC, SUSR_USER_CHANGE_PASSWORD_RFC, SLDAG_CHECK_FOR_UNICODE, Z_VSIM_SSO2_TICKET.
#include "engine/convert.h"
#include "engine/module_builder.h"

namespace vsim {

void installSecurityModules(System& s) {
  ModuleBuilder(s, "SUSR_LOGIN_CHECK_RFC", "SUSO", "Check of logon data")
      .imp("BNAME", "XUBNAME", true, {}, "User name")
      .imp("PASSWORD", "XUNCODE", true, {}, "Password")
      .exc("WAIT", "Wait before the next logon attempt")
      .exc("USER_LOCKED", "User is locked")
      .exc("USER_NOT_ACTIVE", "User is not valid")
      .exc("PASSWORD_EXPIRED", "Password has expired")
      .exc("WRONG_PASSWORD", "Name or password is incorrect")
      .exc("NO_CHECK_FOR_THIS_USER", "No check possible for this user")
      .exc("PASSWORD_ATTEMPTS_LIMITED", "Too many failed attempts")
      .exc("INTERNAL_ERROR", "Internal error")
      .install([](CallContext& ctx) {
        std::string name = toUpper(ctx.text("BNAME"));
        if (name.empty()) name = ctx.logon().user;
        UserStore& users = ctx.system().users();
        auto user = users.find(ctx.logon().client, name);
        if (!user) ctx.raise("WRONG_PASSWORD");
        if (user->locked) ctx.raise("USER_LOCKED");
        const std::string password = ctx.text("PASSWORD");
        if (!password.empty()) {
          const LogonResult r = users.check(ctx.logon().client, name, password);
          if (r == LogonResult::Locked) ctx.raise("PASSWORD_ATTEMPTS_LIMITED");
          if (r != LogonResult::Ok) ctx.raise("WRONG_PASSWORD");
        }
        if (user->passwordExpired) ctx.raise("PASSWORD_EXPIRED");
      });

  ModuleBuilder(s, "SUSR_USER_CHANGE_PASSWORD_RFC", "SUSO", "Change of a user's password")
      .imp("BNAME", "XUBNAME", true, "SY-UNAME", "User name")
      .imp("PASSWORD", "XUNCODE", false, {}, "Current password")
      .imp("NEW_PASSWORD", "XUNCODE", false, {}, "New password")
      .imp("USE_BAPI_RETURN", "CHAR1", true, "SPACE", "Report errors in RETURN instead of exceptions")
      .exp("RETURN", "BAPIRET2", "Return message")
      .exc("CHANGE_NOT_ALLOWED", "Password change not allowed")
      .exc("PASSWORD_NOT_ALLOWED", "New password not allowed")
      .exc("INTERNAL_ERROR", "Internal error")
      .exc("CANCELED_BY_USER", "Canceled by user")
      .exc("PASSWORD_ATTEMPTS_LIMITED", "Too many failed attempts")
      .install([](CallContext& ctx) {
        const bool bapiReturn = ctx.text("USE_BAPI_RETURN") == "X";
        auto refuse = [&](const std::string& exception, const AbapMessage& m) {
          if (bapiReturn) {
            ctx.setReturn(m);
            return;
          }
          ctx.raise(exception, m);
        };
        std::string name = toUpper(ctx.text("BNAME"));
        if (name.empty()) name = ctx.logon().user;
        if (name != ctx.logon().user)
          return refuse(
              "CHANGE_NOT_ALLOWED",
              {"00", "E", "187", "You are not authorized to change the password of user " + name, {name, "", "", ""}});
        UserStore& users = ctx.system().users();
        const std::string oldPassword = ctx.text("PASSWORD"), newPassword = ctx.text("NEW_PASSWORD");
        const LogonResult r = users.check(ctx.logon().client, name, oldPassword);
        if (r == LogonResult::Locked)
          return refuse("PASSWORD_ATTEMPTS_LIMITED",
                        {"00", "E", "158", "User is locked. Please notify the person responsible", {}});
        if (r != LogonResult::Ok)
          return refuse("CHANGE_NOT_ALLOWED", {"00", "E", "152", "Name or password is incorrect (repeat logon)", {}});
        if (utf8Length(newPassword) < 6)
          return refuse("PASSWORD_NOT_ALLOWED",
                        {"00", "E", "192", "Password must contain at least 6 characters", {"6", "", "", ""}});
        if (newPassword == oldPassword)
          return refuse("PASSWORD_NOT_ALLOWED",
                        {"00", "E", "190", "Choose a password that is different from your last passwords", {}});
        users.setPassword(ctx.logon().client, name, newPassword);
        ctx.setReturn({"00", "S", "189", "Password was changed", {}});
      });

  ModuleBuilder(s, "SLDAG_CHECK_FOR_UNICODE", "SLDAG", "Is the system a Unicode system")
      .exp("UNICODE", "INT4", "1: Unicode system, 0: non-Unicode system")
      .install([](CallContext& ctx) { ctx["UNICODE"] = Value(std::int64_t{1}); });

  ModuleBuilder(s, "Z_VSIM_SSO2_TICKET", "ZVSIM", "Logon ticket for the current user")
      .imp("VALID_SECONDS", "I", true, "28800", "Validity in seconds")
      .exp("TICKET", "STRING", "Ticket as the MYSAPSSO2 cookie carries it")
      .install([](CallContext& ctx) {
        const std::int64_t seconds = ctx.integer("VALID_SECONDS");
        ctx["TICKET"] = Value(ctx.system().issueTicket(ctx.logon(), seconds > 0 ? seconds : 28800));
      });
}

}  // namespace vsim
