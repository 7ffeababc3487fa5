// The simulated system as the NW RFC session reaches it: veltrane-sim with
// the contract's modules, its RFC front through our libsapnwrfc.so, and the
// control endpoint of its SOAP front.
#include <regex>

#include "contract.h"
#include "loopback.h"
#include "testing/sim_process.h"

namespace contract {

namespace {

vsim::testing::SimOptions Options() {
  vsim::testing::SimOptions options;
  options.args = {"--data-dir", ContractDataDir()};
  return options;
}

class NWRfcSystem final : public ContractSystem {
 public:
  NWRfcSystem() : m_sim(Options()) {}

  CComPtr<ISession> NewSession(const char16_t* user, const char16_t* password) override {
    CComPtr<IRfcSession> session;
    EXPECT_EQ(CoCreateInstance(CLSID_NWRfcSession, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                               reinterpret_cast<void**>(&session)),
              S_OK);
    if (!session) return nullptr;
    session->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(VELTRANE_NWRFC_SDK_DIR));
    CComPtr<IRfcSystemData> system;
    session->get_RfcSystemData(&system);
    const std::string connect = "ashost=" + m_sim.rfcHost() + " gwserv=" + std::to_string(m_sim.rfcPort());
    system->put_ConnectString(CComBSTR(std::u16string(connect.begin(), connect.end())));
    CComPtr<ILogonData> logon;
    session->get_LogonData(&logon);
    logon->put_Client(CComBSTR(u"001"));
    logon->put_Language(CComBSTR(u"EN"));
    logon->put_User(CComBSTR(user));
    logon->put_Password(CComBSTR(password));
    return CComPtr<ISession>(session.p);
  }

  void DelayNextAnswer(int milliseconds) override {
    Control("fault?front=rfc&fault=delay:" + std::to_string(milliseconds) + "&count=1");
  }

  long Requests() override {
    const std::string body = Control("status");
    std::smatch m;
    if (!std::regex_search(body, m, std::regex("\"rfcRequests\":([0-9]+)"))) return -1;
    return std::stol(m[1]);
  }

  void Reset() override { Control("reset"); }

 private:
  std::string Control(const std::string& what) {
    std::string body;
    EXPECT_EQ(soaptest::SimControl(m_sim.soapUrl(), what, &body), 200) << what;
    return body;
  }

  vsim::testing::SimProcess m_sim;
};

}  // namespace

std::unique_ptr<ContractSystem> StartNWRfcSystem() { return std::make_unique<NWRfcSystem>(); }

}  // namespace contract
