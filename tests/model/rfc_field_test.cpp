#include "foreign_type.h"
#include "model_test_support.h"

using namespace model_test;

namespace {

constexpr const char16_t* kFieldSource = u"Veltrane.RfcField.1";

// The internal field of a new parameter: the only way to a field of no type.
CComPtr<IRfcField> NewField() {
  CComPtr<IRfcParameters> set = Importing(NewCall());
  set->AddParameter(CComBSTR(u"P"), nullptr);
  CComPtr<IRfcField> f;
  EXPECT_EQ(Param(set, CComVariant(LONG(1)))->get_InternalField(&f), S_OK);
  return f;
}

CComPtr<IRfcField> FieldOf(IRfcType* type) {
  CComPtr<IRfcField> f = NewField();
  EXPECT_EQ(f->put_RfcType(type), S_OK);
  return f;
}

CComPtr<IRfcFields> FieldsOf(IRfcField* f) {
  CComPtr<IRfcFields> fs;
  EXPECT_EQ(f->get_Fields(&fs), S_OK);
  return fs;
}

CComPtr<IRfcField> Member(IRfcFields* fs, const VARIANT& index) {
  CComPtr<IRfcField> f;
  EXPECT_EQ(fs->get_Item(index, &f), S_OK);
  return f;
}

CComPtr<IRfcRows> RowsOf(IRfcField* f) {
  CComPtr<IRfcRows> r;
  EXPECT_EQ(f->get_Rows(&r), S_OK);
  return r;
}

VARIANT_BOOL IsEmpty(IRfcField* f) {
  VARIANT_BOOL b = 77;
  EXPECT_EQ(f->get_IsEmpty(&b), S_OK);
  return b;
}

LONG InternalType(IRfcField* f) {
  LONG t = -1;
  EXPECT_EQ(f->get_InternalType(&t), S_OK);
  return t;
}

}  // namespace

TEST(RfcField, AFieldWithoutTypeHoldsAnEmptyStringAndRefusesFieldsAndRows) {
  CComPtr<IRfcField> f = NewField();
  CComVariant v;
  EXPECT_EQ(f->get_value(&v), S_OK);
  ASSERT_EQ(v.vt, VT_BSTR);
  EXPECT_NE(v.bstrVal, nullptr);
  EXPECT_EQ(Str(v.bstrVal), u"");
  EXPECT_EQ(InternalType(f), 0);
  CComPtr<IRfcType> t;
  EXPECT_EQ(f->get_RfcType(&t), S_OK);
  EXPECT_FALSE(t);
  CComPtr<IRfcFields> fs;
  ExpectModelError(f->get_Fields(&fs), 514, kFieldSource, u"The object has not been initialized");
  CComPtr<IRfcRows> rows;
  ExpectModelError(f->get_Rows(&rows), 514, kFieldSource, u"The object has not been initialized");
  // No type: success, and the caller's variable keeps what it held.
  VARIANT_BOOL b = 77;
  EXPECT_EQ(f->get_IsEmpty(&b), S_OK);
  EXPECT_EQ(b, 77);
}

TEST(RfcField, NameIsPlainFieldAccess) {
  CComPtr<IRfcField> f = NewField();
  EXPECT_EQ(f->put_name(CComBSTR(u"NEW")), S_OK);
  CComBSTR name;
  EXPECT_EQ(f->get_name(&name), S_OK);
  EXPECT_EQ(Str(name), u"NEW");
  EXPECT_EQ(f->put_name(nullptr), S_OK);
  name.Empty();
  f->get_name(&name);
  EXPECT_EQ(Str(name), u"");
}

TEST(RfcField, AScalarTypeClearsTheValue) {
  CComPtr<IRfcField> f = NewField();
  CComPtr<IRfcType> type = Scalar(u"S", TYPE_CHAR, 10);
  EXPECT_EQ(f->put_RfcType(type), S_OK);
  CComVariant v;
  f->get_value(&v);
  EXPECT_EQ(v.vt, VT_EMPTY);
  EXPECT_EQ(InternalType(f), 1);
  CComPtr<IRfcType> got;
  f->get_RfcType(&got);
  EXPECT_EQ(got.p, type.p);
}

TEST(RfcField, IsEmptyOfAScalar) {
  CComPtr<IRfcField> f = FieldOf(Scalar(u"S", TYPE_CHAR, 10));
  EXPECT_EQ(IsEmpty(f), VARIANT_TRUE);
  EXPECT_EQ(f->put_value(CComVariant(u"")), S_OK);
  EXPECT_EQ(IsEmpty(f), VARIANT_FALSE);
  CComVariant null;
  null.vt = VT_NULL;
  f->put_value(null);
  EXPECT_EQ(IsEmpty(f), VARIANT_TRUE);
  f->put_value(CComVariant(LONG(0)));
  EXPECT_EQ(IsEmpty(f), VARIANT_FALSE);
}

TEST(RfcField, AValueIsKeptAsGivenWithoutChecks) {
  CComPtr<IRfcField> f = FieldOf(Scalar(u"S", TYPE_CHAR, 1));
  EXPECT_EQ(f->put_value(CComVariant(45000.5, VT_DATE)), S_OK);
  CComVariant v;
  f->get_value(&v);
  EXPECT_EQ(v.vt, VT_DATE);
  EXPECT_EQ(v.date, 45000.5);

  CComVariant array;
  array.vt = VT_ARRAY | VT_UI1;
  array.parray = SafeArrayCreateVector(VT_UI1, 0, 3);
  EXPECT_EQ(f->put_value(array), S_OK);
  CComVariant back;
  f->get_value(&back);
  ASSERT_EQ(back.vt, VT_ARRAY | VT_UI1);
  EXPECT_NE(back.parray, array.parray);  // a deep copy
  EXPECT_EQ(back.parray->rgsabound[0].cElements, 3u);
}

TEST(RfcField, AStructureTypeBuildsOneFieldPerMember) {
  CComPtr<IRfcType> inner = Struct(u"INNER", {Scalar(u"X", TYPE_INT)});
  CComPtr<IRfcType> row = Struct(u"ROW", {Scalar(u"Y", TYPE_CHAR, 1)});
  CComPtr<IRfcType> st =
      Struct(u"ST", {Scalar(u"MATNR", TYPE_CHAR, 18), inner.p, Table(u"ITEMS", row).p, Scalar(u"QTY", TYPE_BCD, 7)});
  CComPtr<IRfcField> f = FieldOf(st);
  EXPECT_EQ(InternalType(f), 3);  // a deep structure
  CComPtr<IRfcFields> fs = FieldsOf(f);
  LONG n = 0;
  fs->get_Count(&n);
  ASSERT_EQ(n, 4);
  const char16_t* names[] = {u"MATNR", u"INNER", u"ITEMS", u"QTY"};
  for (LONG i = 0; i < 4; ++i) {
    CComBSTR name;
    Member(fs, CComVariant(i + 1))->get_name(&name);
    EXPECT_EQ(Str(name), names[i]);
  }
  CComPtr<IRfcField> matnr = Member(fs, CComVariant(u"MATNR"));
  CComVariant v;
  matnr->get_value(&v);
  EXPECT_EQ(v.vt, VT_EMPTY);
  // The nested structure has its own fields, the nested table its own empty rows.
  CComPtr<IRfcFields> innerFields = FieldsOf(Member(fs, CComVariant(u"INNER")));
  innerFields->get_Count(&n);
  EXPECT_EQ(n, 1);
  CComPtr<IRfcRows> rows = RowsOf(Member(fs, CComVariant(u"ITEMS")));
  rows->get_Count(&n);
  EXPECT_EQ(n, 0);
  // The member's type is the member type object itself.
  CComPtr<IRfcType> innerType;
  Member(fs, CComVariant(u"INNER"))->get_RfcType(&innerType);
  EXPECT_EQ(innerType.p, inner.p);
}

TEST(RfcField, AStructureWithoutMembersFailsAndTheFieldStaysUntyped) {
  CComPtr<IRfcField> f = NewField();
  ClearError();
  ExpectModelError(f->put_RfcType(Struct(u"EMPTY", {})), 514, kFieldSource, u"The object has not been initialized");
  EXPECT_EQ(InternalType(f), 0);
  CComPtr<IRfcType> t;
  f->get_RfcType(&t);
  EXPECT_FALSE(t);
}

TEST(RfcField, AnEmptyNestedStructureFailsTheWholeShaping) {
  CComPtr<IRfcType> st = Struct(u"ST", {Scalar(u"A", TYPE_CHAR, 1), Struct(u"HOLLOW", {}).p});
  CComPtr<IRfcField> f = NewField();
  ExpectModelError(f->put_RfcType(st), 514, kFieldSource, u"The object has not been initialized");
  EXPECT_EQ(InternalType(f), 0);
}

TEST(RfcField, UndefinedAndComplexKindsAreRefused) {
  CComPtr<IRfcField> f = NewField();
  ExpectModelError(f->put_RfcType(NewType()), 514, kFieldSource, u"The object has not been initialized");
  EXPECT_EQ(f->put_RfcType(nullptr), E_POINTER);
  CComPtr<IRfcType> complex = CForeignType::Wrap(Scalar(u"C", TYPE_CHAR, 1), RFCTYPEKIND_COMPLEX_STRUCT);
  ClearError();
  EXPECT_EQ(f->put_RfcType(complex), E_UNEXPECTED);
  EXPECT_FALSE(TakeError().present);
  EXPECT_EQ(InternalType(f), 0);
}

TEST(RfcField, FieldsAndRowsCheckTheKindOfTheType) {
  CComPtr<IRfcField> scalar = FieldOf(Scalar(u"S", TYPE_CHAR, 1));
  CComPtr<IRfcFields> fs;
  ExpectModelError(scalar->get_Fields(&fs), 516, kFieldSource, u"Object is not a structure");
  CComPtr<IRfcRows> rows;
  ExpectModelError(scalar->get_Rows(&rows), 517, kFieldSource, u"Object is not a table");
  CComPtr<IRfcField> st = FieldOf(Struct(u"ST", {Scalar(u"A", TYPE_CHAR, 1)}));
  ExpectModelError(st->get_Rows(&rows), 517, kFieldSource, u"Object is not a table");
  CComPtr<IRfcField> table = FieldOf(Table(u"T", Struct(u"R", {Scalar(u"A", TYPE_CHAR, 1)})));
  ExpectModelError(table->get_Fields(&fs), 516, kFieldSource, u"Object is not a structure");
  EXPECT_EQ(table->get_Fields(nullptr), E_POINTER);
}

TEST(RfcField, InternalTypeTellsFlatFromDeepStructures) {
  EXPECT_EQ(InternalType(FieldOf(Scalar(u"S", TYPE_STRING))), 1);
  CComPtr<IRfcType> flat =
      Struct(u"FLAT", {Scalar(u"A", TYPE_CHAR, 1), Scalar(u"B", TYPE_INT), Scalar(u"C", TYPE_BCD, 5)});
  EXPECT_EQ(InternalType(FieldOf(flat)), 2);
  EXPECT_EQ(InternalType(FieldOf(Struct(u"S1", {Scalar(u"A", TYPE_CHAR, 1), Scalar(u"B", TYPE_STRING)}))), 3);
  EXPECT_EQ(InternalType(FieldOf(Struct(u"S2", {Scalar(u"A", TYPE_XSTRING)}))), 3);
  EXPECT_EQ(InternalType(FieldOf(Struct(u"S3", {flat.p}))), 3);
  EXPECT_EQ(InternalType(FieldOf(Table(u"T", flat))), 3);
}

TEST(RfcField, InternalTypeReadsTheTypeAsItIsNow) {
  CComPtr<IRfcType> flat = Struct(u"FLAT", {Scalar(u"A", TYPE_CHAR, 1)});
  CComPtr<IRfcField> f = FieldOf(flat);
  EXPECT_EQ(InternalType(f), 2);
  flat->AddScalarStructField(CComBSTR(u"TXT"), TYPE_STRING, 0, 0, -1, -1, -1, -1);
  EXPECT_EQ(InternalType(f), 3);
  // ... while the fields built at shaping stay as they were.
  LONG n = 0;
  FieldsOf(f)->get_Count(&n);
  EXPECT_EQ(n, 1);
}

TEST(RfcField, IsEmptyOfStructuresAndTables) {
  CComPtr<IRfcType> row = Struct(u"ROW", {Scalar(u"Y", TYPE_CHAR, 1)});
  CComPtr<IRfcType> st =
      Struct(u"ST", {Scalar(u"A", TYPE_CHAR, 1), Table(u"T", row).p, Struct(u"IN", {Scalar(u"B", TYPE_INT)}).p});
  CComPtr<IRfcField> f = FieldOf(st);
  EXPECT_EQ(IsEmpty(f), VARIANT_TRUE);  // also with a nested table without rows
  CComPtr<IRfcFields> fs = FieldsOf(f);
  CComPtr<IRfcRows> rows = RowsOf(Member(fs, CComVariant(u"T")));
  CComPtr<IRfcFields> added;
  rows->AddRow(&added);
  EXPECT_EQ(IsEmpty(Member(fs, CComVariant(u"T"))), VARIANT_FALSE);
  EXPECT_EQ(IsEmpty(f), VARIANT_FALSE);
  rows->RemoveAll();
  EXPECT_EQ(IsEmpty(f), VARIANT_TRUE);
  CComPtr<IRfcField> b = Member(FieldsOf(Member(fs, CComVariant(u"IN"))), CComVariant(u"B"));
  b->put_value(CComVariant(LONG(1)));
  EXPECT_EQ(IsEmpty(f), VARIANT_FALSE);
}

TEST(RfcField, SettingATypeAgainReplacesTheTreeAndDetachesTheOld) {
  CComPtr<IRfcType> st = Struct(u"ST", {Scalar(u"A", TYPE_CHAR, 1)});
  CComPtr<IRfcField> f = FieldOf(st);
  CComPtr<IRfcFields> old = FieldsOf(f);
  Member(old, CComVariant(u"A"))->put_value(CComVariant(u"x"));
  EXPECT_EQ(f->put_RfcType(st), S_OK);
  CComPtr<IRfcFields> fresh = FieldsOf(f);
  EXPECT_NE(old.p, fresh.p);
  CComVariant v;
  Member(old, CComVariant(u"A"))->get_value(&v);
  EXPECT_EQ(Str(v.bstrVal), u"x");  // the old tree is still usable
  v.Clear();
  Member(fresh, CComVariant(u"A"))->get_value(&v);
  EXPECT_EQ(v.vt, VT_EMPTY);
}

TEST(RfcField, AChangedRowTypeShowsInNewRowsButNotInExistingFields) {
  CComPtr<IRfcType> row = Struct(u"ROW", {Scalar(u"A", TYPE_CHAR, 1)});
  CComPtr<IRfcParameters> tables = Tables(NewCall());
  ASSERT_EQ(tables->AddTable(CComBSTR(u"T"), row), S_OK);
  CComPtr<IRfcRows> rows;
  ASSERT_EQ(Param(tables, CComVariant(u"T"))->get_Rows(&rows), S_OK);
  CComPtr<IRfcFields> before;
  rows->AddRow(&before);
  row->AddScalarStructField(CComBSTR(u"B"), TYPE_INT, 0, 0, -1, -1, -1, -1);
  CComPtr<IRfcFields> after;
  rows->AddRow(&after);
  LONG n1 = 0, n2 = 0;
  before->get_Count(&n1);
  after->get_Count(&n2);
  EXPECT_EQ(n1, 1);
  EXPECT_EQ(n2, 2);
}

TEST(RfcField, AForeignTypeIsShapedThroughItsInterface) {
  CComPtr<IRfcType> real = Struct(u"REAL", {Scalar(u"A", TYPE_CHAR, 1), Scalar(u"B", TYPE_INT)});
  CComPtr<IRfcType> foreign = CForeignType::Wrap(real);
  CComPtr<IRfcField> f = FieldOf(foreign);
  CComPtr<IRfcFields> fs = FieldsOf(f);
  LONG n = 0;
  fs->get_Count(&n);
  EXPECT_EQ(n, 2);
  CComBSTR name;
  Member(fs, CComVariant(LONG(2)))->get_name(&name);
  EXPECT_EQ(Str(name), u"B");
  EXPECT_EQ(InternalType(f), 2);
}

TEST(RfcField, AStructureThatContainsItselfIsRefused) {
  CComPtr<IRfcType> st = Struct(u"LOOP", {Scalar(u"A", TYPE_CHAR, 1)});
  EXPECT_EQ(st->AddComplexStructField(st), S_OK);  // the type itself allows it
  CComPtr<IRfcField> f = NewField();
  ClearError();
  EXPECT_EQ(f->put_RfcType(st), E_INVALIDARG);
  ErrorRecord r = TakeError();
  EXPECT_TRUE(r.present);
  EXPECT_EQ(r.source, kFieldSource);
  EXPECT_EQ(InternalType(f), 0);
  // Break the cycle so that the objects can go.
  CComPtr<IRfcTypes> members;
  st->get_StructFields(&members);
  members->RemoveAll();
}

TEST(RfcField, ADeepTreeOfStructuresInTablesInStructures) {
  // S1 { A, T1: table of S2 { B, T2: table of S3 { C, S4 { D } } } }
  CComPtr<IRfcType> s4 = Struct(u"S4", {Scalar(u"D", TYPE_INT)});
  CComPtr<IRfcType> s3 = Struct(u"S3", {Scalar(u"C", TYPE_CHAR, 4), s4.p});
  CComPtr<IRfcType> s2 = Struct(u"S2", {Scalar(u"B", TYPE_CHAR, 4), Table(u"T2", s3).p});
  CComPtr<IRfcType> s1 = Struct(u"S1", {Scalar(u"A", TYPE_CHAR, 4), Table(u"T1", s2).p});
  CComPtr<IRfcField> top = FieldOf(s1);
  CComPtr<IRfcFields> f1 = FieldsOf(top);
  Member(f1, CComVariant(u"A"))->put_value(CComVariant(u"top"));
  CComPtr<IRfcRows> t1 = RowsOf(Member(f1, CComVariant(u"T1")));
  for (LONG i = 0; i < 3; ++i) {
    CComPtr<IRfcFields> r2;
    ASSERT_EQ(t1->AddRow(&r2), S_OK);
    Member(r2, CComVariant(u"B"))->put_value(CComVariant(i));
    CComPtr<IRfcRows> t2 = RowsOf(Member(r2, CComVariant(u"T2")));
    ASSERT_EQ(t2->AddRows(i + 1), S_OK);
    for (LONG j = 1; j <= i + 1; ++j) {
      CComPtr<IRfcFields> r3;
      ASSERT_EQ(t2->get_Item(j, &r3), S_OK);
      CComPtr<IRfcFields> f4 = FieldsOf(Member(r3, CComVariant(u"S4")));
      Member(f4, CComVariant(u"D"))->put_value(CComVariant(LONG(i * 10 + j)));
    }
  }
  // Read it all back.
  LONG rows1 = 0;
  t1->get_Count(&rows1);
  ASSERT_EQ(rows1, 3);
  for (LONG i = 0; i < 3; ++i) {
    CComPtr<IRfcFields> r2;
    t1->get_Item(i + 1, &r2);
    CComVariant b;
    Member(r2, CComVariant(u"B"))->get_value(&b);
    EXPECT_EQ(b.lVal, i);
    CComPtr<IRfcRows> t2 = RowsOf(Member(r2, CComVariant(u"T2")));
    LONG rows2 = 0;
    t2->get_Count(&rows2);
    EXPECT_EQ(rows2, i + 1);
    CComPtr<IRfcFields> last;
    t2->get_Item(rows2, &last);
    CComVariant d;
    Member(FieldsOf(Member(last, CComVariant(u"S4"))), CComVariant(u"D"))->get_value(&d);
    EXPECT_EQ(d.lVal, i * 10 + i + 1);
  }
  EXPECT_EQ(IsEmpty(top), VARIANT_FALSE);
  EXPECT_EQ(InternalType(top), 3);
}

TEST(RfcField, ByReferenceValuesAreStoredAsValues) {
  CComPtr<IRfcField> f = FieldOf(Scalar(u"S", TYPE_CHAR, 1));
  CComBSTR text(u"referenced");
  VARIANT ref;
  ref.vt = VT_BYREF | VT_BSTR;
  ref.pbstrVal = &text;
  EXPECT_EQ(f->put_value(ref), S_OK);
  CComVariant v;
  f->get_value(&v);
  ASSERT_EQ(v.vt, VT_BSTR);
  EXPECT_EQ(Str(v.bstrVal), u"referenced");
  EXPECT_EQ(f->get_value(nullptr), E_POINTER);
}
