// The boundary of a session operation. Inside the component failures travel
// as exceptions; what escapes an operation's body becomes its result here,
// by the failure model, in this order:
//
//   CXSoapErrorResponse  a fault of the server: the session's ErrorInfo gets
//                        its group, fault text and detail, and the operation
//                        succeeds
//   CXVeltrane           traced "CXVeltrane Error: <what> in <class>::<op>()",
//                        text 519
//   _com_error           traced "COM Error <code> (<message>) in <class>::<op>()",
//                        the error's own result
//   std::exception       traced "C++ Exception: <what> in <class>::<op>()",
//                        text 519
//   anything else        traced "Unknown exception in <class>::<op>()", text 519
//
// The traces are written at level 1; the texts go through ReportError for the
// session's class and ISession.
#pragma once

#include <exception>

#include "abap/error_record.h"
#include "platform/comdef.h"
#include "runtime/exceptions.h"

class SessionBoundary {
 public:
  // clsid: the class the error records name; traceName: the class as the
  // trace lines name it ("CSOAPSession").
  constexpr SessionBoundary(const CLSID& clsid, const char* traceName) : m_clsid(&clsid), m_traceName(traceName) {}

  const CLSID& ClassId() const { return *m_clsid; }
  const char* TraceName() const { return m_traceName; }

  // Runs body (returning HRESULT) and turns what escapes it into the result.
  // recordFault receives the record of a server fault (RfcErrorRecord).
  template <class Body, class RecordFault>
  HRESULT Run(const char* operation, Body&& body, RecordFault&& recordFault) const noexcept {
    try {
      try {
        return body();
      } catch (const CXSoapErrorResponse& e) {
        recordFault(FaultRecord(e));
        return S_OK;
      }
    } catch (const CXVeltrane& e) {
      return Internal(operation, e);
    } catch (const _com_error& e) {
      return Com(operation, e);
    } catch (const std::exception& e) {
      return Standard(operation, e);
    } catch (...) {
      return Unknown(operation);
    }
  }

  // The record a server fault leaves in ErrorInfo: group, fault text as the
  // key, detail as the message.
  static RfcErrorRecord FaultRecord(const CXSoapErrorResponse& e);

 private:
  HRESULT Internal(const char* operation, const CXVeltrane& e) const noexcept;
  HRESULT Com(const char* operation, const _com_error& e) const noexcept;
  HRESULT Standard(const char* operation, const std::exception& e) const noexcept;
  HRESULT Unknown(const char* operation) const noexcept;

  const CLSID* m_clsid;
  const char* m_traceName;
};
