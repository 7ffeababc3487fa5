// Failures that reach a client with a text: the thread's error record and
// the result code.
#pragma once

#include "platform/oaidl.h"
#include "veltrane_errors.h"
#include "veltrane_tlb.h"

// With a code of the string table: the description is the code's text, or
// "Unknown Error" for a code the table lacks; a zero hr becomes
// 0x80040000 plus the code. Codes of 65,536 and above are no table codes:
// their description is "Unknown Error" and a zero hr becomes 0x80020009.
//
// The record gets iid, the ProgID of clsid as its source, the help context
// and file when both are given (context not 0, file not null), and the
// description. It is set for the calling thread. The result is hr, or
// 0x80020009 (DISP_E_EXCEPTION) if hr is 0; a failure to build the record
// is not reported, the result stands.
HRESULT ReportError(REFCLSID clsid, UINT code, DWORD helpContext, LPCOLESTR helpFile, REFIID iid, HRESULT hr = 0);
// The same with a text of the caller's.
HRESULT ReportError(REFCLSID clsid, LPCOLESTR text, DWORD helpContext, LPCOLESTR helpFile, REFIID iid, HRESULT hr = 0);

// The component's form: no help, and the id of ISession as the interface,
// from every class.
inline HRESULT ReportError(REFCLSID clsid, UINT code, HRESULT hr = 0) {
  return ReportError(clsid, code, 0, nullptr, IID_ISession, hr);
}
inline HRESULT ReportError(REFCLSID clsid, LPCOLESTR text, HRESULT hr = 0) {
  return ReportError(clsid, text, 0, nullptr, IID_ISession, hr);
}
// A text of the string table by its typed code; the result is its own.
inline HRESULT ReportError(REFCLSID clsid, Text text) { return ReportError(clsid, static_cast<UINT>(text)); }
