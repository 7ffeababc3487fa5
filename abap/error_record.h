// A failure as a back end reports it, with all that its SDK gives: the class
// and short key of the failure and its text first (what the session shows in
// ErrorInfo), then the SDK's own code and the ABAP message that came with it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "veltrane_tlb.h"

struct RfcErrorRecord {
  RfcErrorRecord() = default;
  RfcErrorRecord(ERRORGROUP group, std::u16string key, std::u16string message)
      : group(group), key(std::move(key)), message(std::move(message)) {}

  ERRORGROUP group = RFCERROR_NO_ERROR;
  std::u16string key;      // ErrorGroupTxt: the short key ("RFC_LOGON_FAILURE", an exception's name)
  std::u16string message;  // Message
  int32_t code = 0;        // the SDK's return code; 0 where the SDK gives none
  std::u16string messageClass;
  std::u16string messageType;    // "E", "A", "X", ...
  std::u16string messageNumber;  // three digits
  std::u16string messageV1, messageV2, messageV3, messageV4;
};
