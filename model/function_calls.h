// CFunctionCalls: calls keyed by their `Function` (IFunctionCalls), the
// registered functions of a server. The key is read when a call is added.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CFunctionCalls
    : public CComObjectBase<
          CFunctionCalls,
          CoClassFunctionCalls<CFunctionCalls, IKeyedCollectionImpl<CFunctionCalls, IFunctionCalls, IFunctionCall,
                                                                    CollectionFunctionKey>>,
          CModelObjectImpl<CFunctionCalls>> {
 public:
  // IFunctionCalls
  HRESULT STDMETHODCALLTYPE AddFunction(IFunctionCall* fn) override { return CollAdd(fn); }
};
