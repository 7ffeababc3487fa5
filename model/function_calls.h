// CFunctionCalls: calls keyed by their `Function` (IFunctionCalls), the
// registered functions of a server. The key is read when a call is added.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_tlb.h"

class CFunctionCalls
    : public CComObjectBase<CFunctionCalls, IDispatchImpl<CFunctionCalls, IFunctionCalls>,
                            ISupportErrorInfoImpl<&IID_IFunctionCalls>, CModelObjectImpl<CFunctionCalls>>,
      public CComCollectMapCustom<IFunctionCall> {
 public:
  static const CLSID& ClassId() { return CLSID_FunctionCalls; }

  // IFunctionCalls
  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override { return CollGetCount(pVal); }
  HRESULT STDMETHODCALLTYPE HasKey(BSTR key, VARIANT_BOOL* pVal) override { return CollHasKey(key, pVal); }
  HRESULT STDMETHODCALLTYPE get_Item(VARIANT inIndex, IFunctionCall** pVal) override { return CollItem(inIndex, pVal); }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override { return CollNewEnum(GetUnknown(), pVal); }
  HRESULT STDMETHODCALLTYPE AddFunction(IFunctionCall* fn) override { return CollAdd(fn); }
};
