// What NWRfcSession asks of the SDK when it ends things, counted by the
// watched libsapnwrfc.so: connections opened and closed, function containers
// and transactions destroyed, and a destruction the SDK refuses.
#include "nwrfc_fixture.h"
#include "watched_sdk.h"

namespace nwtest {
namespace {

using watched::Calls;

constexpr HRESULT kRfcError = static_cast<HRESULT>(0x8004021F);
constexpr HRESULT kInvalidDateTime = static_cast<HRESULT>(0x80040215);

class Lifecycle : public SessionTest {
 protected:
  // Z_VSIM_COUNTER's calls in the ABAP session of the connection.
  long CallsInTheAbapSession() {
    CComPtr<IFunctionCall> counter = Import(u"Z_VSIM_COUNTER");
    EXPECT_EQ(m_session->CallFunction(counter, VARIANT_TRUE), S_OK);
    return ExportedNumber(counter, u"CALLS");
  }
  CComBSTR SentTid() {
    CComBSTR tid;
    EXPECT_EQ(m_session->CreateTransID(&tid), S_OK) << ErrorDescription();
    EXPECT_EQ(m_session->CallTRFCFunction(tid, Import(u"RFC_PING")), S_OK) << ErrorDescription();
    return tid;
  }
};

// ------------------------------------------------------------ connections

TEST_F(Lifecycle, ConnectWhileConnectedOpensAnotherConnectionAndLeavesTheFirstOpen) {
  EXPECT_EQ(CallsInTheAbapSession(), 1);
  EXPECT_EQ(CallsInTheAbapSession(), 2);
  const int opened = Calls("RfcOpenConnection"), closed = Calls("RfcCloseConnection");
  ASSERT_EQ(m_session->Connect(), S_OK) << ErrorDescription();
  EXPECT_TRUE(Connected(m_session));
  EXPECT_EQ(Calls("RfcOpenConnection"), opened + 1);
  EXPECT_EQ(Calls("RfcCloseConnection"), closed) << "the first connection is not closed";
  EXPECT_EQ(CallsInTheAbapSession(), 1) << "calls go to the new connection, a new ABAP session";
  ASSERT_EQ(m_session->Disconnect(), S_OK);
  EXPECT_EQ(Calls("RfcCloseConnection"), closed + 1);
  EXPECT_FALSE(Connected(m_session));
  m_session.Release();
  EXPECT_EQ(Calls("RfcCloseConnection"), closed + 1) << "the first handle is lost, never closed";
}

// The last Release closes the connection; transactions that were never
// confirmed are left to the SDK, their handles not destroyed.
TEST_F(Lifecycle, TheLastReleaseClosesTheConnectionAndDestroysNoTransaction) {
  const int destroyedBefore = Calls("RfcDestroyTransaction");
  ASSERT_EQ(m_session->ConfirmTransID(SentTid()), S_OK) << ErrorDescription();
  EXPECT_EQ(Calls("RfcDestroyTransaction"), destroyedBefore + 1) << "a confirmed transaction is destroyed";
  SentTid();  // a handle in the map
  CComBSTR unsent;
  ASSERT_EQ(m_session->CreateTransID(&unsent), S_OK);  // an ID without one
  const int closed = Calls("RfcCloseConnection"), destroyed = Calls("RfcDestroyTransaction");
  m_session.Release();
  EXPECT_EQ(Calls("RfcCloseConnection"), closed + 1);
  EXPECT_EQ(Calls("RfcDestroyTransaction"), destroyed);
}

TEST_F(Lifecycle, TheLastReleaseOfADisconnectedSessionClosesNothing) {
  ASSERT_EQ(m_session->Disconnect(), S_OK);
  const int closed = Calls("RfcCloseConnection");
  m_session.Release();
  EXPECT_EQ(Calls("RfcCloseConnection"), closed);
}

// --------------------------------------------------- function containers

TEST_F(Lifecycle, ACallDestroysItsFunction) {
  const int destroyed = Calls("RfcDestroyFunction");
  ASSERT_EQ(m_session->CallFunction(Import(u"RFC_PING"), VARIANT_TRUE), S_OK);
  EXPECT_EQ(Calls("RfcDestroyFunction"), destroyed + 1);
}

TEST_F(Lifecycle, AFillThatFailsKeepsTheFunction) {
  CComPtr<IFunctionCall> tooBig = Import(u"Z_VSIM_TYPES");
  SetValue(tooBig, u"Importing", u"IV_INT1", CComVariant(300L));
  const int destroyed = Calls("RfcDestroyFunction");
  EXPECT_EQ(m_session->CallFunction(tooBig, VARIANT_TRUE), DISP_E_OVERFLOW);
  EXPECT_EQ(Calls("RfcDestroyFunction"), destroyed) << "outgoing values";

  EXPECT_EQ(m_session->CallFunction(CallReadingAnInvalidDate(m_session), VARIANT_TRUE), kInvalidDateTime);
  EXPECT_EQ(Calls("RfcDestroyFunction"), destroyed) << "incoming values";
}

TEST_F(Lifecycle, AFunctionTheSdkDoesNotDestroyFailsASynchronousCall) {
  watched::FailNext("RfcDestroyFunction");
  EXPECT_EQ(m_session->CallFunction(Import(u"RFC_PING"), VARIANT_TRUE), kRfcError);
  EXPECT_EQ(ErrorDescription(), "RFC Error (check ErrorInfo for details)");
  EXPECT_TRUE(ErrorFlag(m_session));
  const ErrorText e = ErrorOf(m_session);
  EXPECT_EQ(e.key, "RFC_ILLEGAL_STATE");
  EXPECT_EQ(e.message, "RfcDestroyFunction refused for the test");
  EXPECT_FALSE(Active());
  EXPECT_EQ(m_session->CallFunction(Import(u"RFC_PING"), VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorFlag(m_session));
}

// The asynchronous call ends without CallFinished, and CallActive stays true.
TEST_F(Lifecycle, AFunctionTheSdkDoesNotDestroyLeavesAnAsynchronousCallActive) {
  SessionSink* sink = SessionSink::AdviseTo(m_session);
  const int destroyed = Calls("RfcDestroyFunction");
  watched::FailNext("RfcDestroyFunction");
  ASSERT_EQ(m_session->CallFunction(Import(u"RFC_PING"), VARIANT_FALSE), S_OK);
  ASSERT_EQ(watched::WaitForCalls("RfcDestroyFunction", destroyed + 1), destroyed + 1);
  ExpectItEndsUnseen(sink);
}

}  // namespace
}  // namespace nwtest
