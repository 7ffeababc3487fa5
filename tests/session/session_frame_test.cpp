// The session frame on the fake back end: logon data, error state, options
// with their trace side effects, the type cache link, the factories, the
// cached imports, CallFinished and the pinning of a session during its
// asynchronous calls.
#include "fake_session.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <unistd.h>

#include "late_bound.h"
#include "runtime/trace.h"
#include "session/session_frame.h"
#include "platform/unicode.h"

using namespace session_test;

namespace {

class SessionFrameTest : public ::testing::Test {
 protected:
  void SetUp() override {
    TraceResetForTesting();
    dir = std::filesystem::temp_directory_path() / ("veltrane_session_" + std::to_string(getpid()) + "_" +
                                                    ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
  }
  void TearDown() override {
    TraceResetForTesting();
    std::filesystem::remove_all(dir);
  }
  std::string ReadFile(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  std::filesystem::path dir;
};

TEST_F(SessionFrameTest, ErrorIsClearedByReadingErrorInfoWhichKeepsItsText) {
  auto s = NewSoapSession();
  CComPtr<IFunctionCall> call;
  ASSERT_EQ(s->CreateCall(&call), S_OK);
  call->put_Function(CComBSTR(u"Z_UNKNOWN"));
  ASSERT_EQ(s->CallFunction(call, VARIANT_TRUE), S_OK);
  VARIANT_BOOL error = 0;
  ASSERT_EQ(s->get_Error(&error), S_OK);
  EXPECT_EQ(error, VARIANT_TRUE);

  CComPtr<IRfcError> info;
  ASSERT_EQ(s->get_ErrorInfo(&info), S_OK);
  ASSERT_EQ(s->get_Error(&error), S_OK);
  EXPECT_EQ(error, VARIANT_FALSE);
  CComBSTR message, module;
  info->get_Message(&message);
  info->get_ModuleName(&module);
  EXPECT_EQ(Str(message), u"FU_NOT_FOUND");
  EXPECT_EQ(Str(module), u"Z_UNKNOWN");
  ERRORGROUP group{};
  info->get_ERRORGROUP(&group);
  EXPECT_EQ(group, RFCERROR_APPLICATION_EXCEPTION);

  // One object for the session's life.
  CComPtr<IRfcError> again;
  ASSERT_EQ(s->get_ErrorInfo(&again), S_OK);
  EXPECT_EQ(info.p, again.p);
}

TEST_F(SessionFrameTest, ErrorInfoWithNullPointerStillClearsError) {
  auto s = NewSoapSession();
  s->Fail({RFCERROR_COMMUNICATION, u"KEY", u"text"}, u"M");
  VARIANT_BOOL error = 0;
  s->get_Error(&error);
  ASSERT_EQ(error, VARIANT_TRUE);
  EXPECT_EQ(s->get_ErrorInfo(nullptr), E_POINTER);
  s->get_Error(&error);
  EXPECT_EQ(error, VARIANT_FALSE);
}

TEST_F(SessionFrameTest, SuccessfulCallClearsErrorInfo) {
  auto s = NewSoapSession();
  s->Fail({RFCERROR_COMMUNICATION, u"KEY", u"text"}, u"M");
  CComPtr<IFunctionCall> call;
  s->CreateCall(&call);
  call->put_Function(CComBSTR(u"SUSR_USER_CHANGE_PASSWORD_RFC"));
  ASSERT_EQ(s->CallFunction(call, VARIANT_TRUE), S_OK);
  VARIANT_BOOL error = -1;
  s->get_Error(&error);
  EXPECT_EQ(error, VARIANT_FALSE);
  CComPtr<IRfcError> info;
  s->get_ErrorInfo(&info);
  ERRORGROUP group = RFCERROR_BUSY;
  CComBSTR message;
  info->get_ERRORGROUP(&group);
  info->get_Message(&message);
  EXPECT_EQ(group, RFCERROR_NO_ERROR);
  EXPECT_EQ(Str(message), u"");
}

TEST_F(SessionFrameTest, UnknownOptionReadsAsEmptyString) {
  auto s = NewSoapSession();
  CComBSTR value;
  ASSERT_EQ(s->get_Option(CComBSTR(u"never.set"), &value), S_OK);
  ASSERT_TRUE(value.m_str != nullptr);
  EXPECT_EQ(value.Length(), 0u);
  EXPECT_EQ(s->get_Option(CComBSTR(u"x"), nullptr), E_POINTER);
}

TEST_F(SessionFrameTest, OptionsStoreAnyNameAndReplaceValues) {
  auto s = NewSoapSession();
  ASSERT_EQ(s->put_Option(CComBSTR(u"my.own key"), CComBSTR(u"one")), S_OK);
  ASSERT_EQ(s->put_Option(CComBSTR(u"my.own key"), CComBSTR(u"two")), S_OK);
  ASSERT_EQ(s->put_Option(CComBSTR(u"My.Own Key"), CComBSTR(u"other")), S_OK);
  CComBSTR value;
  s->get_Option(CComBSTR(u"my.own key"), &value);
  EXPECT_EQ(Str(value), u"two");
  value.Empty();
  s->get_Option(CComBSTR(u"My.Own Key"), &value);
  EXPECT_EQ(Str(value), u"other");
  EXPECT_EQ(s->Option(u"my.own key"), u"two");

  // A null value is stored as it is.
  ASSERT_EQ(s->put_Option(CComBSTR(u"nullable"), nullptr), S_OK);
  value = Overwritten([&](BSTR* out) { EXPECT_EQ(s->get_Option(CComBSTR(u"nullable"), out), S_OK); });
  EXPECT_TRUE(value.m_str == nullptr);
}

TEST_F(SessionFrameTest, OptionNameWithCapitalLetterStartsNoTrace) {
  auto s = NewSoapSession();
  const auto path = dir / "capital.trc";
  ASSERT_EQ(s->put_Option(CComBSTR(u"Trace.file"), CComBSTR(Utf8ToWide(path.string()))), S_OK);
  EXPECT_FALSE(TraceIsOpen());
  EXPECT_EQ(TraceLevel(), 0);
  EXPECT_FALSE(std::filesystem::exists(path));
  CComBSTR value;
  s->get_Option(CComBSTR(u"Trace.file"), &value);
  EXPECT_EQ(WideToUtf8(Str(value)), path.string());
}

TEST_F(SessionFrameTest, TraceFileOpensTheTraceAndWritesTheHeaderLines) {
  auto s = NewSoapSession();
  ASSERT_EQ(setenv("VELTRANE_SESSION_TEST_DIR", dir.c_str(), 1), 0);
  ASSERT_EQ(s->put_Option(CComBSTR(u"trace.file"), CComBSTR(u"$VELTRANE_SESSION_TEST_DIR/session.trc")), S_OK);
  unsetenv("VELTRANE_SESSION_TEST_DIR");
  ASSERT_TRUE(TraceIsOpen());
  EXPECT_EQ(TraceLevel(), 3);
  const std::string text = ReadFile(dir / "session.trc");
  EXPECT_NE(text.find("[Veltrane]\tVeltrane version=4.0.2.0\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\tExecutable Path: " + std::filesystem::read_symlink("/proc/self/exe").string() + "\n"),
            std::string::npos)
      << text;
  // The file that holds the component's code: this test links it statically,
  // a client finds libveltrane.so here.
  Dl_info self{};
  ASSERT_NE(dladdr(reinterpret_cast<const void*>(&TraceOpen), &self), 0);
  const std::string holder = std::filesystem::canonical(self.dli_fname).string();
  EXPECT_NE(text.find("\tDLL Path: " + holder + "\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\tWorkdir: " + std::filesystem::current_path().string() + "\n"), std::string::npos) << text;
  EXPECT_NE(text.find(std::string("\tSearch Path: ") + (getenv("PATH") ? getenv("PATH") : "") + "\n"),
            std::string::npos)
      << text;
  // The option keeps the text as it was given.
  EXPECT_EQ(s->Option(u"trace.file"), u"$VELTRANE_SESSION_TEST_DIR/session.trc");
}

TEST_F(SessionFrameTest, SecondTraceFileKeepsTheRunningTraceAndWritesHeaderAgain) {
  auto a = NewSoapSession();
  auto b = NewRfcSession();
  const auto first = dir / "first.trc";
  const auto second = dir / "second.trc";
  ASSERT_EQ(a->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(first.string()))), S_OK);
  SetTraceLevel(1);
  ASSERT_EQ(b->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(second.string()))), S_OK);
  EXPECT_EQ(TraceLevel(), 3);
  EXPECT_FALSE(std::filesystem::exists(second));
  const std::string text = ReadFile(first);
  const size_t one = text.find("Veltrane version=");
  ASSERT_NE(one, std::string::npos);
  EXPECT_NE(text.find("Veltrane version=", one + 1), std::string::npos);
}

TEST_F(SessionFrameTest, EmptyTraceFileSetsLevelThreeWithoutATrace) {
  auto s = NewSoapSession();
  SetTraceLevel(1);
  ASSERT_EQ(s->put_Option(CComBSTR(u"trace.file"), CComBSTR(u"")), S_OK);
  EXPECT_EQ(TraceLevel(), 3);
  EXPECT_FALSE(TraceIsOpen());
  SetTraceLevel(2);
  ASSERT_EQ(s->put_Option(CComBSTR(u"trace.file"), nullptr), S_OK);
  EXPECT_EQ(TraceLevel(), 3);
  EXPECT_FALSE(TraceIsOpen());
}

struct LevelCase {
  const char16_t* value;
  int level;  // -1: unchanged
};

TEST_F(SessionFrameTest, TraceLevelIsReadFoldedToUpperCase) {
  const LevelCase cases[] = {
      {u"warning", 2}, {u"WARNING", 2},   {u"Warning", 2},   {u"2", 2},  {u"information", 3}, {u"INFORMATION", 3},
      {u"3", 3},       {u"error", 1},     {u"ERROR", 1},     {u"1", 1},  {u"banana", -1},     {u"", -1},
      {u"4", -1},      {u" WARNING", -1}, {u"WARNINGS", -1}, {u"0", -1}, {nullptr, -1},
  };
  auto s = NewSoapSession();
  for (const LevelCase& c : cases) {
    SetTraceLevel(7);
    EXPECT_EQ(s->put_Option(CComBSTR(u"trace.level"), c.value ? CComBSTR(c.value) : CComBSTR()), S_OK);
    EXPECT_EQ(TraceLevel(), c.level < 0 ? 7 : c.level) << (c.value ? WideToUtf8(c.value) : "(null)");
  }
  ASSERT_EQ(s->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"warning")), S_OK);
  EXPECT_EQ(TraceLevel(), 2);
  CComBSTR stored;
  s->get_Option(CComBSTR(u"trace.level"), &stored);
  EXPECT_EQ(Str(stored), u"warning");
  // The name is exact.
  SetTraceLevel(3);
  s->put_Option(CComBSTR(u"TRACE.LEVEL"), CComBSTR(u"1"));
  EXPECT_EQ(TraceLevel(), 3);
}

TEST_F(SessionFrameTest, SystemIdIsPlainFieldAccess) {
  auto s = NewSoapSession();
  CComBSTR id = Overwritten([&](BSTR* out) { EXPECT_EQ(s->get_SystemID(out), S_OK); });
  EXPECT_TRUE(id.m_str == nullptr);
  ASSERT_EQ(s->put_SystemID(CComBSTR(u"PRD")), S_OK);
  id.Empty();
  s->get_SystemID(&id);
  EXPECT_EQ(Str(id), u"PRD");
  EXPECT_EQ(s->get_SystemID(nullptr), E_POINTER);
}

TEST_F(SessionFrameTest, LogonDataIsOneObjectWithEmptyStringsAndItsOwnOptions) {
  auto s = NewSoapSession();
  CComPtr<ILogonData> logon, again;
  ASSERT_EQ(s->get_LogonData(&logon), S_OK);
  ASSERT_EQ(s->get_LogonData(&again), S_OK);
  EXPECT_EQ(logon.p, again.p);

  using Get = HRESULT (STDMETHODCALLTYPE ILogonData::*)(BSTR*);
  using Put = HRESULT (STDMETHODCALLTYPE ILogonData::*)(BSTR);
  const struct {
    Get get;
    Put put;
  } props[] = {
      {&ILogonData::get_Client, &ILogonData::put_Client},
      {&ILogonData::get_User, &ILogonData::put_User},
      {&ILogonData::get_Password, &ILogonData::put_Password},
      {&ILogonData::get_Language, &ILogonData::put_Language},
      {&ILogonData::get_SSO2Ticket, &ILogonData::put_SSO2Ticket},
      {&ILogonData::get_X509Cert, &ILogonData::put_X509Cert},
      {&ILogonData::get_ExtIdData, &ILogonData::put_ExtIdData},
      {&ILogonData::get_ExtIdType, &ILogonData::put_ExtIdType},
  };
  int n = 0;
  for (const auto& p : props) {
    CComBSTR value;
    ASSERT_EQ((logon.p->*p.get)(&value), S_OK);
    ASSERT_TRUE(value.m_str != nullptr);
    EXPECT_EQ(value.Length(), 0u);
    const std::u16string text = u"value " + std::u16string(1, static_cast<char16_t>(u'0' + n++));
    ASSERT_EQ((logon.p->*p.put)(CComBSTR(std::u16string_view(text))), S_OK);
  }
  n = 0;
  for (const auto& p : props) {
    CComBSTR value;
    (logon.p->*p.get)(&value);
    EXPECT_EQ(Str(value), u"value " + std::u16string(1, static_cast<char16_t>(u'0' + n++)));
  }
  EXPECT_EQ(s->LogonObject()->User(), u"value 1");
  EXPECT_EQ(s->LogonObject()->Password(), u"value 2");

  CComBSTR option;
  ASSERT_EQ(logon->get_Option(CComBSTR(u"unknown"), &option), S_OK);
  EXPECT_EQ(Str(option), u"");
  ASSERT_EQ(logon->put_Option(CComBSTR(u"k"), CComBSTR(u"logon")), S_OK);
  ASSERT_EQ(s->put_Option(CComBSTR(u"k"), CComBSTR(u"session")), S_OK);
  option.Empty();
  logon->get_Option(CComBSTR(u"k"), &option);
  EXPECT_EQ(Str(option), u"logon");
  option.Empty();
  logon->get_Option(CComBSTR(u"K"), &option);
  EXPECT_EQ(Str(option), u"");
  // "trace.file" in the logon data's store opens no trace.
  logon->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide((dir / "logon.trc").string())));
  EXPECT_FALSE(TraceIsOpen());
}

TEST_F(SessionFrameTest, TypeCacheIsCreatedOnFirstNeedAndReplaceable) {
  auto s = NewSoapSession();
  CComPtr<ITypeCache> first, second;
  ASSERT_EQ(s->get_TypeCache(&first), S_OK);
  ASSERT_TRUE(first);
  ASSERT_EQ(s->get_TypeCache(&second), S_OK);
  EXPECT_EQ(first.p, second.p);
  EXPECT_EQ(s->put_TypeCache(nullptr), E_POINTER);
  CComPtr<ITypeCache> mine;
  ASSERT_EQ(CreateTypeCache(&mine), S_OK);
  ASSERT_EQ(s->put_TypeCache(mine), S_OK);
  CComPtr<ITypeCache> now;
  s->get_TypeCache(&now);
  EXPECT_EQ(now.p, mine.p);
  EXPECT_EQ(s->get_TypeCache(nullptr), E_POINTER);
}

TEST_F(SessionFrameTest, DecodeInternalErrorGivesTheTableText) {
  auto s = NewSoapSession();
  CComBSTR text;
  ASSERT_EQ(s->DecodeInternalError(519, &text), S_OK);
  EXPECT_EQ(Str(text), u"An unexpected error has occured - check trace for details");
  text.Empty();
  ASSERT_EQ(s->DecodeInternalError(520, &text), S_OK);
  EXPECT_EQ(Str(text), u"Not connected (call connect() before executing this method)");
  for (LONG unknown : {0, 512, 549, -1, 70000}) {
    CComBSTR none = Overwritten([&](BSTR* out) { EXPECT_EQ(s->DecodeInternalError(unknown, out), S_OK); });
    EXPECT_TRUE(none.m_str == nullptr) << unknown;
  }
}

TEST_F(SessionFrameTest, FactoriesNeedNoConnection) {
  auto s = NewSoapSession();
  s->connected = false;
  CComPtr<IFunctionCall> a, b;
  ASSERT_EQ(s->CreateCall(&a), S_OK);
  ASSERT_EQ(s->CreateCall(&b), S_OK);
  EXPECT_NE(a.p, b.p);
  LONG count = -1;
  Importing(a)->get_Count(&count);
  EXPECT_EQ(count, 0);
  CComPtr<IRfcType> t;
  ASSERT_EQ(s->CreateType(&t), S_OK);
  RFCTYPEKIND kind = RFCTYPEKIND_TABLE;
  t->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_UNDEFINED);
  EXPECT_EQ(s->CreateCall(nullptr), E_POINTER);
  EXPECT_EQ(s->CreateType(nullptr), E_POINTER);
  EXPECT_EQ(s->About(), S_OK);
}

TEST_F(SessionFrameTest, ImportCallTwiceReachesTheBackEndOnceAndSharesTypes) {
  const auto path = dir / "import.trc";
  auto s = NewSoapSession();
  s->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(path.string())));
  CComPtr<IFunctionCall> first, second;
  ASSERT_EQ(s->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, &first), S_OK);
  ASSERT_EQ(s->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, &second), S_OK);
  EXPECT_EQ(s->callImports, 1);
  ASSERT_TRUE(first && second);
  EXPECT_NE(first.p, second.p);
  CComBSTR name;
  second->get_Function(&name);
  EXPECT_EQ(Str(name), u"Z_TEST");

  for (auto [set, param] : {std::pair{0, u"IS_IN"}, std::pair{1, u"EV_OUT"}, std::pair{3, u"ET_ROWS"}}) {
    CComPtr<IRfcParameter> p1 = Param(Params(first, set), param), p2 = Param(Params(second, set), param);
    ASSERT_TRUE(p1 && p2);
    EXPECT_NE(p1.p, p2.p);
    CComPtr<IRfcType> t1, t2;
    p1->get_RfcType(&t1);
    p2->get_RfcType(&t2);
    EXPECT_EQ(t1.p, t2.p);
  }
  // The copies are independent values.
  CComPtr<IRfcParameter> out = Param(Exporting(first), u"EV_OUT");
  out->put_value(CComVariant(42));
  CComVariant other = ParamValue(Exporting(second), u"EV_OUT");
  EXPECT_EQ(V_VT(&other), VT_EMPTY);

  const std::string text = ReadFile(path);
  const size_t import1 = text.find("ImportCall('Z_TEST')...\n");
  ASSERT_NE(import1, std::string::npos) << text;
  const size_t import2 = text.find("ImportCall('Z_TEST')...\n", import1 + 1);
  ASSERT_NE(import2, std::string::npos) << text;
  EXPECT_EQ(text.find("retrieved from cache\n"), text.find("retrieved from cache\n", import2));
  EXPECT_NE(text.find("retrieved from cache\n", import2), std::string::npos);
}

TEST_F(SessionFrameTest, IgnoreUnsupportedParamsIsNoPartOfTheCacheKey) {
  auto s = NewSoapSession();
  CComPtr<IFunctionCall> a, b;
  ASSERT_EQ(s->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_TRUE, &a), S_OK);
  ASSERT_EQ(s->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, &b), S_OK);
  ASSERT_EQ(s->importFlags.size(), 1u);
  EXPECT_EQ(s->importFlags[0], VARIANT_TRUE);
}

// ------------------------------------ failures reach the client as results

constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x80040207);
constexpr char16_t kUnexpectedText[] = u"An unexpected error has occured - check trace for details";

TEST_F(SessionFrameTest, AnImportCallThatRaisesReportsThroughItsResult) {
  auto s = NewSoapSession();
  s->importsRaise = true;
  CComPtr<IFunctionCall> call;
  call.p = reinterpret_cast<IFunctionCall*>(0x1);  // overwritten with null
  EXPECT_EQ(s->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, &call), kUnexpected);
  EXPECT_TRUE(call.p == nullptr);
  ErrorRecord r = TakeError();
  EXPECT_EQ(r.description, kUnexpectedText);
  EXPECT_EQ(r.source, u"Veltrane.SoapSession.1");
}

TEST_F(SessionFrameTest, AnImportTypeThatRaisesReportsThroughItsResult) {
  auto s = NewRfcSession();
  s->importsRaise = true;
  CComPtr<IRfcType> type;
  EXPECT_EQ(s->ImportType(CComBSTR(u"ZSTRUCT"), &type), kUnexpected);
  EXPECT_FALSE(type);
  ErrorRecord r = TakeError();
  EXPECT_EQ(r.description, kUnexpectedText);
  EXPECT_EQ(r.source, u"Veltrane.RfcSession.1");
}

TEST_F(SessionFrameTest, ServiceCallsThatRaiseReportThroughTheirResult) {
  auto s = NewSoapSession();
  s->handler = [](IFunctionCall*) -> HRESULT { throw std::runtime_error("broken back end"); };
  VARIANT_BOOL flag = VARIANT_TRUE;
  EXPECT_EQ(s->CheckPasswordExpired(&flag), kUnexpected);
  EXPECT_EQ(TakeError().description, kUnexpectedText);
  CComPtr<ILogonData> logon;
  s->get_LogonData(&logon);
  logon->put_Password(CComBSTR(u"Welcome1"));
  EXPECT_EQ(s->ChangePassword(CComBSTR(u"new")), kUnexpected);
  EXPECT_EQ(TakeError().description, kUnexpectedText);
  // A COM error keeps its own result, with no record.
  s->handler = [](IFunctionCall*) -> HRESULT { throw _com_error(E_INVALIDARG); };
  SetErrorInfo(0, nullptr);
  EXPECT_EQ(s->CheckUnicodeSupport(&flag), E_INVALIDARG);
  EXPECT_FALSE(TakeError().present);
}

TEST_F(SessionFrameTest, AnImportCallThatRaisesIsAnExceptionOfTheDispatchLateBound) {
  auto s = NewSoapSession();
  s->importsRaise = true;
  test_support::LateBoundResult r;
  test_support::InvokeLateBound(static_cast<ISoapSession*>(s.p), u"ImportCall", CComVariant(u"Z_TEST"), r);
  EXPECT_EQ(r.hr, DISP_E_EXCEPTION);
  EXPECT_EQ(r.info.scode, kUnexpected);
  EXPECT_EQ(Str(r.info.bstrDescription), kUnexpectedText);
  EXPECT_EQ(Str(r.info.bstrSource), u"Veltrane.SoapSession.1");
}

// Every member of the frame that can raise inside: early-bound a failed
// result with the session's record, late-bound an exception of the dispatch
// with the same result and the same record.
TEST_F(SessionFrameTest, MembersThatRaiseFailAlikeEarlyAndLateBound) {
  auto s = NewSoapSession();
  s->importsRaise = true;
  s->handler = [](IFunctionCall*) -> HRESULT { throw std::runtime_error("broken back end"); };
  CComPtr<ILogonData> logon;
  ASSERT_EQ(s->get_LogonData(&logon), S_OK);
  logon->put_Password(CComBSTR(u"Welcome1"));
  ISoapSession* session = s;
  struct Member {
    const char16_t* name;
    std::vector<CComVariant> arguments;
    std::function<HRESULT()> early;
  };
  const std::vector<Member> members = {
      {u"ImportCall",
       {CComVariant(u"Z_TEST")},
       [&] {
         CComPtr<IFunctionCall> call;
         return session->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, &call);
       }},
      {u"ImportType",
       {CComVariant(u"ZSTRUCT")},
       [&] {
         CComPtr<IRfcType> type;
         return session->ImportType(CComBSTR(u"ZSTRUCT"), &type);
       }},
      {u"CheckPasswordExpired",
       {},
       [&] {
         VARIANT_BOOL expired = VARIANT_FALSE;
         return session->CheckPasswordExpired(&expired);
       }},
      {u"ChangePassword", {CComVariant(u"new")}, [&] { return session->ChangePassword(CComBSTR(u"new")); }},
      {u"CheckUnicodeSupport",
       {},
       [&] {
         VARIANT_BOOL unicode = VARIANT_FALSE;
         return session->CheckUnicodeSupport(&unicode);
       }},
  };
  for (const Member& m : members) {
    const std::string name = WideToUtf8(m.name);
    SetErrorInfo(0, nullptr);
    const HRESULT early = m.early();
    EXPECT_EQ(early, kUnexpected) << name;
    const ErrorRecord record = TakeError();
    EXPECT_EQ(record.description, kUnexpectedText) << name;
    EXPECT_EQ(record.source, u"Veltrane.SoapSession.1") << name;
    test_support::LateBoundResult late;
    test_support::InvokeLateBound(session, m.name, m.arguments, late);
    EXPECT_EQ(late.hr, DISP_E_EXCEPTION) << name;
    EXPECT_EQ(late.info.scode, early) << name;
    EXPECT_EQ(Str(late.info.bstrDescription), kUnexpectedText) << name;
    EXPECT_EQ(Str(late.info.bstrSource), u"Veltrane.SoapSession.1") << name;
  }
}

// The header lines name the working directory and PATH, whose bytes need not
// be UTF-8: the option still succeeds, with U+FFFD in their place.
TEST_F(SessionFrameTest, TraceFileSucceedsWithPathsThatAreNotUtf8) {
  const char* path = getenv("PATH");
  const std::string oldPath = path ? path : "";
  const std::filesystem::path oldDir = std::filesystem::current_path();
  const std::filesystem::path odd = dir / std::string("w\xff");
  std::filesystem::create_directory(odd);
  std::filesystem::current_path(odd);
  setenv("PATH", "/bin:/x\xff", 1);
  auto s = NewSoapSession();
  const HRESULT hr = s->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide((dir / "odd.trc").string())));
  setenv("PATH", oldPath.c_str(), 1);
  std::filesystem::current_path(oldDir);
  EXPECT_EQ(hr, S_OK);
  EXPECT_TRUE(TraceIsOpen());
  const std::string text = ReadFile(dir / "odd.trc");
  EXPECT_NE(text.find("\tSearch Path: /bin:/x\xEF\xBF\xBD\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\tWorkdir: " + dir.string() + "/w\xEF\xBF\xBD\n"), std::string::npos) << text;
}

TEST_F(SessionFrameTest, FailedImportCallHandsOutNullAndIsNotCached) {
  auto s = NewSoapSession();
  s->connected = false;
  CComPtr<IFunctionCall> call;
  call.p = reinterpret_cast<IFunctionCall*>(0x1);  // overwritten with null
  EXPECT_EQ(s->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, &call), static_cast<HRESULT>(0x80040208));
  EXPECT_TRUE(call.p == nullptr);
  ErrorRecord r = TakeError();
  EXPECT_EQ(r.description, u"Not connected (call connect() before executing this method)");

  CComPtr<IFunctionCall> missing;
  s->connected = true;
  EXPECT_EQ(s->ImportCall(CComBSTR(u"Z_DOES_NOT_EXIST"), VARIANT_FALSE, &missing), static_cast<HRESULT>(0x8004021C));
  EXPECT_TRUE(missing.p == nullptr);
  VARIANT_BOOL error = 0;
  s->get_Error(&error);
  EXPECT_EQ(error, VARIANT_TRUE);
  EXPECT_EQ(s->ImportCall(CComBSTR(u"Z_DOES_NOT_EXIST"), VARIANT_FALSE, &missing), static_cast<HRESULT>(0x8004021C));
  EXPECT_EQ(s->callImports, 2);
}

TEST_F(SessionFrameTest, ImportCallWithNullOutputStillImportsAndCaches) {
  auto s = NewSoapSession();
  EXPECT_EQ(s->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, nullptr), E_POINTER);
  EXPECT_EQ(s->callImports, 1);
  EXPECT_EQ(s->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, nullptr), E_POINTER);
  EXPECT_EQ(s->callImports, 1);
  // From the cache also without a connection.
  s->connected = false;
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(s->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, &call), S_OK);
}

TEST_F(SessionFrameTest, ImportTypeTwiceGivesTheSameObject) {
  auto s = NewSoapSession();
  CComPtr<IRfcType> a, b;
  ASSERT_EQ(s->ImportType(CComBSTR(u"ZSTRUCT"), &a), S_OK);
  ASSERT_EQ(s->ImportType(CComBSTR(u"ZSTRUCT"), &b), S_OK);
  EXPECT_EQ(a.p, b.p);
  EXPECT_EQ(s->typeImports, 1);
  RFCTYPEKIND kind{};
  a->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_STRUCT);
  EXPECT_EQ(s->ImportType(CComBSTR(u"ZSTRUCT"), nullptr), E_POINTER);

  CComPtr<IRfcType> none;
  EXPECT_EQ(s->ImportType(CComBSTR(u"ZNONE"), &none), static_cast<HRESULT>(0x8004020C));
  EXPECT_TRUE(none.p == nullptr);
  s->connected = false;
  EXPECT_EQ(s->ImportType(CComBSTR(u"ZOTHER"), &none), static_cast<HRESULT>(0x80040208));
  CComPtr<IRfcType> cached;
  EXPECT_EQ(s->ImportType(CComBSTR(u"ZSTRUCT"), &cached), S_OK);
  EXPECT_EQ(cached.p, a.p);
}

TEST_F(SessionFrameTest, SharedTypeCacheServesImportsAcrossSessionClasses) {
  auto a = NewSoapSession();
  auto b = NewRfcSession();
  CComPtr<ITypeCache> cache;
  ASSERT_EQ(a->get_TypeCache(&cache), S_OK);
  ASSERT_EQ(b->put_TypeCache(cache), S_OK);

  CComPtr<IFunctionCall> fromA, fromB;
  ASSERT_EQ(a->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, &fromA), S_OK);
  b->connected = false;
  ASSERT_EQ(b->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, &fromB), S_OK);
  EXPECT_EQ(b->callImports, 0);
  CComPtr<IRfcType> ta, tb;
  Param(Importing(fromA), u"IS_IN")->get_RfcType(&ta);
  Param(Importing(fromB), u"IS_IN")->get_RfcType(&tb);
  EXPECT_EQ(ta.p, tb.p);

  CComPtr<IRfcType> typeA, typeB;
  ASSERT_EQ(a->ImportType(CComBSTR(u"ZSTRUCT"), &typeA), S_OK);
  ASSERT_EQ(b->ImportType(CComBSTR(u"ZSTRUCT"), &typeB), S_OK);
  EXPECT_EQ(typeA.p, typeB.p);
  EXPECT_EQ(b->typeImports, 0);

  // A session with a cache of its own does not see them.
  auto c = NewSoapSession();
  c->connected = false;
  CComPtr<IFunctionCall> fromC;
  EXPECT_EQ(c->ImportCall(CComBSTR(u"Z_TEST"), VARIANT_FALSE, &fromC), static_cast<HRESULT>(0x80040208));
}

TEST_F(SessionFrameTest, GetTableReaderBindsAReaderToTheSession) {
  auto s = NewSoapSession();
  CComPtr<ITableReader> reader;
  ASSERT_EQ(s->GetTableReader(CComBSTR(u"SCARR"), &reader), S_OK);
  CComBSTR table;
  reader->get_Table(&table);
  EXPECT_EQ(Str(table), u"SCARR");
  CComPtr<ISession> session;
  ASSERT_EQ(reader->get_Session(&session), S_OK);
  CComQIPtr<ISession> self(static_cast<ISoapSession*>(s.p));
  EXPECT_EQ(session.p, self.p);
  CComPtr<ITableReader> other;
  ASSERT_EQ(s->GetTableReader(CComBSTR(u"SCARR"), &other), S_OK);
  EXPECT_NE(reader.p, other.p);
  EXPECT_EQ(s->GetTableReader(CComBSTR(u"SCARR"), nullptr), E_POINTER);
}

TEST_F(SessionFrameTest, SessionAnswersItsInterfaces) {
  auto s = NewSoapSession();
  IUnknown* unk = s->GetUnknown();
  for (const IID* iid :
       {&IID_ISession, &IID_ISoapSession, &IID_IDispatch, &IID_IConnectionPointContainer, &IID_ISupportErrorInfo}) {
    CComPtr<IUnknown> p;
    EXPECT_EQ(unk->QueryInterface(*iid, reinterpret_cast<void**>(&p)), S_OK);
  }
  CComPtr<IUnknown> p;
  EXPECT_EQ(unk->QueryInterface(IID_IRfcSession, reinterpret_cast<void**>(&p)), E_NOINTERFACE);
  CComQIPtr<ISupportErrorInfo> sei(unk);
  EXPECT_EQ(sei->InterfaceSupportsErrorInfo(IID_ISession), S_OK);
  EXPECT_EQ(sei->InterfaceSupportsErrorInfo(IID_ISoapSession), S_OK);

  auto r = NewRfcSession();
  CComPtr<IUnknown> q;
  EXPECT_EQ(r->GetUnknown()->QueryInterface(IID_IRfcSession, reinterpret_cast<void**>(&q)), S_OK);
}

TEST_F(SessionFrameTest, LateBoundOptionAndErrorInfoReachTheFrame) {
  auto s = NewSoapSession();
  CComQIPtr<IDispatch> disp(s->GetUnknown());
  ASSERT_TRUE(disp);
  LPOLESTR names[] = {const_cast<LPOLESTR>(u"Option")};
  DISPID id = 0;
  ASSERT_EQ(disp->GetIDsOfNames(IID_NULL, names, 1, 0, &id), S_OK);
  EXPECT_EQ(id, 11);
  CComVariant args[2];
  args[1] = CComVariant(u"late.key");  // name (first argument, last in the array)
  args[0] = CComVariant(u"late value");
  DISPID named = DISPID_PROPERTYPUT;
  DISPPARAMS put{args, &named, 2, 1};
  ASSERT_EQ(disp->Invoke(11, IID_NULL, 0, DISPATCH_PROPERTYPUT, &put, nullptr, nullptr, nullptr), S_OK);
  EXPECT_EQ(s->Option(u"late.key"), u"late value");

  s->Fail({RFCERROR_COMMUNICATION, u"K", u"M"}, u"X");
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  CComVariant result;
  ASSERT_EQ(disp->Invoke(3, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr), S_OK);
  EXPECT_EQ(V_VT(&result), VT_DISPATCH);
  VARIANT_BOOL error = -1;
  s->get_Error(&error);
  EXPECT_EQ(error, VARIANT_FALSE);
}

// A sink that counts CallFinished.
class CFinishedSink : public CComObjectBase<CFinishedSink, IDispatch> {
 public:
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* p) override {
    *p = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return DISP_E_BADINDEX; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return DISP_E_UNKNOWNNAME;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* dp, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    EXPECT_EQ(id, 1);
    EXPECT_EQ(flags, DISPATCH_METHOD);
    EXPECT_EQ(dp->cArgs, 0u);
    ++calls;
    return S_OK;
  }
  int calls = 0;
};

TEST_F(SessionFrameTest, CallFinishedReachesEverySink) {
  auto s = NewSoapSession();
  CComQIPtr<IConnectionPointContainer> container(s->GetUnknown());
  ASSERT_TRUE(container);
  CComPtr<IConnectionPoint> point;
  ASSERT_EQ(container->FindConnectionPoint(DIID__SessionEvents, &point), S_OK);
  EXPECT_EQ(s->Fire(), S_OK);  // no sink

  CComPtr<CFinishedSink> one, two;
  CFinishedSink::CreateInstance(&one.p);
  CFinishedSink::CreateInstance(&two.p);
  DWORD c1 = 0, c2 = 0;
  ASSERT_EQ(point->Advise(one->GetUnknown(), &c1), S_OK);
  ASSERT_EQ(point->Advise(two->GetUnknown(), &c2), S_OK);
  EXPECT_EQ(s->Fire(), S_OK);
  EXPECT_EQ(one->calls, 1);
  EXPECT_EQ(two->calls, 1);
  ASSERT_EQ(point->Unadvise(c1), S_OK);
  s->Fire();
  EXPECT_EQ(one->calls, 1);
  EXPECT_EQ(two->calls, 2);
  point->Unadvise(c2);
}

// An object that counts the references it was given and given back.
class CountedUnknown : public IUnknown {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  ULONG refs = 1;
};

// Each asynchronous call holds the session; an Unpin without a Pin left
// (an abort after the call's own end) gives nothing back.
TEST_F(SessionFrameTest, EachPinHoldsTheSessionOnce) {
  SessionFrame frame;
  CountedUnknown session;
  frame.Pin(&session);
  frame.Pin(&session);
  EXPECT_EQ(session.refs, 3u);
  frame.Unpin(&session);
  EXPECT_EQ(session.refs, 2u);
  frame.Unpin(&session);
  frame.Unpin(&session);
  EXPECT_EQ(session.refs, 1u);
}

}  // namespace
