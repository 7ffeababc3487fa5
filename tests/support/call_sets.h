// The four parameter sets of a call, for tests: a failed get fails the test.
#pragma once

#include <gtest/gtest.h>

#include <string_view>

#include "platform/atlbase.h"
#include "platform/unicode.h"
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

// A parameter of a call by its group ("Importing", "Exporting", "Changing", "Tables") and name.
inline CComPtr<IRfcParameter> Parameter(IFunctionCall* call, const char16_t* group, const char16_t* name) {
  CComPtr<IRfcParameters> parameters;
  const std::u16string_view g(group);
  if (g == u"Importing") call->get_Importing(&parameters);
  if (g == u"Exporting") call->get_Exporting(&parameters);
  if (g == u"Changing") call->get_Changing(&parameters);
  if (g == u"Tables") call->get_Tables(&parameters);
  CComPtr<IRfcParameter> parameter;
  EXPECT_TRUE(parameters) << WideToUtf8Lossy(group);
  if (parameters) {
    EXPECT_EQ(parameters->get_Item(CComVariant(name), &parameter), S_OK) << WideToUtf8Lossy(name);
  }
  return parameter;
}

inline CComVariant Value(IFunctionCall* call, const char16_t* group, const char16_t* name) {
  CComVariant value;
  if (CComPtr<IRfcParameter> p = Parameter(call, group, name)) p->get_value(&value);
  return value;
}

inline void SetValue(IFunctionCall* call, const char16_t* group, const char16_t* name, const CComVariant& value) {
  if (CComPtr<IRfcParameter> p = Parameter(call, group, name)) {
    EXPECT_EQ(p->put_value(value), S_OK) << WideToUtf8Lossy(name);
  }
}

}  // namespace test_support
