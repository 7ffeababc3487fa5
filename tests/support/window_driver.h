// Drives the component's windows as a person would, through the toolkit's
// own event path, for tests under an X server (the test run's Xvfb, or
// $DISPLAY): clicks and key presses go to the X server by XTest, a close
// comes as the window manager sends it (WM_DELETE_WINDOW). The driver sees
// the windows through emission hooks of the toolkit's signals, so the code
// under test needs no hooks of its own; a test names what it does at a
// page, a question or a window, and that step runs from the toolkit's loop.
//
//   WindowDriver driver;
//   driver.OnPage("start.htm", [&](WebKitWebView* view) {
//     text = WindowDriver::Evaluate(view, "document.body.innerText");
//     WindowDriver::CloseAsUser(view);
//   });
//   app->ShowApplication(...);  // returns when the step has closed the window
#pragma once

#include <gtk/gtk.h>
#include <webkit2/webkit2.h>

#include <functional>
#include <string>
#include <vector>

namespace veltrane::testing {

// Points the toolkit at the test run's X server (the display file of the
// Xvfb fixture), or keeps $DISPLAY. False with the reason when there is no
// display to use.
bool UseTestDisplay(std::string* reason);

// Skips the test, saying why, when there is no display.
#define REQUIRE_TEST_DISPLAY()                                                   \
  do {                                                                           \
    std::string reason_;                                                         \
    if (!::veltrane::testing::UseTestDisplay(&reason_)) GTEST_SKIP() << reason_; \
  } while (false)

class WindowDriver {
 public:
  // Initialises the toolkit on the calling thread and installs the hooks.
  // A window test that is still running after timeoutSeconds fails.
  explicit WindowDriver(unsigned timeoutSeconds = 60);
  ~WindowDriver();
  WindowDriver(const WindowDriver&) = delete;
  WindowDriver& operator=(const WindowDriver&) = delete;

  // Runs step once, from the loop, when a page whose URL contains part has
  // finished loading (steps are taken in the order given).
  void OnPage(const std::string& part, std::function<void(WebKitWebView*)> step);
  // Runs step when a question (a message dialog) has appeared on the screen.
  void OnQuestion(std::function<void(GtkMessageDialog*)> step);
  // Runs step when a window with that title has appeared on the screen.
  void OnWindow(const std::string& title, std::function<void(GtkWindow*)> step);

  // What the driver saw.
  const std::vector<std::string>& FinishedUrls() const { return m_finished; }
  int Authentications() const { return m_authentications; }
  int ContextMenus() const { return m_contextMenus; }
  int Questions() const { return m_questions; }
  bool AllStepsTaken() const;

  // --- actions, for the steps

  // The result of a script in the page, as text.
  static std::string Evaluate(WebKitWebView* view, const std::string& script);
  static GtkWidget* Toplevel(GtkWidget* widget);
  static GtkWidget* Toplevel(WebKitWebView* view) { return Toplevel(GTK_WIDGET(view)); }
  // Sends the window what the window manager sends when its close button is
  // clicked.
  static void CloseAsUser(GtkWidget* window);
  static void CloseAsUser(WebKitWebView* view) { CloseAsUser(Toplevel(view)); }
  // A click with the mouse button at the centre of a widget, or of the
  // element of a page that a CSS selector finds.
  static void Click(GtkWidget* widget, int button = 1);
  static void ClickElement(WebKitWebView* view, const std::string& selector, int button = 1);
  // Key presses of the characters of text (letters, digits), to the window
  // that has the focus; window gets it first, as a window manager gives it.
  static void Type(GtkWidget* window, const std::string& text);
  // Lets the loop run until the X server has handled every request so far
  // and the toolkit has seen the events that followed.
  static void Settle();
  // Runs the loop until the page has rendered what it shows now (two
  // animation frames of the page) and the window has painted it.
  static void AwaitRendered(WebKitWebView* view);
  // A picture of the window once the page has been painted (the view shows
  // its first pixel in the colour expected), saved as <name>.png in the
  // screenshot directory. Null if it was not painted in time.
  static GdkPixbuf* Screenshot(GtkWidget* window, const std::string& name, guint32 rgbAt00 = 0);
  // The colour of a pixel, 0xRRGGBB.
  static guint32 Pixel(GdkPixbuf* picture, int x, int y);
  // The window's visible descendant of that name, or null.
  static GtkWidget* FindNamed(GtkWidget* root, const std::string& name);
  // Runs action from the loop once widget has been destroyed.
  static void WhenGone(GtkWidget* widget, std::function<void()> action);
  // Runs action from the loop, after what is running now.
  static void Later(std::function<void()> action);
  // Runs the loop until done holds.
  static void RunUntil(const std::function<bool()>& done);

 private:
  struct PageStep {
    std::string part;
    std::function<void(WebKitWebView*)> step;
    bool taken = false;
  };
  struct WindowStep {
    std::string title;
    std::function<void(GtkWindow*)> step;
    bool taken = false;
  };
  static gboolean OnLoadChanged(GSignalInvocationHint*, guint, const GValue* values, gpointer self);
  static gboolean OnAuthenticate(GSignalInvocationHint*, guint, const GValue*, gpointer self);
  static gboolean OnContextMenu(GSignalInvocationHint*, guint, const GValue*, gpointer self);
  static gboolean OnMapEvent(GSignalInvocationHint*, guint, const GValue* values, gpointer self);

  std::vector<PageStep> m_pages;
  std::vector<WindowStep> m_windows;
  std::vector<std::function<void(GtkMessageDialog*)>> m_questionSteps;
  std::vector<std::string> m_finished;
  int m_authentications = 0;
  int m_contextMenus = 0;
  int m_questions = 0;
  std::vector<std::pair<guint, gulong>> m_hooks;
  guint m_watchdog = 0;
};

}  // namespace veltrane::testing
