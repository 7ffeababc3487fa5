// Sink lists, event firing and the enumerators of connection points.
#include "platform/connection_point.h"

#include "platform/atlbase.h"
#include "platform/com_object.h"

#include <algorithm>

namespace veltrane::cp {

SinkList::~SinkList() {
  for (Slot& s : m_slots)
    if (s.sink) s.sink->Release();
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
  std::lock_guard<std::mutex> lock(m_mutex);
  const DWORD c = m_nextCookie++;
  if (m_nextCookie == 0) m_nextCookie = 1;
  auto empty = std::find_if(m_slots.begin(), m_slots.end(), [](const Slot& s) { return s.sink == nullptr; });
  if (empty != m_slots.end()) {
    *empty = Slot{c, itf};
  } else {
    m_slots.push_back(Slot{c, itf});
  }
  *cookie = c;
  return S_OK;
}

HRESULT SinkList::Remove(DWORD cookie) {
  IDispatch* sink = nullptr;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it =
        std::find_if(m_slots.begin(), m_slots.end(), [cookie](const Slot& s) { return s.sink && s.cookie == cookie; });
    if (cookie == 0 || it == m_slots.end()) return CONNECT_E_NOCONNECTION;
    sink = it->sink;
    *it = Slot{0, nullptr};
  }
  // Released outside the lock: the sink's destructor may call back.
  sink->Release();
  return S_OK;
}

size_t SinkList::SlotCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_slots.size();
}

bool SinkList::Fetch(size_t index, IDispatch** sink) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  *sink = nullptr;
  if (index >= m_slots.size()) return false;
  *sink = m_slots[index].sink;
  if (*sink) (*sink)->AddRef();
  return true;
}

std::vector<CONNECTDATA> SinkList::Snapshot() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<CONNECTDATA> out;
  for (const Slot& s : m_slots) {
    if (!s.sink) continue;
    s.sink->AddRef();
    out.push_back(CONNECTDATA{s.sink, s.cookie});
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

class CEnumConnections : public CComObjectBase<CEnumConnections, IEnumConnections> {
 public:
  ~CEnumConnections() override {
    for (CONNECTDATA& c : m_data) c.pUnk->Release();
  }

  void Init(std::vector<CONNECTDATA> data, size_t position) {
    m_data = std::move(data);
    m_position = position;
  }

  HRESULT STDMETHODCALLTYPE Next(ULONG cConnections, CONNECTDATA* rgcd, ULONG* pcFetched) override {
    if (pcFetched) *pcFetched = 0;
    if (!rgcd || (cConnections > 1 && !pcFetched)) return E_POINTER;
    ULONG n = 0;
    for (; n < cConnections && m_position < m_data.size(); ++n, ++m_position) {
      rgcd[n] = m_data[m_position];
      rgcd[n].pUnk->AddRef();
    }
    if (pcFetched) *pcFetched = n;
    return n == cConnections ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG cConnections) override {
    const size_t left = m_data.size() - m_position;
    if (cConnections > left) {
      m_position = m_data.size();
      return S_FALSE;
    }
    m_position += cConnections;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    m_position = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IEnumConnections** ppEnum) override {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    std::vector<CONNECTDATA> copy = m_data;
    for (CONNECTDATA& c : copy) c.pUnk->AddRef();
    CEnumConnections* e = nullptr;
    HRESULT hr = CreateInstance(&e);
    if (FAILED(hr)) {
      for (CONNECTDATA& c : copy) c.pUnk->Release();
      return hr;
    }
    e->Init(std::move(copy), m_position);
    *ppEnum = e;
    return S_OK;
  }

 private:
  std::vector<CONNECTDATA> m_data;
  size_t m_position = 0;
};

class CEnumConnectionPoints : public CComObjectBase<CEnumConnectionPoints, IEnumConnectionPoints> {
 public:
  ~CEnumConnectionPoints() override {
    for (IConnectionPoint* p : m_points) p->Release();
  }

  // Takes a reference to each point.
  void Init(const std::vector<IConnectionPoint*>& points, size_t position) {
    m_points = points;
    for (IConnectionPoint* p : m_points) p->AddRef();
    m_position = position;
  }

  HRESULT STDMETHODCALLTYPE Next(ULONG cConnections, IConnectionPoint** ppCP, ULONG* pcFetched) override {
    if (pcFetched) *pcFetched = 0;
    if (!ppCP || (cConnections > 1 && !pcFetched)) return E_POINTER;
    ULONG n = 0;
    for (; n < cConnections && m_position < m_points.size(); ++n, ++m_position) {
      ppCP[n] = m_points[m_position];
      ppCP[n]->AddRef();
    }
    if (pcFetched) *pcFetched = n;
    return n == cConnections ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG cConnections) override {
    const size_t left = m_points.size() - m_position;
    if (cConnections > left) {
      m_position = m_points.size();
      return S_FALSE;
    }
    m_position += cConnections;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    m_position = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IEnumConnectionPoints** ppEnum) override {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    CEnumConnectionPoints* e = nullptr;
    HRESULT hr = CreateInstance(&e);
    if (FAILED(hr)) return hr;
    e->Init(m_points, m_position);
    *ppEnum = e;
    return S_OK;
  }

 private:
  std::vector<IConnectionPoint*> m_points;
  size_t m_position = 0;
};

}  // namespace

HRESULT CreateConnectionPointEnumerator(const std::vector<IConnectionPoint*>& points, IEnumConnectionPoints** ppEnum) {
  if (!ppEnum) return E_POINTER;
  *ppEnum = nullptr;
  CEnumConnectionPoints* e = nullptr;
  HRESULT hr = CEnumConnectionPoints::CreateInstance(&e);
  if (FAILED(hr)) return hr;
  e->Init(points, 0);
  *ppEnum = e;
  return S_OK;
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
  std::vector<CONNECTDATA> data = m_sinks.Snapshot();
  CEnumConnections* e = nullptr;
  HRESULT hr = CEnumConnections::CreateInstance(&e);
  if (FAILED(hr)) {
    for (CONNECTDATA& c : data) c.pUnk->Release();
    return hr;
  }
  e->Init(std::move(data), 0);
  *ppEnum = e;
  return S_OK;
}

}  // namespace veltrane::cp
