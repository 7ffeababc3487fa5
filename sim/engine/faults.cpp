#include "engine/faults.h"

#include "engine/convert.h"

namespace vsim {

std::optional<FaultSpec> parseFault(const std::string& text) {
  const std::string t(trim(text));
  const size_t colon = t.find(':');
  const std::string kind = colon == std::string::npos ? t : t.substr(0, colon);
  const std::string arg = colon == std::string::npos ? std::string() : t.substr(colon + 1);
  auto number = [&](std::int64_t lo, std::int64_t hi) -> std::optional<std::int64_t> {
    if (arg.empty() || arg.size() > 9 || arg.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    const std::int64_t v = std::stoll(arg);
    if (v < lo || v > hi) return std::nullopt;
    return v;
  };
  FaultSpec f;
  if (kind == "delay") {
    auto v = number(0, 600000);
    if (!v) return std::nullopt;
    f.kind = FaultSpec::Kind::Delay;
    f.value = *v;
  } else if (kind == "status") {
    auto v = number(200, 599);
    if (!v) return std::nullopt;
    f.kind = FaultSpec::Kind::Status;
    f.value = *v;
  } else if (kind == "close" && arg.empty()) {
    f.kind = FaultSpec::Kind::Close;
  } else if (kind == "malformed" && arg.empty()) {
    f.kind = FaultSpec::Kind::Malformed;
  } else if (kind == "namespace" && arg.empty()) {
    f.kind = FaultSpec::Kind::Namespace;
  } else {
    return std::nullopt;
  }
  return f;
}

std::string faultText(const FaultSpec& f) {
  switch (f.kind) {
    case FaultSpec::Kind::Delay: return "delay:" + std::to_string(f.value);
    case FaultSpec::Kind::Close: return "close";
    case FaultSpec::Kind::Status: return "status:" + std::to_string(f.value);
    case FaultSpec::Kind::Malformed: return "malformed";
    case FaultSpec::Kind::Namespace: return "namespace";
  }
  return "?";
}

bool faultFitsFront(const FaultSpec& fault, Front front) {
  if (front == Front::Soap) return true;
  return fault.kind == FaultSpec::Kind::Delay || fault.kind == FaultSpec::Kind::Close ||
         fault.kind == FaultSpec::Kind::Malformed;
}

std::optional<Front> parseFront(const std::string& text) {
  if (text.empty() || text == "soap") return Front::Soap;
  if (text == "rfc") return Front::Rfc;
  return std::nullopt;
}

const char* frontName(Front front) { return front == Front::Soap ? "soap" : "rfc"; }

int FaultBoard::add(FaultRule rule) {
  std::lock_guard lock(mutex_);
  rule.id = nextId_++;
  rules_.push_back(rule);
  return rule.id;
}

std::optional<FaultSpec> FaultBoard::take(Front front, const Logon& logon, const std::string& context) {
  std::lock_guard lock(mutex_);
  for (auto it = rules_.begin(); it != rules_.end(); ++it) {
    if (it->front != front) continue;
    if (!it->client.empty() && it->client != logon.client) continue;
    if (!it->user.empty() && it->user != logon.user) continue;
    if (!it->context.empty() && it->context != context) continue;
    if (it->pass > 0) {
      --it->pass;
      return std::nullopt;
    }
    FaultSpec f = it->fault;
    if (it->remaining > 0 && --it->remaining == 0) rules_.erase(it);
    return f;
  }
  return std::nullopt;
}

size_t FaultBoard::clear() {
  std::lock_guard lock(mutex_);
  const size_t n = rules_.size();
  rules_.clear();
  return n;
}

std::vector<FaultRule> FaultBoard::rules() const {
  std::lock_guard lock(mutex_);
  return rules_;
}

}  // namespace vsim
