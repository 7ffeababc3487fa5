// What can go wrong, and how it reaches the user: usage errors (exit 2),
// failures reported by the system (exit 1, with group, key and message),
// and failing results of the component (exit 1, with the record's text).
#pragma once

#include <stdexcept>
#include <string>

#include <veltrane.h>

namespace veltrane::cli {

enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

// Bad command line or bad input values.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A failure the system reported through ErrorInfo.
class RfcFailure : public std::runtime_error {
 public:
  RfcFailure(std::string context, long group, std::string key, std::string message, std::string module);
  const std::string& context() const { return context_; }
  long group() const { return group_; }
  const std::string& key() const { return key_; }
  const std::string& message() const { return message_; }
  const std::string& module() const { return module_; }

 private:
  std::string context_;
  long group_;
  std::string key_, message_, module_;
};

// A failing result of the component, with the description of its error record.
class ComFailure : public std::runtime_error {
 public:
  ComFailure(std::string context, HRESULT hr, std::string description);
  HRESULT result() const { return hr_; }
  const std::string& context() const { return context_; }
  const std::string& description() const { return description_; }

 private:
  std::string context_;
  HRESULT hr_;
  std::string description_;
};

// Name of an ERRORGROUP value, such as "RFCERROR_LOGON_FAILURE".
std::string errorGroupName(long group);

// Throws ComFailure for a failing result, with the thread's error record.
void check(HRESULT hr, const std::string& context);

// After an operation of the session: throws RfcFailure when the session's
// Error is set (reading ErrorInfo, which clears it), else ComFailure for a
// failing result.
void checkSession(HRESULT hr, ISession* session, const std::string& context);

// The same for a table reader, which keeps its own Error and ErrorInfo.
void checkReader(HRESULT hr, ITableReader* reader, const std::string& context);

// Writes the failure to standard error and returns the exit status.
int reportFailure(const std::exception& e);

}  // namespace veltrane::cli
