// In-process access from an interface pointer to the model's implementation
// object. The model's classes answer the private interface IModelObject;
// anything else (a client's own implementation, a proxy from another
// apartment) does not, and is then used through its public interface only.
#pragma once

#include "platform/oaidl.h"

extern "C" const IID IID_IModelObject;

struct IModelObject : IUnknown {
  // The address of the implementation when it is of class clsid, else null.
  virtual void* STDMETHODCALLTYPE ModelImplementation(REFCLSID clsid) = 0;

 protected:
  ~IModelObject() = default;
};
VELTRANE_DECLARE_IID(IModelObject, IID_IModelObject);

// Base of every model class: answers IModelObject for Derived::ClassId().
template <class Derived>
class CModelObjectImpl : public IModelObject {
 public:
  using interface_type = IModelObject;
  void* STDMETHODCALLTYPE ModelImplementation(REFCLSID clsid) override {
    return clsid == Derived::ClassId() ? static_cast<Derived*>(this) : nullptr;
  }
};

// The implementation behind p when it is one of the model's Impl objects.
// The caller keeps its own reference on p; none is added.
template <class Impl>
Impl* ModelImpl(IUnknown* p) {
  if (!p) return nullptr;
  IModelObject* m = nullptr;
  if (FAILED(p->QueryInterface(IID_IModelObject, reinterpret_cast<void**>(&m))) || !m) return nullptr;
  void* impl = m->ModelImplementation(Impl::ClassId());
  m->Release();
  return static_cast<Impl*>(impl);
}
