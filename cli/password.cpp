#include "password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "failure.h"

namespace veltrane::cli {

namespace {

class TtyFile {
 public:
  TtyFile() : fd_(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)) {}
  ~TtyFile() {
    if (fd_ >= 0) ::close(fd_);
  }
  int fd() const { return fd_; }

 private:
  int fd_;
};

void writeAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
}

// What a signal during the prompt must undo: the terminal's settings.
std::atomic<int> g_ttyFd{-1};
termios g_saved{};

extern "C" void restoreAndResignal(int sig) {
  const int fd = g_ttyFd.load();
  if (fd >= 0) {
    ::tcsetattr(fd, TCSANOW, &g_saved);
    (void)!::write(fd, "\n", 1);
  }
  std::signal(sig, SIG_DFL);
  ::raise(sig);
}

// Echo off for its lifetime; SIGINT, SIGTERM, SIGHUP and SIGQUIT put the
// settings back and then end the process as they would have.
class QuietTerminal {
 public:
  QuietTerminal(int fd, const termios& saved) : fd_(fd) {
    g_saved = saved;
    g_ttyFd.store(fd);
    struct sigaction action {};
    action.sa_handler = restoreAndResignal;
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &action, &previous_[i]);
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    quiet.c_lflag |= ICANON;
    // Echo goes off before the prompt appears, so that no typed character is shown or dropped.
    ::tcsetattr(fd, TCSAFLUSH, &quiet);
  }
  ~QuietTerminal() {
    ::tcsetattr(fd_, TCSADRAIN, &g_saved);
    g_ttyFd.store(-1);
    for (size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &previous_[i], nullptr);
  }
  QuietTerminal(const QuietTerminal&) = delete;
  QuietTerminal& operator=(const QuietTerminal&) = delete;

 private:
  static constexpr std::array<int, 4> kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
  int fd_;
  std::array<struct sigaction, 4> previous_{};
};

}  // namespace

const char* passwordVariable(const char* name) {
  const char* env = std::getenv(name);
  if (env && !*env)
    throw UsageError(std::string(name) + " is set but empty: an empty password is not sent (unset it to be asked)");
  return env;
}

std::string obtainPassword(const std::string& prompt) {
  if (const char* env = passwordVariable(kPasswordVariable)) return env;
  TtyFile tty;
  termios saved{};
  if (tty.fd() < 0 || ::tcgetattr(tty.fd(), &saved) != 0)
    throw UsageError(std::string("no password: set ") + kPasswordVariable + " or run the command on a terminal");
  std::string password;
  bool complete = false;
  {
    QuietTerminal quiet(tty.fd(), saved);
    writeAll(tty.fd(), prompt);
    for (;;) {
      char c;
      const ssize_t n = ::read(tty.fd(), &c, 1);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      if (c == '\n' || c == '\r') {
        complete = true;
        break;
      }
      password += c;
    }
  }
  writeAll(tty.fd(), "\n");
  if (!complete && password.empty()) throw UsageError("no password given");
  if (password.empty()) throw UsageError("no password given: an empty password is not sent");
  return password;
}

}  // namespace veltrane::cli
