// The fixture of the transport's tests: a transport against veltrane-sim
// with the default logon, and a recorder of status changes.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "loopback.h"
#include "model/model.h"
#include "runtime/base64.h"
#include "runtime/trace.h"
#include "session/logon_data.h"
#include "soap/http_system_data.h"
#include "soap/win_http_transport.h"
#include "testing/sim_process.h"

namespace soaptest {

inline std::string B64(const std::string& text) {
  return Base64Encode(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

inline const char* kPing =
    "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"><SOAP-ENV:Body>"
    "<rfc:RFC_PING xmlns:rfc=\"urn:sap-com:document:sap:rfc:functions\"></rfc:RFC_PING></SOAP-ENV:Body>"
    "</SOAP-ENV:Envelope>";

class SoapTransport : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { s_sim = new vsim::testing::SimProcess(); }
  static void TearDownTestSuite() {
    delete s_sim;
    s_sim = nullptr;
  }

  void SetUp() override {
    ASSERT_EQ(SimControl(s_sim->soapUrl(), "reset"), 200);
    ASSERT_EQ(S_OK, CHttpSystemData::CreateInstance(&m_system));
    ASSERT_EQ(S_OK, CLogonData::CreateInstance(&m_logon));
    Point(s_sim->soapPort());
    m_logon->put_Client(CComBSTR(u"001"));
    m_logon->put_Language(CComBSTR(u"EN"));
    m_logon->put_User(CComBSTR(u"DEMO"));
    m_logon->put_Password(CComBSTR(u"Welcome1"));
    ASSERT_EQ(S_OK, CreateFunctionCall(&m_call));
    m_call->put_Function(CComBSTR(u"RFC_PING"));
  }
  void TearDown() override { TraceResetForTesting(); }

  void Point(unsigned short port, const char16_t* host = u"127.0.0.1") {
    m_system->put_Host(CComBSTR(host));
    m_system->put_Port(port);
  }

  std::unique_ptr<WinHttpTransport> Open() {
    auto t = std::make_unique<WinHttpTransport>(m_system, m_logon);
    t->Connect();
    return t;
  }

  WinHttpResponse Post(WinHttpTransport& t, int mode = 0, const std::string& body = kPing, long limit = 30000) {
    auto r = t.CreateRequest(m_call, mode);
    r->Send(body, 0);
    return r->AwaitResponse(limit);
  }

  static inline vsim::testing::SimProcess* s_sim = nullptr;
  CComPtr<CHttpSystemData> m_system;
  CComPtr<CLogonData> m_logon;
  CComPtr<IFunctionCall> m_call;
};

// Records status changes and the threads they arrive on.
struct Recorder {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<int32_t> statuses;
  std::vector<std::thread::id> threads;

  static void Callback(WinHttpRequest*, int32_t status, void* self) {
    auto* r = static_cast<Recorder*>(self);
    std::lock_guard<std::mutex> lock(r->mutex);
    r->statuses.push_back(status);
    r->threads.push_back(std::this_thread::get_id());
    r->changed.notify_all();
  }
  void WaitFinal() {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return !statuses.empty() && IsFinalStatus(statuses.back()); });
  }
};

}  // namespace soaptest
