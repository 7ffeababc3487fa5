// Comparisons: VarCmp over variants, VarBstrCmp over texts, VarDecCmp.
//
// VarCmp: VT_NULL on either side gives VARCMP_NULL; two texts compare as
// texts (VarBstrCmp with the locale and flags); VT_EMPTY against a text is
// the empty text; a text against a number is always the greater; numbers
// compare by value across all numeric types, VT_BOOL and VT_DATE included,
// exactly when a DECIMAL, a currency or two integers meet, at float
// precision when one side is a VT_R4.
#include "platform/internal/variant_convert.h"

#include <charconv>
#include <cstring>

namespace veltrane::platform::detail {
namespace {

constexpr ULONG kIgnoreKashida = 0x00040000;  // Arabic elongation: nothing to ignore in these locales
constexpr ULONG kCompareFlags = NORM_IGNORECASE | NORM_IGNORENONSPACE | NORM_IGNORESYMBOLS | NORM_IGNOREWIDTH |
                                NORM_IGNOREKANATYPE | kIgnoreKashida;

HRESULT result(int order) { return order < 0 ? VARCMP_LT : (order > 0 ? VARCMP_GT : VARCMP_EQ); }

template <class T>
int order(T a, T b) {
  return a < b ? -1 : (b < a ? 1 : 0);
}

bool isText(VARTYPE vt) { return vt == VT_BSTR; }

// Numbers as a wide integer scaled by 10,000 when both sides allow it.
bool scaledInteger(const Scalar& s, Int128* out) {
  switch (s.kind) {
    case SourceKind::Empty: *out = 0; return true;
    case SourceKind::Signed:
    case SourceKind::Bool: *out = static_cast<Int128>(s.i) * 10000; return true;
    case SourceKind::Unsigned: *out = static_cast<Int128>(s.u) * 10000; return true;
    case SourceKind::Currency: *out = s.i; return true;
    default: return false;
  }
}

// A number rounded once to the nearest float: integers and currency from
// their exact value, not through a double (which could round a second time).
float nearestFloat(const Scalar& s, double widened) {
  switch (s.kind) {
    case SourceKind::Signed:
    case SourceKind::Bool: return static_cast<float>(s.i);
    case SourceKind::Unsigned: return static_cast<float>(s.u);
    case SourceKind::Currency: {
      char text[32];
      auto end = std::to_chars(text, text + sizeof text - 3, s.i).ptr;
      std::memcpy(end, "e-4", 3);
      float f = 0.0f;
      std::from_chars(text, end + 3, f);
      return f;
    }
    default: return static_cast<float>(widened);
  }
}

HRESULT compareNumbers(const Scalar& left, const Scalar& right) {
  ConversionContext ctx;
  const bool decimal = left.kind == SourceKind::Decimal || right.kind == SourceKind::Decimal;
  const bool real = left.kind == SourceKind::Real4 || left.kind == SourceKind::Real8 || left.kind == SourceKind::Date ||
                    right.kind == SourceKind::Real4 || right.kind == SourceKind::Real8 ||
                    right.kind == SourceKind::Date;
  if (decimal) {
    ExactDecimal a, b;
    HRESULT ha = ScalarToExact(left, ctx, &a);
    HRESULT hb = ScalarToExact(right, ctx, &b);
    if (ha == E_INVALIDARG || hb == E_INVALIDARG) return E_INVALIDARG;
    if (SUCCEEDED(ha) && SUCCEEDED(hb)) return result(CompareExact(a, b));
    // A double beyond the DECIMAL range is larger than any DECIMAL.
    double x, y;
    ScalarToDouble(left, ctx, &x);
    ScalarToDouble(right, ctx, &y);
    return result(order(x, y));
  }
  if (real) {
    double x, y;
    ScalarToDouble(left, ctx, &x);
    ScalarToDouble(right, ctx, &y);
    // A float makes it a comparison of floats: 0.1f equals the double 0.1.
    if (left.kind == SourceKind::Real4 || right.kind == SourceKind::Real4)
      return result(order(nearestFloat(left, x), nearestFloat(right, y)));
    return result(order(x, y));
  }
  Int128 x, y;
  scaledInteger(left, &x);
  scaledInteger(right, &y);
  return result(order(x, y));
}

}  // namespace
}  // namespace veltrane::platform::detail

using namespace veltrane::platform::detail;

extern "C" {

HRESULT VarBstrCmp(BSTR bstrLeft, BSTR bstrRight, LCID lcid, ULONG dwFlags) {
  // Texts are their stored lengths, null characters included; a null BSTR
  // is empty.
  const bool leftEmpty = SysStringByteLen(bstrLeft) == 0;
  const bool rightEmpty = SysStringByteLen(bstrRight) == 0;
  if (leftEmpty || rightEmpty) return leftEmpty && rightEmpty ? VARCMP_EQ : (leftEmpty ? VARCMP_LT : VARCMP_GT);

  if (lcid == 0) {
    // Byte by byte over the stored length; at equal prefix the shorter first.
    const UINT leftBytes = SysStringByteLen(bstrLeft);
    const UINT rightBytes = SysStringByteLen(bstrRight);
    int r = std::memcmp(bstrLeft, bstrRight, leftBytes < rightBytes ? leftBytes : rightBytes);
    if (r) return r < 0 ? VARCMP_LT : VARCMP_GT;
    return result(order(leftBytes, rightBytes));
  }
  if (dwFlags & ~kCompareFlags) return E_INVALIDARG;
  const LocaleInfo* locale;
  HRESULT hr = LookupLocale(lcid, &locale);
  if (FAILED(hr)) return hr;
  return result(CollateCompare(*locale, bstrLeft, SysStringLen(bstrLeft), bstrRight, SysStringLen(bstrRight), dwFlags));
}

HRESULT VarCmp(LPVARIANT pvarLeft, LPVARIANT pvarRight, LCID lcid, ULONG dwFlags) {
  if (!pvarLeft || !pvarRight) return E_INVALIDARG;
  const VARTYPE lvt = pvarLeft->vt & ~VT_RESERVED;
  const VARTYPE rvt = pvarRight->vt & ~VT_RESERVED;
  // References and arrays are not compared; nor are types beyond VT_UINT.
  if ((lvt | rvt) & ~VT_TYPEMASK) return DISP_E_BADVARTYPE;
  if (lvt > VT_UINT || rvt > VT_UINT || lvt == 15 || rvt == 15) return DISP_E_BADVARTYPE;
  auto isObject = [](VARTYPE vt) { return vt == VT_DISPATCH || vt == VT_UNKNOWN || vt == VT_VARIANT; };
  if (isObject(lvt) || isObject(rvt)) return DISP_E_TYPEMISMATCH;
  if (lvt == VT_NULL || rvt == VT_NULL) return VARCMP_NULL;
  if (lvt == VT_ERROR || rvt == VT_ERROR) {
    if (lvt != rvt) return DISP_E_TYPEMISMATCH;
    return result(order(pvarLeft->scode, pvarRight->scode));
  }

  if (isText(lvt) || isText(rvt)) {
    if (isText(lvt) && isText(rvt)) return VarBstrCmp(pvarLeft->bstrVal, pvarRight->bstrVal, lcid, dwFlags);
    if (lvt == VT_EMPTY) return VarBstrCmp(nullptr, pvarRight->bstrVal, lcid, dwFlags);
    if (rvt == VT_EMPTY) return VarBstrCmp(pvarLeft->bstrVal, nullptr, lcid, dwFlags);
    // A text is greater than any number.
    return isText(lvt) ? VARCMP_GT : VARCMP_LT;
  }

  VARIANT left = *pvarLeft, right = *pvarRight;
  left.vt = lvt;
  right.vt = rvt;
  Scalar a, b;
  if (!ReadScalar(left, &a) || !ReadScalar(right, &b)) return DISP_E_TYPEMISMATCH;
  return compareNumbers(a, b);
}

HRESULT VarDecCmp(const DECIMAL* pdecLeft, const DECIMAL* pdecRight) {
  if (!pdecLeft || !pdecRight) return E_INVALIDARG;
  if (FAILED(CheckDecimal(*pdecLeft)) || FAILED(CheckDecimal(*pdecRight))) return E_INVALIDARG;
  return result(CompareExact(FromDecimal(*pdecLeft), FromDecimal(*pdecRight)));
}

}  // extern "C"
