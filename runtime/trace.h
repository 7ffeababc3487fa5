// The component's diagnostic log: one process-wide text file in UTF-8 with
// a byte order mark, off until the first TraceOpen. Lines read
// "<yyyymmdd hh:mm:ss>\t[<tag>]\t<message>" in local time. Tracing never
// fails towards its caller.
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>

#include <boost/format.hpp>

#include "platform/wtypes.h"
#include "runtime/wformat.h"

void TraceOpen(std::u16string_view tag, std::u16string_view path, bool append);
void TraceResetForTesting();

namespace Ostrel {

class CTrace {
 public:
  CTrace(std::u16string tag, std::u16string path) : m_path(std::move(path)), m_tag(std::move(tag)) {}
  virtual ~CTrace() = default;

  const std::u16string& Path() const { return m_path; }
  const std::u16string& Tag() const { return m_tag; }

  // The instance, or null while the trace is closed.
  static CTrace* Instance() { return s_instance.load(std::memory_order_acquire); }

 private:
  friend void ::TraceOpen(std::u16string_view, std::u16string_view, bool);
  friend void ::TraceResetForTesting();

  std::u16string m_path;  // after expansion of environment variables
  std::u16string m_tag;   // "Veltrane", "RfcServer" or "NWRfcServer"

  static std::atomic<CTrace*> s_instance;
};

}  // namespace Ostrel

// Severities of TraceLog and the trace level.
enum TRACELEVEL : int { TRACE_NONE = 0, TRACE_ERROR = 1, TRACE_WARNING = 2, TRACE_INFORMATION = 3 };

// Characters a Trace/TraceRaw message may have; a longer one is cut to
// kTraceBufferSize - 1 characters, as by a buffer of that size with its
// terminator.
inline constexpr size_t kTraceBufferSize = 2048;

// Opens the process-wide trace unless it is open already: the first opener
// decides tag and path. Environment variables in the path are expanded
// (see ExpandEnvironment). append == false empties the file.
void TraceOpen(std::u16string_view tag, std::u16string_view path, bool append);
inline bool TraceIsOpen() { return Ostrel::CTrace::Instance() != nullptr; }

// The process-wide level, 0 at start.
int TraceLevel();
void SetTraceLevel(int level);

// Writes text as one line piece, with the frame when frame is true.
void TraceWrite(std::u16string_view text, bool frame);

// Formats (see wformat.h) into at most kTraceBufferSize - 1 characters.
// A format that does not fit its arguments is written as it stands,
// behind "<format error> ".
std::u16string TraceFormat(std::u16string_view format, const FormatArg* args, size_t count);

// A framed line, not filtered by level.
template <class... Args>
void Trace(std::u16string_view format, const Args&... args) {
  if (!TraceIsOpen()) return;
  if constexpr (sizeof...(Args) == 0) {
    TraceWrite(TraceFormat(format, nullptr, 0), true);
  } else {
    const FormatArg list[] = {veltrane::runtime::detail::MakeFormatArg(args)...};
    TraceWrite(TraceFormat(format, list, sizeof...(Args)), true);
  }
}

// A continuation of the current line, without the frame, not filtered by level.
template <class... Args>
void TraceRaw(std::u16string_view format, const Args&... args) {
  if (!TraceIsOpen()) return;
  if constexpr (sizeof...(Args) == 0) {
    TraceWrite(TraceFormat(format, nullptr, 0), false);
  } else {
    const FormatArg list[] = {veltrane::runtime::detail::MakeFormatArg(args)...};
    TraceWrite(TraceFormat(format, list, sizeof...(Args)), false);
  }
}

// Writes when the level is at or above severity. With a function name the
// text is "<function>(<line>): <message>\n"; the file is taken but not
// printed. Without one the message stands alone.
void TraceLog(int severity, std::u16string_view message, const char* function, const char* file, int line,
              bool frame = true);
void TraceLog(int severity, std::string_view utf8Message, const char* function, const char* file, int line,
              bool frame = true);
void TraceLog(int severity, const boost::format& message, const char* function, const char* file, int line,
              bool frame = true);
inline void TraceLog(int severity, const char16_t* message, const char* function, const char* file, int line,
                     bool frame = true) {
  TraceLog(severity, std::u16string_view(message ? message : u""), function, file, line, frame);
}
inline void TraceLog(int severity, const char* utf8Message, const char* function, const char* file, int line,
                     bool frame = true) {
  TraceLog(severity, std::string_view(utf8Message ? utf8Message : ""), function, file, line, frame);
}

// For a failed hr writes "Error 0x<hr>: <platform text>" at severity 1 by
// TraceLog. Returns hr.
HRESULT TraceResult(HRESULT hr, const char* function, const char* file, int line);

// Whether TraceLog at severity writes anything.
inline bool TraceWants(int severity) { return TraceLevel() >= severity && TraceIsOpen(); }

// TraceLog from the place it stands; the message is made only when the
// trace takes it, so that a formatted message costs nothing without a trace.
#define TRACE_LOG(severity, message)                                                             \
  do {                                                                                           \
    if (::TraceWants(severity)) ::TraceLog((severity), (message), __func__, __FILE__, __LINE__); \
  } while (0)
#define TRACE_RESULT(hr) ::TraceResult((hr), __func__, __FILE__, __LINE__)

// The clock of the frame; null restores the system clock.
using TraceClock = std::chrono::system_clock::time_point (*)();
void SetTraceClock(TraceClock clock);

// Test-only: closes the trace and sets the level to 0, so that a test can
// open a fresh one. The component itself never closes the trace.
void TraceResetForTesting();
