// Failures of the object model: a code of the string table with the class of
// the failing object as the error source.
#pragma once

#include <string>
#include <string_view>

#include "runtime/report_error.h"
#include "veltrane_tlb.h"

// Every record names ISession as its interface, from every class.
inline HRESULT ModelError(REFCLSID source, Text text) { return ReportError(source, text); }

// A failure with a text of its own; hr 0 gives 0x80020009.
inline HRESULT ModelErrorText(REFCLSID source, std::u16string_view text, HRESULT hr = 0) {
  const std::u16string terminated(text);
  return ReportError(source, terminated.c_str(), 0, nullptr, IID_ISession, hr);
}

// Nesting depth of types, fields and XML elements that the model follows.
// A deeper tree, or a type that contains itself, is refused with a record.
inline constexpr int kMaxTypeDepth = 512;
