// Failed results of the library as Python exceptions: veltrane.ComError with
// the result code and what EXCEPINFO or the platform says about it.
#pragma once

#include "common.h"

namespace vpy {

// Raises ComError for hr; `context` says what was being done ("creating Veltrane.SoapSession").
[[noreturn]] void ThrowComError(HRESULT hr, const std::string& context = {});

// Raises ComError for a failed IDispatch::Invoke. For DISP_E_EXCEPTION the result,
// description, source, help file and help context come from `info`, whose strings
// are freed. `argerr` names the offending argument (its Python position or keyword), or is None.
[[noreturn]] void ThrowInvokeError(HRESULT hr, EXCEPINFO& info, py::object argerr, const std::string& member);

inline void Check(HRESULT hr, const std::string& context) {
  if (FAILED(hr)) ThrowComError(hr, context);
}

// The class veltrane.ComError.
py::handle ComErrorClass();

}  // namespace vpy
