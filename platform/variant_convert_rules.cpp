// The conversion rules of the numeric, boolean and date target types, and
// the table that maps each target VARTYPE to its rule.
//
// Every rule takes any kind of scalar source. Integers are range-checked
// after rounding half to even, so 2.5 -> 2, -0.5 -> 0 and 127.5 overflows a
// VT_I1. Out of range gives DISP_E_OVERFLOW, text that is no number
// DISP_E_TYPEMISMATCH.
#include "platform/internal/variant_convert.h"

#include <cfloat>
#include <cmath>
#include <limits>

namespace veltrane::platform::detail {
namespace {

struct IntegerRange {
  Int128 min;
  Int128 max;
  int bits;
  bool isSigned;
};

template <class T>
constexpr IntegerRange rangeOf() {
  return {std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), static_cast<int>(sizeof(T) * 8),
          std::numeric_limits<T>::is_signed};
}

Int128 withSign(bool negative, UInt128 magnitude) {
  return negative ? -static_cast<Int128>(magnitude) : static_cast<Int128>(magnitude);
}

// "&H"/"&O" text for a target that is no integer: a 32-bit value is signed
// 32-bit ("&HFFFFFFFF" is -1), a longer one signed 64-bit.
Int128 radixAsSigned(uint64_t v) {
  if (v <= 0xFFFFFFFFu) return static_cast<int32_t>(static_cast<uint32_t>(v));
  return static_cast<int64_t>(v);
}

HRESULT parseText(const OLECHAR* text, const ConversionContext& ctx, ParsedNumber* p) {
  const LocaleInfo* locale;
  HRESULT hr = ctx.locale(&locale);
  if (FAILED(hr)) return hr;
  return ParseNumber(text ? text : u"", *locale, p);
}

// A double, rounded half to even, as an integer; overflow for NaN, infinity
// and anything beyond 38 digits.
HRESULT roundDouble(double d, Int128* out) {
  if (std::isnan(d)) return DISP_E_OVERFLOW;
  double r = RoundHalfEven(d);
  if (!(std::fabs(r) < 1e38)) return DISP_E_OVERFLOW;
  *out = static_cast<Int128>(r);
  return S_OK;
}

// The integer value of a source for a target of the given range, before the
// range check.
HRESULT integerValue(const Scalar& in, const ConversionContext& ctx, const IntegerRange& range, Int128* out) {
  switch (in.kind) {
    case SourceKind::Empty: *out = 0; return S_OK;
    case SourceKind::Signed: *out = in.i; return S_OK;
    case SourceKind::Unsigned: *out = in.u; return S_OK;
    case SourceKind::Bool:
      // An unsigned target takes the bits: VARIANT_TRUE is 255 as VT_UI1.
      if (!range.isSigned) {
        *out = static_cast<Int128>(static_cast<uint64_t>(in.i) & static_cast<uint64_t>(range.max));
        return S_OK;
      }
      *out = in.i;
      return S_OK;
    case SourceKind::Real4:
    case SourceKind::Real8:
    case SourceKind::Date: return roundDouble(in.d, out);
    case SourceKind::Currency: {
      bool negative = in.i < 0;
      UInt128 magnitude = negative ? static_cast<UInt128>(-static_cast<Int128>(in.i)) : static_cast<UInt128>(in.i);
      *out = withSign(negative, DropDigits(magnitude, 4));
      return S_OK;
    }
    case SourceKind::Decimal: {
      HRESULT hr = CheckDecimal(in.dec);
      if (FAILED(hr)) return hr;
      ExactDecimal e = FromDecimal(in.dec);
      *out = withSign(e.negative, DropDigits(e.mantissa, e.scale));
      return S_OK;
    }
    case SourceKind::Text: {
      ParsedNumber p;
      HRESULT hr = parseText(in.text, ctx, &p);
      if (FAILED(hr)) return hr;
      if (p.radix) {
        // Hexadecimal and octal fill the target's bits: "&HFFFF" is -1 as VT_I2.
        const UInt128 v = p.radixValue;
        const UInt128 span = static_cast<UInt128>(1) << range.bits;
        if (v <= static_cast<UInt128>(range.max))
          *out = static_cast<Int128>(v);
        else if (range.isSigned && v < span)
          *out = static_cast<Int128>(v) - static_cast<Int128>(span);
        else
          return DISP_E_OVERFLOW;
        return S_OK;
      }
      UInt128 magnitude;
      hr = RoundParsed(p, 0, &magnitude);
      if (FAILED(hr)) return hr;
      *out = withSign(p.negative, magnitude);
      return S_OK;
    }
  }
  return DISP_E_TYPEMISMATCH;
}

template <class T, class M, M VARIANT::*Member>
HRESULT integerRule(const Scalar& in, const ConversionContext& ctx, VARIANT* out) {
  constexpr IntegerRange range = rangeOf<T>();
  Int128 v;
  HRESULT hr = integerValue(in, ctx, range, &v);
  if (FAILED(hr)) return hr;
  if (v < range.min || v > range.max) return DISP_E_OVERFLOW;
  out->*Member = static_cast<M>(static_cast<T>(v));
  return S_OK;
}

HRESULT real4Rule(const Scalar& in, const ConversionContext& ctx, VARIANT* out) {
  double d;
  HRESULT hr = ScalarToDouble(in, ctx, &d);
  if (FAILED(hr)) return hr;
  if (std::fabs(d) > FLT_MAX) return DISP_E_OVERFLOW;
  out->fltVal = static_cast<float>(d);
  return S_OK;
}

HRESULT real8Rule(const Scalar& in, const ConversionContext& ctx, VARIANT* out) {
  return ScalarToDouble(in, ctx, &out->dblVal);
}

HRESULT dateRule(const Scalar& in, const ConversionContext& ctx, VARIANT* out) {
  if (in.kind == SourceKind::Text) {
    const LocaleInfo* locale;
    HRESULT hr = ctx.locale(&locale);
    if (FAILED(hr)) return hr;
    return ParseDate(in.text ? in.text : u"", *locale, ctx.dateForm, &out->date);
  }
  double d;
  HRESULT hr = ScalarToDouble(in, ctx, &d);
  if (FAILED(hr)) return hr;
  if (!DateInRange(d)) return DISP_E_OVERFLOW;
  out->date = d;
  return S_OK;
}

HRESULT currencyRule(const Scalar& in, const ConversionContext& ctx, VARIANT* out) {
  constexpr Int128 kMin = std::numeric_limits<int64_t>::min();
  constexpr Int128 kMax = std::numeric_limits<int64_t>::max();
  Int128 v = 0;
  switch (in.kind) {
    case SourceKind::Empty: break;
    case SourceKind::Signed:
    case SourceKind::Bool: v = static_cast<Int128>(in.i) * 10000; break;
    case SourceKind::Unsigned: v = static_cast<Int128>(in.u) * 10000; break;
    case SourceKind::Real4:
    case SourceKind::Real8:
    case SourceKind::Date: {
      // Scaled in double precision first, as the platform does.
      HRESULT hr = roundDouble(in.d * 10000.0, &v);
      if (FAILED(hr)) return hr;
      break;
    }
    case SourceKind::Currency: v = in.i; break;
    case SourceKind::Decimal: {
      HRESULT hr = CheckDecimal(in.dec);
      if (FAILED(hr)) return hr;
      ExactDecimal e = FromDecimal(in.dec);
      UInt128 m = e.scale <= 4 ? e.mantissa * Pow10(4 - e.scale) : DropDigits(e.mantissa, e.scale - 4);
      v = withSign(e.negative, m);
      break;
    }
    case SourceKind::Text: {
      ParsedNumber p;
      HRESULT hr = parseText(in.text, ctx, &p);
      if (FAILED(hr)) return hr;
      if (p.radix) {
        v = radixAsSigned(p.radixValue) * 10000;
        break;
      }
      UInt128 m;
      hr = RoundParsed(p, 4, &m);
      if (FAILED(hr)) return hr;
      v = withSign(p.negative, m);
      break;
    }
  }
  if (v < kMin || v > kMax) return DISP_E_OVERFLOW;
  out->cyVal.int64 = static_cast<int64_t>(v);
  return S_OK;
}

HRESULT decimalRule(const Scalar& in, const ConversionContext& ctx, VARIANT* out) {
  ExactDecimal e;
  HRESULT hr = ScalarToExact(in, ctx, &e);
  if (FAILED(hr)) return hr;
  ToDecimal(e, &out->decVal);
  return S_OK;
}

HRESULT boolRule(const Scalar& in, const ConversionContext& ctx, VARIANT* out) {
  bool value = false;
  switch (in.kind) {
    case SourceKind::Empty: break;
    case SourceKind::Signed:
    case SourceKind::Bool:
    case SourceKind::Currency: value = in.i != 0; break;
    case SourceKind::Unsigned: value = in.u != 0; break;
    case SourceKind::Real4:
    case SourceKind::Real8:
    case SourceKind::Date: value = in.d != 0.0; break;
    case SourceKind::Decimal: {
      HRESULT hr = CheckDecimal(in.dec);
      if (FAILED(hr)) return hr;
      value = FromDecimal(in.dec).mantissa != 0;
      break;
    }
    case SourceKind::Text: return TextToBool(in.text, ctx, &out->boolVal);
  }
  out->boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

HRESULT textRule(const Scalar& in, const ConversionContext& ctx, VARIANT* out) {
  return ScalarToText(in, ctx, &out->bstrVal);
}

struct TargetRule {
  VARTYPE vt;
  ScalarRule rule;
};

constexpr TargetRule kTargetRules[] = {
    {VT_I1, &integerRule<int8_t, CHAR, &VARIANT::cVal>},
    {VT_UI1, &integerRule<uint8_t, BYTE, &VARIANT::bVal>},
    {VT_I2, &integerRule<int16_t, SHORT, &VARIANT::iVal>},
    {VT_UI2, &integerRule<uint16_t, USHORT, &VARIANT::uiVal>},
    {VT_I4, &integerRule<int32_t, LONG, &VARIANT::lVal>},
    {VT_UI4, &integerRule<uint32_t, ULONG, &VARIANT::ulVal>},
    {VT_INT, &integerRule<int32_t, INT, &VARIANT::intVal>},
    {VT_UINT, &integerRule<uint32_t, UINT, &VARIANT::uintVal>},
    {VT_I8, &integerRule<int64_t, LONGLONG, &VARIANT::llVal>},
    {VT_UI8, &integerRule<uint64_t, ULONGLONG, &VARIANT::ullVal>},
    {VT_R4, &real4Rule},
    {VT_R8, &real8Rule},
    {VT_DATE, &dateRule},
    {VT_CY, &currencyRule},
    {VT_DECIMAL, &decimalRule},
    {VT_BOOL, &boolRule},
    {VT_BSTR, &textRule},
};

}  // namespace

ScalarRule FindScalarRule(VARTYPE vt) {
  for (const TargetRule& r : kTargetRules)
    if (r.vt == vt) return r.rule;
  return nullptr;
}

bool ReadScalar(const VARIANT& v, Scalar* out) {
  *out = Scalar();
  switch (v.vt) {
    case VT_EMPTY: out->kind = SourceKind::Empty; return true;
    case VT_I1: out->kind = SourceKind::Signed, out->i = static_cast<int8_t>(v.cVal); return true;
    case VT_I2: out->kind = SourceKind::Signed, out->i = v.iVal; return true;
    case VT_I4: out->kind = SourceKind::Signed, out->i = v.lVal; return true;
    case VT_INT: out->kind = SourceKind::Signed, out->i = v.intVal; return true;
    case VT_I8: out->kind = SourceKind::Signed, out->i = v.llVal; return true;
    case VT_UI1: out->kind = SourceKind::Unsigned, out->u = v.bVal; return true;
    case VT_UI2: out->kind = SourceKind::Unsigned, out->u = v.uiVal; return true;
    case VT_UI4: out->kind = SourceKind::Unsigned, out->u = v.ulVal; return true;
    case VT_UINT: out->kind = SourceKind::Unsigned, out->u = v.uintVal; return true;
    case VT_UI8: out->kind = SourceKind::Unsigned, out->u = v.ullVal; return true;
    case VT_BOOL: out->kind = SourceKind::Bool, out->i = v.boolVal; return true;
    case VT_R4: out->kind = SourceKind::Real4, out->d = v.fltVal; return true;
    case VT_R8: out->kind = SourceKind::Real8, out->d = v.dblVal; return true;
    case VT_DATE: out->kind = SourceKind::Date, out->d = v.date; return true;
    case VT_CY: out->kind = SourceKind::Currency, out->i = v.cyVal.int64; return true;
    case VT_DECIMAL: out->kind = SourceKind::Decimal, out->dec = v.decVal; return true;
    case VT_BSTR: out->kind = SourceKind::Text, out->text = v.bstrVal; return true;
    default: return false;
  }
}

HRESULT ScalarToDouble(const Scalar& in, const ConversionContext& ctx, double* out) {
  switch (in.kind) {
    case SourceKind::Empty: *out = 0.0; return S_OK;
    case SourceKind::Signed:
    case SourceKind::Bool: *out = static_cast<double>(in.i); return S_OK;
    case SourceKind::Unsigned: *out = static_cast<double>(in.u); return S_OK;
    case SourceKind::Real4:
    case SourceKind::Real8:
    case SourceKind::Date: *out = in.d; return S_OK;
    case SourceKind::Currency: *out = static_cast<double>(in.i) / 10000.0; return S_OK;
    case SourceKind::Decimal: {
      HRESULT hr = CheckDecimal(in.dec);
      if (FAILED(hr)) return hr;
      *out = ExactToDouble(FromDecimal(in.dec));
      return S_OK;
    }
    case SourceKind::Text: {
      ParsedNumber p;
      HRESULT hr = parseText(in.text, ctx, &p);
      if (FAILED(hr)) return hr;
      if (p.radix) {
        *out = static_cast<double>(radixAsSigned(p.radixValue));
        return S_OK;
      }
      return ParsedToDouble(p, out);
    }
  }
  return DISP_E_TYPEMISMATCH;
}

HRESULT ScalarToExact(const Scalar& in, const ConversionContext& ctx, ExactDecimal* out) {
  *out = ExactDecimal();
  switch (in.kind) {
    case SourceKind::Empty: return S_OK;
    case SourceKind::Signed:
    case SourceKind::Bool:
      out->negative = in.i < 0;
      out->mantissa = out->negative ? static_cast<UInt128>(-static_cast<Int128>(in.i)) : static_cast<UInt128>(in.i);
      return S_OK;
    case SourceKind::Unsigned: out->mantissa = in.u; return S_OK;
    case SourceKind::Real4: return DoubleToDecimal(in.d, kReal4Digits, out);
    case SourceKind::Real8:
    case SourceKind::Date: return DoubleToDecimal(in.d, kReal8Digits, out);
    case SourceKind::Currency:
      out->negative = in.i < 0;
      out->mantissa = out->negative ? static_cast<UInt128>(-static_cast<Int128>(in.i)) : static_cast<UInt128>(in.i);
      out->scale = 4;
      return S_OK;
    case SourceKind::Decimal: {
      HRESULT hr = CheckDecimal(in.dec);
      if (FAILED(hr)) return hr;
      *out = FromDecimal(in.dec);
      if (out->mantissa == 0) out->negative = false;
      return S_OK;
    }
    case SourceKind::Text: {
      ParsedNumber p;
      HRESULT hr = parseText(in.text, ctx, &p);
      if (FAILED(hr)) return hr;
      if (p.radix) {
        Int128 v = radixAsSigned(p.radixValue);
        out->negative = v < 0;
        out->mantissa = static_cast<UInt128>(v < 0 ? -v : v);
        return S_OK;
      }
      return ParsedToDecimal(p, out);
    }
  }
  return DISP_E_TYPEMISMATCH;
}

}  // namespace veltrane::platform::detail
