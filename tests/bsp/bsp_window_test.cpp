// The BSP window under an X server, against the BSP pages of the simulated
// system: logon without a dialog, the ticket cookie, the exit page, the
// returned parameters, the close warning, a page that closes itself, and
// what a person does with mouse and keyboard.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "bsp/bsp_application.h"
#include "platform/atlbase.h"
#include "platform/unicode.h"
#include "runtime/trace.h"
#include "temp_dir.h"
#include "testing/sim_process.h"
#include "window_driver.h"

using veltrane::testing::WindowDriver;

namespace {

constexpr guint32 kBanner = 0x0a6ed1;  // the colour of the pages' banner
constexpr char16_t kApp[] = u"/sap/bc/bsp/sap/zvsim_bsp/";

vsim::testing::SimProcess& Sim() {
  static vsim::testing::SimProcess sim;
  return sim;
}

// A logon ticket of the simulated system for DEMO.
std::string Ticket() {
  CURL* curl = curl_easy_init();
  std::string body;
  const std::string url = Sim().soapUrl() + "/vsim/control/ticket?user=DEMO";
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_POST, 1L);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, "");
  curl_easy_setopt(
      curl, CURLOPT_WRITEFUNCTION, +[](char* p, size_t n, size_t m, void* out) {
        static_cast<std::string*>(out)->append(p, n * m);
        return n * m;
      });
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
  curl_easy_perform(curl);
  curl_easy_cleanup(curl);
  while (!body.empty() && (body.back() == '\n' || body.back() == '\r')) body.pop_back();
  return body;
}

std::string Text(WebKitWebView* view, const std::string& id) {
  return WindowDriver::Evaluate(view, "document.getElementById('" + id + "').innerText");
}

// A picture of the page's window in the screenshot directory; the page must
// have been painted (its banner shows).
void Shot(WebKitWebView* view, const std::string& name) {
  WindowDriver::AwaitRendered(view);
  GdkPixbuf* picture = WindowDriver::Screenshot(WindowDriver::Toplevel(view), name, kBanner);
  EXPECT_NE(picture, nullptr) << name << ": the page was not painted";
  if (picture) g_object_unref(picture);
}

int VisibleWindows() {
  int count = 0;
  GList* windows = gtk_window_list_toplevels();
  for (GList* w = windows; w; w = w->next)
    if (gtk_widget_get_visible(GTK_WIDGET(w->data))) ++count;
  g_list_free(windows);
  return count;
}

class BspWindow : public ::testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_TEST_DISPLAY();
    TraceResetForTesting();
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    ASSERT_EQ(CBSPApplication::CreateInstance(&app), S_OK);
    app->get_HttpSystemData(&system);
    app->get_LogonData(&logon);
    app->get_Window(&window);
    app->get_Parameters(&parameters);
    system->put_Host(CComBSTR(u"127.0.0.1"));
    system->put_Port(Sim().soapPort());
    logon->put_Client(CComBSTR(u"001"));
    logon->put_User(CComBSTR(u"DEMO"));
    logon->put_Password(CComBSTR(u"Welcome1"));
    logon->put_Language(CComBSTR(u"EN"));
    app->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(dir.file("bsp.trc")).c_str()));
    driver = std::make_unique<WindowDriver>();
  }
  void TearDown() override {
    driver.reset();
    parameters.Release();
    window.Release();
    logon.Release();
    system.Release();
    app.Release();
    CoUninitialize();
    TraceResetForTesting();
  }

  HRESULT Show(const std::u16string& page, const char16_t* exitPage = nullptr) {
    const HRESULT hr = app->ShowApplication(CComBSTR((kApp + page).c_str()), exitPage ? CComBSTR(exitPage) : nullptr);
    EXPECT_TRUE(driver->AllStepsTaken()) << "the window closed before every step was taken";
    return hr;
  }

  // The parameters as "name=value" in collection order.
  std::vector<std::string> Parameters() {
    std::vector<std::string> out;
    LONG count = 0;
    parameters->get_Count(&count);
    for (LONG i = 1; i <= count; ++i) {
      CComPtr<IBSPParameter> p;
      parameters->get_Item(CComVariant(i), &p);
      CComBSTR name, value;
      p->get_name(&name);
      p->get_value(&value);
      out.push_back(WideToUtf8(BstrView(name)) + "=" + WideToUtf8(BstrView(value)));
    }
    return out;
  }

  std::string TraceText() { return ReadFile(dir.file("bsp.trc")); }

  TempDir dir;
  CComPtr<CBSPApplication> app;
  CComPtr<IHttpSystemData> system;
  CComPtr<ILogonData> logon;
  CComPtr<IWindowProperties> window;
  CComPtr<IBSPParameters> parameters;
  std::unique_ptr<WindowDriver> driver;
};

using Texts = std::vector<std::string>;

}  // namespace

TEST_F(BspWindow, BasicAuthenticationIsAnsweredFromTheLogonDataWithoutADialog) {
  std::string logonText;
  GdkPixbuf* shot = nullptr;
  driver->OnPage("start.htm", [&](WebKitWebView* view) {
    logonText = Text(view, "logon");
    shot = WindowDriver::Screenshot(WindowDriver::Toplevel(view), "bsp-window", kBanner);
    EXPECT_EQ(VisibleWindows(), 1);
    WindowDriver::CloseAsUser(view);
  });
  ASSERT_EQ(Show(u"start.htm"), S_OK);
  EXPECT_EQ(logonText, "Logged on as DEMO in client 001, language EN");
  EXPECT_EQ(driver->Authentications(), 1);
  EXPECT_EQ(driver->Questions(), 0);
  ASSERT_NE(shot, nullptr) << "the page was not painted";
  EXPECT_EQ(gdk_pixbuf_get_width(shot), 500);
  EXPECT_EQ(gdk_pixbuf_get_height(shot), 300);
  g_object_unref(shot);
  EXPECT_TRUE(Parameters().empty());
}

TEST_F(BspWindow, EmptyUserAndPasswordAreTheAnswerAndTheServersPageShows) {
  logon->put_User(CComBSTR(u""));
  logon->put_Password(CComBSTR(u""));
  std::string refusal;
  driver->OnPage("start.htm", [&](WebKitWebView* view) {
    refusal = Text(view, "refusal");
    EXPECT_EQ(VisibleWindows(), 1);
    Shot(view, "bsp-logon-refused");
    WindowDriver::CloseAsUser(view);
  });
  ASSERT_EQ(Show(u"start.htm"), S_OK);
  // The network stack sends no Authorization header for an empty user name.
  EXPECT_EQ(refusal, "No logon data was provided");
  EXPECT_EQ(driver->Authentications(), 1);
  EXPECT_EQ(driver->Questions(), 0);
}

TEST_F(BspWindow, WrongPasswordIsAnsweredOnceAndTheRefusalShows) {
  logon->put_Password(CComBSTR(u"wrong"));
  std::string refusal;
  driver->OnPage("start.htm", [&](WebKitWebView* view) {
    refusal = Text(view, "refusal");
    WindowDriver::CloseAsUser(view);
  });
  ASSERT_EQ(Show(u"start.htm"), S_OK);
  EXPECT_EQ(refusal.rfind("Logon failed for user \"DEMO\"", 0), 0u) << refusal;
  EXPECT_EQ(driver->Authentications(), 2);
  EXPECT_EQ(driver->Questions(), 0);
}

TEST_F(BspWindow, WithoutTicketNoCookieIsSetAndTheNavigationStartsAllTheSame) {
  std::string ticket;
  driver->OnPage("sso.htm", [&](WebKitWebView* view) {
    ticket = Text(view, "ticket");
    WindowDriver::CloseAsUser(view);
  });
  ASSERT_EQ(Show(u"sso.htm"), S_OK);
  EXPECT_EQ(ticket, "MYSAPSSO2: not sent");
  EXPECT_EQ(TraceText().find("OnUser:"), std::string::npos);
  EXPECT_NE(TraceText().find("OnDownloadComplete:'about:blank'"), std::string::npos);
}

TEST_F(BspWindow, TicketGoesAsSessionCookieWithTheFirstRequest) {
  const std::string ticket = Ticket();
  ASSERT_FALSE(ticket.empty());
  logon->put_SSO2Ticket(CComBSTR(Utf8ToWide(ticket).c_str()));
  logon->put_User(CComBSTR(u""));
  logon->put_Password(CComBSTR(u""));
  std::string logonText, ticketText;
  driver->OnPage("start.htm", [&](WebKitWebView* view) {
    logonText = Text(view, "logon");
    ticketText = Text(view, "ticket");
    Shot(view, "bsp-ticket");
    WindowDriver::CloseAsUser(view);
  });
  ASSERT_EQ(Show(u"start.htm"), S_OK);
  EXPECT_EQ(logonText, "Logged on as DEMO in client 001, language EN");
  EXPECT_EQ(ticketText, "MYSAPSSO2: valid ticket of DEMO in client 001");
  // Logged on by the ticket on the first request: no challenge came.
  EXPECT_EQ(driver->Authentications(), 0);
  const std::string expected =
      "OnUser: authenticating with MYSAPSSO2 ticket (len=" + std::to_string(ticket.size() + 7) + ")";
  EXPECT_NE(TraceText().find(expected), std::string::npos) << TraceText();
}

TEST_F(BspWindow, ExitPageInTheFirstUrlClosesTheWindowAtTheFirstPage) {
  parameters->AddParameter(CComBSTR(u"A"), CComBSTR(u"1"));
  ASSERT_EQ(Show(u"start.htm", u"zvsim_bsp/start"), S_OK);
  EXPECT_EQ(Parameters(), (Texts{"A=1", "sap-client=001", "sap-language=EN", "A=1"}));
  const std::string trace = TraceText();
  EXPECT_NE(trace.find("CBSPApplication->ShowApplication(): application=/sap/bc/bsp/sap/zvsim_bsp/start.htm url=http://"
                       "127.0.0.1:" +
                       std::to_string(Sim().soapPort()) +
                       "/sap/bc/bsp/sap/zvsim_bsp/start.htm?sap-client=001&sap-language=EN&A=1 "
                       "exit=zvsim_bsp/start user=DEMO"),
            std::string::npos)
      << trace;
  EXPECT_NE(trace.find("CBSPApplication->ShowApplication(): returned from modal popup"), std::string::npos);
  EXPECT_EQ(trace.find("returned parameter sap-client"), std::string::npos);
  EXPECT_NE(trace.find("returned parameter sap-language=EN"), std::string::npos);
  EXPECT_NE(trace.find("returned parameter A=1"), std::string::npos);
}

TEST_F(BspWindow, UserCloseWithoutCloseWarningClosesAtOnce) {
  driver->OnPage("start.htm", [&](WebKitWebView* view) { WindowDriver::CloseAsUser(view); });
  ASSERT_EQ(Show(u"start.htm", u"exit.htm"), S_OK);
  EXPECT_EQ(driver->Questions(), 0);
  EXPECT_TRUE(Parameters().empty());
}

TEST_F(BspWindow, CloseWarningAnsweredNoKeepsTheWindowAndYesClosesIt) {
  window->put_Title(CComBSTR(u"Orders"));
  window->put_CloseWarning(CComBSTR(u"Leave the application?"));
  bool stillOpen = false;
  driver->OnPage("start.htm", [&](WebKitWebView* view) { WindowDriver::CloseAsUser(view); });
  driver->OnQuestion([&](GtkMessageDialog* question) {
    gchar* text = nullptr;
    g_object_get(question, "text", &text, nullptr);
    EXPECT_STREQ(text, "Leave the application?");
    g_free(text);
    EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(question)), "Orders");
    GtkWidget* frame = GTK_WIDGET(gtk_window_get_transient_for(GTK_WINDOW(question)));
    WindowDriver::WhenGone(GTK_WIDGET(question), [&stillOpen, frame] {
      stillOpen = gtk_widget_get_visible(frame);
      WindowDriver::CloseAsUser(frame);
    });
    WindowDriver::Click(gtk_dialog_get_widget_for_response(GTK_DIALOG(question), GTK_RESPONSE_NO));
  });
  driver->OnQuestion([&](GtkMessageDialog* question) {
    WindowDriver::Click(gtk_dialog_get_widget_for_response(GTK_DIALOG(question), GTK_RESPONSE_YES));
  });
  ASSERT_EQ(Show(u"start.htm"), S_OK);
  EXPECT_TRUE(stillOpen);
  EXPECT_EQ(driver->Questions(), 2);
}

TEST_F(BspWindow, RedirectToTheExitPageIsCaughtAndClosesOnceWithoutAQuestion) {
  window->put_CloseWarning(CComBSTR(u"Leave the application?"));
  parameters->AddParameter(CComBSTR(u"RESULT"), CComBSTR(u"OK"));
  ASSERT_EQ(Show(u"finish.htm", u"exit.htm"), S_OK);
  EXPECT_EQ(driver->Questions(), 0);
  EXPECT_EQ(Parameters(), (Texts{"RESULT=OK", "sap-client=001", "sap-language=EN", "RESULT=OK"}));
  const std::string trace = TraceText();
  EXPECT_NE(trace.find("returned parameter RESULT=OK"), std::string::npos);
  EXPECT_EQ(trace.find("returned parameter sap-client"), std::string::npos);
}

TEST_F(BspWindow, SapParamsReturnAddsItsPairsAndNoEntryOfItsOwn) {
  parameters->AddParameter(CComBSTR(u"A"), CComBSTR(u"1"));
  parameters->AddParameter(CComBSTR(u"B"), CComBSTR(u"2"));
  ASSERT_EQ(Show(u"sapparams.htm", u"exit.htm"), S_OK);
  EXPECT_EQ(Parameters(), (Texts{"A=1", "B=2", "sap-client=001", "sap-language=EN", "A=1", "B=2"}));
  VARIANT_BOOL has = VARIANT_TRUE;
  parameters->HasKey(CComBSTR(u"sap-params"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);
  EXPECT_NE(TraceText().find("returned parameter sap-client=001"), std::string::npos);
}

TEST_F(BspWindow, PageThatClosesItselfEndsTheWindowWithoutQuestionOrParameters) {
  window->put_CloseWarning(CComBSTR(u"Leave the application?"));
  ASSERT_EQ(Show(u"close.htm", u"exit.htm"), S_OK);
  EXPECT_EQ(driver->Questions(), 0);
  EXPECT_TRUE(Parameters().empty());
}

TEST_F(BspWindow, ButtonThatClosesTheWindowByScriptEndsIt) {
  driver->OnPage("start.htm", [&](WebKitWebView* view) { WindowDriver::ClickElement(view, "#close"); });
  ASSERT_EQ(Show(u"start.htm", u"exit.htm"), S_OK);
  EXPECT_TRUE(Parameters().empty());
}

TEST_F(BspWindow, RightClickInThePageOpensNoMenu) {
  int menus = -1;
  driver->OnPage("start.htm", [&](WebKitWebView* view) {
    WindowDriver::ClickElement(view, "#logon", 3);
    WindowDriver::RunUntil([&] { return driver->ContextMenus() > 0; });
    WindowDriver::Settle();
    menus = 0;
    GList* windows = gtk_window_list_toplevels();
    for (GList* w = windows; w; w = w->next)
      if (GTK_IS_MENU(gtk_bin_get_child(GTK_BIN(w->data))) && gtk_widget_get_visible(GTK_WIDGET(w->data))) ++menus;
    g_list_free(windows);
    WindowDriver::CloseAsUser(view);
  });
  ASSERT_EQ(Show(u"start.htm"), S_OK);
  EXPECT_EQ(driver->ContextMenus(), 1);
  EXPECT_EQ(menus, 0);
}

TEST_F(BspWindow, KeysTypedByTheUserReachThePageAndComeBackAsParameters) {
  driver->OnPage("start.htm", [&](WebKitWebView* view) {
    WindowDriver::ClickElement(view, "#entry");
    WindowDriver::Type(WindowDriver::Toplevel(view), "abc123");
    WindowDriver::RunUntil(
        [&] { return WindowDriver::Evaluate(view, "document.getElementById('entry').value") == "abc123"; });
    Shot(view, "bsp-typed");
    WindowDriver::ClickElement(view, "#finish");
  });
  ASSERT_EQ(Show(u"start.htm", u"exit.htm"), S_OK);
  EXPECT_EQ(Parameters(), (Texts{"ENTRY=abc123", "RESULT=OK"}));
}

TEST_F(BspWindow, WithoutExitPageThePageRunsUntilTheUserClosesTheWindow) {
  driver->OnPage("start.htm", [&](WebKitWebView* view) { WindowDriver::ClickElement(view, "#finish"); });
  driver->OnPage("exit.htm", [&](WebKitWebView* view) {
    Shot(view, "bsp-exit-page");
    WindowDriver::CloseAsUser(view);
  });
  ASSERT_EQ(Show(u"start.htm"), S_OK);
  EXPECT_TRUE(Parameters().empty());
  ASSERT_FALSE(driver->FinishedUrls().empty());
  EXPECT_NE(driver->FinishedUrls().back().find("exit.htm?ENTRY=&RESULT=OK"), std::string::npos);
}

TEST_F(BspWindow, WindowStandsAtTheTargetRectangleWithTitleAndIcon) {
  const std::string icon = dir.file("icon.png");
  GdkPixbuf* picture = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 48, 48);
  gdk_pixbuf_fill(picture, 0xcc3300ff);
  ASSERT_TRUE(gdk_pixbuf_save(picture, icon.c_str(), "png", nullptr, nullptr));
  g_object_unref(picture);
  window->put_Left(5000);  // beyond the screen of 1280: half of it
  window->put_Top(40);
  window->put_Width(640);
  window->put_Height(480);
  window->put_Title(CComBSTR(u"Veltrane test"));
  window->put_IconPath(CComBSTR(Utf8ToWide(icon).c_str()));
  int x = -1, y = -1, width = 0, height = 0;
  std::string title;
  std::vector<int> iconSizes;
  driver->OnPage("start.htm", [&](WebKitWebView* view) {
    GtkWidget* top = WindowDriver::Toplevel(view);
    gdk_window_get_origin(gtk_widget_get_window(top), &x, &y);
    width = gtk_widget_get_allocated_width(top);
    height = gtk_widget_get_allocated_height(top);
    title = gtk_window_get_title(GTK_WINDOW(top));
    GList* icons = gtk_window_get_icon_list(GTK_WINDOW(top));
    for (GList* i = icons; i; i = i->next) iconSizes.push_back(gdk_pixbuf_get_width(GDK_PIXBUF(i->data)));
    g_list_free(icons);
    WindowDriver::CloseAsUser(view);
  });
  ASSERT_EQ(Show(u"start.htm"), S_OK);
  GdkRectangle screen{};
  gdk_monitor_get_geometry(gdk_display_get_monitor(gdk_display_get_default(), 0), &screen);
  ASSERT_EQ(screen.width, 1280) << "the test run's Xvfb has a screen of 1280 by 1024";
  EXPECT_EQ(x, 640);
  EXPECT_EQ(y, 40);
  EXPECT_EQ(width, 640);
  EXPECT_EQ(height, 480);
  EXPECT_EQ(title, "Veltrane test");
  EXPECT_EQ(iconSizes, (std::vector<int>{32, 16}));
}

TEST_F(BspWindow, IconThatCannotBeReadLeavesTheDefault) {
  window->put_IconPath(CComBSTR(Utf8ToWide(dir.file("missing.ico")).c_str()));
  guint icons = 99;
  driver->OnPage("start.htm", [&](WebKitWebView* view) {
    GList* list = gtk_window_get_icon_list(GTK_WINDOW(WindowDriver::Toplevel(view)));
    icons = g_list_length(list);
    g_list_free(list);
    WindowDriver::CloseAsUser(view);
  });
  ASSERT_EQ(Show(u"start.htm"), S_OK);
  EXPECT_EQ(icons, 0u);
}

TEST_F(BspWindow, WindowIsModalAndOwnedByTheActiveWindow) {
  GtkWidget* owner = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(owner), "Host application");
  gtk_widget_show(owner);
  WindowDriver::Settle();
  // What a window manager does when the user clicks into the host's window.
  WindowDriver::Type(owner, "");
  WindowDriver::RunUntil([owner] { return gtk_window_is_active(GTK_WINDOW(owner)); });
  GtkWindow* transientFor = nullptr;
  gboolean modal = FALSE;
  driver->OnPage("start.htm", [&](WebKitWebView* view) {
    GtkWindow* top = GTK_WINDOW(WindowDriver::Toplevel(view));
    transientFor = gtk_window_get_transient_for(top);
    modal = gtk_window_get_modal(top);
    WindowDriver::CloseAsUser(view);
  });
  ASSERT_EQ(Show(u"start.htm"), S_OK);
  EXPECT_EQ(transientFor, GTK_WINDOW(owner));
  EXPECT_TRUE(modal);
  gtk_widget_destroy(owner);
}

TEST_F(BspWindow, WindowsAreShownOnlyByTheThreadThatShowedTheFirst) {
  driver->OnPage("sso.htm", [&](WebKitWebView* view) { WindowDriver::CloseAsUser(view); });
  ASSERT_EQ(Show(u"sso.htm"), S_OK);
  HRESULT other = S_OK;
  std::u16string description;
  std::thread([&] {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    {
      CComPtr<CBSPApplication> second;
      CBSPApplication::CreateInstance(&second);
      other = second->ShowApplication(CComBSTR(u"http://127.0.0.1:1/"), nullptr);
      CComPtr<IErrorInfo> info;
      if (GetErrorInfo(0, &info) == S_OK) {
        CComBSTR text;
        info->GetDescription(&text);
        description = BstrView(text);
      }
    }
    CoUninitialize();
  }).join();
  EXPECT_EQ(other, RPC_E_WRONG_THREAD);
  EXPECT_NE(description.find(u"thread"), std::u16string::npos);
}
