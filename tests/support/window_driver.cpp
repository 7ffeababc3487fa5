#include "window_driver.h"

// Before the X headers, whose macros (None, Bool) would break it.
#include <gtest/gtest.h>

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <gdk/gdkx.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

namespace veltrane::testing {

namespace {

Display* XDisplay() { return gdk_x11_display_get_xdisplay(gdk_display_get_default()); }

Window XWindowOf(GtkWidget* window) { return gdk_x11_window_get_xid(gtk_widget_get_window(window)); }

// Root coordinates of a point of a widget.
void RootPoint(GtkWidget* widget, int x, int y, int* rootX, int* rootY) {
  GtkWidget* top = WindowDriver::Toplevel(widget);
  int tx = x, ty = y;
  if (widget != top) gtk_widget_translate_coordinates(widget, top, x, y, &tx, &ty);
  int ox = 0, oy = 0;
  gdk_window_get_origin(gtk_widget_get_window(top), &ox, &oy);
  *rootX = ox + tx;
  *rootY = oy + ty;
}

void ClickAt(int rootX, int rootY, int button) {
  Display* dpy = XDisplay();
  XTestFakeMotionEvent(dpy, -1, rootX, rootY, CurrentTime);
  XTestFakeButtonEvent(dpy, static_cast<unsigned>(button), True, CurrentTime);
  XTestFakeButtonEvent(dpy, static_cast<unsigned>(button), False, CurrentTime);
  XFlush(dpy);
}

// Runs the loop until a frame of the window has been painted.
void AwaitPaint(GtkWidget* window) {
  GdkFrameClock* clock = gtk_widget_get_frame_clock(window);
  if (!clock) return;
  bool painted = false;
  const gulong id =
      g_signal_connect_swapped(clock, "after-paint", G_CALLBACK(+[](bool* flag) { *flag = true; }), &painted);
  gtk_widget_queue_draw(window);
  while (!painted) g_main_context_iteration(nullptr, TRUE);
  g_signal_handler_disconnect(clock, id);
}

bool Near(guint32 a, guint32 b) {
  for (int shift : {0, 8, 16})
    if (std::abs(static_cast<int>((a >> shift) & 0xFF) - static_cast<int>((b >> shift) & 0xFF)) > 24) return false;
  return true;
}

}  // namespace

bool UseTestDisplay(std::string* reason) {
  setenv("VELTRANE_DESKTOP_MODULE", VELTRANE_DESKTOP_MODULE_PATH, 1);
  std::ifstream file(VELTRANE_TEST_DISPLAY_FILE);
  std::string display;
  if (file && std::getline(file, display) && !display.empty()) {
    setenv("DISPLAY", display.c_str(), 1);
  } else if (const char* own = std::getenv("DISPLAY"); !own || !*own) {
    *reason =
        "no display to show windows on: the test run has no Xvfb (install the package xvfb) and DISPLAY is "
        "not set";
    return false;
  }
  // The driver speaks X11; a Wayland session would take the toolkit elsewhere.
  unsetenv("WAYLAND_DISPLAY");
  setenv("GDK_BACKEND", "x11", 1);
  return true;
}

WindowDriver::WindowDriver(unsigned timeoutSeconds) {
  if (!gtk_init_check(nullptr, nullptr)) ADD_FAILURE() << "the toolkit cannot open the display";
  auto hook = [this](GType type, const char* signal, GSignalEmissionHook function) {
    g_type_class_ref(type);
    const guint id = g_signal_lookup(signal, type);
    m_hooks.emplace_back(id, g_signal_add_emission_hook(id, 0, function, this, nullptr));
  };
  hook(WEBKIT_TYPE_WEB_VIEW, "load-changed", OnLoadChanged);
  hook(WEBKIT_TYPE_WEB_VIEW, "authenticate", OnAuthenticate);
  hook(WEBKIT_TYPE_WEB_VIEW, "context-menu", OnContextMenu);
  hook(GTK_TYPE_WIDGET, "map-event", OnMapEvent);
  m_watchdog = g_timeout_add_seconds(
      timeoutSeconds,
      +[](gpointer) -> gboolean {
        std::fprintf(stderr, "window test: the window was still open after the time allowed\n");
        // Through exit, so that the test's helpers (veltrane-sim) are stopped.
        std::exit(3);
      },
      nullptr);
}

WindowDriver::~WindowDriver() {
  for (const auto& [signal, hook] : m_hooks) g_signal_remove_emission_hook(signal, hook);
  g_source_remove(m_watchdog);
}

void WindowDriver::OnPage(const std::string& part, std::function<void(WebKitWebView*)> step) {
  m_pages.push_back({part, std::move(step)});
}

void WindowDriver::OnQuestion(std::function<void(GtkMessageDialog*)> step) {
  m_questionSteps.push_back(std::move(step));
}

void WindowDriver::OnWindow(const std::string& title, std::function<void(GtkWindow*)> step) {
  m_windows.push_back({title, std::move(step)});
}

bool WindowDriver::AllStepsTaken() const {
  for (const auto& p : m_pages)
    if (!p.taken) return false;
  for (const auto& w : m_windows)
    if (!w.taken) return false;
  return m_questionSteps.empty();
}

void WindowDriver::WhenGone(GtkWidget* widget, std::function<void()> action) {
  g_signal_connect_data(
      widget, "destroy",
      G_CALLBACK(+[](GtkWidget*, gpointer data) { Later(*static_cast<std::function<void()>*>(data)); }),
      new std::function<void()>(std::move(action)),
      +[](gpointer data, GClosure*) { delete static_cast<std::function<void()>*>(data); }, GConnectFlags(0));
}

void WindowDriver::RunUntil(const std::function<bool()>& done) {
  while (!done()) g_main_context_iteration(nullptr, TRUE);
}

void WindowDriver::Later(std::function<void()> action) {
  g_idle_add_full(
      G_PRIORITY_DEFAULT_IDLE,
      +[](gpointer data) -> gboolean {
        (*static_cast<std::function<void()>*>(data))();
        return G_SOURCE_REMOVE;
      },
      new std::function<void()>(std::move(action)),
      +[](gpointer data) { delete static_cast<std::function<void()>*>(data); });
}

gboolean WindowDriver::OnLoadChanged(GSignalInvocationHint*, guint, const GValue* values, gpointer data) {
  auto* self = static_cast<WindowDriver*>(data);
  if (g_value_get_enum(&values[1]) != WEBKIT_LOAD_FINISHED) return TRUE;
  WebKitWebView* view = WEBKIT_WEB_VIEW(g_value_get_object(&values[0]));
  const char* uri = webkit_web_view_get_uri(view);
  const std::string url = uri ? uri : "";
  self->m_finished.push_back(url);
  for (PageStep& p : self->m_pages) {
    if (p.taken) continue;
    if (url.find(p.part) == std::string::npos) break;
    p.taken = true;
    g_object_ref(view);
    self->Later([view, step = p.step] {
      step(view);
      g_object_unref(view);
    });
    break;
  }
  return TRUE;
}

gboolean WindowDriver::OnAuthenticate(GSignalInvocationHint*, guint, const GValue*, gpointer data) {
  ++static_cast<WindowDriver*>(data)->m_authentications;
  return TRUE;
}

gboolean WindowDriver::OnContextMenu(GSignalInvocationHint*, guint, const GValue*, gpointer data) {
  ++static_cast<WindowDriver*>(data)->m_contextMenus;
  return TRUE;
}

gboolean WindowDriver::OnMapEvent(GSignalInvocationHint*, guint, const GValue* values, gpointer data) {
  auto* self = static_cast<WindowDriver*>(data);
  GObject* widget = G_OBJECT(g_value_get_object(&values[0]));
  if (GTK_IS_MESSAGE_DIALOG(widget)) {
    ++self->m_questions;
    if (!self->m_questionSteps.empty()) {
      auto step = std::move(self->m_questionSteps.front());
      self->m_questionSteps.erase(self->m_questionSteps.begin());
      GtkMessageDialog* dialog = GTK_MESSAGE_DIALOG(widget);
      self->Later([dialog, step] { step(dialog); });
    }
    return TRUE;
  }
  if (!GTK_IS_WINDOW(widget)) return TRUE;
  const char* title = gtk_window_get_title(GTK_WINDOW(widget));
  for (WindowStep& w : self->m_windows) {
    if (w.taken || !title || w.title != title) continue;
    w.taken = true;
    GtkWindow* window = GTK_WINDOW(widget);
    self->Later([window, step = w.step] { step(window); });
    break;
  }
  return TRUE;
}

std::string WindowDriver::Evaluate(WebKitWebView* view, const std::string& script) {
  struct State {
    bool done = false;
    std::string text;
  } state;
  webkit_web_view_evaluate_javascript(
      view, script.c_str(), -1, nullptr, nullptr, nullptr,
      +[](GObject* source, GAsyncResult* result, gpointer data) {
        auto* s = static_cast<State*>(data);
        GError* error = nullptr;
        JSCValue* value = webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), result, &error);
        if (value) {
          char* text = jsc_value_to_string(value);
          s->text = text ? text : "";
          g_free(text);
          g_object_unref(value);
        } else {
          s->text = std::string("<script failed: ") + (error ? error->message : "?") + ">";
        }
        if (error) g_error_free(error);
        s->done = true;
      },
      &state);
  while (!state.done) g_main_context_iteration(nullptr, TRUE);
  return state.text;
}

GtkWidget* WindowDriver::Toplevel(GtkWidget* widget) { return gtk_widget_get_toplevel(widget); }

void WindowDriver::CloseAsUser(GtkWidget* window) {
  Display* dpy = XDisplay();
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = XWindowOf(window);
  event.xclient.message_type = XInternAtom(dpy, "WM_PROTOCOLS", False);
  event.xclient.format = 32;
  event.xclient.data.l[0] = static_cast<long>(XInternAtom(dpy, "WM_DELETE_WINDOW", False));
  event.xclient.data.l[1] = CurrentTime;
  XSendEvent(dpy, event.xclient.window, False, NoEventMask, &event);
  XFlush(dpy);
}

void WindowDriver::Click(GtkWidget* widget, int button) {
  int x = 0, y = 0;
  RootPoint(widget, gtk_widget_get_allocated_width(widget) / 2, gtk_widget_get_allocated_height(widget) / 2, &x, &y);
  ClickAt(x, y, button);
}

void WindowDriver::ClickElement(WebKitWebView* view, const std::string& selector, int button) {
  const std::string where = Evaluate(view, "(function () { const r = document.querySelector('" + selector +
                                               "').getBoundingClientRect(); return Math.round(r.left + r.width / 2) "
                                               "+ ' ' + Math.round(r.top + r.height / 2); })()");
  int x = 0, y = 0;
  if (std::sscanf(where.c_str(), "%d %d", &x, &y) != 2) {
    ADD_FAILURE() << "no element " << selector << ": " << where;
    return;
  }
  int rootX = 0, rootY = 0;
  RootPoint(GTK_WIDGET(view), x, y, &rootX, &rootY);
  ClickAt(rootX, rootY, button);
}

void WindowDriver::Type(GtkWidget* window, const std::string& text) {
  Display* dpy = XDisplay();
  XSetInputFocus(dpy, XWindowOf(window), RevertToParent, CurrentTime);
  for (char c : text) {
    const char name[2] = {c, 0};
    const KeyCode code = XKeysymToKeycode(dpy, XStringToKeysym(name));
    XTestFakeKeyEvent(dpy, code, True, CurrentTime);
    XTestFakeKeyEvent(dpy, code, False, CurrentTime);
  }
  XFlush(dpy);
}

void WindowDriver::Settle() {
  XSync(XDisplay(), False);
  while (g_main_context_pending(nullptr)) g_main_context_iteration(nullptr, FALSE);
}

void WindowDriver::AwaitRendered(WebKitWebView* view) {
  bool done = false;
  webkit_web_view_call_async_javascript_function(
      view, "await new Promise(r => requestAnimationFrame(() => requestAnimationFrame(r))); return 1;", -1, nullptr,
      nullptr, nullptr, nullptr,
      +[](GObject* source, GAsyncResult* result, gpointer flag) {
        if (JSCValue* value =
                webkit_web_view_call_async_javascript_function_finish(WEBKIT_WEB_VIEW(source), result, nullptr))
          g_object_unref(value);
        *static_cast<bool*>(flag) = true;
      },
      &done);
  RunUntil([&done] { return done; });
  AwaitPaint(Toplevel(view));
  AwaitPaint(Toplevel(view));
}

GdkPixbuf* WindowDriver::Screenshot(GtkWidget* window, const std::string& name, guint32 rgbAt00) {
  for (int frame = 0; frame < 600; ++frame) {
    Settle();
    AwaitPaint(window);
    GdkWindow* gdkWindow = gtk_widget_get_window(window);
    GdkPixbuf* picture =
        gdk_pixbuf_get_from_window(gdkWindow, 0, 0, gdk_window_get_width(gdkWindow), gdk_window_get_height(gdkWindow));
    if (picture && (rgbAt00 == 0 || Near(Pixel(picture, 4, 4), rgbAt00))) {
      const std::string path = std::string(VELTRANE_SCREENSHOT_DIR) + "/" + name + ".png";
      g_mkdir_with_parents(VELTRANE_SCREENSHOT_DIR, 0755);
      gdk_pixbuf_save(picture, path.c_str(), "png", nullptr, nullptr);
      return picture;
    }
    if (picture) g_object_unref(picture);
  }
  return nullptr;
}

guint32 WindowDriver::Pixel(GdkPixbuf* picture, int x, int y) {
  const guchar* p =
      gdk_pixbuf_get_pixels(picture) + y * gdk_pixbuf_get_rowstride(picture) + x * gdk_pixbuf_get_n_channels(picture);
  return (guint32(p[0]) << 16) | (guint32(p[1]) << 8) | p[2];
}

GtkWidget* WindowDriver::FindNamed(GtkWidget* root, const std::string& name) {
  if (name == gtk_widget_get_name(root)) return root;
  if (!GTK_IS_CONTAINER(root)) return nullptr;
  GList* children = gtk_container_get_children(GTK_CONTAINER(root));
  GtkWidget* found = nullptr;
  for (GList* c = children; c && !found; c = c->next) found = FindNamed(GTK_WIDGET(c->data), name);
  g_list_free(children);
  return found;
}

}  // namespace veltrane::testing
