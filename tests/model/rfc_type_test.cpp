#include "model_test_support.h"

using namespace model_test;

namespace {

constexpr const char16_t* kTypeSource = u"Veltrane.RfcType.1";

LONG LayoutOf(IRfcType* t, HRESULT (STDMETHODCALLTYPE IRfcType::*get)(LONG*)) {
  LONG v = 0;
  EXPECT_EQ((t->*get)(&v), S_OK);
  return v;
}

LONG MemberCount(IRfcType* t) {
  CComPtr<IRfcTypes> members;
  EXPECT_EQ(t->get_StructFields(&members), S_OK);
  LONG n = -1;
  EXPECT_EQ(members->get_Count(&n), S_OK);
  return n;
}

}  // namespace

TEST(RfcType, NewTypeHasItsInitialValues) {
  CComPtr<IRfcType> t = NewType();
  RFCTYPEKIND kind = RFCTYPEKIND_TABLE;
  EXPECT_EQ(t->get_Kind(&kind), S_OK);
  EXPECT_EQ(kind, RFCTYPEKIND_UNDEFINED);
  ABAPTYPE scalar = TYPE_CHAR;
  EXPECT_EQ(t->get_ScalarType(&scalar), S_OK);
  EXPECT_EQ(scalar, -1);
  SHORT length = 7, decimals = 7;
  EXPECT_EQ(t->get_ScalarLength(&length), S_OK);
  EXPECT_EQ(t->get_ScalarDecimals(&decimals), S_OK);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(decimals, 0);
  EXPECT_EQ(LayoutOf(t, &IRfcType::get_StructOffset), -1);
  EXPECT_EQ(LayoutOf(t, &IRfcType::get_StructLength), -1);
  EXPECT_EQ(LayoutOf(t, &IRfcType::get_structOffsetC1), -1);
  EXPECT_EQ(LayoutOf(t, &IRfcType::get_structLengthC1), -1);
  EXPECT_EQ(MemberCount(t), 0);
  CComPtr<IRfcType> row;
  EXPECT_EQ(t->get_RowType(&row), S_OK);
  EXPECT_FALSE(row);
  CComBSTR name;
  EXPECT_EQ(t->get_name(&name), S_OK);
  EXPECT_EQ(Str(name), u"");
  CComVariant tag;
  EXPECT_EQ(t->get_Tag(&tag), S_OK);
  EXPECT_EQ(tag.vt, VT_EMPTY);
}

TEST(RfcType, DefineScalarStoresAsGivenWithoutChecks) {
  CComPtr<IRfcType> t = NewType();
  EXPECT_EQ(t->DefineScalar(CComBSTR(u"MATNR"), static_cast<ABAPTYPE>(99), 18, -3, 40), S_OK);
  CComBSTR name;
  t->get_name(&name);
  EXPECT_EQ(Str(name), u"MATNR");
  ABAPTYPE type;
  t->get_ScalarType(&type);
  EXPECT_EQ(type, 99);
  SHORT length, decimals;
  t->get_ScalarLength(&length);
  t->get_ScalarDecimals(&decimals);
  EXPECT_EQ(length, 18);
  EXPECT_EQ(decimals, -3);
  EXPECT_EQ(LayoutOf(t, &IRfcType::get_StructOffset), 40);
  RFCTYPEKIND kind;
  t->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_SCALAR);
}

TEST(RfcType, DefineScalarAppliesNoDefaultLength) {
  for (ABAPTYPE type : {TYPE_CHAR, TYPE_NUM, TYPE_BCD, TYPE_BYTE, TYPE_DATE, TYPE_INT}) {
    CComPtr<IRfcType> t = Scalar(u"F", type, 0);
    SHORT length = -1;
    t->get_ScalarLength(&length);
    EXPECT_EQ(length, 0) << type;
  }
}

TEST(RfcType, DefineScalarTwiceFailsAndKeepsTheFirstDefinition) {
  CComPtr<IRfcType> t = Scalar(u"FIRST", TYPE_CHAR, 10);
  ClearError();
  ExpectModelError(t->DefineScalar(CComBSTR(u"SECOND"), TYPE_INT, 4, 0, 8), 513, kTypeSource,
                   u"The object has already been initialized");
  CComBSTR name;
  t->get_name(&name);
  EXPECT_EQ(Str(name), u"FIRST");
  ABAPTYPE type;
  t->get_ScalarType(&type);
  EXPECT_EQ(type, TYPE_CHAR);
  SHORT length;
  t->get_ScalarLength(&length);
  EXPECT_EQ(length, 10);
  EXPECT_EQ(LayoutOf(t, &IRfcType::get_StructOffset), -1);
}

TEST(RfcType, DefineStructOnAScalarSucceeds) {
  CComPtr<IRfcType> t = Scalar(u"S", TYPE_CHAR, 12);
  EXPECT_EQ(t->DefineStruct(CComBSTR(u"ST")), S_OK);
  RFCTYPEKIND kind;
  t->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_STRUCT);
  ABAPTYPE type;
  t->get_ScalarType(&type);
  EXPECT_EQ(type, TYPE_STRUCTURE);
  SHORT length;
  t->get_ScalarLength(&length);
  EXPECT_EQ(length, 12);
  CComBSTR name;
  t->get_name(&name);
  EXPECT_EQ(Str(name), u"ST");
}

TEST(RfcType, DefineStructAgainKeepsMembersAndDefineScalarAfterItFails) {
  CComPtr<IRfcType> t = Struct(u"ST", {Scalar(u"A", TYPE_CHAR, 1)});
  EXPECT_EQ(t->DefineStruct(CComBSTR(u"ST2")), S_OK);
  EXPECT_EQ(MemberCount(t), 1);
  ClearError();
  ExpectModelError(t->DefineScalar(nullptr, TYPE_CHAR, 1, 0, -1), 513, kTypeSource,
                   u"The object has already been initialized");
}

TEST(RfcType, DefineTableWithAnUndefinedRowTypeFailsWith516) {
  CComPtr<IRfcType> t = NewType();
  CComPtr<IRfcType> undefined = NewType();
  ClearError();
  ExpectModelError(t->DefineTable(CComBSTR(u"T"), undefined), 516, kTypeSource, u"Object is not a structure");
  RFCTYPEKIND kind;
  t->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_UNDEFINED);
  CComBSTR name;
  t->get_name(&name);
  EXPECT_EQ(Str(name), u"");
}

TEST(RfcType, DefineTableWithAScalarRowTypeFailsAndANullOneIsAPointerError) {
  CComPtr<IRfcType> t = NewType();
  ExpectModelError(t->DefineTable(CComBSTR(u"T"), Scalar(u"X", TYPE_INT)), 516, kTypeSource,
                   u"Object is not a structure");
  EXPECT_EQ(t->DefineTable(CComBSTR(u"T"), nullptr), E_POINTER);
}

TEST(RfcType, DefineTableKeepsTheRowTypeAndMayReplaceIt) {
  CComPtr<IRfcType> row1 = Struct(u"ROW1", {Scalar(u"A", TYPE_CHAR, 1)});
  CComPtr<IRfcType> row2 = Struct(u"ROW2", {Scalar(u"B", TYPE_CHAR, 1)});
  CComPtr<IRfcType> t = Table(u"T", row1);
  RFCTYPEKIND kind;
  t->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_TABLE);
  ABAPTYPE type;
  t->get_ScalarType(&type);
  EXPECT_EQ(type, TYPE_ITAB);
  CComPtr<IRfcType> got;
  t->get_RowType(&got);
  EXPECT_EQ(got.p, row1.p);
  got.Release();
  EXPECT_EQ(t->DefineTable(CComBSTR(u"T2"), row2), S_OK);
  t->get_RowType(&got);
  EXPECT_EQ(got.p, row2.p);
}

TEST(RfcType, AStructureMayBecomeATableButAScalarTypeNeverComesBack) {
  CComPtr<IRfcType> row = Struct(u"ROW", {Scalar(u"A", TYPE_CHAR, 1)});
  CComPtr<IRfcType> t = Struct(u"S", {Scalar(u"B", TYPE_CHAR, 1)});
  EXPECT_EQ(t->DefineTable(CComBSTR(u"T"), row), S_OK);
  EXPECT_EQ(t->DefineScalar(CComBSTR(u"X"), TYPE_CHAR, 1, 0, -1), static_cast<HRESULT>(0x80040201));
}

TEST(RfcType, AddComplexStructFieldRules) {
  CComPtr<IRfcType> scalar = Scalar(u"S", TYPE_CHAR, 1);
  ExpectModelError(scalar->AddComplexStructField(Scalar(u"X", TYPE_CHAR, 1)), 516, kTypeSource,
                   u"Object is not a structure");

  CComPtr<IRfcType> st = Struct(u"ST", {});
  EXPECT_EQ(st->AddComplexStructField(nullptr), E_POINTER);
  ExpectModelError(st->AddComplexStructField(NewType()), 514, kTypeSource, u"The object has not been initialized");
  EXPECT_EQ(MemberCount(st), 0);

  // Any defined kind is taken, and it is the object itself that is kept.
  CComPtr<IRfcType> inner = Struct(u"INNER", {Scalar(u"A", TYPE_CHAR, 1)});
  CComPtr<IRfcType> table = Table(u"TAB", inner);
  EXPECT_EQ(st->AddComplexStructField(scalar), S_OK);
  EXPECT_EQ(st->AddComplexStructField(inner), S_OK);
  EXPECT_EQ(st->AddComplexStructField(table), S_OK);
  EXPECT_EQ(MemberCount(st), 3);
  CComPtr<IRfcTypes> members;
  st->get_StructFields(&members);
  CComPtr<IRfcType> second;
  EXPECT_EQ(members->get_Item(CComVariant(LONG(2)), &second), S_OK);
  EXPECT_EQ(second.p, inner.p);
}

TEST(RfcType, AddComplexStructFieldChecksTheStructureBeforeThePointer) {
  CComPtr<IRfcType> undefined = NewType();
  ExpectModelError(undefined->AddComplexStructField(nullptr), 516, kTypeSource, u"Object is not a structure");
}

TEST(RfcType, AddScalarStructFieldWithoutLayoutLeavesAllFourAtMinusOne) {
  CComPtr<IRfcType> st = Struct(u"ST", {});
  EXPECT_EQ(st->AddScalarStructField(CComBSTR(u"F"), TYPE_CHAR, 10, 0, -1, -1, -1, -1), S_OK);
  CComPtr<IRfcTypes> members;
  st->get_StructFields(&members);
  CComPtr<IRfcType> f;
  ASSERT_EQ(members->get_Item(CComVariant(u"F"), &f), S_OK);
  EXPECT_EQ(LayoutOf(f, &IRfcType::get_StructOffset), -1);
  EXPECT_EQ(LayoutOf(f, &IRfcType::get_StructLength), -1);
  EXPECT_EQ(LayoutOf(f, &IRfcType::get_structOffsetC1), -1);
  EXPECT_EQ(LayoutOf(f, &IRfcType::get_structLengthC1), -1);
  RFCTYPEKIND kind;
  f->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_SCALAR);
}

TEST(RfcType, AddScalarStructFieldSetsTheLayout) {
  CComPtr<IRfcType> st = Struct(u"ST", {});
  EXPECT_EQ(st->AddScalarStructField(CComBSTR(u"F"), TYPE_BCD, 7, 2, 8, 4, 16, 8), S_OK);
  CComPtr<IRfcTypes> members;
  st->get_StructFields(&members);
  CComPtr<IRfcType> f;
  ASSERT_EQ(members->get_Item(CComVariant(LONG(1)), &f), S_OK);
  EXPECT_EQ(LayoutOf(f, &IRfcType::get_StructOffset), 8);
  EXPECT_EQ(LayoutOf(f, &IRfcType::get_structOffsetC1), 4);
  EXPECT_EQ(LayoutOf(f, &IRfcType::get_StructLength), 16);
  EXPECT_EQ(LayoutOf(f, &IRfcType::get_structLengthC1), 8);
  SHORT decimals;
  f->get_ScalarDecimals(&decimals);
  EXPECT_EQ(decimals, 2);
}

TEST(RfcType, AddScalarStructFieldOnAnUndefinedTypeFailsWith516) {
  CComPtr<IRfcType> t = NewType();
  ExpectModelError(t->AddScalarStructField(CComBSTR(u"F"), TYPE_CHAR, 1, 0, -1, -1, -1, -1), 516, kTypeSource,
                   u"Object is not a structure");
  EXPECT_EQ(MemberCount(t), 0);
}

TEST(RfcType, TwoMembersOfOneNameBothStayAndTheNameFindsTheLater) {
  CComPtr<IRfcType> st = Struct(u"ST", {});
  st->AddScalarStructField(CComBSTR(u"F"), TYPE_CHAR, 1, 0, -1, -1, -1, -1);
  st->AddScalarStructField(CComBSTR(u"F"), TYPE_INT, 4, 0, -1, -1, -1, -1);
  EXPECT_EQ(MemberCount(st), 2);
  CComPtr<IRfcTypes> members;
  st->get_StructFields(&members);
  CComPtr<IRfcType> f;
  members->get_Item(CComVariant(u"F"), &f);
  ABAPTYPE type;
  f->get_ScalarType(&type);
  EXPECT_EQ(type, TYPE_INT);
}

TEST(RfcType, PlainFieldAccessChangesNothingElse) {
  CComPtr<IRfcType> t = NewType();
  EXPECT_EQ(t->put_ScalarType(TYPE_FLOAT), S_OK);
  RFCTYPEKIND kind;
  t->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_UNDEFINED);
  EXPECT_EQ(t->put_ScalarLength(8), S_OK);
  EXPECT_EQ(t->put_ScalarDecimals(16), S_OK);
  EXPECT_EQ(t->put_StructOffset(1), S_OK);
  EXPECT_EQ(t->put_StructLength(2), S_OK);
  EXPECT_EQ(t->put_structOffsetC1(3), S_OK);
  EXPECT_EQ(t->put_structLengthC1(4), S_OK);
  EXPECT_EQ(LayoutOf(t, &IRfcType::get_StructOffset), 1);
  EXPECT_EQ(LayoutOf(t, &IRfcType::get_StructLength), 2);
  EXPECT_EQ(LayoutOf(t, &IRfcType::get_structOffsetC1), 3);
  EXPECT_EQ(LayoutOf(t, &IRfcType::get_structLengthC1), 4);
  SHORT s;
  t->get_ScalarDecimals(&s);
  EXPECT_EQ(s, 16);
}

TEST(RfcType, TagIsADeepCopyInAndOut) {
  CComPtr<IRfcType> t = NewType();
  CComVariant tag(u"client data");
  EXPECT_EQ(t->put_Tag(tag), S_OK);
  CComVariant a, b;
  EXPECT_EQ(t->get_Tag(&a), S_OK);
  EXPECT_EQ(t->get_Tag(&b), S_OK);
  ASSERT_EQ(a.vt, VT_BSTR);
  EXPECT_EQ(Str(a.bstrVal), u"client data");
  EXPECT_NE(a.bstrVal, tag.bstrVal);
  EXPECT_NE(a.bstrVal, b.bstrVal);
  // A reference argument is stored as its value.
  CComVariant target(LONG(42));
  VARIANT ref;
  ref.vt = VT_BYREF | VT_VARIANT;
  ref.pvarVal = &target;
  EXPECT_EQ(t->put_Tag(ref), S_OK);
  CComVariant c;
  t->get_Tag(&c);
  EXPECT_EQ(c.vt, VT_I4);
  EXPECT_EQ(c.lVal, 42);
}

TEST(RfcType, NullPointersAreRefused) {
  CComPtr<IRfcType> t = NewType();
  EXPECT_EQ(t->get_name(nullptr), E_POINTER);
  EXPECT_EQ(t->get_Kind(nullptr), E_POINTER);
  EXPECT_EQ(t->get_StructFields(nullptr), E_POINTER);
  EXPECT_EQ(t->get_RowType(nullptr), E_POINTER);
  EXPECT_EQ(t->get_Tag(nullptr), E_POINTER);
  EXPECT_EQ(t->GetInternalObj(nullptr), E_POINTER);
}

TEST(RfcType, NullNameStandsForTheEmptyName) {
  CComPtr<IRfcType> t = NewType();
  EXPECT_EQ(t->DefineScalar(nullptr, TYPE_CHAR, 1, 0, -1), S_OK);
  CComBSTR name;
  EXPECT_EQ(t->get_name(&name), S_OK);
  EXPECT_EQ(Str(name), u"");
}

TEST(RfcType, GetInternalObjGivesTheImplementationAddress) {
  CComPtr<IRfcType> a = NewType(), b = NewType();
  CComVariant va, vb, va2;
  EXPECT_EQ(a->GetInternalObj(&va), S_OK);
  EXPECT_EQ(b->GetInternalObj(&vb), S_OK);
  EXPECT_EQ(a->GetInternalObj(&va2), S_OK);
  EXPECT_EQ(va.vt, VT_I8);
  EXPECT_NE(va.llVal, 0);
  EXPECT_EQ(va.llVal, va2.llVal);
  EXPECT_NE(va.llVal, vb.llVal);
}

TEST(RfcType, StructFieldsLivesWithTheTypeAndIsAlwaysTheSame) {
  CComPtr<IRfcType> t = NewType();
  CComPtr<IRfcTypes> a, b;
  t->get_StructFields(&a);
  t->get_StructFields(&b);
  EXPECT_EQ(a.p, b.p);
  EXPECT_EQ(a->Add(Scalar(u"X", TYPE_CHAR)), S_OK);
  EXPECT_EQ(MemberCount(t), 1);
}

TEST(RfcType, TheTypeAnswersItsInterfacesAndErrorSupport) {
  CComPtr<IRfcType> t = NewType();
  CComQIPtr<IDispatch> d(t.p);
  EXPECT_TRUE(d);
  CComQIPtr<ISupportErrorInfo> s(t.p);
  ASSERT_TRUE(s);
  EXPECT_EQ(s->InterfaceSupportsErrorInfo(IID_IRfcType), S_OK);
  CComQIPtr<IRfcTypes> wrong(t.p);
  EXPECT_FALSE(wrong);
}
