#include "desktop/browser_view.h"

#include "desktop/toolkit.h"

namespace veltrane::desktop {

namespace {

constexpr char kCloseHandler[] = "veltraneClose";
// A page may close its window only when a script opened it; in this window
// every page may, as in the platform's hosted browser.
constexpr char kCloseScript[] =
    "window.close = function () { window.webkit.messageHandlers.veltraneClose.postMessage(null); };";

std::string HostOf(const char* url) {
  GUri* uri = g_uri_parse(url, G_URI_FLAGS_NONE, nullptr);
  std::string host = uri && g_uri_get_host(uri) ? g_uri_get_host(uri) : "";
  if (uri) g_uri_unref(uri);
  return host;
}

// Where text stands in url, in characters; -1 if it does not.
long PositionIn(const std::string& url, const std::string& text) {
  const size_t at = url.find(text);
  return at == std::string::npos ? -1 : g_utf8_pointer_to_offset(url.c_str(), url.c_str() + at);
}

}  // namespace

WebKitWebContext* BrowserView::SharedContext() {
  static WebKitWebContext* context = [] {
    WebKitWebsiteDataManager* data = webkit_website_data_manager_new_ephemeral();
    WebKitWebContext* c = webkit_web_context_new_with_website_data_manager(data);
    g_object_unref(data);
    return c;
  }();
  return context;
}

BrowserView::BrowserView(const VeltraneBrowserWindow& spec, std::function<void()> closeFrame)
    : m_spec(spec), m_closeFrame(std::move(closeFrame)), m_cancel(g_cancellable_new()) {
  WebKitUserContentManager* content = webkit_user_content_manager_new();
  g_signal_connect(content, "script-message-received::veltraneClose", G_CALLBACK(OnScriptClose), this);
  webkit_user_content_manager_register_script_message_handler(content, kCloseHandler);
  WebKitUserScript* script = webkit_user_script_new(kCloseScript, WEBKIT_USER_CONTENT_INJECT_TOP_FRAME,
                                                    WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START, nullptr, nullptr);
  webkit_user_content_manager_add_script(content, script);
  webkit_user_script_unref(script);
  m_view = WEBKIT_WEB_VIEW(
      g_object_new(WEBKIT_TYPE_WEB_VIEW, "web-context", SharedContext(), "user-content-manager", content, nullptr));
  g_object_unref(content);
  g_object_ref_sink(m_view);
  m_site = std::make_unique<SiteHandler>(m_view, m_spec.user, m_spec.password);
  g_signal_connect(m_view, "load-changed", G_CALLBACK(OnLoadChanged), this);
  g_signal_connect(m_view, "close", G_CALLBACK(OnClose), this);
  webkit_web_view_load_uri(m_view, "about:blank");
}

BrowserView::~BrowserView() {
  g_cancellable_cancel(m_cancel);
  g_object_unref(m_cancel);
  if (m_startSource) g_source_remove(m_startSource);
  Destroy();
  g_signal_handlers_disconnect_by_data(webkit_web_view_get_user_content_manager(m_view), this);
  g_signal_handlers_disconnect_by_data(m_view, this);
  g_signal_handlers_disconnect_by_data(m_view, m_site.get());
  g_object_unref(m_view);
}

void BrowserView::Destroy() {
  if (gtk_widget_get_parent(GTK_WIDGET(m_view))) gtk_widget_destroy(GTK_WIDGET(m_view));
}

void BrowserView::Trace(const std::string& line) const {
  if (m_spec.trace) m_spec.trace(line.c_str());
}

void BrowserView::OnLoadChanged(WebKitWebView* view, WebKitLoadEvent event, BrowserView* self) {
  const char* uri = webkit_web_view_get_uri(view);
  const std::string url = uri ? uri : "";
  if (event == WEBKIT_LOAD_COMMITTED) {
    if (!self->m_firstNavigation) self->WatchExit(url);
  } else if (event == WEBKIT_LOAD_FINISHED) {
    self->Trace(Printf("OnDownloadComplete:'%s'\n", url.c_str()));
    self->Trace(Printf("OnDownloadComplete: Compare with Exit Page: '%s' = %ld\n", self->m_spec.exitPage,
                       PositionIn(url, self->m_spec.exitPage)));
    self->WatchExit(url);
    if (self->m_firstNavigation) {
      // The start page is there: the real navigation follows from the loop.
      self->m_firstNavigation = false;
      self->m_startSource = g_idle_add(OnStartNavigation, self);
    }
  }
}

void BrowserView::WatchExit(const std::string& url) {
  const std::string exitPage = m_spec.exitPage;
  if (exitPage.empty() || url.find(exitPage) == std::string::npos) return;
  m_finalUrl = url;
  m_exitReached = true;
  m_closeFrame();
}

void BrowserView::OnScriptClose(WebKitUserContentManager*, gpointer, BrowserView* self) { OnClose(nullptr, self); }

void BrowserView::OnClose(WebKitWebView*, BrowserView* self) {
  self->m_finalUrl.clear();
  self->m_exitReached = true;
  self->m_closeFrame();
}

gboolean BrowserView::OnStartNavigation(gpointer data) {
  auto* self = static_cast<BrowserView*>(data);
  self->m_startSource = 0;
  self->StartNavigation();
  return G_SOURCE_REMOVE;
}

void BrowserView::StartNavigation() {
  const std::string ticket = m_spec.ticket;
  if (ticket.empty()) return Navigate();
  const std::string value = ticket + ";path=/";
  Trace(Printf("OnUser: authenticating with MYSAPSSO2 ticket (len=%ld)\n", g_utf8_strlen(value.c_str(), -1)));
  SoupCookie* cookie = soup_cookie_new("MYSAPSSO2", ticket.c_str(), HostOf(m_spec.url).c_str(), "/", -1);
  WebKitCookieManager* cookies = webkit_web_context_get_cookie_manager(webkit_web_view_get_context(m_view));
  webkit_cookie_manager_add_cookie(cookies, cookie, m_cancel, OnCookieSet, this);
  soup_cookie_free(cookie);
}

void BrowserView::OnCookieSet(GObject* manager, GAsyncResult* result, gpointer data) {
  GError* error = nullptr;
  webkit_cookie_manager_add_cookie_finish(WEBKIT_COOKIE_MANAGER(manager), result, &error);
  const bool cancelled = error && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
  if (error) g_error_free(error);
  // A cancelled call belongs to a view that is gone.
  if (!cancelled) static_cast<BrowserView*>(data)->Navigate();
}

void BrowserView::Navigate() { webkit_web_view_load_uri(m_view, m_spec.url); }

}  // namespace veltrane::desktop
