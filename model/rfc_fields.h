// CRfcFields: the members of a structure value, or one table row
// (IRfcFields), keyed by the fields' `name`.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcFields
    : public CComObjectBase<
          CRfcFields,
          CoClassRfcFields<CRfcFields, IKeyedCollectionImpl<CRfcFields, IRfcFields, IRfcField, CollectionNameKey>>,
          CModelObjectImpl<CRfcFields>> {
 public:
  // IRfcFields
  HRESULT STDMETHODCALLTYPE AddField(IRfcField* field) override { return CollAdd(field); }
};
