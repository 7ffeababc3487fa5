// veltrane-regsvr: registers an in-process component library in the
// registry, the counterpart of the platform's registration program.
//
//   veltrane-regsvr [/u] [/i[:TEXT]] [/s] LIBRARY
//
// Without /i it calls DllRegisterServer (with /u DllUnregisterServer); with
// /i it calls only DllInstall, with the install flag (cleared by /u) and
// TEXT, so that "/i:user" registers for the user alone. /s prints nothing
// but failures. Options may also start with "-". Exit status: 0 success,
// 1 a bad command line, 3 the library cannot be loaded, 4 it lacks the
// entry point, 5 the entry point failed.
#include <dlfcn.h>
#include <link.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <veltrane.h>

#include "platform/result_names.h"

namespace {

constexpr char kUsage[] =
    "usage: veltrane-regsvr [/u] [/i[:TEXT]] [/s] LIBRARY\n"
    "  /u        unregister (DllUnregisterServer; with /i: DllInstall with the install flag cleared)\n"
    "  /i[:TEXT] call DllInstall with TEXT instead of DllRegisterServer; /i:user registers for the user only\n"
    "  /s        silent: print failures only\n"
    "The machine's registry is below /etc/veltrane (or $VELTRANE_SYSCONFDIR/veltrane), the user's\n"
    "below $XDG_CONFIG_HOME/veltrane (or ~/.config/veltrane).\n";

struct Options {
  bool unregister = false;
  bool install = false;
  bool silent = false;
  std::u16string installText;
  std::string library;
};

bool IsOption(const char* arg, const char* name) {
  return (arg[0] == '/' || arg[0] == '-') && strcasecmp(arg + 1, name) == 0;
}

bool Parse(int argc, char** argv, Options* o) {
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    if (IsOption(a, "u")) {
      o->unregister = true;
    } else if (IsOption(a, "s")) {
      o->silent = true;
    } else if ((a[0] == '/' || a[0] == '-') && (a[1] == 'i' || a[1] == 'I') && (a[2] == 0 || a[2] == ':')) {
      o->install = true;
      if (a[2] == ':') {
        for (const char* p = a + 3; *p; ++p) o->installText += static_cast<char16_t>(static_cast<unsigned char>(*p));
      }
    } else if (a[0] == '-' || (a[0] == '/' && std::strchr(a + 1, '/') == nullptr && std::strlen(a) <= 3)) {
      std::fprintf(stderr, "veltrane-regsvr: unknown option %s\n%s", a, kUsage);
      return false;
    } else if (o->library.empty()) {
      o->library = a;
    } else {
      std::fprintf(stderr, "veltrane-regsvr: one library at a time\n%s", kUsage);
      return false;
    }
  }
  if (o->library.empty()) {
    std::fprintf(stderr, "%s", kUsage);
    return false;
  }
  return true;
}

// The reason of a failure: the error record the entry point left, or the
// platform's text of the code.
std::string Reason(HRESULT hr) {
  CComPtr<IErrorInfo> info;
  if (GetErrorInfo(0, &info) == S_OK && info) {
    CComBSTR description;
    if (SUCCEEDED(info->GetDescription(&description)) && description.Length() > 0) {
      std::string text;
      for (char16_t c : std::u16string_view(description.m_str, description.Length()))
        text += c < 0x80 ? static_cast<char>(c) : '?';
      return text;
    }
  }
  const std::u16string name = HResultName(hr), message = HResultMessage(hr);
  std::string text;
  for (char16_t c : name + (name.empty() ? u"" : u": ") + message) text += c < 0x80 ? static_cast<char>(c) : '?';
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (!Parse(argc, argv, &o)) return 1;
  // A library named without a directory is taken from the current one.
  const std::string file = o.library.find('/') == std::string::npos ? "./" + o.library : o.library;
  void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    std::fprintf(stderr, "veltrane-regsvr: the library %s could not be loaded: %s\n", o.library.c_str(), dlerror());
    return 3;
  }
  const char* entry = o.install ? "DllInstall" : o.unregister ? "DllUnregisterServer" : "DllRegisterServer";
  // dlsym also searches the libraries it depends on: the entry point must be
  // the library's own.
  void* symbol = dlsym(handle, entry);
  struct link_map* map = nullptr;
  Dl_info where{};
  if (symbol && (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || !dladdr(symbol, &where) ||
                 reinterpret_cast<ElfW(Addr)>(where.dli_fbase) != map->l_addr))
    symbol = nullptr;
  if (!symbol) {
    std::fprintf(stderr, "veltrane-regsvr: the library %s was loaded, but the entry point %s was not found\n",
                 o.library.c_str(), entry);
    return 4;
  }
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  HRESULT hr;
  if (o.install)
    hr = reinterpret_cast<HRESULT (*)(BOOL, LPCWSTR)>(symbol)(o.unregister ? FALSE : TRUE,
                                                              o.installText.empty() ? nullptr : o.installText.c_str());
  else
    hr = reinterpret_cast<HRESULT (*)()>(symbol)();
  const std::string reason = FAILED(hr) ? Reason(hr) : std::string();
  CoUninitialize();
  if (FAILED(hr)) {
    std::fprintf(stderr, "veltrane-regsvr: the call to %s of %s failed with 0x%08X (%s)\n", entry, o.library.c_str(),
                 static_cast<unsigned>(hr), reason.c_str());
    return 5;
  }
  if (!o.silent) std::printf("%s of %s succeeded.\n", entry, o.library.c_str());
  return 0;
}
