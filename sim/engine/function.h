// Function modules: interfaces, the values of one call, and the failures a call ends in.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "engine/types.h"

namespace vsim {

class System;

enum class Direction { Importing, Exporting, Changing, Tables };
char paramClass(Direction d);  // I, E, C, T

struct Parameter {
  std::string name;
  Direction direction = Direction::Importing;
  std::string typeRef;  // as declared: a dictionary name, TABLE-FIELD or a built-in type
  TypePtr type;         // for Tables: the table type built over the row type
  bool optional = false;
  std::string defaultValue;  // as written in the interface: SPACE, 'X', 0, SY-LANGU, ...
  std::string text;
};

struct ExceptionDef {
  std::string name;
  std::string text;
};

// A message as MESSAGE ... RAISING carries it.
struct AbapMessage {
  std::string id;      // message class
  std::string type;    // E, A, W, I, S, X
  std::string number;  // three digits
  std::string text;
  std::array<std::string, 4> vars;
};

// A message text with its placeholders filled: &1 to &4, and each plain & in turn.
std::string messageText(const std::string& pattern, const std::array<std::string, 4>& vars);

// A classic exception raised by the function module (RAISE or MESSAGE ... RAISING).
class AbapException : public std::runtime_error {
 public:
  explicit AbapException(std::string name, std::optional<AbapMessage> message = std::nullopt)
      : std::runtime_error(name), name_(std::move(name)), message_(std::move(message)) {}
  const std::string& name() const { return name_; }
  const std::optional<AbapMessage>& message() const { return message_; }

 private:
  std::string name_;
  std::optional<AbapMessage> message_;
};

// A failure outside the interface: unknown module, missing authorization, runtime error,
// an error message without RAISING (which keeps the message), a value that does not convert.
class SystemFailure : public std::runtime_error {
 public:
  SystemFailure(std::string key, std::string message, std::optional<AbapMessage> abapMessage = std::nullopt)
      : std::runtime_error(message),
        key_(std::move(key)),
        message_(std::move(message)),
        abapMessage_(std::move(abapMessage)) {}
  const std::string& key() const { return key_; }
  const std::string& message() const { return message_; }
  const std::optional<AbapMessage>& abapMessage() const { return abapMessage_; }

 private:
  std::string key_;
  std::string message_;
  std::optional<AbapMessage> abapMessage_;
};

struct Logon {
  std::string client;    // three digits
  std::string user;      // upper case
  std::string language;  // one-letter SAP language key
};

// An ABAP session: what a stateful front keeps between calls.
class Session {
 public:
  explicit Session(Logon logon) : logon_(std::move(logon)) {}
  const Logon& logon() const { return logon_; }
  std::map<std::string, std::string>& memory() { return memory_; }

  // The logical unit of work: changes registered as CALL FUNCTION ... IN
  // UPDATE TASK does. COMMIT WORK makes them in order and returns how many;
  // ROLLBACK WORK, and the end of the session, drop them.
  void registerUpdate(std::function<void()> update) { updates_.push_back(std::move(update)); }
  size_t commitWork();
  void rollbackWork() { updates_.clear(); }

 private:
  Logon logon_;
  std::map<std::string, std::string> memory_;
  std::vector<std::function<void()>> updates_;
};

class CallContext;
using Handler = std::function<void(CallContext&)>;

struct FunctionModule {
  std::string name;
  std::string group;
  std::string text;
  std::vector<Parameter> params;
  std::vector<ExceptionDef> exceptions;
  Handler handler;

  int find(std::string_view param) const;
  bool declares(std::string_view exception) const;
};
using FunctionPtr = std::shared_ptr<const FunctionModule>;

// The values of one call: one per parameter of the interface.
class Call {
 public:
  explicit Call(FunctionPtr function);
  const FunctionModule& function() const { return *function_; }
  const FunctionPtr& functionPtr() const { return function_; }

  int find(std::string_view param) const { return function_->find(param); }
  Value& value(size_t i) { return values_.at(i); }
  const Value& value(size_t i) const { return values_.at(i); }
  Value& value(std::string_view param);
  const Value& value(std::string_view param) const;
  // Marks a parameter as passed by the caller (importing, changing or tables).
  void supply(size_t i, Value v);
  bool supplied(size_t i) const { return supplied_.at(i) != 0; }

 private:
  FunctionPtr function_;
  std::vector<Value> values_;
  std::vector<char> supplied_;
};

// What a function module's implementation sees while it runs.
class CallContext {
 public:
  CallContext(System& system, Session& session, Call& call) : system_(system), session_(session), call_(call) {}
  System& system() { return system_; }
  Session& session() { return session_; }
  const Logon& logon() const { return session_.logon(); }
  Call& call() { return call_; }

  Value& operator[](std::string_view param) { return call_.value(param); }
  const TypeDesc& typeOf(std::string_view param) const;
  bool supplied(std::string_view param) const;
  std::string text(std::string_view param) const;  // a scalar parameter's plain text
  std::int64_t integer(std::string_view param) const;
  void set(std::string_view param, std::string_view plainText);  // scalar from plain text
  Value::List& rows(std::string_view param) { return call_.value(param).items(); }
  // A new row of a table parameter, initial and bound to its row type.
  Value& appendRow(std::string_view param);

  // A BAPI's RETURN parameter (BAPIRET2) from a message.
  void setReturn(const AbapMessage& message);

  [[noreturn]] void raise(const std::string& exception);
  [[noreturn]] void raise(const std::string& exception, AbapMessage message);

 private:
  System& system_;
  Session& session_;
  Call& call_;
};

class FunctionRegistry {
 public:
  void add(FunctionModule fm);  // replaces a module of the same name
  FunctionPtr find(std::string_view name) const;
  std::vector<std::string> names() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, FunctionPtr, std::less<>> functions_;
};

}  // namespace vsim
