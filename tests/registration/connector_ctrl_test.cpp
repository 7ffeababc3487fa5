// The connector control through the public interface: its five factories,
// a session that outlives the control, and a class of another library that
// the control creates as soon as it is registered.
#include <gtest/gtest.h>

#include "program.h"
#include "registry_reading.h"
#include "server_double.h"

namespace {

class ConnectorControl : public ::testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    ASSERT_EQ(CoCreateInstance(CLSID_ConnectorCtrl, nullptr, CLSCTX_INPROC_SERVER, IID_IConnectorCtrl,
                               reinterpret_cast<void**>(&control)),
              S_OK);
  }
  void TearDown() override {
    control.Release();
    CoUninitialize();
  }
  // Whether this library builds the class (no registry is needed then).
  static bool BuiltIn(REFCLSID clsid) {
    CComPtr<IUnknown> object;
    return SUCCEEDED(
        CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, reinterpret_cast<void**>(&object)));
  }

  ScratchRegistry registry;
  CComPtr<IConnectorCtrl> control;
};

}  // namespace

TEST_F(ConnectorControl, SoapSessionOutlivesTheControlThatMadeIt) {
  CComPtr<ISoapSession> session;
  ASSERT_EQ(control->CreateSOAPSession(&session), S_OK);
  control.Release();
  CComBSTR type;
  ASSERT_EQ(session->get_SessionType(&type), S_OK);
  EXPECT_EQ(type, u"SOAP");
}

TEST_F(ConnectorControl, CreateRfcServerSucceedsAndLeavesTheVariableAsItWas) {
  IRfcServer* server = nullptr;
  EXPECT_EQ(control->CreateRfcServer(&server), S_OK);
  EXPECT_EQ(server, nullptr);
  IRfcServer* marker = reinterpret_cast<IRfcServer*>(0x1234);
  server = marker;
  EXPECT_EQ(control->CreateRfcServer(&server), S_OK);
  EXPECT_EQ(server, marker);
}

TEST_F(ConnectorControl, FactoriesOfClassesThatAreNowhereSayNotRegistered) {
  CComPtr<IRfcSession> rfc, nw;
  CComPtr<IRfcServer> server;
  EXPECT_EQ(control->CreateRfcSession(&rfc), BuiltIn(CLSID_RfcSession) ? S_OK : REGDB_E_CLASSNOTREG);
  EXPECT_EQ(control->CreateNWRfcSession(&nw), BuiltIn(CLSID_NWRfcSession) ? S_OK : REGDB_E_CLASSNOTREG);
  EXPECT_EQ(control->CreateNWRfcServer(&server), BuiltIn(CLSID_NWRfcServer) ? S_OK : REGDB_E_CLASSNOTREG);
  EXPECT_EQ(control->CreateSOAPSession(nullptr), E_POINTER);
}

TEST_F(ConnectorControl, CreatesTheNWServerOfAnotherLibraryOnceItIsRegistered) {
  if (BuiltIn(CLSID_NWRfcServer)) GTEST_SKIP() << "this library builds NWRfcServer itself; the registry is not asked";
  CComPtr<IRfcServer> server;
  EXPECT_EQ(control->CreateNWRfcServer(&server), REGDB_E_CLASSNOTREG);
  const ProgramResult r = RunProgram(std::string(VELTRANE_REGSVR) + " /i:user " + VELTRANE_DOUBLE_FILE);
  ASSERT_EQ(r.status, 0) << r.output;
  ASSERT_EQ(control->CreateNWRfcServer(&server), S_OK);
  CComBSTR service;
  ASSERT_EQ(server->get_GatewayService(&service), S_OK);
  EXPECT_EQ(service, kDoubleService);
}
