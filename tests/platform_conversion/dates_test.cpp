// Dates: SYSTEMTIME <-> DATE, the clock, and dates as text both ways.
#include "conversion_table.h"

#include <cmath>
#include <ctime>

// Conformance rows: one conversion and its expected outcome per line.
// clang-format off
namespace {

SYSTEMTIME Make(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int ms = 0) {
  SYSTEMTIME st = {};
  st.wYear = static_cast<WORD>(year);
  st.wMonth = static_cast<WORD>(month);
  st.wDay = static_cast<WORD>(day);
  st.wHour = static_cast<WORD>(hour);
  st.wMinute = static_cast<WORD>(minute);
  st.wSecond = static_cast<WORD>(second);
  st.wMilliseconds = static_cast<WORD>(ms);
  return st;
}

constexpr double kSecond = 1.0 / 86400.0;
double Time(int h, int m, int s) { return (h * 3600 + m * 60 + s) / 86400.0; }

#define ST2DT(d, m, y, h, mi, s, ms, ok, expected)                       \
  do {                                                                   \
    SYSTEMTIME st = Make(y, m, d, h, mi, s, ms);                         \
    double out = -12345.0;                                               \
    INT r = SystemTimeToVariantTime(&st, &out);                          \
    EXPECT_EQ(r, (ok) ? TRUE : FALSE) << d << "." << m << "." << y;      \
    if (ok) {                                                            \
      EXPECT_NEAR(out, (expected), 1e-9) << d << "." << m << "." << y; \
    }                                                                    \
  } while (0)

TEST(SystemTimeToVariantTime, Table) {
  ST2DT(1, 1, 1980, 0, 0, 0, 0, true, 29221.0);
  ST2DT(2, 1, 1980, 0, 0, 0, 0, true, 29222.0);
  ST2DT(0, 1, 1980, 0, 0, 0, 0, true, 29220.0);   // day 0 is the last of December
  ST2DT(1, 13, 1980, 0, 0, 0, 0, false, 0.0);     // no thirteenth month
  ST2DT(32, 1, 1980, 0, 0, 0, 0, false, 0.0);     // no day 32
  ST2DT(1, 1, 10000, 0, 0, 0, 0, false, 0.0);
  ST2DT(1, 1, 9999, 0, 0, 0, 0, true, 2958101.0);
  ST2DT(31, 12, 9999, 0, 0, 0, 0, true, 2958465.0);
  ST2DT(31, 12, 9999, 23, 59, 59, 0, true, 2958465.0 + Time(23, 59, 59));
  ST2DT(1, 1, 100, 0, 0, 0, 0, true, -657434.0);
  ST2DT(0, 1, 100, 0, 0, 0, 0, false, 0.0);       // 31 December 99 is before the range
  ST2DT(31, 12, 90, 0, 0, 0, 0, true, 33238.0);   // 30..99 are 1930..1999
  ST2DT(1, 1, 30, 0, 0, 0, 0, true, 10959.0);
  ST2DT(1, 1, 29, 0, 0, 0, 0, true, 47119.0);     // 0..29 are 2000..2029
  ST2DT(1, 1, 0, 0, 0, 0, 0, true, 36526.0);
  ST2DT(30, 12, 1899, 0, 0, 0, 0, true, 0.0);
  ST2DT(30, 12, 1899, 12, 0, 0, 0, true, 0.5);
  ST2DT(29, 12, 1899, 6, 0, 0, 0, true, -1.25);   // the time counts forward from the day
  ST2DT(29, 12, 1899, 18, 0, 0, 0, true, -1.75);
  ST2DT(2, 1, 2003, 12, 34, 56, 0, true, 37623.0 + Time(12, 34, 56));
  ST2DT(2, 1, 2003, 12, 34, 56, 999, true, 37623.0 + Time(12, 34, 56));  // milliseconds ignored
  ST2DT(29, 2, 2024, 0, 0, 0, 0, true, 45351.0);
  ST2DT(29, 2, 2023, 0, 0, 0, 0, true, 44986.0);  // rolls over to 1 March
  ST2DT(31, 4, 2023, 0, 0, 0, 0, true, 45047.0);  // 1 May
  ST2DT(1, 0, 2000, 0, 0, 0, 0, true, 36495.0);   // month 0 is December before
  ST2DT(1, 1, 2000, 24, 0, 0, 0, true, 36527.0);  // hour 24 is the next day
  ST2DT(1, 1, 2000, 0, 0, 60, 0, true, 36526.0 + Time(0, 1, 0));
}

TEST(SystemTimeToVariantTime, NullArguments) {
  SYSTEMTIME st = Make(2000, 1, 1);
  double d;
  EXPECT_EQ(SystemTimeToVariantTime(nullptr, &d), FALSE);
  EXPECT_EQ(SystemTimeToVariantTime(&st, nullptr), FALSE);
}

#define DT2ST(date, ok, y, m, d, h, mi, s, dow)                                         \
  do {                                                                                  \
    SYSTEMTIME st = {};                                                                 \
    INT r = VariantTimeToSystemTime((date), &st);                                       \
    EXPECT_EQ(r, (ok) ? TRUE : FALSE) << (date);                                        \
    if (ok) {                                                                           \
      EXPECT_EQ(st.wYear, (y)) << (date);                                               \
      EXPECT_EQ(st.wMonth, (m)) << (date);                                              \
      EXPECT_EQ(st.wDay, (d)) << (date);                                                \
      EXPECT_EQ(st.wHour, (h)) << (date);                                               \
      EXPECT_EQ(st.wMinute, (mi)) << (date);                                            \
      EXPECT_EQ(st.wSecond, (s)) << (date);                                             \
      EXPECT_EQ(st.wDayOfWeek, (dow)) << (date);                                        \
      EXPECT_EQ(st.wMilliseconds, 0) << (date);                                         \
    }                                                                                   \
  } while (0)

TEST(VariantTimeToSystemTime, Table) {
  DT2ST(0.0, true, 1899, 12, 30, 0, 0, 0, 6);
  DT2ST(1.5, true, 1899, 12, 31, 12, 0, 0, 0);
  DT2ST(-1.25, true, 1899, 12, 29, 6, 0, 0, 5);
  DT2ST(-1.75, true, 1899, 12, 29, 18, 0, 0, 5);
  DT2ST(-0.5, true, 1899, 12, 30, 12, 0, 0, 6);
  DT2ST(36526.5, true, 2000, 1, 1, 12, 0, 0, 6);
  DT2ST(37623.0 + Time(12, 34, 56), true, 2003, 1, 2, 12, 34, 56, 4);
  DT2ST(45351.0, true, 2024, 2, 29, 0, 0, 0, 4);
  DT2ST(2958465.0 + Time(23, 59, 59), true, 9999, 12, 31, 23, 59, 59, 5);
  DT2ST(-657434.0, true, 100, 1, 1, 0, 0, 0, 5);
  DT2ST(-657434.999, true, 100, 1, 1, 23, 58, 34, 5);
  DT2ST(-657435.0, false, 0, 0, 0, 0, 0, 0, 0);
  DT2ST(2958466.0, false, 0, 0, 0, 0, 0, 0, 0);
  DT2ST(std::nan(""), false, 0, 0, 0, 0, 0, 0, 0);
  DT2ST(INFINITY, false, 0, 0, 0, 0, 0, 0, 0);
}

TEST(VariantTimeToSystemTime, RoundsToTheSecond) {
  DT2ST(0.5 + 0.4 * kSecond, true, 1899, 12, 30, 12, 0, 0, 6);
  DT2ST(0.5 + 0.6 * kSecond, true, 1899, 12, 30, 12, 0, 1, 6);
  DT2ST(0.5 + 0.499 * kSecond, true, 1899, 12, 30, 12, 0, 0, 6);
  DT2ST(0.5 + 0.501 * kSecond, true, 1899, 12, 30, 12, 0, 1, 6);
  DT2ST(Time(23, 59, 59) + 0.6 * kSecond, true, 1899, 12, 31, 0, 0, 0, 0);
  DT2ST(-1.0 - Time(23, 59, 59) - 0.6 * kSecond, true, 1899, 12, 30, 0, 0, 0, 6);
}

TEST(VariantTimeToSystemTime, RoundTripsEverySecondOfADay) {
  for (int s = 0; s < 86400; s += 7) {
    SYSTEMTIME in = Make(2003, 1, 2, s / 3600, s / 60 % 60, s % 60);
    double d;
    ASSERT_TRUE(SystemTimeToVariantTime(&in, &d));
    SYSTEMTIME out;
    ASSERT_TRUE(VariantTimeToSystemTime(d, &out));
    ASSERT_EQ(out.wHour * 3600 + out.wMinute * 60 + out.wSecond, s);
    ASSERT_EQ(out.wDay, 2);
  }
}

TEST(VariantTimeToSystemTime, RoundTripsDaysAcrossTheRange) {
  for (long day = -657434; day <= 2958465; day += 997) {
    // 06:00 on that day: the fraction counts forward on either side of day 0.
    const double date = day < 0 ? day - 0.25 : day + 0.25;
    SYSTEMTIME st;
    ASSERT_TRUE(VariantTimeToSystemTime(date, &st)) << day;
    ASSERT_EQ(st.wHour, 6) << day;
    double back;
    ASSERT_TRUE(SystemTimeToVariantTime(&st, &back)) << day;
    ASSERT_DOUBLE_EQ(back, date) << day;
  }
}

TEST(Clock, LocalAndSystemTime) {
  SYSTEMTIME local, utc;
  GetLocalTime(&local);
  GetSystemTime(&utc);
  time_t now = time(nullptr);
  tm parts;
  gmtime_r(&now, &parts);
  EXPECT_EQ(utc.wYear, parts.tm_year + 1900);
  EXPECT_GE(utc.wMonth, 1);
  EXPECT_LE(utc.wMonth, 12);
  EXPECT_LE(utc.wMilliseconds, 999);
  EXPECT_LE(utc.wDayOfWeek, 6);
  double a, b;
  EXPECT_TRUE(SystemTimeToVariantTime(&local, &a));
  EXPECT_TRUE(SystemTimeToVariantTime(&utc, &b));
  EXPECT_LT(std::fabs(a - b), 1.1);  // time zones differ by at most a day
  SYSTEMTIME check;
  ASSERT_TRUE(VariantTimeToSystemTime(b, &check));
  EXPECT_EQ(check.wDayOfWeek, utc.wDayOfWeek);
}

class DateText : public ConversionTable {};

TEST_F(DateText, EnglishUS) {
  CONVERT(DATEV(37623.0), VT_BSTR); EXPECT_STR(u"1/2/2003");
  CONVERT(DATEV(37623.0 + Time(12, 34, 56)), VT_BSTR); EXPECT_STR(u"1/2/2003 12:34:56 PM");
  CONVERT(DATEV(37623.25), VT_BSTR); EXPECT_STR(u"1/2/2003 6:00:00 AM");
  CONVERT(DATEV(37623.0 + Time(0, 5, 7)), VT_BSTR); EXPECT_STR(u"1/2/2003 12:05:07 AM");
  CONVERT(DATEV(37986.0 + Time(23, 59, 59)), VT_BSTR); EXPECT_STR(u"12/31/2003 11:59:59 PM");
  CONVERT(DATEV(Time(12, 34, 56)), VT_BSTR); EXPECT_STR(u"12:34:56 PM");
  CONVERT(DATEV(0.0), VT_BSTR); EXPECT_STR(u"12:00:00 AM");
  CONVERT(DATEV(0.75), VT_BSTR); EXPECT_STR(u"6:00:00 PM");
  CONVERT(DATEV(1.0), VT_BSTR); EXPECT_STR(u"12/31/1899");
  CONVERT(DATEV(-1.25), VT_BSTR); EXPECT_STR(u"12/29/1899 6:00:00 AM");
  CONVERT(DATEV(2958465.0), VT_BSTR); EXPECT_STR(u"12/31/9999");
  CONVERT(DATEV(2958466.0), VT_BSTR); EXPECT_HR(E_INVALIDARG);
  CONVERT(DATEV(-657435.0), VT_BSTR); EXPECT_HR(E_INVALIDARG);
  flags_ = VARIANT_USE_NLS;
  CONVERT(DATEV(-657434.0), VT_BSTR); EXPECT_STR(u"1/1/100 12:00:00 AM");
  CONVERT(DATEV(0.0), VT_BSTR); EXPECT_STR(u"12/30/1899 12:00:00 AM");
  CONVERT(DATEV(37623.0), VT_BSTR); EXPECT_STR(u"1/2/2003 12:00:00 AM");
}

// A year before 1000 is written without leading zeros.
TEST_F(DateText, EarlyYearsHaveNoLeadingZeros) {
  CONVERT(DATEV(-657434.0), VT_BSTR); EXPECT_STR(u"1/1/100");
  CONVERT(DATEV(-657434.5), VT_BSTR); EXPECT_STR(u"1/1/100 12:00:00 PM");
  CONVERT(DATEV(-639007.0), VT_BSTR); EXPECT_STR(u"6/15/150");
  CONVERT(DATEV(-328717.0), VT_BSTR); EXPECT_STR(u"12/31/999");
  CONVERT(DATEV(-328716.0), VT_BSTR); EXPECT_STR(u"1/1/1000");
  lcid_ = 0x0407;
  CONVERT(DATEV(-657434.0), VT_BSTR); EXPECT_STR(u"01.01.100");
  CONVERT(DATEV(-328717.25), VT_BSTR); EXPECT_STR(u"31.12.999 06:00:00");
  lcid_ = 0x0809;
  CONVERT(DATEV(-657434.0), VT_BSTR); EXPECT_STR(u"01/01/100");
  lcid_ = LOCALE_INVARIANT;
  CONVERT(DATEV(-328717.0), VT_BSTR); EXPECT_STR(u"12/31/999");
}

TEST_F(DateText, ReadEarlyYears) {
  CONVERT(STR(u"1/1/100"), VT_DATE); EXPECT(-657434.0);
  CONVERT(STR(u"12/31/999"), VT_DATE); EXPECT(-328717.0);
  CONVERT(STR(u"6/15/150 12:00:00 PM"), VT_DATE); EXPECT(-639007.5);
  lcid_ = 0x0407;
  CONVERT(STR(u"01.01.100"), VT_DATE); EXPECT(-657434.0);
}

// The ideographic space separates like any other blank.
TEST_F(DateText, ReadIdeographicSpaceAsBlank) {
  const double expected = 37623.0 + Time(12, 34, 56);
  CONVERT(STR(u"1/2/2003\u300012:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"\u30001/2/2003\u3000"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"1\u30002\u30002003"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"January\u30002,\u30002003"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"2003-01-02\u3000\u300012:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"12:34\u3000PM"), VT_DATE); EXPECT(Time(12, 34, 0));
  CONVERT(STR(u"1/2/2003\u00A012:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003\u200912:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003\t12:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003\u008512:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003\u168012:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003\u202F12:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003\u205F12:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003\u202812:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"\u3000"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"1/2/2003\u300112:34:56"), VT_DATE); EXPECT_MISMATCH;
  lcid_ = 0x0407;
  CONVERT(STR(u"02.01.2003\u300012:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"3.\u3000M\u00E4rz\u30002004"), VT_DATE); EXPECT(38049.0);
}

TEST_F(DateText, OtherLocales) {
  lcid_ = 0x0407;
  CONVERT(DATEV(37623.0 + Time(12, 34, 56)), VT_BSTR); EXPECT_STR(u"02.01.2003 12:34:56");
  CONVERT(DATEV(37623.0), VT_BSTR); EXPECT_STR(u"02.01.2003");
  CONVERT(DATEV(0.75), VT_BSTR); EXPECT_STR(u"18:00:00");
  CONVERT(DATEV(37623.0 + Time(6, 5, 4)), VT_BSTR); EXPECT_STR(u"02.01.2003 06:05:04");
  lcid_ = 0x0809;
  CONVERT(DATEV(37623.0 + Time(12, 34, 56)), VT_BSTR); EXPECT_STR(u"02/01/2003 12:34:56");
  lcid_ = LOCALE_INVARIANT;
  CONVERT(DATEV(37623.0 + Time(12, 34, 56)), VT_BSTR); EXPECT_STR(u"01/02/2003 12:34:56");
}

TEST_F(DateText, ReadEnglishUS) {
  CONVERT(STR(u"1/2/2003"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"01/02/2003"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"2003-01-02"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"2003/1/2"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"1-2-2003"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"2024-02-29"), VT_DATE); EXPECT(45351.0);
  CONVERT(STR(u"2/29/2024"), VT_DATE); EXPECT(45351.0);
  CONVERT(STR(u"13/1/2003"), VT_DATE); EXPECT(37634.0);  // no 13th month: day first
  CONVERT(STR(u"1/13/2003"), VT_DATE); EXPECT(37634.0);
  CONVERT(STR(u"31/12/2003"), VT_DATE); EXPECT(37986.0);
  CONVERT(STR(u"1/2/30"), VT_DATE); EXPECT(10960.0);
  CONVERT(STR(u"1/2/29"), VT_DATE); EXPECT(47120.0);
  CONVERT(STR(u"1/2/99"), VT_DATE); EXPECT(36162.0);
  CONVERT(STR(u"January 1, 2000"), VT_DATE); EXPECT(36526.0);
  CONVERT(STR(u"JANUARY 1 2000"), VT_DATE); EXPECT(36526.0);
  CONVERT(STR(u"1 Jan 2000"), VT_DATE); EXPECT(36526.0);
  CONVERT(STR(u"Jan 1 2000"), VT_DATE); EXPECT(36526.0);
  CONVERT(STR(u"1-Jan-2000"), VT_DATE); EXPECT(36526.0);
  CONVERT(STR(u"2000 Jan 1"), VT_DATE); EXPECT(36526.0);
  CONVERT(STR(u"Monday, January 3, 2000"), VT_DATE); EXPECT(36528.0);
  CONVERT(STR(u"Mon Jan 3 2000"), VT_DATE); EXPECT(36528.0);
  CONVERT(STR(u"Feb 2003"), VT_DATE); EXPECT(37653.0);
  CONVERT(STR(u"2/2003"), VT_DATE); EXPECT(37653.0);
  CONVERT(STR(u" 1/2/2003 "), VT_DATE); EXPECT(37623.0);
}

TEST_F(DateText, ReadTimes) {
  CONVERT(STR(u"12:34:56"), VT_DATE); EXPECT(Time(12, 34, 56));
  CONVERT(STR(u"12:34"), VT_DATE); EXPECT(Time(12, 34, 0));
  CONVERT(STR(u"12:34 PM"), VT_DATE); EXPECT(Time(12, 34, 0));
  CONVERT(STR(u"12:34 AM"), VT_DATE); EXPECT(Time(0, 34, 0));
  CONVERT(STR(u"1:00 PM"), VT_DATE); EXPECT(Time(13, 0, 0));
  CONVERT(STR(u"1:00pm"), VT_DATE); EXPECT(Time(13, 0, 0));
  CONVERT(STR(u"1:00 p"), VT_DATE); EXPECT(Time(13, 0, 0));
  CONVERT(STR(u"11:59:59 pm"), VT_DATE); EXPECT(Time(23, 59, 59));
  CONVERT(STR(u"12 PM"), VT_DATE); EXPECT(0.5);
  CONVERT(STR(u"1 am"), VT_DATE); EXPECT(Time(1, 0, 0));
  CONVERT(STR(u"0:00"), VT_DATE); EXPECT(0.0);
  CONVERT(STR(u"23:59:59"), VT_DATE); EXPECT(Time(23, 59, 59));
  CONVERT(STR(u"12.34.56"), VT_DATE); EXPECT(Time(12, 34, 56));
}

TEST_F(DateText, ReadDateAndTime) {
  const double expected = 37623.0 + Time(12, 34, 56);
  CONVERT(STR(u"2003-01-02 12:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003 12:34:56"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003 12:34:56 PM"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003 0:34:56 PM"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"12:34:56 1/2/2003"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"January 2, 2003 12:34:56 PM"), VT_DATE); EXPECT(expected);
  CONVERT(STR(u"1/2/2003 1 PM"), VT_DATE); EXPECT(37623.0 + Time(13, 0, 0));
}

TEST_F(DateText, ReadRejects) {
  CONVERT(STR(u""), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"   "), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"abc"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"1"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"36526"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"2023-02-29"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"2/30/2024"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"13/13/2003"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"2003-01-02T12:34:56"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"25:00"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"12:60"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"12:00:60"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"99:99:99"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"25:61:99"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"1:2:3:4"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"1/2/3/4"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"1/2/2003/"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"1/2/10000"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"1/2/2003 PM"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"PM 12:00"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"12:00 AM PM"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"Januar 1, 2000"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"Sept 1, 2000"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"1/2/2003,"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"1;2;2003"), VT_DATE); EXPECT_MISMATCH;
}

TEST_F(DateText, ReadWithoutYearTakesTheCurrentOne) {
  SYSTEMTIME now;
  GetLocalTime(&now);
  SYSTEMTIME expected = Make(now.wYear, 1, 2);
  double date;
  ASSERT_TRUE(SystemTimeToVariantTime(&expected, &date));
  CONVERT(STR(u"1/2"), VT_DATE); EXPECT(date);
  CONVERT(STR(u"Jan 2"), VT_DATE); EXPECT(date);
  CONVERT(STR(u"2 Jan"), VT_DATE); EXPECT(date);
}

TEST_F(DateText, ReadGerman) {
  lcid_ = 0x0407;
  CONVERT(STR(u"02.01.2003"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"2.1.2003"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"02.01.2003 12:34:56"), VT_DATE); EXPECT(37623.0 + Time(12, 34, 56));
  CONVERT(STR(u"1/2/2003"), VT_DATE); EXPECT(37653.0);
  CONVERT(STR(u"2003-01-02"), VT_DATE); EXPECT(37623.0);
  CONVERT(STR(u"1. Januar 2000"), VT_DATE); EXPECT(36526.0);
  CONVERT(STR(u"3. M\u00E4rz 2004"), VT_DATE); EXPECT(38049.0);
  CONVERT(STR(u"3. M\u00C4RZ 2004"), VT_DATE); EXPECT(38049.0);
  CONVERT(STR(u"3 Dez 2003"), VT_DATE); EXPECT(37958.0);
  CONVERT(STR(u"Montag, 3. Januar 2000"), VT_DATE); EXPECT(36528.0);
  CONVERT(STR(u"18:00"), VT_DATE); EXPECT(0.75);
  CONVERT(STR(u"29.02.2023"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"1.2.3.4"), VT_DATE); EXPECT_MISMATCH;
  CONVERT(STR(u"January 1, 2000"), VT_DATE); EXPECT_MISMATCH;
}

TEST_F(DateText, ReadBritish) {
  lcid_ = 0x0809;
  CONVERT(STR(u"1/2/2003"), VT_DATE); EXPECT(37653.0);
  CONVERT(STR(u"02/01/2003 12:34:56"), VT_DATE); EXPECT(37623.0 + Time(12, 34, 56));
  CONVERT(STR(u"1/13/2003"), VT_DATE); EXPECT(37634.0);
}

TEST_F(DateText, RoundTripInEveryLocale) {
  const double dates[] = {37623.0, 37623.0 + Time(12, 34, 56), Time(18, 0, 1), 45351.0 + Time(0, 0, 1),
                          2958465.0 + Time(23, 59, 59), -1.0 - Time(6, 0, 0), 10.0, -657434.0, -328717.0 - Time(1, 2, 3)};
  for (LCID lcid : {0x0409u, 0x0407u, 0x0809u, 0x007Fu}) {
    lcid_ = lcid;
    for (double d : dates) {
      CONVERT(DATEV(d), VT_BSTR);
      ASSERT_TRUE(succeeded()) << lcid << " " << d;
      Var text(*out_.get());
      VariantInit(out_.get());
      CONVERT(std::move(text), VT_DATE);
      EXPECT_NEAR_VAL(d, 1e-9);
    }
  }
}

}  // namespace
