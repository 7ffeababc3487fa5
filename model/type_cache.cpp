#include "model/type_cache.h"

#include "model/model.h"
#include "runtime/trace.h"

HRESULT CTypeCache::GetType(BSTR name, IRfcType** pVal) {
  const std::u16string_view key = BstrView(name);
  auto it = m_types.find(key);
  if (it == m_types.end()) {
    Trace(u"CTypeCache: type '%s' not in cache\n", key);
    return kCacheMiss;
  }
  Trace(u"CTypeCache: retrieved type '%s' from cache\n", key);
  if (!pVal) return E_POINTER;
  return it->second.CopyTo(pVal);
}

HRESULT CTypeCache::AddType(BSTR name, IRfcType* type) {
  if (!type) return E_POINTER;
  m_types.insert_or_assign(std::u16string(BstrView(name)), CComPtr<IRfcType>(type));
  return S_OK;
}

HRESULT CTypeCache::Clear() {
  // Released outside the maps, in case a release reaches back to the cache.
  auto types = std::move(m_types);
  auto functions = std::move(m_functions);
  m_types.clear();
  m_functions.clear();
  return S_OK;
}

HRESULT CTypeCache::GetFunction(BSTR name, IFunctionCall** pVal) {
  const std::u16string_view key = BstrView(name);
  auto it = m_functions.find(key);
  if (it == m_functions.end()) {
    Trace(u"CTypeCache: function '%s' not in cache\n", key);
    return kCacheMiss;
  }
  Trace(u"CTypeCache: retrieved function '%s' from cache\n", key);
  if (!pVal) return E_POINTER;
  return DeepCopyCall(it->second, pVal);
}

HRESULT CTypeCache::AddFunction(BSTR name, IFunctionCall* call) {
  if (!call) return E_POINTER;
  CComPtr<IFunctionCall> copy;
  HRESULT hr = DeepCopyCall(call, &copy);
  if (FAILED(hr)) return hr;
  m_functions.insert_or_assign(std::u16string(BstrView(name)), std::move(copy));
  return S_OK;
}

HRESULT CTypeCache::SaveToXML(BSTR) { return E_NOTIMPL; }

HRESULT CTypeCache::LoadFromXML(BSTR) { return E_NOTIMPL; }
