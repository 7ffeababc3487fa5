#include "variant_convert.h"

#include <datetime.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "com_error.h"
#include "dispatch_object.h"

namespace vpy {

namespace {

using UInt128 = unsigned __int128;
const UInt128 kDecimalMax = (static_cast<UInt128>(1) << 96) - 1;

py::handle DecimalClass() {
  static PyObject* cls = py::object(py::module_::import("decimal").attr("Decimal")).release().ptr();
  return cls;
}

// Destroys a SAFEARRAY unless released.
struct ArrayGuard {
  SAFEARRAY* array;
  ~ArrayGuard() {
    if (array) SafeArrayDestroy(array);
  }
  SAFEARRAY* release() { return std::exchange(array, nullptr); }
};

std::string DigitsText(UInt128 value, int scale, bool negative) {
  std::string digits;
  do {
    digits.push_back(static_cast<char>('0' + static_cast<int>(value % 10)));
    value /= 10;
  } while (value != 0);
  while (static_cast<int>(digits.size()) <= scale) digits.push_back('0');
  std::reverse(digits.begin(), digits.end());
  if (scale > 0) digits.insert(digits.size() - static_cast<size_t>(scale), 1, '.');
  if (negative) digits.insert(0, 1, '-');
  return digits;
}

// Rounds the digits (most significant first) by dropping the last `count`, half to even.
std::vector<int> DropDigits(std::vector<int> digits, size_t count) {
  if (count == 0) return digits;
  if (count > digits.size()) return {0};
  const size_t keep = digits.size() - count;
  const int first = digits[keep];
  bool sticky = false;
  for (size_t i = keep + 1; i < digits.size(); ++i) sticky = sticky || digits[i] != 0;
  digits.resize(keep);
  const bool lastOdd = !digits.empty() && digits.back() % 2 == 1;
  if (first > 5 || (first == 5 && (sticky || lastOdd))) {
    size_t i = digits.size();
    while (i > 0 && digits[i - 1] == 9) digits[--i] = 0;
    if (i == 0)
      digits.insert(digits.begin(), 1);
    else
      ++digits[i - 1];
  }
  if (digits.empty()) digits.push_back(0);
  return digits;
}

bool DigitsValue(const std::vector<int>& digits, UInt128* value) {
  UInt128 v = 0;
  for (int d : digits) {
    if (v > (kDecimalMax - static_cast<UInt128>(d)) / 10) return false;
    v = v * 10 + static_cast<UInt128>(d);
  }
  *value = v;
  return true;
}

void DecimalToVariant(py::handle value, VARIANT* out) {
  py::tuple parts = value.attr("as_tuple")();
  const bool negative = parts[0].cast<int>() != 0;
  if (!py::isinstance<py::int_>(parts[2])) throw py::value_error("a Decimal NaN or Infinity has no VT_DECIMAL form");
  long exponent = parts[2].cast<long>();
  std::vector<int> digits;
  for (py::handle d : py::tuple(parts[1])) digits.push_back(d.cast<int>());
  if (digits.empty()) digits.push_back(0);
  if (exponent > 0) {
    if (exponent > 40) throw py::value_error("Decimal value too large for VT_DECIMAL");  // beyond 96 bits anyway
    digits.insert(digits.end(), static_cast<size_t>(exponent), 0);
    exponent = 0;
  }
  const long scale = -exponent;
  // Keep as many decimals as fit: at most 28, fewer when the digits do not fit 96 bits.
  for (long drop = std::max(0L, scale - DEC_MAX_SCALE); drop <= scale; ++drop) {
    UInt128 v = 0;
    if (!DigitsValue(DropDigits(digits, static_cast<size_t>(drop)), &v)) continue;
    out->decVal.wReserved = 0;
    out->decVal.scale = static_cast<BYTE>(scale - drop);
    out->decVal.sign = negative ? DECIMAL_NEG : 0;
    out->decVal.Hi32 = static_cast<ULONG>(v >> 64);
    out->decVal.Lo64 = static_cast<ULONGLONG>(v);
    out->vt = VT_DECIMAL;  // after the fields: wReserved shares its place
    return;
  }
  PyErr_SetString(PyExc_OverflowError, "Decimal value too large for VT_DECIMAL (96 bits)");
  throw py::error_already_set();
}

void IntToVariant(py::handle value, VARIANT* out) {
  int overflow = 0;
  const long long v = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (overflow == 0) {
    if (v == -1 && PyErr_Occurred()) throw py::error_already_set();
    if (v >= INT32_MIN && v <= INT32_MAX) {
      out->vt = VT_I4;
      out->lVal = static_cast<LONG>(v);
    } else {
      out->vt = VT_I8;
      out->llVal = v;
    }
    return;
  }
  if (overflow > 0) {
    const unsigned long long u = PyLong_AsUnsignedLongLong(value.ptr());
    if (!PyErr_Occurred()) {
      out->vt = VT_UI8;
      out->ullVal = u;
      return;
    }
    PyErr_Clear();
  }
  try {
    DecimalToVariant(DecimalClass()(value), out);
  } catch (const py::error_already_set&) {
    PyErr_SetString(PyExc_OverflowError, "int too large for a VARIANT (beyond 96 bits)");
    throw py::error_already_set();
  }
}

void BytesToVariant(py::handle value, VARIANT* out) {
  Py_buffer view;
  if (PyObject_GetBuffer(value.ptr(), &view, PyBUF_SIMPLE) != 0) throw py::error_already_set();
  struct Release {
    Py_buffer* view;
    ~Release() { PyBuffer_Release(view); }
  } release{&view};
  ArrayGuard array{SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(view.len))};
  if (!array.array) throw std::bad_alloc();
  if (view.len > 0) {
    void* data = nullptr;
    Check(SafeArrayAccessData(array.array, &data), "filling a byte array");
    std::memcpy(data, view.buf, static_cast<size_t>(view.len));
    SafeArrayUnaccessData(array.array);
  }
  out->vt = VT_ARRAY | VT_UI1;
  out->parray = array.release();
}

void SequenceToVariant(py::handle value, VARIANT* out) {
  py::sequence items = py::reinterpret_borrow<py::sequence>(value);
  const size_t n = items.size();
  ArrayGuard array{SafeArrayCreateVector(VT_VARIANT, 0, static_cast<ULONG>(n))};
  if (!array.array) throw std::bad_alloc();
  for (size_t i = 0; i < n; ++i) {
    CComVariant item;
    ToVariant(items[i], &item);
    LONG index = static_cast<LONG>(i);
    Check(SafeArrayPutElement(array.array, &index, &item), "filling an array");
  }
  out->vt = VT_ARRAY | VT_VARIANT;
  out->parray = array.release();
}

// Where SafeArrayPutElement takes an element of type vt held in `v`.
void* ElementOf(VARIANT& v, VARTYPE vt) {
  switch (vt) {
    case VT_BSTR: return v.bstrVal;
    case VT_DISPATCH: return v.pdispVal;
    case VT_UNKNOWN: return v.punkVal;
    case VT_DECIMAL: return &v.decVal;
    case VT_VARIANT: return &v;
    default: return &v.llVal;
  }
}

void ExplicitToVariant(const ExplicitVariant& ev, VARIANT* out) {
  const VARTYPE vt = ev.vt;
  if (vt & VT_BYREF) throw py::type_error("a by-reference Variant can only be an argument of a call");
  if (vt & VT_ARRAY) {
    const VARTYPE element = vt & VT_TYPEMASK;
    if (element == VT_UI1 && PyObject_CheckBuffer(ev.value.ptr()) && !PyUnicode_Check(ev.value.ptr()))
      return BytesToVariant(ev.value, out);
    if (!py::isinstance<py::sequence>(ev.value) || PyUnicode_Check(ev.value.ptr()))
      throw py::type_error("Variant(VT_ARRAY | ...) takes a sequence");
    py::sequence items = py::reinterpret_borrow<py::sequence>(ev.value);
    const size_t n = items.size();
    ArrayGuard array{SafeArrayCreateVector(element, 0, static_cast<ULONG>(n))};
    if (!array.array) throw py::value_error("no array of VARIANT type " + std::to_string(element));
    for (size_t i = 0; i < n; ++i) {
      CComVariant item, changed;
      ToVariant(items[i], &item);
      VARIANT* source = &item;
      if (element != VT_VARIANT) {
        Check(VariantChangeType(&changed, &item, 0, element), "converting array element " + std::to_string(i));
        source = &changed;
      }
      LONG index = static_cast<LONG>(i);
      Check(SafeArrayPutElement(array.array, &index, ElementOf(*source, element)), "filling an array");
    }
    out->vt = vt;
    out->parray = array.release();
    return;
  }
  switch (vt) {
    case VT_EMPTY: return;
    case VT_NULL: out->vt = VT_NULL; return;
    case VT_ERROR:
      out->vt = VT_ERROR;
      out->scode = static_cast<SCODE>(ev.value.cast<long long>());
      return;
    default: {
      CComVariant source;
      ToVariant(ev.value, &source);
      Check(VariantChangeType(out, &source, 0, vt), "converting to VARIANT type " + std::to_string(vt));
    }
  }
}

py::object FromSafeArray(SAFEARRAY* array, VARTYPE element) {
  if (!array) return element == VT_UI1 ? py::object(py::bytes()) : py::object(py::tuple());
  const UINT dims = SafeArrayGetDim(array);
  std::vector<LONG> lower(dims), upper(dims), index(dims);
  for (UINT d = 0; d < dims; ++d) {
    Check(SafeArrayGetLBound(array, d + 1, &lower[d]), "reading an array");
    Check(SafeArrayGetUBound(array, d + 1, &upper[d]), "reading an array");
  }
  if (element == VT_UI1 && dims == 1) {
    void* data = nullptr;
    Check(SafeArrayAccessData(array, &data), "reading a byte array");
    const LONG n = upper[0] >= lower[0] ? upper[0] - lower[0] + 1 : 0;
    py::bytes bytes(static_cast<const char*>(data), static_cast<size_t>(n));
    SafeArrayUnaccessData(array);
    return bytes;
  }
  auto elementAt = [&]() -> py::object {
    CComVariant item;
    if (element == VT_VARIANT) {
      Check(SafeArrayGetElement(array, index.data(), &item), "reading an array");
    } else {
      Check(SafeArrayGetElement(
                array, index.data(),
                element == VT_DECIMAL ? static_cast<void*>(&item.decVal) : static_cast<void*>(&item.llVal)),
            "reading an array");
      item.vt = element;
    }
    return FromVariant(item);
  };
  std::function<py::object(UINT)> level = [&](UINT d) -> py::object {
    const LONG n = upper[d] >= lower[d] ? upper[d] - lower[d] + 1 : 0;
    py::tuple out(static_cast<size_t>(n));
    for (LONG i = 0; i < n; ++i) {
      index[d] = lower[d] + i;
      out[static_cast<size_t>(i)] = d + 1 == dims ? elementAt() : level(d + 1);
    }
    return out;
  };
  return dims == 0 ? py::object(py::tuple()) : level(0);
}

}  // namespace

py::object MakeDecimal(std::string_view text) { return DecimalClass()(py::str(text.data(), text.size())); }

py::object DateTimeFromVariantTime(DATE value) {
  SYSTEMTIME st{};
  if (!VariantTimeToSystemTime(value, &st))
    throw py::value_error("the VT_DATE value " + std::to_string(value) + " is no date between the years 100 and 9999");
  PyObject* dt = PyDateTime_FromDateAndTime(st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond, 0);
  if (!dt) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(dt);
}

bool VariantTimeFromPython(py::handle value, DATE* out) {
  PyObject* o = value.ptr();
  SYSTEMTIME st{};
  if (PyDateTime_Check(o)) {
    st.wYear = static_cast<WORD>(PyDateTime_GET_YEAR(o));
    st.wMonth = static_cast<WORD>(PyDateTime_GET_MONTH(o));
    st.wDay = static_cast<WORD>(PyDateTime_GET_DAY(o));
    st.wHour = static_cast<WORD>(PyDateTime_DATE_GET_HOUR(o));
    st.wMinute = static_cast<WORD>(PyDateTime_DATE_GET_MINUTE(o));
    st.wSecond = static_cast<WORD>(PyDateTime_DATE_GET_SECOND(o));
    st.wMilliseconds = static_cast<WORD>(PyDateTime_DATE_GET_MICROSECOND(o) / 1000);
  } else if (PyDate_Check(o)) {
    st.wYear = static_cast<WORD>(PyDateTime_GET_YEAR(o));
    st.wMonth = static_cast<WORD>(PyDateTime_GET_MONTH(o));
    st.wDay = static_cast<WORD>(PyDateTime_GET_DAY(o));
  } else if (PyTime_Check(o)) {
    st.wYear = 1899;
    st.wMonth = 12;
    st.wDay = 30;
    st.wHour = static_cast<WORD>(PyDateTime_TIME_GET_HOUR(o));
    st.wMinute = static_cast<WORD>(PyDateTime_TIME_GET_MINUTE(o));
    st.wSecond = static_cast<WORD>(PyDateTime_TIME_GET_SECOND(o));
    st.wMilliseconds = static_cast<WORD>(PyDateTime_TIME_GET_MICROSECOND(o) / 1000);
  } else {
    return false;
  }
  // The platform reads years below 100 as two-digit years (50 as 1950): refused here.
  if (st.wYear < 100 || !SystemTimeToVariantTime(&st, out))
    throw py::value_error("the date " + py::str(value).cast<std::string>() +
                          " has no VT_DATE form (years 100 to 9999)");
  return true;
}

void ToVariant(py::handle value, VARIANT* out) {
  PyObject* o = value.ptr();
  if (o == Py_None) return;
  if (PyBool_Check(o)) {
    out->vt = VT_BOOL;
    out->boolVal = o == Py_True ? VARIANT_TRUE : VARIANT_FALSE;
    return;
  }
  if (PyLong_Check(o)) return IntToVariant(value, out);
  if (PyFloat_Check(o)) {
    out->vt = VT_R8;
    out->dblVal = PyFloat_AS_DOUBLE(o);
    return;
  }
  if (PyUnicode_Check(o)) {
    out->bstrVal = ToBstr(value);
    out->vt = VT_BSTR;
    return;
  }
  if (IDispatch* dispatch = DispatchOf(value)) {
    dispatch->AddRef();
    out->vt = VT_DISPATCH;
    out->pdispVal = dispatch;
    return;
  }
  if (py::isinstance<MissingArgument>(value)) {
    out->vt = VT_ERROR;
    out->scode = DISP_E_PARAMNOTFOUND;
    return;
  }
  if (py::isinstance<ExplicitVariant>(value)) return ExplicitToVariant(value.cast<const ExplicitVariant&>(), out);
  if (py::isinstance<UnknownObject>(value)) {
    IUnknown* unknown = value.cast<const UnknownObject&>().unknown;
    if (unknown) unknown->AddRef();
    out->vt = VT_UNKNOWN;
    out->punkVal = unknown;
    return;
  }
  if (PyBytes_Check(o) || PyByteArray_Check(o) || PyMemoryView_Check(o)) return BytesToVariant(value, out);
  if (py::isinstance(value, DecimalClass())) return DecimalToVariant(value, out);
  DATE date = 0;
  if (VariantTimeFromPython(value, &date)) {
    out->vt = VT_DATE;
    out->date = date;
    return;
  }
  if (PyList_Check(o) || PyTuple_Check(o)) return SequenceToVariant(value, out);
  throw py::type_error(std::string("a value of type ") + Py_TYPE(o)->tp_name + " has no VARIANT form");
}

py::object FromVariant(const VARIANT& value) {
  if (value.vt & VT_BYREF) {
    CComVariant copy;
    Check(VariantCopyInd(&copy, &value), "reading a value by reference");
    return FromVariant(copy);
  }
  if (value.vt & VT_ARRAY) return FromSafeArray(value.parray, value.vt & VT_TYPEMASK);
  switch (value.vt) {
    case VT_EMPTY:
    case VT_NULL: return py::none();
    case VT_I1: return py::int_(static_cast<long>(value.cVal));
    case VT_I2: return py::int_(value.iVal);
    case VT_I4: return py::int_(value.lVal);
    case VT_INT: return py::int_(value.intVal);
    case VT_I8: return py::int_(value.llVal);
    case VT_UI1: return py::int_(value.bVal);
    case VT_UI2: return py::int_(value.uiVal);
    case VT_UI4: return py::int_(value.ulVal);
    case VT_UINT: return py::int_(value.uintVal);
    case VT_UI8: return py::int_(value.ullVal);
    case VT_R4: return py::float_(value.fltVal);
    case VT_R8: return py::float_(value.dblVal);
    case VT_BOOL: return py::bool_(value.boolVal != VARIANT_FALSE);
    case VT_BSTR: return FromBstr(value.bstrVal);
    case VT_CY: {
      const LONGLONG units = value.cyVal.int64;
      const UInt128 magnitude = units < 0 ? static_cast<UInt128>(-(units + 1)) + 1 : static_cast<UInt128>(units);
      return MakeDecimal(DigitsText(magnitude, 4, units < 0));
    }
    case VT_DECIMAL: {
      const UInt128 v = (static_cast<UInt128>(value.decVal.Hi32) << 64) | value.decVal.Lo64;
      return MakeDecimal(DigitsText(v, value.decVal.scale, (value.decVal.sign & DECIMAL_NEG) != 0));
    }
    case VT_DATE: return DateTimeFromVariantTime(value.date);
    case VT_ERROR:
      if (value.scode == DISP_E_PARAMNOTFOUND) return py::cast(MissingArgument{});
      return py::int_(static_cast<uint32_t>(value.scode));
    case VT_DISPATCH: return FromDispatch(value.pdispVal);
    case VT_UNKNOWN: return FromUnknown(value.punkVal);
    default: throw py::type_error("the VARIANT type " + std::to_string(value.vt) + " has no Python form");
  }
}

py::object FromDispatch(IDispatch* dispatch) {
  if (!dispatch) return py::none();
  return WrapDispatch(CComPtr<IDispatch>(dispatch));
}

py::object FromUnknown(IUnknown* unknown) {
  if (!unknown) return py::none();
  CComPtr<IDispatch> dispatch;
  if (SUCCEEDED(unknown->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&dispatch))) && dispatch)
    return WrapDispatch(dispatch);
  return py::cast(UnknownObject{CComPtr<IUnknown>(unknown)});
}

void RegisterVariantTypes(py::module_& m) {
  PyDateTime_IMPORT;
  if (!PyDateTimeAPI) throw py::error_already_set();

  py::class_<MissingArgument>(m, "_MissingType", "The type of veltrane.Missing.")
      .def("__repr__", [](const MissingArgument&) { return "veltrane.Missing"; })
      .def("__bool__", [](const MissingArgument&) { return false; });
  m.attr("Missing") = py::cast(MissingArgument{});

  py::class_<ExplicitVariant>(m, "Variant",
                              "A value with an explicit VARIANT type, such as Variant(VT_I2, 5) or\n"
                              "Variant(VT_BYREF | VT_BSTR, '') for an [out] argument, whose .value\n"
                              "holds what the call wrote back.")
      .def(py::init([](int vt, py::object value) {
             return ExplicitVariant{static_cast<VARTYPE>(vt), std::move(value)};
           }),
           py::arg("vt"), py::arg("value") = py::none())
      .def_property_readonly("vt", [](const ExplicitVariant& v) { return static_cast<int>(v.vt); })
      .def_readwrite("value", &ExplicitVariant::value)
      .def("__repr__", [](const ExplicitVariant& v) {
        return "veltrane.Variant(" + std::to_string(v.vt) + ", " + py::repr(v.value).cast<std::string>() + ")";
      });

  py::class_<UnknownObject>(m, "Unknown", "An object of the library that offers no IDispatch.")
      .def("__repr__", [](const UnknownObject&) { return "<veltrane.Unknown>"; })
      .def("__eq__",
           [](const UnknownObject& a, py::handle b) {
             return py::isinstance<UnknownObject>(b) && SameObject(a.unknown, b.cast<const UnknownObject&>().unknown);
           })
      .def("__hash__", [](const UnknownObject& a) { return IdentityHash(a.unknown); });

  const std::pair<const char*, int> types[] = {{"VT_EMPTY", VT_EMPTY},     {"VT_NULL", VT_NULL},
                                               {"VT_I2", VT_I2},           {"VT_I4", VT_I4},
                                               {"VT_R4", VT_R4},           {"VT_R8", VT_R8},
                                               {"VT_CY", VT_CY},           {"VT_DATE", VT_DATE},
                                               {"VT_BSTR", VT_BSTR},       {"VT_DISPATCH", VT_DISPATCH},
                                               {"VT_ERROR", VT_ERROR},     {"VT_BOOL", VT_BOOL},
                                               {"VT_VARIANT", VT_VARIANT}, {"VT_UNKNOWN", VT_UNKNOWN},
                                               {"VT_DECIMAL", VT_DECIMAL}, {"VT_I1", VT_I1},
                                               {"VT_UI1", VT_UI1},         {"VT_UI2", VT_UI2},
                                               {"VT_UI4", VT_UI4},         {"VT_I8", VT_I8},
                                               {"VT_UI8", VT_UI8},         {"VT_INT", VT_INT},
                                               {"VT_UINT", VT_UINT},       {"VT_ARRAY", VT_ARRAY},
                                               {"VT_BYREF", VT_BYREF}};
  for (const auto& [name, value] : types) m.attr(name) = value;
}

}  // namespace vpy
