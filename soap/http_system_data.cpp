#include "soap/http_system_data.h"

CHttpSystemData::CHttpSystemData()
    : m_protocol(u"http"),
      m_host(u""),
      m_soapEndpoint(u"sap/bc/soap/rfc"),
      m_proxyHost(u""),
      m_proxyUser(u""),
      m_proxyPassword(u"") {}

HRESULT CHttpSystemData::get_Stateful(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_stateful;
  return S_OK;
}

HRESULT CHttpSystemData::Get(const CComBSTR& field, BSTR* pVal) {
  if (!pVal) return E_POINTER;
  return field.CopyTo(pVal);
}

HRESULT CHttpSystemData::Get(LONG field, LONG* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = field;
  return S_OK;
}

HRESULT CHttpSystemData::Assign(CComBSTR& field, BSTR value) {
  if (!value) {
    field.Empty();
    return S_OK;
  }
  BSTR copy = SysAllocStringLen(value, SysStringLen(value));
  if (!copy) return E_OUTOFMEMORY;
  field.Attach(copy);
  return S_OK;
}
