// Connection points and the generated event-firing helpers.
#include "fakes.h"
#include "platform/connection_point.h"
#include "veltrane_events.h"

#include <gtest/gtest.h>

#include <functional>

using namespace typelib_test;

namespace {

// An object raising both outgoing interfaces.
class CEventSource
    : public CComObjectBase<CEventSource, IDispatchImpl<CEventSource, IRfcError>,
                            IConnectionPointContainerImpl<CEventSource, CProxy_SessionEvents<CEventSource>,
                                                          CProxy_RfcServerEvents<CEventSource>>> {
 public:
  HRESULT STDMETHODCALLTYPE get_ERRORGROUP(ERRORGROUP* pVal) override {
    *pVal = RFCERROR_NO_ERROR;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE put_ERRORGROUP(ERRORGROUP) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE get_ErrorGroupTxt(BSTR* pVal) override { return CComBSTR().CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_ErrorGroupTxt(BSTR) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE get_Message(BSTR* pVal) override { return CComBSTR().CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_Message(BSTR) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE get_ModuleName(BSTR* pVal) override { return CComBSTR().CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE put_ModuleName(BSTR) override { return S_OK; }
};

// A sink that records the events it receives. It answers IDispatch only,
// as script sinks do, unless `asEvents` names the event interface.
class CSink : public CComObjectBase<CSink, IDispatch> {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (asEvents && ppv && riid == *asEvents) {
      *ppv = static_cast<IDispatch*>(this);
      AddRef();
      return S_OK;
    }
    return CComObjectBase::QueryInterface(riid, ppv);
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* p) override {
    *p = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return DISP_E_BADINDEX; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return DISP_E_UNKNOWNNAME;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* dp, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    dispids.push_back(id);
    EXPECT_EQ(flags, DISPATCH_METHOD);
    argCount = dp->cArgs;
    if (dp->cArgs == 1) {
      EXPECT_EQ(V_VT(&dp->rgvarg[0]), VT_DISPATCH);
      argument = V_DISPATCH(&dp->rgvarg[0]);
    }
    if (onEvent) onEvent();
    return result;
  }

  std::vector<DISPID> dispids;
  UINT argCount = 99;
  CComPtr<IDispatch> argument;
  const IID* asEvents = nullptr;
  HRESULT result = S_OK;
  std::function<void()> onEvent;
};

CComPtr<IConnectionPoint> PointOf(IUnknown* source, REFIID iid) {
  CComQIPtr<IConnectionPointContainer> container(source);
  EXPECT_TRUE(container);
  CComPtr<IConnectionPoint> point;
  if (container) {
    EXPECT_EQ(container->FindConnectionPoint(iid, &point), S_OK);
  }
  return point;
}

}  // namespace

TEST(Events, TwoSinksReceiveAnEvent) {
  CEventSource* source = nullptr;
  ASSERT_EQ(CEventSource::CreateInstance(&source), S_OK);
  CComPtr<IRfcError> keep;
  keep.Attach(source);
  auto point = PointOf(keep, DIID__SessionEvents);
  ASSERT_TRUE(point);

  CSink* a = nullptr;
  CSink* b = nullptr;
  ASSERT_EQ(CSink::CreateInstance(&a), S_OK);
  ASSERT_EQ(CSink::CreateInstance(&b), S_OK);
  b->asEvents = &DIID__SessionEvents;
  DWORD ca = 0, cb = 0;
  ASSERT_EQ(point->Advise(a->GetUnknown(), &ca), S_OK);
  ASSERT_EQ(point->Advise(b->GetUnknown(), &cb), S_OK);
  EXPECT_NE(ca, cb);
  EXPECT_NE(ca, 0u);

  EXPECT_EQ(source->Fire_CallFinished(), S_OK);
  EXPECT_EQ(a->dispids, std::vector<DISPID>{1});
  EXPECT_EQ(b->dispids, std::vector<DISPID>{1});
  EXPECT_EQ(a->argCount, 0u);

  // The result of the last sink is the result.
  b->result = E_FAIL;
  EXPECT_EQ(source->Fire_CallFinished(), E_FAIL);

  ASSERT_EQ(point->Unadvise(ca), S_OK);
  b->result = S_OK;
  source->Fire_CallFinished();
  EXPECT_EQ(a->dispids.size(), 2u);
  EXPECT_EQ(b->dispids.size(), 3u);
  ASSERT_EQ(point->Unadvise(cb), S_OK);
  EXPECT_EQ(source->Fire_CallFinished(), S_OK);
  EXPECT_EQ(b->dispids.size(), 3u);
  a->Release();
  b->Release();
}

TEST(Events, ServerEventsCarryTheirObject) {
  CEventSource* source = nullptr;
  ASSERT_EQ(CEventSource::CreateInstance(&source), S_OK);
  CComPtr<IRfcError> keep;
  keep.Attach(source);
  auto point = PointOf(keep, DIID__RfcServerEvents);
  ASSERT_TRUE(point);
  CSink* sink = nullptr;
  ASSERT_EQ(CSink::CreateInstance(&sink), S_OK);
  DWORD cookie = 0;
  ASSERT_EQ(point->Advise(sink->GetUnknown(), &cookie), S_OK);

  auto call = Make<CFakeFunctionCall, IFunctionCall>();
  EXPECT_EQ(source->Fire_IncomingCall(call), S_OK);
  EXPECT_EQ(sink->argCount, 1u);
  EXPECT_TRUE(sink->argument.IsEqualObject(call));
  EXPECT_EQ(source->Fire_TransactionCommit(nullptr), S_OK);
  EXPECT_FALSE(sink->argument);
  EXPECT_EQ(sink->dispids, (std::vector<DISPID>{1, 5}));
  ASSERT_EQ(point->Unadvise(cookie), S_OK);
  sink->Release();
}

TEST(Events, UnadviseWithABadCookie) {
  auto source = Make<CEventSource, IRfcError>();
  auto point = PointOf(source, DIID__SessionEvents);
  ASSERT_TRUE(point);
  EXPECT_EQ(point->Unadvise(0), CONNECT_E_NOCONNECTION);
  EXPECT_EQ(point->Unadvise(4711), CONNECT_E_NOCONNECTION);
  CSink* sink = nullptr;
  ASSERT_EQ(CSink::CreateInstance(&sink), S_OK);
  DWORD cookie = 0;
  ASSERT_EQ(point->Advise(sink->GetUnknown(), &cookie), S_OK);
  ASSERT_EQ(point->Unadvise(cookie), S_OK);
  EXPECT_EQ(point->Unadvise(cookie), CONNECT_E_NOCONNECTION);
  sink->Release();
}

TEST(Events, AdviseRefusesWhatIsNoSink) {
  auto source = Make<CEventSource, IRfcError>();
  auto point = PointOf(source, DIID__SessionEvents);
  auto errorInfo = [] {
    CComPtr<ICreateErrorInfo> p;
    EXPECT_EQ(CreateErrorInfo(&p), S_OK);
    return p;
  }();
  DWORD cookie = 1;
  EXPECT_EQ(point->Advise(errorInfo, &cookie), CONNECT_E_CANNOTCONNECT);
  EXPECT_EQ(cookie, 0u);
  EXPECT_EQ(point->Advise(nullptr, &cookie), E_POINTER);
}

TEST(Events, ContainerFindsAndEnumeratesItsPoints) {
  auto source = Make<CEventSource, IRfcError>();
  CComQIPtr<IConnectionPointContainer> container(source.p);
  ASSERT_TRUE(container);
  CComPtr<IConnectionPoint> none;
  EXPECT_EQ(container->FindConnectionPoint(IID_IRfcError, &none), CONNECT_E_NOCONNECTION);
  EXPECT_FALSE(none);

  CComPtr<IEnumConnectionPoints> points;
  ASSERT_EQ(container->EnumConnectionPoints(&points), S_OK);
  IConnectionPoint* got[3] = {};
  ULONG fetched = 0;
  EXPECT_EQ(points->Next(3, got, &fetched), S_FALSE);
  ASSERT_EQ(fetched, 2u);
  IID iid;
  ASSERT_EQ(got[0]->GetConnectionInterface(&iid), S_OK);
  EXPECT_EQ(iid, DIID__SessionEvents);
  ASSERT_EQ(got[1]->GetConnectionInterface(&iid), S_OK);
  EXPECT_EQ(iid, DIID__RfcServerEvents);
  CComPtr<IConnectionPointContainer> back;
  ASSERT_EQ(got[0]->GetConnectionPointContainer(&back), S_OK);
  EXPECT_TRUE(back.IsEqualObject(source));
  // A point is no way to the object's other interfaces.
  CComPtr<IRfcError> not_here;
  EXPECT_EQ(got[0]->QueryInterface(IID_IRfcError, reinterpret_cast<void**>(&not_here)), E_NOINTERFACE);
  got[0]->Release();
  got[1]->Release();
  ASSERT_EQ(points->Reset(), S_OK);
  EXPECT_EQ(points->Skip(1), S_OK);
  CComPtr<IEnumConnectionPoints> clone;
  ASSERT_EQ(points->Clone(&clone), S_OK);
  EXPECT_EQ(clone->Next(1, got, nullptr), S_OK);
  got[0]->Release();
  EXPECT_EQ(clone->Skip(1), S_FALSE);
}

TEST(Events, EnumConnectionsListsTheSinks) {
  auto source = Make<CEventSource, IRfcError>();
  auto point = PointOf(source, DIID__SessionEvents);
  CSink* a = nullptr;
  CSink* b = nullptr;
  ASSERT_EQ(CSink::CreateInstance(&a), S_OK);
  ASSERT_EQ(CSink::CreateInstance(&b), S_OK);
  DWORD ca = 0, cb = 0;
  ASSERT_EQ(point->Advise(a->GetUnknown(), &ca), S_OK);
  ASSERT_EQ(point->Advise(b->GetUnknown(), &cb), S_OK);
  CComPtr<IEnumConnections> connections;
  ASSERT_EQ(point->EnumConnections(&connections), S_OK);
  CONNECTDATA data[3] = {};
  ULONG fetched = 0;
  EXPECT_EQ(connections->Next(3, data, &fetched), S_FALSE);
  ASSERT_EQ(fetched, 2u);
  EXPECT_EQ(data[0].dwCookie, ca);
  EXPECT_EQ(data[1].dwCookie, cb);
  EXPECT_EQ(data[0].pUnk, static_cast<IUnknown*>(static_cast<IDispatch*>(a)));
  data[0].pUnk->Release();
  data[1].pUnk->Release();
  point->Unadvise(ca);
  point->Unadvise(cb);
  a->Release();
  b->Release();
}

TEST(Events, SinkMayUnadviseDuringTheEvent) {
  // The lock is not held while a sink runs: the handler can change the list.
  auto source = Make<CEventSource, IRfcError>();
  CEventSource* raw = static_cast<CEventSource*>(static_cast<IDispatchImpl<CEventSource, IRfcError>*>(source.p));
  auto point = PointOf(source, DIID__SessionEvents);
  CSink* a = nullptr;
  CSink* b = nullptr;
  ASSERT_EQ(CSink::CreateInstance(&a), S_OK);
  ASSERT_EQ(CSink::CreateInstance(&b), S_OK);
  DWORD ca = 0, cb = 0;
  ASSERT_EQ(point->Advise(a->GetUnknown(), &ca), S_OK);
  ASSERT_EQ(point->Advise(b->GetUnknown(), &cb), S_OK);
  IConnectionPoint* p = point;
  a->onEvent = [&] { EXPECT_EQ(p->Unadvise(ca), S_OK); };
  EXPECT_EQ(raw->Fire_CallFinished(), S_OK);
  EXPECT_EQ(a->dispids.size(), 1u);
  EXPECT_EQ(b->dispids.size(), 1u);
  raw->Fire_CallFinished();
  EXPECT_EQ(a->dispids.size(), 1u);
  EXPECT_EQ(b->dispids.size(), 2u);
  point->Unadvise(cb);
  a->Release();
  b->Release();
}
