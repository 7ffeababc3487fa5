#include "base64.h"

#include <cctype>

namespace veltrane::cli {

namespace {
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextet(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}
}  // namespace

std::string base64Encode(const std::uint8_t* data, size_t size) {
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    const std::uint32_t v = (data[i] << 16) | (data[i + 1] << 8) | data[i + 2];
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  if (size - i == 1) {
    const std::uint32_t v = data[i] << 16;
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += "==";
  } else if (size - i == 2) {
    const std::uint32_t v = (data[i] << 16) | (data[i + 1] << 8);
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += '=';
  }
  return out;
}

std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  for (char c : text)
    if (!std::isspace(static_cast<unsigned char>(c))) clean += c;
  if (clean.size() % 4 != 0) return std::nullopt;
  std::vector<std::uint8_t> out;
  out.reserve(clean.size() / 4 * 3);
  for (size_t i = 0; i < clean.size(); i += 4) {
    const bool last = i + 4 == clean.size();
    int v[4];
    int pad = 0;
    for (int k = 0; k < 4; ++k) {
      const char c = clean[i + k];
      if (c == '=') {
        // Padding only at the end of the last quad, and at most two.
        if (!last || k < 2) return std::nullopt;
        v[k] = 0;
        ++pad;
      } else {
        if (pad > 0) return std::nullopt;
        v[k] = sextet(c);
        if (v[k] < 0) return std::nullopt;
      }
    }
    const std::uint32_t bits = (v[0] << 18) | (v[1] << 12) | (v[2] << 6) | v[3];
    out.push_back(static_cast<std::uint8_t>(bits >> 16));
    if (pad < 2) out.push_back(static_cast<std::uint8_t>(bits >> 8));
    if (pad < 1) out.push_back(static_cast<std::uint8_t>(bits));
  }
  return out;
}

std::optional<std::string> hexToBase64(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  auto digit = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
  };
  std::vector<std::uint8_t> bytes;
  bytes.reserve(hex.size() / 2);
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int hi = digit(hex[i]), lo = digit(hex[i + 1]);
    if (hi < 0 || lo < 0) return std::nullopt;
    bytes.push_back(static_cast<std::uint8_t>(hi * 16 + lo));
  }
  return base64Encode(bytes.data(), bytes.size());
}

}  // namespace veltrane::cli
