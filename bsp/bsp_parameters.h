// CBSPParameter (IBSPParameter), a name and a value, and CBSPParameters
// (IBSPParameters), the parameters of a BSP application: a list in
// insertion order keyed by name, as the object model's collections are
// (model/collection.h). A repeated name gives a second entry, and the key
// then finds the newer one.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/collection.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/property.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CBSPParameter : public CComObjectBase<CBSPParameter, CoClassBSPParameter<CBSPParameter>> {
 public:
  CBSPParameter() : m_name(u""), m_value(u"") {}

  HRESULT STDMETHODCALLTYPE get_name(BSTR* pVal) override { return GetProperty(m_name, pVal); }
  HRESULT STDMETHODCALLTYPE put_name(BSTR newVal) override { return PutProperty(m_name, newVal); }
  HRESULT STDMETHODCALLTYPE get_value(BSTR* pVal) override { return GetProperty(m_value, pVal); }
  HRESULT STDMETHODCALLTYPE put_value(BSTR newVal) override { return PutProperty(m_value, newVal); }

 private:
  CComBSTR m_name;
  CComBSTR m_value;
};

class CBSPParameters
    : public CComObjectBase<
          CBSPParameters,
          CoClassBSPParameters<
              CBSPParameters, IKeyedCollectionImpl<CBSPParameters, IBSPParameters, IBSPParameter, CollectionNameKey>>> {
 public:
  // IBSPParameters
  HRESULT STDMETHODCALLTYPE Add(IBSPParameter* inItem) override { return CollAdd(inItem); }
  HRESULT STDMETHODCALLTYPE Remove(VARIANT inIndex) override { return CollRemove(inIndex); }
  HRESULT STDMETHODCALLTYPE RemoveAll() override {
    CollRemoveAll();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE AddParameter(BSTR name, BSTR value) override;

  // Every parameter's name and value, in collection order. An item that
  // cannot be read raises E_POINTER.
  std::vector<std::pair<std::u16string, std::u16string>> Pairs() const;
};
