#include "backend_rfc.h"

#include <iostream>

#include "backend_nwrfc.h"
#include "failure.h"
#include "text.h"

namespace veltrane::cli {

std::string findRfcSdk(std::string* note) {
  return findSdk({"librfcum.so", "SAPRFC_HOME", "/usr/sap/rfcsdk/lib", "rfcsdk", "classic RFC SDK", "docs/rfc.md"},
                 note);
}

void configureRfc(ISession* session, const ConnectionSettings& s) {
  CComQIPtr<IRfcSession> rfc(session);
  if (!rfc) throw ComFailure("reading the connection data", E_NOINTERFACE, "the session is no RFC session");
  CComPtr<IRfcSystemData> system;
  check(rfc->get_RfcSystemData(&system), "reading the connection data");
  check(system->put_ConnectString(bstr(s.connectString)), "setting the connect string");
  std::string directory = s.sdkDir;
  if (directory.empty()) {
    std::string note;
    directory = findRfcSdk(&note);
    std::cerr << "veltrane: " << note << "\n";
  }
  if (!directory.empty()) check(session->put_Option(bstr("librfc.path"), bstr(directory)), "setting the SDK directory");
}

std::string rfcAddress(const ConnectionSettings& s) { return "rfc: " + maskedConnectString(s); }

}  // namespace veltrane::cli
