// ISessionImpl<Derived, Itf>: the frame that every session class shares.
// Itf is ISoapSession or IRfcSession. The frame implements the ISession
// members that do not depend on the back end (SystemID, LogonData,
// ErrorInfo, Error, Option, TypeCache, DecodeInternalError, ImportType,
// ImportCall, CreateCall, CreateType, About, GetTableReader and the three
// backend service calls); the logic lives in SessionFrame, so that a session
// class does not compile it again.
//
// A session class lists its bases like this:
//
//   class CSoapSession
//       : public CComObjectBase<CSoapSession, ISessionImpl<CSoapSession, ISoapSession>,
//                               IConnectionPointContainerImpl<CSoapSession, CProxy_SessionEvents<CSoapSession>>,
//                               ISupportErrorInfoImpl<&IID_ISoapSession, &IID_ISession>> {
//     // Connect, Disconnect, CallFunction, AbortCall, IsConnected, CallActive,
//     // SessionType, CreateTransID, ConfirmTransID, CallTRFCFunction and the
//     // class's own members (HttpSystemData; RfcSystemData, GetSSO2Ticket).
//    private:
//     HRESULT ImportTypeFromBackend(BSTR name, IRfcType* type) override;
//     HRESULT ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams,
//                                   IFunctionCall* call) override;
//   };
//
// The container finds its connection point among its own template arguments
// (CProxy_SessionEvents<T> is an IConnectionPointImpl for DIID__SessionEvents);
// FireCallFinished() reaches it through Derived.
#pragma once

#include <string>
#include <string_view>

#include "platform/atlbase.h"
#include "platform/dispatch_impl.h"
#include "session/rfc_error.h"
#include "session/logon_data.h"
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
  HRESULT STDMETHODCALLTYPE get_Option(BSTR name, BSTR* pVal) override { return m_frame.GetOption(name, pVal); }
  HRESULT STDMETHODCALLTYPE put_Option(BSTR name, BSTR newVal) override { return m_frame.PutOption(name, newVal); }
  HRESULT STDMETHODCALLTYPE get_TypeCache(ITypeCache** pVal) override { return m_frame.GetTypeCache(pVal); }
  HRESULT STDMETHODCALLTYPE put_TypeCache(ITypeCache* newVal) override { return m_frame.PutTypeCache(newVal); }
  HRESULT STDMETHODCALLTYPE DecodeInternalError(LONG errcode, BSTR* pVal) override {
    return m_frame.DecodeInternalError(errcode, pVal);
  }
  HRESULT STDMETHODCALLTYPE ImportType(BSTR type, IRfcType** pVal) override {
    return m_frame.ImportType(type, pVal, [this](BSTR name, IRfcType* t) { return ImportTypeFromBackend(name, t); });
  }
  HRESULT STDMETHODCALLTYPE CheckPasswordExpired(VARIANT_BOOL* pVal) override {
    return m_frame.CheckPasswordExpired(Self(), pVal);
  }
  HRESULT STDMETHODCALLTYPE ChangePassword(BSTR newPassword) override {
    return m_frame.ChangePassword(Self(), newPassword);
  }
  HRESULT STDMETHODCALLTYPE CheckUnicodeSupport(VARIANT_BOOL* pVal) override {
    return m_frame.CheckUnicodeSupport(Self(), pVal);
  }
  HRESULT STDMETHODCALLTYPE CreateCall(IFunctionCall** pVal) override { return m_frame.CreateCall(pVal); }
  HRESULT STDMETHODCALLTYPE CreateType(IRfcType** pVal) override { return m_frame.CreateType(pVal); }
  HRESULT STDMETHODCALLTYPE About() override { return m_frame.About(); }
  HRESULT STDMETHODCALLTYPE ImportCall(BSTR ModuleName, VARIANT_BOOL ignoreUnsupportedParams,
                                       IFunctionCall** pVal) override {
    return m_frame.ImportCall(ModuleName, ignoreUnsupportedParams, pVal,
                              [this](BSTR name, VARIANT_BOOL ignore, IFunctionCall* call) {
                                return ImportCallFromBackend(name, ignore, call);
                              });
  }
  HRESULT STDMETHODCALLTYPE GetTableReader(BSTR tableName, ITableReader** pVal) override {
    return m_frame.GetTableReader(Self(), tableName, pVal);
  }

 protected:
  ~ISessionImpl() = default;

  // The session as its public interface.
  ISession* Self() { return static_cast<ISession*>(static_cast<Itf*>(this)); }

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
