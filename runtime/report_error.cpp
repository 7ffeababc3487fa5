#include "runtime/report_error.h"

#include "platform/objbase.h"
#include "runtime/string_table.h"

namespace {

constexpr int kDescriptionBuffer = 1024;

HRESULT SetRecord(REFCLSID clsid, const OLECHAR* description, DWORD helpContext, LPCOLESTR helpFile, REFIID iid) {
  ICreateErrorInfo* create = nullptr;
  HRESULT hr = CreateErrorInfo(&create);
  if (FAILED(hr) || !create) return FAILED(hr) ? hr : E_FAIL;
  create->SetGUID(iid);
  LPOLESTR progId = nullptr;
  if (SUCCEEDED(ProgIDFromCLSID(clsid, &progId)) && progId) {
    create->SetSource(progId);
    CoTaskMemFree(progId);
  }
  if (helpContext != 0 && helpFile) {
    create->SetHelpContext(helpContext);
    create->SetHelpFile(const_cast<LPOLESTR>(helpFile));
  }
  create->SetDescription(const_cast<LPOLESTR>(description));
  IErrorInfo* info = nullptr;
  if (SUCCEEDED(create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info))) && info) {
    SetErrorInfo(0, info);
    info->Release();
  }
  create->Release();
  return S_OK;
}

}  // namespace

HRESULT ReportError(REFCLSID clsid, UINT code, DWORD helpContext, LPCOLESTR helpFile, REFIID iid, HRESULT hr) {
  OLECHAR buffer[kDescriptionBuffer];
  const OLECHAR* description = buffer;
  if (code < 65536) {
    if (LoadStringTable(code, buffer, kDescriptionBuffer) == 0) description = u"Unknown Error";
    if (hr == 0) hr = StringCodeResult(code);
  } else {
    description = u"Unknown Error";
  }
  SetRecord(clsid, description, helpContext, helpFile, iid);
  return hr == 0 ? DISP_E_EXCEPTION : hr;
}

HRESULT ReportError(REFCLSID clsid, LPCOLESTR text, DWORD helpContext, LPCOLESTR helpFile, REFIID iid, HRESULT hr) {
  SetRecord(clsid, text ? text : u"", helpContext, helpFile, iid);
  return hr == 0 ? DISP_E_EXCEPTION : hr;
}
