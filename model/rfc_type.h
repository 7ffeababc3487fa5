// CRfcType: the description of one ABAP type (IRfcType). Types are shared by
// reference and never copied.
#pragma once

#include <string_view>

#include "model/model_object.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcTypes;

class CRfcType : public CComObjectBase<CRfcType, CoClassRfcType<CRfcType>, CModelObjectImpl<CRfcType>> {
 public:
  CRfcType();
  ~CRfcType() override;
  HRESULT FinalConstruct();

  // IRfcType
  VELTRANE_DECL_IRFCTYPE

  // Direct access for the model (value shaping, XML reader).
  BSTR NameBstr() const { return m_name.m_str; }
  RFCTYPEKIND KindValue() const { return m_kind; }
  LONG ScalarTypeValue() const { return m_scalarType; }
  CRfcTypes& Members() const { return *m_structFields; }
  IRfcType* RowTypePtr() const { return m_rowType.p; }

  void SetName(std::u16string_view name);
  void SetKind(RFCTYPEKIND kind) { m_kind = kind; }
  void SetScalarType(LONG type) { m_scalarType = type; }
  void SetScalarLength(SHORT length) { m_scalarLength = length; }
  void SetScalarDecimals(SHORT decimals) { m_scalarDecimals = decimals; }
  void SetLayout(LONG offset, LONG offsetC1, LONG length, LONG lengthC1) {
    m_structOffset = offset;
    m_structOffsetC1 = offsetC1;
    m_structLength = length;
    m_structLengthC1 = lengthC1;
  }

 private:
  CComBSTR m_name;
  RFCTYPEKIND m_kind = RFCTYPEKIND_UNDEFINED;
  LONG m_scalarType = -1;
  SHORT m_scalarLength = 0;
  SHORT m_scalarDecimals = 0;
  LONG m_structOffset = -1;
  LONG m_structLength = -1;
  LONG m_structOffsetC1 = -1;
  LONG m_structLengthC1 = -1;
  CComPtr<CRfcTypes> m_structFields;
  CComPtr<IRfcType> m_rowType;
  CComVariant m_tag;
};
