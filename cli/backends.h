// The back ends the command can use, one row each: the name given to
// --backend, the session class, the back end's own connection options, how
// to read them, and how to point a session at the system. A new back end is
// one more row in backends.cpp; the rest of the command takes it from here.
#pragma once

#include <string>
#include <vector>

#include <veltrane.h>

#include "args.h"
#include "connection.h"

namespace veltrane::cli {

// How far a back end's transactional RFC reaches: not at all, within the
// session that created a transaction ID, or to any session of the system.
enum class Transactions { None, OwnSession, AnySession };

struct Backend {
  std::string name;                // --backend NAME
  std::string label;               // in texts: "SOAP"
  std::string progId;              // the session class, created by its ProgID
  std::vector<OptionDef> options;  // the back end's own connection options
  // Reads those options (and their environment fallbacks) into settings; bad
  // values are UsageErrors.
  void (*read)(const ParsedArgs& args, ConnectionSettings& settings);
  // Points a new session at the system: its system data from settings.
  void (*configure)(ISession* session, const ConnectionSettings& settings);
  // Where the session goes, for texts: "http://HOST:PORT/ENDPOINT".
  std::string (*address)(const ConnectionSettings& settings);
  // The system as the password prompt names it: "HOST:PORT".
  std::string (*place)(const ConnectionSettings& settings);
  Transactions transactions;
  // What the back end carries and reports as specified: bytes per
  // character in the length of a parameter's CHAR or NUMC type, whether
  // integers go out as unsigned 32-bit text, and whether the length of a
  // structure's packed field counts bytes.
  int charLengthUnit = 1;
  bool unsignedIntegers = false;
  bool packedMembersInBytes = false;
  // Whether ErrorInfo's group 102 is a fault the system answered with (an
  // unknown module, a runtime error, an error message) rather than a
  // connection that broke.
  bool faultsAreAnswers = false;
};

// All back ends; the first is the default.
const std::vector<Backend>& backends();

// The back end of that name; anything else is a UsageError.
const Backend& backendNamed(const std::string& name);

// A UsageError unless the settings' back end has transactional RFC, and,
// when `foreignId` names what brings an ID from elsewhere ("--tid",
// "confirm"), takes IDs of other sessions.
void requireTransactions(const ConnectionSettings& settings, const std::string& foreignId);

}  // namespace veltrane::cli
