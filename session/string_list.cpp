#include "session/string_list.h"

#include <memory>

#include "platform/enum_variant.h"

namespace {

class SnapshotSource : public CEnumVariantBase::Source {
 public:
  explicit SnapshotSource(std::vector<std::u16string> items) : m_items(std::move(items)) {}
  ULONG count() override { return static_cast<ULONG>(m_items.size()); }
  HRESULT item(ULONG zeroBased, VARIANT* out) override {
    const std::u16string& s = m_items[zeroBased];
    BSTR text = SysAllocStringLen(s.data(), static_cast<UINT>(s.size()));
    if (!text) return E_OUTOFMEMORY;
    V_VT(out) = VT_BSTR;
    V_BSTR(out) = text;
    return S_OK;
  }

 private:
  std::vector<std::u16string> m_items;
};

}  // namespace

HRESULT CRfcStringList::get_Count(LONG* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = static_cast<LONG>(m_items.size());
  return S_OK;
}

HRESULT CRfcStringList::Add(BSTR Item) {
  m_items.emplace_back(BstrView(Item));
  return S_OK;
}

HRESULT CRfcStringList::Remove(LONG index) {
  if (index < 1 || static_cast<size_t>(index) > m_items.size()) return E_INVALIDARG;
  m_items.erase(m_items.begin() + (index - 1));
  return S_OK;
}

HRESULT CRfcStringList::RemoveAll() {
  m_items.clear();
  return S_OK;
}

HRESULT CRfcStringList::IndexOf(BSTR Item, LONG* pVal) {
  if (!pVal) return E_POINTER;
  const std::u16string_view wanted = BstrView(Item);
  for (size_t i = 0; i < m_items.size(); ++i) {
    if (m_items[i] == wanted) {
      *pVal = static_cast<LONG>(i + 1);
      return S_OK;
    }
  }
  *pVal = -1;
  return S_OK;
}

HRESULT CRfcStringList::get_Item(LONG index, BSTR* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  if (index < 1) return E_INVALIDARG;
  if (static_cast<size_t>(index) > m_items.size()) return E_FAIL;
  const std::u16string& s = m_items[static_cast<size_t>(index - 1)];
  *pVal = SysAllocStringLen(s.data(), static_cast<UINT>(s.size()));
  return *pVal ? S_OK : E_OUTOFMEMORY;
}

HRESULT CRfcStringList::get__NewEnum(IUnknown** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  return CEnumVariantBase::Create(std::make_shared<SnapshotSource>(m_items), GetUnknown(), pVal);
}
