// The registry functions over the registry store.
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "platform/registry_store.h"
#include "platform/winreg.h"

using veltrane::platform::registry::HiveId;
using veltrane::platform::registry::Key;
using veltrane::platform::registry::Value;
using Path = std::vector<std::u16string>;

// An open key: the hive and the path below its root.
struct HKEY__ {
  HiveId hive;
  Path path;
};

namespace {

namespace registry = veltrane::platform::registry;

const Path kClasses = {u"Software", u"Classes"};

bool IsPredefined(HKEY key) {
  return key == HKEY_CLASSES_ROOT || key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE;
}

bool ValidName(std::u16string_view name) {
  for (size_t i = 0; i < name.size(); ++i) {
    const char16_t c = name[i];
    if (c < 0x20 || c == 0x7F) return false;
    if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 >= name.size() || name[i + 1] < 0xDC00 || name[i + 1] > 0xDFFF) return false;
      ++i;
    } else if (c >= 0xDC00 && c <= 0xDFFF) {
      return false;
    }
  }
  return true;
}

LONG SplitSubKey(LPCWSTR subKey, Path* names) {
  const std::u16string_view text = subKey ? std::u16string_view(subKey) : std::u16string_view();
  if (!registry::SplitKeyPath(text, names)) return ERROR_BADKEY;
  for (const auto& n : *names)
    if (!ValidName(n)) return ERROR_BADKEY;
  return ERROR_SUCCESS;
}

Path Join(const Path& a, const Path& b) {
  Path out = a;
  out.insert(out.end(), b.begin(), b.end());
  return out;
}

bool ExistsIn(HiveId hive, const Path& path) {
  bool found = false;
  registry::ReadHive(hive, [&](const Key& root) {
    found = root.Find(path) != nullptr;
    return ERROR_SUCCESS;
  });
  return found;
}

// The hive and path of subKey below key. Below HKEY_CLASSES_ROOT a key that
// stands in the user's classes is taken from there; anything else from the
// machine's.
LONG Resolve(HKEY key, LPCWSTR subKey, HiveId* hive, Path* path) {
  if (!key) return ERROR_INVALID_HANDLE;
  Path names;
  const LONG split = SplitSubKey(subKey, &names);
  if (split != ERROR_SUCCESS) return split;
  if (key == HKEY_CLASSES_ROOT) {
    *path = Join(kClasses, names);
    *hive = ExistsIn(HiveId::User, *path) ? HiveId::User : HiveId::Machine;
  } else if (key == HKEY_CURRENT_USER) {
    *hive = HiveId::User;
    *path = std::move(names);
  } else if (key == HKEY_LOCAL_MACHINE) {
    *hive = HiveId::Machine;
    *path = std::move(names);
  } else {
    *hive = key->hive;
    *path = Join(key->path, names);
  }
  return path->size() > registry::kMaxKeyDepth ? ERROR_BADKEY : ERROR_SUCCESS;
}

LONG NewHandle(HiveId hive, Path path, PHKEY result) {
  *result = new (std::nothrow) HKEY__{hive, std::move(path)};
  return *result ? ERROR_SUCCESS : ERROR_OUTOFMEMORY;
}

std::u16string ValueName(LPCWSTR name) { return name ? std::u16string(name) : std::u16string(); }

LONG DeleteKey(HKEY key, LPCWSTR subKey, bool tree) {
  HiveId hive;
  Path path;
  LONG result = Resolve(key, subKey, &hive, &path);
  if (result != ERROR_SUCCESS) return result;
  const bool own = !subKey || !*subKey;
  if (own && tree) {
    // The subkeys and values of the key itself.
    return registry::WriteHive(hive, [&](Key& root) {
      Key* k = root.Find(path);
      if (!k) return path.empty() ? ERROR_SUCCESS : ERROR_KEY_DELETED;
      k->subkeys.clear();
      k->values.clear();
      return ERROR_SUCCESS;
    });
  }
  if (path.empty() || (own && IsPredefined(key))) return ERROR_ACCESS_DENIED;
  return registry::WriteHive(hive, [&](Key& root) {
    Key* k = root.Find(path);
    if (!k) return own ? ERROR_KEY_DELETED : ERROR_FILE_NOT_FOUND;
    if (!tree && !k->subkeys.empty()) return ERROR_ACCESS_DENIED;
    root.Remove(path);
    return ERROR_SUCCESS;
  });
}

}  // namespace

extern "C" {

LSTATUS RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, LPWSTR, DWORD, REGSAM, const void*, PHKEY phkResult,
                        LPDWORD lpdwDisposition) {
  if (!phkResult) return ERROR_INVALID_PARAMETER;
  *phkResult = nullptr;
  HiveId hive;
  Path path;
  LONG result = Resolve(hKey, lpSubKey, &hive, &path);
  if (result != ERROR_SUCCESS) return result;
  bool created = false;
  result = registry::WriteHive(hive, [&](Key& root) {
    root.Create(path, &created);
    return ERROR_SUCCESS;
  });
  if (result != ERROR_SUCCESS) return result;
  if (lpdwDisposition) *lpdwDisposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
  return NewHandle(hive, std::move(path), phkResult);
}

LSTATUS RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, REGSAM, PHKEY phkResult) {
  if (!phkResult) return ERROR_INVALID_PARAMETER;
  *phkResult = nullptr;
  HiveId hive;
  Path path;
  LONG result = Resolve(hKey, lpSubKey, &hive, &path);
  if (result != ERROR_SUCCESS) return result;
  if (!path.empty() && !ExistsIn(hive, path)) return ERROR_FILE_NOT_FOUND;
  return NewHandle(hive, std::move(path), phkResult);
}

LSTATUS RegCloseKey(HKEY hKey) {
  if (!hKey) return ERROR_INVALID_HANDLE;
  if (!IsPredefined(hKey)) delete hKey;
  return ERROR_SUCCESS;
}

LSTATUS RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD, DWORD dwType, const BYTE* lpData, DWORD cbData) {
  const std::u16string name = ValueName(lpValueName);
  if (!ValidName(name) || (!lpData && cbData)) return ERROR_INVALID_PARAMETER;
  HiveId hive;
  Path path;
  LONG result = Resolve(hKey, nullptr, &hive, &path);
  if (result != ERROR_SUCCESS) return result;
  Value value{dwType, std::vector<BYTE>(lpData, lpData + cbData)};
  return registry::WriteHive(hive, [&](Key& root) {
    Key* key = path.empty() ? &root : root.Find(path);
    if (!key) return ERROR_KEY_DELETED;
    auto it = key->values.find(name);
    if (it != key->values.end())
      it->second = std::move(value);
    else
      key->values.emplace(name, std::move(value));
    return ERROR_SUCCESS;
  });
}

LSTATUS RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
  if (lpData && !lpcbData) return ERROR_INVALID_PARAMETER;
  HiveId hive;
  Path path;
  LONG result = Resolve(hKey, nullptr, &hive, &path);
  if (result != ERROR_SUCCESS) return result;
  const std::u16string name = ValueName(lpValueName);
  return registry::ReadHive(hive, [&](const Key& root) {
    const Key* key = root.Find(path);
    if (!key) return path.empty() ? ERROR_FILE_NOT_FOUND : ERROR_KEY_DELETED;
    auto it = key->values.find(name);
    if (it == key->values.end()) return ERROR_FILE_NOT_FOUND;
    const Value& value = it->second;
    if (lpType) *lpType = value.type;
    const DWORD size = static_cast<DWORD>(value.bytes.size());
    LONG status = ERROR_SUCCESS;
    if (lpData) {
      if (*lpcbData < size)
        status = ERROR_MORE_DATA;
      else if (size)
        std::memcpy(lpData, value.bytes.data(), size);
    }
    if (lpcbData) *lpcbData = size;
    return status;
  });
}

LSTATUS RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName) {
  HiveId hive;
  Path path;
  LONG result = Resolve(hKey, nullptr, &hive, &path);
  if (result != ERROR_SUCCESS) return result;
  const std::u16string name = ValueName(lpValueName);
  return registry::WriteHive(hive, [&](Key& root) {
    Key* key = path.empty() ? &root : root.Find(path);
    if (!key) return ERROR_KEY_DELETED;
    return key->values.erase(name) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
  });
}

LSTATUS RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey) {
  if (!lpSubKey) return ERROR_INVALID_PARAMETER;
  return DeleteKey(hKey, lpSubKey, false);
}

LSTATUS RegDeleteKeyExW(HKEY hKey, LPCWSTR lpSubKey, REGSAM, DWORD) { return RegDeleteKeyW(hKey, lpSubKey); }

LSTATUS RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey) { return DeleteKey(hKey, lpSubKey, true); }

LSTATUS RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName, LPDWORD, LPWSTR, LPDWORD, void*) {
  if (!lpName || !lpcchName) return ERROR_INVALID_PARAMETER;
  HiveId hive;
  Path path;
  LONG result = Resolve(hKey, nullptr, &hive, &path);
  if (result != ERROR_SUCCESS) return result;
  return registry::ReadHive(hive, [&](const Key& root) {
    const Key* key = root.Find(path);
    if (!key) return path.empty() ? ERROR_NO_MORE_ITEMS : ERROR_KEY_DELETED;
    if (dwIndex >= key->subkeys.size()) return ERROR_NO_MORE_ITEMS;
    auto it = key->subkeys.begin();
    std::advance(it, dwIndex);
    const std::u16string& name = it->first;
    if (*lpcchName < name.size() + 1) {
      *lpcchName = static_cast<DWORD>(name.size() + 1);
      return ERROR_MORE_DATA;
    }
    std::memcpy(lpName, name.c_str(), (name.size() + 1) * sizeof(char16_t));
    *lpcchName = static_cast<DWORD>(name.size());
    return ERROR_SUCCESS;
  });
}

}  // extern "C"
