// The typed conversion functions (VarI4FromStr, VarBstrFromR8, ...): the
// rules of VariantChangeTypeEx for one source and one target type.
#include "platform/internal/variant_convert.h"

namespace veltrane::platform::detail {
namespace {

ConversionContext contextOf(LCID lcid, ULONG flags) {
  ConversionContext ctx;
  ctx.lcid = lcid;
  ctx.localBool = (flags & VAR_LOCALBOOL) != 0;
  if (flags & LOCALE_USE_NLS)
    ctx.dateForm = DateTextForm::DateAndTime;
  else if (flags & VAR_TIMEVALUEONLY)
    ctx.dateForm = DateTextForm::TimeOnly;
  else if (flags & VAR_DATEVALUEONLY)
    ctx.dateForm = DateTextForm::DateOnly;
  return ctx;
}

Scalar text(const OLECHAR* s) {
  Scalar in;
  in.kind = SourceKind::Text;
  in.text = s;
  return in;
}

Scalar real8(double d) {
  Scalar in;
  in.kind = SourceKind::Real8;
  in.d = d;
  return in;
}

Scalar currency(const CY& cy) {
  Scalar in;
  in.kind = SourceKind::Currency;
  in.i = cy.int64;
  return in;
}

Scalar decimal(const DECIMAL& d) {
  Scalar in;
  in.kind = SourceKind::Decimal;
  in.dec = d;
  return in;
}

Scalar real4(float f) {
  Scalar in;
  in.kind = SourceKind::Real4;
  in.d = f;
  return in;
}

Scalar signedValue(int64_t v) {
  Scalar in;
  in.kind = SourceKind::Signed;
  in.i = v;
  return in;
}

Scalar unsignedValue(uint64_t v) {
  Scalar in;
  in.kind = SourceKind::Unsigned;
  in.u = v;
  return in;
}

// Runs the rule of `vt` and copies the member out only on success.
template <class T>
HRESULT convert(const Scalar& in, const ConversionContext& ctx, VARTYPE vt, T VARIANT::*member, T* out) {
  if (!out) return E_INVALIDARG;
  VARIANT v;
  VariantInit(&v);
  HRESULT hr = FindScalarRule(vt)(in, ctx, &v);
  if (SUCCEEDED(hr)) *out = v.*member;
  return hr;
}

HRESULT toDecimal(const Scalar& in, const ConversionContext& ctx, DECIMAL* out) {
  if (!out) return E_INVALIDARG;
  VARIANT v;
  VariantInit(&v);
  HRESULT hr = FindScalarRule(VT_DECIMAL)(in, ctx, &v);
  if (SUCCEEDED(hr)) *out = v.decVal;
  return hr;
}

}  // namespace
}  // namespace veltrane::platform::detail

using namespace veltrane::platform::detail;

extern "C" {

HRESULT VarI4FromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, LONG* plOut) {
  return convert(text(strIn), contextOf(lcid, dwFlags), VT_I4, &VARIANT::lVal, plOut);
}

HRESULT VarI8FromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, LONGLONG* pi64Out) {
  return convert(text(strIn), contextOf(lcid, dwFlags), VT_I8, &VARIANT::llVal, pi64Out);
}

HRESULT VarR8FromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, DOUBLE* pdblOut) {
  return convert(text(strIn), contextOf(lcid, dwFlags), VT_R8, &VARIANT::dblVal, pdblOut);
}

HRESULT VarCyFromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, CY* pcyOut) {
  return convert(text(strIn), contextOf(lcid, dwFlags), VT_CY, &VARIANT::cyVal, pcyOut);
}

HRESULT VarDecFromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, DECIMAL* pdecOut) {
  return toDecimal(text(strIn), contextOf(lcid, dwFlags), pdecOut);
}

HRESULT VarBoolFromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, VARIANT_BOOL* pboolOut) {
  return convert(text(strIn), contextOf(lcid, dwFlags), VT_BOOL, &VARIANT::boolVal, pboolOut);
}

HRESULT VarDateFromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, DATE* pdateOut) {
  if ((dwFlags & (VAR_TIMEVALUEONLY | VAR_DATEVALUEONLY)) == (VAR_TIMEVALUEONLY | VAR_DATEVALUEONLY))
    return E_INVALIDARG;
  return convert(text(strIn), contextOf(lcid, dwFlags), VT_DATE, &VARIANT::date, pdateOut);
}

HRESULT VarBstrFromI4(LONG lIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut) {
  return convert(signedValue(lIn), contextOf(lcid, dwFlags), VT_BSTR, &VARIANT::bstrVal, pbstrOut);
}

HRESULT VarBstrFromI8(LONGLONG i64In, LCID lcid, ULONG dwFlags, BSTR* pbstrOut) {
  return convert(signedValue(i64In), contextOf(lcid, dwFlags), VT_BSTR, &VARIANT::bstrVal, pbstrOut);
}

HRESULT VarBstrFromR4(FLOAT fltIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut) {
  return convert(real4(fltIn), contextOf(lcid, dwFlags), VT_BSTR, &VARIANT::bstrVal, pbstrOut);
}

HRESULT VarBstrFromR8(DOUBLE dblIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut) {
  return convert(real8(dblIn), contextOf(lcid, dwFlags), VT_BSTR, &VARIANT::bstrVal, pbstrOut);
}

HRESULT VarBstrFromCy(CY cyIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut) {
  return convert(currency(cyIn), contextOf(lcid, dwFlags), VT_BSTR, &VARIANT::bstrVal, pbstrOut);
}

HRESULT VarBstrFromDec(const DECIMAL* pdecIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut) {
  if (!pdecIn) return E_INVALIDARG;
  return convert(decimal(*pdecIn), contextOf(lcid, dwFlags), VT_BSTR, &VARIANT::bstrVal, pbstrOut);
}

HRESULT VarBstrFromBool(VARIANT_BOOL boolIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut) {
  Scalar in;
  in.kind = SourceKind::Bool;
  in.i = boolIn;
  ConversionContext ctx = contextOf(lcid, dwFlags);
  ctx.alphaBool = true;  // always the words here
  return convert(in, ctx, VT_BSTR, &VARIANT::bstrVal, pbstrOut);
}

HRESULT VarBstrFromDate(DATE dateIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut) {
  Scalar in;
  in.kind = SourceKind::Date;
  in.d = dateIn;
  return convert(in, contextOf(lcid, dwFlags), VT_BSTR, &VARIANT::bstrVal, pbstrOut);
}

HRESULT VarR8FromDec(const DECIMAL* pdecIn, DOUBLE* pdblOut) {
  if (!pdecIn) return E_INVALIDARG;
  return convert(decimal(*pdecIn), ConversionContext(), VT_R8, &VARIANT::dblVal, pdblOut);
}

HRESULT VarDecFromR8(DOUBLE dblIn, DECIMAL* pdecOut) { return toDecimal(real8(dblIn), ConversionContext(), pdecOut); }

HRESULT VarCyFromR8(DOUBLE dblIn, CY* pcyOut) {
  return convert(real8(dblIn), ConversionContext(), VT_CY, &VARIANT::cyVal, pcyOut);
}

HRESULT VarR8FromCy(CY cyIn, DOUBLE* pdblOut) {
  return convert(currency(cyIn), ConversionContext(), VT_R8, &VARIANT::dblVal, pdblOut);
}

HRESULT VarI1FromUI1(BYTE bIn, CHAR* pcOut) {
  return convert(unsignedValue(bIn), ConversionContext(), VT_I1, &VARIANT::cVal, pcOut);
}

HRESULT VarUI1FromI1(CHAR cIn, BYTE* pbOut) {
  return convert(signedValue(static_cast<signed char>(cIn)), ConversionContext(), VT_UI1, &VARIANT::bVal, pbOut);
}

HRESULT VarI2FromUI2(USHORT uiIn, SHORT* psOut) {
  return convert(unsignedValue(uiIn), ConversionContext(), VT_I2, &VARIANT::iVal, psOut);
}

HRESULT VarUI2FromI2(SHORT sIn, USHORT* puiOut) {
  return convert(signedValue(sIn), ConversionContext(), VT_UI2, &VARIANT::uiVal, puiOut);
}

HRESULT VarI4FromUI4(ULONG ulIn, LONG* plOut) {
  return convert(unsignedValue(ulIn), ConversionContext(), VT_I4, &VARIANT::lVal, plOut);
}

HRESULT VarUI4FromI4(LONG lIn, ULONG* pulOut) {
  return convert(signedValue(lIn), ConversionContext(), VT_UI4, &VARIANT::ulVal, pulOut);
}

HRESULT VarI8FromUI8(ULONGLONG ui64In, LONGLONG* pi64Out) {
  return convert(unsignedValue(ui64In), ConversionContext(), VT_I8, &VARIANT::llVal, pi64Out);
}

HRESULT VarUI8FromI8(LONGLONG i64In, ULONGLONG* pui64Out) {
  return convert(signedValue(i64In), ConversionContext(), VT_UI8, &VARIANT::ullVal, pui64Out);
}

}  // extern "C"
