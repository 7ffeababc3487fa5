// Tables of the row-store tests: a flat row type, a table of it in a call,
// and rows appended to the store without making objects.
#pragma once

#include <string>

#include "model/row_store.h"
#include "model_test_support.h"

namespace model_test {

// NAME CHAR 10, COUNT INT, DAY DATE, PRICE FLOAT.
inline CComPtr<IRfcType> FlatRow() {
  return Struct(u"ROW", {Scalar(u"NAME", TYPE_CHAR, 10), Scalar(u"COUNT", TYPE_INT), Scalar(u"DAY", TYPE_DATE),
                         Scalar(u"PRICE", TYPE_FLOAT)});
}

// The table T of a new call, which `keep` holds.
inline CComPtr<IRfcRows> NewRows(IRfcType* rowType, CComPtr<IFunctionCall>& keep) {
  keep = NewCall(u"Z_ROWS");
  CComPtr<IRfcParameters> tables = Tables(keep);
  EXPECT_EQ(tables->AddTable(CComBSTR(u"T"), rowType), S_OK);
  CComPtr<IRfcRows> rows;
  EXPECT_EQ(Param(tables, CComVariant(u"T"))->get_Rows(&rows), S_OK);
  return rows;
}

inline ULONG CountOf(IUnknown* p) {
  p->AddRef();
  return p->Release();
}

// Appends `count` stored rows of FlatRow, n counting from `start`, and fills
// the first `fields` of NAME "R<n>", COUNT n, DAY 2024-01-n, PRICE n.5; the
// others stay as a new field is.
inline void AppendStored(IRfcRows* rows, LONG count, LONG start, int fields) {
  RowStore* store = nullptr;
  size_t first = 0;
  ASSERT_EQ(RfcRowsAppendStored(rows, count, &store, &first), S_OK);
  for (LONG i = 0; i < count; ++i) {
    const size_t row = first + static_cast<size_t>(i);
    const LONG n = start + i;
    store->PutUtf8(row, 0, "R" + std::to_string(n));
    VARIANT v;
    if (fields > 1) {
      v.vt = VT_I4;
      v.lVal = n;
      ASSERT_EQ(store->Take(row, 1, &v), S_OK);
      EXPECT_EQ(v.vt, VT_EMPTY);  // taken
    }
    if (fields > 2) {
      v.vt = VT_DATE;
      v.date = 45291.0 + n;
      ASSERT_EQ(store->Take(row, 2, &v), S_OK);
    }
    if (fields > 3) {
      v.vt = VT_R8;
      v.dblVal = n + 0.5;
      ASSERT_EQ(store->Take(row, 3, &v), S_OK);
    }
  }
}

}  // namespace model_test
