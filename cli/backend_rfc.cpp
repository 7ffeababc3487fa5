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
  configureSdkSession(session, s, findRfcSdk, "librfc.path");
}

std::string rfcAddress(const ConnectionSettings& s) { return "rfc: " + maskedConnectString(s); }

}  // namespace veltrane::cli
