// Connecting: the connect string split into name=value pairs, the logon
// data behind them, the SDK's answer in ErrorInfo, Disconnect.
#include "loopback.h"
#include "nwrfc/connection_parameters.h"
#include "nwrfc_fixture.h"
#include "platform/unicode.h"
#include "runtime/trace.h"

namespace nwtest {
namespace {

using veltrane::nwrfc::ConnectionParameters;
using veltrane::nwrfc::InvalidConnectString;
using veltrane::nwrfc::NormaliseBackslashes;

constexpr HRESULT kRfcError = static_cast<HRESULT>(0x8004021F);
constexpr HRESULT kInvalidConnectString = static_cast<HRESULT>(0x80040222);
constexpr HRESULT kNotConnected = static_cast<HRESULT>(0x80040208);

using Pairs = std::vector<std::pair<std::u16string, std::u16string>>;

Pairs Parse(std::u16string_view text) {
  ConnectionParameters parameters;
  parameters.AddConnectString(NormaliseBackslashes(text));
  return parameters.Pairs();
}

// --------------------------------------------------------------- the string

TEST(ConnectString, PairsInTheirOrderNamesInLowerCaseValuesAsWritten) {
  EXPECT_EQ(Parse(u"ASHOST=Host.Example SysNr=00 LANG=De"),
            (Pairs{{u"ashost", u"Host.Example"}, {u"sysnr", u"00"}, {u"lang", u"De"}}));
}

TEST(ConnectString, AValueMayBeEmptyAndHoldEqualSigns) {
  EXPECT_EQ(Parse(u"trace= x==1"), (Pairs{{u"trace", u""}, {u"x", u"=1"}}));
}

TEST(ConnectString, TwoBlanksOrABlankAtAnEndMakeAnEmptyToken) {
  EXPECT_THROW(Parse(u"ashost=a  sysnr=00"), InvalidConnectString);
  EXPECT_THROW(Parse(u"ashost=a sysnr=00 "), InvalidConnectString);
  EXPECT_THROW(Parse(u" ashost=a"), InvalidConnectString);
}

TEST(ConnectString, AnEmptyStringHasNoPairs) { EXPECT_TRUE(Parse(u"").empty()); }

TEST(ConnectString, ATokenWithoutANameIsRefused) {
  EXPECT_THROW(Parse(u"ashost"), InvalidConnectString);
  EXPECT_THROW(Parse(u"=value"), InvalidConnectString);
}

TEST(ConnectString, AQuotedValueMayHoldBlanks) {
  EXPECT_EQ(Parse(u"saprouter=\"/H/a b/S/3299\" sysnr=00"),
            (Pairs{{u"saprouter", u"/H/a b/S/3299"}, {u"sysnr", u"00"}}));
}

TEST(ConnectString, APathKeepsItsSingleBackslashes) {
  EXPECT_EQ(NormaliseBackslashes(u"snc_lib=C:\\sec\\lib.dll"), u"snc_lib=C:\\\\sec\\\\lib.dll");
  EXPECT_EQ(Parse(u"snc_lib=C:\\sec\\lib.dll"), (Pairs{{u"snc_lib", u"C:\\sec\\lib.dll"}}));
  EXPECT_EQ(Parse(u"x=C:\\new\\"), (Pairs{{u"x", u"C:\\new\\"}}));
}

TEST(ConnectString, AnEscapedQuoteInAQuotedValueIsAQuote) {
  EXPECT_EQ(Parse(u"passwd=\"se\\\"cret x\""), (Pairs{{u"passwd", u"se\"cret x"}}));
  EXPECT_EQ(Parse(u"x=a\\\\b"), (Pairs{{u"x", u"a\\b"}}));
}

// The tokenizer takes an open quote to the end of the string; after the
// normalisation no escape can be stray.
TEST(ConnectString, AnOpenQuoteRunsToTheEnd) {
  EXPECT_EQ(Parse(u"passwd=\"open x sysnr=00"), (Pairs{{u"passwd", u"open x sysnr=00"}}));
  EXPECT_EQ(Parse(u"x=\\"), (Pairs{{u"x", u"\\"}}));
}

TEST(ConnectString, TheTraceTextMasksThePasswordOnly) {
  ConnectionParameters p;
  p.Add(u"user", u"DEMO");
  p.Add(u"passwd", u"Welcome1");
  p.Add(u"PASSWD", u"shown");
  EXPECT_EQ(p.MaskedText(), u"user=DEMO,passwd=***,PASSWD=shown,");
  const RFC_CONNECTION_PARAMETER* array = p.Array();
  ASSERT_EQ(p.Count(), 3u);
  EXPECT_EQ(std::u16string(array[1].name), u"passwd");
  EXPECT_EQ(std::u16string(array[1].value), u"Welcome1");
}

// ---------------------------------------------------------------- Connect

class Connect : public NWTest {};

// What the session handed the SDK, from the trace of a successful connect.
std::string SentPairs(IRfcSession* session) {
  soaptest::TempFile trace("connect.trc");
  TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
  SetTraceLevel(TRACE_INFORMATION);
  EXPECT_EQ(session->Connect(), S_OK) << ErrorDescription();
  const std::string text = trace.read();
  const size_t at = text.find("connection succeeded\nconnectstr=");
  if (at == std::string::npos) return text;
  const size_t start = at + std::string("connection succeeded\nconnectstr=").size();
  return text.substr(start, text.find('\n', start) - start);
}

TEST_F(Connect, LogonDataGoesBehindTheConnectStringAndNothingIsMerged) {
  CComPtr<IRfcSession> session = NewSession();
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(CComBSTR(ConnectString() + u" CLIENT=001"));
  system->put_VisualMode(2);
  system->put_Debug(VARIANT_TRUE);
  const std::string sent = SentPairs(session);
  const std::string address = Narrow(ConnectString());
  const std::string expected = "ashost=" + Sim().rfcHost() + ",gwserv=" + std::to_string(Sim().rfcPort()) +
                               ",client=001,use_sapgui=2,client=001,user=DEMO,passwd=***,lang=EN,";
  EXPECT_EQ(sent, expected);
}

TEST_F(Connect, AConnectStringOfCapitalsReachesTheSdk) {
  CComPtr<IRfcSession> session = NewSession();
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  const std::string upper = "ASHOST=" + Sim().rfcHost() + " GWSERV=" + std::to_string(Sim().rfcPort());
  system->put_ConnectString(CComBSTR(Utf8ToWide(upper)));
  EXPECT_EQ(session->Connect(), S_OK) << ErrorDescription();
  EXPECT_TRUE(Connected(session));
  EXPECT_FALSE(ErrorFlag(session));
}

TEST_F(Connect, AnEmptyTokenIs546) {
  CComPtr<IRfcSession> session = NewSession();
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(CComBSTR(ConnectString() + u" "));
  EXPECT_EQ(session->Connect(), kInvalidConnectString);
  EXPECT_EQ(ErrorDescription(), "Invalid connection string");
  EXPECT_FALSE(Connected(session));
}

TEST_F(Connect, WithoutAHostTheSdkRefusesAndErrorInfoSaysWhy) {
  CComPtr<IRfcSession> session = NewSession();
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(CComBSTR(u""));
  EXPECT_EQ(session->Connect(), kRfcError);
  EXPECT_FALSE(Connected(session));
  const ErrorText e = ErrorOf(session);
  EXPECT_EQ(e.group, RFCERROR_PROGRAM);
  EXPECT_EQ(e.key, "RFC_INVALID_PARAMETER");
  EXPECT_EQ(e.message, "Parameter ASHOST, GWHOST, MSHOST or PORT is missing.");
}

TEST_F(Connect, ARefusedLogonIsALogonFailureInErrorInfo) {
  CComPtr<IRfcSession> session = NewSession(u"DEMO", u"wrong");
  EXPECT_EQ(session->Connect(), kRfcError);
  EXPECT_EQ(ErrorDescription(), "RFC Error (check ErrorInfo for details)");
  EXPECT_FALSE(Connected(session));
  EXPECT_TRUE(ErrorFlag(session));
  const ErrorText e = ErrorOf(session);
  EXPECT_EQ(e.group, RFCERROR_LOGON_FAILURE);
  EXPECT_EQ(e.message, "Name or password is incorrect (repeat logon)");
  EXPECT_FALSE(ErrorFlag(session)) << "reading ErrorInfo clears Error";
}

TEST_F(Connect, ALogonTicketStandsForThePassword) {
  CComPtr<IRfcSession> first = ConnectedSession();
  first->put_Option(CComBSTR(u"sso2.create_ticket_module"), CComBSTR(u"Z_VSIM_SSO2_TICKET"));
  CComBSTR ticket;
  ASSERT_EQ(first->GetSSO2Ticket(&ticket), S_OK) << ErrorDescription();
  ASSERT_GT(ticket.Length(), 0u);
  CComPtr<IRfcSession> second = NewSession(u"DEMO", u"");
  CComPtr<ILogonData> logon;
  second->get_LogonData(&logon);
  logon->put_SSO2Ticket(ticket);
  EXPECT_EQ(second->Connect(), S_OK) << ErrorDescription();
}

TEST_F(Connect, DisconnectWithoutConnectIs520) {
  CComPtr<IRfcSession> session = NewSession();
  EXPECT_EQ(session->Disconnect(), kNotConnected);
  EXPECT_EQ(ErrorDescription(), "Not connected (call connect() before executing this method)");
}

// The session does not look at the connection it holds: the second Connect
// opens another one (test_nwrfc_watched shows the first stays open).
TEST_F(Connect, ConnectTwiceOpensASecondConnection) {
  CComPtr<IRfcSession> session = ConnectedSession();
  EXPECT_EQ(session->Connect(), S_OK) << ErrorDescription();
  EXPECT_TRUE(Connected(session));
  EXPECT_FALSE(ErrorFlag(session));
  CComPtr<IFunctionCall> call;
  session->CreateCall(&call);
  call->put_Function(CComBSTR(u"RFC_PING"));
  EXPECT_EQ(session->CallFunction(call, VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorFlag(session));
}

TEST_F(Connect, DisconnectClosesAndAConnectOpensAgain) {
  CComPtr<IRfcSession> session = ConnectedSession();
  EXPECT_EQ(session->Disconnect(), S_OK);
  EXPECT_FALSE(Connected(session));
  EXPECT_FALSE(ErrorFlag(session));
  EXPECT_EQ(session->Connect(), S_OK);
  EXPECT_TRUE(Connected(session));
}

}  // namespace
}  // namespace nwtest
