// Errors of our NW RFC SDK: the exception that carries a whole RFC_ERROR_INFO, the guards that turn
// it into the result of an entry point, and the names of the result codes.
#pragma once

#include <array>
#include <stdexcept>
#include <string>

#include "nwrfc/nwrfc_types.h"
#include "rfc_protocol/messages.h"

namespace nwrfc {

struct ErrorRecord {
  RFC_RC code = RFC_OK;
  RFC_ERROR_GROUP group = RFC_ERROR_GROUP::OK;
  std::string key, message;
  std::string msgClass, msgType, msgNumber;
  std::array<std::string, 4> msgVars;
};

class SdkError : public std::runtime_error {
 public:
  explicit SdkError(ErrorRecord record) : std::runtime_error(record.message), record_(std::move(record)) {}
  const ErrorRecord& record() const { return record_; }

 private:
  ErrorRecord record_;
};

// "RFC_INVALID_PARAMETER" and so on: the enumerator's name.
const char* rcName(RFC_RC rc);
const SAP_UC* rcText(RFC_RC rc);

// A failure of the library itself: group EXTERNAL_RUNTIME_FAILURE, key the code's name.
[[noreturn]] void fail(RFC_RC code, const std::string& message);
// A failure with an explicit group (and key: the code's name unless given).
[[noreturn]] void fail(RFC_RC code, RFC_ERROR_GROUP group, const std::string& message, const std::string& key = {});
// A record received from the system.
ErrorRecord recordOf(const vsim::proto::ErrorInfo& e);
vsim::proto::ErrorInfo wireOf(const ErrorRecord& r);
ErrorRecord recordOf(const RFC_ERROR_INFO& e);

void clearError(RFC_ERROR_INFO* info);
void fillError(RFC_ERROR_INFO* info, const ErrorRecord& record);

// Runs the body of an entry point that returns RFC_RC: clears the record, turns SdkError and other
// exceptions into the record and the result. The body returns RFC_RC or nothing (RFC_OK).
template <class Body>
RFC_RC guarded(RFC_ERROR_INFO* info, Body&& body) noexcept;
// The same for entry points that return a handle: null on failure.
template <class Handle, class Body>
Handle guardedHandle(RFC_ERROR_INFO* info, Body&& body) noexcept;

// Writes the record of the current exception; returns its code.
RFC_RC recordCurrentException(RFC_ERROR_INFO* info) noexcept;

template <class Body>
RFC_RC guarded(RFC_ERROR_INFO* info, Body&& body) noexcept {
  clearError(info);
  try {
    if constexpr (std::is_void_v<decltype(body())>) {
      body();
      return RFC_OK;
    } else {
      const RFC_RC rc = body();
      return rc;
    }
  } catch (...) {
    return recordCurrentException(info);
  }
}

template <class Handle, class Body>
Handle guardedHandle(RFC_ERROR_INFO* info, Body&& body) noexcept {
  clearError(info);
  try {
    return body();
  } catch (...) {
    recordCurrentException(info);
    return nullptr;
  }
}

}  // namespace nwrfc
