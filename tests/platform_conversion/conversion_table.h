// Conformance tables for the variant conversions, one line per case:
//
//   CONVERT(R8(2.5), VT_I1);     EXPECT(2);
//   CONVERT(STR(u"128"), VT_I1); EXPECT_OVERFLOW;
//
// CONVERT runs VariantChangeTypeEx with the fixture's locale and flags; the
// EXPECT macros check the result code, the result type and the value.
#pragma once

#include "platform/oleauto.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

// A VARIANT that clears itself.
class Var {
 public:
  Var() { VariantInit(&v_); }
  explicit Var(const VARIANT& v) : v_(v) {}
  Var(Var&& o) noexcept : v_(o.v_) { VariantInit(&o.v_); }
  Var& operator=(Var&& o) noexcept {
    if (this != &o) {
      VariantClear(&v_);
      v_ = o.v_;
      VariantInit(&o.v_);
    }
    return *this;
  }
  Var(const Var&) = delete;
  Var& operator=(const Var&) = delete;
  ~Var() { VariantClear(&v_); }

  VARIANT* get() { return &v_; }
  const VARIANT* get() const { return &v_; }
  VARIANT* operator->() { return &v_; }
  const VARIANT* operator->() const { return &v_; }

 private:
  VARIANT v_;
};

inline Var EMPTYV() { return Var(); }
inline Var NULLV() {
  Var v;
  v->vt = VT_NULL;
  return v;
}
#define VELTRANE_SCALAR_BUILDER(name, type, vtype, member) \
  inline Var name(type x) {                                \
    Var v;                                                 \
    v->vt = vtype;                                         \
    v->member = x;                                         \
    return v;                                              \
  }
VELTRANE_SCALAR_BUILDER(I1, CHAR, VT_I1, cVal)
VELTRANE_SCALAR_BUILDER(UI1, BYTE, VT_UI1, bVal)
VELTRANE_SCALAR_BUILDER(I2, SHORT, VT_I2, iVal)
VELTRANE_SCALAR_BUILDER(UI2, USHORT, VT_UI2, uiVal)
VELTRANE_SCALAR_BUILDER(I4, LONG, VT_I4, lVal)
VELTRANE_SCALAR_BUILDER(UI4, ULONG, VT_UI4, ulVal)
VELTRANE_SCALAR_BUILDER(INTV, INT, VT_INT, intVal)
VELTRANE_SCALAR_BUILDER(UINTV, UINT, VT_UINT, uintVal)
VELTRANE_SCALAR_BUILDER(I8, LONGLONG, VT_I8, llVal)
VELTRANE_SCALAR_BUILDER(UI8, ULONGLONG, VT_UI8, ullVal)
VELTRANE_SCALAR_BUILDER(R4, FLOAT, VT_R4, fltVal)
VELTRANE_SCALAR_BUILDER(R8, DOUBLE, VT_R8, dblVal)
VELTRANE_SCALAR_BUILDER(DATEV, DATE, VT_DATE, date)
VELTRANE_SCALAR_BUILDER(ERRV, SCODE, VT_ERROR, scode)
#undef VELTRANE_SCALAR_BUILDER

inline Var BOOLV(bool b) {
  Var v;
  v->vt = VT_BOOL;
  v->boolVal = b ? VARIANT_TRUE : VARIANT_FALSE;
  return v;
}
// Currency from its scaled value: CYV(15000) is 1.5.
inline Var CYV(int64_t scaled) {
  Var v;
  v->vt = VT_CY;
  v->cyVal.int64 = scaled;
  return v;
}
inline DECIMAL MakeDecimal(BYTE scale, BYTE sign, ULONG hi32, ULONGLONG lo64) {
  DECIMAL d = {};
  d.scale = scale;
  d.sign = sign;
  d.Hi32 = hi32;
  d.Lo64 = lo64;
  return d;
}
inline Var DEC(BYTE scale, BYTE sign, ULONG hi32, ULONGLONG lo64) {
  Var v;
  v->decVal = MakeDecimal(scale, sign, hi32, lo64);
  v->vt = VT_DECIMAL;
  return v;
}
inline Var STR(const char16_t* s) {
  Var v;
  v->vt = VT_BSTR;
  v->bstrVal = SysAllocString(s);
  return v;
}

std::string Printable(const char16_t* s, size_t n);
inline std::string Printable(BSTR s) { return s ? Printable(s, SysStringLen(s)) : std::string("(null)"); }

class ConversionTable : public ::testing::Test {
 protected:
  void SetUp() override {
    lcid_ = 0x0409;
    flags_ = 0;
  }

  void convert(Var&& in, VARTYPE vt, const char* file, int line) {
    file_ = file;
    line_ = line;
    vt_ = vt;
    in_ = std::move(in);
    out_ = Var();
    hr_ = VariantChangeTypeEx(out_.get(), in_.get(), lcid_, flags_, vt);
  }

  ::testing::AssertionResult succeeded() const {
    if (hr_ != S_OK) return ::testing::AssertionFailure() << "result 0x" << std::hex << static_cast<uint32_t>(hr_);
    if (out_->vt != vt_) return ::testing::AssertionFailure() << "type " << out_->vt << ", wanted " << vt_;
    return ::testing::AssertionSuccess();
  }

  // The integer, floating, date or boolean value of the result.
  void expectValue(long double expected, const char* what) const {
    ::testing::ScopedTrace trace(file_, line_, what);
    ASSERT_TRUE(succeeded());
    const VARIANT& v = *out_.get();
    switch (vt_) {
      case VT_I1: EXPECT_EQ(static_cast<int8_t>(v.cVal), static_cast<int64_t>(expected)); break;
      case VT_UI1: EXPECT_EQ(v.bVal, static_cast<uint64_t>(expected)); break;
      case VT_I2: EXPECT_EQ(v.iVal, static_cast<int64_t>(expected)); break;
      case VT_UI2: EXPECT_EQ(v.uiVal, static_cast<uint64_t>(expected)); break;
      case VT_I4: EXPECT_EQ(v.lVal, static_cast<int64_t>(expected)); break;
      case VT_UI4: EXPECT_EQ(v.ulVal, static_cast<uint64_t>(expected)); break;
      case VT_INT: EXPECT_EQ(v.intVal, static_cast<int64_t>(expected)); break;
      case VT_UINT: EXPECT_EQ(v.uintVal, static_cast<uint64_t>(expected)); break;
      case VT_I8: EXPECT_EQ(v.llVal, static_cast<int64_t>(expected)); break;
      case VT_UI8: EXPECT_EQ(v.ullVal, static_cast<uint64_t>(expected)); break;
      case VT_R4: EXPECT_EQ(v.fltVal, static_cast<float>(expected)); break;
      case VT_R8: EXPECT_EQ(v.dblVal, static_cast<double>(expected)); break;
      case VT_DATE: EXPECT_EQ(v.date, static_cast<double>(expected)); break;
      case VT_BOOL: EXPECT_EQ(v.boolVal, static_cast<VARIANT_BOOL>(expected)); break;
      default: ADD_FAILURE() << "no plain value for type " << vt_;
    }
  }
  // Exact 64-bit integers (beyond what long double carries without care).
  void expectInt64(int64_t expected) const {
    ::testing::ScopedTrace trace(file_, line_, "EXPECT_I8");
    ASSERT_TRUE(succeeded());
    EXPECT_EQ(out_->llVal, expected);
  }
  void expectUInt64(uint64_t expected) const {
    ::testing::ScopedTrace trace(file_, line_, "EXPECT_UI8");
    ASSERT_TRUE(succeeded());
    EXPECT_EQ(out_->ullVal, expected);
  }
  void expectNear(double expected, double tolerance) const {
    ::testing::ScopedTrace trace(file_, line_, "EXPECT_NEAR_VAL");
    ASSERT_TRUE(succeeded());
    EXPECT_NEAR(vt_ == VT_DATE ? out_->date : out_->dblVal, expected, tolerance);
  }
  void expectText(const char16_t* expected) const {
    ::testing::ScopedTrace trace(file_, line_, "EXPECT_STR");
    ASSERT_TRUE(succeeded());
    ASSERT_NE(out_->bstrVal, nullptr);
    EXPECT_EQ(Printable(out_->bstrVal), Printable(expected, std::char_traits<char16_t>::length(expected)));
  }
  void expectCurrency(int64_t scaled) const {
    ::testing::ScopedTrace trace(file_, line_, "EXPECT_CY");
    ASSERT_TRUE(succeeded());
    EXPECT_EQ(out_->cyVal.int64, scaled);
  }
  void expectDecimal(BYTE scale, BYTE sign, ULONG hi32, ULONGLONG lo64) const {
    ::testing::ScopedTrace trace(file_, line_, "EXPECT_DEC");
    ASSERT_TRUE(succeeded());
    const DECIMAL& d = out_->decVal;
    EXPECT_EQ(d.scale, scale);
    EXPECT_EQ(d.sign, sign);
    EXPECT_EQ(d.Hi32, hi32);
    EXPECT_EQ(d.Lo64, lo64);
  }
  void expectResult(HRESULT expected, const char* what) const {
    ::testing::ScopedTrace trace(file_, line_, what);
    EXPECT_EQ(static_cast<uint32_t>(hr_), static_cast<uint32_t>(expected));
    // A failed conversion leaves the destination as it was.
    if (FAILED(expected)) {
      EXPECT_EQ(out_->vt, VT_EMPTY);
    }
  }

  LCID lcid_ = 0x0409;
  USHORT flags_ = 0;
  HRESULT hr_ = S_OK;
  Var in_;
  Var out_;
  VARTYPE vt_ = VT_EMPTY;
  const char* file_ = "";
  int line_ = 0;
};

#define CONVERT(in, vt) convert((in), (vt), __FILE__, __LINE__)
#define EXPECT(value) expectValue(static_cast<long double>(value), "EXPECT(" #value ")")
#define EXPECT_I8(value) expectInt64(value)
#define EXPECT_UI8(value) expectUInt64(value)
#define EXPECT_NEAR_VAL(value, tolerance) expectNear((value), (tolerance))
#define EXPECT_STR(text) expectText(text)
#define EXPECT_CY(scaled) expectCurrency(scaled)
#define EXPECT_DEC(scale, sign, hi32, lo64) expectDecimal((scale), (sign), (hi32), (lo64))
#define EXPECT_HR(hr) expectResult((hr), "EXPECT_HR(" #hr ")")
#define EXPECT_OVERFLOW expectResult(DISP_E_OVERFLOW, "EXPECT_OVERFLOW")
#define EXPECT_MISMATCH expectResult(DISP_E_TYPEMISMATCH, "EXPECT_MISMATCH")
#define EXPECT_BADVAR expectResult(DISP_E_BADVARTYPE, "EXPECT_BADVAR")
