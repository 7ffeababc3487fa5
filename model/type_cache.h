// CTypeCache: what a session learnt from the dictionary (ITypeCache). Types
// are kept and handed out as they are; calls are deep-copied on the way in
// and on the way out.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_tlb.h"

// The platform's error number for a missing element, returned as a bare
// number (not a failure) by GetType and GetFunction on a miss.
inline constexpr HRESULT kCacheMiss = 1168;

class CTypeCache : public CComObjectBase<CTypeCache, IDispatchImpl<CTypeCache, ITypeCache>,
                                         ISupportErrorInfoImpl<&IID_ITypeCache>, CModelObjectImpl<CTypeCache>> {
 public:
  static const CLSID& ClassId() { return CLSID_TypeCache; }

  // ITypeCache
  HRESULT STDMETHODCALLTYPE GetType(BSTR name, IRfcType** pVal) override;
  HRESULT STDMETHODCALLTYPE AddType(BSTR name, IRfcType* type) override;
  HRESULT STDMETHODCALLTYPE Clear() override;
  HRESULT STDMETHODCALLTYPE GetFunction(BSTR name, IFunctionCall** pVal) override;
  HRESULT STDMETHODCALLTYPE AddFunction(BSTR name, IFunctionCall* call) override;
  HRESULT STDMETHODCALLTYPE SaveToXML(BSTR filename) override;
  HRESULT STDMETHODCALLTYPE LoadFromXML(BSTR filename) override;

  size_t TypeCount() const { return m_types.size(); }
  size_t FunctionCount() const { return m_functions.size(); }

 private:
  CollectionKeyMap<CComPtr<IRfcType>> m_types;
  CollectionKeyMap<CComPtr<IFunctionCall>> m_functions;
};
