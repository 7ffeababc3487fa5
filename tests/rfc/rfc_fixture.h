// Shared by the classic back end's tests: veltrane-sim, classic sessions
// pointed at it through our librfcum.so, and small helpers.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "event_sink.h"
#include "session_state.h"
#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "testing/sim_process.h"
#include "veltrane_tlb.h"

namespace rfctest {

// The simulated system for the whole program, started on first need.
vsim::testing::SimProcess& Sim();
// "ASHOST=127.0.0.1 GWSERV=<port> TOUPPER=0" (the simulated passwords are in mixed case).
std::u16string ConnectString();
// The directory of our librfcum.so.
std::u16string SdkDir();
// A control request to the simulated system ("fault?front=rfc&fault=close").
std::string Control(const std::string& what);

// A new classic session on the simulated system with our SDK's directory,
// the connect string and the logon data; not connected.
CComPtr<IRfcSession> NewSession(const char16_t* user = u"DEMO", const char16_t* password = u"Welcome1");

std::string Narrow(std::u16string_view text);
std::string Text(const VARIANT& value);
using test_support::Connected;
using test_support::ErrorDescription;
using test_support::ErrorFlag;

struct ErrorText {
  long group = 0;
  std::string key, message, module;
};
ErrorText ErrorOf(ISession* session);  // reading it clears Error

CComPtr<IRfcParameter> Parameter(IFunctionCall* call, const char16_t* group, const char16_t* name);
CComVariant Value(IFunctionCall* call, const char16_t* group, const char16_t* name);
void SetValue(IFunctionCall* call, const char16_t* group, const char16_t* name, const CComVariant& value);
CComPtr<IRfcRows> Rows(IFunctionCall* call, const char16_t* group, const char16_t* name);
CComVariant Cell(IRfcRows* rows, long row, const char16_t* column);

// A CallFinished sink advised to a session while the object lives.
class AdvisedSink {
 public:
  explicit AdvisedSink(ISession* session);
  ~AdvisedSink();
  AdvisedSink(const AdvisedSink&) = delete;
  AdvisedSink& operator=(const AdvisedSink&) = delete;
  test_support::EventSink* operator->() const { return m_sink; }

 private:
  test_support::EventSink* m_sink;
  CComPtr<IConnectionPoint> m_point;
  DWORD m_cookie = 0;
};

// A test with COM on the thread and a fresh trace state.
class RfcTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

// The same with a session of DEMO, connected.
class SessionTest : public RfcTest {
 protected:
  void SetUp() override;
  void TearDown() override;
  CComPtr<IFunctionCall> Import(const char16_t* name, VARIANT_BOOL ignoreUnsupportedParams = VARIANT_FALSE);

  CComPtr<IRfcSession> m_session;
};

}  // namespace rfctest
