#include "nwrfc_sdk/text.h"

#include <algorithm>

namespace nwrfc {

size_t ucLength(const SAP_UC* s) {
  if (!s) return 0;
  size_t n = 0;
  while (s[n]) ++n;
  return n;
}

std::u16string_view ucView(const SAP_UC* s) { return s ? std::u16string_view(s, ucLength(s)) : std::u16string_view(); }

std::u16string_view ucView(const SAP_UC* s, size_t capacity) {
  if (!s) return {};
  size_t n = 0;
  while (n < capacity && s[n]) ++n;
  return {s, n};
}

std::string toUtf8(std::u16string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    char32_t c = s[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (s[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

namespace {

// Decodes one code point at `i`, advancing it; U+FFFD for an invalid sequence.
char32_t decodeUtf8(std::string_view s, size_t& i) {
  const auto b = static_cast<unsigned char>(s[i++]);
  if (b < 0x80) return b;
  int extra = 0;
  char32_t c = 0;
  if ((b & 0xE0) == 0xC0) {
    extra = 1;
    c = b & 0x1F;
  } else if ((b & 0xF0) == 0xE0) {
    extra = 2;
    c = b & 0x0F;
  } else if ((b & 0xF8) == 0xF0) {
    extra = 3;
    c = b & 0x07;
  } else {
    return 0xFFFD;
  }
  for (int k = 0; k < extra; ++k) {
    if (i >= s.size() || (static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) return 0xFFFD;
    c = (c << 6) | (static_cast<unsigned char>(s[i++]) & 0x3F);
  }
  if ((extra == 1 && c < 0x80) || (extra == 2 && c < 0x800) || (extra == 3 && (c < 0x10000 || c > 0x10FFFF)) ||
      (c >= 0xD800 && c <= 0xDFFF))
    return 0xFFFD;
  return c;
}

}  // namespace

void appendUtf16(std::u16string& out, std::string_view utf8) {
  for (size_t i = 0; i < utf8.size();) {
    if (static_cast<unsigned char>(utf8[i]) < 0x80) {
      out += static_cast<char16_t>(utf8[i++]);
      continue;
    }
    const char32_t c = decodeUtf8(utf8, i);
    if (c >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      out += static_cast<char16_t>(c);
    }
  }
}

std::u16string toUtf16(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  appendUtf16(out, utf8);
  return out;
}

size_t writeUtf16(std::string_view utf8, SAP_UC* out, size_t capacity) {
  size_t n = 0;
  for (size_t i = 0; i < utf8.size();) {
    if (static_cast<unsigned char>(utf8[i]) < 0x80) {
      if (n < capacity) out[n] = static_cast<SAP_UC>(utf8[i]);
      ++n;
      ++i;
      continue;
    }
    const char32_t c = decodeUtf8(utf8, i);
    if (c >= 0x10000) {
      if (n + 1 < capacity) {
        out[n] = static_cast<SAP_UC>(0xD800 + ((c - 0x10000) >> 10));
        out[n + 1] = static_cast<SAP_UC>(0xDC00 + ((c - 0x10000) & 0x3FF));
      }
      n += 2;
    } else {
      if (n < capacity) out[n] = static_cast<SAP_UC>(c);
      ++n;
    }
  }
  return n;
}

void copyTerminated(SAP_UC* out, size_t capacity, std::u16string_view text) {
  if (!out || capacity == 0) return;
  const size_t n = std::min(text.size(), capacity - 1);
  std::copy_n(text.data(), n, out);
  out[n] = 0;
}

void copyTerminated(SAP_UC* out, size_t capacity, std::string_view utf8) {
  copyTerminated(out, capacity, toUtf16(utf8));
}

std::string upperAscii(std::string_view s) {
  std::string out(s);
  for (auto& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

std::string lowerAscii(std::string_view s) {
  std::string out(s);
  for (auto& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

}  // namespace nwrfc
