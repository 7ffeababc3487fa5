// What can go wrong, and how it reaches the user: usage errors, failures
// reported by the system (with group, key and message), failing results of
// the component (with the record's text), and failures of the command's own
// input and output. Each kind has its exit status; a failure prints as text
// or, with --error-format json, as one JSON object on standard error.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>
#include <veltrane.h>

namespace veltrane::cli {

enum ExitCode {
  kExitOk = 0,
  kExitFailure = 1,        // another failure of the system, the component or the command
  kExitUsage = 2,          // bad command line or bad input values
  kExitLogon = 3,          // the system refused the logon
  kExitCommunication = 4,  // the system was not reached, or the connection broke
  kExitAbap = 5,           // an ABAP exception or an ABAP message
  kExitOutput = 6,         // the command's output could not be written
};

// Bad command line or bad input values.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Standard output or an output file could not be written.
class OutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The ABAP message that came with a failure: its class, type, number and
// four variables, as the back end received them.
struct AbapMessage {
  std::string messageClass, type, number;
  std::string variables[4];
};

// A failure the system reported through ErrorInfo, with the ABAP message
// the library's trace names for it, if any.
class RfcFailure : public std::runtime_error {
 public:
  RfcFailure(std::string context, long group, std::string key, std::string message, std::string module,
             std::optional<AbapMessage> abapMessage = std::nullopt);
  const std::string& context() const { return context_; }
  long group() const { return group_; }
  const std::string& key() const { return key_; }
  const std::string& message() const { return message_; }
  const std::string& module() const { return module_; }
  const std::optional<AbapMessage>& abapMessage() const { return abapMessage_; }

 private:
  std::string context_;
  long group_;
  std::string key_, message_, module_;
  std::optional<AbapMessage> abapMessage_;
};

// A failing result of the component, with the description of its error
// record and, when the library's trace names it, the transport's cause.
class ComFailure : public std::runtime_error {
 public:
  ComFailure(std::string context, HRESULT hr, std::string description, std::string cause = {});
  HRESULT result() const { return hr_; }
  const std::string& context() const { return context_; }
  const std::string& description() const { return description_; }
  const std::string& cause() const { return cause_; }

 private:
  std::string context_;
  HRESULT hr_;
  std::string description_;
  std::string cause_;
};

// Name of an ERRORGROUP value, such as "RFCERROR_LOGON_FAILURE".
std::string errorGroupName(long group);

// Throws ComFailure for a failing result, with the thread's error record.
void check(HRESULT hr, const std::string& context);

// After an operation of the session: throws RfcFailure when the session's
// Error is set (reading ErrorInfo, which clears it), else ComFailure for a
// failing result, with the transport's cause found in the library's trace.
void checkSession(HRESULT hr, ISession* session, const std::string& context);

// The same for a table reader, which keeps its own Error and ErrorInfo.
void checkReader(HRESULT hr, ITableReader* reader, const std::string& context);

// The ABAP message of a trace line the library writes for it
//   ABAP message: ID="FL" Type="E" Number="046" V1="LH" V2="" V3="" V4=""
// (texts quoted and escaped as in C); nothing for any other line.
std::optional<AbapMessage> abapMessageOfTraceLine(const std::string& line);

// The trace file the command reads causes and ABAP messages from (see
// ComFailure, RfcFailure). Only what the library writes after this call
// and since the last operation checked counts for a failure.
void setCauseTrace(const std::string& path);

// Whether the back end's group 102 is a fault the system answered with
// (see Backend::faultsAreAnswers): then it is no communication failure.
void setFaultsAreAnswers(bool answers);

// The exit status of a failure.
int exitStatus(const std::exception& e);

// The failure as one JSON object: "status", "kind", "context", "message",
// and for a failure of the system "group", "groupName", "key", "module"
// and, with an ABAP message, "messageClass", "messageType",
// "messageNumber" and "messageV1" to "messageV4".
nlohmann::ordered_json failureJson(const std::exception& e);

enum class ErrorFormat { Text, Json };
void setErrorFormat(ErrorFormat format);

// Something that belongs to the next failure report, such as where to
// resume: a line of its own in text, `key` in JSON.
void noteForFailure(const std::string& key, nlohmann::ordered_json value, const std::string& text);

// Writes the failure to standard error and returns the exit status.
int reportFailure(const std::exception& e);

}  // namespace veltrane::cli
