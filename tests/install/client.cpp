// A client built only against the installed header, library and pkg-config file.
#include <veltrane.h>

#include <cstdio>
#include <string>

namespace {

int failures = 0;
void check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "FAILED: %s\n", what);
    ++failures;
  }
}

// A client-side implementation of a generated interface.
class CMyError : public CComObjectBase<CMyError, IDispatchImpl<CMyError, IRfcError>> {
 public:
  HRESULT STDMETHODCALLTYPE get_ERRORGROUP(ERRORGROUP* p) override {
    *p = m_group;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE put_ERRORGROUP(ERRORGROUP v) override {
    m_group = v;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_ErrorGroupTxt(BSTR* p) override { return m_key.CopyTo(p); }
  HRESULT STDMETHODCALLTYPE put_ErrorGroupTxt(BSTR v) override {
    m_key = v;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Message(BSTR* p) override { return m_message.CopyTo(p); }
  HRESULT STDMETHODCALLTYPE put_Message(BSTR v) override {
    m_message = v;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_ModuleName(BSTR* p) override { return m_module.CopyTo(p); }
  HRESULT STDMETHODCALLTYPE put_ModuleName(BSTR v) override {
    m_module = v;
    return S_OK;
  }

 private:
  ERRORGROUP m_group = RFCERROR_NO_ERROR;
  CComBSTR m_key, m_message, m_module;
};

}  // namespace

int main() {
  check(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)), "CoInitializeEx");

  // Conversions.
  CComVariant text(u" 1,234.5 ");
  CComVariant number;
  check(VariantChangeType(&number, &text, 0, VT_R8) == S_OK && number.dblVal == 1234.5, "string to double");
  CComVariant big(u"99999");
  check(VariantChangeType(&number, &big, 0, VT_I2) == DISP_E_OVERFLOW, "overflow to short");

  // Error records.
  CComPtr<ICreateErrorInfo> create;
  check(CreateErrorInfo(&create) == S_OK, "CreateErrorInfo");
  create->SetDescription(const_cast<LPOLESTR>(u"from the client"));
  CComQIPtr<IErrorInfo> record(create.p);
  SetErrorInfo(0, record);
  CComPtr<IErrorInfo> back;
  check(GetErrorInfo(0, &back) == S_OK, "GetErrorInfo");
  CComBSTR description;
  if (back) back->GetDescription(&description);
  check(description == u"from the client", "error description");

  // A generated interface, early- and late-bound.
  CComPtr<IRfcError> error;
  check(CMyError::CreateInstance(&error) == S_OK, "create object");
  error->put_ERRORGROUP(RFCERROR_COMMUNICATION);
  CComPtr<IDispatch> disp;
  check(error.QueryInterface(&disp) == S_OK, "QueryInterface IDispatch");
  OLECHAR name[] = u"errorgroup";
  LPOLESTR names[] = {name};
  DISPID id = 0;
  check(disp->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id) == S_OK && id == 1, "GetIDsOfNames");
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  CComVariant result;
  check(
      disp->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr) == S_OK &&
          result.vt == VT_I4 && result.lVal == RFCERROR_COMMUNICATION,
      "late-bound get");
  CComVariant value(u"105");  // coerced to the enum's integer
  DISPID putId = DISPID_PROPERTYPUT;
  DISPPARAMS put{&value, &putId, 1, 1};
  check(disp->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYPUT, &put, nullptr, nullptr, nullptr) == S_OK,
        "late-bound put");
  ERRORGROUP group = RFCERROR_NO_ERROR;
  error->get_ERRORGROUP(&group);
  check(group == RFCERROR_APPLICATION_EXCEPTION, "early-bound get sees the late-bound put");

  error.Release();
  disp.Release();
  CoUninitialize();
  if (failures == 0) std::printf("installed client: all checks passed\n");
  return failures == 0 ? 0 : 1;
}
