#include "model/rfc_parameter.h"
#include "platform/property.h"

#include "model/collection.h"
#include "model/model_errors.h"
#include "model/rfc_field.h"
#include "model/rfc_type.h"

CRfcParameter::CRfcParameter() = default;
CRfcParameter::~CRfcParameter() = default;

HRESULT CRfcParameter::FinalConstruct() { return CRfcField::CreateInstance(&m_field.p); }

HRESULT CRfcParameter::get_name(BSTR* pVal) { return m_field->get_name(pVal); }
HRESULT CRfcParameter::get_RfcType(IRfcType** pVal) { return m_field->get_RfcType(pVal); }
HRESULT CRfcParameter::get_value(VARIANT* pVal) { return m_field->get_value(pVal); }
HRESULT CRfcParameter::put_value(VARIANT newVal) { return m_field->put_value(newVal); }
HRESULT CRfcParameter::get_Fields(IRfcFields** pVal) { return m_field->get_Fields(pVal); }
HRESULT CRfcParameter::get_Rows(IRfcRows** pVal) { return m_field->get_Rows(pVal); }
HRESULT CRfcParameter::get_InternalType(LONG* pVal) { return m_field->get_InternalType(pVal); }
HRESULT CRfcParameter::get_IsEmpty(VARIANT_BOOL* pVal) { return m_field->get_IsEmpty(pVal); }

HRESULT CRfcParameter::get_InternalField(IRfcField** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_field;
  (*pVal)->AddRef();
  return S_OK;
}

HRESULT CRfcParameter::DefineScalar(BSTR name, ABAPTYPE type, SHORT length, SHORT decimals, VARIANT value) {
  CComPtr<CRfcType> scalar;
  HRESULT hr = CRfcType::CreateInstance(&scalar.p);
  if (FAILED(hr)) return hr;
  hr = scalar->DefineScalar(nullptr, type, length, decimals, -1);
  if (FAILED(hr)) return hr;
  m_field->put_name(name);
  hr = m_field->put_RfcType(scalar);
  if (FAILED(hr)) return hr;
  return m_field->put_value(value);
}

HRESULT CRfcParameter::Define(BSTR name, IRfcType* type) {
  LONG internalType = 0;
  HRESULT hr = get_InternalType(&internalType);
  if (FAILED(hr)) return hr;
  if (internalType != 0) return ModelError(CLSID_RfcParameter, Text::AlreadyInitialized);
  m_field->put_name(name);
  return m_field->put_RfcType(type);
}

HRESULT CRfcParameter::get_Optional(VARIANT_BOOL* pVal) { return GetProperty(m_optional, pVal); }

HRESULT CRfcParameter::put_Optional(VARIANT_BOOL newVal) { return PutProperty(m_optional, newVal); }

HRESULT CRfcParameter::get_Description(BSTR* pVal) { return GetProperty(m_description, pVal); }

HRESULT CRfcParameter::put_Description(BSTR newVal) {
  m_description.Attach(BstrCopy(newVal));
  return S_OK;
}

HRESULT CRfcParameter::get_DefaultValue(BSTR* pVal) { return GetProperty(m_defaultValue, pVal); }

HRESULT CRfcParameter::put_DefaultValue(BSTR newVal) {
  m_defaultValue.Attach(BstrCopy(newVal));
  return S_OK;
}

HRESULT CRfcParameter::get_IsRequested(VARIANT_BOOL* pVal) { return GetProperty(m_isRequested, pVal); }

HRESULT CRfcParameter::put_IsRequested(VARIANT_BOOL newVal) { return PutProperty(m_isRequested, newVal); }
