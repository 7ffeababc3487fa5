#include "server/server_info.h"

namespace {

// One property under the object's lock: a text as a new BSTR, any other
// value as it is.
HRESULT Get(std::mutex& mutex, const std::u16string& member, BSTR* pVal) {
  if (!pVal) return E_POINTER;
  std::lock_guard<std::mutex> lock(mutex);
  *pVal = SysAllocStringLen(member.data(), static_cast<UINT>(member.size()));
  return *pVal ? S_OK : E_OUTOFMEMORY;
}

template <class Member, class T>
HRESULT Get(std::mutex& mutex, const Member& member, T* pVal) {
  if (!pVal) return E_POINTER;
  std::lock_guard<std::mutex> lock(mutex);
  *pVal = static_cast<T>(member);
  return S_OK;
}

template <class Member, class T>
HRESULT Put(std::mutex& mutex, Member& member, T value) {
  std::lock_guard<std::mutex> lock(mutex);
  member = value;
  return S_OK;
}

std::u16string In(BSTR value) { return std::u16string(BstrView(value)); }

}  // namespace

// ------------------------------------------------------------ error info

HRESULT CRfcServerErrorInfo::get_ERRORGROUP(ERRORGROUP* pVal) { return Get(m_mutex, m_group, pVal); }
HRESULT CRfcServerErrorInfo::put_ERRORGROUP(ERRORGROUP newVal) { return Put(m_mutex, m_group, newVal); }
HRESULT CRfcServerErrorInfo::get_ErrorGroupTxt(BSTR* pVal) { return Get(m_mutex, m_key, pVal); }
HRESULT CRfcServerErrorInfo::get_Message(BSTR* pVal) { return Get(m_mutex, m_message, pVal); }
HRESULT CRfcServerErrorInfo::get_RfcRc(LONG* pVal) { return Get(m_mutex, m_rc, pVal); }

HRESULT CRfcServerErrorInfo::SetErrorInfo(ERRORGROUP group, BSTR text, BSTR Message, LONG rc) {
  Set(group, BstrView(text), BstrView(Message), rc);
  return S_OK;
}

HRESULT CRfcServerErrorInfo::get_Restart(VARIANT_BOOL* pVal) { return Get(m_mutex, m_restart, pVal); }
HRESULT CRfcServerErrorInfo::put_Restart(VARIANT_BOOL newVal) { return Put(m_mutex, m_restart, newVal); }

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

HRESULT CRfcServerLogonInfo::get_Function(BSTR* pVal) { return Get(m_mutex, m_function, pVal); }
HRESULT CRfcServerLogonInfo::get_Client(BSTR* pVal) { return Get(m_mutex, m_client, pVal); }
HRESULT CRfcServerLogonInfo::get_User(BSTR* pVal) { return Get(m_mutex, m_user, pVal); }
HRESULT CRfcServerLogonInfo::get_Language(BSTR* pVal) { return Get(m_mutex, m_language, pVal); }
HRESULT CRfcServerLogonInfo::get_TCode(BSTR* pVal) { return Get(m_mutex, m_tcode, pVal); }
HRESULT CRfcServerLogonInfo::get_SNCEnabled(VARIANT_BOOL* pVal) { return Get(m_mutex, m_sncEnabled, pVal); }
HRESULT CRfcServerLogonInfo::get_SNCPartnerName(BSTR* pVal) { return Get(m_mutex, m_sncPartnerName, pVal); }

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

HRESULT CRfcServerLogonInfo::get_RequestAllowed(VARIANT_BOOL* pVal) { return Get(m_mutex, m_requestAllowed, pVal); }
HRESULT CRfcServerLogonInfo::put_RequestAllowed(VARIANT_BOOL newVal) { return Put(m_mutex, m_requestAllowed, newVal); }

bool CRfcServerLogonInfo::Allowed() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_requestAllowed == VARIANT_TRUE;
}

// ------------------------------------------------------ transaction info

HRESULT CRfcTransactionInfo::get_TransactionID(BSTR* pVal) { return Get(m_mutex, m_tid, pVal); }
HRESULT CRfcTransactionInfo::get_Status(LONG* pVal) { return Get(m_mutex, m_status, pVal); }
HRESULT CRfcTransactionInfo::put_Status(LONG newVal) { return Put(m_mutex, m_status, newVal); }
HRESULT CRfcTransactionInfo::SetTID(BSTR tid) { return Put(m_mutex, m_tid, In(tid)); }

long CRfcTransactionInfo::CurrentStatus() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_status;
}
