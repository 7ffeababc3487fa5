// CRfcParameter: a parameter of a function call (IRfcParameter). Name, type
// and value are those of its internal field.
#pragma once

#include "model/model_object.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcField;

class CRfcParameter
    : public CComObjectBase<CRfcParameter, CoClassRfcParameter<CRfcParameter>, CModelObjectImpl<CRfcParameter>> {
 public:
  CRfcParameter();
  ~CRfcParameter() override;
  HRESULT FinalConstruct();

  // IRfcParameter
  VELTRANE_DECL_IRFCPARAMETER

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
