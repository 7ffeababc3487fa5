// The typed conversion functions (Var*From*, BstrFromVector, VectorFromBstr).
#include "conversion_table.h"

#include <cstring>
#include <limits>

namespace {

std::string TextOf(BSTR b) {
  std::string s = Printable(b);
  SysFreeString(b);
  return s;
}

TEST(TypedFunctions, FromText) {
  LONG l = 0;
  EXPECT_EQ(VarI4FromStr(u"2.5", 0x0409, 0, &l), S_OK);
  EXPECT_EQ(l, 2);
  EXPECT_EQ(VarI4FromStr(u"1,5", 0x0407, 0, &l), S_OK);
  EXPECT_EQ(l, 2);
  l = 77;
  EXPECT_EQ(VarI4FromStr(u"x", 0x0409, 0, &l), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(l, 77);  // untouched on failure
  EXPECT_EQ(VarI4FromStr(u"3000000000", 0x0409, 0, &l), DISP_E_OVERFLOW);
  EXPECT_EQ(VarI4FromStr(nullptr, 0x0409, 0, &l), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(VarI4FromStr(u"1", 0x0409, 0, nullptr), E_INVALIDARG);

  LONGLONG ll = 0;
  EXPECT_EQ(VarI8FromStr(u"-9223372036854775808", 0x0409, 0, &ll), S_OK);
  EXPECT_EQ(ll, std::numeric_limits<int64_t>::min());

  double d = 0;
  EXPECT_EQ(VarR8FromStr(u"1.5E-05", 0x0409, 0, &d), S_OK);
  EXPECT_EQ(d, 1.5e-5);

  CY cy = {};
  EXPECT_EQ(VarCyFromStr(u"$1.23456", 0x0409, 0, &cy), S_OK);
  EXPECT_EQ(cy.int64, 12346);

  DECIMAL dec = {};
  EXPECT_EQ(VarDecFromStr(u"-12.50", 0x0409, 0, &dec), S_OK);
  EXPECT_EQ(dec.scale, 1);
  EXPECT_EQ(dec.sign, DECIMAL_NEG);
  EXPECT_EQ(dec.Lo64, 125u);

  VARIANT_BOOL b = VARIANT_FALSE;
  EXPECT_EQ(VarBoolFromStr(u"Wahr", 0x0407, VAR_LOCALBOOL, &b), S_OK);
  EXPECT_EQ(b, VARIANT_TRUE);
  EXPECT_EQ(VarBoolFromStr(u"Wahr", 0x0407, 0, &b), DISP_E_TYPEMISMATCH);
}

TEST(TypedFunctions, DateFromText) {
  DATE date = -1;
  EXPECT_EQ(VarDateFromStr(u"1/2/2003 6:00 AM", 0x0409, 0, &date), S_OK);
  EXPECT_EQ(date, 37623.25);
  EXPECT_EQ(VarDateFromStr(u"1/2/2003 6:00 AM", 0x0409, VAR_DATEVALUEONLY, &date), S_OK);
  EXPECT_EQ(date, 37623.0);
  EXPECT_EQ(VarDateFromStr(u"1/2/2003 6:00 AM", 0x0409, VAR_TIMEVALUEONLY, &date), S_OK);
  EXPECT_EQ(date, 0.25);
  EXPECT_EQ(VarDateFromStr(u"1/2/2003", 0x0409, VAR_TIMEVALUEONLY | VAR_DATEVALUEONLY, &date), E_INVALIDARG);
  EXPECT_EQ(VarDateFromStr(u"02.01.2003", 0x0407, 0, &date), S_OK);
  EXPECT_EQ(date, 37623.0);
  EXPECT_EQ(VarDateFromStr(u"02.01.2003", 0x040C, 0, &date), DISP_E_UNKNOWNLCID);
}

TEST(TypedFunctions, ToText) {
  BSTR out = nullptr;
  ASSERT_EQ(VarBstrFromI4(-5, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"-5\"");
  ASSERT_EQ(VarBstrFromI8(std::numeric_limits<int64_t>::min(), 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"-9223372036854775808\"");
  ASSERT_EQ(VarBstrFromR8(0.1, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"0.1\"");
  ASSERT_EQ(VarBstrFromR8(1e20, 0x0407, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1E+20\"");
  CY cy;
  cy.int64 = 15000;
  ASSERT_EQ(VarBstrFromCy(cy, 0x0407, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1,5\"");
  DECIMAL dec = MakeDecimal(3, 0, 0, 1500);
  ASSERT_EQ(VarBstrFromDec(&dec, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1.5\"");
  EXPECT_EQ(VarBstrFromDec(nullptr, 0x0409, 0, &out), E_INVALIDARG);
  EXPECT_EQ(VarBstrFromR8(1.0, 0x0409, 0, nullptr), E_INVALIDARG);
}

TEST(TypedFunctions, BoolToTextIsAlwaysWords) {
  BSTR out = nullptr;
  ASSERT_EQ(VarBstrFromBool(VARIANT_TRUE, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"True\"");
  ASSERT_EQ(VarBstrFromBool(VARIANT_FALSE, 0x0407, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"False\"");
  ASSERT_EQ(VarBstrFromBool(VARIANT_FALSE, 0x0407, VAR_LOCALBOOL, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"Falsch\"");
}

TEST(TypedFunctions, DateToText) {
  BSTR out = nullptr;
  ASSERT_EQ(VarBstrFromDate(37623.25, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1/2/2003 6:00:00 AM\"");
  ASSERT_EQ(VarBstrFromDate(37623.25, 0x0409, VAR_DATEVALUEONLY, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1/2/2003\"");
  ASSERT_EQ(VarBstrFromDate(37623.25, 0x0409, VAR_TIMEVALUEONLY, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"6:00:00 AM\"");
  ASSERT_EQ(VarBstrFromDate(0.0, 0x0409, LOCALE_USE_NLS, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"12/30/1899 12:00:00 AM\"");
  EXPECT_EQ(VarBstrFromDate(1e7, 0x0409, 0, &out), E_INVALIDARG);
}

TEST(TypedFunctions, NumericPairs) {
  DECIMAL dec = MakeDecimal(28, 0, 0, 1);
  double d = 0;
  ASSERT_EQ(VarR8FromDec(&dec, &d), S_OK);
  EXPECT_EQ(d, 1e-28);
  EXPECT_EQ(VarR8FromDec(nullptr, &d), E_INVALIDARG);
  ASSERT_EQ(VarDecFromR8(0.1, &dec), S_OK);
  EXPECT_EQ(dec.scale, 1);
  EXPECT_EQ(dec.Lo64, 1u);
  EXPECT_EQ(VarDecFromR8(1e30, &dec), DISP_E_OVERFLOW);
  CY cy = {};
  ASSERT_EQ(VarCyFromR8(-2.5, &cy), S_OK);
  EXPECT_EQ(cy.int64, -25000);
  EXPECT_EQ(VarCyFromR8(1e16, &cy), DISP_E_OVERFLOW);
  cy.int64 = 1;
  ASSERT_EQ(VarR8FromCy(cy, &d), S_OK);
  EXPECT_EQ(d, 0.0001);
}

TEST(TypedFunctions, Vectors) {
  BSTR text = SysAllocString(u"hi");
  SAFEARRAY* psa = nullptr;
  ASSERT_EQ(VectorFromBstr(text, &psa), S_OK);
  ASSERT_NE(psa, nullptr);
  EXPECT_EQ(psa->rgsabound[0].cElements, 4u);
  EXPECT_EQ(psa->rgsabound[0].lLbound, 0);
  BSTR back = nullptr;
  ASSERT_EQ(BstrFromVector(psa, &back), S_OK);
  EXPECT_EQ(SysStringByteLen(back), 4u);
  EXPECT_EQ(std::memcmp(back, text, 4), 0);
  SysFreeString(back);
  SafeArrayDestroy(psa);
  SysFreeString(text);

  SAFEARRAY* longs = SafeArrayCreateVector(VT_I4, 0, 2);
  EXPECT_EQ(BstrFromVector(longs, &back), E_INVALIDARG);
  EXPECT_EQ(back, nullptr);
  SafeArrayDestroy(longs);
  EXPECT_EQ(BstrFromVector(nullptr, &back), E_INVALIDARG);
  EXPECT_EQ(VectorFromBstr(nullptr, nullptr), E_INVALIDARG);
}

}  // namespace
