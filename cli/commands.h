// The subcommands of the veltrane command.
#pragma once

#include <string>
#include <vector>

#include "args.h"

namespace veltrane::cli {

struct Command {
  std::string name;
  std::string synopsis;            // arguments after the options, for the usage line
  std::string summary;             // one line for the list of commands
  std::string description;         // the body of --help
  std::vector<OptionDef> options;  // its own; connection options and --help are added
  bool formatted = true;           // takes --format
  int (*run)(const ParsedArgs& args) = nullptr;
};

Command pingCommand();
Command callCommand();
Command batchCommand();
Command describeCommand();
Command readTableCommand();
Command checkPasswordCommand();
Command checkUnicodeCommand();
Command confirmCommand();
Command bspCommand();
Command serveCommand();

const std::vector<Command>& allCommands();

// All options a command accepts, in the order --help lists them.
std::vector<OptionDef> optionsOf(const Command& command);

}  // namespace veltrane::cli
