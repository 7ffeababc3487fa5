// The About box under an X server: its fields, OK and the window's close,
// from BSPApplication and from a session.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "bsp/bsp_application.h"
#include "platform/atlbase.h"
#include "soap/soap_session.h"
#include "veltrane_version.h"
#include "window_driver.h"

using veltrane::testing::WindowDriver;

namespace {

std::string LabelText(GtkWidget* root, const std::string& id) {
  GtkWidget* label = WindowDriver::FindNamed(root, id);
  return label && GTK_IS_LABEL(label) ? gtk_label_get_text(GTK_LABEL(label)) : "<no field " + id + ">";
}

class AboutBox : public ::testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_TEST_DISPLAY();
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    driver = std::make_unique<WindowDriver>();
  }
  void TearDown() override {
    driver.reset();
    CoUninitialize();
  }
  std::unique_ptr<WindowDriver> driver;
};

}  // namespace

TEST_F(AboutBox, ShowsTheProductCopyrightWebAddressAndVersionAndClosesWithOk) {
  std::string name, copyright, web, version;
  GdkPixbuf* shot = nullptr;
  gboolean modal = FALSE;
  driver->OnWindow("About Veltrane", [&](GtkWindow* box) {
    name = LabelText(GTK_WIDGET(box), "209");
    copyright = LabelText(GTK_WIDGET(box), "211");
    web = LabelText(GTK_WIDGET(box), "212");
    version = LabelText(GTK_WIDGET(box), "210");
    modal = gtk_window_get_modal(box);
    shot = WindowDriver::Screenshot(GTK_WIDGET(box), "about-box");
    WindowDriver::Click(WindowDriver::FindNamed(GTK_WIDGET(box), "1"));
  });
  CComPtr<CBSPApplication> app;
  ASSERT_EQ(CBSPApplication::CreateInstance(&app), S_OK);
  EXPECT_EQ(app->About(), S_OK);
  EXPECT_TRUE(driver->AllStepsTaken());
  EXPECT_EQ(name, "Veltrane");
  EXPECT_EQ(copyright, "VER_COPYRIGHT_STR");
  EXPECT_EQ(web, VELTRANE_HOMEPAGE_URL);
  EXPECT_TRUE(std::regex_match(version, std::regex("Version 4\\.0\\.2\\.0 - [A-Z][a-z]{2} [ 0-9]\\d \\d{4}")))
      << version;
  EXPECT_TRUE(modal);
  ASSERT_NE(shot, nullptr);
  g_object_unref(shot);
}

TEST_F(AboutBox, ClosingTheWindowEndsItAndASessionShowsTheSameBox) {
  driver->OnWindow("About Veltrane", [&](GtkWindow* box) { WindowDriver::CloseAsUser(GTK_WIDGET(box)); });
  CComPtr<CSoapSession> session;
  ASSERT_EQ(CSoapSession::CreateInstance(&session), S_OK);
  EXPECT_EQ(session->About(), S_OK);
  EXPECT_TRUE(driver->AllStepsTaken());
}
