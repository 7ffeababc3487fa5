#include "server/server_info.h"

namespace {

HRESULT Out(const std::u16string& value, BSTR* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = SysAllocStringLen(value.data(), static_cast<UINT>(value.size()));
  return *pVal ? S_OK : E_OUTOFMEMORY;
}

std::u16string In(BSTR value) { return std::u16string(BstrView(value)); }

}  // namespace

// ------------------------------------------------------------ error info

HRESULT CRfcServerErrorInfo::get_ERRORGROUP(ERRORGROUP* pVal) {
  if (!pVal) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_mutex);
  *pVal = m_group;
  return S_OK;
}

HRESULT CRfcServerErrorInfo::put_ERRORGROUP(ERRORGROUP newVal) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_group = newVal;
  return S_OK;
}

HRESULT CRfcServerErrorInfo::get_ErrorGroupTxt(BSTR* pVal) {
  std::lock_guard<std::mutex> lock(m_mutex);
  return Out(m_key, pVal);
}

HRESULT CRfcServerErrorInfo::get_Message(BSTR* pVal) {
  std::lock_guard<std::mutex> lock(m_mutex);
  return Out(m_message, pVal);
}

HRESULT CRfcServerErrorInfo::get_RfcRc(LONG* pVal) {
  if (!pVal) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_mutex);
  *pVal = m_rc;
  return S_OK;
}

HRESULT CRfcServerErrorInfo::SetErrorInfo(ERRORGROUP group, BSTR text, BSTR Message, LONG rc) {
  Set(group, BstrView(text), BstrView(Message), rc);
  return S_OK;
}

HRESULT CRfcServerErrorInfo::get_Restart(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_mutex);
  *pVal = m_restart;
  return S_OK;
}

HRESULT CRfcServerErrorInfo::put_Restart(VARIANT_BOOL newVal) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_restart = newVal;
  return S_OK;
}

void CRfcServerErrorInfo::Set(ERRORGROUP group, std::u16string_view key, std::u16string_view message, long rc) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_group = group;
  m_key = key;
  m_message = message;
  m_rc = rc;
}

bool CRfcServerErrorInfo::RestartWanted() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_restart == VARIANT_TRUE;
}

// ------------------------------------------------------------ logon info

#define LOGON_TEXT(NAME, member)                        \
  HRESULT CRfcServerLogonInfo::get_##NAME(BSTR* pVal) { \
    std::lock_guard<std::mutex> lock(m_mutex);          \
    return Out(member, pVal);                           \
  }
LOGON_TEXT(Function, m_function)
LOGON_TEXT(Client, m_client)
LOGON_TEXT(User, m_user)
LOGON_TEXT(Language, m_language)
LOGON_TEXT(TCode, m_tcode)
LOGON_TEXT(SNCPartnerName, m_sncPartnerName)
#undef LOGON_TEXT

HRESULT CRfcServerLogonInfo::get_SNCEnabled(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_mutex);
  *pVal = m_sncEnabled;
  return S_OK;
}

HRESULT CRfcServerLogonInfo::SetLogonInfo(BSTR Function, BSTR Client, BSTR User, BSTR Language, BSTR TCode,
                                          VARIANT_BOOL SNCEnabled, BSTR SNCPartnerName) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_function = In(Function);
  m_client = In(Client);
  m_user = In(User);
  m_language = In(Language);
  m_tcode = In(TCode);
  m_sncEnabled = SNCEnabled;
  m_sncPartnerName = In(SNCPartnerName);
  return S_OK;
}

HRESULT CRfcServerLogonInfo::get_RequestAllowed(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_mutex);
  *pVal = m_requestAllowed;
  return S_OK;
}

HRESULT CRfcServerLogonInfo::put_RequestAllowed(VARIANT_BOOL newVal) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_requestAllowed = newVal;
  return S_OK;
}

bool CRfcServerLogonInfo::Allowed() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_requestAllowed == VARIANT_TRUE;
}

// ------------------------------------------------------ transaction info

HRESULT CRfcTransactionInfo::get_TransactionID(BSTR* pVal) {
  std::lock_guard<std::mutex> lock(m_mutex);
  return Out(m_tid, pVal);
}

HRESULT CRfcTransactionInfo::get_Status(LONG* pVal) {
  if (!pVal) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_mutex);
  *pVal = m_status;
  return S_OK;
}

HRESULT CRfcTransactionInfo::put_Status(LONG newVal) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_status = newVal;
  return S_OK;
}

HRESULT CRfcTransactionInfo::SetTID(BSTR tid) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_tid = In(tid);
  return S_OK;
}

long CRfcTransactionInfo::CurrentStatus() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_status;
}
