#include "session/rfc_error.h"

#include <gtest/gtest.h>

namespace {

std::u16string Take(BSTR b) {
  std::u16string s = b ? std::u16string(b, SysStringLen(b)) : std::u16string();
  SysFreeString(b);
  return s;
}

struct Snapshot {
  ERRORGROUP group;
  std::u16string key, message, module;
};

Snapshot Read(IRfcError* e) {
  Snapshot s{};
  EXPECT_EQ(e->get_ERRORGROUP(&s.group), S_OK);
  BSTR b = nullptr;
  EXPECT_EQ(e->get_ErrorGroupTxt(&b), S_OK);
  s.key = Take(b);
  b = nullptr;
  EXPECT_EQ(e->get_Message(&b), S_OK);
  s.message = Take(b);
  b = nullptr;
  EXPECT_EQ(e->get_ModuleName(&b), S_OK);
  s.module = Take(b);
  return s;
}

CComPtr<IRfcError> NewError() {
  CComPtr<IRfcError> e;
  EXPECT_EQ(CRfcError::CreateInstance(&e), S_OK);
  return e;
}

TEST(RfcError, StartsEmpty) {
  auto e = NewError();
  Snapshot s = Read(e);
  EXPECT_EQ(s.group, RFCERROR_NO_ERROR);
  EXPECT_EQ(s.key, u"");
  EXPECT_EQ(s.message, u"");
  EXPECT_EQ(s.module, u"");
}

TEST(RfcError, PropertiesKeepWhatIsPut) {
  auto e = NewError();
  EXPECT_EQ(e->put_ERRORGROUP(RFCERROR_LOGON_FAILURE), S_OK);
  EXPECT_EQ(e->put_ErrorGroupTxt(CComBSTR(u"RFC_ERROR_LOGON_FAILURE")), S_OK);
  EXPECT_EQ(e->put_Message(CComBSTR(u"Name or password is incorrect")), S_OK);
  EXPECT_EQ(e->put_ModuleName(CComBSTR(u"SUSR_LOGIN_CHECK_RFC")), S_OK);
  Snapshot s = Read(e);
  EXPECT_EQ(s.group, RFCERROR_LOGON_FAILURE);
  EXPECT_EQ(s.key, u"RFC_ERROR_LOGON_FAILURE");
  EXPECT_EQ(s.message, u"Name or password is incorrect");
  EXPECT_EQ(s.module, u"SUSR_LOGIN_CHECK_RFC");
  EXPECT_EQ(e->put_Message(nullptr), S_OK);
  EXPECT_EQ(Read(e).message, u"");
}

TEST(RfcError, NullOutputs) {
  auto e = NewError();
  EXPECT_EQ(e->get_ERRORGROUP(nullptr), E_POINTER);
  EXPECT_EQ(e->get_ErrorGroupTxt(nullptr), E_POINTER);
  EXPECT_EQ(e->get_Message(nullptr), E_POINTER);
  EXPECT_EQ(e->get_ModuleName(nullptr), E_POINTER);
}

TEST(RfcError, InterfacesAndErrorInfoSupport) {
  auto e = NewError();
  CComPtr<IDispatch> d;
  EXPECT_EQ(e->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&d)), S_OK);
  CComPtr<ISupportErrorInfo> s;
  ASSERT_EQ(e->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(&s)), S_OK);
  EXPECT_EQ(s->InterfaceSupportsErrorInfo(IID_IRfcError), S_OK);
}

TEST(RfcError, LateBoundMessage) {
  auto e = NewError();
  e->put_Message(CComBSTR(u"late"));
  CComPtr<IDispatch> d;
  ASSERT_EQ(e->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&d)), S_OK);
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  CComVariant result;
  ASSERT_EQ(d->Invoke(3, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr), S_OK);
  ASSERT_EQ(result.vt, VT_BSTR);
  EXPECT_EQ(std::u16string(result.bstrVal), u"late");
}

TEST(SetSessionError, WithARecord) {
  auto e = NewError();
  e->put_ModuleName(CComBSTR(u"Z_MODULE"));
  VARIANT_BOOL error = VARIANT_FALSE;
  RfcErrorRecord record{RFCERROR_APPLICATION_EXCEPTION, u"NOT_FOUND", u"NOT_FOUND"};
  EXPECT_EQ(SetSessionError(&error, e, &record), S_OK);
  EXPECT_EQ(error, VARIANT_TRUE);
  Snapshot s = Read(e);
  EXPECT_EQ(s.group, RFCERROR_APPLICATION_EXCEPTION);
  EXPECT_EQ(s.key, u"NOT_FOUND");
  EXPECT_EQ(s.message, u"NOT_FOUND");
  EXPECT_EQ(s.module, u"Z_MODULE");  // stays as it is
}

TEST(SetSessionError, WithoutARecordClearsAll) {
  auto e = NewError();
  VARIANT_BOOL error = VARIANT_FALSE;
  RfcErrorRecord record{RFCERROR_COMMUNICATION, u"KEY", u"text"};
  SetSessionError(&error, e, &record);
  e->put_ModuleName(CComBSTR(u"MOD"));
  EXPECT_EQ(SetSessionError(&error, e, nullptr), S_OK);
  EXPECT_EQ(error, VARIANT_FALSE);
  Snapshot s = Read(e);
  EXPECT_EQ(s.group, RFCERROR_NO_ERROR);
  EXPECT_EQ(s.key, u"");
  EXPECT_EQ(s.message, u"");
  EXPECT_EQ(s.module, u"");
}

TEST(SetSessionError, NullArguments) {
  auto e = NewError();
  VARIANT_BOOL error = VARIANT_FALSE;
  EXPECT_EQ(SetSessionError(nullptr, e, nullptr), E_POINTER);
  EXPECT_EQ(SetSessionError(&error, nullptr, nullptr), E_POINTER);
}

}  // namespace
