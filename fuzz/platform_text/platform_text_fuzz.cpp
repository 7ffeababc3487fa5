// Text parsers of the platform and runtime layers on arbitrary input: GUID
// strings, UTF-8/UTF-16 conversion, format strings, environment expansion and
// the conversions from text to every scalar type under two locales.
#include "platform/atlbase.h"
#include "runtime/environment.h"
#include "platform/unicode.h"
#include "runtime/wformat.h"

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

std::u16string asWide(const uint8_t* data, size_t size) {
  std::u16string s(size / 2, u'\0');
  for (size_t i = 0; i + 1 < size; i += 2) s[i / 2] = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
  return s;
}

void fuzzGuid(const std::u16string& text) {
  GUID g;
  if (CLSIDFromString(text.c_str(), &g) == S_OK && !text.empty() && text[0] == u'{') {
    OLECHAR back[CHARS_IN_GUID];
    StringFromGUID2(g, back, CHARS_IN_GUID);
    GUID again;
    if (IIDFromString(back, &again) != S_OK || again != g) std::abort();
  }
  IIDFromString(text.c_str(), &g);
}

void fuzzUnicode(const uint8_t* data, size_t size) {
  const std::string_view narrow(reinterpret_cast<const char*>(data), size);
  try {
    const std::u16string wide = Utf8ToWide(narrow);
    if (WideToUtf8(wide) != narrow) std::abort();  // a valid text survives the round trip
  } catch (const std::range_error&) {}
  try {
    WideToUtf8(asWide(data, size));
  } catch (const std::range_error&) {}
}

void fuzzFormat(const std::u16string& format) {
  try {
    FormatW(format, 42, -7LL, 3.25, u"wide", "narrow", static_cast<const void*>(nullptr));
  } catch (const std::exception&) {}
}

void fuzzConversions(const std::u16string& text, uint8_t selector) {
  static const VARTYPE targets[] = {VT_I1,   VT_UI1,     VT_I2,   VT_UI2,   VT_I4,   VT_UI4,  VT_I8,
                                    VT_UI8,  VT_INT,     VT_UINT, VT_R4,    VT_R8,   VT_CY,   VT_DATE,
                                    VT_BOOL, VT_DECIMAL, VT_BSTR, VT_EMPTY, VT_NULL, VT_ERROR};
  const VARTYPE vt = targets[selector % (sizeof(targets) / sizeof(targets[0]))];
  const LCID lcid = (selector & 0x80) ? 0x0407 : 0x0409;
  CComVariant src(text.c_str());
  CComVariant dst;
  if (SUCCEEDED(VariantChangeTypeEx(&dst, &src, lcid, 0, vt)) && vt != VT_EMPTY && vt != VT_NULL) {
    // Whatever was read must print again.
    CComVariant back;
    VariantChangeTypeEx(&back, &dst, lcid, 0, VT_BSTR);
  }
  CComVariant other(u"1");
  VarCmp(&src, &other, lcid, 0);
  VarBstrCmp(src.bstrVal, other.bstrVal, lcid, NORM_IGNORECASE);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t selector = data[0];
  ++data;
  --size;
  std::u16string text;
  try {
    text = Utf8ToWide(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const std::range_error&) {
    text = asWide(data, size);
  }
  switch (selector % 5) {
    case 0: fuzzGuid(text); break;
    case 1: fuzzUnicode(data, size); break;
    case 2: fuzzFormat(text); break;
    case 3: ExpandEnvironment(text); break;
    default: fuzzConversions(text, static_cast<uint8_t>(selector / 5)); break;
  }
  return 0;
}
