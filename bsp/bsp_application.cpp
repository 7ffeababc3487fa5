#include "bsp/bsp_application.h"

#include <new>

#include "bsp/bsp_url.h"
#include "runtime/about_box.h"
#include "runtime/desktop.h"
#include "runtime/environment.h"
#include "runtime/exceptions.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"

namespace {

std::u16string TextOf(HRESULT (STDMETHODCALLTYPE IHttpSystemData::*get)(BSTR*), IHttpSystemData* data) {
  CComBSTR text;
  if (FAILED((data->*get)(&text))) throw CXCOMError(E_OUTOFMEMORY);
  return std::u16string(BstrView(text));
}

}  // namespace

HRESULT CBSPApplication::FinalConstruct() {
  HRESULT hr = CHttpSystemData::CreateInstance(&m_systemData);
  if (SUCCEEDED(hr)) hr = CLogonData::CreateInstance(&m_logonData);
  if (SUCCEEDED(hr)) hr = CWindowProperties::CreateInstance(&m_window);
  if (SUCCEEDED(hr)) hr = CBSPParameters::CreateInstance(&m_parameters);
  return hr;
}

HRESULT CBSPApplication::get_HttpSystemData(IHttpSystemData** pVal) {
  if (!pVal) return E_POINTER;
  return m_systemData->QueryInterface(pVal);
}

HRESULT CBSPApplication::get_LogonData(ILogonData** pVal) {
  if (!pVal) return E_POINTER;
  return m_logonData->QueryInterface(pVal);
}

HRESULT CBSPApplication::get_Window(IWindowProperties** pVal) {
  if (!pVal) return E_POINTER;
  return m_window->QueryInterface(pVal);
}

HRESULT CBSPApplication::get_Parameters(IBSPParameters** pVal) {
  if (!pVal) return E_POINTER;
  return m_parameters->QueryInterface(pVal);
}

HRESULT CBSPApplication::About() {
  veltrane::runtime::ShowAboutBox();
  return S_OK;
}

HRESULT CBSPApplication::ShowApplication(BSTR application, BSTR exitPage) {
  try {
    return Show(BstrView(application), BstrView(exitPage));
  } catch (const CXCOMError& e) {
    return e.Result();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT CBSPApplication::Show(std::u16string_view application, std::u16string_view exitPage) {
  using namespace veltrane;
  bsp::UrlSource source;
  source.protocol = TextOf(&IHttpSystemData::get_Protocol, m_systemData);
  source.host = TextOf(&IHttpSystemData::get_Host, m_systemData);
  m_systemData->get_Port(&source.port);
  source.client = m_logonData->Client();
  source.language = m_logonData->Language();
  source.parameters = m_parameters->Pairs();

  runtime::BrowserWindowSpec spec;
  spec.url = bsp::BuildUrl(application, source);
  spec.exitPage = exitPage;
  spec.user = m_logonData->User();
  spec.password = m_logonData->Password();
  spec.ticket = m_logonData->SSO2Ticket();

  std::u16string failure;
  int screenWidth = 0, screenHeight = 0;
  HRESULT hr = runtime::DesktopScreenSize(&screenWidth, &screenHeight, &failure);
  if (FAILED(hr)) return ReportError(CLSID_BSPApplication, failure.c_str(), hr);
  const bsp::WindowRect rect = bsp::TargetRectangle(screenWidth, screenHeight, m_window->Left(), m_window->Top(),
                                                    m_window->Width(), m_window->Height());
  spec.left = rect.left;
  spec.top = rect.top;
  spec.right = rect.right;
  spec.bottom = rect.bottom;
  spec.title = m_window->Title();
  spec.iconPath = m_window->IconPath();
  spec.closeWarning = m_window->CloseWarning();

  const std::u16string traceFile = m_options.Value(u"trace.file");
  if (!traceFile.empty()) TraceOpen(u"Veltrane", ExpandEnvironment(traceFile, kMaxPath), true);
  Trace(u"CBSPApplication->ShowApplication(): application=%s url=%s exit=%s user=%s\n", application, spec.url, exitPage,
        spec.user);

  std::u16string finalUrl;
  hr = runtime::RunBrowserWindow(spec, &finalUrl, &failure);
  if (FAILED(hr)) return ReportError(CLSID_BSPApplication, failure.c_str(), hr);
  Trace(u"CBSPApplication->ShowApplication(): returned from modal popup\n");

  for (const bsp::ReturnedParameter& p : bsp::ReturnedParameters(finalUrl)) {
    CComBSTR name(p.name.c_str()), value(p.value.c_str());
    if (!name || !value) throw CXCOMError(E_OUTOFMEMORY);
    hr = m_parameters->AddParameter(name, value);
    if (FAILED(hr)) return hr;
    if (p.traced) Trace(u"returned parameter %s=%s\n", p.name, p.value);
  }
  return S_OK;
}
