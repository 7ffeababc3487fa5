#include "abap/model_values.h"

#include "model/model_object.h"
#include "model/rfc_field.h"
#include "model/rfc_fields.h"
#include "model/rfc_rows.h"
#include "model/row_store.h"

namespace veltrane::abap {

RowFields::RowFields(IRfcFields* fields) : m_fields(fields), m_own(ModelImpl<CRfcFields>(fields)) {
  if (m_own)
    m_count = m_own->CollCount();
  else if (FAILED(fields->get_Count(&m_count)))
    m_count = 0;
}

IRfcField* RowFields::At(LONG position, HRESULT* hr) {
  *hr = S_OK;
  if (m_own) return m_own->CollAt(static_cast<size_t>(position - 1));
  m_held.Release();
  *hr = m_fields->get_Item(CComVariant(position), &m_held);
  return m_held;
}

StoredRows::StoredRows(IRfcRows* rows) : m_own(ModelImpl<CRfcRows>(rows)) {}

bool StoredRows::Find(LONG position) {
  m_store = nullptr;
  if (!m_own || position < 1 || position > m_own->CollCount()) return false;
  m_store = m_own->StoredRow(static_cast<size_t>(position - 1), &m_row);
  return m_store != nullptr;
}

size_t StoredRows::Width() const { return m_store ? m_store->Width() : 0; }

const VARIANT& StoredRows::Cell(size_t column) {
  m_store->View(m_row, column, &m_view);
  return m_view;
}

HRESULT FieldValue::Read(IRfcField* field) {
  if (CRfcField* own = ModelImpl<CRfcField>(field)) {
    m_value = &own->Value();
    return S_OK;
  }
  m_value = &m_copy;
  m_copy.Clear();
  return field->get_value(&m_copy);
}

}  // namespace veltrane::abap
