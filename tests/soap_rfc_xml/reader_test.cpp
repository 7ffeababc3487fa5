// The answer reader: namespace-aware lookup of Envelope, Body and the
// ".Response" element, the value rules, tables, missing elements, faults
// and malformed answers.
#include <gtest/gtest.h>

#include <cmath>

#include "codec_support.h"
#include "model/foreign_type.h"
#include "platform/comdef.h"
#include "runtime/exceptions.h"
#include "platform/unicode.h"
#include "soap/soap_rfc_xml.h"

using namespace codec_test;

namespace {

const std::string kEnvNs = "http://schemas.xmlsoap.org/soap/envelope/";
const std::string kRfcNs = "urn:sap-com:document:sap:rfc:functions";

std::string Answer(const std::string& body) {
  return "<SOAP-ENV:Envelope xmlns:SOAP-ENC=\"http://schemas.xmlsoap.org/soap/encoding/\" xmlns:SOAP-ENV=\"" + kEnvNs +
         "\"><SOAP-ENV:Body>" + body + "</SOAP-ENV:Body></SOAP-ENV:Envelope>";
}

std::string Response(const std::string& function, const std::string& content, const std::string& prefix = "rfc") {
  return "<" + prefix + ":" + function + ".Response xmlns:" + prefix + "=\"" + kRfcNs + "\">" + content + "</" +
         prefix + ":" + function + ".Response>";
}

// A call F with one exporting scalar E of the given type.
CComPtr<IFunctionCall> ScalarCall(ABAPTYPE type, SHORT length = 10) {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  AddScalar(Exporting(call), u"E", type, length, CComVariant());
  return call;
}

CComVariant ReadScalar(ABAPTYPE type, const std::string& text) {
  CComPtr<IFunctionCall> call = ScalarCall(type);
  SoapRfcXML::ParseResponse(Answer(Response("F", "<E>" + text + "</E>")), call);
  return Value(Exporting(call), u"E");
}

// The text of the SOAP_ERROR that parsing body for call raises.
std::u16string SoapErrorOf(const std::string& body, IFunctionCall* call) {
  try {
    SoapRfcXML::ParseResponse(body, call);
  } catch (const CXSoapErrorResponse& e) {
    return u"fault: " + e.FaultText();
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::SOAP_ERROR);
    return e.Message();
  }
  return u"no exception";
}

// --------------------------------------------------------------- namespaces

TEST(SoapReaderNamespaces, PrefixesOfTheServer) {
  CComPtr<IFunctionCall> call = ScalarCall(TYPE_CHAR);
  SoapRfcXML::ParseResponse(Answer(Response("F", "<E>v</E>")), call);
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E")), u"v");
}

TEST(SoapReaderNamespaces, AnyPrefixes) {
  CComPtr<IFunctionCall> call = ScalarCall(TYPE_CHAR);
  std::string text = "<soap:Envelope xmlns:soap=\"" + kEnvNs + "\"><soap:Body>" + Response("F", "<E>w</E>", "n1") +
                     "</soap:Body></soap:Envelope>";
  SoapRfcXML::ParseResponse(text, call);
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E")), u"w");
}

TEST(SoapReaderNamespaces, DefaultNamespaces) {
  CComPtr<IFunctionCall> call = ScalarCall(TYPE_CHAR);
  std::string text = "<Envelope xmlns=\"" + kEnvNs + "\"><Body><F.Response xmlns=\"" + kRfcNs +
                     "\"><E>d</E></F.Response></Body></Envelope>";
  SoapRfcXML::ParseResponse(text, call);
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E")), u"d");
}

TEST(SoapReaderNamespaces, PrefixDeclaredOnTheEnvelope) {
  CComPtr<IFunctionCall> call = ScalarCall(TYPE_CHAR);
  std::string text = "<e:Envelope xmlns:e=\"" + kEnvNs + "\" xmlns:r=\"" + kRfcNs +
                     "\"><e:Body><r:F.Response><E>env</E></r:F.Response></e:Body></e:Envelope>";
  SoapRfcXML::ParseResponse(text, call);
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E")), u"env");
}

TEST(SoapReaderNamespaces, InnerDeclarationShadowsOuter) {
  CComPtr<IFunctionCall> call = ScalarCall(TYPE_CHAR);
  // p is the envelope namespace outside and the RFC namespace on the
  // response element itself.
  std::string text = "<p:Envelope xmlns:p=\"" + kEnvNs + "\"><p:Body><p:F.Response xmlns:p=\"" + kRfcNs +
                     "\"><E>shadow</E></p:F.Response></p:Body></p:Envelope>";
  SoapRfcXML::ParseResponse(text, call);
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E")), u"shadow");
}

TEST(SoapReaderNamespaces, ResponseInAnotherNamespaceIsNotFound) {
  std::string text = Answer("<rfc:F.Response xmlns:rfc=\"urn:vsim:not-the-rfc-namespace\"><E>x</E></rfc:F.Response>");
  EXPECT_EQ(SoapErrorOf(text, ScalarCall(TYPE_CHAR)), u"Invalid Response: Function Result not found");
}

TEST(SoapReaderNamespaces, UndeclaredPrefixIsNotFound) {
  std::string text = Answer("<rfc:F.Response><E>x</E></rfc:F.Response>");
  EXPECT_EQ(SoapErrorOf(text, ScalarCall(TYPE_CHAR)), u"Invalid Response: Function Result not found");
  // Without prefix and without default namespace it is in no namespace.
  text = Answer("<F.Response><E>x</E></F.Response>");
  EXPECT_EQ(SoapErrorOf(text, ScalarCall(TYPE_CHAR)), u"Invalid Response: Function Result not found");
}

TEST(SoapReaderNamespaces, EnvelopeOfAnotherSoapVersion) {
  std::string text = "<env:Envelope xmlns:env=\"http://www.w3.org/2003/05/soap-envelope\"><env:Body>" +
                     Response("F", "<E>x</E>") + "</env:Body></env:Envelope>";
  EXPECT_EQ(SoapErrorOf(text, ScalarCall(TYPE_CHAR)), u"Invalid Response: Envelope not found");
}

TEST(SoapReaderNamespaces, BodyInAnotherNamespace) {
  std::string text = "<S:Envelope xmlns:S=\"" + kEnvNs + "\" xmlns:X=\"urn:other\"><X:Body>" +
                     Response("F", "<E>x</E>") + "</X:Body></S:Envelope>";
  EXPECT_EQ(SoapErrorOf(text, ScalarCall(TYPE_CHAR)), u"Invalid Response: Body not found");
  EXPECT_EQ(SoapErrorOf("<S:Envelope xmlns:S=\"" + kEnvNs + "\"/>", ScalarCall(TYPE_CHAR)),
            u"Invalid Response: Body not found");
}

TEST(SoapReaderNamespaces, ByteOrderMarkAndDeclaration) {
  CComPtr<IFunctionCall> call = ScalarCall(TYPE_CHAR);
  SoapRfcXML::ParseResponse(
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + Answer(Response("F", "<E>b</E>")), call);
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E")), u"b");
}

TEST(SoapReaderNamespaces, ResponseNameIsTheRawFunctionName) {
  CComPtr<IFunctionCall> call = NewCall(u"/ABC/F");
  AddScalar(Exporting(call), u"E", TYPE_CHAR, 3, CComVariant());
  // No mapping of the slash: the mapped name of the server is another
  // element, and the raw name is no XML name.
  EXPECT_EQ(SoapErrorOf(Answer(Response("_-ABC_-F", "<E>x</E>")), call),
            u"Invalid Response: Function Result not found");
}

TEST(SoapReaderNamespaces, ParametersByQualifiedNameOnly) {
  // A prefixed parameter element is another name.
  std::string text = Answer("<rfc:F.Response xmlns:rfc=\"" + kRfcNs + "\"><rfc:E>x</rfc:E></rfc:F.Response>");
  EXPECT_EQ(SoapErrorOf(text, ScalarCall(TYPE_CHAR)),
            u"Invalid Response: element E of EXPORTING parameter E not found");
}

TEST(SoapReaderNamespaces, OnlyTheFirstChildOfANameCounts) {
  CComPtr<IFunctionCall> call = ScalarCall(TYPE_CHAR);
  SoapRfcXML::ParseResponse(Answer(Response("F", "<E>first</E><E>second</E>")), call);
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E")), u"first");
}

// ------------------------------------------------------------- value rules

double DateOf(int y, int m, int d) {
  SYSTEMTIME st{};
  st.wYear = WORD(y);
  st.wMonth = WORD(m);
  st.wDay = WORD(d);
  double v = 0;
  EXPECT_TRUE(SystemTimeToVariantTime(&st, &v));
  return v;
}

TEST(SoapReaderValues, Dates) {
  CComVariant v = ReadScalar(TYPE_DATE, "2024-02-29");
  EXPECT_EQ(v.vt, VT_DATE);
  EXPECT_EQ(v.date, DateOf(2024, 2, 29));
  for (const char* text : {"0000-00-00", "2024-00-10", "2024-02-00", "20240229", "2024-2-29", "2024-13-01",
                           "2024-02-29 ", "", "abcd-ef-gh"})
    EXPECT_EQ(ReadScalar(TYPE_DATE, text).vt, VT_EMPTY) << text;
}

TEST(SoapReaderValues, Times) {
  CComVariant midnight = ReadScalar(TYPE_TIME, "00:00:00");
  EXPECT_EQ(midnight.vt, VT_DATE);
  EXPECT_EQ(midnight.date, 0.0);
  CComVariant v = ReadScalar(TYPE_TIME, "12:34:56");
  EXPECT_EQ(v.vt, VT_DATE);
  EXPECT_NEAR(v.date, (12 * 3600 + 34 * 60 + 56) / 86400.0, 1e-9);
  CComVariant bad = ReadScalar(TYPE_TIME, "99:99:99");
  EXPECT_EQ(bad.vt, VT_BSTR);
  EXPECT_EQ(TextOf(bad), u"99:99:99");
  for (const char* text : {"123456", "12:34", "1:02:03", "", "12:34:56Z"})
    EXPECT_EQ(ReadScalar(TYPE_TIME, text).vt, VT_EMPTY) << text;
}

TEST(SoapReaderValues, Binary) {
  CComVariant v = ReadScalar(TYPE_XSTRING, "q83v");
  EXPECT_EQ(v.vt, VT_ARRAY | VT_UI1);
  EXPECT_EQ(BytesOf(v), (std::vector<uint8_t>{0xAB, 0xCD, 0xEF}));
  LONG lower = -1;
  SafeArrayGetLBound(v.parray, 1, &lower);
  EXPECT_EQ(lower, 0);
  EXPECT_EQ(SafeArrayGetDim(v.parray), 1u);
  // Line breaks, blanks and padding are skipped.
  EXPECT_EQ(BytesOf(ReadScalar(TYPE_BYTE, "q8\r\n3 v\n/w==")), (std::vector<uint8_t>{0xAB, 0xCD, 0xEF, 0xFF}));
  CComVariant empty = ReadScalar(TYPE_BYTE, "");
  EXPECT_EQ(empty.vt, VT_ARRAY | VT_UI1);
  ASSERT_NE(empty.parray, nullptr);
  EXPECT_TRUE(BytesOf(empty).empty());
}

TEST(SoapReaderValues, Floats) {
  struct Case {
    const char* text;
    double value;
  } cases[] = {{"-3.14E2", -314.0}, {"2.5", 2.5}, {"2.5xyz", 2.5},    {"abc", 0.0},
               {"", 0.0},           {" 7", 7.0},  {"1e400", HUGE_VAL}};
  for (const auto& c : cases) {
    CComVariant v = ReadScalar(TYPE_FLOAT, c.text);
    EXPECT_EQ(v.vt, VT_R8) << c.text;
    EXPECT_EQ(v.dblVal, c.value) << c.text;
  }
}

TEST(SoapReaderValues, IntegersArriveAs64Bit) {
  struct Case {
    ABAPTYPE type;
    const char* text;
    LONGLONG value;
  } cases[] = {
      {TYPE_INT, "-7", -7}, {TYPE_INT1, "7", 7}, {TYPE_INT2, "-32768", -32768}, {TYPE_INT, "4294967294", 4294967294LL}};
  for (const auto& c : cases) {
    CComVariant v = ReadScalar(c.type, c.text);
    EXPECT_EQ(v.vt, VT_I8) << c.text;
    EXPECT_EQ(v.llVal, c.value) << c.text;
  }
  for (const char* text : {"abc", "", "1.5.6"}) {
    try {
      ReadScalar(TYPE_INT, text);
      ADD_FAILURE() << "no exception for " << text;
    } catch (const CXVeltrane& e) {
      EXPECT_EQ(e.Kind(), CXVeltrane::NUMERIC_CONVERSION) << text;
    }
  }
}

TEST(SoapReaderValues, TextTypesStayAsTheyAre) {
  EXPECT_EQ(TextOf(ReadScalar(TYPE_CHAR, "  lead and trail  ")), u"  lead and trail  ");
  EXPECT_EQ(TextOf(ReadScalar(TYPE_BCD, "-1.23")), u"-1.23");
  EXPECT_EQ(TextOf(ReadScalar(TYPE_NUM, "000042")), u"000042");
  EXPECT_EQ(TextOf(ReadScalar(TYPE_STRING, "\xc3\xa4\xe2\x82\xac")), u"\u00e4\u20ac");
  EXPECT_EQ(TextOf(ReadScalar(ABAPTYPE(99), "any")), u"any");
  // Named and numeric references are decoded; the short form is empty text.
  EXPECT_EQ(TextOf(ReadScalar(TYPE_CHAR, "a&#38;b&amp;c&#60;&gt;&#39;&quot;")), u"a&b&c<>'\"");
  CComPtr<IFunctionCall> call = ScalarCall(TYPE_CHAR);
  SoapRfcXML::ParseResponse(Answer(Response("F", "<E/>")), call);
  CComVariant v = Value(Exporting(call), u"E");
  EXPECT_EQ(v.vt, VT_BSTR);
  EXPECT_EQ(TextOf(v), u"");
}

TEST(SoapReaderValues, AnElementsTextIsItsFirstRunOfCharacters) {
  // Text split by a comment or a child: the first run counts.
  EXPECT_EQ(TextOf(ReadScalar(TYPE_CHAR, "ab<!-- note -->cd")), u"ab");
  EXPECT_EQ(TextOf(ReadScalar(TYPE_CHAR, "ab<X>inner</X>cd")), u"ab");
  EXPECT_EQ(TextOf(ReadScalar(TYPE_CHAR, "<X>inner</X>cd")), u"cd");
  EXPECT_EQ(TextOf(ReadScalar(TYPE_CHAR, "<!-- note -->cd")), u"cd");
  // An indented answer: blanks between elements are no values.
  CComPtr<IFunctionCall> call = NewCall(u"F");
  Tables(call)->AddTable(CComBSTR(u"T"), Struct(u"ZROW", {{u"ID", TYPE_INT, 0}, {u"NAME", TYPE_CHAR, 10}}));
  SoapRfcXML::ParseResponse(Answer(Response("F",
                                            "\n\t<T>\n\t\t<item>\n\t\t\t<ID>4</ID>\n\t\t\t<NAME> x </NAME>"
                                            "\n\t\t</item>\n\t</T>\n")),
                            call);
  CComPtr<IRfcRows> rows = Rows(Tables(call), u"T");
  ASSERT_EQ(Count(rows), 1);
  CComPtr<IRfcFields> row;
  ASSERT_EQ(rows->get_Item(1, &row), S_OK);
  EXPECT_EQ(MemberValue(row, u"ID").llVal, 4);
  EXPECT_EQ(TextOf(MemberValue(row, u"NAME")), u" x ");
}

TEST(SoapReaderValues, InvalidUtf8IsABadConversion) {
  EXPECT_THROW(ReadScalar(TYPE_CHAR, "\xff\xfe"), std::range_error);
}

TEST(SoapReaderValues, AmpersandRoundTrip) {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  AddScalar(Changing(call), u"C", TYPE_CHAR, 10, CComVariant(u"a&b"));
  std::string request = SoapRfcXML::BuildEnvelope(call);
  EXPECT_NE(request.find("<C>a&amp;b</C>"), std::string::npos);
  SoapRfcXML::ParseResponse(Answer(Response("F", "<C>a&#38;b</C>")), call);
  EXPECT_EQ(TextOf(Value(Changing(call), u"C")), u"a&b");
}

// ---------------------------------------------------------------- structure

CComPtr<IFunctionCall> FullCall() {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  CComPtr<IRfcType> flat = Struct(u"ZFLAT", {{u"ID", TYPE_INT, 0}, {u"NAME", TYPE_CHAR, 10}});
  AddScalar(Importing(call), u"I", TYPE_CHAR, 3, CComVariant(u"in"));
  AddScalar(Exporting(call), u"E1", TYPE_CHAR, 3, CComVariant());
  Exporting(call)->AddParameter(CComBSTR(u"ES"), flat);
  AddScalar(Changing(call), u"C1", TYPE_INT, 0, CComVariant(LONG(1)));
  Tables(call)->AddTable(CComBSTR(u"T"), flat);
  return call;
}

TEST(SoapReaderStructure, AllGroupsAreRead) {
  CComPtr<IFunctionCall> call = FullCall();
  CComPtr<IRfcFields> old = AddRow(Rows(Tables(call), u"T"));
  SetMember(old, u"NAME", CComVariant(u"old"));
  std::string text = Answer(Response(
      "F",
      "<C1>2</C1><E1>one</E1><ES><ID>9</ID><NAME>nine</NAME><EXTRA>ignored</EXTRA></ES>"
      "<T><item><ID>1</ID><NAME>a</NAME></item><row><NAME>b</NAME><ID>2</ID></row><item><ID>3</ID><NAME/></item></T>"));
  SoapRfcXML::ParseResponse(text, call);
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E1")), u"one");
  CComVariant c1 = Value(Changing(call), u"C1");
  EXPECT_EQ(c1.vt, VT_I8);
  EXPECT_EQ(c1.llVal, 2);
  CComPtr<IRfcFields> es = Fields(Exporting(call), u"ES");
  EXPECT_EQ(MemberValue(es, u"ID").llVal, 9);
  EXPECT_EQ(TextOf(MemberValue(es, u"NAME")), u"nine");
  CComPtr<IRfcRows> rows = Rows(Tables(call), u"T");
  ASSERT_EQ(Count(rows), 3);  // the old row is gone; every child is a row
  EXPECT_EQ(MemberValue(Row(rows, 1), u"ID").llVal, 1);
  EXPECT_EQ(TextOf(MemberValue(Row(rows, 2), u"NAME")), u"b");
  EXPECT_EQ(MemberValue(Row(rows, 2), u"ID").llVal, 2);
  EXPECT_EQ(TextOf(MemberValue(Row(rows, 3), u"NAME")), u"");
  // Importing is not read.
  EXPECT_EQ(TextOf(Value(Importing(call), u"I")), u"in");
}

TEST(SoapReaderStructure, EmptyTableElement) {
  CComPtr<IFunctionCall> call = FullCall();
  AddRow(Rows(Tables(call), u"T"));
  SoapRfcXML::ParseResponse(Answer(Response("F", "<E1/><ES><ID>0</ID><NAME/></ES><C1>0</C1><T></T>")), call);
  EXPECT_EQ(Count(Rows(Tables(call), u"T")), 0);
}

TEST(SoapReaderStructure, MissingParameterNamesIt) {
  CComPtr<IFunctionCall> call = FullCall();
  std::string text = Answer(Response("F", "<E1>one</E1><ES><ID>1</ID><NAME/></ES><T/>"));
  EXPECT_EQ(SoapErrorOf(text, call), u"Invalid Response: element C1 of CHANGING parameter C1 not found");
  // What was read before the failure keeps its value.
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E1")), u"one");
}

TEST(SoapReaderStructure, MissingStructFieldNamesIt) {
  std::string text = Answer(Response("F", "<E1/><ES><ID>1</ID></ES><C1>1</C1><T/>"));
  EXPECT_EQ(SoapErrorOf(text, FullCall()), u"Invalid Response: element ES-NAME of EXPORTING parameter ES not found");
}

TEST(SoapReaderStructure, MissingRowFieldNamesIt) {
  std::string text = Answer(Response(
      "F", "<E1/><ES><ID>1</ID><NAME/></ES><C1>1</C1><T><item><ID>1</ID><NAME/></item><item><ID>2</ID></item></T>"));
  EXPECT_EQ(SoapErrorOf(text, FullCall()), u"Invalid Response: element T[2]-NAME of TABLES parameter T not found");
}

TEST(SoapReaderStructure, AMissingRowFieldLeavesTheRowsUpToIt) {
  CComPtr<IFunctionCall> call = FullCall();
  std::string rows;
  for (int i = 1; i <= 1200; ++i)
    rows += i == 1100 ? "<item><ID>1100</ID></item>" : "<item><ID>" + std::to_string(i) + "</ID><NAME>n</NAME></item>";
  std::string text = Answer(Response("F", "<E1/><ES><ID>1</ID><NAME/></ES><C1>1</C1><T>" + rows + "</T>"));
  EXPECT_EQ(SoapErrorOf(text, call), u"Invalid Response: element T[1100]-NAME of TABLES parameter T not found");
  CComPtr<IRfcRows> table = Rows(Tables(call), u"T");
  EXPECT_EQ(Count(table), 1100);
  EXPECT_EQ(MemberValue(Row(table, 1099), u"ID").llVal, 1099);
  EXPECT_EQ(MemberValue(Row(table, 1100), u"ID").llVal, 1100);
  EXPECT_EQ(MemberValue(Row(table, 1100), u"NAME").vt, VT_EMPTY);
}

TEST(SoapReaderStructure, ALongTableIsReadWhole) {
  CComPtr<IFunctionCall> call = FullCall();
  std::string rows;
  for (int i = 1; i <= 3000; ++i)
    rows += "<item><NAME>n" + std::to_string(i) + "</NAME><ID>" + std::to_string(i) + "</ID></item>";
  SoapRfcXML::ParseResponse(Answer(Response("F", "<E1/><ES><ID>1</ID><NAME/></ES><C1>1</C1><T>" + rows + "</T>")),
                            call);
  CComPtr<IRfcRows> table = Rows(Tables(call), u"T");
  ASSERT_EQ(Count(table), 3000);
  for (LONG i : {1, 512, 513, 2999, 3000}) {
    EXPECT_EQ(MemberValue(Row(table, i), u"ID").llVal, i);
    EXPECT_EQ(TextOf(MemberValue(Row(table, i), u"NAME")), Utf8ToWide("n" + std::to_string(i)));
  }
}

TEST(SoapReaderStructure, RowsOfAForeignMemberTypeAreRead) {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  CComPtr<IRfcType> row = Struct(u"ZROW", {{u"ID", TYPE_INT, 0}});
  CComPtr<IRfcType> name;
  ASSERT_EQ(CreateRfcType(&name), S_OK);
  ASSERT_EQ(name->DefineScalar(CComBSTR(u"NAME"), TYPE_CHAR, 10, 0, -1), S_OK);
  ASSERT_EQ(row->AddComplexStructField(model_test::CForeignType::Wrap(name)), S_OK);
  Tables(call)->AddTable(CComBSTR(u"T"), row);
  SoapRfcXML::ParseResponse(
      Answer(Response("F", "<T><item><ID>1</ID><NAME>a</NAME></item><item><ID>2</ID><NAME>b</NAME></item></T>")), call);
  CComPtr<IRfcRows> table = Rows(Tables(call), u"T");
  ASSERT_EQ(Count(table), 2);
  EXPECT_EQ(MemberValue(Row(table, 2), u"ID").llVal, 2);
  EXPECT_EQ(TextOf(MemberValue(Row(table, 2), u"NAME")), u"b");
}

TEST(SoapReaderStructure, MissingTableNamesIt) {
  std::string text = Answer(Response("F", "<E1/><ES><ID>1</ID><NAME/></ES><C1>1</C1>"));
  EXPECT_EQ(SoapErrorOf(text, FullCall()), u"Invalid Response: element T of TABLES parameter T not found");
}

TEST(SoapReaderStructure, ComplexParameterReadsNothing) {
  CComPtr<IFunctionCall> call = NewCall(u"F");
  CComPtr<IRfcType> complex =
      model_test::CForeignType::Wrap(Struct(u"DEEP", {{u"X", TYPE_CHAR, 1}}), RFCTYPEKIND_COMPLEX_STRUCT);
  ASSERT_EQ(Exporting(call)->AddParameter(CComBSTR(u"DEEP"), complex), S_OK);
  AddScalar(Exporting(call), u"E", TYPE_CHAR, 1, CComVariant());
  SoapRfcXML::ParseResponse(Answer(Response("F", "<E>e</E>")), call);
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E")), u"e");
  // Even with an element of its name nothing is read.
  SoapRfcXML::ParseResponse(Answer(Response("F", "<DEEP><X>x</X></DEEP><E>e</E>")), call);
}

TEST(SoapReaderStructure, NullCallIsAnInvalidPointer) {
  try {
    SoapRfcXML::ParseResponse(Answer(Response("F", "")), nullptr);
    FAIL();
  } catch (const _com_error& e) {
    EXPECT_EQ(e.Error(), E_POINTER);
  }
}

// ------------------------------------------------------------------ faults

std::string Fault(const std::string& detail, const std::string& code = "SOAP-ENV:Client",
                  const std::string& text = "NOT_FOUND") {
  return Answer("<SOAP-ENV:Fault><faultcode>" + code + "</faultcode><faultstring>" + text + "</faultstring>" + detail +
                "</SOAP-ENV:Fault>");
}

std::string Exception(const std::string& content, const std::string& function = "F", const std::string& ns = kRfcNs) {
  return "<detail><rfc:" + function + ".Exception xmlns:rfc=\"" + ns + "\">" + content + "</rfc:" + function +
         ".Exception></detail>";
}

CXSoapErrorResponse FaultOf(const std::string& text, const char16_t* function = u"F") {
  try {
    SoapRfcXML::ParseResponse(text, ScalarCall(TYPE_CHAR));
  } catch (const CXSoapErrorResponse& e) {
    return e;
  }
  ADD_FAILURE() << "no fault";
  return CXSoapErrorResponse(0, u"", u"", u"");
}

TEST(SoapReaderFaults, ExceptionWithMessage) {
  CXSoapErrorResponse e = FaultOf(Fault(Exception(
      "<Name>NOT_FOUND</Name><Text>Car 9 not found</Text><Message><ID>ZCAR</ID><Type>E</Type><Number>001</Number>"
      "</Message><Attributes><V1>9</V1></Attributes>")));
  EXPECT_EQ(e.Group(), RFCERROR_APPLICATION_EXCEPTION);
  EXPECT_EQ(e.FaultCode(), u"SOAP-ENV:Client");
  EXPECT_EQ(e.FaultText(), u"NOT_FOUND");
  EXPECT_EQ(e.Detail(), u"ID:ZCAR Type: E Number:001 Car 9 not found");
  EXPECT_EQ(e.Kind(), CXVeltrane::SOAP_ERROR);
}

TEST(SoapReaderFaults, ExceptionWithoutMessage) {
  CXSoapErrorResponse e = FaultOf(Fault(Exception("<Name>NOT_FOUND</Name><Text>NOT_FOUND</Text>")));
  EXPECT_EQ(e.Group(), RFCERROR_APPLICATION_EXCEPTION);
  EXPECT_EQ(e.Detail(), u"NOT_FOUND");
  CXSoapErrorResponse bare = FaultOf(Fault(Exception("<Name>NOT_FOUND</Name>")));
  EXPECT_EQ(bare.Group(), RFCERROR_APPLICATION_EXCEPTION);
  EXPECT_EQ(bare.Detail(), u"");
}

TEST(SoapReaderFaults, TextInsideMessageOnlyGivesEmptyFourthPart) {
  CXSoapErrorResponse e =
      FaultOf(Fault(Exception("<Message><ID>M</ID><Type>W</Type><Number>7</Number><Text>inside</Text></Message>")));
  EXPECT_EQ(e.Detail(), u"ID:M Type: W Number:7 ");
  CXSoapErrorResponse partial = FaultOf(Fault(Exception("<Message><Number>7</Number></Message>")));
  EXPECT_EQ(partial.Detail(), u"ID: Type:  Number:7 ");
}

TEST(SoapReaderFaults, ExceptionOfAnotherFunctionOrNamespaceIsAPlainFault) {
  CXSoapErrorResponse other = FaultOf(Fault(Exception("<Text>t</Text>", "G")));
  EXPECT_EQ(other.Group(), RFCERROR_COMMUNICATION);
  CXSoapErrorResponse ns = FaultOf(Fault(Exception("<Text>t</Text>", "F", "urn:sap-com:document:sap:soap:functions")));
  EXPECT_EQ(ns.Group(), RFCERROR_COMMUNICATION);
}

TEST(SoapReaderFaults, PlainDetail) {
  CXSoapErrorResponse e = FaultOf(Fault("<detail>Function module \"F\" not found</detail>", "SOAP-ENV:Server",
                                        "FU_NOT_FOUND: Function module \"F\" not found"));
  EXPECT_EQ(e.Group(), RFCERROR_COMMUNICATION);
  EXPECT_EQ(e.FaultCode(), u"SOAP-ENV:Server");
  EXPECT_EQ(e.FaultText(), u"FU_NOT_FOUND: Function module \"F\" not found");
  EXPECT_EQ(e.Detail(), u"Function module \"F\" not found");
}

TEST(SoapReaderFaults, ErrorElementAndNoDetail) {
  CXSoapErrorResponse e = FaultOf(Fault(
      "<detail><rfc:Error xmlns:rfc=\"urn:sap-com:document:sap:soap:functions\"><type>X</type><message>m</message>"
      "</rfc:Error></detail>"));
  EXPECT_EQ(e.Group(), RFCERROR_COMMUNICATION);
  EXPECT_EQ(e.Detail(), u"");
  CXSoapErrorResponse none = FaultOf(Fault(""));
  EXPECT_EQ(none.Group(), RFCERROR_COMMUNICATION);
  EXPECT_EQ(none.Detail(), u"");
  CXSoapErrorResponse empty = FaultOf(Answer("<SOAP-ENV:Fault/>"));
  EXPECT_EQ(empty.FaultCode(), u"");
  EXPECT_EQ(empty.FaultText(), u"");
}

TEST(SoapReaderFaults, ResponseWinsOverFault) {
  CComPtr<IFunctionCall> call = ScalarCall(TYPE_CHAR);
  SoapRfcXML::ParseResponse(
      Answer("<SOAP-ENV:Fault><faultstring>x</faultstring></SOAP-ENV:Fault>" + Response("F", "<E>ok</E>")), call);
  EXPECT_EQ(TextOf(Value(Exporting(call), u"E")), u"ok");
}

TEST(SoapReaderFaults, FaultInAnotherNamespaceIsNoFault) {
  EXPECT_EQ(SoapErrorOf(Answer("<Fault><faultstring>x</faultstring></Fault>"), ScalarCall(TYPE_CHAR)),
            u"Invalid Response: Function Result not found");
  EXPECT_EQ(SoapErrorOf(Answer(""), ScalarCall(TYPE_CHAR)), u"Invalid Response: Function Result not found");
}

TEST(SoapReaderFaults, FaultTextIsTheExceptionsText) {
  CXSoapErrorResponse e = FaultOf(Fault("<detail>d</detail>", "c", "s"));
  EXPECT_EQ(std::string(e.what()), "CXSoapErrorResponse: c s d");
}

// ------------------------------------------------------------------ malformed

TEST(SoapReaderMalformed, ParserMessages) {
  struct Case {
    std::string text;
    std::u16string expected;
  } cases[] = {
      {"hello", u"Error parsing response: expected <"},
      {"<a><b>", u"Error parsing response: unexpected end of data"},
      {"<a", u"Error parsing response: expected >"},
      {"<>", u"Error parsing response: expected element name"},
      {"<html><body><h1>Logon failed</h1></body></html>", u"Invalid Response: Envelope not found"},
      {"", u"Invalid Response: Envelope not found"},
  };
  for (const auto& c : cases) EXPECT_EQ(SoapErrorOf(c.text, ScalarCall(TYPE_CHAR)), c.expected) << c.text;
}

TEST(SoapReaderMalformed, CutAnswer) {
  std::string full = Answer(Response("F", "<E>value</E>"));
  std::u16string message = SoapErrorOf(full.substr(0, full.size() / 2) + "\x01garbage<", ScalarCall(TYPE_CHAR));
  EXPECT_EQ(message.rfind(u"Error parsing response: ", 0), 0u) << std::string(message.begin(), message.end());
}

TEST(SoapReaderMalformed, DeepNestingIsRefusedBeforeParsing) {
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<a>";
  EXPECT_EQ(SoapErrorOf(deep, ScalarCall(TYPE_CHAR)), u"Error parsing response: document nested too deeply");
}

TEST(SoapReaderMalformed, EmbeddedZeroEndsTheText) {
  std::string text = Answer(Response("F", "<E>x</E>"));
  text.insert(10, 1, '\0');
  std::u16string message = SoapErrorOf(text, ScalarCall(TYPE_CHAR));
  EXPECT_EQ(message.rfind(u"Error parsing response: ", 0), 0u);
}

}  // namespace

TEST(SoapReaderStructure, ARowMemberIsTheFirstElementOfItsNameWhereverItStands) {
  CComPtr<IFunctionCall> call = FullCall();
  SoapRfcXML::ParseResponse(Answer(Response("F",
                                            "<E1/><ES><ID>1</ID><NAME/></ES><C1>1</C1><T>"
                                            "<item><ID>1</ID><ID>5</ID><NAME>x</NAME><NAME>y</NAME></item>"
                                            "<item><OTHER/><ID>2</ID><NAME>gr\xc3\xbc\xc3\x9f</NAME></item>"
                                            "<item><NAME>w</NAME><OTHER/><ID>3</ID><ID>4</ID></item></T>")),
                            call);
  CComPtr<IRfcRows> table = Rows(Tables(call), u"T");
  ASSERT_EQ(Count(table), 3);
  EXPECT_EQ(MemberValue(Row(table, 1), u"ID").llVal, 1);
  EXPECT_EQ(TextOf(MemberValue(Row(table, 1), u"NAME")), u"x");
  EXPECT_EQ(MemberValue(Row(table, 2), u"ID").llVal, 2);
  EXPECT_EQ(TextOf(MemberValue(Row(table, 2), u"NAME")), u"gr\u00fc\u00df");
  EXPECT_EQ(MemberValue(Row(table, 3), u"ID").llVal, 3);
  EXPECT_EQ(TextOf(MemberValue(Row(table, 3), u"NAME")), u"w");
}

TEST(SoapReaderStructure, IllFormedTextInARowLeavesTheRowsUpToIt) {
  CComPtr<IFunctionCall> call = FullCall();
  std::string text = Answer(Response("F",
                                     "<E1/><ES><ID>1</ID><NAME/></ES><C1>1</C1><T>"
                                     "<item><ID>1</ID><NAME>a</NAME></item><item><ID>2</ID><NAME>b\xc3</NAME></item>"
                                     "<item><ID>3</ID><NAME>c</NAME></item></T>"));
  EXPECT_THROW(SoapRfcXML::ParseResponse(text, call), std::exception);
  CComPtr<IRfcRows> table = Rows(Tables(call), u"T");
  ASSERT_EQ(Count(table), 2);
  EXPECT_EQ(TextOf(MemberValue(Row(table, 1), u"NAME")), u"a");
  EXPECT_EQ(MemberValue(Row(table, 2), u"ID").llVal, 2);
  EXPECT_EQ(MemberValue(Row(table, 2), u"NAME").vt, VT_EMPTY);
}
