// Internal tables of our classic RFC SDK: rows of a fixed length in one block, counted from 1 at
// the interface. A row pointer stays valid until the table changes (rows added, inserted,
// deleted, or the table freed).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace rfcsdk {

class InternalTable {
 public:
  InternalTable(std::u16string name, unsigned rowLength, unsigned occurs)
      : name_(std::move(name)), rowLength_(rowLength), occurs_(occurs) {}

  unsigned rowLength() const { return rowLength_; }
  unsigned fill() const { return static_cast<unsigned>(rows_); }
  const std::u16string& name() const { return name_; }

  // A zero-filled row at the end, or before row `line` (1-based; fill()+1 appends).
  unsigned char* append();
  unsigned char* insert(unsigned line);
  // Row `line`, or null.
  unsigned char* row(unsigned line);
  // Removes row `line`: false when there is none.
  bool remove(unsigned line);
  // Empties the table; it stays usable.
  void clear();
  // Makes room for `rows` more rows at once.
  void reserve(size_t rows);

 private:
  unsigned char* rowAt(size_t index) { return data_.data() + index * rowLength_; }

  std::u16string name_;
  unsigned rowLength_;
  unsigned occurs_;
  size_t rows_ = 0;
  std::vector<unsigned char> data_;
};

}  // namespace rfcsdk
