// Transactional RFC from a client: a new ID, indirect calls under it that run exactly once, a
// retry with the same ID after a failure, and the confirmation.
#include <unistd.h>

#include "rfc_fixture.h"

using namespace rfctest;

namespace {

using Trfc = Connected;

int runs(RFC_HANDLE h, const std::string& key) {
  std::u16string k = u(key), readOnly = u"X";
  k.resize(40, u' ');
  RFC_INT n = -1;
  Parameters in, out;
  in.add("KEY", RFCTYPE_CHAR, k.data(), 80).add("READ_ONLY", RFCTYPE_CHAR, readOnly.data(), 2);
  out.add("RUNS", RFCTYPE_INT, &n, 4);
  std::u16string fn = u"Z_VSIM_COUNT_RUNS";
  EXPECT_EQ(RfcCallReceiveExU(h, fn.data(), in.data(), out.data(), nullptr, nullptr, nullptr), RFC_OK) << lastError();
  return n;
}

TEST_F(Trfc, AnIdRunsItsCallOnceUntilConfirmed) {
  RFC_TID tid{};
  ASSERT_EQ(RfcCreateTransIDU(h, tid), RFC_OK) << lastError();
  const std::string id = text(tid);
  EXPECT_EQ(id.size(), 24u);
  EXPECT_EQ(id.find_first_not_of("0123456789ABCDEF"), std::string::npos) << id;

  const std::string key = "classic-" + std::to_string(::getpid());
  std::u16string k = u(key);
  k.resize(40, u' ');
  Parameters in;
  in.add("KEY", RFCTYPE_CHAR, k.data(), 80);
  std::u16string fn = u"Z_VSIM_COUNT_RUNS";
  EXPECT_EQ(RfcIndirectCallExU(h, fn.data(), in.data(), nullptr, tid), RFC_OK) << lastError();
  EXPECT_EQ(RfcIndirectCallExU(h, fn.data(), in.data(), nullptr, tid), RFC_OK) << "sent again: not run again";
  EXPECT_EQ(runs(h, key), 1);
  EXPECT_EQ(RfcConfirmTransIDU(h, tid), RFC_OK) << lastError();

  RFC_TID other{};
  ASSERT_EQ(RfcCreateTransIDU(h, other), RFC_OK);
  EXPECT_NE(text(other), id);
}

TEST_F(Trfc, AFailedUnitMayBeSentAgainWithTheSameId) {
  RFC_TID tid{};
  ASSERT_EQ(RfcCreateTransIDU(h, tid), RFC_OK);
  std::u16string exception = u"NOT_FOUND";
  exception.resize(30, u' ');
  Parameters in;
  in.add("EXCEPTION", RFCTYPE_CHAR, exception.data(), 60);
  std::u16string fn = u"Z_VSIM_RAISE";
  EXPECT_EQ(RfcIndirectCallExU(h, fn.data(), in.data(), nullptr, tid), RFC_EXCEPTION);
  RFC_ERROR_INFO_EX info{};
  ASSERT_EQ(RfcLastErrorExU(&info), 0);
  EXPECT_EQ(info.group, RFC_ERROR_APPLICATION_EXCEPTION);
  EXPECT_EQ(text(info.key), "NOT_FOUND");
  // The same ID again, now with a unit that succeeds.
  std::u16string ping = u"RFC_PING";
  EXPECT_EQ(RfcIndirectCallExU(h, ping.data(), nullptr, nullptr, tid), RFC_OK) << lastError();
  EXPECT_EQ(RfcConfirmTransIDU(h, tid), RFC_OK);
}

TEST_F(Trfc, AnEmptyIdIsRefused) {
  RFC_TID tid{};
  std::u16string ping = u"RFC_PING";
  EXPECT_EQ(RfcIndirectCallExU(h, ping.data(), nullptr, nullptr, tid), RFC_INVALID_PARAMETER);
  EXPECT_EQ(RfcConfirmTransIDU(h, tid), RFC_INVALID_PARAMETER);
  EXPECT_EQ(RfcCreateTransIDU(h, nullptr), RFC_INVALID_PARAMETER);
  EXPECT_EQ(RfcCreateTransIDU(0, tid), RFC_INVALID_HANDLE);
}

}  // namespace
