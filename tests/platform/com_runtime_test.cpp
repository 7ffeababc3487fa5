#include "platform/atlbase.h"
#include "platform/com_object.h"

#include <gtest/gtest.h>

#include <thread>

// A test interface and class for activation and QueryInterface.
const IID IID_ICounter = {0x5d0c3c8e, 0x2b7a, 0x4c61, {0x9d, 0x1e, 0x31, 0x7a, 0x44, 0x10, 0x2f, 0x01}};
struct ICounter : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Increment(LONG* value) = 0;
};
VELTRANE_DECLARE_IID(ICounter, IID_ICounter);

namespace {

const CLSID CLSID_Counter = {0x5d0c3c8e, 0x2b7a, 0x4c61, {0x9d, 0x1e, 0x31, 0x7a, 0x44, 0x10, 0x2f, 0x02}};
const CLSID CLSID_Hidden = {0x5d0c3c8e, 0x2b7a, 0x4c61, {0x9d, 0x1e, 0x31, 0x7a, 0x44, 0x10, 0x2f, 0x03}};

class CCounter : public CComObjectBase<CCounter, ICounter, ISupportErrorInfoImpl<&IID_ICounter>> {
 public:
  HRESULT STDMETHODCALLTYPE Increment(LONG* value) override {
    *value = ++m_value;
    return S_OK;
  }

 private:
  LONG m_value = 0;
};

class CCounterFactory : public CComObjectBase<CCounterFactory, IClassFactory> {
 public:
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (outer) return CLASS_E_NOAGGREGATION;
    CComPtr<CCounter> obj;
    HRESULT hr = CCounter::CreateInstance(&obj);
    return FAILED(hr) ? hr : obj->QueryInterface(riid, ppv);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

HRESULT getCounterFactory(REFCLSID, REFIID riid, void** ppv) {
  CComPtr<CCounterFactory> f;
  HRESULT hr = CComObjectBase<CCounterFactory, IClassFactory>::CreateInstance(&f);
  return FAILED(hr) ? hr : f->QueryInterface(riid, ppv);
}

const COCLASS_REGISTRATION kClasses[] = {
    {&CLSID_Counter, u"Test.Counter.1", u"Test.Counter", true, getCounterFactory},
    {&CLSID_Hidden, u"Test.Hidden.1", u"Test.Hidden", false, nullptr},
};

class ComRuntime : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    ASSERT_EQ(CoRegisterClassTable(kClasses, 2), S_OK);
  }
  void TearDown() override {
    CoRevokeClassTable(kClasses);
    CoUninitialize();
  }
};

}  // namespace

TEST_F(ComRuntime, CreatesRegisteredClasses) {
  CComPtr<ICounter> counter;
  ASSERT_EQ(
      CoCreateInstance(CLSID_Counter, nullptr, CLSCTX_INPROC_SERVER, IID_ICounter, reinterpret_cast<void**>(&counter)),
      S_OK);
  LONG v = 0;
  counter->Increment(&v);
  counter->Increment(&v);
  EXPECT_EQ(v, 2);
}

TEST_F(ComRuntime, ActivationFailures) {
  void* p = reinterpret_cast<void*>(1);
  EXPECT_EQ(CoCreateInstance(CLSID_Hidden, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &p), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(CoCreateInstance(IID_ICounter, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &p), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(CoCreateInstance(CLSID_Counter, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, &p), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(CoCreateInstance(CLSID_Counter, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, &p), E_NOINTERFACE);
  CComPtr<IUnknown> outer;
  EXPECT_EQ(
      CoCreateInstance(CLSID_Counter, reinterpret_cast<IUnknown*>(&outer), CLSCTX_INPROC_SERVER, IID_IUnknown, &p),
      CLASS_E_NOAGGREGATION);
}

TEST(ComApartments, InitialisationRules) {
  std::thread([] {
    void* p = nullptr;
    EXPECT_EQ(CoCreateInstance(CLSID_Counter, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &p), CO_E_NOTINITIALIZED);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_FALSE);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
    INT type = -5, qualifier = -5;
    EXPECT_EQ(CoGetApartmentType(&type, &qualifier), S_OK);
    EXPECT_EQ(type, APTTYPE_STA);
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(CoGetApartmentType(&type, &qualifier), CO_E_NOTINITIALIZED);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(CoGetApartmentType(&type, &qualifier), S_OK);
    EXPECT_EQ(type, APTTYPE_MTA);
    CoUninitialize();
  }).join();
}

TEST_F(ComRuntime, ProgIds) {
  CLSID clsid;
  EXPECT_EQ(CLSIDFromProgID(u"Test.Counter", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_Counter);
  EXPECT_EQ(CLSIDFromProgID(u"test.counter.1", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_Counter);
  EXPECT_EQ(CLSIDFromProgID(u"Test.Hidden.1", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_Hidden);
  EXPECT_EQ(CLSIDFromProgID(u"Test.Nothing", &clsid), CO_E_CLASSSTRING);
  LPOLESTR progId = nullptr;
  ASSERT_EQ(ProgIDFromCLSID(CLSID_Hidden, &progId), S_OK);
  EXPECT_EQ(std::u16string(progId), u"Test.Hidden.1");
  CoTaskMemFree(progId);
  EXPECT_EQ(ProgIDFromCLSID(IID_ICounter, &progId), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(CLSIDFromString(u"Test.Counter.1", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_Counter);
}

TEST(ComGuids, TextRoundTrip) {
  OLECHAR text[CHARS_IN_GUID];
  ASSERT_EQ(StringFromGUID2(IID_IDispatch, text, CHARS_IN_GUID), CHARS_IN_GUID);
  EXPECT_EQ(std::u16string(text), u"{00020400-0000-0000-C000-000000000046}");
  EXPECT_EQ(StringFromGUID2(IID_IDispatch, text, CHARS_IN_GUID - 1), 0);
  GUID g;
  EXPECT_EQ(CLSIDFromString(u"{00020400-0000-0000-c000-000000000046}", &g), S_OK);
  EXPECT_EQ(g, IID_IDispatch);
  EXPECT_EQ(CLSIDFromString(u"{00020400-0000-0000-C000-00000000004}", &g), CO_E_CLASSSTRING);
  EXPECT_EQ(CLSIDFromString(u"{00020400-0000-0000-C000-0000000000467}", &g), CO_E_CLASSSTRING);
  EXPECT_EQ(CLSIDFromString(u"{00020400+0000-0000-C000-000000000046}", &g), CO_E_CLASSSTRING);
  EXPECT_EQ(CLSIDFromString(nullptr, &g), S_OK);
  EXPECT_EQ(g, GUID_NULL);
  EXPECT_EQ(IIDFromString(u"nonsense", &g), CO_E_IIDSTRING);
  GUID a, b;
  CoCreateGuid(&a);
  CoCreateGuid(&b);
  EXPECT_NE(a, b);
  EXPECT_EQ(a.Data3 >> 12, 4);
}

TEST(ComObject, QueryInterfaceAndReferenceCounts) {
  const LONG before = veltrane::platform::ModuleLockCount();
  CCounter* raw = nullptr;
  ASSERT_EQ(CCounter::CreateInstance(&raw), S_OK);
  EXPECT_EQ(veltrane::platform::ModuleLockCount(), before + 1);
  EXPECT_EQ(raw->RefCount(), 1u);
  CComPtr<ICounter> counter;
  EXPECT_EQ(raw->QueryInterface(&counter), S_OK);
  CComPtr<ISupportErrorInfo> sei;
  EXPECT_EQ(counter.QueryInterface(&sei), S_OK);
  EXPECT_EQ(sei->InterfaceSupportsErrorInfo(IID_ICounter), S_OK);
  EXPECT_EQ(sei->InterfaceSupportsErrorInfo(IID_IDispatch), S_FALSE);
  CComPtr<IUnknown> u1, u2;
  counter->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&u1));
  sei->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&u2));
  EXPECT_EQ(u1.p, u2.p);  // one identity
  CComPtr<IDispatch> disp;
  EXPECT_EQ(counter.QueryInterface(&disp), E_NOINTERFACE);
  EXPECT_EQ(raw->RefCount(), 5u);
  raw->Release();
  counter.Release();
  sei.Release();
  u1.Release();
  u2.Release();
  EXPECT_EQ(veltrane::platform::ModuleLockCount(), before);
}

TEST(ComObject, ReleaseFromManyThreads) {
  CComPtr<CCounter> obj;
  ASSERT_EQ(CCounter::CreateInstance(&obj), S_OK);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([p = obj.p] {
      for (int i = 0; i < 10000; ++i) {
        p->AddRef();
        p->Release();
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(obj->RefCount(), 1u);
}

TEST(ComTaskMemory, AllocReallocFree) {
  void* p = CoTaskMemAlloc(16);
  ASSERT_NE(p, nullptr);
  p = CoTaskMemRealloc(p, 64);
  ASSERT_NE(p, nullptr);
  CoTaskMemFree(p);
  CoTaskMemFree(nullptr);
}
