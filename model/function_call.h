// CFunctionCall: a function module's name and its four parameter sets
// (IFunctionCall), with the exception pair of the server direction and the
// XML form of the interface.
#pragma once

#include "model/model_object.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_tlb.h"

class CRfcParameters;

class CFunctionCall
    : public CComObjectBase<CFunctionCall, IDispatchImpl<CFunctionCall, IFunctionCall>,
                            ISupportErrorInfoImpl<&IID_IFunctionCall>, CModelObjectImpl<CFunctionCall>> {
 public:
  static const CLSID& ClassId() { return CLSID_FunctionCall; }

  CFunctionCall();
  ~CFunctionCall() override;
  HRESULT FinalConstruct();

  // IFunctionCall
  HRESULT STDMETHODCALLTYPE get_Function(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE put_Function(BSTR newVal) override;
  HRESULT STDMETHODCALLTYPE get_Importing(IRfcParameters** pVal) override;
  HRESULT STDMETHODCALLTYPE get_Exporting(IRfcParameters** pVal) override;
  HRESULT STDMETHODCALLTYPE get_Changing(IRfcParameters** pVal) override;
  HRESULT STDMETHODCALLTYPE get_Tables(IRfcParameters** pVal) override;
  HRESULT STDMETHODCALLTYPE get_Documentation(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE put_Documentation(BSTR newVal) override;
  HRESULT STDMETHODCALLTYPE RaiseException(BSTR exception, BSTR Message) override;
  HRESULT STDMETHODCALLTYPE GetException(BSTR* exception, BSTR* Message) override;
  HRESULT STDMETHODCALLTYPE ToXML(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE FromXML(BSTR xml) override;

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
