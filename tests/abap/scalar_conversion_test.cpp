// The shared scalar helpers: type-letter and size tables, digit parsing,
// date and time routines, the value text of failures.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/atlbase.h"
#include "platform/oleauto.h"
#include "abap/scalar_conversion.h"
#include "runtime/exceptions.h"

namespace {

std::u16string Str(const VARIANT& v) {
  return v.vt == VT_BSTR ? std::u16string(v.bstrVal, SysStringLen(v.bstrVal)) : u"?";
}

CComVariant TextOf(const char16_t* s) { return CComVariant(s); }

// ------------------------------------------------------------------ tables

TEST(ScalarTables, LetterToTypeAndBack) {
  struct Case {
    char16_t letter;
    int32_t code;
  } cases[] = {{u'C', TYPE_CHAR}, {u'D', TYPE_DATE}, {u'P', TYPE_BCD},    {u'T', TYPE_TIME},
               {u'X', TYPE_BYTE}, {u'N', TYPE_NUM},  {u'F', TYPE_FLOAT},  {u'I', TYPE_INT},
               {u's', TYPE_INT2}, {u'b', TYPE_INT1}, {u'g', TYPE_STRING}, {u'y', TYPE_XSTRING}};
  for (const auto& c : cases) {
    EXPECT_EQ(RfcTypeFromLetter(c.letter), c.code) << char(c.letter);
    EXPECT_EQ(RfcLetterFromType(c.code), c.letter) << c.code;
    EXPECT_EQ(RfcScalarType(c.code), c.code);
  }
  for (char16_t other : {u'c', u'h', u'u', u'v', u'Z', u' ', u'\0', u'S', u'B'})
    EXPECT_EQ(RfcTypeFromLetter(other), -1);
  for (int32_t code : {-1, 5, 11, 16, 17, 28, 31, 100}) {
    EXPECT_EQ(RfcScalarType(code), -1) << code;
    EXPECT_EQ(RfcLetterFromType(code), 0) << code;
  }
}

TEST(ScalarTables, KindFromLetter) {
  EXPECT_EQ(RfcKindFromLetter(u'h'), RFCTYPEKIND_TABLE);
  EXPECT_EQ(RfcKindFromLetter(u'u'), RFCTYPEKIND_STRUCT);
  EXPECT_EQ(RfcKindFromLetter(u'v'), RFCTYPEKIND_COMPLEX_STRUCT);
  for (char16_t other : {u'C', u'P', u'H', u'U', u'V', u' ', u'?', u'\0'})
    EXPECT_EQ(RfcKindFromLetter(other), RFCTYPEKIND_SCALAR);
}

TEST(ScalarTables, FieldInfo) {
  struct Case {
    char16_t letter;
    int32_t length, decimals;
    bool ok;
    int32_t type, outLength, outDecimals;
  } cases[] = {
      {u'P', 8, 2, true, TYPE_BCD, 15, 2},    {u'P', 1, 0, true, TYPE_BCD, 1, 0},
      {u'C', 10, 3, true, TYPE_CHAR, 10, 0},  {u'D', 8, 1, true, TYPE_DATE, 8, 0},
      {u'N', 6, 2, true, TYPE_NUM, 6, 0},     {u'T', 6, 0, true, TYPE_TIME, 6, 0},
      {u'X', 16, 4, true, TYPE_BYTE, 16, 0},  {u'F', 8, 16, true, TYPE_FLOAT, 0, 0},
      {u'I', 4, 0, true, TYPE_INT, 0, 0},     {u'b', 1, 0, true, TYPE_INT1, 0, 0},
      {u's', 2, 0, true, TYPE_INT2, 0, 0},    {u'g', 8, 0, true, TYPE_STRING, 0, 0},
      {u'y', 8, 0, true, TYPE_XSTRING, 0, 0}, {u'u', 10, 0, false, -1, 0, 0},
      {u'Q', 10, 2, false, -1, 0, 0},
  };
  for (const auto& c : cases) {
    RfcFieldInfo info;
    info.length = 99;
    EXPECT_EQ(RfcTypeFromFieldInfo(c.letter, c.length, c.decimals, info), c.ok) << char(c.letter);
    EXPECT_EQ(info.type, c.type) << char(c.letter);
    EXPECT_EQ(info.length, c.outLength) << char(c.letter);
    EXPECT_EQ(info.decimals, c.outDecimals) << char(c.letter);
  }
}

TEST(ScalarTables, SizesAndPads) {
  struct Case {
    int32_t code;
    uint32_t length, c2, c1;
    char16_t pad;
  } cases[] = {
      {TYPE_CHAR, 10, 20, 10, u' '}, {TYPE_DATE, 8, 16, 8, u'0'},
      {TYPE_BCD, 15, 8, 8, 0},       {TYPE_BCD, 4, 3, 3, 0},
      {TYPE_TIME, 6, 12, 6, u'0'},   {TYPE_BYTE, 16, 16, 16, 0},
      {TYPE_NUM, 6, 12, 6, u'0'},    {TYPE_FLOAT, 0, 8, 8, 0},
      {TYPE_INT, 0, 4, 4, 0},        {TYPE_INT2, 0, 2, 2, 0},
      {TYPE_INT1, 0, 1, 1, 0},       {TYPE_STRING, 0, 8, 8, 0},
      {TYPE_XSTRING, 0, 16, 16, 0},  {TYPE_ITAB, 10, 0, 0, 0},
      {TYPE_STRUCTURE, 10, 0, 0, 0}, {99, 10, 0, 0, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(RfcFieldLengthC2(c.code, c.length), c.c2) << c.code;
    EXPECT_EQ(RfcFieldLengthC1(c.code, c.length), c.c1) << c.code;
    EXPECT_EQ(RfcPadChar(c.code), c.pad) << c.code;
  }
}

// ------------------------------------------------------------- text helpers

TEST(ScalarText, IsDateText) {
  struct Case {
    const char16_t* text;
    bool expected;
  } cases[] = {
      {u"20240229", true},  {u"20230231", true},       {u"00000101", true},  {u"99991231", true},  {u"20241399", false},
      {u"20241301", false}, {u"20240001", false},      {u"20240100", false}, {u"20240132", false}, {u"00000000", false},
      {u"2024022", false},  {u"202402290", false},     {u"2024-229", false}, {u"2024022 ", false}, {u" 2024022", false},
      {u"", false},         {u"2024022\u0661", false},  // an Arabic-Indic digit is no ASCII digit
  };
  for (const auto& c : cases)
    EXPECT_EQ(RfcIsDateText(c.text), c.expected)
        << std::string(c.text, c.text + std::char_traits<char16_t>::length(c.text));
}

TEST(ScalarText, ParseDigits) {
  struct Case {
    const char16_t* text;
    bool sign;
    int64_t expected;
  } cases[] = {
      {u"0042", false, 42}, {u"  42", false, 42}, {u"42  ", false, 42}, {u" 4 2 ", false, 42},
      {u"-42", false, 42},  {u"-42", true, -42},  {u"42-", true, -42},  {u"42- ", true, -42},
      {u" -42", true, 42},  {u"4-2", true, 42},   {u"a1b2", false, 12}, {u"abc", false, 0},
      {u"    ", false, 0},  {u"", false, 0},      {u"-", true, 0},      {u"12345678901", false, 12345678901},
  };
  for (const auto& c : cases) {
    size_t n = std::char_traits<char16_t>::length(c.text);
    EXPECT_EQ(RfcParseDigits(c.text, n, c.sign), c.expected) << std::string(c.text, c.text + n) << " sign=" << c.sign;
  }
  // The count bounds the field, not the terminator.
  EXPECT_EQ(RfcParseDigits(u"123456", 2, false), 12);
  EXPECT_EQ(RfcParseDigits(nullptr, 4, false), 0);
}

TEST(ScalarText, VariantTraceText) {
  CComVariant null;
  null.vt = VT_NULL;
  EXPECT_EQ(VariantTraceText(null), u"{null}");
  CComVariant empty;
  EXPECT_EQ(VariantTraceText(empty), u"{empty}");
  CComVariant error(LONG(0), VT_ERROR);
  EXPECT_EQ(VariantTraceText(error), u"{empty}");
  CComVariant bytes;
  bytes.vt = VT_ARRAY | VT_UI1;
  bytes.parray = SafeArrayCreateVector(VT_UI1, 0, 3);
  EXPECT_EQ(VariantTraceText(bytes), u"{binary}");
  EXPECT_EQ(VariantTraceText(CComVariant(LONG(42))), u"42");
  EXPECT_EQ(VariantTraceText(TextOf(u"abc")), u"abc");
  EXPECT_EQ(VariantTraceText(CComVariant(true)), u"-1");  // flags 0: no alpha boolean
}

// ------------------------------------------------------------------- dates

double DateOf(int y, int m, int d) {
  SYSTEMTIME st{};
  st.wYear = WORD(y);
  st.wMonth = WORD(m);
  st.wDay = WORD(d);
  double v = 0;
  EXPECT_TRUE(SystemTimeToVariantTime(&st, &v));
  return v;
}

TEST(ScalarDate, DateToVariant) {
  CComVariant v;
  EXPECT_NE(RfcDateToVariant(&v, u"20240229"), 0);
  EXPECT_EQ(v.vt, VT_DATE);
  EXPECT_EQ(v.date, DateOf(2024, 2, 29));
  EXPECT_NE(RfcDateToVariant(&v, u"18991230"), 0);
  EXPECT_EQ(v.vt, VT_DATE);
  EXPECT_EQ(v.date, 0.0);
  EXPECT_NE(RfcDateToVariant(&v, u"19991231"), 0);
  EXPECT_EQ(v.date, 36525.0);
  // Blanks around digits are skipped per part.
  EXPECT_NE(RfcDateToVariant(&v, u"2024 2 9"), 0);
  EXPECT_EQ(v.date, DateOf(2024, 2, 9));
}

TEST(ScalarDate, AllZeroIsEmpty) {
  for (const char16_t* text : {u"00000000", u"        ", u"0000  00", u"    0000", u"000000  "}) {
    CComVariant v(LONG(7));
    EXPECT_EQ(RfcDateToVariant(&v, text), 1);
    EXPECT_EQ(v.vt, VT_EMPTY);
  }
}

TEST(ScalarDate, ImpossibleDateLeavesZeroDate) {
  CComVariant v;
  EXPECT_EQ(RfcDateToVariant(&v, u"20231399"), 0);
  EXPECT_EQ(v.vt, VT_DATE);
  EXPECT_EQ(v.date, 0.0);
}

std::u16string DateOut(VARIANT v) {
  char16_t out[8];
  for (auto& c : out) c = u'#';
  RfcVariantToDate(out, &v);
  return std::u16string(out, 8);
}

TEST(ScalarDate, VariantToDate) {
  CComVariant null;
  null.vt = VT_NULL;
  EXPECT_EQ(DateOut(null), std::u16string(8, u'\0'));
  EXPECT_EQ(DateOut(CComVariant()), u"00000000");
  EXPECT_EQ(DateOut(CComVariant(LONG(0))), u"00000000");
  EXPECT_EQ(DateOut(TextOf(u"00000000")), u"00000000");
  EXPECT_EQ(DateOut(TextOf(u"")), u"00000000");
  EXPECT_EQ(DateOut(TextOf(u" ")), u"00000000");
  EXPECT_EQ(DateOut(TextOf(u"20240229")), u"20240229");
  EXPECT_EQ(DateOut(TextOf(u"20230231")), u"20230231");
  // VT_I2 0 and the double 0.0 are not the integer 0: they are day 0.
  EXPECT_EQ(DateOut(CComVariant(SHORT(0))), u"18991230");
  EXPECT_EQ(DateOut(CComVariant(0.0)), u"18991230");
  CComVariant date(DateOf(2024, 2, 29), VT_DATE);
  EXPECT_EQ(DateOut(date), u"20240229");
  CComVariant noon(DateOf(2001, 7, 4) + 0.5, VT_DATE);
  EXPECT_EQ(DateOut(noon), u"20010704");
}

TEST(ScalarDate, VariantToDateChangesTheCallersVariant) {
  CComVariant v(DateOf(2024, 2, 29));  // VT_R8
  char16_t out[8];
  RfcVariantToDate(out, &v);
  EXPECT_EQ(v.vt, VT_DATE);
}

TEST(ScalarDate, UnreadableDateRaisesWithoutTexts) {
  CComVariant v(TextOf(u"not a date"));
  char16_t out[8] = {};
  try {
    RfcVariantToDate(out, &v);
    FAIL() << "no exception";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::DATE_TIME_CONVERSION);
    EXPECT_EQ(e.Message(), u"");
    EXPECT_EQ(e.Context(), u"");
    EXPECT_EQ(e.Value(), u"");
  }
}

TEST(ScalarDate, DateOutsideTheCalendarRaisesWithTexts) {
  CComVariant v(1e9, VT_DATE);
  char16_t out[8] = {};
  try {
    RfcVariantToDate(out, &v);
    FAIL() << "no exception";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::DATE_TIME_CONVERSION);
    EXPECT_EQ(e.Message(), u"not a valid date");
    EXPECT_EQ(e.Context(), u"RfcVariantToData(),TYPE_DATE");
    EXPECT_FALSE(e.Value().empty());
  }
}

// ------------------------------------------------------------------- times

TEST(ScalarTime, TimeToVariant) {
  CComVariant v;
  EXPECT_EQ(RfcTimeToVariant(&v, u"123456"), S_OK);
  EXPECT_EQ(v.vt, VT_DATE);
  EXPECT_NEAR(v.date, (12 * 3600 + 34 * 60 + 56) / 86400.0, 1e-9);
  EXPECT_EQ(RfcTimeToVariant(&v, u"000000"), S_OK);
  EXPECT_EQ(v.vt, VT_DATE);
  EXPECT_EQ(v.date, 0.0);
  // Blanks read as zeros.
  EXPECT_EQ(RfcTimeToVariant(&v, u"      "), S_OK);
  EXPECT_EQ(v.vt, VT_DATE);
  EXPECT_EQ(v.date, 0.0);
}

// Every time of the day reads as the platform reads its "HH:MM:SS" text,
// to the bit.
TEST(ScalarTime, EverySecondOfTheDayAsThePlatformReadsItsText) {
  for (unsigned s = 0; s < 86400; ++s) {
    char text[7];
    std::snprintf(text, sizeof text, "%02u%02u%02u", s / 3600, s / 60 % 60, s % 60);
    const std::u16string digits(text, text + 6);
    char clock[9];
    std::snprintf(clock, sizeof clock, "%02u:%02u:%02u", s / 3600, s / 60 % 60, s % 60);
    CComVariant expected(std::u16string(clock, clock + 8).c_str());
    ASSERT_EQ(expected.ChangeType(VT_DATE), S_OK) << clock;
    CComVariant v;
    ASSERT_EQ(RfcTimeToVariant(&v, digits.c_str()), S_OK) << text;
    ASSERT_EQ(v.vt, VT_DATE);
    ASSERT_EQ(std::memcmp(&v.date, &expected.date, sizeof(double)), 0) << text;
  }
}

TEST(ScalarTime, UnreadableTimeStaysText) {
  CComVariant v;
  EXPECT_TRUE(FAILED(RfcTimeToVariant(&v, u"256199")));
  EXPECT_EQ(v.vt, VT_BSTR);
  EXPECT_EQ(Str(v), u"25:61:99");
}

std::u16string TimeOut(VARIANT v) {
  char16_t out[6];
  for (auto& c : out) c = u'#';
  RfcVariantToTime(out, &v);
  return std::u16string(out, 6);
}

TEST(ScalarTime, VariantToTime) {
  CComVariant null;
  null.vt = VT_NULL;
  EXPECT_EQ(TimeOut(null), std::u16string(6, u'\0'));
  EXPECT_EQ(TimeOut(CComVariant()), u"000000");
  EXPECT_EQ(TimeOut(CComVariant(LONG(0))), u"000000");
  EXPECT_EQ(TimeOut(TextOf(u"000000")), u"000000");
  EXPECT_EQ(TimeOut(TextOf(u"")), u"000000");
  EXPECT_EQ(TimeOut(TextOf(u" ")), u"000000");
  EXPECT_EQ(TimeOut(TextOf(u"123456")), u"123456");
  EXPECT_EQ(TimeOut(TextOf(u"999999")), u"999999");
  EXPECT_EQ(TimeOut(TextOf(u"12:34:56")), u"123456");
  EXPECT_EQ(TimeOut(TextOf(u"99:99:99")), u"999999");
  EXPECT_EQ(TimeOut(TextOf(u"1:2:3:4:")), u"1::34:");  // any of "0".."9" and ":" in the eight places
  CComVariant noon(0.5, VT_DATE);
  EXPECT_EQ(TimeOut(noon), u"120000");
  CComVariant evening(DateOf(2024, 2, 29) + (23 * 3600 + 59 * 60 + 58) / 86400.0, VT_DATE);
  EXPECT_EQ(TimeOut(evening), u"235958");
}

TEST(ScalarTime, UnreadableTimeRaisesWithTexts) {
  CComVariant v(TextOf(u"xyz"));
  char16_t out[6] = {};
  try {
    RfcVariantToTime(out, &v);
    FAIL() << "no exception";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::DATE_TIME_CONVERSION);
    EXPECT_EQ(e.Message(), u"not a valid time");
    EXPECT_EQ(e.Context(), u"RfcVariantToData(),TYPE_TIME");
    EXPECT_EQ(e.Value(), u"xyz");
  }
}

}  // namespace
