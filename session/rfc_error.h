// The session's error object: the details of the last failure on the back
// end's side.
#pragma once

#include <string>

#include "abap/error_record.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_tlb.h"

class CRfcError
    : public CComObjectBase<CRfcError, IDispatchImpl<CRfcError, IRfcError>, ISupportErrorInfoImpl<&IID_IRfcError>> {
 public:
  HRESULT STDMETHODCALLTYPE get_ERRORGROUP(ERRORGROUP* pVal) override;
  HRESULT STDMETHODCALLTYPE put_ERRORGROUP(ERRORGROUP newVal) override;
  HRESULT STDMETHODCALLTYPE get_ErrorGroupTxt(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE put_ErrorGroupTxt(BSTR newVal) override;
  HRESULT STDMETHODCALLTYPE get_Message(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE put_Message(BSTR newVal) override;
  HRESULT STDMETHODCALLTYPE get_ModuleName(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE put_ModuleName(BSTR newVal) override;

 private:
  ERRORGROUP m_group = RFCERROR_NO_ERROR;
  CComBSTR m_groupText;
  CComBSTR m_message;
  CComBSTR m_moduleName;
};

// A session's error state. Without a record: Error false, group 0 and the
// three texts empty. With one: Error true, group, key and message copied;
// ModuleName stays as it is.
HRESULT SetSessionError(VARIANT_BOOL* error, IRfcError* errorInfo, const RfcErrorRecord* record);
