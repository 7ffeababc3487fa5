#include "platform/registry_text.h"

namespace veltrane::platform {

std::u16string GuidText(REFGUID guid) {
  OLECHAR text[CHARS_IN_GUID];
  StringFromGUID2(guid, text, CHARS_IN_GUID);
  return std::u16string(text, CHARS_IN_GUID - 1);
}

std::u16string RegistryText(HKEY root, const std::u16string& path, LPCWSTR name) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return {};
  DWORD type = 0, size = 0;
  std::u16string text;
  if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) == ERROR_SUCCESS && type == REG_SZ) {
    text.resize(size / sizeof(char16_t));
    if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()), &size) != ERROR_SUCCESS)
      text.clear();
    while (!text.empty() && text.back() == 0) text.pop_back();
  }
  RegCloseKey(key);
  return text;
}

LONG SetRegistryText(HKEY root, const std::u16string& path, LPCWSTR name, std::u16string_view value) {
  HKEY key = nullptr;
  LONG r = RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr);
  if (r != ERROR_SUCCESS) return r;
  const std::u16string text(value);
  r = RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                     static_cast<DWORD>((text.size() + 1) * sizeof(char16_t)));
  RegCloseKey(key);
  return r;
}

}  // namespace veltrane::platform
