// Accessors over the object model that raise instead of returning a code.
// A null object raises _com_error(E_POINTER); any failed result is traced
// with the accessor's name and raised as CXCOMError.
#pragma once

#include <string_view>

#include "platform/atlbase.h"
#include "veltrane_tlb.h"

// Item of the parameter set by name.
CComPtr<IRfcParameter> _getParam(const CComPtr<IRfcParameters>& params, std::u16string_view name);

// The Rows property.
CComPtr<IRfcRows> _getRows(const CComPtr<IRfcParameter>& param);
CComPtr<IRfcRows> _getRows(const CComPtr<IRfcField>& field);

// Item of the rows, 1-based.
CComPtr<IRfcFields> _getRow(const CComPtr<IRfcRows>& rows, LONG index);

// The value property.
CComVariant _getScalarVal(const CComPtr<IRfcParameter>& param);
CComVariant _getScalarVal(const CComPtr<IRfcField>& field);

// The value of a member by name, of a structure or a structure parameter.
CComVariant _getStructVal(const CComPtr<IRfcFields>& fields, std::u16string_view name);
CComVariant _getStructVal(const CComPtr<IRfcParameter>& param, std::u16string_view name);
