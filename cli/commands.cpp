#include "commands.h"

#include "connection.h"
#include "output.h"

namespace veltrane::cli {

const std::vector<Command>& allCommands() {
  static const std::vector<Command> commands = {
      pingCommand(),          callCommand(),         batchCommand(),   describeCommand(), readTableCommand(),
      checkPasswordCommand(), checkUnicodeCommand(), confirmCommand(), bspCommand(),      serveCommand(),
  };
  return commands;
}

std::vector<OptionDef> optionsOf(const Command& command) {
  std::vector<OptionDef> options = command.options;
  if (command.formatted) options.push_back(formatOption());
  options.push_back(errorFormatOption());
  for (auto& o : connectionOptions()) options.push_back(std::move(o));
  options.push_back({"help", "", "show this help"});
  return options;
}

}  // namespace veltrane::cli
