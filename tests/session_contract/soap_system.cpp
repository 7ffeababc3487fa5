// The simulated system as the SOAP session reaches it: veltrane-sim with the
// contract's modules, its SOAP front, and its control endpoint.
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

class SoapSystem final : public ContractSystem {
 public:
  SoapSystem() : m_sim(Options()) {}

  CComPtr<ISession> NewSession(const char16_t* user, const char16_t* password) override {
    CComPtr<ISoapSession> session;
    EXPECT_EQ(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                               reinterpret_cast<void**>(&session)),
              S_OK);
    if (!session) return nullptr;
    CComPtr<IHttpSystemData> system;
    session->get_HttpSystemData(&system);
    system->put_Host(CComBSTR(u"127.0.0.1"));
    system->put_Port(m_sim.soapPort());
    CComPtr<ILogonData> logon;
    session->get_LogonData(&logon);
    logon->put_Client(CComBSTR(u"001"));
    logon->put_Language(CComBSTR(u"EN"));
    logon->put_User(CComBSTR(user));
    logon->put_Password(CComBSTR(password));
    return CComPtr<ISession>(session.p);
  }

  void DelayNextAnswer(int milliseconds) override {
    Control("fault?fault=delay:" + std::to_string(milliseconds) + "&count=1");
  }

  // The system counts its control requests too; those of this object are
  // taken off.
  long Requests() override {
    const std::string body = Control("status");
    std::smatch m;
    if (!std::regex_search(body, m, std::regex("\"requests\":([0-9]+)"))) return -1;
    return std::stol(m[1]) - m_controls;
  }

  void Reset() override { Control("reset"); }

 private:
  std::string Control(const std::string& what) {
    std::string body;
    ++m_controls;
    EXPECT_EQ(soaptest::SimControl(m_sim.soapUrl(), what, &body), 200) << what;
    return body;
  }

  vsim::testing::SimProcess m_sim;
  long m_controls = 0;
};

}  // namespace

std::unique_ptr<ContractSystem> StartSoapSystem() { return std::make_unique<SoapSystem>(); }

}  // namespace contract
