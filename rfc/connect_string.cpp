#include "rfc/connect_string.h"

#include <string>

namespace {

bool NeedsQuotes(std::u16string_view value) { return value.find_first_of(u" \"\\,/@:;_") != std::u16string_view::npos; }

std::u16string Upper(std::u16string_view text) {
  std::u16string upper(text);
  for (char16_t& c : upper)
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  return upper;
}

void Append(std::u16string& out, std::u16string_view key, std::u16string_view value) {
  if (value.empty()) return;
  out += u' ';
  out += key;
  out += u'=';
  out += value;
}

}  // namespace

std::u16string QuoteLogonValue(std::u16string_view value) {
  if (!NeedsQuotes(value)) return std::u16string(value);
  std::u16string quoted = u"\"";
  for (char16_t c : value) {
    if (c == u'"') quoted += u'\\';
    quoted += c;
  }
  quoted += u'"';
  return quoted;
}

ClassicConnectString BuildClassicConnectString(const ClassicLogon& logon) {
  ClassicConnectString result;
  std::u16string& text = result.text;
  text = logon.connectString;
  Append(text, u"CLIENT", logon.client);
  if (!logon.user.empty()) Append(text, u"USER", QuoteLogonValue(logon.user));
  const std::u16string password = logon.password.empty() ? std::u16string() : QuoteLogonValue(logon.password);
  Append(text, u"PASSWD", password);
  Append(text, u"LANG", Upper(logon.language));
  Append(text, u"MYSAPSSO2", logon.sso2Ticket);
  Append(text, u"X509CERT", logon.x509Cert);
  Append(text, u"EXTIDDATA", logon.extIdData);
  Append(text, u"EXTIDTYPE", logon.extIdType);
  if (logon.visualMode != 0) {
    const std::string digits = std::to_string(logon.visualMode);
    Append(text, u"USE_SAPGUI", std::u16string(digits.begin(), digits.end()));
  }
  if (logon.debug) text += u" ABAP_DEBUG=1";
  result.traced = text;
  if (!password.empty()) {
    const size_t at = result.traced.find(password);
    if (at != std::u16string::npos) result.traced.replace(at, password.size(), password.size(), u'*');
  }
  return result;
}
