// Names of variant types for trace lines.
#pragma once

#include <string>

#include "platform/oleauto.h"

// The name of the low twelve bits ("VT_BSTR"; 2 reads "VT_I4" as well;
// "UNKNOWN_VT(<n>)" for a number the table lacks), then "|VT_VECTOR",
// "|VT_ARRAY", "|VT_BYREF" and "|VT_RESERVED" for the flag bits in this
// order.
std::u16string VariantTypeName(VARTYPE vt);
