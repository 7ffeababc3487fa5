// What makes the browser behave as an application window instead of a
// browser: an HTTP authentication challenge is answered from the logon data
// without a dialog (once; a refused answer lets the server's page show), the
// context menu never opens, and pages open no other windows.
#pragma once

#include <webkit2/webkit2.h>

#include <string>

namespace veltrane::desktop {

class SiteHandler {
 public:
  SiteHandler(WebKitWebView* view, std::string user, std::string password);

 private:
  static gboolean OnAuthenticate(WebKitWebView* view, WebKitAuthenticationRequest* request, SiteHandler* self);
  static gboolean OnContextMenu(WebKitWebView* view, WebKitContextMenu* menu, GdkEvent* event, WebKitHitTestResult* hit,
                                SiteHandler* self);
  static GtkWidget* OnCreate(WebKitWebView* view, WebKitNavigationAction* action, SiteHandler* self);

  std::string m_user;
  std::string m_password;
};

}  // namespace veltrane::desktop
