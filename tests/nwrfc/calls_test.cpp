// NWRfcSession's calls against the simulated system: the class itself, the
// failures of the system's side in ErrorInfo, asynchronous calls, the ticket.
#include <chrono>
#include <thread>

#include "event_sink.h"
#include "loopback.h"
#include "nwrfc_fixture.h"
#include "platform/unicode.h"
#include "runtime/trace.h"

namespace nwtest {
namespace {

constexpr HRESULT kNotConnected = static_cast<HRESULT>(0x80040208);
constexpr HRESULT kInvalidDateTime = static_cast<HRESULT>(0x80040215);
constexpr HRESULT kFunctionNotFound = static_cast<HRESULT>(0x8004021C);
constexpr HRESULT kRfcError = static_cast<HRESULT>(0x8004021F);
constexpr HRESULT kTicketModuleRequired = static_cast<HRESULT>(0x80040221);

class Calls : public SessionTest {
 protected:
  void TearDown() override {
    if (m_sink) {
      m_point->Unadvise(m_cookie);
      m_point.Release();
      m_sink->Release();
    }
    SessionTest::TearDown();
  }

  CComPtr<IFunctionCall> Raise(std::initializer_list<std::pair<const char16_t*, const char16_t*>> values) {
    CComPtr<IFunctionCall> call = Import(u"Z_VSIM_RAISE");
    for (const auto& [name, value] : values) SetValue(call, u"Importing", name, CComVariant(value));
    return call;
  }
  void Advise() {
    m_sink = new test_support::EventSink(m_session);
    CComQIPtr<IConnectionPointContainer> container(m_session);
    ASSERT_EQ(container->FindConnectionPoint(DIID__SessionEvents, &m_point), S_OK);
    ASSERT_EQ(m_point->Advise(m_sink, &m_cookie), S_OK);
  }

  test_support::EventSink* m_sink = nullptr;
  CComPtr<IConnectionPoint> m_point;
  DWORD m_cookie = 0;
};

// --------------------------------------------------------------- the class

TEST_F(Calls, TheClassIsCreatedByItsClassIdAndItsProgIds) {
  CLSID clsid{};
  ASSERT_EQ(CLSIDFromProgID(u"Veltrane.NWRfcSession", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_NWRfcSession);
  ASSERT_EQ(CLSIDFromProgID(u"Veltrane.NWRfcSession.1", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_NWRfcSession);
  CComPtr<ISession> session;
  ASSERT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_ISession, reinterpret_cast<void**>(&session)),
            S_OK);
  CComBSTR type;
  session->get_SessionType(&type);
  EXPECT_EQ(Text(type), "NWRFC");
  CComQIPtr<IRfcSession> rfc(session);
  ASSERT_TRUE(rfc);
  CComPtr<IRfcSystemData> a, b;
  rfc->get_RfcSystemData(&a);
  rfc->get_RfcSystemData(&b);
  EXPECT_EQ(a.p, b.p) << "one object for the session's life";
}

TEST_F(Calls, ItsOwnMembersAreReachedLateBound) {
  DISPID id = 0;
  LPOLESTR names[] = {const_cast<LPOLESTR>(u"GetSSO2Ticket")};
  ASSERT_EQ(m_session->GetIDsOfNames(IID_NULL, names, 1, 0, &id), S_OK);
  EXPECT_EQ(id, 0xC8);
  DISPPARAMS none{};
  CComVariant result;
  EXCEPINFO info{};
  EXPECT_EQ(m_session->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &none, &result, &info, nullptr), DISP_E_EXCEPTION)
      << "no ticket module set";
  EXPECT_EQ(info.scode, kTicketModuleRequired);
  SysFreeString(info.bstrSource);
  SysFreeString(info.bstrDescription);
  SysFreeString(info.bstrHelpFile);
  names[0] = const_cast<LPOLESTR>(u"RfcSystemData");
  ASSERT_EQ(m_session->GetIDsOfNames(IID_NULL, names, 1, 0, &id), S_OK);
  EXPECT_EQ(id, 0x64);
}

// ------------------------------------------------- the system's failures

TEST_F(Calls, AnAbapExceptionSucceedsWithItsKeyAsMessage) {
  CComPtr<IFunctionCall> call = Raise({{u"EXCEPTION", u"NOT_FOUND"},
                                       {u"MESSAGE_ID", u"ZV"},
                                       {u"MESSAGE_NUMBER", u"001"},
                                       {u"MESSAGE_TEXT", u"Nothing for &1"},
                                       {u"MESSAGE_V1", u"X"}});
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  EXPECT_TRUE(ErrorFlag(m_session));
  const ErrorText e = ErrorOf(m_session);
  EXPECT_EQ(e.group, RFCERROR_APPLICATION_EXCEPTION);
  EXPECT_EQ(e.key, "NOT_FOUND");
  EXPECT_EQ(e.message, "NOT_FOUND");
  EXPECT_TRUE(Connected(m_session));
  ASSERT_EQ(m_session->CallFunction(Import(u"RFC_PING"), VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorFlag(m_session)) << "the connection stays usable";
}

TEST_F(Calls, AnAbapMessageIsAProgramFailureAndEndsTheConnection) {
  CComPtr<IFunctionCall> ping = Import(u"RFC_PING");
  CComPtr<IFunctionCall> call =
      Raise({{u"MESSAGE_ID", u"ZV"}, {u"MESSAGE_NUMBER", u"002"}, {u"MESSAGE_TEXT", u"Stop here"}});
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  const ErrorText e = ErrorOf(m_session);
  EXPECT_EQ(e.group, RFCERROR_PROGRAM);
  EXPECT_EQ(e.message, "Stop here");
  // The session notices the lost connection at its next SDK call: the
  // function's description cannot be had.
  EXPECT_TRUE(Connected(m_session));
  EXPECT_EQ(m_session->CallFunction(ping, VARIANT_TRUE), kRfcError);
  EXPECT_TRUE(ErrorFlag(m_session));
  EXPECT_EQ(ErrorOf(m_session).key, "RFC_INVALID_HANDLE");
}

TEST_F(Calls, ARuntimeErrorIsAProgramFailure) {
  ASSERT_EQ(m_session->CallFunction(Raise({{u"RUNTIME_ERROR", u"COMPUTE_INT_ZERODIVIDE"}}), VARIANT_TRUE), S_OK);
  const ErrorText e = ErrorOf(m_session);
  EXPECT_EQ(e.group, RFCERROR_PROGRAM);
  EXPECT_EQ(e.key, "COMPUTE_INT_ZERODIVIDE");
}

TEST_F(Calls, ADroppedConnectionIsACommunicationFailure) {
  Control("fault?front=rfc&fault=close&user=DEMO&count=1");
  ASSERT_EQ(m_session->CallFunction(Import(u"RFC_PING"), VARIANT_TRUE), S_OK);
  EXPECT_TRUE(ErrorFlag(m_session));
  EXPECT_EQ(ErrorOf(m_session).group, RFCERROR_COMMUNICATION);
  Control("reset");
}

// A function the SDK cannot describe fails the call, synchronous or not,
// before anything runs.
TEST_F(Calls, AnUnknownModuleFailsTheCallWith543) {
  Advise();
  for (const VARIANT_BOOL synchronous : {VARIANT_TRUE, VARIANT_FALSE}) {
    CComPtr<IFunctionCall> call;
    m_session->CreateCall(&call);
    call->put_Function(CComBSTR(u"Z_NO_SUCH_MODULE"));
    EXPECT_EQ(m_session->CallFunction(call, synchronous), kRfcError);
    EXPECT_EQ(ErrorDescription(), "RFC Error (check ErrorInfo for details)");
    EXPECT_TRUE(ErrorFlag(m_session));
    const ErrorText e = ErrorOf(m_session);
    EXPECT_EQ(e.key, "FU_NOT_FOUND");
    EXPECT_EQ(e.group, RFCERROR_APPLICATION_EXCEPTION);
    EXPECT_FALSE(Active());
  }
  EXPECT_EQ(m_sink->Count(), 0);
}

TEST_F(Calls, EveryResultIsPublishedToTheTrace) {
  soaptest::TempFile trace("publish.trc");
  TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
  SetTraceLevel(TRACE_INFORMATION);
  ASSERT_EQ(m_session->CallFunction(Raise({{u"EXCEPTION", u"FAILED"}}), VARIANT_TRUE), S_OK);
  ASSERT_EQ(m_session->CallFunction(Import(u"RFC_PING"), VARIANT_TRUE), S_OK);
  const std::string text = trace.read();
  for (const char* line : {"RfcInvoke(Z_VSIM_RAISE): ABAP_EXCEPTION FAILED: RFC Error RFC_ABAP_EXCEPTION: FAILED",
                           "RfcInvoke(RFC_PING): RFC_OK", "FillIncomingArgs: RFC_OK", "FillOutgoingArgs: RFC_OK",
                           "CallFunction(0x00000000)"})
    EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
}

// A value the converter cannot read fails a synchronous call with its
// result. An asynchronous one ends without CallFinished, and CallActive
// stays true.
TEST_F(Calls, AResultThatDoesNotConvertFailsTheCall) {
  EXPECT_EQ(m_session->CallFunction(CallReadingAnInvalidDate(m_session), VARIANT_TRUE), kInvalidDateTime);
  EXPECT_EQ(ErrorDescription(), "invalid date/time");
  EXPECT_FALSE(Active());

  SessionSink* sink = SessionSink::AdviseTo(m_session);
  ASSERT_EQ(m_session->CallFunction(CallReadingAnInvalidDate(m_session), VARIANT_FALSE), S_OK);
  ExpectItEndsUnseen(sink);
}

TEST_F(Calls, AValueThatDoesNotConvertFailsBeforeTheCall) {
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_TYPES");
  SetValue(call, u"Importing", u"IV_INT1", CComVariant(300L));
  const long before = RfcRequests();
  EXPECT_EQ(m_session->CallFunction(call, VARIANT_TRUE), DISP_E_OVERFLOW);
  EXPECT_EQ(RfcRequests(), before);
  EXPECT_FALSE(Active());
  CComPtr<IFunctionCall> date = Import(u"Z_VSIM_TYPES");
  SetValue(date, u"Importing", u"IV_DATE", CComVariant(u"no date"));
  EXPECT_EQ(m_session->CallFunction(date, VARIANT_TRUE), static_cast<HRESULT>(0x80040207))
      << "a date that does not convert raises inside; the boundary reports it";
  EXPECT_FALSE(Active());
}

// ----------------------------------------------------- asynchronous calls

TEST_F(Calls, AnAsynchronousCallRunsOnItsOwnThreadAndApartment) {
  Advise();
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_TYPES");
  SetValue(call, u"Importing", u"IV_STRING", CComVariant(u"async"));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_NE(m_sink->Thread(), std::this_thread::get_id());
  EXPECT_EQ(Text(Value(call, u"Exporting", u"EV_STRING")), "async");
  EXPECT_FALSE(ErrorFlag(m_session));
}

TEST_F(Calls, AnAsynchronousAbapExceptionIsInErrorInfoAtCallFinished) {
  Advise();
  ASSERT_EQ(m_session->CallFunction(Raise({{u"EXCEPTION", u"NO_AUTHORITY"}}), VARIANT_FALSE), S_OK);
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_TRUE(ErrorFlag(m_session));
  EXPECT_EQ(ErrorOf(m_session).key, "NO_AUTHORITY");
}

// CallFinished fires before the call stops counting as active; CallActive
// turns false right after, on the call's thread.
TEST_F(Calls, CallActiveIsStillTrueInCallFinished) {
  Advise();
  ASSERT_EQ(m_session->CallFunction(Import(u"RFC_PING"), VARIANT_FALSE), S_OK);
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_EQ(m_sink->ActiveAtFire(), VARIANT_TRUE);
  // Nothing signals that moment to a client: look until it came.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (Active() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_FALSE(Active());
}

// A call during an asynchronous one is not refused: the SDK serves it after
// the first (our SDK: one call at a time per connection). Its success clears
// CallActive, though the first call's CallFinished may still be to come.
TEST_F(Calls, ACallDuringAnAsynchronousOneGoesToTheSdk) {
  Advise();
  CComPtr<IFunctionCall> wait = Import(u"Z_VSIM_WAIT");
  SetValue(wait, u"Importing", u"MILLISECONDS", CComVariant(400L));
  ASSERT_EQ(m_session->CallFunction(wait, VARIANT_FALSE), S_OK);
  EXPECT_TRUE(Active());
  CComPtr<IFunctionCall> echo = Import(u"STFC_CONNECTION");
  SetValue(echo, u"Importing", u"REQUTEXT", CComVariant(u"second"));
  ASSERT_EQ(m_session->CallFunction(echo, VARIANT_TRUE), S_OK) << ErrorDescription();
  EXPECT_FALSE(Active());
  EXPECT_EQ(Text(Value(echo, u"Exporting", u"ECHOTEXT")), "second");
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_EQ(m_sink->Count(), 1);
  EXPECT_GE(ExportedNumber(wait, u"WAITED"), 400);
  EXPECT_FALSE(ErrorFlag(m_session));
}

TEST_F(Calls, DisconnectWaitsForTheRunningCall) {
  Advise();
  CComPtr<IFunctionCall> wait = Import(u"Z_VSIM_WAIT");
  SetValue(wait, u"Importing", u"MILLISECONDS", CComVariant(300L));
  ASSERT_EQ(m_session->CallFunction(wait, VARIANT_FALSE), S_OK);
  ASSERT_EQ(m_session->Disconnect(), S_OK);
  EXPECT_FALSE(Connected(m_session));
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_FALSE(ErrorFlag(m_session)) << "the call ended before the connection did";
  EXPECT_GE(ExportedNumber(wait, u"WAITED"), 300);
}

// ---------------------------------------------------------------- ticket

TEST_F(Calls, WithoutTheOptionThereIsNoTicketAndNoCall) {
  const long before = RfcRequests();
  CComBSTR ticket;
  EXPECT_EQ(m_session->GetSSO2Ticket(&ticket), kTicketModuleRequired);
  EXPECT_EQ(ErrorDescription(),
            "Option \"sso2.create_ticket_module\" is required for NWRFC.\nSee docs/nwrfc.md in the Veltrane "
            "documentation.");
  EXPECT_EQ(RfcRequests(), before);
}

TEST_F(Calls, TheTicketComesFromTheModuleTheOptionNames) {
  m_session->put_Option(CComBSTR(u"sso2.create_ticket_module"), CComBSTR(u"Z_VSIM_SSO2_TICKET"));
  CComBSTR ticket;
  ASSERT_EQ(m_session->GetSSO2Ticket(&ticket), S_OK) << ErrorDescription();
  EXPECT_GT(ticket.Length(), 20u);
  m_session->put_Option(CComBSTR(u"sso2.create_ticket_module"), CComBSTR(u"Z_NO_TICKETS_HERE"));
  ticket.Empty();
  EXPECT_EQ(m_session->GetSSO2Ticket(&ticket), kFunctionNotFound);
  CComPtr<IRfcSession> unconnected = NewSession();
  EXPECT_EQ(unconnected->GetSSO2Ticket(&ticket), kNotConnected);
}

TEST_F(Calls, AFailedTicketCallIs543) {
  m_session->put_Option(CComBSTR(u"sso2.create_ticket_module"), CComBSTR(u"Z_NW_NO_TICKET"));
  CComBSTR ticket;
  EXPECT_EQ(m_session->GetSSO2Ticket(&ticket), kRfcError);
  EXPECT_EQ(ErrorOf(m_session).key, "NO_TICKET");
}

TEST_F(Calls, AModuleWithoutATicketParameterGivesNone) {
  m_session->put_Option(CComBSTR(u"sso2.create_ticket_module"), CComBSTR(u"RFC_PING"));
  CComBSTR ticket;
  EXPECT_TRUE(FAILED(m_session->GetSSO2Ticket(&ticket)));
  EXPECT_EQ(ticket.m_str, nullptr);
}

}  // namespace
}  // namespace nwtest
