#include "text.h"

#include <cctype>

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

size_t displayWidth(std::string_view utf8) {
  size_t n = 0;
  for (unsigned char c : utf8)
    if ((c & 0xC0) != 0x80) ++n;
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
