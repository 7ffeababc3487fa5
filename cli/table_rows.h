// The values of read-table's rows: one set of rows of a page (the reader's
// rows for one group of fields), a row at a time, into the places of the
// group's fields in the field list.
#pragma once

#include <string>
#include <vector>

#include <veltrane.h>

#include "table_plan.h"

namespace veltrane::cli {

class RowValues {
 public:
  // The rows and the group's fields (positions in layout); the arguments
  // must outlive the object.
  RowValues(IRfcRows* rows, const std::vector<FieldLayout>& layout, const std::vector<size_t>& group,
            const std::string& table);

  // Writes the values of row r (1-based) to values at the group's places.
  // They are borrowed from the rows' cells where the rows hand them out in
  // place (IRfcRowCells); otherwise they are read through the fields'
  // interfaces and kept in held, at the same places. Each field is found by
  // name in the first row read, the last member of a name as a lookup by name
  // finds it; a field the rows lack is an error.
  void read(LONG r, std::vector<VARIANT>& values, std::vector<CComVariant>& held);

 private:
  bool readCells(LONG r, std::vector<VARIANT>& values);
  std::vector<LONG> positionsThrough(IRfcFields* row);

  IRfcRows* rows_;
  const std::vector<FieldLayout>& layout_;
  const std::vector<size_t>& group_;
  const std::string& table_;
  CComPtr<IRfcRowCells> cells_;
  std::vector<RfcCell> buffer_;
  std::vector<LONG> positions_;
};

}  // namespace veltrane::cli
