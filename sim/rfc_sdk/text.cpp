#include "rfc_sdk/text.h"

#include <algorithm>

namespace rfcsdk {

std::u16string_view terminated(const SAP_UC* s) { return s ? std::u16string_view(s) : std::u16string_view(); }

std::u16string_view bounded(const SAP_UC* s, size_t length) {
  if (!s) return {};
  const SAP_UC* end = std::find(s, s + length, u'\0');
  return {s, static_cast<size_t>(end - s)};
}

namespace {

void appendCodePoint(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
    return;
  }
  const int tail = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
  static constexpr unsigned char kLead[] = {0, 0xC0, 0xE0, 0xF0};
  out.push_back(static_cast<char>(kLead[tail] | (c >> (6 * tail))));
  for (int k = tail - 1; k >= 0; --k) out.push_back(static_cast<char>(0x80 | ((c >> (6 * k)) & 0x3F)));
}

bool isHigh(char16_t u) { return u >= 0xD800 && u < 0xDC00; }
bool isLow(char16_t u) { return u >= 0xDC00 && u < 0xE000; }

}  // namespace

std::string utf8Of(std::u16string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    char32_t c = s[i];
    if (isHigh(s[i]) && i + 1 < s.size() && isLow(s[i + 1]))
      c = 0x10000 + ((c - 0xD800) << 10) + (s[++i] - 0xDC00);
    else if (isHigh(s[i]) || isLow(s[i]))
      c = 0xFFFD;
    appendCodePoint(out, c);
  }
  return out;
}

std::u16string utf16Of(std::string_view in) {
  std::u16string out;
  out.reserve(in.size());
  size_t i = 0;
  while (i < in.size()) {
    const auto lead = static_cast<unsigned char>(in[i]);
    const int tail = lead < 0x80 ? 0 : (lead >> 5) == 0x6 ? 1 : (lead >> 4) == 0xE ? 2 : (lead >> 3) == 0x1E ? 3 : -1;
    char32_t c = tail == 0 ? lead : tail == 1 ? lead & 0x1F : tail == 2 ? lead & 0x0F : lead & 0x07;
    bool ok = tail >= 0 && i + static_cast<size_t>(tail) < in.size();
    for (int k = 1; ok && k <= tail; ++k) {
      const auto b = static_cast<unsigned char>(in[i + k]);
      if ((b & 0xC0) != 0x80) ok = false;
      c = (c << 6) | (b & 0x3F);
    }
    static constexpr char32_t kMin[] = {0, 0x80, 0x800, 0x10000};
    if (ok && (c < kMin[tail < 0 ? 0 : tail] || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000))) ok = false;
    if (!ok) {
      out.push_back(u'\uFFFD');
      ++i;
      continue;
    }
    i += static_cast<size_t>(tail) + 1;
    if (c >= 0x10000) {
      c -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(c));
    }
  }
  return out;
}

void putPadded(SAP_UC* field, size_t units, std::u16string_view text) {
  const size_t n = std::min(units, text.size());
  std::copy_n(text.data(), n, field);
  std::fill(field + n, field + units, u' ');
}

void putTerminated(SAP_UC* out, size_t capacity, std::u16string_view text) {
  if (!out || capacity == 0) return;
  const size_t n = std::min(capacity - 1, text.size());
  std::copy_n(text.data(), n, out);
  out[n] = 0;
}

std::u16string_view trimRight(std::u16string_view s) {
  while (!s.empty() && s.back() == u' ') s.remove_suffix(1);
  return s;
}

std::string_view trimRight(std::string_view s) {
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}

std::string upperAscii(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

bool sameIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && upperAscii(a) == upperAscii(b);
}

}  // namespace rfcsdk
