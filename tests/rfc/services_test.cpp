// What works on any session, on the classic one: the table reader, the
// backend service calls and a type cache shared with another session.
#include "rfc_fixture.h"

namespace rfctest {
namespace {

using Services = SessionTest;

TEST_F(Services, TheTableReaderReadsSflightInPages) {
  CComPtr<ITableReader> reader;
  ASSERT_EQ(m_session->GetTableReader(CComBSTR(u"SFLIGHT"), &reader), S_OK);
  CComPtr<IStringList> fields;
  reader->get_Fields(&fields);
  fields->Add(CComBSTR(u"CARRID"));
  fields->Add(CComBSTR(u"CONNID"));
  fields->Add(CComBSTR(u"FLDATE"));
  ASSERT_EQ(reader->Read(5, 0), S_OK) << ErrorDescription();
  VARIANT_BOOL failed = VARIANT_TRUE;
  reader->get_Error(&failed);
  EXPECT_EQ(failed, VARIANT_FALSE) << ErrorOf(m_session).message;
  CComPtr<IRfcRows> rows;
  ASSERT_EQ(reader->get_Rows(&rows), S_OK);
  ASSERT_TRUE(rows);
  LONG count = 0;
  rows->get_Count(&count);
  EXPECT_EQ(count, 5);
  EXPECT_FALSE(Text(Cell(rows, 1, u"CARRID")).empty());
}

TEST_F(Services, PasswordAndUnicodeChecks) {
  VARIANT_BOOL expired = VARIANT_TRUE, unicode = VARIANT_FALSE;
  EXPECT_EQ(m_session->CheckPasswordExpired(&expired), S_OK);
  EXPECT_EQ(expired, VARIANT_FALSE);
  EXPECT_EQ(m_session->CheckUnicodeSupport(&unicode), S_OK);
  EXPECT_EQ(unicode, VARIANT_TRUE);
}

TEST_F(Services, ASharedTypeCacheServesASecondSession) {
  CComPtr<ITypeCache> cache;
  ASSERT_EQ(m_session->get_TypeCache(&cache), S_OK);
  CComPtr<IFunctionCall> first = Import(u"BAPI_FLIGHT_GETLIST");
  ASSERT_TRUE(first);
  CComPtr<IRfcSession> other = NewSession();
  ASSERT_EQ(other->put_TypeCache(cache), S_OK);
  ASSERT_EQ(other->Connect(), S_OK);
  CComPtr<IFunctionCall> second;
  ASSERT_EQ(other->ImportCall(CComBSTR(u"BAPI_FLIGHT_GETLIST"), VARIANT_FALSE, &second), S_OK);
  ASSERT_TRUE(second);
  EXPECT_NE(first.p, second.p);
  CComPtr<IRfcType> a, b;
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"BAPISFLDAT"), &a), S_OK);
  ASSERT_EQ(other->ImportType(CComBSTR(u"BAPISFLDAT"), &b), S_OK);
  EXPECT_EQ(a.p, b.p);
}

}  // namespace
}  // namespace rfctest
