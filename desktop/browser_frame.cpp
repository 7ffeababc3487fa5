#include "desktop/browser_frame.h"

#include <algorithm>

namespace veltrane::desktop {

namespace {

// The icon at the two sizes of a window's icons; a file that cannot be read
// leaves the toolkit's default.
void SetIcon(GtkWindow* window, const char* path) {
  if (!path || !*path) return;
  GList* icons = nullptr;
  for (int size : {32, 16})
    if (GdkPixbuf* icon = gdk_pixbuf_new_from_file_at_size(path, size, size, nullptr))
      icons = g_list_append(icons, icon);
  if (!icons) return;
  gtk_window_set_icon_list(window, icons);
  g_list_free_full(icons, g_object_unref);
}

}  // namespace

BrowserFrame::BrowserFrame(const VeltraneBrowserWindow& spec) : m_spec(spec) {
  m_window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  GtkWindow* window = GTK_WINDOW(m_window);
  gtk_window_set_type_hint(window, GDK_WINDOW_TYPE_HINT_DIALOG);
  gtk_window_move(window, spec.left, spec.top);
  gtk_window_set_default_size(window, std::max(1, spec.right - spec.left), std::max(1, spec.bottom - spec.top));
  gtk_window_set_title(window, spec.title);
  SetIcon(window, spec.iconPath);
  m_view = std::make_unique<BrowserView>(spec, [this] { PostClose(); });
  gtk_container_add(GTK_CONTAINER(m_window), m_view->Widget());
  g_signal_connect(m_window, "delete-event", G_CALLBACK(OnDelete), this);
  m_loop = std::make_unique<ModalLoop>(m_window);
}

BrowserFrame::~BrowserFrame() {
  for (guint source : m_posted) g_source_remove(source);
  g_signal_handlers_disconnect_by_data(m_window, this);
  m_loop.reset();
  m_view.reset();
}

void BrowserFrame::Run() {
  gtk_widget_grab_focus(m_view->Widget());
  m_loop->Run();
}

gboolean BrowserFrame::OnDelete(GtkWidget*, GdkEvent*, BrowserFrame* self) {
  self->Close();
  return TRUE;
}

void BrowserFrame::PostClose() { m_posted.push_back(g_idle_add(OnPostedClose, this)); }

gboolean BrowserFrame::OnPostedClose(gpointer data) {
  auto* self = static_cast<BrowserFrame*>(data);
  self->m_posted.erase(self->m_posted.begin());
  self->Close();
  return G_SOURCE_REMOVE;
}

void BrowserFrame::Close() {
  if (m_ended) return;
  if (!m_view->ExitReached() && *m_spec.closeWarning) {
    // A second close while the question is open waits for its answer.
    if (m_question || !AskToClose() || m_ended) return;
  }
  m_finalUrl = m_view->FinalUrl();
  m_view->Destroy();
  m_ended = true;
  // The window ends without asking: a question still open is dismissed.
  if (m_question) gtk_dialog_response(GTK_DIALOG(m_question), GTK_RESPONSE_NONE);
  m_loop->Quit();
}

bool BrowserFrame::AskToClose() {
  m_question = gtk_message_dialog_new(GTK_WINDOW(m_window), GTK_DIALOG_MODAL, GTK_MESSAGE_WARNING, GTK_BUTTONS_YES_NO,
                                      "%s", m_spec.closeWarning);
  gtk_window_set_title(GTK_WINDOW(m_question), m_spec.title);
  const int answer = gtk_dialog_run(GTK_DIALOG(m_question));
  gtk_widget_destroy(m_question);
  m_question = nullptr;
  return answer == GTK_RESPONSE_YES;
}

}  // namespace veltrane::desktop
