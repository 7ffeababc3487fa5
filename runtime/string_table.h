// The component's string table: every text a client can read, as
// errors/errors.table lists it (veltrane_errors.h). A code's result is
// 0x80040000 plus the code.
#pragma once

#include "platform/oleauto.h"
#include "veltrane_errors.h"

// Copies the text of a code into buffer, cut to size - 1 characters and
// terminated; returns the characters copied, 0 if the table has none (the
// buffer then holds the empty text). In the manner of LoadString.
int LoadStringTable(UINT code, OLECHAR* buffer, int size);

// The text of a code as a string, or null for a code the table does not
// have; both succeed. A null text pointer gives E_POINTER.
HRESULT DecodeInternalError(LONG errcode, BSTR* text);
