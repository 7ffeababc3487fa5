// The three objects a server hands to its event handlers: RfcServerErrorInfo
// (a failure of the server's loop, and the handler's wish for a restart),
// RfcServerLogonInfo (a logon to check, and the handler's verdict) and
// RfcTransactionInfo (a transaction ID, and the status the handler answers).
// The server thread fills them and reads the handler's answer; the handler
// runs in the client's apartment. Each keeps its values under a lock of its
// own, so either thread may read while the other writes.
#pragma once

#include <mutex>
#include <string>

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcServerErrorInfo : public CComObjectBase<CRfcServerErrorInfo, CoClassRfcServerErrorInfo<CRfcServerErrorInfo>> {
 public:
  VELTRANE_DECL_IRFCSERVERERRORINFO

  // The four values at once, from the component's side.
  void Set(ERRORGROUP group, std::u16string_view key, std::u16string_view message, long rc);
  bool RestartWanted();

 private:
  std::mutex m_mutex;
  ERRORGROUP m_group = RFCERROR_NO_ERROR;
  std::u16string m_key, m_message;
  long m_rc = 0;
  VARIANT_BOOL m_restart = VARIANT_FALSE;
};

class CRfcServerLogonInfo : public CComObjectBase<CRfcServerLogonInfo, CoClassRfcServerLogonInfo<CRfcServerLogonInfo>> {
 public:
  VELTRANE_DECL_IRFCSERVERLOGONINFO

  bool Allowed();

 private:
  std::mutex m_mutex;
  std::u16string m_function, m_client, m_user, m_language, m_tcode, m_sncPartnerName;
  VARIANT_BOOL m_sncEnabled = VARIANT_FALSE;
  VARIANT_BOOL m_requestAllowed = VARIANT_TRUE;
};

class CRfcTransactionInfo : public CComObjectBase<CRfcTransactionInfo, CoClassRfcTransactionInfo<CRfcTransactionInfo>> {
 public:
  // The status of a transaction info that no handler changed.
  static constexpr long kUnanswered = 65534;

  VELTRANE_DECL_IRFCTRANSACTIONINFO

  long CurrentStatus();

 private:
  std::mutex m_mutex;
  std::u16string m_tid;
  long m_status = kUnanswered;
};
