// Internal tables through the It... calls: rows count from 1, new rows are zero-filled, ItFree
// keeps the handle; and a table parameter filled by the system.
#include <cstring>

#include "rfc_fixture.h"

using namespace rfctest;

namespace {

TEST(InternalTable, RowsCountFromOneAndStartZeroFilled) {
  std::u16string name = u"T";
  ITAB_H t = ItCreateU(name.data(), 8, 4, 0);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(ItLengU(t), 8u);
  EXPECT_EQ(ItFillU(t), 0u);
  EXPECT_EQ(ItGetLineU(t, 1), nullptr);
  for (char c : std::string("abc")) {
    auto* row = static_cast<char*>(ItAppLineU(t));
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(std::string(row, 8), std::string(8, '\0'));
    std::memset(row, c, 8);
  }
  EXPECT_EQ(ItFillU(t), 3u);
  EXPECT_EQ(ItGetLineU(t, 0), nullptr) << "there is no row 0";
  EXPECT_EQ(*static_cast<char*>(ItGetLineU(t, 1)), 'a');
  EXPECT_EQ(*static_cast<char*>(ItGetLineU(t, 3)), 'c');
  EXPECT_EQ(ItGetLineU(t, 4), nullptr);
  // ItInsLine puts the new row before the given one.
  auto* inserted = static_cast<char*>(ItInsLineU(t, 2));
  ASSERT_NE(inserted, nullptr);
  std::memset(inserted, 'x', 8);
  EXPECT_EQ(*static_cast<char*>(ItGetLineU(t, 2)), 'x');
  EXPECT_EQ(*static_cast<char*>(ItGetLineU(t, 3)), 'b');
  EXPECT_EQ(ItInsLineU(t, 9), nullptr);
  char buf[8];
  EXPECT_EQ(ItCpyLineU(t, 4, buf), 0);
  EXPECT_EQ(buf[0], 'c');
  EXPECT_EQ(ItCpyLineU(t, 5, buf), -1);
  std::memset(buf, 'z', 8);
  EXPECT_EQ(ItPutLineU(t, 1, buf), 0);
  EXPECT_EQ(*static_cast<char*>(ItGupLineU(t, 1)), 'z');
  EXPECT_EQ(ItPutLineU(t, 0, buf), -1);
  EXPECT_EQ(ItDelLineU(t, 2), 0);
  EXPECT_EQ(ItDelLineU(t, 9), 1) << "above 0: the row is missing";
  EXPECT_EQ(ItFillU(t), 3u);
  EXPECT_EQ(ItFreeU(t), 0);
  EXPECT_EQ(ItFillU(t), 0u) << "emptied";
  EXPECT_NE(ItAppLineU(t), nullptr) << "and still usable";
  EXPECT_EQ(ItDeleteU(t), 0);
}

TEST(InternalTable, NullHandlesAndEmptyRowsAreRefused) {
  std::u16string name = u"T";
  EXPECT_EQ(ItCreateU(name.data(), 0, 0, 0), nullptr);
  EXPECT_EQ(ItAppLineU(nullptr), nullptr);
  EXPECT_EQ(ItFillU(nullptr), 0u);
  EXPECT_EQ(ItDelLineU(nullptr, 1), -1);
  EXPECT_EQ(ItFreeU(nullptr), -1);
  EXPECT_EQ(ItDeleteU(nullptr), -1);
}

// ZVSIM_ROW: ROW_NO I, TEXT C40, AMOUNT P8.2, CREATED D.
struct Row {
  RFC_INT rowNo;
  RFC_CHAR text[40];
  RFC_BCD amount[8];
  RFC_CHAR created[8];
};
static_assert(sizeof(Row) == 108);

class Rows : public Connected {
 protected:
  RFC_TYPEHANDLE rowType() {
    std::u16string name = u"ZVSIM_ROW";
    unsigned count = 0;
    RFC_UNICODE_TYPE_ELEMENT* fields = nullptr;
    RFC_TYPEHANDLE handle = 0;
    EXPECT_EQ(RfcGetStructureInfoFlatU(h, name.data(), 1, nullptr, nullptr, &count, &fields, nullptr, nullptr, nullptr,
                                       nullptr, nullptr, &handle, nullptr),
              RFC_OK)
        << lastError();
    EXPECT_EQ(count, 4u);
    RfcReleaseStructInfoU(nullptr, fields);
    return handle;
  }
};

TEST_F(Rows, ATableParameterFillsTheCallersTableFromRowOne) {
  RFC_INT count = 1000, returned = 0;
  std::u16string prefix = u"Line";
  prefix.resize(20, u' ');
  Parameters in, out;
  in.add("ROW_COUNT", RFCTYPE_INT, &count, 4).add("TEXT_PREFIX", RFCTYPE_CHAR, prefix.data(), 40);
  out.add("COUNT", RFCTYPE_INT, &returned, 4);
  Tables tables;
  tables.add("ROWS", rowType(), sizeof(Row));
  std::u16string fn = u"Z_VSIM_ROWS";
  ASSERT_EQ(RfcCallReceiveExU(h, fn.data(), in.data(), out.data(), nullptr, tables.data(), nullptr), RFC_OK)
      << lastError();
  EXPECT_EQ(returned, 1000);
  ITAB_H t = tables.handle(0);
  ASSERT_EQ(ItFillU(t), 1000u);
  const auto* first = static_cast<const Row*>(ItGetLineU(t, 1));
  EXPECT_EQ(first->rowNo, 1);
  EXPECT_EQ(field(first->text, 40).substr(0, 4), "Line");
  const auto* last = static_cast<const Row*>(ItGetLineU(t, 1000));
  EXPECT_EQ(last->rowNo, 1000);
  RFC_CHAR amount[20];
  ASSERT_EQ(RfcConvertBcdToCharU(const_cast<RFC_BCD*>(last->amount), 8, 2, amount, 20), 0);
  EXPECT_NE(field(amount, 20).find('.'), std::string::npos) << field(amount, 20);
  EXPECT_EQ(field(last->created, 8).size(), 8u);
}

TEST_F(Rows, ATableWithoutHandleIsCreatedByTheLibrary) {
  RFC_INT count = 3;
  Parameters in;
  in.add("ROW_COUNT", RFCTYPE_INT, &count, 4);
  Tables tables;
  tables.add("ROWS", rowType(), sizeof(Row), false);
  std::u16string fn = u"Z_VSIM_ROWS";
  ASSERT_EQ(RfcCallReceiveExU(h, fn.data(), in.data(), nullptr, nullptr, tables.data(), nullptr), RFC_OK)
      << lastError();
  ASSERT_NE(tables.handle(0), nullptr);
  EXPECT_EQ(tables.data()[0].newitab, 1);
  EXPECT_EQ(ItFillU(tables.handle(0)), 3u);
}

TEST_F(Rows, ATableWithTheWrongRowLengthIsRefused) {
  RFC_INT count = 3;
  Parameters in;
  in.add("ROW_COUNT", RFCTYPE_INT, &count, 4);
  Tables tables;
  tables.add("ROWS", rowType(), sizeof(Row));
  tables.data()[0].leng = 10;
  std::u16string fn = u"Z_VSIM_ROWS";
  EXPECT_EQ(RfcCallExU(h, fn.data(), in.data(), nullptr, tables.data()), RFC_FAILURE);
  EXPECT_NE(lastError().find("bytes"), std::string::npos);
}

TEST_F(Rows, AnExceptionStillFillsTheTables) {
  RFC_INT count = -1;
  Parameters in;
  in.add("ROW_COUNT", RFCTYPE_INT, &count, 4);
  Tables tables;
  tables.add("ROWS", rowType(), sizeof(Row));
  std::u16string fn = u"Z_VSIM_ROWS";
  rfc_char_t* exception = nullptr;
  EXPECT_EQ(RfcCallReceiveExU(h, fn.data(), in.data(), nullptr, nullptr, tables.data(), &exception), RFC_EXCEPTION);
  EXPECT_EQ(text(exception), "INVALID_COUNT");
  EXPECT_EQ(ItFillU(tables.handle(0)), 0u);
}

}  // namespace

namespace {

TEST_F(Rows, RowsSentInATableArriveFieldByField) {
  std::u16string name = u"ZVSIM_FLAT";
  unsigned count = 0, length = 0;
  RFC_UNICODE_TYPE_ELEMENT* fields = nullptr;
  RFC_TYPEHANDLE type = 0;
  ASSERT_EQ(RfcGetStructureInfoFlatU(h, name.data(), 1, nullptr, nullptr, &count, &fields, nullptr, nullptr, &length,
                                     nullptr, nullptr, &type, nullptr),
            RFC_OK);
  unsigned charAt = 0, intAt = 0;
  for (unsigned i = 0; i < count; ++i) {
    if (text(fields[i].name) == "CHAR") charAt = fields[i].c2_offset;
    if (text(fields[i].name) == "INT") intAt = fields[i].c2_offset;
  }
  RfcReleaseStructInfoU(nullptr, fields);
  Tables tables;
  tables.add("TT_FLAT", type, length);
  for (RFC_INT i = 1; i <= 3; ++i) {
    auto* row = static_cast<unsigned char*>(ItAppLineU(tables.handle(0)));
    setField(row + charAt, 10, "row" + std::to_string(i));
    std::memcpy(row + intAt, &i, sizeof i);
  }
  std::u16string fn = u"Z_VSIM_TYPES";
  ASSERT_EQ(RfcCallReceiveExU(h, fn.data(), nullptr, nullptr, nullptr, tables.data(), nullptr), RFC_OK) << lastError();
  ITAB_H t = tables.handle(0);
  ASSERT_EQ(ItFillU(t), 4u) << "the module changes each row and appends one";
  const auto* second = static_cast<const unsigned char*>(ItGetLineU(t, 2));
  EXPECT_EQ(field(second + charAt, 10), "ROW2");
}

}  // namespace
