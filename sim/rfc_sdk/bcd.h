// Packed decimals: two digits a byte, the sign in the last half-byte (C plus, D minus; A, E, F
// read as plus, B as minus). No decimal point is stored; the scale is the reader's knowledge.
#pragma once

#include <string>
#include <string_view>

namespace rfcsdk {

// Results of the BCD converters.
enum BcdResult { kBcdOk = 0, kBcdTooShort = 2, kBcdBadCharacter = 3, kBcdBadLength = 4 };
inline constexpr int kMaxBcdBytes = 16;

// Packs a decimal text (blanks around it, a sign before or after the digits, at most one '.').
// `decimals` -1 takes the scale from the text and writes it back; otherwise the value is brought
// to that scale, rounding half away from zero.
int packDecimal(std::string_view text, int& decimals, unsigned char* out, int outLength);
// The value as "-12.50": the sign only when negative, at least one digit before the point.
int unpackDecimal(const unsigned char* in, int inLength, int decimals, std::string& text);

}  // namespace rfcsdk
