// The collections of the object model.
//
// CComCollect<Itf>: an ordered list of items, positions counted from 1, with
// a live IEnumVARIANT. RfcRows uses it.
//
// CComCollectMapBase<Itf, KeyOf>: the list plus a map from key to position.
// A VARIANT index that converts to VT_I4 is a position (so "10" is position
// 10, never a key); anything else is converted to a string and looked up as
// a key. Keys are case-sensitive. Adding an item whose key is taken keeps
// both items and points the map at the newer one. Remove closes the gap and
// rebuilds the whole map from the items' current keys. Failures are bare
// platform codes without an error record: 0x80070057 for a bad index or key,
// 0x8000FFFF for an item of the wrong kind.
//   CComCollectMapName<Itf>: the key is the item's `name`.
//   CComCollectMapCustom<Itf>: the key is the item's `Function`.
//
// The operations stand as C++ members (Coll...) that the owning classes call
// behind their interface members.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/atlbase.h"
#include "platform/dispatch_impl.h"
#include "platform/enum_variant.h"

// Order of the keys: UTF-16 code units. Two keys match only when they are
// identical, which is the equality of the platform's string comparison
// without flags; the order itself is never visible.
struct CollectionKeyLess {
  using is_transparent = void;
  bool operator()(std::u16string_view a, std::u16string_view b) const noexcept { return a < b; }
};
template <class T>
using CollectionKeyMap = std::map<std::u16string, T, CollectionKeyLess>;

template <class ItemItf>
class CComCollect {
 public:
  using item_interface = ItemItf;

  LONG CollCount() const { return static_cast<LONG>(m_items.size()); }

  HRESULT CollGetCount(LONG* count) const {
    if (!count) return E_POINTER;
    *count = CollCount();
    return S_OK;
  }

  // The item at a 0-based position, without a reference of its own.
  ItemItf* CollAt(size_t zeroBased) const { return m_items[zeroBased].p; }

  // The item at a 1-based position.
  HRESULT CollItemAt(LONG position, ItemItf** out) const {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (position < 1 || position > CollCount()) return E_INVALIDARG;
    return m_items[static_cast<size_t>(position - 1)].CopyTo(out);
  }

  // Appends an item that must answer the item interface.
  HRESULT CollAppend(IUnknown* item) {
    CComPtr<ItemItf> typed;
    if (!item || FAILED(item->QueryInterface(__uuidof(ItemItf), reinterpret_cast<void**>(&typed))) || !typed)
      return E_UNEXPECTED;
    m_items.push_back(std::move(typed));
    return S_OK;
  }

  // Appends an item known to be of the item interface.
  void CollAppendTyped(ItemItf* item) { m_items.emplace_back(item); }

  // Appends such an item and takes over the caller's reference.
  void CollAppendOwned(ItemItf* item) { m_items.emplace_back().Attach(item); }

  // Removes the item at a 1-based position.
  HRESULT CollRemoveAt(LONG position) {
    if (position < 1 || position > CollCount()) return E_INVALIDARG;
    m_items.erase(m_items.begin() + (position - 1));
    return S_OK;
  }

  void CollRemoveAll() {
    // Released outside the container, so that an item's release may not
    // observe a half-cleared list. The storage is kept for the next fill.
    std::vector<CComPtr<ItemItf>> gone;
    gone.swap(m_items);
    gone.clear();
    if (m_items.empty()) m_items.swap(gone);
  }

  void CollReserve(size_t n) { m_items.reserve(n); }

  // A live enumerator: it keeps owner alive and reads the list at each step.
  HRESULT CollNewEnum(IUnknown* owner, IUnknown** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    auto source = std::make_shared<EnumSource>(&m_items);
    return CEnumVariantBase::Create(std::move(source), owner, out);
  }

 protected:
  CComCollect() = default;
  ~CComCollect() = default;

  std::vector<CComPtr<ItemItf>> m_items;

 private:
  class EnumSource : public CEnumVariantBase::Source {
   public:
    explicit EnumSource(const std::vector<CComPtr<ItemItf>>* items) : m_list(items) {}
    ULONG count() override { return static_cast<ULONG>(m_list->size()); }
    HRESULT item(ULONG i, VARIANT* out) override {
      IDispatch* d = static_cast<IDispatch*>((*m_list)[i].p);
      out->vt = VT_DISPATCH;
      out->pdispVal = d;
      if (d) d->AddRef();
      return S_OK;
    }

   private:
    const std::vector<CComPtr<ItemItf>>* m_list;
  };
};

// Key readers of the keyed collections.
struct CollectionNameKey {
  template <class Itf>
  static HRESULT Read(Itf* item, BSTR* key) {
    return item->get_name(key);
  }
};
struct CollectionFunctionKey {
  template <class Itf>
  static HRESULT Read(Itf* item, BSTR* key) {
    return item->get_Function(key);
  }
};

// The map of a keyed collection. Collections built alike (the rows of one
// table) may share one read-only map; a change makes the map private first.
using CollectionIndex = CollectionKeyMap<size_t>;

template <class ItemItf, class KeyOf>
class CComCollectMapBase : public CComCollect<ItemItf> {
  using Base = CComCollect<ItemItf>;

 public:
  // Resolves an index to a 0-based position: a position first, then a key.
  HRESULT CollResolve(const VARIANT& index, size_t* zeroBased) const {
    const VARIANT* src = &index;
    while (src->vt == (VT_BYREF | VT_VARIANT) && src->pvarVal) src = src->pvarVal;
    CComVariant deref;
    if (src->vt & VT_BYREF) {
      if (FAILED(VariantCopyInd(&deref, src))) return E_INVALIDARG;
      src = &deref;
    }
    LONG position = 0;
    bool isPosition = true;
    if (src->vt == VT_I4) {
      position = src->lVal;
    } else if (src->vt == VT_I2) {
      position = src->iVal;
    } else {
      CComVariant number;
      if (SUCCEEDED(VariantChangeType(&number, src, 0, VT_I4)) && number.vt == VT_I4)
        position = number.lVal;
      else
        isPosition = false;
    }
    if (isPosition) {
      if (position < 1 || position > Base::CollCount()) return E_INVALIDARG;
      *zeroBased = static_cast<size_t>(position - 1);
      return S_OK;
    }
    std::u16string_view key;
    CComVariant text;
    if (src->vt == VT_BSTR) {
      key = BstrView(src->bstrVal);
    } else {
      if (FAILED(VariantChangeType(&text, src, 0, VT_BSTR)) || text.vt != VT_BSTR) return E_INVALIDARG;
      key = BstrView(text.bstrVal);
    }
    const CollectionIndex& map = Index();
    auto it = map.find(key);
    if (it == map.end()) return E_INVALIDARG;
    *zeroBased = it->second;
    return S_OK;
  }

  HRESULT CollItem(const VARIANT& index, ItemItf** out) const {
    if (!out) return E_POINTER;
    *out = nullptr;
    size_t pos = 0;
    HRESULT hr = CollResolve(index, &pos);
    if (FAILED(hr)) return hr;
    if (!Base::m_items[pos]) return E_UNEXPECTED;
    return Base::m_items[pos].CopyTo(out);
  }

  // The newest item of a key, without a reference of its own; null if none.
  ItemItf* CollFind(std::u16string_view key) const {
    const CollectionIndex& map = Index();
    auto it = map.find(key);
    return it == map.end() ? nullptr : Base::m_items[it->second].p;
  }

  HRESULT CollHasKey(BSTR key, VARIANT_BOOL* out) const {
    if (!out) return E_POINTER;
    const CollectionIndex& map = Index();
    *out = map.find(BstrView(key)) != map.end() ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }

  // The key of an item, read from the item itself.
  HRESULT CollItemKey(ItemItf* item, std::u16string* key) const {
    if (!item) return E_UNEXPECTED;
    CComBSTR text;
    HRESULT hr = KeyOf::Read(item, &text);
    if (FAILED(hr)) return hr;
    key->assign(BstrView(text));
    return S_OK;
  }

  // Appends an item and maps its key to the new last position.
  HRESULT CollAdd(IUnknown* item) {
    CComPtr<ItemItf> typed;
    if (!item || FAILED(item->QueryInterface(__uuidof(ItemItf), reinterpret_cast<void**>(&typed))) || !typed)
      return E_UNEXPECTED;
    std::u16string key;
    HRESULT hr = CollItemKey(typed, &key);
    if (FAILED(hr)) return hr;
    CollAddKeyed(typed, std::move(key));
    return S_OK;
  }

  // Appends an item of the item interface whose key the caller knows.
  void CollAddKeyed(ItemItf* item, std::u16string key) {
    Base::m_items.emplace_back(item);
    const size_t last = Base::m_items.size() - 1;
    CollectionIndex& map = OwnIndex();
    auto it = map.find(std::u16string_view(key));
    if (it != map.end())
      it->second = last;
    else
      map.emplace(std::move(key), last);
  }

  // Takes the map of items appended by CollAppendTyped from a collection
  // built alike: the caller vouches that it maps exactly their keys.
  void CollAdoptIndex(std::shared_ptr<const CollectionIndex> index) {
    m_map.clear();
    m_shared = std::move(index);
  }

  // Maps the given keys to the positions of the items, in order; the keys
  // must be those of the items.
  void CollIndexKeys(const std::vector<std::u16string>& keys) {
    m_shared.reset();
    m_map.clear();
    for (size_t i = 0; i < keys.size(); ++i) m_map.insert_or_assign(keys[i], i);
  }

  // The map, to be shared with collections built alike from now on.
  std::shared_ptr<const CollectionIndex> CollShareIndex() {
    if (!m_shared) {
      m_shared = std::make_shared<const CollectionIndex>(std::move(m_map));
      m_map.clear();
    }
    return m_shared;
  }

  // Removes by position or key, then rebuilds the map from the list.
  HRESULT CollRemove(const VARIANT& index) {
    size_t pos = 0;
    HRESULT hr = CollResolve(index, &pos);
    if (FAILED(hr)) return hr;
    CComPtr<ItemItf> gone = std::move(Base::m_items[pos]);
    Base::m_items.erase(Base::m_items.begin() + static_cast<std::ptrdiff_t>(pos));
    return CollRebuildMap();
  }

  void CollRemoveAll() {
    m_shared.reset();
    m_map.clear();
    Base::CollRemoveAll();
  }

  // Clears the map and fills it by walking the list from the first item.
  HRESULT CollRebuildMap() {
    m_shared.reset();
    m_map.clear();
    std::u16string key;
    for (size_t i = 0; i < Base::m_items.size(); ++i) {
      HRESULT hr = CollItemKey(Base::m_items[i], &key);
      if (FAILED(hr)) return hr;
      m_map.insert_or_assign(key, i);
    }
    return S_OK;
  }

 protected:
  CComCollectMapBase() = default;
  ~CComCollectMapBase() = default;

  const CollectionIndex& Index() const { return m_shared ? *m_shared : m_map; }
  CollectionIndex& OwnIndex() {
    if (m_shared) {
      m_map = *m_shared;
      m_shared.reset();
    }
    return m_map;
  }

 private:
  CollectionIndex m_map;
  std::shared_ptr<const CollectionIndex> m_shared;
};

template <class ItemItf>
using CComCollectMapName = CComCollectMapBase<ItemItf, CollectionNameKey>;
template <class ItemItf>
using CComCollectMapCustom = CComCollectMapBase<ItemItf, CollectionFunctionKey>;

// The members that the collection interfaces share, over the list of their
// items: Impl of the generated CoClass<Name> bases (veltrane_decl.h).
// Count and _NewEnum for every collection; HasKey and Item by position or key
// for the keyed ones (Item of RfcRows takes a position only and stands in its
// class).
template <class Derived, class Itf, class List>
class ICollectionImpl : public IDispatchImpl<Derived, Itf>, public List {
 public:
  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override { return this->CollGetCount(pVal); }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override {
    return this->CollNewEnum(static_cast<Derived*>(this)->GetUnknown(), pVal);
  }
};

template <class Derived, class Itf, class ItemItf, class KeyOf>
class IKeyedCollectionImpl : public ICollectionImpl<Derived, Itf, CComCollectMapBase<ItemItf, KeyOf>> {
 public:
  HRESULT STDMETHODCALLTYPE HasKey(BSTR key, VARIANT_BOOL* pVal) override { return this->CollHasKey(key, pVal); }
  HRESULT STDMETHODCALLTYPE get_Item(VARIANT inIndex, ItemItf** pVal) override { return this->CollItem(inIndex, pVal); }
};
