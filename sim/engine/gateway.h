// Registered programs, reached from function modules as CALL FUNCTION ... DESTINATION reaches
// them. The engine knows only this interface; the RFC front implements it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/function.h"

namespace vsim {

struct ProgramCall {
  std::string programId;
  std::string function;
  std::string parametersJson = "{}";  // object: parameter name to value
  bool transactional = false;
  std::string tid;      // transactional only
  bool confirm = true;  // transactional only: confirm the ID after success
  std::int64_t timeoutMs = 30000;
  Logon caller;
  std::string tcode;
  std::string callerProgram;
};

struct ProgramResult {
  std::string resultJson = "{}";  // exporting, changing and tables values of the program
  std::string exception;          // an ABAP exception the program raised (tables still in resultJson)
  std::string exceptionText;
  bool executedBefore = false;  // transactional: the program had executed this ID already
};

class Gateway {
 public:
  virtual ~Gateway() = default;
  // Calls a registered program. Throws AbapException COMMUNICATION_FAILURE (program not
  // registered, connection lost, no answer in time) or SYSTEM_FAILURE (the program failed),
  // each with a message, as the ABAP runtime reports them.
  virtual ProgramResult call(const ProgramCall& call) = 0;
  // Ends the connections of all registered programs; returns how many there were.
  virtual size_t dropAll() = 0;
  // Program IDs registered now, one entry per connection.
  virtual std::vector<std::string> programs() const = 0;
};

}  // namespace vsim
