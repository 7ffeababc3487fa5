// The session core (session_calls.h) on a back end whose calls raise: what
// escapes preparing, running or stopping a call becomes the member's result,
// early- and late-bound alike.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "fake_session.h"
#include "late_bound.h"
#include "session/session_calls.h"

using namespace session_test;

namespace {

constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x80040207);
constexpr char16_t kUnexpectedText[] = u"An unexpected error has occured - check trace for details";

// What a step of the back end raises.
enum class Raise { Nothing, Internal, Com, Standard, Other };

void RaiseIf(Raise what) {
  switch (what) {
    case Raise::Nothing: return;
    case Raise::Internal: throw CXVeltrane(CXVeltrane::OTHER, u"broken back end");
    case Raise::Com: throw _com_error(E_ACCESSDENIED);
    case Raise::Standard: throw std::runtime_error("broken back end");
    case Raise::Other: throw 42;
  }
}

// The smallest back end on the core: a synchronous call ends at once, an
// asynchronous one runs until it is aborted.
class CCoreSession
    : public CComObjectBase<CCoreSession, ISessionCallsImpl<CCoreSession, ISoapSession>,
                            IConnectionPointContainerImpl<CCoreSession, CProxy_SessionEvents<CCoreSession>>,
                            ISupportErrorInfoImpl<&IID_ISoapSession, &IID_ISession>> {
 public:
  static constexpr SessionBoundary kBoundary{CLSID_SoapSession, "CCoreSession"};

  Raise prepare = Raise::Nothing;
  Raise run = Raise::Nothing;
  Raise abort = Raise::Nothing;

  HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL* pVal) override {
    *pVal = VARIANT_TRUE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_CallActive(VARIANT_BOOL* pVal) override {
    *pVal = CallRunning() ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_SessionType(BSTR* pVal) override { return CComBSTR(u"CORE").CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE Connect() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE Disconnect() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE CreateTransID(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE ConfirmTransID(BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CallTRFCFunction(BSTR, IFunctionCall*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_HttpSystemData(IHttpSystemData**) override { return E_NOTIMPL; }

 private:
  class Call final : public RunningCall {
   public:
    explicit Call(CCoreSession* session) : m_session(session) {}
    void RunSynchronously() override {
      RaiseIf(m_session->run);
      m_session->EndCall();  // destroys this
    }
    void Start() override {}
    void Abort() override { RaiseIf(m_session->abort); }

   private:
    CCoreSession* m_session;
  };

  bool ReadyForCalls() const override { return true; }
  std::unique_ptr<RunningCall> PrepareCall(IFunctionCall*) override {
    RaiseIf(prepare);
    return std::make_unique<Call>(this);
  }
  HRESULT ImportTypeFromBackend(BSTR, IRfcType*) override { return E_NOTIMPL; }
  HRESULT ImportCallFromBackend(BSTR, VARIANT_BOOL, IFunctionCall*) override { return E_NOTIMPL; }
};

CComPtr<CCoreSession> NewCoreSession() {
  CComPtr<CCoreSession> s;
  EXPECT_EQ(CCoreSession::CreateInstance(&s.p), S_OK);
  return s;
}

CComPtr<IFunctionCall> NewCall() {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(CreateFunctionCall(&call), S_OK);
  call->put_Function(CComBSTR(u"Z_TEST"));
  return call;
}

bool Active(CCoreSession* s) {
  VARIANT_BOOL active = VARIANT_FALSE;
  s->get_CallActive(&active);
  return active == VARIANT_TRUE;
}

struct Case {
  Raise raise;
  HRESULT result;
  bool record;
};
// A COM error keeps its own result without a record; the rest is text 519.
const Case kCases[] = {{Raise::Internal, kUnexpected, true},
                       {Raise::Com, E_ACCESSDENIED, false},
                       {Raise::Standard, kUnexpected, true},
                       {Raise::Other, kUnexpected, true}};

void ExpectRecord(const Case& c, const char* what) {
  const ErrorRecord r = TakeError();
  EXPECT_EQ(r.present, c.record) << what;
  if (c.record) {
    EXPECT_EQ(r.description, kUnexpectedText) << what;
    EXPECT_EQ(r.source, u"Veltrane.SoapSession.1") << what;
  }
}

void ExpectLateBound(const test_support::LateBoundResult& late, const Case& c, const char* what) {
  EXPECT_EQ(late.hr, DISP_E_EXCEPTION) << what;
  EXPECT_EQ(late.info.scode, c.result) << what;
  EXPECT_EQ(Str(late.info.bstrDescription), c.record ? kUnexpectedText : u"") << what;
}

const char* NameOf(Raise r) {
  switch (r) {
    case Raise::Internal: return "CXVeltrane";
    case Raise::Com: return "_com_error";
    case Raise::Standard: return "std::exception";
    case Raise::Other: return "anything else";
    default: return "nothing";
  }
}

}  // namespace

// A call that cannot be prepared does not start: the session takes the next.
TEST(SessionCalls, ACallThatRaisesWhilePreparedReportsThroughItsResult) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  for (const Case& c : kCases) {
    auto s = NewCoreSession();
    s->prepare = c.raise;
    CComPtr<IFunctionCall> call = NewCall();
    SetErrorInfo(0, nullptr);
    EXPECT_EQ(s->CallFunction(call, VARIANT_TRUE), c.result) << NameOf(c.raise);
    ExpectRecord(c, NameOf(c.raise));
    EXPECT_FALSE(Active(s)) << NameOf(c.raise);
    test_support::LateBoundResult late;
    test_support::InvokeLateBound(static_cast<ISoapSession*>(s.p), u"CallFunction",
                                  {CComVariant(static_cast<IDispatch*>(call.p))}, late);
    ExpectLateBound(late, c, NameOf(c.raise));
    s->prepare = Raise::Nothing;
    EXPECT_EQ(s->CallFunction(call, VARIANT_TRUE), S_OK) << NameOf(c.raise);
  }
  CoUninitialize();
}

// A synchronous call that raises while it runs reports through its result and
// stays the running call until AbortCall.
TEST(SessionCalls, ACallThatRaisesWhileItRunsReportsThroughItsResult) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  for (const Case& c : kCases) {
    auto s = NewCoreSession();
    s->run = c.raise;
    SetErrorInfo(0, nullptr);
    EXPECT_EQ(s->CallFunction(NewCall(), VARIANT_TRUE), c.result) << NameOf(c.raise);
    ExpectRecord(c, NameOf(c.raise));
    EXPECT_TRUE(Active(s)) << NameOf(c.raise);
    EXPECT_EQ(s->AbortCall(), S_OK) << NameOf(c.raise);
    EXPECT_FALSE(Active(s)) << NameOf(c.raise);
  }
  CoUninitialize();
}

// A back end that fails to stop its call, with whatever it raises: text 519,
// and the call is gone, with the session's hold on itself.
TEST(SessionCalls, AnAbortThatRaisesReportsThroughItsResult) {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  for (Raise raise : {Raise::Internal, Raise::Com, Raise::Standard, Raise::Other}) {
    auto s = NewCoreSession();
    s->abort = raise;
    ASSERT_EQ(s->CallFunction(NewCall(), VARIANT_FALSE), S_OK) << NameOf(raise);
    ASSERT_TRUE(Active(s)) << NameOf(raise);
    SetErrorInfo(0, nullptr);
    EXPECT_EQ(s->AbortCall(), kUnexpected) << NameOf(raise);
    const ErrorRecord r = TakeError();
    EXPECT_EQ(r.description, kUnexpectedText) << NameOf(raise);
    EXPECT_FALSE(Active(s)) << NameOf(raise);
    EXPECT_EQ(s->AbortCall(), S_OK) << NameOf(raise);

    ASSERT_EQ(s->CallFunction(NewCall(), VARIANT_FALSE), S_OK) << NameOf(raise);
    test_support::LateBoundResult late;
    test_support::InvokeLateBound(static_cast<ISoapSession*>(s.p), u"AbortCall", std::vector<CComVariant>{}, late);
    EXPECT_EQ(late.hr, DISP_E_EXCEPTION) << NameOf(raise);
    EXPECT_EQ(late.info.scode, kUnexpected) << NameOf(raise);
    EXPECT_EQ(Str(late.info.bstrDescription), kUnexpectedText) << NameOf(raise);
    EXPECT_FALSE(Active(s)) << NameOf(raise);
  }
  CoUninitialize();
}
