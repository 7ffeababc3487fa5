// Planned misbehaviour of the fronts: delays, broken connections and garbled answers, for one
// request or for the next requests of a user, client or context.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "engine/function.h"

namespace vsim {

struct FaultSpec {
  enum class Kind { Delay, Close, Status, Malformed, Namespace };
  Kind kind = Kind::Delay;
  std::int64_t value = 0;  // milliseconds for Delay, the code for Status
};
// "delay:500", "close", "status:503", "malformed", "namespace"; nullopt for anything else.
std::optional<FaultSpec> parseFault(const std::string& text);
std::string faultText(const FaultSpec& fault);

// The front a rule is meant for. The RFC front knows delay, close and malformed (a garbage frame).
enum class Front { Soap, Rfc };
bool faultFitsFront(const FaultSpec& fault, Front front);
std::optional<Front> parseFront(const std::string& text);  // "", "soap" or "rfc"
const char* frontName(Front front);

struct FaultRule {
  int id = 0;
  FaultSpec fault;
  Front front = Front::Soap;
  std::string client, user, context;  // empty: any
  std::int64_t remaining = 1;         // 0: until cleared
  std::int64_t pass = 0;              // matching requests let through first
};

class FaultBoard {
 public:
  // Plans a fault; returns the rule's id.
  int add(FaultRule rule);
  // The fault for the next request of this logon on this front (and context, on SOAP), if any;
  // counts it against its rule.
  std::optional<FaultSpec> take(Front front, const Logon& logon, const std::string& context = {});
  size_t clear();
  std::vector<FaultRule> rules() const;

 private:
  mutable std::mutex mutex_;
  std::vector<FaultRule> rules_;
  int nextId_ = 1;
};

}  // namespace vsim
