// Logon, connection parameters, sessions and connection attributes.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "sdk_fixture.h"

using namespace sdktest;

namespace {

struct LogonCase {
  const char* name;
  std::vector<std::pair<std::string, std::string>> changes;  // value "-" removes the parameter
  RFC_RC rc;
  RFC_ERROR_GROUP group;
  const char* message;
};

class LogonFailures : public ::testing::TestWithParam<LogonCase> {};

TEST_P(LogonFailures, RefuseWithTheSdksCodeGroupAndMessage) {
  const LogonCase& c = GetParam();
  Params p = Params::logon();
  for (const auto& [k, v] : c.changes) {
    if (v == "-")
      p.remove(k);
    else
      p.set(k, v);
  }
  RFC_ERROR_INFO info;
  EXPECT_EQ(RfcOpenConnection(p.data(), p.count(), &info), nullptr);
  EXPECT_EQ(info.code, c.rc) << describe(c.rc, info);
  EXPECT_EQ(info.group, c.group);
  EXPECT_EQ(utf8(info.message).find(c.message), 0u) << utf8(info.message);
}

INSTANTIATE_TEST_SUITE_P(Table, LogonFailures,
                         ::testing::Values(LogonCase{"WrongPassword",
                                                     {{"passwd", "wrong"}},
                                                     RFC_LOGON_FAILURE,
                                                     RFC_ERROR_GROUP::LOGON_FAILURE,
                                                     "Name or password is incorrect (repeat logon)"},
                                           LogonCase{"UnknownUser",
                                                     {{"user", "NOBODY"}},
                                                     RFC_LOGON_FAILURE,
                                                     RFC_ERROR_GROUP::LOGON_FAILURE,
                                                     "Name or password is incorrect (repeat logon)"},
                                           LogonCase{"LockedUser",
                                                     {{"user", "LOCKED"}},
                                                     RFC_LOGON_FAILURE,
                                                     RFC_ERROR_GROUP::LOGON_FAILURE,
                                                     "User is locked. Please notify the person responsible"},
                                           LogonCase{"UnknownClient",
                                                     {{"client", "999"}},
                                                     RFC_LOGON_FAILURE,
                                                     RFC_ERROR_GROUP::LOGON_FAILURE,
                                                     "Client 999 is not available in this system"},
                                           LogonCase{"UnknownLanguage",
                                                     {{"lang", "XX"}},
                                                     RFC_LOGON_FAILURE,
                                                     RFC_ERROR_GROUP::LOGON_FAILURE,
                                                     "Language XX is not available in this system"},
                                           LogonCase{"BadTicket",
                                                     {{"passwd", "-"}, {"mysapsso2", "bm90IGEgdGlja2V0"}},
                                                     RFC_LOGON_FAILURE,
                                                     RFC_ERROR_GROUP::LOGON_FAILURE,
                                                     "Logon ticket is not valid"},
                                           LogonCase{"NoHost",
                                                     {{"ashost", "-"}},
                                                     RFC_INVALID_PARAMETER,
                                                     RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE,
                                                     "Parameter ASHOST, GWHOST, MSHOST or PORT is missing."},
                                           LogonCase{"NoSystemNumber",
                                                     {{"gwserv", "-"}},
                                                     RFC_INVALID_PARAMETER,
                                                     RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE,
                                                     "Parameter SYSNR is missing."},
                                           LogonCase{"NobodyListens",
                                                     {{"gwserv", "-"}, {"sysnr", "99"}},
                                                     RFC_COMMUNICATION_FAILURE,
                                                     RFC_ERROR_GROUP::COMMUNICATION_FAILURE,
                                                     "partner '"},
                                           LogonCase{"UnknownService",
                                                     {{"gwserv", "sapgwXY"}},
                                                     RFC_INVALID_PARAMETER,
                                                     RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE,
                                                     "Service 'sapgwXY' of GWSERV is unknown"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Connection, NamesInAnyCaseAndTheLanguageAsOneLetter) {
  RFC_CONNECTION_HANDLE c = open(Params{{"ASHOST", rfcHost()},
                                        {"GwServ", rfcPort()},
                                        {"CLIENT", "001"},
                                        {"User", "demo"},
                                        {"PASSWD", "Welcome1"},
                                        {"LANG", "D"}});
  ASSERT_NE(c, nullptr);
  RFC_ATTRIBUTES a;
  RFC_ERROR_INFO info;
  ASSERT_EQ(RfcGetConnectionAttributes(c, &a, &info), RFC_OK);
  EXPECT_EQ(utf8(a.user), "DEMO");
  EXPECT_EQ(utf8(a.language), "D");
  EXPECT_EQ(utf8(a.isoLanguage), "DE");
  EXPECT_EQ(utf8(a.sysId), "VSM");
  EXPECT_EQ(utf8(a.client), "001");
  EXPECT_EQ(utf8(a.partnerHost), "vsimhost");
  EXPECT_EQ(utf8(a.rfcRole), "C");
  EXPECT_EQ(RfcCloseConnection(c, &info), RFC_OK);
}

TEST(Connection, OneConnectionIsOneAbapSession) {
  RFC_CONNECTION_HANDLE a = open(), b = open();
  for (int i = 1; i <= 3; ++i) {
    Call counter(a, "Z_VSIM_COUNTER");
    ASSERT_EQ(counter.invoke(), RFC_OK);
    EXPECT_EQ(counter.getInt("CALLS"), i);
  }
  Call other(b, "Z_VSIM_COUNTER");
  ASSERT_EQ(other.invoke(), RFC_OK);
  EXPECT_EQ(other.getInt("CALLS"), 1);
  RfcCloseConnection(a, nullptr);
  RfcCloseConnection(b, nullptr);
}

TEST(Connection, ClosedOrUnknownHandlesAreInvalid) {
  RFC_CONNECTION_HANDLE c = open();
  RFC_ERROR_INFO info;
  int valid = 0;
  EXPECT_EQ(RfcIsConnectionHandleValid(c, &valid, &info), RFC_OK);
  EXPECT_EQ(valid, 1);
  EXPECT_EQ(RfcPing(c, &info), RFC_OK);
  EXPECT_EQ(RfcCloseConnection(c, &info), RFC_OK);
  EXPECT_EQ(RfcPing(c, &info), RFC_INVALID_HANDLE);
  EXPECT_EQ(RfcIsConnectionHandleValid(c, &valid, &info), RFC_INVALID_HANDLE);
  EXPECT_EQ(valid, 0);
  EXPECT_EQ(RfcCloseConnection(nullptr, &info), RFC_INVALID_HANDLE);
  EXPECT_EQ(utf8(info.message), "An invalid handle 'RFC_CONNECTION_HANDLE' was passed to the API call");
  EXPECT_EQ(utf8(info.key), "RFC_INVALID_HANDLE");
  EXPECT_EQ(RfcCloseConnection(nullptr, nullptr), RFC_INVALID_HANDLE);  // no record: accepted
}

TEST(Connection, TicketInsteadOfPassword) {
  RFC_CONNECTION_HANDLE c = open();
  Call t(c, "Z_VSIM_SSO2_TICKET");
  ASSERT_EQ(t.invoke(), RFC_OK);
  const std::string ticket = t.getString("TICKET");
  ASSERT_FALSE(ticket.empty());
  RfcCloseConnection(c, nullptr);

  Params p = Params::logon();
  p.remove("passwd").remove("user").set("mysapsso2", ticket);
  RFC_CONNECTION_HANDLE s = open(p);
  ASSERT_NE(s, nullptr);
  RFC_ATTRIBUTES a;
  ASSERT_EQ(RfcGetConnectionAttributes(s, &a, nullptr), RFC_OK);
  EXPECT_EQ(utf8(a.user), "DEMO");
  RfcCloseConnection(s, nullptr);
}

TEST(Connection, DestinationFromTheIniFileWithExplicitParametersForWhatItLacks) {
  const auto dir = std::filesystem::temp_directory_path() / ("nwrfc_ini_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  {
    std::ofstream ini(dir / "sapnwrfc.ini");
    ini << "# test destinations\nDEST=VSIM\nASHOST=" << rfcHost() << "\nGWSERV=" << rfcPort()
        << "\nCLIENT=001\nLANG=DE\n\nDEST=OTHER\nASHOST=nowhere.invalid\n";
  }
  RFC_ERROR_INFO info;
  ASSERT_EQ(RfcSetIniPath(dir.u16string().c_str(), &info), RFC_OK);
  ASSERT_EQ(RfcReloadIniFile(&info), RFC_OK);
  RFC_CONNECTION_HANDLE c = open(Params{{"dest", "VSIM"}, {"user", "DEMO"}, {"passwd", "Welcome1"}, {"lang", "EN"}});
  ASSERT_NE(c, nullptr);
  RFC_ATTRIBUTES a;
  ASSERT_EQ(RfcGetConnectionAttributes(c, &a, nullptr), RFC_OK);
  EXPECT_EQ(utf8(a.language), "D") << "the section's value counts";
  EXPECT_EQ(utf8(a.dest), "VSIM");
  RfcCloseConnection(c, nullptr);

  Params unknown{{"dest", "MISSING"}};
  EXPECT_EQ(RfcOpenConnection(unknown.data(), unknown.count(), &info), nullptr);
  EXPECT_EQ(info.code, RFC_INVALID_PARAMETER);
  ASSERT_EQ(RfcSetIniPath((dir / "absent").u16string().c_str(), &info), RFC_OK);
  EXPECT_EQ(RfcReloadIniFile(&info), RFC_OK) << "a missing file is no error";
  RfcSetIniPath(u".", nullptr);
  std::filesystem::remove_all(dir);
}

TEST(Connection, GatewayServiceNamesAndSystemNumbersGivePorts) {
  // sapgwNN and sysnr NN both mean port 3300 + NN; nothing listens on 3399 here.
  for (auto p : {Params::logon().set("gwserv", "sapgw99"), Params::logon().remove("gwserv").set("sysnr", "99")}) {
    RFC_ERROR_INFO info;
    EXPECT_EQ(RfcOpenConnection(p.data(), p.count(), &info), nullptr);
    EXPECT_EQ(info.code, RFC_COMMUNICATION_FAILURE);
    EXPECT_NE(utf8(info.message).find(":3399"), std::string::npos) << utf8(info.message);
  }
}

TEST(Library, VersionTraceAndNames) {
  unsigned major = 0, minor = 1, patch = 1;
  EXPECT_NE(RfcGetVersion(&major, &minor, &patch), nullptr);
  EXPECT_EQ(major, 7500u);
  EXPECT_EQ(utf8(RfcGetRcAsString(RFC_INVALID_PARAMETER)), "RFC_INVALID_PARAMETER");
  EXPECT_EQ(utf8(RfcGetRcAsString(RFC_LOCKING_FAILURE)), "RFC_LOCKING_FAILURE");
  EXPECT_EQ(utf8(RfcGetTypeAsString(RFCTYPE_CHAR)), "RFCTYPE_CHAR");
  EXPECT_EQ(utf8(RfcGetTypeAsString(RFCTYPE_UTCLONG)), "RFCTYPE_UTCLONG");
  EXPECT_EQ(utf8(RfcGetDirectionAsString(RFC_TABLES)), "RFC_TABLES");

  const auto dir = std::filesystem::temp_directory_path() / ("nwrfc_trace_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  std::u16string d = dir.u16string();
  RFC_ERROR_INFO info;
  ASSERT_EQ(RfcSetTraceDir(d.data(), &info), RFC_OK);
  ASSERT_EQ(RfcSetTraceLevel(nullptr, nullptr, 2, &info), RFC_OK);
  EXPECT_EQ(RfcSetTraceLevel(nullptr, nullptr, 9, &info), RFC_INVALID_PARAMETER);
  RFC_CONNECTION_HANDLE c = open();
  RfcCloseConnection(c, nullptr);
  RfcSetTraceLevel(nullptr, nullptr, 0, nullptr);
  const auto file = dir / ("rfc" + std::to_string(::getpid()) + ".trc");
  std::ifstream in(file);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find("RfcOpenConnection"), std::string::npos);
  EXPECT_NE(text.find("passwd=***"), std::string::npos);
  EXPECT_EQ(text.find("Welcome1"), std::string::npos) << "passwords stay out of the trace";
  char16_t here[] = u".";
  RfcSetTraceDir(here, nullptr);
  std::filesystem::remove_all(dir);
}

TEST(Library, Utf8Conversions) {
  const std::string text = "Grüße €";
  unsigned size = 3, length = 0;
  SAP_UC small[3];
  RFC_ERROR_INFO info;
  EXPECT_EQ(RfcUTF8ToSAPUC(reinterpret_cast<const RFC_BYTE*>(text.data()), static_cast<unsigned>(text.size()), small,
                           &size, &length, &info),
            RFC_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 8u);
  SAP_UC buf[8];
  ASSERT_EQ(RfcUTF8ToSAPUC(reinterpret_cast<const RFC_BYTE*>(text.data()), static_cast<unsigned>(text.size()), buf,
                           &size, &length, &info),
            RFC_OK);
  EXPECT_EQ(std::u16string(buf, length), u"Grüße €");
  RFC_BYTE back[32];
  unsigned bytes = sizeof back;
  ASSERT_EQ(RfcSAPUCToUTF8(buf, length, back, &bytes, &length, &info), RFC_OK);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(back), length), text);
}

}  // namespace
