// Entry points for values: internal tables, strings, XSTRINGs and the BCD converters.
#include <cstdlib>
#include <cstring>

#include "rfc_sdk/api.h"
#include "rfc_sdk/bcd.h"
#include "rfc_sdk/values.h"

namespace veltrane::sdk::rfc {

using namespace rfcsdk;

ITAB_H ItCreateU(SAP_UC* name, unsigned rowLength, unsigned occurs, unsigned memo) {
  (void)memo;
  if (rowLength == 0) return ITAB_NULL;
  return guard([&]() -> ITAB_H { return new InternalTable(std::u16string(terminated(name)), rowLength, occurs); },
               [](RFC_RC) -> ITAB_H { return ITAB_NULL; });
}

void* ItAppLineU(ITAB_H t) {
  return t ? guard([&]() -> void* { return table(t)->append(); }, [](RFC_RC) -> void* { return nullptr; }) : nullptr;
}

void* ItInsLineU(ITAB_H t, unsigned line) {
  return t ? guard([&]() -> void* { return table(t)->insert(line); }, [](RFC_RC) -> void* { return nullptr; })
           : nullptr;
}

void* ItGetLineU(ITAB_H t, unsigned line) { return t ? table(t)->row(line) : nullptr; }

void* ItGupLineU(ITAB_H t, unsigned line) { return t ? table(t)->row(line) : nullptr; }

int ItCpyLineU(ITAB_H t, unsigned line, void* destination) {
  const unsigned char* row = t && destination ? table(t)->row(line) : nullptr;
  if (!row) return -1;
  std::memcpy(destination, row, table(t)->rowLength());
  return 0;
}

int ItPutLineU(ITAB_H t, unsigned line, void* source) {
  unsigned char* row = t && source ? table(t)->row(line) : nullptr;
  if (!row) return -1;
  std::memcpy(row, source, table(t)->rowLength());
  return 0;
}

int ItDelLineU(ITAB_H t, unsigned line) {
  if (!t) return -1;
  return table(t)->remove(line) ? 0 : 1;
}

int ItFreeU(ITAB_H t) {
  if (!t) return -1;
  table(t)->clear();
  return 0;
}

int ItDeleteU(ITAB_H t) {
  if (!t) return -1;
  delete table(t);
  return 0;
}

unsigned ItFillU(ITAB_H t) { return t ? table(t)->fill() : 0; }

unsigned ItLengU(ITAB_H t) { return t ? table(t)->rowLength() : 0; }

RFC_STRING RfcAllocStringU(unsigned size) {
  return static_cast<RFC_STRING>(std::calloc(static_cast<size_t>(size) + 1, 1));
}

void RfcFreeStringU(RFC_STRING string) { std::free(string); }

RFC_RC RfcResizeXStringU(RFC_XSTRING* xstring, RFC_INT newLength) {
  return guardRc([&] {
    requireArgument(xstring, "xstring");
    if (newLength < 0) fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "An XSTRING cannot have a negative length");
    const RFC_INT old = xstring->content ? xstring->length : 0;
    resizeXString(*xstring, static_cast<size_t>(newLength));
    if (newLength > old) std::memset(xstring->content + old, 0, static_cast<size_t>(newLength - old));
  });
}

int RfcConvertCharToBcdU(RFC_CHAR* in, int inLength, int* decimals, RFC_BCD* out, int outLength) {
  if (!in || inLength <= 0) return kBcdBadLength;
  if (!out || !decimals) return kBcdBadLength;
  const std::string text = utf8Of(std::u16string_view(in, static_cast<size_t>(inLength)));
  return packDecimal(text, *decimals, out, outLength);
}

int RfcConvertBcdToCharU(RFC_BCD* in, int inLength, int decimals, RFC_CHAR* out, int outLength) {
  if (!in || !out || outLength <= 0) return kBcdBadLength;
  std::string text;
  if (const int rc = unpackDecimal(in, inLength, decimals, text); rc != kBcdOk) return rc;
  // Right-aligned and blank-padded, the sign after the digits: "  12.50-", "  12.50 ".
  const bool negative = text[0] == '-';
  if (negative) text.erase(0, 1);
  text += negative ? '-' : ' ';
  if (text.size() > static_cast<size_t>(outLength)) return kBcdTooShort;
  putPadded(out, static_cast<size_t>(outLength) - text.size(), u"");
  const std::u16string u = utf16Of(text);
  std::copy(u.begin(), u.end(), out + (outLength - static_cast<int>(u.size())));
  return kBcdOk;
}

}  // namespace veltrane::sdk::rfc
