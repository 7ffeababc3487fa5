#include "model_test_support.h"

using namespace model_test;

namespace {

constexpr const char16_t* kCallSource = u"Veltrane.FunctionCall.1";

std::u16string ToXml(IFunctionCall* call) {
  CComBSTR xml;
  EXPECT_EQ(call->ToXML(&xml), S_OK);
  return Str(xml);
}

HRESULT FromXml(IFunctionCall* call, std::u16string_view xml) { return call->FromXML(CComBSTR(xml)); }

CComPtr<IFunctionCall> Read(std::u16string_view xml) {
  CComPtr<IFunctionCall> call = NewCall();
  EXPECT_EQ(FromXml(call, xml), S_OK) << WideToUtf8(xml);
  return call;
}

// The failure of a malformed text: a record of the call with the parser's word.
void ExpectXmlFailure(std::u16string_view xml, const char16_t* word) {
  CComPtr<IFunctionCall> call = NewCall();
  ClearError();
  EXPECT_EQ(FromXml(call, xml), DISP_E_EXCEPTION) << WideToUtf8(xml);
  ErrorRecord r = TakeError();
  EXPECT_TRUE(r.present);
  EXPECT_EQ(r.source, kCallSource);
  EXPECT_EQ(r.description, word) << WideToUtf8(xml);
}

CComPtr<IFunctionCall> ExampleCall() {
  CComPtr<IFunctionCall> call = NewCall(u"Z_TEST");
  CComPtr<IRfcType> row = Struct(u"ROW", {Scalar(u"F", TYPE_CHAR, 10)});
  EXPECT_EQ(Tables(call)->AddTable(CComBSTR(u"ITEMS"), row), S_OK);
  return call;
}

constexpr const char16_t* kExampleXml =
    u"<function name=\"Z_TEST\" doc=\"\">\n"
    u"\t<tables name=\"ITEMS\" description=\"\" default=\"\" optional=\" \">\n"
    u"\t\t<type name=\"ITEMS\" kind=\"table\">\n"
    u"\t\t\t<type name=\"ROW\" kind=\"struct\">\n"
    u"\t\t\t\t<type name=\"F\" kind=\"scalar\" abaptype=\"0\" length=\"10\" decimals=\"0\"/>\n"
    u"\t\t\t</type>\n"
    u"\t\t</type>\n"
    u"\t</tables>\n"
    u"</function>\n"
    u"\n";

CComPtr<IRfcType> TypeOf(IRfcParameters* set, const char16_t* name) {
  CComPtr<IRfcType> t;
  EXPECT_EQ(Param(set, CComVariant(name))->get_RfcType(&t), S_OK);
  return t;
}

CComPtr<IRfcType> MemberOf(IRfcType* t, LONG position) {
  CComPtr<IRfcTypes> members;
  t->get_StructFields(&members);
  CComPtr<IRfcType> m;
  EXPECT_EQ(members->get_Item(CComVariant(position), &m), S_OK);
  return m;
}

LONG Get(IRfcType* t, HRESULT (STDMETHODCALLTYPE IRfcType::*get)(LONG*)) {
  LONG v = 0;
  (t->*get)(&v);
  return v;
}

}  // namespace

TEST(CallXml, TheExampleCallPrintsAsDocumented) { EXPECT_EQ(ToXml(ExampleCall()), kExampleXml); }

TEST(CallXml, ANamedCallWithoutParametersClosesAtOnce) {
  CComPtr<IFunctionCall> call = NewCall(u"Z_EMPTY");
  call->put_Documentation(CComBSTR(u"Nothing"));
  EXPECT_EQ(ToXml(call), u"<function name=\"Z_EMPTY\" doc=\"Nothing\"/>\n\n");
}

TEST(CallXml, StringsNeverSetAreWrittenEmpty) {
  CComPtr<IFunctionCall> call = NewCall();
  Importing(call)->AddScalar(CComBSTR(u"P"), TYPE_INT, 0, 0, Missing());
  EXPECT_EQ(ToXml(call),
            u"<function name=\"\" doc=\"\">\n"
            u"\t<importing name=\"P\" description=\"\" default=\"\" optional=\" \">\n"
            u"\t\t<type name=\"\" kind=\"scalar\" abaptype=\"8\" length=\"0\" decimals=\"0\"/>\n"
            u"\t</importing>\n"
            u"</function>\n\n");
}

TEST(CallXml, ValuesDoNotChangeTheText) {
  CComPtr<IFunctionCall> call = ExampleCall();
  CComPtr<IRfcRows> rows;
  Param(Tables(call), CComVariant(u"ITEMS"))->get_Rows(&rows);
  CComPtr<IRfcFields> row;
  rows->AddRow(&row);
  CComPtr<IRfcField> f;
  row->get_Item(CComVariant(u"F"), &f);
  f->put_value(CComVariant(u"value"));
  EXPECT_EQ(ToXml(call), kExampleXml);
}

TEST(CallXml, TheSetsAreWrittenInTheirOrderWithAttributes) {
  CComPtr<IFunctionCall> call = NewCall(u"Z_ORDER");
  Tables(call)->AddTable(CComBSTR(u"T"), Struct(u"R", {Scalar(u"A", TYPE_DATE, 8)}));
  Changing(call)->AddScalar(CComBSTR(u"C"), TYPE_FLOAT, 8, 16, Missing());
  Exporting(call)->AddScalar(CComBSTR(u"E"), TYPE_STRING, 0, 0, Missing());
  Importing(call)->AddScalar(CComBSTR(u"I"), TYPE_BCD, 7, 2, Missing());
  CComPtr<IRfcParameter> i = Param(Importing(call), CComVariant(u"I"));
  i->put_Optional(VARIANT_TRUE);
  i->put_Description(CComBSTR(u"Amount <EUR> & \"more\" 'x'"));
  i->put_DefaultValue(CComBSTR(u"0"));
  const std::u16string xml = ToXml(call);
  const size_t pi = xml.find(u"<importing"), pe = xml.find(u"<exporting"), pc = xml.find(u"<changing"),
               pt = xml.find(u"<tables");
  ASSERT_NE(pi, std::u16string::npos);
  EXPECT_LT(pi, pe);
  EXPECT_LT(pe, pc);
  EXPECT_LT(pc, pt);
  // A value with a double quote is put in single quotes, as the library prints it.
  EXPECT_NE(xml.find(u"<importing name=\"I\" description='Amount &lt;EUR&gt; &amp; \"more\" &apos;x&apos;' "
                     u"default=\"0\" optional=\"X\">"),
            std::u16string::npos)
      << WideToUtf8(xml);
  // And it reads back as written.
  CComPtr<IFunctionCall> back = Read(xml);
  CComBSTR description;
  Param(Importing(back), CComVariant(u"I"))->get_Description(&description);
  EXPECT_EQ(Str(description), u"Amount <EUR> & \"more\" 'x'");
  EXPECT_EQ(ToXml(back), xml);
}

TEST(CallXml, ARoundTripKeepsTheTypesAndTheLayout) {
  CComPtr<IFunctionCall> call = NewCall(u"Z_LAYOUT");
  call->put_Documentation(CComBSTR(u"Layout \u00fcber alles"));
  CComPtr<IRfcType> st = Struct(u"ST", {});
  st->AddScalarStructField(CComBSTR(u"A"), TYPE_NUM, 6, 0, 0, 0, 12, 6);
  st->AddScalarStructField(CComBSTR(u"B"), TYPE_BCD, 9, 3, 12, 6, 5, 5);
  st->AddScalarStructField(CComBSTR(u"C"), TYPE_CHAR, 3, 0, -1, -1, -1, -1);
  Importing(call)->AddParameter(CComBSTR(u"S"), st);
  const std::u16string xml = ToXml(call);
  EXPECT_NE(xml.find(u"<type name=\"A\" kind=\"scalar\" abaptype=\"6\" length=\"6\" decimals=\"0\" structoffset=\"0\" "
                     u"structoffsetc1=\"0\" structlength=\"12\" structlengthc1=\"6\"/>"),
            std::u16string::npos)
      << WideToUtf8(xml);
  EXPECT_NE(xml.find(u"<type name=\"C\" kind=\"scalar\" abaptype=\"0\" length=\"3\" decimals=\"0\"/>"),
            std::u16string::npos);

  CComPtr<IFunctionCall> back = Read(xml);
  CComBSTR doc;
  back->get_Documentation(&doc);
  EXPECT_EQ(Str(doc), u"Layout \u00fcber alles");
  CComPtr<IRfcType> s = TypeOf(Importing(back), u"S");
  CComPtr<IRfcType> b = MemberOf(s, 2);
  ABAPTYPE type;
  SHORT length, decimals;
  b->get_ScalarType(&type);
  b->get_ScalarLength(&length);
  b->get_ScalarDecimals(&decimals);
  EXPECT_EQ(type, TYPE_BCD);
  EXPECT_EQ(length, 9);
  EXPECT_EQ(decimals, 3);
  EXPECT_EQ(Get(b, &IRfcType::get_StructOffset), 12);
  EXPECT_EQ(Get(b, &IRfcType::get_structOffsetC1), 6);
  EXPECT_EQ(Get(b, &IRfcType::get_StructLength), 5);
  EXPECT_EQ(Get(b, &IRfcType::get_structLengthC1), 5);
  CComPtr<IRfcType> c = MemberOf(s, 3);
  EXPECT_EQ(Get(c, &IRfcType::get_StructOffset), -1);
  EXPECT_EQ(Get(c, &IRfcType::get_structLengthC1), -1);
  // On purpose: a structure reads back with ScalarType -1 instead of 17.
  ABAPTYPE structType;
  s->get_ScalarType(&structType);
  EXPECT_EQ(structType, -1);
  RFCTYPEKIND kind;
  s->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_STRUCT);
  EXPECT_EQ(ToXml(back), xml);
}

TEST(CallXml, TheOrderOfTheSetsInTheDocumentDoesNotMatter) {
  const std::u16string ordered =
      u"<function name=\"Z\" doc=\"\">"
      u"<importing name=\"I1\" optional=\"X\"><type name=\"\" kind=\"scalar\" abaptype=\"8\" length=\"4\" "
      u"decimals=\"0\"/></importing>"
      u"<importing name=\"I2\"><type name=\"\" kind=\"scalar\" abaptype=\"0\" length=\"1\" decimals=\"0\"/></importing>"
      u"<tables name=\"T\"><type name=\"T\" kind=\"table\"><type name=\"R\" kind=\"struct\">"
      u"<type name=\"A\" kind=\"scalar\" abaptype=\"0\" length=\"1\" decimals=\"0\"/></type></type></tables>"
      u"</function>";
  const std::u16string shuffled =
      u"<function name=\"Z\" doc=\"\">"
      u"<tables name=\"T\"><type name=\"T\" kind=\"table\"><type name=\"R\" kind=\"struct\">"
      u"<type name=\"A\" kind=\"scalar\" abaptype=\"0\" length=\"1\" decimals=\"0\"/></type></type></tables>"
      u"<importing name=\"I1\" optional=\"X\"><type name=\"\" kind=\"scalar\" abaptype=\"8\" length=\"4\" "
      u"decimals=\"0\"/></importing>"
      u"<unknown name=\"IGNORED\"/>"
      u"<importing name=\"I2\"><type name=\"\" kind=\"scalar\" abaptype=\"0\" length=\"1\" decimals=\"0\"/></importing>"
      u"</function>";
  EXPECT_EQ(ToXml(Read(ordered)), ToXml(Read(shuffled)));
  CComPtr<IFunctionCall> call = Read(shuffled);
  EXPECT_EQ(CountOf(Importing(call)), 2);
  CComBSTR first;
  Param(Importing(call), CComVariant(LONG(1)))->get_name(&first);
  EXPECT_EQ(Str(first), u"I1");
}

TEST(CallXml, OptionalIsTrueOnlyForX) {
  CComPtr<IFunctionCall> call = Read(
      u"<function name=\"Z\">"
      u"<importing name=\"A\" optional=\"X\"><type kind=\"scalar\"/></importing>"
      u"<importing name=\"B\" optional=\" \"><type kind=\"scalar\"/></importing>"
      u"<importing name=\"C\" optional=\"x\"><type kind=\"scalar\"/></importing>"
      u"<importing name=\"D\"><type kind=\"scalar\"/></importing>"
      u"<importing name=\"E\" optional=\"XX\"><type kind=\"scalar\"/></importing>"
      u"</function>");
  const VARIANT_BOOL expected[] = {VARIANT_TRUE, VARIANT_FALSE, VARIANT_FALSE, VARIANT_FALSE, VARIANT_FALSE};
  for (LONG i = 0; i < 5; ++i) {
    VARIANT_BOOL optional = 1;
    Param(Importing(call), CComVariant(i + 1))->get_Optional(&optional);
    EXPECT_EQ(optional, expected[i]) << i;
  }
}

TEST(CallXml, MissingScalarAttributesReadAsMinusOneAndLengthsAreCutTo16Bits) {
  CComPtr<IFunctionCall> call = Read(
      u"<function name=\"Z\"><importing name=\"P\"><type kind=\"scalar\" length=\"70000\" decimals=\"-2\"/>"
      u"</importing></function>");
  CComPtr<IRfcType> t = TypeOf(Importing(call), u"P");
  ABAPTYPE type;
  SHORT length, decimals;
  t->get_ScalarType(&type);
  t->get_ScalarLength(&length);
  t->get_ScalarDecimals(&decimals);
  EXPECT_EQ(type, -1);
  EXPECT_EQ(length, static_cast<SHORT>(70000));
  EXPECT_EQ(decimals, -2);
  EXPECT_EQ(Get(t, &IRfcType::get_StructOffset), -1);
  CComBSTR doc;
  call->get_Documentation(&doc);
  EXPECT_EQ(Str(doc), u"");  // a missing attribute leaves the field as it is
}

TEST(CallXml, NumbersMustStartWithADigitAndFit32Bits) {
  ExpectXmlFailure(
      u"<function name=\"Z\"><importing name=\"P\"><type kind=\"scalar\" abaptype=\"x1\"/></importing></function>",
      u"invalid stoi argument");
  ExpectXmlFailure(
      u"<function name=\"Z\"><importing name=\"P\"><type kind=\"scalar\" length=\"\"/></importing></function>",
      u"invalid stoi argument");
  ExpectXmlFailure(
      u"<function name=\"Z\"><importing name=\"P\"><type kind=\"scalar\" "
      u"length=\"2147483648\"/></importing></function>",
      u"stoi argument out of range");
  ExpectXmlFailure(
      u"<function name=\"Z\"><importing name=\"P\"><type kind=\"scalar\" "
      u"structoffset=\"-99999999999\"/></importing></function>",
      u"stoi argument out of range");
  // Leading blanks, a sign and trailing text are accepted as the number parser does.
  CComPtr<IFunctionCall> call = Read(
      u"<function name=\"Z\"><importing name=\"P\"><type kind=\"scalar\" abaptype=\" +8abc\" length=\"-2147483648\"/>"
      u"</importing></function>");
  ABAPTYPE type;
  TypeOf(Importing(call), u"P")->get_ScalarType(&type);
  EXPECT_EQ(type, TYPE_INT);
}

TEST(CallXml, FromXmlTwiceFailsBecauseTheFirstSetTheName) {
  CComPtr<IFunctionCall> call = Read(kExampleXml);
  ClearError();
  ExpectModelError(FromXml(call, kExampleXml), 513, u"Veltrane.RfcType.1", u"The object has already been initialized");
  EXPECT_EQ(CountOf(Tables(call)), 1);
}

TEST(CallXml, ACallWithAnEmptyNameCanBeReadTwice) {
  const std::u16string xml =
      u"<function name=\"\" doc=\"\"><importing name=\"P\"><type kind=\"scalar\" "
      u"abaptype=\"0\"/></importing></function>";
  CComPtr<IFunctionCall> call = Read(xml);
  EXPECT_EQ(FromXml(call, xml), S_OK);
  EXPECT_EQ(CountOf(Importing(call)), 2);
}

TEST(CallXml, WithoutAFunctionElementTheResultIsInvalidArgumentWithoutRecord) {
  CComPtr<IFunctionCall> call = NewCall();
  ClearError();
  EXPECT_EQ(FromXml(call, u"<functions name=\"Z\"/>"), E_INVALIDARG);
  EXPECT_FALSE(TakeError().present);
  EXPECT_EQ(FromXml(call, u""), E_INVALIDARG);
  EXPECT_EQ(call->FromXML(nullptr), E_INVALIDARG);
  EXPECT_EQ(FromXml(call, u"<outer><function name=\"Z\"/></outer>"), E_INVALIDARG);
  // Any top-level element counts, not only the first.
  EXPECT_EQ(FromXml(call, u"<?xml version=\"1.0\"?><!-- c --><x/><function name=\"Z\"/>"), S_OK);
  CComBSTR name;
  call->get_Function(&name);
  EXPECT_EQ(Str(name), u"Z");
}

TEST(CallXml, MalformedTextFailsWithTheParsersWords) {
  ExpectXmlFailure(u"hello", u"expected <");
  ExpectXmlFailure(u"x<a/>", u"expected <");
  ExpectXmlFailure(u"<function><b>", u"unexpected end of data");
  ExpectXmlFailure(u"<function", u"expected >");
  ExpectXmlFailure(u"<a =\"x\"/>", u"expected >");
  ExpectXmlFailure(u"<>", u"expected element name");
  ExpectXmlFailure(u"< a/>", u"expected element name");
  ExpectXmlFailure(u"<a b>", u"expected =");
  ExpectXmlFailure(u"<a b=c/>", u"expected ' or \"");
  ExpectXmlFailure(u"<a b=\"x/>", u"expected ' or \"");
  ExpectXmlFailure(u"<function name=\"Z\"><!-- open", u"unexpected end of data");
  ExpectXmlFailure(u"<a>&#1234567890;</a>", u"invalid numeric character entity");
}

TEST(CallXml, TheParserIsLenientWhereItIsLenient) {
  // A mismatched end tag and an unknown entity pass.
  CComPtr<IFunctionCall> call =
      Read(u"<function name=\"Z&bogus;\"><importing name=\"P\"><type kind=\"scalar\"/></other></function>");
  CComBSTR name;
  call->get_Function(&name);
  EXPECT_EQ(Str(name), u"Z&bogus;");
}

TEST(CallXml, AParameterWithoutTypeFailsAndKeepsWhatWasReadBefore) {
  CComPtr<IFunctionCall> call = NewCall();
  ClearError();
  EXPECT_EQ(FromXml(call,
                    u"<function name=\"Z\"><importing name=\"A\"><type kind=\"scalar\"/></importing>"
                    u"<importing name=\"B\"/><importing name=\"C\"><type kind=\"scalar\"/></importing></function>"),
            E_INVALIDARG);
  ErrorRecord r = TakeError();
  EXPECT_TRUE(r.present);
  EXPECT_EQ(r.source, kCallSource);
  EXPECT_EQ(CountOf(Importing(call)), 1);
  CComBSTR name;
  call->get_Function(&name);
  EXPECT_EQ(Str(name), u"Z");
}

TEST(CallXml, ATableWithoutARowOrWithAScalarRowFails) {
  CComPtr<IFunctionCall> call = NewCall();
  EXPECT_EQ(
      FromXml(call, u"<function name=\"Z\"><tables name=\"T\"><type name=\"T\" kind=\"table\"/></tables></function>"),
      E_INVALIDARG);
  CComPtr<IFunctionCall> other = NewCall();
  ExpectModelError(FromXml(other,
                           u"<function name=\"Z\"><tables name=\"T\"><type name=\"T\" kind=\"table\">"
                           u"<type kind=\"scalar\"/></type></tables></function>"),
                   516, u"Veltrane.RfcType.1", u"Object is not a structure");
  EXPECT_EQ(CountOf(Tables(other)), 0);
}

TEST(CallXml, AnUnknownKindLeavesAnUntypedParameterThatWritesBack) {
  CComPtr<IFunctionCall> call =
      Read(u"<function name=\"Z\"><importing name=\"P\"><type name=\"ODD\" kind=\"complex\"/></importing></function>");
  LONG it = -1;
  Param(Importing(call), CComVariant(u"P"))->get_InternalType(&it);
  EXPECT_EQ(it, 0);
  const std::u16string xml = ToXml(call);
  EXPECT_NE(xml.find(u"<type name=\"\"/>"), std::u16string::npos) << WideToUtf8(xml);
  CComPtr<IFunctionCall> undefinedType = NewCall(u"Z");
  Importing(undefinedType)->AddParameter(CComBSTR(u"P"), NewType());
  EXPECT_NE(ToXml(undefinedType).find(u"<type name=\"\"/>"), std::u16string::npos);
}

TEST(CallXml, TextOutsideUtf16IsRefusedWithAText) {
  CComPtr<IFunctionCall> call = NewCall();
  const char16_t lone[] = {u'Z', 0xD800, 0};
  call->put_Function(CComBSTR(lone));
  CComBSTR xml;
  ClearError();
  EXPECT_EQ(call->ToXML(&xml), DISP_E_EXCEPTION);
  EXPECT_TRUE(TakeError().present);
  EXPECT_EQ(call->ToXML(nullptr), E_POINTER);
  CComPtr<IFunctionCall> reader = NewCall();
  std::u16string bad = u"<function name=\"";
  bad += char16_t(0xDC00);
  bad += u"\"/>";
  EXPECT_EQ(FromXml(reader, bad), DISP_E_EXCEPTION);
  EXPECT_EQ(FromXml(reader, u"<function name=\"&#xD800;\"/>"), DISP_E_EXCEPTION);
}

TEST(CallXml, ADeeplyNestedDocumentIsRefused) {
  std::u16string deep = u"<function name=\"Z\"><importing name=\"P\">";
  for (int i = 0; i < 5000; ++i) deep += u"<type kind=\"struct\">";
  CComPtr<IFunctionCall> call = NewCall();
  ClearError();
  EXPECT_EQ(FromXml(call, deep), E_INVALIDARG);
  EXPECT_TRUE(TakeError().present);
  // Nesting that stays within bounds reads.
  std::u16string fine = u"<function name=\"Z\"><importing name=\"P\">";
  for (int i = 0; i < 50; ++i) fine += u"<type kind=\"struct\">";
  fine += u"<type kind=\"scalar\" abaptype=\"0\"/>";
  for (int i = 0; i < 50; ++i) fine += u"</type>";
  fine += u"</importing></function>";
  CComPtr<IFunctionCall> ok = Read(fine);
  EXPECT_EQ(CountOf(Importing(ok)), 1);
}

TEST(CallXml, ARecursiveTypeIsRefusedByToXml) {
  CComPtr<IRfcType> st = Struct(u"LOOP", {Scalar(u"A", TYPE_CHAR, 1)});
  CComPtr<IFunctionCall> call = NewCall(u"Z");
  Importing(call)->AddParameter(CComBSTR(u"P"), st);
  st->AddComplexStructField(st);
  CComBSTR xml;
  EXPECT_EQ(call->ToXML(&xml), E_INVALIDARG);
  CComPtr<IRfcTypes> members;
  st->get_StructFields(&members);
  members->RemoveAll();
}

TEST(CallXml, ALargeCallSurvivesTheRoundTrip) {
  CComPtr<IFunctionCall> call = NewCall(u"Z_LARGE");
  call->put_Documentation(CComBSTR(u"Large & deep"));
  CComPtr<IRfcType> inner = Struct(u"INNER", {Scalar(u"X", TYPE_INT), Scalar(u"Y", TYPE_STRING)});
  CComPtr<IRfcType> row = Struct(
      u"ROW", {Scalar(u"POS", TYPE_NUM, 6), inner.p, Table(u"SUB", Struct(u"SUBROW", {Scalar(u"Z", TYPE_DATE, 8)})).p});
  for (int i = 0; i < 200; ++i) {
    const std::u16string name = u"P" + Utf8ToWide(std::to_string(i));
    CComBSTR bname(name.c_str());
    switch (i % 4) {
      case 0:
        Importing(call)->AddScalar(bname, TYPE_CHAR, static_cast<SHORT>(i), 0, Missing());
        Param(Importing(call), CComVariant(name.c_str()))->put_Optional(VARIANT_TRUE);
        break;
      case 1: Exporting(call)->AddParameter(bname, row); break;
      case 2:
        Changing(call)->AddScalar(bname, TYPE_BCD, 15, static_cast<SHORT>(i % 10), Missing());
        Param(Changing(call), CComVariant(name.c_str()))->put_Description(CComBSTR(u"\u00e4\u00f6\u00fc <&>"));
        break;
      default: Tables(call)->AddTable(bname, row); break;
    }
  }
  const std::u16string xml = ToXml(call);
  CComPtr<IFunctionCall> back = Read(xml);
  EXPECT_EQ(CountOf(Importing(back)), 50);
  EXPECT_EQ(CountOf(Exporting(back)), 50);
  EXPECT_EQ(CountOf(Changing(back)), 50);
  EXPECT_EQ(CountOf(Tables(back)), 50);
  EXPECT_EQ(ToXml(back), xml);
  // The read call is a working call: rows can be built in its tables.
  CComPtr<IRfcRows> rows;
  ASSERT_EQ(Param(Tables(back), CComVariant(u"P3"))->get_Rows(&rows), S_OK);
  CComPtr<IRfcFields> r;
  ASSERT_EQ(rows->AddRow(&r), S_OK);
  LONG n = 0;
  r->get_Count(&n);
  EXPECT_EQ(n, 3);
}
