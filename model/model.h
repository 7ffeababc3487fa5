// The object model as later subsystems use it: sessions, back ends and
// servers create the model's objects here (none is creatable from outside)
// and reach the operations that the interfaces do not show.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "platform/oaidl.h"
#include "veltrane_tlb.h"

// New, empty objects.
HRESULT CreateRfcType(IRfcType** type);
HRESULT CreateFunctionCall(IFunctionCall** call);
HRESULT CreateFunctionCalls(IFunctionCalls** calls);
HRESULT CreateTypeCache(ITypeCache** cache);

// A new call with the name, the short text and fresh parameters of src:
// the same (shared) types, the same Description, DefaultValue and Optional,
// and no values. IsRequested and the exception pair are not copied.
HRESULT DeepCopyCall(IFunctionCall* src, IFunctionCall** copy);

// Removes from Importing every scalar parameter without a value (VT_EMPTY)
// that is optional or has a default, writing the trace line
// "ignoring optional parameter: <name>" for each.
HRESULT PruneOptionalParameters(IFunctionCall* call);

// Operations of the model's own RfcRows behind the interface. They fail
// with 0x80004002 for an object of another implementation.
HRESULT RfcRowsAdd(IRfcRows* rows, IRfcFields* row);   // appends a row
HRESULT RfcRowsRemove(IRfcRows* rows, LONG position);  // 1-based
HRESULT RfcRowsSetFileModeRaw(IRfcRows* rows, VARIANT_BOOL fileMode, SHORT dataCol, SHORT indexCol);

// The model's own field, as RfcRowsAddRows hands it out.
class CRfcField;

// Appends count rows as AddRows does, reading the row type once, and hands
// out their members row by row: cells receives count times the member count
// of the row type, without references of their own, valid while the rows
// stay in the table. Fails with 0x80004002, adding nothing, for rows of
// another implementation or a row type that is not all the model's own
// (AddRow then serves as usual); otherwise it fails as AddRows does.
HRESULT RfcRowsAddRows(IRfcRows* rows, LONG count, std::vector<CRfcField*>* cells);

// The compact store of a table's rows (model/row_store.h).
class RowStore;

// Appends count rows of empty cells as AddRows does, kept in the rows'
// store until a client reaches them: *store receives the store, *first the
// store's number of the first new row (the others follow it), to be filled
// through RowStore's writers. Fails with 0x80004002, adding nothing, for
// rows of another implementation or a row type that is not a structure of
// scalars all the model's own; otherwise it fails as AddRows does.
HRESULT RfcRowsAppendStored(IRfcRows* rows, LONG count, RowStore** store, size_t* first);

// The store and the row's number in it (storeRow) while the row at a 0-based
// position is still stored; null for a row made into objects and for rows
// of another implementation.
const RowStore* RfcRowsStoredRow(IRfcRows* rows, size_t row, size_t* storeRow);

// The text that column (0-based) of the row at a 0-based position holds, in
// place, while the rows stay as they are: from the store, or from the
// model's own field holding a string. False for anything else (the caller
// then reads the field through its interface).
bool RfcRowsTextAt(IRfcRows* rows, size_t row, size_t column, std::u16string_view* text);

// A field of the model as its interface, without a reference of its own.
IRfcField* RfcFieldInterface(CRfcField* field);

// Stores *value as the field's value, as put_value does, and leaves *value
// VT_EMPTY. The model's own fields take the value over without a copy; any
// other field gets put_value and *value is cleared after it succeeded. On
// failure *value is left to the caller.
HRESULT RfcFieldAttachValue(IRfcField* field, VARIANT* value);
HRESULT RfcFieldAttachValue(CRfcField* field, VARIANT* value);
