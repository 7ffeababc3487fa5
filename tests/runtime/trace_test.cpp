#include "runtime/trace.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <ctime>
#include <sstream>
#include <thread>
#include <vector>

#include "platform/unicode.h"
#include "temp_dir.h"

namespace {

const std::string kBom = "\xEF\xBB\xBF";

std::chrono::system_clock::time_point FixedTime() {
  std::tm local{};
  local.tm_year = 2024 - 1900;
  local.tm_mon = 0;
  local.tm_mday = 31;
  local.tm_hour = 14;
  local.tm_min = 5;
  local.tm_sec = 9;
  local.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&local));
}

const std::string kFrame = "20240131 14:05:09\t[Veltrane]\t";

class TraceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    TraceResetForTesting();
    SetTraceClock(&FixedTime);
  }
  void TearDown() override {
    TraceResetForTesting();
    SetTraceClock(nullptr);
  }
  void Open(const std::string& path, const char16_t* tag = u"Veltrane") { TraceOpen(tag, Utf8ToWide(path), true); }
  TempDir dir;
};

TEST_F(TraceTest, ClosedAtStartAndOpenAfterTraceOpen) {
  EXPECT_FALSE(TraceIsOpen());
  EXPECT_EQ(TraceLevel(), 0);
  Open(dir.file("a.trc"));
  EXPECT_TRUE(TraceIsOpen());
  ASSERT_NE(Ostrel::CTrace::Instance(), nullptr);
  EXPECT_EQ(Ostrel::CTrace::Instance()->Tag(), u"Veltrane");
  EXPECT_EQ(Ostrel::CTrace::Instance()->Path(), Utf8ToWide(dir.file("a.trc")));
}

TEST_F(TraceTest, OpeningAloneWritesNoFile) {
  Open(dir.file("a.trc"));
  EXPECT_FALSE(Exists(dir.file("a.trc")));
}

TEST_F(TraceTest, NoFileWithoutOpeningWhateverTheLevel) {
  ScopedChdir cd(dir.path());
  for (int level : {0, 1, 2, 3}) {
    SetTraceLevel(level);
    Trace(u"line %i\n", level);
    TraceRaw(u"piece\n");
    TraceLog(1, u"error", "f", "f.cpp", 1);
    TraceResult(E_FAIL, "f", "f.cpp", 1);
    TraceWrite(u"text\n", true);
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST_F(TraceTest, LineHasTimeTagAndText) {
  Open(dir.file("a.trc"));
  Trace(u"Calling %s...\n", u"RFC_PING");
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + kFrame + "Calling RFC_PING...\n");
}

TEST_F(TraceTest, TagOfTheOpener) {
  Open(dir.file("a.trc"), u"NWRfcServer");
  Trace(u"x\n");
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + "20240131 14:05:09\t[NWRfcServer]\tx\n");
}

TEST_F(TraceTest, ContinuationGoesOnTheCurrentLine) {
  Open(dir.file("a.trc"));
  Trace(u"Calling RfcGetFunctionInfoAsTable...");
  TraceRaw(u"rc=%i\n", 0);
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + kFrame + "Calling RfcGetFunctionInfoAsTable...rc=0\n");
}

TEST_F(TraceTest, ByteOrderMarkOnceForANewFile) {
  Open(dir.file("a.trc"));
  Trace(u"one\n");
  Trace(u"two\n");
  std::string content = ReadFile(dir.file("a.trc"));
  EXPECT_EQ(content, kBom + kFrame + "one\n" + kFrame + "two\n");
  EXPECT_EQ(content.find(kBom, 1), std::string::npos);
}

TEST_F(TraceTest, AppendKeepsExistingContentWithoutSecondMark) {
  {
    std::ofstream out(dir.file("a.trc"), std::ios::binary);
    out << "old\n";
  }
  Open(dir.file("a.trc"));
  Trace(u"new\n");
  EXPECT_EQ(ReadFile(dir.file("a.trc")), "old\n" + kFrame + "new\n");
}

TEST_F(TraceTest, EmptyExistingFileGetsTheMark) {
  { std::ofstream out(dir.file("a.trc"), std::ios::binary); }
  Open(dir.file("a.trc"));
  Trace(u"x\n");
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + kFrame + "x\n");
}

TEST_F(TraceTest, OpenWithoutAppendEmptiesTheFile) {
  {
    std::ofstream out(dir.file("a.trc"), std::ios::binary);
    out << "old\n";
  }
  TraceOpen(u"Veltrane", Utf8ToWide(dir.file("a.trc")), false);
  EXPECT_EQ(ReadFile(dir.file("a.trc")), "");
  Trace(u"x\n");
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + kFrame + "x\n");
}

TEST_F(TraceTest, TwoOpenersGiveOneFileTheFirst) {
  Open(dir.file("first.trc"));
  Open(dir.file("second.trc"), u"RfcServer");
  Trace(u"x\n");
  EXPECT_EQ(ReadFile(dir.file("first.trc")), kBom + kFrame + "x\n");
  EXPECT_FALSE(Exists(dir.file("second.trc")));
  EXPECT_EQ(Ostrel::CTrace::Instance()->Tag(), u"Veltrane");
}

TEST_F(TraceTest, RelativePathIsTakenAtEachWrite) {
  TempDir other;
  {
    ScopedChdir cd(dir.path());
    Open("rel.trc");
    Trace(u"in first\n");
  }
  {
    ScopedChdir cd(other.path());
    Trace(u"in second\n");
  }
  EXPECT_EQ(ReadFile(dir.file("rel.trc")), kBom + kFrame + "in first\n");
  EXPECT_EQ(ReadFile(other.file("rel.trc")), kBom + kFrame + "in second\n");
}

TEST_F(TraceTest, EnvironmentVariableInPathIsExpandedAtOpening) {
  setenv("VELTRANE_TRACE_DIR", dir.path().c_str(), 1);
  TraceOpen(u"Veltrane", u"%VELTRANE_TRACE_DIR%/env.trc", true);
  setenv("VELTRANE_TRACE_DIR", "/nonexistent-veltrane-dir", 1);
  Trace(u"x\n");
  unsetenv("VELTRANE_TRACE_DIR");
  EXPECT_EQ(Ostrel::CTrace::Instance()->Path(), Utf8ToWide(dir.file("env.trc")));
  EXPECT_EQ(ReadFile(dir.file("env.trc")), kBom + kFrame + "x\n");
}

TEST_F(TraceTest, LinuxFormsOfVariablesInPath) {
  setenv("VELTRANE_TRACE_DIR", dir.path().c_str(), 1);
  TraceOpen(u"Veltrane", u"${VELTRANE_TRACE_DIR}/$VELTRANE_TRACE_NAME.trc", true);
  unsetenv("VELTRANE_TRACE_DIR");
  EXPECT_EQ(Ostrel::CTrace::Instance()->Path(), Utf8ToWide(dir.file("$VELTRANE_TRACE_NAME.trc")));
}

TEST_F(TraceTest, LongMessageIsCutNotRefused) {
  Open(dir.file("a.trc"));
  std::u16string longText(3000, u'x');
  Trace(u"%s", longText);
  TraceRaw(u"\n");
  TraceRaw(u"%s|", longText);
  std::string expected =
      kBom + kFrame + std::string(kTraceBufferSize - 1, 'x') + "\n" + std::string(kTraceBufferSize - 1, 'x');
  EXPECT_EQ(ReadFile(dir.file("a.trc")), expected);
}

TEST_F(TraceTest, MessageOfExactlyTheLimitIsKept) {
  Open(dir.file("a.trc"));
  TraceRaw(u"%s", std::u16string(kTraceBufferSize - 1, u'y'));
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + std::string(kTraceBufferSize - 1, 'y'));
}

TEST_F(TraceTest, CutKeepsSurrogatePairsWhole) {
  Open(dir.file("a.trc"));
  // 2046 units, then a pair that would straddle the cut.
  std::u16string text(kTraceBufferSize - 2, u'a');
  text += u"\U0001F600";
  TraceRaw(u"%s", text);
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + std::string(kTraceBufferSize - 2, 'a'));
}

TEST_F(TraceTest, TextIsWrittenAsUtf8) {
  Open(dir.file("a.trc"));
  TraceRaw(u"Gr\u00FC\u00DFe %s %hs\n", u"\u20AC", "\xC3\xA4");
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom +
                                             "Gr\xC3\xBC\xC3\x9F"
                                             "e \xE2\x82\xAC \xC3\xA4\n");
}

TEST_F(TraceTest, LoneSurrogateDoesNotFailTheTrace) {
  Open(dir.file("a.trc"));
  const char16_t lone[] = {u'a', 0xD800, u'b', 0};
  EXPECT_NO_THROW(TraceRaw(u"%s\n", lone));
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom +
                                             "a\xEF\xBF\xBD"
                                             "b\n");
}

TEST_F(TraceTest, BadFormatIsWrittenAsItStands) {
  Open(dir.file("a.trc"));
  EXPECT_NO_THROW(TraceRaw(u"value %d\n", u"text"));
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + "<format error> value %d\n");
}

TEST_F(TraceTest, UnwritablePathDropsTheLineSilently) {
  TraceOpen(u"Veltrane", u"/nonexistent-veltrane-dir/sub/a.trc", true);
  EXPECT_NO_THROW(Trace(u"x\n"));
  EXPECT_FALSE(Exists("/nonexistent-veltrane-dir/sub/a.trc"));
}

TEST_F(TraceTest, TraceLogFiltersBySeverity) {
  Open(dir.file("a.trc"));
  SetTraceLevel(1);
  TraceLog(2, u"warning", "Fn", "src/file.cpp", 12);
  TraceLog(3, u"information", "Fn", "src/file.cpp", 13);
  TraceLog(1, u"error", "Fn", "src/file.cpp", 14);
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + kFrame + "Fn(14): error\n");
}

TEST_F(TraceTest, TraceLogAtLevelZeroWritesNothing) {
  Open(dir.file("a.trc"));
  SetTraceLevel(0);
  TraceLog(1, u"error", "Fn", "f.cpp", 1);
  EXPECT_FALSE(Exists(dir.file("a.trc")));
}

TEST_F(TraceTest, TraceAndTraceRawAreNotFilteredByLevel) {
  Open(dir.file("a.trc"));
  SetTraceLevel(0);
  Trace(u"a\n");
  TraceRaw(u"b\n");
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + kFrame + "a\nb\n");
}

TEST_F(TraceTest, TraceLogWithoutFunctionNameAndWithoutFrame) {
  Open(dir.file("a.trc"));
  SetTraceLevel(3);
  TraceLog(3, std::string_view("alone"), nullptr, "f.cpp", 3);
  TraceLog(3, boost::format("CXVeltrane Error: %1% in CSOAPSession::CallFunction()") % "oops", "Fn", "f.cpp", 7, false);
  EXPECT_EQ(ReadFile(dir.file("a.trc")),
            kBom + kFrame + "alone" + "Fn(7): CXVeltrane Error: oops in CSOAPSession::CallFunction()\n");
}

TEST_F(TraceTest, TraceLogDoesNotPrintTheSourceFile) {
  Open(dir.file("a.trc"));
  SetTraceLevel(3);
  TRACE_LOG(2, u"via macro");
  std::string content = ReadFile(dir.file("a.trc"));
  EXPECT_EQ(content.find("trace_test.cpp"), std::string::npos);
  EXPECT_NE(content.find("(" + std::to_string(__LINE__ - 3) + "): via macro\n"), std::string::npos);
}

TEST_F(TraceTest, TheMacrosMessageIsMadeOnlyWhenTheTraceTakesIt) {
  int made = 0;
  auto message = [&] {
    ++made;
    return std::string("made");
  };
  SetTraceLevel(3);
  TRACE_LOG(2, message());
  EXPECT_EQ(made, 0);  // no trace open
  Open(dir.file("a.trc"));
  SetTraceLevel(1);
  TRACE_LOG(2, message());
  EXPECT_EQ(made, 0);  // below the level
  // A format that does not fit its arguments is never made either.
  TRACE_LOG(3, boost::format("%1%") % 1 % 2);
  if (made == 0)
    TRACE_LOG(1, message());
  else
    ADD_FAILURE();
  EXPECT_EQ(made, 1);
  EXPECT_NE(ReadFile(dir.file("a.trc")).find("): made\n"), std::string::npos);
}

TEST_F(TraceTest, TraceResultWritesFailuresAndReturnsTheCode) {
  Open(dir.file("a.trc"));
  SetTraceLevel(1);
  EXPECT_EQ(TraceResult(S_OK, "Fn", "f.cpp", 5), S_OK);
  EXPECT_EQ(TraceResult(S_FALSE, "Fn", "f.cpp", 5), S_FALSE);
  EXPECT_FALSE(Exists(dir.file("a.trc")));
  EXPECT_EQ(TraceResult(E_INVALIDARG, "Fn", "f.cpp", 6), E_INVALIDARG);
  EXPECT_EQ(TraceResult(static_cast<HRESULT>(0x80040201), "Fn", "f.cpp", 7), static_cast<HRESULT>(0x80040201));
  EXPECT_EQ(ReadFile(dir.file("a.trc")), kBom + kFrame + "Fn(6): Error 0x80070057: The parameter is incorrect.\n" +
                                             kFrame + "Fn(7): Error 0x80040201: 0x80040201\n");
}

TEST_F(TraceTest, TraceResultIsSeverityOne) {
  Open(dir.file("a.trc"));
  SetTraceLevel(0);
  EXPECT_EQ(TraceResult(E_FAIL, "Fn", "f.cpp", 1), E_FAIL);
  EXPECT_FALSE(Exists(dir.file("a.trc")));
}

TEST_F(TraceTest, ConcurrentWritersInterleaveOnlyWholeLines) {
  Open(dir.file("a.trc"));
  constexpr int kLines = 200;
  auto writer = [](char16_t id) {
    for (int i = 0; i < kLines; ++i) Trace(u"thread %c line %04i %s\n", id, i, std::u16string(100, id));
  };
  std::thread a(writer, u'A'), b(writer, u'B');
  a.join();
  b.join();
  std::string content = ReadFile(dir.file("a.trc"));
  ASSERT_EQ(content.compare(0, 3, kBom), 0);
  std::istringstream in(content.substr(3));
  std::string line;
  int count = 0;
  while (std::getline(in, line)) {
    ++count;
    ASSERT_EQ(line.compare(0, kFrame.size(), kFrame), 0) << line;
    char id = line[kFrame.size() + 7];
    EXPECT_EQ(line.substr(line.size() - 100), std::string(100, id)) << line;
  }
  EXPECT_EQ(count, 2 * kLines);
}

TEST_F(TraceTest, ResetForTestingClosesAndClearsLevel) {
  Open(dir.file("a.trc"));
  SetTraceLevel(2);
  TraceResetForTesting();
  EXPECT_FALSE(TraceIsOpen());
  EXPECT_EQ(TraceLevel(), 0);
}

// The real clock: the stamp has the form of the frame.
TEST(TraceClockTest, SystemClockStamp) {
  TraceResetForTesting();
  TempDir dir;
  TraceOpen(u"Veltrane", Utf8ToWide(dir.file("a.trc")), true);
  Trace(u"x\n");
  std::string content = ReadFile(dir.file("a.trc"));
  TraceResetForTesting();
  ASSERT_GE(content.size(), 3u + 17u + 12u);
  std::string stamp = content.substr(3, 17);
  for (size_t i : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 9u, 10u, 12u, 13u, 15u, 16u})
    EXPECT_TRUE(isdigit(static_cast<unsigned char>(stamp[i]))) << stamp;
  EXPECT_EQ(stamp[8], ' ');
  EXPECT_EQ(stamp[11], ':');
  EXPECT_EQ(stamp[14], ':');
  EXPECT_EQ(content.substr(20), "\t[Veltrane]\tx\n");
}

}  // namespace
