// CRfcSession: the session on the classic RFC SDK (RfcSession,
// "Veltrane.RfcSession"), with IRfcSession like the NW session.
//
// What it does its own way:
//   - Connect loads librfcum.so on first need (the option "librfc.path"
//     names its directory) and opens one connection with a connect string:
//     RfcSystemData's ConnectString, then the logon data (connect_string.h).
//     A refused logon is Error and ErrorInfo with a success result.
//   - Every call, synchronous or not, is sent with RfcCallExU and taken by
//     a thread of its own (listenForResult) that polls RfcListenU, receives
//     and writes the results; a synchronous call waits for that thread's
//     event. One call at a time; AbortCall cancels with RfcCancelU.
//   - The marshalling objects (marshal.h) hold the SDK's form of a call;
//     a value that does not convert fails the call with the text of its
//     kind.
//   - Function interfaces and structures come from the SDK's dictionary
//     calls (RfcGetFunctionInfoAsTableU, RfcGetStructureInfoFlatU).
//   - Transactional RFC and the logon ticket work on the connection alone.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/connection_point.h"
#include "rfc/rfc_library.h"
#include "session/rfc_system_data.h"
#include "session/session_calls.h"
#include "veltrane_decl.h"
#include "veltrane_events.h"
#include "veltrane_tlb.h"

class CRfcSession
    : public CComObjectBase<CRfcSession, CoClassRfcSession<CRfcSession, ISessionCallsImpl<CRfcSession, IRfcSession>>,
                            IConnectionPointContainerImpl<CRfcSession, CProxy_SessionEvents<CRfcSession>>> {
 public:
  static constexpr SessionBoundary kBoundary{CLSID_RfcSession, "CRfcSession"};

  CRfcSession() = default;
  ~CRfcSession() override;

  HRESULT FinalConstruct();

  // ISession, by class.
  HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL* pVal) override;
  // True while a call's listening thread waits for its answer, after 10 ms.
  HRESULT STDMETHODCALLTYPE get_CallActive(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE get_SessionType(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE Connect() override;
  // Aborts a running call, then closes the connection; always succeeds.
  HRESULT STDMETHODCALLTYPE Disconnect() override;
  HRESULT STDMETHODCALLTYPE AbortCall() override;
  HRESULT STDMETHODCALLTYPE CreateTransID(BSTR* tid) override;
  HRESULT STDMETHODCALLTYPE ConfirmTransID(BSTR tid) override;
  HRESULT STDMETHODCALLTYPE CallTRFCFunction(BSTR tid, IFunctionCall* fn) override;

  // IRfcSession.
  VELTRANE_DECL_IRFCSESSION

 private:
  class ClassicCall;
  friend class ISessionImpl<CRfcSession, IRfcSession>;

  bool ReadyForCalls() const override { return m_handle != 0; }
  std::unique_ptr<RunningCall> PrepareCall(IFunctionCall* call) override;
  HRESULT ImportTypeFromBackend(BSTR name, IRfcType* type) override;
  HRESULT ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall* call) override;

  // The SDK, loaded by a successful Connect.
  const veltrane::rfc::EntryPoints& Sdk() const { return *m_sdk; }
  // Loads the library; a failure is its result (text 542 or 519).
  HRESULT LoadSdk();
  // The result of a sent call on the session (synchronous path): 0 clears
  // the error, 6 drops the handle without closing it and clears the error,
  // anything else sets it from the record.
  void JudgeResult(int result, const veltrane::sdk::rfc::RFC_ERROR_INFO_EX& record, const std::u16string& name);
  // The end of an asynchronous call on its thread.
  void OnCallFinished(ClassicCall& call, bool aborted, bool closed);
  // ErrorInfo from the SDK's record.
  void SetSdkError(const veltrane::sdk::rfc::RFC_ERROR_INFO_EX& record);
  // The last error of the SDK into ErrorInfo.
  void SetLastSdkError();
  // The running call aborted and gone, as AbortCall does; false when none ran.
  bool AbortRunning();

  CComPtr<CRfcSystemData> m_systemData;
  const veltrane::rfc::EntryPoints* m_sdk = nullptr;
  std::atomic<unsigned> m_handle{0};
  // Set while a call's thread waits for the answer (its state "running").
  std::atomic<bool> m_waiting{false};
};
