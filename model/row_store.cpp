#include "model/row_store.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "model/model_object.h"
#include "model/rfc_type.h"
#include "platform/oleauto.h"
#include "platform/unicode.h"

namespace {

enum CellKind : std::uint16_t { kScalar = 0, kText = 1, kBoxed = 2 };

// Units of one arena chunk (128 KiB); longer texts get a chunk of their own.
constexpr size_t kChunkUnits = 64 * 1024;
// The BSTR prefix, in code units.
constexpr size_t kPrefixUnits = sizeof(std::uint32_t) / sizeof(char16_t);

// Types whose whole value stands in the first eight bytes of the VARIANT.
bool Unboxed(VARTYPE vt) {
  switch (vt) {
    case VT_EMPTY:
    case VT_NULL:
    case VT_I1:
    case VT_I2:
    case VT_I4:
    case VT_I8:
    case VT_UI1:
    case VT_UI2:
    case VT_UI4:
    case VT_UI8:
    case VT_INT:
    case VT_UINT:
    case VT_R4:
    case VT_R8:
    case VT_CY:
    case VT_DATE:
    case VT_BOOL:
    case VT_ERROR: return true;
    default: return false;
  }
}

}  // namespace

bool RowStore::Serves(const CRfcField::RowPlan& plan) const {
  if (m_live == 0) return true;
  if (plan.type != m_plan.type || plan.members.size() != m_columns.size()) return false;
  for (size_t i = 0; i < m_columns.size(); ++i)
    if (plan.members[i].type != m_columns[i].type.p || plan.members[i].name != m_columns[i].name) return false;
  return true;
}

HRESULT RowStore::Adopt(const CRfcField::RowPlan& plan, std::shared_ptr<const CollectionIndex> index) {
  Clear();
  try {
    std::vector<Column> columns(plan.members.size());
    for (size_t i = 0; i < columns.size(); ++i) {
      const CRfcField::RowPlan::Member& member = plan.members[i];
      columns[i].name.assign(member.name);
      columns[i].type = member.type;
      if (CRfcType* own = ModelImpl<CRfcType>(member.type))
        columns[i].scalarType = static_cast<ABAPTYPE>(own->ScalarTypeValue());
    }
    m_columns = std::move(columns);
    // The plan's names refer to the columns, which stay where they are now.
    m_plan.type = plan.type;
    m_plan.members.clear();
    m_plan.members.reserve(m_columns.size());
    for (size_t i = 0; i < m_columns.size(); ++i)
      m_plan.members.push_back({m_columns[i].name, m_columns[i].type.p, plan.members[i].kind});
    m_rowType = plan.type;
  } catch (const std::bad_alloc&) {
    m_columns.clear();
    m_plan.members.clear();
    m_plan.type = nullptr;
    return E_OUTOFMEMORY;
  }
  m_index = std::move(index);
  return S_OK;
}

size_t RowStore::AddRows(size_t count) {
  const size_t first = m_cells.size() / std::max<size_t>(1, m_columns.size());
  const size_t needed = m_cells.size() + count * m_columns.size();
  // Grown geometrically: readers append their rows in many small lots.
  if (needed > m_cells.capacity()) m_cells.reserve(std::max(needed, 2 * m_cells.capacity()));
  Cell empty{};
  empty.vt = VT_EMPTY;
  empty.kind = kScalar;
  empty.bits = 0;
  m_cells.resize(needed, empty);
  m_live += count;
  return first;
}

void RowStore::Drop(size_t row) {
  for (size_t c = 0; c < m_columns.size(); ++c) Release(At(row, c));
  if (m_live > 0 && --m_live == 0) {
    // Nothing refers to the cells any more; the columns stay for the next rows.
    std::vector<Cell>().swap(m_cells);
    std::vector<CComVariant>().swap(m_boxed);
    m_chunks.clear();
    m_free = nullptr;
    m_room = 0;
    m_chunkBytes = 0;
  }
}

void RowStore::Clear() {
  std::vector<Cell>().swap(m_cells);
  std::vector<CComVariant>().swap(m_boxed);
  m_chunks.clear();
  m_free = nullptr;
  m_room = 0;
  m_chunkBytes = 0;
  m_live = 0;
}

void RowStore::Release(Cell& cell) {
  // A boxed value is freed at once; texts go with their chunk.
  if (cell.kind == kBoxed) m_boxed[cell.boxed].Clear();
  cell.vt = VT_EMPTY;
  cell.kind = kScalar;
  cell.length = 0;
  cell.bits = 0;
}

char16_t* RowStore::Reserve(size_t units) {
  // Prefix, characters and the terminating NUL, the prefix 4-byte aligned.
  const size_t need = kPrefixUnits + units + 1 + 1;
  if (need > m_room) {
    const size_t size = std::max(kChunkUnits, need);
    m_chunks.emplace_back(new char16_t[size]);
    m_free = m_chunks.back().get();
    m_room = size;
    m_chunkBytes += size * sizeof(char16_t);
  }
  return m_free + kPrefixUnits;
}

const char16_t* RowStore::Commit(char16_t* chars, size_t units) {
  const auto bytes = static_cast<std::uint32_t>(units * sizeof(char16_t));
  std::memcpy(chars - kPrefixUnits, &bytes, sizeof bytes);
  chars[units] = u'\0';
  // The next prefix starts on an even unit, so at a 4-byte boundary.
  size_t used = kPrefixUnits + units + 1;
  used += used & 1;
  m_free += used;
  m_room -= std::min(m_room, used);
  return chars;
}

void RowStore::PutText(size_t row, size_t column, std::u16string_view text) {
  Cell& cell = At(row, column);
  char16_t* chars = Reserve(text.size());
  std::copy(text.begin(), text.end(), chars);
  Release(cell);
  cell.vt = VT_BSTR;
  cell.kind = kText;
  cell.length = static_cast<std::uint32_t>(text.size());
  cell.text = Commit(chars, text.size());
}

void RowStore::PutUtf8(size_t row, size_t column, std::string_view text) {
  Cell& cell = At(row, column);
  // No more code units than bytes, whatever the text.
  char16_t* chars = Reserve(text.size());
  const size_t units = DecodeUtf8(text, chars);
  Release(cell);
  cell.vt = VT_BSTR;
  cell.kind = kText;
  cell.length = static_cast<std::uint32_t>(units);
  cell.text = Commit(chars, units);
}

HRESULT RowStore::Take(size_t row, size_t column, VARIANT* value) {
  if (!value) return E_POINTER;
  if (value->vt & VT_BYREF) {
    CComVariant copy;
    HRESULT hr = VariantCopyInd(&copy, value);
    if (FAILED(hr)) return hr;
    VariantClear(value);
    copy.Detach(value);
  }
  Cell& cell = At(row, column);
  if (value->vt == VT_BSTR) {
    try {
      if (value->bstrVal) {
        PutText(row, column, BstrView(value->bstrVal));
      } else {
        Release(cell);
        cell.vt = VT_BSTR;
        cell.kind = kText;
        cell.text = nullptr;
      }
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    }
    return VariantClear(value);
  }
  if (Unboxed(value->vt)) {
    Release(cell);
    cell.vt = value->vt;
    std::memcpy(&cell.bits, &value->llVal, sizeof cell.bits);
    value->vt = VT_EMPTY;
    return S_OK;
  }
  try {
    m_boxed.emplace_back();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  Release(cell);
  m_boxed.back().Attach(value);
  cell.vt = m_boxed.back().vt;
  cell.kind = kBoxed;
  cell.boxed = m_boxed.size() - 1;
  return S_OK;
}

HRESULT RowStore::Copy(size_t row, size_t column, VARIANT* out) const {
  VariantInit(out);
  const Cell& cell = At(row, column);
  switch (cell.kind) {
    case kText:
      out->vt = VT_BSTR;
      out->bstrVal = cell.text ? SysAllocStringLen(cell.text, cell.length) : nullptr;
      if (cell.text && !out->bstrVal) {
        out->vt = VT_EMPTY;
        return E_OUTOFMEMORY;
      }
      return S_OK;
    case kBoxed: return VariantCopy(out, &m_boxed[cell.boxed]);
    default:
      out->vt = cell.vt;
      std::memcpy(&out->llVal, &cell.bits, sizeof cell.bits);
      return S_OK;
  }
}

void RowStore::View(size_t row, size_t column, VARIANT* view) const {
  const Cell& cell = At(row, column);
  switch (cell.kind) {
    case kText:
      view->vt = VT_BSTR;
      view->bstrVal = const_cast<BSTR>(cell.text);
      return;
    case kBoxed: std::memcpy(static_cast<void*>(view), &m_boxed[cell.boxed], sizeof(VARIANT)); return;
    default:
      view->vt = cell.vt;
      std::memcpy(&view->llVal, &cell.bits, sizeof cell.bits);
      return;
  }
}

void RowStore::ViewRow(size_t row, RfcCell* cells, size_t count) const {
  const Cell* cell = &At(row, 0);
  for (size_t c = 0; c < count; ++c, ++cell) {
    RfcCell& out = cells[c];
    out.type = m_columns[c].scalarType;
    out.text = nullptr;
    out.length = 0;
    out.value.wReserved1 = out.value.wReserved2 = out.value.wReserved3 = 0;
    switch (cell->kind) {
      case kText:
        out.value.vt = VT_BSTR;
        out.value.bstrVal = const_cast<BSTR>(cell->text);
        out.text = cell->text ? cell->text : u"";
        out.length = cell->length;
        break;
      case kBoxed: {
        const VARIANT& boxed = m_boxed[cell->boxed];
        std::memcpy(static_cast<void*>(&out.value), &boxed, sizeof(VARIANT));
        if (boxed.vt == VT_BSTR) {
          out.text = boxed.bstrVal ? boxed.bstrVal : u"";
          out.length = SysStringLen(boxed.bstrVal);
        }
        break;
      }
      default: out.value.vt = cell->vt; std::memcpy(&out.value.llVal, &cell->bits, sizeof cell->bits);
    }
  }
}

bool RowStore::TextAt(size_t row, size_t column, std::u16string_view* text) const {
  const Cell& cell = At(row, column);
  if (cell.kind == kText) {
    *text = cell.text ? std::u16string_view(cell.text, cell.length) : std::u16string_view();
    return true;
  }
  if (cell.kind == kBoxed && m_boxed[cell.boxed].vt == VT_BSTR) {
    *text = BstrView(m_boxed[cell.boxed].bstrVal);
    return true;
  }
  return false;
}

VARTYPE RowStore::TypeAt(size_t row, size_t column) const { return At(row, column).vt; }

size_t RowStore::BytesHeld() const {
  return m_cells.capacity() * sizeof(Cell) + m_boxed.capacity() * sizeof(CComVariant) + m_chunkBytes;
}
