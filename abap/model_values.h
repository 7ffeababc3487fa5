// What a back end's converter reads of the object model on the way to an SDK,
// without copies: the fields of a row by position and the value a field
// holds. The model's own objects are read in place; any other
// implementation through its interfaces, with a copy. The one place that
// knows the model's classes, so that a read interface of the model's would
// replace only this.
#pragma once

#include "platform/atlbase.h"
#include "platform/oaidl.h"
#include "veltrane_tlb.h"

class CRfcFields;
class CRfcRows;
class RowStore;

namespace veltrane::abap {

// The fields of one row or structure.
class RowFields {
 public:
  // fields must outlive this object.
  explicit RowFields(IRfcFields* fields);
  LONG Count() const { return m_count; }
  // The field at a 1-based position, without a reference of its own; a
  // failed read of the interface leaves hr set and gives null.
  IRfcField* At(LONG position, HRESULT* hr);

 private:
  IRfcFields* m_fields;
  CRfcFields* m_own;
  LONG m_count = 0;
  CComPtr<IRfcField> m_held;  // the last field read through the interface
};

// A table's rows in place: a row still in the rows' store gives its cells
// without its objects being made.
class StoredRows {
 public:
  // rows must outlive this object.
  explicit StoredRows(IRfcRows* rows);
  // Finds the row at a 1-based position; false for a row made into objects
  // and for rows of another implementation (read them through the
  // interfaces).
  bool Find(LONG position);
  // The cells of the row found last.
  size_t Width() const;
  // A cell, borrowed: valid while the rows stay as they are; never cleared.
  const VARIANT& Cell(size_t column);

 private:
  CRfcRows* m_own;
  const RowStore* m_store = nullptr;
  size_t m_row = 0;
  VARIANT m_view{};
};

// The value a field holds, as the field stands.
class FieldValue {
 public:
  HRESULT Read(IRfcField* field);
  const VARIANT& Get() const { return *m_value; }

 private:
  const VARIANT* m_value = &m_copy;
  CComVariant m_copy;
};

}  // namespace veltrane::abap
