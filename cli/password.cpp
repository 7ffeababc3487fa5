#include "password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
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

}  // namespace

std::string obtainPassword(const std::string& prompt) {
  if (const char* env = std::getenv(kPasswordVariable)) return env;
  TtyFile tty;
  termios saved{};
  if (tty.fd() < 0 || ::tcgetattr(tty.fd(), &saved) != 0)
    throw UsageError(std::string("no password: set ") + kPasswordVariable + " or run the command on a terminal");
  termios quiet = saved;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  quiet.c_lflag |= ICANON;
  // Echo goes off before the prompt appears, so that no typed character is shown or dropped.
  ::tcsetattr(tty.fd(), TCSAFLUSH, &quiet);
  writeAll(tty.fd(), prompt);
  std::string password;
  bool complete = false;
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
  ::tcsetattr(tty.fd(), TCSADRAIN, &saved);
  writeAll(tty.fd(), "\n");
  if (!complete && password.empty()) throw UsageError("no password given");
  return password;
}

}  // namespace veltrane::cli
