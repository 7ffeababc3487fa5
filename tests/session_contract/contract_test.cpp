// What every session keeps, whatever its back end. Each test runs once per
// back end of backends.cpp, against the simulated system.
#include <functional>
#include <map>
#include <vector>

#include "contract.h"
#include "late_bound.h"
#include "platform/unicode.h"
#include "runtime/trace.h"

namespace contract {

namespace {

constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x80040207);
constexpr HRESULT kNotConnected = static_cast<HRESULT>(0x80040208);
constexpr HRESULT kCallRunning = static_cast<HRESULT>(0x8004020A);

std::string TextOf(BSTR s) { return WideToUtf8(std::u16string_view(s ? s : u"", SysStringLen(s))); }

// One system per back end, started on first need, for the whole program.
ContractSystem& SystemOf(const SessionBackend& backend) {
  static std::map<std::string, std::unique_ptr<ContractSystem>> systems;
  auto& system = systems[backend.name];
  if (!system) system = backend.start();
  return *system;
}

}  // namespace

// --------------------------------------------------------------- fixture

void SessionContract::SetUp() {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  m_system = &SystemOf(GetParam());
  m_system->Reset();
  m_session = m_system->NewSession();
  ASSERT_TRUE(m_session);
}

void SessionContract::TearDown() {
  if (m_sink) {
    if (m_point) m_point->Unadvise(m_cookie);
    m_point.Release();
    m_sink->Release();
    m_sink = nullptr;
  }
  m_session.Release();
  TraceResetForTesting();
  CoUninitialize();
}

CComPtr<IFunctionCall> SessionContract::NewCall(const char16_t* function) {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(m_session->CreateCall(&call), S_OK);
  if (call) call->put_Function(CComBSTR(function));
  return call;
}

CComPtr<IFunctionCall> SessionContract::Import(const char16_t* function) {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(m_session->ImportCall(CComBSTR(function), VARIANT_FALSE, &call), S_OK) << TextOf(CComBSTR(function));
  return call;
}

void SessionContract::Set(IFunctionCall* call, const char16_t* name, const CComVariant& value) {
  CComPtr<IRfcParameters> params;
  ASSERT_EQ(call->get_Importing(&params), S_OK);
  CComPtr<IRfcParameter> p;
  ASSERT_EQ(params->get_Item(CComVariant(name), &p), S_OK) << TextOf(CComBSTR(name));
  ASSERT_EQ(p->put_value(value), S_OK);
}

std::string SessionContract::Exported(IFunctionCall* call, const char16_t* name) {
  CComPtr<IRfcParameters> params;
  call->get_Exporting(&params);
  CComPtr<IRfcParameter> p;
  if (FAILED(params->get_Item(CComVariant(name), &p))) return "<missing>";
  CComVariant v;
  p->get_value(&v);
  if (FAILED(v.ChangeType(VT_BSTR))) return "<not text>";
  return TextOf(V_BSTR(&v));
}

bool SessionContract::Connected() {
  VARIANT_BOOL b = VARIANT_FALSE;
  m_session->get_IsConnected(&b);
  return b == VARIANT_TRUE;
}

bool SessionContract::Active() {
  VARIANT_BOOL b = VARIANT_FALSE;
  m_session->get_CallActive(&b);
  return b == VARIANT_TRUE;
}

bool SessionContract::ErrorSet() {
  VARIANT_BOOL b = VARIANT_FALSE;
  m_session->get_Error(&b);
  return b == VARIANT_TRUE;
}

SessionContract::ErrorText SessionContract::Error() {
  CComPtr<IRfcError> info;
  EXPECT_EQ(m_session->get_ErrorInfo(&info), S_OK);
  ErrorText e{};
  ERRORGROUP g = RFCERROR_NO_ERROR;
  info->get_ERRORGROUP(&g);
  e.group = g;
  CComBSTR key, message, module;
  info->get_ErrorGroupTxt(&key);
  info->get_Message(&message);
  info->get_ModuleName(&module);
  e.key = TextOf(key);
  e.message = TextOf(message);
  e.module = TextOf(module);
  return e;
}

std::string SessionContract::ErrorDescription() {
  CComPtr<IErrorInfo> info;
  if (GetErrorInfo(0, &info) != S_OK || !info) return "";
  CComBSTR text;
  info->GetDescription(&text);
  return TextOf(text);
}

void SessionContract::Advise() {
  m_sink = new EventSink(m_session);
  CComQIPtr<IConnectionPointContainer> container(m_session);
  ASSERT_TRUE(container);
  ASSERT_EQ(container->FindConnectionPoint(DIID__SessionEvents, &m_point), S_OK);
  ASSERT_EQ(m_point->Advise(m_sink, &m_cookie), S_OK);
}

// ------------------------------------------------------- the frame

TEST_P(SessionContract, SessionTypeIsTheClasssBeforeAndAfterConnect) {
  CComBSTR type;
  ASSERT_EQ(m_session->get_SessionType(&type), S_OK);
  EXPECT_EQ(std::u16string(type.View()), GetParam().sessionType);
  ASSERT_EQ(m_session->Connect(), S_OK);
  type.Empty();
  ASSERT_EQ(m_session->get_SessionType(&type), S_OK);
  EXPECT_EQ(std::u16string(type.View()), GetParam().sessionType);
}

TEST_P(SessionContract, OptionsAreKeptAsGivenAndUnknownOnesReadEmpty) {
  CComBSTR value;
  ASSERT_EQ(m_session->get_Option(CComBSTR(u"never.set"), &value), S_OK);
  EXPECT_EQ(value.Length(), 0u);
  ASSERT_EQ(m_session->put_Option(CComBSTR(u"my.key"), CComBSTR(u"Some Value")), S_OK);
  value.Empty();
  ASSERT_EQ(m_session->get_Option(CComBSTR(u"my.key"), &value), S_OK);
  EXPECT_EQ(TextOf(value), "Some Value");
  value.Empty();
  ASSERT_EQ(m_session->get_Option(CComBSTR(u"MY.KEY"), &value), S_OK);
  EXPECT_EQ(value.Length(), 0u);
}

TEST_P(SessionContract, TraceLevelIsReadInUpperCaseAndAWordOfNoMeaningChangesNothing) {
  ASSERT_EQ(m_session->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"warning")), S_OK);
  EXPECT_EQ(TraceLevel(), 2);
  ASSERT_EQ(m_session->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"loud")), S_OK);
  EXPECT_EQ(TraceLevel(), 2);
  CComBSTR value;
  m_session->get_Option(CComBSTR(u"trace.level"), &value);
  EXPECT_EQ(TextOf(value), "loud");
}

TEST_P(SessionContract, CallsAndTypesAreMadeWithoutAConnection) {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(m_session->CreateCall(&call), S_OK);
  EXPECT_TRUE(call);
  CComPtr<IRfcType> type;
  EXPECT_EQ(m_session->CreateType(&type), S_OK);
  EXPECT_TRUE(type);
  EXPECT_EQ(m_session->CreateCall(nullptr), E_POINTER);
  EXPECT_EQ(m_session->CreateType(nullptr), E_POINTER);
}

TEST_P(SessionContract, ImportCallTwiceReachesTheSystemOnce) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<IFunctionCall> a = Import(u"STFC_CONNECTION");
  const long before = System().Requests();
  CComPtr<IFunctionCall> b = Import(u"STFC_CONNECTION");
  EXPECT_EQ(System().Requests(), before);
  ASSERT_TRUE(a && b);
  EXPECT_NE(a.p, b.p);
}

TEST_P(SessionContract, ImportTypeTwiceGivesTheSameObject) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<IRfcType> a, b;
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"RFC_FUNINT"), &a), S_OK);
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"RFC_FUNINT"), &b), S_OK);
  EXPECT_EQ(a.p, b.p);
}

TEST_P(SessionContract, ASharedTypeCacheServesTheOtherSession) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<ISession> other = System().NewSession();
  CComPtr<ITypeCache> cache;
  ASSERT_EQ(m_session->get_TypeCache(&cache), S_OK);
  ASSERT_EQ(other->put_TypeCache(cache), S_OK);
  Import(u"STFC_CONNECTION");
  // The other session has no connection: only the cache can answer.
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(other->ImportCall(CComBSTR(u"STFC_CONNECTION"), VARIANT_FALSE, &call), S_OK);
  EXPECT_TRUE(call);
}

TEST_P(SessionContract, CheckPasswordExpired) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  VARIANT_BOOL expired = VARIANT_TRUE;
  EXPECT_EQ(m_session->CheckPasswordExpired(&expired), S_OK);
  EXPECT_EQ(expired, VARIANT_FALSE);

  CComPtr<ISession> other = System().NewSession(u"EXPIRED");
  ASSERT_EQ(other->Connect(), S_OK);
  expired = VARIANT_FALSE;
  EXPECT_EQ(other->CheckPasswordExpired(&expired), S_OK);
  EXPECT_EQ(expired, VARIANT_TRUE);
}

TEST_P(SessionContract, CheckUnicodeSupport) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  VARIANT_BOOL unicode = VARIANT_FALSE;
  EXPECT_EQ(m_session->CheckUnicodeSupport(&unicode), S_OK);
  EXPECT_EQ(unicode, VARIANT_TRUE);
}

TEST_P(SessionContract, TheTableReaderReadsSflight) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<ITableReader> reader;
  ASSERT_EQ(m_session->GetTableReader(CComBSTR(u"SFLIGHT"), &reader), S_OK);
  CComPtr<IStringList> fields;
  reader->get_Fields(&fields);
  fields->Add(CComBSTR(u"CARRID"));
  fields->Add(CComBSTR(u"CONNID"));
  ASSERT_EQ(reader->Read(10, 0), S_OK);
  VARIANT_BOOL failed = VARIANT_TRUE;
  reader->get_Error(&failed);
  EXPECT_EQ(failed, VARIANT_FALSE);
  CComPtr<IRfcRows> rows;
  ASSERT_EQ(reader->get_Rows(&rows), S_OK);
  LONG count = 0;
  rows->get_Count(&count);
  EXPECT_EQ(count, 10);
}

// A failure raised inside an import (a parameter whose name reads as a
// position cannot be fetched back by its name) reaches an early-bound
// caller as a result with a record, and a late-bound one as an exception of
// the dispatch.
TEST_P(SessionContract, AnImportThatRaisesReportsThroughItsResult) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<IFunctionCall> call;
  if (GetParam().importFailure == ImportFailure::ItsOwnResult) {
    EXPECT_EQ(m_session->ImportCall(CComBSTR(u"Z_CONTRACT_NUMBERED"), VARIANT_FALSE, &call), E_INVALIDARG);
    EXPECT_FALSE(call);
    test_support::LateBoundResult r;
    test_support::InvokeLateBound(m_session, u"ImportCall", CComVariant(u"Z_CONTRACT_NUMBERED"), r);
    EXPECT_EQ(r.hr, DISP_E_EXCEPTION);
    EXPECT_EQ(r.info.scode, E_INVALIDARG);
    return;
  }
  EXPECT_EQ(m_session->ImportCall(CComBSTR(u"Z_CONTRACT_NUMBERED"), VARIANT_FALSE, &call), kUnexpected);
  EXPECT_FALSE(call);
  EXPECT_EQ(ErrorDescription(), "An unexpected error has occured - check trace for details");

  test_support::LateBoundResult r;
  test_support::InvokeLateBound(m_session, u"ImportCall", CComVariant(u"Z_CONTRACT_NUMBERED"), r);
  EXPECT_EQ(r.hr, DISP_E_EXCEPTION);
  EXPECT_EQ(r.info.scode, kUnexpected);
  EXPECT_EQ(TextOf(r.info.bstrDescription), "An unexpected error has occured - check trace for details");
}

// A member whose work fails inside (text that has no UTF-8 form, a value
// that cannot be marshalled, a transaction ID the system never gave) reports
// through its result only, and the same way early- and late-bound: the
// late-bound call raises DISP_E_EXCEPTION with the early result and its
// record's text, or succeeds where the early call succeeded.
TEST_P(SessionContract, MembersThatFailInsideReportAlikeEarlyAndLateBound) {
  const std::u16string loneText{u'Z', char16_t(0xD800)};
  const CComBSTR lone(static_cast<int>(loneText.size()), loneText.data());
  // `between` brings the session back to where the early call found it.
  auto expectAlike = [&](
                         const char* what, const char16_t* member, std::vector<CComVariant> arguments,
                         const std::function<HRESULT()>& early, const std::function<void()>& between = [] {}) {
    SetErrorInfo(0, nullptr);
    const HRESULT hr = early();
    const std::string description = ErrorDescription();
    between();
    test_support::LateBoundResult late;
    test_support::InvokeLateBound(m_session, member, std::move(arguments), late);
    between();
    if (FAILED(hr)) {
      EXPECT_EQ(late.hr, DISP_E_EXCEPTION) << what;
      EXPECT_EQ(late.info.scode, hr) << what;
      EXPECT_EQ(TextOf(late.info.bstrDescription), description) << what;
    } else {
      EXPECT_EQ(late.hr, S_OK) << what;
    }
    return hr;
  };

  CComPtr<ILogonData> logon;
  ASSERT_EQ(m_session->get_LogonData(&logon), S_OK);
  CComBSTR user;
  logon->get_User(&user);
  logon->put_User(lone);
  expectAlike(
      "Connect with a user that has no UTF-8 form", u"Connect", {}, [&] { return m_session->Connect(); },
      [&] { m_session->Disconnect(); });
  m_session->Disconnect();
  logon->put_User(user);
  ASSERT_EQ(m_session->Connect(), S_OK);

  expectAlike("ImportType", u"ImportType", {CComVariant(lone)}, [&] {
    CComPtr<IRfcType> type;
    const HRESULT hr = m_session->ImportType(lone, &type);
    EXPECT_EQ(FAILED(hr), !type);
    return hr;
  });
  const HRESULT imported = expectAlike("ImportCall", u"ImportCall", {CComVariant(lone)}, [&] {
    CComPtr<IFunctionCall> call;
    const HRESULT hr = m_session->ImportCall(lone, VARIANT_FALSE, &call);
    EXPECT_FALSE(call);
    return hr;
  });
  EXPECT_TRUE(FAILED(imported));

  // An array where the module wants text.
  CComPtr<IFunctionCall> array = Import(u"STFC_CONNECTION");
  ASSERT_TRUE(array);
  CComVariant numbers;
  numbers.vt = VT_ARRAY | VT_I4;
  numbers.parray = SafeArrayCreateVector(VT_I4, 0, 2);
  Set(array, u"REQUTEXT", numbers);
  const HRESULT marshalled = expectAlike("CallFunction with an array for text", u"CallFunction",
                                         {CComVariant(static_cast<IDispatch*>(array.p))},
                                         [&] { return m_session->CallFunction(array, VARIANT_TRUE); });
  EXPECT_TRUE(FAILED(marshalled));
  EXPECT_TRUE(Connected());

  CComPtr<IFunctionCall> text = Import(u"STFC_CONNECTION");
  ASSERT_TRUE(text);
  Set(text, u"REQUTEXT", CComVariant(lone));
  expectAlike("CallFunction with text that has no UTF-8 form", u"CallFunction",
              {CComVariant(static_cast<IDispatch*>(text.p))},
              [&] { return m_session->CallFunction(text, VARIANT_TRUE); });
  if (!Connected()) ASSERT_EQ(m_session->Connect(), S_OK);

  // Values that the module's types cannot take. A packed number out of its
  // range goes over SOAP as the text it is, and the system judges it.
  struct Unfit {
    const char16_t* parameter;
    CComVariant value;
    bool failsEverywhere;
  };
  const std::vector<Unfit> unfit = {{u"IV_DATE", CComVariant(u"not a date"), true},
                                    {u"IV_TIME", CComVariant(u"25:61"), true},
                                    {u"IV_INT", CComVariant(u"many"), true},
                                    {u"IV_PACKED", CComVariant(u"1E+40"), false}};
  for (const Unfit& u : unfit) {
    CComPtr<IFunctionCall> call;
    ASSERT_EQ(m_session->ImportCall(CComBSTR(u"Z_VSIM_TYPES"), VARIANT_TRUE, &call), S_OK);
    Set(call, u.parameter, u.value);
    const std::string what = "CallFunction with " + TextOf(CComBSTR(u.parameter)) + " = " + TextOf(u.value.bstrVal);
    const HRESULT hr = expectAlike(what.c_str(), u"CallFunction", {CComVariant(static_cast<IDispatch*>(call.p))},
                                   [&] { return m_session->CallFunction(call, VARIANT_TRUE); });
    if (u.failsEverywhere) EXPECT_TRUE(FAILED(hr)) << what;
    if (!Connected()) ASSERT_EQ(m_session->Connect(), S_OK);
  }

  CComBSTR tid;
  if (SUCCEEDED(m_session->CreateTransID(&tid))) {
    expectAlike("CallTRFCFunction with an array for text", u"CallTRFCFunction",
                {CComVariant(tid), CComVariant(static_cast<IDispatch*>(array.p))},
                [&] { return m_session->CallTRFCFunction(tid, array); });
  }
  expectAlike("ConfirmTransID of an empty ID", u"ConfirmTransID", {CComVariant(u"")},
              [&] { return m_session->ConfirmTransID(CComBSTR(u"")); });
  logon->put_Password(CComBSTR(u"Welcome1"));
  expectAlike("ChangePassword to text that has no UTF-8 form", u"ChangePassword", {CComVariant(lone)},
              [&] { return m_session->ChangePassword(lone); });
}

// ------------------------------------------------------------ calls

TEST_P(SessionContract, ConnectAndACallIsFilled) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  EXPECT_TRUE(Connected());
  EXPECT_FALSE(Active());
  EXPECT_FALSE(ErrorSet());
  CComPtr<IFunctionCall> call = Import(u"STFC_CONNECTION");
  ASSERT_TRUE(call);
  Set(call, u"REQUTEXT", CComVariant(u"hello"));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorSet());
  EXPECT_EQ(Exported(call, u"ECHOTEXT"), "hello");
  EXPECT_FALSE(Active());
  EXPECT_EQ(m_session->Disconnect(), S_OK);
  EXPECT_FALSE(Connected());
}

TEST_P(SessionContract, CallFunctionWithoutConnectFails) {
  EXPECT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), kNotConnected);
  EXPECT_EQ(ErrorDescription(), "Not connected (call connect() before executing this method)");
}

TEST_P(SessionContract, AnAbapExceptionIsAnApplicationExceptionWithASuccessResult) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_RAISE");
  ASSERT_TRUE(call);
  Set(call, u"EXCEPTION", CComVariant(u"NOT_FOUND"));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  EXPECT_TRUE(ErrorSet());
  const ErrorText e = Error();
  EXPECT_EQ(e.group, RFCERROR_APPLICATION_EXCEPTION);
  const bool inTheKey = GetParam().exceptionName == ExceptionName::InTheKey;
  EXPECT_EQ(inTheKey ? e.key : e.message, "NOT_FOUND");
  if (!inTheKey) EXPECT_EQ(e.key, "");
  // Reading ErrorInfo cleared Error; the details stay.
  EXPECT_FALSE(ErrorSet());
  EXPECT_EQ(inTheKey ? Error().key : Error().message, "NOT_FOUND");
}

// The failing call raises an ABAP exception, which keeps the connection (a missing module is a
// runtime error, after which an RFC system ends the connection).
TEST_P(SessionContract, ASuccessfulCallClearsTheError) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<IFunctionCall> raise = NewCall(u"Z_VSIM_RAISE");
  CComPtr<IRfcParameters> importing;
  raise->get_Importing(&importing);
  ASSERT_EQ(importing->AddScalar(CComBSTR(u"EXCEPTION"), TYPE_CHAR, 30, 0, CComVariant(u"FAILED")), S_OK);
  ASSERT_EQ(m_session->CallFunction(raise, VARIANT_TRUE), S_OK);
  EXPECT_TRUE(ErrorSet());
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorSet());
  EXPECT_EQ(Error().group, RFCERROR_NO_ERROR);
}

TEST_P(SessionContract, UnsetOptionalScalarsArePrunedFromTheCall) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<IFunctionCall> call = NewCall(u"STFC_CONNECTION");
  CComPtr<IRfcParameters> importing;
  call->get_Importing(&importing);
  ASSERT_EQ(importing->AddScalar(CComBSTR(u"REQUTEXT"), TYPE_CHAR, 255, 0, CComVariant()), S_OK);
  ASSERT_EQ(importing->AddScalar(CComBSTR(u"ZOPTIONAL"), TYPE_CHAR, 10, 0, CComVariant()), S_OK);
  CComPtr<IRfcParameter> optional;
  importing->get_Item(CComVariant(u"ZOPTIONAL"), &optional);
  optional->put_Optional(VARIANT_TRUE);
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  LONG count = 0;
  importing->get_Count(&count);
  EXPECT_EQ(count, 1);
  VARIANT_BOOL has = VARIANT_TRUE;
  importing->HasKey(CComBSTR(u"ZOPTIONAL"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);
}

TEST_P(SessionContract, AbortCallWithoutACallDoesNothing) {
  EXPECT_EQ(m_session->AbortCall(), S_OK);
  ASSERT_EQ(m_session->Connect(), S_OK);
  EXPECT_EQ(m_session->AbortCall(), S_OK);
  EXPECT_TRUE(Connected());
}

// ------------------------------------------------ asynchronous calls

TEST_P(SessionContract, AnAsynchronousCallFiresCallFinishedOnceOnAnotherThread) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  Advise();
  CComPtr<IFunctionCall> call = Import(u"STFC_CONNECTION");
  ASSERT_TRUE(call);
  Set(call, u"REQUTEXT", CComVariant(u"async"));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_NE(m_sink->Thread(), std::this_thread::get_id());
  if (GetParam().activeInCallFinished == ActiveInCallFinished::No) {
    EXPECT_EQ(m_sink->ActiveAtFire(), VARIANT_FALSE);
    EXPECT_FALSE(Active());
  } else {
    EXPECT_EQ(m_sink->ActiveAtFire(), VARIANT_TRUE);
  }
  EXPECT_EQ(Exported(call, u"ECHOTEXT"), "async");
  EXPECT_EQ(m_sink->Count(), 1);
}

TEST_P(SessionContract, ASynchronousCallFiresNothing) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  Advise();
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_TRUE), S_OK);
  EXPECT_EQ(m_sink->Count(), 0);
}

// What a second call gets while an asynchronous one runs is the back end's
// (SecondCall): text 522, or an answer from the SDK. The first call runs to
// its end either way.
TEST_P(SessionContract, ASecondCallWhileOneRuns) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  Advise();
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_WAIT");
  CComPtr<IFunctionCall> echo = Import(u"STFC_CONNECTION");
  ASSERT_TRUE(call && echo);
  Set(call, u"MILLISECONDS", CComVariant(800L));
  Set(echo, u"REQUTEXT", CComVariant(u"second"));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
  if (GetParam().secondCall == SecondCall::Refused) {
    EXPECT_EQ(m_session->CallFunction(echo, VARIANT_TRUE), kCallRunning);
  } else {
    ASSERT_EQ(m_session->CallFunction(echo, VARIANT_TRUE), S_OK) << ErrorDescription();
    EXPECT_EQ(Exported(echo, u"ECHOTEXT"), "second");
  }
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_EQ(m_sink->Count(), 1);
  EXPECT_FALSE(ErrorSet());
  // WAITED is the time the system measured: at least what was asked for.
  EXPECT_GE(std::stol(Exported(call, u"WAITED")), 800);
}

TEST_P(SessionContract, AnAbortedCallFiresNothing) {
  if (GetParam().abort != AbortCall::StopsTheCall) GTEST_SKIP() << "AbortCall of this back end stops no call";
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<IFunctionCall> wait = Import(u"Z_VSIM_WAIT");
  ASSERT_TRUE(wait);
  Advise();
  System().DelayNextAnswer(500);
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_FALSE), S_OK);
  EXPECT_TRUE(Active());
  EXPECT_EQ(m_session->AbortCall(), S_OK);
  EXPECT_FALSE(Active());
  // The aborted answer arrives, unobserved, while the system waits here.
  Set(wait, u"MILLISECONDS", CComVariant(1000L));
  ASSERT_EQ(m_session->CallFunction(wait, VARIANT_TRUE), S_OK);
  EXPECT_EQ(m_sink->Count(), 0);
  // The next asynchronous call fires once.
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_FALSE), S_OK);
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_EQ(m_sink->Count(), 1);
}

TEST_P(SessionContract, AbortCallLeavesTheCallToFinishWhereItCannotStopIt) {
  if (GetParam().abort != AbortCall::LetsTheCallFinish) GTEST_SKIP() << "AbortCall of this back end stops the call";
  ASSERT_EQ(m_session->Connect(), S_OK);
  Advise();
  CComPtr<IFunctionCall> call = Import(u"STFC_CONNECTION");
  ASSERT_TRUE(call);
  Set(call, u"REQUTEXT", CComVariant(u"goes on"));
  System().DelayNextAnswer(300);
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
  EXPECT_EQ(m_session->AbortCall(), S_OK);
  EXPECT_TRUE(Active());
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_EQ(m_sink->Count(), 1);
  if (GetParam().activeInCallFinished == ActiveInCallFinished::No) EXPECT_FALSE(Active());
  EXPECT_FALSE(ErrorSet());
  EXPECT_EQ(Exported(call, u"ECHOTEXT"), "goes on");
}

// A sink that holds the session and lets go of it in CallFinished.
class OwningSink : public EventSink {
 public:
  explicit OwningSink(ISession* s) : EventSink(s), m_owned(s) {}
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* r,
                                   EXCEPINFO* e, UINT* a) override {
    const HRESULT hr = EventSink::Invoke(id, riid, lcid, flags, params, r, e, a);
    m_session = nullptr;
    m_owned.Release();
    return hr;
  }

 private:
  CComPtr<ISession> m_owned;
};

TEST_P(SessionContract, TheClientMayLetGoOfTheSessionDuringAnAsynchronousCall) {
  ASSERT_EQ(m_session->Connect(), S_OK);
  System().DelayNextAnswer(300);
  auto* sink = new OwningSink(m_session);
  CComQIPtr<IConnectionPointContainer> container(m_session);
  CComPtr<IConnectionPoint> point;
  ASSERT_EQ(container->FindConnectionPoint(DIID__SessionEvents, &point), S_OK);
  DWORD cookie = 0;
  ASSERT_EQ(point->Advise(sink, &cookie), S_OK);
  container.Release();
  point.Release();  // the sink stays connected until the session goes
  ASSERT_EQ(m_session->CallFunction(NewCall(u"RFC_PING"), VARIANT_FALSE), S_OK);
  m_session.Release();  // the sink now holds the last reference of the client
  ASSERT_TRUE(sink->WaitFor(1));
  sink->Release();
}

}  // namespace contract
