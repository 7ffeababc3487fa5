// Values of a function call's parameters and fields as typed Python values,
// decided by the ABAP type of each field:
//   D -> datetime.date (None for the initial date), T -> datetime.time,
//   P -> decimal.Decimal, I/b/s -> int, F -> float, X/y -> bytes,
//   C -> str without trailing blanks (unless asked to keep them), N, g -> str,
//   structures -> dict, tables -> list of dict.
// Writing takes the same forms (and dates and times as text). A Schema is read
// once from an RfcType through IDispatch and then walks many values quickly.
#pragma once

#include "common.h"

namespace vpy {

void RegisterAbapValues(py::module_& m);

}  // namespace vpy
