#include "model/rfc_parameters.h"

#include "model/rfc_field.h"
#include "model/rfc_parameter.h"
#include "model/rfc_type.h"

HRESULT CRfcParameters::AddScalar(BSTR name, ABAPTYPE type, SHORT length, SHORT decimals, VARIANT value) {
  CComPtr<CRfcParameter> parameter;
  HRESULT hr = CRfcParameter::CreateInstance(&parameter.p);
  if (FAILED(hr)) return hr;
  // Success whatever the definition reported, without its record.
  if (FAILED(parameter->DefineScalar(name, type, length, decimals, value))) SetErrorInfo(0, nullptr);
  CollAddKeyed(parameter, parameter->Field().Name());
  return S_OK;
}

HRESULT CRfcParameters::AddParameter(BSTR name, IRfcType* type) {
  CComPtr<CRfcParameter> parameter;
  HRESULT hr = CRfcParameter::CreateInstance(&parameter.p);
  if (FAILED(hr)) return hr;
  // Success whatever the definition reported, without its record: callers
  // that care read get_InternalType.
  if (FAILED(parameter->Define(name, type))) SetErrorInfo(0, nullptr);
  CollAddKeyed(parameter, parameter->Field().Name());
  return S_OK;
}

HRESULT CRfcParameters::AddTable(BSTR name, IRfcType* RowType) {
  if (!RowType) return E_INVALIDARG;
  CComPtr<CRfcType> table;
  HRESULT hr = CRfcType::CreateInstance(&table.p);
  if (FAILED(hr)) return hr;
  hr = table->DefineTable(name, RowType);
  if (FAILED(hr)) return hr;
  return AddParameter(name, table);
}

HRESULT CRfcParameters::RemoveParameter(BSTR name) {
  CComVariant key;
  key.vt = VT_BSTR;
  key.bstrVal = BstrCopy(name);
  return CollRemove(key);
}

CRfcParameter* CRfcParameters::LastParameter() const {
  if (m_items.empty()) return nullptr;
  return ModelImpl<CRfcParameter>(m_items.back());
}
