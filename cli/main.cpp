// veltrane: talk to an ABAP system from the shell.
#include <csignal>
#include <iostream>
#include <string>
#include <vector>

#include <veltrane.h>

#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "output.h"
#include "password.h"
#include "trace_file.h"

namespace veltrane::cli {

namespace {

void printOptions(std::ostream& out, const std::vector<OptionDef>& options) {
  size_t width = 0;
  auto label = [](const OptionDef& o) { return "--" + o.name + (o.valueName.empty() ? "" : " " + o.valueName); };
  for (const auto& o : options) width = std::max(width, label(o).size());
  for (const auto& o : options) {
    const std::string l = label(o);
    out << "  " << l << std::string(width - l.size() + 2, ' ') << o.help << "\n";
  }
}

void printCommandHelp(const Command& c) {
  std::cout << "usage: veltrane " << c.name << " [options]" << (c.synopsis.empty() ? "" : " " + c.synopsis) << "\n\n"
            << c.description << "\n";
  std::vector<OptionDef> own = c.options;
  if (c.formatted) own.push_back(formatOption());
  own.push_back(errorFormatOption());
  own.push_back({"help", "", "show this help"});
  std::cout << "\nOptions:\n";
  printOptions(std::cout, own);
  std::cout << "\nConnection options:\n";
  printOptions(std::cout, connectionOptions());
  std::cout << "\nThe password is taken from $" << kPasswordVariable
            << "; without it, it is asked for on the terminal.\n"
               "Exit status: 0 success, 1 a failure reported by the system, 2 a usage error.\n";
}

void printMainHelp(std::ostream& out) {
  out << "usage: veltrane COMMAND [options] [arguments]\n\n"
         "Calls an ABAP system through Veltrane's Automation objects.\n\nCommands:\n";
  size_t width = 0;
  for (const auto& c : allCommands()) width = std::max(width, c.name.size());
  for (const auto& c : allCommands())
    out << "  " << c.name << std::string(width - c.name.size() + 2, ' ') << c.summary << "\n";
  out << "\n'veltrane COMMAND --help' tells more about a command and its options.\n"
         "Connection options may stand before or after the command.\n";
}

const Command* findCommand(const std::string& name) {
  for (const auto& c : allCommands())
    if (c.name == name) return &c;
  return nullptr;
}

// The command is the first argument that is neither an option nor the value
// of an option that may stand before it.
size_t commandPosition(const std::vector<std::string>& args) {
  auto options = connectionOptions();
  options.push_back(formatOption());
  options.push_back(errorFormatOption());
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a.rfind("--", 0) == 0 && a.find('=') == std::string::npos) {
      const std::string name = a.substr(2);
      for (const auto& o : options)
        if (o.name == name && !o.valueName.empty()) ++i;
      continue;
    }
    if (!a.empty() && a[0] == '-') continue;
    return i;
  }
  return args.size();
}

int run(const std::vector<std::string>& args) {
  const size_t at = commandPosition(args);
  if (at == args.size()) {
    for (const auto& a : args) {
      if (a == "--help" || a == "-h") {
        printMainHelp(std::cout);
        return kExitOk;
      }
      if (a == "--version") {
        std::cout << "veltrane " << VELTRANE_VERSION << "\n";
        return kExitOk;
      }
    }
    printMainHelp(std::cerr);
    return kExitUsage;
  }
  const std::string name = args[at];
  if (name == "help") {
    if (at + 1 < args.size()) {
      if (const Command* c = findCommand(args[at + 1])) {
        printCommandHelp(*c);
        return kExitOk;
      }
      throw UsageError("unknown command '" + args[at + 1] + "'");
    }
    printMainHelp(std::cout);
    return kExitOk;
  }
  const Command* command = findCommand(name);
  if (!command) throw UsageError("unknown command '" + name + "' (see 'veltrane --help')");
  std::vector<std::string> rest(args.begin(), args.begin() + static_cast<std::ptrdiff_t>(at));
  rest.insert(rest.end(), args.begin() + static_cast<std::ptrdiff_t>(at) + 1, args.end());
  ParsedArgs parsed;
  try {
    parsed = parseArgs(rest, optionsOf(*command), "veltrane " + command->name);
  } catch (const UsageError& e) {
    throw UsageError(std::string(e.what()) + "\n(see 'veltrane " + command->name + " --help')");
  }
  if (parsed.has("help")) {
    printCommandHelp(*command);
    return kExitOk;
  }
  try {
    return command->run(parsed);
  } catch (const UsageError& e) {
    throw UsageError(std::string(e.what()) + "\n(see 'veltrane " + command->name + " --help')");
  }
}

}  // namespace

}  // namespace veltrane::cli

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  // A closed pipe is a failed write that the command reports, not a signal.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    veltrane::cli::setErrorFormat(veltrane::cli::errorFormat(args));
  } catch (const std::exception& e) {
    return veltrane::cli::reportFailure(e);
  }
  if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
    std::cerr << "veltrane: the COM runtime did not start\n";
    return veltrane::cli::kExitFailure;
  }
  int status;
  try {
    status = veltrane::cli::run(args);
    veltrane::cli::finishOutput();
  } catch (const std::exception& e) {
    status = veltrane::cli::reportFailure(e);
  }
  CoUninitialize();
  veltrane::cli::removePrivateTrace();
  return status;
}
