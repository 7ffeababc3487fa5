#include "rfc_sdk/itab.h"

#include <cstring>

namespace rfcsdk {

void InternalTable::reserve(size_t rows) { data_.reserve((rows_ + rows) * rowLength_); }

unsigned char* InternalTable::append() { return insert(fill() + 1); }

unsigned char* InternalTable::insert(unsigned line) {
  if (line < 1 || line > rows_ + 1) return nullptr;
  if (data_.capacity() == 0 && occurs_ > 0) reserve(occurs_);
  const size_t at = (line - 1) * static_cast<size_t>(rowLength_);
  data_.insert(data_.begin() + static_cast<std::ptrdiff_t>(at), rowLength_, 0);
  ++rows_;
  return rowAt(line - 1);
}

unsigned char* InternalTable::row(unsigned line) {
  if (line < 1 || line > rows_) return nullptr;
  return rowAt(line - 1);
}

bool InternalTable::remove(unsigned line) {
  if (line < 1 || line > rows_) return false;
  const auto at = data_.begin() + static_cast<std::ptrdiff_t>((line - 1) * static_cast<size_t>(rowLength_));
  data_.erase(at, at + rowLength_);
  --rows_;
  return true;
}

void InternalTable::clear() {
  data_.clear();
  rows_ = 0;
}

}  // namespace rfcsdk
