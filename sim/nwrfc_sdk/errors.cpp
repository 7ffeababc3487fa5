#include "nwrfc_sdk/errors.h"

#include <cstring>
#include <new>

#include "nwrfc_sdk/text.h"
#include "nwrfc_sdk/trace.h"

namespace nwrfc {

namespace proto = vsim::proto;

static_assert(proto::rc::kCommunicationFailure == RFC_COMMUNICATION_FAILURE &&
                  proto::rc::kLogonFailure == RFC_LOGON_FAILURE &&
                  proto::rc::kAbapRuntimeFailure == RFC_ABAP_RUNTIME_FAILURE &&
                  proto::rc::kAbapMessage == RFC_ABAP_MESSAGE && proto::rc::kAbapException == RFC_ABAP_EXCEPTION &&
                  proto::rc::kClosed == RFC_CLOSED && proto::rc::kInvalidProtocol == RFC_INVALID_PROTOCOL &&
                  proto::rc::kExternalFailure == RFC_EXTERNAL_FAILURE && proto::rc::kExecuted == RFC_EXECUTED &&
                  proto::rc::kNotFound == RFC_NOT_FOUND &&
                  proto::rc::kAuthorizationFailure == RFC_AUTHORIZATION_FAILURE,
              "the protocol carries the SDK's result codes");
static_assert(proto::group::kAbapApplication == static_cast<unsigned>(RFC_ERROR_GROUP::ABAP_APPLICATION_FAILURE) &&
                  proto::group::kAbapRuntime == static_cast<unsigned>(RFC_ERROR_GROUP::ABAP_RUNTIME_FAILURE) &&
                  proto::group::kLogon == static_cast<unsigned>(RFC_ERROR_GROUP::LOGON_FAILURE) &&
                  proto::group::kCommunication == static_cast<unsigned>(RFC_ERROR_GROUP::COMMUNICATION_FAILURE) &&
                  proto::group::kExternalRuntime == static_cast<unsigned>(RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE) &&
                  proto::group::kExternalApplication ==
                      static_cast<unsigned>(RFC_ERROR_GROUP::EXTERNAL_APPLICATION_FAILURE) &&
                  proto::group::kExternalAuthorization ==
                      static_cast<unsigned>(RFC_ERROR_GROUP::EXTERNAL_AUTHORIZATION_FAILURE),
              "the protocol carries the SDK's error groups");

namespace {

constexpr const char* kRcNames[] = {"RFC_OK",
                                    "RFC_COMMUNICATION_FAILURE",
                                    "RFC_LOGON_FAILURE",
                                    "RFC_ABAP_RUNTIME_FAILURE",
                                    "RFC_ABAP_MESSAGE",
                                    "RFC_ABAP_EXCEPTION",
                                    "RFC_CLOSED",
                                    "RFC_CANCELED",
                                    "RFC_TIMEOUT",
                                    "RFC_MEMORY_INSUFFICIENT",
                                    "RFC_VERSION_MISMATCH",
                                    "RFC_INVALID_PROTOCOL",
                                    "RFC_SERIALIZATION_FAILURE",
                                    "RFC_INVALID_HANDLE",
                                    "RFC_RETRY",
                                    "RFC_EXTERNAL_FAILURE",
                                    "RFC_EXECUTED",
                                    "RFC_NOT_FOUND",
                                    "RFC_NOT_SUPPORTED",
                                    "RFC_ILLEGAL_STATE",
                                    "RFC_INVALID_PARAMETER",
                                    "RFC_CODEPAGE_CONVERSION_FAILURE",
                                    "RFC_CONVERSION_FAILURE",
                                    "RFC_BUFFER_TOO_SMALL",
                                    "RFC_TABLE_MOVE_BOF",
                                    "RFC_TABLE_MOVE_EOF",
                                    "RFC_START_SAPGUI_FAILURE",
                                    "RFC_ABAP_CLASS_EXCEPTION",
                                    "RFC_UNKNOWN_ERROR",
                                    "RFC_AUTHORIZATION_FAILURE",
                                    "RFC_AUTHENTICATION_FAILURE",
                                    "RFC_CRYPTOLIB_FAILURE",
                                    "RFC_IO_FAILURE",
                                    "RFC_LOCKING_FAILURE"};
static_assert(std::size(kRcNames) == _RFC_RC_max_value);

}  // namespace

const char* rcName(RFC_RC rc) {
  const auto i = static_cast<unsigned>(rc);
  return i < std::size(kRcNames) ? kRcNames[i] : "RFC_UNKNOWN_ERROR";
}

const SAP_UC* rcText(RFC_RC rc) {
  static const auto texts = [] {
    std::array<std::u16string, std::size(kRcNames)> t;
    for (size_t i = 0; i < t.size(); ++i) t[i] = toUtf16(kRcNames[i]);
    return t;
  }();
  const auto i = static_cast<unsigned>(rc);
  return texts[i < texts.size() ? i : static_cast<unsigned>(RFC_UNKNOWN_ERROR)].c_str();
}

void fail(RFC_RC code, const std::string& message) { fail(code, RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE, message); }

void fail(RFC_RC code, RFC_ERROR_GROUP group, const std::string& message, const std::string& key) {
  ErrorRecord r;
  r.code = code;
  r.group = group;
  r.key = key.empty() ? rcName(code) : key;
  r.message = message;
  throw SdkError(std::move(r));
}

ErrorRecord recordOf(const proto::ErrorInfo& e) {
  ErrorRecord r;
  r.code = e.rc < _RFC_RC_max_value ? static_cast<RFC_RC>(e.rc) : RFC_UNKNOWN_ERROR;
  r.group = e.group <= static_cast<unsigned>(RFC_ERROR_GROUP::LOCKING_FAILURE) ? static_cast<RFC_ERROR_GROUP>(e.group)
                                                                               : RFC_ERROR_GROUP::COMMUNICATION_FAILURE;
  r.key = e.key;
  r.message = e.message;
  r.msgClass = e.msgClass;
  r.msgType = e.msgType;
  r.msgNumber = e.msgNumber;
  r.msgVars = e.msgVars;
  return r;
}

proto::ErrorInfo wireOf(const ErrorRecord& r) {
  proto::ErrorInfo e;
  e.rc = static_cast<std::uint8_t>(r.code);
  e.group = static_cast<std::uint8_t>(r.group);
  e.key = r.key;
  e.message = r.message;
  e.msgClass = r.msgClass;
  e.msgType = r.msgType;
  e.msgNumber = r.msgNumber;
  e.msgVars = r.msgVars;
  return e;
}

ErrorRecord recordOf(const RFC_ERROR_INFO& e) {
  ErrorRecord r;
  r.code = e.code;
  r.group = e.group;
  r.key = toUtf8(ucView(e.key, std::size(e.key)));
  r.message = toUtf8(ucView(e.message, std::size(e.message)));
  r.msgClass = toUtf8(ucView(e.abapMsgClass, std::size(e.abapMsgClass)));
  r.msgType = toUtf8(ucView(e.abapMsgType, std::size(e.abapMsgType)));
  r.msgNumber = toUtf8(ucView(e.abapMsgNumber, std::size(e.abapMsgNumber)));
  r.msgVars = {toUtf8(ucView(e.abapMsgV1, std::size(e.abapMsgV1))), toUtf8(ucView(e.abapMsgV2, std::size(e.abapMsgV2))),
               toUtf8(ucView(e.abapMsgV3, std::size(e.abapMsgV3))),
               toUtf8(ucView(e.abapMsgV4, std::size(e.abapMsgV4)))};
  return r;
}

void clearError(RFC_ERROR_INFO* info) {
  if (!info) return;
  std::memset(static_cast<void*>(info), 0, sizeof *info);
}

void fillError(RFC_ERROR_INFO* info, const ErrorRecord& r) {
  if (r.code != RFC_OK && r.code != RFC_RETRY) trace().error(r);
  if (!info) return;
  clearError(info);
  info->code = r.code;
  info->group = r.group;
  copyTerminated(info->key, r.key);
  copyTerminated(info->message, r.message);
  copyTerminated(info->abapMsgClass, r.msgClass);
  copyTerminated(info->abapMsgType, r.msgType);
  copyTerminated(info->abapMsgNumber, r.msgNumber);
  copyTerminated(info->abapMsgV1, r.msgVars[0]);
  copyTerminated(info->abapMsgV2, r.msgVars[1]);
  copyTerminated(info->abapMsgV3, r.msgVars[2]);
  copyTerminated(info->abapMsgV4, r.msgVars[3]);
}

RFC_RC recordCurrentException(RFC_ERROR_INFO* info) noexcept {
  ErrorRecord r;
  try {
    throw;
  } catch (const SdkError& e) {
    r = e.record();
  } catch (const std::bad_alloc&) {
    r.code = RFC_MEMORY_INSUFFICIENT;
    r.group = RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE;
    r.key = rcName(r.code);
    r.message = "Out of memory";
  } catch (const std::exception& e) {
    r.code = RFC_UNKNOWN_ERROR;
    r.group = RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE;
    r.key = rcName(r.code);
    r.message = e.what();
  } catch (...) {
    r.code = RFC_UNKNOWN_ERROR;
    r.group = RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE;
    r.key = rcName(r.code);
    r.message = "Unknown error";
  }
  try {
    fillError(info, r);
  } catch (...) {}
  return r.code;
}

}  // namespace nwrfc
