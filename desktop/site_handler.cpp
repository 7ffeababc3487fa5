#include "desktop/site_handler.h"

namespace veltrane::desktop {

SiteHandler::SiteHandler(WebKitWebView* view, std::string user, std::string password)
    : m_user(std::move(user)), m_password(std::move(password)) {
  g_signal_connect(view, "authenticate", G_CALLBACK(OnAuthenticate), this);
  g_signal_connect(view, "context-menu", G_CALLBACK(OnContextMenu), this);
  g_signal_connect(view, "create", G_CALLBACK(OnCreate), this);
}

gboolean SiteHandler::OnAuthenticate(WebKitWebView*, WebKitAuthenticationRequest* request, SiteHandler* self) {
  if (webkit_authentication_request_is_retry(request)) {
    // The server refused the logon data: go on without, to its own page.
    webkit_authentication_request_authenticate(request, nullptr);
    return TRUE;
  }
  WebKitCredential* credential =
      webkit_credential_new(self->m_user.c_str(), self->m_password.c_str(), WEBKIT_CREDENTIAL_PERSISTENCE_FOR_SESSION);
  webkit_authentication_request_authenticate(request, credential);
  webkit_credential_free(credential);
  return TRUE;
}

gboolean SiteHandler::OnContextMenu(WebKitWebView*, WebKitContextMenu*, GdkEvent*, WebKitHitTestResult*, SiteHandler*) {
  return TRUE;
}

GtkWidget* SiteHandler::OnCreate(WebKitWebView*, WebKitNavigationAction*, SiteHandler*) { return nullptr; }

}  // namespace veltrane::desktop
