// CEventSink: the base of a client's sink for an outgoing interface of the
// component (_RfcServerEvents, _SessionEvents). It answers QueryInterface for
// IUnknown, IDispatch and the events' IID, counts references, and offers no
// type information, so that a sink implements Invoke alone:
//
//   class Handlers : public CEventSink {
//    public:
//     Handlers() : CEventSink(DIID__RfcServerEvents) {}
//     HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*,
//                                      EXCEPINFO*, UINT*) override;
//   };
//   CComPtr<IDispatch> sink;
//   sink.Attach(new Handlers());  // the count starts at 1
//   point->Advise(sink, &cookie);
//
// The count is atomic: a sink that advised from the multithreaded apartment
// is called on the component's threads. The last Release deletes the sink.
#pragma once

#include <atomic>

#include "veltrane/platform/oaidl.h"

class CEventSink : public IDispatch {
 public:
  explicit CEventSink(const IID& events) : m_events(events) {}
  CEventSink(const CEventSink&) = delete;
  CEventSink& operator=(const CEventSink&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IDispatch || riid == m_events) {
      *ppv = static_cast<IDispatch*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --m_refs;
    if (left == 0) delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* pctinfo) override {
    if (!pctinfo) return E_POINTER;
    *pctinfo = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }

 protected:
  virtual ~CEventSink() = default;

 private:
  const IID& m_events;
  std::atomic<ULONG> m_refs{1};
};
