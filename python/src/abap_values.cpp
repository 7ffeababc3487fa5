#include "abap_values.h"

#include <pybind11/stl.h>

#include <datetime.h>

#include <memory>
#include <unordered_map>
#include <vector>

#include <text.h>

#include "com_error.h"
#include "dispatch_object.h"
#include "invoke.h"
#include "variant_convert.h"

namespace vpy {

namespace {

// Reads a property without arguments.
void Get(IDispatch* object, const char* name, VARIANT* out) {
  const DISPID id = IdOfName(object, name);
  if (id == DISPID_UNKNOWN) throw py::type_error(std::string("the object has no member ") + name);
  InvokeRaw(object, id, DISPATCH_PROPERTYGET, nullptr, 0, out, name, false);
}

long GetLong(IDispatch* object, const char* name) {
  CComVariant v;
  Get(object, name, &v);
  CComVariant i;
  Check(VariantChangeType(&i, &v, 0, VT_I4), std::string("reading ") + name);
  return i.lVal;
}

CComPtr<IDispatch> GetObject(IDispatch* object, const char* name) {
  CComVariant v;
  Get(object, name, &v);
  if (v.vt != VT_DISPATCH || !v.pdispVal) throw py::value_error(std::string(name) + " is not set");
  return CComPtr<IDispatch>(v.pdispVal);
}

// The default member with one index argument: Item(i).
CComPtr<IDispatch> ItemAt(IDispatch* collection, long position) {
  CComVariant index, result;
  index.vt = VT_I4;
  index.lVal = position;
  InvokeRaw(collection, DISPID_VALUE, DISPATCH_PROPERTYGET, &index, 1, &result, "Item", false);
  if (result.vt != VT_DISPATCH || !result.pdispVal) throw py::value_error("an item is not an object");
  return CComPtr<IDispatch>(result.pdispVal);
}

// Calls `each` with every element of a collection, through _NewEnum.
template <class Each>
void ForEachElement(IDispatch* collection, Each each) {
  CComVariant result;
  InvokeRaw(collection, DISPID_NEWENUM, DISPATCH_METHOD | DISPATCH_PROPERTYGET, nullptr, 0, &result, "_NewEnum", false);
  IUnknown* source = result.vt == VT_UNKNOWN ? result.punkVal : result.vt == VT_DISPATCH ? result.pdispVal : nullptr;
  CComPtr<IEnumVARIANT> items;
  Check(source ? source->QueryInterface(IID_IEnumVARIANT, reinterpret_cast<void**>(&items)) : E_NOINTERFACE,
        "enumerating a collection");
  constexpr ULONG kBatch = 64;
  VARIANT batch[kBatch];
  for (;;) {
    ULONG fetched = 0;
    Check(items->Next(kBatch, batch, &fetched), "enumerating a collection");
    ULONG i = 0;
    try {
      for (; i < fetched; ++i) {
        each(batch[i].vt == VT_DISPATCH ? batch[i].pdispVal : nullptr);
        VariantClear(&batch[i]);
      }
    } catch (...) {
      for (; i < fetched; ++i) VariantClear(&batch[i]);
      throw;
    }
    if (fetched < kBatch) return;
  }
}

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

bool AllDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

std::string TypeOf(py::handle value) { return Py_TYPE(value.ptr())->tp_name; }

[[noreturn]] void Refuse(const std::string& path, const std::string& expected, py::handle value) {
  throw py::type_error(path + ": expects " + expected + ", not " + TypeOf(value) + " " +
                       py::repr(value).cast<std::string>());
}

[[noreturn]] void Invalid(const std::string& path, const std::string& what) {
  throw py::value_error(path + ": " + what);
}

std::string Text(py::handle value) { return value.cast<std::string>(); }

// ---- reading ---------------------------------------------------------------

py::object DateOf(int year, int month, int day) {
  PyObject* d = PyDate_FromDate(year, month, day);
  if (!d) {
    PyErr_Clear();
    return py::none();
  }
  return py::reinterpret_steal<py::object>(d);
}

py::object ReadDate(const VARIANT& v) {
  if (v.vt == VT_DATE) {
    SYSTEMTIME st{};
    if (!VariantTimeToSystemTime(v.date, &st)) return FromVariant(v);
    return DateOf(st.wYear, st.wMonth, st.wDay);
  }
  if (v.vt == VT_BSTR) {
    std::string text = Trimmed(veltrane::cli::toUtf8(std::u16string_view(v.bstrVal, SysStringLen(v.bstrVal))));
    if (text.size() == 10 && text[4] == '-' && text[7] == '-')
      text = text.substr(0, 4) + text.substr(5, 2) + text.substr(8, 2);
    if (text.empty() || text == "00000000") return py::none();
    if (AllDigits(text) && text.size() == 8) {
      py::object d = DateOf(std::stoi(text.substr(0, 4)), std::stoi(text.substr(4, 2)), std::stoi(text.substr(6, 2)));
      if (!d.is_none()) return d;
    }
  }
  return FromVariant(v);
}

py::object ReadTime(const VARIANT& v) {
  if (v.vt == VT_DATE) {
    SYSTEMTIME st{};
    if (!VariantTimeToSystemTime(v.date, &st)) return FromVariant(v);
    return py::reinterpret_steal<py::object>(PyTime_FromTime(st.wHour, st.wMinute, st.wSecond, 0));
  }
  if (v.vt == VT_BSTR) {
    std::string text = Trimmed(veltrane::cli::toUtf8(std::u16string_view(v.bstrVal, SysStringLen(v.bstrVal))));
    if (text.size() == 8 && text[2] == ':' && text[5] == ':')
      text = text.substr(0, 2) + text.substr(3, 2) + text.substr(6, 2);
    if (text.size() == 6 && AllDigits(text)) {
      const int h = std::stoi(text.substr(0, 2)), m = std::stoi(text.substr(2, 2)), s = std::stoi(text.substr(4, 2));
      if (h < 24 && m < 60 && s < 60) return py::reinterpret_steal<py::object>(PyTime_FromTime(h, m, s, 0));
    }
  }
  return FromVariant(v);
}

py::object ReadDecimal(const VARIANT& v) {
  if (v.vt != VT_BSTR) {
    py::object value = FromVariant(v);
    if (value.is_none()) return MakeDecimal("0");
    if (PyFloat_Check(value.ptr())) return MakeDecimal(py::repr(value).cast<std::string>());
    if (PyLong_Check(value.ptr())) return MakeDecimal(py::str(value).cast<std::string>());
    return value;
  }
  std::string text = Trimmed(veltrane::cli::toUtf8(std::u16string_view(v.bstrVal, SysStringLen(v.bstrVal))));
  if (text.empty()) return MakeDecimal("0");
  if (text.back() == '-') text = "-" + Trimmed(text.substr(0, text.size() - 1));  // ABAP's trailing sign
  try {
    return MakeDecimal(text);
  } catch (py::error_already_set&) {
    return FromVariant(v);  // not a number: the text as it came
  }
}

// An integer in the range of its ABAP type: a back end may hand INT4 and INT2 over
// as their unsigned bits and INT1 (0 to 255) as a signed byte.
py::object InRange(py::object number, int abapType) {
  if (!PyLong_Check(number.ptr())) return number;
  int overflow = 0;
  const long long n = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
  if (overflow != 0) return number;
  if (abapType == TYPE_INT && n > INT32_MAX && n <= UINT32_MAX) return py::int_(n - (1LL << 32));
  if (abapType == TYPE_INT2 && n > INT16_MAX && n <= UINT16_MAX) return py::int_(n - (1LL << 16));
  if (abapType == TYPE_INT1 && n < 0 && n >= INT8_MIN) return py::int_(n + 256);
  return number;
}

py::object ReadInteger(const VARIANT& v, int abapType) {
  if (v.vt == VT_BSTR) {
    const std::string text = Trimmed(veltrane::cli::toUtf8(std::u16string_view(v.bstrVal, SysStringLen(v.bstrVal))));
    if (text.empty()) return py::int_(0);
    PyObject* n = PyLong_FromString(text.c_str(), nullptr, 10);
    if (n) return InRange(py::reinterpret_steal<py::object>(n), abapType);
    PyErr_Clear();
  }
  return InRange(FromVariant(v), abapType);
}

py::object ReadFloat(const VARIANT& v) {
  if (v.vt == VT_BSTR) {
    const std::string text = Trimmed(veltrane::cli::toUtf8(std::u16string_view(v.bstrVal, SysStringLen(v.bstrVal))));
    if (text.empty()) return py::float_(0.0);
    char* end = nullptr;
    const double d = std::strtod(text.c_str(), &end);
    if (end == text.c_str() + text.size()) return py::float_(d);
  }
  return FromVariant(v);
}

py::object ReadText(const VARIANT& v, bool rstrip) {
  if (v.vt == VT_EMPTY || v.vt == VT_NULL) return py::str("");
  if (v.vt != VT_BSTR || !rstrip) return FromVariant(v);
  UINT n = SysStringLen(v.bstrVal);
  while (n > 0 && v.bstrVal[n - 1] == u' ') --n;
  return FromUtf16(v.bstrVal, n);
}

py::object ReadBytes(const VARIANT& v) {
  if (v.vt == VT_EMPTY || v.vt == VT_NULL) return py::bytes();
  if (v.vt == VT_BSTR) {
    py::object text = FromBstr(v.bstrVal);
    try {
      return py::module_::import("builtins").attr("bytes").attr("fromhex")(text);
    } catch (py::error_already_set&) {
      return text;
    }
  }
  return FromVariant(v);
}

py::object ReadScalar(const VARIANT& v, int abapType, bool rstrip) {
  switch (abapType) {
    case TYPE_DATE: return ReadDate(v);
    case TYPE_TIME: return ReadTime(v);
    case TYPE_BCD: return ReadDecimal(v);
    case TYPE_INT:
    case TYPE_INT2:
    case TYPE_INT1: return ReadInteger(v, abapType);
    case TYPE_FLOAT: return ReadFloat(v);
    case TYPE_CHAR: return ReadText(v, rstrip);
    case TYPE_NUM:
    case TYPE_STRING: return ReadText(v, false);
    case TYPE_BYTE:
    case TYPE_XSTRING: return ReadBytes(v);
    default: return FromVariant(v);
  }
}

// ---- writing ---------------------------------------------------------------

void PutText(const std::string& text, VARIANT* out) {
  const std::u16string wide = veltrane::cli::toUtf16(text);
  out->bstrVal = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
  if (!out->bstrVal) throw std::bad_alloc();
  out->vt = VT_BSTR;
}

char* Digits(char* buffer, size_t size, const char* format, int a, int b, int c) {
  std::snprintf(buffer, size, format, a, b, c);
  return buffer;
}

void WriteDate(py::handle value, const std::string& path, VARIANT* out) {
  char buffer[16];
  if (PyDate_Check(value.ptr()))  // datetime.datetime too
    return PutText(Digits(buffer, sizeof buffer, "%04d%02d%02d", PyDateTime_GET_YEAR(value.ptr()),
                          PyDateTime_GET_MONTH(value.ptr()), PyDateTime_GET_DAY(value.ptr())),
                   out);
  if (!PyUnicode_Check(value.ptr())) Refuse(path, "datetime.date or a text 'YYYYMMDD' / 'YYYY-MM-DD'", value);
  std::string text = Trimmed(Text(value));
  if (text.size() == 10 && text[4] == '-' && text[7] == '-')
    text = text.substr(0, 4) + text.substr(5, 2) + text.substr(8, 2);
  if (text.empty() || text == "00000000") return PutText(text, out);
  if (text.size() != 8 || !AllDigits(text) ||
      DateOf(std::stoi(text.substr(0, 4)), std::stoi(text.substr(4, 2)), std::stoi(text.substr(6, 2))).is_none())
    Invalid(path, "'" + Text(value) + "' is not a date (YYYYMMDD or YYYY-MM-DD)");
  PutText(text, out);
}

void WriteTime(py::handle value, const std::string& path, VARIANT* out) {
  char buffer[16];
  PyObject* o = value.ptr();
  if (PyTime_Check(o))
    return PutText(Digits(buffer, sizeof buffer, "%02d%02d%02d", PyDateTime_TIME_GET_HOUR(o),
                          PyDateTime_TIME_GET_MINUTE(o), PyDateTime_TIME_GET_SECOND(o)),
                   out);
  if (PyDateTime_Check(o))
    return PutText(Digits(buffer, sizeof buffer, "%02d%02d%02d", PyDateTime_DATE_GET_HOUR(o),
                          PyDateTime_DATE_GET_MINUTE(o), PyDateTime_DATE_GET_SECOND(o)),
                   out);
  if (!PyUnicode_Check(o)) Refuse(path, "datetime.time or a text 'HHMMSS' / 'HH:MM:SS'", value);
  std::string text = Trimmed(Text(value));
  if (text.size() == 8 && text[2] == ':' && text[5] == ':')
    text = text.substr(0, 2) + text.substr(3, 2) + text.substr(6, 2);
  if (text.empty()) return PutText(text, out);
  if (text.size() != 6 || !AllDigits(text) || std::stoi(text.substr(0, 2)) > 23 || std::stoi(text.substr(2, 2)) > 59 ||
      std::stoi(text.substr(4, 2)) > 59)
    Invalid(path, "'" + Text(value) + "' is not a time (HHMMSS or HH:MM:SS)");
  PutText(text, out);
}

void WriteDecimal(py::handle value, const std::string& path, VARIANT* out) {
  PyObject* o = value.ptr();
  py::object number;
  if (PyBool_Check(o)) Refuse(path, "decimal.Decimal, int, float or a number as text", value);
  try {
    if (PyFloat_Check(o))
      number = MakeDecimal(py::repr(value).cast<std::string>());
    else if (PyLong_Check(o) || PyUnicode_Check(o))
      number = MakeDecimal(Trimmed(py::str(value).cast<std::string>()));
    else if (py::isinstance(value, py::module_::import("decimal").attr("Decimal")))
      number = py::reinterpret_borrow<py::object>(value);
    else
      Refuse(path, "decimal.Decimal, int, float or a number as text", value);
  } catch (py::error_already_set& e) {
    if (!e.matches(PyExc_ArithmeticError) && !e.matches(PyExc_ValueError)) throw;
    Invalid(path, "'" + py::str(value).cast<std::string>() + "' is not a decimal number");
  }
  if (!number.attr("is_finite")().cast<bool>())
    Invalid(path, py::str(value).cast<std::string>() + " is not a finite number");
  PutText(py::module_::import("builtins").attr("format")(number, "f").cast<std::string>(), out);
}

void WriteInteger(py::handle value, int abapType, bool signedInt1, const std::string& path, VARIANT* out) {
  if (!PyLong_Check(value.ptr()) || PyBool_Check(value.ptr())) Refuse(path, "int", value);
  const long long lo = abapType == TYPE_INT ? INT32_MIN : abapType == TYPE_INT2 ? INT16_MIN : 0;
  const long long hi = abapType == TYPE_INT ? INT32_MAX : abapType == TYPE_INT2 ? INT16_MAX : 255;
  int overflow = 0;
  const long long n = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (overflow != 0 || n < lo || n > hi)
    Invalid(path, py::str(value).cast<std::string>() + " is out of range (" + std::to_string(lo) + " to " +
                      std::to_string(hi) + ")");
  out->vt = VT_I4;
  out->lVal = static_cast<LONG>(abapType == TYPE_INT1 && signedInt1 && n > INT8_MAX ? n - 256 : n);
}

void WriteScalar(py::handle value, int abapType, bool signedInt1, const std::string& path, VARIANT* out) {
  PyObject* o = value.ptr();
  if (o == Py_None) return;
  switch (abapType) {
    case TYPE_DATE: return WriteDate(value, path, out);
    case TYPE_TIME: return WriteTime(value, path, out);
    case TYPE_BCD: return WriteDecimal(value, path, out);
    case TYPE_INT:
    case TYPE_INT2:
    case TYPE_INT1: return WriteInteger(value, abapType, signedInt1, path, out);
    case TYPE_FLOAT: {
      if (PyBool_Check(o) || !(PyFloat_Check(o) || PyLong_Check(o) || py::hasattr(value, "as_tuple")))
        Refuse(path, "float", value);
      out->vt = VT_R8;
      out->dblVal = PyFloat_AsDouble(value.ptr());
      if (out->dblVal == -1.0 && PyErr_Occurred()) throw py::error_already_set();
      return;
    }
    case TYPE_NUM: {
      std::string text;
      if (PyLong_Check(o) && !PyBool_Check(o))
        text = py::str(value).cast<std::string>();
      else if (PyUnicode_Check(o))
        text = Text(value);
      else
        Refuse(path, "str of digits or int", value);
      if (!text.empty() && !AllDigits(text)) Invalid(path, "'" + text + "' is not a string of digits");
      return PutText(text, out);
    }
    case TYPE_BYTE:
    case TYPE_XSTRING:
      if (!(PyBytes_Check(o) || PyByteArray_Check(o) || PyMemoryView_Check(o))) Refuse(path, "bytes", value);
      return ToVariant(value, out);
    case TYPE_CHAR:
    case TYPE_STRING:
      if (!PyUnicode_Check(o)) Refuse(path, "str", value);
      out->bstrVal = ToBstr(value);
      out->vt = VT_BSTR;
      return;
    default: return ToVariant(value, out);
  }
}

// ---- the schema --------------------------------------------------------------

struct Schema {
  enum class Kind { Undefined, Scalar, Structure, Table };
  Kind kind = Kind::Undefined;
  int abapType = -1;
  std::vector<std::string> names;  // structure members
  std::vector<py::object> keys;    // the same names as Python str, made once
  std::vector<std::shared_ptr<Schema>> members;
  std::unordered_map<std::string, size_t> positions;  // upper-case name; the later of two wins
  std::shared_ptr<Schema> row;                        // table
  bool signedInt1 = false;                            // INT1 goes to the back end as a signed byte

  const Schema& rowSchema() const { return kind == Kind::Table ? *row : *this; }
};

std::shared_ptr<Schema> SchemaOf(IDispatch* type, bool signedInt1, int depth) {
  if (depth > 64) throw py::value_error("types nested deeper than 64 levels");
  auto schema = std::make_shared<Schema>();
  schema->signedInt1 = signedInt1;
  switch (GetLong(type, "Kind")) {
    case RFCTYPEKIND_SCALAR:
      schema->kind = Schema::Kind::Scalar;
      schema->abapType = static_cast<int>(GetLong(type, "ScalarType"));
      break;
    case RFCTYPEKIND_STRUCT:
    case RFCTYPEKIND_COMPLEX_STRUCT: {
      schema->kind = Schema::Kind::Structure;
      ForEachElement(GetObject(type, "StructFields"), [&](IDispatch* member) {
        if (!member) return;
        CComVariant name;
        Get(member, "name", &name);
        const std::string text =
            name.vt == VT_BSTR ? veltrane::cli::toUtf8(std::u16string_view(name.bstrVal, SysStringLen(name.bstrVal)))
                               : "";
        schema->positions[veltrane::cli::upperAscii(text)] = schema->names.size();
        schema->names.push_back(text);
        schema->keys.push_back(py::str(text));
        schema->members.push_back(SchemaOf(member, signedInt1, depth + 1));
      });
      break;
    }
    case RFCTYPEKIND_TABLE:
      schema->kind = Schema::Kind::Table;
      schema->row = SchemaOf(GetObject(type, "RowType"), signedInt1, depth + 1);
      break;
    default: break;
  }
  return schema;
}

py::object Read(const Schema& schema, IDispatch* target, bool rstrip);

py::dict ReadFields(const Schema& schema, IDispatch* fields, bool rstrip) {
  py::dict row;
  size_t i = 0;
  ForEachElement(fields, [&](IDispatch* field) {
    if (i < schema.members.size() && field) row[schema.keys[i]] = Read(*schema.members[i], field, rstrip);
    ++i;
  });
  return row;
}

py::list ReadRows(const Schema& row, IDispatch* rows, bool rstrip) {
  py::list out;
  ForEachElement(rows, [&](IDispatch* fields) {
    if (fields) out.append(ReadFields(row, fields, rstrip));
  });
  return out;
}

// The value of a parameter or field.
py::object Read(const Schema& schema, IDispatch* target, bool rstrip) {
  switch (schema.kind) {
    case Schema::Kind::Scalar: {
      CComVariant value;
      InvokeRaw(target, DISPID_VALUE, DISPATCH_PROPERTYGET, nullptr, 0, &value, "value", false);
      return ReadScalar(value, schema.abapType, rstrip);
    }
    case Schema::Kind::Structure: return ReadFields(schema, GetObject(target, "Fields"), rstrip);
    case Schema::Kind::Table: return ReadRows(*schema.row, GetObject(target, "Rows"), rstrip);
    default: return py::none();
  }
}

void Write(const Schema& schema, IDispatch* target, py::handle value, const std::string& path);

void WriteFields(const Schema& schema, IDispatch* fields, py::handle value, const std::string& path) {
  if (!PyDict_Check(value.ptr()) && !py::hasattr(value, "items")) Refuse(path, "a dict of fields", value);
  for (auto item : py::reinterpret_borrow<py::object>(value).attr("items")()) {
    py::tuple pair = py::reinterpret_borrow<py::tuple>(item);
    const std::string key = py::str(pair[0]).cast<std::string>();
    auto it = schema.positions.find(veltrane::cli::upperAscii(key));
    if (it == schema.positions.end()) {
      std::string known;
      for (const auto& n : schema.names) known += (known.empty() ? "" : ", ") + n;
      throw py::key_error(path + ": no field " + key + " (fields: " + known + ")");
    }
    Write(*schema.members[it->second], ItemAt(fields, static_cast<long>(it->second + 1)), pair[1],
          path + "." + schema.names[it->second]);
  }
}

void WriteRows(const Schema& row, IDispatch* rows, py::handle value, const std::string& path) {
  if (PyUnicode_Check(value.ptr()) || PyDict_Check(value.ptr()) || !py::isinstance<py::iterable>(value))
    Refuse(path, "a list of rows (dicts)", value);
  CComVariant none;
  InvokeRaw(rows, IdOfName(rows, "RemoveAll"), DISPATCH_METHOD, nullptr, 0, &none, "RemoveAll", false);
  const DISPID addRow = IdOfName(rows, "AddRow");
  size_t n = 0;
  for (py::handle item : py::reinterpret_borrow<py::iterable>(value)) {
    CComVariant added;
    InvokeRaw(rows, addRow, DISPATCH_METHOD, nullptr, 0, &added, "AddRow", false);
    if (added.vt != VT_DISPATCH || !added.pdispVal) throw py::value_error(path + ": AddRow gave no row");
    WriteFields(row, added.pdispVal, item, path + "[" + std::to_string(n++) + "]");
  }
}

void Write(const Schema& schema, IDispatch* target, py::handle value, const std::string& path) {
  switch (schema.kind) {
    case Schema::Kind::Scalar: {
      CComVariant converted;
      WriteScalar(value, schema.abapType, schema.signedInt1, path, &converted);
      InvokeRaw(target, DISPID_VALUE, DISPATCH_PROPERTYPUT, &converted, 1, nullptr, path, false);
      return;
    }
    case Schema::Kind::Structure:
      if (value.is_none()) return;
      return WriteFields(schema, GetObject(target, "Fields"), value, path);
    case Schema::Kind::Table:
      if (value.is_none()) return;
      return WriteRows(*schema.row, GetObject(target, "Rows"), value, path);
    default: throw py::type_error(path + ": the parameter has no type to fill");
  }
}

IDispatch* Required(py::handle object) {
  IDispatch* dispatch = DispatchOf(object);
  if (!dispatch) throw py::type_error("expected a veltrane.Dispatch, not " + TypeOf(object));
  return dispatch;
}

const char* KindName(Schema::Kind kind) {
  switch (kind) {
    case Schema::Kind::Scalar: return "scalar";
    case Schema::Kind::Structure: return "structure";
    case Schema::Kind::Table: return "table";
    default: return "undefined";
  }
}

}  // namespace

void RegisterAbapValues(py::module_& m) {
  PyDateTime_IMPORT;
  if (!PyDateTimeAPI) throw py::error_already_set();
  py::class_<Schema, std::shared_ptr<Schema>>(m, "Schema",
                                              "The shape of an RfcType, read once, for reading and writing the\n"
                                              "values of parameters, fields and rows of that type.")
      .def_property_readonly("kind", [](const Schema& s) { return KindName(s.kind); })
      .def_property_readonly("abap_type", [](const Schema& s) { return s.abapType; })
      .def_property_readonly("names", [](const Schema& s) { return s.rowSchema().names; })
      .def(
          "read", [](const Schema& s, py::handle target, bool rstrip) { return Read(s, Required(target), rstrip); },
          py::arg("target"), py::arg("rstrip") = true,
          "The value of a parameter or field (RfcParameter, RfcField) of this type.")
      .def(
          "write",
          [](const Schema& s, py::handle target, py::handle value, const std::string& path) {
            Write(s, Required(target), value, path);
          },
          py::arg("target"), py::arg("value"), py::arg("path") = "value",
          "Puts a value into a parameter or field of this type; `path` names it in errors.")
      .def(
          "read_rows",
          [](const Schema& s, py::handle rows, bool rstrip) { return ReadRows(s.rowSchema(), Required(rows), rstrip); },
          py::arg("rows"), py::arg("rstrip") = true, "The rows of an RfcRows of this (table or row) type as dicts.");
  m.def(
      "schema_of", [](py::handle type, bool signedInt1) { return SchemaOf(Required(type), signedInt1, 0); },
      py::arg("rfc_type"), py::arg("signed_int1") = false,
      "The Schema of an RfcType; signed_int1: INT1 values above 127 are written as\n"
      "the signed byte with those bits, for a back end that takes INT1 that way.");
}

}  // namespace vpy
