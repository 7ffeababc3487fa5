// SessionFrame: the state and the logic that all session classes share,
// behind the template ISessionImpl (session_impl.h). It holds SystemID, the
// logon data, the error state, the option store and the TypeCache link, and
// runs the cached imports, the option side effects and the backend service
// calls. The service calls and the table reader work through the session's
// public interface (`self`), so they behave alike on every back end.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/atlbase.h"
#include "session/rfc_error.h"
#include "session/logon_data.h"
#include "session/option_store.h"
#include "session/running_call.h"
#include "veltrane_tlb.h"
#include "veltrane_version.h"

class SessionFrame {
 public:
  using TypeImporter = std::function<HRESULT(BSTR name, IRfcType* type)>;
  using CallImporter = std::function<HRESULT(BSTR name, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall* call)>;

  // Creates the logon data and the error object; throws std::bad_alloc.
  SessionFrame();
  SessionFrame(const SessionFrame&) = delete;
  SessionFrame& operator=(const SessionFrame&) = delete;

  // ISession members owned by the frame.
  HRESULT GetSystemID(BSTR* pVal) const;
  HRESULT PutSystemID(BSTR newVal);
  HRESULT GetLogonData(ILogonData** pVal) const;
  HRESULT GetErrorInfo(IRfcError** pVal);  // clears Error first
  HRESULT GetError(VARIANT_BOOL* pVal) const;
  HRESULT GetOption(BSTR name, BSTR* pVal) const;
  HRESULT PutOption(BSTR name, BSTR newVal);
  HRESULT GetTypeCache(ITypeCache** pVal);
  HRESULT PutTypeCache(ITypeCache* newVal);
  HRESULT DecodeInternalError(LONG errcode, BSTR* pVal) const;
  HRESULT ImportType(BSTR name, IRfcType** pVal, const TypeImporter& fromBackend);
  HRESULT ImportCall(BSTR moduleName, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall** pVal,
                     const CallImporter& fromBackend);
  HRESULT CreateCall(IFunctionCall** pVal) const;
  HRESULT CreateType(IRfcType** pVal) const;
  HRESULT About() const;
  HRESULT GetTableReader(ISession* self, BSTR tableName, ITableReader** pVal) const;

  // Backend service calls, through the public members of self.
  HRESULT CheckPasswordExpired(ISession* self, VARIANT_BOOL* pVal);
  HRESULT ChangePassword(ISession* self, BSTR newPassword);
  HRESULT CheckUnicodeSupport(ISession* self, VARIANT_BOOL* pVal);

  // For the back ends.
  std::u16string OptionValue(std::u16string_view name) const { return m_options.Value(name); }
  const OptionStore& Options() const { return m_options; }
  // The error state is safe from any thread: each change of it (SetError,
  // ClearError, the flag alone) is whole when another thread looks.
  HRESULT SetError(const RfcErrorRecord& record);
  HRESULT ClearError();
  VARIANT_BOOL ErrorFlag() const;
  void SetErrorFlag(VARIANT_BOOL flag);
  IRfcError* ErrorInfoObject() const { return m_errorInfo; }
  CLogonData* Logon() const { return m_logonData; }
  // The cache, created on first need.
  HRESULT EnsureTypeCache(ITypeCache** pVal);

  // ---- one call at a time. Safe from any thread: a back end ends an
  // asynchronous call on a thread of its own.

  // True while a running call is held.
  bool CallRunning() const;
  // The call being answered, or null.
  CComPtr<IFunctionCall> ActiveCall() const;
  // Holds call as the one being answered. With a RunningCall it counts as
  // running until EndCall or AbortRunningCall; without one (a call the
  // session makes for itself) it is only the target of the answer.
  void BeginCall(IFunctionCall* call, std::unique_ptr<RunningCall> running);
  // Takes the call and its RunningCall out of the session; the RunningCall
  // is destroyed after the lock is let go, since destroying it may wait for
  // the back end's thread.
  void EndCall();
  // Takes the running call out and aborts it; false when none was running.
  // Raises what RunningCall::Abort raises; the call is gone either way.
  bool AbortRunningCall();
  // An asynchronous call holds a reference on its session from its start
  // until CallFinished has been fired or the call is aborted, so that neither
  // the client's last Release nor a sink's can pull the session from under
  // the back end's thread. Pin takes a reference for each call, Unpin gives
  // one back; an Unpin without a Pin left does nothing.
  void Pin(IUnknown* session);
  void Unpin(IUnknown* session);

  // Traces a failure of an operation at level 1 by a format of two places,
  // the exception's text and the class's trace name
  // ("Exception: %1% in %2%::AbortCall()").
  static void TraceFailure(const char* operation, const char* format, const char* what, const char* traceName);

 private:
  void ApplyTraceFile(BSTR value);
  void ApplyTraceLevel(BSTR value);

  CComBSTR m_systemId;
  CComPtr<CLogonData> m_logonData;
  mutable std::mutex m_errorMutex;  // the flag and the error object's content
  VARIANT_BOOL m_error = 0;
  CComPtr<IRfcError> m_errorInfo;
  CComPtr<ITypeCache> m_typeCache;
  OptionStore m_options;

  mutable std::mutex m_callMutex;
  CComPtr<IFunctionCall> m_activeCall;
  std::unique_ptr<RunningCall> m_running;
  int m_pins = 0;
};
