#include "trace_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "failure.h"
#include "text.h"

namespace veltrane::cli {

namespace {

std::string g_private;

}  // namespace

void requireWritableTrace(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) throw UsageError("option --trace: cannot write '" + path + "': " + std::strerror(errno));
  ::close(fd);
}

void attachTrace(ISession* session, const std::string& userFile) {
  if (!userFile.empty()) {
    check(session->put_Option(bstr("trace.file"), bstr(userFile)), "setting the trace file");
    setCauseTrace(userFile);
    return;
  }
  if (g_private.empty()) {
    const char* dir = std::getenv("TMPDIR");
    std::string pattern = std::string(dir && *dir ? dir : "/tmp") + "/veltrane-trace-XXXXXX";
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) return;  // no causes then, but the command goes on
    ::close(fd);
    g_private = pattern;
  }
  check(session->put_Option(bstr("trace.file"), bstr(g_private)), "setting the trace file");
  check(session->put_Option(bstr("trace.level"), bstr("ERROR")), "setting the trace level");
  setCauseTrace(g_private);
}

void removePrivateTrace() {
  if (!g_private.empty()) ::unlink(g_private.c_str());
  g_private.clear();
}

}  // namespace veltrane::cli
