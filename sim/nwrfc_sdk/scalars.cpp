#include "nwrfc_sdk/scalars.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "nwrfc_sdk/text.h"

namespace nwrfc {

namespace {

template <class T>
T load(const unsigned char* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <class T>
void store(unsigned char* p, T v) {
  std::memcpy(p, &v, sizeof v);
}

std::u16string units(const Record& r, const Slot& s) {
  std::u16string out(s.chars, u' ');
  std::memcpy(out.data(), r.at(s), 2 * static_cast<size_t>(s.chars));
  return out;
}

void putUnits(const Record& r, const Slot& s, std::u16string_view text, char16_t pad, bool rightAlign = false) {
  unsigned char* p = r.at(s);
  const size_t n = std::min<size_t>(text.size(), s.chars);
  const size_t lead = rightAlign ? s.chars - n : 0;
  for (size_t i = 0; i < s.chars; ++i) {
    const char16_t c = i < lead ? pad : (i - lead < n ? text[i - lead] : pad);
    std::memcpy(p + 2 * i, &c, 2);
  }
}

std::u16string_view trimRight(std::u16string_view t) {
  while (!t.empty() && t.back() == u' ') t.remove_suffix(1);
  return t;
}

std::u16string_view trim(std::u16string_view t) {
  t = trimRight(t);
  while (!t.empty() && t.front() == u' ') t.remove_prefix(1);
  return t;
}

std::string ascii(std::u16string_view t) { return toUtf8(t); }

[[noreturn]] void conversionFailure(std::u16string_view value, size_t position, const Slot& s) {
  fail(RFC_CONVERSION_FAILURE, "Cannot convert string value " + toUtf8(value) + " at position " +
                                   std::to_string(position) + " for the field " + s.utf8Name + " to type " +
                                   typeName(s.type));
}

[[noreturn]] void typeMismatch(const Slot& s, const char* what) {
  fail(RFC_CONVERSION_FAILURE,
       std::string("Field ") + s.utf8Name + " of type " + typeName(s.type) + " cannot be " + what);
}

[[noreturn]] void outOfRange(const std::string& value, const Slot& s, RFCTYPE as) {
  fail(RFC_CONVERSION_FAILURE,
       "Value " + value + " of field " + s.utf8Name + " is out of the range of type " + typeName(as));
}

const std::u16string* storedText(const Record& r, const Slot& s) {
  Store::Item* it = r.store->item(r.at(s));
  return it ? std::get_if<std::u16string>(it) : nullptr;
}

const std::string* storedBytes(const Record& r, const Slot& s) {
  Store::Item* it = r.store->item(r.at(s));
  return it ? std::get_if<std::string>(it) : nullptr;
}

std::u16string hex(const unsigned char* p, size_t n) {
  static const char16_t digits[] = u"0123456789ABCDEF";
  std::u16string out(2 * n, u'0');
  for (size_t i = 0; i < n; ++i) {
    out[2 * i] = digits[p[i] >> 4];
    out[2 * i + 1] = digits[p[i] & 15];
  }
  return out;
}

std::string unhex(std::u16string_view text, const Slot& s) {
  if (text.size() % 2) conversionFailure(text, text.size(), s);
  std::string out(text.size() / 2, '\0');
  auto nibble = [&](size_t i) {
    const char16_t c = text[i];
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    conversionFailure(text, i, s);
  };
  for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<char>(nibble(2 * i) * 16 + nibble(2 * i + 1));
  return out;
}

std::u16string floatText(double d) {
  char buf[64];
  auto [p, ec] = std::to_chars(buf, buf + sizeof buf, d, std::chars_format::scientific);
  std::string s(buf, ec == std::errc() ? p : buf);
  for (auto& c : s)
    if (c == 'e') c = 'E';
  return toUtf16(s);
}

// A whole number of text; the position of the first wrong character otherwise.
bool parseInteger(std::u16string_view text, std::int64_t& out, size_t& badAt) {
  size_t i = 0, end = text.size();
  while (i < end && text[i] == u' ') ++i;
  while (end > i && text[end - 1] == u' ') --end;
  if (i == end) {
    out = 0;
    return true;
  }
  bool negative = false;
  if (text[i] == u'+' || text[i] == u'-') {
    negative = text[i] == u'-';
    ++i;
  } else if (text[end - 1] == u'-') {  // ABAP writes the sign behind the number
    negative = true;
    --end;
  }
  if (i == end) {
    badAt = i;
    return false;
  }
  unsigned __int128 v = 0;
  for (size_t k = i; k < end; ++k) {
    if (text[k] < u'0' || text[k] > u'9') {
      badAt = k;
      return false;
    }
    v = v * 10 + static_cast<unsigned>(text[k] - u'0');
    if (v > static_cast<unsigned __int128>(std::numeric_limits<std::int64_t>::max()) + 1) {
      badAt = k;
      return false;
    }
  }
  if (!negative && v > static_cast<unsigned __int128>(std::numeric_limits<std::int64_t>::max())) {
    badAt = end - 1;
    return false;
  }
  out = negative ? static_cast<std::int64_t>(0 - static_cast<std::uint64_t>(v)) : static_cast<std::int64_t>(v);
  return true;
}

// A floating point number in the decimal notation of the process's locale.
bool parseFloat(std::u16string_view text, double& out, size_t& badAt) {
  const std::u16string_view t = trim(text);
  if (t.empty()) {
    out = 0;
    return true;
  }
  const size_t lead = static_cast<size_t>(t.data() - text.data());
  std::string s;
  for (size_t i = 0; i < t.size(); ++i) {
    if (t[i] > 0x7f) {
      badAt = lead + i;
      return false;
    }
    s += static_cast<char>(t[i]);
  }
  char* end = nullptr;
  errno = 0;
  const double d = std::strtod(s.c_str(), &end);
  if (end != s.c_str() + s.size() || end == s.c_str() || !std::isfinite(d)) {
    badAt = lead + static_cast<size_t>(end - s.c_str());
    return false;
  }
  out = d;
  return true;
}

bool inRange(std::int64_t v, RFCTYPE as) {
  switch (as) {
    case RFCTYPE_INT1: return v >= 0 && v <= 255;
    case RFCTYPE_INT2: return v >= -32768 && v <= 32767;
    case RFCTYPE_INT:
      return v >= std::numeric_limits<std::int32_t>::min() && v <= std::numeric_limits<std::int32_t>::max();
    default: return true;
  }
}

std::int64_t nativeInteger(const Record& r, const Slot& s) {
  switch (s.type) {
    case RFCTYPE_INT: return load<std::int32_t>(r.at(s));
    case RFCTYPE_INT2: return load<std::int16_t>(r.at(s));
    case RFCTYPE_INT1: return load<std::uint8_t>(r.at(s));
    case RFCTYPE_INT8: return load<std::int64_t>(r.at(s));
    default: return 0;
  }
}

bool isInteger(RFCTYPE t) { return t == RFCTYPE_INT || t == RFCTYPE_INT1 || t == RFCTYPE_INT2 || t == RFCTYPE_INT8; }

void storeInteger(const Record& r, const Slot& s, std::int64_t v) {
  if (!inRange(v, s.type)) outOfRange(std::to_string(v), s, s.type);
  switch (s.type) {
    case RFCTYPE_INT: store(r.at(s), static_cast<std::int32_t>(v)); break;
    case RFCTYPE_INT2: store(r.at(s), static_cast<std::int16_t>(v)); break;
    case RFCTYPE_INT1: store(r.at(s), static_cast<std::uint8_t>(v)); break;
    case RFCTYPE_INT8: store(r.at(s), v); break;
    default: break;
  }
}

// Decimal floating point text: sign, digits with at most one point, optional exponent.
bool validDecimalFloat(std::u16string_view t, size_t& badAt) {
  size_t i = 0;
  if (i < t.size() && (t[i] == u'+' || t[i] == u'-')) ++i;
  bool digits = false, point = false;
  for (; i < t.size() && t[i] != u'E' && t[i] != u'e'; ++i) {
    if (t[i] >= u'0' && t[i] <= u'9') {
      digits = true;
    } else if (t[i] == u'.' && !point) {
      point = true;
    } else {
      badAt = i;
      return false;
    }
  }
  if (!digits) {
    badAt = i;
    return false;
  }
  if (i < t.size()) {
    ++i;
    if (i < t.size() && (t[i] == u'+' || t[i] == u'-')) ++i;
    if (i == t.size()) {
      badAt = i;
      return false;
    }
    for (; i < t.size(); ++i)
      if (t[i] < u'0' || t[i] > u'9') {
        badAt = i;
        return false;
      }
  }
  return true;
}

// YYYY-MM-DDTHH:MM:SS[.F...] or its digits alone, kept with seven fraction digits.
bool normalTimestamp(std::u16string_view t, std::string& out, size_t& badAt) {
  std::string digits;
  for (size_t i = 0; i < t.size(); ++i) {
    const char16_t c = t[i];
    if (c >= u'0' && c <= u'9')
      digits += static_cast<char>(c);
    else if (c != u'-' && c != u':' && c != u'T' && c != u'.' && c != u' ' && c != u',') {
      badAt = i;
      return false;
    }
  }
  if (digits.size() < 14 || digits.size() > 21) {
    badAt = t.size();
    return false;
  }
  digits.append(21 - digits.size(), '0');
  out = digits.substr(0, 4) + "-" + digits.substr(4, 2) + "-" + digits.substr(6, 2) + "T" + digits.substr(8, 2) + ":" +
        digits.substr(10, 2) + ":" + digits.substr(12, 2) + "." + digits.substr(14);
  return true;
}

void putDigits(const Record& r, const Slot& s, std::u16string_view text) {
  std::u16string_view t = trim(text);
  for (size_t i = 0; i < t.size(); ++i)
    if (t[i] < u'0' || t[i] > u'9') conversionFailure(text, static_cast<size_t>(t.data() - text.data()) + i, s);
  while (t.size() > s.chars && t.front() == u'0') t.remove_prefix(1);
  if (t.size() > s.chars) conversionFailure(text, 0, s);
  putUnits(r, s, t, u'0', true);
}

void putDateTime(const Record& r, const Slot& s, std::u16string_view text, size_t width) {
  const std::u16string_view t = trim(text);
  if (t.empty()) return putUnits(r, s, std::u16string(width, u'0'), u' ');
  if (t.size() != width) conversionFailure(text, std::min(t.size(), width), s);
  for (size_t i = 0; i < t.size(); ++i)
    if (t[i] < u'0' || t[i] > u'9') conversionFailure(text, i, s);
  putUnits(r, s, t, u' ');
}

}  // namespace

const char* typeName(RFCTYPE type) {
  switch (type) {
    case RFCTYPE_CHAR: return "RFCTYPE_CHAR";
    case RFCTYPE_DATE: return "RFCTYPE_DATE";
    case RFCTYPE_BCD: return "RFCTYPE_BCD";
    case RFCTYPE_TIME: return "RFCTYPE_TIME";
    case RFCTYPE_BYTE: return "RFCTYPE_BYTE";
    case RFCTYPE_TABLE: return "RFCTYPE_TABLE";
    case RFCTYPE_NUM: return "RFCTYPE_NUM";
    case RFCTYPE_FLOAT: return "RFCTYPE_FLOAT";
    case RFCTYPE_INT: return "RFCTYPE_INT";
    case RFCTYPE_INT2: return "RFCTYPE_INT2";
    case RFCTYPE_INT1: return "RFCTYPE_INT1";
    case RFCTYPE_NULL: return "RFCTYPE_NULL";
    case RFCTYPE_ABAPOBJECT: return "RFCTYPE_ABAPOBJECT";
    case RFCTYPE_STRUCTURE: return "RFCTYPE_STRUCTURE";
    case RFCTYPE_DECF16: return "RFCTYPE_DECF16";
    case RFCTYPE_DECF34: return "RFCTYPE_DECF34";
    case RFCTYPE_XMLDATA: return "RFCTYPE_XMLDATA";
    case RFCTYPE_STRING: return "RFCTYPE_STRING";
    case RFCTYPE_XSTRING: return "RFCTYPE_XSTRING";
    case RFCTYPE_INT8: return "RFCTYPE_INT8";
    case RFCTYPE_UTCLONG: return "RFCTYPE_UTCLONG";
    case RFCTYPE_UTCSECOND: return "RFCTYPE_UTCSECOND";
    case RFCTYPE_UTCMINUTE: return "RFCTYPE_UTCMINUTE";
    case RFCTYPE_DTDAY: return "RFCTYPE_DTDAY";
    case RFCTYPE_DTWEEK: return "RFCTYPE_DTWEEK";
    case RFCTYPE_DTMONTH: return "RFCTYPE_DTMONTH";
    case RFCTYPE_TSECOND: return "RFCTYPE_TSECOND";
    case RFCTYPE_TMINUTE: return "RFCTYPE_TMINUTE";
    case RFCTYPE_CDAY: return "RFCTYPE_CDAY";
    case RFCTYPE_BOX: return "RFCTYPE_BOX";
    case RFCTYPE_GENERIC_BOX: return "RFCTYPE_GENERIC_BOX";
    default: return "RFCTYPE_UNKNOWN";
  }
}

size_t packedToChars(const unsigned char* bytes, unsigned length, unsigned decimals, char* out) {
  // At most 31 digits, a sign, a point and a leading zero.
  char digits[40];
  size_t n = 0;
  if (length == 0 || length > 16) {
    out[0] = '0';
    return 1;
  }
  for (unsigned i = 0; i < length; ++i) {
    const unsigned hi = bytes[i] >> 4, lo = bytes[i] & 15;
    digits[n++] = static_cast<char>('0' + (hi > 9 ? 0 : hi));
    if (i + 1 < length) digits[n++] = static_cast<char>('0' + (lo > 9 ? 0 : lo));
  }
  const unsigned sign = bytes[length - 1] & 15;
  if (decimals > n) decimals = static_cast<unsigned>(n);
  const size_t wholeDigits = n - decimals;
  size_t first = 0;
  while (first + 1 < wholeDigits && digits[first] == '0') ++first;
  bool nonZero = false;
  for (size_t i = 0; i < n; ++i) nonZero = nonZero || digits[i] != '0';
  size_t k = 0;
  if ((sign == 0x0D || sign == 0x0B) && nonZero) out[k++] = '-';
  if (wholeDigits == 0)
    out[k++] = '0';
  else
    for (size_t i = first; i < wholeDigits; ++i) out[k++] = digits[i];
  if (decimals) {
    out[k++] = '.';
    for (size_t i = wholeDigits; i < n; ++i) out[k++] = digits[i];
  }
  return k;
}

std::string packedToText(const unsigned char* bytes, unsigned length, unsigned decimals) {
  char buf[48];
  return std::string(buf, packedToChars(bytes, length, decimals, buf));
}

void textToPacked(std::string_view text, unsigned char* bytes, unsigned length, unsigned decimals) {
  if (length == 0 || length > 16) throw std::out_of_range("packed length");
  size_t i = 0, end = text.size();
  while (i < end && text[i] == ' ') ++i;
  while (end > i && text[end - 1] == ' ') --end;
  bool negative = false;
  if (i < end && (text[i] == '-' || text[i] == '+')) {
    negative = text[i] == '-';
    ++i;
  } else if (end > i && text[end - 1] == '-') {
    negative = true;
    --end;
  }
  // Digits of the whole part and the first `decimals` fraction digits, without leading zeros.
  const size_t capacity = 2 * static_cast<size_t>(length) - 1;
  char digits[40];
  size_t n = 0, fraction = 0;
  bool point = false, any = false, roundUp = false, decided = false;
  for (size_t k = i; k < end; ++k) {
    const char c = text[k];
    if (c >= '0' && c <= '9') {
      any = true;
      if (point && fraction >= decimals) {
        if (!decided) roundUp = c >= '5';
        decided = true;
        continue;
      }
      if (point) ++fraction;
      if (n == 0 && c == '0' && !point) continue;
      if (n >= capacity) throw std::out_of_range("too many digits");
      digits[n++] = c;
    } else if ((c == '.' || c == ',') && !point) {
      point = true;
    } else {
      throw std::invalid_argument(std::to_string(k));
    }
  }
  if (!any && i != end) throw std::invalid_argument(std::to_string(i));
  for (; fraction < decimals; ++fraction) {
    if (n == 0) continue;  // leading zeros stay implicit
    if (n >= capacity) throw std::out_of_range("too many digits");
    digits[n++] = '0';
  }
  if (roundUp) {
    long k = static_cast<long>(n) - 1;
    for (; k >= 0 && digits[k] == '9'; --k) digits[k] = '0';
    if (k >= 0) {
      ++digits[k];
    } else {
      if (n >= capacity) throw std::out_of_range("too many digits");
      for (size_t m = n; m > 0; --m) digits[m] = digits[m - 1];
      digits[0] = '1';
      ++n;
    }
    if (n == 0) digits[n++] = '1';
  }
  // Right-align into `capacity` digits and the sign.
  char all[40];
  std::memset(all, '0', capacity);
  std::memcpy(all + capacity - n, digits, n);
  bool nonZero = false;
  for (size_t k = 0; k < n; ++k) nonZero = nonZero || digits[k] != '0';
  all[capacity] = static_cast<char>('0' + (negative && nonZero ? 0x0D : 0x0C));
  for (unsigned b = 0; b < length; ++b)
    bytes[b] = static_cast<unsigned char>(((all[2 * b] - '0') << 4) | (all[2 * b + 1] - '0'));
}

std::u16string plainText(const Record& r, const Slot& s) {
  switch (s.type) {
    case RFCTYPE_CHAR:
    case RFCTYPE_NUM:
    case RFCTYPE_DATE:
    case RFCTYPE_TIME: return units(r, s);
    case RFCTYPE_BCD: return toUtf16(packedToText(r.at(s), s.length, s.decimals));
    case RFCTYPE_BYTE: return hex(r.at(s), s.length);
    case RFCTYPE_INT:
    case RFCTYPE_INT1:
    case RFCTYPE_INT2:
    case RFCTYPE_INT8: return toUtf16(std::to_string(nativeInteger(r, s)));
    case RFCTYPE_FLOAT: return floatText(load<double>(r.at(s)));
    case RFCTYPE_STRING: {
      const std::u16string* t = storedText(r, s);
      return t ? *t : std::u16string();
    }
    case RFCTYPE_XSTRING: {
      const std::string* b = storedBytes(r, s);
      return b ? hex(reinterpret_cast<const unsigned char*>(b->data()), b->size()) : std::u16string();
    }
    case RFCTYPE_DECF16:
    case RFCTYPE_DECF34: {
      const std::string* b = storedBytes(r, s);
      return b ? toUtf16(*b) : u"0";
    }
    case RFCTYPE_UTCLONG: {
      const std::string* b = storedBytes(r, s);
      return b ? toUtf16(*b) : std::u16string();
    }
    default: typeMismatch(s, "read as text");
  }
}

void getChars(const Record& r, const Slot& s, SAP_UC* buffer, unsigned length) {
  if (!buffer && length) fail(RFC_INVALID_PARAMETER, "No buffer was given");
  const std::u16string text = plainText(r, s);
  const std::u16string_view significant = s.type == RFCTYPE_CHAR ? trimRight(text) : std::u16string_view(text);
  if (significant.size() > length)
    fail(RFC_BUFFER_TOO_SMALL, "Buffer of " + std::to_string(length) + " characters is too small for the " +
                                   std::to_string(significant.size()) + " characters of field " + s.utf8Name);
  const size_t n = std::min<size_t>(text.size(), length);
  std::copy_n(text.data(), n, buffer);
  std::fill(buffer + n, buffer + length, u' ');
}

void getNum(const Record& r, const Slot& s, SAP_UC* buffer, unsigned length) {
  if (!buffer && length) fail(RFC_INVALID_PARAMETER, "No buffer was given");
  std::u16string digits;
  if (s.type == RFCTYPE_NUM || s.type == RFCTYPE_DATE || s.type == RFCTYPE_TIME) {
    digits = plainText(r, s);
  } else {
    const std::int64_t v = getInteger(r, s, RFCTYPE_INT8);
    if (v < 0) outOfRange(std::to_string(v), s, RFCTYPE_NUM);
    digits = toUtf16(std::to_string(v));
  }
  std::u16string_view d = digits;
  while (d.size() > length && d.front() == u'0') d.remove_prefix(1);
  if (d.size() > length)
    fail(RFC_BUFFER_TOO_SMALL, "Buffer of " + std::to_string(length) + " digits is too small for field " + s.utf8Name);
  std::fill(buffer, buffer + (length - d.size()), u'0');
  std::copy(d.begin(), d.end(), buffer + (length - d.size()));
}

void getString(const Record& r, const Slot& s, SAP_UC* buffer, unsigned length, unsigned* stringLength) {
  const std::u16string text = plainText(r, s);
  const std::u16string_view value = s.type == RFCTYPE_CHAR ? trimRight(text) : std::u16string_view(text);
  if (stringLength) *stringLength = static_cast<unsigned>(value.size());
  if (!buffer || length < value.size() + 1)
    fail(RFC_BUFFER_TOO_SMALL, "Buffer of " + std::to_string(length) + " characters is too small for the " +
                                   std::to_string(value.size()) + " characters of field " + s.utf8Name +
                                   " and the terminator");
  std::copy(value.begin(), value.end(), buffer);
  buffer[value.size()] = 0;
}

namespace {

// A date (8 digits) or time (6) from a field of that type, or from a text of digits or blanks.
void getDigits(const Record& r, const Slot& s, SAP_UC* out, RFCTYPE own, size_t width, const char* what) {
  if (!out) fail(RFC_INVALID_PARAMETER, "No buffer was given");
  if (s.type == own) {
    const std::u16string u = units(r, s);
    std::copy_n(u.data(), width, out);
    return;
  }
  if (s.type != RFCTYPE_CHAR && s.type != RFCTYPE_STRING && s.type != RFCTYPE_NUM) typeMismatch(s, what);
  const std::u16string text = plainText(r, s);
  const std::u16string_view t = trim(text);
  if (!t.empty() && t.size() != width) conversionFailure(text, 0, s);
  if (t.empty())
    std::fill(out, out + width, u'0');
  else
    std::copy_n(t.data(), width, out);
}

}  // namespace

void getDate(const Record& r, const Slot& s, SAP_UC* out) { getDigits(r, s, out, RFCTYPE_DATE, 8, "read as a date"); }

void getTime(const Record& r, const Slot& s, SAP_UC* out) { getDigits(r, s, out, RFCTYPE_TIME, 6, "read as a time"); }

void getBytes(const Record& r, const Slot& s, SAP_RAW* buffer, unsigned length) {
  const unsigned char* data = nullptr;
  size_t n = 0;
  if (s.type == RFCTYPE_BYTE) {
    data = r.at(s);
    n = s.length;
  } else if (s.type == RFCTYPE_XSTRING) {
    if (const std::string* b = storedBytes(r, s)) {
      data = reinterpret_cast<const unsigned char*>(b->data());
      n = b->size();
    }
  } else {
    typeMismatch(s, "read as bytes");
  }
  if (!buffer || length < n)
    fail(RFC_BUFFER_TOO_SMALL, "Buffer of " + std::to_string(length) + " bytes is too small for the " +
                                   std::to_string(n) + " bytes of field " + s.utf8Name);
  if (n) std::memcpy(buffer, data, n);
  std::memset(buffer + n, 0, length - n);
}

void getXString(const Record& r, const Slot& s, SAP_RAW* buffer, unsigned length, unsigned* xstringLength) {
  const unsigned char* data = nullptr;
  size_t n = 0;
  if (s.type == RFCTYPE_BYTE) {
    data = r.at(s);
    n = s.length;
  } else if (s.type == RFCTYPE_XSTRING) {
    if (const std::string* b = storedBytes(r, s)) {
      data = reinterpret_cast<const unsigned char*>(b->data());
      n = b->size();
    }
  } else {
    typeMismatch(s, "read as bytes");
  }
  if (xstringLength) *xstringLength = static_cast<unsigned>(n);
  if (n && (!buffer || length < n))
    fail(RFC_BUFFER_TOO_SMALL, "Buffer of " + std::to_string(length) + " bytes is too small for the " +
                                   std::to_string(n) + " bytes of field " + s.utf8Name);
  if (n) std::memcpy(buffer, data, n);
}

std::int64_t getInteger(const Record& r, const Slot& s, RFCTYPE as) {
  std::int64_t v = 0;
  if (isInteger(s.type)) {
    v = nativeInteger(r, s);
  } else if (s.type == RFCTYPE_FLOAT) {
    const double d = load<double>(r.at(s));
    if (d != std::trunc(d) || d < -9.2e18 || d > 9.2e18) outOfRange(toUtf8(floatText(d)), s, as);
    v = static_cast<std::int64_t>(d);
  } else if (s.type == RFCTYPE_BCD || s.type == RFCTYPE_DECF16 || s.type == RFCTYPE_DECF34) {
    const std::string text = toUtf8(plainText(r, s));
    const size_t point = text.find('.');
    if (point != std::string::npos && text.find_first_not_of('0', point + 1) != std::string::npos)
      outOfRange(text, s, as);
    size_t bad = 0;
    if (!parseInteger(toUtf16(text.substr(0, point)), v, bad)) conversionFailure(toUtf16(text), bad, s);
  } else if (s.type == RFCTYPE_CHAR || s.type == RFCTYPE_NUM || s.type == RFCTYPE_STRING) {
    const std::u16string text = plainText(r, s);
    size_t bad = 0;
    if (!parseInteger(text, v, bad)) conversionFailure(text, bad, s);
  } else {
    typeMismatch(s, std::string("read as ").append(typeName(as)).c_str());
  }
  if (!inRange(v, as)) outOfRange(std::to_string(v), s, as);
  return v;
}

double getFloat(const Record& r, const Slot& s) {
  if (s.type == RFCTYPE_FLOAT) return load<double>(r.at(s));
  if (isInteger(s.type)) return static_cast<double>(nativeInteger(r, s));
  if (s.type == RFCTYPE_BCD || s.type == RFCTYPE_DECF16 || s.type == RFCTYPE_DECF34)
    return std::strtod(toUtf8(plainText(r, s)).c_str(), nullptr);  // decimal point, whatever the locale
  if (s.type == RFCTYPE_CHAR || s.type == RFCTYPE_NUM || s.type == RFCTYPE_STRING) {
    const std::u16string text = plainText(r, s);
    double d = 0;
    size_t bad = 0;
    if (!parseFloat(text, d, bad)) conversionFailure(text, bad, s);
    return d;
  }
  typeMismatch(s, "read as a floating point number");
}

unsigned getStringLength(const Record& r, const Slot& s) {
  if (s.type == RFCTYPE_STRING) {
    const std::u16string* t = storedText(r, s);
    return t ? static_cast<unsigned>(t->size()) : 0;
  }
  if (s.type == RFCTYPE_XSTRING) {
    const std::string* b = storedBytes(r, s);
    return b ? static_cast<unsigned>(b->size()) : 0;
  }
  fail(RFC_INVALID_PARAMETER, "Field " + s.utf8Name + " of type " + typeName(s.type) + " is no STRING or XSTRING");
}

void setText(const Record& r, const Slot& s, std::u16string_view text, TextSetter setter) {
  switch (s.type) {
    case RFCTYPE_CHAR: return putUnits(r, s, text, u' ');
    case RFCTYPE_NUM: return putDigits(r, s, text);
    case RFCTYPE_DATE: return putDateTime(r, s, text, 8);
    case RFCTYPE_TIME: return putDateTime(r, s, text, 6);
    case RFCTYPE_BCD: {
      try {
        textToPacked(ascii(text), r.at(s), s.length, s.decimals);
      } catch (const std::invalid_argument& e) {
        conversionFailure(text, static_cast<size_t>(std::atoi(e.what())), s);
      } catch (const std::out_of_range&) {
        outOfRange(toUtf8(text), s, s.type);
      }
      return;
    }
    case RFCTYPE_INT:
    case RFCTYPE_INT1:
    case RFCTYPE_INT2:
    case RFCTYPE_INT8: {
      std::int64_t v = 0;
      size_t bad = 0;
      if (!parseInteger(text, v, bad)) conversionFailure(text, bad, s);
      return storeInteger(r, s, v);
    }
    case RFCTYPE_FLOAT: {
      double d = 0;
      size_t bad = 0;
      if (!parseFloat(text, d, bad)) conversionFailure(text, bad, s);
      return store(r.at(s), d);
    }
    case RFCTYPE_BYTE: {
      const std::string bytes = unhex(trim(text), s);
      if (bytes.size() > s.length) outOfRange(toUtf8(text), s, s.type);
      std::memset(r.at(s), 0, s.length);
      std::memcpy(r.at(s), bytes.data(), bytes.size());
      return;
    }
    case RFCTYPE_XSTRING: {
      std::string bytes = unhex(trim(text), s);
      if (bytes.empty())
        r.store->release(r.at(s));
      else
        r.store->put(r.at(s), std::move(bytes));
      return;
    }
    case RFCTYPE_STRING:
      if (text.empty())
        r.store->release(r.at(s));
      else
        r.store->put(r.at(s), std::u16string(text));
      return;
    case RFCTYPE_DECF16:
    case RFCTYPE_DECF34: {
      const std::u16string_view t = trim(text);
      size_t bad = 0;
      if (t.empty()) return r.store->release(r.at(s));
      if (!validDecimalFloat(t, bad)) conversionFailure(text, bad, s);
      r.store->put(r.at(s), ascii(t));
      return;
    }
    case RFCTYPE_UTCLONG: {
      const std::u16string_view t = trim(text);
      if (t.empty()) return r.store->release(r.at(s));
      std::string normal;
      size_t bad = 0;
      if (!normalTimestamp(t, normal, bad)) conversionFailure(text, bad, s);
      r.store->put(r.at(s), std::move(normal));
      return;
    }
    default: (void)setter; typeMismatch(s, "set from a text");
  }
}

void setInteger(const Record& r, const Slot& s, std::int64_t v, RFCTYPE from) {
  if (isInteger(s.type)) return storeInteger(r, s, v);
  switch (s.type) {
    case RFCTYPE_FLOAT: return store(r.at(s), static_cast<double>(v));
    case RFCTYPE_NUM:
      if (v < 0) outOfRange(std::to_string(v), s, s.type);
      [[fallthrough]];
    case RFCTYPE_CHAR:
    case RFCTYPE_STRING:
    case RFCTYPE_BCD:
    case RFCTYPE_DECF16:
    case RFCTYPE_DECF34: return setText(r, s, toUtf16(std::to_string(v)), TextSetter::String);
    default: typeMismatch(s, std::string("set from ").append(typeName(from)).c_str());
  }
}

void setFloat(const Record& r, const Slot& s, double d) {
  if (!std::isfinite(d)) fail(RFC_CONVERSION_FAILURE, "Field " + s.utf8Name + " takes finite numbers only");
  switch (s.type) {
    case RFCTYPE_FLOAT: return store(r.at(s), d);
    case RFCTYPE_INT:
    case RFCTYPE_INT1:
    case RFCTYPE_INT2:
    case RFCTYPE_INT8: {
      const double t = std::trunc(d);
      if (t < -9.2e18 || t > 9.2e18) outOfRange(toUtf8(floatText(d)), s, s.type);
      return storeInteger(r, s, static_cast<std::int64_t>(t));
    }
    case RFCTYPE_NUM: {
      const double t = std::trunc(d);
      if (t < 0 || t > 9.2e18) outOfRange(toUtf8(floatText(d)), s, s.type);
      return setText(r, s, toUtf16(std::to_string(static_cast<std::int64_t>(t))), TextSetter::Num);
    }
    case RFCTYPE_BCD:
    case RFCTYPE_DECF16:
    case RFCTYPE_DECF34: {
      char buf[64];
      auto [p, ec] = std::to_chars(buf, buf + sizeof buf, d, std::chars_format::fixed);
      return setText(r, s, toUtf16(std::string(buf, ec == std::errc() ? p : buf)), TextSetter::String);
    }
    case RFCTYPE_CHAR:
    case RFCTYPE_STRING: return setText(r, s, floatText(d), TextSetter::String);
    default: typeMismatch(s, "set from a floating point number");
  }
}

void setDate(const Record& r, const Slot& s, const SAP_UC* date) {
  if (!date) fail(RFC_INVALID_PARAMETER, "No date was given");
  if (s.type != RFCTYPE_DATE && s.type != RFCTYPE_CHAR && s.type != RFCTYPE_STRING) typeMismatch(s, "set from a date");
  setText(r, s, std::u16string_view(date, 8), TextSetter::Chars);
}

void setTime(const Record& r, const Slot& s, const SAP_UC* time) {
  if (!time) fail(RFC_INVALID_PARAMETER, "No time was given");
  if (s.type != RFCTYPE_TIME && s.type != RFCTYPE_CHAR && s.type != RFCTYPE_STRING) typeMismatch(s, "set from a time");
  setText(r, s, std::u16string_view(time, 6), TextSetter::Chars);
}

void setBytes(const Record& r, const Slot& s, const SAP_RAW* bytes, unsigned length) {
  if (!bytes && length) fail(RFC_INVALID_PARAMETER, "No bytes were given");
  if (s.type == RFCTYPE_BYTE) {
    if (length > s.length)
      fail(RFC_CONVERSION_FAILURE, std::to_string(length) + " bytes do not fit field " + s.utf8Name + " of " +
                                       std::to_string(s.length) + " bytes");
    std::memset(r.at(s), 0, s.length);
    if (length) std::memcpy(r.at(s), bytes, length);
    return;
  }
  if (s.type == RFCTYPE_XSTRING) {
    if (length == 0)
      r.store->release(r.at(s));
    else
      r.store->put(r.at(s), std::string(reinterpret_cast<const char*>(bytes), length));
    return;
  }
  typeMismatch(s, "set from bytes");
}

}  // namespace nwrfc
