// Failures of our classic RFC SDK: the record of RFC_ERROR_INFO_EX, the failure that carries it
// inside the library, the thread's last error that RfcLastErrorEx hands out once, and the guards
// that keep exceptions from crossing the C interface.
#pragma once

#include <exception>
#include <new>
#include <string>

#include "rfc/rfc_types.h"
#include "rfc_protocol/messages.h"

namespace rfcsdk {

using namespace veltrane::sdk::rfc;

struct ErrorRecord {
  RFC_ERROR_GROUP group = RFC_ERROR_PROGRAM;
  std::string key;
  std::string message;
};

class Failure : public std::exception {
 public:
  Failure(RFC_RC rc, ErrorRecord record) : rc_(rc), record_(std::move(record)) {}
  RFC_RC rc() const { return rc_; }
  const ErrorRecord& record() const { return record_; }
  const char* what() const noexcept override { return record_.message.c_str(); }

 private:
  RFC_RC rc_;
  ErrorRecord record_;
};

// The key of a group: "RFC_ERROR_PROGRAM" and so on.
const char* groupKey(RFC_ERROR_GROUP group);
// Throws a failure whose key is the group's.
[[noreturn]] void fail(RFC_RC rc, RFC_ERROR_GROUP group, const std::string& message);

// The classic record of an error the system sent (its numbers are the NW SDK's).
ErrorRecord recordOf(const vsim::proto::ErrorInfo& e);

// The thread's last error: set by every failing call, handed out once by fetchLastError, which
// returns 0 when it gave a record and 1 when there was none.
void setLastError(const ErrorRecord& r);
int fetchLastError(RFC_ERROR_INFO_EX* out);
// The last error without handing it out (for RfcOpenEx, whose caller reads its own record).
void peekLastError(RFC_ERROR_INFO_EX* out);
// RfcEnvironment's error handler: called with the key of every error the library records.
void setErrorHandler(RFC_ERROR_HANDLER handler);
void fill(RFC_ERROR_INFO_EX* out, const ErrorRecord& r);

// Runs an entry point's body; a failure becomes the thread's last error and `onFailure(rc)`.
template <class F, class G>
auto guard(F&& body, G&& onFailure) -> decltype(body()) {
  try {
    return body();
  } catch (const Failure& f) {
    setLastError(f.record());
    return onFailure(f.rc());
  } catch (const std::bad_alloc&) {
    setLastError({RFC_ERROR_RESOURCE, groupKey(RFC_ERROR_RESOURCE), "Out of memory"});
    return onFailure(RFC_MEMORY_INSUFFICIENT);
  } catch (const std::exception& e) {
    setLastError({RFC_ERROR_INTERNAL, groupKey(RFC_ERROR_INTERNAL), e.what()});
    return onFailure(RFC_FAILURE);
  }
}

// For entry points that return RFC_RC: the failure's code.
template <class F>
RFC_RC guardRc(F&& body) {
  return guard(
      [&]() -> RFC_RC {
        body();
        return RFC_OK;
      },
      [](RFC_RC rc) { return rc; });
}

}  // namespace rfcsdk
