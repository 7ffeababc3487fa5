// The values of read-table's rows: borrowed from the library's rows in place,
// read through the interfaces from rows of another implementation, the same
// either way.
#include <gtest/gtest.h>

#include <string>

#include "failure.h"
#include "table_rows.h"
#include "text.h"

using namespace veltrane::cli;

namespace {

// Rows of another implementation: the library's rows behind IRfcRows alone.
class ForwardingRows : public CComObjectBase<ForwardingRows, IDispatchImpl<ForwardingRows, IRfcRows>> {
 public:
  CComPtr<IRfcRows> inner;

  HRESULT STDMETHODCALLTYPE get_Count(LONG* p) override { return inner->get_Count(p); }
  HRESULT STDMETHODCALLTYPE get_Item(LONG i, IRfcFields** p) override { return inner->get_Item(i, p); }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** p) override { return inner->get__NewEnum(p); }
  HRESULT STDMETHODCALLTYPE get_FileMode(VARIANT_BOOL* p) override { return inner->get_FileMode(p); }
  HRESULT STDMETHODCALLTYPE get_DataCol(SHORT* p) override { return inner->get_DataCol(p); }
  HRESULT STDMETHODCALLTYPE get_IndexCol(SHORT* p) override { return inner->get_IndexCol(p); }
  HRESULT STDMETHODCALLTYPE get_RfcType(IRfcType** p) override { return inner->get_RfcType(p); }
  HRESULT STDMETHODCALLTYPE AddRows(LONG n) override { return inner->AddRows(n); }
  HRESULT STDMETHODCALLTYPE AddRow(IRfcFields** p) override { return inner->AddRow(p); }
  HRESULT STDMETHODCALLTYPE SetFileMode(SHORT d, SHORT i) override { return inner->SetFileMode(d, i); }
  HRESULT STDMETHODCALLTYPE RemoveAll() override { return inner->RemoveAll(); }
  HRESULT STDMETHODCALLTYPE put_RfcType(IRfcType* t) override { return inner->put_RfcType(t); }
};

class TableRows : public ::testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    ASSERT_EQ(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISession,
                               reinterpret_cast<void**>(&session_)),
              S_OK);
    // Rows of NAME, COUNT and a second NAME, the last being the one a
    // lookup by name finds.
    CComPtr<IRfcType> row = type();
    ASSERT_EQ(row->DefineStruct(CComBSTR(u"ROW")), S_OK);
    ASSERT_EQ(row->AddScalarStructField(CComBSTR(u"NAME"), TYPE_CHAR, 10, 0, -1, -1, -1, -1), S_OK);
    ASSERT_EQ(row->AddScalarStructField(CComBSTR(u"COUNT"), TYPE_INT, 4, 0, -1, -1, -1, -1), S_OK);
    ASSERT_EQ(row->AddScalarStructField(CComBSTR(u"NAME"), TYPE_CHAR, 10, 0, -1, -1, -1, -1), S_OK);
    CComPtr<IRfcType> table = type();
    ASSERT_EQ(table->DefineTable(CComBSTR(u"T"), row), S_OK);
    CComPtr<IFunctionCall> call;
    ASSERT_EQ(session_->CreateCall(&call), S_OK);
    CComPtr<IRfcParameters> tables;
    ASSERT_EQ(call->get_Tables(&tables), S_OK);
    ASSERT_EQ(tables->AddTable(CComBSTR(u"T"), row), S_OK);
    CComPtr<IRfcParameter> param;
    ASSERT_EQ(tables->get_Item(CComVariant(u"T"), &param), S_OK);
    ASSERT_EQ(param->get_Rows(&rows_), S_OK);
    // Three rows left in the store, then one made into objects.
    ASSERT_EQ(rows_->AddRows(3), S_OK);
    CComPtr<IRfcFields> second;
    ASSERT_EQ(rows_->get_Item(2, &second), S_OK);
    put(second, 1, CComVariant(u"first"));
    put(second, 2, CComVariant(LONG(7)));
    put(second, 3, CComVariant(u"gr\u00fc\u00df"));
  }
  void TearDown() override {
    rows_.Release();
    session_.Release();
    CoUninitialize();
  }

  CComPtr<IRfcType> type() {
    CComPtr<IRfcType> t;
    EXPECT_EQ(session_->CreateType(&t), S_OK);
    return t;
  }
  static void put(IRfcFields* row, LONG position, const CComVariant& value) {
    CComPtr<IRfcField> f;
    ASSERT_EQ(row->get_Item(CComVariant(position), &f), S_OK);
    ASSERT_EQ(f->put_value(value), S_OK);
  }

  // The rows' values of the fields, as text, row by row.
  std::vector<std::string> read(IRfcRows* rows, const std::vector<FieldLayout>& layout) {
    std::vector<size_t> group;
    for (size_t i = 0; i < layout.size(); ++i) group.push_back(i);
    const std::string table = "T";
    RowValues reader(rows, layout, group, table);
    std::vector<VARIANT> values(layout.size());
    std::vector<CComVariant> held(layout.size());
    std::vector<std::string> lines;
    for (LONG r = 1; r <= 3; ++r) {
      reader.read(r, values, held);
      std::string line;
      for (const VARIANT& v : values) {
        CComVariant text;
        if (v.vt == VT_EMPTY)
          line += "-";
        else if (SUCCEEDED(VariantChangeType(&text, &v, 0, VT_BSTR)))
          line += utf8(text.bstrVal);
        line += "|";
      }
      lines.push_back(line);
    }
    return lines;
  }

  CComPtr<ISession> session_;
  CComPtr<IRfcRows> rows_;
};

TEST_F(TableRows, TheLibrarysRowsGiveTheirCellsInPlace) {
  CComPtr<IUnknown> cells;
  ASSERT_EQ(rows_->QueryInterface(IID_IRfcRowCells, reinterpret_cast<void**>(&cells)), S_OK);
  const std::vector<std::string> lines = read(rows_, {{"COUNT", 10, "I"}, {"NAME", 10, "C"}});
  EXPECT_EQ(lines, (std::vector<std::string>{"-|-|", "7|gr\u00fc\u00df|", "-|-|"}));
}

TEST_F(TableRows, RowsOfAnotherImplementationGiveTheSameThroughTheirInterfaces) {
  ForwardingRows* forwarding = nullptr;
  ASSERT_EQ(ForwardingRows::CreateInstance(&forwarding), S_OK);
  CComPtr<IRfcRows> other;
  other.Attach(forwarding);
  forwarding->inner = rows_;
  CComPtr<IUnknown> cells;
  EXPECT_EQ(other->QueryInterface(IID_IRfcRowCells, reinterpret_cast<void**>(&cells)), E_NOINTERFACE);
  const std::vector<FieldLayout> layout{{"COUNT", 10, "I"}, {"NAME", 10, "C"}};
  EXPECT_EQ(read(other, layout), read(rows_, layout));
}

TEST_F(TableRows, AFieldTheRowsLackIsAnError) {
  const std::vector<FieldLayout> layout{{"COUNT", 10, "I"}, {"NOPE", 10, "C"}};
  std::vector<size_t> group{0, 1};
  const std::string table = "T";
  RowValues reader(rows_, layout, group, table);
  std::vector<VARIANT> values(2);
  std::vector<CComVariant> held(2);
  try {
    reader.read(1, values, held);
    FAIL() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "the rows of T lack the field NOPE");
  }
}

}  // namespace
