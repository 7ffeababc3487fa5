#include "nwrfc_sdk/trace.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>

#include "nwrfc_sdk/errors.h"

namespace nwrfc {

Trace::Trace() {
  if (const char* dir = std::getenv("RFC_TRACE_DIR"); dir && *dir) dir_ = dir;
  if (const char* level = std::getenv("RFC_TRACE"); level && *level) level_ = static_cast<unsigned>(std::atoi(level));
}

Trace::~Trace() {
  if (out_) std::fclose(out_);
}

Trace& trace() {
  static Trace* t = new Trace();  // lives until the process ends; other statics may trace while they end
  return *t;
}

void Trace::setDirectory(const std::string& dir) {
  std::lock_guard lock(mutex_);
  const std::string d = dir.empty() ? "." : dir;
  if (d == dir_) return;
  dir_ = d;
  if (out_) std::fclose(out_);
  out_ = nullptr;
  file_.clear();
}

void Trace::setLevel(unsigned level) {
  std::lock_guard lock(mutex_);
  level_ = level > 4 ? 4 : level;
}

std::string Trace::directory() const {
  std::lock_guard lock(mutex_);
  return dir_;
}

std::string Trace::file() const {
  std::lock_guard lock(mutex_);
  return file_;
}

void Trace::call(Entry entry, const std::string& detail) {
  if (level_ >= 2) write(2, std::string(veltrane::sdk::nwrfc::entryName(entry)) + (detail.empty() ? "" : " " + detail));
}

void Trace::detail(const std::string& text) {
  if (level_ >= 3) write(3, text);
}

void Trace::error(const ErrorRecord& r) {
  if (level_ >= 1)
    write(1, std::string("ERROR ") + rcName(r.code) + " group=" + std::to_string(static_cast<unsigned>(r.group)) +
                 " key=" + r.key + " message=" + r.message);
}

void Trace::write(unsigned level, const std::string& text) {
  std::lock_guard lock(mutex_);
  if (level > level_) return;
  if (!out_) {
    file_ = dir_ + "/rfc" + std::to_string(::getpid()) + ".trc";
    out_ = std::fopen(file_.c_str(), "a");
    if (!out_) return;  // the trace never fails towards its caller
  }
  const auto now = std::chrono::system_clock::now();
  const std::time_t t = std::chrono::system_clock::to_time_t(now);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm tm{};
  gmtime_r(&t, &tm);
  char stamp[40];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm);
  std::fprintf(out_, "%s.%03lld [%ld] %s\n", stamp, static_cast<long long>(ms),
               static_cast<long>(::syscall(SYS_gettid)), text.c_str());
  std::fflush(out_);
}

}  // namespace nwrfc
