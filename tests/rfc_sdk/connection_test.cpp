// Opening and closing: the connect string, refused logons with their records, the inverted
// RfcLastErrorEx, handles, tickets and the trace.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "rfc_fixture.h"

using namespace rfctest;

namespace {

struct Refusal {
  const char* name;
  std::string extra;  // appended to the connect string; later IDs override earlier ones
  RFC_ERROR_GROUP group;
  const char* message;  // start of the message
};

class Refusals : public ::testing::TestWithParam<Refusal> {};

TEST_P(Refusals, GiveNoHandleAndTheRecord) {
  const Refusal& r = GetParam();
  std::u16string cs = u(connectString(r.extra));
  RFC_ERROR_INFO_EX info{};
  EXPECT_EQ(RfcOpenExU(cs.data(), &info), RFC_HANDLE_NULL);
  EXPECT_EQ(info.group, r.group);
  EXPECT_EQ(text(info.message).find(r.message), 0u) << text(info.message);
  EXPECT_FALSE(text(info.key).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, Refusals,
    ::testing::Values(
        Refusal{"WrongPassword", "PASSWD=wrong", RFC_ERROR_LOGON_FAILURE, "Name or password is incorrect"},
        Refusal{"LockedUser", "USER=LOCKED", RFC_ERROR_LOGON_FAILURE, "User is locked"},
        Refusal{"UnknownClient", "CLIENT=999", RFC_ERROR_LOGON_FAILURE, "Client 999 is not available in this system"},
        Refusal{"UnknownLanguage", "LANG=XX", RFC_ERROR_LOGON_FAILURE, "Language XX is not available"},
        Refusal{"PasswordUpperCased", "TOUPPER=1", RFC_ERROR_LOGON_FAILURE, "Name or password is incorrect"},
        Refusal{"BadTicket", "PASSWD=\"\" MYSAPSSO2=bm90IGEgdGlja2V0", RFC_ERROR_LOGON_FAILURE,
                "Logon ticket is not valid"},
        Refusal{"NoPartner", "GWSERV=1", RFC_ERROR_COMMUNICATION, "Connect to"},
        Refusal{"OpenQuote", "USER=\"DEMO", RFC_ERROR_PROGRAM, "Connect string: the value of USER lacks"},
        Refusal{"NoEquals", "ABAP_DEBUG", RFC_ERROR_PROGRAM, "Connect string: 'ABAP_DEBUG' is not of the form"},
        Refusal{"BadSwitch", "USE_SAPGUI=3", RFC_ERROR_PROGRAM, "Connect string: USE_SAPGUI=3 is not one of"},
        Refusal{"R2", "TYPE=2", RFC_ERROR_PROGRAM, "TYPE=2 is not supported"},
        Refusal{"LoadBalancing", "MSHOST=msg", RFC_ERROR_PROGRAM, "MSHOST is not supported"},
        Refusal{"Destination", "DEST=ABC", RFC_ERROR_PROGRAM, "DEST is not supported"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Open, IdsAreCaseInsensitiveAndQuotedValuesKeepBlanks) {
  std::u16string cs = u("ashost=" + rfcHost() + " gwserv=" + rfcPort() +
                        " client=001 user=\"DEMO\" passwd=\"Welcome1\" lang=en toupper=0 use_sapgui=2 abap_debug=1 "
                        "trace=0 lcheck=1 codepage=4103");
  RFC_ERROR_INFO_EX info{};
  const RFC_HANDLE h = RfcOpenExU(cs.data(), &info);
  ASSERT_NE(h, RFC_HANDLE_NULL) << text(info.message);
  RfcCloseU(h);
}

TEST(Open, TheSystemNumberGivesTheGatewayPort) {
  // SYSNR 99 is port 3399, where nothing listens here; GWSERV=sapgw99 is the same port.
  for (const std::string extra : {"", "GWSERV=sapgw99"}) {
    std::string cs = "ASHOST=127.0.0.1 SYSNR=99 CLIENT=001 USER=DEMO PASSWD=Welcome1 " + extra;
    std::u16string u16 = u(cs);
    RFC_ERROR_INFO_EX info{};
    EXPECT_EQ(RfcOpenExU(u16.data(), &info), RFC_HANDLE_NULL);
    EXPECT_EQ(info.group, RFC_ERROR_COMMUNICATION);
    EXPECT_NE(text(info.message).find("127.0.0.1:3399"), std::string::npos) << text(info.message);
  }
}

TEST(LastError, IsInvertedAndHandedOutOnce) {
  RFC_ERROR_INFO_EX info{};
  while (RfcLastErrorExU(&info) == 0) {}
  EXPECT_EQ(RfcLastErrorExU(&info), 1) << "no error: 1";
  std::u16string cs = u(connectString("PASSWD=wrong"));
  EXPECT_EQ(RfcOpenExU(cs.data(), nullptr), RFC_HANDLE_NULL);
  info = {};
  EXPECT_EQ(RfcLastErrorExU(&info), 0) << "information returned: 0";
  EXPECT_EQ(info.group, RFC_ERROR_LOGON_FAILURE);
  EXPECT_EQ(RfcLastErrorExU(&info), 1) << "already fetched: 1";
}

TEST(Handles, AreSmallNumbersAClosedOneComesBackOnlyAfterTheOthers) {
  const RFC_HANDLE a = open(), b = open();
  ASSERT_GT(a, 0u);
  EXPECT_LE(a, 4096u);
  EXPECT_NE(a, b);
  RfcCloseU(a);
  const RFC_HANDLE c = open();
  EXPECT_NE(c, a) << "not the number just freed";
  EXPECT_EQ(RfcIsValidHandleU(c, nullptr), RFC_OK);
  RFC_ERROR_INFO_EX info{};
  EXPECT_EQ(RfcIsValidHandleU(a, &info), RFC_INVALID_HANDLE);
  EXPECT_EQ(info.group, RFC_ERROR_PROGRAM);
  RfcCloseU(a);  // a second close of a closed handle ends nothing
  EXPECT_EQ(RfcIsValidHandleU(c, nullptr), RFC_OK);
  RfcCloseU(b);
  RfcCloseU(c);
  EXPECT_EQ(RfcIsValidHandleU(c, nullptr), RFC_INVALID_HANDLE);
}

TEST(Handles, CloseZeroClosesTheConnectionsOfTheThread) {
  const RFC_HANDLE a = open(), b = open();
  RfcCloseU(0);
  EXPECT_EQ(RfcIsValidHandleU(a, nullptr), RFC_INVALID_HANDLE);
  EXPECT_EQ(RfcIsValidHandleU(b, nullptr), RFC_INVALID_HANDLE);
}

TEST(Handles, AnotherThreadsHandleIsNotOwned) {
  const RFC_HANDLE h = open();
  RFC_RC rc = RFC_OK;
  std::thread([&] { rc = RfcIsValidHandleU(h, nullptr); }).join();
  EXPECT_EQ(rc, RFC_NOT_OWNER);
  RfcCloseU(h);
}

TEST(Ticket, ComesOnceAfterAnOpenWithGetsso2) {
  const RFC_HANDLE h = open("GETSSO2=1");
  std::vector<RFC_CHAR> ticket(4096, u'#');
  ASSERT_EQ(RfcGetTicketU(h, ticket.data()), RFC_OK) << lastError();
  const std::string t = text(ticket.data());
  EXPECT_GT(t.size(), 20u);
  EXPECT_EQ(RfcGetTicketU(h, ticket.data()), RFC_FAILURE) << "once per handle";
  RfcCloseU(h);

  // The ticket logs on in place of the password.
  std::u16string cs = u("ASHOST=" + rfcHost() + " GWSERV=" + rfcPort() + " CLIENT=001 MYSAPSSO2=" + t);
  RFC_ERROR_INFO_EX info{};
  const RFC_HANDLE again = RfcOpenExU(cs.data(), &info);
  EXPECT_NE(again, RFC_HANDLE_NULL) << text(info.message);
  RfcCloseU(again);
}

TEST(Ticket, WithoutGetsso2IsAFailure) {
  const RFC_HANDLE h = open();
  std::vector<RFC_CHAR> ticket(4096);
  EXPECT_EQ(RfcGetTicketU(h, ticket.data()), RFC_FAILURE);
  EXPECT_NE(lastError().find("GETSSO2=1"), std::string::npos);
  EXPECT_EQ(RfcGetTicketU(9999, ticket.data()), RFC_INVALID_HANDLE);
  RfcCloseU(h);
}

TEST(Timeout, IsPositiveMilliseconds) {
  EXPECT_EQ(RfcSetSystemTimeoutU(0), RFC_INVALID_PARAMETER);
  EXPECT_EQ(RfcSetSystemTimeoutU(60000), RFC_OK);
}

TEST(Trace, Trace1WritesAFileInRfcTraceDir) {
  const auto dir = std::filesystem::temp_directory_path() / ("rfcsdk_trace_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  ::setenv("RFC_TRACE_DIR", dir.c_str(), 1);
  const RFC_HANDLE h = open("TRACE=1");
  const CharCall r = callChars(h, "STFC_CONNECTION", {{"REQUTEXT", "hello"}}, {{"ECHOTEXT", 0}});
  EXPECT_EQ(r.rc, RFC_OK);
  RfcCloseU(h);
  ::unsetenv("RFC_TRACE_DIR");
  std::string all;
  for (const auto& f : std::filesystem::directory_iterator(dir)) {
    std::ifstream in(f.path());
    all.assign(std::istreambuf_iterator<char>(in), {});
  }
  EXPECT_NE(all.find("RfcCallReceiveExU STFC_CONNECTION"), std::string::npos) << all;
  EXPECT_EQ(all.find("Welcome1"), std::string::npos) << "no password in the trace";
  std::filesystem::remove_all(dir);
}

}  // namespace
