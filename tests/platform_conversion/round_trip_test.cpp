// Values written as text read back to the same value, in every locale, over
// many generated values (fixed seed, so a failure repeats).
#include "conversion_table.h"

#include <cmath>
#include <cstring>
#include <random>

namespace {

const LCID kLocales[] = {0x0409, 0x0407, 0x0809, 0x007F};

// Converts v to text and the text back to vt.
Var ThroughText(const Var& v, LCID lcid, VARTYPE vt) {
  Var text, back;
  EXPECT_EQ(VariantChangeTypeEx(text.get(), v.get(), lcid, 0, VT_BSTR), S_OK);
  HRESULT hr = VariantChangeTypeEx(back.get(), text.get(), lcid, 0, vt);
  EXPECT_EQ(hr, S_OK) << Printable(text->bstrVal) << " in " << lcid;
  return back;
}

TEST(RoundTrip, Integers) {
  std::mt19937_64 random(1);
  for (LCID lcid : kLocales) {
    for (int i = 0; i < 2000; ++i) {
      const int64_t value = static_cast<int64_t>(random()) >> (random() % 64);
      Var back = ThroughText(I8(value), lcid, VT_I8);
      ASSERT_EQ(back->llVal, value);
      const uint64_t u = random();
      back = ThroughText(UI8(u), lcid, VT_UI8);
      ASSERT_EQ(back->ullVal, u);
    }
  }
}

TEST(RoundTrip, DoublesKeepFifteenDigits) {
  std::mt19937_64 random(2);
  for (LCID lcid : kLocales) {
    for (int i = 0; i < 3000; ++i) {
      uint64_t bits = random();
      double d;
      std::memcpy(&d, &bits, sizeof d);
      // Close to the largest double, 15 digits round beyond it.
      if (!std::isfinite(d) || std::fabs(d) > 1.79769313486231e308) continue;
      Var back = ThroughText(R8(d), lcid, VT_R8);
      if (d == 0.0) {
        ASSERT_EQ(back->dblVal, 0.0);
        continue;
      }
      ASSERT_LE(std::fabs(back->dblVal - d), std::fabs(d) * 5e-15) << d;
      // The text of the value read back is the same text.
      Var first, second;
      ASSERT_EQ(VariantChangeTypeEx(first.get(), R8(d).get(), lcid, 0, VT_BSTR), S_OK);
      ASSERT_EQ(VariantChangeTypeEx(second.get(), back.get(), lcid, 0, VT_BSTR), S_OK);
      ASSERT_EQ(Printable(first->bstrVal), Printable(second->bstrVal));
    }
  }
}

TEST(RoundTrip, FloatsKeepSevenDigits) {
  std::mt19937 random(3);
  for (LCID lcid : kLocales) {
    for (int i = 0; i < 2000; ++i) {
      uint32_t bits = random();
      float f;
      std::memcpy(&f, &bits, sizeof f);
      if (!std::isfinite(f) || std::fabs(f) > 3.4028e38f) continue;
      Var back = ThroughText(R4(f), lcid, VT_R4);
      ASSERT_LE(std::fabs(back->fltVal - f), std::fabs(f) * 1e-6f) << f;
    }
  }
}

TEST(RoundTrip, DecimalsExactly) {
  std::mt19937_64 random(4);
  for (LCID lcid : kLocales) {
    for (int i = 0; i < 2000; ++i) {
      DECIMAL d = MakeDecimal(static_cast<BYTE>(random() % 29), (random() & 1) ? DECIMAL_NEG : 0,
                              static_cast<ULONG>(random() >> (random() % 33)), random());
      Var v;
      v->decVal = d;
      v->vt = VT_DECIMAL;
      Var back = ThroughText(v, lcid, VT_DECIMAL);
      ASSERT_EQ(VarDecCmp(&d, &back->decVal), VARCMP_EQ) << i;
    }
  }
}

TEST(RoundTrip, CurrencyExactly) {
  std::mt19937_64 random(5);
  for (LCID lcid : kLocales) {
    for (int i = 0; i < 2000; ++i) {
      const int64_t scaled = static_cast<int64_t>(random()) >> (random() % 64);
      Var back = ThroughText(CYV(scaled), lcid, VT_CY);
      ASSERT_EQ(back->cyVal.int64, scaled);
    }
  }
}

TEST(RoundTrip, DatesToTheSecond) {
  std::mt19937_64 random(6);
  std::uniform_int_distribution<long> days(-657434, 2958465);
  std::uniform_int_distribution<int> seconds(0, 86399);
  for (LCID lcid : kLocales) {
    for (int i = 0; i < 2000; ++i) {
      const long day = days(random);
      const int second = (i % 4 == 0) ? 0 : seconds(random);
      const double fraction = second / 86400.0;
      const double date = day < 0 ? day - fraction : day + fraction;
      Var back = ThroughText(DATEV(date), lcid, VT_DATE);
      ASSERT_NEAR(back->date, date, 1e-9) << day << " " << second << " in " << lcid;
    }
  }
}

}  // namespace
