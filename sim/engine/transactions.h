// Transactional RFC on the system's side: a transaction ID runs its calls at most once, however
// often it is sent, until the caller confirms it.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>

namespace vsim {

class TransactionLog {
 public:
  enum class Outcome { Executed, AlreadyExecuted };
  // Runs `work` unless the ID was executed before; the ID is recorded when `work` returns
  // normally (an exception leaves it unrecorded, so the caller may send it again). Work under
  // one ID waits for work under the same ID that is still running.
  Outcome run(const std::string& tid, const std::function<void()>& work);
  // Forgets an executed ID; false when it was not recorded.
  bool confirm(const std::string& tid);
  bool executed(const std::string& tid) const;
  size_t size() const;
  // A new ID: 24 upper-case hexadecimal digits.
  static std::string newTid();

 private:
  mutable std::mutex mutex_;
  std::condition_variable idle_;
  std::set<std::string> executed_;
  std::set<std::string> running_;
};

}  // namespace vsim
