// Conversion between UTF-16 (the object model's strings) and UTF-8 (XML,
// SOAP, the trace file, file names).
#pragma once

#include <string>
#include <string_view>

#include "platform/wtypes.h"

// Strict conversions: a lone surrogate, an overlong form, a truncated or
// invalid byte sequence or a code point above U+10FFFF raises
// std::range_error("bad conversion"). Nothing is replaced or skipped.
std::string WideToUtf8(std::u16string_view text);
std::string WideToUtf8(const char16_t* text);  // null reads as empty
std::u16string Utf8ToWide(std::string_view text);
std::u16string Utf8ToWide(const char* text);  // null reads as empty

// Utf8ToWide straight into a new BSTR of the exact length, with no
// intermediate string. Null when out of memory.
BSTR Utf8ToBstr(std::string_view text);

// Utf8ToWide into a caller's buffer: out has room for text.size() code
// units (never fewer bytes than units); returns the units written.
size_t DecodeUtf8(std::string_view text, char16_t* out);

// Appending forms of the above, for callers that build one buffer.
void AppendUtf8(std::string& out, std::u16string_view text);
void AppendWide(std::u16string& out, std::string_view text);

// Lenient conversions for diagnostics and environment texts: ill-formed
// input becomes U+FFFD instead of failing.
std::string WideToUtf8Lossy(std::u16string_view text);
std::u16string Utf8ToWideLossy(std::string_view text);
