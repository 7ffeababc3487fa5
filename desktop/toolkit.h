// The toolkit as the component's windows use it: one thread, the one that
// showed the first window; the active window as the owner of a modal one.
#pragma once

#include <gtk/gtk.h>

#include <string>

namespace veltrane::desktop {

// Initialises GTK on the first call; a VELTRANE_DESKTOP_* result. Every
// later call must come from the same thread.
int EnterToolkit();

// The visible window of the process that has the focus, or null.
GtkWindow* ActiveWindow();

// Makes window modal, owned by the active window, shows it and runs a loop
// of its own until quit is called; then hides and destroys it, and lets the
// display catch up, so that the window is gone when this returns.
class ModalLoop {
 public:
  explicit ModalLoop(GtkWidget* window);
  ~ModalLoop();
  ModalLoop(const ModalLoop&) = delete;
  ModalLoop& operator=(const ModalLoop&) = delete;

  void Run();
  void Quit();
  bool Running() const { return m_running; }

 private:
  GtkWidget* m_window;
  GMainLoop* m_loop;
  bool m_running = false;
};

// printf into a string, for trace lines.
std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace veltrane::desktop
