#include "session/logon_data.h"

CLogonData::CLogonData()
    : m_client(u""),
      m_user(u""),
      m_password(u""),
      m_language(u""),
      m_sso2Ticket(u""),
      m_x509Cert(u""),
      m_extIdData(u""),
      m_extIdType(u"") {}
