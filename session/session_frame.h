// SessionFrame: the state and the logic that all session classes share,
// behind the template ISessionImpl (session_impl.h). It holds SystemID, the
// logon data, the error state, the option store and the TypeCache link, and
// runs the cached imports, the option side effects and the backend service
// calls. The service calls and the table reader work through the session's
// public interface (`self`), so they behave alike on every back end.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/atlbase.h"
#include "session/rfc_error.h"
#include "session/logon_data.h"
#include "session/option_store.h"
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
  HRESULT SetError(const RfcErrorRecord& record);
  HRESULT ClearError();
  VARIANT_BOOL ErrorFlag() const { return m_error; }
  void SetErrorFlag(VARIANT_BOOL flag) { m_error = flag; }
  IRfcError* ErrorInfoObject() const { return m_errorInfo; }
  CLogonData* Logon() const { return m_logonData; }
  // The cache, created on first need.
  HRESULT EnsureTypeCache(ITypeCache** pVal);

 private:
  void ApplyTraceFile(BSTR value);
  void ApplyTraceLevel(BSTR value);

  CComBSTR m_systemId;
  CComPtr<CLogonData> m_logonData;
  VARIANT_BOOL m_error = 0;
  CComPtr<IRfcError> m_errorInfo;
  CComPtr<ITypeCache> m_typeCache;
  OptionStore m_options;
};
