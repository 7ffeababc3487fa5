// Our libsapnwrfc.so with a few entry points watched, for the tests of what
// a session asks of the SDK when it ends things. The library's own sources
// are compiled with these names changed to Watched<name> (see CMakeLists.txt);
// the exported names here count each call and, on request, fail the next one
// with RFC_ILLEGAL_STATE instead of passing it on.
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include "nwrfc_sdk/errors.h"

#undef RfcOpenConnection
#undef RfcCloseConnection
#undef RfcDestroyFunction
#undef RfcDestroyTransaction

namespace {

class Watch {
 public:
  // Counts a call; true when it is to fail.
  bool Called(const std::string& entry) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_calls[entry];
    m_changed.notify_all();
    return m_failing.erase(entry) > 0;
  }
  int Calls(const std::string& entry) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls[entry];
  }
  int WaitFor(const std::string& entry, int count, int milliseconds) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds), [&] { return m_calls[entry] >= count; });
    return m_calls[entry];
  }
  void FailNext(const std::string& entry) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_failing[entry] = true;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::map<std::string, int> m_calls;
  std::map<std::string, bool> m_failing;
};

Watch& watch() {
  static Watch* w = new Watch;  // outlives every thread that may still call
  return *w;
}

RFC_RC Refused(const char* entry, RFC_ERROR_INFO* errorInfo) {
  return nwrfc::guarded(errorInfo,
                        [&] { nwrfc::fail(RFC_ILLEGAL_STATE, std::string(entry) + " refused for the test"); });
}

}  // namespace

extern "C" {

// The library's own definitions, under their changed names.
RFC_CONNECTION_HANDLE WatchedRfcOpenConnection(const RFC_CONNECTION_PARAMETER*, unsigned, RFC_ERROR_INFO*);
RFC_RC WatchedRfcCloseConnection(RFC_CONNECTION_HANDLE, RFC_ERROR_INFO*);
RFC_RC WatchedRfcDestroyFunction(RFC_FUNCTION_HANDLE, RFC_ERROR_INFO*);
RFC_RC WatchedRfcDestroyTransaction(RFC_TRANSACTION_HANDLE, RFC_ERROR_INFO*);

NWRFC_API RFC_CONNECTION_HANDLE RfcOpenConnection(const RFC_CONNECTION_PARAMETER* connectionParams, unsigned paramCount,
                                                  RFC_ERROR_INFO* errorInfo) {
  watch().Called("RfcOpenConnection");
  return WatchedRfcOpenConnection(connectionParams, paramCount, errorInfo);
}

NWRFC_API RFC_RC RfcCloseConnection(RFC_CONNECTION_HANDLE rfcHandle, RFC_ERROR_INFO* errorInfo) {
  if (watch().Called("RfcCloseConnection")) return Refused("RfcCloseConnection", errorInfo);
  return WatchedRfcCloseConnection(rfcHandle, errorInfo);
}

NWRFC_API RFC_RC RfcDestroyFunction(RFC_FUNCTION_HANDLE funcHandle, RFC_ERROR_INFO* errorInfo) {
  if (watch().Called("RfcDestroyFunction")) return Refused("RfcDestroyFunction", errorInfo);
  return WatchedRfcDestroyFunction(funcHandle, errorInfo);
}

NWRFC_API RFC_RC RfcDestroyTransaction(RFC_TRANSACTION_HANDLE tHandle, RFC_ERROR_INFO* errorInfo) {
  if (watch().Called("RfcDestroyTransaction")) return Refused("RfcDestroyTransaction", errorInfo);
  return WatchedRfcDestroyTransaction(tHandle, errorInfo);
}

// The test's side (watched_sdk.h).
NWRFC_API int VsimWatchedCalls(const char* entry) { return watch().Calls(entry); }
NWRFC_API int VsimWaitForWatchedCalls(const char* entry, int count, int milliseconds) {
  return watch().WaitFor(entry, count, milliseconds);
}
NWRFC_API void VsimFailNextWatchedCall(const char* entry) { watch().FailNext(entry); }

}  // extern "C"
