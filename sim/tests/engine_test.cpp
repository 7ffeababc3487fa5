// Types and layouts, text conversions, the WHERE parser and the dictionary.
#include <gtest/gtest.h>

#include "engine/convert.h"
#include "engine/system.h"
#include "engine/where.h"

namespace vsim {
namespace {

System& sys() {
  static System s;
  return s;
}

struct LayoutCase {
  const char* field;
  int offB1, lenB1, offB2, lenB2;
};

TEST(Layout, RfctestHasAbapAlignmentInBothLayouts) {
  TypePtr t = sys().dictionary().find("RFCTEST");
  ASSERT_TRUE(t);
  const LayoutCase cases[] = {
      {"RFCFLOAT", 0, 8, 0, 8},   {"RFCCHAR1", 8, 1, 8, 2},      {"RFCINT2", 10, 2, 10, 2},
      {"RFCINT1", 12, 1, 12, 1},  {"RFCCHAR4", 13, 4, 14, 8},    {"RFCINT4", 20, 4, 24, 4},
      {"RFCHEX3", 24, 3, 28, 3},  {"RFCCHAR2", 27, 2, 32, 4},    {"RFCTIME", 29, 6, 36, 12},
      {"RFCDATE", 35, 8, 48, 16}, {"RFCDATA1", 43, 50, 64, 100}, {"RFCDATA2", 93, 50, 164, 100}};
  for (const auto& c : cases) {
    const int i = t->find(c.field);
    ASSERT_GE(i, 0) << c.field;
    const Component& comp = t->components[static_cast<size_t>(i)];
    EXPECT_EQ(comp.offset[B1], c.offB1) << c.field;
    EXPECT_EQ(comp.type->size[B1], c.lenB1) << c.field;
    EXPECT_EQ(comp.offset[B2], c.offB2) << c.field;
    EXPECT_EQ(comp.type->size[B2], c.lenB2) << c.field;
  }
  EXPECT_EQ(t->size[B1], 144);  // padded to the float's alignment
  EXPECT_EQ(t->size[B2], 264);
  EXPECT_EQ(t->align[B1], 8);
  EXPECT_FALSE(t->deep);
  EXPECT_EQ(t->exid(), 'u');
}

TEST(Layout, NestedAndDeepStructures) {
  TypePtr nested = sys().dictionary().find("ZVSIM_NESTED");
  ASSERT_TRUE(nested);
  EXPECT_TRUE(nested->nested);
  EXPECT_FALSE(nested->deep);
  TypePtr flat = sys().dictionary().find("ZVSIM_FLAT");
  const Component& inner = nested->components[1];
  EXPECT_EQ(inner.offset[B1], 8);  // N4 then alignment 8 of the float inside
  EXPECT_EQ(inner.type->size[B1], flat->size[B1]);
  TypePtr deep = sys().dictionary().find("ZVSIM_DEEP");
  EXPECT_TRUE(deep->deep);
  EXPECT_EQ(deep->exid(), 'v');
  EXPECT_EQ(deep->components[1].type->size[B1], 8);  // a string is a reference
  EXPECT_EQ(deep->components[1].offset[B1], 8);
  EXPECT_EQ(sys().dictionary().find("ZVSIM_FLAT_TT")->exid(), 'h');
}

TEST(Layout, ScalarSizesPerLayout) {
  struct C {
    const char* ref;
    int b1, b2, b4;
    char exid;
  };
  const C cases[] = {{"C10", 10, 20, 40, 'C'}, {"N4", 4, 8, 16, 'N'},    {"D", 8, 16, 32, 'D'},
                     {"T", 6, 12, 24, 'T'},    {"X16", 16, 16, 16, 'X'}, {"P8.2", 8, 8, 8, 'P'},
                     {"F", 8, 8, 8, 'F'},      {"I", 4, 4, 4, 'I'},      {"INT1", 1, 1, 1, 'b'},
                     {"INT2", 2, 2, 2, 's'},   {"STRING", 8, 8, 8, 'g'}, {"XSTRING", 8, 8, 8, 'y'}};
  for (const auto& c : cases) {
    TypePtr t = sys().dictionary().resolve(c.ref);
    EXPECT_EQ(t->size[B1], c.b1) << c.ref;
    EXPECT_EQ(t->size[B2], c.b2) << c.ref;
    EXPECT_EQ(t->size[B4], c.b4) << c.ref;
    EXPECT_EQ(t->exid(), c.exid) << c.ref;
  }
}

TEST(Dictionary, ResolvesElementsComponentsAndRejectsUnknown) {
  auto& d = sys().dictionary();
  EXPECT_EQ(d.resolve("SY-LISEL")->length, 255);
  EXPECT_EQ(d.resolve("DD02L-TABNAME")->name, "TABNAME");
  EXPECT_EQ(d.resolve("S_PRICE")->decimals, 2);
  EXPECT_THROW(d.resolve("NO_SUCH_TYPE"), std::invalid_argument);
  EXPECT_THROW(d.resolve("RFCTEST-NOFIELD"), std::invalid_argument);
  EXPECT_THROW(d.addElement("MANDT", "C3", "again"), std::invalid_argument);
  EXPECT_THROW(makeScalar(Kind::Packed, 17), std::invalid_argument);
}

struct ParseCase {
  const char* ref;
  const char* in;
  TextForm form;
  const char* plain;  // expected formatPlain of the result; nullptr: ConversionError
};

class ParseTable : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParseTable, Converts) {
  const ParseCase& c = GetParam();
  TypePtr t = sys().dictionary().resolve(c.ref);
  if (!c.plain) {
    EXPECT_THROW(parseValue(*t, c.in, c.form), ConversionError) << c.ref << " " << c.in;
    return;
  }
  Value v = parseValue(*t, c.in, c.form);
  EXPECT_EQ(formatPlain(*t, v), c.plain) << c.ref << " '" << c.in << "'";
}

INSTANTIATE_TEST_SUITE_P(
    Values, ParseTable,
    ::testing::Values(
        ParseCase{"C5", "abc  ", TextForm::Xml, "abc"}, ParseCase{"C5", "  ab", TextForm::Xml, "  ab"},
        ParseCase{"C3", "abcdef", TextForm::Xml, "abc"}, ParseCase{"C3", "äöüß", TextForm::Xml, "äöü"},
        ParseCase{"N6", "42", TextForm::Xml, "000042"}, ParseCase{"N3", "0042", TextForm::Xml, "042"},
        ParseCase{"N3", "1234", TextForm::Xml, nullptr}, ParseCase{"N3", "4a", TextForm::Xml, nullptr},
        ParseCase{"N3", "", TextForm::Xml, "000"}, ParseCase{"D", "2024-02-29", TextForm::Xml, "20240229"},
        ParseCase{"D", "20240229", TextForm::Xml, "20240229"}, ParseCase{"D", "", TextForm::Xml, "00000000"},
        ParseCase{"D", "0000-00-00", TextForm::Xml, "00000000"}, ParseCase{"D", "2024/02/29", TextForm::Xml, nullptr},
        ParseCase{"T", "12:34:56", TextForm::Xml, "123456"}, ParseCase{"T", "123456", TextForm::Xml, "123456"},
        ParseCase{"T", "12-34-56", TextForm::Xml, nullptr}, ParseCase{"X4", "q83v", TextForm::Xml, "ABCDEF00"},
        ParseCase{"X2", "q83v", TextForm::Xml, nullptr}, ParseCase{"X2", "ABCD", TextForm::Plain, "ABCD"},
        ParseCase{"X2", "zz", TextForm::Plain, nullptr}, ParseCase{"XSTRING", "AAEC", TextForm::Xml, "000102"},
        ParseCase{"P8.2", "12.5", TextForm::Xml, "12.50"}, ParseCase{"P8.2", "-1.005", TextForm::Xml, "-1.01"},
        ParseCase{"P8.2", "1.5-", TextForm::Xml, "-1.50"}, ParseCase{"P8.2", "", TextForm::Xml, "0.00"},
        ParseCase{"P8.2", "-0", TextForm::Xml, "0.00"},
        ParseCase{"P8.2", "9999999999999.99", TextForm::Xml, "9999999999999.99"},
        ParseCase{"P8.2", "99999999999999", TextForm::Xml, nullptr}, ParseCase{"P8.2", "1e5", TextForm::Xml, nullptr},
        ParseCase{"P3", "12345", TextForm::Xml, "12345"}, ParseCase{"F", "-3.14E2", TextForm::Xml, "-3.14E2"},
        ParseCase{"F", "0.5", TextForm::Xml, "5E-1"}, ParseCase{"F", "abc", TextForm::Xml, nullptr},
        ParseCase{"I", "-2147483648", TextForm::Xml, "-2147483648"},
        ParseCase{"I", "2147483648", TextForm::Xml, nullptr}, ParseCase{"I", "4294967294", TextForm::Xml, nullptr},
        ParseCase{"I", " 7 ", TextForm::Xml, "7"}, ParseCase{"I", "7-", TextForm::Xml, "-7"},
        ParseCase{"I", "7.5", TextForm::Xml, nullptr}, ParseCase{"INT1", "255", TextForm::Xml, "255"},
        ParseCase{"INT1", "-1", TextForm::Xml, nullptr}, ParseCase{"INT2", "-32768", TextForm::Xml, "-32768"},
        ParseCase{"INT2", "32768", TextForm::Xml, nullptr},
        ParseCase{"STRING", "  keeps  ", TextForm::Xml, "  keeps  "}));

TEST(Format, XmlFormsOfScalars) {
  auto& d = sys().dictionary();
  EXPECT_EQ(formatXml(*d.resolve("D"), Value("20020204")), "2002-02-04");
  EXPECT_EQ(formatXml(*d.resolve("D"), Value("00000000")), "0000-00-00");
  EXPECT_EQ(formatXml(*d.resolve("T"), Value("201501")), "20:15:01");
  EXPECT_EQ(formatXml(*d.resolve("X3"), Value(std::string("\xAB\xCD\xEF"))), "q83v");
  EXPECT_EQ(formatXml(*d.resolve("C10"), Value("  324")), "  324");
  EXPECT_EQ(formatXml(*d.resolve("N3"), Value("011")), "011");
  EXPECT_EQ(formatXml(*d.resolve("F"), Value(0.0)), "0E0");
  EXPECT_EQ(formatXml(*d.resolve("I"), Value(std::int64_t{-2})), "-2");
}

TEST(Format, WriteFormAsMoveToCharacterField) {
  auto& d = sys().dictionary();
  EXPECT_EQ(formatWrite(*d.resolve("I"), Value(std::int64_t{42}), 10), "       42 ");
  EXPECT_EQ(formatWrite(*d.resolve("I"), Value(std::int64_t{-42}), 10), "       42-");
  EXPECT_EQ(formatWrite(*d.resolve("P8.2"), Value("-1234.50"), 15), "       1234.50-");
  EXPECT_EQ(formatWrite(*d.resolve("P8.2"), Value("1234.50"), 6), "*4.50 ");
  EXPECT_EQ(formatWrite(*d.resolve("C5"), Value("ab"), 5), "ab   ");
  EXPECT_EQ(formatWrite(*d.resolve("X2"), Value(std::string("\x01\xff")), 4), "01FF");
  EXPECT_EQ(formatWrite(*d.resolve("F"), Value(1.5), 16).size(), 16u);
  EXPECT_EQ(formatWrite(*d.resolve("F"), Value(1.5), 16), "1.5000000000E+00");
}

TEST(Format, CalendarArithmetic) {
  EXPECT_EQ(addDays("20240228", 1), "20240229");
  EXPECT_EQ(addDays("20241231", 1), "20250101");
  EXPECT_EQ(addDays("20250301", -1), "20250228");
  EXPECT_EQ(addDays("00000000", 1), "00000000");
  EXPECT_EQ(civilFromDays(daysFromCivil(1999, 12, 31)), "19991231");
}

TEST(Format, Base64AndUtf8) {
  EXPECT_EQ(base64Encode("abcd"), "YWJjZA==");
  EXPECT_EQ(base64Decode("YWJj\r\nZA=="), "abcd");
  EXPECT_THROW(base64Decode("YW*j"), ConversionError);
  EXPECT_TRUE(utf8Valid("äöü"));
  EXPECT_FALSE(utf8Valid("\xC3"));
  EXPECT_FALSE(utf8Valid("\xED\xA0\x80"));  // a surrogate
  EXPECT_EQ(utf8Length("aä€"), 3u);
  EXPECT_EQ(padRight("ä", 3), "ä  ");
}

// WHERE clauses against SFLIGHT.
class Where : public ::testing::Test {
 protected:
  size_t count(const std::string& cond) {
    const DbTable& t = *sys().tables().find("SFLIGHT");
    WhereClause w = WhereClause::compile(cond, *t.type);
    size_t n = 0;
    for (const auto& r : t.rows) n += w.matches(r) ? 1 : 0;
    return n;
  }
  size_t total() { return sys().tables().find("SFLIGHT")->rows.size(); }
};

TEST_F(Where, EmptyMatchesAll) { EXPECT_EQ(count(""), total()); }

TEST_F(Where, ComparisonsAndLogic) {
  const size_t lh = count("CARRID = 'LH'");
  EXPECT_GT(lh, 0u);
  EXPECT_EQ(count("CARRID EQ 'LH'"), lh);
  EXPECT_EQ(count("carrid = 'LH'"), lh);  // column names in any case
  EXPECT_EQ(count("NOT CARRID = 'LH'"), total() - lh);
  EXPECT_EQ(count("CARRID <> 'LH'"), total() - lh);
  EXPECT_EQ(count("CARRID = 'LH' OR CARRID = 'AA'"), count("CARRID IN ('LH', 'AA')"));
  EXPECT_EQ(count("CARRID NOT IN ('LH')"), total() - lh);
  EXPECT_EQ(count("CARRID = 'LH' AND ( CONNID = '0400' OR CONNID = 402 )"),
            count("CARRID = 'LH' AND CONNID = '0400'") + count("CARRID = 'LH' AND CONNID = '0402'"));
  EXPECT_EQ(count("CONNID = '400'"), count("CONNID = '0400'"));  // literals take the column's type
  EXPECT_EQ(count("CARRID LIKE 'L%'"), lh);
  EXPECT_EQ(count("CARRID LIKE '_H'"), lh);
  EXPECT_EQ(count("CARRID NOT LIKE 'L%'"), total() - lh);
  EXPECT_EQ(count("SEATSOCC > 100") + count("SEATSOCC <= 100"), total());
  EXPECT_EQ(count("PRICE BETWEEN '100.00' AND '500'"), count("PRICE >= 100 AND PRICE =< 500"));
  EXPECT_EQ(count("SEATSOCC < SEATSMAX") + count("SEATSOCC >= SEATSMAX"), total());
  EXPECT_EQ(
      count("FLDATE >= '20250101' AND FLDATE < '20250201'") + count("FLDATE < '20250101' OR FLDATE >= '20250201'"),
      total());
  EXPECT_EQ(count("SFLIGHT~CARRID = 'LH'"), lh);
  EXPECT_EQ(count("CARRID IS NOT NULL"), total());
  EXPECT_EQ(count("SEATSOCC_F IS INITIAL") + count("SEATSOCC_F IS NOT INITIAL"), total());
}

TEST_F(Where, RejectsBadConditions) {
  const TypeDesc& t = *sys().tables().find("SFLIGHT")->type;
  for (const char* bad : {"CARRID = ", "CARRID = 'LH", "NOFIELD = 'X'", "CARRID == 'X'", "CARRID = 'LH' AND",
                          "(CARRID = 'LH'", "CARRID = 'LH')", "SEATSOCC = 'many'", "SEATSOCC LIKE '1%'", "CARRID $ 'X'",
                          "CARRID IN ('LH'", "CARRID = NOFIELD", "CARRID NOT = 'LH'"})
    EXPECT_THROW(WhereClause::compile(bad, t), WhereError) << bad;
  std::string deep;
  for (int i = 0; i < 200; ++i) deep += "( ";
  EXPECT_THROW(WhereClause::compile(deep + "CARRID = 'LH'", t), WhereError);
}

TEST(Like, Patterns) {
  EXPECT_TRUE(likeMatch("FRANKFURT", "FRANK%", 0));
  EXPECT_TRUE(likeMatch("FRANKFURT", "%FURT", 0));
  EXPECT_TRUE(likeMatch("FRANKFURT", "%ANK%U%", 0));
  EXPECT_FALSE(likeMatch("FRANKFURT", "%ANK%X%", 0));
  EXPECT_TRUE(likeMatch("A%B", "A#%B", '#'));
  EXPECT_FALSE(likeMatch("AXB", "A#%B", '#'));
  EXPECT_TRUE(likeMatch("äb", "_b", 0));
  EXPECT_TRUE(likeMatch("", "%", 0));
  EXPECT_FALSE(likeMatch("", "_", 0));
}

}  // namespace
}  // namespace vsim
