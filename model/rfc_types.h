// CRfcTypes: the member types of a structure (IRfcTypes), keyed by `name`.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_tlb.h"

class CRfcTypes : public CComObjectBase<CRfcTypes, IDispatchImpl<CRfcTypes, IRfcTypes>,
                                        ISupportErrorInfoImpl<&IID_IRfcTypes>, CModelObjectImpl<CRfcTypes>>,
                  public CComCollectMapName<IRfcType> {
 public:
  static const CLSID& ClassId() { return CLSID_RfcTypes; }

  // IRfcTypes
  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override { return CollGetCount(pVal); }
  HRESULT STDMETHODCALLTYPE Add(IRfcType* inItem) override { return CollAdd(inItem); }
  HRESULT STDMETHODCALLTYPE Remove(VARIANT inIndex) override { return CollRemove(inIndex); }
  HRESULT STDMETHODCALLTYPE RemoveAll() override {
    CollRemoveAll();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE HasKey(BSTR key, VARIANT_BOOL* pVal) override { return CollHasKey(key, pVal); }
  HRESULT STDMETHODCALLTYPE get_Item(VARIANT inIndex, IRfcType** pVal) override { return CollItem(inIndex, pVal); }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override { return CollNewEnum(GetUnknown(), pVal); }
};
