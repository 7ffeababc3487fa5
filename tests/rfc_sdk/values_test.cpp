// Values in every ABAP type through Z_VSIM_TYPES, the ownership of strings and XSTRINGs, and the
// BCD converters.
#include <cstring>

#include "rfc_fixture.h"

using namespace rfctest;

namespace {

using Values = Connected;

TEST_F(Values, EveryScalarTypeTravelsBothWays) {
  std::u16string ch = u"Hello     ", numc = u"00001234", date = u"20240229", time = u"235959";
  RFC_BYTE raw[4] = {0xDE, 0xAD, 0xBE, 0xEF};
  RFC_BCD packed[8];
  int decimals = -1;
  std::u16string amount = u"-12345.67";
  ASSERT_EQ(RfcConvertCharToBcdU(amount.data(), static_cast<int>(amount.size()), &decimals, packed, 8), 0);
  EXPECT_EQ(decimals, 2);
  RFC_FLOAT f = 2.5;
  RFC_INT i = -123456;
  RFC_INT1 i1 = 200;
  RFC_INT2 i2 = -32000;
  Parameters in;
  in.add("IV_CHAR", RFCTYPE_CHAR, ch.data(), 20).add("IV_NUMC", RFCTYPE_NUM, numc.data(), 16);
  in.add("IV_DATE", RFCTYPE_DATE, date.data(), 16).add("IV_TIME", RFCTYPE_TIME, time.data(), 12);
  in.add("IV_RAW", RFCTYPE_BYTE, raw, 4).add("IV_PACKED", RFCTYPE_BCD, packed, 8);
  in.add("IV_FLOAT", RFCTYPE_FLOAT, &f, 8).add("IV_INT", RFCTYPE_INT, &i, 4);
  in.add("IV_INT1", RFCTYPE_INT1, &i1, 1).add("IV_INT2", RFCTYPE_INT2, &i2, 2);

  std::u16string och(10, u'#'), onumc(8, u'#'), odate(8, u'#'), otime(6, u'#');
  RFC_BYTE oraw[4] = {};
  RFC_BCD opacked[8] = {};
  RFC_FLOAT of = 0;
  RFC_INT oi = 0;
  RFC_INT1 oi1 = 0;
  RFC_INT2 oi2 = 0;
  Parameters out;
  out.add("EV_CHAR", RFCTYPE_CHAR, och.data(), 20).add("EV_NUMC", RFCTYPE_NUM, onumc.data(), 16);
  out.add("EV_DATE", RFCTYPE_DATE, odate.data(), 16).add("EV_TIME", RFCTYPE_TIME, otime.data(), 12);
  out.add("EV_RAW", RFCTYPE_BYTE, oraw, 4).add("EV_PACKED", RFCTYPE_BCD, opacked, 8);
  out.add("EV_FLOAT", RFCTYPE_FLOAT, &of, 8).add("EV_INT", RFCTYPE_INT, &oi, 4);
  out.add("EV_INT1", RFCTYPE_INT1, &oi1, 1).add("EV_INT2", RFCTYPE_INT2, &oi2, 2);
  std::u16string fn = u"Z_VSIM_TYPES";
  ASSERT_EQ(RfcCallReceiveExU(h, fn.data(), in.data(), out.data(), nullptr, nullptr, nullptr), RFC_OK) << lastError();
  EXPECT_EQ(text(och), "Hello     ");
  EXPECT_EQ(text(onumc), "00001234");
  EXPECT_EQ(text(odate), "20240229");
  EXPECT_EQ(text(otime), "235959");
  EXPECT_EQ(std::memcmp(oraw, raw, 4), 0);
  EXPECT_EQ(std::memcmp(opacked, packed, 8), 0);
  EXPECT_EQ(of, 2.5);
  EXPECT_EQ(oi, -123456);
  EXPECT_EQ(oi1, 200);
  EXPECT_EQ(oi2, -32000);
}

TEST_F(Values, ChangingValuesGoOutAndComeBackChanged) {
  std::u16string ch = u"abc       ";
  RFC_INT i = 41;
  Parameters changing;
  changing.add("CV_CHAR", RFCTYPE_CHAR, ch.data(), 20).add("CV_INT", RFCTYPE_INT, &i, 4);
  std::u16string fn = u"Z_VSIM_TYPES";
  ASSERT_EQ(RfcCallReceiveExU(h, fn.data(), nullptr, nullptr, changing.data(), nullptr, nullptr), RFC_OK)
      << lastError();
  EXPECT_EQ(text(ch), "ABC       ");
  EXPECT_NE(i, 41);
}

TEST_F(Values, StringsAreAllocatedByTheLibraryAndFreedByTheCaller) {
  // Sending: leng is not read; the library measures the UTF-8 text.
  RFC_STRING sent = RfcAllocStringU(32);
  ASSERT_NE(sent, nullptr);
  EXPECT_EQ(sent[32], 0) << "n+1 zeroed bytes";
  std::strcpy(reinterpret_cast<char*>(sent), "gr\xC3\xBC\xC3\x9F dich");
  RFC_XSTRING bytes{0, nullptr};
  ASSERT_EQ(RfcResizeXStringU(&bytes, 3), RFC_OK);
  EXPECT_EQ(bytes.length, 3);
  bytes.content[0] = 1, bytes.content[1] = 0, bytes.content[2] = 255;
  Parameters in;
  in.add("IV_STRING", RFCTYPE_STRING, &sent, 12345).add("IV_XSTRING", RFCTYPE_XSTRING, &bytes, 0);
  // Receiving: leng 0, the library allocates.
  RFC_STRING got = nullptr;
  RFC_XSTRING gotBytes{0, nullptr};
  Parameters out;
  out.add("EV_STRING", RFCTYPE_STRING, &got, 0).add("EV_XSTRING", RFCTYPE_XSTRING, &gotBytes, 0);
  std::u16string fn = u"Z_VSIM_TYPES";
  ASSERT_EQ(RfcCallReceiveExU(h, fn.data(), in.data(), out.data(), nullptr, nullptr, nullptr), RFC_OK) << lastError();
  ASSERT_NE(got, nullptr);
  EXPECT_STREQ(reinterpret_cast<char*>(got), "gr\xC3\xBC\xC3\x9F dich");
  EXPECT_NE(got, sent);
  ASSERT_EQ(gotBytes.length, 3);
  EXPECT_EQ(gotBytes.content[2], 255);
  RfcFreeStringU(got);
  RfcFreeStringU(sent);
  RfcFreeStringU(nullptr);
  EXPECT_EQ(RfcResizeXStringU(&gotBytes, 0), RFC_OK);
  EXPECT_EQ(gotBytes.content, nullptr);
  EXPECT_EQ(RfcResizeXStringU(&bytes, 0), RFC_OK);
  EXPECT_EQ(RfcResizeXStringU(&bytes, -1), RFC_INVALID_PARAMETER);
}

TEST_F(Values, AValueThatDoesNotConvertFailsTheCall) {
  std::u16string notANumber = u"12x4";
  Parameters in;
  in.add("IV_NUMC", RFCTYPE_CHAR, notANumber.data(), 8);
  std::u16string fn = u"Z_VSIM_TYPES";
  EXPECT_NE(RfcCallReceiveExU(h, fn.data(), in.data(), nullptr, nullptr, nullptr, nullptr), RFC_OK);
}

TEST_F(Values, AnUnknownTypeHandleIsRefusedBeforeSending) {
  RFC_INT i = 0;
  Parameters in;
  in.add("IV_INT", 4711, &i, 4);
  std::u16string fn = u"Z_VSIM_TYPES";
  EXPECT_EQ(RfcCallExU(h, fn.data(), in.data(), nullptr, nullptr), RFC_FAILURE);
  EXPECT_NE(lastError().find("4711"), std::string::npos);
  EXPECT_EQ(callChars(h, "STFC_CONNECTION", {{"REQUTEXT", "x"}}, {{"ECHOTEXT", 0}}).rc, RFC_OK) << "nothing was sent";
}

struct BcdCase {
  std::string in;
  int decimalsIn;
  int bytes;
  int rc;
  int decimalsOut;
  std::string back;  // RfcConvertBcdToChar of the result into 12 characters
};

class Bcd : public ::testing::TestWithParam<BcdCase> {};

TEST_P(Bcd, ConvertsBothWays) {
  const BcdCase& c = GetParam();
  std::u16string in = u(c.in);
  RFC_BCD packed[16] = {};
  int decimals = c.decimalsIn;
  EXPECT_EQ(RfcConvertCharToBcdU(in.data(), static_cast<int>(in.size()), &decimals, packed, c.bytes), c.rc);
  if (c.rc != 0) return;
  EXPECT_EQ(decimals, c.decimalsOut);
  RFC_CHAR out[12];
  ASSERT_EQ(RfcConvertBcdToCharU(packed, c.bytes, decimals, out, 12), 0);
  EXPECT_EQ(text(std::u16string_view(out, 12)), c.back);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Bcd,
    ::testing::Values(BcdCase{"12.50", -1, 4, 0, 2, "      12.50 "}, BcdCase{"-12.50", -1, 4, 0, 2, "      12.50-"},
                      BcdCase{"  7- ", -1, 2, 0, 0, "          7-"}, BcdCase{"1.005", 2, 3, 0, 2, "       1.01 "},
                      BcdCase{"3", 2, 3, 0, 2, "       3.00 "}, BcdCase{"0", -1, 1, 0, 0, "          0 "},
                      BcdCase{"123", 0, 1, 2, 0, ""}, BcdCase{"12a", -1, 4, 3, 0, ""},
                      BcdCase{"1.2.3", -1, 4, 3, 0, ""}, BcdCase{"", -1, 4, 4, 0, ""}, BcdCase{"1", -1, 17, 4, 0, ""}));

TEST(BcdToChar, RefusesBadNibblesAndShortOutput) {
  RFC_BCD bad[2] = {0x1A, 0x2C};
  RFC_CHAR out[10];
  EXPECT_EQ(RfcConvertBcdToCharU(bad, 2, 0, out, 10), 3);
  RFC_BCD noSign[2] = {0x12, 0x34};
  EXPECT_EQ(RfcConvertBcdToCharU(noSign, 2, 0, out, 10), 3);
  RFC_BCD big[2] = {0x12, 0x3D};
  EXPECT_EQ(RfcConvertBcdToCharU(big, 2, 0, out, 3), 2);
  EXPECT_EQ(RfcConvertBcdToCharU(big, 0, 0, out, 10), 4);
}

}  // namespace
