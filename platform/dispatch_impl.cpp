// Late binding over the generated dispatch tables: name lookup, argument
// matching and coercion, the call through the member's thunk, and the
// translation of a failure into EXCEPINFO.
#include "platform/dispatch_impl.h"

#include "platform/atlbase.h"
#include "platform/comdef.h"
#include "platform/unicode.h"

#include <exception>
#include <new>
#include <vector>

namespace veltrane::dispatch {

using tlb::MemberInfo;
using tlb::ParamInfo;
using tlb::TypeData;

namespace {

OLECHAR Fold(OLECHAR c) { return (c >= u'A' && c <= u'Z') ? static_cast<OLECHAR>(c - u'A' + u'a') : c; }

bool SameName(const OLECHAR* a, const OLECHAR* b) {
  if (!a || !b) return false;
  for (; *a && *b; ++a, ++b)
    if (Fold(*a) != Fold(*b)) return false;
  return *a == *b;
}

bool HasRetval(const MemberInfo& m) {
  return m.paramCount > 0 && (m.params[m.paramCount - 1].flags & PARAMFLAG_FRETVAL);
}

// Parameters a caller passes: all but the [retval].
UINT CallerParamCount(const MemberInfo& m) { return static_cast<UINT>(m.paramCount) - (HasRetval(m) ? 1 : 0); }

bool IsMissing(const VARIANT& v) { return V_VT(&v) == VT_ERROR && V_ERROR(&v) == DISP_E_PARAMNOTFOUND; }

bool IsObjectType(VARTYPE vt) { return vt == VT_DISPATCH || vt == VT_UNKNOWN; }

// The interface a parameter of a member of `owner` refers to, in the
// library of `owner`.
const IID* InterfaceIdOf(const TypeData& owner, const ParamInfo& p) {
  if (p.ref < 0) return nullptr;
  const tlb::LibraryData* lib = tlb::LibraryOfType(owner);
  if (!lib || p.ref >= lib->typeCount) return nullptr;
  const TypeData& t = lib->types[p.ref];
  return (t.kind == TKIND_INTERFACE || t.kind == TKIND_DISPATCH) ? t.guid : nullptr;
}

// The value a left-out optional parameter takes: its default; without one
// an optional VARIANT gets the marker of a missing argument and a typed
// parameter its type's zero.
HRESULT DefaultArgument(const ParamInfo& p, VARIANT* out) {
  HRESULT hr = tlb::DefaultValueOf(p, out);
  if (hr != S_FALSE) return hr;
  if (p.vt == VT_VARIANT) {
    V_VT(out) = VT_ERROR;
    V_ERROR(out) = DISP_E_PARAMNOTFOUND;
  } else {
    V_VT(out) = p.vt;
    V_I8(out) = 0;
  }
  return S_OK;
}

// Brings an [in] argument to the parameter's type.
HRESULT CoerceArgument(const TypeData& owner, const ParamInfo& p, const VARIANT* src, VARIANT* out) {
  VariantInit(out);
  if (p.vt == VT_VARIANT) return VariantCopyInd(out, src);

  CComVariant value;
  HRESULT hr = VariantCopyInd(&value, src);
  if (FAILED(hr)) return hr;

  if (IsObjectType(p.vt)) {
    const VARTYPE vt = V_VT(&value);
    if (vt == VT_EMPTY || vt == VT_NULL || (IsObjectType(vt) && !V_UNKNOWN(&value))) {
      V_VT(out) = p.vt;
      V_UNKNOWN(out) = nullptr;
      return S_OK;
    }
    if (!IsObjectType(vt)) return DISP_E_TYPEMISMATCH;
    const IID* iid = InterfaceIdOf(owner, p);
    if (!iid) iid = p.vt == VT_DISPATCH ? &IID_IDispatch : &IID_IUnknown;
    void* itf = nullptr;
    if (FAILED(V_UNKNOWN(&value)->QueryInterface(*iid, &itf)) || !itf) return DISP_E_TYPEMISMATCH;
    // Every interface of the library derives from IUnknown alone, so the
    // interface pointer is its own IUnknown pointer.
    V_VT(out) = p.vt;
    V_UNKNOWN(out) = static_cast<IUnknown*>(itf);
    return S_OK;
  }

  const VARTYPE target = p.vt == VT_INT ? static_cast<VARTYPE>(VT_I4) : p.vt;
  if (V_VT(&value) == target) {
    hr = value.Detach(out);
  } else {
    hr = VariantChangeType(out, &value, 0, target);
    if (FAILED(hr)) return hr == DISP_E_OVERFLOW ? hr : DISP_E_TYPEMISMATCH;
  }
  if (SUCCEEDED(hr) && p.vt == VT_INT) {
    const LONG v = V_I4(out);
    V_VT(out) = VT_INT;
    V_INT(out) = v;
  }
  return hr;
}

// An [out] argument must be a reference the result can be stored into.
bool AcceptsOutput(const ParamInfo& p, const VARIANT& arg) {
  if (!(V_VT(&arg) & VT_BYREF) || !V_BYREF(&arg)) return false;
  const VARTYPE base = V_VT(&arg) & ~VT_BYREF;
  if (base == VT_VARIANT) return true;
  if (p.vt == VT_INT) return base == VT_INT || base == VT_I4;
  return base == p.vt;
}

// Moves `value` (of the parameter's type) into the caller's reference,
// releasing what the reference held.
void StoreOutput(VARIANT& arg, VARIANT* value) {
  const VARTYPE base = V_VT(&arg) & ~VT_BYREF;
  if (base == VT_VARIANT) {
    VariantClear(V_VARIANTREF(&arg));
    *V_VARIANTREF(&arg) = *value;
    V_VT(value) = VT_EMPTY;
    return;
  }
  switch (base) {
    case VT_BSTR:
      SysFreeString(*V_BSTRREF(&arg));
      *V_BSTRREF(&arg) = V_BSTR(value);
      break;
    case VT_DISPATCH:
      if (*V_DISPATCHREF(&arg)) (*V_DISPATCHREF(&arg))->Release();
      *V_DISPATCHREF(&arg) = V_DISPATCH(value);
      break;
    case VT_UNKNOWN:
      if (*V_UNKNOWNREF(&arg)) (*V_UNKNOWNREF(&arg))->Release();
      *V_UNKNOWNREF(&arg) = V_UNKNOWN(value);
      break;
    case VT_I4: *V_I4REF(&arg) = V_VT(value) == VT_INT ? V_INT(value) : V_I4(value); break;
    case VT_INT: *V_INTREF(&arg) = V_VT(value) == VT_INT ? V_INT(value) : V_I4(value); break;
    case VT_I2: *V_I2REF(&arg) = V_I2(value); break;
    case VT_UI1: *V_UI1REF(&arg) = V_UI1(value); break;
    case VT_UI2: *V_UI2REF(&arg) = V_UI2(value); break;
    case VT_UI4: *V_UI4REF(&arg) = V_UI4(value); break;
    case VT_BOOL: *V_BOOLREF(&arg) = V_BOOL(value); break;
    case VT_R4: *V_R4REF(&arg) = V_R4(value); break;
    case VT_R8: *V_R8REF(&arg) = V_R8(value); break;
    case VT_DATE: *V_DATEREF(&arg) = V_DATE(value); break;
    case VT_CY: *V_CYREF(&arg) = V_CY(value); break;
    default:
      if (base & VT_ARRAY) {
        if (*V_ARRAYREF(&arg)) SafeArrayDestroy(*V_ARRAYREF(&arg));
        *V_ARRAYREF(&arg) = V_ARRAY(value);
      } else {
        VariantClear(value);
      }
      break;
  }
  V_VT(value) = VT_EMPTY;
}

// A member that failed: DISP_E_EXCEPTION, its result in scode, and the
// thread's error record, if the object declares one for this interface.
HRESULT FillExcepInfo(const TypeData& type, IDispatch* self, HRESULT hr, EXCEPINFO* info) {
  if (!info) return DISP_E_EXCEPTION;
  *info = EXCEPINFO{};
  info->scode = hr;
  if (!type.guid) return DISP_E_EXCEPTION;
  CComPtr<ISupportErrorInfo> support;
  if (FAILED(self->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(&support))) || !support)
    return DISP_E_EXCEPTION;
  if (support->InterfaceSupportsErrorInfo(*type.guid) != S_OK) return DISP_E_EXCEPTION;
  CComPtr<IErrorInfo> record;
  if (GetErrorInfo(0, &record) != S_OK || !record) return DISP_E_EXCEPTION;
  record->GetSource(&info->bstrSource);
  record->GetDescription(&info->bstrDescription);
  record->GetHelpFile(&info->bstrHelpFile);
  record->GetHelpContext(&info->dwHelpContext);
  return DISP_E_EXCEPTION;
}

HRESULT ExceptionResult(const std::exception& e, EXCEPINFO* info) {
  if (!info) return DISP_E_EXCEPTION;
  *info = EXCEPINFO{};
  const std::u16string text = Utf8ToWideLossy(e.what());
  info->bstrDescription = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  info->scode = E_FAIL;
  return DISP_E_EXCEPTION;
}

class ArgumentList {
 public:
  explicit ArgumentList(size_t n) : m_values(n) {
    for (auto& v : m_values) VariantInit(&v);
  }
  ArgumentList(const ArgumentList&) = delete;
  ArgumentList& operator=(const ArgumentList&) = delete;
  ~ArgumentList() {
    for (auto& v : m_values) VariantClear(&v);
  }
  VARIANT* data() { return m_values.data(); }
  VARIANT& operator[](size_t i) { return m_values[i]; }

 private:
  std::vector<VARIANT> m_values;
};

}  // namespace

const MemberInfo* FindMember(const TypeData& type, DISPID dispid, INVOKEKIND kind) {
  for (USHORT i = 0; i < type.dispatchCount; ++i) {
    const MemberInfo* m = type.dispatchMembers[i];
    if (m->dispid == dispid && m->invkind == kind) return m;
  }
  return nullptr;
}

HRESULT GetTypeInfoCount(UINT* pctinfo) {
  if (!pctinfo) return E_POINTER;
  *pctinfo = 1;
  return S_OK;
}

HRESULT GetTypeInfo(const TypeData& type, UINT iTInfo, ITypeInfo** ppTInfo) {
  if (!ppTInfo) return E_POINTER;
  *ppTInfo = nullptr;
  if (iTInfo != 0) return DISP_E_BADINDEX;
  return tlb::GetTypeInfoOfType(type, ppTInfo);
}

HRESULT GetIDsOfNames(const TypeData& type, REFIID riid, LPOLESTR* rgszNames, UINT cNames, DISPID* rgDispId) {
  if (riid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
  if (cNames == 0) return E_INVALIDARG;
  if (!rgszNames || !rgDispId) return E_POINTER;
  for (UINT i = 0; i < cNames; ++i) rgDispId[i] = DISPID_UNKNOWN;

  const MemberInfo* member = nullptr;
  for (USHORT i = 0; i < type.dispatchCount && !member; ++i)
    if (SameName(type.dispatchMembers[i]->name, rgszNames[0])) member = type.dispatchMembers[i];
  if (!member) return DISP_E_UNKNOWNNAME;
  rgDispId[0] = member->dispid;

  // Further names are parameters, numbered from 0 in declaration order.
  HRESULT hr = S_OK;
  for (UINT n = 1; n < cNames; ++n) {
    for (USHORT i = 0; i < type.dispatchCount && rgDispId[n] == DISPID_UNKNOWN; ++i) {
      const MemberInfo* m = type.dispatchMembers[i];
      if (m->dispid != member->dispid) continue;
      const UINT count = CallerParamCount(*m);
      for (UINT p = 0; p < count; ++p) {
        if (SameName(m->params[p].name, rgszNames[n])) {
          rgDispId[n] = static_cast<DISPID>(p);
          break;
        }
      }
    }
    if (rgDispId[n] == DISPID_UNKNOWN) hr = DISP_E_UNKNOWNNAME;
  }
  return hr;
}

HRESULT Invoke(const TypeData& type, IDispatch* self, DISPID dispIdMember, REFIID riid, LCID, WORD wFlags,
               DISPPARAMS* pDispParams, VARIANT* pVarResult, EXCEPINFO* pExcepInfo, UINT* puArgErr) {
  if (riid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  const DISPPARAMS& dp = pDispParams ? *pDispParams : none;
  if (dp.cNamedArgs > dp.cArgs || (dp.cArgs && !dp.rgvarg) || (dp.cNamedArgs && !dp.rgdispidNamedArgs))
    return E_INVALIDARG;

  // Choose the accessor that the flags ask for. A method call may also be a
  // property get (as Basic sends both); a putref falls back to a put.
  const bool put = (wFlags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
  const MemberInfo* m = nullptr;
  if (put) {
    if (wFlags & DISPATCH_PROPERTYPUTREF) m = FindMember(type, dispIdMember, INVOKE_PROPERTYPUTREF);
    if (!m) m = FindMember(type, dispIdMember, INVOKE_PROPERTYPUT);
    if (m && !(wFlags & DISPATCH_PROPERTYPUT) && m->invkind == INVOKE_PROPERTYPUT) {
      const ParamInfo& value = m->params[CallerParamCount(*m) - 1];
      if (!IsObjectType(value.vt) && value.vt != VT_VARIANT) m = nullptr;
    }
  } else {
    if (wFlags & DISPATCH_METHOD) m = FindMember(type, dispIdMember, INVOKE_FUNC);
    if (!m && (wFlags & DISPATCH_PROPERTYGET)) m = FindMember(type, dispIdMember, INVOKE_PROPERTYGET);
  }
  if (!m || !m->thunk) return DISP_E_MEMBERNOTFOUND;

  const UINT count = CallerParamCount(*m);
  const UINT positional = dp.cArgs - dp.cNamedArgs;
  // source[i]: position in rgvarg of the argument for parameter i, or -1.
  std::vector<int> source(count, -1);

  if (dp.cNamedArgs > 0 && count == 0) return DISP_E_NONAMEDARGS;
  for (UINT i = 0; i < dp.cNamedArgs; ++i) {
    const DISPID id = dp.rgdispidNamedArgs[i];
    int target = -1;
    if (id == DISPID_PROPERTYPUT) {
      if (put) target = static_cast<int>(count) - 1;
    } else if (id >= 0 && static_cast<UINT>(id) < (put ? count - 1 : count)) {
      target = id;
    }
    if (target < 0 || source[target] >= 0) {
      if (puArgErr) *puArgErr = i;
      return DISP_E_PARAMNOTFOUND;
    }
    source[target] = static_cast<int>(i);
  }
  if (positional > count) return DISP_E_BADPARAMCOUNT;
  for (UINT j = 0; j < positional; ++j) {
    if (source[j] >= 0) return DISP_E_BADPARAMCOUNT;
    source[j] = static_cast<int>(dp.cArgs - 1 - j);
  }

  ArgumentList args(count);
  for (UINT j = 0; j < count; ++j) {
    const ParamInfo& p = m->params[j];
    const int s = source[j];
    const bool given = s >= 0 && !IsMissing(dp.rgvarg[s]);
    if (!given) {
      if (!(p.flags & PARAMFLAG_FOPT)) {
        // Too few arguments is a count mismatch; a hole among them, or one
        // left out beside named arguments, is a missing required parameter.
        if (s < 0 && dp.cNamedArgs == 0) return DISP_E_BADPARAMCOUNT;
        if (puArgErr && s >= 0) *puArgErr = static_cast<UINT>(s);
        return DISP_E_PARAMNOTOPTIONAL;
      }
      HRESULT hr = DefaultArgument(p, &args[j]);
      if (FAILED(hr)) return hr;
      continue;
    }
    const VARIANT& arg = dp.rgvarg[s];
    if (p.flags & PARAMFLAG_FOUT) {
      if (!AcceptsOutput(p, arg)) {
        if (puArgErr) *puArgErr = static_cast<UINT>(s);
        return DISP_E_TYPEMISMATCH;
      }
      continue;
    }
    HRESULT hr = CoerceArgument(type, p, &arg, &args[j]);
    if (FAILED(hr)) {
      if (puArgErr) *puArgErr = static_cast<UINT>(s);
      return hr;
    }
  }

  // A record left from an earlier failure must not be reported for this one.
  SetErrorInfo(0, nullptr);
  CComVariant result;
  HRESULT hr;
  try {
    hr = m->thunk(self, args.data(), &result);
  } catch (const std::bad_alloc&) {
    hr = E_OUTOFMEMORY;
  } catch (const _com_error& e) {
    hr = e.Error();
  } catch (const std::exception& e) {
    return ExceptionResult(e, pExcepInfo);
  } catch (...) {
    hr = E_UNEXPECTED;
  }
  if (FAILED(hr)) return FillExcepInfo(type, self, hr, pExcepInfo);

  for (UINT j = 0; j < count; ++j) {
    const int s = source[j];
    if ((m->params[j].flags & PARAMFLAG_FOUT) && s >= 0) StoreOutput(dp.rgvarg[s], &args[j]);
  }
  if (pVarResult && HasRetval(*m)) result.Detach(pVarResult);
  return hr;
}

}  // namespace veltrane::dispatch
