// Text helpers of our NW RFC SDK: UTF-16 (SAP_UC) and UTF-8, fixed-size SAP_UC arrays, ASCII case.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "nwrfc/nwrfc_types.h"

namespace nwrfc {

// Length of a NUL-terminated SAP_UC text; 0 for null.
size_t ucLength(const SAP_UC* s);
std::u16string_view ucView(const SAP_UC* s);

std::string toUtf8(std::u16string_view s);
std::u16string toUtf16(std::string_view utf8);
// Appends UTF-16 for `utf8`; an invalid sequence becomes U+FFFD.
void appendUtf16(std::u16string& out, std::string_view utf8);
// Writes UTF-16 for `utf8` to `out` (at most `capacity` units); returns the units the whole text
// needs, which may exceed `capacity`.
size_t writeUtf16(std::string_view utf8, SAP_UC* out, size_t capacity);

// Copies `text` into a fixed array of `capacity` units (the terminator included), cutting it if needed.
void copyTerminated(SAP_UC* out, size_t capacity, std::u16string_view text);
void copyTerminated(SAP_UC* out, size_t capacity, std::string_view utf8);
template <size_t N>
void copyTerminated(SAP_UC (&out)[N], std::string_view utf8) {
  copyTerminated(out, N, utf8);
}
template <size_t N>
void copyTerminated(SAP_UC (&out)[N], std::u16string_view text) {
  copyTerminated(out, N, text);
}

// Upper-case ASCII letters only; names of ABAP objects and parameters are ASCII.
std::string upperAscii(std::string_view s);
std::string lowerAscii(std::string_view s);
bool equalsIgnoringCase(std::string_view a, std::string_view b);

// The text of an array that may lack its terminator.
std::u16string_view ucView(const SAP_UC* s, size_t capacity);

}  // namespace nwrfc
