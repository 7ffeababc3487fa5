// Reading a type description: straight from the model's own CRfcType, or
// through IRfcType for any other implementation.
#pragma once

#include <string_view>

#include "platform/atlbase.h"
#include "veltrane_tlb.h"

class CRfcType;
class CRfcTypes;

HRESULT TypeKind(IRfcType* type, RFCTYPEKIND* kind);
HRESULT TypeScalarType(IRfcType* type, ABAPTYPE* scalarType);

// The name of a type as a view; holder keeps a copy when one was needed.
HRESULT TypeName(IRfcType* type, CComBSTR& holder, std::u16string_view* name);

// The member types of a structure, by 0-based position.
class TypeMembers {
 public:
  HRESULT Open(IRfcType* type);
  LONG Count() const { return m_count; }
  // The member at a position; the reference lives as long as `holder`.
  HRESULT At(LONG zeroBased, CComPtr<IRfcType>& holder, IRfcType** member) const;

 private:
  CRfcTypes* m_direct = nullptr;
  CComPtr<IRfcTypes> m_members;
  LONG m_count = 0;
};
