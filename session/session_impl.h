// ISessionImpl<Derived, Itf>: the frame that every session class shares.
// Itf is ISoapSession or IRfcSession. The frame implements the ISession
// members that do not depend on the back end (SystemID, LogonData,
// ErrorInfo, Error, Option, TypeCache, DecodeInternalError, ImportType,
// ImportCall, CreateCall, CreateType, About, GetTableReader and the three
// backend service calls), each inside the session's boundary (boundary.h),
// so that a failure reaches the client as a result only. The logic lives in
// SessionFrame and SessionBoundary, so that a session class does not compile
// it again. Back ends build on ISessionCallsImpl (session_calls.h), which
// adds the calls.
//
// Derived names its class for the boundary and plugs in its imports:
//
//   static constexpr SessionBoundary kBoundary{CLSID_SoapSession, "CSOAPSession"};
//   HRESULT ImportTypeFromBackend(BSTR name, IRfcType* type) override;
//   HRESULT ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams,
//                                 IFunctionCall* call) override;
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "model/model.h"
#include "platform/atlbase.h"
#include "platform/dispatch_impl.h"
#include "runtime/exceptions.h"
#include "runtime/report_error.h"
#include "session/boundary.h"
#include "session/logon_data.h"
#include "session/rfc_error.h"
#include "session/session_frame.h"
#include "veltrane_tlb.h"

template <class Derived, class Itf>
class ISessionImpl : public IDispatchImpl<Derived, Itf> {
 public:
  ISessionImpl() = default;
  ISessionImpl(const ISessionImpl&) = delete;
  ISessionImpl& operator=(const ISessionImpl&) = delete;

  HRESULT STDMETHODCALLTYPE get_SystemID(BSTR* pVal) override { return m_frame.GetSystemID(pVal); }
  HRESULT STDMETHODCALLTYPE put_SystemID(BSTR newVal) override { return m_frame.PutSystemID(newVal); }
  HRESULT STDMETHODCALLTYPE get_LogonData(ILogonData** pVal) override { return m_frame.GetLogonData(pVal); }
  // Reading ErrorInfo clears Error.
  HRESULT STDMETHODCALLTYPE get_ErrorInfo(IRfcError** pVal) override { return m_frame.GetErrorInfo(pVal); }
  HRESULT STDMETHODCALLTYPE get_Error(VARIANT_BOOL* pVal) override { return m_frame.GetError(pVal); }
  HRESULT STDMETHODCALLTYPE get_Option(BSTR name, BSTR* pVal) override {
    return Guard("get_Option", [&] { return m_frame.GetOption(name, pVal); });
  }
  HRESULT STDMETHODCALLTYPE put_Option(BSTR name, BSTR newVal) override {
    return Guard("put_Option", [&] { return m_frame.PutOption(name, newVal); });
  }
  HRESULT STDMETHODCALLTYPE get_TypeCache(ITypeCache** pVal) override {
    return Guard("get_TypeCache", [&] { return m_frame.GetTypeCache(pVal); });
  }
  HRESULT STDMETHODCALLTYPE put_TypeCache(ITypeCache* newVal) override { return m_frame.PutTypeCache(newVal); }
  HRESULT STDMETHODCALLTYPE DecodeInternalError(LONG errcode, BSTR* pVal) override {
    return m_frame.DecodeInternalError(errcode, pVal);
  }
  HRESULT STDMETHODCALLTYPE ImportType(BSTR type, IRfcType** pVal) override {
    return Guard("ImportType", [&] {
      return m_frame.ImportType(type, pVal, [this](BSTR name, IRfcType* t) { return ImportTypeFromBackend(name, t); });
    });
  }
  HRESULT STDMETHODCALLTYPE CheckPasswordExpired(VARIANT_BOOL* pVal) override {
    return Guard("CheckPasswordExpired", [&] { return m_frame.CheckPasswordExpired(Self(), pVal); });
  }
  HRESULT STDMETHODCALLTYPE ChangePassword(BSTR newPassword) override {
    return Guard("ChangePassword", [&] { return m_frame.ChangePassword(Self(), newPassword); });
  }
  HRESULT STDMETHODCALLTYPE CheckUnicodeSupport(VARIANT_BOOL* pVal) override {
    return Guard("CheckUnicodeSupport", [&] { return m_frame.CheckUnicodeSupport(Self(), pVal); });
  }
  HRESULT STDMETHODCALLTYPE CreateCall(IFunctionCall** pVal) override {
    return Guard("CreateCall", [&] { return m_frame.CreateCall(pVal); });
  }
  HRESULT STDMETHODCALLTYPE CreateType(IRfcType** pVal) override {
    return Guard("CreateType", [&] { return m_frame.CreateType(pVal); });
  }
  HRESULT STDMETHODCALLTYPE About() override {
    return Guard("About", [&] { return m_frame.About(); });
  }
  HRESULT STDMETHODCALLTYPE ImportCall(BSTR ModuleName, VARIANT_BOOL ignoreUnsupportedParams,
                                       IFunctionCall** pVal) override {
    return Guard("ImportCall", [&] {
      return m_frame.ImportCall(ModuleName, ignoreUnsupportedParams, pVal,
                                [this](BSTR name, VARIANT_BOOL ignore, IFunctionCall* call) {
                                  return ImportCallFromBackend(name, ignore, call);
                                });
    });
  }
  HRESULT STDMETHODCALLTYPE GetTableReader(BSTR tableName, ITableReader** pVal) override {
    return Guard("GetTableReader", [&] { return m_frame.GetTableReader(Self(), tableName, pVal); });
  }

 protected:
  ~ISessionImpl() = default;

  // The session as its public interface, and as IUnknown.
  ISession* Self() { return static_cast<ISession*>(static_cast<Itf*>(this)); }
  IUnknown* Unknown() { return static_cast<IUnknown*>(static_cast<Itf*>(this)); }

  // Runs an operation of the session inside its boundary (boundary.h).
  template <class Body>
  HRESULT Guard(const char* operation, Body&& body) {
    return Derived::kBoundary.Run(operation, std::forward<Body>(body), [this](const RfcErrorRecord& record) {
      static_cast<Derived*>(this)->RecordFault(record);
    });
  }

  // Where the boundary puts a fault of the server: ErrorInfo by SetError. A
  // session with an error operation of its own hides this one.
  void RecordFault(const RfcErrorRecord& record) { SetError(record); }

  // The option store: an unknown or null value reads as empty.
  std::u16string OptionValue(std::u16string_view name) const { return m_frame.OptionValue(name); }
  const OptionStore& Options() const { return m_frame.Options(); }

  // Error state: a record sets Error and copies group, key and message into
  // ErrorInfo (ModuleName stays); ClearError resets both.
  HRESULT SetError(const RfcErrorRecord& record) { return m_frame.SetError(record); }
  HRESULT ClearError() { return m_frame.ClearError(); }
  VARIANT_BOOL ErrorFlag() const { return m_frame.ErrorFlag(); }
  void SetErrorFlag(VARIANT_BOOL flag) { m_frame.SetErrorFlag(flag); }
  // The error object, without clearing Error.
  IRfcError* ErrorInfoObject() const { return m_frame.ErrorInfoObject(); }

  // The logon data, with direct access to its strings.
  CLogonData* Logon() const { return m_frame.Logon(); }

  // The type cache, created on first need.
  HRESULT EnsureTypeCache(ITypeCache** pVal) { return m_frame.EnsureTypeCache(pVal); }

  // The running call (CallFunction) and the call being answered.
  bool CallRunning() const { return m_frame.CallRunning(); }
  CComPtr<IFunctionCall> ActiveCall() const { return m_frame.ActiveCall(); }
  // A call the session makes for itself (a ping): the answer's target, not a
  // running call.
  void BeginOwnCall(IFunctionCall* call) { m_frame.BeginCall(call, nullptr); }
  // The answer is in: the call is no longer held, nor running.
  void EndCall() { m_frame.EndCall(); }

  // CallFinished to every sink of _SessionEvents.
  HRESULT FireCallFinished() { return static_cast<Derived*>(this)->Fire_CallFinished(); }

  SessionFrame& Frame() { return m_frame; }

 private:
  // Fills the undefined type from the system's dictionary.
  virtual HRESULT ImportTypeFromBackend(BSTR name, IRfcType* type) = 0;
  // Fills the call, whose Function is already set.
  virtual HRESULT ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall* call) = 0;

  SessionFrame m_frame;
};
