// Text forms of ABAP values: the wire form of the SOAP front, the plain form of data files
// and WHERE literals, and the fixed-width form that RFC_READ_TABLE writes into its rows.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "engine/types.h"

namespace vsim {

// A text that does not fit the target type.
class ConversionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class TextForm {
  Xml,    // dates YYYY-MM-DD, times HH:MM:SS, binary base64 (compact date and time forms accepted too)
  Plain,  // data files and literals: binary as hexadecimal, dates and times in either form
};

Value parseValue(const TypeDesc& type, std::string_view text, TextForm form);
std::string formatXml(const TypeDesc& type, const Value& value);
// Plain text: C without trailing blanks, D as YYYYMMDD, X in hexadecimal, P canonical.
std::string formatPlain(const TypeDesc& type, const Value& value);
// Exactly `width` characters, as an ABAP MOVE to a character field writes the value:
// numbers right-aligned with the sign in the last place, '*' in front when cut.
std::string formatWrite(const TypeDesc& type, const Value& value, int width);

// Three-way comparison of two values of one scalar type.
int compareValues(const TypeDesc& type, const Value& a, const Value& b);

// Packed numbers in their canonical text form.
std::string packedCanonical(std::string_view text, int length, int decimals);
int comparePacked(std::string_view a, std::string_view b);
std::int64_t packedToScaled(std::string_view canonical, int decimals);
std::string packedFromScaled(std::int64_t scaled, int decimals);

// UTF-8 helpers: lengths and cuts count code points.
size_t utf8Length(std::string_view s);
std::string utf8Truncate(std::string_view s, size_t chars);
std::string padRight(std::string_view s, size_t chars);
bool utf8Valid(std::string_view s);

std::string base64Encode(std::string_view bytes);
// Skips white space; throws ConversionError on any other character outside the alphabet.
std::string base64Decode(std::string_view text);
std::string hexEncode(std::string_view bytes);
std::string hexDecode(std::string_view text);

// Calendar arithmetic on YYYYMMDD texts (proleptic Gregorian).
std::int64_t daysFromCivil(int year, int month, int day);
std::string civilFromDays(std::int64_t days);  // YYYYMMDD
std::string addDays(const std::string& yyyymmdd, std::int64_t days);

std::string toUpper(std::string_view s);
std::string_view trim(std::string_view s);
std::string_view trimRight(std::string_view s);

}  // namespace vsim
