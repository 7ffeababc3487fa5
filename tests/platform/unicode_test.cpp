#include "platform/unicode.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/oleauto.h"

namespace {

void ExpectBadConversion(auto&& f) {
  try {
    f();
    ADD_FAILURE() << "no exception";
  } catch (const std::range_error& e) {
    EXPECT_STREQ(e.what(), "bad conversion");
  }
}

TEST(WideToUtf8, Conversions) {
  EXPECT_EQ(WideToUtf8(u""), "");
  EXPECT_EQ(WideToUtf8(u"ABC"), "ABC");
  EXPECT_EQ(WideToUtf8(u"\u00E4"), "\xC3\xA4");
  EXPECT_EQ(WideToUtf8(u"\u20AC"), "\xE2\x82\xAC");
  EXPECT_EQ(WideToUtf8(u"\uFFFF"), "\xEF\xBF\xBF");
  // A surrogate pair becomes one four-byte sequence.
  EXPECT_EQ(WideToUtf8(u"\U0001F600"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(WideToUtf8(u"\U0010FFFF"), "\xF4\x8F\xBF\xBF");
  EXPECT_EQ(WideToUtf8(std::u16string(u"a\0b", 3)), std::string("a\0b", 3));
  EXPECT_EQ(WideToUtf8(static_cast<const char16_t*>(nullptr)), "");
}

TEST(WideToUtf8, LoneSurrogatesRaise) {
  const std::u16string cases[] = {
      std::u16string(1, char16_t(0xD800)),
      std::u16string(1, char16_t(0xDC00)),
      std::u16string{u'a', char16_t(0xD83D)},
      std::u16string{char16_t(0xD83D), u'a'},
      std::u16string{char16_t(0xDE00), char16_t(0xD83D)},
      std::u16string{char16_t(0xD83D), char16_t(0xD83D), char16_t(0xDE00)},
  };
  for (const auto& c : cases) ExpectBadConversion([&] { WideToUtf8(c); });
}

TEST(Utf8ToWide, Conversions) {
  EXPECT_EQ(Utf8ToWide(""), u"");
  EXPECT_EQ(Utf8ToWide("ABC"), u"ABC");
  EXPECT_EQ(Utf8ToWide("\xC3\xA4"), u"\u00E4");
  EXPECT_EQ(Utf8ToWide("\xE2\x82\xAC"), u"\u20AC");
  EXPECT_EQ(Utf8ToWide("\xF0\x9F\x98\x80"), u"\U0001F600");
  EXPECT_EQ(Utf8ToWide("\xF4\x8F\xBF\xBF"), u"\U0010FFFF");
  EXPECT_EQ(Utf8ToWide("\xC2\x80"), u"\u0080");
  EXPECT_EQ(Utf8ToWide("\xE0\xA0\x80"), u"\u0800");
  EXPECT_EQ(Utf8ToWide("\xF0\x90\x80\x80"), u"\U00010000");
  EXPECT_EQ(Utf8ToWide("\xED\x9F\xBF"), u"\uD7FF");
  EXPECT_EQ(Utf8ToWide("\xEE\x80\x80"), u"\uE000");
  EXPECT_EQ(Utf8ToWide(static_cast<const char*>(nullptr)), u"");
}

TEST(Utf8ToWide, IllFormedInputRaises) {
  const char* cases[] = {
      "\x80",              // continuation byte alone
      "a\xBF",             // continuation byte after ASCII
      "\xC0\xAF",          // overlong "/"
      "\xC1\xBF",          // overlong
      "\xE0\x80\xAF",      // overlong three bytes
      "\xF0\x80\x80\xAF",  // overlong four bytes
      "\xED\xA0\x80",      // encoded high surrogate
      "\xED\xBF\xBF",      // encoded low surrogate
      "\xF4\x90\x80\x80",  // above U+10FFFF
      "\xF5\x80\x80\x80",  // invalid lead byte
      "\xFF",              // invalid byte
      "\xFE",              // invalid byte
      "\xC3",              // truncated
      "\xE2\x82",          // truncated
      "\xF0\x9F\x98",      // truncated
      "\xC3\x41",          // continuation missing
  };
  for (const char* c : cases) ExpectBadConversion([&] { Utf8ToWide(c); });
}

std::u16string FromBstr(const char* text) {
  BSTR b = Utf8ToBstr(text);
  EXPECT_NE(b, nullptr);
  std::u16string s(b, SysStringLen(b));
  EXPECT_EQ(b[s.size()], u'\0');
  SysFreeString(b);
  return s;
}

TEST(Utf8ToBstr, ReadsAsUtf8ToWide) {
  const char* cases[] = {"",
                         "ABC",
                         "\xC3\xA4",
                         "\xE2\x82\xAC",
                         "\xF0\x9F\x98\x80",
                         "a\xC3\xA4z",
                         "\xF4\x8F\xBF\xBFx",
                         "\xC2\x80\xE0\xA0\x80",
                         "\xEE\x80\x80"};
  for (const char* c : cases) EXPECT_EQ(FromBstr(c), Utf8ToWide(c)) << c;
}

// Text decoded into a buffer: ASCII runs of every length around the blocks
// the decoder widens at once, with a character of two bytes and one of four
// at every place.
TEST(DecodeUtf8, ReadsAsUtf8ToWideAcrossBlocks) {
  for (size_t length = 0; length <= 40; ++length) {
    std::string ascii;
    for (size_t i = 0; i < length; ++i) ascii += static_cast<char>('!' + i % 90);
    for (size_t at = 0; at <= length; ++at) {
      for (const char* other : {"", "\xC3\xA4", "\xF0\x9F\x98\x80"}) {
        const std::string text = ascii.substr(0, at) + other + ascii.substr(at);
        std::u16string out(text.size(), u'#');
        out.resize(DecodeUtf8(text, out.data()));
        EXPECT_EQ(out, Utf8ToWide(text)) << text;
      }
    }
  }
  std::string bad(40, 'a');
  bad[33] = '\xFF';
  std::u16string out(bad.size(), u'#');
  ExpectBadConversion([&] { DecodeUtf8(bad, out.data()); });
}

TEST(Utf8ToBstr, IllFormedInputRaises) {
  const char* cases[] = {
      "\x80", "a\xBF", "\xC0\xAF",     "\xE0\x80\xAF", "\xED\xA0\x80",    "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
      "\xFF", "\xC3",  "\xF0\x9F\x98", "\xC3\x41",     "\xBF\xBF\xBF\xF0"};
  for (const char* c : cases) ExpectBadConversion([&] { SysFreeString(Utf8ToBstr(c)); });
}

TEST(Unicode, RoundTripOfEveryPlane) {
  std::u16string all;
  for (char32_t cp : {0x1u, 0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xD7FFu, 0xE000u, 0xFFFDu, 0x10000u, 0x10FFFFu}) {
    if (cp < 0x10000) {
      all.push_back(static_cast<char16_t>(cp));
    } else {
      all.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
      all.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
    }
  }
  EXPECT_EQ(Utf8ToWide(WideToUtf8(all)), all);
}

TEST(Unicode, AppendingForms) {
  std::string narrow = "x";
  AppendUtf8(narrow, u"\u00E4");
  EXPECT_EQ(narrow, "x\xC3\xA4");
  std::u16string wide = u"y";
  AppendWide(wide, "\xC3\xA4");
  EXPECT_EQ(wide, u"y\u00E4");
}

TEST(Unicode, LossyFormsReplace) {
  EXPECT_EQ(WideToUtf8Lossy(std::u16string{u'a', char16_t(0xD800), u'b'}),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(Utf8ToWideLossy("a\xFF"
                            "b"),
            u"a\uFFFDb");
  EXPECT_EQ(Utf8ToWideLossy("\xE2\x82"), u"\uFFFD\uFFFD");
  EXPECT_EQ(Utf8ToWideLossy("\xE2\x82\xAC"), u"\u20AC");
}

}  // namespace
