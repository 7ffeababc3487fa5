// The simulated system as the classic RFC session reaches it: its RFC front
// through our librfcum.so.
#include "sim_logon.h"
#include "sim_system.h"

namespace contract {

namespace {

class RfcSystem final : public SimContractSystem {
 public:
  RfcSystem() : SimContractSystem("rfcRequests", false) {}

  CComPtr<ISession> NewSession(const char16_t* user, const char16_t* password) override {
    CComPtr<IRfcSession> session;
    EXPECT_EQ(CoCreateInstance(CLSID_RfcSession, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                               reinterpret_cast<void**>(&session)),
              S_OK);
    if (!session) return nullptr;
    session->put_Option(CComBSTR(u"librfc.path"), CComBSTR(VELTRANE_RFC_SDK_DIR));
    CComPtr<IRfcSystemData> system;
    session->get_RfcSystemData(&system);
    // The simulated passwords are in mixed case: the SDK sends them as they are.
    const std::string connect =
        "ASHOST=" + Sim().rfcHost() + " GWSERV=" + std::to_string(Sim().rfcPort()) + " TOUPPER=0";
    system->put_ConnectString(CComBSTR(std::u16string(connect.begin(), connect.end())));
    test_support::SetSimLogon(session, user, password);
    return CComPtr<ISession>(session.p);
  }

  void DelayNextAnswer(int milliseconds) override {
    Control("fault?front=rfc&fault=delay:" + std::to_string(milliseconds) + "&count=1");
  }
};

}  // namespace

std::unique_ptr<ContractSystem> StartRfcSystem() { return std::make_unique<RfcSystem>(); }

}  // namespace contract
