#include "program_runner.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace clitest {

RunResult runProgram(const std::string& program, const std::vector<std::string>& args,
                     const std::map<std::string, std::optional<std::string>>& env) {
  std::vector<std::string> environment;
  for (char** e = environ; *e; ++e) {
    const std::string entry = *e;
    const std::string name = entry.substr(0, entry.find('='));
    if (name.rfind("VELTRANE_", 0) == 0 || env.count(name)) continue;
    environment.push_back(entry);
  }
  for (const auto& [name, value] : env)
    if (value) environment.push_back(name + "=" + *value);

  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  std::vector<char*> envp;
  for (auto& e : environment) envp.push_back(e.data());
  envp.push_back(nullptr);

  int out[2], err[2];
  if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  const pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    ::setsid();
    const int devnull = ::open("/dev/null", O_RDONLY);
    ::dup2(devnull, 0);
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    ::execve(program.c_str(), argv.data(), envp.data());
    const char msg[] = "exec failed\n";
    (void)!::write(2, msg, sizeof msg - 1);
    ::_exit(127);
  }
  ::close(out[1]);
  ::close(err[1]);
  RunResult result;
  pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  int open = 2;
  char buf[65536];
  while (open > 0) {
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int k = 0; k < 2; ++k) {
      if (fds[k].fd < 0 || !(fds[k].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      const ssize_t n = ::read(fds[k].fd, buf, sizeof buf);
      if (n > 0) {
        (k == 0 ? result.out : result.err).append(buf, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        ::close(fds[k].fd);
        fds[k].fd = -1;
        --open;
      }
    }
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

nlohmann::ordered_json outputJson(const RunResult& r) {
  try {
    return nlohmann::ordered_json::parse(r.out);
  } catch (const std::exception& e) {
    ADD_FAILURE() << "not JSON: " << e.what() << "\n" << r.out << "\nstderr: " << r.err;
    return nlohmann::ordered_json();
  }
}

}  // namespace clitest
