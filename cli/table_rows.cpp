#include "table_rows.h"

#include <stdexcept>

#include "failure.h"
#include "text.h"

namespace veltrane::cli {

namespace {

// The position in the rows of each field of a group, by the names of the
// members of the first row; the last member of a name, as the lookup by name
// finds it.
template <class NameAt>
std::vector<LONG> positionsOf(LONG count, NameAt nameAt, const std::vector<FieldLayout>& layout,
                              const std::vector<size_t>& group, const std::string& table) {
  std::vector<std::string> names;
  for (LONG p = 1; p <= count; ++p) names.push_back(nameAt(p));
  std::vector<LONG> positions;
  for (size_t i : group) {
    LONG at = 0;
    for (LONG p = count; p >= 1 && at == 0; --p)
      if (names[static_cast<size_t>(p - 1)] == layout[i].name) at = p;
    if (at == 0) throw std::runtime_error("the rows of " + table + " lack the field " + layout[i].name);
    positions.push_back(at);
  }
  return positions;
}

}  // namespace

RowValues::RowValues(IRfcRows* rows, const std::vector<FieldLayout>& layout, const std::vector<size_t>& group,
                     const std::string& table)
    : rows_(rows), layout_(layout), group_(group), table_(table), buffer_(16) {
  rows->QueryInterface(IID_IRfcRowCells, reinterpret_cast<void**>(&cells_));
}

void RowValues::read(LONG r, std::vector<VARIANT>& values, std::vector<CComVariant>& held) {
  if (cells_ && readCells(r, values)) return;
  CComPtr<IRfcFields> row;
  check(rows_->get_Item(r, &row), "reading a row");
  if (positions_.empty()) positions_ = positionsThrough(row);
  for (size_t k = 0; k < group_.size(); ++k) {
    CComPtr<IRfcField> f;
    check(row->get_Item(CComVariant(positions_[k]), &f), "reading a field");
    CComVariant& value = held[group_[k]];
    value.Clear();
    check(f->get_value(&value), "reading the value of " + layout_[group_[k]].name);
    values[group_[k]] = value;
  }
}

bool RowValues::readCells(LONG r, std::vector<VARIANT>& values) {
  LONG width = 0;
  HRESULT hr = cells_->GetRowCells(r, buffer_.data(), static_cast<LONG>(buffer_.size()), &width);
  if (hr == E_NOINTERFACE) return false;
  check(hr, "reading a row");
  if (static_cast<size_t>(width) > buffer_.size()) {
    buffer_.resize(static_cast<size_t>(width));
    check(cells_->GetRowCells(r, buffer_.data(), width, &width), "reading a row");
  }
  if (positions_.empty()) {
    positions_ = positionsOf(
        width,
        [&](LONG p) {
          const char16_t* name = nullptr;
          UINT length = 0;
          check(cells_->GetCellName(r, p, &name, &length), "reading the name of a field");
          return toUtf8(std::u16string_view(name, length));
        },
        layout_, group_, table_);
  }
  for (size_t k = 0; k < group_.size(); ++k) {
    if (positions_[k] > width)
      throw std::runtime_error("the rows of " + table_ + " lack the field " + layout_[group_[k]].name);
    values[group_[k]] = buffer_[static_cast<size_t>(positions_[k] - 1)].value;
  }
  return true;
}

std::vector<LONG> RowValues::positionsThrough(IRfcFields* row) {
  LONG count = 0;
  check(row->get_Count(&count), "counting fields");
  return positionsOf(
      count,
      [&](LONG p) {
        CComPtr<IRfcField> f;
        check(row->get_Item(CComVariant(p), &f), "reading a field");
        CComBSTR name;
        check(f->get_name(&name), "reading the name of a field");
        return utf8(name);
      },
      layout_, group_, table_);
}

}  // namespace veltrane::cli
