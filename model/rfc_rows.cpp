#include "model/rfc_rows.h"
#include "platform/property.h"

#include "model/model_errors.h"
#include "model/rfc_field.h"
#include "model/rfc_fields.h"
#include "model/type_access.h"

#include <algorithm>
#include <memory>

HRESULT CRfcRows::get_FileMode(VARIANT_BOOL* pVal) { return GetProperty(m_fileMode, pVal); }

HRESULT CRfcRows::get_DataCol(SHORT* pVal) { return GetProperty(m_dataCol, pVal); }

HRESULT CRfcRows::get_IndexCol(SHORT* pVal) { return GetProperty(m_indexCol, pVal); }

HRESULT CRfcRows::get_RfcType(IRfcType** pVal) { return GetProperty(m_rowType, pVal); }

HRESULT CRfcRows::put_RfcType(IRfcType* type) {
  if (!type) return E_POINTER;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = TypeKind(type, &kind);
  if (FAILED(hr)) return hr;
  if (kind != RFCTYPEKIND_TABLE) return ModelError(CLSID_RfcRows, Text::NotATable);
  CComPtr<IRfcType> rowType;
  hr = type->get_RowType(&rowType);
  if (FAILED(hr)) return hr;
  m_rowType = std::move(rowType);
  return S_OK;
}

HRESULT CRfcRows::NewRow(CComPtr<CRfcFields>& row) {
  // Shaping a field with no type at all.
  if (!m_rowType) return E_POINTER;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = TypeKind(m_rowType, &kind);
  if (FAILED(hr)) return hr;
  CRfcField::ShapePath path;
  if (kind == RFCTYPEKIND_STRUCT) return CRfcField::BuildStructFields(m_rowType, path, row, &m_rowIndex);

  // Any other row type: shape a field as usual and let it tell why it has
  // no members.
  CComPtr<CRfcField> field;
  hr = CRfcField::CreateForShaping(&field.p);
  if (FAILED(hr)) return hr;
  hr = field->Shape(m_rowType, path);
  if (FAILED(hr)) return hr;
  CComPtr<IRfcFields> fields;
  hr = field->get_Fields(&fields);
  if (FAILED(hr)) return hr;
  row = ModelImpl<CRfcFields>(fields);
  return row ? S_OK : E_UNEXPECTED;
}

HRESULT CRfcRows::AddRow(IRfcFields** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  CComPtr<CRfcFields> row;
  HRESULT hr = NewRow(row);
  if (FAILED(hr)) return hr;
  CollAppendTyped(row);
  *pVal = row.Detach();
  return S_OK;
}

HRESULT CRfcRows::AppendPlannedRows(LONG count, std::vector<CRfcField*>* cells, bool* planned) {
  *planned = false;
  if (!m_rowType) return E_POINTER;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = TypeKind(m_rowType, &kind);
  if (FAILED(hr)) return hr;
  if (kind != RFCTYPEKIND_STRUCT) return S_OK;
  CRfcField::RowPlan plan;
  bool usable = false;
  hr = CRfcField::BuildRowPlan(m_rowType, plan, &usable);
  if (FAILED(hr) || !usable) return hr;
  *planned = true;

  // The map of the member names, shared with the rows built before when
  // their names are the same.
  const size_t width = plan.members.size();
  bool sameKeys = m_rowIndex.index && m_rowIndex.keys.size() == width;
  for (size_t i = 0; i < width && sameKeys; ++i) sameKeys = m_rowIndex.keys[i] == plan.members[i].name;
  if (!sameKeys) {
    std::vector<std::u16string> keys;
    keys.reserve(width);
    CollectionIndex index;
    for (size_t i = 0; i < width; ++i) {
      keys.emplace_back(plan.members[i].name);
      index.insert_or_assign(keys.back(), i);
    }
    m_rowIndex.index = std::make_shared<const CollectionIndex>(std::move(index));
    m_rowIndex.keys = std::move(keys);
  }

  // Grown geometrically: a reader may append its rows in many small lots.
  const size_t needed = m_items.size() + static_cast<size_t>(count);
  if (needed > m_items.capacity()) m_items.reserve(std::max(needed, 2 * m_items.capacity()));
  if (cells) cells->reserve(cells->size() + static_cast<size_t>(count) * width);
  for (LONG r = 0; r < count; ++r) {
    CComPtr<CRfcFields> row;
    hr = CRfcField::BuildRow(plan, m_rowIndex.index, row, cells);
    if (FAILED(hr)) return hr;
    CollAppendOwned(row.Detach());
  }
  return S_OK;
}

HRESULT CRfcRows::AddRows(LONG Count) {
  if (Count < 1) return E_INVALIDARG;
  bool planned = false;
  HRESULT hr = AppendPlannedRows(Count, nullptr, &planned);
  if (planned || FAILED(hr)) return hr;
  m_items.reserve(m_items.size() + static_cast<size_t>(Count));
  for (LONG i = 0; i < Count; ++i) {
    CComPtr<CRfcFields> row;
    HRESULT hr = NewRow(row);
    if (FAILED(hr)) return hr;
    CollAppendTyped(row);
  }
  return S_OK;
}

HRESULT CRfcRows::SetFileMode(SHORT DataCol, SHORT IndexCol) {
  if (!m_rowType) return ModelError(CLSID_RfcRows, Text::NotInitialized);
  if (m_fileMode) return ModelError(CLSID_RfcRows, Text::AlreadyInitialized);
  if (DataCol < 1) return E_INVALIDARG;
  TypeMembers members;
  HRESULT hr = members.Open(m_rowType);
  if (FAILED(hr)) return hr;
  if (DataCol > members.Count()) return E_INVALIDARG;
  if (IndexCol >= 1 && IndexCol > members.Count()) return E_INVALIDARG;
  m_fileMode = VARIANT_TRUE;
  m_dataCol = DataCol;
  m_indexCol = IndexCol;
  return S_OK;
}

HRESULT CRfcRows::RemoveAll() {
  CollRemoveAll();
  return S_OK;
}
