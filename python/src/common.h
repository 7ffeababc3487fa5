// Shared by the sources of the extension module veltrane._veltrane.
#pragma once

#include <pybind11/pybind11.h>

#include <veltrane.h>

#include <string>
#include <string_view>

namespace py = pybind11;

namespace vpy {

// Python text <-> UTF-16. Lone surrogates pass both ways, as BSTRs may hold them.
std::u16string ToUtf16(py::handle text);
py::str FromUtf16(const OLECHAR* text, size_t length);
inline py::str FromBstr(BSTR text) { return FromUtf16(text, text ? SysStringLen(text) : 0); }
// A new BSTR of a Python str; throws py::type_error for anything else.
BSTR ToBstr(py::handle text);

}  // namespace vpy
