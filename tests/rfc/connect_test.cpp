// Connecting the classic session: the SDK's loading, a refused logon, the
// options it passes on, and what the trace shows of the connect string.
#include <thread>

#include "rfc/rfc_library.h"
#include "rfc_fixture.h"
#include "platform/unicode.h"
#include "temp_dir.h"

namespace rfctest {
namespace {

using Connect = RfcTest;

// Each test runs in a process of its own under ctest; run alone, a library
// loaded by an earlier test leaves nothing to find.
TEST_F(Connect, AMissingLibraryReports542AndTheOptionThenLoadsIt) {
  if (veltrane::rfc::RfcLibrary::Loaded()) GTEST_SKIP() << "the SDK is loaded already in this process";
  CComPtr<IRfcSession> session = NewSession();
  session->put_Option(CComBSTR(u"librfc.path"), CComBSTR(u"/nonexistent/rfcsdk"));
  EXPECT_EQ(session->Connect(), static_cast<HRESULT>(0x8004021E));
  EXPECT_NE(ErrorDescription().find("librfc32u.dll"), std::string::npos);
  EXPECT_FALSE(Connected(session));
  session->put_Option(CComBSTR(u"librfc.path"), CComBSTR(SdkDir()));
  EXPECT_EQ(session->Connect(), S_OK) << ErrorDescription();
  EXPECT_TRUE(Connected(session)) << ErrorOf(session).message;
  // The process's environment is as it was.
  const char* path = std::getenv("PATH");
  EXPECT_TRUE(!path || std::string(path).find("rfcsdk") == std::string::npos);
}

TEST_F(Connect, ARefusedLogonIsErrorWithASuccessResult) {
  CComPtr<IRfcSession> session = NewSession(u"DEMO", u"wrong");
  EXPECT_EQ(session->Connect(), S_OK);
  EXPECT_FALSE(Connected(session));
  EXPECT_TRUE(ErrorFlag(session));
  const ErrorText error = ErrorOf(session);
  EXPECT_EQ(error.group, 103);
  EXPECT_FALSE(error.message.empty());
}

TEST_F(Connect, TheTraceShowsTheConnectStringWithoutThePasswordAndTheTimeout) {
  TempDir dir;
  const std::string file = dir.file("trace.txt");
  CComPtr<IRfcSession> session = NewSession(u"DEMO", u"Welcome1");
  session->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(file)));
  session->put_Option(CComBSTR(u"rfc.connection_timeout"), CComBSTR(u"5000"));
  ASSERT_EQ(session->Connect(), S_OK);
  EXPECT_TRUE(Connected(session));
  const std::string trace = ReadFile(file);
  EXPECT_NE(trace.find("trying to connect"), std::string::npos);
  EXPECT_NE(trace.find("PASSWD=********"), std::string::npos);
  EXPECT_EQ(trace.find("Welcome1"), std::string::npos);
  EXPECT_NE(trace.find("set RFC connection timeout 5000 ms"), std::string::npos);
  EXPECT_NE(trace.find("ok"), std::string::npos);
}

using Closing = SessionTest;

TEST_F(Closing, AConnectionClosedInASynchronousCallLeavesNoError) {
  CComPtr<IFunctionCall> call = Import(u"RFC_PING");
  Control("fault?front=rfc&fault=close&user=DEMO&count=1");
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  EXPECT_FALSE(Connected(m_session));
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
  Control("reset");
}

TEST_F(Closing, AConnectionClosedInAnAsynchronousCallFiresCallFinishedThenDisconnects) {
  CComPtr<IFunctionCall> call = Import(u"RFC_PING");
  AdvisedSink sink(m_session);
  Control("fault?front=rfc&fault=close&user=DEMO&count=1");
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
  ASSERT_TRUE(sink->WaitFor(1));
  for (int i = 0; i < 100 && Connected(m_session); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_FALSE(Connected(m_session));
  // The asynchronous path shows the closed connection as an error.
  EXPECT_TRUE(ErrorFlag(m_session));
  Control("reset");
}

TEST_F(Closing, AnUnsetOptionalScalarIsGoneFromImportingAfterTheCall) {
  CComPtr<IFunctionCall> call = Import(u"STFC_CONNECTION");
  CComPtr<IRfcParameters> importing;
  call->get_Importing(&importing);
  CComPtr<IRfcParameter> requtext = Parameter(call, u"Importing", u"REQUTEXT");
  requtext->put_Optional(VARIANT_TRUE);
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  VARIANT_BOOL has = VARIANT_TRUE;
  importing->HasKey(CComBSTR(u"REQUTEXT"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);
}

}  // namespace
}  // namespace rfctest
