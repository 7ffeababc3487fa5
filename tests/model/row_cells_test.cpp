// IRfcRowCells: the cells of stored rows and of rows made into objects read
// in place, without making objects or changing what a client can observe.
#include <string>

#include "foreign_type.h"
#include "stored_rows.h"
#include "veltrane/row_cells.h"

using namespace model_test;

namespace {

CComPtr<IRfcRowCells> CellsOf(IRfcRows* rows) {
  CComPtr<IRfcRowCells> cells;
  EXPECT_EQ(rows->QueryInterface(IID_IRfcRowCells, reinterpret_cast<void**>(&cells)), S_OK);
  return cells;
}

std::u16string Text(const RfcCell& cell) { return std::u16string(cell.text, cell.length); }

std::u16string Name(IRfcRowCells* cells, LONG row, LONG column) {
  const char16_t* name = nullptr;
  UINT length = 0;
  EXPECT_EQ(cells->GetCellName(row, column, &name, &length), S_OK);
  return std::u16string(name, length);
}

// Rows of another implementation than the model's.
class ForeignRow : public CComObjectBase<ForeignRow, IDispatchImpl<ForeignRow, IRfcFields>> {
 public:
  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override {
    *pVal = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE HasKey(BSTR, VARIANT_BOOL*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_Item(VARIANT, IRfcField**) override { return E_INVALIDARG; }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddField(IRfcField*) override { return E_NOTIMPL; }
};

}  // namespace

TEST(RowCells, StoredRowsGiveTheirCellsInPlaceWithTheMembersTypes) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  AppendStored(rows, 3, 1, 4);
  CComPtr<IRfcRowCells> cells = CellsOf(rows);
  RfcCell row[4];
  LONG width = 0;
  ASSERT_EQ(cells->GetRowCells(2, row, 4, &width), S_OK);
  EXPECT_EQ(width, 4);
  EXPECT_EQ(row[0].value.vt, VT_BSTR);
  EXPECT_EQ(Text(row[0]), u"R2");
  EXPECT_EQ(row[0].text, row[0].value.bstrVal);
  EXPECT_EQ(SysStringLen(row[0].value.bstrVal), 2u);
  EXPECT_EQ(row[0].type, TYPE_CHAR);
  EXPECT_EQ(row[1].value.vt, VT_I4);
  EXPECT_EQ(row[1].value.lVal, 2);
  EXPECT_EQ(row[1].text, nullptr);
  EXPECT_EQ(row[1].length, 0u);
  EXPECT_EQ(row[1].type, TYPE_INT);
  EXPECT_EQ(row[2].value.vt, VT_DATE);
  EXPECT_EQ(row[2].value.date, 45293.0);
  EXPECT_EQ(row[2].type, TYPE_DATE);
  EXPECT_EQ(row[3].value.vt, VT_R8);
  EXPECT_EQ(row[3].value.dblVal, 2.5);
  EXPECT_EQ(row[3].type, TYPE_FLOAT);
  EXPECT_EQ(Name(cells, 2, 1), u"NAME");
  EXPECT_EQ(Name(cells, 3, 4), u"PRICE");
}

TEST(RowCells, ReadingCellsMakesNoObjectsAndChangesNoCount) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  AppendStored(rows, 2, 1, 4);
  const ULONG before = CountOf(rows);
  {
    CComPtr<IRfcRowCells> cells = CellsOf(rows);
    RfcCell row[4];
    LONG width = 0;
    for (LONG r = 1; r <= 2; ++r) ASSERT_EQ(cells->GetRowCells(r, row, 4, &width), S_OK);
  }
  EXPECT_EQ(CountOf(rows), before);
  // The rows are still in the store: the objects come when a client reaches them.
  size_t storeRow = 0;
  EXPECT_NE(RfcRowsStoredRow(rows, 0, &storeRow), nullptr);
  EXPECT_NE(RfcRowsStoredRow(rows, 1, &storeRow), nullptr);
  CComPtr<IRfcFields> first;
  ASSERT_EQ(rows->get_Item(1, &first), S_OK);
  EXPECT_EQ(CountOf(first), 2u);
  CComPtr<IRfcField> name;
  ASSERT_EQ(first->get_Item(CComVariant(u"NAME"), &name), S_OK);
  CComVariant value;
  ASSERT_EQ(name->get_value(&value), S_OK);
  EXPECT_EQ(Str(value.bstrVal), u"R1");
}

TEST(RowCells, ARowMadeIntoObjectsGivesWhatItsFieldsHold) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  AppendStored(rows, 2, 1, 4);
  CComPtr<IRfcFields> second;
  ASSERT_EQ(rows->get_Item(2, &second), S_OK);
  CComPtr<IRfcField> name;
  ASSERT_EQ(second->get_Item(CComVariant(u"NAME"), &name), S_OK);
  ASSERT_EQ(name->put_value(CComVariant(u"changed")), S_OK);
  CComPtr<IRfcField> count;
  ASSERT_EQ(second->get_Item(CComVariant(u"COUNT"), &count), S_OK);
  ASSERT_EQ(count->put_value(CComVariant()), S_OK);

  CComPtr<IRfcRowCells> cells = CellsOf(rows);
  RfcCell row[4];
  LONG width = 0;
  ASSERT_EQ(cells->GetRowCells(2, row, 4, &width), S_OK);
  EXPECT_EQ(width, 4);
  EXPECT_EQ(Text(row[0]), u"changed");
  EXPECT_EQ(row[0].type, TYPE_CHAR);
  EXPECT_EQ(row[1].value.vt, VT_EMPTY);
  EXPECT_EQ(row[1].type, TYPE_INT);
  EXPECT_EQ(row[2].value.vt, VT_DATE);
  EXPECT_EQ(row[3].value.dblVal, 2.5);
  EXPECT_EQ(Name(cells, 2, 2), u"COUNT");
  // The first row stays in the store beside it.
  ASSERT_EQ(cells->GetRowCells(1, row, 4, &width), S_OK);
  EXPECT_EQ(Text(row[0]), u"R1");
}

TEST(RowCells, AMemberOfAForeignTypeGivesTheTypeItReports) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcType> rowType = Struct(u"ROW", {Scalar(u"A", TYPE_CHAR, 1)});
  ASSERT_EQ(rowType->AddComplexStructField(CForeignType::Wrap(Scalar(u"X", TYPE_INT))), S_OK);
  CComPtr<IRfcRows> rows = NewRows(rowType, keep);
  ASSERT_EQ(rows->AddRows(1), S_OK);
  CComPtr<IRfcRowCells> cells = CellsOf(rows);
  RfcCell row[2];
  LONG width = 0;
  ASSERT_EQ(cells->GetRowCells(1, row, 2, &width), S_OK);
  EXPECT_EQ(width, 2);
  EXPECT_EQ(row[0].type, TYPE_CHAR);
  EXPECT_EQ(row[1].type, TYPE_INT);
  EXPECT_EQ(Name(cells, 1, 2), u"X");
}

TEST(RowCells, CapacityBoundsWhatIsWrittenAndTheWidthIsAlwaysTold) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  AppendStored(rows, 1, 1, 4);
  CComPtr<IRfcRowCells> cells = CellsOf(rows);
  LONG width = 0;
  EXPECT_EQ(cells->GetRowCells(1, nullptr, 0, &width), S_OK);
  EXPECT_EQ(width, 4);
  RfcCell row[3];
  row[2].value.vt = VT_ERROR;
  EXPECT_EQ(cells->GetRowCells(1, row, 2, &width), S_OK);
  EXPECT_EQ(width, 4);
  EXPECT_EQ(row[1].value.lVal, 1);
  EXPECT_EQ(row[2].value.vt, VT_ERROR);
}

TEST(RowCells, BadArgumentsFailWithoutWriting) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  AppendStored(rows, 2, 1, 4);
  CComPtr<IRfcRowCells> cells = CellsOf(rows);
  RfcCell row[4];
  LONG width = 7;
  EXPECT_EQ(cells->GetRowCells(0, row, 4, &width), E_INVALIDARG);
  EXPECT_EQ(width, 0);
  EXPECT_EQ(cells->GetRowCells(3, row, 4, &width), E_INVALIDARG);
  EXPECT_EQ(cells->GetRowCells(1, row, 4, nullptr), E_POINTER);
  EXPECT_EQ(cells->GetRowCells(1, nullptr, 4, &width), E_POINTER);
  const char16_t* name = u"x";
  UINT length = 9;
  EXPECT_EQ(cells->GetCellName(1, 5, &name, &length), E_INVALIDARG);
  EXPECT_EQ(name, nullptr);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(cells->GetCellName(1, 0, &name, &length), E_INVALIDARG);
  EXPECT_EQ(cells->GetCellName(3, 1, &name, &length), E_INVALIDARG);
  EXPECT_EQ(cells->GetCellName(1, 1, nullptr, &length), E_POINTER);
  EXPECT_EQ(cells->GetCellName(1, 1, &name, nullptr), E_POINTER);
  // An empty table has no row 1.
  ASSERT_EQ(rows->RemoveAll(), S_OK);
  EXPECT_EQ(cells->GetRowCells(1, row, 4, &width), E_INVALIDARG);
}

TEST(RowCells, ARowOfAnotherImplementationIsToBeReadThroughItsInterface) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  ForeignRow* foreign = nullptr;
  ASSERT_EQ(ForeignRow::CreateInstance(&foreign), S_OK);
  CComPtr<IRfcFields> row;
  row.Attach(foreign);
  ASSERT_EQ(RfcRowsAdd(rows, row), S_OK);
  CComPtr<IRfcRowCells> cells = CellsOf(rows);
  RfcCell out[4];
  LONG width = 0;
  EXPECT_EQ(cells->GetRowCells(1, out, 4, &width), E_NOINTERFACE);
  const char16_t* name = nullptr;
  UINT length = 0;
  EXPECT_EQ(cells->GetCellName(1, 1, &name, &length), E_NOINTERFACE);
}

TEST(RowCells, TheInterfaceLeadsBackToTheSameObject) {
  CComPtr<IFunctionCall> keep;
  CComPtr<IRfcRows> rows = NewRows(FlatRow(), keep);
  CComPtr<IRfcRowCells> cells = CellsOf(rows);
  CComPtr<IUnknown> a, b;
  ASSERT_EQ(rows->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&a)), S_OK);
  ASSERT_EQ(cells->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&b)), S_OK);
  EXPECT_EQ(a.p, b.p);
  CComPtr<IRfcRows> back;
  ASSERT_EQ(cells->QueryInterface(IID_IRfcRows, reinterpret_cast<void**>(&back)), S_OK);
  EXPECT_EQ(back.p, rows.p);
}
