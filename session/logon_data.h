// CLogonData: as whom a session logs on (ILogonData). Eight strings, empty at
// the start, and an option store of its own that the component never reads.
#pragma once

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "platform/property.h"
#include "session/option_store.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CLogonData : public CComObjectBase<CLogonData, CoClassLogonData<CLogonData>> {
 public:
  CLogonData();

  HRESULT STDMETHODCALLTYPE get_Client(BSTR* pVal) override { return m_client.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_Client(BSTR newVal) override { return PutProperty(m_client, newVal); }
  HRESULT STDMETHODCALLTYPE get_User(BSTR* pVal) override { return m_user.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_User(BSTR newVal) override { return PutProperty(m_user, newVal); }
  HRESULT STDMETHODCALLTYPE get_Password(BSTR* pVal) override { return m_password.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_Password(BSTR newVal) override { return PutProperty(m_password, newVal); }
  HRESULT STDMETHODCALLTYPE get_Language(BSTR* pVal) override { return m_language.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_Language(BSTR newVal) override { return PutProperty(m_language, newVal); }
  HRESULT STDMETHODCALLTYPE get_SSO2Ticket(BSTR* pVal) override { return m_sso2Ticket.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_SSO2Ticket(BSTR newVal) override { return PutProperty(m_sso2Ticket, newVal); }
  HRESULT STDMETHODCALLTYPE get_X509Cert(BSTR* pVal) override { return m_x509Cert.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_X509Cert(BSTR newVal) override { return PutProperty(m_x509Cert, newVal); }
  HRESULT STDMETHODCALLTYPE get_ExtIdData(BSTR* pVal) override { return m_extIdData.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_ExtIdData(BSTR newVal) override { return PutProperty(m_extIdData, newVal); }
  HRESULT STDMETHODCALLTYPE get_ExtIdType(BSTR* pVal) override { return m_extIdType.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_ExtIdType(BSTR newVal) override { return PutProperty(m_extIdType, newVal); }
  HRESULT STDMETHODCALLTYPE get_Option(BSTR name, BSTR* pVal) override { return m_options.Get(name, pVal); }
  HRESULT STDMETHODCALLTYPE put_Option(BSTR name, BSTR newVal) override { return m_options.Put(name, newVal); }

  // The values as the back ends read them at logon; a null string reads as empty.
  std::u16string_view Client() const { return m_client.View(); }
  std::u16string_view User() const { return m_user.View(); }
  std::u16string_view Password() const { return m_password.View(); }
  std::u16string_view Language() const { return m_language.View(); }
  std::u16string_view SSO2Ticket() const { return m_sso2Ticket.View(); }
  std::u16string_view X509Cert() const { return m_x509Cert.View(); }
  std::u16string_view ExtIdData() const { return m_extIdData.View(); }
  std::u16string_view ExtIdType() const { return m_extIdType.View(); }
  const OptionStore& Options() const { return m_options; }

 private:
  CComBSTR m_client;
  CComBSTR m_user;
  CComBSTR m_password;
  CComBSTR m_language;
  CComBSTR m_sso2Ticket;
  CComBSTR m_x509Cert;
  CComBSTR m_extIdData;
  CComBSTR m_extIdType;
  OptionStore m_options;
};
