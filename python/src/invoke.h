// Late-bound calls: Python arguments into DISPPARAMS, IDispatch::Invoke with the
// GIL released, the result and [out] values back, failures as ComError.
#pragma once

#include "common.h"
#include "type_members.h"

namespace vpy {

// Calls member `id` (named `name`, described by `member` when the type
// information knows it). Positional and keyword arguments follow Python's
// rules; keywords are the parameter names of the member. `putValue`, when
// given, is the value of a property put. A method's [out] parameters left out
// by the caller are added; the result is then a tuple of the [retval] (when
// the method has one) and the [out] values, or the one value alone.
py::object InvokeMember(IDispatch* dispatch, DISPID id, WORD flags, const std::string& name, const Member* member,
                        const py::tuple& args, const py::dict& kwargs, py::handle putValue = py::handle());

// A call with prepared arguments (last argument first, as DISPPARAMS has them)
// into `result`; raises ComError on failure. For the many small calls of bulk
// conversions, which do not block, `releaseGil` is false.
void InvokeRaw(IDispatch* dispatch, DISPID id, WORD flags, VARIANT* argsReversed, UINT count, VARIANT* result,
               const std::string& name, bool releaseGil);

// The DISPID of a name by GetIDsOfNames, or DISPID_UNKNOWN.
DISPID IdOfName(IDispatch* dispatch, std::string_view name);

}  // namespace vpy
