// SAFEARRAY: descriptors with bounds stored in reverse dimension order,
// column-major data (the first index varies fastest), locks, deep copies.
#include "platform/internal_variant.h"
#include "platform/oaidl.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// A descriptor is preceded by 16 bytes; the element VARTYPE sits in the four
// bytes right before it, as on the platform.
constexpr size_t kHeader = 16;

size_t descriptorSize(UINT cDims) { return sizeof(SAFEARRAY) + (cDims - 1) * sizeof(SAFEARRAYBOUND); }

VARTYPE* vartypeSlot(SAFEARRAY* psa) {
  return reinterpret_cast<VARTYPE*>(reinterpret_cast<char*>(psa) - sizeof(DWORD));
}

USHORT featuresFor(VARTYPE vt) {
  switch (vt) {
    case VT_BSTR: return FADF_BSTR | FADF_HAVEVARTYPE;
    case VT_UNKNOWN: return FADF_UNKNOWN | FADF_HAVEVARTYPE;
    case VT_DISPATCH: return FADF_DISPATCH | FADF_HAVEVARTYPE;
    case VT_VARIANT: return FADF_VARIANT | FADF_HAVEVARTYPE;
    default: return FADF_HAVEVARTYPE;
  }
}

bool totalCells(const SAFEARRAY* psa, size_t* cells) {
  size_t n = 1;
  for (USHORT i = 0; i < psa->cDims; ++i) {
    const size_t c = psa->rgsabound[i].cElements;
    if (c != 0 && n > SIZE_MAX / c) return false;
    n *= c;
  }
  *cells = n;
  return true;
}

size_t cellCount(const SAFEARRAY* psa) {
  size_t n = 0;
  return totalCells(psa, &n) ? n : 0;
}

void destroyCells(SAFEARRAY* psa, size_t first, size_t count) {
  if (!psa->pvData) return;
  char* data = static_cast<char*>(psa->pvData) + first * psa->cbElements;
  if (psa->fFeatures & FADF_BSTR) {
    auto* items = reinterpret_cast<BSTR*>(data);
    for (size_t i = 0; i < count; ++i) {
      SysFreeString(items[i]);
      items[i] = nullptr;
    }
  } else if (psa->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
    auto* items = reinterpret_cast<IUnknown**>(data);
    for (size_t i = 0; i < count; ++i) {
      if (items[i]) items[i]->Release();
      items[i] = nullptr;
    }
  } else if (psa->fFeatures & FADF_VARIANT) {
    auto* items = reinterpret_cast<VARIANT*>(data);
    for (size_t i = 0; i < count; ++i) VariantClear(&items[i]);
  }
}

// Copies count cells from src into zeroed cells of dst.
HRESULT copyCells(const SAFEARRAY* src, SAFEARRAY* dst, size_t count) {
  const char* from = static_cast<const char*>(src->pvData);
  char* to = static_cast<char*>(dst->pvData);
  if (src->fFeatures & FADF_BSTR) {
    auto* in = reinterpret_cast<const BSTR*>(from);
    auto* out = reinterpret_cast<BSTR*>(to);
    for (size_t i = 0; i < count; ++i) {
      if (!in[i]) continue;
      out[i] = SysAllocStringByteLen(reinterpret_cast<const char*>(in[i]), SysStringByteLen(in[i]));
      if (!out[i]) return E_OUTOFMEMORY;
    }
  } else if (src->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
    auto* in = reinterpret_cast<IUnknown* const*>(from);
    auto* out = reinterpret_cast<IUnknown**>(to);
    for (size_t i = 0; i < count; ++i) {
      out[i] = in[i];
      if (out[i]) out[i]->AddRef();
    }
  } else if (src->fFeatures & FADF_VARIANT) {
    auto* in = reinterpret_cast<const VARIANT*>(from);
    auto* out = reinterpret_cast<VARIANT*>(to);
    for (size_t i = 0; i < count; ++i) {
      HRESULT hr = VariantCopy(&out[i], &in[i]);
      if (FAILED(hr)) return hr;
    }
  } else if (count) {
    std::memcpy(to, from, count * src->cbElements);
  }
  return S_OK;
}

HRESULT cellOffset(SAFEARRAY* psa, const LONG* rgIndices, size_t* offset) {
  if (!psa || !rgIndices) return E_INVALIDARG;
  size_t cell = 0, multiplier = 1;
  for (UINT d = 0; d < psa->cDims; ++d) {
    const SAFEARRAYBOUND& b = psa->rgsabound[psa->cDims - 1 - d];
    const int64_t rel = static_cast<int64_t>(rgIndices[d]) - b.lLbound;
    if (rel < 0 || rel >= static_cast<int64_t>(b.cElements)) return DISP_E_BADINDEX;
    cell += static_cast<size_t>(rel) * multiplier;
    multiplier *= b.cElements;
  }
  *offset = cell * psa->cbElements;
  return S_OK;
}

}  // namespace

namespace veltrane::platform::detail {

ULONG SafeArrayElementSize(VARTYPE vt) {
  switch (vt) {
    case VT_I1:
    case VT_UI1: return 1;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL: return 2;
    case VT_I4:
    case VT_UI4:
    case VT_R4:
    case VT_ERROR:
    case VT_INT:
    case VT_UINT: return 4;
    case VT_I8:
    case VT_UI8:
    case VT_R8:
    case VT_CY:
    case VT_DATE: return 8;
    case VT_BSTR:
    case VT_DISPATCH:
    case VT_UNKNOWN: return sizeof(void*);
    case VT_VARIANT: return sizeof(VARIANT);
    case VT_DECIMAL: return sizeof(DECIMAL);
    default: return 0;
  }
}

}  // namespace veltrane::platform::detail

using veltrane::platform::detail::SafeArrayElementSize;

extern "C" {

HRESULT SafeArrayAllocDescriptor(UINT cDims, SAFEARRAY** ppsaOut) {
  if (!ppsaOut || cDims == 0 || cDims > 0xFFFF) return E_INVALIDARG;
  void* block = std::calloc(1, kHeader + descriptorSize(cDims));
  if (!block) return E_OUTOFMEMORY;
  auto* psa = reinterpret_cast<SAFEARRAY*>(static_cast<char*>(block) + kHeader);
  psa->cDims = static_cast<USHORT>(cDims);
  *ppsaOut = psa;
  return S_OK;
}

HRESULT SafeArrayAllocDescriptorEx(VARTYPE vt, UINT cDims, SAFEARRAY** ppsaOut) {
  const ULONG size = SafeArrayElementSize(vt);
  if (!size) return E_INVALIDARG;
  HRESULT hr = SafeArrayAllocDescriptor(cDims, ppsaOut);
  if (FAILED(hr)) return hr;
  (*ppsaOut)->cbElements = size;
  (*ppsaOut)->fFeatures = featuresFor(vt);
  *vartypeSlot(*ppsaOut) = vt;
  return S_OK;
}

HRESULT SafeArrayAllocData(SAFEARRAY* psa) {
  if (!psa) return E_INVALIDARG;
  size_t cells;
  if (!totalCells(psa, &cells) || (psa->cbElements && cells > SIZE_MAX / psa->cbElements)) return E_OUTOFMEMORY;
  psa->pvData = std::calloc(cells ? cells : 1, psa->cbElements ? psa->cbElements : 1);
  return psa->pvData ? S_OK : E_OUTOFMEMORY;
}

SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT cDims, SAFEARRAYBOUND* rgsabound) {
  if (!rgsabound) return nullptr;
  SAFEARRAY* psa = nullptr;
  if (FAILED(SafeArrayAllocDescriptorEx(vt, cDims, &psa))) return nullptr;
  for (UINT i = 0; i < cDims; ++i) psa->rgsabound[cDims - 1 - i] = rgsabound[i];
  if (FAILED(SafeArrayAllocData(psa))) {
    SafeArrayDestroyDescriptor(psa);
    return nullptr;
  }
  return psa;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements) {
  SAFEARRAYBOUND bound{cElements, lLbound};
  return SafeArrayCreate(vt, 1, &bound);
}

HRESULT SafeArrayDestroyData(SAFEARRAY* psa) {
  if (!psa) return E_INVALIDARG;
  if (psa->cLocks) return DISP_E_ARRAYISLOCKED;
  destroyCells(psa, 0, cellCount(psa));
  if (!(psa->fFeatures & (FADF_STATIC | FADF_AUTO | FADF_EMBEDDED))) {
    std::free(psa->pvData);
    psa->pvData = nullptr;
  }
  return S_OK;
}

HRESULT SafeArrayDestroyDescriptor(SAFEARRAY* psa) {
  if (!psa) return S_OK;
  if (psa->cLocks) return DISP_E_ARRAYISLOCKED;
  std::free(reinterpret_cast<char*>(psa) - kHeader);
  return S_OK;
}

HRESULT SafeArrayDestroy(SAFEARRAY* psa) {
  if (!psa) return S_OK;
  if (psa->cLocks) return DISP_E_ARRAYISLOCKED;
  HRESULT hr = SafeArrayDestroyData(psa);
  if (FAILED(hr)) return hr;
  return SafeArrayDestroyDescriptor(psa);
}

HRESULT SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt) {
  if (!psa || !pvt) return E_INVALIDARG;
  if (psa->fFeatures & FADF_HAVEVARTYPE) {
    *pvt = *vartypeSlot(psa);
  } else if (psa->fFeatures & FADF_BSTR) {
    *pvt = VT_BSTR;
  } else if (psa->fFeatures & FADF_UNKNOWN) {
    *pvt = VT_UNKNOWN;
  } else if (psa->fFeatures & FADF_DISPATCH) {
    *pvt = VT_DISPATCH;
  } else if (psa->fFeatures & FADF_VARIANT) {
    *pvt = VT_VARIANT;
  } else {
    return E_INVALIDARG;
  }
  return S_OK;
}

HRESULT SafeArrayCopy(SAFEARRAY* psa, SAFEARRAY** ppsaOut) {
  if (!ppsaOut) return E_INVALIDARG;
  *ppsaOut = nullptr;
  if (!psa) return S_OK;
  HRESULT hr = SafeArrayAllocDescriptor(psa->cDims, ppsaOut);
  if (FAILED(hr)) return hr;
  SAFEARRAY* out = *ppsaOut;
  out->fFeatures = psa->fFeatures & ~(FADF_STATIC | FADF_AUTO | FADF_EMBEDDED);
  out->cbElements = psa->cbElements;
  *vartypeSlot(out) = *vartypeSlot(psa);
  std::memcpy(out->rgsabound, psa->rgsabound, psa->cDims * sizeof(SAFEARRAYBOUND));
  if (!psa->pvData) return S_OK;
  hr = SafeArrayAllocData(out);
  if (SUCCEEDED(hr)) hr = copyCells(psa, out, cellCount(psa));
  if (FAILED(hr)) {
    SafeArrayDestroy(out);
    *ppsaOut = nullptr;
  }
  return hr;
}

HRESULT SafeArrayCopyData(SAFEARRAY* psaSource, SAFEARRAY* psaTarget) {
  if (!psaSource || !psaTarget || psaSource->cDims != psaTarget->cDims ||
      psaSource->cbElements != psaTarget->cbElements)
    return E_INVALIDARG;
  for (USHORT i = 0; i < psaSource->cDims; ++i)
    if (psaSource->rgsabound[i].cElements != psaTarget->rgsabound[i].cElements) return E_INVALIDARG;
  const size_t cells = cellCount(psaSource);
  destroyCells(psaTarget, 0, cells);
  std::memset(psaTarget->pvData, 0, cells * psaTarget->cbElements);
  return copyCells(psaSource, psaTarget, cells);
}

HRESULT SafeArrayRedim(SAFEARRAY* psa, SAFEARRAYBOUND* psaboundNew) {
  if (!psa || !psaboundNew) return E_INVALIDARG;
  if (psa->cLocks) return DISP_E_ARRAYISLOCKED;
  if (psa->fFeatures & FADF_FIXEDSIZE) return E_INVALIDARG;
  // Only the last dimension (stored first) changes; cells of the others stay.
  const size_t oldCells = cellCount(psa);
  size_t stride = 1;
  for (USHORT i = 1; i < psa->cDims; ++i) stride *= psa->rgsabound[i].cElements;
  const size_t newCells = stride * psaboundNew->cElements;
  if (newCells < oldCells) destroyCells(psa, newCells, oldCells - newCells);
  void* data = std::realloc(psa->pvData, (newCells ? newCells : 1) * psa->cbElements);
  if (!data) return E_OUTOFMEMORY;
  if (newCells > oldCells)
    std::memset(static_cast<char*>(data) + oldCells * psa->cbElements, 0, (newCells - oldCells) * psa->cbElements);
  psa->pvData = data;
  psa->rgsabound[0] = *psaboundNew;
  return S_OK;
}

UINT SafeArrayGetDim(SAFEARRAY* psa) { return psa ? psa->cDims : 0; }
UINT SafeArrayGetElemsize(SAFEARRAY* psa) { return psa ? psa->cbElements : 0; }

HRESULT SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound) {
  if (!psa || !plUbound) return E_INVALIDARG;
  if (nDim == 0 || nDim > psa->cDims) return DISP_E_BADINDEX;
  const SAFEARRAYBOUND& b = psa->rgsabound[psa->cDims - nDim];
  *plUbound = static_cast<LONG>(b.lLbound + static_cast<int64_t>(b.cElements) - 1);
  return S_OK;
}

HRESULT SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound) {
  if (!psa || !plLbound) return E_INVALIDARG;
  if (nDim == 0 || nDim > psa->cDims) return DISP_E_BADINDEX;
  *plLbound = psa->rgsabound[psa->cDims - nDim].lLbound;
  return S_OK;
}

HRESULT SafeArrayLock(SAFEARRAY* psa) {
  if (!psa) return E_INVALIDARG;
  if (psa->cLocks == 0xFFFF) return E_UNEXPECTED;
  ++psa->cLocks;
  return S_OK;
}

HRESULT SafeArrayUnlock(SAFEARRAY* psa) {
  if (!psa) return E_INVALIDARG;
  if (psa->cLocks == 0) return E_UNEXPECTED;
  --psa->cLocks;
  return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* psa, void** ppvData) {
  if (!psa || !ppvData) return E_INVALIDARG;
  HRESULT hr = SafeArrayLock(psa);
  *ppvData = SUCCEEDED(hr) ? psa->pvData : nullptr;
  return hr;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* psa) { return SafeArrayUnlock(psa); }

HRESULT SafeArrayPtrOfIndex(SAFEARRAY* psa, LONG* rgIndices, void** ppvData) {
  if (!ppvData) return E_INVALIDARG;
  size_t offset;
  HRESULT hr = cellOffset(psa, rgIndices, &offset);
  if (FAILED(hr)) return hr;
  *ppvData = static_cast<char*>(psa->pvData) + offset;
  return S_OK;
}

HRESULT SafeArrayGetElement(SAFEARRAY* psa, LONG* rgIndices, void* pv) {
  if (!pv) return E_INVALIDARG;
  size_t offset;
  HRESULT hr = cellOffset(psa, rgIndices, &offset);
  if (FAILED(hr)) return hr;
  const char* cell = static_cast<const char*>(psa->pvData) + offset;
  if (psa->fFeatures & FADF_BSTR) {
    BSTR src = *reinterpret_cast<const BSTR*>(cell);
    BSTR copy = nullptr;
    if (src) {
      copy = SysAllocStringByteLen(reinterpret_cast<const char*>(src), SysStringByteLen(src));
      if (!copy) return E_OUTOFMEMORY;
    }
    *static_cast<BSTR*>(pv) = copy;
  } else if (psa->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
    IUnknown* unk = *reinterpret_cast<IUnknown* const*>(cell);
    if (unk) unk->AddRef();
    *static_cast<IUnknown**>(pv) = unk;
  } else if (psa->fFeatures & FADF_VARIANT) {
    auto* out = static_cast<VARIANT*>(pv);
    VariantInit(out);
    return VariantCopy(out, reinterpret_cast<const VARIANT*>(cell));
  } else {
    std::memcpy(pv, cell, psa->cbElements);
  }
  return S_OK;
}

HRESULT SafeArrayPutElement(SAFEARRAY* psa, LONG* rgIndices, void* pv) {
  size_t offset;
  HRESULT hr = cellOffset(psa, rgIndices, &offset);
  if (FAILED(hr)) return hr;
  char* cell = static_cast<char*>(psa->pvData) + offset;
  if (psa->fFeatures & FADF_BSTR) {
    BSTR src = static_cast<BSTR>(pv);
    BSTR copy = nullptr;
    if (src) {
      copy = SysAllocStringByteLen(reinterpret_cast<const char*>(src), SysStringByteLen(src));
      if (!copy) return E_OUTOFMEMORY;
    }
    SysFreeString(*reinterpret_cast<BSTR*>(cell));
    *reinterpret_cast<BSTR*>(cell) = copy;
  } else if (psa->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
    auto* unk = static_cast<IUnknown*>(pv);
    if (unk) unk->AddRef();
    IUnknown*& slot = *reinterpret_cast<IUnknown**>(cell);
    if (slot) slot->Release();
    slot = unk;
  } else if (psa->fFeatures & FADF_VARIANT) {
    if (!pv) return E_INVALIDARG;
    return VariantCopy(reinterpret_cast<VARIANT*>(cell), static_cast<const VARIANT*>(pv));
  } else {
    if (!pv) return E_INVALIDARG;
    std::memcpy(cell, pv, psa->cbElements);
  }
  return S_OK;
}

}  // extern "C"
