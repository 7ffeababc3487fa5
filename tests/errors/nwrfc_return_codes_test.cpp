// The NW RFC SDK's return codes of errors/errors.table, in their own header.
#include <gtest/gtest.h>

#include "nwrfc_return_codes.h"

namespace {

TEST(NwRfcReturnCodes, EveryCodeOfTheDeclarationHasItsNameAndText) {
  EXPECT_EQ(NwRfcReturnCodes().size(), static_cast<size_t>(_RFC_RC_max_value));
  for (int code = RFC_OK; code < _RFC_RC_max_value; ++code) {
    const RFC_RC rc = static_cast<RFC_RC>(code);
    EXPECT_NE(NwRfcReturnCodeName(rc), nullptr) << code;
    EXPECT_NE(NwRfcReturnCodeText(rc), nullptr) << code;
  }
  EXPECT_EQ(NwRfcReturnCodeName(_RFC_RC_max_value), nullptr);
}

TEST(NwRfcReturnCodes, NamesByNumber) {
  EXPECT_STREQ(NwRfcReturnCodeName(RFC_ABAP_EXCEPTION), "RFC_ABAP_EXCEPTION");
  EXPECT_STREQ(NwRfcReturnCodeName(static_cast<RFC_RC>(23)), "RFC_BUFFER_TOO_SMALL");
  EXPECT_STREQ(NwRfcReturnCodeText(RFC_LOGON_FAILURE), "the system refused the logon");
}

}  // namespace
