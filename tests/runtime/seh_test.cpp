#include "runtime/seh.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <thread>

namespace {

uint32_t CodeOf(int signo) {
  try {
    RunTranslated([signo] { raise(signo); });
  } catch (const _SEHException& e) {
    return e.Code();
  }
  return 0;
}

TEST(RunTranslated, FaultSignalsBecomeSEHExceptions) {
  EXPECT_EQ(CodeOf(SIGSEGV), 0xC0000005u);
  EXPECT_EQ(CodeOf(SIGBUS), 0xC0000005u);
  EXPECT_EQ(CodeOf(SIGILL), 0xC000001Du);
  EXPECT_EQ(CodeOf(SIGFPE), 0xC0000094u);
}

TEST(RunTranslated, TextOfTheException) {
  try {
    RunTranslated([] { raise(SIGSEGV); });
    ADD_FAILURE();
  } catch (const BaseException& e) {
    EXPECT_STREQ(e.what(), "SEH Exception 0xc0000005\n");
  }
}

TEST(RunTranslated, ReturnsTheValue) {
  EXPECT_EQ(RunTranslated([] { return 42; }), 42);
  std::string s = RunTranslated([] { return std::string("text"); });
  EXPECT_EQ(s, "text");
  int x = 1;
  int& ref = RunTranslated([&]() -> int& { return x; });
  EXPECT_EQ(&ref, &x);
  bool ran = false;
  RunTranslated([&] { ran = true; });
  EXPECT_TRUE(ran);
}

TEST(RunTranslated, CxxExceptionsPassThrough) {
  EXPECT_THROW(RunTranslated([] { throw std::runtime_error("x"); }), std::runtime_error);
  // The translator is gone afterwards: a fault now is caught by an outer one only.
  EXPECT_EQ(CodeOf(SIGSEGV), 0xC0000005u);
}

TEST(RunTranslated, TranslatorsNest) {
  int inner = 0, outer = 0;
  try {
    RunTranslated([&] {
      try {
        RunTranslated([] { raise(SIGFPE); });
      } catch (const _SEHException&) {
        ++inner;
      }
      raise(SIGSEGV);
    });
  } catch (const _SEHException& e) {
    ++outer;
    EXPECT_EQ(e.Code(), 0xC0000005u);
  }
  EXPECT_EQ(inner, 1);
  EXPECT_EQ(outer, 1);
}

TEST(RunTranslated, RepeatedFaults) {
  for (int i = 0; i < 100; ++i) EXPECT_EQ(CodeOf(SIGSEGV), 0xC0000005u);
}

TEST(RunTranslated, PreviousHandlersAreRestored) {
  static volatile sig_atomic_t seen = 0;
  struct sigaction mine {
  }, old{};
  mine.sa_handler = [](int) { seen = 1; };
  sigemptyset(&mine.sa_mask);
  ASSERT_EQ(sigaction(SIGFPE, &mine, &old), 0);
  EXPECT_EQ(CodeOf(SIGFPE), 0xC0000094u);
  EXPECT_EQ(seen, 0);
  raise(SIGFPE);
  EXPECT_EQ(seen, 1);
  sigaction(SIGFPE, &old, nullptr);
}

TEST(RunTranslated, SignalOnAnotherThreadGoesToThePreviousHandler) {
  static volatile sig_atomic_t seen = 0;
  struct sigaction mine {
  }, old{};
  mine.sa_handler = [](int) { seen = 1; };
  sigemptyset(&mine.sa_mask);
  ASSERT_EQ(sigaction(SIGILL, &mine, &old), 0);
  RunTranslated([] { std::thread([] { raise(SIGILL); }).join(); });
  EXPECT_EQ(seen, 1);
  sigaction(SIGILL, &old, nullptr);
}

TEST(RunTranslated, ThreadsWithTheirOwnTranslators) {
  uint32_t a = 0, b = 0;
  std::thread ta([&] { a = CodeOf(SIGSEGV); });
  std::thread tb([&] { b = CodeOf(SIGILL); });
  ta.join();
  tb.join();
  EXPECT_EQ(a, 0xC0000005u);
  EXPECT_EQ(b, 0xC000001Du);
}

TEST(SignalExceptionCode, Mapping) {
  EXPECT_EQ(SignalExceptionCode(SIGSEGV, SEGV_MAPERR), 0xC0000005u);
  EXPECT_EQ(SignalExceptionCode(SIGBUS, BUS_ADRERR), 0xC0000005u);
  EXPECT_EQ(SignalExceptionCode(SIGILL, ILL_ILLOPC), 0xC000001Du);
  EXPECT_EQ(SignalExceptionCode(SIGILL, ILL_PRVOPC), 0xC0000096u);
  EXPECT_EQ(SignalExceptionCode(SIGFPE, FPE_INTDIV), 0xC0000094u);
  EXPECT_EQ(SignalExceptionCode(SIGFPE, FPE_INTOVF), 0xC0000095u);
  EXPECT_EQ(SignalExceptionCode(SIGFPE, FPE_FLTDIV), 0xC000008Eu);
  EXPECT_EQ(SignalExceptionCode(SIGFPE, FPE_FLTINV), 0xC0000090u);
}

TEST(LoadModule, MissingLibraryIsModuleNotFound) {
  std::string error;
  try {
    LoadModule("/nonexistent/libveltrane-missing.so", &error);
    ADD_FAILURE();
  } catch (const _SEHException& e) {
    EXPECT_EQ(e.Code(), 0xC06D007Eu);
  }
  EXPECT_NE(error.find("libveltrane-missing.so"), std::string::npos);
}

TEST(LoadModule, MissingEntryPointIsProcNotFound) {
  void* libc = LoadModule("libc.so.6");
  ASSERT_NE(libc, nullptr);
  EXPECT_NE(LoadProc(libc, "strlen"), nullptr);
  try {
    LoadProc(libc, "VeltraneNoSuchEntryPoint");
    ADD_FAILURE();
  } catch (const _SEHException& e) {
    EXPECT_EQ(e.Code(), 0xC06D007Fu);
  }
  EXPECT_THROW(LoadProc(nullptr, "strlen"), _SEHException);
}

}  // namespace

namespace {

__attribute__((noinline, no_sanitize("undefined"))) int Divide(int a, int b) {
  volatile int divisor = b;
  return a / divisor;
}

__attribute__((noinline, no_sanitize("undefined"))) void WriteThrough(volatile int* p) { *p = 1; }

// Real faults, not raised ones: the code reflects the kind of fault.
TEST(RunTranslated, RealNullWrite) {
  try {
    RunTranslated([] { WriteThrough(nullptr); });
    ADD_FAILURE();
  } catch (const _SEHException& e) {
    EXPECT_EQ(e.Code(), 0xC0000005u);
  }
}

TEST(RunTranslated, RealIntegerDivisionByZero) {
  try {
    RunTranslated([] { return Divide(1, 0); });
    ADD_FAILURE();
  } catch (const _SEHException& e) {
    EXPECT_EQ(e.Code(), 0xC0000094u);
  }
}

}  // namespace
