// Handles of our NW RFC SDK. Every object behind a handle registers itself while it lives, so a
// null, stale or foreign handle is recognised and refused with RFC_INVALID_HANDLE, never used.
#pragma once

#include <cstdint>
#include <memory>

#include "nwrfc_sdk/errors.h"

namespace nwrfc {

enum class ObjectKind : std::uint8_t { Connection, FunctionDesc, TypeDesc, Function, Structure, Table, Transaction };

class Object {
 public:
  explicit Object(ObjectKind kind);
  virtual ~Object();
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  ObjectKind objectKind() const { return kind_; }

 private:
  ObjectKind kind_;
};

// Objects that the application owns through a handle until it destroys it (connections,
// functions, descriptions it created...). Owning keeps them alive; disowning destroys them.
template <class T>
T* own(std::unique_ptr<T> object);
// Destroys an owned object; false when `object` is not owned (a part of another object).
bool disown(const Object* object);
void ownObject(std::unique_ptr<Object> object);

// The live object behind a handle, or null.
Object* liveObject(const void* handle);

// The object of one of the kinds; throws RFC_INVALID_HANDLE naming the handle type otherwise.
template <class T>
T& resolve(const void* handle, const char* handleType) {
  Object* o = liveObject(handle);
  if (o && T::accepts(o->objectKind())) return static_cast<T&>(*o);
  fail(RFC_INVALID_HANDLE, std::string("An invalid handle '") + handleType + "' was passed to the API call");
}

template <class T>
T* own(std::unique_ptr<T> object) {
  T* raw = object.get();
  ownObject(std::unique_ptr<Object>(std::move(object)));
  return raw;
}

}  // namespace nwrfc
