// Sink lists, event firing and the enumerators of connection points.
#include "platform/connection_point.h"

#include "platform/atlbase.h"
#include "platform/com_object.h"

#include <algorithm>

namespace veltrane::cp {

namespace {

// The sink of a slot of the global table, as the calling apartment reaches it.
IDispatch* FromGlobal(DWORD global) {
  IGlobalInterfaceTable* table = nullptr;
  if (FAILED(CoGetGlobalInterfaceTable(&table))) return nullptr;
  IDispatch* sink = nullptr;
  if (FAILED(table->GetInterfaceFromGlobal(global, IID_IDispatch, reinterpret_cast<void**>(&sink)))) return nullptr;
  return sink;
}

void Revoke(DWORD global) {
  IGlobalInterfaceTable* table = nullptr;
  if (SUCCEEDED(CoGetGlobalInterfaceTable(&table))) table->RevokeInterfaceFromGlobal(global);
}

}  // namespace

SinkList::~SinkList() {
  for (Slot& s : m_slots) {
    if (s.sink) s.sink->Release();
    if (s.global) Revoke(s.global);
  }
}

HRESULT SinkList::Add(IUnknown* sink, REFIID iid, DWORD* cookie) {
  if (!cookie) return E_POINTER;
  *cookie = 0;
  if (!sink) return E_POINTER;
  IDispatch* itf = nullptr;
  if (FAILED(sink->QueryInterface(iid, reinterpret_cast<void**>(&itf))) || !itf) {
    itf = nullptr;
    if (FAILED(sink->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&itf))) || !itf)
      return CONNECT_E_CANNOTCONNECT;
  }
  DWORD global = 0;
  if (m_home == SinkHome::GlobalTable) {
    IGlobalInterfaceTable* table = nullptr;
    HRESULT hr = CoGetGlobalInterfaceTable(&table);
    if (SUCCEEDED(hr)) hr = table->RegisterInterfaceInGlobal(itf, IID_IDispatch, &global);
    itf->Release();
    itf = nullptr;
    if (FAILED(hr)) return hr;
  }
  std::lock_guard<std::mutex> lock(m_mutex);
  const DWORD c = m_nextCookie++;
  if (m_nextCookie == 0) m_nextCookie = 1;
  auto empty = std::find_if(m_slots.begin(), m_slots.end(), [](const Slot& s) { return s.cookie == 0; });
  if (empty != m_slots.end()) {
    *empty = Slot{c, itf, global};
  } else {
    m_slots.push_back(Slot{c, itf, global});
  }
  *cookie = c;
  return S_OK;
}

HRESULT SinkList::Remove(DWORD cookie) {
  Slot removed{};
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = std::find_if(m_slots.begin(), m_slots.end(), [cookie](const Slot& s) { return s.cookie == cookie; });
    if (cookie == 0 || it == m_slots.end()) return CONNECT_E_NOCONNECTION;
    removed = *it;
    *it = Slot{0, nullptr, 0};
  }
  // Released outside the lock: the sink's destructor may call back.
  if (removed.sink) removed.sink->Release();
  if (removed.global) Revoke(removed.global);
  return S_OK;
}

size_t SinkList::SlotCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_slots.size();
}

bool SinkList::Fetch(size_t index, IDispatch** sink) const {
  *sink = nullptr;
  DWORD global = 0;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (index >= m_slots.size()) return false;
    *sink = m_slots[index].sink;
    if (*sink) (*sink)->AddRef();
    global = m_slots[index].global;
  }
  // Taken out of the table outside the lock: reaching a sink of another
  // apartment waits for that apartment. A sink revoked meanwhile is skipped.
  if (global) *sink = FromGlobal(global);
  return true;
}

std::vector<CONNECTDATA> SinkList::Snapshot() const {
  std::vector<Slot> slots;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const Slot& s : m_slots) {
      if (s.cookie == 0) continue;
      if (s.sink) s.sink->AddRef();
      slots.push_back(s);
    }
  }
  std::vector<CONNECTDATA> out;
  for (const Slot& s : slots) {
    IDispatch* sink = s.global ? FromGlobal(s.global) : s.sink;
    if (sink) out.push_back(CONNECTDATA{sink, s.cookie});
  }
  return out;
}

HRESULT FireEvent(const SinkList& sinks, DISPID dispid, VARIANT* args, UINT count) {
  HRESULT hr = S_OK;
  for (size_t i = 0;; ++i) {
    IDispatch* sink = nullptr;
    if (!sinks.Fetch(i, &sink)) break;
    if (!sink) continue;
    DISPPARAMS params{args, nullptr, count, 0};
    VARIANT result;
    VariantInit(&result);
    hr = sink->Invoke(dispid, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, &result, nullptr, nullptr);
    VariantClear(&result);
    sink->Release();
  }
  return hr;
}

namespace {

// The reference an enumerated item holds: its sink for a connection, the
// point itself for a connection point.
IUnknown* HeldBy(const CONNECTDATA& c) { return c.pUnk; }
IUnknown* HeldBy(IConnectionPoint* p) { return p; }

// An enumerator over a snapshot of items, each held with a reference while
// the enumerator lives.
template <class EnumItf, class Item>
class CEnumSnapshot : public CComObjectBase<CEnumSnapshot<EnumItf, Item>, EnumItf> {
  using Base = CComObjectBase<CEnumSnapshot<EnumItf, Item>, EnumItf>;

 public:
  ~CEnumSnapshot() override {
    for (const Item& item : m_items) HeldBy(item)->Release();
  }

  // Takes a reference to each item.
  void Init(std::vector<Item> items, size_t position) {
    m_items = std::move(items);
    for (const Item& item : m_items) HeldBy(item)->AddRef();
    m_position = position;
  }

  HRESULT STDMETHODCALLTYPE Next(ULONG count, Item* out, ULONG* fetched) override {
    if (fetched) *fetched = 0;
    if (!out || (count > 1 && !fetched)) return E_POINTER;
    ULONG n = 0;
    for (; n < count && m_position < m_items.size(); ++n, ++m_position) {
      out[n] = m_items[m_position];
      HeldBy(out[n])->AddRef();
    }
    if (fetched) *fetched = n;
    return n == count ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    const size_t left = m_items.size() - m_position;
    if (count > left) {
      m_position = m_items.size();
      return S_FALSE;
    }
    m_position += count;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    m_position = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(EnumItf** ppEnum) override {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    return Create(m_items, m_position, ppEnum);
  }

  // A new enumerator over items (each gets a reference), standing at position.
  static HRESULT Create(std::vector<Item> items, size_t position, EnumItf** ppEnum) {
    CEnumSnapshot* e = nullptr;
    HRESULT hr = Base::CreateInstance(&e);
    if (FAILED(hr)) return hr;
    e->Init(std::move(items), position);
    *ppEnum = e;
    return S_OK;
  }

 private:
  std::vector<Item> m_items;
  size_t m_position = 0;
};

using CEnumConnections = CEnumSnapshot<IEnumConnections, CONNECTDATA>;
using CEnumConnectionPoints = CEnumSnapshot<IEnumConnectionPoints, IConnectionPoint*>;

}  // namespace

HRESULT CreateConnectionPointEnumerator(const std::vector<IConnectionPoint*>& points, IEnumConnectionPoints** ppEnum) {
  if (!ppEnum) return E_POINTER;
  *ppEnum = nullptr;
  return CEnumConnectionPoints::Create(points, 0, ppEnum);
}

// --- ConnectionPointBase ------------------------------------------------------

HRESULT ConnectionPointBase::QueryInterface(REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_IConnectionPoint) {
    *ppv = static_cast<IConnectionPoint*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

ULONG ConnectionPointBase::AddRef() { return Owner()->AddRef(); }

ULONG ConnectionPointBase::Release() { return Owner()->Release(); }

HRESULT ConnectionPointBase::GetConnectionInterface(IID* pIID) {
  if (!pIID) return E_POINTER;
  *pIID = m_iid;
  return S_OK;
}

HRESULT ConnectionPointBase::GetConnectionPointContainer(IConnectionPointContainer** ppCPC) {
  if (!ppCPC) return E_POINTER;
  return Owner()->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(ppCPC));
}

HRESULT ConnectionPointBase::Advise(IUnknown* pUnkSink, DWORD* pdwCookie) {
  return m_sinks.Add(pUnkSink, m_iid, pdwCookie);
}

HRESULT ConnectionPointBase::Unadvise(DWORD dwCookie) { return m_sinks.Remove(dwCookie); }

HRESULT ConnectionPointBase::EnumConnections(IEnumConnections** ppEnum) {
  if (!ppEnum) return E_POINTER;
  *ppEnum = nullptr;
  std::vector<CONNECTDATA> data = m_sinks.Snapshot();  // each with a reference
  const HRESULT hr = CEnumConnections::Create(data, 0, ppEnum);
  for (CONNECTDATA& c : data) c.pUnk->Release();
  return hr;
}

}  // namespace veltrane::cp
