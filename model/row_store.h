// RowStore: the rows of one RfcRows that no client has touched yet, kept
// compactly. A row of scalar members is a run of 16-byte cells: a scalar
// value unboxed, a text in an arena of chunks (laid out as a BSTR: length
// prefix, characters, terminating NUL), anything else boxed in a side list.
// CRfcRows makes a row's RfcFields and RfcField objects from its cells when
// a client first reaches the row, and keeps them from then on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "model/collection.h"
#include "model/rfc_field.h"
#include "platform/atlbase.h"
#include "veltrane/row_cells.h"
#include "veltrane_tlb.h"

class RowStore {
 public:
  // The members of the row type as they were when rows were stored.
  struct Column {
    std::u16string name;
    CComPtr<IRfcType> type;
    ABAPTYPE scalarType = TYPE_CHAR;
  };

  RowStore() = default;
  RowStore(const RowStore&) = delete;
  RowStore& operator=(const RowStore&) = delete;

  // Whether rows of plan can go into the store as it stands: the same row
  // type with the same members, or an empty store.
  bool Serves(const CRfcField::RowPlan& plan) const;
  // Takes the plan and the map of its member names; the store must hold no
  // live rows. Fails with E_OUTOFMEMORY.
  HRESULT Adopt(const CRfcField::RowPlan& plan, std::shared_ptr<const CollectionIndex> index);

  size_t Width() const { return m_columns.size(); }
  const Column& ColumnAt(size_t column) const { return m_columns[column]; }
  // The plan of the stored rows, for CRfcField::BuildRow; valid while the
  // store keeps its columns.
  const CRfcField::RowPlan& Plan() const { return m_plan; }
  const std::shared_ptr<const CollectionIndex>& Index() const { return m_index; }

  // New rows of empty cells (VT_EMPTY, as a new scalar field holds); the
  // number of the first. Throws std::bad_alloc.
  size_t AddRows(size_t count);
  // A row that left the store (made into objects or removed). When no row
  // is left, the cells and texts are freed.
  void Drop(size_t row);
  size_t LiveRows() const { return m_live; }
  void Clear();

  // Writers; each replaces what the cell held. Throw std::bad_alloc, and
  // PutUtf8 std::range_error for ill-formed UTF-8.
  void PutText(size_t row, size_t column, std::u16string_view text);
  void PutUtf8(size_t row, size_t column, std::string_view text);
  // Takes *value over as RfcField's put_value stores it (a VT_BYREF value
  // is copied); *value is left VT_EMPTY. Fails as VariantCopyInd fails.
  HRESULT Take(size_t row, size_t column, VARIANT* value);

  // The value of a cell as get_value hands it out: a copy the caller owns.
  HRESULT Copy(size_t row, size_t column, VARIANT* out) const;
  // The value of a cell in place, borrowed: a text as a BSTR into the arena,
  // a boxed value as a shallow copy. Valid while the cell stays as it is;
  // never to be cleared or freed.
  void View(size_t row, size_t column, VARIANT* view) const;
  // The cells of a row in place, borrowed as View borrows them, with each
  // column's ABAP type: the first count columns.
  void ViewRow(size_t row, RfcCell* cells, size_t count) const;
  // The text of a cell holding a string, in place; false for any other.
  bool TextAt(size_t row, size_t column, std::u16string_view* text) const;
  // The cell's type as get_value would give it.
  VARTYPE TypeAt(size_t row, size_t column) const;

  // Bytes held by cells, texts and the boxed list, for diagnostics.
  size_t BytesHeld() const;

 private:
  struct Cell {
    VARTYPE vt;
    std::uint16_t kind;
    std::uint32_t length;  // characters of a text
    union {
      std::uint64_t bits;    // a scalar as the VARIANT holds it
      const char16_t* text;  // a text in the arena (null: a null BSTR)
      std::size_t boxed;     // position in m_boxed
    };
  };
  static_assert(sizeof(Cell) == 16);

  Cell& At(size_t row, size_t column) { return m_cells[row * m_columns.size() + column]; }
  const Cell& At(size_t row, size_t column) const { return m_cells[row * m_columns.size() + column]; }
  char16_t* Reserve(size_t units);
  const char16_t* Commit(char16_t* chars, size_t units);
  void Release(Cell& cell);

  std::vector<Column> m_columns;
  CRfcField::RowPlan m_plan;
  CComPtr<IRfcType> m_rowType;  // keeps m_plan.type
  std::shared_ptr<const CollectionIndex> m_index;
  std::vector<Cell> m_cells;
  std::vector<CComVariant> m_boxed;
  std::vector<std::unique_ptr<char16_t[]>> m_chunks;
  char16_t* m_free = nullptr;  // next free unit of the last chunk
  size_t m_room = 0;           // units left there
  size_t m_chunkBytes = 0;
  size_t m_live = 0;
};
