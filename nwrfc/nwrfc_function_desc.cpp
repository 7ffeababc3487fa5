#include "nwrfc/nwrfc_function_desc.h"

#include <boost/format.hpp>

#include "nwrfc/nwrfc_field.h"
#include "nwrfc/sdk_error.h"
#include "platform/comdef.h"
#include "platform/unicode.h"
#include "runtime/trace.h"

using namespace veltrane::nwrfc;

namespace {

HRESULT Traced(HRESULT hr) {
  TraceResult(hr, "NWRFCAddParameters", __FILE__, __LINE__);
  return hr;
}

}  // namespace

HRESULT NWRFCAddParameters(const EntryPoints& sdk, IRfcParameters* parameters, RFC_DIRECTION direction,
                           RFC_FUNCTION_DESC_HANDLE functionDesc, RFC_ERROR_INFO* errorInfo, const CLSID& clsid) {
  if (!parameters) throw _com_error(E_POINTER);
  LONG count = 0;
  HRESULT hr = parameters->get_Count(&count);
  if (FAILED(hr)) return Traced(hr);
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> parameter;
    if (FAILED(hr = parameters->get_Item(CComVariant(i), &parameter))) return Traced(hr);
    if (!parameter) throw _com_error(E_POINTER);
    CComBSTR name, description, defaultValue;
    CComPtr<IRfcType> type;
    VARIANT_BOOL optional = VARIANT_FALSE;
    if (FAILED(hr = parameter->get_name(&name)) || FAILED(hr = parameter->get_RfcType(&type)) ||
        FAILED(hr = parameter->get_Optional(&optional)) || FAILED(hr = parameter->get_Description(&description)) ||
        FAILED(hr = parameter->get_DefaultValue(&defaultValue)))
      return Traced(hr);
    CNWRFCField field(sdk, errorInfo, clsid);
    if (FAILED(hr = field.Define(name.View(), type))) return Traced(hr);
    field.optional = optional == VARIANT_TRUE;
    field.description = description.View();
    field.defaultValue = defaultValue.View();
    RFC_PARAMETER_DESC desc{};
    if (FAILED(hr = field.fillParameterDesc(direction, desc))) return Traced(hr);
    const RFC_RC rc = sdk.RfcAddParameter(functionDesc, &desc, errorInfo);
    if (rc != RFC_OK) return BridgeFailure(rc, errorInfo ? *errorInfo : RFC_ERROR_INFO{}, clsid);
  }
  return S_OK;
}

HRESULT NWRFCCreateFunctionDesc(const EntryPoints& sdk, IFunctionCall* call, RFC_ERROR_INFO* errorInfo,
                                RFC_FUNCTION_DESC_HANDLE* functionDesc, const CLSID& clsid) {
  if (!call || !functionDesc) return E_POINTER;
  *functionDesc = nullptr;
  CComBSTR name;
  HRESULT hr = call->get_Function(&name);
  if (FAILED(hr)) return hr;
  RFC_FUNCTION_DESC_HANDLE desc = sdk.RfcCreateFunctionDesc(name.View().empty() ? u"" : name.m_str, errorInfo);
  if (!desc || (errorInfo && errorInfo->code != RFC_OK))
    return BridgeFailure(errorInfo ? errorInfo->code : RFC_UNKNOWN_ERROR, errorInfo ? *errorInfo : RFC_ERROR_INFO{},
                         clsid);
  TraceLog(TRACE_INFORMATION, boost::format("creating function desc for %1%") % WideToUtf8Lossy(name.View()),
           "NWRFCCreateFunctionDesc", __FILE__, __LINE__);
  using Getter = HRESULT (STDMETHODCALLTYPE IFunctionCall::*)(IRfcParameters**);
  static constexpr struct {
    Getter get;
    RFC_DIRECTION direction;
  } kGroups[] = {{&IFunctionCall::get_Importing, RFC_IMPORT},
                 {&IFunctionCall::get_Exporting, RFC_EXPORT},
                 {&IFunctionCall::get_Changing, RFC_CHANGING},
                 {&IFunctionCall::get_Tables, RFC_TABLES}};
  for (const auto& group : kGroups) {
    CComPtr<IRfcParameters> parameters;
    if (FAILED(hr = (call->*group.get)(&parameters))) return hr;
    if (FAILED(hr = NWRFCAddParameters(sdk, parameters, group.direction, desc, errorInfo, clsid))) return hr;
  }
  *functionDesc = desc;
  return S_OK;
}
