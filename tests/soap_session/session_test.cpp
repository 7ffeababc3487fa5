// SoapSession against veltrane-sim over real HTTP, in what is its own: the
// HTTP system data, logon by status, the outcome of every kind of answer,
// the stuck state and the way out of it, stateful sessions and the trace.
// What every session keeps is the session contract's (tests/session_contract).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "event_sink.h"
#include "loopback.h"
#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "runtime/trace.h"
#include "platform/unicode.h"
#include "testing/sim_process.h"
#include "veltrane_tlb.h"

namespace {

using soaptest::Contains;

constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x80040207);
constexpr HRESULT kNotConnected = static_cast<HRESULT>(0x80040208);
constexpr HRESULT kCallRunning = static_cast<HRESULT>(0x8004020A);
constexpr HRESULT kConnected = static_cast<HRESULT>(0x8004020B);
constexpr HRESULT kRfcError = static_cast<HRESULT>(0x8004021F);

std::string TextOf(BSTR s) { return WideToUtf8(std::u16string_view(s ? s : u"", SysStringLen(s))); }

using test_support::EventSink;

class SoapSessionTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    s_sim = new vsim::testing::SimProcess();
  }
  static void TearDownTestSuite() {
    CoUninitialize();
    delete s_sim;
    s_sim = nullptr;
  }

  void SetUp() override {
    ASSERT_EQ(soaptest::SimControl(s_sim->soapUrl(), "reset"), 200);
    ASSERT_EQ(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                               reinterpret_cast<void**>(&m_session)),
              S_OK);
    ASSERT_EQ(m_session->get_HttpSystemData(&m_system), S_OK);
    ASSERT_EQ(m_session->get_LogonData(&m_logon), S_OK);
    Point(s_sim->soapPort());
    Logon(u"DEMO", u"Welcome1");
  }
  void TearDown() override {
    if (m_sink) {
      Unadvise();
    }
    m_session.Release();
    TraceResetForTesting();
  }

  void Point(unsigned short port) {
    m_system->put_Host(CComBSTR(u"127.0.0.1"));
    m_system->put_Port(port);
  }
  void Logon(const char16_t* user, const char16_t* password) {
    m_logon->put_Client(CComBSTR(u"001"));
    m_logon->put_Language(CComBSTR(u"EN"));
    m_logon->put_User(CComBSTR(user));
    m_logon->put_Password(CComBSTR(password));
  }
  void Fault(const std::string& what) { ASSERT_EQ(soaptest::SimControl(s_sim->soapUrl(), "fault?fault=" + what), 200); }

  void Advise() {
    m_sink = new EventSink(m_session);
    CComQIPtr<IConnectionPointContainer> container(m_session);
    ASSERT_TRUE(container);
    ASSERT_EQ(container->FindConnectionPoint(DIID__SessionEvents, &m_point), S_OK);
    ASSERT_EQ(m_point->Advise(m_sink, &m_cookie), S_OK);
  }
  void Unadvise() {
    if (m_point) m_point->Unadvise(m_cookie);
    m_point.Release();
    m_sink->Release();
    m_sink = nullptr;
  }

  CComPtr<IFunctionCall> NewCall(const char16_t* function) {
    CComPtr<IFunctionCall> call;
    EXPECT_EQ(m_session->CreateCall(&call), S_OK);
    call->put_Function(CComBSTR(function));
    return call;
  }
  CComPtr<IFunctionCall> Import(const char16_t* function) {
    CComPtr<IFunctionCall> call;
    EXPECT_EQ(m_session->ImportCall(CComBSTR(function), VARIANT_FALSE, &call), S_OK) << TextOf(CComBSTR(function));
    return call;
  }
  static void Set(IFunctionCall* call, const char16_t* name, const CComVariant& value) {
    CComPtr<IRfcParameters> params;
    ASSERT_EQ(call->get_Importing(&params), S_OK);
    CComPtr<IRfcParameter> p;
    ASSERT_EQ(params->get_Item(CComVariant(name), &p), S_OK) << TextOf(CComBSTR(name));
    ASSERT_EQ(p->put_value(value), S_OK);
  }
  static std::string Exported(IFunctionCall* call, const char16_t* name) {
    CComPtr<IRfcParameters> params;
    call->get_Exporting(&params);
    CComPtr<IRfcParameter> p;
    if (FAILED(params->get_Item(CComVariant(name), &p))) return "<missing>";
    CComVariant v;
    p->get_value(&v);
    if (FAILED(v.ChangeType(VT_BSTR))) return "<not text>";
    return TextOf(V_BSTR(&v));
  }

  bool Connected() {
    VARIANT_BOOL b = VARIANT_FALSE;
    m_session->get_IsConnected(&b);
    return b == VARIANT_TRUE;
  }
  bool Active() {
    VARIANT_BOOL b = VARIANT_FALSE;
    m_session->get_CallActive(&b);
    return b == VARIANT_TRUE;
  }
  bool ErrorSet() {
    VARIANT_BOOL b = VARIANT_FALSE;
    m_session->get_Error(&b);
    return b == VARIANT_TRUE;
  }
  struct ErrorText {
    long group;
    std::string key, message, module;
  };
  ErrorText Error() {
    CComPtr<IRfcError> info;
    EXPECT_EQ(m_session->get_ErrorInfo(&info), S_OK);
    ErrorText e{};
    ERRORGROUP g = RFCERROR_NO_ERROR;
    info->get_ERRORGROUP(&g);
    e.group = g;
    CComBSTR key, message, module;
    info->get_ErrorGroupTxt(&key);
    info->get_Message(&message);
    info->get_ModuleName(&module);
    e.key = TextOf(key);
    e.message = TextOf(message);
    e.module = TextOf(module);
    return e;
  }
  static std::string ErrorDescription() {
    CComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, &info) != S_OK || !info) return "";
    CComBSTR text;
    info->GetDescription(&text);
    return TextOf(text);
  }

  static vsim::testing::SimProcess* s_sim;
  CComPtr<ISoapSession> m_session;
  CComPtr<IHttpSystemData> m_system;
  CComPtr<ILogonData> m_logon;
  EventSink* m_sink = nullptr;
  CComPtr<IConnectionPoint> m_point;
  DWORD m_cookie = 0;
};

vsim::testing::SimProcess* SoapSessionTest::s_sim = nullptr;

// ------------------------------------------------------------ creation

TEST_F(SoapSessionTest, CreatableByClassIdAndByBothProgIds) {
  for (const char16_t* progId : {u"Veltrane.SoapSession", u"Veltrane.SoapSession.1"}) {
    CLSID clsid{};
    ASSERT_EQ(CLSIDFromProgID(progId, &clsid), S_OK);
    EXPECT_EQ(clsid, CLSID_SoapSession);
    CComPtr<ISession> s;
    EXPECT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_ISession, reinterpret_cast<void**>(&s)), S_OK);
    EXPECT_TRUE(s);
  }
}

TEST_F(SoapSessionTest, HttpSystemDataStartsWithItsDefaults) {
  CComBSTR protocol, endpoint, host;
  LONG timeout = 0, port = -1, proxyPort = -1;
  VARIANT_BOOL stateful = VARIANT_TRUE;
  CComPtr<ISoapSession> fresh;
  ASSERT_EQ(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                             reinterpret_cast<void**>(&fresh)),
            S_OK);
  CComPtr<IHttpSystemData> data;
  ASSERT_EQ(fresh->get_HttpSystemData(&data), S_OK);
  data->get_Protocol(&protocol);
  data->get_SoapEndpoint(&endpoint);
  data->get_Host(&host);
  data->get_Timeout(&timeout);
  data->get_Port(&port);
  data->get_ProxyPort(&proxyPort);
  data->get_Stateful(&stateful);
  EXPECT_EQ(TextOf(protocol), "http");
  EXPECT_EQ(TextOf(endpoint), "sap/bc/soap/rfc");
  EXPECT_EQ(TextOf(host), "");
  EXPECT_EQ(timeout, 60000);
  EXPECT_EQ(port, 0);
  EXPECT_EQ(proxyPort, 0);
  EXPECT_EQ(stateful, VARIANT_FALSE);
  // The same object every time.
  CComPtr<IHttpSystemData> again;
  fresh->get_HttpSystemData(&again);
  EXPECT_EQ(data.p, again.p);
}

TEST_F(SoapSessionTest, TransactionalMembersAreNotImplemented) {
  CComBSTR tid;
  EXPECT_EQ(m_session->CreateTransID(&tid), E_NOTIMPL);
  EXPECT_EQ(m_session->ConfirmTransID(CComBSTR(u"X")), E_NOTIMPL);
  EXPECT_EQ(m_session->CallTRFCFunction(CComBSTR(u"X"), NewCall(u"RFC_PING")), E_NOTIMPL);
}

TEST_F(SoapSessionTest, LateBoundCallsReachTheSameMembers) {
  CComQIPtr<IDispatch> dispatch(m_session);
  ASSERT_TRUE(dispatch);
  auto id = [&](const char16_t* name) {
    DISPID d = DISPID_UNKNOWN;
    LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
    EXPECT_EQ(dispatch->GetIDsOfNames(IID_NULL, names, 1, 0, &d), S_OK);
    return d;
  };
  EXPECT_EQ(id(u"SessionType"), 10);
  EXPECT_EQ(id(u"HttpSystemData"), 100);
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  CComVariant type;
  ASSERT_EQ(dispatch->Invoke(10, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, &type, nullptr, nullptr), S_OK);
  EXPECT_EQ(TextOf(V_BSTR(&type)), "SOAP");
  ASSERT_EQ(dispatch->Invoke(id(u"Connect"), IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr), S_OK);
  // CallFunction with the call alone: synchronous by default.
  CComPtr<IFunctionCall> call = NewCall(u"RFC_PING");
  CComVariant arg(static_cast<IDispatch*>(call.p));
  DISPPARAMS one{&arg, nullptr, 1, 0};
  ASSERT_EQ(dispatch->Invoke(id(u"CallFunction"), IID_NULL, 0, DISPATCH_METHOD, &one, nullptr, nullptr, nullptr), S_OK);
  EXPECT_FALSE(Active());
  EXPECT_FALSE(ErrorSet());
}

// ---------------------------------------------------------- connecting

TEST_F(SoapSessionTest, AConnectAnswered401FailsAndLeavesTheTransport) {
  Logon(u"DEMO", u"wrong");
  EXPECT_EQ(m_session->Connect(), kRfcError);
  EXPECT_EQ(ErrorDescription(), "RFC Error (check ErrorInfo for details)");
  EXPECT_TRUE(Connected());
  const ErrorText e = Error();
  EXPECT_EQ(e.group, RFCERROR_SYSTEM_FAILURE);
  EXPECT_EQ(e.key, "SOAP_ERROR");
  EXPECT_TRUE(e.message.starts_with("Server response status 401:\n")) << e.message;
  EXPECT_TRUE(Contains(e.message, "Logon failed")) << e.message;
  EXPECT_EQ(m_session->Connect(), kConnected);
  EXPECT_EQ(ErrorDescription(), "Already connected to the server");
  EXPECT_EQ(m_session->Disconnect(), S_OK);
  EXPECT_FALSE(Connected());
  Logon(u"DEMO", u"Welcome1");
  EXPECT_EQ(m_session->Connect(), S_OK);
}

TEST_F(SoapSessionTest, DisconnectWithoutConnectFails) {
  EXPECT_EQ(m_session->Disconnect(), kNotConnected);
  EXPECT_EQ(ErrorDescription(), "Not connected (call connect() before executing this method)");
}

TEST_F(SoapSessionTest, ARefusedConnectionAtConnectIsAnUnexpectedError) {
  Point(soaptest::ClosedPort());
  EXPECT_EQ(m_session->Connect(), kUnexpected);
  EXPECT_EQ(ErrorDescription(), "An unexpected error has occured - check trace for details");
  EXPECT_TRUE(Connected());
  EXPECT_FALSE(ErrorSet());
  EXPECT_EQ(m_session->Disconnect(), S_OK);
}

TEST_F(SoapSessionTest, LogonWithATicketAlone) {
  std::string ticket;
  ASSERT_EQ(soaptest::SimControl(s_sim->soapUrl(), "ticket?user=DEMO&client=001", &ticket), 200);
  Logon(u"", u"");
  m_logon->put_SSO2Ticket(CComBSTR(Utf8ToWide(ticket)));
  EXPECT_EQ(m_session->Connect(), S_OK);
}

// ------------------------------------------------------ answers and errors

TEST_F(SoapSessionTest, StatusesOtherThan200And500BecomeSoapErrors) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  for (const char* status : {"403", "404", "503"}) {
    Fault(std::string("status:") + status);
    ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), S_OK) << status;
    EXPECT_TRUE(ErrorSet());
    const ErrorText e = Error();
    EXPECT_EQ(e.group, RFCERROR_SYSTEM_FAILURE) << status;
    EXPECT_EQ(e.key, "SOAP_ERROR");
    EXPECT_TRUE(e.message.starts_with(std::string("Server response status ") + status + ":\n")) << e.message;
    EXPECT_EQ(e.module, "");
    EXPECT_FALSE(Active());
  }
}

TEST_F(SoapSessionTest, AnHtmlAnswerWithStatus500IsAnException) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  Fault("status:500");
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), S_OK);
  const ErrorText e = Error();
  EXPECT_EQ(e.group, RFCERROR_SYSTEM_FAILURE);
  EXPECT_EQ(e.key, "SOAP_ERROR");
  EXPECT_TRUE(e.message.starts_with("Exception ")) << e.message;
}

TEST_F(SoapSessionTest, BadXmlAndAForeignNamespaceAreExceptions) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  for (const char* fault : {"malformed", "namespace"}) {
    Fault(fault);
    ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), S_OK);
    const ErrorText e = Error();
    EXPECT_EQ(e.group, RFCERROR_SYSTEM_FAILURE) << fault;
    EXPECT_EQ(e.key, "SOAP_ERROR") << fault;
    EXPECT_TRUE(e.message.starts_with("Exception ")) << fault << ": " << e.message;
  }
}

TEST_F(SoapSessionTest, AnotherFaultIsACommunicationError) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  ASSERT_EQ(m_session->CallFunction(NewCall(u"Z_NO_SUCH_MODULE"), VARIANT_TRUE), S_OK);
  const ErrorText e = Error();
  EXPECT_EQ(e.group, RFCERROR_COMMUNICATION);
  EXPECT_TRUE(Contains(e.key + e.message, "not found")) << e.key << " / " << e.message;
}

// ------------------------------------------------- the stuck state

TEST_F(SoapSessionTest, ARefusedConnectionLeavesTheCallStuckUntilAbortCall) {
  Point(soaptest::ClosedPort());
  EXPECT_EQ(m_session->Connect(), kUnexpected);
  EXPECT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), kUnexpected);
  EXPECT_FALSE(ErrorSet());
  EXPECT_TRUE(Active());
  EXPECT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), kCallRunning);
  EXPECT_EQ(ErrorDescription(),
            "It is not possible to start more than one call per session in parallel (finish the active call first)");
  EXPECT_EQ(m_session->AbortCall(), S_OK);
  EXPECT_FALSE(Active());
  EXPECT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), kUnexpected);
  EXPECT_EQ(m_session->Disconnect(), S_OK);
  EXPECT_FALSE(Active());
}

TEST_F(SoapSessionTest, AConnectionClosedHalfWayLeavesTheCallStuck) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  Fault("close");
  EXPECT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), kUnexpected);
  EXPECT_TRUE(Active());
  EXPECT_EQ(m_session->AbortCall(), S_OK);
  EXPECT_FALSE(Active());
  EXPECT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), S_OK);
}

TEST_F(SoapSessionTest, NoAnswerIn30SecondsIsATimeoutAndTheSessionIsStuck) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  Fault("delay:31500");
  EXPECT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), kUnexpected);
  EXPECT_FALSE(ErrorSet());
  EXPECT_TRUE(Active());
  EXPECT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), kCallRunning);
  EXPECT_EQ(m_session->AbortCall(), S_OK);
  EXPECT_FALSE(Active());
}

// ------------------------------------------------- asynchronous calls

TEST_F(SoapSessionTest, OnlyVariantTrueIsSynchronous) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  Advise();
  // 1 is no VARIANT_TRUE: the call runs asynchronously and fires the event.
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), static_cast<VARIANT_BOOL>(1)), S_OK);
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_EQ(m_sink->Count(), 1);
  // A synchronous call fires nothing.
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), S_OK);
  EXPECT_EQ(m_sink->Count(), 1);
}

TEST_F(SoapSessionTest, AnAsynchronousServerFailureArrivesBeforeCallFinished) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  Advise();
  Fault("status:503");
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_FALSE), S_OK);
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_TRUE(ErrorSet());
  EXPECT_TRUE(Error().message.starts_with("Server response status 503:\n"));
}

TEST_F(SoapSessionTest, AnAsynchronousTransportFailureFiresAndLeavesTheSessionStuck) {
  Point(soaptest::ClosedPort());
  EXPECT_EQ(m_session->Connect(), kUnexpected);
  Advise();
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_FALSE), S_OK);
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_EQ(m_sink->ActiveAtFire(), VARIANT_TRUE);
  EXPECT_TRUE(Active());
  EXPECT_FALSE(ErrorSet());
  EXPECT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_FALSE), kCallRunning);
  EXPECT_EQ(m_session->AbortCall(), S_OK);
  EXPECT_FALSE(Active());
}

// A sink that starts the next call from its handler, on the transport's thread.
class ChainingSink : public EventSink {
 public:
  explicit ChainingSink(ISession* s) : EventSink(s), m_s(s) {}
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* r,
                                   EXCEPINFO* e, UINT* a) override {
    if (id == 1 && !m_chained.exchange(true)) {
      CComPtr<IFunctionCall> next;
      m_s->CreateCall(&next);
      next->put_Function(CComBSTR(u"RFC_PING"));
      m_syncResult = m_s->CallFunction(next, VARIANT_TRUE);
      m_asyncResult = m_s->CallFunction(next, VARIANT_FALSE);
    }
    return EventSink::Invoke(id, riid, lcid, flags, params, r, e, a);
  }
  std::atomic<bool> m_chained{false};
  std::atomic<HRESULT> m_syncResult{E_FAIL}, m_asyncResult{E_FAIL};

 private:
  ISession* m_s;
};

TEST_F(SoapSessionTest, ASinkMayStartTheNextCall) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  auto* sink = new ChainingSink(m_session);
  CComQIPtr<IConnectionPointContainer> container(m_session);
  CComPtr<IConnectionPoint> point;
  ASSERT_EQ(container->FindConnectionPoint(DIID__SessionEvents, &point), S_OK);
  DWORD cookie = 0;
  ASSERT_EQ(point->Advise(sink, &cookie), S_OK);
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_FALSE), S_OK);
  ASSERT_TRUE(sink->WaitFor(2));
  EXPECT_EQ(sink->m_syncResult.load(), S_OK);
  EXPECT_EQ(sink->m_asyncResult.load(), S_OK);
  point->Unadvise(cookie);
  sink->Release();
}

// A sink that holds the client's only reference and drops it in its handler.

// ------------------------------------------------- parameters on the wire

TEST_F(SoapSessionTest, OptionalEmptyScalarsArePrunedAndMandatoryOnesGoOutEmpty) {
  soaptest::ForwardProxy proxy(s_sim->soapPort());
  m_system->put_ProxyHost(CComBSTR(u"127.0.0.1"));
  m_system->put_ProxyPort(proxy.port());
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<IFunctionCall> call = NewCall(u"STFC_CONNECTION");
  CComPtr<IRfcParameters> importing;
  call->get_Importing(&importing);
  ASSERT_EQ(importing->AddScalar(CComBSTR(u"REQUTEXT"), TYPE_CHAR, 255, 0, CComVariant()), S_OK);
  ASSERT_EQ(importing->AddScalar(CComBSTR(u"ZOPTIONAL"), TYPE_CHAR, 10, 0, CComVariant()), S_OK);
  CComPtr<IRfcParameter> optional;
  importing->get_Item(CComVariant(u"ZOPTIONAL"), &optional);
  optional->put_Optional(VARIANT_TRUE);
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  LONG count = 0;
  importing->get_Count(&count);
  EXPECT_EQ(count, 1);
  VARIANT_BOOL has = VARIANT_TRUE;
  importing->HasKey(CComBSTR(u"ZOPTIONAL"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);
  const auto seen = proxy.requests();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_TRUE(Contains(seen[1].body, "<REQUTEXT></REQUTEXT>") || Contains(seen[1].body, "<REQUTEXT/>")) << seen[1].body;
  EXPECT_FALSE(Contains(seen[1].body, "ZOPTIONAL"));
  EXPECT_EQ(seen[1].header("SOAPAction"), "\"urn:sap-com:document:sap:rfc:functions/STFC_CONNECTION\"");
}

// ------------------------------------------------------- stateful sessions

TEST_F(SoapSessionTest, AStatefulSessionAnnouncesItselfAndKeepsItsContext) {
  soaptest::ForwardProxy proxy(s_sim->soapPort());
  m_system->put_ProxyHost(CComBSTR(u"127.0.0.1"));
  m_system->put_ProxyPort(proxy.port());
  m_system->put_Stateful(VARIANT_TRUE);
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<IFunctionCall> counter = Import(u"Z_VSIM_COUNTER");
  ASSERT_TRUE(counter);
  std::vector<std::string> values;
  for (int i = 0; i < 2; ++i) {
    Set(counter, u"STEP", CComVariant(5L));
    ASSERT_EQ(m_session->CallFunction(counter, VARIANT_TRUE), S_OK);
    ASSERT_FALSE(ErrorSet()) << Error().message;
    CComPtr<IRfcParameters> exporting;
    counter->get_Exporting(&exporting);
    LONG n = 0;
    exporting->get_Count(&n);
    ASSERT_GE(n, 1);
    CComPtr<IRfcParameter> p;
    exporting->get_Item(CComVariant(1L), &p);
    CComVariant v;
    p->get_value(&v);
    v.ChangeType(VT_BSTR);
    values.push_back(TextOf(V_BSTR(&v)));
  }
  EXPECT_EQ(values, (std::vector<std::string>{"5", "10"}));
  ASSERT_EQ(m_session->Disconnect(), S_OK);
  const auto seen = proxy.requests();
  ASSERT_GE(seen.size(), 4u);
  EXPECT_TRUE(Contains(seen.front().requestLine, "&session_mode=1 HTTP/1.1")) << seen.front().requestLine;
  EXPECT_TRUE(Contains(seen.back().requestLine, "&session_mode=2 HTTP/1.1")) << seen.back().requestLine;
  EXPECT_TRUE(Contains(seen.back().header("SOAPAction"), "RFC_PING"));
  for (size_t i = 1; i + 1 < seen.size(); ++i) EXPECT_FALSE(Contains(seen[i].requestLine, "session_mode"));
  EXPECT_TRUE(Contains(seen[1].header("Cookie"), "sap-contextid"));
}

TEST_F(SoapSessionTest, WithoutStatefulDisconnectSendsNothing) {
  soaptest::ForwardProxy proxy(s_sim->soapPort());
  m_system->put_ProxyHost(CComBSTR(u"127.0.0.1"));
  m_system->put_ProxyPort(proxy.port());
  ASSERT_EQ(m_session->Connect(), S_OK);
  ASSERT_EQ(m_session->Disconnect(), S_OK);
  EXPECT_EQ(proxy.requests().size(), 1u);
  EXPECT_FALSE(Contains(proxy.requests()[0].requestLine, "session_mode"));
}

TEST_F(SoapSessionTest, WithSkipPingTheFirstCallChecksTheLogon) {
  soaptest::ForwardProxy proxy(s_sim->soapPort());
  m_system->put_ProxyHost(CComBSTR(u"127.0.0.1"));
  m_system->put_ProxyPort(proxy.port());
  ASSERT_EQ(m_session->put_Option(CComBSTR(u"soap.skip_ping"), CComBSTR(u"X")), S_OK);
  ASSERT_EQ(m_session->Connect(), S_OK);
  EXPECT_TRUE(Connected());
  EXPECT_TRUE(proxy.requests().empty());
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorSet());
  ASSERT_EQ(m_session->Disconnect(), S_OK);
  EXPECT_EQ(proxy.requests().size(), 1u);
  // A wrong password shows at that call.
  Logon(u"DEMO", u"wrong");
  ASSERT_EQ(m_session->Connect(), S_OK);
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), S_OK);
  EXPECT_TRUE(ErrorSet());
  EXPECT_TRUE(Error().message.starts_with("Server response status 401:\n")) << Error().message;
  ASSERT_EQ(m_session->Disconnect(), S_OK);
}

TEST_F(SoapSessionTest, AStatefulSessionPingsDespiteSkipPing) {
  soaptest::ForwardProxy proxy(s_sim->soapPort());
  m_system->put_ProxyHost(CComBSTR(u"127.0.0.1"));
  m_system->put_ProxyPort(proxy.port());
  m_system->put_Stateful(VARIANT_TRUE);
  ASSERT_EQ(m_session->put_Option(CComBSTR(u"soap.skip_ping"), CComBSTR(u"X")), S_OK);
  ASSERT_EQ(m_session->Connect(), S_OK);
  ASSERT_EQ(proxy.requests().size(), 1u);
  EXPECT_TRUE(Contains(proxy.requests()[0].requestLine, "&session_mode=1"));
}

TEST_F(SoapSessionTest, StatefulIsReadAgainAtDisconnect) {
  soaptest::ForwardProxy proxy(s_sim->soapPort());
  m_system->put_ProxyHost(CComBSTR(u"127.0.0.1"));
  m_system->put_ProxyPort(proxy.port());
  ASSERT_EQ(m_session->Connect(), S_OK);
  m_system->put_Stateful(VARIANT_TRUE);
  ASSERT_EQ(m_session->Disconnect(), S_OK);
  const auto seen = proxy.requests();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_FALSE(Contains(seen[0].requestLine, "session_mode"));
  EXPECT_TRUE(Contains(seen[1].requestLine, "&session_mode=2"));
}

TEST_F(SoapSessionTest, ReleasingAStatefulSessionEndsItsContext) {
  soaptest::ForwardProxy proxy(s_sim->soapPort());
  m_system->put_ProxyHost(CComBSTR(u"127.0.0.1"));
  m_system->put_ProxyPort(proxy.port());
  m_system->put_Stateful(VARIANT_TRUE);
  ASSERT_EQ(m_session->Connect(), S_OK);
  m_system.Release();
  m_logon.Release();
  m_session.Release();
  const auto seen = proxy.requests();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_TRUE(Contains(seen[1].requestLine, "&session_mode=2"));
}

// ------------------------------------------------------------ the trace

TEST_F(SoapSessionTest, ConnectOpensTheTraceFromTheOptionAndTheBoundaryIsTraced) {
  soaptest::TempFile trace("session.trc");
  ASSERT_EQ(m_session->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(trace.path()))), S_OK);
  TraceResetForTesting();  // closed again: Connect opens it from the option
  SetTraceLevel(3);
  ASSERT_EQ(m_session->Connect(), S_OK);
  ASSERT_TRUE(TraceIsOpen());
  ASSERT_EQ(m_session->CallFunction(NewCall(u"Z_NO_SUCH_MODULE"), VARIANT_TRUE), S_OK);
  Fault("close");
  EXPECT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), kUnexpected);
  m_session->AbortCall();
  const std::string text = trace.read();
  for (const char* line :
       {"CSoapSession: Connect()", "Calling RFC_PING", "CSoapSession: Connect(): ok", "SetError: 102 ",
        "CXVeltrane Error: ERROR_WINHTTP_CONNECTION_ERROR in CSOAPSession::CallFunction()",
        "WinHttpRequest::~WinHttpRequest()"}) {
    EXPECT_TRUE(Contains(text, line)) << line << "\n" << text;
  }
}

TEST_F(SoapSessionTest, AStatusErrorIsTraced) {
  soaptest::TempFile trace("status.trc");
  TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
  SetTraceLevel(3);
  Logon(u"DEMO", u"wrong");
  EXPECT_EQ(m_session->Connect(), kRfcError);
  const std::string text = trace.read();
  EXPECT_TRUE(Contains(text, "SetError: 103 RFC_LOGON_FAILURE Name or password is incorrect (repeat logon)"));
  EXPECT_TRUE(Contains(text, "SOAP Error: Server response status 401:"));
  EXPECT_TRUE(Contains(text, "SetError: 104 SOAP_ERROR Server response status 401:"));
}

}  // namespace
