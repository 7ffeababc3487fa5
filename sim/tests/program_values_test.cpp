// Packed numbers between the system and a registered program, scaled by the function's interface
// in the dictionary.
#include <gtest/gtest.h>

#include "engine/types.h"
#include "rfc/program_values.h"

namespace vsim::rfc {
namespace {

using proto::WireType;
using proto::WireValue;

Parameter Param(const char* name, Direction direction, TypePtr type) {
  Parameter p;
  p.name = name;
  p.direction = direction;
  p.type = std::move(type);
  return p;
}

FunctionModule Interface() {
  FunctionModule f;
  f.name = "Z_PACKED";
  const TypePtr price = makeScalar(Kind::Packed, 6, 2);
  const TypePtr row =
      makeStruct("ZPRICED", {{"KEY", makeScalar(Kind::Char, 10), "", "", {}}, {"PRICE", price, "", "", {}}});
  f.params = {Param("IV_PRICE", Direction::Importing, price),
              Param("EV_TOTAL", Direction::Exporting, makeScalar(Kind::Packed, 10, 2)),
              Param("EV_COUNT", Direction::Exporting, makeScalar(Kind::Int, 4)),
              Param("CV_AMOUNT", Direction::Changing, makeScalar(Kind::Packed, 8, 3)),
              Param("ES_PRICED", Direction::Exporting, row),
              Param("T_PRICED", Direction::Tables, makeTable("", row)),
              Param("T_PRICES", Direction::Tables, makeTable("", price))};
  return f;
}

WireValue Packed(const std::string& text) { return WireValue::ofText(WireType::Bcd, text); }

WireValue Table(std::vector<std::pair<std::string, WireType>> columns, std::vector<std::vector<WireValue>> rows) {
  WireValue t;
  t.type = WireType::Table;
  t.columns = std::move(columns);
  t.rows = std::move(rows);
  return t;
}

TEST(PackedFromProgram, TheDigitsOfAScalarAreReadWithTheDictionarysDecimals) {
  proto::NamedValues values = {{"EV_TOTAL", Packed("1050")}, {"CV_AMOUNT", Packed("-25")}, {"EV_COUNT", Packed("7")}};
  packedFromProgram(values, Interface());
  EXPECT_EQ(values[0].second.text, "10.50");
  EXPECT_EQ(values[1].second.text, "-0.025") << "changing parameters too";
  EXPECT_EQ(values[2].second.text, "7") << "a parameter that is not packed stays as it is";
}

TEST(PackedFromProgram, APointTheProgramSentIsNotTheSystems) {
  proto::NamedValues values = {{"EV_TOTAL", Packed("10.50")}, {"CV_AMOUNT", Packed("0")}, {"IV_PRICE", Packed("-1.5")}};
  packedFromProgram(values, Interface());
  EXPECT_EQ(values[0].second.text, "10.50");
  EXPECT_EQ(values[1].second.text, "0.000");
  EXPECT_EQ(values[2].second.text, "-0.15");
}

TEST(PackedFromProgram, FieldsOfStructuresAndTablesAndElementaryRows) {
  WireValue s;
  s.type = WireType::Structure;
  s.fields = {{"KEY", WireValue::ofText(WireType::Char, "k")}, {"price", Packed("150")}};
  proto::NamedValues values = {{"ES_PRICED", s},
                               {"T_PRICED", Table({{"KEY", WireType::Char}, {"PRICE", WireType::Bcd}},
                                                  {{WireValue::ofText(WireType::Char, "a"), Packed("1")},
                                                   {WireValue::ofText(WireType::Char, "b"), Packed("12.34")}})},
                               {"T_PRICES", Table({{"", WireType::Bcd}}, {{Packed("99")}})}};
  packedFromProgram(values, Interface());
  EXPECT_EQ(values[0].second.fields[0].second.text, "k");
  EXPECT_EQ(values[0].second.fields[1].second.text, "1.50") << "fields by name, in any case";
  EXPECT_EQ(values[1].second.rows[0][1].text, "0.01");
  EXPECT_EQ(values[1].second.rows[1][1].text, "12.34");
  EXPECT_EQ(values[2].second.rows[0][0].text, "0.99");
}

TEST(PackedFromProgram, WhatDoesNotConvertAndWhatTheInterfaceDoesNotKnowStays) {
  proto::NamedValues values = {{"EV_TOTAL", Packed("12x")},
                               {"UNKNOWN", Packed("1050")},
                               {"IV_PRICE", Packed("123456789012")},
                               {"CV_AMOUNT", WireValue::ofText(WireType::Char, "1050")}};
  packedFromProgram(values, Interface());
  EXPECT_EQ(values[0].second.text, "12x");
  EXPECT_EQ(values[1].second.text, "1050");
  EXPECT_EQ(values[2].second.text, "123456789012") << "too long for P6.2";
  EXPECT_EQ(values[3].second.text, "1050") << "only packed values are scaled";
}

TEST(PackedForProgram, APackedParameterGoesWithAllItsDecimals) {
  proto::NamedValues values = {{"IV_PRICE", WireValue::ofText(WireType::Char, "1.5")},
                               {"CV_AMOUNT", WireValue::ofReal(2.25)},
                               {"EV_TOTAL", WireValue::ofInteger(WireType::Int, 3)},
                               {"EV_COUNT", WireValue::ofInteger(WireType::Int, 4)}};
  packedForProgram(values, Interface());
  EXPECT_EQ(values[0].second.type, WireType::Bcd);
  EXPECT_EQ(values[0].second.text, "1.50");
  EXPECT_EQ(values[1].second.text, "2.250");
  EXPECT_EQ(values[2].second.text, "3.00");
  EXPECT_EQ(values[3].second.type, WireType::Int);
}

TEST(PackedForProgram, AColumnConvertsAsAWholeOrNotAtAll) {
  proto::NamedValues values = {
      {"T_PRICED", Table({{"KEY", WireType::Char}, {"PRICE", WireType::Char}},
                         {{WireValue::ofText(WireType::Char, "a"), WireValue::ofText(WireType::Char, "0.5")}})},
      {"T_PRICES", Table({{"", WireType::Char}},
                         {{WireValue::ofText(WireType::Char, "1")}, {WireValue::ofText(WireType::Char, "many")}})},
      {"IV_PRICE", WireValue::ofText(WireType::Char, "cheap")}};
  packedForProgram(values, Interface());
  EXPECT_EQ(values[0].second.columns[1].second, WireType::Bcd);
  EXPECT_EQ(values[0].second.rows[0][1].text, "0.50");
  EXPECT_EQ(values[0].second.columns[0].second, WireType::Char);
  EXPECT_EQ(values[1].second.columns[0].second, WireType::Char) << "one value does not convert";
  EXPECT_EQ(values[1].second.rows[0][0].text, "1");
  EXPECT_EQ(values[2].second.type, WireType::Char);
  EXPECT_EQ(values[2].second.text, "cheap");
}

}  // namespace
}  // namespace vsim::rfc
