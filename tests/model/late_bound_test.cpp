// Every member reached through IDispatch by name, with its DISPID, and a
// client's whole job done late-bound.
#include "model_test_support.h"

using namespace model_test;

namespace {

struct Member {
  const char16_t* name;
  DISPID id;
};

void ExpectDispIds(IDispatch* d, std::initializer_list<Member> members) {
  for (const Member& m : members) EXPECT_EQ(DispIdOf(d, m.name), m.id) << WideToUtf8(m.name);
}

constexpr WORD kGet = DISPATCH_PROPERTYGET;
constexpr WORD kPut = DISPATCH_PROPERTYPUT;
constexpr WORD kCall = DISPATCH_METHOD;

CComVariant Get(IDispatch* d, const char16_t* name, DISPID id, std::vector<CComVariant> args = {}) {
  CComVariant result;
  EXPECT_EQ(Invoke(d, name, id, kGet, std::move(args), &result), S_OK) << WideToUtf8(name);
  return result;
}

void Put(IDispatch* d, const char16_t* name, DISPID id, CComVariant value) {
  EXPECT_EQ(Invoke(d, name, id, kPut, {std::move(value)}, nullptr), S_OK) << WideToUtf8(name);
}

CComVariant Call(IDispatch* d, const char16_t* name, DISPID id, std::vector<CComVariant> args = {}) {
  CComVariant result;
  EXPECT_EQ(Invoke(d, name, id, kCall, std::move(args), &result), S_OK) << WideToUtf8(name);
  return result;
}

CComPtr<IDispatch> Obj(CComVariant v) {
  EXPECT_EQ(v.vt, VT_DISPATCH);
  return CComPtr<IDispatch>(v.vt == VT_DISPATCH ? v.pdispVal : nullptr);
}

}  // namespace

TEST(LateBound, EveryMemberHasItsDispId) {
  CComPtr<IFunctionCall> call = NewCall(u"Z");
  CComPtr<IRfcType> row = Struct(u"ROW", {Scalar(u"A", TYPE_CHAR, 1)});
  Tables(call)->AddTable(CComBSTR(u"T"), row);
  CComPtr<IRfcParameter> param = Param(Tables(call), CComVariant(u"T"));
  CComPtr<IRfcField> field;
  param->get_InternalField(&field);
  CComPtr<IRfcRows> rows;
  param->get_Rows(&rows);
  CComPtr<IRfcFields> fields;
  rows->AddRow(&fields);
  CComPtr<IRfcTypes> types;
  row->get_StructFields(&types);
  CComPtr<IFunctionCalls> calls;
  CreateFunctionCalls(&calls);
  CComPtr<ITypeCache> cache;
  CreateTypeCache(&cache);

  ExpectDispIds(row, {{u"name", 1},
                      {u"Kind", 2},
                      {u"ScalarType", 3},
                      {u"ScalarLength", 4},
                      {u"ScalarDecimals", 5},
                      {u"StructOffset", 6},
                      {u"StructLength", 7},
                      {u"StructFields", 8},
                      {u"RowType", 9},
                      {u"DefineScalar", 10},
                      {u"DefineStruct", 11},
                      {u"DefineTable", 12},
                      {u"AddComplexStructField", 13},
                      {u"AddScalarStructField", 14},
                      {u"Tag", 20},
                      {u"structOffsetC1", 21},
                      {u"structLengthC1", 22},
                      {u"GetInternalObj", 23}});
  ExpectDispIds(
      types,
      {{u"Count", 1}, {u"Add", 2}, {u"Remove", 3}, {u"RemoveAll", 4}, {u"HasKey", 5}, {u"Item", 0}, {u"_NewEnum", -4}});
  ExpectDispIds(field, {{u"name", 1},
                        {u"RfcType", 2},
                        {u"value", 0},
                        {u"Fields", 3},
                        {u"Rows", 4},
                        {u"get_InternalType", 6},
                        {u"get_IsEmpty", 10}});
  ExpectDispIds(fields, {{u"Count", 1}, {u"HasKey", 2}, {u"Item", 0}, {u"_NewEnum", -4}, {u"AddField", 6}});
  ExpectDispIds(rows, {{u"Count", 1},
                       {u"Item", 0},
                       {u"_NewEnum", -4},
                       {u"FileMode", 6},
                       {u"DataCol", 7},
                       {u"IndexCol", 8},
                       {u"RfcType", 9},
                       {u"AddRows", 10},
                       {u"AddRow", 11},
                       {u"SetFileMode", 12},
                       {u"RemoveAll", 13},
                       {u"put_RfcType", 14}});
  ExpectDispIds(param, {{u"name", 1},
                        {u"RfcType", 2},
                        {u"value", 0},
                        {u"Fields", 3},
                        {u"Rows", 4},
                        {u"DefineScalar", 5},
                        {u"Define", 6},
                        {u"get_InternalType", 7},
                        {u"get_InternalField", 8},
                        {u"Optional", 20},
                        {u"Description", 21},
                        {u"DefaultValue", 22},
                        {u"get_IsEmpty", 23},
                        {u"IsRequested", 24}});
  ExpectDispIds(Tables(call), {{u"Count", 1},
                               {u"HasKey", 2},
                               {u"Item", 0},
                               {u"_NewEnum", -4},
                               {u"AddScalar", 6},
                               {u"AddParameter", 7},
                               {u"AddTable", 8},
                               {u"RemoveParameter", 20}});
  ExpectDispIds(call, {{u"Function", 1},
                       {u"Importing", 2},
                       {u"Exporting", 3},
                       {u"Changing", 4},
                       {u"Tables", 5},
                       {u"Documentation", 6},
                       {u"RaiseException", 20},
                       {u"GetException", 21},
                       {u"ToXML", 23},
                       {u"FromXML", 24}});
  ExpectDispIds(calls, {{u"Count", 1}, {u"HasKey", 2}, {u"Item", 0}, {u"_NewEnum", -4}, {u"AddFunction", 6}});
  ExpectDispIds(cache, {{u"GetType", 1},
                        {u"AddType", 2},
                        {u"Clear", 3},
                        {u"GetFunction", 10},
                        {u"AddFunction", 11},
                        {u"SaveToXML", 12},
                        {u"LoadFromXML", 13}});
}

TEST(LateBound, AClientBuildsFillsCopiesAndWritesACall) {
  // Types: a structure ROW { MATNR CHAR 18, QTY BCD 7.3 } and a table of it.
  CComPtr<IDispatch> row(NewType().p);
  Call(row, u"DefineStruct", 11, {CComVariant(u"ROW")});
  // Defaults of the omitted layout arguments come from the type library.
  Call(row, u"AddScalarStructField", 14, {CComVariant(u"MATNR"), CComVariant(LONG(TYPE_CHAR)), CComVariant(SHORT(18))});
  Call(row, u"AddScalarStructField", 14,
       {CComVariant(u"QTY"), CComVariant(LONG(TYPE_BCD)), CComVariant(SHORT(7)), CComVariant(SHORT(3))});
  CComPtr<IDispatch> members = Obj(Get(row, u"StructFields", 8));
  EXPECT_EQ(Get(members, u"Count", 1).lVal, 2);
  CComPtr<IDispatch> qty = Obj(Get(members, u"Item", 0, {CComVariant(u"QTY")}));
  EXPECT_EQ(Get(qty, u"StructOffset", 6).lVal, -1);
  EXPECT_EQ(Get(qty, u"ScalarDecimals", 5).iVal, 3);

  // The call.
  CComPtr<IDispatch> call(NewCall().p);
  Put(call, u"Function", 1, CComVariant(u"Z_ORDER_CREATE"));
  CComPtr<IDispatch> importing = Obj(Get(call, u"Importing", 2));
  Call(importing, u"AddScalar", 6, {CComVariant(u"CUSTOMER"), CComVariant(LONG(TYPE_CHAR)), CComVariant(SHORT(10))});
  CComPtr<IDispatch> customer = Obj(Get(importing, u"Item", 0, {CComVariant(u"CUSTOMER")}));
  // An omitted optional value is stored as the missing-argument marker.
  CComVariant marker = Get(customer, u"value", 0);
  EXPECT_EQ(marker.vt, VT_ERROR);
  Put(customer, u"value", 0, CComVariant(u"C-100"));
  EXPECT_EQ(Str(Get(customer, u"value", 0).bstrVal), u"C-100");
  Put(customer, u"Optional", 20, CComVariant(true));
  EXPECT_EQ(Get(customer, u"Optional", 20).boolVal, VARIANT_TRUE);

  CComPtr<IDispatch> tables = Obj(Get(call, u"Tables", 5));
  Call(tables, u"AddTable", 8, {CComVariant(u"ITEMS"), CComVariant(static_cast<IDispatch*>(row.p))});
  EXPECT_EQ(Get(tables, u"Count", 1).lVal, 1);
  CComPtr<IDispatch> items = Obj(Get(Obj(Get(tables, u"Item", 0, {CComVariant(LONG(1))})), u"Rows", 4));
  for (int i = 1; i <= 3; ++i) {
    CComPtr<IDispatch> r = Obj(Call(items, u"AddRow", 11));
    CComPtr<IDispatch> matnr = Obj(Get(r, u"Item", 0, {CComVariant(u"MATNR")}));
    Put(matnr, u"value", 0, CComVariant(LONG(i)));
  }
  Call(items, u"AddRows", 10);  // Count defaults to 1
  EXPECT_EQ(Get(items, u"Count", 1).lVal, 4);
  CComPtr<IDispatch> third = Obj(Get(items, u"Item", 0, {CComVariant(LONG(3))}));
  EXPECT_EQ(Get(Obj(Get(third, u"Item", 0, {CComVariant(LONG(1))})), u"value", 0).lVal, 3);
  Call(items, u"SetFileMode", 12, {CComVariant(SHORT(1))});  // IndexCol defaults to 0
  EXPECT_EQ(Get(items, u"FileMode", 6).boolVal, VARIANT_TRUE);
  EXPECT_EQ(Get(items, u"IndexCol", 8).iVal, 0);

  // Through the cache.
  CComPtr<ITypeCache> cacheItf;
  CreateTypeCache(&cacheItf);
  CComPtr<IDispatch> cache(cacheItf.p);
  Call(cache, u"AddFunction", 11, {CComVariant(u"Z_ORDER_CREATE"), CComVariant(static_cast<IDispatch*>(call.p))});
  CComPtr<IDispatch> copy = Obj(Call(cache, u"GetFunction", 10, {CComVariant(u"Z_ORDER_CREATE")}));
  EXPECT_NE(copy.p, call.p);
  EXPECT_EQ(Str(Get(copy, u"Function", 1).bstrVal), u"Z_ORDER_CREATE");
  CComPtr<IDispatch> copiedItems =
      Obj(Get(Obj(Get(Obj(Get(copy, u"Tables", 5)), u"Item", 0, {CComVariant(u"ITEMS")})), u"Rows", 4));
  EXPECT_EQ(Get(copiedItems, u"Count", 1).lVal, 0);

  // As XML, and back.
  CComVariant xml = Call(call, u"ToXML", 23);
  ASSERT_EQ(xml.vt, VT_BSTR);
  EXPECT_NE(Str(xml.bstrVal).find(u"<function name=\"Z_ORDER_CREATE\" doc=\"\">"), std::u16string::npos);
  EXPECT_EQ(Str(Call(copy, u"ToXML", 23).bstrVal), Str(xml.bstrVal));
  CComPtr<IDispatch> fresh(NewCall().p);
  Call(fresh, u"FromXML", 24, {xml});
  EXPECT_EQ(Str(Call(fresh, u"ToXML", 23).bstrVal), Str(xml.bstrVal));
}

TEST(LateBound, FailuresCarryTheirRecordIntoExcepInfo) {
  CComPtr<IDispatch> t(Scalar(u"S", TYPE_CHAR, 1).p);
  EXCEPINFO info{};
  HRESULT hr = Invoke(t, u"DefineScalar", 10, kCall, {CComVariant(u"X"), CComVariant(LONG(TYPE_CHAR))}, nullptr, &info);
  EXPECT_EQ(hr, DISP_E_EXCEPTION);
  EXPECT_EQ(info.scode, static_cast<SCODE>(0x80040201));
  EXPECT_EQ(Str(info.bstrSource), u"Veltrane.RfcType.1");
  EXPECT_EQ(Str(info.bstrDescription), u"The object has already been initialized");
  SysFreeString(info.bstrSource);
  SysFreeString(info.bstrDescription);
  SysFreeString(info.bstrHelpFile);
}

// A collection's miss has no record: the dispatch's exception carries the
// bare result alone.
TEST(LateBound, ACollectionMissIsABareResult) {
  CComPtr<IDispatch> set(Importing(NewCall()).p);
  CComVariant result;
  EXCEPINFO info{};
  ClearError();
  EXPECT_EQ(Invoke(set, u"Item", 0, kGet, {CComVariant(u"NOPE")}, &result, &info), DISP_E_EXCEPTION);
  EXPECT_EQ(info.scode, E_INVALIDARG);
  EXPECT_EQ(info.bstrDescription, nullptr);
  EXPECT_EQ(info.bstrSource, nullptr);
}

TEST(LateBound, ASwallowedDefinitionFailureLeavesNoRecordBehind) {
  CComPtr<IRfcParameters> set = Importing(NewCall());
  ClearError();
  EXPECT_EQ(set->AddParameter(CComBSTR(u"P"), NewType()), S_OK);
  EXPECT_FALSE(TakeError().present);
  CComVariant result;
  EXCEPINFO info{};
  EXPECT_EQ(Invoke(CComPtr<IDispatch>(set.p), u"Item", 0, kGet, {CComVariant(u"NOPE")}, &result, &info),
            DISP_E_EXCEPTION);
  EXPECT_EQ(info.scode, E_INVALIDARG);
  EXPECT_EQ(info.bstrDescription, nullptr);
}

TEST(LateBound, GetExceptionFillsItsOutArguments) {
  CComPtr<IDispatch> call(NewCall(u"Z").p);
  Call(call, u"RaiseException", 20, {CComVariant(u"NOT_FOUND")});  // Message defaults to ""
  CComBSTR exception, message(u"old");
  VARIANT args[2];
  args[1].vt = VT_BYREF | VT_BSTR;
  args[1].pbstrVal = &exception;
  args[0].vt = VT_BYREF | VT_BSTR;
  args[0].pbstrVal = &message;
  DISPPARAMS params{args, nullptr, 2, 0};
  EXCEPINFO info{};
  UINT argErr = 0;
  ASSERT_EQ(call->Invoke(DispIdOf(call, u"GetException"), IID_NULL, LOCALE_USER_DEFAULT, kCall, &params, nullptr, &info,
                         &argErr),
            S_OK);
  EXPECT_EQ(Str(exception), u"NOT_FOUND");
  EXPECT_EQ(Str(message), u"");
}

TEST(LateBound, NewEnumIsReachableAsDispIdMinusFour) {
  CComPtr<IFunctionCall> c = NewCall(u"Z");
  Importing(c)->AddScalar(CComBSTR(u"A"), TYPE_CHAR, 1, 0, Missing());
  Importing(c)->AddScalar(CComBSTR(u"B"), TYPE_CHAR, 1, 0, Missing());
  CComPtr<IDispatch> set(Importing(c).p);
  CComVariant e;
  ASSERT_EQ(InvokeId(set, DISPID_NEWENUM, kGet, {}, &e), S_OK);
  ASSERT_TRUE(e.vt == VT_UNKNOWN || e.vt == VT_DISPATCH);
  CComQIPtr<IEnumVARIANT> en(e.punkVal);
  ASSERT_TRUE(en);
  VARIANT v[3];
  ULONG fetched = 0;
  EXPECT_EQ(en->Next(3, v, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 2u);
  VariantClear(&v[0]);
  VariantClear(&v[1]);
}
