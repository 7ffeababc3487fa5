// CBSPApplication: a Business Server Page of an SAP system in a modal
// browser window (BSPApplication, "Veltrane.BSPApplication"). The client
// names the page, gives logon data, window settings and parameters, and
// calls ShowApplication, which returns when the window is gone; parameters
// that the page returned in the URL of the exit page are then appended to
// Parameters.
#pragma once

#include "bsp/bsp_parameters.h"
#include "bsp/window_properties.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "session/logon_data.h"
#include "session/option_store.h"
#include "soap/http_system_data.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CBSPApplication : public CComObjectBase<CBSPApplication, CoClassBSPApplication<CBSPApplication>> {
 public:
  HRESULT FinalConstruct();

  HRESULT STDMETHODCALLTYPE get_HttpSystemData(IHttpSystemData** pVal) override;
  HRESULT STDMETHODCALLTYPE get_LogonData(ILogonData** pVal) override;
  HRESULT STDMETHODCALLTYPE get_Window(IWindowProperties** pVal) override;
  HRESULT STDMETHODCALLTYPE get_Parameters(IBSPParameters** pVal) override;
  // Only "trace.file" is read, by ShowApplication.
  HRESULT STDMETHODCALLTYPE get_Option(BSTR name, BSTR* pVal) override { return m_options.Get(name, pVal); }
  HRESULT STDMETHODCALLTYPE put_Option(BSTR name, BSTR newVal) override { return m_options.Put(name, newVal); }
  // Shows the window on the calling thread and returns when it is gone.
  // Success whenever the window could be shown; whether the exit page was
  // reached shows only in the parameters returned.
  HRESULT STDMETHODCALLTYPE ShowApplication(BSTR application, BSTR exitPage) override;
  HRESULT STDMETHODCALLTYPE About() override;

 private:
  HRESULT Show(std::u16string_view application, std::u16string_view exitPage);

  CComPtr<CHttpSystemData> m_systemData;
  CComPtr<CLogonData> m_logonData;
  CComPtr<CWindowProperties> m_window;
  CComPtr<CBSPParameters> m_parameters;
  OptionStore m_options;
};
