// The parameter groups of a call (importing, exporting, changing, tables),
// read through the public interfaces.
#pragma once

#include <functional>
#include <string>

#include <veltrane.h>

namespace veltrane::cli {

using ParameterGroupGetter = HRESULT (STDMETHODCALLTYPE IFunctionCall::*)(IRfcParameters**);

CComPtr<IRfcParameters> parameterGroup(IFunctionCall* call, ParameterGroupGetter get);

// Calls `visit` with each parameter of the group and its name, in order.
void forEachParameter(IRfcParameters* group, const std::function<void(IRfcParameter*, const std::string&)>& visit);

}  // namespace veltrane::cli
