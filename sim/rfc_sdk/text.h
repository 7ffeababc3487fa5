// Text helpers of our classic RFC SDK: UTF-16 (SAP_UC) and UTF-8, blank-padded fixed fields,
// zero-terminated arrays and ASCII case.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "rfc/rfc_types.h"

namespace rfcsdk {

using veltrane::sdk::rfc::SAP_UC;

// A zero-terminated text; empty for null.
std::u16string_view terminated(const SAP_UC* s);
// The first `length` units of a field, or up to a terminator within them.
std::u16string_view bounded(const SAP_UC* s, size_t length);

std::string utf8Of(std::u16string_view s);
// Invalid sequences become U+FFFD.
std::u16string utf16Of(std::string_view utf8);

// Writes `text` into a field of `units` code units, blank-padded, cut when longer.
void putPadded(SAP_UC* field, size_t units, std::u16string_view text);
// Writes `text` and a terminator into an array of `capacity` units, cut when longer.
void putTerminated(SAP_UC* out, size_t capacity, std::u16string_view text);
template <size_t N>
void putTerminated(SAP_UC (&out)[N], std::string_view utf8) {
  putTerminated(out, N, utf16Of(utf8));
}
// Without trailing blanks.
std::u16string_view trimRight(std::u16string_view s);
std::string_view trimRight(std::string_view s);

std::string upperAscii(std::string_view s);
bool sameIgnoringCase(std::string_view a, std::string_view b);

}  // namespace rfcsdk
