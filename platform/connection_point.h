// Connection points: outgoing interfaces of an object and the sinks that
// clients advise on them.
//
//   class CSession : public CComObjectBase<CSession, IDispatchImpl<CSession, IRfcSession>,
//                        IConnectionPointContainerImpl<CSession, CProxy_SessionEvents<CSession>>> {
//     void Done() { Fire_CallFinished(); }
//   };
//
// The connection point's lock is held only while one sink is fetched, never
// during the call into it, so a sink may Advise or Unadvise from its handler.
#pragma once

#include "platform/oaidl.h"

#include <mutex>
#include <vector>

namespace veltrane::cp {

// Where a connection point keeps its sinks. Object: the sink itself, called
// directly from whatever thread fires. GlobalTable: the sink is registered in
// the global interface table by Advise, and each firing takes it out there,
// so a sink of a single-threaded apartment is called in that apartment and
// the firing thread waits for its return.
enum class SinkHome { Object, GlobalTable };

// Sinks of one connection point. A slot keeps its position while the point
// lives (Unadvise empties it, Advise reuses empty slots), so a walk by
// position sees every sink that stays connected during the walk.
class VELTRANE_API SinkList {
 public:
  explicit SinkList(SinkHome home = SinkHome::Object) : m_home(home) {}
  SinkList(const SinkList&) = delete;
  SinkList& operator=(const SinkList&) = delete;
  ~SinkList();

  // Connects `sink` as the interface `iid` (or, failing that, as IDispatch).
  // In the global table, the caller's apartment becomes the sink's home; a
  // thread without COM gets CO_E_NOTINITIALIZED.
  HRESULT Add(IUnknown* sink, REFIID iid, DWORD* cookie);
  HRESULT Remove(DWORD cookie);
  // Number of slots; some may be empty.
  size_t SlotCount() const;
  // The sink in slot `index` with a reference the caller releases; null for
  // an empty slot. False when `index` lies beyond the slots.
  bool Fetch(size_t index, IDispatch** sink) const;
  // All connections, each with a reference.
  std::vector<CONNECTDATA> Snapshot() const;

 private:
  // A slot is empty when its cookie is 0. It holds the sink, or its cookie
  // in the global interface table.
  struct Slot {
    DWORD cookie;
    IDispatch* sink;
    DWORD global;
  };
  const SinkHome m_home;
  mutable std::mutex m_mutex;
  std::vector<Slot> m_slots;
  DWORD m_nextCookie = 1;
};

// Invokes `dispid` with DISPATCH_METHOD on every sink, the arguments in
// DISPPARAMS order (last argument first). Returns the result of the last
// call, S_OK when no sink is connected.
VELTRANE_API HRESULT FireEvent(const SinkList& sinks, DISPID dispid, VARIANT* args, UINT count);

// The IConnectionPoint of one outgoing interface; the owner supplies its
// identity, which also carries the point's reference count.
class VELTRANE_API ConnectionPointBase : public IConnectionPoint {
 public:
  explicit ConnectionPointBase(const IID& iid, SinkHome home = SinkHome::Object) : m_iid(iid), m_sinks(home) {}
  ConnectionPointBase(const ConnectionPointBase&) = delete;
  ConnectionPointBase& operator=(const ConnectionPointBase&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* pIID) override;
  HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** ppCPC) override;
  HRESULT STDMETHODCALLTYPE Advise(IUnknown* pUnkSink, DWORD* pdwCookie) override;
  HRESULT STDMETHODCALLTYPE Unadvise(DWORD dwCookie) override;
  HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** ppEnum) override;

  const SinkList& Sinks() const { return m_sinks; }

 protected:
  ~ConnectionPointBase() = default;
  virtual IUnknown* Owner() = 0;

 private:
  const IID& m_iid;
  SinkList m_sinks;
};

// An enumerator over the points; each is held with a reference.
VELTRANE_API HRESULT CreateConnectionPointEnumerator(const std::vector<IConnectionPoint*>& points,
                                                     IEnumConnectionPoints** ppEnum);

}  // namespace veltrane::cp

// One outgoing interface of T. T provides GetUnknown() (CComObjectBase does)
// and answers IConnectionPointContainer. home tells where the sinks are kept.
template <class T, const IID* piid, veltrane::cp::SinkHome home = veltrane::cp::SinkHome::Object>
class IConnectionPointImpl {
 public:
  static const IID& connection_iid() { return *piid; }

  // The point itself, without a reference.
  IConnectionPoint* GetConnectionPoint() { return &m_point; }

  // Fires `dispid` to every sink; see veltrane::cp::FireEvent.
  HRESULT FireEvent(DISPID dispid, VARIANT* args, UINT count) {
    return veltrane::cp::FireEvent(m_point.Sinks(), dispid, args, count);
  }

 protected:
  IConnectionPointImpl() : m_point(this) {}
  ~IConnectionPointImpl() = default;
  IConnectionPointImpl(const IConnectionPointImpl&) = delete;
  IConnectionPointImpl& operator=(const IConnectionPointImpl&) = delete;

 private:
  class Point final : public veltrane::cp::ConnectionPointBase {
   public:
    explicit Point(IConnectionPointImpl* outer) : ConnectionPointBase(*piid, home), m_outer(outer) {}

   private:
    IUnknown* Owner() override { return static_cast<T*>(m_outer)->GetUnknown(); }
    IConnectionPointImpl* m_outer;
  };
  Point m_point;
};

// The two homes as templates of two parameters, for the generated proxies.
template <class T, const IID* piid>
using IObjectConnectionPointImpl = IConnectionPointImpl<T, piid, veltrane::cp::SinkHome::Object>;
// An outgoing interface whose sinks live in the global interface table: each
// event runs in the apartment where its sink advised. The generated
// CProxy_<Events><T, IGlobalConnectionPointImpl> fires through it.
template <class T, const IID* piid>
using IGlobalConnectionPointImpl = IConnectionPointImpl<T, piid, veltrane::cp::SinkHome::GlobalTable>;

// IConnectionPointContainer over the listed points, each a class derived
// from IConnectionPointImpl (such as the generated CProxy_SessionEvents<T>).
template <class T, class... Points>
class IConnectionPointContainerImpl : public IConnectionPointContainer, public Points... {
 public:
  using interface_type = IConnectionPointContainer;

  HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) override {
    if (!ppCP) return E_POINTER;
    *ppCP = nullptr;
    IConnectionPoint* found = nullptr;
    ((found = found ? found
                    : (Points::connection_iid() == riid ? static_cast<Points*>(this)->GetConnectionPoint() : nullptr)),
     ...);
    if (!found) return CONNECT_E_NOCONNECTION;
    found->AddRef();
    *ppCP = found;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** ppEnum) override {
    const std::vector<IConnectionPoint*> points{static_cast<Points*>(this)->GetConnectionPoint()...};
    return veltrane::cp::CreateConnectionPointEnumerator(points, ppEnum);
  }
};
