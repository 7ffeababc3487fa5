#include "engine/function.h"

#include "engine/convert.h"
#include "engine/system.h"

#include <charconv>

namespace vsim {

char paramClass(Direction d) {
  switch (d) {
    case Direction::Importing: return 'I';
    case Direction::Exporting: return 'E';
    case Direction::Changing: return 'C';
    case Direction::Tables: return 'T';
  }
  return '?';
}

size_t Session::commitWork() {
  std::vector<std::function<void()>> updates;
  updates.swap(updates_);
  for (const auto& update : updates) update();
  return updates.size();
}

std::string messageText(const std::string& text, const std::array<std::string, 4>& vars) {
  std::string out;
  size_t next = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '&') {
      if (i + 1 < text.size() && text[i + 1] >= '1' && text[i + 1] <= '4') {
        out += vars[static_cast<size_t>(text[i + 1] - '1')];
        ++i;
        continue;
      }
      if (next < 4) {
        out += vars[next++];
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

int FunctionModule::find(std::string_view param) const {
  for (size_t i = 0; i < params.size(); ++i)
    if (params[i].name == param) return static_cast<int>(i);
  return -1;
}

bool FunctionModule::declares(std::string_view exception) const {
  for (const auto& e : exceptions)
    if (e.name == exception) return true;
  return false;
}

Call::Call(FunctionPtr function) : function_(std::move(function)) {
  values_.reserve(function_->params.size());
  for (const auto& p : function_->params) {
    Value v = initialValue(*p.type);
    values_.push_back(std::move(v));
  }
  supplied_.assign(function_->params.size(), 0);
}

Value& Call::value(std::string_view param) {
  const int i = find(param);
  if (i < 0) throw std::logic_error(function_->name + " has no parameter " + std::string(param));
  return values_[static_cast<size_t>(i)];
}

const Value& Call::value(std::string_view param) const {
  const int i = find(param);
  if (i < 0) throw std::logic_error(function_->name + " has no parameter " + std::string(param));
  return values_[static_cast<size_t>(i)];
}

void Call::supply(size_t i, Value v) {
  values_.at(i) = std::move(v);
  supplied_.at(i) = 1;
}

const TypeDesc& CallContext::typeOf(std::string_view param) const {
  const int i = call_.find(param);
  if (i < 0) throw std::logic_error(call_.function().name + " has no parameter " + std::string(param));
  return *call_.function().params[static_cast<size_t>(i)].type;
}

bool CallContext::supplied(std::string_view param) const {
  const int i = call_.find(param);
  return i >= 0 && call_.supplied(static_cast<size_t>(i));
}

std::string CallContext::text(std::string_view param) const { return formatPlain(typeOf(param), call_.value(param)); }

std::int64_t CallContext::integer(std::string_view param) const {
  const TypeDesc& t = typeOf(param);
  const Value& v = call_.value(param);
  if (t.kind == Kind::Int || t.kind == Kind::Int1 || t.kind == Kind::Int2) return v.integer();
  if (t.kind == Kind::Packed || t.kind == Kind::Numc || t.kind == Kind::Char) {
    const std::string& s = v.text();
    std::string_view digits = trim(std::string_view(s).substr(0, s.find('.')));
    std::int64_t n = 0;
    auto [p, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), n);
    if (digits.empty()) return 0;
    if (ec != std::errc() || p != digits.data() + digits.size())
      throw SystemFailure("CONVT_NO_NUMBER", "Unable to interpret \"" + s + "\" as a number.");
    return n;
  }
  return v.integer();
}

void CallContext::set(std::string_view param, std::string_view plainText) {
  call_.value(param) = parseValue(typeOf(param), plainText, TextForm::Plain);
}

Value& CallContext::appendRow(std::string_view param) {
  const TypeDesc& t = typeOf(param);
  auto& rows = call_.value(param).items();
  rows.push_back(initialValue(*t.row));
  return rows.back();
}

void CallContext::setReturn(const AbapMessage& m) {
  Value& r = call_.value("RETURN");
  const TypeDesc& t = typeOf("RETURN");
  auto set = [&](const char* field, const std::string& text) {
    r[field] = parseValue(*t.components[static_cast<size_t>(t.find(field))].type, text, TextForm::Plain);
  };
  set("TYPE", m.type);
  set("ID", m.id);
  set("NUMBER", m.number);
  set("MESSAGE", m.text);
  set("MESSAGE_V1", m.vars[0]);
  set("MESSAGE_V2", m.vars[1]);
  set("MESSAGE_V3", m.vars[2]);
  set("MESSAGE_V4", m.vars[3]);
  set("SYSTEM", system_.info().sysid + "CLNT" + logon().client);
}

void CallContext::raise(const std::string& exception) {
  if (!call_.function().declares(exception))
    throw SystemFailure("RAISE_EXCEPTION", "Exception condition \"" + exception + "\" raised.");
  throw AbapException(exception);
}

void CallContext::raise(const std::string& exception, AbapMessage message) {
  if (!call_.function().declares(exception))
    throw SystemFailure("RAISE_EXCEPTION", "Exception condition \"" + exception + "\" raised.");
  throw AbapException(exception, std::move(message));
}

void FunctionRegistry::add(FunctionModule fm) {
  auto p = std::make_shared<const FunctionModule>(std::move(fm));
  std::lock_guard lock(mutex_);
  functions_[p->name] = p;
}

FunctionPtr FunctionRegistry::find(std::string_view name) const {
  std::lock_guard lock(mutex_);
  auto it = functions_.find(name);
  return it == functions_.end() ? nullptr : it->second;
}

std::vector<std::string> FunctionRegistry::names() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const auto& [n, f] : functions_) out.push_back(n);
  return out;
}

}  // namespace vsim
