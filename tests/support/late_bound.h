// A method called late-bound, as a script calls it: the name looked up, one
// argument, the exception information kept for the test.
#pragma once

#include <gtest/gtest.h>

#include <vector>

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

// The arguments in declaration order (DISPPARAMS takes them reversed); a
// property is called as a method or a get, as Basic calls it.
inline void InvokeLateBound(IUnknown* object, const char16_t* method, std::vector<CComVariant> arguments,
                            LateBoundResult& result) {
  CComQIPtr<IDispatch> late(object);
  ASSERT_TRUE(late);
  LPOLESTR name = const_cast<LPOLESTR>(method);
  DISPID id = 0;
  ASSERT_EQ(late->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id), S_OK);
  std::vector<VARIANT> reversed(arguments.rbegin(), arguments.rend());  // borrowed from arguments
  DISPPARAMS params{reversed.empty() ? nullptr : reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  result.hr = late->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD | DISPATCH_PROPERTYGET, &params,
                           &result.value, &result.info, nullptr);
}

inline void InvokeLateBound(IUnknown* object, const char16_t* method, const CComVariant& argument,
                            LateBoundResult& result) {
  InvokeLateBound(object, method, std::vector<CComVariant>{argument}, result);
}

}  // namespace test_support
