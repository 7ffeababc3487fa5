#include "rfc/gateway.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "engine/convert.h"
#include "rfc/program_values.h"
#include "rfc/rfc_service.h"
#include "rfc_protocol/frame.h"
#include "rfc_protocol/messages.h"

namespace vsim::rfc {

namespace {

using json = nlohmann::ordered_json;
using proto::MessageKind;
using proto::WireType;
using proto::WireValue;

WireValue fromJson(const json& j, int depth);

WireValue initialOf(WireType t) {
  WireValue v;
  v.type = t;
  return v;
}

WireValue scalarFromJson(const json& j) {
  if (j.is_string()) return WireValue::ofText(WireType::Char, j.get<std::string>());
  if (j.is_boolean()) return WireValue::ofText(WireType::Char, j.get<bool>() ? "X" : "");
  if (j.is_number_integer() || j.is_number_unsigned()) {
    if (j.is_number_unsigned() && j.get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX))
      return WireValue::ofReal(j.get<double>());
    const std::int64_t n = j.get<std::int64_t>();
    const bool small = n >= std::numeric_limits<std::int32_t>::min() && n <= std::numeric_limits<std::int32_t>::max();
    return WireValue::ofInteger(small ? WireType::Int : WireType::Int8, n);
  }
  if (j.is_number_float()) return WireValue::ofReal(j.get<double>());
  return WireValue::ofText(WireType::Char, "");
}

WireValue tableFromJson(const json& array, int depth) {
  WireValue t;
  t.type = WireType::Table;
  bool objects = false;
  for (const auto& e : array) objects = objects || e.is_object();
  if (!objects) {
    WireType type = WireType::Char;
    for (const auto& e : array)
      if (!e.is_null()) {
        type = fromJson(e, depth + 1).type;
        break;
      }
    t.columns.emplace_back("", type);
    for (const auto& e : array) {
      WireValue v = e.is_null() ? initialOf(type) : fromJson(e, depth + 1);
      if (v.type != type) throw std::invalid_argument("rows of one table need values of one kind");
      t.rows.push_back({std::move(v)});
    }
    return t;
  }
  for (const auto& e : array) {
    if (!e.is_object()) throw std::invalid_argument("rows of one table must all be objects");
    for (const auto& [k, v] : e.items()) {
      if (v.is_null()) continue;
      const bool known =
          std::any_of(t.columns.begin(), t.columns.end(), [&, key = k](const auto& c) { return c.first == key; });
      if (!known) t.columns.emplace_back(k, fromJson(v, depth + 1).type);
    }
  }
  for (const auto& e : array) {
    std::vector<WireValue> row;
    for (const auto& [name, type] : t.columns) {
      auto it = e.find(name);
      WireValue v = it == e.end() || it->is_null() ? initialOf(type) : fromJson(*it, depth + 1);
      if (v.type != type) throw std::invalid_argument("column " + name + " holds values of different kinds");
      row.push_back(std::move(v));
    }
    t.rows.push_back(std::move(row));
  }
  return t;
}

WireValue fromJson(const json& j, int depth) {
  if (depth > proto::kMaxValueDepth) throw std::invalid_argument("values nested too deeply");
  if (j.is_object()) {
    WireValue s;
    s.type = WireType::Structure;
    for (const auto& [k, v] : j.items())
      if (!v.is_null()) s.fields.emplace_back(k, fromJson(v, depth + 1));
    return s;
  }
  if (j.is_array()) return tableFromJson(j, depth);
  return scalarFromJson(j);
}

json toJson(const WireValue& v) {
  switch (proto::wireForm(v.type)) {
    case proto::WireForm::Text: return v.text;
    case proto::WireForm::Bytes: return hexEncode(v.text);
    case proto::WireForm::Integer: return v.integer;
    case proto::WireForm::Real: return v.real;
    case proto::WireForm::Structure: {
      json o = json::object();
      for (const auto& [n, f] : v.fields) o[n] = toJson(f);
      return o;
    }
    case proto::WireForm::Table: {
      json a = json::array();
      const bool elementary = v.columns.size() == 1 && v.columns[0].first.empty();
      for (const auto& row : v.rows) {
        if (elementary) {
          a.push_back(toJson(row.at(0)));
          continue;
        }
        json o = json::object();
        for (size_t c = 0; c < v.columns.size() && c < row.size(); ++c) o[v.columns[c].first] = toJson(row[c]);
        a.push_back(std::move(o));
      }
      return a;
    }
  }
  return nullptr;
}

[[noreturn]] void communicationFailure(const std::string& text) {
  AbapMessage m{"SR", "E", "053", text, {text.substr(0, 50), "", "", ""}};
  throw AbapException("COMMUNICATION_FAILURE", m);
}

[[noreturn]] void systemFailure(const std::string& text) {
  AbapMessage m{"SR", "E", "053", text, {text.substr(0, 50), "", "", ""}};
  throw AbapException("SYSTEM_FAILURE", m);
}

}  // namespace

proto::NamedValues valuesFromJson(const std::string& text) {
  json j;
  try {
    j = json::parse(text);
  } catch (const json::exception& e) {
    throw std::invalid_argument(std::string("parameters are no JSON object: ") + e.what());
  }
  if (!j.is_object()) throw std::invalid_argument("parameters must be a JSON object");
  proto::NamedValues out;
  for (const auto& [k, v] : j.items())
    if (!v.is_null()) out.emplace_back(toUpper(k), fromJson(v, 0));
  return out;
}

std::string valuesToJson(const proto::NamedValues& values) {
  json o = json::object();
  for (const auto& [n, v] : values) o[n] = toJson(v);
  return o.dump();
}

void RfcGateway::add(std::shared_ptr<ProgramLink> link) {
  {
    std::lock_guard lock(mutex_);
    links_.push_back({std::move(link), false});
  }
  changed_.notify_all();
}

void RfcGateway::remove(const ProgramLink* link) {
  {
    std::lock_guard lock(mutex_);
    links_.erase(std::remove_if(links_.begin(), links_.end(), [&](const Entry& e) { return e.link.get() == link; }),
                 links_.end());
  }
  changed_.notify_all();
}

std::shared_ptr<ProgramLink> RfcGateway::acquire(const std::string& programId,
                                                 std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  for (;;) {
    bool registered = false;
    for (Entry& e : links_) {
      if (e.link->programId() != programId) continue;
      registered = true;
      if (!e.busy) {
        e.busy = true;
        return e.link;
      }
    }
    if (!registered) return nullptr;
    if (changed_.wait_until(lock, deadline) == std::cv_status::timeout) communicationFailure("Timeout during allocate");
  }
}

void RfcGateway::release(const ProgramLink* link) {
  {
    std::lock_guard lock(mutex_);
    for (Entry& e : links_)
      if (e.link.get() == link) e.busy = false;
  }
  changed_.notify_all();
}

ProgramResult RfcGateway::call(const ProgramCall& call) {
  proto::NamedValues params;
  try {
    params = valuesFromJson(call.parametersJson);
  } catch (const std::invalid_argument& e) {
    throw SystemFailure("CALL_FUNCTION_PARM_UNKNOWN", e.what());
  }
  // The function's interface in the dictionary, when it has one, scales the packed numbers.
  const FunctionPtr function = system_.functions().find(call.function);
  if (function) packedForProgram(params, *function);
  auto answerValues = [&function](proto::Reader& r) {
    proto::NamedValues values = proto::readValues(r);
    if (function) packedFromProgram(values, *function);
    return valuesToJson(values);
  };
  const auto timeout = std::chrono::milliseconds(call.timeoutMs);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  std::shared_ptr<ProgramLink> link = acquire(call.programId, deadline);
  if (!link)
    communicationFailure("program " + call.programId + " is not registered (partner not reached, gateway " +
                         system_.info().host + ")");
  struct Release {
    RfcGateway& g;
    const ProgramLink* l;
    ~Release() { g.release(l); }
  } release{*this, link.get()};

  proto::CallHead head;
  head.type = call.transactional ? proto::CallType::Transactional : proto::CallType::Synchronous;
  head.tid = call.tid;
  head.function = call.function;
  head.attributes =
      connectionAttributes(system_, call.caller, system_.users().languageIso(call.caller.language).value_or(""));
  head.attributes.emplace_back("tcode", call.tcode);
  head.attributes.emplace_back("progName", call.callerProgram);
  proto::FrameBuilder f(MessageKind::Call);
  proto::writeCallHead(f.writer(), head);
  proto::writeValues(f.writer(), params);

  auto exchange = [&](std::string frame) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    try {
      return link->exchange(std::move(frame), std::max(left, std::chrono::milliseconds(1)));
    } catch (const std::exception& e) {
      communicationFailure(e.what());
    }
  };
  const std::string answer = exchange(f.finish());
  ProgramResult result;
  try {
    proto::Reader r(answer);
    const auto kind = static_cast<MessageKind>(r.u8());
    if (kind == MessageKind::CallResult) {
      result.executedBefore = proto::readCallResultHead(r);
      result.resultJson = answerValues(r);
      r.expectEnd();
    } else if (kind == MessageKind::CallException) {
      const proto::ErrorInfo e = proto::readError(r);
      result.exception = e.key;
      result.exceptionText = e.message;
      result.resultJson = answerValues(r);
      r.expectEnd();
    } else if (kind == MessageKind::CallFailure) {
      const proto::ErrorInfo e = proto::readError(r);
      // A refused authorization leaves the program serving; other failures end its connection.
      if (e.rc != proto::rc::kAuthorizationFailure) link->drop();
      systemFailure(e.message.empty() ? e.key : e.message);
    } else {
      throw proto::ProtocolError(std::string("unexpected answer ") + proto::messageKindName(kind));
    }
  } catch (const proto::ProtocolError& e) {
    link->drop();
    communicationFailure(std::string("bad answer from program ") + call.programId + ": " + e.what());
  }
  if (call.transactional && call.confirm && result.exception.empty()) {
    proto::FrameBuilder confirm(MessageKind::ConfirmCall);
    confirm.writer().text(call.tid);
    const std::string ack = exchange(confirm.finish());
    if (ack.empty() || static_cast<MessageKind>(ack[0]) != MessageKind::ConfirmOk) {
      link->drop();
      communicationFailure("program " + call.programId + " did not confirm transaction " + call.tid);
    }
  }
  return result;
}

size_t RfcGateway::dropAll() {
  std::vector<std::shared_ptr<ProgramLink>> all;
  {
    std::lock_guard lock(mutex_);
    for (const Entry& e : links_) all.push_back(e.link);
    links_.clear();
  }
  changed_.notify_all();
  for (auto& l : all) l->drop();
  if (!all.empty())
    log_.write(LogLevel::Info, "gateway: dropped " + std::to_string(all.size()) + " registered programs");
  return all.size();
}

std::vector<std::string> RfcGateway::programs() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const Entry& e : links_) out.push_back(e.link->programId());
  return out;
}

}  // namespace vsim::rfc
