// CNWRfcSession: the session on the NW RFC SDK (NWRfcSession,
// "Veltrane.NWRfcSession"), with IRfcSession like the classic session, so a
// client switches between the two by the class alone.
//
// What it does its own way:
//   - Connect loads and sets up the SDK (InitSDK, each time) and opens the
//     connection from name=value pairs: the connect string of RfcSystemData
//     split by the program, then the logon data. It does not look at the
//     connection it may hold: a second Connect opens another one, and the
//     first handle is lost (it stays open).
//   - Each call takes its function's description from the SDK's repository
//     (RfcGetFunctionDesc); values go in by name (CNWRFCDataConverter).
//   - A failure on the system's side (an ABAP exception, a message, a
//     refused logon, a lost connection) is Error and ErrorInfo with a success
//     result; PublishRfcResult maps the SDK's record into ErrorInfo. A
//     function the SDK cannot describe or create fails the call with text
//     543, a value that does not convert with the conversion's result.
//   - An asynchronous call runs on a detached thread with its own apartment
//     and fires CallFinished there. AbortCall cannot stop an invoke: it
//     succeeds and changes nothing. A call during an asynchronous one is not
//     refused: it goes to the SDK, which decides what becomes of it.
//   - Transactional RFC keeps an SDK transaction per ID, from CreateTransID
//     to ConfirmTransID.
//   - GetSSO2Ticket calls the function module named by the option
//     "sso2.create_ticket_module", since the SDK gives no ticket at logon.
#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "nwrfc/nwrfc_mixin.h"
#include "nwrfc/nwrfc_types.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/connection_point.h"
#include "session/rfc_system_data.h"
#include "session/session_calls.h"
#include "veltrane_decl.h"
#include "veltrane_events.h"
#include "veltrane_tlb.h"

class CNWRfcSession
    : public CComObjectBase<CNWRfcSession,
                            CoClassNWRfcSession<CNWRfcSession, ISessionCallsImpl<CNWRfcSession, IRfcSession>>,
                            IConnectionPointContainerImpl<CNWRfcSession, CProxy_SessionEvents<CNWRfcSession>>>,
      public CNWRfcMixin<CNWRfcSession> {
 public:
  static constexpr SessionBoundary kBoundary{CLSID_NWRfcSession, "CNWRfcSession"};

  CNWRfcSession() = default;
  ~CNWRfcSession() override;

  HRESULT FinalConstruct();

  // ISession, by class.
  HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE get_CallActive(VARIANT_BOOL* pVal) override;
  HRESULT STDMETHODCALLTYPE get_SessionType(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE Connect() override;
  HRESULT STDMETHODCALLTYPE Disconnect() override;
  // Succeeds and changes nothing: the SDK's invoke runs to its end.
  HRESULT STDMETHODCALLTYPE AbortCall() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE CreateTransID(BSTR* tid) override;
  HRESULT STDMETHODCALLTYPE ConfirmTransID(BSTR tid) override;
  HRESULT STDMETHODCALLTYPE CallTRFCFunction(BSTR tid, IFunctionCall* fn) override;

  // IRfcSession.
  VELTRANE_DECL_IRFCSESSION

 private:
  struct Invocation;
  class NWCall;
  friend class CNWRfcMixin<CNWRfcSession>;
  friend class ISessionImpl<CNWRfcSession, IRfcSession>;

  // Orders transaction IDs as VarBstrCmp does (locale 0x400, no flags).
  struct TidOrder {
    bool operator()(const CComBSTR& a, const CComBSTR& b) const;
  };

  bool ReadyForCalls() const override { return m_connection != nullptr; }
  // A call during an asynchronous one goes to the SDK like any other.
  ParallelCalls ParallelCallPolicy() const override { return ParallelCalls::LeftToTheSdk; }
  std::unique_ptr<RunningCall> PrepareCall(IFunctionCall* call) override;
  HRESULT ImportTypeFromBackend(BSTR name, IRfcType* type) override;
  HRESULT ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall* call) override;

  // For CNWRfcMixin: the option store, and the report of an SDK result.
  std::u16string SdkOption(std::u16string_view name) const { return OptionValue(name); }
  // Publishes an SDK result to ErrorInfo. A record with code 0 clears Error
  // (and traces "<context>: RFC_OK"); any other sets Error, the mapped
  // group, the key as ErrorGroupTxt and the message, traces the failure at
  // level 1 and reports code for this class. ModuleName is not touched.
  HRESULT PublishRfcResult(const RFC_ERROR_INFO& info, std::u16string_view context, Text code);
  // ErrorInfo's Message becomes the record's key (an exception's name).
  void ShowExceptionKey(const RFC_ERROR_INFO& info);

  // The function container for the call's module, its description from the
  // SDK's repository, reported into record. A null description or container
  // is published (text 543), and that result is returned.
  HRESULT CreateFunction(IFunctionCall* call, RFC_ERROR_INFO& record, RFC_FUNCTION_HANDLE* function);
  // Invokes, reads the results and destroys the function. A failed reading
  // of the results returns its result and keeps the function; a failed
  // destruction returns its published result. The thread, the event and
  // callActive are the caller's (NWCall).
  HRESULT DoInvoke(Invocation& invocation);
  // The published context of an invoke's result.
  std::u16string InvokeContext(std::u16string_view function, RFC_RC rc, const RFC_ERROR_INFO& record) const;
  // Closes the connection (Disconnect's work), after running invokes ended.
  HRESULT CloseConnection();
  // Asynchronous invokes under way, which Disconnect waits for.
  void InvokeStarted();
  void InvokeEnded();
  void WaitForInvokes();

  RFC_ERROR_INFO m_errorInfo{};
  CComPtr<CRfcSystemData> m_systemData;
  RFC_CONNECTION_HANDLE m_connection = nullptr;
  std::map<CComBSTR, RFC_TRANSACTION_HANDLE, TidOrder> m_transactions;

  // Set by an asynchronous CallFunction, cleared at the end of a successful
  // invoke (of either kind); backs CallActive.
  std::atomic<bool> m_callActive{false};

  std::mutex m_invokeMutex;
  std::condition_variable m_invokesEnded;
  int m_invokes = 0;
};
