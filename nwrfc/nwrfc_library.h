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
#include "runtime/sdk_library.h"

namespace veltrane::nwrfc {

using veltrane::sdk::nwrfc::EntryPoints;

// The file name of the SDK's library.
inline constexpr const char* kLibraryFile = "libsapnwrfc.so";

// The loaded SDK, loading it first when no library is loaded yet: from
// <directory>/libsapnwrfc.so when directory is not empty, else by the
// loader's search (LD_LIBRARY_PATH, the ld.so cache, RUNPATH). A library
// the SDK needs (libsapucum.so, ICU) that the loader cannot find is taken
// from the same directory (runtime/sdk_library.h).
class NWRfcLibrary {
 public:
  static const EntryPoints& Load(std::u16string_view directory, std::string* reason = nullptr) {
    return Library::Load(
        directory, kLibraryFile,
        [](EntryPoints& table, auto&& lookup) { return veltrane::sdk::nwrfc::resolveEntryPoints(table, lookup); },
        reason);
  }
  static const EntryPoints* Loaded() { return Library::Loaded(); }
  static std::string LoadedPath() { return Library::LoadedPath(); }

 private:
  using Library = veltrane::runtime::SdkLibrary<EntryPoints>;
};

using veltrane::runtime::MissingDependency;

}  // namespace veltrane::nwrfc
