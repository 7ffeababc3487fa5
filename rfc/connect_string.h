// The connect string of the classic SDK: RfcSystemData's ConnectString as
// it stands, then a " KEY=value" piece for each logon value that is set, in
// a fixed order (CLIENT, USER, PASSWD, LANG, MYSAPSSO2, X509CERT, EXTIDDATA,
// EXTIDTYPE, USE_SAPGUI, ABAP_DEBUG).
#pragma once

#include <string>
#include <string_view>

#include "platform/wtypes.h"

struct ClassicLogon {
  std::u16string_view connectString;
  std::u16string_view client, user, password, language, sso2Ticket, x509Cert, extIdData, extIdType;
  SHORT visualMode = 0;
  bool debug = false;
};

struct ClassicConnectString {
  std::u16string text;    // what the SDK gets
  std::u16string traced;  // the same with the password's characters as "*"
};

// User and password go in double quotes when they hold a blank, '"', '\',
// ',', '/', '@', ':', ';' or '_', each '"' then behind a backslash; the
// language goes in upper case; VisualMode not 0 adds " USE_SAPGUI=<n>",
// Debug " ABAP_DEBUG=1".
ClassicConnectString BuildClassicConnectString(const ClassicLogon& logon);

// value as the connect string carries a user or a password.
std::u16string QuoteLogonValue(std::u16string_view value);
