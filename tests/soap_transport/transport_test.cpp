// The HTTP transport over real HTTP: against veltrane-sim with its fault
// switches, and against loopback servers that record what went out.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "runtime/exceptions.h"
#include "runtime/trace.h"
#include "platform/unicode.h"
#include "transport_fixture.h"
#include "veltrane_errors.h"

namespace {

using soaptest::B64;
using soaptest::Contains;
using soaptest::kPing;
using soaptest::LoopbackServer;
using soaptest::Recorder;
using soaptest::SeenRequest;
using soaptest::SoapTransport;

TEST_F(SoapTransport, PingIsAnsweredWithStatusContentTypeAndBody) {
  auto t = Open();
  const WinHttpResponse answer = Post(*t);
  EXPECT_EQ(answer.statusCode, u"200");
  EXPECT_TRUE(answer.contentType.starts_with(u"text/xml")) << WideToUtf8(answer.contentType);
  EXPECT_TRUE(Contains(answer.body, "RFC_PING.Response")) << answer.body;
}

TEST_F(SoapTransport, StatusNumbersRiseToEightOnTheWorkerThread) {
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  EXPECT_EQ(r->Status(), REQUEST_STATUS_INITIAL);
  Recorder rec;
  r->SetCallback(&Recorder::Callback, &rec);
  r->Send(kPing, 0);
  rec.WaitFinal();
  std::lock_guard<std::mutex> lock(rec.mutex);
  ASSERT_GE(rec.statuses.size(), 4u);
  EXPECT_EQ(rec.statuses.front(), REQUEST_STATUS_SENDING);
  EXPECT_EQ(rec.threads.front(), std::this_thread::get_id());  // Send runs on the caller's thread
  for (size_t i = 1; i < rec.statuses.size(); ++i) {
    EXPECT_LT(rec.statuses[i - 1], rec.statuses[i]);
    EXPECT_NE(rec.threads[i], std::this_thread::get_id());
  }
  EXPECT_EQ(rec.statuses.back(), REQUEST_STATUS_COMPLETE);
  EXPECT_NE(std::find(rec.statuses.begin(), rec.statuses.end(), REQUEST_STATUS_HEADERS), rec.statuses.end());
}

TEST_F(SoapTransport, PathCarriesEndpointClientLanguageAndSessionMode) {
  LoopbackServer server([](int fd, const SeenRequest&) {
    return LoopbackServer::Answer(fd, "200 OK", "Content-Type: text/xml\r\n", "<x/>");
  });
  Point(server.port());
  auto t = Open();
  for (int mode : {0, 1, 2}) Post(*t, mode);
  m_system->put_SoapEndpoint(CComBSTR(u"zsoap/rfc%41"));
  m_logon->put_Client(CComBSTR(u""));
  m_logon->put_Language(nullptr);
  Post(*t, 0);
  // A path that is no URL is refused by the transport.
  m_system->put_SoapEndpoint(CComBSTR(u"my service"));
  try {
    Post(*t, 0);
    FAIL() << "sent";
  } catch (const CXWinHTTPError& e) {
    EXPECT_EQ(e.Code(), static_cast<DWORD>(ERROR_WINHTTP_INVALID_URL));
  }
  const auto seen = server.requests();
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[0].requestLine, "POST /sap/bc/soap/rfc?sap-client=001&sap-language=EN HTTP/1.1");
  EXPECT_EQ(seen[1].requestLine, "POST /sap/bc/soap/rfc?sap-client=001&sap-language=EN&session_mode=1 HTTP/1.1");
  EXPECT_EQ(seen[2].requestLine, "POST /sap/bc/soap/rfc?sap-client=001&sap-language=EN&session_mode=2 HTTP/1.1");
  // No URL encoding; empty values stay empty.
  EXPECT_EQ(seen[3].requestLine, "POST /zsoap/rfc%41?sap-client=&sap-language= HTTP/1.1");
  // One connection for all: keep-alive.
  EXPECT_EQ(server.connections(), 1u);
}

TEST_F(SoapTransport, HeadersAndPreemptiveBasicCredentials) {
  LoopbackServer server([](int fd, const SeenRequest&) {
    return LoopbackServer::Answer(fd, "200 OK", "Content-Type: text/xml\r\n", "<x/>");
  });
  Point(server.port());
  auto t = Open();
  Post(*t);
  const auto seen = server.requests();
  ASSERT_EQ(seen.size(), 1u);
  const SeenRequest& r = seen[0];
  EXPECT_EQ(r.header("Content-Type"), "text/xml; charset=UTF-8");
  EXPECT_EQ(r.header("Accept-Charset"), "UTF-8");
  EXPECT_EQ(r.header("SOAPAction"), "\"urn:sap-com:document:sap:rfc:functions/RFC_PING\"");
  EXPECT_EQ(r.header("Authorization"), "Basic " + B64("DEMO:Welcome1"));
  EXPECT_EQ(r.header("User-Agent"), "Veltrane");
  EXPECT_FALSE(r.has("Cookie"));
  EXPECT_FALSE(r.has("Expect"));
  EXPECT_EQ(r.body, kPing);
  // The three headers of the transport stand in their order.
  std::vector<std::string> order;
  for (const auto& [n, v] : r.headers)
    if (n == "Content-Type" || n == "Accept-Charset" || n == "SOAPAction") order.push_back(n);
  EXPECT_EQ(order, (std::vector<std::string>{"Content-Type", "Accept-Charset", "SOAPAction"}));
}

TEST_F(SoapTransport, EmptyUserSendsNoCredentialsAndATicketGivesTheCookie) {
  LoopbackServer server([](int fd, const SeenRequest&) {
    return LoopbackServer::Answer(fd, "200 OK", "Content-Type: text/xml\r\n", "<x/>");
  });
  Point(server.port());
  m_logon->put_User(CComBSTR(u""));
  m_logon->put_SSO2Ticket(CComBSTR(u"AjQxMDMBAB"));
  auto t = Open();
  Post(*t);
  const auto seen = server.requests();
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_FALSE(seen[0].has("Authorization"));
  EXPECT_EQ(seen[0].header("Cookie"), "MYSAPSSO2=AjQxMDMBAB");
}

TEST_F(SoapTransport, LogonWithATicketAloneAgainstTheSimulator) {
  std::string ticket;
  ASSERT_EQ(soaptest::SimControl(s_sim->soapUrl(), "ticket?user=DEMO&client=001", &ticket), 200);
  m_logon->put_User(CComBSTR(u""));
  m_logon->put_Password(CComBSTR(u""));
  m_logon->put_SSO2Ticket(CComBSTR(Utf8ToWide(ticket).c_str()));
  auto t = Open();
  EXPECT_EQ(Post(*t).statusCode, u"200");
  m_logon->put_SSO2Ticket(CComBSTR(u"not-a-ticket"));
  auto other = Open();
  EXPECT_EQ(Post(*other).statusCode, u"401");
}

TEST_F(SoapTransport, CookiesAreKeptPerTransport) {
  std::atomic<int> served{0};
  LoopbackServer server([&served](int fd, const SeenRequest&) {
    const bool first = served++ == 0;
    return LoopbackServer::Answer(
        fd, "200 OK",
        first ? "Set-Cookie: sap-contextid=ABC; path=/\r\nContent-Type: text/xml\r\n" : "Content-Type: text/xml\r\n",
        "<x/>");
  });
  Point(server.port());
  m_logon->put_SSO2Ticket(CComBSTR(u"T1"));
  auto t = Open();
  Post(*t);
  Post(*t);
  auto other = Open();
  Post(*other);
  const auto seen = server.requests();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[0].header("Cookie"), "MYSAPSSO2=T1");
  const std::string second = seen[1].header("Cookie");
  EXPECT_TRUE(Contains(second, "sap-contextid=ABC") && Contains(second, "MYSAPSSO2=T1")) << second;
  EXPECT_EQ(seen[2].header("Cookie"), "MYSAPSSO2=T1");
  EXPECT_TRUE(Contains(t->CookieList(), "sap-contextid"));
  EXPECT_FALSE(Contains(other->CookieList(), "sap-contextid"));
}

TEST_F(SoapTransport, TheSimulatorsSessionCookiesStayInTheTransport) {
  auto t = Open();
  Post(*t, 1);
  const std::string cookies = t->CookieList();
  EXPECT_TRUE(Contains(cookies, "SAP_SESSIONID_VSM_001")) << cookies;
  EXPECT_TRUE(Contains(cookies, "sap-contextid")) << cookies;
  // The security session carries the logon: no credentials needed any more.
  m_logon->put_Password(CComBSTR(u"wrong"));
  m_logon->put_User(CComBSTR(u""));
  EXPECT_EQ(Post(*t).statusCode, u"200");
}

TEST_F(SoapTransport, AnHttpErrorStatusIsACompleteAnswer) {
  ASSERT_EQ(soaptest::SimControl(s_sim->soapUrl(), "fault?fault=status:404"), 200);
  auto t = Open();
  const WinHttpResponse answer = Post(*t);
  EXPECT_EQ(answer.statusCode, u"404");
}

TEST_F(SoapTransport, NoContentTypeAndAnEmptyBody) {
  LoopbackServer server([](int fd, const SeenRequest&) { return LoopbackServer::Answer(fd, "200 OK", "", ""); });
  Point(server.port());
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  Recorder rec;
  r->SetCallback(&Recorder::Callback, &rec);
  r->Send(kPing, 0);
  const WinHttpResponse answer = r->AwaitResponse(30000);
  EXPECT_EQ(answer.statusCode, u"200");
  EXPECT_EQ(answer.contentType, u"");
  EXPECT_EQ(answer.body, "");
  EXPECT_EQ(r->Status(), REQUEST_STATUS_COMPLETE);
}

TEST_F(SoapTransport, ARefusedConnectionIsCannotConnect) {
  Point(soaptest::ClosedPort());
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  r->Send(kPing, 0);
  try {
    r->AwaitResponse(30000);
    FAIL() << "no failure";
  } catch (const CXWinHTTPError& e) {
    EXPECT_EQ(e.Code(), static_cast<DWORD>(ERROR_WINHTTP_CANNOT_CONNECT));
    EXPECT_EQ(e.Kind(), CXVeltrane::WINHTTP_ERROR);
    EXPECT_TRUE(Contains(e.what(), "ERROR_WINHTTP_CANNOT_CONNECT")) << e.what();
  }
  EXPECT_EQ(r->Status(), REQUEST_STATUS_FAILED);
  EXPECT_EQ(r->LastError(), static_cast<DWORD>(ERROR_WINHTTP_CANNOT_CONNECT));
}

TEST_F(SoapTransport, AnUnknownHostIsNameNotResolved) {
  Point(80, u"nonexistent-host.invalid");
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  r->Send(kPing, 0);
  try {
    r->AwaitResponse(30000);
    FAIL() << "no failure";
  } catch (const CXWinHTTPError& e) {
    EXPECT_EQ(e.Code(), static_cast<DWORD>(ERROR_WINHTTP_NAME_NOT_RESOLVED));
  }
}

TEST_F(SoapTransport, AConnectionClosedHalfWayIsAConnectionError) {
  ASSERT_EQ(soaptest::SimControl(s_sim->soapUrl(), "fault?fault=close"), 200);
  auto t = Open();
  try {
    Post(*t);
    FAIL() << "no failure";
  } catch (const CXWinHTTPError& e) {
    EXPECT_EQ(e.Code(), static_cast<DWORD>(ERROR_WINHTTP_CONNECTION_ERROR)) << e.what();
  }
}

TEST_F(SoapTransport, AWaitThatRunsOutThrowsTimeoutAndClosesTheRequest) {
  ASSERT_EQ(soaptest::SimControl(s_sim->soapUrl(), "fault?fault=delay:1500"), 200);
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  Recorder rec;
  r->SetCallback(&Recorder::Callback, &rec);
  r->Send(kPing, 0);
  try {
    r->AwaitResponse(200);
    FAIL() << "no time-out";
  } catch (const CXWinHTTPError&) {
    FAIL() << "transport failure instead of a time-out";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::TIMEOUT);
  }
  const int32_t stood = r->Status();
  EXPECT_FALSE(IsFinalStatus(stood));
  // The answer arrives after the close and changes nothing any more.
  std::this_thread::sleep_for(std::chrono::milliseconds(2000));
  EXPECT_EQ(r->Status(), stood);
  std::lock_guard<std::mutex> lock(rec.mutex);
  EXPECT_TRUE(rec.statuses.empty() || !IsFinalStatus(rec.statuses.back()));
}

TEST_F(SoapTransport, ProtocolAndTimeoutHaveNoEffect) {
  m_system->put_Protocol(CComBSTR(u"https"));
  m_system->put_Timeout(100);
  ASSERT_EQ(soaptest::SimControl(s_sim->soapUrl(), "fault?fault=delay:600"), 200);
  auto t = Open();
  EXPECT_EQ(Post(*t).statusCode, u"200");
}

TEST_F(SoapTransport, ANamedProxyGetsTheAbsoluteFormAndPreemptiveCredentials) {
  soaptest::TempFile trace("proxy.trc");
  TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
  SetTraceLevel(3);
  soaptest::ForwardProxy proxy(s_sim->soapPort());
  m_system->put_ProxyHost(CComBSTR(u"127.0.0.1"));
  m_system->put_ProxyPort(proxy.port());
  m_system->put_ProxyUser(CComBSTR(u"puser"));
  m_system->put_ProxyPassword(CComBSTR(u"p ss"));
  // Port 0: the default port, so the URL names none.
  Point(0, u"sapserver.example");
  auto t = Open();
  EXPECT_EQ(Post(*t).statusCode, u"200");
  const auto seen = proxy.requests();
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].requestLine,
            "POST http://sapserver.example/sap/bc/soap/rfc?sap-client=001&sap-language=EN HTTP/1.1");
  EXPECT_EQ(seen[0].header("Proxy-Authorization"), "Basic " + B64("puser:p ss"));
  EXPECT_EQ(seen[0].header("Authorization"), "Basic " + B64("DEMO:Welcome1"));
  EXPECT_TRUE(Contains(trace.read(), "using proxy 127.0.0.1:" + std::to_string(proxy.port())));
}

TEST_F(SoapTransport, AProxyWithoutPortIsNamedByTheHostAlone) {
  soaptest::TempFile trace("proxy.trc");
  TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
  SetTraceLevel(3);
  m_system->put_ProxyHost(CComBSTR(u"proxy.invalid"));
  m_system->put_ProxyPort(0);
  auto t = Open();
  const std::string text = trace.read();
  EXPECT_TRUE(Contains(text, "using proxy proxy.invalid\n")) << text;
  auto r = t->CreateRequest(m_call, 0);
  r->Send(kPing, 0);
  try {
    r->AwaitResponse(30000);
    FAIL() << "no failure";
  } catch (const CXWinHTTPError& e) {
    EXPECT_EQ(e.Code(), static_cast<DWORD>(ERROR_WINHTTP_NAME_NOT_RESOLVED));
  }
}

TEST_F(SoapTransport, NotificationsAreTraced) {
  soaptest::TempFile trace("notify.trc");
  TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
  SetTraceLevel(3);
  {
    auto t = Open();
    Post(*t);
  }
  const std::string text = trace.read();
  for (const char* line :
       {"WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE", "WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE",
        "WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE", "WINHTTP_CALLBACK_STATUS_READ_COMPLETE",
        "WinHttpTransport::ReceiveHeaders: ok", "WinHttpTransport::OnReadComplete (", "WinHttpRequest::ReadData(0)",
        "finished reading response in ", "WinHttpResponse::UpdateStatus: got status 8", "WinHttpRequest::AwaitResponse",
        "WinHttpRequest::~WinHttpRequest()"})
    EXPECT_TRUE(Contains(text, line)) << line;
}

TEST_F(SoapTransport, AFailureIsTracedAsRequestError) {
  soaptest::TempFile trace("error.trc");
  TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
  SetTraceLevel(3);
  Point(soaptest::ClosedPort());
  auto t = Open();
  EXPECT_THROW(Post(*t), CXWinHTTPError);
  const std::string text = trace.read();
  EXPECT_TRUE(Contains(text, "WINHTTP_CALLBACK_STATUS_REQUEST_ERROR"));
  EXPECT_TRUE(Contains(text, "got status 9"));
}

TEST_F(SoapTransport, CloseIsSafeTwiceAndASendAfterItIsRefused) {
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  r->Close();
  r->Close();
  try {
    r->Send(kPing, 0);
    FAIL() << "sent";
  } catch (const CXWinHTTPError& e) {
    EXPECT_EQ(e.Code(), static_cast<DWORD>(ERROR_WINHTTP_INCORRECT_HANDLE_STATE));
  }
}

TEST_F(SoapTransport, ACallbackSetAfterTheEndIsNotCalled) {
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  r->Send(kPing, 0);
  r->AwaitResponse(30000);
  Recorder rec;
  r->SetCallback(&Recorder::Callback, &rec);
  std::lock_guard<std::mutex> lock(rec.mutex);
  EXPECT_TRUE(rec.statuses.empty());
}

// A handler on the worker may take the answer and start and wait for a
// request of its own, as the asynchronous session does.
struct Chain {
  WinHttpTransport* transport;
  IFunctionCall* call;
  std::mutex mutex;
  std::condition_variable done;
  std::u16string first, second;
  bool finished = false;

  static void Callback(WinHttpRequest* r, int32_t status, void* self) {
    if (!IsFinalStatus(status)) return;
    auto* c = static_cast<Chain*>(self);
    std::u16string a, b;
    try {
      a = r->AwaitResponse(30000).statusCode;
      auto next = c->transport->CreateRequest(c->call, 0);
      next->Send(kPing, 0);
      b = next->AwaitResponse(30000).statusCode;
    } catch (const std::exception& e) {
      b = Utf8ToWide(e.what());
    }
    std::lock_guard<std::mutex> lock(c->mutex);
    c->first = a;
    c->second = b;
    c->finished = true;
    c->done.notify_all();
  }
};

TEST_F(SoapTransport, AHandlerOnTheWorkerMayWaitForAnotherRequest) {
  auto t = Open();
  Chain chain{t.get(), m_call};
  auto r = t->CreateRequest(m_call, 0);
  r->SetCallback(&Chain::Callback, &chain);
  r->Send(kPing, 0);
  std::unique_lock<std::mutex> lock(chain.mutex);
  chain.done.wait(lock, [&] { return chain.finished; });
  EXPECT_EQ(chain.first, u"200");
  EXPECT_EQ(chain.second, u"200");
}

TEST_F(SoapTransport, ClosingTheTransportCancelsARunningRequest) {
  ASSERT_EQ(soaptest::SimControl(s_sim->soapUrl(), "fault?fault=delay:1500"), 200);
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  r->Send(kPing, 0);
  t->Close();
  try {
    r->AwaitResponse(30000);
    FAIL() << "no failure";
  } catch (const CXWinHTTPError& e) {
    EXPECT_EQ(e.Code(), static_cast<DWORD>(ERROR_WINHTTP_OPERATION_CANCELLED));
  }
  EXPECT_THROW(t->CreateRequest(m_call, 0), CXWinHTTPError);
}

TEST_F(SoapTransport, AnEmptyHostIsRefusedAtConnect) {
  m_system->put_Host(CComBSTR(u""));
  WinHttpTransport t(m_system, m_logon);
  try {
    t.Connect();
    FAIL() << "connected";
  } catch (const CXWinHTTPError& e) {
    EXPECT_EQ(e.Code(), static_cast<DWORD>(ERROR_WINHTTP_INVALID_URL));
  }
}

TEST(WinHttpErrorMapping, CausesMapToTheirWinHttpNumbers) {
  EXPECT_EQ(WinHttpErrorFromCurl(7), static_cast<DWORD>(ERROR_WINHTTP_CANNOT_CONNECT));     // couldn't connect
  EXPECT_EQ(WinHttpErrorFromCurl(6), static_cast<DWORD>(ERROR_WINHTTP_NAME_NOT_RESOLVED));  // couldn't resolve
  EXPECT_EQ(WinHttpErrorFromCurl(28), static_cast<DWORD>(ERROR_WINHTTP_TIMEOUT));           // timed out
  EXPECT_EQ(WinHttpErrorFromCurl(18), static_cast<DWORD>(ERROR_WINHTTP_CONNECTION_ERROR));  // partial file
  EXPECT_EQ(WinHttpErrorFromCurl(56), static_cast<DWORD>(ERROR_WINHTTP_CONNECTION_ERROR));  // receive error
  EXPECT_EQ(WinHttpErrorFromCurl(52), static_cast<DWORD>(ERROR_WINHTTP_CONNECTION_ERROR));  // got nothing
  EXPECT_EQ(WinHttpErrorFromCurl(8), static_cast<DWORD>(ERROR_WINHTTP_INVALID_SERVER_RESPONSE));
}

}  // namespace
