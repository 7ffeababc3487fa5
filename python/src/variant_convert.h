// Values between Python and VARIANT:
//   None <-> VT_EMPTY (VT_NULL reads as None too), bool <-> VT_BOOL,
//   int <-> VT_I4, or VT_I8 / VT_UI8 / VT_DECIMAL when it does not fit (every integer type reads as int),
//   float <-> VT_R8 (VT_R4 reads as float), str <-> VT_BSTR,
//   decimal.Decimal <-> VT_DECIMAL (VT_CY reads as Decimal),
//   datetime.datetime / date / time -> VT_DATE -> datetime.datetime,
//   bytes, bytearray, memoryview <-> VT_ARRAY | VT_UI1,
//   list, tuple -> VT_ARRAY | VT_VARIANT; any other array reads as a tuple (nested for more dimensions),
//   Dispatch <-> VT_DISPATCH (VT_UNKNOWN reads as Dispatch when the object has IDispatch, else as Unknown),
//   Missing <-> VT_ERROR DISP_E_PARAMNOTFOUND, Variant(vt, value): the value changed to vt.
#pragma once

#include "common.h"

namespace vpy {

// The sentinel for a left-out argument.
struct MissingArgument {};

// A value with an explicit VARIANT type; with VT_BYREF it is passed by reference
// and `value` takes what the callee wrote back.
struct ExplicitVariant {
  VARTYPE vt = VT_EMPTY;
  py::object value;
};

// An object that offers no IDispatch.
struct UnknownObject {
  CComPtr<IUnknown> unknown;
};

// Fills `out` (initialised, empty) from a Python value. Throws py::type_error,
// py::value_error or OverflowError for values that have no VARIANT form.
void ToVariant(py::handle value, VARIANT* out);
py::object FromVariant(const VARIANT& value);

// The Python object of an interface pointer: a Dispatch, an Unknown, or None.
py::object FromDispatch(IDispatch* dispatch);
py::object FromUnknown(IUnknown* unknown);

// datetime.datetime of a VT_DATE value; date and time of a datetime, date or time.
py::object DateTimeFromVariantTime(DATE value);
// VT_DATE of datetime.datetime, date or time; false when `value` is none of them.
bool VariantTimeFromPython(py::handle value, DATE* out);

// decimal.Decimal from its text.
py::object MakeDecimal(std::string_view text);

void RegisterVariantTypes(py::module_& m);

}  // namespace vpy
