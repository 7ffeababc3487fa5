#include "rfc_sdk/errors.h"

#include <atomic>

#include "rfc_sdk/text.h"

namespace rfcsdk {

namespace proto = vsim::proto;

const char* groupKey(RFC_ERROR_GROUP group) {
  switch (group) {
    case RFC_ERROR_PROGRAM: return "RFC_ERROR_PROGRAM";
    case RFC_ERROR_COMMUNICATION: return "RFC_ERROR_COMMUNICATION";
    case RFC_ERROR_LOGON_FAILURE: return "RFC_ERROR_LOGON_FAILURE";
    case RFC_ERROR_SYSTEM_FAILURE: return "RFC_ERROR_SYSTEM_FAILURE";
    case RFC_ERROR_APPLICATION_EXCEPTION: return "RFC_ERROR_APPLICATION_EXCEPTION";
    case RFC_ERROR_RESOURCE: return "RFC_ERROR_RESOURCE";
    case RFC_ERROR_PROTOCOL: return "RFC_ERROR_PROTOCOL";
    case RFC_ERROR_INTERNAL: return "RFC_ERROR_INTERNAL";
    case RFC_ERROR_CANCELLED: return "RFC_ERROR_CANCELLED";
    case RFC_ERROR_BUSY: return "RFC_ERROR_BUSY";
  }
  return "RFC_ERROR_PROGRAM";
}

void fail(RFC_RC rc, RFC_ERROR_GROUP group, const std::string& message) {
  throw Failure(rc, {group, groupKey(group), message});
}

ErrorRecord recordOf(const proto::ErrorInfo& e) {
  ErrorRecord r;
  switch (e.rc) {
    case proto::rc::kLogonFailure: r.group = RFC_ERROR_LOGON_FAILURE; break;
    case proto::rc::kAbapException: r.group = RFC_ERROR_APPLICATION_EXCEPTION; break;
    case proto::rc::kCommunicationFailure:
    case proto::rc::kClosed: r.group = RFC_ERROR_COMMUNICATION; break;
    case proto::rc::kInvalidProtocol: r.group = RFC_ERROR_PROTOCOL; break;
    default: r.group = RFC_ERROR_SYSTEM_FAILURE; break;
  }
  r.key = e.key.empty() ? groupKey(r.group) : e.key;
  r.message = e.message.empty() ? r.key : e.message;
  return r;
}

namespace {

struct LastError {
  bool set = false;
  ErrorRecord record;
};

LastError& lastError() {
  thread_local LastError e;
  return e;
}

}  // namespace

std::atomic<RFC_ERROR_HANDLER> errorHandler{nullptr};

void setErrorHandler(RFC_ERROR_HANDLER handler) { errorHandler = handler; }

void setLastError(const ErrorRecord& r) {
  lastError().set = true;
  lastError().record = r;
  if (RFC_ERROR_HANDLER handler = errorHandler.load()) {
    std::u16string key = utf16Of(r.key);
    handler(key.data());
  }
}

void peekLastError(RFC_ERROR_INFO_EX* out) {
  if (lastError().set) fill(out, lastError().record);
}

void fill(RFC_ERROR_INFO_EX* out, const ErrorRecord& r) {
  if (!out) return;
  out->group = r.group;
  putTerminated(out->key, r.key);
  putTerminated(out->message, r.message);
}

int fetchLastError(RFC_ERROR_INFO_EX* out) {
  LastError& e = lastError();
  if (!e.set) return 1;
  fill(out, e.record);
  e.set = false;
  return 0;
}

}  // namespace rfcsdk
