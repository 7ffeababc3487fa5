// The view of the BSP window: a WebKit web view that opens "about:blank"
// first and, once that has loaded, sets the logon ticket as the session
// cookie MYSAPSSO2 (path "/", for the host of the URL) in the view's cookie
// store and then loads the URL, so that the ticket goes with the very first
// request. It watches every committed and every finished load for the exit
// page, and a page that closes itself by script (window.close()) ends the
// window without parameters.
//
// The views share one web context for the process, with an ephemeral
// store: cookies live as long as the process, as the session cookies of a
// browser do, and nothing is written to disk.
#pragma once

#include <webkit2/webkit2.h>

#include <functional>
#include <memory>
#include <string>

#include "desktop/site_handler.h"
#include "runtime/desktop_module.h"

namespace veltrane::desktop {

class BrowserView {
 public:
  // closeFrame posts the frame's closing (the exit page was reached, or the
  // page closed itself).
  BrowserView(const VeltraneBrowserWindow& spec, std::function<void()> closeFrame);
  ~BrowserView();
  BrowserView(const BrowserView&) = delete;
  BrowserView& operator=(const BrowserView&) = delete;

  GtkWidget* Widget() const { return GTK_WIDGET(m_view); }
  // Set when the window must close without asking.
  bool ExitReached() const { return m_exitReached; }
  // The URL at which the exit page was reached; empty if none.
  const std::string& FinalUrl() const { return m_finalUrl; }
  // Destroys the view's window.
  void Destroy();

 private:
  static WebKitWebContext* SharedContext();
  static void OnLoadChanged(WebKitWebView* view, WebKitLoadEvent event, BrowserView* self);
  static void OnScriptClose(WebKitUserContentManager* manager, gpointer result, BrowserView* self);
  static void OnClose(WebKitWebView* view, BrowserView* self);
  static gboolean OnStartNavigation(gpointer self);
  static void OnCookieSet(GObject* manager, GAsyncResult* result, gpointer self);

  void StartNavigation();
  void Navigate();
  void WatchExit(const std::string& url);
  void Trace(const std::string& line) const;

  const VeltraneBrowserWindow& m_spec;
  std::function<void()> m_closeFrame;
  WebKitWebView* m_view = nullptr;
  std::unique_ptr<SiteHandler> m_site;
  GCancellable* m_cancel;
  guint m_startSource = 0;
  bool m_firstNavigation = true;
  bool m_exitReached = false;
  std::string m_finalUrl;
};

}  // namespace veltrane::desktop
