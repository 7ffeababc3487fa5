// The simulated system as the NW RFC session reaches it: its RFC front
// through our libsapnwrfc.so.
#include "sim_logon.h"
#include "sim_system.h"

namespace contract {

namespace {

class NWRfcSystem final : public SimContractSystem {
 public:
  NWRfcSystem() : SimContractSystem("rfcRequests", false) {}

  CComPtr<ISession> NewSession(const char16_t* user, const char16_t* password) override {
    CComPtr<IRfcSession> session;
    EXPECT_EQ(CoCreateInstance(CLSID_NWRfcSession, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                               reinterpret_cast<void**>(&session)),
              S_OK);
    if (!session) return nullptr;
    session->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(VELTRANE_NWRFC_SDK_DIR));
    CComPtr<IRfcSystemData> system;
    session->get_RfcSystemData(&system);
    const std::string connect = "ashost=" + Sim().rfcHost() + " gwserv=" + std::to_string(Sim().rfcPort());
    system->put_ConnectString(CComBSTR(std::u16string(connect.begin(), connect.end())));
    test_support::SetSimLogon(session, user, password);
    return CComPtr<ISession>(session.p);
  }

  void DelayNextAnswer(int milliseconds) override {
    Control("fault?front=rfc&fault=delay:" + std::to_string(milliseconds) + "&count=1");
  }
};

}  // namespace

std::unique_ptr<ContractSystem> StartNWRfcSystem() { return std::make_unique<NWRfcSystem>(); }

}  // namespace contract
