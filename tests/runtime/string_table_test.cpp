#include "runtime/string_table.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "platform/objbase.h"
#include "runtime/report_error.h"

namespace {

TEST(StringTable, LoadStringCutsToTheBuffer) {
  OLECHAR buffer[8];
  EXPECT_EQ(LoadStringTable(546, buffer, 8), 7);
  EXPECT_EQ(std::u16string(buffer), u"Invalid");
  OLECHAR big[1024];
  EXPECT_EQ(LoadStringTable(546, big, 1024), 25);
  EXPECT_EQ(std::u16string(big), u"Invalid connection string");
  big[0] = u'x';
  EXPECT_EQ(LoadStringTable(600, big, 1024), 0);
  EXPECT_EQ(big[0], 0);
  EXPECT_EQ(LoadStringTable(546, nullptr, 10), 0);
  EXPECT_EQ(LoadStringTable(546, big, 0), 0);
}

TEST(DecodeInternalError, KnownCode) {
  BSTR text = nullptr;
  EXPECT_EQ(DecodeInternalError(519, &text), S_OK);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::u16string(text, SysStringLen(text)), u"An unexpected error has occured - check trace for details");
  SysFreeString(text);
}

TEST(DecodeInternalError, UnknownCodeGivesNullAndSuccess) {
  for (LONG code : {0, 512, 549, -1, 100000}) {
    BSTR text = reinterpret_cast<BSTR>(0x1);
    EXPECT_EQ(DecodeInternalError(code, &text), S_OK);
    EXPECT_EQ(text, nullptr);
  }
}

TEST(DecodeInternalError, NullOutput) { EXPECT_EQ(DecodeInternalError(519, nullptr), E_POINTER); }

// ReportError ---------------------------------------------------------------

const CLSID kTypeClsid = {0x1a2b3c4d, 0x0001, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x01}};
const CLSID kSessionClsid = {0x1a2b3c4d, 0x0002, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x02}};
const CLSID kUnregisteredClsid = {0x1a2b3c4d, 0x0003, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x03}};
const IID kSessionIid = {0x1a2b3c4d, 0x0004, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x04}};

const COCLASS_REGISTRATION kClasses[] = {
    {&kTypeClsid, u"Veltrane.RfcType.1", u"Veltrane.RfcType", false, nullptr},
    {&kSessionClsid, u"Veltrane.RfcSession.1", u"Veltrane.RfcSession", false, nullptr},
};

struct Record {
  bool present = false;
  std::u16string source, description, helpFile;
  DWORD helpContext = 0;
  GUID guid{};
};

std::u16string Take(BSTR b) {
  std::u16string s = b ? std::u16string(b, SysStringLen(b)) : std::u16string();
  SysFreeString(b);
  return s;
}

Record TakeRecord() {
  Record r;
  IErrorInfo* info = nullptr;
  if (GetErrorInfo(0, &info) != S_OK || !info) return r;
  r.present = true;
  BSTR b = nullptr;
  info->GetSource(&b);
  r.source = Take(b);
  b = nullptr;
  info->GetDescription(&b);
  r.description = Take(b);
  b = nullptr;
  info->GetHelpFile(&b);
  r.helpFile = Take(b);
  info->GetHelpContext(&r.helpContext);
  info->GetGUID(&r.guid);
  info->Release();
  return r;
}

class ReportErrorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(CoRegisterClassTable(kClasses, 2), S_OK);
    SetErrorInfo(0, nullptr);
  }
  void TearDown() override {
    CoRevokeClassTable(kClasses);
    SetErrorInfo(0, nullptr);
  }
};

TEST_F(ReportErrorTest, CodeOfTheTable) {
  HRESULT hr = ReportError(kSessionClsid, 520, 0, nullptr, kSessionIid);
  EXPECT_EQ(static_cast<uint32_t>(hr), 0x80040208u);
  Record r = TakeRecord();
  ASSERT_TRUE(r.present);
  EXPECT_EQ(r.description, u"Not connected (call connect() before executing this method)");
  EXPECT_EQ(r.source, u"Veltrane.RfcSession.1");
  EXPECT_TRUE(r.guid == kSessionIid);
  EXPECT_EQ(r.helpContext, 0u);
  EXPECT_EQ(r.helpFile, u"");
}

TEST_F(ReportErrorTest, EveryCodeGivesItsResult) {
  for (UINT code = 513; code <= 548; ++code) {
    EXPECT_EQ(static_cast<uint32_t>(ReportError(kSessionClsid, code, 0, nullptr, kSessionIid)), 0x80040000u + code);
    Record r = TakeRecord();
    EXPECT_EQ(r.description, StringTableText(code)) << code;
  }
}

TEST_F(ReportErrorTest, SourceIsTheProgIdOfTheClassPassed) {
  ReportError(kTypeClsid, 515, 0, nullptr, kSessionIid);
  EXPECT_EQ(TakeRecord().source, u"Veltrane.RfcType.1");
}

TEST_F(ReportErrorTest, UnknownCodeSaysUnknownError) {
  HRESULT hr = ReportError(kSessionClsid, 600, 0, nullptr, kSessionIid);
  EXPECT_EQ(static_cast<uint32_t>(hr), 0x80040258u);
  EXPECT_EQ(TakeRecord().description, u"Unknown Error");
}

TEST_F(ReportErrorTest, NumberBeyond16BitsIsNoTableCode) {
  HRESULT hr = ReportError(kSessionClsid, 70000, 0, nullptr, kSessionIid);
  EXPECT_EQ(hr, DISP_E_EXCEPTION);
  EXPECT_EQ(TakeRecord().description, u"Unknown Error");
}

TEST_F(ReportErrorTest, GivenResultIsKept) {
  EXPECT_EQ(ReportError(kSessionClsid, 519, 0, nullptr, kSessionIid, E_FAIL), E_FAIL);
  EXPECT_EQ(TakeRecord().description, StringTableText(519));
}

TEST_F(ReportErrorTest, TextOfTheCaller) {
  EXPECT_EQ(ReportError(kSessionClsid, u"my text", 0, nullptr, kSessionIid), DISP_E_EXCEPTION);
  Record r = TakeRecord();
  EXPECT_EQ(r.description, u"my text");
  EXPECT_EQ(r.source, u"Veltrane.RfcSession.1");
  EXPECT_EQ(ReportError(kSessionClsid, u"other", 0, nullptr, kSessionIid, E_INVALIDARG), E_INVALIDARG);
  EXPECT_EQ(TakeRecord().description, u"other");
}

TEST_F(ReportErrorTest, HelpOnlyWhenBothAreGiven) {
  ReportError(kSessionClsid, 519, 7, u"help.txt", kSessionIid);
  Record both = TakeRecord();
  EXPECT_EQ(both.helpContext, 7u);
  EXPECT_EQ(both.helpFile, u"help.txt");
  ReportError(kSessionClsid, 519, 7, nullptr, kSessionIid);
  Record contextOnly = TakeRecord();
  EXPECT_EQ(contextOnly.helpContext, 0u);
  ReportError(kSessionClsid, 519, 0, u"help.txt", kSessionIid);
  Record fileOnly = TakeRecord();
  EXPECT_EQ(fileOnly.helpFile, u"");
}

TEST_F(ReportErrorTest, UnregisteredClassHasNoSource) {
  EXPECT_EQ(static_cast<uint32_t>(ReportError(kUnregisteredClsid, 519, 0, nullptr, kSessionIid)), 0x80040207u);
  Record r = TakeRecord();
  ASSERT_TRUE(r.present);
  EXPECT_EQ(r.source, u"");
  EXPECT_EQ(r.description, StringTableText(519));
}

TEST_F(ReportErrorTest, ShortFormUsesTheSessionInterface) {
  EXPECT_EQ(static_cast<uint32_t>(ReportError(kTypeClsid, 516)), 0x80040204u);
  Record r = TakeRecord();
  EXPECT_TRUE(r.guid == IID_ISession);
  EXPECT_EQ(r.source, u"Veltrane.RfcType.1");
  EXPECT_EQ(r.description, u"Object is not a structure");
  EXPECT_EQ(ReportError(kTypeClsid, u"text", E_FAIL), E_FAIL);
  Record t = TakeRecord();
  EXPECT_TRUE(t.guid == IID_ISession);
  EXPECT_EQ(t.description, u"text");
}

TEST_F(ReportErrorTest, RecordIsPerThreadAndReplaced) {
  ReportError(kSessionClsid, 519, 0, nullptr, kSessionIid);
  ReportError(kSessionClsid, 520, 0, nullptr, kSessionIid);
  Record other;
  std::thread([&] { other = TakeRecord(); }).join();
  EXPECT_FALSE(other.present);
  Record mine = TakeRecord();
  EXPECT_EQ(mine.description, StringTableText(520));
  EXPECT_FALSE(TakeRecord().present);
}

}  // namespace
