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

// The typed functions between signed and unsigned integers of one width
// convert by value and overflow, in both directions; VariantChangeTypeEx
// keeps the bits of the same values (integers_test.cpp).
// clang-format off
TEST(TypedFunctions, SignedAndUnsignedOfOneWidthConvertByValue) {
  CHAR c = 7; BYTE b = 7; SHORT s = 7; USHORT us = 7; LONG l = 7; ULONG ul = 7; LONGLONG ll = 7; ULONGLONG ull = 7;
  EXPECT_EQ(VarI1FromUI1(0, &c), S_OK); EXPECT_EQ(c, 0);
  EXPECT_EQ(VarI1FromUI1(127, &c), S_OK); EXPECT_EQ(c, 127);
  EXPECT_EQ(VarI1FromUI1(128, &c), DISP_E_OVERFLOW); EXPECT_EQ(c, 127);
  EXPECT_EQ(VarI1FromUI1(255, &c), DISP_E_OVERFLOW); EXPECT_EQ(c, 127);
  EXPECT_EQ(VarUI1FromI1(0, &b), S_OK); EXPECT_EQ(b, 0);
  EXPECT_EQ(VarUI1FromI1(127, &b), S_OK); EXPECT_EQ(b, 127);
  EXPECT_EQ(VarUI1FromI1(-1, &b), DISP_E_OVERFLOW); EXPECT_EQ(b, 127);
  EXPECT_EQ(VarUI1FromI1(-128, &b), DISP_E_OVERFLOW); EXPECT_EQ(b, 127);
  EXPECT_EQ(VarI2FromUI2(32767, &s), S_OK); EXPECT_EQ(s, 32767);
  EXPECT_EQ(VarI2FromUI2(32768, &s), DISP_E_OVERFLOW); EXPECT_EQ(s, 32767);
  EXPECT_EQ(VarI2FromUI2(65535, &s), DISP_E_OVERFLOW);
  EXPECT_EQ(VarUI2FromI2(32767, &us), S_OK); EXPECT_EQ(us, 32767);
  EXPECT_EQ(VarUI2FromI2(0, &us), S_OK); EXPECT_EQ(us, 0);
  EXPECT_EQ(VarUI2FromI2(-1, &us), DISP_E_OVERFLOW); EXPECT_EQ(us, 0);
  EXPECT_EQ(VarUI2FromI2(-32768, &us), DISP_E_OVERFLOW);
  EXPECT_EQ(VarI4FromUI4(2147483647u, &l), S_OK); EXPECT_EQ(l, 2147483647);
  EXPECT_EQ(VarI4FromUI4(2147483648u, &l), DISP_E_OVERFLOW); EXPECT_EQ(l, 2147483647);
  EXPECT_EQ(VarI4FromUI4(4294967295u, &l), DISP_E_OVERFLOW);
  EXPECT_EQ(VarUI4FromI4(2147483647, &ul), S_OK); EXPECT_EQ(ul, 2147483647u);
  EXPECT_EQ(VarUI4FromI4(-1, &ul), DISP_E_OVERFLOW); EXPECT_EQ(ul, 2147483647u);
  EXPECT_EQ(VarUI4FromI4(-2147483647 - 1, &ul), DISP_E_OVERFLOW);
  EXPECT_EQ(VarI8FromUI8(9223372036854775807ULL, &ll), S_OK); EXPECT_EQ(ll, 9223372036854775807LL);
  EXPECT_EQ(VarI8FromUI8(9223372036854775808ULL, &ll), DISP_E_OVERFLOW); EXPECT_EQ(ll, 9223372036854775807LL);
  EXPECT_EQ(VarI8FromUI8(18446744073709551615ULL, &ll), DISP_E_OVERFLOW);
  EXPECT_EQ(VarUI8FromI8(9223372036854775807LL, &ull), S_OK); EXPECT_EQ(ull, 9223372036854775807ULL);
  EXPECT_EQ(VarUI8FromI8(-1, &ull), DISP_E_OVERFLOW); EXPECT_EQ(ull, 9223372036854775807ULL);
  EXPECT_EQ(VarUI8FromI8(std::numeric_limits<int64_t>::min(), &ull), DISP_E_OVERFLOW);
  EXPECT_EQ(VarUI1FromI1(1, nullptr), E_INVALIDARG);
  EXPECT_EQ(VarI8FromUI8(1, nullptr), E_INVALIDARG);
}
// clang-format on

// The same values through VariantChangeTypeEx keep their bits where the
// typed function overflows; across widths and for VT_I8/VT_UI8 both agree.
TEST(TypedFunctions, ChangeTypeKeepsTheBitsWhereTheTypedFunctionOverflows) {
  auto change = [](Var&& in, VARTYPE vt, VARIANT* out) { return VariantChangeTypeEx(out, in.get(), 0x0409, 0, vt); };
  Var out;
  ASSERT_EQ(change(UI1(255), VT_I1, out.get()), S_OK);
  EXPECT_EQ(out->cVal, static_cast<CHAR>(-1));
  ASSERT_EQ(change(I1(-1), VT_UI1, out.get()), S_OK);
  EXPECT_EQ(out->bVal, 255);
  ASSERT_EQ(change(UI2(32768), VT_I2, out.get()), S_OK);
  EXPECT_EQ(out->iVal, -32768);
  ASSERT_EQ(change(I2(-1), VT_UI2, out.get()), S_OK);
  EXPECT_EQ(out->uiVal, 65535);
  ASSERT_EQ(change(UI4(2147483648u), VT_I4, out.get()), S_OK);
  EXPECT_EQ(out->lVal, -2147483647 - 1);
  ASSERT_EQ(change(I4(-1), VT_UI4, out.get()), S_OK);
  EXPECT_EQ(out->ulVal, 4294967295u);
  ASSERT_EQ(change(UINTV(4294967295u), VT_INT, out.get()), S_OK);
  EXPECT_EQ(out->intVal, -1);
  ASSERT_EQ(change(INTV(-2147483647 - 1), VT_UINT, out.get()), S_OK);
  EXPECT_EQ(out->uintVal, 2147483648u);
  Var untouched;
  EXPECT_EQ(change(I8(-1), VT_UI8, untouched.get()), DISP_E_OVERFLOW);
  EXPECT_EQ(change(UI8(9223372036854775808ULL), VT_I8, untouched.get()), DISP_E_OVERFLOW);
  EXPECT_EQ(change(I2(-1), VT_UI1, untouched.get()), DISP_E_OVERFLOW);
  EXPECT_EQ(change(UI2(256), VT_I1, untouched.get()), DISP_E_OVERFLOW);
  EXPECT_EQ(untouched->vt, VT_EMPTY);
}

// VarBstrFromR4 writes what VariantChangeTypeEx writes for a VT_R4.
TEST(TypedFunctions, FloatToText) {
  BSTR out = nullptr;
  ASSERT_EQ(VarBstrFromR4(0.1f, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"0.1\"");
  ASSERT_EQ(VarBstrFromR4(12345665.0f, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1.234567E+07\"");
  ASSERT_EQ(VarBstrFromR4(-12345675.0f, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"-1.234568E+07\"");
  ASSERT_EQ(VarBstrFromR4(9999999.0f, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"9999999\"");
  ASSERT_EQ(VarBstrFromR4(1e-7f, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"0.0000001\"");
  ASSERT_EQ(VarBstrFromR4(1e-8f, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1E-08\"");
  ASSERT_EQ(VarBstrFromR4(1.5e-7f, 0x0407, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1,5E-07\"");
  ASSERT_EQ(VarBstrFromR4(1.0f / 3.0f, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"0.3333333\"");
  EXPECT_EQ(VarBstrFromR4(1.0f, 0x040C, 0, &out), DISP_E_UNKNOWNLCID);
  EXPECT_EQ(VarBstrFromR4(1.0f, 0x0409, 0, nullptr), E_INVALIDARG);
}

// VarBstrFromR8 for the limits between plain decimals and an exponent.
TEST(TypedFunctions, DoubleToTextAtTheLimits) {
  BSTR out = nullptr;
  ASSERT_EQ(VarBstrFromR8(100000000000000.0, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"100000000000000\"");
  ASSERT_EQ(VarBstrFromR8(1e15, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1E+15\"");
  ASSERT_EQ(VarBstrFromR8(5.6789e-10, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"0.00000000056789\"");
  ASSERT_EQ(VarBstrFromR8(1e-5, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"0.00001\"");
  ASSERT_EQ(VarBstrFromR8(1.5e-20, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1.5E-20\"");
  ASSERT_EQ(VarBstrFromR8(-1e16, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"-1E+16\"");
}

// Dates before the year 1000, times, midnight and day 0.
TEST(TypedFunctions, EarlyDatesAndTimesToText) {
  BSTR out = nullptr;
  ASSERT_EQ(VarBstrFromDate(-657434.0, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1/1/100\"");
  ASSERT_EQ(VarBstrFromDate(-657434.75, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1/1/100 6:00:00 PM\"");
  ASSERT_EQ(VarBstrFromDate(-328717.0, 0x0407, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"31.12.999\"");
  ASSERT_EQ(VarBstrFromDate(-657434.75, 0x0409, VAR_TIMEVALUEONLY, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"6:00:00 PM\"");
  ASSERT_EQ(VarBstrFromDate(0.0, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"12:00:00 AM\"");
  ASSERT_EQ(VarBstrFromDate(0.0, 0x0409, VAR_DATEVALUEONLY, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"12/30/1899\"");
  ASSERT_EQ(VarBstrFromDate(-0.5, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"12:00:00 PM\"");
  ASSERT_EQ(VarBstrFromDate(37623.0, 0x0409, 0, &out), S_OK);
  EXPECT_EQ(TextOf(out), "\"1/2/2003\"");
  DATE date = 0;
  EXPECT_EQ(VarDateFromStr(u"1/1/100\u300012:00:00\u3000PM", 0x0409, 0, &date), S_OK);
  EXPECT_EQ(date, -657434.5);
  EXPECT_EQ(VarDateFromStr(u"1/2/2003\u300012:00", 0x0409, 0, &date), S_OK);
  EXPECT_EQ(date, 37623.5);
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
