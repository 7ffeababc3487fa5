#include "runtime/wformat.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/atlbase.h"

namespace {

TEST(FormatW, PlainTextAndPercent) {
  EXPECT_EQ(FormatW(u"plain"), u"plain");
  EXPECT_EQ(FormatW(u"100%%"), u"100%");
  EXPECT_EQ(FormatW(u""), u"");
}

struct IntCase {
  const char16_t* format;
  long long value;
  const char16_t* expected;
};

TEST(FormatW, SignedIntegers) {
  const IntCase cases[] = {
      {u"%d", 0, u"0"},
      {u"%i", -42, u"-42"},
      {u"%5d", 42, u"   42"},
      {u"%-5d|", 42, u"42   |"},
      {u"%05d", -42, u"-0042"},
      {u"%+d", 42, u"+42"},
      {u"% d", 42, u" 42"},
      {u"%.3d", 7, u"007"},
      {u"%ld", 123456, u"123456"},
      {u"%lld", -9000000000LL, u"-9000000000"},
      {u"%I64d", 5, u"5"},
  };
  for (const auto& c : cases) EXPECT_EQ(FormatW(c.format, c.value), c.expected);
}

TEST(FormatW, IntegerWidthFollowsTheArgument) {
  EXPECT_EQ(FormatW(u"%u", -1), u"4294967295");
  EXPECT_EQ(FormatW(u"%u", static_cast<long long>(-1)), u"18446744073709551615");
  EXPECT_EQ(FormatW(u"%x", static_cast<int32_t>(0x80070057)), u"80070057");
  EXPECT_EQ(FormatW(u"%X", 255u), u"FF");
  EXPECT_EQ(FormatW(u"%#x", 255), u"0xff");
  EXPECT_EQ(FormatW(u"%#x", 0), u"0");
  EXPECT_EQ(FormatW(u"%08x", 0x1234), u"00001234");
  EXPECT_EQ(FormatW(u"%o", 8), u"10");
  EXPECT_EQ(FormatW(u"%d", 4294967295u), u"-1");
  EXPECT_EQ(FormatW(u"%d", static_cast<unsigned short>(65535)), u"-1");
}

TEST(FormatW, ShortModifiersNarrow) {
  EXPECT_EQ(FormatW(u"%hd", 65535), u"-1");
  EXPECT_EQ(FormatW(u"%hu", -1), u"65535");
  EXPECT_EQ(FormatW(u"%hhu", 257), u"1");
}

TEST(FormatW, OtherArgumentTypes) {
  enum Color { RED = 3 };
  EXPECT_EQ(FormatW(u"%d", RED), u"3");
  EXPECT_EQ(FormatW(u"%d", true), u"1");
  EXPECT_EQ(FormatW(u"%d", u'A'), u"65");
}

TEST(FormatW, StarWidthAndPrecision) {
  EXPECT_EQ(FormatW(u"%*d", 4, 7), u"   7");
  EXPECT_EQ(FormatW(u"%-*d|", 4, 7), u"7   |");
  EXPECT_EQ(FormatW(u"%*d|", -4, 7), u"7   |");
  EXPECT_EQ(FormatW(u"%.*s", 2, u"abcdef"), u"ab");
}

TEST(FormatW, Floating) {
  EXPECT_EQ(FormatW(u"%f", 1.5), u"1.500000");
  EXPECT_EQ(FormatW(u"%.2f", 3.14159), u"3.14");
  EXPECT_EQ(FormatW(u"%8.3f", -2.0), u"  -2.000");
  EXPECT_EQ(FormatW(u"%e", 1234.5), u"1.234500e+03");
  EXPECT_EQ(FormatW(u"%g", 0.0001), u"0.0001");
  EXPECT_EQ(FormatW(u"%f", 2), u"2.000000");
  EXPECT_EQ(FormatW(u"%f", 2.5f), u"2.500000");
}

TEST(FormatW, WideStrings) {
  const char16_t* p = u"wide";
  std::u16string s = u"string";
  std::u16string_view v = u"view";
  char16_t buffer[] = u"buffer";
  EXPECT_EQ(FormatW(u"%s %s %s %s", p, s, v, buffer), u"wide string view buffer");
  EXPECT_EQ(FormatW(u"[%8s]", u"abc"), u"[     abc]");
  EXPECT_EQ(FormatW(u"[%-8s]", u"abc"), u"[abc     ]");
  EXPECT_EQ(FormatW(u"[%.2s]", u"abc"), u"[ab]");
  EXPECT_EQ(FormatW(u"%ls %ws", u"l", u"w"), u"l w");
}

TEST(FormatW, ComStrings) {
  CComBSTR name(u"RFC_PING");
  BSTR raw = name;
  EXPECT_EQ(FormatW(u"Calling %s...", name), u"Calling RFC_PING...");
  EXPECT_EQ(FormatW(u"%s", raw), u"RFC_PING");
  EXPECT_EQ(FormatW(u"%s", CComBSTR()), u"(null)");
}

TEST(FormatW, NarrowStringsAreUtf8) {
  std::string s = "std";
  EXPECT_EQ(FormatW(u"%hs %S %s %s", "h", "S", s, std::string_view("sv")), u"h S std sv");
  EXPECT_EQ(FormatW(u"%hs", "\xE2\x82\xAC"), u"\u20AC");
}

TEST(FormatW, NullStrings) {
  const char16_t* w = nullptr;
  const char* n = nullptr;
  EXPECT_EQ(FormatW(u"%s %hs", w, n), u"(null) (null)");
}

TEST(FormatW, Characters) {
  EXPECT_EQ(FormatW(u"%c", u'x'), u"x");
  EXPECT_EQ(FormatW(u"%c", 0x20AC), u"\u20AC");
  EXPECT_EQ(FormatW(u"%c", 0x1F600), u"\U0001F600");
  EXPECT_EQ(FormatW(u"%c", 'a'), u"a");
  EXPECT_EQ(FormatW(u"[%3c]", u'z'), u"[  z]");
}

TEST(FormatW, Pointers) {
  int x = 0;
  std::u16string text = FormatW(u"%p", &x);
  EXPECT_EQ(text.size(), 16u);
  EXPECT_EQ(FormatW(u"%p", nullptr), u"0000000000000000");
  EXPECT_EQ(FormatW(u"%p", reinterpret_cast<void*>(0xABCDEF)), u"0000000000ABCDEF");
}

TEST(FormatW, MismatchesRaise) {
  EXPECT_THROW(FormatW(u"%d", u"text"), std::invalid_argument);
  EXPECT_THROW(FormatW(u"%s", 5), std::invalid_argument);
  EXPECT_THROW(FormatW(u"%d %d", 5), std::invalid_argument);
  EXPECT_THROW(FormatW(u"%d", 1.5), std::invalid_argument);
  EXPECT_THROW(FormatW(u"%p", 5), std::invalid_argument);
  EXPECT_THROW(FormatW(u"%c", u"x"), std::invalid_argument);
  EXPECT_THROW(FormatW(u"%n", 5), std::invalid_argument);
  EXPECT_THROW(FormatW(u"%1$d", 5), std::invalid_argument);
  EXPECT_THROW(FormatW(u"%k", 5), std::invalid_argument);
  EXPECT_THROW(FormatW(u"end %"), std::invalid_argument);
  EXPECT_THROW(FormatW(u"%l"), std::invalid_argument);
}

TEST(FormatW, SurplusArgumentsAreIgnored) { EXPECT_EQ(FormatW(u"%d", 1, 2, 3), u"1"); }

TEST(FormatW, LongOutput) {
  std::u16string big(5000, u'q');
  EXPECT_EQ(FormatW(u"%s", big), big);
  EXPECT_EQ(FormatW(u"%300d", 1).size(), 300u);
}

}  // namespace
