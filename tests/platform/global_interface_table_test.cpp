#include "platform/atlbase.h"
#include "platform/com_object.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace {

// Records the thread each Invoke runs on.
class CThreadRecorder : public CComObjectBase<CThreadRecorder, IDispatch> {
 public:
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* n) override {
    *n = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return DISP_E_BADINDEX; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return DISP_E_UNKNOWNNAME;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    lastThread = std::this_thread::get_id();
    lastDispid = id;
    if (params && params->cArgs == 1 && params->rgvarg[0].vt == VT_I4) lastArg = params->rgvarg[0].lVal;
    ++calls;
    return S_OK;
  }
  std::thread::id lastThread;
  DISPID lastDispid = 0;
  LONG lastArg = 0;
  std::atomic<int> calls{0};
};

}  // namespace

TEST(GlobalInterfaceTable, SameApartmentGetsTheObjectItself) {
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
  CComPtr<IGlobalInterfaceTable> git;
  ASSERT_EQ(CoGetGlobalInterfaceTable(&git), S_OK);
  CComPtr<CThreadRecorder> obj;
  CThreadRecorder::CreateInstance(&obj);
  DWORD cookie = 0;
  ASSERT_EQ(git->RegisterInterfaceInGlobal(obj->GetUnknown(), IID_IDispatch, &cookie), S_OK);
  CComPtr<IDispatch> back;
  ASSERT_EQ(git->GetInterfaceFromGlobal(cookie, IID_IDispatch, reinterpret_cast<void**>(&back)), S_OK);
  EXPECT_EQ(back.p, static_cast<IDispatch*>(obj.p));
  back.Release();
  EXPECT_EQ(git->RevokeInterfaceFromGlobal(cookie), S_OK);
  EXPECT_EQ(git->RevokeInterfaceFromGlobal(cookie), E_INVALIDARG);
  EXPECT_EQ(git->GetInterfaceFromGlobal(cookie, IID_IDispatch, reinterpret_cast<void**>(&back)), E_INVALIDARG);
  obj.Release();
  CoUninitialize();
}

TEST(GlobalInterfaceTable, CallsFromAnotherApartmentRunOnTheOwningThread) {
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
  CComPtr<IGlobalInterfaceTable> git;
  CoGetGlobalInterfaceTable(&git);
  CComPtr<CThreadRecorder> obj;
  CThreadRecorder::CreateInstance(&obj);
  DWORD cookie = 0;
  ASSERT_EQ(git->RegisterInterfaceInGlobal(obj->GetUnknown(), IID_IDispatch, &cookie), S_OK);

  std::atomic<bool> finished{false};
  HRESULT workerResult = E_FAIL;
  std::thread worker([&] {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    CComPtr<IDispatch> proxy;
    HRESULT hr = git->GetInterfaceFromGlobal(cookie, IID_IDispatch, reinterpret_cast<void**>(&proxy));
    if (SUCCEEDED(hr)) {
      CComVariant arg(LONG(41));
      DISPPARAMS params{&arg, nullptr, 1, 0};
      hr = proxy->Invoke(7, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, nullptr, nullptr);
      CComPtr<IUnknown> unk;
      if (proxy->QueryInterface(IID_IConnectionPoint, reinterpret_cast<void**>(&unk)) != E_NOINTERFACE) hr = E_FAIL;
    }
    proxy.Release();
    workerResult = hr;
    CoUninitialize();
    finished = true;
  });
  // The owning apartment pumps until the worker is done.
  while (!finished) CoPumpMessages(50);
  worker.join();
  CoPumpMessages(0);  // the proxy's release arrives here
  EXPECT_EQ(workerResult, S_OK);
  EXPECT_EQ(obj->calls.load(), 1);
  EXPECT_EQ(obj->lastThread, std::this_thread::get_id());
  EXPECT_EQ(obj->lastDispid, 7);
  EXPECT_EQ(obj->lastArg, 41);
  git->RevokeInterfaceFromGlobal(cookie);
  EXPECT_EQ(obj->RefCount(), 1u);
  obj.Release();
  CoUninitialize();
}

TEST(GlobalInterfaceTable, ClosedApartmentDisconnects) {
  CComPtr<IGlobalInterfaceTable> git;
  CoGetGlobalInterfaceTable(&git);
  DWORD cookie = 0;
  std::thread owner([&] {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    CComPtr<CThreadRecorder> obj;
    CThreadRecorder::CreateInstance(&obj);
    git->RegisterInterfaceInGlobal(obj->GetUnknown(), IID_IDispatch, &cookie);
    CoUninitialize();
  });
  owner.join();
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  CComPtr<IDispatch> proxy;
  EXPECT_EQ(git->GetInterfaceFromGlobal(cookie, IID_IDispatch, reinterpret_cast<void**>(&proxy)), RPC_E_DISCONNECTED);
  EXPECT_EQ(git->GetInterfaceFromGlobal(cookie, IID_IClassFactory, reinterpret_cast<void**>(&proxy)), E_NOINTERFACE);
  EXPECT_EQ(git->RevokeInterfaceFromGlobal(cookie), S_OK);
  CoUninitialize();
}

TEST(GlobalInterfaceTable, NeedsAnApartment) {
  std::thread([] {
    CComPtr<IGlobalInterfaceTable> git;
    CoGetGlobalInterfaceTable(&git);
    DWORD cookie;
    CComPtr<CThreadRecorder> obj;
    CThreadRecorder::CreateInstance(&obj);
    EXPECT_EQ(git->RegisterInterfaceInGlobal(obj->GetUnknown(), IID_IDispatch, &cookie), CO_E_NOTINITIALIZED);
  }).join();
}
