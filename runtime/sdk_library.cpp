#include "runtime/sdk_library.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>

#include "platform/unicode.h"

namespace veltrane::runtime {

namespace {

// Libraries an SDK needs are looked for at most this deep below it.
constexpr int kDependencyDepth = 8;

bool IsFile(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string LoaderText() {
  const char* text = dlerror();
  return text ? text : "";
}

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

OpenedLibrary OpenSdkLibrary(std::string_view directory, const char* file, std::string* reason) {
  OpenedLibrary library;
  const std::string dir(directory);
  library.module = OpenWithDependencies(dir, file, 0, library.dependencies, reason);
  if (!library.module) {
    CloseSdkLibrary(library);
    return library;
  }
  library.path = ModulePath(library.module, dir.empty() ? std::string(file) : dir + "/" + file);
  return library;
}

void CloseSdkLibrary(OpenedLibrary& library) {
  if (library.module) dlclose(library.module);
  library.module = nullptr;
  for (auto it = library.dependencies.rbegin(); it != library.dependencies.rend(); ++it) dlclose(*it);
  library.dependencies.clear();
}

void* LookupSymbol(void* module, const char* name) { return dlsym(module, name); }

std::string NarrowDirectory(std::u16string_view directory) {
  std::string dir = WideToUtf8Lossy(directory);
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  return dir;
}

}  // namespace veltrane::runtime
