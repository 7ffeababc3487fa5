// The interface of libveltrane-desktop.so, the component's windows on GTK 3
// and WebKitGTK: the BSP browser window and the About box. The module is
// loaded at first use (runtime/desktop.h), so that a process that never
// shows a window never loads a toolkit. Plain C, texts in UTF-8.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// The version of this interface; the module and the loader must agree.
#define VELTRANE_DESKTOP_VERSION 1
// The one symbol the module exports.
#define VELTRANE_DESKTOP_ENTRY "veltrane_desktop_entry"

enum VeltraneDesktopResult {
  VELTRANE_DESKTOP_OK = 0,
  // The toolkit could not open a display.
  VELTRANE_DESKTOP_NO_DISPLAY = 1,
  // The toolkit belongs to another thread: the first one that showed a window.
  VELTRANE_DESKTOP_WRONG_THREAD = 2,
};

// Writes one framed line to the component's trace.
typedef void (*VeltraneDesktopTrace)(const char* line);

// What the browser window shows and how (the frame's and the view's data).
typedef struct VeltraneBrowserWindow {
  int left, top, right, bottom;  // the window's rectangle on the screen
  const char* url;               // the page to show after "about:blank"
  const char* exitPage;          // closes the window when a URL contains it; empty: none
  const char* user;              // the answer to an HTTP authentication challenge
  const char* password;
  const char* ticket;  // set as the session cookie MYSAPSSO2 before the first request; empty: none
  const char* title;
  const char* iconPath;      // image file of the window's icon; empty or unreadable: the default
  const char* closeWarning;  // asked as a yes/no question when the user closes; empty: none
  VeltraneDesktopTrace trace;
} VeltraneBrowserWindow;

// The fields of the About box.
typedef struct VeltraneAboutBox {
  const char* title;
  const char* productName;
  const char* copyright;
  const char* webAddress;
  const char* version;
} VeltraneAboutBox;

typedef struct VeltraneDesktop {
  int version;  // VELTRANE_DESKTOP_VERSION
  // The size of the primary monitor, in pixels.
  int (*screenSize)(int* width, int* height);
  // Shows the window modally, owned by the active window of the process, and
  // returns when it is gone. *finalUrl is the URL at which the exit page was
  // reached, or empty; the caller frees it with freeText.
  int (*runBrowserWindow)(const VeltraneBrowserWindow* window, char** finalUrl);
  // Shows the About box modally and returns when it is closed.
  int (*showAbout)(const VeltraneAboutBox* box);
  void (*freeText)(char* text);
} VeltraneDesktop;

typedef const VeltraneDesktop* (*VeltraneDesktopEntry)(void);

#ifdef __cplusplus
}
#endif
