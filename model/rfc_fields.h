// CRfcFields: the members of a structure value, or one table row
// (IRfcFields), keyed by the fields' `name`.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_tlb.h"

class CRfcFields : public CComObjectBase<CRfcFields, IDispatchImpl<CRfcFields, IRfcFields>,
                                         ISupportErrorInfoImpl<&IID_IRfcFields>, CModelObjectImpl<CRfcFields>>,
                   public CComCollectMapName<IRfcField> {
 public:
  static const CLSID& ClassId() { return CLSID_RfcFields; }

  // IRfcFields
  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override { return CollGetCount(pVal); }
  HRESULT STDMETHODCALLTYPE HasKey(BSTR key, VARIANT_BOOL* pVal) override { return CollHasKey(key, pVal); }
  HRESULT STDMETHODCALLTYPE get_Item(VARIANT inIndex, IRfcField** pVal) override { return CollItem(inIndex, pVal); }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override { return CollNewEnum(GetUnknown(), pVal); }
  HRESULT STDMETHODCALLTYPE AddField(IRfcField* field) override { return CollAdd(field); }
};
