// Object base for the component's classes: IUnknown with an atomic reference
// count and QueryInterface over the interfaces of the listed bases.
//
//   class CRfcType : public CComObjectBase<CRfcType, IDispatchImpl<CRfcType, IRfcType>,
//                                          ISupportErrorInfoImpl<&IID_IRfcType>> { ... };
//   CComPtr<IRfcType> t;  CRfcType::CreateInstance(&t);
#pragma once

#include "platform/oaidl.h"

#include <atomic>
#include <new>
#include <tuple>
#include <type_traits>

namespace veltrane::platform {

// Objects and server locks alive in the module; DllCanUnloadNow reads it.
VELTRANE_API void ModuleLock();
VELTRANE_API void ModuleUnlock();
VELTRANE_API LONG ModuleLockCount();

namespace detail {

template <class B, class = void>
struct interface_of {
  using type = B;
};
template <class B>
struct interface_of<B, std::void_t<typename B::interface_type>> {
  using type = typename B::interface_type;
};

template <class Itf>
bool names(REFIID riid) {
  if constexpr (std::is_void_v<Itf>) {
    return false;
  } else {
    return riid == __uuidof(Itf) || names<typename veltrane_base_of<Itf>::type>(riid);
  }
}

// A base that bundles other bases (see CComBundle).
template <class B, class = void>
struct is_bundle : std::false_type {};
template <class B>
struct is_bundle<B, std::void_t<typename B::bundled_bases>> : std::true_type {};

template <class T, class = void>
struct has_final_construct : std::false_type {};
template <class T>
struct has_final_construct<T, std::void_t<decltype(std::declval<T&>().FinalConstruct())>> : std::true_type {};

}  // namespace detail

}  // namespace veltrane::platform

// Several bases as one, for a family of classes that share them (the
// generated CoClass<Name> bases); CComObjectBase looks into it for each
// base's interface.
template <class... Bases>
class CComBundle : public Bases... {
 public:
  using bundled_bases = std::tuple<Bases*...>;
};

template <class Derived, class... Bases>
class CComObjectBase : public Bases... {
  static_assert(sizeof...(Bases) > 0, "an object implements at least one interface");

 public:
  CComObjectBase() { veltrane::platform::ModuleLock(); }
  CComObjectBase(const CComObjectBase&) = delete;
  CComObjectBase& operator=(const CComObjectBase&) = delete;
  virtual ~CComObjectBase() { veltrane::platform::ModuleUnlock(); }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (riid == IID_IUnknown) {
      *ppv = unknown();
    } else if (riid == IID_IDispatch) {
      *ppv = firstDispatch<Bases...>();
    } else {
      *ppv = find<Bases...>(riid);
    }
    if (!*ppv) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  template <class Q>
  HRESULT QueryInterface(Q** pp) {
    return QueryInterface(__uuidof(Q), reinterpret_cast<void**>(pp));
  }

  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }

  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --m_refs;
    if (left == 0) delete static_cast<Derived*>(this);
    return left;
  }

  // A new object with one reference, after its FinalConstruct succeeded.
  static HRESULT CreateInstance(Derived** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    auto* obj = new (std::nothrow) Derived();
    if (!obj) return E_OUTOFMEMORY;
    obj->m_refs = 1;
    if constexpr (veltrane::platform::detail::has_final_construct<Derived>::value) {
      HRESULT hr = obj->FinalConstruct();
      if (FAILED(hr)) {
        obj->Release();
        return hr;
      }
    }
    *pp = obj;
    return S_OK;
  }

  // A new object, returned as the interface Q.
  template <class Q>
  static HRESULT CreateInstance(Q** pp) requires(!std::is_same_v<Q, Derived>) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    Derived* obj = nullptr;
    HRESULT hr = CreateInstance(&obj);
    if (FAILED(hr)) return hr;
    hr = obj->QueryInterface(__uuidof(Q), reinterpret_cast<void**>(pp));
    obj->Release();
    return hr;
  }

  IUnknown* GetUnknown() { return unknown(); }
  ULONG RefCount() const { return m_refs.load(); }

 private:
  // The interface behind base B of `self` that riid names, or null; a bundle
  // is searched base by base.
  template <class B>
  static void* findIn(B* self, REFIID riid) {
    if constexpr (veltrane::platform::detail::is_bundle<B>::value) {
      return findInBundle(self, riid, static_cast<typename B::bundled_bases*>(nullptr));
    } else {
      using Itf = typename veltrane::platform::detail::interface_of<B>::type;
      return veltrane::platform::detail::names<Itf>(riid) ? static_cast<Itf*>(self) : nullptr;
    }
  }
  template <class B, class... Inner>
  static void* findInBundle(B* self, REFIID riid, std::tuple<Inner*...>*) {
    void* hit = nullptr;
    ((hit = hit ? hit : findIn<Inner>(static_cast<Inner*>(self), riid)), ...);
    return hit;
  }

  // The first interface of base B, or the first one that is an IDispatch.
  template <class B>
  static IUnknown* firstOf(B* self) {
    if constexpr (veltrane::platform::detail::is_bundle<B>::value) {
      return firstInBundle(self, static_cast<typename B::bundled_bases*>(nullptr));
    } else {
      using Itf = typename veltrane::platform::detail::interface_of<B>::type;
      return static_cast<Itf*>(self);
    }
  }
  template <class B, class First, class... Inner>
  static IUnknown* firstInBundle(B* self, std::tuple<First*, Inner*...>*) {
    return firstOf<First>(static_cast<First*>(self));
  }
  template <class B>
  static IDispatch* dispatchOf(B* self) {
    if constexpr (veltrane::platform::detail::is_bundle<B>::value) {
      return dispatchInBundle(self, static_cast<typename B::bundled_bases*>(nullptr));
    } else {
      using Itf = typename veltrane::platform::detail::interface_of<B>::type;
      if constexpr (std::is_base_of_v<IDispatch, Itf>)
        return static_cast<IDispatch*>(static_cast<Itf*>(self));
      else
        return nullptr;
    }
  }
  template <class B, class... Inner>
  static IDispatch* dispatchInBundle(B* self, std::tuple<Inner*...>*) {
    IDispatch* hit = nullptr;
    ((hit = hit ? hit : dispatchOf<Inner>(static_cast<Inner*>(self))), ...);
    return hit;
  }

  template <class B, class...>
  IUnknown* unknownOf() {
    return firstOf<B>(static_cast<B*>(this));
  }
  IUnknown* unknown() { return unknownOf<Bases...>(); }

  template <class B, class... Rest>
  void* find(REFIID riid) {
    if (void* hit = findIn<B>(static_cast<B*>(this), riid)) return hit;
    if constexpr (sizeof...(Rest) > 0) return find<Rest...>(riid);
    return nullptr;
  }

  template <class B, class... Rest>
  void* firstDispatch() {
    if (IDispatch* hit = dispatchOf<B>(static_cast<B*>(this))) return hit;
    if constexpr (sizeof...(Rest) > 0) return firstDispatch<Rest...>();
    return nullptr;
  }

  std::atomic<ULONG> m_refs{0};
};

// ISupportErrorInfo answering S_OK for the listed interfaces.
template <const IID*... Iids>
class ISupportErrorInfoImpl : public ISupportErrorInfo {
 public:
  using interface_type = ISupportErrorInfo;
  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) override {
    return ((riid == *Iids) || ...) ? S_OK : S_FALSE;
  }
};
