// VarCmp, VarBstrCmp and VarDecCmp.
#include "conversion_table.h"

#include <cfloat>
#include <limits>

namespace {

// Compares two BSTRs built from texts of the given lengths (embedded nulls allowed).
HRESULT CompareTexts(const std::u16string& a, const std::u16string& b, LCID lcid, ULONG flags) {
  BSTR x = SysAllocStringLen(a.data(), static_cast<UINT>(a.size()));
  BSTR y = SysAllocStringLen(b.data(), static_cast<UINT>(b.size()));
  HRESULT hr = VarBstrCmp(x, y, lcid, flags);
  SysFreeString(x);
  SysFreeString(y);
  return hr;
}

#define BSTRCMP(a, b, lcid, flags, expected)             \
  EXPECT_EQ(CompareTexts(a, b, lcid, flags), (expected)) \
      << Printable((a).data(), (a).size()) << " vs " << Printable((b).data(), (b).size())

TEST(VarBstrCmp, NullAndEmpty) {
  BSTR empty = SysAllocString(u"");
  BSTR a = SysAllocString(u"a");
  BSTR nul = SysAllocStringLen(u"\0x", 2);
  EXPECT_EQ(VarBstrCmp(nullptr, nullptr, 0x0409, 0), VARCMP_EQ);
  EXPECT_EQ(VarBstrCmp(nullptr, empty, 0x0409, 0), VARCMP_EQ);
  EXPECT_EQ(VarBstrCmp(empty, nullptr, 0, 0), VARCMP_EQ);
  EXPECT_EQ(VarBstrCmp(nullptr, a, 0x0409, 0), VARCMP_LT);
  EXPECT_EQ(VarBstrCmp(a, nullptr, 0x0409, 0), VARCMP_GT);
  EXPECT_EQ(VarBstrCmp(empty, a, 0, 0), VARCMP_LT);
  // A text that starts with a null character is as long as it is stored.
  EXPECT_EQ(VarBstrCmp(nul, empty, 0x0409, 0), VARCMP_GT);
  EXPECT_EQ(VarBstrCmp(empty, nul, 0, 0), VARCMP_LT);
  EXPECT_EQ(VarBstrCmp(nul, nullptr, 0, 0), VARCMP_GT);
  EXPECT_EQ(VarBstrCmp(nul, a, 0, 0), VARCMP_LT);
  SysFreeString(empty);
  SysFreeString(a);
  SysFreeString(nul);
}

TEST(VarBstrCmp, BinaryWithLocaleZero) {
  using S = std::u16string;
  BSTRCMP(S(u"a"), S(u"b"), 0, 0, VARCMP_LT);
  BSTRCMP(S(u"b"), S(u"a"), 0, 0, VARCMP_GT);
  BSTRCMP(S(u"a"), S(u"a"), 0, 0, VARCMP_EQ);
  BSTRCMP(S(u"B"), S(u"a"), 0, 0, VARCMP_LT);
  BSTRCMP(S(u"a"), S(u"A"), 0, 0, VARCMP_GT);
  BSTRCMP(S(u"ab"), S(u"a"), 0, 0, VARCMP_GT);
  BSTRCMP(S(u"a"), S(u"ab"), 0, 0, VARCMP_LT);
  BSTRCMP(S(u"_"), S(u"a"), 0, 0, VARCMP_LT);
  BSTRCMP(S(u"a\0b", 3), S(u"a"), 0, 0, VARCMP_GT);
  BSTRCMP(S(u"a\0b", 3), S(u"a\0c", 3), 0, 0, VARCMP_LT);
  BSTRCMP(S(u"\0", 1), S(u""), 0, 0, VARCMP_GT);
  BSTRCMP(S(u"\0", 1), S(u"\0\0", 2), 0, 0, VARCMP_LT);
  BSTRCMP(S(u"a\0", 2), S(u"a"), 0, 0, VARCMP_GT);
  BSTRCMP(S(u"\0b", 2), S(u"\0a", 2), 0, 0, VARCMP_GT);
  // Bytes in memory order: U+0100 is stored 00 01, U+00FF is FF 00.
  BSTRCMP(S(u"\u0100"), S(u"\u00FF"), 0, 0, VARCMP_LT);
  // Flags do not matter for the binary comparison.
  BSTRCMP(S(u"abc"), S(u"ABC"), 0, NORM_IGNORECASE, VARCMP_GT);
  BSTRCMP(S(u"abc"), S(u"abc"), 0, 0x12345678, VARCMP_EQ);
}

TEST(VarBstrCmp, BinaryCountsOddByteLengths) {
  BSTR one = SysAllocStringByteLen("a", 1);
  BSTR two = SysAllocStringByteLen("a\0", 2);
  EXPECT_EQ(VarBstrCmp(one, two, 0, 0), VARCMP_LT);
  EXPECT_EQ(VarBstrCmp(two, one, 0, 0), VARCMP_GT);
  EXPECT_EQ(VarBstrCmp(one, one, 0, 0), VARCMP_EQ);
  SysFreeString(one);
  SysFreeString(two);
}

// With a locale the whole stored text takes part: what follows a null
// character counts, though the null character itself weighs nothing.
TEST(VarBstrCmp, LinguisticReadsPastNullCharacters) {
  using S = std::u16string;
  const LCID us = 0x0409;
  BSTRCMP(S(u"a\0b", 3), S(u"a\0c", 3), us, 0, VARCMP_LT);
  BSTRCMP(S(u"a\0c", 3), S(u"a\0b", 3), us, 0, VARCMP_GT);
  BSTRCMP(S(u"\0b", 2), S(u"\0a", 2), us, 0, VARCMP_GT);
  BSTRCMP(S(u"a\0b", 3), S(u"a"), us, 0, VARCMP_GT);
  BSTRCMP(S(u"a\0b", 3), S(u"ab"), us, 0, VARCMP_EQ);
  BSTRCMP(S(u"a\0B", 3), S(u"a\0b", 3), us, NORM_IGNORECASE, VARCMP_EQ);
  BSTRCMP(S(u"\0", 1), S(u""), us, 0, VARCMP_GT);
  BSTRCMP(S(u""), S(u"\0", 1), 0x0407, 0, VARCMP_LT);
}

TEST(VarBstrCmp, Linguistic) {
  using S = std::u16string;
  const LCID us = 0x0409;
  BSTRCMP(S(u"a"), S(u"b"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"a"), S(u"B"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"B"), S(u"a"), us, 0, VARCMP_GT);
  BSTRCMP(S(u"a"), S(u"A"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"A"), S(u"a"), us, 0, VARCMP_GT);
  BSTRCMP(S(u"abc"), S(u"ABC"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"ABC"), S(u"abd"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"abc"), S(u"abc"), us, 0, VARCMP_EQ);
  BSTRCMP(S(u"abc"), S(u"abcd"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"_"), S(u"a"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"1"), S(u"a"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"!"), S(u"1"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"10"), S(u"9"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"Z"), S(u"a1"), us, 0, VARCMP_GT);
  BSTRCMP(S(u"resume"), S(u"r\u00E9sum\u00E9"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"r\u00E9sum\u00E9"), S(u"resumes"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"\u00C4rger"), S(u"Arm"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"\u00E4"), S(u"b"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"\u0141"), S(u"M"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"coop"), S(u"co-op"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"co-op"), S(u"cop"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"cant"), S(u"can't"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"a\u0001b"), S(u"ab"), us, 0, VARCMP_EQ);
  BSTRCMP(S(u"\u0430"), S(u"\u0411"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"\u0410"), S(u"\u0430"), us, 0, VARCMP_GT);
  BSTRCMP(S(u"\uFF21"), S(u"A"), us, 0, VARCMP_GT);
}

TEST(VarBstrCmp, Flags) {
  using S = std::u16string;
  const LCID us = 0x0409;
  BSTRCMP(S(u"abc"), S(u"ABC"), us, NORM_IGNORECASE, VARCMP_EQ);
  BSTRCMP(S(u"a"), S(u"B"), us, NORM_IGNORECASE, VARCMP_LT);
  BSTRCMP(S(u"\u00C4"), S(u"\u00E4"), us, NORM_IGNORECASE, VARCMP_EQ);
  BSTRCMP(S(u"r\u00E9sum\u00E9"), S(u"resume"), us, NORM_IGNORENONSPACE, VARCMP_EQ);
  BSTRCMP(S(u"R\u00E9sum\u00E9"), S(u"resume"), us, NORM_IGNORENONSPACE, VARCMP_GT);
  BSTRCMP(S(u"R\u00E9sum\u00E9"), S(u"resume"), us, NORM_IGNORENONSPACE | NORM_IGNORECASE, VARCMP_EQ);
  BSTRCMP(S(u"a-b"), S(u"ab"), us, NORM_IGNORESYMBOLS, VARCMP_EQ);
  BSTRCMP(S(u"a.b"), S(u"ab"), us, NORM_IGNORESYMBOLS, VARCMP_EQ);
  BSTRCMP(S(u"a b!"), S(u"ab"), us, NORM_IGNORESYMBOLS, VARCMP_EQ);
  BSTRCMP(S(u"a.b"), S(u"ab"), us, 0, VARCMP_LT);
  BSTRCMP(S(u"\uFF21"), S(u"A"), us, NORM_IGNOREWIDTH, VARCMP_EQ);
  BSTRCMP(S(u"\uFF41"), S(u"A"), us, NORM_IGNOREWIDTH | NORM_IGNORECASE, VARCMP_EQ);
  BSTRCMP(S(u"\uFF21"), S(u"A"), us, NORM_IGNORECASE, VARCMP_GT);
  BSTRCMP(S(u"abc"), S(u"ABC"), us, NORM_IGNOREKANATYPE, VARCMP_LT);
  BSTRCMP(S(u"abc"), S(u"abc"), us, 0x100, E_INVALIDARG);
}

TEST(VarBstrCmp, Locales) {
  using S = std::u16string;
  BSTRCMP(S(u"a"), S(u"B"), 0x0407, 0, VARCMP_LT);
  BSTRCMP(S(u"\u00E4"), S(u"b"), 0x0407, 0, VARCMP_LT);
  BSTRCMP(S(u"a"), S(u"B"), LOCALE_USER_DEFAULT, 0, VARCMP_LT);
  BSTRCMP(S(u"a"), S(u"B"), LOCALE_SYSTEM_DEFAULT, 0, VARCMP_LT);
  BSTRCMP(S(u"a"), S(u"B"), LOCALE_INVARIANT, 0, VARCMP_LT);
  BSTRCMP(S(u"a"), S(u"B"), 0x0009, 0, VARCMP_LT);
  BSTRCMP(S(u"a"), S(u"B"), 0x040C, 0, DISP_E_UNKNOWNLCID);
}

TEST(VarBstrCmp, IsAnOrder) {
  // Antisymmetric and transitive over a mixed set of texts.
  const std::u16string texts[] = {u"",       u"a",    u"A",     u"ab",     u"aB",
                                  u"co-op",  u"coop", u"cop",   u"\u00E4", u"b",
                                  u"1",      u"10",   u"9",     u"_x",     u"r\u00E9sum\u00E9",
                                  u"resume", u"Z",    u"\u0430"};
  for (const auto& x : texts)
    for (const auto& y : texts) {
      HRESULT xy = CompareTexts(x, y, 0x0409, 0), yx = CompareTexts(y, x, 0x0409, 0);
      EXPECT_EQ(xy + yx, 2) << Printable(x.data(), x.size()) << " " << Printable(y.data(), y.size());
      for (const auto& z : texts) {
        if (xy == VARCMP_LT && CompareTexts(y, z, 0x0409, 0) == VARCMP_LT) {
          EXPECT_EQ(CompareTexts(x, z, 0x0409, 0), VARCMP_LT);
        }
      }
    }
}

HRESULT Cmp(Var&& a, Var&& b, LCID lcid = 0x0409, ULONG flags = 0) { return VarCmp(a.get(), b.get(), lcid, flags); }

TEST(VarCmp, Null) {
  EXPECT_EQ(Cmp(NULLV(), NULLV()), VARCMP_NULL);
  EXPECT_EQ(Cmp(NULLV(), I4(1)), VARCMP_NULL);
  EXPECT_EQ(Cmp(I4(1), NULLV()), VARCMP_NULL);
  EXPECT_EQ(Cmp(NULLV(), STR(u"a")), VARCMP_NULL);
  EXPECT_EQ(Cmp(EMPTYV(), NULLV()), VARCMP_NULL);
}

TEST(VarCmp, Empty) {
  EXPECT_EQ(Cmp(EMPTYV(), EMPTYV()), VARCMP_EQ);
  EXPECT_EQ(Cmp(EMPTYV(), I4(0)), VARCMP_EQ);
  EXPECT_EQ(Cmp(EMPTYV(), I4(1)), VARCMP_LT);
  EXPECT_EQ(Cmp(EMPTYV(), I4(-1)), VARCMP_GT);
  EXPECT_EQ(Cmp(I4(1), EMPTYV()), VARCMP_GT);
  EXPECT_EQ(Cmp(EMPTYV(), R8(0.0)), VARCMP_EQ);
  EXPECT_EQ(Cmp(EMPTYV(), BOOLV(false)), VARCMP_EQ);
  EXPECT_EQ(Cmp(EMPTYV(), BOOLV(true)), VARCMP_GT);
  EXPECT_EQ(Cmp(EMPTYV(), STR(u"")), VARCMP_EQ);
  EXPECT_EQ(Cmp(STR(u""), EMPTYV()), VARCMP_EQ);
  EXPECT_EQ(Cmp(EMPTYV(), STR(u"a")), VARCMP_LT);
  EXPECT_EQ(Cmp(STR(u"a"), EMPTYV()), VARCMP_GT);
  EXPECT_EQ(Cmp(EMPTYV(), DEC(0, 0, 0, 0)), VARCMP_EQ);
  EXPECT_EQ(Cmp(EMPTYV(), CYV(-1)), VARCMP_GT);
}

TEST(VarCmp, NumbersAcrossTypes) {
  EXPECT_EQ(Cmp(I4(1), R8(1.0)), VARCMP_EQ);
  EXPECT_EQ(Cmp(I2(2), R4(1.5f)), VARCMP_GT);
  EXPECT_EQ(Cmp(I1(-1), UI1(255)), VARCMP_LT);
  EXPECT_EQ(Cmp(UI4(4294967295u), I4(-1)), VARCMP_GT);
  EXPECT_EQ(Cmp(I8(std::numeric_limits<int64_t>::max()), UI8(18446744073709551615ULL)), VARCMP_LT);
  EXPECT_EQ(Cmp(UI8(18446744073709551615ULL), I8(-1)), VARCMP_GT);
  EXPECT_EQ(Cmp(I8(9007199254740993LL), I8(9007199254740992LL)), VARCMP_GT);
  EXPECT_EQ(Cmp(INTV(3), UINTV(3)), VARCMP_EQ);
  EXPECT_EQ(Cmp(BOOLV(true), I4(-1)), VARCMP_EQ);
  EXPECT_EQ(Cmp(BOOLV(true), BOOLV(false)), VARCMP_LT);
  EXPECT_EQ(Cmp(DATEV(1.5), R8(1.5)), VARCMP_EQ);
  EXPECT_EQ(Cmp(DATEV(1.5), I4(2)), VARCMP_LT);
  EXPECT_EQ(Cmp(CYV(15000), R8(1.5)), VARCMP_EQ);
  EXPECT_EQ(Cmp(CYV(15000), I4(2)), VARCMP_LT);
  EXPECT_EQ(Cmp(CYV(20000), I4(2)), VARCMP_EQ);
  EXPECT_EQ(Cmp(CYV(1), UI8(0)), VARCMP_GT);
  EXPECT_EQ(Cmp(R4(0.1f), R8(0.1)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R8(-0.0), R8(0.0)), VARCMP_EQ);
  EXPECT_EQ(Cmp(DEC(1, 0, 0, 15), R8(1.5)), VARCMP_EQ);
  EXPECT_EQ(Cmp(DEC(1, 0, 0, 1), R8(0.1)), VARCMP_EQ);
  EXPECT_EQ(Cmp(DEC(2, 0, 0, 250), DEC(1, 0, 0, 25)), VARCMP_EQ);
  EXPECT_EQ(Cmp(DEC(0, DECIMAL_NEG, 0, 1), I4(-1)), VARCMP_EQ);
  EXPECT_EQ(Cmp(DEC(0, DECIMAL_NEG, 0, 0), DEC(0, 0, 0, 0)), VARCMP_EQ);
  EXPECT_EQ(Cmp(DEC(0, 0, 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFFULL), R8(1e29)), VARCMP_LT);
  EXPECT_EQ(Cmp(R8(-1e29), DEC(0, DECIMAL_NEG, 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFFULL)), VARCMP_LT);
  EXPECT_EQ(Cmp(DEC(28, 0, 0, 1), DEC(0, 0, 0, 0)), VARCMP_GT);
  EXPECT_EQ(Cmp(DEC(0, 0, 1, 0), UI8(18446744073709551615ULL)), VARCMP_GT);
  EXPECT_EQ(Cmp(DEC(4, 0, 0, 15000), CYV(15000)), VARCMP_EQ);
  EXPECT_EQ(Cmp(DEC(29, 0, 0, 1), I4(1)), E_INVALIDARG);
}

// A VT_R4 on either side rounds the other side to a float first.
TEST(VarCmp, FloatOperandComparesAtFloatPrecision) {
  EXPECT_EQ(Cmp(R4(0.1f), R8(0.1)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R8(0.1), R4(0.1f)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(1.0f), R8(1.0 + 1e-9)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R8(1.0), R8(1.0 + 1e-9)), VARCMP_LT);
  EXPECT_EQ(Cmp(R4(1.0f), R8(1.0 + 1e-6)), VARCMP_LT);
  EXPECT_EQ(Cmp(R4(0.1f), DATEV(0.1)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(0.1f), CYV(1000)), VARCMP_EQ);
  EXPECT_EQ(Cmp(CYV(1000), R4(0.1f)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(16777216.0f), I4(16777217)), VARCMP_EQ);
  EXPECT_EQ(Cmp(I4(16777217), R4(16777216.0f)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(16777216.0f), I4(16777218)), VARCMP_LT);
  EXPECT_EQ(Cmp(R4(16777216.0f), UI8(16777217)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R8(16777216.0), I4(16777217)), VARCMP_LT);
  EXPECT_EQ(Cmp(R4(FLT_MAX), R8(1e300)), VARCMP_LT);
  EXPECT_EQ(Cmp(R4(-FLT_MAX), R8(-1e300)), VARCMP_GT);
  EXPECT_EQ(Cmp(R4(0.0f), R8(1e-300)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(-2.5f), R4(2.5f)), VARCMP_LT);
  EXPECT_EQ(Cmp(R4(0.1f), EMPTYV()), VARCMP_GT);
  EXPECT_EQ(Cmp(R4(-1.0f), BOOLV(true)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(0.1f), DEC(1, 0, 0, 1)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(0.1f), STR(u"0.1")), VARCMP_LT);
  EXPECT_EQ(Cmp(STR(u"0.1"), R4(0.1f)), VARCMP_GT);
  EXPECT_EQ(Cmp(R4(0.5f), STR(u"")), VARCMP_LT);
}

// Two texts compare over their whole lengths through VarCmp as through
// VarBstrCmp, null characters included.
TEST(VarCmp, TextsKeepTheirEmbeddedNulls) {
  auto text = [](const char16_t* s, UINT n) {
    Var v;
    v->vt = VT_BSTR;
    v->bstrVal = SysAllocStringLen(s, n);
    return v;
  };
  EXPECT_EQ(Cmp(text(u"a\0b", 3), text(u"a\0c", 3)), VARCMP_LT);
  EXPECT_EQ(Cmp(text(u"a\0c", 3), text(u"a\0b", 3), 0), VARCMP_GT);
  EXPECT_EQ(Cmp(text(u"a\0b", 3), text(u"a", 1), 0), VARCMP_GT);
  EXPECT_EQ(Cmp(text(u"a\0", 2), text(u"a", 1), 0), VARCMP_GT);
  EXPECT_EQ(Cmp(text(u"a\0B", 3), text(u"a\0b", 3), 0x0409, NORM_IGNORECASE), VARCMP_EQ);
  EXPECT_EQ(Cmp(text(u"a\0B", 3), text(u"a\0b", 3), 0, NORM_IGNORECASE), VARCMP_LT);
  EXPECT_EQ(Cmp(text(u"\0", 1), EMPTYV()), VARCMP_GT);
}

// An integer or an amount meets a float as the float nearest to its exact
// value, rounded once: 2^60 + 2^36 + 1 is nearer to 2^60 + 2^37 than to 2^60,
// though through a double it would fall on the tie and round to 2^60.
TEST(VarCmp, FloatAgainstWideIntegersRoundsOnce) {
  const float low = 1152921504606846976.0f;   // 2^60
  const float high = 1152921642045800448.0f;  // 2^60 + 2^37, the next float
  const int64_t above = (int64_t{1} << 60) + (int64_t{1} << 36) + 1;
  EXPECT_EQ(Cmp(R4(low), I8(above)), VARCMP_LT);
  EXPECT_EQ(Cmp(I8(above), R4(low)), VARCMP_GT);
  EXPECT_EQ(Cmp(R4(high), I8(above)), VARCMP_EQ);
  EXPECT_EQ(Cmp(UI8(static_cast<uint64_t>(above)), R4(high)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(-high), I8(-above)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(low), I8(int64_t{1} << 60)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(0.1f), CYV(1000)), VARCMP_EQ);
  EXPECT_EQ(Cmp(CYV(-1000), R4(-0.1f)), VARCMP_EQ);
  EXPECT_EQ(Cmp(CYV(std::numeric_limits<int64_t>::max()), R4(922337203685477.5807f)), VARCMP_EQ);
  EXPECT_EQ(Cmp(I1(-1), R4(-1.0f)), VARCMP_EQ);
  EXPECT_EQ(Cmp(R4(16777216.0f), UINTV(16777217u)), VARCMP_EQ);
  EXPECT_EQ(Cmp(UI2(65535), R4(65535.5f)), VARCMP_LT);
}

TEST(VarCmp, TextAgainstNumbers) {
  // A text is greater than any number, even when it reads as that number.
  EXPECT_EQ(Cmp(STR(u"1"), I4(1)), VARCMP_GT);
  EXPECT_EQ(Cmp(I4(1), STR(u"1")), VARCMP_LT);
  EXPECT_EQ(Cmp(STR(u""), I4(-5)), VARCMP_GT);
  EXPECT_EQ(Cmp(R8(1e300), STR(u"a")), VARCMP_LT);
  EXPECT_EQ(Cmp(STR(u"a"), BOOLV(true)), VARCMP_GT);
  EXPECT_EQ(Cmp(DATEV(1.0), STR(u"1/1/2000")), VARCMP_LT);
  EXPECT_EQ(Cmp(STR(u"1"), DEC(0, 0, 0, 1)), VARCMP_GT);
}

TEST(VarCmp, TextsUseLocaleAndFlags) {
  EXPECT_EQ(Cmp(STR(u"a"), STR(u"A")), VARCMP_LT);
  EXPECT_EQ(Cmp(STR(u"a"), STR(u"A"), 0x0409, NORM_IGNORECASE), VARCMP_EQ);
  EXPECT_EQ(Cmp(STR(u"a"), STR(u"B")), VARCMP_LT);
  EXPECT_EQ(Cmp(STR(u"a"), STR(u"B"), 0), VARCMP_GT);
  EXPECT_EQ(Cmp(STR(u"1"), STR(u"1")), VARCMP_EQ);
  EXPECT_EQ(Cmp(STR(u"abc"), STR(u"abc"), 0x0409, 0x100), E_INVALIDARG);
}

TEST(VarCmp, ErrorValues) {
  EXPECT_EQ(Cmp(ERRV(5), ERRV(5)), VARCMP_EQ);
  EXPECT_EQ(Cmp(ERRV(4), ERRV(5)), VARCMP_LT);
  EXPECT_EQ(Cmp(ERRV(5), I4(5)), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(Cmp(STR(u"x"), ERRV(5)), DISP_E_TYPEMISMATCH);
}

TEST(VarCmp, RefusedTypes) {
  Var dispatch;
  dispatch->vt = VT_DISPATCH;
  dispatch->pdispVal = nullptr;
  EXPECT_EQ(VarCmp(dispatch.get(), I4(1).get(), 0x0409, 0), DISP_E_TYPEMISMATCH);
  Var unknown;
  unknown->vt = VT_UNKNOWN;
  unknown->punkVal = nullptr;
  EXPECT_EQ(VarCmp(I4(1).get(), unknown.get(), 0x0409, 0), DISP_E_TYPEMISMATCH);

  LONG value = 1;
  VARIANT byref;
  byref.vt = VT_I4 | VT_BYREF;
  byref.plVal = &value;
  EXPECT_EQ(VarCmp(&byref, I4(1).get(), 0x0409, 0), DISP_E_BADVARTYPE);

  VARIANT odd;
  VariantInit(&odd);
  odd.vt = 15;
  EXPECT_EQ(VarCmp(&odd, I4(1).get(), 0x0409, 0), DISP_E_BADVARTYPE);
  odd.vt = VT_RECORD;
  EXPECT_EQ(VarCmp(I4(1).get(), &odd, 0x0409, 0), DISP_E_BADVARTYPE);
  odd.vt = VT_VARIANT;
  EXPECT_EQ(VarCmp(I4(1).get(), &odd, 0x0409, 0), DISP_E_TYPEMISMATCH);

  Var array;
  array->vt = VT_ARRAY | VT_I4;
  array->parray = SafeArrayCreateVector(VT_I4, 0, 1);
  EXPECT_EQ(VarCmp(array.get(), I4(1).get(), 0x0409, 0), DISP_E_BADVARTYPE);
  EXPECT_EQ(VarCmp(nullptr, I4(1).get(), 0x0409, 0), E_INVALIDARG);
}

TEST(VarDecCmp, Values) {
  DECIMAL a = MakeDecimal(1, 0, 0, 25), b = MakeDecimal(2, 0, 0, 250), c = MakeDecimal(0, DECIMAL_NEG, 0, 3);
  DECIMAL big = MakeDecimal(0, 0, 1, 0), tiny = MakeDecimal(28, 0, 0, 1), bad = MakeDecimal(29, 0, 0, 1);
  EXPECT_EQ(VarDecCmp(&a, &b), VARCMP_EQ);
  EXPECT_EQ(VarDecCmp(&c, &a), VARCMP_LT);
  EXPECT_EQ(VarDecCmp(&a, &c), VARCMP_GT);
  EXPECT_EQ(VarDecCmp(&big, &a), VARCMP_GT);
  EXPECT_EQ(VarDecCmp(&tiny, &a), VARCMP_LT);
  EXPECT_EQ(VarDecCmp(&bad, &a), E_INVALIDARG);
  EXPECT_EQ(VarDecCmp(nullptr, &a), E_INVALIDARG);
}

}  // namespace
