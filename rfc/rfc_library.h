// The classic RFC SDK as this process has loaded it: librfcum.so, the
// Unicode flavour, opened with dlopen at the first Connect (or the first
// classic server's Serve) from the directory the option "librfc.path" names,
// else by the loader's search; its entry points come from the one list in
// sdk/rfc/entry_points.txt. A library it needs (libsapu16.so) is taken from
// the same directory. Nothing of the process's environment (PATH,
// LD_LIBRARY_PATH) changes. See runtime/sdk_library.h for the rules.
#pragma once

#include <string>
#include <string_view>

#include "rfc/rfc_entry_points.h"
#include "runtime/sdk_library.h"

namespace veltrane::rfc {

using veltrane::sdk::rfc::EntryPoints;

// The file name of the SDK's library.
inline constexpr const char* kLibraryFile = "librfcum.so";

class RfcLibrary {
 public:
  static const EntryPoints& Load(std::u16string_view directory, std::string* reason = nullptr) {
    return Library::Load(
        directory, kLibraryFile,
        [](EntryPoints& table, auto&& lookup) { return veltrane::sdk::rfc::resolveEntryPoints(table, lookup); },
        reason);
  }
  static const EntryPoints* Loaded() { return Library::Loaded(); }
  static std::string LoadedPath() { return Library::LoadedPath(); }

 private:
  using Library = veltrane::runtime::SdkLibrary<EntryPoints>;
};

}  // namespace veltrane::rfc
