#include "session/option_store.h"

HRESULT OptionStore::Put(BSTR name, BSTR value) {
  CComBSTR copy;
  if (value) {
    copy.Attach(SysAllocStringLen(value, SysStringLen(value)));
    if (!copy) return E_OUTOFMEMORY;
  }
  m_values.insert_or_assign(std::u16string(BstrView(name)), std::move(copy));
  return S_OK;
}

HRESULT OptionStore::Get(BSTR name, BSTR* value, bool nullForUnknown) const {
  if (!value) return E_POINTER;
  *value = nullptr;
  auto it = m_values.find(BstrView(name));
  if (it == m_values.end()) {
    if (nullForUnknown) return S_OK;
    *value = SysAllocString(u"");
    return *value ? S_OK : E_OUTOFMEMORY;
  }
  if (!it->second) return S_OK;
  *value = it->second.Copy();
  return *value ? S_OK : E_OUTOFMEMORY;
}

std::u16string OptionStore::Value(std::u16string_view name) const {
  auto it = m_values.find(name);
  if (it == m_values.end() || !it->second) return {};
  return std::u16string(static_cast<const char16_t*>(it->second), it->second.Length());
}

bool OptionStore::Contains(std::u16string_view name) const { return m_values.find(name) != m_values.end(); }
