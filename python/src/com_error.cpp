#include "com_error.h"

#include <text.h>

namespace vpy {

namespace {

py::object Text(BSTR text) {
  return text && SysStringLen(text) > 0 ? py::object(FromBstr(text)) : py::object(py::none());
}

[[noreturn]] void Raise(py::object error) {
  PyErr_SetObject(ComErrorClass().ptr(), error.ptr());
  throw py::error_already_set();
}

}  // namespace

py::handle ComErrorClass() {
  // Kept for the life of the process: the module is never unloaded.
  static PyObject* cls = py::object(py::module_::import("veltrane._errors").attr("ComError")).release().ptr();
  return cls;
}

void ThrowComError(HRESULT hr, const std::string& context) {
  std::string description = veltrane::cli::toUtf8(HResultMessage(hr));
  if (!context.empty()) description = context + ": " + description;
  Raise(ComErrorClass()(static_cast<uint32_t>(hr), description));
}

void ThrowInvokeError(HRESULT hr, EXCEPINFO& info, py::object argerr, const std::string& member) {
  if (hr == DISP_E_EXCEPTION) {
    if (info.pfnDeferredFillIn) info.pfnDeferredFillIn(&info);
    HRESULT code = info.scode;
    if (code == S_OK) code = info.wCode ? MAKE_HRESULT(SEVERITY_ERROR, FACILITY_ITF, info.wCode) : hr;
    py::object description = Text(info.bstrDescription);
    if (description.is_none()) description = py::str(veltrane::cli::toUtf8(HResultMessage(code)));
    py::object source = Text(info.bstrSource), helpfile = Text(info.bstrHelpFile);
    const DWORD context = info.dwHelpContext;
    SysFreeString(info.bstrSource);
    SysFreeString(info.bstrDescription);
    SysFreeString(info.bstrHelpFile);
    info = EXCEPINFO{};
    Raise(ComErrorClass()(static_cast<uint32_t>(code), description, source, helpfile, context, argerr, member));
  }
  Raise(ComErrorClass()(static_cast<uint32_t>(hr), veltrane::cli::toUtf8(HResultMessage(hr)), py::none(), py::none(), 0,
                        argerr, member));
}

}  // namespace vpy
