#include "server_contract.h"

namespace servertest {

std::vector<ServerClass> ServerClasses() {
  return {
      {"NWRfcServer", CLSID_NWRfcServer,
       [](IRfcServer* server) { server->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(SdkDir())); }, 16, true},
      {"RfcServer", CLSID_RfcServer,
       [](IRfcServer* server) { server->put_Option(CComBSTR(u"librfc.path"), CComBSTR(RfcSdkDir())); }, 1, false},
  };
}

CComPtr<IRfcServer> NewServer(const ServerClass& cls, const char* what, std::u16string* programId) {
  CComPtr<IRfcServer> server;
  EXPECT_EQ(
      CoCreateInstance(cls.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcServer, reinterpret_cast<void**>(&server)),
      S_OK);
  if (!server) return server;
  *programId = NewProgramId(what);
  server->put_ProgramID(CComBSTR(*programId));
  server->put_GatewayHost(CComBSTR(Wide(Sim().rfcHost())));
  server->put_GatewayService(CComBSTR(Wide(std::to_string(Sim().rfcPort()))));
  cls.configure(server);
  return server;
}

}  // namespace servertest
