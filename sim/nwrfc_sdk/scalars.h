// The values of fields and parameters: how each getter reads and each setter writes every type,
// with the SDK's conversions (texts into numbers, numbers into texts, hexadecimal for bytes),
// padding, RFC_BUFFER_TOO_SMALL and RFC_CONVERSION_FAILURE.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "nwrfc_sdk/containers.h"

namespace nwrfc {

// The text of a value: CHAR with its blanks, NUM, DATE and TIME as stored, BCD and decimal floats
// as decimals, bytes in upper-case hexadecimal, numbers in decimal (FLOAT with an exponent).
std::u16string plainText(const Record& r, const Slot& s);

void getChars(const Record& r, const Slot& s, SAP_UC* buffer, unsigned length);
void getNum(const Record& r, const Slot& s, SAP_UC* buffer, unsigned length);
void getString(const Record& r, const Slot& s, SAP_UC* buffer, unsigned length, unsigned* stringLength);
void getDate(const Record& r, const Slot& s, SAP_UC* out8);
void getTime(const Record& r, const Slot& s, SAP_UC* out6);
void getBytes(const Record& r, const Slot& s, SAP_RAW* buffer, unsigned length);
void getXString(const Record& r, const Slot& s, SAP_RAW* buffer, unsigned length, unsigned* xstringLength);
// A number as `as` (RFCTYPE_INT, INT1, INT2 or INT8), with its range checked.
std::int64_t getInteger(const Record& r, const Slot& s, RFCTYPE as);
double getFloat(const Record& r, const Slot& s);
unsigned getStringLength(const Record& r, const Slot& s);

enum class TextSetter { Chars, Num, String };
void setText(const Record& r, const Slot& s, std::u16string_view text, TextSetter setter);
void setInteger(const Record& r, const Slot& s, std::int64_t value, RFCTYPE from);
void setFloat(const Record& r, const Slot& s, double value);
void setDate(const Record& r, const Slot& s, const SAP_UC* date8);
void setTime(const Record& r, const Slot& s, const SAP_UC* time6);
void setBytes(const Record& r, const Slot& s, const SAP_RAW* bytes, unsigned length);

// Packed numbers: bytes of `length` with `decimals` to and from decimal text.
std::string packedToText(const unsigned char* bytes, unsigned length, unsigned decimals);
// The same into `out` (at least 48 characters); returns the length. Allocates nothing.
size_t packedToChars(const unsigned char* bytes, unsigned length, unsigned decimals, char* out);
// Throws std::invalid_argument (bad text, position in what()) or std::out_of_range (too many digits).
void textToPacked(std::string_view text, unsigned char* bytes, unsigned length, unsigned decimals);

const char* typeName(RFCTYPE type);  // "RFCTYPE_CHAR"...

}  // namespace nwrfc
