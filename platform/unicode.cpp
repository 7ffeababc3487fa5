#include "platform/unicode.h"

#include <cstdint>
#include <cstring>

#include <stdexcept>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "platform/oleauto.h"

namespace {

[[noreturn]] void BadConversion() { throw std::range_error("bad conversion"); }

inline void PutUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    char b[2] = {static_cast<char>(0xC0 | (cp >> 6)), static_cast<char>(0x80 | (cp & 0x3F))};
    out.append(b, 2);
  } else if (cp < 0x10000) {
    char b[3] = {static_cast<char>(0xE0 | (cp >> 12)), static_cast<char>(0x80 | ((cp >> 6) & 0x3F)),
                 static_cast<char>(0x80 | (cp & 0x3F))};
    out.append(b, 3);
  } else {
    char b[4] = {static_cast<char>(0xF0 | (cp >> 18)), static_cast<char>(0x80 | ((cp >> 12) & 0x3F)),
                 static_cast<char>(0x80 | ((cp >> 6) & 0x3F)), static_cast<char>(0x80 | (cp & 0x3F))};
    out.append(b, 4);
  }
}

inline void PutUtf16(std::u16string& out, char32_t cp) {
  if (cp < 0x10000) {
    out.push_back(static_cast<char16_t>(cp));
  } else {
    cp -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
  }
}

// Decodes one code point of UTF-16 at text[i]; returns false on a lone surrogate.
inline bool NextUtf16(std::u16string_view text, size_t& i, char32_t& cp) {
  char16_t c = text[i++];
  if (c < 0xD800 || c > 0xDFFF) {
    cp = c;
    return true;
  }
  if (c <= 0xDBFF && i < text.size() && text[i] >= 0xDC00 && text[i] <= 0xDFFF) {
    cp = 0x10000 + ((char32_t(c) - 0xD800) << 10) + (char32_t(text[i++]) - 0xDC00);
    return true;
  }
  return false;
}

// Decodes one code point of UTF-8 at text[i] by the well-formed byte
// sequences of Unicode (table 3-7). On failure i moves past the first
// byte only, so a lenient caller resumes at the next byte.
inline bool NextUtf8(std::string_view text, size_t& i, char32_t& cp) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  size_t n = text.size();
  unsigned char b0 = s[i];
  if (b0 < 0x80) {
    cp = b0;
    ++i;
    return true;
  }
  size_t len;
  unsigned char lo = 0x80, hi = 0xBF;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    len = 2;
    cp = b0 & 0x1F;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    len = 3;
    cp = b0 & 0x0F;
    if (b0 == 0xE0)
      lo = 0xA0;  // overlong
    else if (b0 == 0xED)
      hi = 0x9F;  // surrogates
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    len = 4;
    cp = b0 & 0x07;
    if (b0 == 0xF0)
      lo = 0x90;  // overlong
    else if (b0 == 0xF4)
      hi = 0x8F;  // above U+10FFFF
  } else {
    ++i;
    return false;
  }
  if (i + len > n) {
    ++i;
    return false;
  }
  for (size_t k = 1; k < len; ++k) {
    unsigned char b = s[i + k];
    if (k == 1 ? (b < lo || b > hi) : (b < 0x80 || b > 0xBF)) {
      ++i;
      return false;
    }
    cp = (cp << 6) | (b & 0x3F);
  }
  i += len;
  return true;
}

}  // namespace

void AppendUtf8(std::string& out, std::u16string_view text) {
  out.reserve(out.size() + text.size() + text.size() / 2);
  size_t i = 0;
  while (i < text.size()) {
    // ASCII runs are the common case of table data.
    if (text[i] < 0x80) {
      out.push_back(static_cast<char>(text[i++]));
      continue;
    }
    char32_t cp;
    if (!NextUtf16(text, i, cp)) BadConversion();
    PutUtf8(out, cp);
  }
}

void AppendWide(std::u16string& out, std::string_view text) {
  out.reserve(out.size() + text.size());
  size_t i = 0;
  while (i < text.size()) {
    if (static_cast<unsigned char>(text[i]) < 0x80) {
      out.push_back(static_cast<char16_t>(text[i++]));
      continue;
    }
    char32_t cp;
    if (!NextUtf8(text, i, cp)) BadConversion();
    PutUtf16(out, cp);
  }
}

std::string WideToUtf8(std::u16string_view text) {
  std::string out;
  AppendUtf8(out, text);
  return out;
}

std::string WideToUtf8(const char16_t* text) { return text ? WideToUtf8(std::u16string_view(text)) : std::string(); }

std::u16string Utf8ToWide(std::string_view text) {
  std::u16string out;
  AppendWide(out, text);
  return out;
}

size_t DecodeUtf8(std::string_view text, char16_t* out) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0, k = 0;
#if defined(__SSE2__)
  // ASCII in blocks of sixteen bytes, widened by interleaving with zeros.
  const __m128i zero = _mm_setzero_si128();
  while (i + 16 <= n) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
    if (_mm_movemask_epi8(block) != 0) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + k), _mm_unpacklo_epi8(block, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + k + 8), _mm_unpackhi_epi8(block, zero));
    i += 16;
    k += 16;
  }
#endif
  // ASCII in blocks of eight bytes, widened without a branch per byte.
  while (i + 8 <= n) {
    std::uint64_t block;
    std::memcpy(&block, s + i, sizeof block);
    if (block & 0x8080808080808080ull) break;
    for (size_t b = 0; b < 8; ++b) out[k + b] = static_cast<char16_t>(s[i + b]);
    i += 8;
    k += 8;
  }
  while (i < n) {
    if (s[i] < 0x80) {
      out[k++] = static_cast<char16_t>(s[i++]);
      continue;
    }
    char32_t cp;
    if (!NextUtf8(text, i, cp)) BadConversion();
    if (cp < 0x10000) {
      out[k++] = static_cast<char16_t>(cp);
    } else {
      cp -= 0x10000;
      out[k++] = static_cast<char16_t>(0xD800 + (cp >> 10));
      out[k++] = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
    }
  }
  return k;
}

BSTR Utf8ToBstr(std::string_view text) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  unsigned char high = 0;
  for (size_t i = 0; i < n; ++i) high |= s[i];
  if (high < 0x80) {
    BSTR out = SysAllocStringLen(nullptr, static_cast<UINT>(n));
    if (!out) return nullptr;
    for (size_t i = 0; i < n; ++i) out[i] = static_cast<char16_t>(s[i]);
    return out;
  }
  // Code units of well-formed text: one per byte that is no continuation
  // byte, two for a four-byte sequence. The decoding writes no more than
  // that for any input, and fails on ill-formed input.
  size_t units = 0;
  for (size_t i = 0; i < n; ++i) units += ((s[i] & 0xC0) != 0x80) + (s[i] >= 0xF0);
  BSTR out = SysAllocStringLen(nullptr, static_cast<UINT>(units));
  if (!out) return nullptr;
  try {
    DecodeUtf8(text, out);
  } catch (...) {
    SysFreeString(out);
    throw;
  }
  return out;
}

std::u16string Utf8ToWide(const char* text) { return text ? Utf8ToWide(std::string_view(text)) : std::u16string(); }

std::string WideToUtf8Lossy(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    char32_t cp;
    if (!NextUtf16(text, i, cp)) cp = 0xFFFD;
    PutUtf8(out, cp);
  }
  return out;
}

std::u16string Utf8ToWideLossy(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    char32_t cp;
    if (!NextUtf8(text, i, cp)) cp = 0xFFFD;
    PutUtf16(out, cp);
  }
  return out;
}
