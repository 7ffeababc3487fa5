#include "engine/log.h"

#include <chrono>
#include <ctime>

namespace vsim {

std::optional<LogLevel> parseLogLevel(const std::string& text) {
  if (text == "off" || text == "none") return LogLevel::Off;
  if (text == "error") return LogLevel::Error;
  if (text == "warn" || text == "warning") return LogLevel::Warn;
  if (text == "info") return LogLevel::Info;
  if (text == "debug") return LogLevel::Debug;
  return std::nullopt;
}

void Log::write(LogLevel l, const std::string& text) {
  if (!enabled(l)) return;
  static const char* names[] = {"OFF", "ERROR", "WARN", "INFO", "DEBUG"};
  const auto now = std::chrono::system_clock::now();
  const std::time_t t = std::chrono::system_clock::to_time_t(now);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm tm{};
  gmtime_r(&t, &tm);
  char stamp[40];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &tm);
  std::lock_guard lock(mutex_);
  std::fprintf(out_, "%s.%03dZ %s %s\n", stamp, static_cast<int>(ms), names[static_cast<int>(l)], text.c_str());
  std::fflush(out_);
}

}  // namespace vsim
