// Base64 (standard alphabet, "=" padding) for binary values in JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltrane::cli {

std::string base64Encode(const std::uint8_t* data, size_t size);
// White space is skipped; any other character outside the alphabet, a bad
// length or misplaced padding gives nothing.
std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text);

// Hexadecimal text (as RFC_READ_TABLE writes a RAW field) as base64, the
// one text form of binary values in the command's output; nothing for
// anything that is not pairs of hexadecimal digits.
std::optional<std::string> hexToBase64(std::string_view hex);

}  // namespace veltrane::cli
