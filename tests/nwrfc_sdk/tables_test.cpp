// Tables: the cursor rules, rows appended and deleted, row handles, and handles that went stale.
#include "sdk_fixture.h"

using namespace sdktest;

namespace {

class Tables : public ::testing::Test {
 protected:
  void SetUp() override {
    c = open();
    call = std::make_unique<Call>(c, "Z_VSIM_TYPES");
    ASSERT_EQ(RfcGetTable(*call, u"TT_FLAT", &table, &info), RFC_OK);
  }
  void TearDown() override {
    call.reset();
    RfcCloseConnection(c, nullptr);
  }
  unsigned rows() {
    unsigned n = 0;
    EXPECT_EQ(RfcGetRowCount(table, &n, &info), RFC_OK);
    return n;
  }
  RFC_CONNECTION_HANDLE c = nullptr;
  std::unique_ptr<Call> call;
  RFC_TABLE_HANDLE table = nullptr;
  RFC_ERROR_INFO info{};
};

TEST_F(Tables, AnEmptyTableHasNoFirstRowAndNoCurrentRow) {
  EXPECT_EQ(rows(), 0u);
  EXPECT_EQ(RfcMoveToFirstRow(table, &info), RFC_TABLE_MOVE_BOF);
  EXPECT_EQ(utf8(info.message), "No first row");
  EXPECT_EQ(info.group, RFC_ERROR_GROUP::EXTERNAL_APPLICATION_FAILURE);
  EXPECT_EQ(RfcGetCurrentRow(table, &info), nullptr);
  EXPECT_EQ(RfcMoveToNextRow(table, &info), RFC_TABLE_MOVE_EOF);
}

TEST_F(Tables, AppendNewRowsPutsTheCursorOnTheFirstNewRow) {
  ASSERT_EQ(RfcAppendNewRows(table, 3, &info), RFC_OK);
  setString(RfcGetCurrentRow(table, nullptr), "INT", "100");
  ASSERT_EQ(RfcAppendNewRows(table, 2, &info), RFC_OK);
  setString(RfcGetCurrentRow(table, nullptr), "INT", "103");
  EXPECT_EQ(rows(), 5u);
  ASSERT_EQ(RfcMoveToFirstRow(table, &info), RFC_OK);
  EXPECT_EQ(getString(table, "INT"), "100");
  ASSERT_EQ(RfcMoveTo(table, 3, &info), RFC_OK);
  EXPECT_EQ(getString(table, "INT"), "103");
  ASSERT_EQ(RfcMoveToLastRow(table, &info), RFC_OK);
  EXPECT_EQ(RfcMoveToNextRow(table, &info), RFC_TABLE_MOVE_EOF);
  EXPECT_EQ(utf8(info.message), "No next row");
  ASSERT_EQ(RfcMoveToPreviousRow(table, &info), RFC_OK);
  EXPECT_EQ(getString(table, "INT"), "103");
  EXPECT_EQ(RfcMoveTo(table, 5, &info), RFC_TABLE_MOVE_EOF);
}

TEST_F(Tables, AppendNewRowReturnsTheNewRowAndRowHandlesStayWithTheirRow) {
  RFC_STRUCTURE_HANDLE first = RfcAppendNewRow(table, &info);
  RFC_STRUCTURE_HANDLE second = RfcAppendNewRow(table, &info);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, first);
  setString(first, "CHAR", "one");
  setString(second, "CHAR", "two");
  EXPECT_EQ(RfcGetCurrentRow(table, &info), second);
  EXPECT_EQ(getString(first, "CHAR"), "one");
  RFC_TYPE_DESC_HANDLE t = RfcDescribeType(first, &info);
  RFC_ABAP_NAME name;
  ASSERT_EQ(RfcGetTypeName(t, name, &info), RFC_OK);
  EXPECT_EQ(utf8(name), "ZVSIM_FLAT");
}

TEST_F(Tables, RowsGoToTheSystemAndComeBack) {
  for (int i = 0; i < 4; ++i) {
    RFC_STRUCTURE_HANDLE row = RfcAppendNewRow(table, nullptr);
    RfcSetInt(row, u"INT", i * 10, nullptr);
    setString(row, "CHAR", "row " + std::to_string(i));
  }
  RFC_STRUCTURE_HANDLE is;
  ASSERT_EQ(RfcGetStructure(*call, u"IS_FLAT", &is, &info), RFC_OK);
  setString(is, "CHAR", "appended");
  ASSERT_EQ(call->invoke(&info), RFC_OK) << describe(info.code, info);
  ASSERT_EQ(rows(), 5u) << "rows changed, IS_FLAT appended";
  ASSERT_EQ(RfcMoveToFirstRow(table, &info), RFC_OK);
  EXPECT_EQ(getString(table, "CHAR"), "ROW 0");
  EXPECT_EQ(getString(table, "INT"), "1");
  ASSERT_EQ(RfcMoveToLastRow(table, &info), RFC_OK);
  EXPECT_EQ(getString(table, "CHAR"), "appended");
}

TEST_F(Tables, DeleteRowsAndInsertThem) {
  RfcAppendNewRows(table, 3, nullptr);
  for (unsigned i = 0; i < 3; ++i) {
    RfcMoveTo(table, i, nullptr);
    RfcSetInt(table, u"INT", static_cast<int>(i), nullptr);
  }
  ASSERT_EQ(RfcMoveTo(table, 1, &info), RFC_OK);
  ASSERT_EQ(RfcDeleteCurrentRow(table, &info), RFC_OK);
  EXPECT_EQ(rows(), 2u);
  EXPECT_EQ(getString(table, "INT"), "2") << "the cursor stays at its place";
  RFC_STRUCTURE_HANDLE inserted = RfcInsertNewRow(table, &info);
  ASSERT_NE(inserted, nullptr);
  RfcSetInt(inserted, u"INT", 9, nullptr);
  ASSERT_EQ(RfcMoveTo(table, 1, &info), RFC_OK);
  EXPECT_EQ(getString(table, "INT"), "9");
  ASSERT_EQ(RfcDeleteAllRows(table, &info), RFC_OK);
  EXPECT_EQ(rows(), 0u);
  EXPECT_EQ(RfcGetCurrentRow(table, &info), nullptr);
  EXPECT_EQ(RfcSetInt(inserted, u"INT", 1, &info), RFC_INVALID_HANDLE) << "the row is gone with its handle";
}

TEST_F(Tables, StandaloneTablesAndStructuresCopyIn) {
  RFC_FUNCTION_DESC_HANDLE f = RfcDescribeFunction(*call, &info);
  RFC_PARAMETER_DESC p;
  ASSERT_EQ(RfcGetParameterDescByName(f, u"IT_FLAT", &p, &info), RFC_OK);
  RFC_TABLE_HANDLE mine = RfcCreateTable(p.typeDescHandle, &info);
  ASSERT_NE(mine, nullptr);
  RFC_STRUCTURE_HANDLE s = RfcCreateStructure(p.typeDescHandle, &info);
  setString(s, "CHAR", "copied");
  ASSERT_EQ(RfcAppendRow(mine, s, &info), RFC_OK);
  ASSERT_EQ(RfcAppendRow(mine, s, &info), RFC_OK);
  ASSERT_EQ(RfcSetTable(*call, u"IT_FLAT", mine, &info), RFC_OK);
  ASSERT_EQ(RfcSetStructure(*call, u"IS_FLAT", s, &info), RFC_OK);
  setString(s, "CHAR", "changed later");
  ASSERT_EQ(call->invoke(&info), RFC_OK);
  RFC_TABLE_HANDLE et;
  ASSERT_EQ(RfcGetTable(*call, u"ET_FLAT", &et, &info), RFC_OK);
  unsigned n = 0;
  RfcGetRowCount(et, &n, nullptr);
  EXPECT_EQ(n, 2u);
  RfcMoveToFirstRow(et, nullptr);
  EXPECT_EQ(getString(et, "CHAR"), "copied");
  RFC_STRUCTURE_HANDLE es;
  RfcGetStructure(*call, u"ES_FLAT", &es, nullptr);
  EXPECT_EQ(getString(es, "CHAR"), "copied");
  EXPECT_EQ(RfcDestroyTable(table, &info), RFC_ILLEGAL_STATE) << "a parameter's table belongs to its function";
  EXPECT_EQ(RfcDestroyTable(mine, &info), RFC_OK);
  EXPECT_EQ(RfcDestroyStructure(s, &info), RFC_OK);
}

TEST_F(Tables, DestroyingTheFunctionInvalidatesItsChildren) {
  RFC_STRUCTURE_HANDLE row = RfcAppendNewRow(table, &info);
  RFC_STRUCTURE_HANDLE is;
  ASSERT_EQ(RfcGetStructure(*call, u"IS_FLAT", &is, &info), RFC_OK);
  call.reset();  // RfcDestroyFunction
  unsigned n = 0;
  EXPECT_EQ(RfcGetRowCount(table, &n, &info), RFC_INVALID_HANDLE);
  EXPECT_EQ(utf8(info.message), "An invalid handle 'RFC_TABLE_HANDLE' was passed to the API call");
  EXPECT_EQ(RfcSetInt(row, u"INT", 1, &info), RFC_INVALID_HANDLE);
  EXPECT_EQ(RfcSetInt(is, u"INT", 1, &info), RFC_INVALID_HANDLE);
  EXPECT_EQ(RfcGetRowCount(nullptr, &n, nullptr), RFC_INVALID_HANDLE);
}

TEST_F(Tables, ManyRowsArriveWhole) {
  Call rowsCall(c, "Z_VSIM_ROWS");
  rowsCall.setInt("ROW_COUNT", 20000);
  ASSERT_EQ(rowsCall.invoke(&info), RFC_OK) << describe(info.code, info);
  RFC_TABLE_HANDLE t;
  ASSERT_EQ(RfcGetTable(rowsCall, u"ROWS", &t, &info), RFC_OK);
  unsigned n = 0;
  RfcGetRowCount(t, &n, nullptr);
  ASSERT_EQ(n, 20000u);
  RfcMoveTo(t, 19999, nullptr);
  RFC_STRUCTURE_HANDLE last = RfcGetCurrentRow(t, &info);
  RFC_INT no = 0;
  ASSERT_EQ(RfcGetInt(last, u"ROW_NO", &no, &info), RFC_OK);
  EXPECT_EQ(no, 20000);
  EXPECT_EQ(getString(last, "TEXT"), "Row 20000");
  EXPECT_EQ(getString(last, "AMOUNT"), "25000.00");
}

}  // namespace
