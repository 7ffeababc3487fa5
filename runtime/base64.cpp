#include "runtime/base64.h"

#include "platform/wtypes.h"
#include "runtime/exceptions.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr size_t kLineLength = 76;

// Value of a character of the alphabet, -1 for any other.
inline int Sextet(char32_t c) {
  if (c >= 'A' && c <= 'Z') return static_cast<int>(c - 'A');
  if (c >= 'a' && c <= 'z') return static_cast<int>(c - 'a' + 26);
  if (c >= '0' && c <= '9') return static_cast<int>(c - '0' + 52);
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

// Collects sextets and hands out whole bytes.
struct Accumulator {
  std::vector<uint8_t> out;
  uint32_t bits = 0;
  int count = 0;
  void Add(int sextet) {
    bits = (bits << 6) | static_cast<uint32_t>(sextet);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out.push_back(static_cast<uint8_t>(bits >> count));
      bits &= (1u << count) - 1;
    }
  }
};

template <class Char>
std::vector<uint8_t> DecodeSkipping(std::basic_string_view<Char> text) {
  Accumulator acc;
  acc.out.reserve(text.size() * 3 / 4);
  for (Char c : text) {
    if (c == 0) break;
    int v = Sextet(static_cast<char32_t>(static_cast<std::make_unsigned_t<Char>>(c)));
    if (v >= 0) acc.Add(v);
  }
  return std::move(acc.out);
}

template <class Char>
std::vector<uint8_t> DecodeStrict(std::basic_string_view<Char> text) {
  if (text.size() % 4 != 0) throw CXCOMError(E_INVALIDARG);
  size_t end = text.size();
  size_t padding = 0;
  while (end > 0 && padding < 2 && text[end - 1] == Char('=')) {
    --end;
    ++padding;
  }
  Accumulator acc;
  acc.out.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < end; ++i) {
    int v = Sextet(static_cast<char32_t>(static_cast<std::make_unsigned_t<Char>>(text[i])));
    if (v < 0) throw CXCOMError(E_INVALIDARG);
    acc.Add(v);
  }
  return std::move(acc.out);
}

}  // namespace

std::string Base64Encode(const uint8_t* data, size_t size) {
  std::string out;
  size_t chars = (size + 2) / 3 * 4;
  out.reserve(chars + chars / kLineLength * 2);
  size_t column = 0;
  auto put = [&](char c) {
    if (column == kLineLength) {
      out += "\r\n";
      column = 0;
    }
    out.push_back(c);
    ++column;
  };
  size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    uint32_t v = (uint32_t(data[i]) << 16) | (uint32_t(data[i + 1]) << 8) | data[i + 2];
    put(kAlphabet[v >> 18]);
    put(kAlphabet[(v >> 12) & 63]);
    put(kAlphabet[(v >> 6) & 63]);
    put(kAlphabet[v & 63]);
  }
  if (size - i == 1) {
    uint32_t v = uint32_t(data[i]) << 16;
    put(kAlphabet[v >> 18]);
    put(kAlphabet[(v >> 12) & 63]);
    put('=');
    put('=');
  } else if (size - i == 2) {
    uint32_t v = (uint32_t(data[i]) << 16) | (uint32_t(data[i + 1]) << 8);
    put(kAlphabet[v >> 18]);
    put(kAlphabet[(v >> 12) & 63]);
    put(kAlphabet[(v >> 6) & 63]);
    put('=');
  }
  return out;
}

std::vector<uint8_t> Base64DecodeSkipping(std::string_view text) { return DecodeSkipping(text); }
std::vector<uint8_t> Base64DecodeSkipping(std::u16string_view text) { return DecodeSkipping(text); }

std::vector<uint8_t> Base64DecodeUntilInvalid(std::u16string_view text) {
  Accumulator acc;
  for (char16_t c : text) {
    int v = Sextet(c);
    if (v < 0) break;
    acc.Add(v);
  }
  return std::move(acc.out);
}

std::vector<uint8_t> Base64DecodeStrict(std::u16string_view text) { return DecodeStrict(text); }
std::vector<uint8_t> Base64DecodeStrict(std::string_view text) { return DecodeStrict(text); }
