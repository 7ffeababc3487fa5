// Numbers for the conversions: the banker's rounding rule, exact decimals
// (DECIMAL and CY), the one parser of numbers in text, and the text forms of
// numbers.
#pragma once

#include "platform/internal/locale_data.h"
#include "platform/oleauto.h"

#include <cstdint>
#include <string>

namespace veltrane::platform::detail {

using Int128 = __int128;
using UInt128 = unsigned __int128;

// Round half to even: whether a kept value goes up by one, given how the
// dropped part compares with one half (-1 below, 0 equal, 1 above) and
// whether the kept value is odd. Every rounding of the conversions uses it.
inline bool RoundsUp(int droppedVsHalf, bool keptIsOdd) {
  return droppedVsHalf > 0 || (droppedVsHalf == 0 && keptIsOdd);
}

// The nearest integer, halves to even (2.5 -> 2, 3.5 -> 4, -2.5 -> -2).
double RoundHalfEven(double v);

// 10^n for n in 0..38.
UInt128 Pow10(int n);

// Divides by 10^digits (0..38), rounding half to even.
UInt128 DropDigits(UInt128 mantissa, int digits);

// An exact decimal number: (negative ? -1 : 1) * mantissa / 10^scale.
struct ExactDecimal {
  bool negative = false;
  UInt128 mantissa = 0;
  int scale = 0;
};

constexpr UInt128 kDecimalLimit = static_cast<UInt128>(1) << 96;  // DECIMAL mantissas are below
constexpr int kDecimalMaxScale = 28;

// E_INVALIDARG for a DECIMAL with a scale above 28 or stray sign bits.
HRESULT CheckDecimal(const DECIMAL& d);
ExactDecimal FromDecimal(const DECIMAL& d);
// Writes a value that fits (mantissa below 2^96, scale 0..28).
void ToDecimal(const ExactDecimal& e, DECIMAL* out);
// Rounds off digits until the value fits a DECIMAL; DISP_E_OVERFLOW when
// its integer part is too large.
HRESULT FitDecimal(ExactDecimal* e);
// -1, 0, 1.
int CompareExact(const ExactDecimal& a, const ExactDecimal& b);

// A number read from text: value = +/- digits * 10^exponent, or a value
// written with "&H" / "&O".
struct ParsedNumber {
  bool negative = false;
  bool radix = false;  // "&H..." or "&O..."
  uint64_t radixValue = 0;
  std::string digits;   // significant digits, no leading or trailing zeros; empty is zero
  bool sticky = false;  // non-zero digits beyond `digits` were dropped
  long exponent = 0;
};

// Reads a number as the platform does: leading and trailing white space,
// a sign before or after, parentheses for negative, the locale's currency
// symbol, decimal and thousands separators, an exponent, "&H"/"&O".
// DISP_E_TYPEMISMATCH for anything else, DISP_E_OVERFLOW for a hexadecimal
// or octal value beyond 64 bits.
HRESULT ParseNumber(const char16_t* text, const LocaleInfo& locale, ParsedNumber* out);

// The magnitude of the parsed value times 10^scale, rounded half to even;
// DISP_E_OVERFLOW when it does not fit in 38 digits.
HRESULT RoundParsed(const ParsedNumber& p, int scale, UInt128* magnitude);
// DISP_E_OVERFLOW beyond the range of a double.
HRESULT ParsedToDouble(const ParsedNumber& p, double* out);
// The value as a DECIMAL-sized exact decimal (29 digits, scale up to 28).
HRESULT ParsedToDecimal(const ParsedNumber& p, ExactDecimal* out);

// Significant digits kept of a floating-point value: 15 for VT_R8 and
// VT_DATE, 7 for VT_R4.
constexpr int kReal8Digits = 15;
constexpr int kReal4Digits = 7;

// The leading decimal digits of a finite, non-zero magnitude:
// value = d.ddd * 10^exponent.
struct RoundedDigits {
  std::string digits;  // 1 to `significant` digits, no trailing zeros
  long exponent = 0;
};

// The exact decimal value of `magnitude` rounded to `significant` digits,
// half away from zero (the float 12345665 keeps 1234567, not 1234566).
// Every conversion of a VT_R4 or VT_R8 to text or DECIMAL takes its digits
// from here.
RoundedDigits RoundToSignificant(double magnitude, int significant);

// A double with `significant` decimal digits (15 for R8, 7 for R4) as a
// DECIMAL-sized exact decimal; DISP_E_OVERFLOW when too large.
HRESULT DoubleToDecimal(double v, int significant, ExactDecimal* out);
double ExactToDouble(const ExactDecimal& e);

// Text forms as the platform writes them: up to `significant` digits, the
// locale's decimal separator. Plain decimals while the integer part has
// fewer than `significant` digits and the fraction needs no more than
// `significant` places ("123456789012345", "0.333333333333333",
// "0.00000000056789"); otherwise one digit before the point and an
// exponent of at least two digits ("1E+15", "4.16666666666667E-02").
std::u16string FormatReal(double v, int significant, const LocaleInfo& locale);
// All digits, trailing fractional zeros dropped ("1.5", "-0.0009").
std::u16string FormatExact(const ExactDecimal& e, const LocaleInfo& locale);
std::u16string FormatInteger(Int128 v);

}  // namespace veltrane::platform::detail
