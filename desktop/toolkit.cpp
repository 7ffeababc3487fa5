#include "desktop/toolkit.h"

#include <cstdarg>
#include <mutex>
#include <thread>

#include "runtime/desktop_module.h"

namespace veltrane::desktop {

namespace {

std::mutex g_mutex;
bool g_initialized = false;
std::thread::id g_owner;

}  // namespace

int EnterToolkit() {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_initialized) return std::this_thread::get_id() == g_owner ? VELTRANE_DESKTOP_OK : VELTRANE_DESKTOP_WRONG_THREAD;
  if (!gtk_init_check(nullptr, nullptr)) return VELTRANE_DESKTOP_NO_DISPLAY;
  g_initialized = true;
  g_owner = std::this_thread::get_id();
  return VELTRANE_DESKTOP_OK;
}

GtkWindow* ActiveWindow() {
  GList* windows = gtk_window_list_toplevels();
  GtkWindow* active = nullptr;
  for (GList* w = windows; w && !active; w = w->next) {
    GtkWindow* window = GTK_WINDOW(w->data);
    if (gtk_window_is_active(window) && gtk_widget_get_visible(GTK_WIDGET(window))) active = window;
  }
  g_list_free(windows);
  return active;
}

ModalLoop::ModalLoop(GtkWidget* window) : m_window(window), m_loop(g_main_loop_new(nullptr, FALSE)) {
  g_object_ref_sink(m_window);
  if (GtkWindow* owner = ActiveWindow(); owner && owner != GTK_WINDOW(m_window))
    gtk_window_set_transient_for(GTK_WINDOW(m_window), owner);
  gtk_window_set_modal(GTK_WINDOW(m_window), TRUE);
}

ModalLoop::~ModalLoop() {
  gtk_widget_destroy(m_window);
  g_object_unref(m_window);
  g_main_loop_unref(m_loop);
  if (GdkDisplay* display = gdk_display_get_default()) gdk_display_flush(display);
}

void ModalLoop::Run() {
  gtk_widget_show_all(m_window);
  m_running = true;
  g_main_loop_run(m_loop);
  m_running = false;
  gtk_widget_hide(m_window);
}

void ModalLoop::Quit() {
  if (g_main_loop_is_running(m_loop)) g_main_loop_quit(m_loop);
}

std::string Printf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  char* text = g_strdup_vprintf(format, args);
  va_end(args);
  std::string out(text ? text : "");
  g_free(text);
  return out;
}

}  // namespace veltrane::desktop
