// One column of a data line on arbitrary input: the first line is the
// column as FIELDS describes it ("OFFSET LENGTH LETTER [raw]"), the rest is
// the row text. The value is always made, and a text value never holds more
// than the column's characters (a time the platform does not read stays its
// "HH:MM:SS" text).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/atlbase.h"
#include "platform/unicode.h"
#include "session/table_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const size_t eol = text.find('\n');
  std::istringstream head(std::string(text.substr(0, eol)));
  long long offset = 0, length = 0;
  std::string letter, mode;
  head >> offset >> length >> letter >> mode;
  CTableReader::FieldRecord field;
  field.name = u"F";
  field.offset = static_cast<LONG>(offset);
  field.length = static_cast<LONG>(length);
  field.letter = letter.empty() ? u'C' : static_cast<char16_t>(static_cast<unsigned char>(letter[0]));
  const std::u16string row = eol == std::string_view::npos ? std::u16string() : Utf8ToWideLossy(text.substr(eol + 1));
  CComVariant value;
  if (CTableReader::MakeValue(row, field, mode == "raw", &value) != S_OK) {
    std::fprintf(stderr, "no value for column %ld+%ld '%c'\n", static_cast<long>(field.offset),
                 static_cast<long>(field.length), static_cast<char>(field.letter));
    std::abort();
  }
  const size_t most = field.letter == u'T' ? 8 : static_cast<size_t>(field.length > 0 ? field.length : 0);
  if (V_VT(&value) == VT_BSTR && SysStringLen(V_BSTR(&value)) > most) {
    std::fprintf(stderr, "a text value longer than its column %ld+%ld '%c': %s\n", static_cast<long>(field.offset),
                 static_cast<long>(field.length), static_cast<char>(field.letter),
                 WideToUtf8Lossy(BstrView(V_BSTR(&value))).c_str());
    std::abort();
  }
  return 0;
}
