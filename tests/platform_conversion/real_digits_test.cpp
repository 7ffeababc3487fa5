// The digits of doubles and floats written as text, checked over many
// generated values (fixed seeds) against the exact binary value rounded by
// hand: 15 (VT_R4: 7) significant digits, halves away from zero.
#include "conversion_table.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <utility>

namespace {

// The significant digits and the decimal exponent of the first of them, as
// written in a number's text ("-0.00056789" -> "56789", -4; "1.5E+20" -> "15", 20).
std::pair<std::string, long> DigitsOfText(const std::string& text) {
  std::string mantissa = text.substr(text[0] == '-' ? 1 : 0);
  long exponent = 0;
  if (size_t e = mantissa.find('E'); e != std::string::npos) {
    exponent = std::stol(mantissa.substr(e + 1));
    mantissa.resize(e);
  }
  size_t point = mantissa.find('.');
  if (point == std::string::npos)
    point = mantissa.size();
  else
    mantissa.erase(point, 1);
  const size_t first = mantissa.find_first_not_of('0');
  std::string digits = mantissa.substr(first);
  digits.resize(digits.find_last_not_of('0') + 1);
  return {digits, exponent + static_cast<long>(point) - 1 - static_cast<long>(first)};
}

// The exact value's digits, rounded half away from zero: up when the first
// dropped digit is 5 or more.
std::pair<std::string, long> ExactDigitsRounded(double magnitude, int significant) {
  char buf[1024];
  auto r = std::to_chars(buf, buf + sizeof buf, magnitude, std::chars_format::scientific, 767);
  const std::string text(buf, r.ptr);
  const size_t e = text.find('e');
  long exponent = std::stol(text.substr(e + 1));
  std::string all = text.substr(0, 1) + text.substr(2, e - 2);
  std::string digits = all.substr(0, static_cast<size_t>(significant));
  if (all[static_cast<size_t>(significant)] >= '5') {
    size_t i = digits.size();
    while (i > 0 && digits[i - 1] == '9') digits[--i] = '0';
    if (i == 0) {
      digits.insert(digits.begin(), '1');
      ++exponent;
    } else {
      ++digits[i - 1];
    }
  }
  digits.resize(digits.find_last_not_of('0') + 1);
  return {digits, exponent};
}

std::string TextOf(Var&& v) {
  Var text;
  EXPECT_EQ(VariantChangeTypeEx(text.get(), v.get(), 0x0409, 0, VT_BSTR), S_OK);
  return Printable(text->bstrVal).substr(1, SysStringLen(text->bstrVal));
}

TEST(ToTextDigits, DoublesAreTheExactValueRoundedHalfAway) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 4000; ++i) {
    double d;
    if (i % 2) {
      // 16-digit integers ending in 5 are ties at 15 digits.
      const uint64_t tie = (1000000000000000ULL + random() % 8000000000000000ULL) / 10 * 10 + 5;
      d = static_cast<double>(tie);
    } else {
      const uint64_t bits = random();
      std::memcpy(&d, &bits, sizeof d);
      if (!std::isfinite(d) || d == 0.0) continue;
    }
    const std::string text = TextOf(R8(d));
    ASSERT_EQ(DigitsOfText(text), ExactDigitsRounded(std::fabs(d), 15)) << text;
  }
}

TEST(ToTextDigits, FloatsAreTheExactValueRoundedHalfAway) {
  std::mt19937 random(8);
  for (int i = 0; i < 4000; ++i) {
    float f;
    if (i % 2) {
      // 8-digit integers ending in 5 below 2^24 are ties at 7 digits.
      const uint32_t tie = (10000000u + random() % 6777210u) / 10 * 10 + 5;
      f = static_cast<float>(tie);
    } else {
      const uint32_t bits = random();
      std::memcpy(&f, &bits, sizeof f);
      if (!std::isfinite(f) || f == 0.0f) continue;
    }
    const std::string text = TextOf(R4(f));
    ASSERT_EQ(DigitsOfText(text), ExactDigitsRounded(std::fabs(f), 7)) << text;
  }
}

}  // namespace
