// CTypeCache: what a session learnt from the dictionary (ITypeCache). Types
// are kept and handed out as they are; calls are deep-copied on the way in
// and on the way out.
#pragma once

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

// The platform's error number for a missing element, returned as a bare
// number (not a failure) by GetType and GetFunction on a miss.
inline constexpr HRESULT kCacheMiss = 1168;

class CTypeCache : public CComObjectBase<CTypeCache, CoClassTypeCache<CTypeCache>, CModelObjectImpl<CTypeCache>> {
 public:
  // ITypeCache
  VELTRANE_DECL_ITYPECACHE

  size_t TypeCount() const { return m_types.size(); }
  size_t FunctionCount() const { return m_functions.size(); }

 private:
  CollectionKeyMap<CComPtr<IRfcType>> m_types;
  CollectionKeyMap<CComPtr<IFunctionCall>> m_functions;
};
