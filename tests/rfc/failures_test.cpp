// A classic call that fails before or while it is sent: a value that does not
// convert or a parameter the marshalling cannot carry gives the result of its
// kind and sends nothing; a send the SDK refuses starts no thread.
#include <fstream>
#include <thread>

#include "platform/unicode.h"
#include "rfc_fixture.h"
#include "temp_dir.h"

namespace rfctest {
namespace {

using Failures = SessionTest;

// RFC_PING with one more importing scalar of the given type and value.
CComPtr<IFunctionCall> PingWith(ISession* session, ABAPTYPE type, SHORT length, const CComVariant& value) {
  CComPtr<IFunctionCall> call;
  session->ImportCall(CComBSTR(u"RFC_PING"), VARIANT_FALSE, &call);
  if (!call) return call;
  CComPtr<IRfcType> scalar;
  session->CreateType(&scalar);
  scalar->DefineScalar(CComBSTR(u"ZZ"), type, length, 0, -1);
  CComPtr<IRfcParameters> importing;
  call->get_Importing(&importing);
  importing->AddParameter(CComBSTR(u"ZZ_VALUE"), scalar);
  SetValue(call, u"Importing", u"ZZ_VALUE", value);
  return call;
}

TEST_F(Failures, AValueThatDoesNotConvertGivesTheResultOfItsKindAndSendsNothing) {
  struct Case {
    const char* what;
    ABAPTYPE type;
    SHORT length;
    CComVariant value;
    HRESULT result;
  };
  const Case cases[] = {
      {"INT from a word", TYPE_INT, 0, CComVariant(u"abc"), static_cast<HRESULT>(0x80040213)},
      {"FLOAT from a word", TYPE_FLOAT, 0, CComVariant(u"abc"), static_cast<HRESULT>(0x80040213)},
      {"INT2 out of range", TYPE_INT2, 0, CComVariant(static_cast<int32_t>(40000)), static_cast<HRESULT>(0x80040213)},
      {"DATE from a word", TYPE_DATE, 8, CComVariant(u"not a date"), static_cast<HRESULT>(0x80040215)},
      {"TIME from a word", TYPE_TIME, 6, CComVariant(u"noon"), static_cast<HRESULT>(0x80040215)},
      {"packed number too large", TYPE_BCD, 3, CComVariant(u"12345"), static_cast<HRESULT>(0x80040212)},
      {"packed number of letters", TYPE_BCD, 5, CComVariant(u"1x2"), static_cast<HRESULT>(0x80040212)},
      {"bytes from a number", TYPE_BYTE, 4, CComVariant(1.5), static_cast<HRESULT>(0x80040218)},
  };
  for (const Case& c : cases) {
    CComPtr<IFunctionCall> call = PingWith(m_session, c.type, c.length, c.value);
    ASSERT_TRUE(call) << c.what;
    EXPECT_EQ(m_session->CallFunction(call, VARIANT_TRUE), c.result) << c.what << ": " << ErrorDescription();
    EXPECT_FALSE(ErrorFlag(m_session)) << c.what;
    EXPECT_TRUE(Connected(m_session)) << c.what;
  }
  // Nothing went out: the connection takes the next call as it stands.
  CComPtr<IFunctionCall> ping = Import(u"RFC_PING");
  EXPECT_EQ(m_session->CallFunction(ping, VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
}

TEST_F(Failures, ADeepParameterInImportingReports518) {
  CComPtr<IFunctionCall> call = Import(u"RFC_PING");
  CComPtr<IRfcType> flat, table;
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"ZVSIM_FLAT"), &flat), S_OK);
  ASSERT_EQ(m_session->CreateType(&table), S_OK);
  ASSERT_EQ(table->DefineTable(CComBSTR(u"ZVSIM_FLAT_TT"), flat), S_OK);
  CComPtr<IRfcParameters> importing;
  call->get_Importing(&importing);
  ASSERT_EQ(importing->AddParameter(CComBSTR(u"IT_FLAT"), table), S_OK);
  EXPECT_EQ(m_session->CallFunction(call, VARIANT_TRUE), static_cast<HRESULT>(0x80040206));
  EXPECT_FALSE(ErrorFlag(m_session));
}

TEST_F(Failures, AFileOfAFileModeTableThatCannotBeOpenedReports519) {
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_TYPES", VARIANT_TRUE);
  ASSERT_TRUE(call);
  CComPtr<IRfcRows> rows = Rows(call, u"Tables", u"TT_FLAT");
  CComPtr<IRfcFields> row;
  ASSERT_EQ(rows->AddRow(&row), S_OK);
  CComPtr<IRfcField> raw;
  ASSERT_EQ(row->get_Item(CComVariant(u"RAW"), &raw), S_OK);
  TempDir dir;
  ASSERT_EQ(raw->put_value(CComVariant(Utf8ToWide(dir.file("missing")).c_str())), S_OK);
  // RAW (the fifth field) carries the file, INT (the eighth) its number.
  ASSERT_EQ(rows->SetFileMode(5, 8), S_OK);
  EXPECT_EQ(m_session->CallFunction(call, VARIANT_TRUE), static_cast<HRESULT>(0x80040207));
  EXPECT_NE(ErrorDescription().find("unexpected error"), std::string::npos);
}

TEST_F(Failures, AFileModeTableGoesOutAndIsNotReadBack) {
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_TYPES", VARIANT_TRUE);
  ASSERT_TRUE(call);
  CComPtr<IRfcRows> rows = Rows(call, u"Tables", u"TT_FLAT");
  CComPtr<IRfcFields> row;
  ASSERT_EQ(rows->AddRow(&row), S_OK);
  TempDir dir;
  const std::string file = dir.file("data");
  std::ofstream(file, std::ios::binary) << "0123456789";
  CComPtr<IRfcField> raw;
  ASSERT_EQ(row->get_Item(CComVariant(u"RAW"), &raw), S_OK);
  ASSERT_EQ(raw->put_value(CComVariant(Utf8ToWide(file).c_str())), S_OK);
  ASSERT_EQ(rows->SetFileMode(5, 8), S_OK);
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK) << ErrorDescription();
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
  // The module changed three lines and appended one; the client keeps its source row.
  LONG count = 0;
  rows->get_Count(&count);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(Text(Cell(rows, 1, u"RAW")), Narrow(Utf8ToWide(file)));
}

TEST_F(Failures, AnAsynchronousCallWhoseSendFailsStartsNoThreadAndFiresNothing) {
  AdvisedSink sink(m_session);
  // A CHAR of length 0 has no buffer: the SDK refuses the parameter.
  CComPtr<IFunctionCall> call = PingWith(m_session, TYPE_CHAR, 0, CComVariant());
  ASSERT_TRUE(call);
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
  VARIANT_BOOL active = VARIANT_TRUE;
  m_session->get_CallActive(&active);
  EXPECT_EQ(active, VARIANT_FALSE);
  EXPECT_TRUE(ErrorFlag(m_session));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(sink->Count(), 0);
  CComPtr<IFunctionCall> ping = Import(u"RFC_PING");
  EXPECT_EQ(m_session->CallFunction(ping, VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
}

}  // namespace
}  // namespace rfctest
