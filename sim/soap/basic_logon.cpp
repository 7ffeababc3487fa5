#include "soap/basic_logon.h"

#include "engine/convert.h"

namespace vsim::soap {

BasicLogon readBasicLogon(const std::string& authorization) {
  BasicLogon logon;
  if (authorization.size() <= 6 || toUpper(authorization.substr(0, 6)) != "BASIC ") return logon;
  logon.state = BasicLogon::State::Unreadable;
  std::string decoded;
  try {
    decoded = base64Decode(trim(std::string_view(authorization).substr(6)));
  } catch (const ConversionError&) {
    return logon;
  }
  const size_t colon = decoded.find(':');
  if (colon == std::string::npos) return logon;
  logon.state = BasicLogon::State::Readable;
  logon.user = toUpper(decoded.substr(0, colon));
  logon.password = decoded.substr(colon + 1);
  return logon;
}

}  // namespace vsim::soap
