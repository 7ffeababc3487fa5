// Transactional RFC: a transaction ID runs its calls at most once however often it is sent, and
// is forgotten only on confirm.
#include <unistd.h>

#include "sdk_fixture.h"

using namespace sdktest;

namespace {

class Transactional : public Connected {
 protected:
  std::u16string newTid() {
    RFC_TID tid;
    EXPECT_EQ(RfcGetTransactionID(c, tid, &info), RFC_OK);
    return std::u16string(tid);
  }
  int runs(const std::string& key) {
    Call read(c, "Z_VSIM_COUNT_RUNS");
    read.setString("KEY", key);
    read.setString("READ_ONLY", "X");
    EXPECT_EQ(read.invoke(&info), RFC_OK);
    return read.getInt("RUNS");
  }
  std::string key(const std::string& name) { return name + "-" + std::to_string(::getpid()); }
};

TEST_F(Transactional, TransactionIdsFromTheSystemAndLocal) {
  const std::u16string a = newTid(), b = newTid();
  EXPECT_EQ(a.size(), 24u);
  EXPECT_NE(a, b);
  RFC_TID local;
  ASSERT_EQ(RfcGetTransactionID(nullptr, local, &info), RFC_OK);
  EXPECT_EQ(std::u16string(local).size(), 24u);
}

TEST_F(Transactional, RunsExactlyOnceHoweverOftenSentUntilConfirmed) {
  const std::string k = key("once");
  std::u16string tid = newTid();
  RFC_TRANSACTION_HANDLE t = RfcCreateTransaction(c, tid.data(), nullptr, &info);
  ASSERT_NE(t, nullptr);
  Call count(c, "Z_VSIM_COUNT_RUNS");
  count.setString("KEY", k);
  ASSERT_EQ(RfcInvokeInTransaction(t, count.handle(), &info), RFC_OK);
  ASSERT_EQ(RfcInvokeInTransaction(t, count.handle(), &info), RFC_OK);  // two calls in one unit
  for (int i = 0; i < 3; ++i) ASSERT_EQ(RfcSubmitTransaction(t, &info), RFC_OK) << describe(info.code, info);
  EXPECT_EQ(runs(k), 2) << "the unit of two calls ran once";

  // A second connection that sends the same ID (a retry after a lost answer) changes nothing.
  RFC_CONNECTION_HANDLE other = open();
  RFC_TRANSACTION_HANDLE again = RfcCreateTransaction(other, tid.data(), nullptr, &info);
  Call count2(other, "Z_VSIM_COUNT_RUNS");
  count2.setString("KEY", k);
  ASSERT_EQ(RfcInvokeInTransaction(again, count2.handle(), &info), RFC_OK);
  ASSERT_EQ(RfcSubmitTransaction(again, &info), RFC_OK);
  EXPECT_EQ(runs(k), 2);
  RfcDestroyTransaction(again, nullptr);
  RfcCloseConnection(other, nullptr);

  ASSERT_EQ(RfcConfirmTransaction(t, &info), RFC_OK);
  EXPECT_EQ(RfcSubmitTransaction(t, &info), RFC_ILLEGAL_STATE) << "never resubmit after confirm";
  ASSERT_EQ(RfcDestroyTransaction(t, &info), RFC_OK);

  // Confirmed, the ID is forgotten: the same ID is a new transaction.
  RFC_TRANSACTION_HANDLE fresh = RfcCreateTransaction(c, tid.data(), nullptr, &info);
  ASSERT_EQ(RfcInvokeInTransaction(fresh, count.handle(), &info), RFC_OK);
  ASSERT_EQ(RfcSubmitTransaction(fresh, &info), RFC_OK);
  EXPECT_EQ(runs(k), 3);
  RfcConfirmTransaction(fresh, nullptr);
  RfcDestroyTransaction(fresh, nullptr);
}

TEST_F(Transactional, AFailedUnitIsNotRecordedAndMayBeSentAgain) {
  const std::string k = key("failed");
  std::u16string tid = newTid();
  RFC_TRANSACTION_HANDLE t = RfcCreateTransaction(c, tid.data(), nullptr, &info);
  Call count(c, "Z_VSIM_COUNT_RUNS");
  count.setString("KEY", k);
  Call raise(c, "Z_VSIM_RAISE");
  raise.setString("EXCEPTION", "FAILED");
  ASSERT_EQ(RfcInvokeInTransaction(t, count.handle(), &info), RFC_OK);
  ASSERT_EQ(RfcInvokeInTransaction(t, raise.handle(), &info), RFC_OK);
  EXPECT_EQ(RfcSubmitTransaction(t, &info), RFC_ABAP_EXCEPTION);
  EXPECT_EQ(utf8(info.key), "FAILED");
  EXPECT_EQ(RfcConfirmTransaction(t, &info), RFC_ILLEGAL_STATE) << "only a submitted transaction is confirmed";
  RfcDestroyTransaction(t, nullptr);
  EXPECT_EQ(RfcPing(c, &info), RFC_OK);
}

TEST_F(Transactional, BadInput) {
  RFC_TID empty = {0};
  EXPECT_EQ(RfcCreateTransaction(c, empty, nullptr, &info), nullptr);
  EXPECT_EQ(info.code, RFC_INVALID_PARAMETER);
  std::u16string tid = newTid();
  RFC_TRANSACTION_HANDLE t = RfcCreateTransaction(c, tid.data(), nullptr, &info);
  EXPECT_EQ(RfcSubmitTransaction(t, &info), RFC_ILLEGAL_STATE) << "nothing to send";
  EXPECT_EQ(RfcDestroyTransaction(t, &info), RFC_OK);
  EXPECT_EQ(RfcSubmitTransaction(t, &info), RFC_INVALID_HANDLE);
}

}  // namespace
