// The client's call cycle: RfcCallEx sends, RfcListen polls without blocking, RfcReceiveEx takes
// the answer; ABAP exceptions, system failures, a partner that goes away, and RfcCancel.
#include <atomic>
#include <chrono>
#include <thread>

#include "rfc_fixture.h"

using namespace rfctest;
using namespace std::chrono_literals;

namespace {

using Call = Connected;

struct Wait {
  RFC_INT ms;
  RFC_INT waited = -1;
  std::u16string fn = u"Z_VSIM_WAIT";
  Parameters in, out;
  explicit Wait(RFC_INT milliseconds) : ms(milliseconds) {
    in.add("MILLISECONDS", RFCTYPE_INT, &ms, 4);
    out.add("WAITED", RFCTYPE_INT, &waited, 4);
  }
  RFC_RC send(RFC_HANDLE h) { return RfcCallExU(h, fn.data(), in.data(), nullptr, nullptr); }
  RFC_RC receive(RFC_HANDLE h, rfc_char_t** exception) {
    return RfcReceiveExU(h, out.data(), nullptr, nullptr, exception);
  }
};

TEST_F(Call, SynchronousCallFillsTheImports) {
  const CharCall r =
      callChars(h, "STFC_CONNECTION", {{"REQUTEXT", "Hello classic"}}, {{"ECHOTEXT", 0}, {"RESPTEXT", 255}});
  ASSERT_EQ(r.rc, RFC_OK) << lastError();
  EXPECT_EQ(r.results[0], "Hello classic");
  EXPECT_NE(r.results[1].find("DEMO"), std::string::npos) << r.results[1];
}

TEST_F(Call, ListenNeverBlocksAndSaysRetryUntilTheAnswerIsThere) {
  Wait w(400);
  ASSERT_EQ(w.send(h), RFC_OK);
  int retries = 0;
  RFC_RC rc;
  const auto start = std::chrono::steady_clock::now();
  while ((rc = RfcListenU(h)) == RFC_RETRY && std::chrono::steady_clock::now() - start < 10s) {
    const auto one = std::chrono::steady_clock::now();
    ++retries;
    std::this_thread::sleep_for(20ms);
    EXPECT_LT(std::chrono::steady_clock::now() - one, 200ms);
  }
  EXPECT_EQ(rc, RFC_OK);
  EXPECT_GT(retries, 2);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 350ms);
  EXPECT_EQ(RfcListenU(h), RFC_OK) << "the answer stays until it is received";
  rfc_char_t* exception = nullptr;
  EXPECT_EQ(w.receive(h, &exception), RFC_OK) << lastError();
  EXPECT_GE(w.waited, 400);
  EXPECT_EQ(RfcListenU(h), RFC_FAILURE) << "no call out any more";
}

TEST_F(Call, ReceiveWaitsForTheAnswer) {
  Wait w(100);
  ASSERT_EQ(w.send(h), RFC_OK);
  EXPECT_EQ(w.receive(h, nullptr), RFC_OK);
  EXPECT_GE(w.waited, 100);
}

TEST_F(Call, ASecondCallBeforeTheAnswerIsRefused) {
  Wait w(50);
  ASSERT_EQ(w.send(h), RFC_OK);
  EXPECT_EQ(w.send(h), RFC_FAILURE);
  EXPECT_EQ(w.receive(h, nullptr), RFC_OK);
}

TEST_F(Call, AnAbapExceptionNamesItselfAndLeavesImportsAlone) {
  const CharCall r = callChars(h, "Z_VSIM_RAISE", {{"EXCEPTION", "NOT_FOUND"}}, {{"RESULT", 0}});
  EXPECT_EQ(r.rc, RFC_EXCEPTION);
  EXPECT_EQ(r.exception, "NOT_FOUND");
  RFC_ERROR_INFO_EX info{};
  ASSERT_EQ(RfcLastErrorExU(&info), 0);
  EXPECT_EQ(info.group, RFC_ERROR_APPLICATION_EXCEPTION);
  EXPECT_EQ(text(info.key), "NOT_FOUND");
  // The connection serves on.
  EXPECT_EQ(callChars(h, "STFC_CONNECTION", {{"REQUTEXT", "x"}}, {{"ECHOTEXT", 0}}).rc, RFC_OK);
}

TEST_F(Call, AnAbapMessageIsASystemFailureThatClosesTheConnection) {
  const CharCall r = callChars(h, "Z_VSIM_RAISE",
                               {{"MESSAGE_ID", "SR"}, {"MESSAGE_NUMBER", "001"}, {"MESSAGE_TEXT", "Stop here"}}, {});
  EXPECT_EQ(r.rc, RFC_SYS_EXCEPTION);
  EXPECT_EQ(r.exception, "SYSTEM_FAILURE");
  RFC_ERROR_INFO_EX info{};
  ASSERT_EQ(RfcLastErrorExU(&info), 0);
  EXPECT_EQ(info.group, RFC_ERROR_SYSTEM_FAILURE);
  EXPECT_NE(text(info.message).find("Stop here"), std::string::npos) << text(info.message);
  EXPECT_EQ(RfcIsValidHandleU(h, nullptr), RFC_CLOSED);
  EXPECT_EQ(RfcListenU(h), RFC_CLOSED);
}

TEST_F(Call, AnUnknownFunctionIsASystemFailure) {
  const CharCall r = callChars(h, "Z_NO_SUCH_FUNCTION", {}, {});
  EXPECT_EQ(r.rc, RFC_SYS_EXCEPTION);
  EXPECT_EQ(r.exception, "SYSTEM_FAILURE");
  EXPECT_NE(lastError().find("Z_NO_SUCH_FUNCTION"), std::string::npos);
}

TEST_F(Call, TheExceptionTextIsTheLibrarysUntilTheNextCall) {
  const CharCall r = callChars(h, "Z_VSIM_RAISE", {{"EXCEPTION", "INVALID_INPUT"}}, {});
  EXPECT_EQ(r.exception, "INVALID_INPUT");
  EXPECT_EQ(callChars(h, "STFC_CONNECTION", {{"REQUTEXT", "x"}}, {{"ECHOTEXT", 0}}).exception, "");
}

TEST_F(Call, AnEmptyFunctionNameIsRefused) {
  std::u16string empty;
  EXPECT_EQ(RfcCallExU(h, empty.data(), nullptr, nullptr, nullptr), RFC_FAILURE);
  EXPECT_NE(lastError().find("empty"), std::string::npos);
  EXPECT_EQ(RfcCallExU(0, empty.data(), nullptr, nullptr, nullptr), RFC_FAILURE);
}

TEST_F(Call, APingTakesNullArrays) {
  std::u16string ping = u"RFC_PING";
  EXPECT_EQ(RfcCallReceiveExU(h, ping.data(), nullptr, nullptr, nullptr, nullptr, nullptr), RFC_OK) << lastError();
}

TEST_F(Call, ThePartnerGoingAwayShowsAsClosedInListen) {
  // The system drops the connection on its next request.
  {
    const RFC_HANDLE admin = open();
    EXPECT_EQ(callChars(admin, "Z_VSIM_FAULT", {{"FAULT", "close"}, {"FOR_USER", "DEMO"}}, {}).rc, RFC_OK)
        << lastError();
    RfcCloseU(admin);
  }
  Wait w(10);
  ASSERT_EQ(w.send(h), RFC_OK);
  RFC_RC rc;
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while ((rc = RfcListenU(h)) == RFC_RETRY && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(10ms);
  EXPECT_EQ(rc, RFC_CLOSED);
  RFC_ERROR_INFO_EX info{};
  ASSERT_EQ(RfcLastErrorExU(&info), 0);
  EXPECT_EQ(info.group, RFC_ERROR_COMMUNICATION);
}

TEST_F(Call, CancelHardKeepsTheConnectionWithANewContext) {
  std::u16string counter = u"Z_VSIM_COUNTER";
  RFC_INT value = 0;
  Parameters out;
  out.add("VALUE", RFCTYPE_INT, &value, 4);
  ASSERT_EQ(RfcCallReceiveExU(h, counter.data(), nullptr, out.data(), nullptr, nullptr, nullptr), RFC_OK)
      << lastError();
  ASSERT_EQ(RfcCallReceiveExU(h, counter.data(), nullptr, out.data(), nullptr, nullptr, nullptr), RFC_OK);
  EXPECT_EQ(value, 2);

  Wait w(5000);
  ASSERT_EQ(w.send(h), RFC_OK);
  EXPECT_EQ(RfcListenU(h), RFC_RETRY);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(RfcCancelU(h, RFC_CANCEL_HARD), RFC_CANCELED);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
  EXPECT_EQ(RfcIsValidHandleU(h, nullptr), RFC_OK);
  ASSERT_EQ(RfcCallReceiveExU(h, counter.data(), nullptr, out.data(), nullptr, nullptr, nullptr), RFC_OK)
      << lastError();
  EXPECT_EQ(value, 1) << "a new user context";
}

TEST_F(Call, CancelCloseClosesTheConnection) {
  Wait w(5000);
  ASSERT_EQ(w.send(h), RFC_OK);
  EXPECT_EQ(RfcCancelU(h, RFC_CANCEL_CLOSE), RFC_CLOSED);
  EXPECT_EQ(RfcIsValidHandleU(h, nullptr), RFC_CLOSED);
}

TEST_F(Call, CancelWithoutACallIsAFailure) {
  EXPECT_EQ(RfcCancelU(h, RFC_CANCEL_HARD), RFC_FAILURE);
  EXPECT_EQ(RfcCancelU(h, static_cast<RFC_CANCEL_TYPE>(7)), RFC_INVALID_PARAMETER);
}

TEST_F(Call, CancelFromAnotherThreadEndsABlockedReceive) {
  Wait w(5000);
  ASSERT_EQ(w.send(h), RFC_OK);
  std::atomic<RFC_RC> cancelled{RFC_OK};
  std::thread canceller([&] {
    std::this_thread::sleep_for(200ms);
    cancelled = RfcCancelU(h, RFC_CANCEL_SOFT);
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(w.receive(h, nullptr), RFC_CANCELED);
  canceller.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
  EXPECT_EQ(cancelled.load(), RFC_CANCELED);
  EXPECT_EQ(callChars(h, "STFC_CONNECTION", {{"REQUTEXT", "after"}}, {{"ECHOTEXT", 0}}).results[0], "after");
}

}  // namespace
