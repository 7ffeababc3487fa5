#include "rfc/sdk_text.h"

namespace veltrane::rfc {

std::u16string SdkText(const char16_t* text, size_t max) {
  if (!text) return {};
  size_t length = 0;
  while (length < max && text[length] != 0) ++length;
  return std::u16string(text, length);
}

std::u16string SdkField(const char16_t* field, size_t count) {
  size_t end = count;
  while (end > 0 && (field[end - 1] == u' ' || field[end - 1] == 0)) --end;
  return std::u16string(field, end);
}

RfcErrorRecord ErrorRecordOf(const veltrane::sdk::rfc::RFC_ERROR_INFO_EX& record) {
  return RfcErrorRecord(static_cast<ERRORGROUP>(record.group), SdkText(record.key, 33), SdkText(record.message, 513));
}

long RfcParseTimeout(std::u16string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == u' ' || text[i] == u'\t')) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == u'-' || text[i] == u'+')) negative = text[i++] == u'-';
  long value = 0;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9' && value < 100000000000L; ++i)
    value = value * 10 + (text[i] - u'0');
  return negative ? -value : value;
}

}  // namespace veltrane::rfc
