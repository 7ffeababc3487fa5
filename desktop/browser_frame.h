// The BSP window: a modal toplevel window at the target rectangle, with the
// title and the icon of the window settings, holding the browser view. It
// owns the closing rules: a close by the user asks the close warning as a
// yes/no question first, unless the window must close without asking (the
// exit page was reached, or the page closed itself); only "yes" closes. A
// close posted by the view is handled from the loop, and the first close
// that goes through ends the window; the others find it ended.
#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <string>
#include <vector>

#include "desktop/browser_view.h"
#include "desktop/toolkit.h"
#include "runtime/desktop_module.h"

namespace veltrane::desktop {

class BrowserFrame {
 public:
  explicit BrowserFrame(const VeltraneBrowserWindow& spec);
  ~BrowserFrame();
  BrowserFrame(const BrowserFrame&) = delete;
  BrowserFrame& operator=(const BrowserFrame&) = delete;

  // Shows the window and returns when it is gone.
  void Run();
  // The view's final URL, taken when the window closed.
  const std::string& FinalUrl() const { return m_finalUrl; }

 private:
  static gboolean OnDelete(GtkWidget* window, GdkEvent* event, BrowserFrame* self);
  static gboolean OnPostedClose(gpointer self);
  void PostClose();
  void Close();
  bool AskToClose();

  const VeltraneBrowserWindow& m_spec;
  GtkWidget* m_window;
  std::unique_ptr<BrowserView> m_view;
  std::unique_ptr<ModalLoop> m_loop;
  GtkWidget* m_question = nullptr;
  std::vector<guint> m_posted;
  std::string m_finalUrl;
  bool m_ended = false;
};

}  // namespace veltrane::desktop
