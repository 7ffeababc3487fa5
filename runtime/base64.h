// Base64 with the standard alphabet of RFC 4648.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// "=" padding; a carriage return and line feed after every 76 characters,
// between lines only, none behind the last line.
std::string Base64Encode(const uint8_t* data, size_t size);
inline std::string Base64Encode(const std::vector<uint8_t>& data) { return Base64Encode(data.data(), data.size()); }

// The SOAP reader's decoder: every character outside the alphabet (line
// breaks, blanks, "=") is skipped; a zero character ends the text. Bits
// left over at the end are dropped.
std::vector<uint8_t> Base64DecodeSkipping(std::string_view text);
std::vector<uint8_t> Base64DecodeSkipping(std::u16string_view text);

// The decoder that stops at the first character outside the alphabet,
// such as the trailing "=", without an error.
std::vector<uint8_t> Base64DecodeUntilInvalid(std::u16string_view text);

// The strict decoder: the text must be groups of four characters of the
// alphabet, the last one with at most two "=" of padding. Anything else
// (line breaks and blanks included) raises CXCOMError(E_INVALIDARG).
std::vector<uint8_t> Base64DecodeStrict(std::u16string_view text);
std::vector<uint8_t> Base64DecodeStrict(std::string_view text);
