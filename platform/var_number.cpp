// Numbers for the conversions: rounding, exact decimals, reading numbers
// from text and writing them as text.
#include "platform/internal/var_number.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <system_error>

namespace veltrane::platform::detail {
namespace {

// Significant digits kept when reading text; beyond them only whether
// something non-zero was dropped matters.
constexpr size_t kMaxDigits = 48;
constexpr long kExponentClamp = 1000000;
// Significant digits that hold any double exactly: none has more than 767.
constexpr int kExactDigits = 768;

bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

int hexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

bool startsWith(const char16_t* p, const char16_t* prefix) {
  if (!prefix || !*prefix) return false;
  for (; *prefix; ++p, ++prefix)
    if (*p != *prefix) return false;
  return true;
}

void appendAscii(std::u16string* out, const char* s, size_t n) {
  for (size_t i = 0; i < n; ++i) out->push_back(static_cast<char16_t>(static_cast<unsigned char>(s[i])));
}

// Digits and exponent of a parsed number as text that from_chars reads.
std::string scientificText(const ParsedNumber& p) {
  std::string s = p.digits;
  if (p.sticky) s.push_back('1');  // breaks a tie the dropped digits would have broken
  long exponent = p.exponent - static_cast<long>(s.size() - p.digits.size());
  s += 'e';
  s += std::to_string(exponent);
  return s;
}

// The first `count` significant digits of a finite, non-zero magnitude as
// to_chars rounds them (ties to even), and the decimal exponent of the first.
std::string scientificDigits(double magnitude, int count, long* exponent) {
  char buf[kExactDigits + 16];
  auto r = std::to_chars(buf, buf + sizeof buf, magnitude, std::chars_format::scientific, count - 1);
  const char* e = static_cast<const char*>(std::memchr(buf, 'e', static_cast<size_t>(r.ptr - buf)));
  std::string digits;
  digits.reserve(static_cast<size_t>(count));
  for (const char* q = buf; q < e; ++q)
    if (*q >= '0' && *q <= '9') digits.push_back(*q);
  long value = 0;
  std::from_chars(e + (e[1] == '+' ? 2 : 1), r.ptr, value);
  *exponent = value;
  return digits;
}

// Whether a magnitude is exactly d.ddd * 10^exponent, no digit beyond.
bool isExactly(double magnitude, const std::string& digits, long exponent) {
  long exactExponent;
  const std::string exact = scientificDigits(magnitude, kExactDigits, &exactExponent);
  return exactExponent == exponent && exact.compare(0, digits.size(), digits) == 0 &&
         exact.find_first_not_of('0', digits.size()) == std::string::npos;
}

// Adds one unit in the last place of a digit string.
void incrementLastDigit(std::string* digits, long* exponent) {
  for (size_t i = digits->size(); i-- > 0;) {
    if ((*digits)[i] != '9') {
      ++(*digits)[i];
      return;
    }
    (*digits)[i] = '0';
  }
  digits->insert(digits->begin(), '1');
  digits->pop_back();
  ++*exponent;
}

std::string toDigits(UInt128 v) {
  if (v == 0) return "0";
  char buf[48];
  size_t n = 0;
  while (v) {
    buf[n++] = static_cast<char>('0' + static_cast<int>(v % 10));
    v /= 10;
  }
  std::string s;
  while (n) s.push_back(buf[--n]);
  return s;
}

}  // namespace

double RoundHalfEven(double v) {
  double whole = std::floor(v);
  double dropped = v - whole;  // exact
  int vsHalf = dropped > 0.5 ? 1 : (dropped < 0.5 ? -1 : 0);
  bool odd = std::fmod(whole, 2.0) != 0.0;
  return RoundsUp(vsHalf, odd) ? whole + 1.0 : whole;
}

UInt128 Pow10(int n) {
  UInt128 r = 1;
  for (int i = 0; i < n; ++i) r *= 10;
  return r;
}

UInt128 DropDigits(UInt128 mantissa, int digits) {
  if (digits <= 0) return mantissa;
  if (digits > 38) return 0;
  UInt128 divisor = Pow10(digits);
  UInt128 kept = mantissa / divisor;
  UInt128 dropped = mantissa % divisor;
  UInt128 half = divisor / 2;  // exact: divisor is even
  int vsHalf = dropped > half ? 1 : (dropped < half ? -1 : 0);
  return RoundsUp(vsHalf, kept & 1) ? kept + 1 : kept;
}

HRESULT CheckDecimal(const DECIMAL& d) {
  if (d.scale > kDecimalMaxScale || (d.sign & ~DECIMAL_NEG)) return E_INVALIDARG;
  return S_OK;
}

ExactDecimal FromDecimal(const DECIMAL& d) {
  ExactDecimal e;
  e.negative = (d.sign & DECIMAL_NEG) != 0;
  e.mantissa = (static_cast<UInt128>(d.Hi32) << 64) | d.Lo64;
  e.scale = d.scale;
  return e;
}

void ToDecimal(const ExactDecimal& e, DECIMAL* out) {
  out->wReserved = 0;
  out->scale = static_cast<BYTE>(e.scale);
  out->sign = (e.negative && e.mantissa) ? DECIMAL_NEG : 0;
  out->Hi32 = static_cast<ULONG>(e.mantissa >> 64);
  out->Lo64 = static_cast<ULONGLONG>(e.mantissa);
}

HRESULT FitDecimal(ExactDecimal* e) {
  while (e->scale > kDecimalMaxScale || e->mantissa >= kDecimalLimit) {
    if (e->scale == 0) return DISP_E_OVERFLOW;
    e->mantissa = DropDigits(e->mantissa, 1);
    --e->scale;
  }
  if (e->mantissa == 0) e->negative = false;
  return S_OK;
}

int CompareExact(const ExactDecimal& a, const ExactDecimal& b) {
  bool aNeg = a.negative && a.mantissa, bNeg = b.negative && b.mantissa;
  if (aNeg != bNeg) return aNeg ? -1 : 1;
  // Integer parts first, then the fractions at the larger scale (below 10^28).
  UInt128 aInt = a.mantissa / Pow10(a.scale), bInt = b.mantissa / Pow10(b.scale);
  int magnitude = 0;
  if (aInt != bInt) {
    magnitude = aInt < bInt ? -1 : 1;
  } else {
    int scale = a.scale > b.scale ? a.scale : b.scale;
    UInt128 aFrac = (a.mantissa % Pow10(a.scale)) * Pow10(scale - a.scale);
    UInt128 bFrac = (b.mantissa % Pow10(b.scale)) * Pow10(scale - b.scale);
    magnitude = aFrac < bFrac ? -1 : (aFrac > bFrac ? 1 : 0);
  }
  return aNeg ? -magnitude : magnitude;
}

HRESULT ParseNumber(const char16_t* text, const LocaleInfo& locale, ParsedNumber* out) {
  *out = ParsedNumber();
  if (!text) return DISP_E_TYPEMISMATCH;
  const char16_t* p = text;
  bool leadingPlus = false, leadingMinus = false, currency = false, parens = false;

  // Leading white space, signs, currency symbol and parenthesis, in any order.
  for (;;) {
    if (IsBlank(*p)) {
      ++p;
    } else if (*p == locale.positiveSign && !leadingPlus) {
      leadingPlus = true;
      ++p;
    } else if (*p == locale.negativeSign && !leadingMinus) {
      leadingMinus = true;
      ++p;
    } else if (!currency && startsWith(p, locale.currency)) {
      currency = true;
      p += TextLength(locale.currency);
    } else if (*p == u'(' && !parens) {
      parens = true;
      ++p;
    } else {
      break;
    }
  }

  if (*p == u'&' && (p[1] == u'H' || p[1] == u'h' || p[1] == u'O' || p[1] == u'o')) {
    // Hexadecimal or octal: digits, then white space only.
    if (leadingPlus || leadingMinus || currency || parens) return DISP_E_TYPEMISMATCH;
    const int shift = (p[1] == u'H' || p[1] == u'h') ? 4 : 3;
    p += 2;
    uint64_t value = 0;
    bool any = false;
    for (;; ++p) {
      int d = hexValue(*p);
      if (d < 0 || (shift == 3 && d > 7)) break;
      if (value >> (64 - shift)) return DISP_E_OVERFLOW;
      value = (value << shift) | static_cast<uint64_t>(d);
      any = true;
    }
    while (IsBlank(*p)) ++p;
    if (!any || *p) return DISP_E_TYPEMISMATCH;
    out->radix = true;
    out->radixValue = value;
    return S_OK;
  }

  // Digits: integer part with thousands separators, fraction, exponent.
  bool anyDigit = false, decimal = false;
  auto takeDigit = [&](char16_t c, bool fraction) {
    anyDigit = true;
    if (out->digits.empty() && c == u'0') {
      if (fraction) --out->exponent;
      return;
    }
    if (out->digits.size() < kMaxDigits) {
      out->digits.push_back(static_cast<char>(c));
      if (fraction) --out->exponent;
    } else {
      if (c != u'0') out->sticky = true;
      if (!fraction) ++out->exponent;
    }
  };
  for (;; ++p) {
    if (isDigit(*p)) {
      takeDigit(*p, decimal);
    } else if (*p == locale.thousandsSep && !decimal && anyDigit) {
      continue;
    } else if (*p == locale.decimalSep && !decimal) {
      decimal = true;
    } else {
      break;
    }
  }
  if (!anyDigit) return DISP_E_TYPEMISMATCH;
  if (*p == u'e' || *p == u'E') {
    ++p;
    bool negativeExponent = false;
    if (*p == u'+' || *p == locale.positiveSign) {
      ++p;
    } else if (*p == u'-' || *p == locale.negativeSign) {
      negativeExponent = true;
      ++p;
    }
    if (!isDigit(*p)) return DISP_E_TYPEMISMATCH;
    long e = 0;
    for (; isDigit(*p); ++p)
      if (e < kExponentClamp) e = e * 10 + (*p - u'0');
    out->exponent += negativeExponent ? -e : e;
  }

  // Trailing white space, sign, closing parenthesis, currency symbol.
  bool trailingSign = false, closed = false;
  for (;;) {
    if (IsBlank(*p)) {
      ++p;
    } else if (!trailingSign && !leadingPlus && !leadingMinus &&
               (*p == locale.positiveSign || *p == locale.negativeSign)) {
      trailingSign = true;
      if (*p == locale.negativeSign) leadingMinus = true;
      ++p;
    } else if (*p == u')' && parens && !closed) {
      closed = true;
      ++p;
    } else if (!currency && startsWith(p, locale.currency)) {
      currency = true;
      p += TextLength(locale.currency);
    } else {
      break;
    }
  }
  if (*p || parens != closed) return DISP_E_TYPEMISMATCH;

  // Trailing zeros of the digits move into the exponent.
  while (!out->digits.empty() && out->digits.back() == '0') {
    out->digits.pop_back();
    ++out->exponent;
  }
  if (out->digits.empty()) {
    out->exponent = 0;
    out->sticky = false;
  }
  out->negative = (leadingMinus || parens) && !out->digits.empty();
  return S_OK;
}

HRESULT RoundParsed(const ParsedNumber& p, int scale, UInt128* magnitude) {
  *magnitude = 0;
  if (p.digits.empty()) return S_OK;
  const long length = static_cast<long>(p.digits.size());
  const long shift = p.exponent + scale;  // value * 10^scale = digits * 10^shift
  const long kept = length + shift;       // digits before the rounding point
  if (kept > 38) return DISP_E_OVERFLOW;
  if (shift >= 0) {
    UInt128 v = 0;
    for (char c : p.digits) v = v * 10 + static_cast<unsigned>(c - '0');
    *magnitude = v * Pow10(static_cast<int>(shift));
    return S_OK;
  }
  UInt128 v = 0;
  for (long i = 0; i < kept; ++i) v = v * 10 + static_cast<unsigned>(p.digits[i] - '0');
  // How the dropped digits compare with one half.
  int vsHalf;
  if (kept < 0) {
    vsHalf = -1;
  } else {
    char first = p.digits[kept];
    bool restNonZero = p.sticky || p.digits.find_first_not_of('0', static_cast<size_t>(kept) + 1) != std::string::npos;
    vsHalf = first > '5' ? 1 : (first < '5' ? -1 : (restNonZero ? 1 : 0));
  }
  *magnitude = RoundsUp(vsHalf, v & 1) ? v + 1 : v;
  return S_OK;
}

HRESULT ParsedToDouble(const ParsedNumber& p, double* out) {
  *out = 0.0;
  if (p.digits.empty()) return S_OK;
  long magnitude = static_cast<long>(p.digits.size()) + p.exponent;
  if (magnitude > 400) return DISP_E_OVERFLOW;
  if (magnitude < -400) return S_OK;  // below the smallest double: zero
  std::string s = scientificText(p);
  double v = 0.0;
  auto r = std::from_chars(s.data(), s.data() + s.size(), v);
  if (r.ec == std::errc::result_out_of_range) {
    if (magnitude > 0) return DISP_E_OVERFLOW;
    v = 0.0;
  } else if (r.ec != std::errc() || std::isinf(v)) {
    return DISP_E_OVERFLOW;
  }
  *out = p.negative ? -v : v;
  return S_OK;
}

HRESULT ParsedToDecimal(const ParsedNumber& p, ExactDecimal* out) {
  *out = ExactDecimal();
  if (p.digits.empty()) return S_OK;
  const long length = static_cast<long>(p.digits.size());
  long scale = -p.exponent;
  if (scale < 0) scale = 0;
  if (scale > kDecimalMaxScale) scale = kDecimalMaxScale;
  for (;;) {
    long kept = length + p.exponent + scale;
    if (kept > 38) {
      if (scale == 0) return DISP_E_OVERFLOW;
      scale = scale - (kept - 38) < 0 ? 0 : scale - (kept - 38);
      continue;
    }
    UInt128 m;
    HRESULT hr = RoundParsed(p, static_cast<int>(scale), &m);
    if (FAILED(hr)) return hr;
    if (m < kDecimalLimit) {
      // A value that rounds away to nothing is a plain zero.
      out->mantissa = m;
      out->scale = m ? static_cast<int>(scale) : 0;
      out->negative = p.negative && m;
      return S_OK;
    }
    if (scale == 0) return DISP_E_OVERFLOW;
    --scale;
  }
}

RoundedDigits RoundToSignificant(double magnitude, int significant) {
  // One digit more than kept, rounded once by to_chars: a last digit other
  // than 5 decides by itself which way the kept digits go.
  RoundedDigits r;
  r.digits = scientificDigits(magnitude, significant + 1, &r.exponent);
  const char last = r.digits.back();
  r.digits.pop_back();
  if (last == '5') {
    if (isExactly(magnitude, r.digits + last, r.exponent)) {
      // Exactly half way: away from zero, where to_chars would keep the
      // even digit.
      incrementLastDigit(&r.digits, &r.exponent);
    } else {
      // The 5 itself was rounded: the exact value decides.
      r.digits = scientificDigits(magnitude, significant, &r.exponent);
    }
  } else if (last > '5') {
    incrementLastDigit(&r.digits, &r.exponent);
  }
  const size_t end = r.digits.find_last_not_of('0');
  r.digits.resize(end == std::string::npos ? 1 : end + 1);
  return r;
}

HRESULT DoubleToDecimal(double v, int significant, ExactDecimal* out) {
  *out = ExactDecimal();
  if (std::isnan(v) || std::isinf(v)) return DISP_E_OVERFLOW;
  if (v == 0.0) return S_OK;
  const RoundedDigits rounded = RoundToSignificant(std::fabs(v), significant);
  ParsedNumber p;
  p.digits = rounded.digits;
  p.exponent = rounded.exponent - static_cast<long>(rounded.digits.size()) + 1;
  p.negative = v < 0;
  return ParsedToDecimal(p, out);
}

double ExactToDouble(const ExactDecimal& e) {
  if (e.mantissa == 0) return 0.0;
  std::string s = toDigits(e.mantissa) + "e-" + std::to_string(e.scale);
  double v = 0.0;
  std::from_chars(s.data(), s.data() + s.size(), v);
  return e.negative ? -v : v;
}

std::u16string FormatReal(double v, int significant, const LocaleInfo& locale) {
  std::u16string out;
  if (std::isnan(v)) return u"1.#QNAN";
  if (std::isinf(v)) return v < 0 ? u"-1.#INF" : u"1.#INF";
  if (v == 0.0) return u"0";
  if (v < 0) out.push_back(locale.negativeSign);

  const RoundedDigits rounded = RoundToSignificant(std::fabs(v), significant);
  const std::string& digits = rounded.digits;
  const long exponent = rounded.exponent;
  const long fractionDigits = static_cast<long>(digits.size()) - 1 - exponent;

  if (exponent >= significant || fractionDigits > significant) {
    out.push_back(static_cast<char16_t>(digits[0]));
    if (digits.size() > 1) {
      out.push_back(locale.decimalSep);
      appendAscii(&out, digits.data() + 1, digits.size() - 1);
    }
    char exp[16];
    int n = std::snprintf(exp, sizeof exp, "E%c%02ld", exponent < 0 ? '-' : '+', exponent < 0 ? -exponent : exponent);
    appendAscii(&out, exp, static_cast<size_t>(n));
    return out;
  }
  if (exponent < 0) {
    out.push_back(u'0');
    out.push_back(locale.decimalSep);
    for (long i = -1; i > exponent; --i) out.push_back(u'0');
    appendAscii(&out, digits.data(), digits.size());
    return out;
  }
  const size_t integerDigits = static_cast<size_t>(exponent) + 1;
  for (size_t i = 0; i < integerDigits; ++i) out.push_back(i < digits.size() ? static_cast<char16_t>(digits[i]) : u'0');
  if (digits.size() > integerDigits) {
    out.push_back(locale.decimalSep);
    appendAscii(&out, digits.data() + integerDigits, digits.size() - integerDigits);
  }
  return out;
}

std::u16string FormatExact(const ExactDecimal& e, const LocaleInfo& locale) {
  std::string digits = toDigits(e.mantissa);
  std::u16string out;
  if (e.negative && e.mantissa) out.push_back(locale.negativeSign);
  const size_t scale = static_cast<size_t>(e.scale);
  if (digits.size() <= scale) digits.insert(0, scale - digits.size() + 1, '0');
  const size_t integerDigits = digits.size() - scale;
  appendAscii(&out, digits.data(), integerDigits);
  size_t end = digits.size();
  while (end > integerDigits && digits[end - 1] == '0') --end;
  if (end > integerDigits) {
    out.push_back(locale.decimalSep);
    appendAscii(&out, digits.data() + integerDigits, end - integerDigits);
  }
  return out;
}

std::u16string FormatInteger(Int128 v) {
  std::u16string out;
  UInt128 magnitude = v < 0 ? static_cast<UInt128>(-(v + 1)) + 1 : static_cast<UInt128>(v);
  if (v < 0) out.push_back(u'-');
  std::string digits = toDigits(magnitude);
  appendAscii(&out, digits.data(), digits.size());
  return out;
}

}  // namespace veltrane::platform::detail
