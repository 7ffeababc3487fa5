// The extension module veltrane._veltrane. The package veltrane (Python) builds
// its public names on it.
#include "common.h"

#include <pybind11/stl.h>

#include <table_plan.h>
#include <text.h>

#include "abap_values.h"
#include "apartment.h"
#include "com_error.h"
#include "dispatch_object.h"
#include "event_sink.h"
#include "gil.h"
#include "variant_convert.h"

namespace vpy {

namespace {

// The enumerations of the type library: {"ABAPTYPE": {"TYPE_CHAR": 0, ...}, ...}.
py::dict LibraryEnumerations() {
  CComPtr<ITypeLib> library;
  Check(LoadRegTypeLib(LIBID_VELTRANELib, VELTRANELib_MAJOR, VELTRANELib_MINOR, 0, &library),
        "loading the type library");
  py::dict enums;
  const UINT count = library->GetTypeInfoCount();
  for (UINT i = 0; i < count; ++i) {
    TYPEKIND kind{};
    if (FAILED(library->GetTypeInfoType(i, &kind)) || kind != TKIND_ENUM) continue;
    CComPtr<ITypeInfo> info;
    Check(library->GetTypeInfo(i, &info), "reading the type library");
    TYPEATTR* attr = nullptr;
    Check(info->GetTypeAttr(&attr), "reading the type library");
    BSTR enumName = nullptr;
    info->GetDocumentation(MEMBERID_NIL, &enumName, nullptr, nullptr, nullptr);
    py::dict values;
    for (UINT v = 0; v < attr->cVars; ++v) {
      VARDESC* var = nullptr;
      if (FAILED(info->GetVarDesc(v, &var))) continue;
      BSTR name = nullptr;
      UINT names = 0;
      if (SUCCEEDED(info->GetNames(var->memid, &name, 1, &names)) && names == 1 && var->varkind == VAR_CONST)
        values[FromBstr(name)] = FromVariant(*var->lpvarValue);
      SysFreeString(name);
      info->ReleaseVarDesc(var);
    }
    enums[FromBstr(enumName)] = values;
    SysFreeString(enumName);
    info->ReleaseTypeAttr(attr);
  }
  return enums;
}

}  // namespace

}  // namespace vpy

PYBIND11_MODULE(_veltrane, m) {
  using namespace vpy;
  m.doc() = "Veltrane's late-bound object model: Dispatch, events, values.";
  RegisterVariantTypes(m);
  RegisterDispatch(m);
  RegisterEvents(m);
  RegisterAbapValues(m);

  m.def(
      "_shutdown",
      [] {
        CloseGil();
        ShutDownEvents();
      },
      "At exit: only this thread takes the GIL from now on; event hand-overs end.");
  m.def("pump", &Pump, py::arg("timeout") = 0.0,
        "Runs the calls queued for this thread's apartment (event handlers among them), waiting up to\n"
        "`timeout` seconds (None: without limit) for the first. Returns how many ran.");
  m.def(
      "initialize", [](bool multithreaded) { InitializeThread(multithreaded); }, py::arg("multithreaded") = false,
      "Chooses this thread's apartment before its first use: single-threaded (the default) or multithreaded.");
  m.def("apartment", &ApartmentKind, "'sta', 'mta', or None when this thread has not used Veltrane yet.");
  m.def("enumerations", &LibraryEnumerations, "The enumerations of the type library VELTRANELib.");
  m.def(
      "can_unload", [] { return DllCanUnloadNow() == S_OK; },
      "True when no object of the library is alive (the library could be unloaded).");
  m.def(
      "hresult_message", [](uint32_t hr) { return veltrane::cli::toUtf8(HResultMessage(static_cast<HRESULT>(hr))); },
      py::arg("hresult"), "The platform's text of a result code.");

  // The table-reading plan of the veltrane command.
  m.def(
      "selection_lines",
      [](const std::vector<std::string>& conditions) { return veltrane::cli::selectionLines(conditions); },
      py::arg("conditions"), "Conditions joined with AND and broken into lines of the width RFC_READ_TABLE takes.");
  m.def(
      "field_list", [](const std::vector<std::string>& options) { return veltrane::cli::fieldList(options); },
      py::arg("options"), "'A,B , c' and repeated entries into upper-case field names.");
  m.def(
      "split_fields",
      [](const std::vector<std::pair<std::string, int>>& fields) {
        std::vector<veltrane::cli::FieldLayout> layout;
        for (const auto& [name, length] : fields) layout.push_back({name, length, ""});
        return veltrane::cli::splitFields(layout);
      },
      py::arg("fields"),
      "Splits (name, length) pairs, in order, into groups of indexes whose data fits one line of\n"
      "RFC_READ_TABLE (512 characters, one more per field for the delimiter).");
}
