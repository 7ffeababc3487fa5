#include "runtime/desktop.h"

#include <dlfcn.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "platform/unicode.h"
#include "runtime/desktop_module.h"
#include "runtime/environment.h"
#include "runtime/trace.h"

#ifndef VELTRANE_DESKTOP_INSTALLED
#define VELTRANE_DESKTOP_INSTALLED ""
#endif

namespace veltrane::runtime {

namespace {

constexpr char kModuleName[] = "libveltrane-desktop.so";

struct LoadedModule {
  const VeltraneDesktop* entry = nullptr;
  std::u16string failure;
};

const LoadedModule& Module() {
  static const LoadedModule loaded = [] {
    LoadedModule m;
    std::string reasons;
    for (const std::string& path : DesktopModuleCandidates()) {
      void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
      if (!handle) {
        reasons += std::string(reasons.empty() ? "" : "; ") + dlerror();
        continue;
      }
      auto entry = reinterpret_cast<VeltraneDesktopEntry>(dlsym(handle, VELTRANE_DESKTOP_ENTRY));
      const VeltraneDesktop* desktop = entry ? entry() : nullptr;
      if (desktop && desktop->version == VELTRANE_DESKTOP_VERSION) {
        m.entry = desktop;
        return m;
      }
      reasons += (reasons.empty() ? "" : "; ") + path + ": not a module of this version";
    }
    m.failure =
        Utf8ToWideLossy(std::string("the window module ") + kModuleName + " cannot be loaded (" + reasons + ")");
    return m;
  }();
  return loaded;
}

HRESULT Outcome(int result, std::u16string* failure) {
  switch (result) {
    case VELTRANE_DESKTOP_OK: return S_OK;
    case VELTRANE_DESKTOP_NO_DISPLAY:
      *failure = u"no display to show the window on: set DISPLAY (X11) or WAYLAND_DISPLAY";
      return E_FAIL;
    default:
      *failure = u"the windows of this process are shown by the thread that showed the first one";
      return RPC_E_WRONG_THREAD;
  }
}

// The loaded module, or the reason why there is none.
const VeltraneDesktop* Desktop(HRESULT* hr, std::u16string* failure) {
  const LoadedModule& m = Module();
  if (!m.entry) {
    *failure = m.failure;
    *hr = HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
  }
  return m.entry;
}

void TraceLine(const char* line) { Trace(u"%s", Utf8ToWideLossy(line ? line : "")); }

}  // namespace

std::vector<std::string> DesktopModuleCandidates() {
  std::vector<std::string> out;
  if (const char* path = std::getenv("VELTRANE_DESKTOP_MODULE"); path && *path) out.emplace_back(path);
  const std::string library = WideToUtf8Lossy(LibraryPath());
  const size_t slash = library.rfind('/');
  if (slash != std::string::npos) out.push_back(library.substr(0, slash) + "/veltrane/" + kModuleName);
  if (*VELTRANE_DESKTOP_INSTALLED) out.emplace_back(VELTRANE_DESKTOP_INSTALLED);
  return out;
}

HRESULT DesktopScreenSize(int* width, int* height, std::u16string* failure) {
  HRESULT hr = S_OK;
  const VeltraneDesktop* desktop = Desktop(&hr, failure);
  return desktop ? Outcome(desktop->screenSize(width, height), failure) : hr;
}

HRESULT RunBrowserWindow(const BrowserWindowSpec& spec, std::u16string* finalUrl, std::u16string* failure) {
  HRESULT hr = S_OK;
  const VeltraneDesktop* desktop = Desktop(&hr, failure);
  if (!desktop) return hr;
  const std::string url = WideToUtf8Lossy(spec.url), exitPage = WideToUtf8Lossy(spec.exitPage),
                    user = WideToUtf8Lossy(spec.user), password = WideToUtf8Lossy(spec.password),
                    ticket = WideToUtf8Lossy(spec.ticket), title = WideToUtf8Lossy(spec.title),
                    iconPath = WideToUtf8Lossy(spec.iconPath), closeWarning = WideToUtf8Lossy(spec.closeWarning);
  const VeltraneBrowserWindow window{spec.left,      spec.top,         spec.right,       spec.bottom,
                                     url.c_str(),    exitPage.c_str(), user.c_str(),     password.c_str(),
                                     ticket.c_str(), title.c_str(),    iconPath.c_str(), closeWarning.c_str(),
                                     &TraceLine};
  char* reached = nullptr;
  hr = Outcome(desktop->runBrowserWindow(&window, &reached), failure);
  finalUrl->assign(Utf8ToWideLossy(reached ? reached : ""));
  desktop->freeText(reached);
  return hr;
}

HRESULT RunAboutBox(const AboutBoxSpec& spec, std::u16string* failure) {
  HRESULT hr = S_OK;
  const VeltraneDesktop* desktop = Desktop(&hr, failure);
  if (!desktop) return hr;
  const std::string title = WideToUtf8Lossy(spec.title), name = WideToUtf8Lossy(spec.productName),
                    copyright = WideToUtf8Lossy(spec.copyright), web = WideToUtf8Lossy(spec.webAddress),
                    version = WideToUtf8Lossy(spec.version);
  const VeltraneAboutBox box{title.c_str(), name.c_str(), copyright.c_str(), web.c_str(), version.c_str()};
  return Outcome(desktop->showAbout(&box), failure);
}

}  // namespace veltrane::runtime
