// The logon of sessions on veltrane-sim in the tests: client 001, language
// EN, a user and its password.
#pragma once

#include "platform/atlbase.h"
#include "veltrane_tlb.h"

namespace test_support {

inline void SetSimLogon(ISession* session, const char16_t* user, const char16_t* password) {
  CComPtr<ILogonData> logon;
  session->get_LogonData(&logon);
  logon->put_Client(CComBSTR(u"001"));
  logon->put_Language(CComBSTR(u"EN"));
  logon->put_User(CComBSTR(user));
  logon->put_Password(CComBSTR(password));
}

}  // namespace test_support
