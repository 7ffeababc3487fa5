#include "rfc_sdk/bcd.h"

#include <algorithm>

namespace rfcsdk {

namespace {

struct Parsed {
  bool negative = false;
  std::string digits;  // without leading zeros' meaning: all digits, point removed
  int scale = 0;       // digits after the point
};

int parse(std::string_view text, Parsed& p) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    p.negative = text.front() == '-';
    text.remove_prefix(1);
  } else if (!text.empty() && (text.back() == '-' || text.back() == '+')) {
    p.negative = text.back() == '-';
    text.remove_suffix(1);
  }
  if (text.empty()) return kBcdBadCharacter;
  bool point = false;
  for (char c : text) {
    if (c == '.' && !point) {
      point = true;
    } else if (c >= '0' && c <= '9') {
      p.digits += c;
      if (point) ++p.scale;
    } else {
      return kBcdBadCharacter;
    }
  }
  return p.digits.empty() ? kBcdBadCharacter : kBcdOk;
}

// Adds one to a string of digits; may grow it by a digit.
void increment(std::string& digits) {
  for (auto it = digits.rbegin(); it != digits.rend(); ++it) {
    if (*it != '9') {
      ++*it;
      return;
    }
    *it = '0';
  }
  digits.insert(digits.begin(), '1');
}

}  // namespace

int packDecimal(std::string_view text, int& decimals, unsigned char* out, int outLength) {
  if (outLength < 1 || outLength > kMaxBcdBytes) return kBcdBadLength;
  Parsed p;
  if (const int rc = parse(text, p); rc != kBcdOk) return rc;
  const int scale = decimals < 0 ? p.scale : decimals;
  if (scale > p.scale) {
    p.digits.append(static_cast<size_t>(scale - p.scale), '0');
  } else if (scale < p.scale) {
    const size_t keep = p.digits.size() - static_cast<size_t>(p.scale - scale);
    const bool up = p.digits[keep] >= '5';
    p.digits.resize(keep);
    if (p.digits.empty()) p.digits = "0";
    if (up) increment(p.digits);
  }
  const size_t first = std::min(p.digits.find_first_not_of('0'), p.digits.size() - 1);
  std::string_view digits(p.digits);
  digits.remove_prefix(first);
  const size_t capacity = static_cast<size_t>(outLength) * 2 - 1;
  if (digits.size() > capacity) return kBcdTooShort;
  const bool zero = digits == "0";
  std::string nibbles(capacity - digits.size(), '0');
  nibbles.append(digits);
  for (int i = 0; i < outLength; ++i) {
    const int high = nibbles[static_cast<size_t>(2 * i)] - '0';
    const int low =
        i + 1 < outLength ? nibbles[static_cast<size_t>(2 * i + 1)] - '0' : (p.negative && !zero ? 0xD : 0xC);
    out[i] = static_cast<unsigned char>((high << 4) | low);
  }
  if (decimals < 0) decimals = scale;
  return kBcdOk;
}

int unpackDecimal(const unsigned char* in, int inLength, int decimals, std::string& text) {
  if (inLength < 1 || inLength > kMaxBcdBytes || decimals < 0 || decimals > 2 * inLength - 1) return kBcdBadLength;
  std::string digits;
  for (int i = 0; i < inLength; ++i) {
    const int high = in[i] >> 4, low = in[i] & 0xF;
    if (high > 9) return kBcdBadCharacter;
    digits += static_cast<char>('0' + high);
    if (i + 1 < inLength) {
      if (low > 9) return kBcdBadCharacter;
      digits += static_cast<char>('0' + low);
    }
  }
  const int sign = in[inLength - 1] & 0xF;
  if (sign < 0xA) return kBcdBadCharacter;
  const bool negative = sign == 0xB || sign == 0xD;
  const size_t whole = digits.size() - static_cast<size_t>(decimals);
  std::string integer = digits.substr(0, whole);
  integer.erase(0, std::min(integer.find_first_not_of('0'), integer.size()));
  if (integer.empty()) integer = "0";
  std::string fraction = digits.substr(whole);
  const bool zero = integer == "0" && fraction.find_first_not_of('0') == std::string::npos;
  text = (negative && !zero ? "-" : "") + integer + (fraction.empty() ? "" : "." + fraction);
  return kBcdOk;
}

}  // namespace rfcsdk
