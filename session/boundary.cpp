#include "session/boundary.h"

#include <boost/format.hpp>

#include "platform/unicode.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"

namespace {

void Log(const boost::format& text, const char* operation) {
  TraceLog(TRACE_ERROR, text, operation, __FILE__, __LINE__);
}

}  // namespace

RfcErrorRecord SessionBoundary::FaultRecord(const CXSoapErrorResponse& e) {
  RfcErrorRecord record;
  record.group = static_cast<ERRORGROUP>(e.Group());
  record.key = e.FaultText();
  record.message = e.Detail();
  return record;
}

HRESULT SessionBoundary::Internal(const char* operation, const CXVeltrane& e) const noexcept {
  try {
    Log(boost::format("CXVeltrane Error: %1% in %2%::%3%()") % e.what() % m_traceName % operation, operation);
  } catch (...) {}
  return ReportError(*m_clsid, Text::Unexpected);
}

HRESULT SessionBoundary::Com(const char* operation, const _com_error& e) const noexcept {
  try {
    Log(boost::format("COM Error %1% (%2%) in %3%::%4%()") % e.Error() % WideToUtf8Lossy(e.ErrorMessage()) %
            m_traceName % operation,
        operation);
  } catch (...) {}
  return e.Error();
}

HRESULT SessionBoundary::Standard(const char* operation, const std::exception& e) const noexcept {
  try {
    Log(boost::format("C++ Exception: %1% in %2%::%3%()") % e.what() % m_traceName % operation, operation);
  } catch (...) {}
  return ReportError(*m_clsid, Text::Unexpected);
}

HRESULT SessionBoundary::Unknown(const char* operation) const noexcept {
  try {
    Log(boost::format("Unknown exception in %1%::%2%()") % m_traceName % operation, operation);
  } catch (...) {}
  return ReportError(*m_clsid, Text::Unexpected);
}
