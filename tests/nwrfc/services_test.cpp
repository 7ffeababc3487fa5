// What works on any session works on NWRfcSession unchanged: the table
// reader, the password and Unicode services, and a TypeCache shared with a
// session of another back end.
#include "nwrfc_fixture.h"
#include "platform/unicode.h"

namespace nwtest {
namespace {

class Services : public SessionTest {
 protected:
  CComPtr<ITableReader> Reader(const char16_t* table) {
    CComPtr<ITableReader> reader;
    EXPECT_EQ(m_session->GetTableReader(CComBSTR(table), &reader), S_OK);
    return reader;
  }
};

std::vector<std::string> Column(IRfcRows* rows, const char16_t* field) {
  std::vector<std::string> values;
  LONG count = 0;
  rows->get_Count(&count);
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcFields> row;
    rows->get_Item(i, &row);
    CComPtr<IRfcField> f;
    row->get_Item(CComVariant(field), &f);
    CComVariant v;
    f->get_value(&v);
    v.ChangeType(VT_BSTR);
    values.push_back(Text(v));
  }
  return values;
}

TEST_F(Services, TheTableReaderSelectsFieldsAndRows) {
  CComPtr<ITableReader> reader = Reader(u"SCARR");
  CComPtr<IStringList> fields, query;
  reader->get_Fields(&fields);
  reader->get_Query(&query);
  fields->Add(CComBSTR(u"CARRID"));
  fields->Add(CComBSTR(u"CARRNAME"));
  query->Add(CComBSTR(u"CARRID = 'LH'"));
  ASSERT_EQ(reader->Read(0, 0), S_OK);
  VARIANT_BOOL failed = VARIANT_TRUE;
  reader->get_Error(&failed);
  ASSERT_EQ(failed, VARIANT_FALSE);
  CComPtr<IRfcRows> rows;
  reader->get_Rows(&rows);
  EXPECT_EQ(Column(rows, u"CARRID"), std::vector<std::string>{"LH"});
  EXPECT_EQ(Column(rows, u"CARRNAME"), std::vector<std::string>{"Lufthansa"});
}

TEST_F(Services, TheTableReaderPagesThroughATable) {
  CComPtr<ITableReader> first = Reader(u"SPFLI");
  CComPtr<IStringList> fields;
  first->get_Fields(&fields);
  fields->Add(CComBSTR(u"CONNID"));
  ASSERT_EQ(first->Read(5, 0), S_OK);
  ASSERT_EQ(first->Read(5, 5), S_OK);
  CComPtr<IRfcRows> rows;
  first->get_Rows(&rows);
  LONG count = 0;
  rows->get_Count(&count);
  EXPECT_EQ(count, 5);
}

TEST_F(Services, TheTableReaderReportsTheSystemsRefusal) {
  CComPtr<ITableReader> reader = Reader(u"USR02");
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  VARIANT_BOOL failed = VARIANT_FALSE;
  reader->get_Error(&failed);
  EXPECT_EQ(failed, VARIANT_TRUE);
  CComPtr<IRfcError> info;
  reader->get_ErrorInfo(&info);
  CComBSTR key;
  info->get_ErrorGroupTxt(&key);
  EXPECT_EQ(Text(key), "NOT_AUTHORIZED");
}

TEST_F(Services, TheTableReaderTakesRawStrings) {
  CComPtr<ITableReader> reader = Reader(u"SCARR");
  reader->put_Option(CComBSTR(u"tablereader.rawstrings"), CComBSTR(u"X"));
  CComPtr<IStringList> fields, query;
  reader->get_Fields(&fields);
  reader->get_Query(&query);
  fields->Add(CComBSTR(u"CARRID"));
  fields->Add(CComBSTR(u"CURRCODE"));
  query->Add(CComBSTR(u"CARRID = 'AA'"));
  ASSERT_EQ(reader->Read(0, 0), S_OK);
  CComPtr<IRfcRows> rows;
  reader->get_Rows(&rows);
  // Untrimmed as the line holds it; the line itself comes without its
  // trailing blanks, as every CHAR value over this back end.
  EXPECT_EQ(Column(rows, u"CARRID"), std::vector<std::string>{"AA "});
}

TEST_F(Services, PasswordAndUnicode) {
  VARIANT_BOOL expired = VARIANT_TRUE, unicode = VARIANT_FALSE;
  EXPECT_EQ(m_session->CheckPasswordExpired(&expired), S_OK);
  EXPECT_EQ(expired, VARIANT_FALSE);
  EXPECT_EQ(m_session->CheckUnicodeSupport(&unicode), S_OK);
  EXPECT_EQ(unicode, VARIANT_TRUE);
  CComPtr<IRfcSession> expiredUser = ConnectedSession(u"EXPIRED");
  EXPECT_EQ(expiredUser->CheckPasswordExpired(&expired), S_OK);
  EXPECT_EQ(expired, VARIANT_TRUE);
}

TEST_F(Services, ChangePasswordChangesTheLogon) {
  CComPtr<IRfcSession> changer = ConnectedSession(u"PWCHANGER");
  ASSERT_EQ(changer->ChangePassword(CComBSTR(u"Changed2")), S_OK);
  EXPECT_FALSE(ErrorFlag(changer)) << ErrorOf(changer).message;
  CComPtr<IRfcSession> again = NewSession(u"PWCHANGER", u"Changed2");
  EXPECT_EQ(again->Connect(), S_OK) << ErrorDescription();
  ASSERT_EQ(again->ChangePassword(CComBSTR(u"Welcome1")), S_OK);
  CComPtr<IRfcSession> old = NewSession(u"PWCHANGER", u"Welcome1");
  EXPECT_EQ(old->Connect(), S_OK);
}

// One cache between a SOAP session and an NW session: what one imported,
// the other takes without asking its system.
TEST_F(Services, ASharedTypeCacheServesSessionsOfBothBackEnds) {
  CComPtr<ISession> soap;
  ASSERT_EQ(
      CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISession, reinterpret_cast<void**>(&soap)),
      S_OK);
  CComPtr<ITypeCache> cache;
  ASSERT_EQ(m_session->get_TypeCache(&cache), S_OK);
  ASSERT_EQ(soap->put_TypeCache(cache), S_OK);

  CComPtr<IFunctionCall> imported;
  ASSERT_EQ(m_session->ImportCall(CComBSTR(u"STFC_STRUCTURE"), VARIANT_FALSE, &imported), S_OK);
  CComPtr<IRfcType> type;
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"ZVSIM_FLAT"), &type), S_OK);

  // The SOAP session has no connection: only the cache can answer.
  CComPtr<IFunctionCall> fromCache;
  ASSERT_EQ(soap->ImportCall(CComBSTR(u"STFC_STRUCTURE"), VARIANT_FALSE, &fromCache), S_OK);
  EXPECT_NE(fromCache.p, imported.p);
  CComPtr<IRfcType> sameType;
  ASSERT_EQ(soap->ImportType(CComBSTR(u"ZVSIM_FLAT"), &sameType), S_OK);
  EXPECT_EQ(sameType.p, type.p);
  CComPtr<IRfcType> a, b;
  Parameter(imported, u"Importing", u"IMPORTSTRUCT")->get_RfcType(&a);
  Parameter(fromCache, u"Importing", u"IMPORTSTRUCT")->get_RfcType(&b);
  EXPECT_EQ(a.p, b.p) << "types are shared, calls copied";

  // The other way round: a call the SOAP session's cache holds, the NW
  // session takes from it.
  CComPtr<IFunctionCall> handMade;
  soap->CreateCall(&handMade);
  handMade->put_Function(CComBSTR(u"Z_ONLY_IN_THE_CACHE"));
  ASSERT_EQ(cache->AddFunction(CComBSTR(u"Z_ONLY_IN_THE_CACHE"), handMade), S_OK);
  CComPtr<IFunctionCall> nw;
  EXPECT_EQ(m_session->ImportCall(CComBSTR(u"Z_ONLY_IN_THE_CACHE"), VARIANT_FALSE, &nw), S_OK);
  EXPECT_TRUE(nw);
}

}  // namespace
}  // namespace nwtest
