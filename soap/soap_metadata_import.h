// Metadata import over SOAP: function interfaces and dictionary structures
// are asked of the ABAP system itself, through RFC_GET_FUNCTION_INTERFACE,
// RFC_GET_UNICODE_STRUCTURE and RFC_GET_NAMETAB, run as ordinary calls on
// the session. The session frame's cached ImportCall and ImportType stand
// in front of these functions and call them on a cache miss only.
#pragma once

#include <functional>

#include "platform/oaidl.h"
#include "veltrane_tlb.h"

// What an import needs of its session.
struct SoapImportContext {
  // True while the session has its transport. An import on a session
  // without one fails with text 520 (0x80040208).
  std::function<bool()> isConnected;
  // Runs one call synchronously on the session (its CallFunction with
  // synchronous true) and returns that result. A server-side failure is
  // the session's Error, not a failing result.
  std::function<HRESULT(IFunctionCall* call)> callFunction;
  // The session's ImportType: asks the type cache first, and on a miss
  // imports (SoapImportType) and adds the type to the cache. Structures
  // met during an import are taken through it.
  std::function<HRESULT(BSTR name, IRfcType** type)> importType;
  // Class of the error records (the session's class).
  const CLSID* clsid = &CLSID_SoapSession;
};

// ImportCallFromBackend: fills call (its Function is set by the caller)
// with the parameters RFC_GET_FUNCTION_INTERFACE lists for name. Classes
// other than C, E, I, T and complex parameters are left out;
// ignoreUnsupportedParams is accepted and has no effect. A failing import
// of a type ends the function with that result.
HRESULT SoapImportCall(const SoapImportContext& ctx, BSTR name, VARIANT_BOOL ignoreUnsupportedParams,
                       IFunctionCall* call);

// ImportTypeFromBackend: defines type as the structure name through
// RFC_GET_UNICODE_STRUCTURE (one-byte lengths and offsets). Exceptions end
// in text 521 (0x80040209).
HRESULT SoapImportType(const SoapImportContext& ctx, BSTR name, IRfcType* type);

// ImportTableTypeFromBackend: defines type as the table type name whose
// row structure RFC_GET_NAMETAB names in HEADER-REFNAME; an empty REFNAME
// fails with text 521 (0x80040209).
HRESULT SoapImportTableType(const SoapImportContext& ctx, BSTR name, IRfcType* type);
