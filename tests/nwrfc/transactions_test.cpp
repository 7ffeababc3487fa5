// Transactional RFC on NWRfcSession: an ID per transaction, sent as often as
// needed and run once, confirmed at the end.
#include <atomic>

#include "nwrfc_fixture.h"
#include "platform/unicode.h"

namespace nwtest {
namespace {

constexpr HRESULT kNotConnected = static_cast<HRESULT>(0x80040208);
constexpr HRESULT kRfcError = static_cast<HRESULT>(0x8004021F);
constexpr HRESULT kInvalidTransactionId = static_cast<HRESULT>(0x80040220);

class Transactions : public SessionTest {
 protected:
  // A call of Z_VSIM_COUNT_RUNS under a key of this test.
  CComPtr<IFunctionCall> CountRuns(bool readOnly = false) {
    CComPtr<IFunctionCall> call;
    EXPECT_EQ(m_session->ImportCall(CComBSTR(u"Z_VSIM_COUNT_RUNS"), VARIANT_FALSE, &call), S_OK);
    SetValue(call, u"Importing", u"KEY", CComVariant(m_key.c_str()));
    if (readOnly) SetValue(call, u"Importing", u"READ_ONLY", CComVariant(u"X"));
    return call;
  }
  long Runs() {
    CComPtr<IFunctionCall> call = CountRuns(true);
    EXPECT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
    return ExportedNumber(call, u"RUNS");
  }
  CComBSTR NewTid() {
    CComBSTR tid;
    EXPECT_EQ(m_session->CreateTransID(&tid), S_OK) << ErrorDescription();
    return tid;
  }

  std::u16string m_key = Utf8ToWide("NWTRFC-" + std::to_string(++s_keys) + "-" + std::to_string(getpid()));
  static inline std::atomic<int> s_keys{0};
};

TEST_F(Transactions, AnIdHasTwentyFourCharacters) {
  const CComBSTR a = NewTid(), b = NewTid();
  EXPECT_EQ(a.Length(), 24u);
  EXPECT_NE(std::u16string(a.View()), std::u16string(b.View()));
}

TEST_F(Transactions, ACallSentTwiceUnderOneIdRunsOnce) {
  const CComBSTR tid = NewTid();
  ASSERT_EQ(m_session->CallTRFCFunction(tid, CountRuns()), S_OK) << ErrorDescription();
  EXPECT_FALSE(ErrorFlag(m_session));
  ASSERT_EQ(m_session->CallTRFCFunction(tid, CountRuns()), S_OK) << ErrorDescription();
  EXPECT_FALSE(ErrorFlag(m_session));
  ASSERT_EQ(m_session->ConfirmTransID(tid), S_OK) << ErrorDescription();
  EXPECT_EQ(Runs(), 1);
  // Confirmed: the session forgot the ID.
  EXPECT_EQ(m_session->ConfirmTransID(tid), kInvalidTransactionId);
  EXPECT_EQ(m_session->CallTRFCFunction(tid, CountRuns()), kInvalidTransactionId);
}

TEST_F(Transactions, AnIdOfAnotherSessionIsUnknownHere) {
  CComPtr<IRfcSession> other = ConnectedSession();
  CComBSTR tid;
  ASSERT_EQ(other->CreateTransID(&tid), S_OK);
  ASSERT_EQ(other->CallTRFCFunction(tid, CountRuns()), S_OK);
  EXPECT_EQ(m_session->ConfirmTransID(tid), kInvalidTransactionId) << "though the system knows it";
  EXPECT_EQ(ErrorDescription(), "Unknown or invalid transaction ID");
  EXPECT_EQ(m_session->CallTRFCFunction(tid, CountRuns()), kInvalidTransactionId);
  EXPECT_EQ(other->ConfirmTransID(tid), S_OK);
}

TEST_F(Transactions, ConfirmingAnIdNeverSentFailsAndKeepsIt) {
  const CComBSTR tid = NewTid();
  EXPECT_EQ(m_session->ConfirmTransID(tid), kRfcError);
  EXPECT_TRUE(ErrorFlag(m_session));
  ASSERT_EQ(m_session->CallTRFCFunction(tid, CountRuns()), S_OK) << "the ID is still known";
  EXPECT_EQ(m_session->ConfirmTransID(tid), S_OK);
  EXPECT_EQ(Runs(), 1);
}

TEST_F(Transactions, AFailingUnitIsTheSystemsAnswerAndRunsAgain) {
  const CComBSTR tid = NewTid();
  CComPtr<IFunctionCall> raise;
  ASSERT_EQ(m_session->ImportCall(CComBSTR(u"Z_VSIM_RAISE"), VARIANT_FALSE, &raise), S_OK);
  SetValue(raise, u"Importing", u"EXCEPTION", CComVariant(u"FAILED"));
  EXPECT_EQ(m_session->CallTRFCFunction(tid, raise), kRfcError);
  EXPECT_TRUE(ErrorFlag(m_session));
  EXPECT_EQ(ErrorOf(m_session).key, "FAILED");
  // A unit that failed is not recorded: a retry under the same ID runs.
  ASSERT_EQ(m_session->CallTRFCFunction(tid, CountRuns()), S_OK) << ErrorDescription();
  EXPECT_EQ(m_session->ConfirmTransID(tid), S_OK);
  EXPECT_EQ(Runs(), 1);
}

TEST_F(Transactions, AnUnknownModuleIs543) {
  const CComBSTR tid = NewTid();
  CComPtr<IFunctionCall> call;
  m_session->CreateCall(&call);
  call->put_Function(CComBSTR(u"Z_NO_SUCH_MODULE"));
  EXPECT_EQ(m_session->CallTRFCFunction(tid, call), kRfcError);
  EXPECT_EQ(ErrorOf(m_session).key, "FU_NOT_FOUND");
}

TEST_F(Transactions, NothingWithoutAConnection) {
  CComPtr<IRfcSession> fresh = NewSession();
  CComBSTR tid;
  EXPECT_EQ(fresh->CreateTransID(&tid), kNotConnected);
  EXPECT_EQ(fresh->ConfirmTransID(CComBSTR(u"0123456789ABCDEF01234567")), kNotConnected);
  EXPECT_EQ(fresh->CallTRFCFunction(CComBSTR(u"0123456789ABCDEF01234567"), CountRuns()), kNotConnected);
}

// A session that goes with IDs not confirmed frees their transactions.
TEST_F(Transactions, ASessionLetGoWithOpenTransactions) {
  const CComBSTR tid = NewTid();
  ASSERT_EQ(m_session->CallTRFCFunction(tid, CountRuns()), S_OK);
  m_session.Release();
  m_session = ConnectedSession();
  EXPECT_EQ(Runs(), 1);
}

}  // namespace
}  // namespace nwtest
