// CRfcType: the description of one ABAP type (IRfcType). Types are shared by
// reference and never copied.
#pragma once

#include <string_view>

#include "model/model_object.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_tlb.h"

class CRfcTypes;

class CRfcType : public CComObjectBase<CRfcType, IDispatchImpl<CRfcType, IRfcType>,
                                       ISupportErrorInfoImpl<&IID_IRfcType>, CModelObjectImpl<CRfcType>> {
 public:
  static const CLSID& ClassId() { return CLSID_RfcType; }

  CRfcType();
  ~CRfcType() override;
  HRESULT FinalConstruct();

  // IRfcType
  HRESULT STDMETHODCALLTYPE get_name(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE get_Kind(RFCTYPEKIND* pVal) override;
  HRESULT STDMETHODCALLTYPE get_ScalarType(ABAPTYPE* pVal) override;
  HRESULT STDMETHODCALLTYPE put_ScalarType(ABAPTYPE newVal) override;
  HRESULT STDMETHODCALLTYPE get_ScalarLength(SHORT* pVal) override;
  HRESULT STDMETHODCALLTYPE put_ScalarLength(SHORT newVal) override;
  HRESULT STDMETHODCALLTYPE get_ScalarDecimals(SHORT* pVal) override;
  HRESULT STDMETHODCALLTYPE put_ScalarDecimals(SHORT newVal) override;
  HRESULT STDMETHODCALLTYPE get_StructOffset(LONG* pVal) override;
  HRESULT STDMETHODCALLTYPE put_StructOffset(LONG newVal) override;
  HRESULT STDMETHODCALLTYPE get_StructLength(LONG* pVal) override;
  HRESULT STDMETHODCALLTYPE put_StructLength(LONG newVal) override;
  HRESULT STDMETHODCALLTYPE get_StructFields(IRfcTypes** pVal) override;
  HRESULT STDMETHODCALLTYPE get_RowType(IRfcType** pVal) override;
  HRESULT STDMETHODCALLTYPE DefineScalar(BSTR name, ABAPTYPE type, SHORT length, SHORT decimals,
                                         LONG StructOffset) override;
  HRESULT STDMETHODCALLTYPE DefineStruct(BSTR name) override;
  HRESULT STDMETHODCALLTYPE DefineTable(BSTR name, IRfcType* tableType) override;
  HRESULT STDMETHODCALLTYPE AddComplexStructField(IRfcType* field) override;
  HRESULT STDMETHODCALLTYPE AddScalarStructField(BSTR name, ABAPTYPE type, SHORT length, SHORT decimals,
                                                 LONG StructOffset, LONG structOffsetC1, LONG StructLength,
                                                 LONG structLengthC1) override;
  HRESULT STDMETHODCALLTYPE get_Tag(VARIANT* pVal) override;
  HRESULT STDMETHODCALLTYPE put_Tag(VARIANT newVal) override;
  HRESULT STDMETHODCALLTYPE get_structOffsetC1(LONG* pVal) override;
  HRESULT STDMETHODCALLTYPE put_structOffsetC1(LONG newVal) override;
  HRESULT STDMETHODCALLTYPE get_structLengthC1(LONG* pVal) override;
  HRESULT STDMETHODCALLTYPE put_structLengthC1(LONG newVal) override;
  HRESULT STDMETHODCALLTYPE GetInternalObj(VARIANT* pVal) override;

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
