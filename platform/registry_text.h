// Text values of the registry, as registration and activation read and
// write them.
#pragma once

#include <string>
#include <string_view>

#include "platform/objbase.h"
#include "platform/winreg.h"

namespace veltrane::platform {

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}".
std::u16string GuidText(REFGUID guid);

// The REG_SZ value name (null: the default value) of the key at path below
// root, without its terminator; empty when there is none.
std::u16string RegistryText(HKEY root, const std::u16string& path, LPCWSTR name = nullptr);

// Sets a REG_SZ value, creating the key where it is missing.
LONG SetRegistryText(HKEY root, const std::u16string& path, LPCWSTR name, std::u16string_view value);

}  // namespace veltrane::platform
