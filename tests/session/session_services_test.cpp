// CheckPasswordExpired, ChangePassword and CheckUnicodeSupport over the
// session's public members.
#include "fake_session.h"

#include <gtest/gtest.h>

#include "platform/unicode.h"

using namespace session_test;

namespace {

constexpr HRESULT kNotConnected = static_cast<HRESULT>(0x80040208);

TEST(PasswordExpired, ValidPasswordGivesFalseWithoutError) {
  auto s = NewSoapSession();
  VARIANT_BOOL expired = VARIANT_TRUE;
  ASSERT_EQ(s->CheckPasswordExpired(&expired), S_OK);
  EXPECT_EQ(expired, VARIANT_FALSE);
  VARIANT_BOOL error = -1;
  s->get_Error(&error);
  EXPECT_EQ(error, VARIANT_FALSE);
  // The call went out unimported, with empty parameter sets.
  ASSERT_EQ(s->calledFunctions, std::vector<std::u16string>{u"SUSR_LOGIN_CHECK_RFC"});
  EXPECT_EQ(s->callImports, 0);
  for (int set = 0; set < 4; ++set) {
    LONG n = -1;
    Params(s->sentCalls[0], set)->get_Count(&n);
    EXPECT_EQ(n, 0);
  }
}

TEST(PasswordExpired, PasswordExpiredExceptionIsTheAnswer) {
  auto s = NewSoapSession();
  s->loginCheckFailure = RfcErrorRecord{RFCERROR_APPLICATION_EXCEPTION, u"PASSWORD_EXPIRED", u"PASSWORD_EXPIRED"};
  VARIANT_BOOL expired = VARIANT_FALSE;
  ASSERT_EQ(s->CheckPasswordExpired(&expired), S_OK);
  EXPECT_EQ(expired, VARIANT_TRUE);
  VARIANT_BOOL error = -1;
  s->get_Error(&error);
  EXPECT_EQ(error, VARIANT_FALSE);
  CComPtr<IRfcError> info;
  s->get_ErrorInfo(&info);
  CComBSTR message;
  info->get_Message(&message);
  EXPECT_EQ(Str(message), u"PASSWORD_EXPIRED");
}

TEST(PasswordExpired, OtherExceptionLeavesErrorSetToOne) {
  auto s = NewSoapSession();
  s->loginCheckFailure = RfcErrorRecord{RFCERROR_APPLICATION_EXCEPTION, u"USER_LOCKED", u"USER_LOCKED"};
  VARIANT_BOOL expired = VARIANT_TRUE;
  ASSERT_EQ(s->CheckPasswordExpired(&expired), S_OK);
  EXPECT_EQ(expired, VARIANT_FALSE);
  VARIANT_BOOL error = 0;
  s->get_Error(&error);
  EXPECT_EQ(error, 1);
  CComPtr<IRfcError> info;
  s->get_ErrorInfo(&info);
  CComBSTR message, key;
  info->get_Message(&message);
  info->get_ErrorGroupTxt(&key);
  EXPECT_EQ(Str(message), u"USER_LOCKED");
  EXPECT_EQ(Str(key), u"USER_LOCKED");
}

TEST(PasswordExpired, FailureOfAnotherGroupLeavesErrorSetToOne) {
  for (ERRORGROUP group : {RFCERROR_LOGON_FAILURE, RFCERROR_COMMUNICATION, RFCERROR_SYSTEM_FAILURE}) {
    auto s = NewSoapSession();
    // Even with the word of the expired password: only an ABAP exception counts.
    s->loginCheckFailure = RfcErrorRecord{group, u"PASSWORD_EXPIRED", u"PASSWORD_EXPIRED"};
    VARIANT_BOOL expired = VARIANT_TRUE;
    ASSERT_EQ(s->CheckPasswordExpired(&expired), S_OK);
    EXPECT_EQ(expired, VARIANT_FALSE);
    VARIANT_BOOL error = 0;
    s->get_Error(&error);
    EXPECT_EQ(error, 1) << group;
  }
}

TEST(PasswordExpired, NotConnectedGivesTheCallFailure) {
  auto s = NewSoapSession();
  s->connected = false;
  VARIANT_BOOL expired = VARIANT_TRUE;
  EXPECT_EQ(s->CheckPasswordExpired(&expired), kNotConnected);
  EXPECT_EQ(expired, VARIANT_FALSE);
  EXPECT_EQ(s->CheckPasswordExpired(nullptr), E_POINTER);
}

TEST(ChangePassword, EmptyOldPasswordFailsWith527AndCallsNothing) {
  auto s = NewSoapSession();
  EXPECT_EQ(s->ChangePassword(CComBSTR(u"New1")), static_cast<HRESULT>(0x8004020F));
  ErrorRecord r = TakeError();
  EXPECT_TRUE(r.present);
  EXPECT_EQ(r.source, u"Veltrane.RfcSession.1");
  EXPECT_EQ(r.description, u"In order to change the password, the old password must be provided via LogonData");
  EXPECT_TRUE(s->calledFunctions.empty());
  EXPECT_EQ(s->callImports, 0);
  // Also on the other session class, with the same source.
  auto r2 = NewRfcSession();
  EXPECT_EQ(r2->ChangePassword(CComBSTR(u"New1")), static_cast<HRESULT>(0x8004020F));
  EXPECT_EQ(TakeError().source, u"Veltrane.RfcSession.1");
}

TEST(ChangePassword, SendsOldAndNewPasswordThroughTheCachedImport) {
  auto s = NewSoapSession();
  CComPtr<ILogonData> logon;
  s->get_LogonData(&logon);
  logon->put_Password(CComBSTR(u"Welcome1"));
  ASSERT_EQ(s->ChangePassword(CComBSTR(u"Better2")), S_OK);
  ASSERT_EQ(s->sentCalls.size(), 1u);
  CComPtr<IRfcParameters> in = Importing(s->sentCalls[0]);
  EXPECT_EQ(TextOf(ParamValue(in, u"PASSWORD")), u"Welcome1");
  EXPECT_EQ(TextOf(ParamValue(in, u"NEW_PASSWORD")), u"Better2");
  ASSERT_EQ(s->importFlags.size(), 1u);
  EXPECT_EQ(s->importFlags[0], VARIANT_TRUE);
  // LogonData keeps the old password.
  CComBSTR password;
  logon->get_Password(&password);
  EXPECT_EQ(Str(password), u"Welcome1");

  ASSERT_EQ(s->ChangePassword(CComBSTR(u"Third3")), S_OK);
  EXPECT_EQ(s->callImports, 1);
  EXPECT_EQ(TextOf(ParamValue(Importing(s->sentCalls[1]), u"NEW_PASSWORD")), u"Third3");
}

TEST(ChangePassword, ReturnsTheResultOfTheCall) {
  auto s = NewSoapSession();
  CComPtr<ILogonData> logon;
  s->get_LogonData(&logon);
  logon->put_Password(CComBSTR(u"Welcome1"));
  s->callActive = true;
  EXPECT_EQ(s->ChangePassword(CComBSTR(u"x")), static_cast<HRESULT>(0x8004020A));
  s->callActive = false;
  s->handler = [&](IFunctionCall*) {
    s->Fail({RFCERROR_APPLICATION_EXCEPTION, u"PASSWORD_NOT_ALLOWED", u"PASSWORD_NOT_ALLOWED"},
            u"SUSR_USER_CHANGE_PASSWORD_RFC");
    return S_OK;
  };
  EXPECT_EQ(s->ChangePassword(CComBSTR(u"x")), S_OK);
  VARIANT_BOOL error = 0;
  s->get_Error(&error);
  EXPECT_EQ(error, VARIANT_TRUE);
}

TEST(ChangePassword, NotConnectedGivesTheImportFailure) {
  auto s = NewSoapSession();
  CComPtr<ILogonData> logon;
  s->get_LogonData(&logon);
  logon->put_Password(CComBSTR(u"Welcome1"));
  s->connected = false;
  EXPECT_EQ(s->ChangePassword(CComBSTR(u"x")), kNotConnected);
}

TEST(UnicodeSupport, ValueOneAsTextOrNumberCountsAsTrue) {
  struct Case {
    CComVariant value;
    VARIANT_BOOL expected;
  };
  const Case cases[] = {
      {CComVariant(u"1"), VARIANT_TRUE},  {CComVariant(1), VARIANT_TRUE},     {CComVariant(1.0), VARIANT_TRUE},
      {CComVariant(u"0"), VARIANT_FALSE}, {CComVariant(u" "), VARIANT_FALSE}, {CComVariant(u"X"), VARIANT_FALSE},
      {CComVariant(0), VARIANT_FALSE},    {CComVariant(2), VARIANT_FALSE},
  };
  for (const Case& c : cases) {
    auto s = NewSoapSession();
    s->unicodeValue = c.value;
    VARIANT_BOOL unicode = 7;
    ASSERT_EQ(s->CheckUnicodeSupport(&unicode), S_OK);
    EXPECT_EQ(unicode, c.expected) << WideToUtf8(TextOf(c.value));
    ASSERT_EQ(s->importFlags.size(), 1u);
    EXPECT_EQ(s->importFlags[0], VARIANT_TRUE);
    EXPECT_EQ(s->importedCalls[0], u"SLDAG_CHECK_FOR_UNICODE");
  }
}

TEST(UnicodeSupport, NotConnectedGivesTheImportFailure) {
  auto s = NewSoapSession();
  s->connected = false;
  VARIANT_BOOL unicode = VARIANT_TRUE;
  EXPECT_EQ(s->CheckUnicodeSupport(&unicode), kNotConnected);
  EXPECT_EQ(unicode, VARIANT_FALSE);
  EXPECT_EQ(s->CheckUnicodeSupport(nullptr), E_POINTER);
}

TEST(UnicodeSupport, CallFailureEndsTheCheck) {
  auto s = NewSoapSession();
  s->handler = [](IFunctionCall*) { return static_cast<HRESULT>(0x80040207); };
  VARIANT_BOOL unicode = VARIANT_TRUE;
  EXPECT_EQ(s->CheckUnicodeSupport(&unicode), static_cast<HRESULT>(0x80040207));
  EXPECT_EQ(unicode, VARIANT_FALSE);
}

}  // namespace
