#include "veltrane/module.h"

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/typelib.h"
#include "shell/object_map.h"
#include "veltrane_tlb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

std::u16string progIdOf(REFCLSID clsid) {
  LPOLESTR text = nullptr;
  if (FAILED(ProgIDFromCLSID(clsid, &text))) return u"<none>";
  std::u16string s(text);
  CoTaskMemFree(text);
  return s;
}

}  // namespace

TEST(Module, EveryClassIsKnownByItsProgIdAfterLoading) {
  EXPECT_EQ(progIdOf(CLSID_RfcType), u"Veltrane.RfcType.1");
  EXPECT_EQ(progIdOf(CLSID_RfcField), u"Veltrane.RfcField.1");
  EXPECT_EQ(progIdOf(CLSID_RfcSession), u"Veltrane.RfcSession.1");
  EXPECT_EQ(progIdOf(CLSID_SoapSession), u"Veltrane.SoapSession.1");
  CLSID clsid;
  EXPECT_EQ(CLSIDFromProgID(u"Veltrane.SoapSession", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_SoapSession);
  EXPECT_EQ(CLSIDFromProgID(u"Veltrane.SoapSession.1", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_SoapSession);
}

TEST(Module, ClassesOutsideTheObjectMapHaveNoFactory) {
  void* p = reinterpret_cast<void*>(1);
  EXPECT_EQ(DllGetClassObject(CLSID_RfcField, IID_IClassFactory, &p), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(DllGetClassObject(CLSID_RfcType, IID_IClassFactory, &p), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(DllGetClassObject(CLSID_RfcField, IID_IClassFactory, nullptr), E_POINTER);
}

// The map holds the creatable classes this tree implements, in the order of
// the library; the others of the library have no factory yet.
TEST(Module, ObjectMapHoldsTheImplementedCreatableClasses) {
  std::vector<CLSID> order;
  for (const auto& e : veltrane::shell::ObjectMap()) order.push_back(*e.clsid);
  const CLSID all[] = {CLSID_RfcSession,   CLSID_SoapSession, CLSID_BSPApplication, CLSID_RfcServer,
                       CLSID_NWRfcSession, CLSID_NWRfcServer, CLSID_ConnectorCtrl};
  std::vector<CLSID> expected;
  for (const CLSID& c : all)
    if (std::find(order.begin(), order.end(), c) != order.end()) expected.push_back(c);
  EXPECT_EQ(order, expected);
  for (const CLSID& c : {CLSID_SoapSession, CLSID_NWRfcSession, CLSID_BSPApplication, CLSID_ConnectorCtrl})
    EXPECT_NE(veltrane::shell::FindObjectEntry(c), nullptr);
  CComPtr<ISoapSession> soap;
  EXPECT_EQ(veltrane::shell::FindObjectEntry(CLSID_SoapSession)
                ->createInstance(IID_ISoapSession, reinterpret_cast<void**>(&soap)),
            S_OK);
  EXPECT_TRUE(soap);
  CComPtr<IRfcSession> nw;
  EXPECT_EQ(veltrane::shell::FindObjectEntry(CLSID_NWRfcSession)
                ->createInstance(IID_IRfcSession, reinterpret_cast<void**>(&nw)),
            S_OK);
  EXPECT_TRUE(nw);
}

TEST(Module, CanUnloadNowIsFalseWhileASessionLives) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  const HRESULT before = DllCanUnloadNow();
  CComPtr<ISoapSession> session;
  ASSERT_EQ(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISoapSession,
                             reinterpret_cast<void**>(&session)),
            S_OK);
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
  session.Release();
  EXPECT_EQ(DllCanUnloadNow(), before);
  CoUninitialize();
}

TEST(Module, ObjectMapEntriesAreCreatableClasses) {
  for (const auto& e : veltrane::shell::ObjectMap()) {
    const auto* id = veltrane::tlb::FindClassIdentity(*e.clsid);
    ASSERT_NE(id, nullptr);
    EXPECT_TRUE(id->activatable);
  }
}

TEST(Module, CanUnloadOnlyWithoutLiveObjects) {
  const HRESULT before = DllCanUnloadNow();
  CComPtr<ICreateErrorInfo> record;  // an object of the library
  ASSERT_EQ(CreateErrorInfo(&record), S_OK);
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
  record.Release();
  EXPECT_EQ(DllCanUnloadNow(), before);
}
