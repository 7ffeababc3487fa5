#include "platform/registry_activation.h"

#include <dlfcn.h>

#include <map>
#include <mutex>
#include <string>

#include "platform/registry_text.h"
#include "platform/unicode.h"

namespace veltrane::platform {

namespace {

using GetClassObjectFunction = HRESULT (*)(REFCLSID, REFIID, LPVOID*);

// The entry of a library, loaded at the first use and kept loaded.
GetClassObjectFunction EntryOf(const std::string& file) {
  static std::mutex mutex;
  static std::map<std::string, GetClassObjectFunction> loaded;
  std::lock_guard<std::mutex> lock(mutex);
  auto it = loaded.find(file);
  if (it != loaded.end()) return it->second;
  GetClassObjectFunction entry = nullptr;
  if (void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL))
    entry = reinterpret_cast<GetClassObjectFunction>(dlsym(handle, "DllGetClassObject"));
  if (entry) loaded.emplace(file, entry);
  return entry;
}

}  // namespace

HRESULT RegisteredClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
  const std::u16string file = RegistryText(HKEY_CLASSES_ROOT, u"CLSID\\" + GuidText(clsid) + u"\\InprocServer32");
  if (file.empty()) return REGDB_E_CLASSNOTREG;
  GetClassObjectFunction entry = EntryOf(WideToUtf8Lossy(file));
  if (!entry) return REGDB_E_CLASSNOTREG;
  return entry(clsid, riid, ppv);
}

bool RegisteredProgIdClass(LPCOLESTR progId, CLSID* clsid) {
  const std::u16string text = RegistryText(HKEY_CLASSES_ROOT, std::u16string(progId) + u"\\CLSID");
  return !text.empty() && text[0] == u'{' && SUCCEEDED(CLSIDFromString(text.c_str(), clsid));
}

std::u16string RegisteredClassProgId(REFCLSID clsid) {
  return RegistryText(HKEY_CLASSES_ROOT, u"CLSID\\" + GuidText(clsid) + u"\\ProgID");
}

}  // namespace veltrane::platform
