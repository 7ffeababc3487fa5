// Data containers: functions, structures, tables and their rows. A container reaches its values
// as a record (bytes laid out by a Layout) plus the store that holds strings, decimal floats, time
// stamps and nested tables. Tables keep all rows in one block, so reading or filling a table of
// many rows allocates per row at most (the handle of a row, when asked for), never per field.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "nwrfc_sdk/descriptions.h"

namespace nwrfc {

class TableContainer;

// Values kept aside of records: texts of STRING (UTF-16), bytes of XSTRING, the text of DECF16,
// DECF34 and UTCLONG (ASCII), tables.
class Store {
 public:
  using Item = std::variant<std::monostate, std::u16string, std::string, std::unique_ptr<TableContainer>>;
  Store();
  ~Store();
  // The item a record's reference points to; null for none (the initial value).
  Item* item(const unsigned char* ref);
  // Puts an item and writes its reference, replacing what the reference pointed to.
  Item& put(unsigned char* ref, Item value);
  void release(unsigned char* ref);
  void clear();

 private:
  std::vector<Item> items_;
  std::vector<std::uint32_t> free_;
};

struct Record {
  const Layout* layout;
  unsigned char* data;
  Store* store;
  const Slot& slot(unsigned i) const { return layout->slots[i]; }
  unsigned char* at(const Slot& s) const { return data + s.offset; }
};

class StructView;

class Container : public Object {
 public:
  static bool accepts(ObjectKind k) {
    return k == ObjectKind::Function || k == ObjectKind::Structure || k == ObjectKind::Table;
  }
  using Object::Object;
  ~Container() override;

  // The record the getters and setters work on (a table's current row).
  virtual Record record() = 0;
  // The slot of a field or parameter by name; RFC_INVALID_PARAMETER "field 'X' not found".
  unsigned slotOf(const SAP_UC* name);
  // Called before a value of the slot changes (a function tracks what the caller supplied).
  virtual void touch(unsigned slot);
  // The sub-container of a STRUCTURE or TABLE slot, made on first access and owned here.
  Container& structure(unsigned slot);
  TableContainer& table(unsigned slot);

 protected:
  char* touched_ = nullptr;  // the flag of the function parameter this container belongs to
  std::map<unsigned, std::unique_ptr<StructView>> views_;
  friend class StructView;
  friend class TableContainer;
};

class FunctionContainer : public Container {
 public:
  static bool accepts(ObjectKind k) { return k == ObjectKind::Function; }
  explicit FunctionContainer(FunctionPtr desc);
  Record record() override { return {layout_, data_.data(), &store_}; }
  void touch(unsigned slot) override { supplied_[slot] = 1; }
  const FunctionPtr& description() const { return desc_; }
  bool active(unsigned slot) const { return active_[slot] != 0; }
  void setActive(unsigned slot, bool on) { active_[slot] = on ? 1 : 0; }
  bool supplied(unsigned slot) const { return supplied_[slot] != 0; }
  char* suppliedFlag(unsigned slot) { return &supplied_[slot]; }
  // Forgets what the caller supplied (after a call, or for the next incoming call).
  void resetSupplied();

 private:
  FunctionPtr desc_;
  const Layout* layout_;
  std::vector<unsigned char> data_;
  Store store_;
  std::vector<char> active_, supplied_;
};

// A structure of its own (RfcCreateStructure).
class StructureContainer : public Container {
 public:
  static bool accepts(ObjectKind k) { return k == ObjectKind::Structure; }
  explicit StructureContainer(TypePtr type);
  Record record() override { return {layout_, data_.data(), &store_}; }
  const TypePtr& type() const { return type_; }

 private:
  TypePtr type_;
  const Layout* layout_;
  std::vector<unsigned char> data_;
  Store store_;
};

// A structure inside another container's record, or a table's row.
class StructView : public Container {
 public:
  static bool accepts(ObjectKind k) { return k == ObjectKind::Structure; }
  StructView(Container& parent, unsigned slot, TypePtr type, char* touched);
  StructView(TableContainer& table, size_t row, char* touched);
  Record record() override;
  const TypePtr& type() const { return type_; }

 private:
  Container* parent_ = nullptr;
  unsigned offset_ = 0;
  TableContainer* table_ = nullptr;
  size_t row_ = 0;
  TypePtr type_;
};

class TableContainer : public Container {
 public:
  static bool accepts(ObjectKind k) { return k == ObjectKind::Table; }
  TableContainer(TypePtr rowType, char* touched);
  ~TableContainer() override;
  // The current row; RFC_ILLEGAL_STATE without one.
  Record record() override;
  void touch(unsigned slot) override;

  const TypePtr& rowType() const { return rowType_; }
  const Layout& layout() const { return *layout_; }
  size_t rows() const { return count_; }
  Record row(size_t i) { return {layout_, data_.data() + i * rowSize_, &store_}; }
  // -1 before the first row (an empty table).
  long cursor() const { return cursor_; }
  void moveTo(long row) { cursor_ = row; }
  // The handle of a row, made on first access.
  StructView& rowView(size_t i);

  // Appends initial rows; returns the first new one.
  size_t append(size_t n);
  size_t insert(size_t at);
  void erase(size_t at);
  void clear();
  void reserve(size_t n) { data_.reserve(n * rowSize_); }
  // Replaces the content with a copy of another table of the same row layout.
  void assign(TableContainer& other);
  void markTouched() {
    if (touched_) *touched_ = 1;
  }

 private:
  void dropViews();
  TypePtr rowType_;
  const Layout* layout_;
  size_t rowSize_;
  std::vector<unsigned char> data_;
  size_t count_ = 0;
  long cursor_ = -1;
  Store store_;
  std::vector<std::unique_ptr<StructView>> rowViews_;
};

// Copies a record with its stored values into another of the same layout (the target's old
// stored values are released).
void copyRecord(const Layout& layout, const unsigned char* from, Store& fromStore, unsigned char* to, Store& toStore);
void releaseRecord(const Layout& layout, unsigned char* data, Store& store);
bool sameLayout(const Layout& a, const Layout& b);

template <class Handle>
Handle handleOf(Container* c) {
  return reinterpret_cast<Handle>(static_cast<Object*>(c));
}

}  // namespace nwrfc
