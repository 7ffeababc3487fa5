// The conversion matrix behind VariantChangeTypeEx and the Var*From*
// functions: a source value is read out of its VARIANT once (ReadScalar),
// and each target type has one rule that accepts every kind of source.
#pragma once

#include "platform/internal/locale_data.h"
#include "platform/internal/var_date.h"
#include "platform/internal/var_number.h"
#include "platform/oleauto.h"

#include <cstdint>

namespace veltrane::platform::detail {

enum class SourceKind { Empty, Signed, Unsigned, Bool, Real4, Real8, Date, Currency, Decimal, Text };

// A scalar source value. VT_INT and VT_UINT read as VT_I4 and VT_UI4.
struct Scalar {
  SourceKind kind = SourceKind::Empty;
  int64_t i = 0;                  // Signed; Bool (as stored); Currency (value times 10,000)
  uint64_t u = 0;                 // Unsigned
  double d = 0.0;                 // Real4 (widened), Real8, Date
  DECIMAL dec = {};               // Decimal
  const OLECHAR* text = nullptr;  // Text; null reads as ""
};

// Options of one conversion.
struct ConversionContext {
  LCID lcid = LOCALE_USER_DEFAULT;
  bool alphaBool = false;  // BOOL -> text as words rather than "-1"/"0"
  bool localBool = false;  // the locale's boolean words rather than English
  DateTextForm dateForm = DateTextForm::Automatic;

  HRESULT locale(const LocaleInfo** out) const { return LookupLocale(lcid, out); }
};

// Reads a non-reference, non-array VARIANT; false when its type is not a
// scalar (VT_NULL, VT_ERROR, objects, records, ...).
bool ReadScalar(const VARIANT& v, Scalar* out);

// Writes the converted value into out's union (vt is left to the caller).
using ScalarRule = HRESULT (*)(const Scalar& in, const ConversionContext& ctx, VARIANT* out);

// The rule for a scalar target type, nullptr when vt is none.
ScalarRule FindScalarRule(VARTYPE vt);

// Shared by the rules and by VarCmp.
HRESULT ScalarToDouble(const Scalar& in, const ConversionContext& ctx, double* out);
// As a DECIMAL-sized exact decimal (doubles with 15 digits, floats with 7).
HRESULT ScalarToExact(const Scalar& in, const ConversionContext& ctx, ExactDecimal* out);
HRESULT TextToBool(const OLECHAR* text, const ConversionContext& ctx, VARIANT_BOOL* out);
HRESULT ScalarToText(const Scalar& in, const ConversionContext& ctx, BSTR* out);

}  // namespace veltrane::platform::detail
