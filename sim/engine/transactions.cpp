#include "engine/transactions.h"

#include <cstdio>
#include <random>

namespace vsim {

TransactionLog::Outcome TransactionLog::run(const std::string& tid, const std::function<void()>& work) {
  {
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [&] { return running_.count(tid) == 0; });
    if (executed_.count(tid)) return Outcome::AlreadyExecuted;
    running_.insert(tid);
  }
  auto finish = [&](bool done) {
    std::lock_guard lock(mutex_);
    running_.erase(tid);
    if (done) executed_.insert(tid);
    idle_.notify_all();
  };
  try {
    work();
  } catch (...) {
    finish(false);
    throw;
  }
  finish(true);
  return Outcome::Executed;
}

bool TransactionLog::confirm(const std::string& tid) {
  std::lock_guard lock(mutex_);
  return executed_.erase(tid) > 0;
}

bool TransactionLog::executed(const std::string& tid) const {
  std::lock_guard lock(mutex_);
  return executed_.count(tid) > 0;
}

size_t TransactionLog::size() const {
  std::lock_guard lock(mutex_);
  return executed_.size();
}

std::string TransactionLog::newTid() {
  static std::mutex m;
  static std::mt19937_64 rng{std::random_device{}()};
  std::uint64_t a, b;
  {
    std::lock_guard lock(m);
    a = rng();
    b = rng();
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, "%016llX%08llX", static_cast<unsigned long long>(a),
                static_cast<unsigned long long>(b & 0xffffffffULL));
  return buf;
}

}  // namespace vsim
