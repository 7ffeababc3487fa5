#include "common.h"

namespace vpy {

std::u16string ToUtf16(py::handle text) {
  if (!PyUnicode_Check(text.ptr()))
    throw py::type_error("expected str, not " + std::string(Py_TYPE(text.ptr())->tp_name));
  PyObject* s = text.ptr();
  const Py_ssize_t length = PyUnicode_GET_LENGTH(s);
  const int kind = PyUnicode_KIND(s);
  const void* data = PyUnicode_DATA(s);
  std::u16string out;
  out.reserve(static_cast<size_t>(length));
  for (Py_ssize_t i = 0; i < length; ++i) {
    const Py_UCS4 c = PyUnicode_READ(kind, data, i);
    if (c < 0x10000) {
      out.push_back(static_cast<char16_t>(c));
    } else {
      out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    }
  }
  return out;
}

py::str FromUtf16(const OLECHAR* text, size_t length) {
  if (length == 0) return py::str("");
  bool surrogates = false;
  for (size_t i = 0; i < length && !surrogates; ++i) surrogates = text[i] >= 0xD800 && text[i] <= 0xDFFF;
  if (!surrogates) {  // the common case: one UTF-16 unit per character
    PyObject* s = PyUnicode_FromKindAndData(PyUnicode_2BYTE_KIND, text, static_cast<Py_ssize_t>(length));
    if (!s) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(s);
  }
  int byteOrder = -1;  // little endian, no byte order mark expected
  PyObject* s = PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(text), static_cast<Py_ssize_t>(length * 2),
                                      "surrogatepass", &byteOrder);
  if (!s) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(s);
}

BSTR ToBstr(py::handle text) {
  const std::u16string utf16 = ToUtf16(text);
  BSTR b = SysAllocStringLen(utf16.data(), static_cast<UINT>(utf16.size()));
  if (!b) throw std::bad_alloc();
  return b;
}

}  // namespace vpy
