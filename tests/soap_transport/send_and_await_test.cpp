// SendAndAwait: the waiting thread runs its exchange itself while nothing
// else of the transport runs, and hands it to the worker as soon as another
// request, a callback or the closing transport wants the worker.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "platform/unicode.h"
#include "runtime/exceptions.h"
#include "runtime/trace.h"
#include "transport_fixture.h"
#include "veltrane_errors.h"

namespace {

using namespace soaptest;

using Clock = std::chrono::steady_clock;

class SendAndAwait : public SoapTransport {
 protected:
  void Delay(int ms) {
    ASSERT_EQ(SimControl(s_sim->soapUrl(), "fault?fault=delay:" + std::to_string(ms)), 200);
  }
};

TEST_F(SendAndAwait, GivesTheAnswerAndLeavesTheRequestComplete) {
  auto t = Open();
  for (int i = 0; i < 3; ++i) {
    auto r = t->CreateRequest(m_call, 0);
    const WinHttpResponse answer = r->SendAndAwait(kPing, 30000);
    EXPECT_EQ(answer.statusCode, u"200");
    EXPECT_TRUE(answer.contentType.starts_with(u"text/xml")) << WideToUtf8(answer.contentType);
    EXPECT_TRUE(Contains(answer.body, "RFC_PING.Response")) << answer.body;
    EXPECT_EQ(r->Status(), REQUEST_STATUS_COMPLETE);
  }
}

TEST_F(SendAndAwait, TracesTheSameNotificationsInTheirOrder) {
  TempFile trace("driven.trc");
  TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
  SetTraceLevel(3);
  {
    auto t = Open();
    t->CreateRequest(m_call, 0)->SendAndAwait(kPing, 30000);
  }
  const std::string text = trace.read();
  size_t at = 0;
  for (const char* line :
       {"got status 1", "WinHttpRequest::AwaitResponse", "WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE", "got status 5",
        "WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE", "WinHttpTransport::ReceiveHeaders", "got status 6",
        "WinHttpTransport::ReceiveHeaders: ok", "WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE",
        "WINHTTP_CALLBACK_STATUS_READ_COMPLETE", "WinHttpTransport::OnReadComplete (", "WinHttpRequest::ReadData(0)",
        "finished reading response in ", "got status 8", "WinHttpRequest::~WinHttpRequest()"}) {
    const size_t found = text.find(line, at);
    ASSERT_NE(found, std::string::npos) << line << " after offset " << at << " in\n" << text;
    at = found;
  }
}

TEST_F(SendAndAwait, FailuresAreThoseOfAwaitResponse) {
  Point(ClosedPort());
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  try {
    r->SendAndAwait(kPing, 30000);
    FAIL() << "no failure";
  } catch (const CXWinHTTPError& e) {
    EXPECT_EQ(e.Code(), static_cast<DWORD>(ERROR_WINHTTP_CANNOT_CONNECT));
  }
  EXPECT_EQ(r->Status(), REQUEST_STATUS_FAILED);
  // Sent once: a second send is refused as with Send.
  EXPECT_THROW(r->SendAndAwait(kPing, 30000), CXWinHTTPError);
}

TEST_F(SendAndAwait, AWaitThatRunsOutThrowsTimeoutAndTheTransportGoesOn) {
  Delay(1500);
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  const auto started = Clock::now();
  try {
    r->SendAndAwait(kPing, 200);
    FAIL() << "no time-out";
  } catch (const CXWinHTTPError&) {
    FAIL() << "transport failure instead of a time-out";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::TIMEOUT);
  }
  EXPECT_LT(Clock::now() - started, std::chrono::milliseconds(1400));
  const int32_t stood = r->Status();
  EXPECT_FALSE(IsFinalStatus(stood));
  // The stale exchange was taken off; the next one is answered at once.
  const WinHttpResponse answer = t->CreateRequest(m_call, 0)->SendAndAwait(kPing, 30000);
  EXPECT_EQ(answer.statusCode, u"200");
  EXPECT_EQ(r->Status(), stood);
}

TEST_F(SendAndAwait, AnotherRequestMeanwhileGoesToTheWorkerAndBothAreAnswered) {
  Delay(800);
  auto t = Open();
  auto slow = t->CreateRequest(m_call, 0);
  std::atomic<bool> slowDone{false};
  auto waiting = std::async(std::launch::async, [&] {
    WinHttpResponse answer = slow->SendAndAwait(kPing, 30000);
    slowDone = true;
    return answer;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  auto quick = t->CreateRequest(m_call, 0);
  Recorder rec;
  quick->SetCallback(&Recorder::Callback, &rec);
  quick->Send(kPing, 0);
  rec.WaitFinal();
  // The quick answer was delivered while the slow one was still awaited.
  EXPECT_FALSE(slowDone.load());
  EXPECT_EQ(quick->AwaitResponse(30000).statusCode, u"200");
  EXPECT_EQ(waiting.get().statusCode, u"200");
  std::lock_guard<std::mutex> lock(rec.mutex);
  EXPECT_EQ(rec.statuses.back(), REQUEST_STATUS_COMPLETE);
  for (size_t i = 1; i < rec.threads.size(); ++i) EXPECT_NE(rec.threads[i], std::this_thread::get_id());
}

TEST_F(SendAndAwait, ACallbackSetMeanwhileIsCalledOnTheWorker) {
  Delay(500);
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  std::promise<std::thread::id> waiter;
  auto waiting = std::async(std::launch::async, [&] {
    waiter.set_value(std::this_thread::get_id());
    return r->SendAndAwait(kPing, 30000);
  });
  const std::thread::id waiterId = waiter.get_future().get();
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  Recorder rec;
  r->SetCallback(&Recorder::Callback, &rec);
  EXPECT_EQ(waiting.get().statusCode, u"200");
  std::lock_guard<std::mutex> lock(rec.mutex);
  ASSERT_FALSE(rec.statuses.empty());
  EXPECT_EQ(rec.statuses.back(), REQUEST_STATUS_COMPLETE);
  for (size_t i = 0; i < rec.statuses.size(); ++i) {
    if (i > 0) EXPECT_LT(rec.statuses[i - 1], rec.statuses[i]);
    EXPECT_NE(rec.threads[i], waiterId);
    EXPECT_NE(rec.threads[i], std::this_thread::get_id());
  }
}

TEST_F(SendAndAwait, ClosingTheTransportMeanwhileCancelsTheExchange) {
  Delay(1500);
  auto t = Open();
  auto r = t->CreateRequest(m_call, 0);
  const auto started = Clock::now();
  auto waiting = std::async(std::launch::async, [&] { r->SendAndAwait(kPing, 30000); });
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  t->Close();
  try {
    waiting.get();
    FAIL() << "no failure";
  } catch (const CXWinHTTPError& e) {
    EXPECT_EQ(e.Code(), static_cast<DWORD>(ERROR_WINHTTP_OPERATION_CANCELLED));
  }
  EXPECT_LT(Clock::now() - started, std::chrono::milliseconds(1400));
}

// A handler on the worker that sends and waits drives the transfers itself
// there, as AwaitResponse does.
struct Chain {
  WinHttpTransport* transport;
  IFunctionCall* call;
  std::promise<std::u16string> second;

  static void Callback(WinHttpRequest* r, int32_t status, void* self) {
    if (!IsFinalStatus(status)) return;
    auto* c = static_cast<Chain*>(self);
    try {
      r->AwaitResponse(30000);
      c->second.set_value(c->transport->CreateRequest(c->call, 0)->SendAndAwait(kPing, 30000).statusCode);
    } catch (const std::exception& e) {
      c->second.set_value(Utf8ToWide(e.what()));
    }
  }
};

TEST_F(SendAndAwait, AHandlerOnTheWorkerMayUseIt) {
  auto t = Open();
  Chain chain{t.get(), m_call, {}};
  std::future<std::u16string> second = chain.second.get_future();
  auto r = t->CreateRequest(m_call, 0);
  r->SetCallback(&Chain::Callback, &chain);
  r->Send(kPing, 0);
  EXPECT_EQ(second.get(), u"200");
}

// A handle is kept for the next request of the transport: nothing of one
// request may go out with the next.
TEST_F(SendAndAwait, TheNextRequestCarriesNothingOfTheOneBefore) {
  LoopbackServer server([](int fd, const SeenRequest&) {
    return LoopbackServer::Answer(fd, "200 OK", "Content-Type: text/xml\r\n", "<x/>");
  });
  Point(server.port());
  auto t = Open();
  m_logon->put_SSO2Ticket(CComBSTR(u"T1"));
  t->CreateRequest(m_call, 1)->SendAndAwait(kPing, 30000);
  m_logon->put_User(CComBSTR(u""));
  m_logon->put_SSO2Ticket(CComBSTR(u""));
  m_call->put_Function(CComBSTR(u"STFC_CONNECTION"));
  t->CreateRequest(m_call, 0)->SendAndAwait("<y/>", 30000);
  m_logon->put_User(CComBSTR(u"OTHER"));
  m_logon->put_Password(CComBSTR(u"pw"));
  t->CreateRequest(m_call, 2)->SendAndAwait(kPing, 30000);
  const auto seen = server.requests();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_TRUE(Contains(seen[0].requestLine, "&session_mode=1")) << seen[0].requestLine;
  EXPECT_EQ(seen[0].header("Authorization"), "Basic " + B64("DEMO:Welcome1"));
  EXPECT_EQ(seen[0].header("Cookie"), "MYSAPSSO2=T1");
  EXPECT_FALSE(Contains(seen[1].requestLine, "session_mode")) << seen[1].requestLine;
  EXPECT_FALSE(seen[1].has("Authorization"));
  EXPECT_FALSE(seen[1].has("Cookie"));
  EXPECT_EQ(seen[1].header("SOAPAction"), "\"urn:sap-com:document:sap:rfc:functions/STFC_CONNECTION\"");
  EXPECT_EQ(seen[1].body, "<y/>");
  EXPECT_TRUE(Contains(seen[2].requestLine, "&session_mode=2")) << seen[2].requestLine;
  EXPECT_EQ(seen[2].header("Authorization"), "Basic " + B64("OTHER:pw"));
  EXPECT_EQ(seen[2].body, kPing);
  EXPECT_EQ(server.connections(), 1u);
}

}  // namespace
