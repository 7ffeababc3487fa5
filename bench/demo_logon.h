// The logon of the benchmarks at veltrane-sim: user DEMO in client 001.
#pragma once

#include "platform/atlbase.h"
#include "veltrane_tlb.h"

namespace bench {

inline void DemoLogon(ISession* session) {
  CComPtr<ILogonData> logon;
  session->get_LogonData(&logon);
  logon->put_Client(CComBSTR(u"001"));
  logon->put_Language(CComBSTR(u"EN"));
  logon->put_User(CComBSTR(u"DEMO"));
  logon->put_Password(CComBSTR(u"Welcome1"));
}

}  // namespace bench
