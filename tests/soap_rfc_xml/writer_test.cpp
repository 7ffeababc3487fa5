// The request writer: the exact bytes of a representative call, the sending
// rule, escaping, and every value rule of the writer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "codec_support.h"
#include "model/foreign_type.h"
#include "model/row_store.h"
#include "platform/comdef.h"
#include "runtime/exceptions.h"
#include "soap/soap_rfc_xml.h"

using namespace codec_test;

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

double DateOf(int y, int m, int d) {
  SYSTEMTIME st{};
  st.wYear = WORD(y);
  st.wMonth = WORD(m);
  st.wDay = WORD(d);
  double v = 0;
  EXPECT_TRUE(SystemTimeToVariantTime(&st, &v));
  return v;
}

std::vector<uint8_t> Sequence(size_t n) {
  std::vector<uint8_t> bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + 3);
  return bytes;
}

// A call with a scalar of every ABAPTYPE, a structure, a table with rows,
// an empty requested table and parameters that are not sent.
CComPtr<IFunctionCall> RepresentativeCall() {
  CComPtr<IFunctionCall> call = NewCall(u"Z_GOLDEN");
  CComPtr<IRfcParameters> imp = Importing(call);
  AddScalar(imp, u"I_CHAR", TYPE_CHAR, 20, CComVariant(u"a&b <c> 'd' \"e\""));
  AddScalar(imp, u"I_DATE", TYPE_DATE, 8, CComVariant(u"20240229"));
  AddScalar(imp, u"I_DATE_VT", TYPE_DATE, 8, CComVariant(DateOf(2023, 12, 31), VT_DATE));
  AddScalar(imp, u"I_TIME", TYPE_TIME, 6, CComVariant(u"12:34:56"));
  AddScalar(imp, u"I_BCD", TYPE_BCD, 15, CComVariant(u"-12.50"), 2);
  AddScalar(imp, u"I_NUM", TYPE_NUM, 6, CComVariant(u"000123"));
  AddScalar(imp, u"I_FLOAT", TYPE_FLOAT, 0, CComVariant(3.25));
  AddScalar(imp, u"I_INT", TYPE_INT, 0, CComVariant(LONG(-2)));
  AddScalar(imp, u"I_INT2", TYPE_INT2, 0, CComVariant(SHORT(7)));
  AddScalar(imp, u"I_INT1", TYPE_INT1, 0, CComVariant(BYTE(200)));
  AddScalar(imp, u"I_STRING", TYPE_STRING, 0, CComVariant(u"line1\r\nline2"));
  AddScalar(imp, u"I_BYTE", TYPE_BYTE, 2, Bytes({0x01, 0xAB}));
  AddScalar(imp, u"I_XSTRING", TYPE_XSTRING, 0, Bytes(Sequence(100)));
  AddScalar(imp, u"I_EMPTY_TEXT", TYPE_CHAR, 10, CComVariant(u""));
  AddScalar(imp, u"I_OPTIONAL", TYPE_CHAR, 10, CComVariant());
  Param(imp, u"I_OPTIONAL")->put_Optional(VARIANT_TRUE);
  Param(imp, u"I_OPTIONAL")->put_IsRequested(VARIANT_FALSE);
  AddScalar(imp, u"I_REQUESTED", TYPE_CHAR, 10, CComVariant());
  CComPtr<IRfcType> flat = Struct(u"ZFLAT", {{u"ID", TYPE_NUM, 4}, {u"NAME", TYPE_CHAR, 10}});
  EXPECT_EQ(imp->AddParameter(CComBSTR(u"IS_FLAT"), flat), S_OK);
  CComPtr<IRfcFields> s = Fields(imp, u"IS_FLAT");
  SetMember(s, u"ID", CComVariant(u"0042"));
  SetMember(s, u"NAME", CComVariant(u"Ann"));
  // Exporting never travels.
  AddScalar(Exporting(call), u"E_RESULT", TYPE_CHAR, 10, CComVariant(u"x"));
  AddScalar(Changing(call), u"C_COUNT", TYPE_INT, 0, CComVariant(LONG(5)));
  CComPtr<IRfcParameters> tab = Tables(call);
  EXPECT_EQ(tab->AddTable(CComBSTR(u"T_ROWS"), flat), S_OK);
  CComPtr<IRfcRows> rows = Rows(tab, u"T_ROWS");
  CComPtr<IRfcFields> r1 = AddRow(rows);
  SetMember(r1, u"ID", CComVariant(u"0001"));
  SetMember(r1, u"NAME", CComVariant(u"one"));
  CComPtr<IRfcFields> r2 = AddRow(rows);
  SetMember(r2, u"ID", CComVariant(u"0002"));
  EXPECT_EQ(tab->AddTable(CComBSTR(u"T_EMPTY"), flat), S_OK);
  EXPECT_EQ(tab->AddTable(CComBSTR(u"T_NOT_WANTED"), flat), S_OK);
  Param(tab, u"T_NOT_WANTED")->put_IsRequested(VARIANT_FALSE);
  return call;
}

TEST(SoapWriter, GoldenRequest) {
  std::string text = SoapRfcXML::BuildEnvelope(RepresentativeCall());
  // VELTRANE_WRITE_GOLDEN=1 rewrites the file after a deliberate change.
  if (std::getenv("VELTRANE_WRITE_GOLDEN"))
    std::ofstream(VELTRANE_TEST_DATA_DIR "/golden_request.xml", std::ios::binary) << text;
  std::string golden = ReadFile(VELTRANE_TEST_DATA_DIR "/golden_request.xml");
  ASSERT_FALSE(golden.empty());
  EXPECT_EQ(text, golden);
}

TEST(SoapWriter, CallWithoutParameters) {
  EXPECT_EQ(SoapRfcXML::BuildEnvelope(NewCall(u"RFC_PING")),
            "<S:Envelope xmlns:S=\"http://schemas.xmlsoap.org/soap/envelope/\" "
            "xmlns:a=\"urn:sap-com:document:sap:rfc:functions\">\n"
            "\t<S:Body>\n\t\t<a:RFC_PING/>\n\t</S:Body>\n</S:Envelope>\n\n");
}

std::string FunctionPart(const std::string& envelope) {
  size_t begin = envelope.find("\t\t<a:");
  size_t end = envelope.find("\t</S:Body>");
  return envelope.substr(begin, end - begin);
}

TEST(SoapWriter, NamespacedNamesGoOutAsTheyAre) {
  CComPtr<IFunctionCall> call = NewCall(u"/ABC/FUNCTION");
  AddScalar(Importing(call), u"/ABC/PARAM", TYPE_CHAR, 3, CComVariant(u"x"));
  EXPECT_EQ(FunctionPart(SoapRfcXML::BuildEnvelope(call)),
            "\t\t<a:/ABC/FUNCTION>\n\t\t\t</ABC/PARAM>x<//ABC/PARAM>\n\t\t</a:/ABC/FUNCTION>\n");
}

TEST(SoapWriter, EmptyOptionalScalarDependsOnIsRequested) {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  AddScalar(Importing(call), u"P", TYPE_CHAR, 3, CComVariant());
  Param(Importing(call), u"P")->put_Optional(VARIANT_TRUE);
  Param(Importing(call), u"P")->put_IsRequested(VARIANT_FALSE);
  EXPECT_EQ(FunctionPart(SoapRfcXML::BuildEnvelope(call)), "\t\t<a:F/>\n");
  Param(Importing(call), u"P")->put_IsRequested(VARIANT_TRUE);
  EXPECT_EQ(FunctionPart(SoapRfcXML::BuildEnvelope(call)), "\t\t<a:F>\n\t\t\t<P/>\n\t\t</a:F>\n");
  // Only VARIANT_TRUE counts as requested.
  Param(Importing(call), u"P")->put_IsRequested(VARIANT_BOOL(1));
  EXPECT_EQ(FunctionPart(SoapRfcXML::BuildEnvelope(call)), "\t\t<a:F/>\n");
}

TEST(SoapWriter, SkipRuleIsTheSameInAllGroups) {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  CComPtr<IRfcType> row = Struct(u"R", {{u"A", TYPE_CHAR, 1}});
  AddScalar(Changing(call), u"C", TYPE_CHAR, 3, CComVariant());
  Param(Changing(call), u"C")->put_IsRequested(VARIANT_FALSE);
  Tables(call)->AddTable(CComBSTR(u"T"), row);
  Param(Tables(call), u"T")->put_IsRequested(VARIANT_FALSE);
  EXPECT_EQ(FunctionPart(SoapRfcXML::BuildEnvelope(call)), "\t\t<a:F/>\n");
  // A value makes it travel whether requested or not.
  CComPtr<IRfcFields> r = AddRow(Rows(Tables(call), u"T"));
  EXPECT_EQ(FunctionPart(SoapRfcXML::BuildEnvelope(call)),
            "\t\t<a:F>\n\t\t\t<T>\n\t\t\t\t<item>\n\t\t\t\t\t<A/>\n\t\t\t\t</item>\n\t\t\t</T>\n\t\t</a:F>\n");
}

TEST(SoapWriter, FieldsInsideStructuresAreNeverSkipped) {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  CComPtr<IRfcType> s = Struct(u"S", {{u"A", TYPE_CHAR, 1}, {u"B", TYPE_CHAR, 1}});
  Importing(call)->AddParameter(CComBSTR(u"S"), s);
  CComPtr<IRfcFields> f = Fields(Importing(call), u"S");
  SetMember(f, u"A", CComVariant());
  SetMember(f, u"B", CComVariant(u"b"));
  EXPECT_EQ(FunctionPart(SoapRfcXML::BuildEnvelope(call)),
            "\t\t<a:F>\n\t\t\t<S>\n\t\t\t\t<A/>\n\t\t\t\t<B>b</B>\n\t\t\t</S>\n\t\t</a:F>\n");
}

TEST(SoapWriter, ComplexParameterWritesNothing) {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  CComPtr<IRfcType> complex =
      model_test::CForeignType::Wrap(Struct(u"DEEP", {{u"X", TYPE_CHAR, 1}}), RFCTYPEKIND_COMPLEX_STRUCT);
  ASSERT_EQ(Importing(call)->AddParameter(CComBSTR(u"DEEP"), complex), S_OK);
  CComPtr<IRfcType> undefined =
      model_test::CForeignType::Wrap(Struct(u"UNDEF", {{u"X", TYPE_CHAR, 1}}), RFCTYPEKIND_UNDEFINED);
  ASSERT_EQ(Changing(call)->AddParameter(CComBSTR(u"UNDEF"), undefined), S_OK);
  AddScalar(Importing(call), u"FLAT", TYPE_CHAR, 1, CComVariant(u"f"));
  EXPECT_EQ(FunctionPart(SoapRfcXML::BuildEnvelope(call)), "\t\t<a:F>\n\t\t\t<FLAT>f</FLAT>\n\t\t</a:F>\n");
}

TEST(SoapWriter, NullCallIsAnInvalidPointer) {
  try {
    SoapRfcXML::BuildEnvelope(nullptr);
    FAIL();
  } catch (const _com_error& e) {
    EXPECT_EQ(e.Error(), E_POINTER);
  }
}

TEST(SoapWriter, InvalidUtf16IsABadConversion) {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  const char16_t lone[] = {u'a', char16_t(0xD800), u'b', 0};
  AddScalar(Importing(call), u"P", TYPE_CHAR, 3, CComVariant(lone));
  EXPECT_THROW(SoapRfcXML::BuildEnvelope(call), std::range_error);
}

// ------------------------------------------------------------- value rules

std::string Out(ABAPTYPE type, const VARIANT& value) { return SoapRfcXML::RfcValueToString(type, value); }

CComVariant Null() {
  CComVariant v;
  v.vt = VT_NULL;
  return v;
}

TEST(SoapWriterValues, EmptyAndErrorGiveEmptyTextForEveryType) {
  for (ABAPTYPE t : {TYPE_CHAR, TYPE_DATE, TYPE_BCD, TYPE_TIME, TYPE_BYTE, TYPE_NUM, TYPE_FLOAT, TYPE_INT, TYPE_INT2,
                     TYPE_INT1, TYPE_STRING, TYPE_XSTRING, ABAPTYPE(99)}) {
    EXPECT_EQ(Out(t, CComVariant()), "") << t;
    EXPECT_EQ(Out(t, CComVariant(LONG(0x80020004), VT_ERROR)), "") << t;
  }
}

TEST(SoapWriterValues, Dates) {
  EXPECT_EQ(Out(TYPE_DATE, Null()), "");
  EXPECT_EQ(Out(TYPE_DATE, CComVariant(LONG(0))), "00000000");
  EXPECT_EQ(Out(TYPE_DATE, CComVariant(u"00000000")), "00000000");
  EXPECT_EQ(Out(TYPE_DATE, CComVariant(u"")), "00000000");
  EXPECT_EQ(Out(TYPE_DATE, CComVariant(u" ")), "00000000");
  EXPECT_EQ(Out(TYPE_DATE, CComVariant(u"20240229")), "20240229");
  EXPECT_EQ(Out(TYPE_DATE, CComVariant(u"20230231")), "20230231");
  EXPECT_EQ(Out(TYPE_DATE, CComVariant(DateOf(2024, 2, 29), VT_DATE)), "20240229");
  EXPECT_EQ(Out(TYPE_DATE, CComVariant(DateOf(150, 1, 2), VT_DATE)), "01500102");
  EXPECT_EQ(Out(TYPE_DATE, CComVariant(SHORT(0))), "18991230");
}

TEST(SoapWriterValues, DateTheConversionRefuses) {
  for (const char16_t* text : {u"20241399", u"not a date"}) {
    try {
      Out(TYPE_DATE, CComVariant(text));
      FAIL() << "no exception";
    } catch (const CXVeltrane& e) {
      EXPECT_EQ(e.Kind(), CXVeltrane::DATE_TIME_CONVERSION);
      EXPECT_EQ(e.Value(), text);
    }
  }
  try {
    Out(TYPE_DATE, CComVariant(1e9, VT_DATE));
    FAIL() << "no exception";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::DATE_TIME_CONVERSION);
    EXPECT_EQ(e.Context(), u"RfcVariantToData(),TYPE_DATE");
  }
}

TEST(SoapWriterValues, Times) {
  EXPECT_EQ(Out(TYPE_TIME, Null()), "");
  EXPECT_EQ(Out(TYPE_TIME, CComVariant(LONG(0))), "000000");
  EXPECT_EQ(Out(TYPE_TIME, CComVariant(u"")), "000000");
  EXPECT_EQ(Out(TYPE_TIME, CComVariant(u"123456")), "123456");
  EXPECT_EQ(Out(TYPE_TIME, CComVariant(u"12:34:56")), "123456");
  EXPECT_EQ(Out(TYPE_TIME, CComVariant(0.75, VT_DATE)), "180000");
  EXPECT_THROW(Out(TYPE_TIME, CComVariant(u"xyz")), CXVeltrane);
}

TEST(SoapWriterValues, ClientValueIsNotChanged) {
  CComVariant v(DateOf(2024, 2, 29));  // VT_R8
  Out(TYPE_DATE, v);
  EXPECT_EQ(v.vt, VT_R8);
  CComVariant t(u"12:34:56");
  Out(TYPE_TIME, t);
  EXPECT_EQ(v.vt, VT_R8);
  EXPECT_EQ(t.vt, VT_BSTR);
  CComVariant i(LONG(-2));
  Out(TYPE_INT, i);
  EXPECT_EQ(i.vt, VT_I4);
}

TEST(SoapWriterValues, Binary) {
  EXPECT_EQ(Out(TYPE_BYTE, Bytes({})), "");
  EXPECT_EQ(Out(TYPE_BYTE, Bytes({0xAB, 0xCD, 0xEF})), "q83v");
  EXPECT_EQ(Out(TYPE_XSTRING, Bytes({0xFF})), "/w==");
  CComVariant nullArray;
  nullArray.vt = VT_ARRAY | VT_UI1;
  nullArray.parray = nullptr;
  EXPECT_EQ(Out(TYPE_XSTRING, nullArray), "");
  std::string two = Out(TYPE_XSTRING, Bytes(Sequence(100)));
  size_t crlf = two.find("\r\n");
  ASSERT_NE(crlf, std::string::npos);
  EXPECT_EQ(crlf, 76u);
  EXPECT_EQ(two.size() - crlf - 2, 60u);
  EXPECT_EQ(two.find("\r\n", crlf + 2), std::string::npos);
  try {
    Out(TYPE_BYTE, CComVariant(3.5));
    FAIL() << "no exception";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::VARIANTARRAY_EXCEPTION);
  }
}

TEST(SoapWriterValues, Floats) {
  EXPECT_EQ(Out(TYPE_FLOAT, CComVariant(3.25)), "3.250000");
  EXPECT_EQ(Out(TYPE_FLOAT, CComVariant(-1e-7)), "-0.000000");
  EXPECT_EQ(Out(TYPE_FLOAT, CComVariant(LONG(12))), "12.000000");
  EXPECT_EQ(Out(TYPE_FLOAT, CComVariant(u"2.5")), "2.500000");
  try {
    Out(TYPE_FLOAT, CComVariant(u"abc"));
    FAIL() << "no exception";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::NUMERIC_CONVERSION);
  }
}

TEST(SoapWriterValues, IntegersAreUnsigned32BitText) {
  EXPECT_EQ(Out(TYPE_INT, CComVariant(LONG(-2))), "4294967294");
  EXPECT_EQ(Out(TYPE_INT, CComVariant(LONG(-1))), "4294967295");
  EXPECT_EQ(Out(TYPE_INT, CComVariant(LONG(123))), "123");
  EXPECT_EQ(Out(TYPE_INT2, CComVariant(SHORT(-1))), "4294967295");
  EXPECT_EQ(Out(TYPE_INT1, CComVariant(BYTE(200))), "200");
  EXPECT_EQ(Out(TYPE_INT, CComVariant(LONGLONG(0x100000005LL))), "5");
  EXPECT_EQ(Out(TYPE_INT, CComVariant(u"42")), "42");
  try {
    Out(TYPE_INT, CComVariant(u"forty-two"));
    FAIL() << "no exception";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::NUMERIC_CONVERSION);
  }
}

TEST(SoapWriterValues, TextTypes) {
  EXPECT_EQ(Out(TYPE_CHAR, CComVariant(u"  padded  ")), "  padded  ");
  EXPECT_EQ(Out(TYPE_BCD, CComVariant(1.5)), "1.5");
  EXPECT_EQ(Out(TYPE_NUM, CComVariant(LONG(7))), "7");
  EXPECT_EQ(Out(TYPE_STRING, CComVariant(u"\u00e4\u20ac")), "\xc3\xa4\xe2\x82\xac");
  EXPECT_EQ(Out(ABAPTYPE(99), CComVariant(u"any")), "any");
  // VT_NULL has no text form.
  try {
    Out(TYPE_CHAR, Null());
    FAIL() << "no exception";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::STRING_CONVERSION);
    EXPECT_EQ(e.Value(), u"{null}");
  }
}

TEST(SoapWriterValues, EscapingInTheDocument) {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  AddScalar(Importing(call), u"P", TYPE_CHAR, 30, CComVariant(u"a&b<>'\"\r\nz"));
  EXPECT_EQ(FunctionPart(SoapRfcXML::BuildEnvelope(call)),
            "\t\t<a:F>\n\t\t\t<P>a&amp;b&lt;&gt;&apos;&quot;\r\nz</P>\n\t\t</a:F>\n");
}

}  // namespace

TEST(SoapWriter, RowsNoClientReachedAreWrittenAsTheirFieldsWouldWriteThem) {
  CComPtr<IFunctionCall> call = NewCall(u"Z_STORED");
  CComPtr<IRfcType> row = Struct(u"ZROW", {{u"NAME", TYPE_CHAR, 10},
                                           {u"DAY", TYPE_DATE, 8},
                                           {u"HOUR", TYPE_TIME, 6},
                                           {u"COUNT", TYPE_INT, 0},
                                           {u"RATE", TYPE_FLOAT, 0},
                                           {u"PRICE", TYPE_BCD, 8},
                                           {u"RAW", TYPE_BYTE, 2}});
  CComPtr<IRfcParameters> tables = Tables(call);
  ASSERT_EQ(tables->AddTable(CComBSTR(u"T"), row), S_OK);
  CComPtr<IRfcRows> rows = Rows(tables, u"T");
  RowStore* store = nullptr;
  size_t first = 0;
  ASSERT_EQ(RfcRowsAppendStored(rows, 3, &store, &first), S_OK);
  store->PutUtf8(first, 0, "a&b <c>");
  auto take = [&](size_t r, size_t c, CComVariant v) {
    VARIANT plain;
    VariantInit(&plain);
    ASSERT_EQ(VariantCopy(&plain, &v), S_OK);
    ASSERT_EQ(store->Take(first + r, c, &plain), S_OK);
  };
  take(0, 1, CComVariant(DateOf(2024, 2, 29), VT_DATE));
  take(0, 2, CComVariant(u"12:34:56"));
  take(0, 3, CComVariant(LONG(-2)));
  take(0, 4, CComVariant(3.25));
  take(0, 5, CComVariant(u"-12.50"));
  take(0, 6, Bytes({0x01, 0xAB}));
  store->PutText(first + 1, 0, u"");
  take(2, 3, CComVariant(LONG(7)));

  const std::string stored = SoapRfcXML::BuildEnvelope(call);
  size_t storeRow = 0;
  for (size_t r = 0; r < 3; ++r) EXPECT_NE(RfcRowsStoredRow(rows, r, &storeRow), nullptr) << r;
  // The same rows made into objects.
  for (LONG r = 1; r <= 3; ++r) Row(rows, r);
  EXPECT_EQ(RfcRowsStoredRow(rows, 0, &storeRow), nullptr);
  EXPECT_EQ(SoapRfcXML::BuildEnvelope(call), stored);
  EXPECT_NE(stored.find("<NAME>a&amp;b &lt;c&gt;</NAME>"), std::string::npos) << stored;
  EXPECT_NE(stored.find("<DAY>20240229</DAY>"), std::string::npos) << stored;
}
