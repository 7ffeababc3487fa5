// The entry of libveltrane-desktop.so (runtime/desktop_module.h).
#include <gtk/gtk.h>

#include "desktop/about_dialog.h"
#include "desktop/browser_frame.h"
#include "desktop/toolkit.h"
#include "runtime/desktop_module.h"

namespace {

using namespace veltrane::desktop;

int ScreenSize(int* width, int* height) {
  const int entered = EnterToolkit();
  if (entered != VELTRANE_DESKTOP_OK) return entered;
  GdkDisplay* display = gdk_display_get_default();
  GdkMonitor* monitor = gdk_display_get_primary_monitor(display);
  if (!monitor) monitor = gdk_display_get_monitor(display, 0);
  GdkRectangle area{0, 0, 0, 0};
  if (monitor) gdk_monitor_get_geometry(monitor, &area);
  *width = area.width;
  *height = area.height;
  return VELTRANE_DESKTOP_OK;
}

int RunBrowserWindow(const VeltraneBrowserWindow* window, char** finalUrl) {
  *finalUrl = nullptr;
  const int entered = EnterToolkit();
  if (entered != VELTRANE_DESKTOP_OK) return entered;
  BrowserFrame frame(*window);
  frame.Run();
  *finalUrl = g_strdup(frame.FinalUrl().c_str());
  return VELTRANE_DESKTOP_OK;
}

int ShowAbout(const VeltraneAboutBox* box) {
  const int entered = EnterToolkit();
  if (entered != VELTRANE_DESKTOP_OK) return entered;
  RunAboutDialog(*box);
  return VELTRANE_DESKTOP_OK;
}

void FreeText(char* text) { g_free(text); }

const VeltraneDesktop kDesktop = {VELTRANE_DESKTOP_VERSION, ScreenSize, RunBrowserWindow, ShowAbout, FreeText};

}  // namespace

extern "C" __attribute__((visibility("default"))) const VeltraneDesktop* veltrane_desktop_entry(void) {
  return &kDesktop;
}
