// Runs veltrane-sim as a child process for a test suite: starts it on a free port, reads its
// ready line to learn the addresses, and stops it with SIGTERM.
//
//   vsim::testing::SimProcess sim;              // the built program, --soap-port 0
//   std::string url = sim.soapUrl();           // "http://127.0.0.1:40123"
//   std::string host = sim.rfcHost();          // "127.0.0.1", with sim.rfcPort() the RFC front
//   int status = sim.stop();                   // 0 after a clean shutdown
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace vsim::testing {

struct SimOptions {
  std::string program;             // empty: $VELTRANE_SIM, else the program built with this tree
  std::vector<std::string> args;   // more arguments, such as {"--data-dir", dir}
  std::string logLevel = "error";  // passed as --log-level
  std::string logFile;             // standard error of the program; empty: inherited
  std::chrono::milliseconds startTimeout{30000};
};

class SimProcess {
 public:
  // Starts the program and waits for its ready line. Throws std::runtime_error with the reason.
  explicit SimProcess(SimOptions options = {});
  ~SimProcess();
  SimProcess(const SimProcess&) = delete;
  SimProcess& operator=(const SimProcess&) = delete;

  // Base URL of the SOAP front, such as "http://127.0.0.1:40123".
  const std::string& soapUrl() const { return soapUrl_; }
  unsigned short soapPort() const { return soapPort_; }
  // Address of the RFC front and gateway (--rfc-port 0 is passed unless the arguments name one).
  const std::string& rfcHost() const { return rfcHost_; }
  unsigned short rfcPort() const { return rfcPort_; }
  // All name=address fields of the ready line (later fronts add theirs).
  const std::map<std::string, std::string>& addresses() const { return addresses_; }
  pid_t pid() const { return pid_; }
  bool running() const { return pid_ > 0; }

  // Sends `signal` (SIGTERM by default), waits up to `timeout`, then kills. Returns the exit status,
  // or 128 plus the signal number when the program died of a signal. Later calls return the same.
  int stop(int signal = 15, std::chrono::milliseconds timeout = std::chrono::seconds(10));

  static std::string defaultProgram();
  // Parses "veltrane-sim listening soap=http://127.0.0.1:PORT ..." into its fields.
  static std::map<std::string, std::string> parseReadyLine(const std::string& line);

 private:
  pid_t pid_ = -1;
  int status_ = -1;
  std::string soapUrl_;
  unsigned short soapPort_ = 0;
  std::string rfcHost_;
  unsigned short rfcPort_ = 0;
  std::map<std::string, std::string> addresses_;
};

}  // namespace vsim::testing
