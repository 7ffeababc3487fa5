// Reading the registry in the registration tests, through the public
// registry functions, and a scratch registry for each test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include <veltrane.h>

#include "temp_dir.h"

// The machine's and the user's registry files below a scratch directory.
class ScratchRegistry {
 public:
  ScratchRegistry() {
    setenv("VELTRANE_SYSCONFDIR", dir.file("etc").c_str(), 1);
    setenv("XDG_CONFIG_HOME", dir.file("config").c_str(), 1);
  }
  std::string MachineFile() const { return dir.file("etc") + "/veltrane/registry"; }
  std::string UserFile() const { return dir.file("config") + "/veltrane/registry"; }

  TempDir dir;
};

inline bool HasKey(HKEY root, const std::u16string& path) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  RegCloseKey(key);
  return true;
}

// A REG_SZ value as UTF-8, "<none>" when there is none.
inline std::string TextOf(HKEY root, const std::u16string& path, const char16_t* name = nullptr) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return "<none>";
  char16_t buffer[1024];
  DWORD size = sizeof buffer, type = 0;
  const LONG r = RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size);
  RegCloseKey(key);
  if (r != ERROR_SUCCESS || type != REG_SZ) return "<none>";
  std::string out;
  for (DWORD i = 0; i + 1 < size / 2; ++i) out += buffer[i] < 0x80 ? static_cast<char>(buffer[i]) : '?';
  return out;
}

// The file a path names, with links resolved; the path itself if it names none.
inline std::string Canonical(const std::string& path) {
  std::error_code error;
  const auto resolved = std::filesystem::canonical(path, error);
  return error ? path : resolved.string();
}
