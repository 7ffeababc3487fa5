// The simulated system as the two SDK back ends reach it: its RFC front
// through our libsapnwrfc.so or librfcum.so.
#include "sim_logon.h"
#include "sim_system.h"

namespace contract {

namespace {

// How one back end is pointed at the RFC front.
struct SdkBackend {
  const CLSID* clsid;
  const char16_t* pathOption;
  const char16_t* sdkDir;
  // The connect string for the front's host and port.
  std::string (*connect)(const std::string& host, int port);
};

class SdkSystem final : public SimContractSystem {
 public:
  explicit SdkSystem(SdkBackend backend) : SimContractSystem("rfcRequests", false), m_backend(backend) {}

  CComPtr<ISession> NewSession(const char16_t* user, const char16_t* password) override {
    CComPtr<IRfcSession> session;
    EXPECT_EQ(CoCreateInstance(*m_backend.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                               reinterpret_cast<void**>(&session)),
              S_OK);
    if (!session) return nullptr;
    session->put_Option(CComBSTR(m_backend.pathOption), CComBSTR(m_backend.sdkDir));
    CComPtr<IRfcSystemData> system;
    session->get_RfcSystemData(&system);
    const std::string connect = m_backend.connect(Sim().rfcHost(), Sim().rfcPort());
    system->put_ConnectString(CComBSTR(std::u16string(connect.begin(), connect.end())));
    test_support::SetSimLogon(session, user, password);
    return CComPtr<ISession>(session.p);
  }

  void DelayNextAnswer(int milliseconds) override {
    Control("fault?front=rfc&fault=delay:" + std::to_string(milliseconds) + "&count=1");
  }

 private:
  SdkBackend m_backend;
};

std::string NWRfcConnect(const std::string& host, int port) {
  return "ashost=" + host + " gwserv=" + std::to_string(port);
}

// The simulated passwords are in mixed case: the classic SDK sends them as
// they are only with TOUPPER=0.
std::string RfcConnect(const std::string& host, int port) {
  return "ASHOST=" + host + " GWSERV=" + std::to_string(port) + " TOUPPER=0";
}

}  // namespace

std::unique_ptr<ContractSystem> StartNWRfcSystem() {
  return std::make_unique<SdkSystem>(
      SdkBackend{&CLSID_NWRfcSession, u"nwrfc.path", VELTRANE_NWRFC_SDK_DIR, &NWRfcConnect});
}

std::unique_ptr<ContractSystem> StartRfcSystem() {
  return std::make_unique<SdkSystem>(SdkBackend{&CLSID_RfcSession, u"librfc.path", VELTRANE_RFC_SDK_DIR, &RfcConnect});
}

}  // namespace contract
