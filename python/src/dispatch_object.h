// veltrane.Dispatch: a Python object over an IDispatch. Attributes, calls,
// indexing, iteration and dir() go through GetIDsOfNames, Invoke and the type
// information, never through the vtable of an interface of the library.
#pragma once

#include "common.h"
#include "type_members.h"

#include <memory>
#include <unordered_map>

namespace vpy {

class DispatchObject {
 public:
  explicit DispatchObject(CComPtr<IDispatch> dispatch);
  ~DispatchObject();
  DispatchObject(const DispatchObject&) = delete;
  DispatchObject& operator=(const DispatchObject&) = delete;

  IDispatch* get() const { return m_dispatch; }
  // The type information's members; null when the object has none.
  const std::shared_ptr<const TypeMembers>& members();
  // "ISoapSession", or "object" without type information.
  std::string typeName();
  // GetIDsOfNames, remembered per object; DISPID_UNKNOWN for an unknown name.
  DISPID idOf(const std::string& name);

 private:
  CComPtr<IDispatch> m_dispatch;
  bool m_membersRead = false;
  std::shared_ptr<const TypeMembers> m_members;
  std::unordered_map<std::string, DISPID> m_ids;
};

// A new veltrane.Dispatch over the pointer.
py::object WrapDispatch(CComPtr<IDispatch> dispatch);
// The IDispatch of a veltrane.Dispatch (or of a subclass), else null. Borrowed.
IDispatch* DispatchOf(py::handle value);

// Identity as COM defines it: the IUnknown of both objects is the same pointer.
bool SameObject(IUnknown* a, IUnknown* b);
size_t IdentityHash(IUnknown* object);

// Creates an object of the library by ProgID ("Veltrane.SoapSession") or by
// class id ("{334E20D8-...}").
CComPtr<IDispatch> CreateObject(const std::string& progIdOrClsid);

void RegisterDispatch(py::module_& m);

}  // namespace vpy
