#include "nwrfc/nwrfc_library.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/unicode.h"
#include "runtime/seh.h"

namespace veltrane::nwrfc {

namespace {

// Libraries the SDK needs are looked for at most this deep below it.
constexpr int kDependencyDepth = 8;

struct LoadedLibrary {
  EntryPoints entries;
  std::string path;
};

std::mutex g_loadMutex;
std::atomic<const LoadedLibrary*> g_loaded{nullptr};

bool IsFile(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string LoaderText() {
  const char* text = dlerror();
  return text ? text : "";
}

// Opens file from directory (or by the loader's search when directory is
// empty). A library it needs that the loader cannot find is opened first
// from the same directory, so that its name is known when the loader looks
// again; those stay open, in opened. Null on failure, with the loader's text
// in *reason.
void* OpenWithDependencies(const std::string& directory, const std::string& file, int depth, std::vector<void*>& opened,
                           std::string* reason) {
  const std::string path = directory.empty() ? file : directory + "/" + file;
  std::vector<std::string> tried;
  for (;;) {
    if (void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) return module;
    *reason = LoaderText();
    if (directory.empty() || depth >= kDependencyDepth) return nullptr;
    const std::string missing = MissingDependency(*reason);
    if (missing.empty() || missing == file || missing.find('/') != std::string::npos) return nullptr;
    for (const std::string& name : tried)
      if (name == missing) return nullptr;
    tried.push_back(missing);
    if (!IsFile(directory + "/" + missing)) return nullptr;
    std::string inner;
    void* dependency = OpenWithDependencies(directory, missing, depth + 1, opened, &inner);
    if (!dependency) {
      *reason = inner;
      return nullptr;
    }
    opened.push_back(dependency);
  }
}

std::string ModulePath(void* module, const std::string& fallback) {
  link_map* map = nullptr;
  if (dlinfo(module, RTLD_DI_LINKMAP, &map) == 0 && map && map->l_name && *map->l_name) return map->l_name;
  return fallback;
}

}  // namespace

std::string MissingDependency(std::string_view loaderText) {
  static constexpr std::string_view kMarker = ": cannot open shared object file";
  const size_t at = loaderText.find(kMarker);
  if (at == std::string_view::npos) return {};
  // The text may name the library that needs it first ("/dir/a.so: b.so: cannot ...").
  const std::string_view head = loaderText.substr(0, at);
  const size_t colon = head.rfind(": ");
  return std::string(colon == std::string_view::npos ? head : head.substr(colon + 2));
}

const EntryPoints& NWRfcLibrary::Load(std::u16string_view directory, std::string* reason) {
  if (const LoadedLibrary* loaded = g_loaded.load(std::memory_order_acquire)) return loaded->entries;
  std::lock_guard<std::mutex> lock(g_loadMutex);
  if (const LoadedLibrary* loaded = g_loaded.load(std::memory_order_acquire)) return loaded->entries;

  std::string dir = WideToUtf8Lossy(directory);
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  std::string text;
  std::vector<void*> dependencies;
  void* module = OpenWithDependencies(dir, kLibraryFile, 0, dependencies, &text);
  if (!module) {
    for (auto it = dependencies.rbegin(); it != dependencies.rend(); ++it) dlclose(*it);
    if (reason) *reason = text;
    throw _SEHException(kExceptionModuleNotFound);
  }
  auto library = std::make_unique<LoadedLibrary>();
  const char* missing = veltrane::sdk::nwrfc::resolveEntryPoints(
      library->entries, [module](const char* name) { return dlsym(module, name); });
  if (missing) {
    dlclose(module);
    for (auto it = dependencies.rbegin(); it != dependencies.rend(); ++it) dlclose(*it);
    if (reason) *reason = std::string("undefined symbol: ") + missing;
    throw _SEHException(kExceptionProcNotFound);
  }
  library->path = ModulePath(module, dir.empty() ? kLibraryFile : dir + "/" + kLibraryFile);
  // The library and what it needs stay loaded for the life of the process.
  g_loaded.store(library.release(), std::memory_order_release);
  return g_loaded.load(std::memory_order_acquire)->entries;
}

const EntryPoints* NWRfcLibrary::Loaded() {
  const LoadedLibrary* loaded = g_loaded.load(std::memory_order_acquire);
  return loaded ? &loaded->entries : nullptr;
}

std::string NWRfcLibrary::LoadedPath() {
  const LoadedLibrary* loaded = g_loaded.load(std::memory_order_acquire);
  return loaded ? loaded->path : std::string();
}

}  // namespace veltrane::nwrfc
