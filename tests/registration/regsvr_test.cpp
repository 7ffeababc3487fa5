// veltrane-regsvr on libveltrane.so and on a second component library: the
// round trip register, create by ProgID, unregister, and its failures.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "program.h"
#include "registry_reading.h"
#include "server_double.h"

namespace {

const std::string kRegsvr = VELTRANE_REGSVR;
const std::string kDouble = VELTRANE_DOUBLE_FILE;

class Regsvr : public ::testing::Test {
 protected:
  void SetUp() override { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
  void TearDown() override { CoUninitialize(); }
  ScratchRegistry registry;
};

}  // namespace

TEST_F(Regsvr, RegisterCreateByProgIdUnregisterAndTheClassIsGone) {
  ProgramResult r = RunProgram(kRegsvr + " /i:user " + kDouble);
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_EQ(r.output, "DllInstall of " + kDouble + " succeeded.\n");
  EXPECT_TRUE(Exists(registry.UserFile()));
  CLSID clsid{};
  ASSERT_EQ(CLSIDFromProgID(u"VeltraneTest.ServerDouble", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_ServerDouble);
  CComPtr<IRfcServer> server;
  ASSERT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcServer, reinterpret_cast<void**>(&server)),
            S_OK);
  CComBSTR service;
  ASSERT_EQ(server->get_GatewayService(&service), S_OK);
  EXPECT_EQ(service, kDoubleService);
  LPOLESTR progId = nullptr;
  ASSERT_EQ(ProgIDFromCLSID(CLSID_ServerDouble, &progId), S_OK);
  EXPECT_EQ(std::u16string(progId), u"VeltraneTest.ServerDouble");
  CoTaskMemFree(progId);
  server.Release();

  r = RunProgram(kRegsvr + " /u /i:user " + kDouble);
  ASSERT_EQ(r.status, 0) << r.output;
  CComPtr<IRfcServer> gone;
  EXPECT_EQ(CoCreateInstance(CLSID_ServerDouble, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcServer,
                             reinterpret_cast<void**>(&gone)),
            REGDB_E_CLASSNOTREG);
  EXPECT_EQ(gone, nullptr);
  EXPECT_EQ(CLSIDFromProgID(u"VeltraneTest.ServerDouble", &clsid), CO_E_CLASSSTRING);
}

TEST_F(Regsvr, RegistersTheComponentLibraryItselfForTheMachineAndRemovesIt) {
  ProgramResult r = RunProgram(kRegsvr + " " + VELTRANE_LIBRARY_FILE);
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_EQ(TextOf(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Veltrane.SoapSession\\CLSID"),
            "{334E20D8-8C80-450B-ACA1-B3A2CC44DBCD}");
  r = RunProgram(kRegsvr + " /s /u " + VELTRANE_LIBRARY_FILE);
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_EQ(r.output, "");
  EXPECT_FALSE(HasKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Veltrane.SoapSession"));
}

TEST_F(Regsvr, ALibraryThatCannotBeLoadedOrLacksTheEntryPointIsNamed) {
  ProgramResult r = RunProgram(kRegsvr + " /nonexistent/libnothing.so");
  EXPECT_EQ(r.status, 3);
  EXPECT_NE(r.output.find("the library /nonexistent/libnothing.so could not be loaded"), std::string::npos) << r.output;
  r = RunProgram(kRegsvr + " " + VELTRANE_DESKTOP_FILE);
  EXPECT_EQ(r.status, 4);
  EXPECT_NE(r.output.find("the entry point DllRegisterServer was not found"), std::string::npos) << r.output;
}

TEST_F(Regsvr, AFailingEntryPointIsReportedWithItsCode) {
  // The machine's registry cannot be written where a file stands in place of its directory.
  { std::ofstream(registry.dir.file("etc")) << "not a directory"; }
  const ProgramResult r = RunProgram(kRegsvr + " " + kDouble);
  EXPECT_EQ(r.status, 5) << r.output;
  EXPECT_NE(r.output.find("the call to DllRegisterServer of " + kDouble + " failed with 0x80070003"), std::string::npos)
      << r.output;
}

TEST_F(Regsvr, ABadCommandLineShowsTheUsage) {
  ProgramResult r = RunProgram(kRegsvr);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.output.find("usage: veltrane-regsvr [/u] [/i[:TEXT]] [/s] LIBRARY"), std::string::npos);
  r = RunProgram(kRegsvr + " /x " + kDouble);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.output.find("unknown option /x"), std::string::npos);
}

TEST_F(Regsvr, ManyThreadsCreateARegisteredClassWhileTheRegistryChanges) {
  const ProgramResult r = RunProgram(kRegsvr + " /i:user " + kDouble);
  ASSERT_EQ(r.status, 0) << r.output;
  std::atomic<int> created{0}, failed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      CoInitializeEx(nullptr, COINIT_MULTITHREADED);
      for (int i = 0; i < 40; ++i) {
        CComPtr<IRfcServer> server;
        if (SUCCEEDED(CoCreateInstance(CLSID_ServerDouble, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcServer,
                                       reinterpret_cast<void**>(&server))))
          ++created;
        else
          ++failed;
      }
      CoUninitialize();
    });
  }
  // Meanwhile the same file changes, key by key: readers see it whole, before or after.
  threads.emplace_back([] {
    for (int i = 0; i < 40; ++i) {
      HKEY key = nullptr;
      const std::u16string path = u"Software\\Noise\\" + std::u16string(1, static_cast<char16_t>(u'A' + i % 26));
      if (RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) ==
          ERROR_SUCCESS) {
        const DWORD n = static_cast<DWORD>(i);
        RegSetValueExW(key, u"N", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&n), sizeof n);
        RegCloseKey(key);
      }
    }
  });
  for (auto& t : threads) t.join();
  EXPECT_EQ(created.load(), 160);
  EXPECT_EQ(failed.load(), 0);
  EXPECT_EQ(TextOf(HKEY_CLASSES_ROOT, u"VeltraneTest.ServerDouble\\CLSID"), "{5B0C8E2A-3F1D-4C6B-9A27-1E8D4F6A0C31}");
}
