// CFunctionCall: a function module's name and its four parameter sets
// (IFunctionCall), with the exception pair of the server direction and the
// XML form of the interface.
#pragma once

#include "model/model_object.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcParameters;

class CFunctionCall
    : public CComObjectBase<CFunctionCall, CoClassFunctionCall<CFunctionCall>, CModelObjectImpl<CFunctionCall>> {
 public:
  CFunctionCall();
  ~CFunctionCall() override;
  HRESULT FinalConstruct();

  // IFunctionCall
  VELTRANE_DECL_IFUNCTIONCALL

  // The sets in the order of the XML form: importing, exporting, changing, tables.
  static constexpr int kSetCount = 4;
  CRfcParameters& Set(int index) const { return *m_sets[index]; }
  BSTR FunctionBstr() const { return m_function.m_str; }
  BSTR DocumentationBstr() const { return m_documentation.m_str; }

 private:
  CComBSTR m_function;
  CComPtr<CRfcParameters> m_sets[kSetCount];
  CComBSTR m_documentation;
  CComBSTR m_exception;
  CComBSTR m_message;
};

// The XML form of a call's interface (function_call_xml.cpp).
HRESULT CallToXml(CFunctionCall& call, BSTR* xml);
HRESULT CallFromXml(CFunctionCall& call, BSTR xml);
