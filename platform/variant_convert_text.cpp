// Text in the conversion matrix: booleans read from their words, and every
// scalar written as text in a locale.
#include "platform/internal/variant_convert.h"

#include <string>

namespace veltrane::platform::detail {
namespace {

bool equalsWord(const OLECHAR* text, const char16_t* word) {
  size_t n = TextLength(word);
  return TextLength(text) == n && EqualsNoCase(text, word, n);
}

bool equalsExactly(const OLECHAR* text, const char16_t* word) {
  size_t n = TextLength(word);
  if (TextLength(text) != n) return false;
  for (size_t i = 0; i < n; ++i)
    if (text[i] != word[i]) return false;
  return true;
}

HRESULT allocate(const std::u16string& s, BSTR* out) {
  *out = SysAllocStringLen(s.data(), static_cast<UINT>(s.size()));
  return *out ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

HRESULT TextToBool(const OLECHAR* text, const ConversionContext& ctx, VARIANT_BOOL* out) {
  const OLECHAR* t = text ? text : u"";
  // The locale's words when asked for, English ones always; any case.
  const LocaleInfo* locales[2] = {nullptr, &EnglishLocale()};
  if (ctx.localBool) {
    HRESULT hr = ctx.locale(&locales[0]);
    if (FAILED(hr)) return hr;
  }
  for (const LocaleInfo* locale : locales) {
    if (!locale) continue;
    if (equalsWord(t, locale->trueWord) || equalsWord(t, locale->falseWord)) {
      *out = equalsWord(t, locale->trueWord) ? VARIANT_TRUE : VARIANT_FALSE;
      return S_OK;
    }
  }
  if (equalsExactly(t, u"#TRUE#") || equalsExactly(t, u"#FALSE#")) {
    *out = equalsExactly(t, u"#TRUE#") ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }

  // Otherwise a number: non-zero is true.
  Scalar number;
  number.kind = SourceKind::Text;
  number.text = t;
  double d;
  HRESULT hr = ScalarToDouble(number, ctx, &d);
  if (FAILED(hr)) return hr;
  *out = d != 0.0 ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

HRESULT ScalarToText(const Scalar& in, const ConversionContext& ctx, BSTR* out) {
  *out = nullptr;
  switch (in.kind) {
    case SourceKind::Empty: return allocate(u"", out);
    case SourceKind::Signed: return allocate(FormatInteger(in.i), out);
    case SourceKind::Unsigned: return allocate(FormatInteger(in.u), out);
    case SourceKind::Text: return allocate(in.text ? std::u16string(in.text) : std::u16string(), out);
    case SourceKind::Bool: {
      // "-1"/"0" unless words are asked for; English words unless local ones.
      if (!ctx.alphaBool && !ctx.localBool) return allocate(FormatInteger(in.i), out);
      const LocaleInfo* locale = &EnglishLocale();
      if (ctx.localBool) {
        HRESULT hr = ctx.locale(&locale);
        if (FAILED(hr)) return hr;
      }
      return allocate(in.i ? locale->trueWord : locale->falseWord, out);
    }
    default: break;
  }

  const LocaleInfo* locale;
  HRESULT hr = ctx.locale(&locale);
  if (FAILED(hr)) return hr;
  std::u16string text;
  switch (in.kind) {
    case SourceKind::Real4: text = FormatReal(in.d, kReal4Digits, *locale); break;
    case SourceKind::Real8: text = FormatReal(in.d, kReal8Digits, *locale); break;
    case SourceKind::Date: hr = FormatDate(in.d, *locale, ctx.dateForm, &text); break;
    case SourceKind::Currency:
    case SourceKind::Decimal: {
      ExactDecimal e;
      hr = ScalarToExact(in, ctx, &e);
      if (SUCCEEDED(hr)) text = FormatExact(e, *locale);
      break;
    }
    default: hr = DISP_E_TYPEMISMATCH; break;
  }
  if (FAILED(hr)) return hr;
  return allocate(text, out);
}

}  // namespace veltrane::platform::detail
