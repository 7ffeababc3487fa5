// HttpSystemData: where the SOAP service of a system is. Plain stored
// values without validation; one instance belongs to each SOAP session.
// Protocol and Timeout are kept for the client only: traffic is plain HTTP
// and the wait limit is the session's own.
#pragma once

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "platform/property.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CHttpSystemData : public CComObjectBase<CHttpSystemData, CoClassHttpSystemData<CHttpSystemData>> {
 public:
  CHttpSystemData();

  HRESULT STDMETHODCALLTYPE get_Protocol(BSTR* pVal) override { return GetProperty(m_protocol, pVal); }
  HRESULT STDMETHODCALLTYPE put_Protocol(BSTR newVal) override { return PutProperty(m_protocol, newVal); }
  HRESULT STDMETHODCALLTYPE get_Host(BSTR* pVal) override { return GetProperty(m_host, pVal); }
  HRESULT STDMETHODCALLTYPE put_Host(BSTR newVal) override { return PutProperty(m_host, newVal); }
  HRESULT STDMETHODCALLTYPE get_Port(LONG* pVal) override { return GetProperty(m_port, pVal); }
  HRESULT STDMETHODCALLTYPE put_Port(LONG newVal) override {
    m_port = newVal;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_SoapEndpoint(BSTR* pVal) override { return GetProperty(m_soapEndpoint, pVal); }
  HRESULT STDMETHODCALLTYPE put_SoapEndpoint(BSTR newVal) override { return PutProperty(m_soapEndpoint, newVal); }
  HRESULT STDMETHODCALLTYPE get_Timeout(LONG* pVal) override { return GetProperty(m_timeout, pVal); }
  HRESULT STDMETHODCALLTYPE put_Timeout(LONG newVal) override {
    m_timeout = newVal;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_ProxyHost(BSTR* pVal) override { return GetProperty(m_proxyHost, pVal); }
  HRESULT STDMETHODCALLTYPE put_ProxyHost(BSTR newVal) override { return PutProperty(m_proxyHost, newVal); }
  HRESULT STDMETHODCALLTYPE get_ProxyPort(LONG* pVal) override { return GetProperty(m_proxyPort, pVal); }
  HRESULT STDMETHODCALLTYPE put_ProxyPort(LONG newVal) override {
    m_proxyPort = newVal;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_ProxyUser(BSTR* pVal) override { return GetProperty(m_proxyUser, pVal); }
  HRESULT STDMETHODCALLTYPE put_ProxyUser(BSTR newVal) override { return PutProperty(m_proxyUser, newVal); }
  HRESULT STDMETHODCALLTYPE get_ProxyPassword(BSTR* pVal) override { return GetProperty(m_proxyPassword, pVal); }
  HRESULT STDMETHODCALLTYPE put_ProxyPassword(BSTR newVal) override { return PutProperty(m_proxyPassword, newVal); }
  HRESULT STDMETHODCALLTYPE get_Stateful(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE put_Stateful(VARIANT_BOOL newVal) override {
    m_stateful = newVal;
    return S_OK;
  }

 private:
  CComBSTR m_protocol;
  CComBSTR m_host;
  LONG m_port = 0;
  CComBSTR m_soapEndpoint;
  LONG m_timeout = 60000;
  CComBSTR m_proxyHost;
  LONG m_proxyPort = 0;
  CComBSTR m_proxyUser;
  CComBSTR m_proxyPassword;
  VARIANT_BOOL m_stateful = VARIANT_FALSE;
};
