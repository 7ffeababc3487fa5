#include "foreign_type.h"
#include "model_test_support.h"

using namespace model_test;

namespace {

constexpr const char16_t* kRowsSource = u"Veltrane.RfcRows.1";

CComPtr<IRfcType> RowType(int fields) {
  CComPtr<IRfcType> row = Struct(u"ROW", {});
  for (int i = 0; i < fields; ++i) {
    std::u16string name = u"F" + Utf8ToWide(std::to_string(i));
    EXPECT_EQ(row->AddScalarStructField(CComBSTR(name.c_str()), TYPE_CHAR, 10, 0, -1, -1, -1, -1), S_OK);
  }
  return row;
}

// The rows of a new table parameter of the row type.
CComPtr<IRfcRows> NewRows(IRfcType* rowType, IFunctionCall** keep = nullptr) {
  CComPtr<IFunctionCall> call = NewCall(u"Z_ROWS");
  CComPtr<IRfcParameters> tables = Tables(call);
  EXPECT_EQ(tables->AddTable(CComBSTR(u"T"), rowType), S_OK);
  CComPtr<IRfcRows> rows;
  EXPECT_EQ(Param(tables, CComVariant(u"T"))->get_Rows(&rows), S_OK);
  if (keep) *keep = call.Detach();
  return rows;
}

LONG Count(IRfcRows* r) {
  LONG n = -1;
  EXPECT_EQ(r->get_Count(&n), S_OK);
  return n;
}

CComPtr<IRfcField> FieldAt(IRfcFields* row, const VARIANT& index) {
  CComPtr<IRfcField> f;
  EXPECT_EQ(row->get_Item(index, &f), S_OK);
  return f;
}

}  // namespace

TEST(RfcRows, ANewTableHasNoRowsAndTheRowTypeAsItsType) {
  CComPtr<IRfcType> row = RowType(2);
  CComPtr<IRfcRows> rows = NewRows(row);
  EXPECT_EQ(Count(rows), 0);
  CComPtr<IRfcType> t;
  EXPECT_EQ(rows->get_RfcType(&t), S_OK);
  EXPECT_EQ(t.p, row.p);
  VARIANT_BOOL fileMode = VARIANT_TRUE;
  SHORT dataCol = 9, indexCol = 9;
  rows->get_FileMode(&fileMode);
  rows->get_DataCol(&dataCol);
  rows->get_IndexCol(&indexCol);
  EXPECT_EQ(fileMode, VARIANT_FALSE);
  EXPECT_EQ(dataCol, 0);
  EXPECT_EQ(indexCol, 0);
}

TEST(RfcRows, AddRowAppendsAFreshRowAndReturnsIt) {
  CComPtr<IRfcRows> rows = NewRows(RowType(3));
  CComPtr<IRfcFields> a, b;
  ASSERT_EQ(rows->AddRow(&a), S_OK);
  ASSERT_EQ(rows->AddRow(&b), S_OK);
  EXPECT_NE(a.p, b.p);
  EXPECT_EQ(Count(rows), 2);
  CComPtr<IRfcFields> second;
  EXPECT_EQ(rows->get_Item(2, &second), S_OK);
  EXPECT_EQ(second.p, b.p);
  LONG n = 0;
  a->get_Count(&n);
  EXPECT_EQ(n, 3);
  // Each row has fields of its own.
  FieldAt(a, CComVariant(u"F0"))->put_value(CComVariant(u"a"));
  CComVariant v;
  FieldAt(b, CComVariant(u"F0"))->get_value(&v);
  EXPECT_EQ(v.vt, VT_EMPTY);
  EXPECT_EQ(rows->AddRow(nullptr), E_POINTER);
}

TEST(RfcRows, ItemIsOneBasedAndByPositionOnly) {
  CComPtr<IRfcRows> rows = NewRows(RowType(1));
  rows->AddRows(2);
  CComPtr<IRfcFields> r;
  EXPECT_EQ(rows->get_Item(0, &r), E_INVALIDARG);
  EXPECT_EQ(rows->get_Item(3, &r), E_INVALIDARG);
  EXPECT_EQ(rows->get_Item(1, &r), S_OK);
  EXPECT_EQ(rows->get_Item(1, nullptr), E_POINTER);
}

TEST(RfcRows, AddRowsTakesACountOfAtLeastOne) {
  CComPtr<IRfcRows> rows = NewRows(RowType(1));
  EXPECT_EQ(rows->AddRows(0), E_INVALIDARG);
  EXPECT_EQ(rows->AddRows(-5), E_INVALIDARG);
  EXPECT_EQ(Count(rows), 0);
  EXPECT_EQ(rows->AddRows(1), S_OK);
  EXPECT_EQ(rows->AddRows(4), S_OK);
  EXPECT_EQ(Count(rows), 5);
}

TEST(RfcRows, ARowStaysUsableAfterRemoveAll) {
  CComPtr<IRfcRows> rows = NewRows(RowType(2));
  CComPtr<IRfcFields> row;
  rows->AddRow(&row);
  EXPECT_EQ(rows->RemoveAll(), S_OK);
  EXPECT_EQ(Count(rows), 0);
  CComPtr<IRfcField> f = FieldAt(row, CComVariant(u"F1"));
  EXPECT_EQ(f->put_value(CComVariant(u"detached")), S_OK);
  CComVariant v;
  f->get_value(&v);
  EXPECT_EQ(Str(v.bstrVal), u"detached");
}

TEST(RfcRows, RemoveAllKeepsFileModeAndColumns) {
  CComPtr<IRfcRows> rows = NewRows(RowType(3));
  rows->AddRows(2);
  ASSERT_EQ(rows->SetFileMode(2, 3), S_OK);
  rows->RemoveAll();
  VARIANT_BOOL fileMode = VARIANT_FALSE;
  SHORT dataCol = 0, indexCol = 0;
  rows->get_FileMode(&fileMode);
  rows->get_DataCol(&dataCol);
  rows->get_IndexCol(&indexCol);
  EXPECT_EQ(fileMode, VARIANT_TRUE);
  EXPECT_EQ(dataCol, 2);
  EXPECT_EQ(indexCol, 3);
  CComPtr<IRfcType> t;
  rows->get_RfcType(&t);
  EXPECT_TRUE(t);
}

TEST(RfcRows, SetFileModeChecksInOrder) {
  CComPtr<IRfcRows> rows = NewRows(RowType(3));
  EXPECT_EQ(rows->SetFileMode(0, 0), E_INVALIDARG);
  EXPECT_EQ(rows->SetFileMode(4, 0), E_INVALIDARG);
  EXPECT_EQ(rows->SetFileMode(1, 4), E_INVALIDARG);
  ASSERT_EQ(rows->SetFileMode(3, 0), S_OK);
  ExpectModelError(rows->SetFileMode(1, 0), 513, kRowsSource, u"The object has already been initialized");
  // Once in file mode, even bad columns give 513: that test comes first.
  ExpectModelError(rows->SetFileMode(0, 0), 513, kRowsSource, u"The object has already been initialized");
}

TEST(RfcRows, DataAndIndexMayNameTheSameColumnAndANegativeIndexIsKept) {
  CComPtr<IRfcRows> same = NewRows(RowType(2));
  EXPECT_EQ(same->SetFileMode(1, 1), S_OK);
  CComPtr<IRfcRows> negative = NewRows(RowType(2));
  EXPECT_EQ(negative->SetFileMode(2, -1), S_OK);
  SHORT indexCol = 0;
  negative->get_IndexCol(&indexCol);
  EXPECT_EQ(indexCol, -1);
}

TEST(RfcRows, SetFileModeWithoutARowTypeFailsWith514) {
  // A table type of another implementation that has no row type.
  CComPtr<IRfcType> real = Table(u"T", RowType(1));
  CComPtr<IRfcType> foreign = CForeignType::Wrap(real, std::nullopt, true);
  CComPtr<IRfcParameters> set = Tables(NewCall());
  set->AddParameter(CComBSTR(u"T"), foreign);
  CComPtr<IRfcRows> rows;
  ASSERT_EQ(Param(set, CComVariant(u"T"))->get_Rows(&rows), S_OK);
  ExpectModelError(rows->SetFileMode(1, 0), 514, kRowsSource, u"The object has not been initialized");
  // Shaping a row without a type is a pointer error.
  CComPtr<IRfcFields> row;
  EXPECT_EQ(rows->AddRow(&row), E_POINTER);
  EXPECT_EQ(rows->AddRows(2), E_POINTER);
  EXPECT_EQ(Count(rows), 0);
}

TEST(RfcRows, PutRfcTypeTakesOnlyTables) {
  CComPtr<IRfcType> row1 = RowType(1), row2 = RowType(2);
  CComPtr<IRfcRows> rows = NewRows(row1);
  ExpectModelError(rows->put_RfcType(row2), 517, kRowsSource, u"Object is not a table");
  CComPtr<IRfcType> t;
  rows->get_RfcType(&t);
  EXPECT_EQ(t.p, row1.p);
  EXPECT_EQ(rows->put_RfcType(nullptr), E_POINTER);
  EXPECT_EQ(rows->put_RfcType(Table(u"T2", row2)), S_OK);
  t.Release();
  rows->get_RfcType(&t);
  EXPECT_EQ(t.p, row2.p);
  CComPtr<IRfcFields> r;
  rows->AddRow(&r);
  LONG n = 0;
  r->get_Count(&n);
  EXPECT_EQ(n, 2);
}

TEST(RfcRows, AddRowOnARowStructureWithoutMembersFailsWith514) {
  CComPtr<IRfcType> row = RowType(1);
  CComPtr<IRfcRows> rows = NewRows(row);
  CComPtr<IRfcTypes> members;
  row->get_StructFields(&members);
  members->RemoveAll();
  CComPtr<IRfcFields> r;
  ExpectModelError(rows->AddRow(&r), 514, u"Veltrane.RfcField.1", u"The object has not been initialized");
  EXPECT_FALSE(r);
  EXPECT_EQ(Count(rows), 0);
}

TEST(RfcRows, ARowTypeThatIsNoLongerAStructureFailsAddRow) {
  CComPtr<IRfcType> row = RowType(1);
  CComPtr<IRfcRows> rows = NewRows(row);
  ASSERT_EQ(row->DefineTable(CComBSTR(u"NOW_A_TABLE"), RowType(1)), S_OK);
  CComPtr<IRfcFields> r;
  ExpectModelError(rows->AddRow(&r), 516, u"Veltrane.RfcField.1", u"Object is not a structure");
}

TEST(RfcRows, NewEnumWalksTheRowsLive) {
  CComPtr<IRfcRows> rows = NewRows(RowType(1));
  rows->AddRows(2);
  CComPtr<IUnknown> unk;
  ASSERT_EQ(rows->get__NewEnum(&unk), S_OK);
  CComQIPtr<IEnumVARIANT> e(unk.p);
  VARIANT v;
  int seen = 0;
  while (e->Next(1, &v, nullptr) == S_OK) {
    EXPECT_EQ(v.vt, VT_DISPATCH);
    CComQIPtr<IRfcFields> row(v.pdispVal);
    EXPECT_TRUE(row);
    VariantClear(&v);
    if (++seen == 1) rows->AddRows(1);  // seen by the running enumeration
  }
  EXPECT_EQ(seen, 3);
}

TEST(RfcRows, TheBackEndOperationsAddAndRemoveRows) {
  CComPtr<IRfcRows> rows = NewRows(RowType(1));
  CComPtr<IRfcRows> other = NewRows(RowType(1));
  CComPtr<IRfcFields> foreignRow;
  other->AddRow(&foreignRow);
  EXPECT_EQ(RfcRowsAdd(rows, foreignRow), S_OK);
  EXPECT_EQ(Count(rows), 1);
  EXPECT_EQ(RfcRowsAdd(rows, nullptr), E_UNEXPECTED);
  EXPECT_EQ(RfcRowsRemove(rows, 2), E_INVALIDARG);
  EXPECT_EQ(RfcRowsRemove(rows, 1), S_OK);
  EXPECT_EQ(Count(rows), 0);
  EXPECT_EQ(RfcRowsSetFileModeRaw(rows, VARIANT_TRUE, 40, -2), S_OK);
  SHORT dataCol = 0, indexCol = 0;
  rows->get_DataCol(&dataCol);
  rows->get_IndexCol(&indexCol);
  EXPECT_EQ(dataCol, 40);
  EXPECT_EQ(indexCol, -2);
}

TEST(RfcRows, AHundredThousandRowsBuiltRowByRow) {
  constexpr LONG kRows = 100000;
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(RowType(10), &keep.p);
  for (LONG i = 0; i < kRows; ++i) {
    CComPtr<IRfcFields> row;
    ASSERT_EQ(rows->AddRow(&row), S_OK);
    CComPtr<IRfcField> f;
    ASSERT_EQ(row->get_Item(CComVariant(LONG(1)), &f), S_OK);
    ASSERT_EQ(f->put_value(CComVariant(i)), S_OK);
    f.Release();
    ASSERT_EQ(row->get_Item(CComVariant(u"F9"), &f), S_OK);
    ASSERT_EQ(f->put_value(CComVariant(u"last")), S_OK);
  }
  EXPECT_EQ(Count(rows), kRows);
  for (LONG i : {1L, 5000L, 99999L, 100000L}) {
    CComPtr<IRfcFields> row;
    ASSERT_EQ(rows->get_Item(i, &row), S_OK);
    CComVariant v;
    FieldAt(row, CComVariant(u"F0"))->get_value(&v);
    EXPECT_EQ(v.lVal, i - 1);
    v.Clear();
    FieldAt(row, CComVariant(LONG(10)))->get_value(&v);
    EXPECT_EQ(Str(v.bstrVal), u"last");
    v.Clear();
    FieldAt(row, CComVariant(u"F5"))->get_value(&v);
    EXPECT_EQ(v.vt, VT_EMPTY);
  }
}

TEST(RfcRows, RowsBuiltAlikeKeepTheirKeysApart) {
  CComPtr<IRfcType> row = RowType(3);
  CComPtr<IRfcRows> rows = NewRows(row);
  ASSERT_EQ(rows->AddRows(3), S_OK);
  CComPtr<IRfcFields> first, second, third;
  rows->get_Item(1, &first);
  rows->get_Item(2, &second);
  rows->get_Item(3, &third);
  // A field added to one row is a key of that row only.
  CComPtr<IRfcField> extra = FieldAt(third, CComVariant(u"F2"));
  extra->put_name(CComBSTR(u"EXTRA"));
  ASSERT_EQ(first->AddField(extra), S_OK);
  VARIANT_BOOL has = VARIANT_FALSE;
  first->HasKey(CComBSTR(u"EXTRA"), &has);
  EXPECT_EQ(has, VARIANT_TRUE);
  second->HasKey(CComBSTR(u"EXTRA"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);
  third->HasKey(CComBSTR(u"EXTRA"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);  // a rename does not touch the map
  EXPECT_EQ(FieldAt(second, CComVariant(u"F2")).p, FieldAt(second, CComVariant(LONG(3))).p);
  // A row type with other member names gives rows with other keys.
  CComPtr<IRfcTypes> members;
  row->get_StructFields(&members);
  members->Remove(CComVariant(u"F0"));
  row->AddScalarStructField(CComBSTR(u"NEW"), TYPE_INT, 0, 0, -1, -1, -1, -1);
  CComPtr<IRfcFields> fourth;
  rows->AddRow(&fourth);
  fourth->HasKey(CComBSTR(u"NEW"), &has);
  EXPECT_EQ(has, VARIANT_TRUE);
  fourth->HasKey(CComBSTR(u"F0"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);
  EXPECT_EQ(FieldAt(fourth, CComVariant(u"F1")).p, FieldAt(fourth, CComVariant(LONG(1))).p);
  second->HasKey(CComBSTR(u"F0"), &has);
  EXPECT_EQ(has, VARIANT_TRUE);
  // Duplicate member names: the key finds the later member in every row.
  CComPtr<IRfcType> dup = Struct(u"DUP", {Scalar(u"A", TYPE_CHAR, 1), Scalar(u"A", TYPE_INT)});
  CComPtr<IRfcRows> dupRows = NewRows(dup);
  dupRows->AddRows(2);
  CComPtr<IRfcFields> d2;
  dupRows->get_Item(2, &d2);
  EXPECT_EQ(FieldAt(d2, CComVariant(u"A")).p, FieldAt(d2, CComVariant(LONG(2))).p);
  // Removing from one row leaves the others whole.
  CComPtr<IRfcFields> d1;
  dupRows->get_Item(1, &d1);
}

TEST(RfcRows, TheBackEndAddsRowsInOneGo) {
  CComPtr<IRfcType> row = Struct(u"ROW", {Scalar(u"A", TYPE_CHAR, 4), Scalar(u"B", TYPE_INT)});
  CComPtr<IRfcRows> rows = NewRows(row);
  rows->AddRows(1);
  std::vector<CRfcField*> cells;
  ASSERT_EQ(RfcRowsAddRows(rows, 3, &cells), S_OK);
  EXPECT_EQ(Count(rows), 4);
  ASSERT_EQ(cells.size(), 6u);
  // Fresh rows of fresh fields, shaped as AddRow shapes them.
  for (LONG r = 2; r <= 4; ++r) {
    CComPtr<IRfcFields> fields;
    ASSERT_EQ(rows->get_Item(r, &fields), S_OK);
    size_t at = static_cast<size_t>(r - 2) * 2;
    EXPECT_EQ(FieldAt(fields, CComVariant(u"A")).p, RfcFieldInterface(cells[at]));
    EXPECT_EQ(FieldAt(fields, CComVariant(u"B")).p, RfcFieldInterface(cells[at + 1]));
    CComVariant value;
    EXPECT_EQ(FieldAt(fields, CComVariant(LONG(1)))->get_value(&value), S_OK);
    EXPECT_EQ(value.vt, VT_EMPTY);
    LONG shape = 0;
    FieldAt(fields, CComVariant(LONG(2)))->get_InternalType(&shape);
    EXPECT_EQ(shape, 1);
  }
  EXPECT_NE(cells[0], cells[2]);
  EXPECT_EQ(RfcRowsAddRows(rows, 0, &cells), E_INVALIDARG);
  EXPECT_EQ(RfcRowsAddRows(rows, 1, nullptr), E_POINTER);
  // A structure without members fails as AddRows does.
  CComPtr<IRfcRows> empty = NewRows(Struct(u"NONE", {}));
  cells.clear();
  EXPECT_EQ(RfcRowsAddRows(empty, 2, &cells), empty->AddRows(2));
  EXPECT_EQ(Count(empty), 0);
  EXPECT_TRUE(cells.empty());
}

TEST(RfcRows, TheBackEndAddsRowsOfForeignTypesOneByOne) {
  CComPtr<IRfcType> row = Struct(u"ROW", {});
  CComPtr<IRfcType> foreign = CForeignType::Wrap(Scalar(u"X", TYPE_CHAR, 1));
  ASSERT_EQ(row->AddComplexStructField(foreign), S_OK);
  CComPtr<IRfcRows> rows = NewRows(row);
  std::vector<CRfcField*> cells;
  EXPECT_EQ(RfcRowsAddRows(rows, 2, &cells), E_NOINTERFACE);
  EXPECT_EQ(Count(rows), 0);
  EXPECT_TRUE(cells.empty());
  // AddRows still serves them.
  EXPECT_EQ(rows->AddRows(2), S_OK);
  EXPECT_EQ(Count(rows), 2);
}

TEST(RfcField, TheBackEndHandsOverAValue) {
  CComPtr<IRfcRows> rows = NewRows(RowType(1));
  CComPtr<IRfcFields> fields;
  rows->AddRow(&fields);
  CComPtr<IRfcField> field = FieldAt(fields, CComVariant(LONG(1)));
  VARIANT value;
  value.vt = VT_BSTR;
  value.bstrVal = SysAllocString(u"moved");
  BSTR text = value.bstrVal;
  EXPECT_EQ(RfcFieldAttachValue(field, &value), S_OK);
  EXPECT_EQ(value.vt, VT_EMPTY);
  CComVariant read;
  field->get_value(&read);
  EXPECT_EQ(read.vt, VT_BSTR);
  EXPECT_EQ(std::u16string(read.bstrVal), u"moved");
  EXPECT_NE(read.bstrVal, text);  // get_value copies
  // A reference is stored as the value it refers to, as put_value stores it.
  LONG number = 7;
  value.vt = VT_I4 | VT_BYREF;
  value.plVal = &number;
  EXPECT_EQ(RfcFieldAttachValue(field, &value), S_OK);
  EXPECT_EQ(value.vt, VT_EMPTY);
  read.Clear();
  field->get_value(&read);
  EXPECT_EQ(read.vt, VT_I4);
  EXPECT_EQ(read.lVal, 7);
  EXPECT_EQ(RfcFieldAttachValue(static_cast<IRfcField*>(nullptr), &value), E_POINTER);
}
