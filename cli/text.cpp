#include "text.h"

#include <cctype>
#include <utility>

namespace veltrane::cli {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one code point at s[i], advancing i; malformed input yields U+FFFD.
char32_t decodeUtf8(std::string_view s, size_t& i) {
  const auto b0 = static_cast<unsigned char>(s[i++]);
  if (b0 < 0x80) return b0;
  int extra;
  char32_t cp;
  char32_t min;
  if ((b0 & 0xE0) == 0xC0) {
    extra = 1, cp = b0 & 0x1F, min = 0x80;
  } else if ((b0 & 0xF0) == 0xE0) {
    extra = 2, cp = b0 & 0x0F, min = 0x800;
  } else if ((b0 & 0xF8) == 0xF0) {
    extra = 3, cp = b0 & 0x07, min = 0x10000;
  } else {
    return kReplacement;
  }
  for (int k = 0; k < extra; ++k) {
    if (i >= s.size()) return kReplacement;
    const auto b = static_cast<unsigned char>(s[i]);
    if ((b & 0xC0) != 0x80) return kReplacement;
    cp = (cp << 6) | (b & 0x3F);
    ++i;
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return kReplacement;
  return cp;
}

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

}  // namespace

std::u16string toUtf16(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  size_t i = 0;
  while (i < utf8.size()) {
    const char32_t cp = decodeUtf8(utf8, i);
    if (cp >= 0x10000) {
      const char32_t v = cp - 0x10000;
      out += static_cast<char16_t>(0xD800 + (v >> 10));
      out += static_cast<char16_t>(0xDC00 + (v & 0x3FF));
    } else {
      out += static_cast<char16_t>(cp);
    }
  }
  return out;
}

std::string toUtf8(std::u16string_view utf16) {
  std::string out;
  appendUtf8(out, utf16);
  return out;
}

void appendUtf8(std::string& out, std::u16string_view utf16) {
  out.reserve(out.size() + utf16.size());
  for (size_t i = 0; i < utf16.size(); ++i) {
    const char16_t c = utf16[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < utf16.size() && utf16[i + 1] >= 0xDC00 && utf16[i + 1] <= 0xDFFF) {
      appendUtf8(out, 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) + (utf16[i + 1] - 0xDC00));
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      appendUtf8(out, kReplacement);
    } else {
      appendUtf8(out, c);
    }
  }
}

bool validUtf8(std::string_view utf8) {
  size_t i = 0;
  while (i < utf8.size()) {
    const size_t start = i;
    if (decodeUtf8(utf8, i) == kReplacement && utf8.substr(start, 3) != "\xEF\xBF\xBD") return false;
  }
  return true;
}

namespace {

// Columns a code point takes on a terminal: two for East Asian wide and
// full-width characters, none for combining marks and joiners.
size_t columns(char32_t cp) {
  if ((cp >= 0x0300 && cp <= 0x036F) || (cp >= 0x200B && cp <= 0x200F) || (cp >= 0xFE00 && cp <= 0xFE0F)) return 0;
  static const std::pair<char32_t, char32_t> kWide[] = {
      {0x1100, 0x115F},   {0x231A, 0x231B},   {0x2329, 0x232A},   {0x2E80, 0x303E},   {0x3041, 0x33FF},
      {0x3400, 0x4DBF},   {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},   {0xA960, 0xA97F},   {0xAC00, 0xD7A3},
      {0xF900, 0xFAFF},   {0xFE10, 0xFE19},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},
      {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF}, {0x20000, 0x2FFFD}, {0x30000, 0x3FFFD},
  };
  for (const auto& [lo, hi] : kWide)
    if (cp >= lo && cp <= hi) return 2;
  return 1;
}

}  // namespace

size_t displayWidth(std::string_view utf8) {
  size_t n = 0, i = 0;
  while (i < utf8.size()) n += columns(decodeUtf8(utf8, i));
  return n;
}

std::string upperAscii(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

std::string trim(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return std::string(s.substr(b, e - b));
}

}  // namespace veltrane::cli
