// The component's windows, through libveltrane-desktop.so (GTK 3 and
// WebKitGTK), which is loaded when the first window is shown. The module is
// looked for at $VELTRANE_DESKTOP_MODULE, then in the directory "veltrane"
// beside the file that holds the component's code, then where it is
// installed.
//
// The toolkit is used by one thread: the first that shows a window. A
// failure gives its result code and a text for the error record:
//   the module cannot be loaded   0x8007007E (ERROR_MOD_NOT_FOUND)
//   no display to show it on      E_FAIL
//   a thread other than the first RPC_E_WRONG_THREAD
#pragma once

#include <string>
#include <vector>

#include "platform/wtypes.h"

namespace veltrane::runtime {

struct BrowserWindowSpec {
  int left = 0, top = 0, right = 0, bottom = 0;
  std::u16string url;
  std::u16string exitPage;
  std::u16string user;
  std::u16string password;
  std::u16string ticket;
  std::u16string title;
  std::u16string iconPath;
  std::u16string closeWarning;
};

struct AboutBoxSpec {
  std::u16string title;
  std::u16string productName;
  std::u16string copyright;
  std::u16string webAddress;
  std::u16string version;
};

// The places the module is looked for, in order.
std::vector<std::string> DesktopModuleCandidates();

// The size of the primary screen, in pixels.
HRESULT DesktopScreenSize(int* width, int* height, std::u16string* failure);

// Shows the browser window modally and returns when it is gone; finalUrl is
// the URL at which the exit page was reached, or empty.
HRESULT RunBrowserWindow(const BrowserWindowSpec& spec, std::u16string* finalUrl, std::u16string* failure);

// Shows the About box modally and returns when it is closed.
HRESULT RunAboutBox(const AboutBoxSpec& spec, std::u16string* failure);

}  // namespace veltrane::runtime
