// IDispatch for the generated dual interfaces, driven by the dispatch table
// of the interface: late-bound calls unpack their arguments and reach the
// same virtual method as early-bound ones.
//
//   class CRfcError : public CComObjectBase<CRfcError, IDispatchImpl<CRfcError, IRfcError>,
//                                           ISupportErrorInfoImpl<&IID_IRfcError>> { ... };
#pragma once

#include "platform/com_object.h"
#include "platform/typelib.h"

namespace veltrane::dispatch {

// The entry points behind IDispatchImpl; `self` is the object seen as the
// interface of `type`.
VELTRANE_API HRESULT GetTypeInfoCount(UINT* pctinfo);
VELTRANE_API HRESULT GetTypeInfo(const tlb::TypeData& type, UINT iTInfo, ITypeInfo** ppTInfo);
VELTRANE_API HRESULT GetIDsOfNames(const tlb::TypeData& type, REFIID riid, LPOLESTR* rgszNames, UINT cNames,
                                   DISPID* rgDispId);
VELTRANE_API HRESULT Invoke(const tlb::TypeData& type, IDispatch* self, DISPID dispIdMember, REFIID riid, LCID lcid,
                            WORD wFlags, DISPPARAMS* pDispParams, VARIANT* pVarResult, EXCEPINFO* pExcepInfo,
                            UINT* puArgErr);

// The members of `type` carrying that DISPID, or null.
VELTRANE_API const tlb::MemberInfo* FindMember(const tlb::TypeData& type, DISPID dispid, INVOKEKIND kind);

}  // namespace veltrane::dispatch

template <class Derived, class Itf>
class IDispatchImpl : public Itf {
 public:
  using interface_type = Itf;

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* pctinfo) override {
    return veltrane::dispatch::GetTypeInfoCount(pctinfo);
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT iTInfo, LCID, ITypeInfo** ppTInfo) override {
    return veltrane::dispatch::GetTypeInfo(veltrane_dispatch_table<Itf>::get(), iTInfo, ppTInfo);
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID,
                                          DISPID* rgDispId) override {
    return veltrane::dispatch::GetIDsOfNames(veltrane_dispatch_table<Itf>::get(), riid, rgszNames, cNames, rgDispId);
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags, DISPPARAMS* pDispParams,
                                   VARIANT* pVarResult, EXCEPINFO* pExcepInfo, UINT* puArgErr) override {
    return veltrane::dispatch::Invoke(veltrane_dispatch_table<Itf>::get(),
                                      static_cast<IDispatch*>(static_cast<Itf*>(this)), dispIdMember, riid, lcid,
                                      wFlags, pDispParams, pVarResult, pExcepInfo, puArgErr);
  }
};

// The bases of a class behind a coclass, as one (CComBundle): Impl implements
// the default interface (an IDispatchImpl, or a class over one), the class
// answers ISupportErrorInfo for the listed interfaces, and ClassId() names
// the coclass. tools/typelibgen.py gives each coclass its alias,
// CoClass<Name><Derived, Impl> (veltrane_decl.h).
template <class Impl, const CLSID* Clsid, const IID*... ErrorInfoIids>
class CComCoClass : public CComBundle<Impl, ISupportErrorInfoImpl<ErrorInfoIids...>> {
 public:
  static const CLSID& ClassId() { return *Clsid; }
};
