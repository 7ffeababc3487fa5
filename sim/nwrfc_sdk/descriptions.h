// Function and type descriptions, and the memory layout that containers built from them use:
// every field at its two-byte-layout offset, with texts, strings and tables of the field kept in
// the container's store and an eight-byte reference in the record.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "nwrfc_sdk/handles.h"

namespace nwrfc {

class TypeDescription;
using TypePtr = std::shared_ptr<TypeDescription>;

// One field of a structure or one parameter of a function, as containers use it.
struct Slot {
  std::u16string name;
  std::string utf8Name;
  RFCTYPE type = RFCTYPE_CHAR;
  unsigned offset = 0;  // bytes in the record
  unsigned length = 0;  // bytes in the record
  unsigned decimals = 0;
  unsigned chars = 0;  // characters of CHAR, NUM, DATE, TIME; bytes of BYTE and BCD
  TypePtr sub;         // STRUCTURE and TABLE: the structure or row type
  RFC_DIRECTION direction = RFC_IMPORT;
};

// Whether a value of the type lives in the store (the record holds its reference).
bool storedAside(RFCTYPE type);
// The types this library handles (and sends, with their RFCTYPE number as the wire type).
bool supported(RFCTYPE type);

struct Layout {
  std::vector<Slot> slots;
  unsigned size = 0;
  std::vector<unsigned char> initial;  // the record with every field initial
  // Offsets (nested structures flattened) of fields that live in the store, with their types.
  struct Aside {
    unsigned offset;
    RFCTYPE type;
    const TypeDescription* rowType;  // TABLE
  };
  std::vector<Aside> aside;
  std::map<std::u16string, unsigned, std::less<>> index;

  // The slot of a name (exact, then ignoring case), or -1.
  int find(std::u16string_view name) const;
  void finish();  // builds the initial record, the aside list and the index
};

class TypeDescription : public Object, public std::enable_shared_from_this<TypeDescription> {
 public:
  static bool accepts(ObjectKind k) { return k == ObjectKind::TypeDesc; }
  explicit TypeDescription(std::u16string name) : Object(ObjectKind::TypeDesc), name_(std::move(name)) {}

  const std::u16string& name() const { return name_; }
  void addField(const RFC_FIELD_DESC& field);  // refused once in use
  void setLength(unsigned nucLength, unsigned ucLength);
  unsigned nucLength() const { return nucLength_; }
  unsigned ucLength() const { return ucLength_; }
  size_t fieldCount() const { return fields_.size(); }
  const RFC_FIELD_DESC& field(size_t i) const { return fields_.at(i); }
  int findField(std::u16string_view name) const;
  // The layout; the first call fixes the description (no more fields or length changes).
  const Layout& layout();
  bool inUse() const { return locked_; }

 private:
  std::u16string name_;
  std::vector<RFC_FIELD_DESC> fields_;
  std::vector<TypePtr> subtypes_;  // keeps nested descriptions alive
  unsigned nucLength_ = 0, ucLength_ = 0;
  bool lengthSet_ = false;
  std::mutex mutex_;
  std::atomic<bool> locked_{false};
  Layout layout_;
};

class FunctionDescription : public Object, public std::enable_shared_from_this<FunctionDescription> {
 public:
  static bool accepts(ObjectKind k) { return k == ObjectKind::FunctionDesc; }
  explicit FunctionDescription(std::u16string name) : Object(ObjectKind::FunctionDesc), name_(std::move(name)) {}

  const std::u16string& name() const { return name_; }
  void addParameter(const RFC_PARAMETER_DESC& p);
  void addException(const RFC_EXCEPTION_DESC& e);
  size_t parameterCount() const { return params_.size(); }
  const RFC_PARAMETER_DESC& parameter(size_t i) const { return params_.at(i); }
  int findParameter(std::u16string_view name) const;
  size_t exceptionCount() const { return exceptions_.size(); }
  const RFC_EXCEPTION_DESC& exception(size_t i) const { return exceptions_.at(i); }
  int findException(std::u16string_view key) const;
  // Parameters as slots of one record; the first call fixes the description.
  const Layout& layout();
  bool inUse() const { return locked_; }

 private:
  std::u16string name_;
  std::vector<RFC_PARAMETER_DESC> params_;
  std::vector<TypePtr> subtypes_;
  std::vector<RFC_EXCEPTION_DESC> exceptions_;
  std::mutex mutex_;
  std::atomic<bool> locked_{false};
  Layout layout_;
};
using FunctionPtr = std::shared_ptr<FunctionDescription>;

// Shared ownership of a description from its handle; throws RFC_INVALID_HANDLE.
TypePtr typeOf(RFC_TYPE_DESC_HANDLE handle);
FunctionPtr functionOf(RFC_FUNCTION_DESC_HANDLE handle);
inline RFC_TYPE_DESC_HANDLE handleOf(TypeDescription* t) {
  return reinterpret_cast<RFC_TYPE_DESC_HANDLE>(static_cast<Object*>(t));
}
inline RFC_FUNCTION_DESC_HANDLE handleOf(FunctionDescription* f) {
  return reinterpret_cast<RFC_FUNCTION_DESC_HANDLE>(static_cast<Object*>(f));
}

// Descriptions the application created and has not destroyed; and the repositories of
// descriptions read from systems, by system ID.
class Descriptions {
 public:
  TypePtr createType(std::u16string name);
  FunctionPtr createFunction(std::u16string name);
  void destroy(RFC_TYPE_DESC_HANDLE h);
  void destroy(RFC_FUNCTION_DESC_HANDLE h);

  FunctionPtr cachedFunction(const std::u16string& sysId, std::u16string_view name);
  TypePtr cachedType(const std::u16string& sysId, std::u16string_view name);
  void cache(const std::u16string& sysId, FunctionPtr f);
  void cache(const std::u16string& sysId, TypePtr t);
  void clear(const std::u16string* sysId);  // null: every repository

 private:
  std::mutex mutex_;
  std::vector<std::shared_ptr<Object>> owned_;
  std::map<std::u16string, std::map<std::u16string, FunctionPtr, std::less<>>> functions_;
  std::map<std::u16string, std::map<std::u16string, TypePtr, std::less<>>> types_;
};
Descriptions& descriptions();

}  // namespace nwrfc
