// The session's error object: the details of the last failure on the back
// end's side.
#pragma once

#include <string>

#include "abap/error_record.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcError : public CComObjectBase<CRfcError, CoClassRfcError<CRfcError>> {
 public:
  VELTRANE_DECL_IRFCERROR

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
