// InitSDK at each Connect: the program's trace settings passed on to the
// SDK's trace, and the SDK's configuration file.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "loopback.h"
#include "nwrfc/nwrfc_mixin.h"
#include "nwrfc_fixture.h"
#include "platform/unicode.h"
#include "runtime/trace.h"
#include "temp_dir.h"

namespace nwtest {
namespace {

constexpr HRESULT kInvalidIniPath = static_cast<HRESULT>(0x80040224);

class InitSdk : public NWTest {
 protected:
  void SetUp() override {
    NWTest::SetUp();
    Sdk();
    TraceOpen(u"Veltrane", Utf8ToWide(m_trace.path()), true);
  }
  void TearDown() override {
    // The SDK's trace is process-wide: off again, and back in the working directory.
    Sdk().RfcSetTraceLevel(nullptr, nullptr, 0, nullptr);
    SAP_UC here[] = u".";
    Sdk().RfcSetTraceDir(here, nullptr);
    NWTest::TearDown();
  }

  std::string Traced() const { return m_trace.read(); }
  bool TracedLine(const std::string& line) const { return Traced().find(line) != std::string::npos; }

  soaptest::TempFile m_trace{"veltrane.trc"};
};

TEST_F(InitSdk, TheTraceFilesDirectoryBecomesTheSdksTraceDirectory) {
  TempDir dir;
  CComPtr<IRfcSession> session = NewSession();
  session->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"information"));
  session->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(dir.file("veltrane.trc"))));
  ASSERT_EQ(session->Connect(), S_OK);
  EXPECT_TRUE(TracedLine("RfcSetTraceDir(" + dir.path().string() + ")")) << Traced();
  EXPECT_TRUE(TracedLine("RfcSetTraceLevel(3)")) << Traced();
  EXPECT_TRUE(Exists(dir.file("rfc" + std::to_string(getpid()) + ".trc"))) << "the SDK writes its trace there";
}

TEST_F(InitSdk, TheLevelTextIsFoldedBeforeItIsRead) {
  const std::pair<const char16_t*, const char*> levels[] = {
      {u"warning", "RfcSetTraceLevel(2)"}, {u"information", "RfcSetTraceLevel(3)"}, {u"Error", "RfcSetTraceLevel(1)"},
      {u"1", "RfcSetTraceLevel(1)"},       {u"3", "RfcSetTraceLevel(3)"},           {u"loud", "RfcSetTraceLevel(2)"},
  };
  TempDir dir;
  for (const auto& [level, line] : levels) {
    soaptest::TempFile own("level.trc");
    TraceResetForTesting();
    TraceOpen(u"Veltrane", Utf8ToWide(own.path()), true);
    CComPtr<IRfcSession> session = NewSession();
    session->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(dir.file("v.trc"))));
    session->put_Option(CComBSTR(u"trace.level"), CComBSTR(level));
    SetTraceLevel(TRACE_INFORMATION);
    ASSERT_EQ(session->Connect(), S_OK);
    EXPECT_NE(own.read().find(line), std::string::npos) << Narrow(level) << "\n" << own.read();
  }
  EXPECT_EQ(veltrane::nwrfc::SdkTraceLevel(u"WARNING"), 2u);
  EXPECT_EQ(veltrane::nwrfc::SdkTraceLevel(u""), 2u);
}

TEST_F(InitSdk, WithoutATraceFileTheSdksTraceStaysUntouched) {
  CComPtr<IRfcSession> session = NewSession();
  SetTraceLevel(TRACE_INFORMATION);
  ASSERT_EQ(session->Connect(), S_OK);
  EXPECT_TRUE(TracedLine("InitSDK(): leaving")) << Traced();
  EXPECT_FALSE(TracedLine("RfcSetTraceDir(")) << Traced();
}

TEST_F(InitSdk, ABareTraceFileNameGivesTheSdkAnEmptyDirectory) {
  TempDir dir;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  CComPtr<IRfcSession> session = NewSession();
  session->put_Option(CComBSTR(u"trace.file"), CComBSTR(u"bare.trc"));
  session->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"3"));
  const HRESULT hr = session->Connect();
  std::filesystem::current_path(before);
  ASSERT_EQ(hr, S_OK);
  EXPECT_TRUE(TracedLine("RfcSetTraceDir()\n")) << Traced();
}

TEST_F(InitSdk, AVariableInTheTraceDirectoryIsExpanded) {
  TempDir dir;
  setenv("VELTRANE_TEST_TRACE_DIR", dir.path().c_str(), 1);
  CComPtr<IRfcSession> session = NewSession();
  session->put_Option(CComBSTR(u"trace.file"), CComBSTR(u"$VELTRANE_TEST_TRACE_DIR/v.trc"));
  session->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"1"));
  SetTraceLevel(TRACE_INFORMATION);  // the option set the component's level too
  ASSERT_EQ(session->Connect(), S_OK);
  EXPECT_TRUE(TracedLine("RfcSetTraceDir(" + dir.path().string() + ")")) << Traced();
  unsetenv("VELTRANE_TEST_TRACE_DIR");
}

TEST_F(InitSdk, AnIniPathThatDoesNotExistFailsBeforeTheConnection) {
  CComPtr<IRfcSession> session = NewSession();
  session->put_Option(CComBSTR(u"nwrfc.ini_path"), CComBSTR(u"/nonexistent/sapnwrfc.ini"));
  const long before = RfcRequests();
  EXPECT_EQ(session->Connect(), kInvalidIniPath);
  EXPECT_EQ(ErrorDescription(), "option 'nwrfc.ini_path' must be valid file or directory");
  EXPECT_EQ(RfcRequests(), before) << "no RfcOpenConnection";
  EXPECT_FALSE(Connected(session));
}

// A destination of the ini file, whose directory the option names through
// an environment variable.
TEST_F(InitSdk, TheIniFileGivesDestinationsAndItsPathIsExpanded) {
  TempDir dir;
  std::ofstream(dir.file("sapnwrfc.ini"))
      << "DEST=VSIM\nASHOST=" << Sim().rfcHost() << "\nGWSERV=" << Sim().rfcPort() << "\n";
  setenv("VELTRANE_TEST_INI_DIR", dir.path().c_str(), 1);
  CComPtr<IRfcSession> session = NewSession();
  session->put_Option(CComBSTR(u"nwrfc.ini_path"), CComBSTR(u"${VELTRANE_TEST_INI_DIR}"));
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(CComBSTR(u"DEST=VSIM"));
  SetTraceLevel(TRACE_INFORMATION);
  EXPECT_EQ(session->Connect(), S_OK) << ErrorDescription();
  EXPECT_TRUE(TracedLine("RfcSetIniPath(" + dir.path().string() + ")")) << Traced();
  EXPECT_TRUE(TracedLine("RfcReloadIniFile()")) << Traced();
  unsetenv("VELTRANE_TEST_INI_DIR");

  // The option may name the file itself.
  CComPtr<IRfcSession> byFile = NewSession();
  byFile->put_Option(CComBSTR(u"nwrfc.ini_path"), CComBSTR(Utf8ToWide(dir.file("sapnwrfc.ini"))));
  CComPtr<IRfcSystemData> fileSystem;
  byFile->get_RfcSystemData(&fileSystem);
  fileSystem->put_ConnectString(CComBSTR(u"dest=VSIM"));
  EXPECT_EQ(byFile->Connect(), S_OK) << ErrorDescription();
}

}  // namespace
}  // namespace nwtest
