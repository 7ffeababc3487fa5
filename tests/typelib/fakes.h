// Small implementations of generated interfaces on IDispatchImpl, recording
// what reaches their early-bound methods.
#pragma once

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "platform/enum_variant.h"
#include "runtime/report_error.h"
#include "veltrane_tlb.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace typelib_test {

inline std::u16string Str(BSTR s) { return s ? std::u16string(s, SysStringLen(s)) : std::u16string(); }

// IRfcError with plain fields; a ModuleName of "bad" is refused with the
// error record of code 513, as the component's own classes report.
class CFakeRfcError : public CComObjectBase<CFakeRfcError, IDispatchImpl<CFakeRfcError, IRfcError>,
                                            ISupportErrorInfoImpl<&IID_IRfcError>> {
 public:
  HRESULT STDMETHODCALLTYPE get_ERRORGROUP(ERRORGROUP* pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = group;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE put_ERRORGROUP(ERRORGROUP newVal) override {
    group = newVal;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_ErrorGroupTxt(BSTR* pVal) override { return groupText.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_ErrorGroupTxt(BSTR newVal) override {
    groupText = newVal;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Message(BSTR* pVal) override { return message.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_Message(BSTR newVal) override {
    message = newVal;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_ModuleName(BSTR* pVal) override { return moduleName.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_ModuleName(BSTR newVal) override {
    if (Str(newVal) == u"bad") return ReportError(CLSID_RfcError, 513u, 0, nullptr, IID_ISession);
    moduleName = newVal;
    return S_OK;
  }

  ERRORGROUP group = RFCERROR_NO_ERROR;
  CComBSTR groupText;
  CComBSTR message;
  CComBSTR moduleName;
};

// IFunctionCall keeping name, documentation, the exception pair and the
// last XML text. It has no parameter sets.
class CFakeFunctionCall : public CComObjectBase<CFakeFunctionCall, IDispatchImpl<CFakeFunctionCall, IFunctionCall>> {
 public:
  HRESULT STDMETHODCALLTYPE get_Function(BSTR* pVal) override { return function.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_Function(BSTR newVal) override {
    function = newVal;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Importing(IRfcParameters** pVal) override { return noParameters(pVal); }
  HRESULT STDMETHODCALLTYPE get_Exporting(IRfcParameters** pVal) override { return noParameters(pVal); }
  HRESULT STDMETHODCALLTYPE get_Changing(IRfcParameters** pVal) override { return noParameters(pVal); }
  HRESULT STDMETHODCALLTYPE get_Tables(IRfcParameters** pVal) override { return noParameters(pVal); }
  HRESULT STDMETHODCALLTYPE get_Documentation(BSTR* pVal) override { return documentation.CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_Documentation(BSTR newVal) override {
    documentation = newVal;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE RaiseException(BSTR exceptionName, BSTR messageText) override {
    ++raiseCalls;
    exception = exceptionName;
    message = messageText;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetException(BSTR* exceptionName, BSTR* messageText) override {
    if (messageText) {
      HRESULT hr = message.CopyTo(messageText);
      if (FAILED(hr)) return hr;
    }
    if (!exceptionName) return E_POINTER;
    return exception.CopyTo(exceptionName);
  }
  HRESULT STDMETHODCALLTYPE ToXML(BSTR* pVal) override {
    CComBSTR text(u"<function name=\"");
    text += function.View();
    text += u"\"/>";
    return text.CopyTo(pVal);
  }
  HRESULT STDMETHODCALLTYPE FromXML(BSTR xml) override {
    lastXml = xml;
    return S_OK;
  }

  CComBSTR function;
  CComBSTR documentation;
  CComBSTR exception;
  CComBSTR message;
  CComBSTR lastXml;
  int raiseCalls = 0;

 private:
  static HRESULT noParameters(IRfcParameters** pVal) {
    if (!pVal) return E_POINTER;
    *pVal = nullptr;
    return S_OK;
  }
};

// IStringList over a vector, positions from 1.
class CFakeStringList : public CComObjectBase<CFakeStringList, IDispatchImpl<CFakeStringList, IStringList>> {
 public:
  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = static_cast<LONG>(items.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Add(BSTR Item) override {
    items.push_back(Str(Item));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Remove(LONG index) override {
    if (index < 1 || index > static_cast<LONG>(items.size())) return E_INVALIDARG;
    items.erase(items.begin() + (index - 1));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE RemoveAll() override {
    items.clear();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE IndexOf(BSTR Item, LONG* pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = -1;
    for (size_t i = 0; i < items.size(); ++i) {
      if (items[i] == Str(Item)) {
        *pVal = static_cast<LONG>(i + 1);
        break;
      }
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Item(LONG index, BSTR* pVal) override {
    if (!pVal) return E_POINTER;
    if (index < 1) return E_INVALIDARG;
    if (index > static_cast<LONG>(items.size())) return E_FAIL;
    *pVal = SysAllocStringLen(items[index - 1].data(), static_cast<UINT>(items[index - 1].size()));
    return *pVal ? S_OK : E_OUTOFMEMORY;
  }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override {
    std::vector<CComVariant> copies;
    for (const auto& s : items) copies.emplace_back(std::u16string_view(s));
    return CEnumVariantBase::Create(std::make_shared<CVariantVectorSource>(copies), nullptr, pVal);
  }

  std::vector<std::u16string> items;
};

// IRfcParameters recording the arguments of AddScalar and AddParameter.
class CFakeParameters : public CComObjectBase<CFakeParameters, IDispatchImpl<CFakeParameters, IRfcParameters>> {
 public:
  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = static_cast<LONG>(names.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE HasKey(BSTR key, VARIANT_BOOL* pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = VARIANT_FALSE;
    for (const auto& n : names)
      if (n == Str(key)) *pVal = VARIANT_TRUE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Item(VARIANT inIndex, IRfcParameter** pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = nullptr;
    return E_INVALIDARG;  // holds names only, no parameter objects
  }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override {
    std::vector<CComVariant> copies;
    for (const auto& s : names) copies.emplace_back(std::u16string_view(s));
    return CEnumVariantBase::Create(std::make_shared<CVariantVectorSource>(copies), nullptr, pVal);
  }
  HRESULT STDMETHODCALLTYPE AddScalar(BSTR name, ABAPTYPE type, SHORT length, SHORT decimals, VARIANT value) override {
    names.push_back(Str(name));
    lastType = type;
    lastLength = length;
    lastDecimals = decimals;
    return lastValue.Copy(&value);
  }
  HRESULT STDMETHODCALLTYPE AddParameter(BSTR name, IRfcType* type) override {
    names.push_back(Str(name));
    lastTypeObject = type;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE AddTable(BSTR name, IRfcType* RowType) override {
    if (!RowType) return E_INVALIDARG;
    names.push_back(Str(name));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE RemoveParameter(BSTR name) override {
    for (auto it = names.begin(); it != names.end(); ++it) {
      if (*it == Str(name)) {
        names.erase(it);
        return S_OK;
      }
    }
    return E_INVALIDARG;
  }

  std::vector<std::u16string> names;
  ABAPTYPE lastType = static_cast<ABAPTYPE>(-1);
  SHORT lastLength = -99;
  SHORT lastDecimals = -99;
  CComVariant lastValue;
  CComPtr<IRfcType> lastTypeObject;
};

template <class T, class Itf>
CComPtr<Itf> Make() {
  CComPtr<Itf> p;
  EXPECT_EQ(T::CreateInstance(&p), S_OK);
  return p;
}

}  // namespace typelib_test
