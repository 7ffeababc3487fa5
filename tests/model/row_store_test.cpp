// Rows kept in the store until a client reaches them: the objects made from
// them behave as objects made at once, and stay what they are across other
// operations on the table.
#include <stdexcept>

#include "foreign_type.h"
#include "stored_rows.h"

using namespace model_test;

namespace {

LONG Count(IRfcRows* r) {
  LONG n = -1;
  EXPECT_EQ(r->get_Count(&n), S_OK);
  return n;
}

CComPtr<IRfcFields> Row(IRfcRows* rows, LONG position) {
  CComPtr<IRfcFields> row;
  EXPECT_EQ(rows->get_Item(position, &row), S_OK);
  return row;
}

CComPtr<IRfcField> Field(IRfcFields* row, const char16_t* name) {
  CComPtr<IRfcField> f;
  EXPECT_EQ(row->get_Item(CComVariant(name), &f), S_OK);
  return f;
}

CComVariant Value(IRfcField* field) {
  CComVariant v;
  EXPECT_EQ(field->get_value(&v), S_OK);
  return v;
}

}  // namespace

TEST(RowStore, StoredRowsReadAsRowsMadeAtOnce) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  AppendStored(rows, 3, 1, 2);
  EXPECT_EQ(Count(rows), 3);
  CComPtr<IRfcFields> second = Row(rows, 2);
  EXPECT_EQ(Str(Value(Field(second, u"NAME")).bstrVal), u"R2");
  CComVariant count = Value(Field(second, u"COUNT"));
  EXPECT_EQ(count.vt, VT_I4);
  EXPECT_EQ(count.lVal, 2);
  // Cells nobody wrote hold what a new scalar field holds.
  EXPECT_EQ(Value(Field(second, u"DAY")).vt, VT_EMPTY);
  LONG members = 0;
  second->get_Count(&members);
  EXPECT_EQ(members, 4);
  LONG shape = 0;
  Field(second, u"PRICE")->get_InternalType(&shape);
  EXPECT_EQ(shape, 1);
  CComBSTR name;
  Field(second, u"COUNT")->get_name(&name);
  EXPECT_EQ(Str(name), u"COUNT");
}

TEST(RowStore, ARowIsTheSameObjectEachTimeAndCountedAsBefore) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  ASSERT_EQ(rows->AddRows(4), S_OK);
  CComPtr<IRfcFields> a = Row(rows, 3);
  CComPtr<IRfcFields> b = Row(rows, 3);
  EXPECT_EQ(a.p, b.p);
  // The table's reference and the two of this test.
  EXPECT_EQ(CountOf(a), 3u);
  CComPtr<IRfcField> f = Field(a, u"NAME");
  EXPECT_EQ(f.p, Field(b, u"NAME").p);
  // The row's reference and this one.
  EXPECT_EQ(CountOf(f), 2u);
  // The enumerator hands out the same objects, and makes the others.
  CComPtr<IUnknown> unk;
  ASSERT_EQ(rows->get__NewEnum(&unk), S_OK);
  CComQIPtr<IEnumVARIANT> e(unk.p);
  VARIANT v;
  LONG position = 0;
  while (e->Next(1, &v, nullptr) == S_OK) {
    ++position;
    ASSERT_EQ(v.vt, VT_DISPATCH);
    CComQIPtr<IRfcFields> row(v.pdispVal);
    EXPECT_EQ(row.p, Row(rows, position).p);
    VariantClear(&v);
  }
  EXPECT_EQ(position, 4);
}

TEST(RowStore, AFieldHeldKeepsItsIdentityAndValueAcrossOtherOperations) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  AppendStored(rows, 5, 1, 2);
  CComPtr<IRfcFields> row = Row(rows, 3);
  CComPtr<IRfcField> held = Field(row, u"NAME");
  ASSERT_EQ(held->put_value(CComVariant(u"changed")), S_OK);

  // Rows added behind and in front of it in every way.
  CComPtr<IRfcFields> added;
  ASSERT_EQ(rows->AddRow(&added), S_OK);
  ASSERT_EQ(rows->AddRows(2), S_OK);
  AppendStored(rows, 2, 100, 2);
  EXPECT_EQ(Count(rows), 10);
  EXPECT_EQ(Row(rows, 3).p, row.p);
  EXPECT_EQ(Field(Row(rows, 3), u"NAME").p, held.p);

  // Rows removed in front of it: it moves up, and stays itself.
  ASSERT_EQ(RfcRowsRemove(rows, 1), S_OK);
  EXPECT_EQ(Row(rows, 2).p, row.p);
  EXPECT_EQ(Str(Value(Field(Row(rows, 1), u"NAME")).bstrVal), u"R2");
  EXPECT_EQ(Str(Value(Field(Row(rows, 3), u"NAME")).bstrVal), u"R4");
  EXPECT_EQ(Str(Value(Field(Row(rows, 8), u"NAME")).bstrVal), u"R100");
  EXPECT_EQ(Str(Value(Field(Row(rows, 9), u"NAME")).bstrVal), u"R101");
  EXPECT_EQ(Str(Value(held).bstrVal), u"changed");

  // The table cleared and read again: the held field is no longer in it,
  // and keeps its value and its single parent.
  ASSERT_EQ(rows->RemoveAll(), S_OK);
  EXPECT_EQ(Count(rows), 0);
  AppendStored(rows, 3, 7, 2);
  EXPECT_EQ(Str(Value(Field(Row(rows, 3), u"NAME")).bstrVal), u"R9");
  EXPECT_EQ(Str(Value(held).bstrVal), u"changed");
  EXPECT_EQ(Field(row, u"NAME").p, held.p);
  EXPECT_NE(Field(Row(rows, 3), u"NAME").p, held.p);
  EXPECT_EQ(CountOf(held), 2u);
  ASSERT_EQ(held->put_value(CComVariant(LONG(5))), S_OK);
  EXPECT_EQ(Value(Field(row, u"NAME")).lVal, 5);
}

TEST(RowStore, EveryKindOfValueComesBackAsItWasStored) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  RowStore* store = nullptr;
  size_t first = 0;
  ASSERT_EQ(RfcRowsAppendStored(rows, 6, &store, &first), S_OK);

  store->PutUtf8(first, 0, "gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80");  // two-byte and four-byte sequences
  store->PutText(first + 1, 0, u"");
  VARIANT nullText;
  nullText.vt = VT_BSTR;
  nullText.bstrVal = nullptr;
  ASSERT_EQ(store->Take(first + 2, 0, &nullText), S_OK);
  VARIANT day;
  day.vt = VT_DATE;
  day.date = 45000.0;
  ASSERT_EQ(store->Take(first, 2, &day), S_OK);
  VARIANT price;
  price.vt = VT_R4;
  price.fltVal = 1.5f;
  ASSERT_EQ(store->Take(first, 3, &price), S_OK);
  // A decimal, boxed beside the cells.
  CComVariant decimal;
  ASSERT_EQ(VarDecFromR8(12.25, &decimal.decVal), S_OK);
  decimal.vt = VT_DECIMAL;
  VARIANT boxed;
  VariantInit(&boxed);
  ASSERT_EQ(VariantCopy(&boxed, &decimal), S_OK);
  ASSERT_EQ(store->Take(first + 3, 3, &boxed), S_OK);
  EXPECT_EQ(boxed.vt, VT_EMPTY);
  // A value by reference is copied.
  LONG target = 77;
  VARIANT byRef;
  byRef.vt = VT_BYREF | VT_I4;
  byRef.plVal = &target;
  ASSERT_EQ(store->Take(first + 4, 1, &byRef), S_OK);
  target = 0;
  // A byte array.
  CComVariant bytes;
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 3);
  ASSERT_TRUE(array);
  bytes.vt = VT_ARRAY | VT_UI1;
  bytes.parray = array;
  VARIANT bytesCopy;
  VariantInit(&bytesCopy);
  ASSERT_EQ(VariantCopy(&bytesCopy, &bytes), S_OK);
  ASSERT_EQ(store->Take(first + 5, 2, &bytesCopy), S_OK);

  // A stored text read in place is laid out as a BSTR.
  std::u16string_view text;
  ASSERT_TRUE(RfcRowsTextAt(rows, 0, 0, &text));
  EXPECT_EQ(text, u"gr\u00fc\u00df \U0001F600");
  EXPECT_EQ(SysStringLen(const_cast<BSTR>(text.data())), text.size());
  EXPECT_EQ(text.data()[text.size()], u'\0');
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text.data()) % 4, 0u);
  EXPECT_FALSE(RfcRowsTextAt(rows, 0, 1, &text));
  // Viewed in place: a borrowed BSTR into the arena, scalars as they were.
  VARIANT view;
  store->View(first, 0, &view);
  ASSERT_EQ(view.vt, VT_BSTR);
  EXPECT_EQ(view.bstrVal, text.data());
  EXPECT_EQ(SysStringLen(view.bstrVal), text.size());
  CComVariant copied;
  ASSERT_EQ(VariantCopy(&copied, &view), S_OK);
  EXPECT_EQ(Str(copied.bstrVal), text);
  store->View(first, 2, &view);
  EXPECT_EQ(view.vt, VT_DATE);
  EXPECT_EQ(view.date, 45000.0);
  store->View(first + 3, 3, &view);
  EXPECT_EQ(view.vt, VT_DECIMAL);
  store->View(first + 2, 0, &view);
  EXPECT_EQ(view.vt, VT_BSTR);
  EXPECT_TRUE(view.bstrVal == nullptr);
  EXPECT_FALSE(RfcRowsTextAt(rows, 9, 0, &text));

  CComVariant v = Value(Field(Row(rows, 1), u"NAME"));
  ASSERT_EQ(v.vt, VT_BSTR);
  EXPECT_EQ(Str(v.bstrVal), u"gr\u00fc\u00df \U0001F600");
  EXPECT_EQ(SysStringLen(v.bstrVal), 7u);
  v = Value(Field(Row(rows, 2), u"NAME"));
  ASSERT_EQ(v.vt, VT_BSTR);
  EXPECT_TRUE(v.bstrVal != nullptr);
  EXPECT_EQ(SysStringLen(v.bstrVal), 0u);
  v = Value(Field(Row(rows, 3), u"NAME"));
  EXPECT_EQ(v.vt, VT_BSTR);
  EXPECT_TRUE(v.bstrVal == nullptr);
  v = Value(Field(Row(rows, 1), u"DAY"));
  EXPECT_EQ(v.vt, VT_DATE);
  EXPECT_EQ(v.date, 45000.0);
  v = Value(Field(Row(rows, 1), u"PRICE"));
  EXPECT_EQ(v.vt, VT_R4);
  EXPECT_EQ(v.fltVal, 1.5f);
  v = Value(Field(Row(rows, 4), u"PRICE"));
  EXPECT_EQ(v.vt, VT_DECIMAL);
  EXPECT_EQ(VarCmp(&v, &decimal, 0, 0), VARCMP_EQ);
  v = Value(Field(Row(rows, 5), u"COUNT"));
  EXPECT_EQ(v.vt, VT_I4);
  EXPECT_EQ(v.lVal, 77);
  v = Value(Field(Row(rows, 6), u"DAY"));
  EXPECT_EQ(v.vt, VT_ARRAY | VT_UI1);
  EXPECT_NE(v.parray, array);
}

TEST(RowStore, IllFormedTextFailsAndLeavesTheCellAsItWas) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  RowStore* store = nullptr;
  size_t first = 0;
  ASSERT_EQ(RfcRowsAppendStored(rows, 1, &store, &first), S_OK);
  store->PutUtf8(first, 0, "kept");
  EXPECT_THROW(store->PutUtf8(first, 0, "bad \xc3"), std::range_error);
  EXPECT_THROW(store->PutUtf8(first, 0, "\xed\xa0\x80"), std::range_error);  // a surrogate
  EXPECT_EQ(Str(Value(Field(Row(rows, 1), u"NAME")).bstrVal), u"kept");
}

TEST(RowStore, RowsKeepTheShapeTheyWereAppendedWith) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcType> rowType = FlatRow();
  CComPtr<IRfcRows> rows = NewRows(rowType, keep);
  AppendStored(rows, 2, 1, 2);
  // The row type changes before anybody reached the rows.
  CComPtr<IRfcTypes> members;
  ASSERT_EQ(rowType->get_StructFields(&members), S_OK);
  ASSERT_EQ(members->Remove(CComVariant(u"NAME")), S_OK);
  ASSERT_EQ(rowType->AddScalarStructField(CComBSTR(u"NEW"), TYPE_INT, 0, 0, -1, -1, -1, -1), S_OK);
  AppendStored(rows, 1, 3, 2);  // filled by column as before, whatever the columns are now
  CComPtr<IRfcFields> old = Row(rows, 2);
  VARIANT_BOOL has = VARIANT_FALSE;
  old->HasKey(CComBSTR(u"NAME"), &has);
  EXPECT_EQ(has, VARIANT_TRUE);
  old->HasKey(CComBSTR(u"NEW"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);
  EXPECT_EQ(Str(Value(Field(old, u"NAME")).bstrVal), u"R2");
  CComPtr<IRfcFields> fresh = Row(rows, 3);
  fresh->HasKey(CComBSTR(u"NEW"), &has);
  EXPECT_EQ(has, VARIANT_TRUE);
  fresh->HasKey(CComBSTR(u"NAME"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);
}

TEST(RowStore, OnlyRowsOfTheModelsOwnScalarsAreStored) {
  CComPtr<IFunctionCall> keep;
  RowStore* store = nullptr;
  size_t first = 0;
  CComPtr<IRfcRows> flat = NewRows(FlatRow(), keep);
  EXPECT_EQ(RfcRowsAppendStored(flat, 0, &store, &first), E_INVALIDARG);
  EXPECT_EQ(RfcRowsAppendStored(flat, 1, nullptr, &first), E_POINTER);
  EXPECT_EQ(RfcRowsAppendStored(nullptr, 1, &store, &first), E_NOINTERFACE);

  CComPtr<IFunctionCall> keepNested;
  CComPtr<IRfcType> nested =
      Struct(u"NESTED", {Scalar(u"A", TYPE_CHAR, 1), Struct(u"INNER", {Scalar(u"B", TYPE_INT)})});
  CComPtr<IRfcRows> nestedRows = NewRows(nested, keepNested);
  EXPECT_EQ(RfcRowsAppendStored(nestedRows, 2, &store, &first), E_NOINTERFACE);
  EXPECT_EQ(Count(nestedRows), 0);

  CComPtr<IFunctionCall> keepForeign;
  CComPtr<IRfcType> foreignRow = Struct(u"ROW", {});
  ASSERT_EQ(foreignRow->AddComplexStructField(CForeignType::Wrap(Scalar(u"X", TYPE_CHAR, 1))), S_OK);
  CComPtr<IRfcRows> foreignRows = NewRows(foreignRow, keepForeign);
  EXPECT_EQ(RfcRowsAppendStored(foreignRows, 2, &store, &first), E_NOINTERFACE);
  EXPECT_EQ(Count(foreignRows), 0);

  // A structure without members fails as AddRows does.
  CComPtr<IFunctionCall> keepEmpty;
  CComPtr<IRfcRows> empty = NewRows(Struct(u"NONE", {}), keepEmpty);
  EXPECT_EQ(RfcRowsAppendStored(empty, 2, &store, &first), empty->AddRows(2));
  EXPECT_EQ(Count(empty), 0);
}

TEST(RowStore, ATableOfStoredRowsIsNotEmpty) {
  CComPtr<IFunctionCall> keep = NewCall(u"Z_EMPTY");
  CComPtr<IRfcParameters> tables = Tables(keep);
  ASSERT_EQ(tables->AddTable(CComBSTR(u"T"), FlatRow()), S_OK);
  CComPtr<IRfcParameter> table = Param(tables, CComVariant(u"T"));
  CComPtr<IRfcRows> rows;
  ASSERT_EQ(table->get_Rows(&rows), S_OK);
  VARIANT_BOOL empty = VARIANT_FALSE;
  ASSERT_EQ(table->get_IsEmpty(&empty), S_OK);
  EXPECT_EQ(empty, VARIANT_TRUE);
  AppendStored(rows, 2, 1, 2);
  ASSERT_EQ(table->get_IsEmpty(&empty), S_OK);
  EXPECT_EQ(empty, VARIANT_FALSE);
}
