// The NW RFC SDK as this process has loaded it. Nothing links the SDK: the
// library is opened with dlopen when the first NW session connects (or the
// first NW server serves), and its entry points are looked up by name from
// the one list in sdk/nwrfc/entry_points.txt. Only the SDK's published
// interface is used, so SAP's libsapnwrfc.so and ours load alike.
//
//   const EntryPoints& sdk = NWRfcLibrary::Load(u"/usr/local/sap/nwrfcsdk/lib");
//   sdk.RfcGetVersion(&major, &minor, &patch);
//
// The SDK keeps process-wide state (its trace, its ini file, its repository),
// so one library serves the whole process: once loaded it stays, and a later
// Load returns it whatever directory it names. A failed load is not
// remembered: the next Load tries again.
#pragma once

#include <string>
#include <string_view>

#include "nwrfc/nwrfc_entry_points.h"

namespace veltrane::nwrfc {

using veltrane::sdk::nwrfc::EntryPoints;

// The file name of the SDK's library.
inline constexpr const char* kLibraryFile = "libsapnwrfc.so";

class NWRfcLibrary {
 public:
  // The loaded SDK, loading it first when no library is loaded yet: from
  // <directory>/libsapnwrfc.so when directory is not empty, else by the
  // loader's search (LD_LIBRARY_PATH, the ld.so cache, RUNPATH). A library
  // the SDK needs (libsapucum.so, ICU) that the loader cannot find is taken
  // from the same directory. A library that cannot be loaded raises
  // _SEHException(kExceptionModuleNotFound), one without a required entry
  // point _SEHException(kExceptionProcNotFound); *reason, when given, then
  // receives the loader's text or the missing name. Thread-safe.
  static const EntryPoints& Load(std::u16string_view directory, std::string* reason = nullptr);

  // The loaded SDK, or null before the first successful Load.
  static const EntryPoints* Loaded();

  // The file the SDK was loaded from, as the loader names it; empty before
  // the first successful Load.
  static std::string LoadedPath();
};

// The name of the library a loader's text says it could not find
// ("libsapucum.so: cannot open shared object file: ..."); empty when the
// text says something else.
std::string MissingDependency(std::string_view loaderText);

}  // namespace veltrane::nwrfc
