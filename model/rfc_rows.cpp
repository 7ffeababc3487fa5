#include "model/rfc_rows.h"
#include "platform/property.h"

#include "model/model_errors.h"
#include "model/rfc_field.h"
#include "model/rfc_fields.h"
#include "model/type_access.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "platform/enum_variant.h"

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

HRESULT CRfcRows::get_Item(LONG inIndex, IRfcFields** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  if (inIndex < 1 || inIndex > CollCount()) return E_INVALIDARG;
  IRfcFields* row = nullptr;
  HRESULT hr = RowAt(static_cast<size_t>(inIndex - 1), &row);
  if (FAILED(hr)) return hr;
  row->AddRef();
  *pVal = row;
  return S_OK;
}

namespace {

// Enumerates the rows as they stand at each step, making stored rows into
// objects as it reaches them.
class RowsEnumSource : public CEnumVariantBase::Source {
 public:
  explicit RowsEnumSource(CRfcRows* rows) : m_rows(rows) {}
  ULONG count() override { return static_cast<ULONG>(m_rows->CollCount()); }
  HRESULT item(ULONG i, VARIANT* out) override {
    IRfcFields* row = nullptr;
    HRESULT hr = m_rows->RowAt(i, &row);
    if (FAILED(hr)) return hr;
    out->vt = VT_DISPATCH;
    out->pdispVal = row;
    row->AddRef();
    return S_OK;
  }

 private:
  CRfcRows* m_rows;  // kept alive by the enumerator
};

}  // namespace

HRESULT CRfcRows::get__NewEnum(IUnknown** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  auto source = std::make_shared<RowsEnumSource>(this);
  return CEnumVariantBase::Create(std::move(source), GetUnknown(), pVal);
}

HRESULT CRfcRows::RowAt(size_t zeroBased, IRfcFields** row) {
  HRESULT hr = Materialize(zeroBased);
  if (FAILED(hr)) return hr;
  *row = m_items[zeroBased].p;
  return *row ? S_OK : E_UNEXPECTED;
}

const RowStore* CRfcRows::StoredRow(size_t zeroBased, size_t* storeRow) const {
  if (m_storeRow.empty() || m_storeRow[zeroBased] == kNotStored) return nullptr;
  *storeRow = m_storeRow[zeroBased];
  return m_store.get();
}

HRESULT CRfcRows::Materialize(size_t zeroBased) {
  if (m_storeRow.empty() || m_storeRow[zeroBased] == kNotStored) return S_OK;
  const size_t storeRow = m_storeRow[zeroBased];
  // Shaped as the row would have been shaped when it was appended.
  std::vector<CRfcField*> cells;
  CComPtr<CRfcFields> row;
  try {
    cells.reserve(m_store->Width());
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  HRESULT hr = CRfcField::BuildRow(m_store->Plan(), m_store->Index(), row, &cells);
  if (FAILED(hr)) return hr;
  for (size_t c = 0; c < cells.size(); ++c) {
    VARIANT value;
    if (FAILED(hr = m_store->Copy(storeRow, c, &value))) return hr;
    if (FAILED(hr = cells[c]->AttachValue(&value))) {
      VariantClear(&value);
      return hr;
    }
  }
  m_items[zeroBased] = std::move(row);
  m_storeRow[zeroBased] = kNotStored;
  m_store->Drop(storeRow);
  if (m_store->LiveRows() == 0) std::vector<std::uint32_t>().swap(m_storeRow);
  return S_OK;
}

void CRfcRows::PushItem(IRfcFields* owned) {
  if (!m_storeRow.empty()) m_storeRow.push_back(kNotStored);
  CollAppendOwned(owned);
}

HRESULT CRfcRows::Add(IRfcFields* row) {
  if (!m_storeRow.empty()) m_storeRow.reserve(m_storeRow.size() + 1);
  HRESULT hr = CollAppend(row);
  if (SUCCEEDED(hr) && !m_storeRow.empty()) m_storeRow.push_back(kNotStored);
  return hr;
}

HRESULT CRfcRows::Remove(LONG position) {
  if (position < 1 || position > CollCount()) return E_INVALIDARG;
  const auto at = static_cast<size_t>(position - 1);
  if (!m_storeRow.empty()) {
    const std::uint32_t storeRow = m_storeRow[at];
    m_storeRow.erase(m_storeRow.begin() + static_cast<std::ptrdiff_t>(at));
    if (storeRow != kNotStored) m_store->Drop(storeRow);
    if (m_store->LiveRows() == 0) std::vector<std::uint32_t>().swap(m_storeRow);
  }
  return CollRemoveAt(position);
}

HRESULT CRfcRows::AddRow(IRfcFields** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  CComPtr<CRfcFields> row;
  HRESULT hr = NewRow(row);
  if (FAILED(hr)) return hr;
  *pVal = row;
  PushItem(row.Detach());
  (*pVal)->AddRef();
  return S_OK;
}

HRESULT CRfcRows::ReadPlan(CRfcField::RowPlan& plan, bool* planned) {
  *planned = false;
  if (!m_rowType) return E_POINTER;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = TypeKind(m_rowType, &kind);
  if (FAILED(hr)) return hr;
  if (kind != RFCTYPEKIND_STRUCT) return S_OK;
  return CRfcField::BuildRowPlan(m_rowType, plan, planned);
}

void CRfcRows::ShareIndex(const CRfcField::RowPlan& plan) {
  // The map of the member names, shared with the rows built before when
  // their names are the same.
  const size_t width = plan.members.size();
  bool sameKeys = m_rowIndex.index && m_rowIndex.keys.size() == width;
  for (size_t i = 0; i < width && sameKeys; ++i) sameKeys = m_rowIndex.keys[i] == plan.members[i].name;
  if (sameKeys) return;
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

HRESULT CRfcRows::AppendPlannedRows(LONG count, std::vector<CRfcField*>* cells, bool* planned) {
  CRfcField::RowPlan plan;
  HRESULT hr = ReadPlan(plan, planned);
  if (FAILED(hr) || !*planned) return hr;
  ShareIndex(plan);

  // Grown geometrically: a reader may append its rows in many small lots.
  const size_t width = plan.members.size();
  const size_t needed = m_items.size() + static_cast<size_t>(count);
  if (needed > m_items.capacity()) m_items.reserve(std::max(needed, 2 * m_items.capacity()));
  if (!m_storeRow.empty() && needed > m_storeRow.capacity())
    m_storeRow.reserve(std::max(needed, 2 * m_storeRow.capacity()));
  if (cells) cells->reserve(cells->size() + static_cast<size_t>(count) * width);
  for (LONG r = 0; r < count; ++r) {
    CComPtr<CRfcFields> row;
    hr = CRfcField::BuildRow(plan, m_rowIndex.index, row, cells);
    if (FAILED(hr)) return hr;
    PushItem(row.Detach());
  }
  return S_OK;
}

HRESULT CRfcRows::AppendStoredRows(LONG count, RowStore** store, size_t* first, bool* stored) {
  *stored = false;
  CRfcField::RowPlan plan;
  HRESULT hr = ReadPlan(plan, stored);
  if (FAILED(hr) || !*stored) return hr;
  *stored = false;
  for (const CRfcField::RowPlan::Member& member : plan.members)
    if (member.kind != RFCTYPEKIND_SCALAR) return S_OK;
  ShareIndex(plan);
  try {
    if (!m_store) m_store = std::make_unique<RowStore>();
    if (!m_store->Serves(plan)) {
      // Rows of another shape wait in the store: they become objects first.
      for (size_t i = 0; i < m_storeRow.size(); ++i)
        if (FAILED(hr = Materialize(i))) return hr;
    }
    if (m_store->LiveRows() == 0 && FAILED(hr = m_store->Adopt(plan, m_rowIndex.index))) return hr;
    const size_t n = static_cast<size_t>(count);
    const size_t needed = m_items.size() + n;
    if (needed > m_items.capacity()) m_items.reserve(std::max(needed, 2 * m_items.capacity()));
    if (needed > m_storeRow.capacity()) m_storeRow.reserve(std::max(needed, 2 * m_storeRow.capacity()));
    const size_t start = m_store->AddRows(n);
    m_storeRow.resize(m_items.size(), kNotStored);
    for (size_t r = 0; r < n; ++r) m_storeRow.push_back(static_cast<std::uint32_t>(start + r));
    m_items.resize(needed);
    *store = m_store.get();
    *first = start;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  *stored = true;
  return S_OK;
}

HRESULT CRfcRows::AddRows(LONG Count) {
  if (Count < 1) return E_INVALIDARG;
  RowStore* store = nullptr;
  size_t first = 0;
  bool stored = false;
  HRESULT hr = AppendStoredRows(Count, &store, &first, &stored);
  if (stored || FAILED(hr)) return hr;
  bool planned = false;
  hr = AppendPlannedRows(Count, nullptr, &planned);
  if (planned || FAILED(hr)) return hr;
  m_items.reserve(m_items.size() + static_cast<size_t>(Count));
  for (LONG i = 0; i < Count; ++i) {
    CComPtr<CRfcFields> row;
    HRESULT hr = NewRow(row);
    if (FAILED(hr)) return hr;
    PushItem(row.Detach());
  }
  return S_OK;
}

HRESULT CRfcRows::GetRowCells(LONG row, RfcCell* cells, LONG capacity, LONG* width) {
  if (!width || (!cells && capacity > 0)) return E_POINTER;
  *width = 0;
  if (row < 1 || row > CollCount()) return E_INVALIDARG;
  const auto at = static_cast<size_t>(row - 1);
  const size_t room = capacity > 0 ? static_cast<size_t>(capacity) : 0;
  size_t storeRow = 0;
  if (const RowStore* store = StoredRow(at, &storeRow)) {
    store->ViewRow(storeRow, cells, std::min(room, store->Width()));
    *width = static_cast<LONG>(store->Width());
    return S_OK;
  }
  // A row made into objects: its members as the fields hold them.
  CRfcFields* fields = ModelImpl<CRfcFields>(m_items[at].p);
  if (!fields) return E_NOINTERFACE;
  const LONG count = fields->CollCount();
  for (LONG c = 0; c < count && static_cast<size_t>(c) < room; ++c) {
    CRfcField* field = ModelImpl<CRfcField>(fields->CollAt(static_cast<size_t>(c)));
    if (!field) return E_NOINTERFACE;
    RfcCell& out = cells[c];
    std::memcpy(static_cast<void*>(&out.value), &field->Value(), sizeof(VARIANT));
    out.text = nullptr;
    out.length = 0;
    if (out.value.vt == VT_BSTR) {
      out.text = out.value.bstrVal ? out.value.bstrVal : u"";
      out.length = SysStringLen(out.value.bstrVal);
    }
    out.type = TYPE_CHAR;
    ABAPTYPE type = TYPE_CHAR;
    if (field->TypePtr() && SUCCEEDED(TypeScalarType(field->TypePtr(), &type))) out.type = type;
  }
  *width = count;
  return S_OK;
}

HRESULT CRfcRows::GetCellName(LONG row, LONG column, const char16_t** name, UINT* length) {
  if (!name || !length) return E_POINTER;
  *name = nullptr;
  *length = 0;
  if (row < 1 || row > CollCount() || column < 1) return E_INVALIDARG;
  const auto at = static_cast<size_t>(row - 1);
  const auto c = static_cast<size_t>(column - 1);
  size_t storeRow = 0;
  if (const RowStore* store = StoredRow(at, &storeRow)) {
    if (c >= store->Width()) return E_INVALIDARG;
    const std::u16string& text = store->ColumnAt(c).name;
    *name = text.data();
    *length = static_cast<UINT>(text.size());
    return S_OK;
  }
  // A row made into objects: its members as the fields hold them.
  CRfcFields* fields = ModelImpl<CRfcFields>(m_items[at].p);
  if (!fields) return E_NOINTERFACE;
  if (c >= static_cast<size_t>(fields->CollCount())) return E_INVALIDARG;
  CRfcField* field = ModelImpl<CRfcField>(fields->CollAt(c));
  if (!field) return E_NOINTERFACE;
  *name = field->Name().data();
  *length = static_cast<UINT>(field->Name().size());
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
  std::vector<std::uint32_t>().swap(m_storeRow);
  if (m_store) m_store->Clear();
  CollRemoveAll();
  return S_OK;
}
