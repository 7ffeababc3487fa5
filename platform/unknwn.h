// IUnknown and the interface-id lookup used by the smart pointers.
#pragma once

#include "wtypes.h"

#include <type_traits>

struct IUnknown {
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) = 0;
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;

  template <class Q>
  HRESULT QueryInterface(Q** pp);

 protected:
  ~IUnknown() = default;
};
typedef IUnknown* LPUNKNOWN;

// __uuidof(Interface): every interface declares its id through
// VELTRANE_DECLARE_IID(Interface, IID_Interface).
template <class T>
struct veltrane_iid_of;
#define VELTRANE_DECLARE_IID(itf, iid)      \
  template <>                               \
  struct veltrane_iid_of<itf> {             \
    static const IID& get() { return iid; } \
  }
#define __uuidof(T) (::veltrane_iid_of<std::remove_cv_t<std::remove_pointer_t<std::remove_cvref_t<T>>>>::get())

extern VELTRANE_API const IID IID_IUnknown;
VELTRANE_DECLARE_IID(IUnknown, IID_IUnknown);

// The interface an interface derives from; IUnknown unless specialised.
template <class T>
struct veltrane_base_of {
  using type = IUnknown;
};
template <>
struct veltrane_base_of<IUnknown> {
  using type = void;
};

template <class Q>
HRESULT IUnknown::QueryInterface(Q** pp) {
  return QueryInterface(__uuidof(Q), reinterpret_cast<void**>(pp));
}
#define IID_PPV_ARGS(pp) __uuidof(**(pp)), reinterpret_cast<void**>(pp)
