// The NW RFC back end of the command: its options, the connect string built
// from them, and the SDK the session loads; the classic back end
// (backend_rfc.h) shares the options and the search for its SDK.
#pragma once

#include <string>

#include <veltrane.h>

#include "args.h"
#include "connection.h"

namespace veltrane::cli {

// --ashost, --sysnr, --gwserv, --dest, --connect into the connect string;
// --ini, --sdk as they stand. Without --ashost, --dest and --connect, the
// host of --host (or $VELTRANE_HOST) is the application server, and without
// --gwserv system number 00 (or $VELTRANE_SYSNR, $VELTRANE_GWSERV) is its
// gateway.
void readNwRfc(const ParsedArgs& args, ConnectionSettings& settings);
// The session's RfcSystemData and options; says on stderr which SDK it takes
// when --sdk did not name one.
void configureNwRfc(ISession* session, const ConnectionSettings& settings);
// "nwrfc: ashost=... sysnr=..." with a password of --connect masked.
std::string nwrfcAddress(const ConnectionSettings& settings);
// The destination or "HOST/NN" for the password prompt.
std::string nwrfcPlace(const ConnectionSettings& settings);

// The SDK's directory for the session's option "nwrfc.path", in this order:
// $SAPNWRFC_HOME/lib, a libsapnwrfc.so the loader finds (the option stays
// empty), /usr/local/sap/nwrfcsdk/lib, and Veltrane's own library beside the
// program (<bin>/../lib/veltrane/nwrfcsdk). note tells which was taken.
std::string findNwRfcSdk(std::string* note);

// Where an SAP SDK is looked for, for findSdk.
struct SdkSearch {
  const char* library;         // "libsapnwrfc.so"
  const char* homeVariable;    // its directory's parent: <home>/lib/<library>
  const char* usualDirectory;  // where SAP's installation puts it
  const char* ownDirectory;    // Veltrane's own, below <bin>/../lib/veltrane/
  const char* label;           // "NW RFC SDK"
  const char* doc;             // the page that tells how to use it
};
// The SDK's directory as findNwRfcSdk finds the NW one.
std::string findSdk(const SdkSearch& sdk, std::string* note);

// What the SDK back ends set alike: the session's connect string, and the SDK's
// directory into the option pathOption (--sdk, else what find finds, said on
// stderr).
void configureSdkSession(ISession* session, const ConnectionSettings& settings, std::string (*find)(std::string*),
                         const char* pathOption);

// The connect string with the value of passwd= (any case) as "***".
std::string maskedConnectString(const ConnectionSettings& settings);

}  // namespace veltrane::cli
