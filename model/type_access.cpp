#include "model/type_access.h"

#include "model/collection.h"
#include "model/rfc_type.h"
#include "model/rfc_types.h"

HRESULT TypeKind(IRfcType* type, RFCTYPEKIND* kind) {
  if (!type) return E_POINTER;
  if (CRfcType* direct = ModelImpl<CRfcType>(type)) {
    *kind = direct->KindValue();
    return S_OK;
  }
  return type->get_Kind(kind);
}

HRESULT TypeScalarType(IRfcType* type, ABAPTYPE* scalarType) {
  if (!type) return E_POINTER;
  if (CRfcType* direct = ModelImpl<CRfcType>(type)) {
    *scalarType = static_cast<ABAPTYPE>(direct->ScalarTypeValue());
    return S_OK;
  }
  return type->get_ScalarType(scalarType);
}

HRESULT TypeName(IRfcType* type, CComBSTR& holder, std::u16string_view* name) {
  if (!type) return E_POINTER;
  if (CRfcType* direct = ModelImpl<CRfcType>(type)) {
    *name = BstrView(direct->NameBstr());
    return S_OK;
  }
  holder.Empty();
  HRESULT hr = type->get_name(&holder);
  if (FAILED(hr)) return hr;
  *name = BstrView(holder);
  return S_OK;
}

HRESULT TypeMembers::Open(IRfcType* type) {
  if (!type) return E_POINTER;
  m_direct = nullptr;
  m_members.Release();
  if (CRfcType* direct = ModelImpl<CRfcType>(type)) {
    m_direct = &direct->Members();
    m_count = m_direct->CollCount();
    return S_OK;
  }
  HRESULT hr = type->get_StructFields(&m_members);
  if (FAILED(hr)) return hr;
  if (!m_members) return E_POINTER;
  return m_members->get_Count(&m_count);
}

HRESULT TypeMembers::At(LONG zeroBased, CComPtr<IRfcType>& holder, IRfcType** member) const {
  if (m_direct) {
    if (zeroBased < 0 || zeroBased >= m_direct->CollCount()) return E_INVALIDARG;
    *member = m_direct->CollAt(static_cast<size_t>(zeroBased));
    return S_OK;
  }
  holder.Release();
  CComVariant position(static_cast<LONG>(zeroBased + 1));
  HRESULT hr = m_members->get_Item(position, &holder);
  if (FAILED(hr)) return hr;
  if (!holder) return E_POINTER;
  *member = holder;
  return S_OK;
}
