// CRfcRows: the rows of a table value (IRfcRows), each row a RfcFields of
// the row structure, with the file mode of classic calls.
#pragma once

#include "model/collection.h"
#include "model/rfc_field.h"
#include "model/model_object.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

#include <vector>

class CRfcFields;

class CRfcRows
    : public CComObjectBase<CRfcRows,
                            CoClassRfcRows<CRfcRows, ICollectionImpl<CRfcRows, IRfcRows, CComCollect<IRfcFields>>>,
                            CModelObjectImpl<CRfcRows>> {
 public:
  // IRfcRows
  HRESULT STDMETHODCALLTYPE get_Item(LONG inIndex, IRfcFields** pVal) override { return CollItemAt(inIndex, pVal); }
  HRESULT STDMETHODCALLTYPE get_FileMode(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE get_DataCol(SHORT* pVal) override;
  HRESULT STDMETHODCALLTYPE get_IndexCol(SHORT* pVal) override;
  HRESULT STDMETHODCALLTYPE get_RfcType(IRfcType** pVal) override;
  HRESULT STDMETHODCALLTYPE AddRows(LONG Count) override;
  HRESULT STDMETHODCALLTYPE AddRow(IRfcFields** pVal) override;
  HRESULT STDMETHODCALLTYPE SetFileMode(SHORT DataCol, SHORT IndexCol) override;
  HRESULT STDMETHODCALLTYPE RemoveAll() override;
  HRESULT STDMETHODCALLTYPE put_RfcType(IRfcType* type) override;

  // Internal operations: a back end appends the rows it delivers.
  HRESULT Add(IRfcFields* row) { return CollAppend(row); }
  HRESULT Remove(LONG position) { return CollRemoveAt(position); }
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

 private:
  CComPtr<IRfcType> m_rowType;
  CRfcField::RowIndexCache m_rowIndex;
  VARIANT_BOOL m_fileMode = VARIANT_FALSE;
  SHORT m_dataCol = 0;
  SHORT m_indexCol = 0;
};
