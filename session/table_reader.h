// CTableReader: reads rows of an ABAP table through RFC_READ_TABLE (or a
// module of the same interface) and hands them out as typed RfcRows. It uses
// only the public members of its session (ImportCall, CallFunction, Error,
// ErrorInfo), so it works on every back end.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "session/option_store.h"
#include "session/string_list.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class RowStore;

class CTableReader : public CComObjectBase<CTableReader, CoClassTableReader<CTableReader>> {
 public:
  // One column as the server describes it; offset and length count UTF-16
  // code units of the row text.
  struct FieldRecord {
    std::u16string name;
    LONG offset = 0;
    LONG length = 0;
    char16_t letter = u'C';
  };

  // Creates the lists and the error object; throws std::bad_alloc.
  CTableReader();

  VELTRANE_DECL_ITABLEREADER

  void Bind(ISession* session, BSTR table);

  // The value of one column of a row text W: the typed value by the letter,
  // or the text (trimmed unless raw).
  static HRESULT MakeValue(std::u16string_view row, const FieldRecord& field, bool raw, VARIANT* value);

 private:
  HRESULT ReadRows(LONG count, LONG startAt);
  // Splits the data lines of RFC_READ_TABLE into the reader's new rows.
  HRESULT SplitRows(IRfcRows* data, IRfcRows* rows, LONG dataCount, bool raw);
  // One column of a data line into the store, as MakeValue makes it.
  static HRESULT StoreValue(std::u16string_view row, const FieldRecord& field, bool raw, RowStore& store,
                            size_t storeRow, size_t column);
  HRESULT CopySessionError();

  CComPtr<ISession> m_session;
  CComBSTR m_table;
  CComPtr<IFunctionCall> m_transportCall;
  CComPtr<CRfcStringList> m_query;
  CComPtr<CRfcStringList> m_fields;
  CComPtr<IRfcRows> m_rows;
  VARIANT_BOOL m_error = VARIANT_FALSE;
  CComPtr<IRfcError> m_errorInfo;
  CComPtr<IRfcType> m_rowType;
  OptionStore m_options;
  std::vector<FieldRecord> m_records;
};

// A new reader bound to session, with Table set.
HRESULT CreateTableReader(ISession* session, BSTR table, ITableReader** reader);
