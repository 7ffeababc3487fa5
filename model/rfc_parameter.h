// CRfcParameter: a parameter of a function call (IRfcParameter). Name, type
// and value are those of its internal field.
#pragma once

#include "model/model_object.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_tlb.h"

class CRfcField;

class CRfcParameter
    : public CComObjectBase<CRfcParameter, IDispatchImpl<CRfcParameter, IRfcParameter>,
                            ISupportErrorInfoImpl<&IID_IRfcParameter>, CModelObjectImpl<CRfcParameter>> {
 public:
  static const CLSID& ClassId() { return CLSID_RfcParameter; }

  CRfcParameter();
  ~CRfcParameter() override;
  HRESULT FinalConstruct();

  // IRfcParameter
  HRESULT STDMETHODCALLTYPE get_name(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE get_RfcType(IRfcType** pVal) override;
  HRESULT STDMETHODCALLTYPE get_value(VARIANT* pVal) override;
  HRESULT STDMETHODCALLTYPE put_value(VARIANT newVal) override;
  HRESULT STDMETHODCALLTYPE get_Fields(IRfcFields** pVal) override;
  HRESULT STDMETHODCALLTYPE get_Rows(IRfcRows** pVal) override;
  HRESULT STDMETHODCALLTYPE DefineScalar(BSTR name, ABAPTYPE type, SHORT length, SHORT decimals,
                                         VARIANT value) override;
  HRESULT STDMETHODCALLTYPE Define(BSTR name, IRfcType* type) override;
  HRESULT STDMETHODCALLTYPE get_InternalType(LONG* pVal) override;
  HRESULT STDMETHODCALLTYPE get_InternalField(IRfcField** pVal) override;
  HRESULT STDMETHODCALLTYPE get_Optional(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE put_Optional(VARIANT_BOOL newVal) override;
  HRESULT STDMETHODCALLTYPE get_Description(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE put_Description(BSTR newVal) override;
  HRESULT STDMETHODCALLTYPE get_DefaultValue(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE put_DefaultValue(BSTR newVal) override;
  HRESULT STDMETHODCALLTYPE get_IsEmpty(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE get_IsRequested(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE put_IsRequested(VARIANT_BOOL newVal) override;

  CRfcField& Field() const { return *m_field; }
  VARIANT_BOOL OptionalValue() const { return m_optional; }
  BSTR DescriptionBstr() const { return m_description.m_str; }
  BSTR DefaultValueBstr() const { return m_defaultValue.m_str; }

 private:
  VARIANT_BOOL m_optional = VARIANT_FALSE;
  CComBSTR m_description;
  CComBSTR m_defaultValue;
  VARIANT_BOOL m_isRequested = VARIANT_TRUE;
  CComPtr<CRfcField> m_field;
};
