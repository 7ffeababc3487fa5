// Dates: the calendar behind DATE values (days since 30 December 1899, the
// fraction being the time of day), and dates as text in a locale.
#pragma once

#include "platform/internal/locale_data.h"
#include "platform/oleauto.h"

#include <string>

namespace veltrane::platform::detail {

constexpr double kDateMin = VTDATEGRE_MIN;  // 1 January 100
constexpr double kDateMax = VTDATEGRE_MAX;  // 31 December 9999

// Whether v lies within 1 January 100 00:00 and 31 December 9999 23:59:59
// (the open interval (kDateMin - 1, kDateMax + 1)).
inline bool DateInRange(double v) { return v > kDateMin - 1.0 && v < kDateMax + 1.0; }

// VariantTimeToSystemTime: false when out of range; rounds to the second.
bool DateToSystemTime(double date, SYSTEMTIME* st);
// SystemTimeToVariantTime: months 0..12, days 0..31 roll over into their
// neighbours, years 0..29 and 30..99 mean 2000.. and 1900..; milliseconds
// are ignored. False for anything outside the DATE range.
bool SystemTimeToDate(const SYSTEMTIME& st, double* date);

enum class DateTextForm {
  Automatic,  // time alone for day 0, date alone at midnight, else both
  DateAndTime,
  DateOnly,
  TimeOnly,
};

// The short date and long time of the locale ("1/2/2003 12:34:56 PM").
// E_INVALIDARG for a date out of range.
HRESULT FormatDate(double date, const LocaleInfo& locale, DateTextForm form, std::u16string* out);

// Reads a date, a time, or both, in the forms the platform accepts: numbers
// joined by the date separators ("/", "-", the locale's) in the locale's
// order or any other order that gives a valid date, month names of the
// locale, times joined by ":" with AM/PM. DISP_E_TYPEMISMATCH otherwise.
HRESULT ParseDate(const char16_t* text, const LocaleInfo& locale, DateTextForm form, double* out);

}  // namespace veltrane::platform::detail
