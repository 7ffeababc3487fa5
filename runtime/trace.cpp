#include "runtime/trace.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "runtime/environment.h"
#include "platform/result_names.h"
#include "platform/unicode.h"

std::atomic<Ostrel::CTrace*> Ostrel::CTrace::s_instance{nullptr};

namespace {

std::atomic<int> g_level{0};
std::atomic<TraceClock> g_clock{nullptr};
std::mutex g_openMutex;

std::chrono::system_clock::time_point Now() {
  TraceClock clock = g_clock.load(std::memory_order_acquire);
  return clock ? clock() : std::chrono::system_clock::now();
}

void WriteAll(int fd, const char* p, size_t left) {
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      return;
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
}

// One append of the whole piece, so that lines of two threads interleave
// only whole. The byte order mark goes in front when the file is empty;
// that case alone takes a file lock, so that two first writers give one
// mark.
void AppendToFile(const std::string& path, const std::string& utf8) {
  // Owner only: a trace can hold parameter values such as a new password.
  int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return;
  struct stat st;
  if (::fstat(fd, &st) == 0 && st.st_size == 0) {
    while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {}
    if (::fstat(fd, &st) == 0 && st.st_size == 0) {
      std::string data;
      data.reserve(utf8.size() + 3);
      data.append("\xEF\xBB\xBF");
      data.append(utf8);
      WriteAll(fd, data.data(), data.size());
    } else {
      WriteAll(fd, utf8.data(), utf8.size());
    }
    ::flock(fd, LOCK_UN);
  } else {
    WriteAll(fd, utf8.data(), utf8.size());
  }
  ::close(fd);
}

}  // namespace

void TraceOpen(std::u16string_view tag, std::u16string_view path, bool append) {
  try {
    std::lock_guard<std::mutex> lock(g_openMutex);
    if (Ostrel::CTrace::Instance()) return;
    auto* trace = new Ostrel::CTrace(std::u16string(tag), ExpandEnvironment(path));
    if (!append) {
      const int fd = ::open(WideToUtf8Lossy(trace->Path()).c_str(), O_WRONLY | O_TRUNC | O_CREAT | O_CLOEXEC, 0600);
      if (fd >= 0) ::close(fd);
    }
    Ostrel::CTrace::s_instance.store(trace, std::memory_order_release);
  } catch (...) {}
}

int TraceLevel() { return g_level.load(std::memory_order_relaxed); }
void SetTraceLevel(int level) { g_level.store(level, std::memory_order_relaxed); }

void SetTraceClock(TraceClock clock) { g_clock.store(clock, std::memory_order_release); }

void TraceWrite(std::u16string_view text, bool frame) {
  Ostrel::CTrace* trace = Ostrel::CTrace::Instance();
  if (!trace) return;
  try {
    std::string line;
    if (frame) {
      std::time_t t = std::chrono::system_clock::to_time_t(Now());
      std::tm local{};
      localtime_r(&t, &local);
      char stamp[48];
      std::snprintf(stamp, sizeof stamp, "%4i%02i%02i %02i:%02i:%02i", local.tm_year + 1900, local.tm_mon + 1,
                    local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
      line.reserve(text.size() + 40);
      line += stamp;
      line += "\t[";
      line += WideToUtf8Lossy(trace->Tag());
      line += "]\t";
    }
    line += WideToUtf8Lossy(text);
    AppendToFile(WideToUtf8Lossy(trace->Path()), line);
  } catch (...) {}
}

std::u16string TraceFormat(std::u16string_view format, const FormatArg* args, size_t count) {
  std::u16string text;
  try {
    text = FormatWArgs(format, args, count);
  } catch (const std::invalid_argument&) {
    text = u"<format error> ";
    text.append(format);
  }
  if (text.size() > kTraceBufferSize - 1) {
    text.resize(kTraceBufferSize - 1);
    // Keep a surrogate pair whole rather than writing half of it.
    if (text.back() >= 0xD800 && text.back() <= 0xDBFF) text.pop_back();
  }
  return text;
}

void TraceLog(int severity, std::u16string_view message, const char* function, const char* file, int line, bool frame) {
  if (TraceLevel() < severity || !TraceIsOpen()) return;
  try {
    if (!function) {
      TraceWrite(message, frame);
      return;
    }
    std::string text = boost::str(boost::format("%1%(%2$d): %3%\n") % function % line % WideToUtf8Lossy(message));
    TraceWrite(Utf8ToWideLossy(text), frame);
  } catch (...) {}
}

void TraceLog(int severity, std::string_view utf8Message, const char* function, const char* file, int line,
              bool frame) {
  if (TraceLevel() < severity || !TraceIsOpen()) return;
  TraceLog(severity, std::u16string_view(Utf8ToWideLossy(utf8Message)), function, file, line, frame);
}

void TraceLog(int severity, const boost::format& message, const char* function, const char* file, int line,
              bool frame) {
  if (TraceLevel() < severity || !TraceIsOpen()) return;
  std::string text;
  try {
    text = message.str();
  } catch (const std::exception& e) {
    text = std::string("<format error> ") + e.what();
  }
  TraceLog(severity, std::string_view(text), function, file, line, frame);
}

HRESULT TraceResult(HRESULT hr, const char* function, const char* file, int line) {
  if (FAILED(hr) && TraceIsOpen()) {
    try {
      std::string text = boost::str(boost::format("Error %2$#8x: %1%") % WideToUtf8Lossy(HResultMessage(hr)) %
                                    static_cast<uint32_t>(hr));
      TraceLog(TRACE_ERROR, std::string_view(text), function, file, line);
    } catch (...) {}
  }
  return hr;
}

void TraceResetForTesting() {
  std::lock_guard<std::mutex> lock(g_openMutex);
  delete Ostrel::CTrace::s_instance.exchange(nullptr);
  g_level.store(0);
}
