// Log of the simulated system: one line per request on standard error.
#pragma once

#include <cstdio>
#include <mutex>
#include <optional>
#include <string>

namespace vsim {

enum class LogLevel { Off = 0, Error = 1, Warn = 2, Info = 3, Debug = 4 };

std::optional<LogLevel> parseLogLevel(const std::string& text);

class Log {
 public:
  explicit Log(LogLevel level = LogLevel::Info, std::FILE* out = stderr) : level_(level), out_(out) {}
  bool enabled(LogLevel l) const { return l != LogLevel::Off && static_cast<int>(l) <= static_cast<int>(level_); }
  // Writes "<UTC time> <LEVEL> <text>" and flushes.
  void write(LogLevel l, const std::string& text);
  LogLevel level() const { return level_; }

 private:
  LogLevel level_;
  std::FILE* out_;
  std::mutex mutex_;
};

}  // namespace vsim
