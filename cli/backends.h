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
};

// All back ends; the first is the default.
const std::vector<Backend>& backends();

// The back end of that name; anything else is a UsageError.
const Backend& backendNamed(const std::string& name);

}  // namespace veltrane::cli
