// Transactional RFC and the logon ticket on the classic session.
#include <unistd.h>

#include <string>

#include "platform/unicode.h"
#include "rfc_fixture.h"

namespace rfctest {
namespace {

using Transactions = SessionTest;

TEST_F(Transactions, CreateSendConfirm) {
  CComBSTR tid;
  ASSERT_EQ(m_session->CreateTransID(&tid), S_OK);
  EXPECT_EQ(tid.Length(), 24u);
  CComPtr<IFunctionCall> call = Import(u"STFC_CONNECTION");
  SetValue(call, u"Importing", u"REQUTEXT", CComVariant(u"once"));
  ASSERT_EQ(m_session->CallTRFCFunction(tid, call), S_OK);
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
  // Nothing comes back: the call is sent under the ID alone.
  EXPECT_EQ(Value(call, u"Exporting", u"ECHOTEXT").vt, VT_EMPTY);
  EXPECT_EQ(m_session->ConfirmTransID(tid), S_OK);
}

TEST_F(Transactions, ACallSentTwiceUnderOneIdRunsOnce) {
  const std::u16string key = u"classic-once-" + Utf8ToWide(std::to_string(getpid()));
  CComBSTR tid;
  ASSERT_EQ(m_session->CreateTransID(&tid), S_OK);
  for (int i = 0; i < 2; ++i) {
    CComPtr<IFunctionCall> call = Import(u"Z_VSIM_COUNT_RUNS");
    SetValue(call, u"Importing", u"KEY", CComVariant(key.c_str()));
    ASSERT_EQ(m_session->CallTRFCFunction(tid, call), S_OK);
    EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
  }
  EXPECT_EQ(m_session->ConfirmTransID(tid), S_OK);
  CComPtr<IFunctionCall> count = Import(u"Z_VSIM_COUNT_RUNS");
  SetValue(count, u"Importing", u"KEY", CComVariant(key.c_str()));
  SetValue(count, u"Importing", u"READ_ONLY", CComVariant(u"X"));
  ASSERT_EQ(m_session->CallFunction(count, VARIANT_TRUE), S_OK);
  EXPECT_EQ(Value(count, u"Exporting", u"RUNS").lVal, 1);
}

TEST_F(Transactions, AnIndirectCallTheSdkRefusesIsErrorWithASuccessResult) {
  CComBSTR tid;
  ASSERT_EQ(m_session->CreateTransID(&tid), S_OK);
  CComPtr<IFunctionCall> call = Import(u"RFC_PING");
  // A CHAR of length 0 has no buffer: the SDK refuses the parameter.
  CComPtr<IRfcType> empty;
  ASSERT_EQ(m_session->CreateType(&empty), S_OK);
  empty->DefineScalar(CComBSTR(u"C0"), TYPE_CHAR, 0, 0, -1);
  CComPtr<IRfcParameters> importing;
  call->get_Importing(&importing);
  ASSERT_EQ(importing->AddParameter(CComBSTR(u"ZZ_EMPTY"), empty), S_OK);
  ASSERT_EQ(m_session->CallTRFCFunction(tid, call), S_OK);
  EXPECT_TRUE(ErrorFlag(m_session));
  EXPECT_FALSE(ErrorOf(m_session).message.empty());
}

TEST_F(Transactions, AnUnsetOptionalScalarIsPrunedAsInACall) {
  CComBSTR tid;
  ASSERT_EQ(m_session->CreateTransID(&tid), S_OK);
  CComPtr<IFunctionCall> call = Import(u"STFC_CONNECTION");
  Parameter(call, u"Importing", u"REQUTEXT")->put_Optional(VARIANT_TRUE);
  ASSERT_EQ(m_session->CallTRFCFunction(tid, call), S_OK);
  CComPtr<IRfcParameters> importing;
  call->get_Importing(&importing);
  VARIANT_BOOL has = VARIANT_TRUE;
  importing->HasKey(CComBSTR(u"REQUTEXT"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);
}

TEST_F(Transactions, ADeepParameterInImportingFailsTheMethodWithItsKind) {
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_TYPES", VARIANT_TRUE);
  ASSERT_TRUE(call);
  CComPtr<IRfcType> flat, deep;
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"ZVSIM_FLAT"), &flat), S_OK);
  ASSERT_EQ(m_session->CreateType(&deep), S_OK);
  ASSERT_EQ(deep->DefineTable(CComBSTR(u"ZVSIM_FLAT_TT"), flat), S_OK);
  CComPtr<IRfcParameters> importing;
  call->get_Importing(&importing);
  ASSERT_EQ(importing->AddParameter(CComBSTR(u"IT_TABLE"), deep), S_OK);
  CComBSTR tid;
  ASSERT_EQ(m_session->CreateTransID(&tid), S_OK);
  EXPECT_EQ(m_session->CallTRFCFunction(tid, call), static_cast<HRESULT>(0x80040206));
}

TEST_F(Transactions, ConfirmingAnUnknownIdGivesWhatTheSdkAnswers) {
  const HRESULT hr = m_session->ConfirmTransID(CComBSTR(u"000000000000000000000000"));
  EXPECT_TRUE(hr == S_OK || hr == E_FAIL) << std::hex << hr;
}

TEST_F(Transactions, WithoutAConnectionEachReports520) {
  m_session->Disconnect();
  CComBSTR tid;
  EXPECT_EQ(m_session->CreateTransID(&tid), static_cast<HRESULT>(0x80040208));
  EXPECT_EQ(m_session->ConfirmTransID(CComBSTR(u"X")), static_cast<HRESULT>(0x80040208));
  CComPtr<IFunctionCall> call;
  m_session->CreateCall(&call);
  EXPECT_EQ(m_session->CallTRFCFunction(CComBSTR(u"X"), call), static_cast<HRESULT>(0x80040208));
  CComBSTR ticket;
  EXPECT_EQ(m_session->GetSSO2Ticket(&ticket), static_cast<HRESULT>(0x80040208));
}

TEST_F(Transactions, ATicketWithoutGetsso2IsTheSdksFailure) {
  CComBSTR ticket;
  EXPECT_EQ(m_session->GetSSO2Ticket(&ticket), S_OK);
  EXPECT_EQ(ticket.Length(), 0u);
  EXPECT_TRUE(ErrorFlag(m_session));
}

TEST_F(Transactions, ATicketOfAConnectionOpenedForIt) {
  CComPtr<IRfcSession> session = NewSession();
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(CComBSTR(ConnectString() + u" GETSSO2=1"));
  ASSERT_EQ(session->Connect(), S_OK);
  ASSERT_TRUE(Connected(session)) << ErrorOf(session).message;
  CComBSTR ticket;
  EXPECT_EQ(session->GetSSO2Ticket(&ticket), S_OK);
  EXPECT_GT(ticket.Length(), 0u) << ErrorOf(session).message;
  EXPECT_EQ(session->GetSSO2Ticket(nullptr), S_OK);
}

}  // namespace
}  // namespace rfctest
