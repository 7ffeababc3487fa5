// The backend service calls: small conveniences over standard function
// modules, written against the session's public members only.
#include "platform/atlbase.h"
#include "runtime/report_error.h"
#include "session/session_frame.h"

namespace {

HRESULT SetImporting(IFunctionCall* call, std::u16string_view name, BSTR value) {
  CComPtr<IRfcParameters> importing;
  HRESULT hr = call->get_Importing(&importing);
  if (FAILED(hr)) return hr;
  if (!importing) return E_POINTER;
  CComPtr<IRfcParameter> param;
  if (FAILED(hr = importing->get_Item(CComVariant(name), &param))) return hr;
  if (!param) return E_POINTER;
  VARIANT v;
  V_VT(&v) = VT_BSTR;
  V_BSTR(&v) = value;
  return param->put_value(v);
}

}  // namespace

HRESULT SessionFrame::CheckPasswordExpired(ISession* self, VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = VARIANT_FALSE;

  CComPtr<IFunctionCall> call;
  HRESULT hr = self->CreateCall(&call);
  if (FAILED(hr)) return hr;
  if (FAILED(hr = call->put_Function(CComBSTR(u"SUSR_LOGIN_CHECK_RFC")))) return hr;
  if (FAILED(hr = self->CallFunction(call, VARIANT_TRUE))) return hr;

  VARIANT_BOOL error = VARIANT_FALSE;
  if (FAILED(hr = self->get_Error(&error))) return hr;
  if (!error) return S_OK;

  CComPtr<IRfcError> info;
  if (FAILED(hr = self->get_ErrorInfo(&info))) return hr;  // clears Error
  ERRORGROUP group = RFCERROR_NO_ERROR;
  if (FAILED(hr = info->get_ERRORGROUP(&group))) return hr;
  if (group != RFCERROR_APPLICATION_EXCEPTION) {
    SetErrorFlag(1);
    return S_OK;
  }
  CComBSTR message;
  if (FAILED(hr = info->get_Message(&message))) return hr;
  if (message == u"PASSWORD_EXPIRED") {
    *pVal = VARIANT_TRUE;
    return S_OK;
  }
  SetErrorFlag(1);
  return S_OK;
}

HRESULT SessionFrame::ChangePassword(ISession* self, BSTR newPassword) {
  CComPtr<ILogonData> logon;
  HRESULT hr = self->get_LogonData(&logon);
  if (FAILED(hr)) return hr;
  CComBSTR oldPassword;
  if (FAILED(hr = logon->get_Password(&oldPassword))) return hr;
  if (oldPassword.Length() == 0) return ReportError(CLSID_RfcSession, Text::OldPasswordRequired);

  CComPtr<IFunctionCall> call;
  if (FAILED(hr = self->ImportCall(CComBSTR(u"SUSR_USER_CHANGE_PASSWORD_RFC"), VARIANT_TRUE, &call))) return hr;
  if (FAILED(hr = SetImporting(call, u"PASSWORD", oldPassword))) return hr;
  if (FAILED(hr = SetImporting(call, u"NEW_PASSWORD", newPassword))) return hr;
  return self->CallFunction(call, VARIANT_TRUE);
}

HRESULT SessionFrame::CheckUnicodeSupport(ISession* self, VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = VARIANT_FALSE;

  CComPtr<IFunctionCall> call;
  HRESULT hr = self->ImportCall(CComBSTR(u"SLDAG_CHECK_FOR_UNICODE"), VARIANT_TRUE, &call);
  if (FAILED(hr)) return hr;
  if (FAILED(hr = self->CallFunction(call, VARIANT_TRUE))) return hr;

  CComPtr<IRfcParameters> exporting;
  if (FAILED(hr = call->get_Exporting(&exporting))) return hr;
  if (!exporting) return E_POINTER;
  CComPtr<IRfcParameter> unicode;
  if (FAILED(hr = exporting->get_Item(CComVariant(u"UNICODE"), &unicode))) return hr;
  if (!unicode) return E_POINTER;
  CComVariant value;
  if (FAILED(hr = unicode->get_value(&value))) return hr;
  // VarCmp ranks any text above any number, so a number is compared as its
  // text: the number 1 counts as well as the text "1".
  if (V_VT(&value) != VT_BSTR && V_VT(&value) != VT_EMPTY && V_VT(&value) != VT_NULL) {
    CComVariant text;
    if (SUCCEEDED(VariantChangeType(&text, &value, 0, VT_BSTR))) value = text;
  }
  CComVariant one(u"1");
  hr = VarCmp(&value, &one, GetThreadLocale(), 0);
  if (FAILED(hr)) return hr;
  *pVal = hr == VARCMP_EQ ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}
