// Finding and loading the SDK at the first Connect. The SDK is loaded once
// per process, so each test runs its session in a child process of its own,
// which starts without it.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include "loopback.h"
#include "nwrfc_fixture.h"
#include "platform/unicode.h"
#include "runtime/trace.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace nwtest {
namespace {

constexpr HRESULT kLibraryNotFound = static_cast<HRESULT>(0x80040223);
constexpr const char* kLibraryNotFoundText =
    "'sapnwrfc.dll' not found, install NWRFCSDK and/or set option 'nwrfc.path'";

// Runs body in a child process; its failures are reported there and fail
// the test here.
void InFreshProcess(const std::function<void()>& body) {
  Sim();  // the system is the parent's, started before the fork
  std::fflush(nullptr);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    body();
    CoUninitialize();
    std::fflush(nullptr);
#if defined(__SANITIZE_ADDRESS__)
    if (__lsan_do_recoverable_leak_check()) _exit(3);
#endif
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child process failed, status " << status;
}

CComPtr<IRfcSession> SessionWith(std::initializer_list<std::pair<const char16_t*, std::u16string>> options) {
  CComPtr<IRfcSession> session = NewSession();
  session->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(u""));
  for (const auto& [name, value] : options) session->put_Option(CComBSTR(name), CComBSTR(value));
  return session;
}

bool StartsWith(const std::string& text, const std::string& start) { return text.rfind(start, 0) == 0; }

void ExpectLibraryNotFound(IRfcSession* session) {
  EXPECT_EQ(session->Connect(), kLibraryNotFound);
  EXPECT_TRUE(StartsWith(ErrorDescription(), kLibraryNotFoundText)) << ErrorDescription();
  EXPECT_FALSE(Connected(session));
  EXPECT_EQ(veltrane::nwrfc::NWRfcLibrary::Loaded(), nullptr);
}

TEST(Loading, WithoutTheSdkConnectIs547AndTheSessionStaysUsable) {
  InFreshProcess([] {
    CComPtr<IRfcSession> session = SessionWith({});
    ExpectLibraryNotFound(session);
    EXPECT_FALSE(ErrorFlag(session));
    CComPtr<IFunctionCall> call;
    EXPECT_EQ(session->CreateCall(&call), S_OK);
    EXPECT_EQ(session->Disconnect(), static_cast<HRESULT>(0x80040208));
  });
}

TEST(Loading, ALaterConnectAfterTheOptionWasSetLoadsIt) {
  InFreshProcess([] {
    CComPtr<IRfcSession> session = SessionWith({{u"nwrfc.path", u"/nonexistent/nwrfcsdk/lib"}});
    ExpectLibraryNotFound(session);
    session->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(SdkDir()));
    EXPECT_EQ(session->Connect(), S_OK) << ErrorDescription();
    EXPECT_TRUE(Connected(session));
    EXPECT_EQ(veltrane::nwrfc::NWRfcLibrary::LoadedPath(), Narrow(SdkDir()) + "/libsapnwrfc.so");
  });
}

TEST(Loading, ALibraryWithoutARequiredEntryPointIs547) {
  InFreshProcess([] {
    soaptest::TempFile trace("loading.trc");
    TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
    SetTraceLevel(TRACE_INFORMATION);
    CComPtr<IRfcSession> session = SessionWith({{u"nwrfc.path", VELTRANE_NWRFC_WITHOUT_INVOKE_DIR}});
    ExpectLibraryNotFound(session);
    EXPECT_NE(trace.read().find("undefined symbol: RfcInvoke"), std::string::npos) << trace.read();
    session->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(SdkDir()));
    EXPECT_EQ(session->Connect(), S_OK) << ErrorDescription();
  });
}

TEST(Loading, Nwrfc64PathIsReadFirst) {
  InFreshProcess([] {
    CComPtr<IRfcSession> wrong64 =
        SessionWith({{u"nwrfc64.path", u"/nonexistent/nwrfcsdk/lib"}, {u"nwrfc.path", SdkDir()}});
    ExpectLibraryNotFound(wrong64);
    CComPtr<IRfcSession> right64 =
        SessionWith({{u"nwrfc64.path", SdkDir()}, {u"nwrfc.path", u"/nonexistent/nwrfcsdk/lib"}});
    EXPECT_EQ(right64->Connect(), S_OK) << ErrorDescription();
  });
}

TEST(Loading, AnEnvironmentVariableInTheSdkPathIsNotExpanded) {
  InFreshProcess([] {
    setenv("VELTRANE_TEST_NWRFC_DIR", Narrow(SdkDir()).c_str(), 1);
    soaptest::TempFile trace("expand.trc");
    TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
    SetTraceLevel(TRACE_INFORMATION);
    CComPtr<IRfcSession> session = SessionWith({{u"nwrfc.path", u"$VELTRANE_TEST_NWRFC_DIR"}});
    ExpectLibraryNotFound(session);
    EXPECT_NE(trace.read().find("adding SDK_PATH=$VELTRANE_TEST_NWRFC_DIR"), std::string::npos) << trace.read();
  });
}

// The directory goes to the loader directly; the process's PATH, which
// child processes inherit, is never touched, whether it names the
// directory already (in another case) or not.
TEST(Loading, PathStaysAsItIs) {
  InFreshProcess([] {
    const std::string upper = [] {
      std::string s = Narrow(SdkDir());
      for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      return s;
    }();
    const std::string path = std::string("/usr/bin:") + upper + ":/bin";
    setenv("PATH", path.c_str(), 1);
    CComPtr<IRfcSession> session = SessionWith({{u"nwrfc.path", SdkDir()}});
    EXPECT_EQ(session->Connect(), S_OK) << ErrorDescription();
    EXPECT_STREQ(std::getenv("PATH"), path.c_str());
  });
}

TEST(Loading, LibrariesTheSdkNeedsComeFromItsDirectory) {
  InFreshProcess([] {
    CComPtr<IRfcSession> session = SessionWith({{u"nwrfc.path", VELTRANE_NWRFC_WITH_COMPANION_DIR}});
    EXPECT_EQ(session->Connect(), S_OK) << ErrorDescription();
    EXPECT_EQ(veltrane::nwrfc::NWRfcLibrary::LoadedPath(),
              Narrow(VELTRANE_NWRFC_WITH_COMPANION_DIR) + "/libsapnwrfc.so");
  });
}

TEST(Loading, OnceLoadedTheProcessKeepsItsSdk) {
  InFreshProcess([] {
    CComPtr<IRfcSession> first = SessionWith({{u"nwrfc.path", SdkDir()}});
    ASSERT_EQ(first->Connect(), S_OK) << ErrorDescription();
    CComPtr<IRfcSession> second = SessionWith({{u"nwrfc.path", u"/nonexistent/nwrfcsdk/lib"}});
    EXPECT_EQ(second->Connect(), S_OK) << ErrorDescription();
  });
}

TEST(Loading, TheLoaderTextNamesTheMissingLibrary) {
  using veltrane::nwrfc::MissingDependency;
  EXPECT_EQ(MissingDependency("libsapucum.so: cannot open shared object file: No such file or directory"),
            "libsapucum.so");
  EXPECT_EQ(MissingDependency("/opt/sdk/lib/libsapnwrfc.so: libicuuc.so.50: cannot open shared object file: No "
                              "such file or directory"),
            "libicuuc.so.50");
  EXPECT_EQ(MissingDependency("/x/libsapnwrfc.so: undefined symbol: foo"), "");
  EXPECT_EQ(MissingDependency(""), "");
}

}  // namespace
}  // namespace nwtest
