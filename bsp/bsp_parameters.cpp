#include "bsp/bsp_parameters.h"

#include "runtime/exceptions.h"

HRESULT CBSPParameters::AddParameter(BSTR name, BSTR value) {
  CComPtr<CBSPParameter> parameter;
  HRESULT hr = CBSPParameter::CreateInstance(&parameter);
  if (SUCCEEDED(hr)) hr = parameter->put_name(name);
  if (SUCCEEDED(hr)) hr = parameter->put_value(value);
  if (SUCCEEDED(hr)) hr = Add(parameter);
  return hr;
}

std::vector<std::pair<std::u16string, std::u16string>> CBSPParameters::Pairs() const {
  std::vector<std::pair<std::u16string, std::u16string>> pairs;
  for (LONG i = 0; i < CollCount(); ++i) {
    IBSPParameter* item = CollAt(static_cast<size_t>(i));
    CComBSTR name, value;
    if (!item || FAILED(item->get_name(&name)) || FAILED(item->get_value(&value))) throw CXCOMError(E_POINTER);
    pairs.emplace_back(BstrView(name), BstrView(value));
  }
  return pairs;
}
