// UTF-8 <-> UTF-16 for the command's own use, and BSTR helpers.
#pragma once

#include <string>
#include <string_view>

#include <veltrane.h>

namespace veltrane::cli {

// Invalid input sequences become U+FFFD; conversion never fails.
std::u16string toUtf16(std::string_view utf8);
std::string toUtf8(std::u16string_view utf16);
// toUtf8 appended to out.
void appendUtf8(std::string& out, std::u16string_view utf16);

inline CComBSTR bstr(std::string_view utf8) { return CComBSTR(toUtf16(utf8)); }
inline std::string utf8(BSTR s) { return toUtf8(std::u16string_view(s ? s : u"", s ? SysStringLen(s) : 0)); }
inline std::string utf8(const CComBSTR& s) { return toUtf8(s.View()); }

// Columns a text takes in an aligned column: East Asian wide characters
// count two, combining marks none.
size_t displayWidth(std::string_view utf8);

// Whether the text is well-formed UTF-8.
bool validUtf8(std::string_view utf8);

std::string upperAscii(std::string_view s);
std::string trim(std::string_view s);

}  // namespace veltrane::cli
