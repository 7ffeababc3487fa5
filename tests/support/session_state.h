// What the session tests of the back ends on an SDK read alike: a control
// request to the simulated system, a session's flags, and the description
// of the thread's error record.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "loopback.h"
#include "platform/atlbase.h"
#include "platform/oleauto.h"
#include "platform/unicode.h"
#include "testing/sim_process.h"
#include "veltrane_tlb.h"

namespace test_support {

// A control request ("fault?front=rfc&fault=close", "reset", "status") to
// sim; its body, the test failing unless it is answered with 200.
inline std::string ControlSim(vsim::testing::SimProcess& sim, const std::string& what) {
  std::string body;
  EXPECT_EQ(soaptest::SimControl(sim.soapUrl(), what, &body), 200) << what << ": " << body;
  return body;
}

inline bool ErrorFlag(ISession* session) {
  VARIANT_BOOL flag = VARIANT_FALSE;
  session->get_Error(&flag);
  return flag != VARIANT_FALSE;
}

inline bool Connected(ISession* session) {
  VARIANT_BOOL flag = VARIANT_FALSE;
  session->get_IsConnected(&flag);
  return flag != VARIANT_FALSE;
}

inline bool CallActive(ISession* session) {
  VARIANT_BOOL flag = VARIANT_FALSE;
  session->get_CallActive(&flag);
  return flag != VARIANT_FALSE;
}

// The description of the thread's error record, "" without one.
inline std::string ErrorDescription() {
  CComPtr<IErrorInfo> info;
  if (GetErrorInfo(0, &info) != S_OK || !info) return "";
  CComBSTR text;
  info->GetDescription(&text);
  return WideToUtf8Lossy(text.View());
}

}  // namespace test_support
