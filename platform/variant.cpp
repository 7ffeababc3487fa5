// VARIANT life cycle: init, clear, copy, copy with indirection.
#include "platform/internal_variant.h"
#include "platform/oaidl.h"

#include <cstring>

namespace veltrane::platform::detail {

HRESULT ValidateVariantType(VARTYPE vt) {
  const VARTYPE base = vt & VT_TYPEMASK;
  const VARTYPE flags = vt & ~VT_TYPEMASK;
  if (flags & ~(VT_ARRAY | VT_BYREF)) return DISP_E_BADVARTYPE;
  if (flags && (base == VT_EMPTY || base == VT_NULL)) return DISP_E_BADVARTYPE;
  switch (base) {
    case VT_EMPTY:
    case VT_NULL:
    case VT_I2:
    case VT_I4:
    case VT_R4:
    case VT_R8:
    case VT_CY:
    case VT_DATE:
    case VT_BSTR:
    case VT_DISPATCH:
    case VT_ERROR:
    case VT_BOOL:
    case VT_UNKNOWN:
    case VT_DECIMAL:
    case VT_I1:
    case VT_UI1:
    case VT_UI2:
    case VT_UI4:
    case VT_I8:
    case VT_UI8:
    case VT_INT:
    case VT_UINT: return S_OK;
    case VT_VARIANT: return flags ? S_OK : DISP_E_BADVARTYPE;
    case VT_RECORD:  // records need IRecordInfo, which this layer does not offer
    default: return DISP_E_BADVARTYPE;
  }
}

}  // namespace veltrane::platform::detail

using veltrane::platform::detail::ValidateVariantType;

extern "C" {

void VariantInit(VARIANTARG* pvarg) {
  if (!pvarg) return;
  pvarg->vt = VT_EMPTY;
  pvarg->wReserved1 = pvarg->wReserved2 = pvarg->wReserved3 = 0;
}

HRESULT VariantClear(VARIANTARG* pvarg) {
  if (!pvarg) return E_INVALIDARG;
  HRESULT hr = ValidateVariantType(pvarg->vt);
  if (FAILED(hr)) return hr;
  if (!(pvarg->vt & VT_BYREF)) {
    if (pvarg->vt & VT_ARRAY) {
      hr = SafeArrayDestroy(pvarg->parray);
      if (FAILED(hr)) return hr;
    } else {
      switch (pvarg->vt) {
        case VT_BSTR: SysFreeString(pvarg->bstrVal); break;
        case VT_DISPATCH:
        case VT_UNKNOWN:
          if (pvarg->punkVal) pvarg->punkVal->Release();
          break;
        default: break;
      }
    }
  }
  pvarg->vt = VT_EMPTY;
  return S_OK;
}

HRESULT VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc) {
  if (!pvargDest || !pvargSrc) return E_INVALIDARG;
  HRESULT hr = ValidateVariantType(pvargSrc->vt);
  if (FAILED(hr)) return hr;
  if (pvargDest == pvargSrc) return S_OK;
  hr = VariantClear(pvargDest);
  if (FAILED(hr)) return hr;
  const VARTYPE vt = pvargSrc->vt;
  if (vt & VT_BYREF) {
    *pvargDest = *pvargSrc;
    return S_OK;
  }
  if (vt & VT_ARRAY) {
    SAFEARRAY* copy = nullptr;
    if (pvargSrc->parray) {
      hr = SafeArrayCopy(pvargSrc->parray, &copy);
      if (FAILED(hr)) return hr;
    }
    pvargDest->vt = vt;
    pvargDest->parray = copy;
    return S_OK;
  }
  switch (vt) {
    case VT_BSTR: {
      BSTR copy = nullptr;
      if (pvargSrc->bstrVal) {
        copy = SysAllocStringByteLen(reinterpret_cast<const char*>(pvargSrc->bstrVal),
                                     SysStringByteLen(pvargSrc->bstrVal));
        if (!copy) return E_OUTOFMEMORY;
      }
      pvargDest->vt = VT_BSTR;
      pvargDest->bstrVal = copy;
      return S_OK;
    }
    case VT_DISPATCH:
    case VT_UNKNOWN:
      *pvargDest = *pvargSrc;
      if (pvargDest->punkVal) pvargDest->punkVal->AddRef();
      return S_OK;
    default: *pvargDest = *pvargSrc; return S_OK;
  }
}

HRESULT VariantCopyInd(VARIANT* pvarDest, const VARIANTARG* pvargSrc) {
  if (!pvarDest || !pvargSrc) return E_INVALIDARG;
  if (!(pvargSrc->vt & VT_BYREF)) return VariantCopy(pvarDest, pvargSrc);
  HRESULT hr = ValidateVariantType(pvargSrc->vt);
  if (FAILED(hr)) return hr;
  if (!pvargSrc->byref) return E_INVALIDARG;

  // Build the dereferenced value in a temporary, so that in-place works.
  VARIANT value;
  VariantInit(&value);
  const VARTYPE vt = pvargSrc->vt & ~VT_BYREF;
  if (vt == VT_VARIANT) {
    const VARIANT* inner = pvargSrc->pvarVal;
    if (inner->vt == (VT_VARIANT | VT_BYREF)) return E_INVALIDARG;
    hr = VariantCopyInd(&value, inner);
    if (FAILED(hr)) return hr;
  } else if (vt & VT_ARRAY) {
    SAFEARRAY* copy = nullptr;
    if (*pvargSrc->pparray) {
      hr = SafeArrayCopy(*pvargSrc->pparray, &copy);
      if (FAILED(hr)) return hr;
    }
    value.vt = vt;
    value.parray = copy;
  } else {
    value.vt = vt;
    switch (vt) {
      case VT_I1:
      case VT_UI1: value.bVal = *pvargSrc->pbVal; break;
      case VT_I2:
      case VT_UI2:
      case VT_BOOL: value.iVal = *pvargSrc->piVal; break;
      case VT_I4:
      case VT_UI4:
      case VT_INT:
      case VT_UINT:
      case VT_ERROR:
      case VT_R4: std::memcpy(&value.lVal, pvargSrc->byref, 4); break;
      case VT_I8:
      case VT_UI8:
      case VT_R8:
      case VT_DATE:
      case VT_CY: std::memcpy(&value.llVal, pvargSrc->byref, 8); break;
      case VT_DECIMAL:
        value.decVal = *pvargSrc->pdecVal;
        value.vt = VT_DECIMAL;
        break;
      case VT_BSTR: {
        BSTR src = *pvargSrc->pbstrVal;
        value.bstrVal = nullptr;
        if (src) {
          value.bstrVal = SysAllocStringByteLen(reinterpret_cast<const char*>(src), SysStringByteLen(src));
          if (!value.bstrVal) return E_OUTOFMEMORY;
        }
        break;
      }
      case VT_DISPATCH:
      case VT_UNKNOWN:
        value.punkVal = *pvargSrc->ppunkVal;
        if (value.punkVal) value.punkVal->AddRef();
        break;
      default: return DISP_E_BADVARTYPE;
    }
  }
  if (pvarDest != pvargSrc) {
    hr = VariantClear(pvarDest);
    if (FAILED(hr)) {
      VariantClear(&value);
      return hr;
    }
  }
  *pvarDest = value;
  return S_OK;
}

}  // extern "C"
