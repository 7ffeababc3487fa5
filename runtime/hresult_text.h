// Names and message texts of the result codes the component meets, in one
// table (the platform's message texts, as its message lookup gives them,
// without the trailing line end).
#pragma once

#include <string>

#include "platform/wtypes.h"

// The platform's message for hr, or for a code the table does not know the
// code alone in hexadecimal ("0x80040201").
std::u16string HResultMessage(HRESULT hr);

// True if the table has a message for hr.
bool HResultKnown(HRESULT hr);

// The symbolic name ("E_INVALIDARG"), or an empty text.
std::u16string HResultName(HRESULT hr);
