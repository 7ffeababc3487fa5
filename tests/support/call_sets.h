// The four parameter sets of a call, for tests: a failed get fails the test.
#pragma once

#include <gtest/gtest.h>

#include "platform/atlbase.h"
#include "veltrane_tlb.h"

namespace test_support {

inline CComPtr<IRfcParameters> ParameterSet(IFunctionCall* c,
                                            HRESULT (STDMETHODCALLTYPE IFunctionCall::*get)(IRfcParameters**)) {
  CComPtr<IRfcParameters> p;
  EXPECT_EQ((c->*get)(&p), S_OK);
  return p;
}
inline CComPtr<IRfcParameters> Importing(IFunctionCall* c) { return ParameterSet(c, &IFunctionCall::get_Importing); }
inline CComPtr<IRfcParameters> Exporting(IFunctionCall* c) { return ParameterSet(c, &IFunctionCall::get_Exporting); }
inline CComPtr<IRfcParameters> Changing(IFunctionCall* c) { return ParameterSet(c, &IFunctionCall::get_Changing); }
inline CComPtr<IRfcParameters> Tables(IFunctionCall* c) { return ParameterSet(c, &IFunctionCall::get_Tables); }

}  // namespace test_support
