// CRfcParameters: one parameter set of a call (IRfcParameters), keyed by the
// parameters' `name`.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcParameter;

class CRfcParameters
    : public CComObjectBase<
          CRfcParameters,
          CoClassRfcParameters<CRfcParameters,
                               IKeyedCollectionImpl<CRfcParameters, IRfcParameters, IRfcParameter, CollectionNameKey>>,
          CModelObjectImpl<CRfcParameters>> {
 public:
  // IRfcParameters
  HRESULT STDMETHODCALLTYPE AddScalar(BSTR name, ABAPTYPE type, SHORT length, SHORT decimals, VARIANT value) override;
  HRESULT STDMETHODCALLTYPE AddParameter(BSTR name, IRfcType* type) override;
  HRESULT STDMETHODCALLTYPE AddTable(BSTR name, IRfcType* RowType) override;
  HRESULT STDMETHODCALLTYPE RemoveParameter(BSTR name) override;

  // The parameter added last, without a reference of its own; null if none.
  CRfcParameter* LastParameter() const;
};
