// VariantChangeType(Ex): validates the types, dereferences the source,
// converts into a temporary through the rule of the target type, and only
// then replaces the destination, so that a failed conversion leaves it as
// it was and the destination may be the source.
#include "platform/internal/variant_convert.h"
#include "platform/oaidl.h"

#include <cstring>

namespace veltrane::platform::detail {
namespace {

// Types VariantChangeTypeEx accepts on either side: the base types up to
// VT_UINT (but not 15), records and VT_CLSID; VT_ARRAY and VT_BYREF only
// with a real type; never VT_VECTOR or VT_RESERVED.
HRESULT validateChangeType(VARTYPE vt) {
  const VARTYPE extra = vt & ~VT_TYPEMASK;
  const VARTYPE base = vt & VT_TYPEMASK;
  if (extra & (VT_VECTOR | VT_RESERVED)) return DISP_E_BADVARTYPE;
  if (!(base < VT_VOID || base == VT_RECORD || base == VT_CLSID)) return DISP_E_BADVARTYPE;
  if ((extra & (VT_BYREF | VT_ARRAY)) && base <= VT_NULL) return DISP_E_BADVARTYPE;
  if (base == 15) return DISP_E_BADVARTYPE;
  return S_OK;
}

VARTYPE normalized(VARTYPE vt) {
  if (vt == VT_INT) return VT_I4;
  if (vt == VT_UINT) return VT_UI4;
  return vt;
}

// The width in bytes when `from` and `to` (normalized) are the signed and
// unsigned integers of one width, else 0. VT_I8 and VT_UI8 are not a pair:
// they convert by value.
size_t sharedIntegerWidth(VARTYPE from, VARTYPE to) {
  static const struct {
    VARTYPE signedType;
    VARTYPE unsignedType;
    size_t bytes;
  } kPairs[] = {{VT_I1, VT_UI1, 1}, {VT_I2, VT_UI2, 2}, {VT_I4, VT_UI4, 4}};
  for (const auto& pair : kPairs)
    if ((from == pair.signedType && to == pair.unsignedType) || (from == pair.unsignedType && to == pair.signedType))
      return pair.bytes;
  return 0;
}

// Value property conversions that call back into VariantChangeTypeEx stop
// at this depth (an object whose value is itself).
constexpr int kMaxValueDepth = 8;
thread_local int t_valueDepth = 0;

HRESULT fromDispatch(IDispatch* dispatch, LCID lcid, USHORT flags, VARTYPE vt, VARIANT* result) {
  if (!dispatch) return DISP_E_BADVARTYPE;
  if (flags & VARIANT_NOVALUEPROP) return DISP_E_TYPEMISMATCH;
  if (t_valueDepth >= kMaxValueDepth) return DISP_E_TYPEMISMATCH;
  DISPPARAMS none = {nullptr, nullptr, 0, 0};
  VARIANT value;
  VariantInit(&value);
  HRESULT hr = dispatch->Invoke(DISPID_VALUE, IID_NULL, lcid, DISPATCH_PROPERTYGET, &none, &value, nullptr, nullptr);
  if (FAILED(hr)) {
    VariantClear(&value);
    return DISP_E_TYPEMISMATCH;
  }
  ++t_valueDepth;
  hr = VariantChangeTypeEx(result, &value, lcid, flags, vt);
  --t_valueDepth;
  VariantClear(&value);
  return hr;
}

HRESULT queryInterface(IUnknown* unknown, REFIID iid, void** out) {
  *out = nullptr;
  if (!unknown) return S_OK;
  return SUCCEEDED(unknown->QueryInterface(iid, out)) ? S_OK : DISP_E_TYPEMISMATCH;
}

HRESULT coerceArray(const VARIANT& src, VARTYPE vt, VARIANT* result) {
  if (vt == VT_BSTR && src.vt == (VT_ARRAY | VT_UI1)) {
    HRESULT hr = BstrFromVector(src.parray, &result->bstrVal);
    if (SUCCEEDED(hr)) result->vt = VT_BSTR;
    return hr;
  }
  if (src.vt == VT_BSTR && vt == (VT_ARRAY | VT_UI1)) {
    HRESULT hr = VectorFromBstr(src.bstrVal, &result->parray);
    if (SUCCEEDED(hr)) result->vt = vt;
    return hr;
  }
  if (src.vt == vt) return VariantCopy(result, &src);
  return DISP_E_TYPEMISMATCH;
}

// Converts a dereferenced, non-array source into `result` (VT_EMPTY on entry).
HRESULT coerce(const VARIANT& src, LCID lcid, USHORT flags, VARTYPE vt, VARIANT* result) {
  const VARTYPE from = normalized(src.vt);
  const VARTYPE to = normalized(vt);
  if (from == to) {
    HRESULT hr = VariantCopy(result, &src);
    if (SUCCEEDED(hr)) result->vt = vt;
    return hr;
  }
  // Anything but a null, an error value or a record clears to VT_EMPTY or
  // VT_NULL; a null does not become empty.
  const bool clearable = from <= VT_UINT && from != 15 && from != VT_ERROR;
  switch (to) {
    case VT_EMPTY:
      if (from == VT_NULL || !clearable) return DISP_E_TYPEMISMATCH;
      result->vt = VT_EMPTY;
      return S_OK;
    case VT_NULL:
      if (!clearable) return DISP_E_TYPEMISMATCH;
      result->vt = VT_NULL;
      return S_OK;
    case VT_DISPATCH:
      if (from != VT_UNKNOWN) return DISP_E_TYPEMISMATCH;
      {
        HRESULT hr = queryInterface(src.punkVal, IID_IDispatch, reinterpret_cast<void**>(&result->pdispVal));
        if (SUCCEEDED(hr)) result->vt = VT_DISPATCH;
        return hr;
      }
    case VT_UNKNOWN:
      if (from != VT_DISPATCH) return DISP_E_TYPEMISMATCH;
      {
        HRESULT hr = queryInterface(src.pdispVal, IID_IUnknown, reinterpret_cast<void**>(&result->punkVal));
        if (SUCCEEDED(hr)) result->vt = VT_UNKNOWN;
        return hr;
      }
    default: break;
  }

  if (const size_t bytes = sharedIntegerWidth(from, to)) {
    // The bits carry over, so VT_I1 -1 becomes VT_UI1 255; the typed
    // functions (VarUI1FromI1) overflow instead.
    result->ullVal = 0;
    std::memcpy(&result->cVal, &src.cVal, bytes);
    result->vt = vt;
    return S_OK;
  }

  ScalarRule rule = FindScalarRule(vt);
  if (!rule) return DISP_E_TYPEMISMATCH;
  if (from == VT_DISPATCH) return fromDispatch(src.pdispVal, lcid, flags, vt, result);

  Scalar in;
  if (!ReadScalar(src, &in)) return DISP_E_TYPEMISMATCH;
  ConversionContext ctx;
  ctx.lcid = lcid;
  ctx.alphaBool = (flags & VARIANT_ALPHABOOL) != 0;
  ctx.localBool = (flags & VARIANT_LOCALBOOL) != 0;
  if (flags & VARIANT_USE_NLS) ctx.dateForm = DateTextForm::DateAndTime;

  VARIANT value;
  VariantInit(&value);
  HRESULT hr = rule(in, ctx, &value);
  if (FAILED(hr)) return hr;
  value.vt = vt;  // after the rule: a DECIMAL covers the vt field
  *result = value;
  return S_OK;
}

}  // namespace
}  // namespace veltrane::platform::detail

using namespace veltrane::platform::detail;

extern "C" {

HRESULT VariantChangeTypeEx(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, LCID lcid, USHORT wFlags, VARTYPE vt) {
  if (!pvargDest || !pvarSrc) return E_INVALIDARG;
  if (vt == VT_CLSID) return DISP_E_BADVARTYPE;
  HRESULT hr = validateChangeType(pvarSrc->vt);
  if (SUCCEEDED(hr)) hr = validateChangeType(vt);
  if (FAILED(hr)) return hr;
  if ((pvarSrc->vt & VT_BYREF) && !pvarSrc->byref) return DISP_E_TYPEMISMATCH;

  VARIANT source;
  VariantInit(&source);
  hr = VariantCopyInd(&source, pvarSrc);
  if (FAILED(hr)) return hr;

  VARIANT result;
  VariantInit(&result);
  if ((source.vt & VT_ARRAY) || (vt & VT_ARRAY))
    hr = coerceArray(source, vt, &result);
  else
    hr = coerce(source, lcid, wFlags, vt, &result);
  VariantClear(&source);
  if (FAILED(hr)) return hr;

  hr = VariantClear(pvargDest);
  if (FAILED(hr)) {
    VariantClear(&result);
    return hr;
  }
  *pvargDest = result;
  return S_OK;
}

HRESULT VariantChangeType(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, USHORT wFlags, VARTYPE vt) {
  return VariantChangeTypeEx(pvargDest, pvarSrc, GetThreadLocale(), wFlags, vt);
}

HRESULT BstrFromVector(SAFEARRAY* psa, BSTR* pbstr) {
  if (!pbstr) return E_INVALIDARG;
  *pbstr = nullptr;
  if (!psa || psa->cDims != 1 || psa->cbElements != 1) return E_INVALIDARG;
  void* data = nullptr;
  HRESULT hr = SafeArrayAccessData(psa, &data);
  if (FAILED(hr)) return hr;
  *pbstr = SysAllocStringByteLen(static_cast<const char*>(data), psa->rgsabound[0].cElements);
  SafeArrayUnaccessData(psa);
  return *pbstr ? S_OK : E_OUTOFMEMORY;
}

HRESULT VectorFromBstr(BSTR bstr, SAFEARRAY** ppsa) {
  if (!ppsa) return E_INVALIDARG;
  *ppsa = nullptr;
  const ULONG bytes = SysStringByteLen(bstr);
  SAFEARRAY* psa = SafeArrayCreateVector(VT_UI1, 0, bytes);
  if (!psa) return E_OUTOFMEMORY;
  if (bytes) {
    void* data = nullptr;
    HRESULT hr = SafeArrayAccessData(psa, &data);
    if (FAILED(hr)) {
      SafeArrayDestroy(psa);
      return hr;
    }
    std::memcpy(data, bstr, bytes);
    SafeArrayUnaccessData(psa);
  }
  *ppsa = psa;
  return S_OK;
}

}  // extern "C"
