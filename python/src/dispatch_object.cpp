#include "dispatch_object.h"

#include <algorithm>
#include <functional>
#include <set>
#include <vector>

#include <text.h>

#include "apartment.h"
#include "com_error.h"
#include "gil.h"
#include "invoke.h"
#include "variant_convert.h"

namespace vpy {

namespace {

// A member taken as an attribute that is not read at once: a method, or a
// property with arguments. Called, it invokes; indexed, it reads or writes
// the property with the index as arguments.
struct BoundMember {
  py::object owner;  // the Dispatch, kept alive
  std::shared_ptr<const TypeMembers> type;
  const Member* member;  // within `type`; null without type information
  DISPID id;
  std::string name;
};

// Iteration over IEnumVARIANT, a batch at a time.
class Enumerator {
 public:
  explicit Enumerator(CComPtr<IEnumVARIANT> items) : m_items(std::move(items)) {}
  ~Enumerator() { clear(); }
  Enumerator(const Enumerator&) = delete;
  Enumerator& operator=(const Enumerator&) = delete;

  py::object next() {
    if (m_next == m_count) {
      clear();
      ULONG fetched = 0;
      HRESULT hr;
      {
        GilReleased released;
        hr = m_items->Next(kBatch, m_batch, &fetched);
      }
      if (FAILED(hr)) ThrowComError(hr, "iterating");
      m_count = fetched;
      if (m_count == 0) throw py::stop_iteration();
    }
    VARIANT& item = m_batch[m_next++];
    py::object value = FromVariant(item);
    VariantClear(&item);
    return value;
  }

 private:
  static constexpr ULONG kBatch = 64;
  void clear() {
    for (ULONG i = m_next; i < m_count; ++i) VariantClear(&m_batch[i]);
    m_next = m_count = 0;
  }
  CComPtr<IEnumVARIANT> m_items;
  VARIANT m_batch[kBatch];
  ULONG m_next = 0, m_count = 0;
};

const py::tuple& NoArgs() {
  static const py::tuple* none = new py::tuple();
  return *none;
}
const py::dict& NoKeywords() {
  static const py::dict* none = new py::dict();
  return *none;
}

DispatchObject& Self(py::handle self) { return self.cast<DispatchObject&>(); }

bool IsComError(py::error_already_set& e, std::initializer_list<HRESULT> codes) {
  if (!e.matches(ComErrorClass())) return false;
  const auto hr = static_cast<HRESULT>(e.value().attr("hresult").cast<uint32_t>());
  return std::find(codes.begin(), codes.end(), hr) != codes.end();
}

py::tuple ArgsOfKey(py::handle key) {
  if (py::isinstance<py::tuple>(key)) return py::reinterpret_borrow<py::tuple>(key);
  return py::make_tuple(key);
}

py::object Bind(py::object self, const std::shared_ptr<const TypeMembers>& type, const Member* m, DISPID id,
                const std::string& name) {
  return py::cast(BoundMember{std::move(self), type, m, id, name});
}

// A member's value when it is a property that needs no argument, else the bound member.
py::object Resolve(py::object self, const std::shared_ptr<const TypeMembers>& type, const Member& m) {
  if (m.get && !m.method && m.getRequired == 0)
    return InvokeMember(Self(self).get(), m.dispid, DISPATCH_PROPERTYGET, m.name, &m, NoArgs(), NoKeywords());
  return Bind(std::move(self), type, &m, m.dispid, m.name);
}

py::object GetAttribute(py::object self, const std::string& name) {
  if (name.size() >= 2 && name[0] == '_' && name[1] == '_') throw py::attribute_error(name);
  DispatchObject& object = Self(self);
  const auto type = object.members();
  if (type)
    if (const Member* m = type->Find(name)) return Resolve(self, type, *m);
  const DISPID id = object.idOf(name);
  if (id == DISPID_UNKNOWN)
    throw py::attribute_error("'" + object.typeName() + "' object has no member '" + name + "'");
  if (type)
    if (const Member* m = type->FindId(id)) return Resolve(self, type, *m);
  // Without type information: a get that needs no argument gives its value,
  // anything else stays callable.
  try {
    return InvokeMember(object.get(), id, DISPATCH_METHOD | DISPATCH_PROPERTYGET, name, nullptr, NoArgs(),
                        NoKeywords());
  } catch (py::error_already_set& e) {
    if (IsComError(e, {DISP_E_BADPARAMCOUNT, DISP_E_PARAMNOTOPTIONAL})) return Bind(self, nullptr, nullptr, id, name);
    throw;
  }
}

void SetAttribute(py::object self, const py::str& nameObject, py::object value) {
  const std::string name = nameObject;
  DispatchObject& object = Self(self);
  if (!name.empty() && name[0] != '_') {
    const auto type = object.members();
    const Member* m = type ? type->Find(name) : nullptr;
    DISPID id = m ? m->dispid : object.idOf(name);
    if (!m && type && id != DISPID_UNKNOWN) m = type->FindId(id);
    if (id != DISPID_UNKNOWN) {
      if (m && !m->put && !m->putref)
        throw py::attribute_error("'" + m->name + "' of '" + object.typeName() + "' cannot be set");
      const bool byReference = m && m->putref && (!m->put || DispatchOf(value));
      InvokeMember(object.get(), id, byReference ? DISPATCH_PROPERTYPUTREF : DISPATCH_PROPERTYPUT, m ? m->name : name,
                   m, NoArgs(), NoKeywords(), value);
      return;
    }
  }
  if (PyObject_GenericSetAttr(self.ptr(), nameObject.ptr(), value.ptr()) != 0) throw py::error_already_set();
}

std::string DefaultName(DispatchObject& object) {
  if (const auto& type = object.members())
    if (const Member* m = type->FindId(DISPID_VALUE)) return m->name;
  return "value";
}

py::object Iterate(py::object self) {
  DispatchObject& object = Self(self);
  VARIANT result;
  VariantInit(&result);
  try {
    InvokeRaw(object.get(), DISPID_NEWENUM, DISPATCH_METHOD | DISPATCH_PROPERTYGET, nullptr, 0, &result, "_NewEnum",
              true);
  } catch (py::error_already_set& e) {
    if (IsComError(e, {DISP_E_MEMBERNOTFOUND, DISP_E_UNKNOWNNAME}))
      throw py::type_error("'" + object.typeName() + "' object is not iterable");
    throw;
  }
  CComPtr<IEnumVARIANT> items;
  IUnknown* source = result.vt == VT_UNKNOWN ? result.punkVal : result.vt == VT_DISPATCH ? result.pdispVal : nullptr;
  const HRESULT hr =
      source ? source->QueryInterface(IID_IEnumVARIANT, reinterpret_cast<void**>(&items)) : E_NOINTERFACE;
  VariantClear(&result);
  Check(hr, "iterating over " + object.typeName());
  return py::cast(std::make_unique<Enumerator>(std::move(items)));
}

}  // namespace

DispatchObject::DispatchObject(CComPtr<IDispatch> dispatch) : m_dispatch(std::move(dispatch)) {}

DispatchObject::~DispatchObject() {
  IDispatch* dispatch = m_dispatch.Detach();
  if (!dispatch) return;
  // The last reference may end a session, which can wait for the network.
  if (Py_IsInitialized() && PyGILState_Check()) {
    GilReleased released;
    dispatch->Release();
  } else {
    dispatch->Release();
  }
}

const std::shared_ptr<const TypeMembers>& DispatchObject::members() {
  if (!m_membersRead) {
    m_members = MembersOf(m_dispatch);
    m_membersRead = true;
  }
  return m_members;
}

std::string DispatchObject::typeName() {
  const auto& type = members();
  return type ? type->typeName : "object";
}

DISPID DispatchObject::idOf(const std::string& name) {
  const std::string key = veltrane::cli::upperAscii(name);
  auto it = m_ids.find(key);
  if (it != m_ids.end()) return it->second;
  const DISPID id = IdOfName(m_dispatch, name);
  m_ids.emplace(key, id);
  return id;
}

py::object WrapDispatch(CComPtr<IDispatch> dispatch) {
  return py::cast(std::make_unique<DispatchObject>(std::move(dispatch)));
}

IDispatch* DispatchOf(py::handle value) {
  if (!py::isinstance<DispatchObject>(value)) return nullptr;
  return value.cast<DispatchObject&>().get();
}

bool SameObject(IUnknown* a, IUnknown* b) {
  if (!a || !b) return a == b;
  CComPtr<IUnknown> ua, ub;
  a->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&ua));
  b->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&ub));
  return ua.p == ub.p;
}

size_t IdentityHash(IUnknown* object) {
  CComPtr<IUnknown> identity;
  if (object) object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity));
  return std::hash<const void*>()(identity.p);
}

CComPtr<IDispatch> CreateObject(const std::string& progIdOrClsid) {
  EnsureApartment();
  const std::u16string name = veltrane::cli::toUtf16(progIdOrClsid);
  CLSID clsid{};
  HRESULT hr =
      !name.empty() && name[0] == u'{' ? CLSIDFromString(name.c_str(), &clsid) : CLSIDFromProgID(name.c_str(), &clsid);
  Check(hr, "no class '" + progIdOrClsid + "'");
  CComPtr<IDispatch> dispatch;
  {
    GilReleased released;
    hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, reinterpret_cast<void**>(&dispatch));
  }
  Check(hr, "creating " + progIdOrClsid);
  return dispatch;
}

void RegisterDispatch(py::module_& m) {
  py::class_<Enumerator>(m, "_Enumerator")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &Enumerator::next);

  py::class_<BoundMember>(m, "BoundMember",
                          "A method, or a property with arguments, of a Dispatch: call it, or index it\n"
                          "to read (obj.Option['trace.file']) and write (obj.Option['trace.file'] = ...).")
      .def("__call__",
           [](BoundMember& b, py::args args, py::kwargs kwargs) {
             const WORD flags = b.member && b.member->method ? DISPATCH_METHOD : DISPATCH_METHOD | DISPATCH_PROPERTYGET;
             return InvokeMember(DispatchOf(b.owner), b.id, flags, b.name, b.member, args, kwargs);
           })
      .def("__getitem__",
           [](BoundMember& b, py::handle key) {
             return InvokeMember(DispatchOf(b.owner), b.id, DISPATCH_PROPERTYGET, b.name, b.member, ArgsOfKey(key),
                                 NoKeywords());
           })
      .def("__setitem__",
           [](BoundMember& b, py::handle key, py::object value) {
             const bool byReference = b.member && b.member->putref && (!b.member->put || DispatchOf(value));
             InvokeMember(DispatchOf(b.owner), b.id, byReference ? DISPATCH_PROPERTYPUTREF : DISPATCH_PROPERTYPUT,
                          b.name, b.member, ArgsOfKey(key), NoKeywords(), value);
           })
      .def("__repr__",
           [](BoundMember& b) { return "<veltrane.BoundMember " + Self(b.owner).typeName() + "." + b.name + ">"; });

  py::class_<DispatchObject>(m, "Dispatch",
                             "An object of Veltrane, reached late-bound through IDispatch.\n\n"
                             "Dispatch('Veltrane.SoapSession') creates one by ProgID (or by class id in braces).\n"
                             "Member names are case-insensitive; properties read and write as attributes,\n"
                             "methods and properties with arguments are called or indexed, obj(...) and obj[...]\n"
                             "reach the default member, iteration goes through _NewEnum, and len() reads Count.")
      .def(py::init([](py::handle source) -> std::unique_ptr<DispatchObject> {
             if (PyUnicode_Check(source.ptr()))
               return std::make_unique<DispatchObject>(CreateObject(source.cast<std::string>()));
             if (IDispatch* dispatch = DispatchOf(source))
               return std::make_unique<DispatchObject>(CComPtr<IDispatch>(dispatch));
             if (py::isinstance<UnknownObject>(source)) {
               CComPtr<IDispatch> dispatch;
               IUnknown* unknown = source.cast<const UnknownObject&>().unknown;
               Check(unknown ? unknown->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&dispatch)) : E_POINTER,
                     "asking the object for IDispatch");
               return std::make_unique<DispatchObject>(std::move(dispatch));
             }
             throw py::type_error("Dispatch() takes a ProgID, a class id or another object of Veltrane");
           }),
           py::arg("source"))
      .def("__getattr__", &GetAttribute)
      .def("__setattr__", &SetAttribute)
      .def("__dir__",
           [](py::object self) {
             std::set<std::string> names;
             if (const auto& type = Self(self).members())
               for (const Member& m : type->members)
                 if (!m.hidden && !m.name.empty()) names.insert(m.name);
             py::list all;
             for (const auto& n : names) all.append(n);
             for (py::handle n : py::module_::import("builtins").attr("object").attr("__dir__")(self)) all.append(n);
             return all;
           })
      .def("__call__",
           [](py::object self, py::args args, py::kwargs kwargs) {
             DispatchObject& object = Self(self);
             const auto& type = object.members();
             const Member* m = type ? type->FindId(DISPID_VALUE) : nullptr;
             return InvokeMember(object.get(), DISPID_VALUE, DISPATCH_METHOD | DISPATCH_PROPERTYGET,
                                 DefaultName(object), m, args, kwargs);
           })
      .def("__getitem__",
           [](py::object self, py::handle key) {
             DispatchObject& object = Self(self);
             return InvokeMember(object.get(), DISPID_VALUE, DISPATCH_PROPERTYGET, DefaultName(object), nullptr,
                                 ArgsOfKey(key), NoKeywords());
           })
      .def("__setitem__",
           [](py::object self, py::handle key, py::object value) {
             DispatchObject& object = Self(self);
             InvokeMember(object.get(), DISPID_VALUE, DISPATCH_PROPERTYPUT, DefaultName(object), nullptr,
                          ArgsOfKey(key), NoKeywords(), value);
           })
      .def("__iter__", &Iterate)
      .def("__len__",
           [](py::object self) {
             DispatchObject& object = Self(self);
             const DISPID id = object.idOf("Count");
             if (id == DISPID_UNKNOWN) throw py::type_error("'" + object.typeName() + "' object has no len()");
             return InvokeMember(object.get(), id, DISPATCH_PROPERTYGET, "Count", nullptr, NoArgs(), NoKeywords())
                 .cast<size_t>();
           })
      .def("__bool__", [](py::object) { return true; })
      .def("__eq__",
           [](py::object self, py::handle other) {
             IDispatch* b = DispatchOf(other);
             return b != nullptr && SameObject(Self(self).get(), b);
           })
      .def("__hash__", [](py::object self) { return IdentityHash(Self(self).get()); })
      .def("__repr__", [](py::object self) {
        char address[32];
        std::snprintf(address, sizeof address, "%p", static_cast<void*>(Self(self).get()));
        return "<veltrane.Dispatch " + Self(self).typeName() + " at " + address + ">";
      });
}

}  // namespace vpy
