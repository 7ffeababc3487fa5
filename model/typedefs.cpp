#include "model/typedefs.h"

#include <boost/format.hpp>

#include "platform/comdef.h"
#include "runtime/exceptions.h"
#include "runtime/trace.h"
#include "platform/unicode.h"

namespace {

template <class T>
void RequireObject(const CComPtr<T>& p) {
  if (!p) throw _com_error(E_POINTER);
}

// Traces a failed result with the accessor's name and raises it.
void Check(HRESULT hr, const char* function) {
  if (FAILED(hr)) {
    TraceResult(hr, function, __FILE__, __LINE__);
    throw CXCOMError(hr);
  }
}

void CheckNamed(HRESULT hr, const char* function, const char* text, std::u16string_view name) {
  if (FAILED(hr)) {
    TraceLog(TRACE_ERROR, boost::format(text) % WideToUtf8Lossy(name), function, __FILE__, __LINE__);
    throw CXCOMError(hr);
  }
}

// A successful call that hands out nothing is a failure of the object.
template <class T>
void CheckOut(const CComPtr<T>& out, const char* function) {
  if (!out) Check(E_POINTER, function);
}

CComVariant NameVariant(std::u16string_view name) { return CComVariant(CComBSTR(name)); }

CComVariant FieldValue(const CComPtr<IRfcFields>& fields, std::u16string_view name, const char* function) {
  CComPtr<IRfcField> field;
  CheckNamed(fields->get_Item(NameVariant(name), &field), function, "Error getting struct field %1%", name);
  if (!field) CheckNamed(E_POINTER, function, "Error getting struct field %1%", name);
  CComVariant value;
  CheckNamed(field->get_value(&value), function, "Error getting struct field %1%", name);
  return value;
}

}  // namespace

CComPtr<IRfcParameter> _getParam(const CComPtr<IRfcParameters>& params, std::u16string_view name) {
  RequireObject(params);
  CComPtr<IRfcParameter> param;
  CheckNamed(params->get_Item(NameVariant(name), &param), "_getParam", "Error getting parameter %1%", name);
  if (!param) CheckNamed(E_POINTER, "_getParam", "Error getting parameter %1%", name);
  return param;
}

CComPtr<IRfcRows> _getRows(const CComPtr<IRfcParameter>& param) {
  RequireObject(param);
  CComPtr<IRfcRows> rows;
  Check(param->get_Rows(&rows), "_getRows");
  CheckOut(rows, "_getRows");
  return rows;
}

CComPtr<IRfcRows> _getRows(const CComPtr<IRfcField>& field) {
  RequireObject(field);
  CComPtr<IRfcRows> rows;
  Check(field->get_Rows(&rows), "_getRows");
  CheckOut(rows, "_getRows");
  return rows;
}

CComPtr<IRfcFields> _getRow(const CComPtr<IRfcRows>& rows, LONG index) {
  RequireObject(rows);
  CComPtr<IRfcFields> row;
  Check(rows->get_Item(index, &row), "_getRow");
  CheckOut(row, "_getRow");
  return row;
}

CComVariant _getScalarVal(const CComPtr<IRfcParameter>& param) {
  RequireObject(param);
  CComVariant value;
  Check(param->get_value(&value), "_getScalarVal");
  return value;
}

CComVariant _getScalarVal(const CComPtr<IRfcField>& field) {
  RequireObject(field);
  CComVariant value;
  Check(field->get_value(&value), "_getScalarVal");
  return value;
}

CComVariant _getStructVal(const CComPtr<IRfcFields>& fields, std::u16string_view name) {
  RequireObject(fields);
  return FieldValue(fields, name, "_getStructVal");
}

CComVariant _getStructVal(const CComPtr<IRfcParameter>& param, std::u16string_view name) {
  RequireObject(param);
  CComPtr<IRfcFields> fields;
  CheckNamed(param->get_Fields(&fields), "_getStructVal", "Error getting struct field %1%", name);
  if (!fields) CheckNamed(E_POINTER, "_getStructVal", "Error getting struct field %1%", name);
  return FieldValue(fields, name, "_getStructVal");
}
