// CRfcParameters: one parameter set of a call (IRfcParameters), keyed by the
// parameters' `name`.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_tlb.h"

class CRfcParameter;

class CRfcParameters
    : public CComObjectBase<CRfcParameters, IDispatchImpl<CRfcParameters, IRfcParameters>,
                            ISupportErrorInfoImpl<&IID_IRfcParameters>, CModelObjectImpl<CRfcParameters>>,
      public CComCollectMapName<IRfcParameter> {
 public:
  static const CLSID& ClassId() { return CLSID_RfcParameters; }

  // IRfcParameters
  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override { return CollGetCount(pVal); }
  HRESULT STDMETHODCALLTYPE HasKey(BSTR key, VARIANT_BOOL* pVal) override { return CollHasKey(key, pVal); }
  HRESULT STDMETHODCALLTYPE get_Item(VARIANT inIndex, IRfcParameter** pVal) override { return CollItem(inIndex, pVal); }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override { return CollNewEnum(GetUnknown(), pVal); }
  HRESULT STDMETHODCALLTYPE AddScalar(BSTR name, ABAPTYPE type, SHORT length, SHORT decimals, VARIANT value) override;
  HRESULT STDMETHODCALLTYPE AddParameter(BSTR name, IRfcType* type) override;
  HRESULT STDMETHODCALLTYPE AddTable(BSTR name, IRfcType* RowType) override;
  HRESULT STDMETHODCALLTYPE RemoveParameter(BSTR name) override;

  // The parameter added last, without a reference of its own; null if none.
  CRfcParameter* LastParameter() const;
};
