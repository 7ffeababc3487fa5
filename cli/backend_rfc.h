// The classic RFC back end of the command: the options of the NW back end
// (backend_nwrfc.h) into the classic SDK's connect string, and librfcum.so
// for the session to load.
#pragma once

#include <string>

#include <veltrane.h>

#include "args.h"
#include "connection.h"

namespace veltrane::cli {

// The session's RfcSystemData and the option "librfc.path"; says on stderr
// which SDK it takes when --sdk did not name one.
void configureRfc(ISession* session, const ConnectionSettings& settings);
// "rfc: ASHOST=... SYSNR=..." with a password of --connect masked.
std::string rfcAddress(const ConnectionSettings& settings);

// librfcum.so's directory, in this order: $SAPRFC_HOME/lib, a librfcum.so
// the loader finds (the option stays empty), /usr/sap/rfcsdk/lib, and
// Veltrane's own beside the program (<bin>/../lib/veltrane/rfcsdk).
std::string findRfcSdk(std::string* note);

}  // namespace veltrane::cli
