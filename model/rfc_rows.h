// CRfcRows: the rows of a table value (IRfcRows), each row a RfcFields of
// the row structure, with the file mode of classic calls; its cells read in
// place through IRfcRowCells.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "model/rfc_field.h"
#include "model/row_store.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane/row_cells.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

#include <cstdint>
#include <memory>
#include <vector>

class CRfcFields;

class CRfcRows
    : public CComObjectBase<CRfcRows,
                            CoClassRfcRows<CRfcRows, ICollectionImpl<CRfcRows, IRfcRows, CComCollect<IRfcFields>>>,
                            CModelObjectImpl<CRfcRows>, IRfcRowCells> {
 public:
  // IRfcRows
  HRESULT STDMETHODCALLTYPE get_Item(LONG inIndex, IRfcFields** pVal) override;
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override;
  HRESULT STDMETHODCALLTYPE get_FileMode(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE get_DataCol(SHORT* pVal) override;
  HRESULT STDMETHODCALLTYPE get_IndexCol(SHORT* pVal) override;
  HRESULT STDMETHODCALLTYPE get_RfcType(IRfcType** pVal) override;
  HRESULT STDMETHODCALLTYPE AddRows(LONG Count) override;
  HRESULT STDMETHODCALLTYPE AddRow(IRfcFields** pVal) override;
  HRESULT STDMETHODCALLTYPE SetFileMode(SHORT DataCol, SHORT IndexCol) override;
  HRESULT STDMETHODCALLTYPE RemoveAll() override;
  HRESULT STDMETHODCALLTYPE put_RfcType(IRfcType* type) override;

  // IRfcRowCells
  HRESULT STDMETHODCALLTYPE GetRowCells(LONG row, RfcCell* cells, LONG capacity, LONG* width) override;
  HRESULT STDMETHODCALLTYPE GetCellName(LONG row, LONG column, const char16_t** name, UINT* length) override;

  // Internal operations: a back end appends the rows it delivers.
  HRESULT Add(IRfcFields* row);
  HRESULT Remove(LONG position);
  void SetFileModeRaw(VARIANT_BOOL fileMode) { m_fileMode = fileMode; }
  void SetDataColRaw(SHORT column) { m_dataCol = column; }
  void SetIndexColRaw(SHORT column) { m_indexCol = column; }

  IRfcType* RowTypePtr() const { return m_rowType.p; }

  // A new row of the row type, not yet appended.
  HRESULT NewRow(CComPtr<CRfcFields>& row);

  // Appends count rows of a row type that is all the model's own, reading
  // the type once; cells, if given, receives the members of the new rows,
  // row by row, without references of their own. planned is false, with
  // nothing added, for any other row type.
  HRESULT AppendPlannedRows(LONG count, std::vector<CRfcField*>* cells, bool* planned);

  // Appends count rows of empty cells to the store when the row type is a
  // structure of scalars that is all the model's own: *store receives the
  // store and *first the store's number of the first new row, the others
  // following it. stored is false, with nothing added, for any other row
  // type.
  HRESULT AppendStoredRows(LONG count, RowStore** store, size_t* first, bool* stored);

  // The row at a 0-based position, made from the store when it is still
  // there; without a reference of its own.
  HRESULT RowAt(size_t zeroBased, IRfcFields** row);

  // Where the row at a 0-based position stands in the store, or null when
  // it has been made into objects.
  const RowStore* StoredRow(size_t zeroBased, size_t* storeRow) const;

  // Bytes the rows hold in the store, for diagnostics.
  size_t StoreBytes() const { return m_store ? m_store->BytesHeld() : 0; }

 private:
  static constexpr std::uint32_t kNotStored = UINT32_MAX;

  HRESULT Materialize(size_t zeroBased);
  HRESULT ReadPlan(CRfcField::RowPlan& plan, bool* planned);
  void ShareIndex(const CRfcField::RowPlan& plan);
  void PushItem(IRfcFields* owned);

  CComPtr<IRfcType> m_rowType;
  CRfcField::RowIndexCache m_rowIndex;
  VARIANT_BOOL m_fileMode = VARIANT_FALSE;
  SHORT m_dataCol = 0;
  SHORT m_indexCol = 0;
  // The store and, while it holds rows, each position's row in it
  // (kNotStored for a row made into objects). Empty when every row is an
  // object.
  std::unique_ptr<RowStore> m_store;
  std::vector<std::uint32_t> m_storeRow;
};
