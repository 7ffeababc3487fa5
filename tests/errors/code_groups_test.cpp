// The code, enum and kind groups of errors/errors.table.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "veltrane_errors.h"

namespace {

TEST(WinHttpErrors, NamesByNumber) {
  EXPECT_STREQ(WinHttpErrorName(ERROR_WINHTTP_TIMEOUT), "ERROR_WINHTTP_TIMEOUT");
  EXPECT_EQ(ERROR_WINHTTP_TIMEOUT, 12002);
  EXPECT_EQ(ERROR_WINHTTP_CANNOT_CONNECT, 12029);
  EXPECT_STREQ(WinHttpErrorName(12192), "ERROR_WINHTTP_FEATURE_DISABLED");
  EXPECT_EQ(WinHttpErrorName(12003), nullptr);
  EXPECT_EQ(WinHttpErrorName(0), nullptr);
}

TEST(WinHttpErrors, TableHas55Rows) {
  EXPECT_EQ(WinHttpErrors().size(), 55u);
  size_t named = 0;
  for (DWORD code = 12000; code <= 12200; ++code)
    if (WinHttpErrorName(code)) ++named;
  EXPECT_EQ(named, 55u);
}

// The names come from the table, the numbers from the type library's enum.
TEST(ErrorGroups, NamesOfTheTypeLibrarysValues) {
  EXPECT_STREQ(ErrorGroupName(RFCERROR_NO_ERROR), "RFCERROR_NO_ERROR");
  EXPECT_STREQ(ErrorGroupName(103), "RFCERROR_LOGON_FAILURE");
  EXPECT_STREQ(ErrorGroupName(105), "RFCERROR_APPLICATION_EXCEPTION");
  EXPECT_STREQ(ErrorGroupName(110), "RFCERROR_BUSY");
  EXPECT_EQ(ErrorGroupName(1), nullptr);
  EXPECT_EQ(ErrorGroupName(111), nullptr);
  EXPECT_EQ(ErrorGroups().size(), 11u);
  std::set<long> values;
  for (const auto& row : ErrorGroups()) EXPECT_TRUE(values.insert(row.number).second) << row.name;
}

TEST(ErrorKinds, EveryKindNamesATextOfTheTable) {
  using veltrane::errors::ErrorKindOf;
  for (int32_t kind = 0; kind <= veltrane::errors::OTHER; ++kind)
    EXPECT_FALSE(StringTableText(ErrorKindOf(kind).clientText).empty()) << kind;
  EXPECT_EQ(std::u16string(ErrorKindOf(4).name), u"NUMERIC_CONVERSION");
  EXPECT_EQ(ErrorKindOf(4).clientText, Text::ValueNotNumeric);
  EXPECT_EQ(ErrorKindOf(7).clientText, Text::BcdValueInvalid);
  EXPECT_EQ(std::u16string(ErrorKindOf(16).name), u"OTHER");
  EXPECT_EQ(std::u16string(ErrorKindOf(-1).name), u"OTHER");
}

}  // namespace
