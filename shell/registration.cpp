#include "shell/registration.h"

#include <string>

#include "platform/atlbase.h"
#include "platform/registrar.h"
#include "platform/registry_store.h"
#include "platform/typelib.h"
#include "platform/unicode.h"
#include "platform/winreg.h"
#include "runtime/environment.h"
#include "shell/connector_ctrl.h"
#include "shell/object_map.h"
#include "shell/registry_scripts.h"

namespace veltrane::shell {

namespace {

// "%MODULE%" has single quotes doubled, for a quoted name; "Module_Raw" not.
std::u16string QuotesDoubled(const std::u16string& text) {
  std::u16string out;
  for (char16_t c : text) {
    out += c;
    if (c == u'\'') out += c;
  }
  return out;
}

HRESULT UpdateTypeLibrary(bool doRegister, bool perUser, const std::u16string& path) {
  if (!doRegister)
    return perUser ? UnRegisterTypeLibForUser(LIBID_VELTRANELib, 1, 0, 0, SYS_WIN64)
                   : UnRegisterTypeLib(LIBID_VELTRANELib, 1, 0, 0, SYS_WIN64);
  CComPtr<ITypeLib> library;
  HRESULT hr = LoadRegTypeLib(LIBID_VELTRANELib, 1, 0, 0, &library);
  if (FAILED(hr)) return hr;
  std::u16string file = path;
  return perUser ? RegisterTypeLibForUser(library, file.data(), nullptr)
                 : RegisterTypeLib(library, file.c_str(), nullptr);
}

}  // namespace

HRESULT UpdateRegistration(bool doRegister) {
  const std::u16string path = LibraryPath();
  const std::u16string quoted = QuotesDoubled(path);
  const std::u16string misc = Utf8ToWide(std::to_string(CConnectorCtrl::kMiscStatus));
  const _ATL_REGMAP_ENTRY variables[] = {
      {u"MODULE", quoted.c_str()}, {u"Module_Raw", path.c_str()}, {u"OLEMISC", misc.c_str()}, {nullptr, nullptr}};
  bool perUser = false;
  AtlGetPerUserRegistration(&perUser);

  platform::RegistryTransaction transaction;
  HRESULT hr = AtlUpdateRegistryFromScript(ModuleScript().text, doRegister, variables);
  for (const ObjectEntry& entry : ObjectMap()) {
    if (FAILED(hr)) return hr;
    const RegistryScript* script = ScriptOf(*entry.clsid);
    if (!script) return E_UNEXPECTED;
    hr = AtlUpdateRegistryFromScript(script->text, doRegister, variables);
  }
  if (SUCCEEDED(hr)) hr = UpdateTypeLibrary(doRegister, perUser, path);
  if (FAILED(hr)) return hr;
  const LONG committed = transaction.Commit();
  return committed == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(static_cast<uint32_t>(committed));
}

bool IsPerUserCommand(LPCWSTR command) {
  if (!command) return false;
  const std::u16string_view user = u"user";
  size_t i = 0;
  for (; command[i] && i < user.size(); ++i) {
    char16_t c = command[i];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    if (c != user[i]) return false;
  }
  return i == user.size() && command[i] == 0;
}

}  // namespace veltrane::shell
