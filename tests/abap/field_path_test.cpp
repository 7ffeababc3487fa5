#include "abap/field_path.h"

#include <gtest/gtest.h>

namespace {

TEST(FieldPath, FieldsAndRowsBelowAParameter) {
  const FieldPath param = FieldPath::Parameter(u"TABLES", u"ET_ROWS").Named(u"ET_ROWS");
  const FieldPath row = FieldPath::Row(&param, 3);
  const FieldPath cell = FieldPath::Field(&row, u"CARRID");
  EXPECT_EQ(cell.Text(), u"ET_ROWS[3]-CARRID");
  EXPECT_EQ(std::u16string(cell.Group()), u"TABLES");
  EXPECT_EQ(cell.ParameterName(), u"ET_ROWS");
}

TEST(FieldPath, NestedStructuresAndTables) {
  const FieldPath head = FieldPath::Parameter(u"EXPORTING", u"ES_HEAD").Named(u"ES_HEAD");
  const FieldPath items = FieldPath::Field(&head, u"ITEMS");
  const FieldPath second = FieldPath::Row(&items, 2);
  const FieldPath price = FieldPath::Field(&second, u"PRICE");
  EXPECT_EQ(price.Text(), u"ES_HEAD-ITEMS[2]-PRICE");
  EXPECT_EQ(price.ParameterName(), u"ES_HEAD");
}

TEST(FieldPath, ABareFieldHasNoGroup) {
  const FieldPath bare = FieldPath{}.Named(u"F");
  EXPECT_EQ(bare.Group(), nullptr);
  EXPECT_EQ(bare.ParameterName(), u"");
  EXPECT_EQ(bare.Text(), u"F");
  EXPECT_EQ(FieldPath{}.Text(), u"");
}

TEST(FieldPath, RowsCountFromOneAndGoOnPastNine) {
  const FieldPath table = FieldPath{}.Named(u"T");
  EXPECT_EQ(FieldPath::Row(&table, 1).Text(), u"T[1]");
  EXPECT_EQ(FieldPath::Row(&table, 12345).Text(), u"T[12345]");
}

}  // namespace
