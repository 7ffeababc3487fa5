#include "session/rfc_error.h"
#include "platform/property.h"

HRESULT CRfcError::get_ERRORGROUP(ERRORGROUP* pVal) { return GetProperty(m_group, pVal); }

HRESULT CRfcError::put_ERRORGROUP(ERRORGROUP newVal) {
  m_group = newVal;
  return S_OK;
}

HRESULT CRfcError::get_ErrorGroupTxt(BSTR* pVal) { return GetProperty(m_groupText, pVal); }
HRESULT CRfcError::put_ErrorGroupTxt(BSTR newVal) { return PutProperty(m_groupText, newVal); }
HRESULT CRfcError::get_Message(BSTR* pVal) { return GetProperty(m_message, pVal); }
HRESULT CRfcError::put_Message(BSTR newVal) { return PutProperty(m_message, newVal); }
HRESULT CRfcError::get_ModuleName(BSTR* pVal) { return GetProperty(m_moduleName, pVal); }
HRESULT CRfcError::put_ModuleName(BSTR newVal) { return PutProperty(m_moduleName, newVal); }

HRESULT SetSessionError(VARIANT_BOOL* error, IRfcError* errorInfo, const RfcErrorRecord* record) {
  if (!error || !errorInfo) return E_POINTER;
  HRESULT hr;
  if (!record) {
    *error = VARIANT_FALSE;
    if (FAILED(hr = errorInfo->put_ERRORGROUP(RFCERROR_NO_ERROR))) return hr;
    CComBSTR empty(u"");
    if (FAILED(hr = errorInfo->put_ErrorGroupTxt(empty))) return hr;
    if (FAILED(hr = errorInfo->put_Message(empty))) return hr;
    return errorInfo->put_ModuleName(empty);
  }
  *error = VARIANT_TRUE;
  if (FAILED(hr = errorInfo->put_ERRORGROUP(record->group))) return hr;
  if (FAILED(hr = errorInfo->put_ErrorGroupTxt(CComBSTR(std::u16string_view(record->key))))) return hr;
  return errorInfo->put_Message(CComBSTR(std::u16string_view(record->message)));
}
