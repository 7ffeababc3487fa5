#include "model_test_support.h"

using namespace model_test;

namespace {

constexpr const char16_t* kParameterSource = u"Veltrane.RfcParameter.1";

CComPtr<IRfcParameter> LastOf(IRfcParameters* set) { return Param(set, CComVariant(CountOf(set))); }

std::u16string NameOf(IRfcParameter* p) {
  CComBSTR name;
  EXPECT_EQ(p->get_name(&name), S_OK);
  return Str(name);
}

CComPtr<IRfcType> FlatStruct() {
  return Struct(u"ADDR", {Scalar(u"CITY", TYPE_CHAR, 40), Scalar(u"ZIP", TYPE_NUM, 5)});
}

}  // namespace

TEST(FunctionCall, ANewCallHasFourEmptySetsAndNoException) {
  CComPtr<IFunctionCall> call = NewCall();
  EXPECT_EQ(CountOf(Importing(call)), 0);
  EXPECT_EQ(CountOf(Exporting(call)), 0);
  EXPECT_EQ(CountOf(Changing(call)), 0);
  EXPECT_EQ(CountOf(Tables(call)), 0);
  CComBSTR exception(u"x"), message(u"y");
  exception.Empty();
  message.Empty();
  EXPECT_EQ(call->GetException(&exception, &message), S_OK);
  EXPECT_EQ(Str(exception), u"");
  EXPECT_EQ(Str(message), u"");
  CComBSTR function, doc;
  EXPECT_EQ(call->get_Function(&function), S_OK);
  EXPECT_EQ(Str(function), u"");
  EXPECT_EQ(call->get_Documentation(&doc), S_OK);
  EXPECT_EQ(Str(doc), u"");
  // The sets live with the call: always the same objects.
  CComPtr<IRfcParameters> a = Importing(call), b = Importing(call);
  EXPECT_EQ(a.p, b.p);
  EXPECT_NE(Importing(call).p, Exporting(call).p);
  EXPECT_EQ(call->get_Tables(nullptr), E_POINTER);
}

TEST(FunctionCall, FunctionAndDocumentationArePlainFields) {
  CComPtr<IFunctionCall> call = NewCall();
  EXPECT_EQ(call->put_Function(CComBSTR(u"BAPI_MATERIAL_GET_DETAIL")), S_OK);
  EXPECT_EQ(call->put_Documentation(CComBSTR(u"Material details")), S_OK);
  CComBSTR f, d;
  call->get_Function(&f);
  call->get_Documentation(&d);
  EXPECT_EQ(Str(f), u"BAPI_MATERIAL_GET_DETAIL");
  EXPECT_EQ(Str(d), u"Material details");
}

TEST(FunctionCall, RaiseExceptionStoresThePairAndGetExceptionCopiesIt) {
  CComPtr<IFunctionCall> call = NewCall();
  EXPECT_EQ(call->RaiseException(CComBSTR(u"NOT_FOUND"), CComBSTR(u"No such material")), S_OK);
  CComBSTR e, m;
  EXPECT_EQ(call->GetException(&e, &m), S_OK);
  EXPECT_EQ(Str(e), u"NOT_FOUND");
  EXPECT_EQ(Str(m), u"No such material");
  // Reading does not clear the pair.
  CComBSTR e2;
  EXPECT_EQ(call->GetException(&e2, nullptr), S_OK);  // a null Message is skipped
  EXPECT_EQ(Str(e2), u"NOT_FOUND");
  // A null exception pointer fails after Message was written.
  CComBSTR m2;
  EXPECT_EQ(call->GetException(nullptr, &m2), E_POINTER);
  EXPECT_EQ(Str(m2), u"No such material");
  EXPECT_EQ(call->RaiseException(CComBSTR(u"OTHER"), nullptr), S_OK);
  CComBSTR e3, m3;
  call->GetException(&e3, &m3);
  EXPECT_EQ(Str(e3), u"OTHER");
  EXPECT_EQ(Str(m3), u"");
}

TEST(RfcParameter, ANewParameterHasItsInitialValues) {
  CComPtr<IRfcParameters> set = Importing(NewCall());
  set->AddParameter(CComBSTR(u"P"), Scalar(u"S", TYPE_CHAR, 1));
  CComPtr<IRfcParameter> p = LastOf(set);
  VARIANT_BOOL optional = VARIANT_TRUE, requested = VARIANT_FALSE;
  p->get_Optional(&optional);
  p->get_IsRequested(&requested);
  EXPECT_EQ(optional, VARIANT_FALSE);
  EXPECT_EQ(requested, VARIANT_TRUE);
  CComBSTR description, defaultValue;
  EXPECT_EQ(p->get_Description(&description), S_OK);
  EXPECT_EQ(p->get_DefaultValue(&defaultValue), S_OK);
  EXPECT_EQ(Str(description), u"");
  EXPECT_EQ(Str(defaultValue), u"");
  EXPECT_EQ(p->put_Optional(VARIANT_TRUE), S_OK);
  EXPECT_EQ(p->put_IsRequested(VARIANT_FALSE), S_OK);
  EXPECT_EQ(p->put_Description(CComBSTR(u"text")), S_OK);
  EXPECT_EQ(p->put_DefaultValue(CComBSTR(u"'X'")), S_OK);
  p->get_Optional(&optional);
  p->get_IsRequested(&requested);
  EXPECT_EQ(optional, VARIANT_TRUE);
  EXPECT_EQ(requested, VARIANT_FALSE);
  description.Empty();
  defaultValue.Empty();
  p->get_Description(&description);
  p->get_DefaultValue(&defaultValue);
  EXPECT_EQ(Str(description), u"text");
  EXPECT_EQ(Str(defaultValue), u"'X'");
}

TEST(RfcParameter, NameTypeAndValueAreThoseOfTheInternalField) {
  CComPtr<IRfcParameters> set = Importing(NewCall());
  CComPtr<IRfcType> type = Scalar(u"S", TYPE_CHAR, 3);
  set->AddParameter(CComBSTR(u"P"), type);
  CComPtr<IRfcParameter> p = LastOf(set);
  CComPtr<IRfcField> field, again;
  ASSERT_EQ(p->get_InternalField(&field), S_OK);
  ASSERT_EQ(p->get_InternalField(&again), S_OK);
  EXPECT_EQ(field.p, again.p);
  EXPECT_EQ(p->put_value(CComVariant(u"abc")), S_OK);
  CComVariant v;
  field->get_value(&v);
  EXPECT_EQ(Str(v.bstrVal), u"abc");
  field->put_name(CComBSTR(u"RENAMED"));
  EXPECT_EQ(NameOf(p), u"RENAMED");
  CComPtr<IRfcType> t;
  p->get_RfcType(&t);
  EXPECT_EQ(t.p, type.p);
  LONG it = -1;
  EXPECT_EQ(p->get_InternalType(&it), S_OK);
  EXPECT_EQ(it, 1);
  VARIANT_BOOL empty = VARIANT_TRUE;
  EXPECT_EQ(p->get_IsEmpty(&empty), S_OK);
  EXPECT_EQ(empty, VARIANT_FALSE);
}

TEST(RfcParameter, DefineTwiceFailsAndDefineScalarAfterDefineReplacesTheType) {
  CComPtr<IRfcParameters> set = Importing(NewCall());
  set->AddParameter(CComBSTR(u"P"), FlatStruct());
  CComPtr<IRfcParameter> p = LastOf(set);
  ExpectModelError(p->Define(CComBSTR(u"Q"), Scalar(u"S", TYPE_INT)), 513, kParameterSource,
                   u"The object has already been initialized");
  EXPECT_EQ(NameOf(p), u"P");
  EXPECT_EQ(p->DefineScalar(CComBSTR(u"P2"), TYPE_INT, 0, 0, CComVariant(LONG(5))), S_OK);
  EXPECT_EQ(NameOf(p), u"P2");
  CComPtr<IRfcType> t;
  p->get_RfcType(&t);
  RFCTYPEKIND kind;
  t->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_SCALAR);
  CComVariant v;
  p->get_value(&v);
  EXPECT_EQ(v.vt, VT_I4);
  EXPECT_EQ(v.lVal, 5);
}

TEST(RfcParameter, DefineScalarLeavesATypeWithAnEmptyName) {
  CComPtr<IRfcParameters> set = Importing(NewCall());
  ASSERT_EQ(set->AddScalar(CComBSTR(u"QTY"), TYPE_BCD, 7, 3, CComVariant(1.5)), S_OK);
  CComPtr<IRfcParameter> p = Param(set, CComVariant(u"QTY"));
  CComPtr<IRfcType> t;
  p->get_RfcType(&t);
  CComBSTR name(u"not null");
  name.Empty();
  EXPECT_EQ(t->get_name(&name), S_OK);
  EXPECT_EQ(Str(name), u"");
  SHORT length = 0, decimals = 0;
  t->get_ScalarLength(&length);
  t->get_ScalarDecimals(&decimals);
  EXPECT_EQ(length, 7);
  EXPECT_EQ(decimals, 3);
  EXPECT_EQ(NameOf(p), u"QTY");
}

TEST(RfcParameter, AnOmittedValueIsStoredAsTheMissingArgumentMarker) {
  CComPtr<IRfcParameters> set = Importing(NewCall());
  set->AddScalar(CComBSTR(u"P"), TYPE_CHAR, 1, 0, Missing());
  CComVariant v;
  Param(set, CComVariant(u"P"))->get_value(&v);
  EXPECT_EQ(v.vt, VT_ERROR);
  EXPECT_EQ(v.scode, DISP_E_PARAMNOTFOUND);
}

TEST(RfcParameter, AFailedDefineCanBeRepeated) {
  CComPtr<IRfcParameters> set = Importing(NewCall());
  set->AddParameter(CComBSTR(u"P"), NewType());
  CComPtr<IRfcParameter> p = LastOf(set);
  EXPECT_EQ(p->Define(CComBSTR(u"P"), FlatStruct()), S_OK);
  LONG it = 0;
  p->get_InternalType(&it);
  EXPECT_EQ(it, 2);
}

TEST(RfcParameters, AddParameterWithAnUndefinedTypeSucceedsAndLeavesItUntyped) {
  CComPtr<IRfcParameters> set = Importing(NewCall());
  ClearError();
  EXPECT_EQ(set->AddParameter(CComBSTR(u"P"), NewType()), S_OK);
  EXPECT_EQ(CountOf(set), 1);
  CComPtr<IRfcParameter> p = Param(set, CComVariant(u"P"));
  CComPtr<IRfcFields> fields;
  ClearError();
  ExpectModelError(p->get_Fields(&fields), 514, u"Veltrane.RfcField.1", u"The object has not been initialized");
  LONG it = -1;
  p->get_InternalType(&it);
  EXPECT_EQ(it, 0);
  EXPECT_EQ(set->AddParameter(CComBSTR(u"Q"), nullptr), S_OK);
  EXPECT_EQ(CountOf(set), 2);
}

TEST(RfcParameters, AddTableWithARowTypeThatIsNoStructureFailsAndAddsNothing) {
  CComPtr<IRfcParameters> set = Tables(NewCall());
  ExpectModelError(set->AddTable(CComBSTR(u"T"), Scalar(u"S", TYPE_CHAR, 1)), 516, u"Veltrane.RfcType.1",
                   u"Object is not a structure");
  EXPECT_EQ(CountOf(set), 0);
  ClearError();
  EXPECT_EQ(set->AddTable(CComBSTR(u"T"), nullptr), E_INVALIDARG);
  EXPECT_FALSE(TakeError().present);
  EXPECT_EQ(CountOf(set), 0);
}

TEST(RfcParameters, AddTableMakesATableTypeOfTheParametersName) {
  CComPtr<IRfcParameters> set = Tables(NewCall());
  CComPtr<IRfcType> row = FlatStruct();
  ASSERT_EQ(set->AddTable(CComBSTR(u"ITEMS"), row), S_OK);
  CComPtr<IRfcType> table;
  Param(set, CComVariant(u"ITEMS"))->get_RfcType(&table);
  CComBSTR name;
  table->get_name(&name);
  EXPECT_EQ(Str(name), u"ITEMS");
  CComPtr<IRfcType> got;
  table->get_RowType(&got);
  EXPECT_EQ(got.p, row.p);
}

TEST(RfcParameters, RemoveParameterTakesANumericNameAsAPosition) {
  CComPtr<IRfcParameters> set = Importing(NewCall());
  set->AddScalar(CComBSTR(u"A"), TYPE_CHAR, 1, 0, Missing());
  set->AddScalar(CComBSTR(u"1"), TYPE_CHAR, 1, 0, Missing());
  EXPECT_EQ(set->RemoveParameter(CComBSTR(u"1")), S_OK);  // removes A, at position 1
  EXPECT_EQ(CountOf(set), 1);
  EXPECT_EQ(NameOf(LastOf(set)), u"1");
  EXPECT_EQ(set->RemoveParameter(CComBSTR(u"NOPE")), E_INVALIDARG);
  EXPECT_EQ(set->RemoveParameter(CComBSTR(u"3")), E_INVALIDARG);
}

TEST(DeepCopy, TheCopySharesTypesButNotValues) {
  CComPtr<IFunctionCall> call = NewCall(u"Z_COPY");
  call->put_Documentation(CComBSTR(u"short text"));
  CComPtr<IRfcType> addr = FlatStruct();
  Importing(call)->AddScalar(CComBSTR(u"MATNR"), TYPE_CHAR, 18, 0, CComVariant(u"4711"));
  Importing(call)->AddParameter(CComBSTR(u"ADDR"), addr);
  Exporting(call)->AddScalar(CComBSTR(u"RC"), TYPE_INT, 0, 0, Missing());
  Changing(call)->AddParameter(CComBSTR(u"CH"), addr);
  Tables(call)->AddTable(CComBSTR(u"ITEMS"), addr);
  CComPtr<IRfcParameter> matnr = Param(Importing(call), CComVariant(u"MATNR"));
  matnr->put_Optional(VARIANT_TRUE);
  matnr->put_Description(CComBSTR(u"Material"));
  matnr->put_DefaultValue(CComBSTR(u"SPACE"));
  matnr->put_IsRequested(VARIANT_FALSE);
  call->RaiseException(CComBSTR(u"EXC"), CComBSTR(u"msg"));
  CComPtr<IRfcRows> rows;
  Param(Tables(call), CComVariant(u"ITEMS"))->get_Rows(&rows);
  rows->AddRows(3);

  CComPtr<IFunctionCall> copy;
  ASSERT_EQ(DeepCopyCall(call, &copy), S_OK);
  EXPECT_NE(copy.p, call.p);
  CComBSTR f, d;
  copy->get_Function(&f);
  copy->get_Documentation(&d);
  EXPECT_EQ(Str(f), u"Z_COPY");
  EXPECT_EQ(Str(d), u"short text");
  EXPECT_EQ(CountOf(Importing(copy)), 2);
  EXPECT_EQ(CountOf(Exporting(copy)), 1);
  EXPECT_EQ(CountOf(Changing(copy)), 1);
  EXPECT_EQ(CountOf(Tables(copy)), 1);

  CComPtr<IRfcParameter> m2 = Param(Importing(copy), CComVariant(u"MATNR"));
  EXPECT_NE(m2.p, matnr.p);
  CComPtr<IRfcType> t1, t2;
  matnr->get_RfcType(&t1);
  m2->get_RfcType(&t2);
  EXPECT_EQ(t1.p, t2.p);  // the same type object
  VARIANT_BOOL optional = VARIANT_FALSE, requested = VARIANT_FALSE;
  m2->get_Optional(&optional);
  m2->get_IsRequested(&requested);
  EXPECT_EQ(optional, VARIANT_TRUE);
  EXPECT_EQ(requested, VARIANT_TRUE);  // not copied
  CComBSTR description, defaultValue;
  m2->get_Description(&description);
  m2->get_DefaultValue(&defaultValue);
  EXPECT_EQ(Str(description), u"Material");
  EXPECT_EQ(Str(defaultValue), u"SPACE");
  CComVariant v;
  m2->get_value(&v);
  EXPECT_EQ(v.vt, VT_EMPTY);  // no values
  CComBSTR e, m;
  copy->GetException(&e, &m);
  EXPECT_EQ(Str(e), u"");
  EXPECT_EQ(Str(m), u"");
  CComPtr<IRfcRows> copiedRows;
  Param(Tables(copy), CComVariant(u"ITEMS"))->get_Rows(&copiedRows);
  LONG n = -1;
  copiedRows->get_Count(&n);
  EXPECT_EQ(n, 0);

  // A value changed in the copy does not touch the source.
  m2->put_value(CComVariant(u"0815"));
  CComVariant source;
  matnr->get_value(&source);
  EXPECT_EQ(Str(source.bstrVal), u"4711");
  CComPtr<IRfcFields> copiedAddr, sourceAddr;
  Param(Importing(copy), CComVariant(u"ADDR"))->get_Fields(&copiedAddr);
  Param(Importing(call), CComVariant(u"ADDR"))->get_Fields(&sourceAddr);
  EXPECT_NE(copiedAddr.p, sourceAddr.p);
}

TEST(DeepCopy, KeepsOrderDuplicatesUntypedAndNumericNames) {
  CComPtr<IFunctionCall> call = NewCall(u"Z");
  CComPtr<IRfcParameters> imp = Importing(call);
  imp->AddScalar(CComBSTR(u"2"), TYPE_CHAR, 1, 0, Missing());
  imp->AddScalar(CComBSTR(u"A"), TYPE_CHAR, 1, 0, Missing());
  imp->AddScalar(CComBSTR(u"A"), TYPE_INT, 0, 0, Missing());
  imp->AddParameter(CComBSTR(u"U"), NewType());
  Param(imp, CComVariant(LONG(1)))->put_Description(CComBSTR(u"first"));
  CComPtr<IFunctionCall> copy;
  ASSERT_EQ(DeepCopyCall(call, &copy), S_OK);
  CComPtr<IRfcParameters> c = Importing(copy);
  ASSERT_EQ(CountOf(c), 4);
  const char16_t* names[] = {u"2", u"A", u"A", u"U"};
  for (LONG i = 0; i < 4; ++i) EXPECT_EQ(NameOf(Param(c, CComVariant(i + 1))), names[i]);
  CComBSTR d1, d2;
  Param(c, CComVariant(LONG(1)))->get_Description(&d1);
  Param(c, CComVariant(LONG(2)))->get_Description(&d2);
  EXPECT_EQ(Str(d1), u"first");
  EXPECT_EQ(Str(d2), u"");
  LONG it = -1;
  Param(c, CComVariant(LONG(4)))->get_InternalType(&it);
  EXPECT_EQ(it, 0);
  EXPECT_EQ(DeepCopyCall(nullptr, &copy.p), E_POINTER);
  EXPECT_EQ(DeepCopyCall(call, nullptr), E_POINTER);
}

TEST(Prune, AnOptionalScalarLeftEmptyVanishesWithATraceLine) {
  TraceFile trace;
  CComPtr<IFunctionCall> call = NewCall(u"Z_PRUNE");
  CComPtr<IRfcParameters> imp = Importing(call);
  imp->AddScalar(CComBSTR(u"OPT"), TYPE_CHAR, 1, 0, Missing());
  imp->AddScalar(CComBSTR(u"SET"), TYPE_CHAR, 1, 0, CComVariant(u""));
  imp->AddScalar(CComBSTR(u"MANDATORY"), TYPE_CHAR, 1, 0, Missing());
  imp->AddScalar(CComBSTR(u"WITH_DEFAULT"), TYPE_CHAR, 1, 0, Missing());
  imp->AddParameter(CComBSTR(u"STRUCT"), FlatStruct());
  for (const char16_t* n : {u"OPT", u"SET", u"MANDATORY", u"WITH_DEFAULT"}) {
    // Unset means VT_EMPTY: the marker of an omitted argument is a value.
    Param(imp, CComVariant(n))->put_value(CComVariant());
  }
  Param(imp, CComVariant(u"SET"))->put_value(CComVariant(u""));
  Param(imp, CComVariant(u"OPT"))->put_Optional(VARIANT_TRUE);
  Param(imp, CComVariant(u"SET"))->put_Optional(VARIANT_TRUE);
  Param(imp, CComVariant(u"STRUCT"))->put_Optional(VARIANT_TRUE);
  Param(imp, CComVariant(u"WITH_DEFAULT"))->put_DefaultValue(CComBSTR(u"'A'"));
  // Other sets are not touched.
  Exporting(call)->AddScalar(CComBSTR(u"OUT"), TYPE_CHAR, 1, 0, CComVariant());
  Param(Exporting(call), CComVariant(u"OUT"))->put_Optional(VARIANT_TRUE);

  ASSERT_EQ(PruneOptionalParameters(call), S_OK);
  EXPECT_EQ(CountOf(imp), 3);
  VARIANT_BOOL has = VARIANT_FALSE;
  for (const char16_t* kept : {u"SET", u"MANDATORY", u"STRUCT"}) {
    imp->HasKey(CComBSTR(kept), &has);
    EXPECT_EQ(has, VARIANT_TRUE) << WideToUtf8(kept);
  }
  for (const char16_t* gone : {u"OPT", u"WITH_DEFAULT"}) {
    imp->HasKey(CComBSTR(gone), &has);
    EXPECT_EQ(has, VARIANT_FALSE) << WideToUtf8(gone);
  }
  EXPECT_EQ(CountOf(Exporting(call)), 1);
  const std::string text = trace.Text();
  EXPECT_NE(text.find("ignoring optional parameter: OPT\n"), std::string::npos) << text;
  EXPECT_NE(text.find("ignoring optional parameter: WITH_DEFAULT\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("ignoring optional parameter: SET"), std::string::npos);
  EXPECT_EQ(PruneOptionalParameters(nullptr), E_POINTER);
}

TEST(Prune, AnOmittedValueMarkerIsNotEmptyAndStays) {
  CComPtr<IFunctionCall> call = NewCall(u"Z");
  Importing(call)->AddScalar(CComBSTR(u"P"), TYPE_CHAR, 1, 0, Missing());
  Param(Importing(call), CComVariant(u"P"))->put_Optional(VARIANT_TRUE);
  ASSERT_EQ(PruneOptionalParameters(call), S_OK);
  EXPECT_EQ(CountOf(Importing(call)), 1);
}
