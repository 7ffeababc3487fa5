// The NW RFC SDK's error record as the component reports it: the group
// mapping into ERRORGROUP, the whole record for ErrorInfo, and the two
// reports of SDK failures that the metadata bridge and the data converter
// share.
#pragma once

#include <string>

#include "abap/error_record.h"
#include "nwrfc/nwrfc_types.h"
#include "platform/wtypes.h"
#include "veltrane_errors.h"
#include "veltrane_tlb.h"

namespace veltrane::nwrfc {

// The class of an SDK failure as ErrorInfo shows it: application failures
// are application exceptions, logon and communication failures keep their
// meaning, every other group known to the SDK is a program failure, and a
// group the table does not know is internal.
ERRORGROUP ErrorGroupOf(RFC_ERROR_GROUP group);

// The record with the group mapped, key and message, the SDK's code and the
// ABAP message fields.
RfcErrorRecord ErrorRecordOf(const RFC_ERROR_INFO& info);

// "RFC Error #<rc> <key>: <message>" at level 1: a failed SDK call inside
// the metadata bridge.
void TraceSdkError(RFC_RC rc, const RFC_ERROR_INFO& info);

// A failed SDK call of the bridge: the trace line above, then text 543
// reported for clsid; its result.
HRESULT BridgeFailure(RFC_RC rc, const RFC_ERROR_INFO& info, const CLSID& clsid);

// The data converter's report of an SDK call: a record whose code is 0
// traces "RFC_OK" at level 3 and is no failure (S_OK), whatever the call
// returned; otherwise "RFC Error <key>: <message>" at level 1 and code
// reported for clsid. context names the call's place for the trace.
HRESULT ReportRfcError(const RFC_ERROR_INFO& info, std::u16string_view context, Text code, const CLSID& clsid);

}  // namespace veltrane::nwrfc
