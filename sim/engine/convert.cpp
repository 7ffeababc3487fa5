#include "engine/convert.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

namespace vsim {

namespace {

bool allDigits(std::string_view s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string describe(const TypeDesc& type) {
  std::string d(1, type.exid());
  if (type.kind == Kind::Char || type.kind == Kind::Numc || type.kind == Kind::Raw || type.kind == Kind::Packed)
    d += "(" + std::to_string(type.length) + ")";
  return d;
}

[[noreturn]] void fail(const TypeDesc& type, std::string_view text, const char* why) {
  std::string shown(text.substr(0, 64));
  throw ConversionError("cannot convert '" + shown + "' to type " + describe(type) + ": " + why);
}

std::int64_t parseInteger(const TypeDesc& type, std::string_view text) {
  std::string_view t = trim(text);
  bool negative = false;
  if (!t.empty() && t.back() == '-') {  // ABAP's trailing sign
    negative = true;
    t = trim(t.substr(0, t.size() - 1));
  }
  if (!t.empty() && t.front() == '+') t.remove_prefix(1);
  std::int64_t v = 0;
  auto [p, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
  if (ec == std::errc::result_out_of_range) fail(type, text, "overflow");
  if (ec != std::errc() || p != t.data() + t.size() || t.empty()) fail(type, text, "not an integer");
  if (negative) {
    if (v < 0) fail(type, text, "not an integer");
    v = -v;
  }
  std::int64_t lo = std::numeric_limits<std::int32_t>::min(), hi = std::numeric_limits<std::int32_t>::max();
  if (type.kind == Kind::Int1) lo = 0, hi = 255;
  if (type.kind == Kind::Int2) lo = -32768, hi = 32767;
  if (type.kind == Kind::Int8)
    lo = std::numeric_limits<std::int64_t>::min(), hi = std::numeric_limits<std::int64_t>::max();
  if (v < lo || v > hi) fail(type, text, "overflow");
  return v;
}

double parseFloat(const TypeDesc& type, std::string_view text) {
  std::string_view t = trim(text);
  if (!t.empty() && t.front() == '+') t.remove_prefix(1);
  double v = 0;
  auto [p, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
  if (ec != std::errc() || p != t.data() + t.size() || t.empty() || !std::isfinite(v))
    fail(type, text, "not a floating point number");
  return v;
}

std::string parseDate(const TypeDesc& type, std::string_view text) {
  std::string_view t = trim(text);
  if (t.empty()) return "00000000";
  if (t.size() == 10 && t[4] == '-' && t[7] == '-') {
    std::string d = std::string(t.substr(0, 4)) + std::string(t.substr(5, 2)) + std::string(t.substr(8, 2));
    if (allDigits(d)) return d;
  }
  if (t.size() == 8 && allDigits(t)) return std::string(t);
  fail(type, text, "not a date (YYYY-MM-DD)");
}

std::string parseTime(const TypeDesc& type, std::string_view text) {
  std::string_view t = trim(text);
  if (t.empty()) return "000000";
  if (t.size() == 8 && t[2] == ':' && t[5] == ':') {
    std::string d = std::string(t.substr(0, 2)) + std::string(t.substr(3, 2)) + std::string(t.substr(6, 2));
    if (allDigits(d)) return d;
  }
  if (t.size() == 6 && allDigits(t)) return std::string(t);
  fail(type, text, "not a time (HH:MM:SS)");
}

std::string parseNumc(const TypeDesc& type, std::string_view text) {
  std::string_view t = trim(text);
  if (t.empty()) return std::string(static_cast<size_t>(type.length), '0');
  if (!allDigits(t)) fail(type, text, "not a sequence of digits");
  while (t.size() > static_cast<size_t>(type.length) && t.front() == '0') t.remove_prefix(1);
  if (t.size() > static_cast<size_t>(type.length)) fail(type, text, "overflow");
  return std::string(static_cast<size_t>(type.length) - t.size(), '0') + std::string(t);
}

// A decimal floating point number: [sign] digits [. digits] [E [sign] digits], at most `digits`
// significant digits. Kept as written, without a plus sign and with an upper-case E.
std::string parseDecFloat(const TypeDesc& type, std::string_view text) {
  std::string_view t = trim(text);
  if (t.empty()) return "0";
  std::string out;
  size_t i = 0;
  if (t[i] == '+' || t[i] == '-') {
    if (t[i] == '-') out += '-';
    ++i;
  }
  int significant = 0, mantissaDigits = 0;
  bool leading = true, point = false;
  for (; i < t.size() && t[i] != 'E' && t[i] != 'e'; ++i) {
    const char c = t[i];
    if (c == '.' && !point) {
      point = true;
    } else if (c >= '0' && c <= '9') {
      ++mantissaDigits;
      if (c != '0' || !leading) {
        leading = false;
        ++significant;
      }
    } else {
      fail(type, text, "not a decimal floating point number");
    }
    out += c;
  }
  if (mantissaDigits == 0) fail(type, text, "not a decimal floating point number");
  if (significant > (type.kind == Kind::DecF16 ? 16 : 34)) fail(type, text, "too many digits");
  if (i < t.size()) {
    out += 'E';
    ++i;
    if (i < t.size() && (t[i] == '+' || t[i] == '-')) out += t[i++];
    const std::string_view exponent = t.substr(i);
    if (!allDigits(exponent) || exponent.size() > 4) fail(type, text, "bad exponent");
    const int e = std::atoi(std::string(exponent).c_str());
    if (e > (type.kind == Kind::DecF16 ? 398 : 6176)) fail(type, text, "exponent out of range");
    out += exponent;
  }
  return out;
}

// A UTC time stamp: YYYY-MM-DDTHH:MM:SS[.F...] (up to 7 fraction digits) or the same without
// separators; empty is the initial value. Kept as YYYY-MM-DDTHH:MM:SS.FFFFFFF.
std::string parseUtcLong(const TypeDesc& type, std::string_view text) {
  std::string_view t = trim(text);
  if (t.empty()) return {};
  std::string digits;
  for (char c : t)
    if (c >= '0' && c <= '9')
      digits += c;
    else if (c != '-' && c != ':' && c != 'T' && c != '.' && c != ' ' && c != ',')
      fail(type, text, "not a time stamp (YYYY-MM-DDTHH:MM:SS.FFFFFFF)");
  if (digits.size() < 14 || digits.size() > 21) fail(type, text, "not a time stamp (YYYY-MM-DDTHH:MM:SS.FFFFFFF)");
  digits.append(21 - digits.size(), '0');
  auto num = [&](size_t at, size_t n) { return std::atoi(digits.substr(at, n).c_str()); };
  const int year = num(0, 4), month = num(4, 2), day = num(6, 2), hour = num(8, 2), minute = num(10, 2),
            second = num(12, 2);
  if (year < 1 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59 ||
      civilFromDays(daysFromCivil(year, month, day)) != digits.substr(0, 8))
    fail(type, text, "not a valid time stamp");
  return digits.substr(0, 4) + "-" + digits.substr(4, 2) + "-" + digits.substr(6, 2) + "T" + digits.substr(8, 2) + ":" +
         digits.substr(10, 2) + ":" + digits.substr(12, 2) + "." + digits.substr(14);
}

// Places a text right-aligned into `width` characters; a longer text is cut on the left
// with '*' in the first place.
std::string rightAligned(const std::string& s, int width) {
  const size_t w = static_cast<size_t>(std::max(width, 0));
  if (s.size() <= w) return std::string(w - s.size(), ' ') + s;
  if (w == 0) return {};
  return "*" + s.substr(s.size() - (w - 1));
}

std::string floatScientific(double v, int precision) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*E", precision, v);
  return buf;
}

}  // namespace

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r' || s.front() == '\n'))
    s.remove_prefix(1);
  return trimRight(s);
}

std::string_view trimRight(std::string_view s) {
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == '\n'))
    s.remove_suffix(1);
  return s;
}

std::int64_t daysFromCivil(int year, int month, int day) {
  const std::int64_t y = year - (month <= 2 ? 1 : 0);
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const std::int64_t yoe = y - era * 400;
  const std::int64_t mp = (month + 9) % 12;
  const std::int64_t doy = (153 * mp + 2) / 5 + day - 1;
  const std::int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

std::string civilFromDays(std::int64_t z) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const std::int64_t doe = z - era * 146097;
  const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  std::int64_t y = yoe + era * 400;
  const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const std::int64_t mp = (5 * doy + 2) / 153;
  const std::int64_t d = doy - (153 * mp + 2) / 5 + 1;
  const std::int64_t m = mp < 10 ? mp + 3 : mp - 9;
  if (m <= 2) ++y;
  char buf[80];
  std::snprintf(buf, sizeof buf, "%04lld%02lld%02lld", static_cast<long long>(y % 10000), static_cast<long long>(m),
                static_cast<long long>(d));
  return buf;
}

std::string addDays(const std::string& yyyymmdd, std::int64_t days) {
  if (yyyymmdd.size() != 8 || !allDigits(yyyymmdd) || yyyymmdd == "00000000") return yyyymmdd;
  const int y = std::stoi(yyyymmdd.substr(0, 4)), m = std::stoi(yyyymmdd.substr(4, 2)),
            d = std::stoi(yyyymmdd.substr(6, 2));
  if (m < 1 || m > 12 || d < 1 || d > 31) return yyyymmdd;
  return civilFromDays(daysFromCivil(y, m, d) + days);
}

std::string toUpper(std::string_view s) {
  std::string r(s);
  for (auto& c : r)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return r;
}

size_t utf8Length(std::string_view s) {
  size_t n = 0;
  for (unsigned char c : s)
    if ((c & 0xC0) != 0x80) ++n;
  return n;
}

std::string utf8Truncate(std::string_view s, size_t chars) {
  size_t n = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) {
      if (n == chars) return std::string(s.substr(0, i));
      ++n;
    }
  }
  return std::string(s);
}

std::string padRight(std::string_view s, size_t chars) {
  std::string r = utf8Truncate(s, chars);
  const size_t len = utf8Length(r);
  if (len < chars) r.append(chars - len, ' ');
  return r;
}

bool utf8Valid(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    const auto c = static_cast<unsigned char>(s[i]);
    int extra = 0;
    std::uint32_t cp = 0;
    if (c < 0x80) {
      ++i;
      continue;
    }
    if ((c & 0xE0) == 0xC0)
      extra = 1, cp = c & 0x1F;
    else if ((c & 0xF0) == 0xE0)
      extra = 2, cp = c & 0x0F;
    else if ((c & 0xF8) == 0xF0)
      extra = 3, cp = c & 0x07;
    else
      return false;
    if (i + static_cast<size_t>(extra) >= s.size()) return false;
    for (int k = 1; k <= extra; ++k) {
      const auto d = static_cast<unsigned char>(s[i + static_cast<size_t>(k)]);
      if ((d & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (d & 0x3F);
    }
    if ((extra == 1 && cp < 0x80) || (extra == 2 && cp < 0x800) || (extra == 3 && cp < 0x10000) || cp > 0x10FFFF ||
        (cp >= 0xD800 && cp <= 0xDFFF))
      return false;
    i += static_cast<size_t>(extra) + 1;
  }
  return true;
}

std::string base64Encode(std::string_view bytes) {
  static const char* abc = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const unsigned v = (static_cast<unsigned char>(bytes[i]) << 16) | (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                       static_cast<unsigned char>(bytes[i + 2]);
    out += abc[(v >> 18) & 63];
    out += abc[(v >> 12) & 63];
    out += abc[(v >> 6) & 63];
    out += abc[v & 63];
  }
  if (i < bytes.size()) {
    unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    out += abc[(v >> 18) & 63];
    out += abc[(v >> 12) & 63];
    out += (i + 1 < bytes.size()) ? abc[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

std::string base64Decode(std::string_view text) {
  std::string out;
  unsigned acc = 0;
  int bits = 0;
  bool padding = false;
  for (char ch : text) {
    if (ch == ' ' || ch == '\t' || ch == '\r' || ch == '\n') continue;
    if (ch == '=') {
      padding = true;
      continue;
    }
    int v;
    if (ch >= 'A' && ch <= 'Z')
      v = ch - 'A';
    else if (ch >= 'a' && ch <= 'z')
      v = ch - 'a' + 26;
    else if (ch >= '0' && ch <= '9')
      v = ch - '0' + 52;
    else if (ch == '+' || ch == '-')
      v = 62;
    else if (ch == '/' || ch == '_')
      v = 63;
    else
      throw ConversionError("invalid character in base64 text");
    if (padding) throw ConversionError("base64 data after padding");
    acc = (acc << 6) | static_cast<unsigned>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out += static_cast<char>((acc >> bits) & 0xFF);
    }
  }
  return out;
}

std::string hexEncode(std::string_view bytes) {
  static const char* digits = "0123456789ABCDEF";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (unsigned char c : bytes) {
    out += digits[c >> 4];
    out += digits[c & 15];
  }
  return out;
}

std::string hexDecode(std::string_view text) {
  auto nibble = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  if (text.size() % 2) throw ConversionError("hexadecimal text of odd length");
  std::string out;
  for (size_t i = 0; i < text.size(); i += 2) {
    const int hi = nibble(text[i]), lo = nibble(text[i + 1]);
    if (hi < 0 || lo < 0) throw ConversionError("invalid character in hexadecimal text");
    out += static_cast<char>(hi * 16 + lo);
  }
  return out;
}

std::string packedCanonical(std::string_view text, int length, int decimals) {
  TypeDesc t;
  t.kind = Kind::Packed;
  t.length = length;
  t.decimals = decimals;
  std::string_view s = trim(text);
  bool negative = false;
  if (!s.empty() && s.back() == '-') {
    negative = true;
    s = trim(s.substr(0, s.size() - 1));
  } else if (!s.empty() && (s.front() == '-' || s.front() == '+')) {
    negative = s.front() == '-';
    s.remove_prefix(1);
  }
  if (s.empty()) {
    if (negative) fail(t, text, "not a number");
    s = "0";
  }
  const size_t dot = s.find('.');
  std::string_view ip = s.substr(0, dot), fp = dot == std::string_view::npos ? std::string_view() : s.substr(dot + 1);
  if (ip.empty() && fp.empty()) fail(t, text, "not a number");
  if ((!ip.empty() && !allDigits(ip)) || (!fp.empty() && !allDigits(fp))) fail(t, text, "not a number");
  std::string intDigits(ip);
  std::string frac(fp);
  // Round half away from zero to the type's decimals.
  bool roundUp = false;
  if (frac.size() > static_cast<size_t>(decimals)) {
    roundUp = frac[static_cast<size_t>(decimals)] >= '5';
    frac.resize(static_cast<size_t>(decimals));
  }
  frac.append(static_cast<size_t>(decimals) - frac.size(), '0');
  std::string digits = intDigits + frac;
  if (digits.empty()) digits = "0";
  if (roundUp) {
    int i = static_cast<int>(digits.size()) - 1;
    for (; i >= 0; --i) {
      if (digits[static_cast<size_t>(i)] == '9') {
        digits[static_cast<size_t>(i)] = '0';
      } else {
        ++digits[static_cast<size_t>(i)];
        break;
      }
    }
    if (i < 0) digits.insert(digits.begin(), '1');
  }
  const size_t dec = static_cast<size_t>(decimals);
  while (digits.size() > dec + 1 && digits[0] == '0') digits.erase(0, 1);
  if (digits.size() < dec + 1) digits.insert(0, dec + 1 - digits.size(), '0');
  std::string intPart = digits.substr(0, digits.size() - dec);
  std::string fracPart = digits.substr(digits.size() - dec);
  const size_t significant = (intPart == "0" ? 0 : intPart.size()) + static_cast<size_t>(decimals);
  if (significant > static_cast<size_t>(2 * length - 1)) fail(t, text, "overflow");
  const bool zero = intPart == "0" && fracPart.find_first_not_of('0') == std::string::npos;
  std::string out = (negative && !zero) ? "-" : "";
  out += intPart;
  if (decimals > 0) out += "." + fracPart;
  return out;
}

int comparePacked(std::string_view a, std::string_view b) {
  const bool na = !a.empty() && a[0] == '-', nb = !b.empty() && b[0] == '-';
  if (na != nb) return na ? -1 : 1;
  std::string_view ma = na ? a.substr(1) : a, mb = nb ? b.substr(1) : b;
  const size_t da = std::min(ma.find('.'), ma.size()), db = std::min(mb.find('.'), mb.size());
  int r;
  if (da != db) {
    r = da < db ? -1 : 1;
  } else {
    // Equal integer lengths: compare digit by digit, padding the shorter fraction with zeros.
    r = 0;
    const size_t n = std::max(ma.size(), mb.size());
    for (size_t i = 0; i < n && r == 0; ++i) {
      const char ca = i < ma.size() ? ma[i] : '0', cb = i < mb.size() ? mb[i] : '0';
      if (ca != cb) r = ca < cb ? -1 : 1;
    }
  }
  return na ? -r : r;
}

std::int64_t packedToScaled(std::string_view canonical, int decimals) {
  bool negative = !canonical.empty() && canonical[0] == '-';
  std::int64_t v = 0;
  int fracSeen = -1;
  for (char c : canonical) {
    if (c == '.') {
      fracSeen = 0;
      continue;
    }
    if (c < '0' || c > '9') continue;
    if (v > (std::numeric_limits<std::int64_t>::max() - 9) / 10) throw ConversionError("packed number too large");
    v = v * 10 + (c - '0');
    if (fracSeen >= 0) ++fracSeen;
  }
  for (int k = std::max(fracSeen, 0); k < decimals; ++k) v *= 10;
  return negative ? -v : v;
}

std::string packedFromScaled(std::int64_t scaled, int decimals) {
  const bool negative = scaled < 0;
  const std::uint64_t magnitude =
      negative ? 0 - static_cast<std::uint64_t>(scaled) : static_cast<std::uint64_t>(scaled);
  std::string digits = std::to_string(magnitude);
  if (digits.size() <= static_cast<size_t>(decimals))
    digits.insert(0, static_cast<size_t>(decimals) + 1 - digits.size(), '0');
  std::string out = negative ? "-" : "";
  out += digits.substr(0, digits.size() - static_cast<size_t>(decimals));
  if (decimals > 0) out += "." + digits.substr(digits.size() - static_cast<size_t>(decimals));
  return out;
}

Value parseValue(const TypeDesc& type, std::string_view text, TextForm form) {
  switch (type.kind) {
    case Kind::Char: return Value(std::string(trimRight(utf8Truncate(text, static_cast<size_t>(type.length)))));
    case Kind::String: return Value(std::string(text));
    case Kind::Numc: return Value(parseNumc(type, text));
    case Kind::Date: return Value(parseDate(type, text));
    case Kind::Time: return Value(parseTime(type, text));
    case Kind::Raw:
    case Kind::XString: {
      std::string bytes;
      try {
        bytes = form == TextForm::Xml ? base64Decode(text) : hexDecode(trim(text));
      } catch (const ConversionError& e) {
        fail(type, text, e.what());
      }
      if (type.kind == Kind::Raw) {
        if (bytes.size() > static_cast<size_t>(type.length)) fail(type, text, "too many bytes");
        bytes.append(static_cast<size_t>(type.length) - bytes.size(), '\0');
      }
      return Value(std::move(bytes));
    }
    case Kind::Packed: return Value(packedCanonical(text, type.length, type.decimals));
    case Kind::Float: return trim(text).empty() ? Value(0.0) : Value(parseFloat(type, text));
    case Kind::Int:
    case Kind::Int1:
    case Kind::Int2:
    case Kind::Int8: return trim(text).empty() ? Value(std::int64_t{0}) : Value(parseInteger(type, text));
    case Kind::DecF16:
    case Kind::DecF34: return Value(parseDecFloat(type, text));
    case Kind::UtcLong: return Value(parseUtcLong(type, text));
    case Kind::Struct:
    case Kind::Table: break;
  }
  throw ConversionError("a structure or table has no text form");
}

std::string formatXml(const TypeDesc& type, const Value& value) {
  switch (type.kind) {
    case Kind::Char: return std::string(trimRight(value.text()));
    case Kind::String:
    case Kind::Numc:
    case Kind::Packed:
    case Kind::DecF16:
    case Kind::DecF34:
    case Kind::UtcLong: return value.text();
    case Kind::Date: {
      const std::string& d = value.text();
      if (d.size() != 8) return d;
      return d.substr(0, 4) + "-" + d.substr(4, 2) + "-" + d.substr(6, 2);
    }
    case Kind::Time: {
      const std::string& t = value.text();
      if (t.size() != 6) return t;
      return t.substr(0, 2) + ":" + t.substr(2, 2) + ":" + t.substr(4, 2);
    }
    case Kind::Raw:
    case Kind::XString: return base64Encode(value.text());
    case Kind::Float: {
      // Shortest round-trip mantissa with an exponent, like 3.14E0 or -3.14E2.
      char buf[64];
      auto [p, ec] = std::to_chars(buf, buf + sizeof buf, value.real(), std::chars_format::scientific);
      std::string s(buf, ec == std::errc() ? p : buf);
      const size_t e = s.find('e');
      if (e == std::string::npos) return s;
      int exp = std::atoi(s.c_str() + e + 1);
      return s.substr(0, e) + "E" + std::to_string(exp);
    }
    case Kind::Int:
    case Kind::Int1:
    case Kind::Int2:
    case Kind::Int8: return std::to_string(value.integer());
    case Kind::Struct:
    case Kind::Table: break;
  }
  return {};
}

std::string formatPlain(const TypeDesc& type, const Value& value) {
  switch (type.kind) {
    case Kind::Date:
    case Kind::Time: return value.text();
    case Kind::Raw:
    case Kind::XString: return hexEncode(value.text());
    default: return formatXml(type, value);
  }
}

std::string formatWrite(const TypeDesc& type, const Value& value, int width) {
  const size_t w = static_cast<size_t>(std::max(width, 0));
  switch (type.kind) {
    case Kind::Char:
    case Kind::String:
    case Kind::Numc:
    case Kind::Date:
    case Kind::Time:
    case Kind::UtcLong: return padRight(value.text(), w);
    case Kind::DecF16:
    case Kind::DecF34: return rightAligned(value.text(), width);
    case Kind::Raw:
    case Kind::XString: return padRight(hexEncode(value.text()), w);
    case Kind::Packed: {
      const std::string& c = value.text();
      const bool negative = !c.empty() && c[0] == '-';
      return rightAligned((negative ? c.substr(1) : c) + (negative ? "-" : " "), width);
    }
    case Kind::Int:
    case Kind::Int1:
    case Kind::Int2:
    case Kind::Int8: {
      const std::int64_t v = value.integer();
      std::string digits = v < 0 ? std::to_string(v).substr(1) : std::to_string(v);
      return rightAligned(digits + (v < 0 ? "-" : " "), width);
    }
    case Kind::Float: {
      for (int precision = 16; precision >= 0; --precision) {
        std::string s = floatScientific(value.real(), precision);
        if (s.size() <= w) return std::string(w - s.size(), ' ') + s;
      }
      return std::string(w, '*');
    }
    case Kind::Struct:
    case Kind::Table: break;
  }
  return std::string(w, ' ');
}

int compareValues(const TypeDesc& type, const Value& a, const Value& b) {
  auto three = [](auto x, auto y) { return x < y ? -1 : (y < x ? 1 : 0); };
  switch (type.kind) {
    case Kind::Packed: return comparePacked(a.text(), b.text());
    case Kind::Float: return three(a.real(), b.real());
    case Kind::Int:
    case Kind::Int1:
    case Kind::Int2:
    case Kind::Int8: return three(a.integer(), b.integer());
    case Kind::DecF16:
    case Kind::DecF34: return three(std::strtold(a.text().c_str(), nullptr), std::strtold(b.text().c_str(), nullptr));
    case Kind::Char: return three(trimRight(a.text()), trimRight(b.text()));
    default: return three(std::string_view(a.text()), std::string_view(b.text()));
  }
}

}  // namespace vsim
