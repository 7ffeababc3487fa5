// A method called late-bound, as a script calls it: the name looked up, one
// argument, the exception information kept for the test.
#pragma once

#include <gtest/gtest.h>

#include "platform/atlbase.h"

namespace test_support {

struct LateBoundResult {
  HRESULT hr = E_FAIL;
  CComVariant value;
  EXCEPINFO info{};

  LateBoundResult() = default;
  LateBoundResult(const LateBoundResult&) = delete;
  LateBoundResult& operator=(const LateBoundResult&) = delete;
  ~LateBoundResult() {
    SysFreeString(info.bstrSource);
    SysFreeString(info.bstrDescription);
    SysFreeString(info.bstrHelpFile);
  }
};

inline void InvokeLateBound(IUnknown* object, const char16_t* method, const CComVariant& argument,
                            LateBoundResult& result) {
  CComQIPtr<IDispatch> late(object);
  ASSERT_TRUE(late);
  LPOLESTR name = const_cast<LPOLESTR>(method);
  DISPID id = 0;
  ASSERT_EQ(late->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id), S_OK);
  CComVariant arg(argument);
  DISPPARAMS params{&arg, nullptr, 1, 0};
  result.hr =
      late->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, &result.value, &result.info, nullptr);
}

}  // namespace test_support
