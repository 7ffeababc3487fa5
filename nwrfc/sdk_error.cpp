#include "nwrfc/sdk_error.h"

#include <boost/format.hpp>

#include "nwrfc/sdk_text.h"
#include "platform/unicode.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"

namespace veltrane::nwrfc {

namespace {

std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }

}  // namespace

ERRORGROUP ErrorGroupOf(RFC_ERROR_GROUP group) {
  switch (group) {
    case RFC_ERROR_GROUP::OK: return RFCERROR_NO_ERROR;
    case RFC_ERROR_GROUP::ABAP_APPLICATION_FAILURE: return RFCERROR_APPLICATION_EXCEPTION;
    case RFC_ERROR_GROUP::ABAP_RUNTIME_FAILURE: return RFCERROR_PROGRAM;
    case RFC_ERROR_GROUP::LOGON_FAILURE: return RFCERROR_LOGON_FAILURE;
    case RFC_ERROR_GROUP::COMMUNICATION_FAILURE: return RFCERROR_COMMUNICATION;
    case RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE:
    case RFC_ERROR_GROUP::EXTERNAL_APPLICATION_FAILURE:
    case RFC_ERROR_GROUP::EXTERNAL_AUTHORIZATION_FAILURE: return RFCERROR_PROGRAM;
    default: return RFCERROR_INTERNAL;
  }
}

RfcErrorRecord ErrorRecordOf(const RFC_ERROR_INFO& info) {
  RfcErrorRecord record(ErrorGroupOf(info.group), std::u16string(SapText(info.key)),
                        std::u16string(SapText(info.message)));
  record.code = info.code;
  record.messageClass = SapText(info.abapMsgClass);
  record.messageType = SapText(info.abapMsgType);
  record.messageNumber = SapText(info.abapMsgNumber);
  record.messageV1 = SapText(info.abapMsgV1);
  record.messageV2 = SapText(info.abapMsgV2);
  record.messageV3 = SapText(info.abapMsgV3);
  record.messageV4 = SapText(info.abapMsgV4);
  return record;
}

void TraceSdkError(RFC_RC rc, const RFC_ERROR_INFO& info) {
  TRACE_LOG(TRACE_ERROR, boost::format("RFC Error #%1% %2%: %3%") % static_cast<int>(rc) % Narrow(SapText(info.key)) %
                             Narrow(SapText(info.message)));
}

HRESULT BridgeFailure(RFC_RC rc, const RFC_ERROR_INFO& info, const CLSID& clsid) {
  TraceSdkError(rc, info);
  return ReportError(clsid, Text::RfcError);
}

HRESULT ReportRfcError(const RFC_ERROR_INFO& info, std::u16string_view context, Text code, const CLSID& clsid) {
  const std::string where = Narrow(context);
  if (info.code == RFC_OK) {
    TraceLog(TRACE_INFORMATION, "RFC_OK", where.c_str(), __FILE__, __LINE__);
    return S_OK;
  }
  TraceLog(TRACE_ERROR, boost::format("RFC Error %1%: %2%") % Narrow(SapText(info.key)) % Narrow(SapText(info.message)),
           where.c_str(), __FILE__, __LINE__);
  return ReportError(clsid, code);
}

}  // namespace veltrane::nwrfc
