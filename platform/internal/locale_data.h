// Locale data used by the conversions: separators, date and time patterns,
// month and day names, boolean words; plus case folding and the collation
// behind VarBstrCmp.
#pragma once

#include "platform/oleauto.h"

#include <cstddef>

namespace veltrane::platform::detail {

// Order of day, month and year in a short date (the locale's "iDate").
enum class DateOrder { MDY = 0, DMY = 1, YMD = 2 };

struct LocaleInfo {
  LCID lcid;                 // canonical identifier, e.g. 0x0407
  const char* tag;           // "de-DE"
  char16_t decimalSep;       // ','
  char16_t thousandsSep;     // '.'
  char16_t negativeSign;     // '-'
  char16_t positiveSign;     // '+'
  const char16_t* currency;  // u"\u20AC"
  DateOrder dateOrder;
  char16_t dateSep;              // '/', '.'
  char16_t timeSep;              // ':'
  const char16_t* shortDate;     // u"M/d/yyyy"
  const char16_t* timeFormat;    // u"h:mm:ss tt"
  const char16_t* amDesignator;  // u"AM"
  const char16_t* pmDesignator;  // u"PM"
  const char16_t* months[12];    // January first
  const char16_t* monthsAbbr[12];
  const char16_t* days[7];  // Sunday first, as SYSTEMTIME::wDayOfWeek
  const char16_t* daysAbbr[7];
  const char16_t* trueWord;   // u"True"
  const char16_t* falseWord;  // u"False"
};

// The en-US entry; the words of VARIANT_ALPHABOOL and the fallback for
// neutral text.
const LocaleInfo& EnglishLocale();

// Resolves lcid (defaults and language-only ids included) to its data;
// nullptr when the locale is not known.
const LocaleInfo* FindLocale(LCID lcid);

// Like FindLocale, as the result code of the conversion calls.
HRESULT LookupLocale(LCID lcid, const LocaleInfo** out);

// Parses a locale name as given in VELTRANE_LCID: "0x0407", "1031",
// "de-DE", "de_DE.UTF-8", "invariant". Returns 0 when it names no known locale.
LCID ParseLocaleName(const char* text);

// Simple (one to one) case folding to lower case: ASCII, Latin-1,
// Latin Extended-A, Greek and Cyrillic.
char16_t FoldCase(char16_t c);
char16_t UpperCase(char16_t c);

// Case-insensitive equality of the first n code units.
bool EqualsNoCase(const char16_t* a, const char16_t* b, size_t n);

// White space between the parts of a number or a date: the C white-space
// controls, NEL, and every space separator of Unicode (U+00A0 no-break
// space, U+2000..U+200A, U+3000 ideographic space, ...), line and paragraph
// separators included.
bool IsBlank(char16_t c);

// Length of a null-terminated UTF-16 string.
size_t TextLength(const char16_t* s);

// Linguistic comparison of two texts under a locale, with the NORM_* flags.
// Returns -1, 0 or 1.
int CollateCompare(const LocaleInfo& locale, const char16_t* a, size_t na, const char16_t* b, size_t nb, ULONG flags);

}  // namespace veltrane::platform::detail
