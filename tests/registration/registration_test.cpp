// libveltrane.so registered and unregistered as an installer does it, per
// machine and per user: the keys of every class's script, the quirks of the
// scripts, the type library, and a failed run leaving nothing behind.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>
#include <vector>

#include "registry_reading.h"

namespace {

const std::u16string kSoap = u"CLSID\\{334E20D8-8C80-450B-ACA1-B3A2CC44DBCD}";
const std::u16string kBsp = u"CLSID\\{86A5EDB1-49AE-4155-A051-A2094593227C}";
const std::u16string kControl = u"CLSID\\{FC07F669-BFFE-4ABC-93BD-507E549508DE}";
const std::u16string kAppId = u"{6A83179A-1485-4582-9205-F55C2537D558}";
const std::u16string kLibId = u"{FBDBDBA5-518B-4146-A52F-455C0E03492D}";

class Registration : public ::testing::Test {
 protected:
  void SetUp() override { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
  void TearDown() override { CoUninitialize(); }
  ScratchRegistry registry;
};

// The file registration names (the soname link of the library, as loaded).
const std::string kLibrary = Canonical(VELTRANE_LIBRARY_FILE);

}  // namespace

TEST_F(Registration, DllInstallWithTheTextUserRegistersBelowTheUsersClasses) {
  ASSERT_EQ(DllInstall(TRUE, u"USER"), S_OK);
  EXPECT_EQ(TextOf(HKEY_CURRENT_USER, u"Software\\Classes\\Veltrane.SoapSession\\CLSID"),
            "{334E20D8-8C80-450B-ACA1-B3A2CC44DBCD}");
  EXPECT_EQ(Canonical(TextOf(HKEY_CURRENT_USER, u"Software\\Classes\\TypeLib\\" + kLibId + u"\\1.0\\0\\linux64")),
            kLibrary);
  EXPECT_FALSE(Exists(registry.MachineFile()));
  // The class root shows the user's registration.
  EXPECT_EQ(Canonical(TextOf(HKEY_CLASSES_ROOT, kSoap + u"\\InprocServer32")), kLibrary);
  ASSERT_EQ(DllInstall(FALSE, u"user"), S_OK);
  EXPECT_FALSE(HasKey(HKEY_CURRENT_USER, u"Software\\Classes\\Veltrane.SoapSession"));
  EXPECT_FALSE(HasKey(HKEY_CURRENT_USER, u"Software\\Classes\\" + kSoap));
  EXPECT_FALSE(HasKey(HKEY_CURRENT_USER, u"Software\\Classes\\TypeLib\\" + kLibId));
}

TEST_F(Registration, DllInstallWithTheTextUsersRegistersForTheMachine) {
  ASSERT_EQ(DllInstall(TRUE, u"users"), S_OK);
  EXPECT_EQ(TextOf(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Veltrane.SoapSession\\CLSID"),
            "{334E20D8-8C80-450B-ACA1-B3A2CC44DBCD}");
  EXPECT_FALSE(Exists(registry.UserFile()));
}

TEST_F(Registration, DllInstallWithoutTextRegistersForTheMachine) {
  ASSERT_EQ(DllInstall(TRUE, nullptr), S_OK);
  EXPECT_TRUE(HasKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\" + kSoap));
  EXPECT_FALSE(Exists(registry.UserFile()));
}

TEST_F(Registration, EachClassHasTheKeysOfItsScript) {
  ASSERT_EQ(DllRegisterServer(), S_OK);
  const HKEY root = HKEY_CLASSES_ROOT;
  EXPECT_EQ(TextOf(root, u"Veltrane.SoapSession.1"), "SoapSession Class");
  EXPECT_EQ(TextOf(root, u"Veltrane.SoapSession.1\\CLSID"), "{334E20D8-8C80-450B-ACA1-B3A2CC44DBCD}");
  EXPECT_EQ(TextOf(root, u"Veltrane.SoapSession"), "SoapSession Class");
  EXPECT_EQ(TextOf(root, u"Veltrane.SoapSession\\CurVer"), "Veltrane.SoapSession.1");
  EXPECT_EQ(TextOf(root, kSoap), "SoapSession Class");
  EXPECT_EQ(TextOf(root, kSoap + u"\\ProgID"), "Veltrane.SoapSession.1");
  EXPECT_EQ(TextOf(root, kSoap + u"\\VersionIndependentProgID"), "Veltrane.SoapSession");
  EXPECT_TRUE(HasKey(root, kSoap + u"\\Programmable"));
  EXPECT_EQ(Canonical(TextOf(root, kSoap + u"\\InprocServer32")), kLibrary);
  EXPECT_EQ(TextOf(root, kSoap + u"\\InprocServer32", u"ThreadingModel"), "Apartment");
  EXPECT_EQ(TextOf(root, kSoap + u"\\TypeLib"), "{FBDBDBA5-518B-4146-A52F-455C0E03492D}");
  EXPECT_EQ(TextOf(root, kSoap, u"AppID"), "{6A83179A-1485-4582-9205-F55C2537D558}");
  // BSPApplication: "Veltrane: " on its version-dependent key, and no AppID.
  EXPECT_EQ(TextOf(root, u"Veltrane.BSPApplication.1"), "Veltrane: BSPApplication Class");
  EXPECT_EQ(TextOf(root, u"Veltrane.BSPApplication"), "BSPApplication Class");
  EXPECT_EQ(TextOf(root, kBsp, u"AppID"), "<none>");
  EXPECT_EQ(Canonical(TextOf(root, kBsp + u"\\InprocServer32")), kLibrary);
  // The control: its extra keys, and the application entry it alone writes.
  EXPECT_EQ(TextOf(root, kControl), "Veltrane Control");
  EXPECT_TRUE(HasKey(root, kControl + u"\\Control"));
  EXPECT_EQ(TextOf(root, kControl + u"\\ToolboxBitmap32"), TextOf(root, kControl + u"\\InprocServer32") + ", 102");
  EXPECT_EQ(TextOf(root, kControl + u"\\MiscStatus"), "0");
  EXPECT_EQ(TextOf(root, kControl + u"\\MiscStatus\\1"), "132497");
  EXPECT_EQ(TextOf(root, kControl + u"\\Version"), "1.0");
  EXPECT_EQ(TextOf(root, u"AppId\\" + kAppId), "libveltrane.so");
  EXPECT_EQ(TextOf(root, u"AppId\\" + kAppId, u"DllSurrogate"), "");
  EXPECT_EQ(TextOf(root, u"AppId\\libveltrane.so", u"AppID"), "{6A83179A-1485-4582-9205-F55C2537D558}");
  // The type library and its interfaces.
  EXPECT_EQ(Canonical(TextOf(root, u"TypeLib\\" + kLibId + u"\\1.0\\0\\linux64")), kLibrary);
  EXPECT_EQ(TextOf(root, u"TypeLib\\" + kLibId + u"\\1.0\\FLAGS"), "0");
  EXPECT_EQ(TextOf(root, u"Interface\\{49DCE0E3-0786-4986-9523-EA52D3830FBA}"), "IBSPApplication");
  EXPECT_EQ(TextOf(root, u"Interface\\{49DCE0E3-0786-4986-9523-EA52D3830FBA}\\TypeLib"),
            "{FBDBDBA5-518B-4146-A52F-455C0E03492D}");
  // Registration writes the classes this library builds, and no other.
  CComPtr<IRfcServer> server;
  const bool built = SUCCEEDED(CoCreateInstance(CLSID_NWRfcServer, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcServer,
                                                reinterpret_cast<void**>(&server)));
  EXPECT_EQ(HasKey(root, u"Veltrane.NWRfcServer"), built);
}

TEST_F(Registration, UnregisterRemovesWhatRegisterWroteAndKeepsTheSharedKeys) {
  ASSERT_EQ(DllRegisterServer(), S_OK);
  ASSERT_EQ(DllUnregisterServer(), S_OK);
  const HKEY root = HKEY_LOCAL_MACHINE;
  for (const std::u16string& key : std::vector<std::u16string>{
           u"Veltrane.SoapSession", u"Veltrane.SoapSession.1", u"Veltrane.BSPApplication", u"Veltrane.ConnectorCtrl.1",
           kSoap, kBsp, kControl, u"AppId\\" + kAppId, u"AppId\\libveltrane.so", u"TypeLib\\" + kLibId,
           u"Interface\\{49DCE0E3-0786-4986-9523-EA52D3830FBA}"})
    EXPECT_FALSE(HasKey(root, u"Software\\Classes\\" + key)) << std::string(key.begin(), key.end());
  EXPECT_TRUE(HasKey(root, u"Software\\Classes\\CLSID"));
  EXPECT_TRUE(HasKey(root, u"Software\\Classes\\AppId"));
  // Unregistering again finds nothing to remove, and that is no failure.
  EXPECT_EQ(DllUnregisterServer(), S_OK);
}

TEST_F(Registration, AFailedInstallLeavesNothingOfItsRun) {
  struct rlimit old {};
  getrlimit(RLIMIT_FSIZE, &old);
  struct rlimit small = old;
  small.rlim_cur = 1024;  // far less than the registration needs
  void (*previous)(int) = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  const HRESULT hr = DllInstall(TRUE, nullptr);
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, previous);
  EXPECT_EQ(hr, HRESULT_FROM_WIN32(ERROR_CANTWRITE));
  EXPECT_FALSE(Exists(registry.MachineFile()));
  EXPECT_FALSE(HasKey(HKEY_CLASSES_ROOT, kSoap));
}

TEST_F(Registration, ClassesOfTheLibraryNeedNoRegistrationInItsOwnProcess) {
  CLSID clsid{};
  EXPECT_EQ(CLSIDFromProgID(u"Veltrane.BSPApplication", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_BSPApplication);
  CComPtr<IBSPApplication> app;
  EXPECT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBSPApplication, reinterpret_cast<void**>(&app)),
            S_OK);
  void* factory = reinterpret_cast<void*>(1);
  EXPECT_EQ(DllGetClassObject(CLSID_RfcField, IID_IClassFactory, &factory), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(factory, nullptr);
}
