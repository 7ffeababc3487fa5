#include "abap/model_values.h"

#include "model/model_object.h"
#include "model/rfc_field.h"
#include "model/rfc_fields.h"

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
