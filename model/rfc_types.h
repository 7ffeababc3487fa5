// CRfcTypes: the member types of a structure (IRfcTypes), keyed by `name`.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcTypes
    : public CComObjectBase<
          CRfcTypes,
          CoClassRfcTypes<CRfcTypes, IKeyedCollectionImpl<CRfcTypes, IRfcTypes, IRfcType, CollectionNameKey>>,
          CModelObjectImpl<CRfcTypes>> {
 public:
  // IRfcTypes
  HRESULT STDMETHODCALLTYPE Add(IRfcType* inItem) override { return CollAdd(inItem); }
  HRESULT STDMETHODCALLTYPE Remove(VARIANT inIndex) override { return CollRemove(inIndex); }
  HRESULT STDMETHODCALLTYPE RemoveAll() override {
    CollRemoveAll();
    return S_OK;
  }
};
