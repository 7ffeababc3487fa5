// The simulated system as the SOAP session reaches it: its SOAP front.
#include "sim_logon.h"
#include "sim_system.h"

namespace contract {

namespace {

class SoapSystem final : public SimContractSystem {
 public:
  // The SOAP front counts its control requests too.
  SoapSystem() : SimContractSystem("requests", true) {}

  CComPtr<ISession> NewSession(const char16_t* user, const char16_t* password) override {
    CComPtr<ISoapSession> session;
    EXPECT_EQ(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                               reinterpret_cast<void**>(&session)),
              S_OK);
    if (!session) return nullptr;
    CComPtr<IHttpSystemData> system;
    session->get_HttpSystemData(&system);
    system->put_Host(CComBSTR(u"127.0.0.1"));
    system->put_Port(Sim().soapPort());
    test_support::SetSimLogon(session, user, password);
    return CComPtr<ISession>(session.p);
  }

  void DelayNextAnswer(int milliseconds) override {
    Control("fault?fault=delay:" + std::to_string(milliseconds) + "&count=1");
  }
};

}  // namespace

std::unique_ptr<ContractSystem> StartSoapSystem() { return std::make_unique<SoapSystem>(); }

}  // namespace contract
