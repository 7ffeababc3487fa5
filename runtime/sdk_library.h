// An SAP SDK as this process has loaded it. Nothing links an SDK: its
// library is opened with dlopen when a back end first needs it, and its
// entry points are looked up by name from the SDK's one list of entry points
// (the generated table and resolver). Only the SDK's published interface is
// used, so SAP's library and ours load alike.
//
//   using Classic = SdkLibrary<veltrane::sdk::rfc::EntryPoints>;
//   const auto& sdk = Classic::Load(u"/opt/rfcsdk/lib", "librfcum.so", resolve);
//
// An SDK keeps process-wide state, so one library serves the whole process:
// once loaded it stays, and a later Load returns it whatever directory it
// names. A failed load is not remembered: the next Load tries again.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/seh.h"

namespace veltrane::runtime {

// The library file opened from directory (or by the loader's search when
// directory is empty). A library it needs that the loader cannot find (SAP's
// libsapucum.so, libsapu16.so) is opened first from the same directory, so
// that its name is known when the loader looks again. Null on failure, with
// the loader's text in *reason; the libraries opened on the way are then
// closed again.
struct OpenedLibrary {
  void* module = nullptr;
  std::vector<void*> dependencies;
  std::string path;  // as the loader names the file
};
OpenedLibrary OpenSdkLibrary(std::string_view directory, const char* file, std::string* reason);
void CloseSdkLibrary(OpenedLibrary& library);

// The name of the library a loader's text says it could not find
// ("libsapucum.so: cannot open shared object file: ..."); empty when the
// text says something else.
std::string MissingDependency(std::string_view loaderText);

// Table: the generated table of an SDK's entry points.
template <class Table>
class SdkLibrary {
 public:
  // The loaded SDK, loading it first when no library is loaded yet: file
  // from directory when it is not empty, else by the loader's search
  // (LD_LIBRARY_PATH, the ld.so cache, RUNPATH). resolve(table, lookup)
  // fills the table and names a missing required entry point, or gives null.
  // A library that cannot be loaded raises
  // _SEHException(kExceptionModuleNotFound), one without a required entry
  // point _SEHException(kExceptionProcNotFound); *reason, when given, then
  // receives the loader's text or the missing name. Thread-safe.
  template <class Resolve>
  static const Table& Load(std::u16string_view directory, const char* file, Resolve&& resolve,
                           std::string* reason = nullptr);

  // The loaded SDK, or null before the first successful Load.
  static const Table* Loaded() {
    const Entry* loaded = s_loaded.load(std::memory_order_acquire);
    return loaded ? &loaded->table : nullptr;
  }

  // The file the SDK was loaded from, as the loader names it; empty before
  // the first successful Load.
  static std::string LoadedPath() {
    const Entry* loaded = s_loaded.load(std::memory_order_acquire);
    return loaded ? loaded->path : std::string();
  }

 private:
  struct Entry {
    Table table;
    std::string path;
  };
  static inline std::mutex s_mutex;
  static inline std::atomic<const Entry*> s_loaded{nullptr};
};

void* LookupSymbol(void* module, const char* name);
std::string NarrowDirectory(std::u16string_view directory);

template <class Table>
template <class Resolve>
const Table& SdkLibrary<Table>::Load(std::u16string_view directory, const char* file, Resolve&& resolve,
                                     std::string* reason) {
  if (const Entry* loaded = s_loaded.load(std::memory_order_acquire)) return loaded->table;
  std::lock_guard<std::mutex> lock(s_mutex);
  if (const Entry* loaded = s_loaded.load(std::memory_order_acquire)) return loaded->table;
  std::string text;
  OpenedLibrary library = OpenSdkLibrary(NarrowDirectory(directory), file, &text);
  if (!library.module) {
    if (reason) *reason = text;
    throw _SEHException(kExceptionModuleNotFound);
  }
  auto entry = std::make_unique<Entry>();
  void* module = library.module;
  const char* missing = resolve(entry->table, [module](const char* name) { return LookupSymbol(module, name); });
  if (missing) {
    CloseSdkLibrary(library);
    if (reason) *reason = std::string("undefined symbol: ") + missing;
    throw _SEHException(kExceptionProcNotFound);
  }
  entry->path = library.path;
  // The library and what it needs stay loaded for the life of the process.
  s_loaded.store(entry.release(), std::memory_order_release);
  return s_loaded.load(std::memory_order_acquire)->table;
}

}  // namespace veltrane::runtime
