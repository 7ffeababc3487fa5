#include "model/rfc_type.h"
#include "platform/property.h"

#include "model/collection.h"
#include "model/model_errors.h"
#include "model/rfc_types.h"

CRfcType::CRfcType() = default;
CRfcType::~CRfcType() = default;

HRESULT CRfcType::FinalConstruct() { return CRfcTypes::CreateInstance(&m_structFields.p); }

void CRfcType::SetName(std::u16string_view name) {
  m_name.Attach(SysAllocStringLen(name.data(), static_cast<UINT>(name.size())));
}

HRESULT CRfcType::get_name(BSTR* pVal) { return GetProperty(m_name, pVal); }

HRESULT CRfcType::get_Kind(RFCTYPEKIND* pVal) { return GetProperty(m_kind, pVal); }

HRESULT CRfcType::get_ScalarType(ABAPTYPE* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = static_cast<ABAPTYPE>(m_scalarType);
  return S_OK;
}

HRESULT CRfcType::put_ScalarType(ABAPTYPE newVal) {
  m_scalarType = newVal;
  return S_OK;
}

HRESULT CRfcType::get_ScalarLength(SHORT* pVal) { return GetProperty(m_scalarLength, pVal); }

HRESULT CRfcType::put_ScalarLength(SHORT newVal) { return PutProperty(m_scalarLength, newVal); }

HRESULT CRfcType::get_ScalarDecimals(SHORT* pVal) { return GetProperty(m_scalarDecimals, pVal); }

HRESULT CRfcType::put_ScalarDecimals(SHORT newVal) { return PutProperty(m_scalarDecimals, newVal); }

HRESULT CRfcType::get_StructOffset(LONG* pVal) { return GetProperty(m_structOffset, pVal); }

HRESULT CRfcType::put_StructOffset(LONG newVal) { return PutProperty(m_structOffset, newVal); }

HRESULT CRfcType::get_StructLength(LONG* pVal) { return GetProperty(m_structLength, pVal); }

HRESULT CRfcType::put_StructLength(LONG newVal) { return PutProperty(m_structLength, newVal); }

HRESULT CRfcType::get_structOffsetC1(LONG* pVal) { return GetProperty(m_structOffsetC1, pVal); }

HRESULT CRfcType::put_structOffsetC1(LONG newVal) { return PutProperty(m_structOffsetC1, newVal); }

HRESULT CRfcType::get_structLengthC1(LONG* pVal) { return GetProperty(m_structLengthC1, pVal); }

HRESULT CRfcType::put_structLengthC1(LONG newVal) { return PutProperty(m_structLengthC1, newVal); }

HRESULT CRfcType::get_StructFields(IRfcTypes** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_structFields;
  (*pVal)->AddRef();
  return S_OK;
}

HRESULT CRfcType::get_RowType(IRfcType** pVal) { return GetProperty(m_rowType, pVal); }

HRESULT CRfcType::DefineScalar(BSTR name, ABAPTYPE type, SHORT length, SHORT decimals, LONG StructOffset) {
  if (m_kind != RFCTYPEKIND_UNDEFINED) return ModelError(CLSID_RfcType, Text::AlreadyInitialized);
  m_kind = RFCTYPEKIND_SCALAR;
  m_name.Attach(BstrCopy(name));
  m_scalarLength = length;
  m_scalarDecimals = decimals;
  m_structOffset = StructOffset;
  m_scalarType = type;
  return S_OK;
}

HRESULT CRfcType::DefineStruct(BSTR name) {
  m_name.Attach(BstrCopy(name));
  m_kind = RFCTYPEKIND_STRUCT;
  m_scalarType = TYPE_STRUCTURE;
  return S_OK;
}

HRESULT CRfcType::DefineTable(BSTR name, IRfcType* tableType) {
  if (!tableType) return E_POINTER;
  RFCTYPEKIND rowKind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = tableType->get_Kind(&rowKind);
  if (FAILED(hr)) return hr;
  if (rowKind != RFCTYPEKIND_STRUCT) return ModelError(CLSID_RfcType, Text::NotAStructure);
  m_name.Attach(BstrCopy(name));
  m_kind = RFCTYPEKIND_TABLE;
  m_scalarType = TYPE_ITAB;
  m_rowType = tableType;
  return S_OK;
}

HRESULT CRfcType::AddComplexStructField(IRfcType* field) {
  if (m_kind != RFCTYPEKIND_STRUCT) return ModelError(CLSID_RfcType, Text::NotAStructure);
  if (!field) return E_POINTER;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = field->get_Kind(&kind);
  if (FAILED(hr)) return hr;
  if (kind == RFCTYPEKIND_UNDEFINED) return ModelError(CLSID_RfcType, Text::NotInitialized);
  return m_structFields->CollAdd(field);
}

HRESULT CRfcType::AddScalarStructField(BSTR name, ABAPTYPE type, SHORT length, SHORT decimals, LONG StructOffset,
                                       LONG structOffsetC1, LONG StructLength, LONG structLengthC1) {
  if (m_kind != RFCTYPEKIND_STRUCT) return ModelError(CLSID_RfcType, Text::NotAStructure);
  CComPtr<CRfcType> member;
  HRESULT hr = CRfcType::CreateInstance(&member.p);
  if (FAILED(hr)) return hr;
  hr = member->DefineScalar(name, type, length, decimals, -1);
  if (FAILED(hr)) return hr;
  member->put_StructLength(StructLength);
  member->put_StructOffset(StructOffset);
  member->put_structLengthC1(structLengthC1);
  member->put_structOffsetC1(structOffsetC1);
  return m_structFields->CollAdd(static_cast<IRfcType*>(member.p));
}

HRESULT CRfcType::get_Tag(VARIANT* pVal) {
  if (!pVal) return E_POINTER;
  VariantInit(pVal);
  return VariantCopy(pVal, &m_tag);
}

HRESULT CRfcType::put_Tag(VARIANT newVal) {
  CComVariant copy;
  HRESULT hr = VariantCopyInd(&copy, &newVal);
  if (FAILED(hr)) return hr;
  m_tag = std::move(copy);
  return S_OK;
}

HRESULT CRfcType::GetInternalObj(VARIANT* pVal) {
  if (!pVal) return E_POINTER;
  VariantInit(pVal);
  pVal->vt = VT_I8;
  pVal->llVal = static_cast<LONGLONG>(reinterpret_cast<intptr_t>(this));
  return S_OK;
}
