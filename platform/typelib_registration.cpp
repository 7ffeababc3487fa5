// Type libraries in the registry: what RegisterTypeLib writes, and how
// LoadRegTypeLib finds the file of a library that is not loaded yet.
#include <dlfcn.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/internal/type_library.h"
#include "platform/oleauto.h"
#include "platform/registry_store.h"
#include "platform/registry_text.h"
#include "platform/typelib.h"
#include "platform/unicode.h"
#include "platform/winreg.h"

namespace {

using veltrane::platform::GuidText;
using veltrane::platform::RegistryText;
using veltrane::platform::SetRegistryText;
using veltrane::tlb::LibraryData;
using veltrane::tlb::TypeData;

// The marshaler of Automation interfaces, named by every interface key.
constexpr char16_t kProxyStub[] = u"{00020424-0000-0000-C000-000000000046}";
// The name of this platform below a language key.
constexpr char16_t kPlatformKey[] = u"linux64";

std::u16string Hex(unsigned n) {
  char text[16];
  std::snprintf(text, sizeof text, "%x", n);
  return Utf8ToWide(text);
}

std::u16string VersionText(WORD major, WORD minor) { return Hex(major) + u"." + Hex(minor); }

bool IsAutomationInterface(const TypeData& t) {
  return t.guid && (t.kind == TKIND_DISPATCH || (t.kind == TKIND_INTERFACE && (t.typeFlags & TYPEFLAG_FDUAL)));
}

HRESULT Result(LONG r) { return r == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(static_cast<uint32_t>(r)); }

HRESULT Register(HKEY root, ITypeLib* ptlib, LPCOLESTR fullPath, LPCOLESTR helpDir) {
  if (!ptlib || !fullPath) return E_INVALIDARG;
  const LibraryData* lib = veltrane::tlb::LibraryOfTypeLib(ptlib);
  if (!lib) return E_INVALIDARG;
  std::u16string dir = helpDir ? std::u16string(helpDir) : std::u16string(fullPath);
  if (!helpDir) dir.erase(dir.find_last_of(u'/') == std::u16string::npos ? 0 : dir.find_last_of(u'/'));
  const std::u16string libid = GuidText(*lib->libid);
  const std::u16string version =
      u"Software\\Classes\\TypeLib\\" + libid + u"\\" + VersionText(lib->majorVersion, lib->minorVersion);
  veltrane::platform::RegistryTransaction transaction;
  LONG r = SetRegistryText(root, version, nullptr, lib->doc && *lib->doc ? lib->doc : lib->name);
  if (r == ERROR_SUCCESS) r = SetRegistryText(root, version + u"\\FLAGS", nullptr, u"0");
  if (r == ERROR_SUCCESS) r = SetRegistryText(root, version + u"\\HELPDIR", nullptr, dir);
  if (r == ERROR_SUCCESS)
    r = SetRegistryText(root, version + u"\\" + Hex(lib->lcid) + u"\\" + kPlatformKey, nullptr, fullPath);
  for (USHORT i = 0; i < lib->typeCount && r == ERROR_SUCCESS; ++i) {
    const TypeData& t = lib->types[i];
    if (!IsAutomationInterface(t)) continue;
    const std::u16string key = u"Software\\Classes\\Interface\\" + GuidText(*t.guid);
    r = SetRegistryText(root, key, nullptr, t.name);
    if (r == ERROR_SUCCESS) r = SetRegistryText(root, key + u"\\ProxyStubClsid32", nullptr, kProxyStub);
    if (r == ERROR_SUCCESS) r = SetRegistryText(root, key + u"\\TypeLib", nullptr, libid);
    if (r == ERROR_SUCCESS)
      r = SetRegistryText(root, key + u"\\TypeLib", u"Version", VersionText(lib->majorVersion, lib->minorVersion));
  }
  if (r == ERROR_SUCCESS) r = transaction.Commit();
  return Result(r);
}

// Deletes a key with everything below it; a missing one is no failure.
LONG Remove(HKEY root, const std::u16string& path) {
  const LONG r = RegDeleteTreeW(root, path.c_str());
  return r == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : r;
}

HRESULT Unregister(HKEY root, REFGUID libID, WORD major, WORD minor) {
  ITypeLib* typeLib = nullptr;
  const LibraryData* lib = nullptr;
  if (SUCCEEDED(LoadRegTypeLib(libID, major, minor, 0, &typeLib))) {
    lib = veltrane::tlb::LibraryOfTypeLib(typeLib);
    typeLib->Release();
  }
  const std::u16string libKey = u"Software\\Classes\\TypeLib\\" + GuidText(libID);
  veltrane::platform::RegistryTransaction transaction;
  LONG r = Remove(root, libKey + u"\\" + VersionText(major, minor));
  // The library's key goes when no other version is left below it.
  HKEY key = nullptr;
  if (r == ERROR_SUCCESS && RegOpenKeyExW(root, libKey.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS) {
    char16_t name[2];
    DWORD size = 2;
    const LONG e = RegEnumKeyExW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr);
    RegCloseKey(key);
    if (e == ERROR_NO_MORE_ITEMS) r = Remove(root, libKey);
  }
  for (USHORT i = 0; lib && i < lib->typeCount && r == ERROR_SUCCESS; ++i)
    if (IsAutomationInterface(lib->types[i]))
      r = Remove(root, u"Software\\Classes\\Interface\\" + GuidText(*lib->types[i].guid));
  if (r == ERROR_SUCCESS) r = transaction.Commit();
  return Result(r);
}

}  // namespace

namespace veltrane::tlb {

bool LoadRegisteredLibraryFile(REFGUID libID, WORD major, WORD minor) {
  const std::u16string base = u"TypeLib\\" + GuidText(libID);
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, base.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  std::u16string best;
  unsigned bestMinor = 0;
  for (DWORD i = 0;; ++i) {
    char16_t name[64];
    DWORD size = 64;
    if (RegEnumKeyExW(key, i, name, &size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    unsigned ma = 0, mi = 0;
    if (std::sscanf(WideToUtf8Lossy(name).c_str(), "%x.%x", &ma, &mi) != 2) continue;
    if (ma == major && mi >= minor && (best.empty() || mi > bestMinor)) {
      best = name;
      bestMinor = mi;
    }
  }
  RegCloseKey(key);
  if (best.empty()) return false;
  const std::u16string path = RegistryText(HKEY_CLASSES_ROOT, base + u"\\" + best + u"\\0\\" + kPlatformKey);
  if (path.empty()) return false;
  return dlopen(WideToUtf8Lossy(path).c_str(), RTLD_NOW | RTLD_GLOBAL) != nullptr;
}

}  // namespace veltrane::tlb

extern "C" {

HRESULT RegisterTypeLib(ITypeLib* ptlib, LPCOLESTR szFullPath, LPCOLESTR szHelpDir) {
  return Register(HKEY_LOCAL_MACHINE, ptlib, szFullPath, szHelpDir);
}

HRESULT RegisterTypeLibForUser(ITypeLib* ptlib, LPOLESTR szFullPath, LPOLESTR szHelpDir) {
  return Register(HKEY_CURRENT_USER, ptlib, szFullPath, szHelpDir);
}

HRESULT UnRegisterTypeLib(REFGUID libID, WORD wVerMajor, WORD wVerMinor, LCID, SYSKIND) {
  return Unregister(HKEY_LOCAL_MACHINE, libID, wVerMajor, wVerMinor);
}

HRESULT UnRegisterTypeLibForUser(REFGUID libID, WORD wMajorVerNum, WORD wMinorVerNum, LCID, SYSKIND) {
  return Unregister(HKEY_CURRENT_USER, libID, wMajorVerNum, wMinorVerNum);
}

}  // extern "C"
