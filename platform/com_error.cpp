#include "platform/comdef.h"

void _com_issue_error(HRESULT hr) { throw _com_error(hr); }

void _com_issue_errorex(HRESULT hr, IUnknown* punk, REFIID riid) {
  IErrorInfo* info = nullptr;
  CComPtr<ISupportErrorInfo> support;
  if (punk && SUCCEEDED(punk->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(&support))) &&
      support->InterfaceSupportsErrorInfo(riid) == S_OK) {
    if (GetErrorInfo(0, &info) != S_OK) info = nullptr;
  }
  throw _com_error(hr, info);
}
