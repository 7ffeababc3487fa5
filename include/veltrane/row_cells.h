// IRfcRowCells: the cells of a table's rows read in place, without making
// the RfcFields and RfcField objects of each row and without copying values.
// It is no interface of the type library: a C++ client asks the library's
// RfcRows for it with QueryInterface(IID_IRfcRowCells).
//
//   CComPtr<IRfcRowCells> cells;
//   if (SUCCEEDED(rows->QueryInterface(IID_IRfcRowCells, (void**)&cells))) {
//     std::vector<RfcCell> row(16);
//     LONG width = 0;
//     cells->GetRowCells(1, row.data(), (LONG)row.size(), &width);
//   }
//
// Reading a row this way leaves it as it was: a row not reached through
// IRfcRows yet gets no objects, so its identity, the reference counts and
// every result code of the interfaces are the same whether cells were read
// or not.
#pragma once

#include "veltrane/platform/oaidl.h"
#include "veltrane/veltrane_tlb.h"

// {828a2d4a-7f05-4bd8-a59f-6e9087b0939d}
inline constexpr IID IID_IRfcRowCells = {0x828a2d4a, 0x7f05, 0x4bd8, {0xa5, 0x9f, 0x6e, 0x90, 0x87, 0xb0, 0x93, 0x9d}};

// One cell, borrowed from the rows: never to be cleared or freed. It stays
// valid until the next call on the rows, on one of their rows or on a field
// of them, and while the rows are alive.
struct RfcCell {
  // The value as get_value of the field would give it, without the copy: a
  // text's BSTR points into the rows' storage.
  VARIANT value;
  // A text (VT_BSTR): its characters and their number in UTF-16 code units
  // (a null BSTR: "" and 0). Any other value: null and 0.
  const char16_t* text;
  UINT length;
  // The ABAP type of the member's type; TYPE_CHAR for a member without one.
  ABAPTYPE type;
};

struct IRfcRowCells : IUnknown {
  // The cells of the row at position row (1-based, as Item counts) in the
  // order of its members: the first min(capacity, members) go to cells,
  // *width receives the number of members. E_INVALIDARG for a position
  // beyond the rows, E_POINTER for a null width or null cells with a
  // capacity, E_NOINTERFACE when a member of the row is a field of another
  // implementation (then read that row through IRfcFields).
  virtual HRESULT STDMETHODCALLTYPE GetRowCells(LONG row, RfcCell* cells, LONG capacity, LONG* width) = 0;
  // The name of member column (1-based) of row row, borrowed as the cells
  // are: its characters, not terminated, and their number. E_INVALIDARG for
  // a position beyond the rows or the members; E_NOINTERFACE as above.
  virtual HRESULT STDMETHODCALLTYPE GetCellName(LONG row, LONG column, const char16_t** name, UINT* length) = 0;

 protected:
  ~IRfcRowCells() = default;
};
VELTRANE_DECLARE_IID(IRfcRowCells, IID_IRfcRowCells);
