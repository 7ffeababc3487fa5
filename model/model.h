// The object model as later subsystems use it: sessions, back ends and
// servers create the model's objects here (none is creatable from outside)
// and reach the operations that the interfaces do not show.
#pragma once

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
HRESULT RfcRowsAdd(IRfcRows* rows, IRfcFields* row);      // appends a row
HRESULT RfcRowsRemove(IRfcRows* rows, LONG position);     // 1-based
HRESULT RfcRowsSetFileModeRaw(IRfcRows* rows, VARIANT_BOOL fileMode, SHORT dataCol, SHORT indexCol);
