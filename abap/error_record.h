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

  // Whether an ABAP message came with the failure.
  bool HasAbapMessage() const;
};

// Writes the record's ABAP message to the trace at level 1, the fields the
// error object has no room for among them, one line whose texts are quoted
// and escaped as in C:
//   ABAP message: ID="FL" Type="E" Number="046" V1="LH" V2="0400" V3="" V4=""
// Nothing without a message.
void TraceAbapMessage(const RfcErrorRecord& record);
