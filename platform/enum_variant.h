// IEnumVARIANT over a source that hands out items by position. The source is
// read at each Next, so an enumerator sees the collection as it is then.
//
//   struct Source { ULONG count(); HRESULT item(ULONG zeroBased, VARIANT* out); };
#pragma once

#include "platform/atlbase.h"
#include "platform/com_object.h"

#include <memory>
#include <utility>
#include <vector>

class CEnumVariantBase : public CComObjectBase<CEnumVariantBase, IEnumVARIANT> {
 public:
  // Items by position; the owner keeps the collection alive through `keepAlive`.
  struct Source {
    virtual ~Source() = default;
    virtual ULONG count() = 0;
    virtual HRESULT item(ULONG zeroBased, VARIANT* out) = 0;
  };

  void init(std::shared_ptr<Source> source, CComPtr<IUnknown> keepAlive, ULONG position = 0) {
    m_source = std::move(source);
    m_keepAlive = std::move(keepAlive);
    m_position = position;
  }

  HRESULT STDMETHODCALLTYPE Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) override {
    if (!rgVar || (celt > 1 && !pCeltFetched)) return E_POINTER;
    ULONG fetched = 0;
    while (fetched < celt && m_position < m_source->count()) {
      VariantInit(&rgVar[fetched]);
      HRESULT hr = m_source->item(m_position, &rgVar[fetched]);
      if (FAILED(hr)) {
        for (ULONG i = 0; i < fetched; ++i) VariantClear(&rgVar[i]);
        if (pCeltFetched) *pCeltFetched = 0;
        return hr;
      }
      ++m_position;
      ++fetched;
    }
    if (pCeltFetched) *pCeltFetched = fetched;
    return fetched == celt ? S_OK : S_FALSE;
  }

  HRESULT STDMETHODCALLTYPE Skip(ULONG celt) override {
    const ULONG total = m_source->count();
    const ULONG left = m_position < total ? total - m_position : 0;
    m_position += celt < left ? celt : left;
    return celt <= left ? S_OK : S_FALSE;
  }

  HRESULT STDMETHODCALLTYPE Reset() override {
    m_position = 0;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** ppEnum) override {
    if (!ppEnum) return E_POINTER;
    CEnumVariantBase* copy = nullptr;
    HRESULT hr = CreateInstance(&copy);
    if (FAILED(hr)) return hr;
    copy->init(m_source, m_keepAlive, m_position);
    *ppEnum = copy;
    return S_OK;
  }

  // An enumerator over a source.
  static HRESULT Create(std::shared_ptr<Source> source, IUnknown* keepAlive, IUnknown** ppEnum) {
    if (!ppEnum) return E_POINTER;
    CEnumVariantBase* e = nullptr;
    HRESULT hr = CreateInstance(&e);
    if (FAILED(hr)) return hr;
    e->init(std::move(source), keepAlive);
    *ppEnum = static_cast<IEnumVARIANT*>(e);
    return S_OK;
  }

 private:
  std::shared_ptr<Source> m_source;
  CComPtr<IUnknown> m_keepAlive;
  ULONG m_position = 0;
};

// A source over a snapshot of values.
class CVariantVectorSource : public CEnumVariantBase::Source {
 public:
  explicit CVariantVectorSource(std::vector<CComVariant> items) : m_items(std::move(items)) {}
  ULONG count() override { return static_cast<ULONG>(m_items.size()); }
  HRESULT item(ULONG i, VARIANT* out) override { return VariantCopy(out, &m_items[i]); }

 private:
  std::vector<CComVariant> m_items;
};
