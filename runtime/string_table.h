// The component's string table: every text a client can read, codes 513
// to 548. A code's result is 0x80040000 plus the code.
#pragma once

#include <string_view>

#include "platform/oleauto.h"

inline constexpr UINT kFirstStringCode = 513;
inline constexpr UINT kLastStringCode = 548;

// The result code that reports a text of the table.
inline constexpr HRESULT StringCodeResult(UINT code) { return static_cast<HRESULT>(0x80040000u + code); }

// The text of a code, or an empty view if the table has none.
std::u16string_view StringTableText(UINT code);

// Copies the text of a code into buffer, cut to size - 1 characters and
// terminated; returns the characters copied, 0 if the table has none (the
// buffer then holds the empty text). In the manner of LoadString.
int LoadStringTable(UINT code, OLECHAR* buffer, int size);

// The text of a code as a string, or null for a code the table does not
// have; both succeed. A null text pointer gives E_POINTER.
HRESULT DecodeInternalError(LONG errcode, BSTR* text);
