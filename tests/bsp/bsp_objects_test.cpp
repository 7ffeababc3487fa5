// BSPApplication and its objects without a window: the window settings,
// the parameters, the options, and what happens when no window can be shown.
#include <gtest/gtest.h>

#include <cstdlib>

#include "bsp/bsp_application.h"
#include "platform/atlbase.h"
#include "platform/dispatch_impl.h"

namespace {

class BspObjects : public ::testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    ASSERT_EQ(CBSPApplication::CreateInstance(&app), S_OK);
  }
  void TearDown() override {
    app.Release();
    CoUninitialize();
  }
  CComPtr<CBSPApplication> app;
};

std::u16string Text(BSTR b) { return std::u16string(BstrView(b)); }

}  // namespace

TEST_F(BspObjects, WindowPropertiesStartWithTheirDefaults) {
  CComPtr<IWindowProperties> w;
  ASSERT_EQ(app->get_Window(&w), S_OK);
  LONG v = 0;
  w->get_Left(&v);
  EXPECT_EQ(v, 100);
  w->get_Top(&v);
  EXPECT_EQ(v, 100);
  w->get_Height(&v);
  EXPECT_EQ(v, 300);
  w->get_Width(&v);
  EXPECT_EQ(v, 500);
  CComBSTR title, icon, warning;
  w->get_Title(&title);
  w->get_IconPath(&icon);
  w->get_CloseWarning(&warning);
  EXPECT_EQ(Text(title), u"BSP Application");
  EXPECT_EQ(Text(icon), u"");
  EXPECT_EQ(Text(warning), u"");
}

TEST_F(BspObjects, WindowPropertiesStoreWhatTheyAreGivenUnchecked) {
  CComPtr<IWindowProperties> w;
  ASSERT_EQ(app->get_Window(&w), S_OK);
  EXPECT_EQ(w->put_Width(-7), S_OK);
  EXPECT_EQ(w->put_CloseWarning(CComBSTR(u"Really?")), S_OK);
  LONG width = 0;
  CComBSTR warning;
  w->get_Width(&width);
  w->get_CloseWarning(&warning);
  EXPECT_EQ(width, -7);
  EXPECT_EQ(Text(warning), u"Really?");
  EXPECT_EQ(w->get_Left(nullptr), E_POINTER);
}

TEST_F(BspObjects, TheApplicationHandsOutTheSameObjectsEachTime) {
  CComPtr<IHttpSystemData> a, b;
  CComPtr<ILogonData> l1, l2;
  CComPtr<IBSPParameters> p1, p2;
  ASSERT_EQ(app->get_HttpSystemData(&a), S_OK);
  ASSERT_EQ(app->get_HttpSystemData(&b), S_OK);
  ASSERT_EQ(app->get_LogonData(&l1), S_OK);
  ASSERT_EQ(app->get_LogonData(&l2), S_OK);
  ASSERT_EQ(app->get_Parameters(&p1), S_OK);
  ASSERT_EQ(app->get_Parameters(&p2), S_OK);
  EXPECT_EQ(a.p, b.p);
  EXPECT_EQ(l1.p, l2.p);
  EXPECT_EQ(p1.p, p2.p);
  EXPECT_EQ(app->get_Parameters(nullptr), E_POINTER);
}

TEST_F(BspObjects, AddParameterKeepsRepeatedNamesAndTheKeyFindsTheNewest) {
  CComPtr<IBSPParameters> p;
  ASSERT_EQ(app->get_Parameters(&p), S_OK);
  ASSERT_EQ(p->AddParameter(CComBSTR(u"A"), CComBSTR(u"1")), S_OK);
  ASSERT_EQ(p->AddParameter(CComBSTR(u"A"), CComBSTR(u"2")), S_OK);
  ASSERT_EQ(p->AddParameter(CComBSTR(u"B"), nullptr), S_OK);
  LONG count = 0;
  p->get_Count(&count);
  EXPECT_EQ(count, 3);
  CComPtr<IBSPParameter> byName, first, b;
  ASSERT_EQ(p->get_Item(CComVariant(u"A"), &byName), S_OK);
  ASSERT_EQ(p->get_Item(CComVariant(1), &first), S_OK);
  ASSERT_EQ(p->get_Item(CComVariant(u"B"), &b), S_OK);
  CComBSTR v1, v2, v3;
  byName->get_value(&v1);
  first->get_value(&v2);
  b->get_value(&v3);
  EXPECT_EQ(Text(v1), u"2");
  EXPECT_EQ(Text(v2), u"1");
  EXPECT_EQ(Text(v3), u"");
  VARIANT_BOOL has = VARIANT_FALSE;
  p->HasKey(CComBSTR(u"B"), &has);
  EXPECT_EQ(has, VARIANT_TRUE);
  EXPECT_EQ(p->Remove(CComVariant(u"B")), S_OK);
  CComPtr<IBSPParameter> gone;
  EXPECT_EQ(p->get_Item(CComVariant(u"B"), &gone), E_INVALIDARG);
  EXPECT_EQ(p->RemoveAll(), S_OK);
  p->get_Count(&count);
  EXPECT_EQ(count, 0);
}

TEST_F(BspObjects, AddTakesAParameterMadeByTheClientAndRefusesOtherObjects) {
  CComPtr<IBSPParameters> p;
  ASSERT_EQ(app->get_Parameters(&p), S_OK);
  CComPtr<CBSPParameter> own;
  ASSERT_EQ(CBSPParameter::CreateInstance(&own), S_OK);
  own->put_name(CComBSTR(u"X"));
  EXPECT_EQ(p->Add(own), S_OK);
  CComPtr<IWindowProperties> window;
  app->get_Window(&window);
  EXPECT_EQ(p->Add(reinterpret_cast<IBSPParameter*>(window.p)), E_UNEXPECTED);
}

TEST_F(BspObjects, OptionsAreStoredAsTheSessionStoresThem) {
  EXPECT_EQ(app->put_Option(CComBSTR(u"any.name"), CComBSTR(u"value")), S_OK);
  CComBSTR value, unknown;
  EXPECT_EQ(app->get_Option(CComBSTR(u"any.name"), &value), S_OK);
  EXPECT_EQ(app->get_Option(CComBSTR(u"other"), &unknown), S_OK);
  EXPECT_EQ(Text(value), u"value");
  EXPECT_EQ(Text(unknown), u"");
}

// A parameter of the client's own whose name cannot be read once it is in
// the collection.
class CFailingParameter : public CComObjectBase<CFailingParameter, IDispatchImpl<CFailingParameter, IBSPParameter>> {
 public:
  HRESULT STDMETHODCALLTYPE get_name(BSTR* pVal) override {
    return m_reads++ == 0 ? CComBSTR(u"N").CopyTo(pVal) : E_FAIL;
  }
  HRESULT STDMETHODCALLTYPE put_name(BSTR) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE get_value(BSTR* pVal) override { return CComBSTR(u"V").CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_value(BSTR) override { return S_OK; }

 private:
  int m_reads = 0;
};

TEST_F(BspObjects, AParameterThatCannotBeReadEndsShowApplicationWithEPointer) {
  CComPtr<IBSPParameters> p;
  ASSERT_EQ(app->get_Parameters(&p), S_OK);
  CComPtr<CFailingParameter> failing;
  ASSERT_EQ(CFailingParameter::CreateInstance(&failing), S_OK);
  ASSERT_EQ(p->Add(failing), S_OK);  // the key is read here, once
  EXPECT_EQ(app->ShowApplication(CComBSTR(u"/a.htm"), nullptr), E_POINTER);
}

// Without a display the window cannot be shown, and the client is told why.
TEST_F(BspObjects, WithoutADisplayShowApplicationFailsWithTheReason) {
  setenv("VELTRANE_DESKTOP_MODULE", VELTRANE_DESKTOP_MODULE_PATH, 1);
  unsetenv("DISPLAY");
  unsetenv("WAYLAND_DISPLAY");
  EXPECT_EQ(app->ShowApplication(CComBSTR(u"/sap/bc/bsp/sap/zapp/start.htm"), nullptr), E_FAIL);
  CComPtr<IErrorInfo> info;
  ASSERT_EQ(GetErrorInfo(0, &info), S_OK);
  CComBSTR description;
  info->GetDescription(&description);
  EXPECT_NE(Text(description).find(u"no display"), std::u16string::npos);
  // The About box says nothing and succeeds.
  EXPECT_EQ(app->About(), S_OK);
}

TEST_F(BspObjects, WithoutTheWindowModuleShowApplicationNamesIt) {
  setenv("VELTRANE_DESKTOP_MODULE", "/nonexistent/libveltrane-desktop.so", 1);
  unsetenv("DISPLAY");
  unsetenv("WAYLAND_DISPLAY");
  // The installed module is not there either in a test run from the build tree.
  const HRESULT hr = app->ShowApplication(CComBSTR(u"/a.htm"), nullptr);
  if (hr == E_FAIL) GTEST_SKIP() << "a window module is installed on this machine";
  EXPECT_EQ(hr, HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
  CComPtr<IErrorInfo> info;
  ASSERT_EQ(GetErrorInfo(0, &info), S_OK);
  CComBSTR description;
  info->GetDescription(&description);
  EXPECT_NE(Text(description).find(u"libveltrane-desktop.so"), std::u16string::npos);
}
