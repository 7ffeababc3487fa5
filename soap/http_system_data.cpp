#include "soap/http_system_data.h"

CHttpSystemData::CHttpSystemData()
    : m_protocol(u"http"),
      m_host(u""),
      m_soapEndpoint(u"sap/bc/soap/rfc"),
      m_proxyHost(u""),
      m_proxyUser(u""),
      m_proxyPassword(u"") {}

HRESULT CHttpSystemData::get_Stateful(VARIANT_BOOL* pVal) { return GetProperty(m_stateful, pVal); }
