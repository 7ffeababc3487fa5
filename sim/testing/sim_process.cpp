#include "testing/sim_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace vsim::testing {

namespace {

constexpr const char* kReadyPrefix = "veltrane-sim listening ";

}  // namespace

std::string SimProcess::defaultProgram() {
  if (const char* env = std::getenv("VELTRANE_SIM"); env && *env) return env;
#ifdef VELTRANE_SIM_PROGRAM
  return VELTRANE_SIM_PROGRAM;
#else
  return "veltrane-sim";
#endif
}

std::map<std::string, std::string> SimProcess::parseReadyLine(const std::string& line) {
  if (line.compare(0, std::strlen(kReadyPrefix), kReadyPrefix) != 0)
    throw std::runtime_error("not a ready line of veltrane-sim: " + line);
  std::map<std::string, std::string> fields;
  size_t pos = std::strlen(kReadyPrefix);
  while (pos < line.size()) {
    const size_t end = std::min(line.find(' ', pos), line.size());
    const std::string field = line.substr(pos, end - pos);
    const size_t eq = field.find('=');
    if (eq == std::string::npos || eq == 0)
      throw std::runtime_error("bad field '" + field + "' in ready line: " + line);
    fields[field.substr(0, eq)] = field.substr(eq + 1);
    pos = end + 1;
  }
  if (!fields.count("soap")) throw std::runtime_error("no soap= field in ready line: " + line);
  return fields;
}

SimProcess::SimProcess(SimOptions options) {
  const std::string program = options.program.empty() ? defaultProgram() : options.program;
  std::vector<std::string> args = {program, "--soap-port", "0", "--log-level", options.logLevel};
  if (std::find(options.args.begin(), options.args.end(), "--rfc-port") == options.args.end())
    args.insert(args.end(), {"--rfc-port", "0"});
  args.insert(args.end(), options.args.begin(), options.args.end());
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
  int logFd = -1;
  if (!options.logFile.empty()) {
    logFd = open(options.logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (logFd < 0) {
      close(fds[0]);
      close(fds[1]);
      throw std::runtime_error("cannot open " + options.logFile + ": " + std::strerror(errno));
    }
  }
  pid_ = fork();
  if (pid_ < 0) {
    close(fds[0]);
    close(fds[1]);
    if (logFd >= 0) close(logFd);
    throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
  }
  if (pid_ == 0) {
    dup2(fds[1], STDOUT_FILENO);
    if (logFd >= 0) dup2(logFd, STDERR_FILENO);
    execv(program.c_str(), argv.data());
    const char msg[] = "SimProcess: cannot execute the program\n";
    (void)!write(STDERR_FILENO, msg, sizeof msg - 1);
    _exit(127);
  }
  close(fds[1]);
  if (logFd >= 0) close(logFd);

  // The ready line, read byte by byte so nothing after it is consumed.
  std::string line;
  const auto deadline = std::chrono::steady_clock::now() + options.startTimeout;
  std::string failure;
  while (true) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      failure = "no ready line within " + std::to_string(options.startTimeout.count()) + " ms";
      break;
    }
    pollfd p{fds[0], POLLIN, 0};
    const int n = poll(&p, 1, static_cast<int>(left.count()));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) continue;
    char c;
    const ssize_t r = read(fds[0], &c, 1);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) {
      failure = "the program ended before it was ready";
      break;
    }
    if (c == '\n') break;
    line += c;
    if (line.size() > 4096) {
      failure = "ready line too long";
      break;
    }
  }
  close(fds[0]);
  if (failure.empty()) {
    try {
      addresses_ = parseReadyLine(line);
    } catch (const std::exception& e) {
      failure = e.what();
    }
  }
  if (!failure.empty()) {
    const int status = stop(SIGKILL, std::chrono::seconds(5));
    throw std::runtime_error("veltrane-sim (" + program + ") did not start: " + failure + " (exit status " +
                             std::to_string(status) + ")");
  }
  soapUrl_ = addresses_["soap"];
  const size_t colon = soapUrl_.rfind(':');
  soapPort_ = static_cast<unsigned short>(std::atoi(soapUrl_.c_str() + colon + 1));
  if (auto it = addresses_.find("rfc"); it != addresses_.end()) {
    const size_t c = it->second.rfind(':');
    rfcHost_ = it->second.substr(0, c);
    if (rfcHost_.size() > 2 && rfcHost_.front() == '[') rfcHost_ = rfcHost_.substr(1, rfcHost_.size() - 2);
    rfcPort_ = static_cast<unsigned short>(std::atoi(it->second.c_str() + c + 1));
  }
}

SimProcess::~SimProcess() { stop(); }

int SimProcess::stop(int signal, std::chrono::milliseconds timeout) {
  if (pid_ <= 0) return status_;
  kill(pid_, signal);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  int wstatus = 0;
  pid_t r = 0;
  while ((r = waitpid(pid_, &wstatus, WNOHANG)) == 0 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  if (r == 0) {
    kill(pid_, SIGKILL);
    r = waitpid(pid_, &wstatus, 0);
  }
  if (r == pid_) status_ = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
  pid_ = -1;
  return status_;
}

}  // namespace vsim::testing
