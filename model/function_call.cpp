#include "model/function_call.h"
#include "platform/property.h"

#include "model/collection.h"
#include "model/rfc_parameters.h"

namespace {

HRESULT HandOut(CRfcParameters* set, IRfcParameters** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = set;
  set->AddRef();
  return S_OK;
}

}  // namespace

CFunctionCall::CFunctionCall() : m_documentation(u""), m_exception(u""), m_message(u"") {}

CFunctionCall::~CFunctionCall() = default;

HRESULT CFunctionCall::FinalConstruct() {
  for (auto& set : m_sets) {
    HRESULT hr = CRfcParameters::CreateInstance(&set.p);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

HRESULT CFunctionCall::get_Function(BSTR* pVal) { return GetProperty(m_function, pVal); }

HRESULT CFunctionCall::put_Function(BSTR newVal) {
  m_function.Attach(BstrCopy(newVal));
  return S_OK;
}

HRESULT CFunctionCall::get_Importing(IRfcParameters** pVal) { return HandOut(m_sets[0], pVal); }
HRESULT CFunctionCall::get_Exporting(IRfcParameters** pVal) { return HandOut(m_sets[1], pVal); }
HRESULT CFunctionCall::get_Changing(IRfcParameters** pVal) { return HandOut(m_sets[2], pVal); }
HRESULT CFunctionCall::get_Tables(IRfcParameters** pVal) { return HandOut(m_sets[3], pVal); }

HRESULT CFunctionCall::get_Documentation(BSTR* pVal) { return GetProperty(m_documentation, pVal); }

HRESULT CFunctionCall::put_Documentation(BSTR newVal) {
  m_documentation.Attach(BstrCopy(newVal));
  return S_OK;
}

HRESULT CFunctionCall::RaiseException(BSTR exception, BSTR Message) {
  m_exception.Attach(BstrCopy(exception));
  m_message.Attach(BstrCopy(Message));
  return S_OK;
}

HRESULT CFunctionCall::GetException(BSTR* exception, BSTR* Message) {
  if (Message) {
    HRESULT hr = m_message.CopyTo(Message);
    if (FAILED(hr)) return hr;
  }
  if (!exception) return E_POINTER;
  return m_exception.CopyTo(exception);
}

HRESULT CFunctionCall::ToXML(BSTR* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  return CallToXml(*this, pVal);
}

HRESULT CFunctionCall::FromXML(BSTR xml) { return CallFromXml(*this, xml); }
