// Texts and records of the classic SDK as the session shows them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "abap/error_record.h"
#include "rfc/rfc_entry_points.h"

namespace veltrane::rfc {

// A text of at most max units, up to its terminator (null reads as empty).
std::u16string SdkText(const char16_t* text, size_t max);

// A fixed field of the SDK: count units, trailing blanks (and NULs) off.
std::u16string SdkField(const char16_t* field, size_t count);

// ErrorInfo's content from the SDK's record: group, key, message.
RfcErrorRecord ErrorRecordOf(const veltrane::sdk::rfc::RFC_ERROR_INFO_EX& record);

// A decimal integer as the option "rfc.connection_timeout" gives it:
// leading blanks, a sign and the digits up to the first other character;
// 0 when there are none.
long RfcParseTimeout(std::u16string_view text);

}  // namespace veltrane::rfc
