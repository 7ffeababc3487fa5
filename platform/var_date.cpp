// Dates: calendar arithmetic, SYSTEMTIME <-> DATE, the clock, and the text
// forms of dates.
#include "platform/internal/var_date.h"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <initializer_list>

namespace veltrane::platform::detail {
namespace {

// Days from 1970-01-01 to a date of the proleptic Gregorian calendar.
long daysFromCivil(long y, long m, long d) {
  y -= m <= 2;
  const long era = (y >= 0 ? y : y - 399) / 400;
  const long yoe = y - era * 400;
  const long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void civilFromDays(long z, long* y, long* m, long* d) {
  z += 719468;
  const long era = (z >= 0 ? z : z - 146096) / 146097;
  const long doe = z - era * 146097;
  const long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const long mp = (5 * doy + 2) / 153;
  *d = doy - (153 * mp + 2) / 5 + 1;
  *m = mp < 10 ? mp + 3 : mp - 9;
  *y = yoe + era * 400 + (*m <= 2);
}

const long kEpochDays = daysFromCivil(1899, 12, 30);  // day 0 of DATE

bool isLeapYear(long y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

long twoDigitYear(long y) { return y <= 29 ? 2000 + y : (y <= 99 ? 1900 + y : y); }

void fillSystemTime(long day, long seconds, SYSTEMTIME* st) {
  long y, m, d;
  civilFromDays(day + kEpochDays, &y, &m, &d);
  st->wYear = static_cast<WORD>(y);
  st->wMonth = static_cast<WORD>(m);
  st->wDay = static_cast<WORD>(d);
  st->wDayOfWeek = static_cast<WORD>(((day % 7) + 7 + 6) % 7);  // day 0 was a Saturday
  st->wHour = static_cast<WORD>(seconds / 3600);
  st->wMinute = static_cast<WORD>(seconds / 60 % 60);
  st->wSecond = static_cast<WORD>(seconds % 60);
  st->wMilliseconds = 0;
}

// ---- formatting -----------------------------------------------------------

void appendNumber(std::u16string* out, long v, int width) {
  char buf[24];
  int n = std::snprintf(buf, sizeof buf, "%0*ld", width, v);
  for (int i = 0; i < n; ++i) out->push_back(static_cast<char16_t>(buf[i]));
}

// Applies a date or time pattern: d dd ddd dddd M MM MMM MMMM y yy yyyy
// h hh H HH m mm s ss t tt, 'quoted text'; other characters stand as they are.
void applyPattern(const char16_t* pattern, const SYSTEMTIME& st, const LocaleInfo& locale, std::u16string* out) {
  for (const char16_t* p = pattern; *p;) {
    const char16_t c = *p;
    if (c == u'\'') {
      for (++p; *p && *p != u'\''; ++p) out->push_back(*p);
      if (*p) ++p;
      continue;
    }
    int run = 0;
    while (p[run] == c) ++run;
    switch (c) {
      case u'd':
        if (run >= 4) {
          out->append(locale.days[st.wDayOfWeek]);
        } else if (run == 3) {
          out->append(locale.daysAbbr[st.wDayOfWeek]);
        } else {
          appendNumber(out, st.wDay, run);
        }
        break;
      case u'M':
        if (run >= 4) {
          out->append(locale.months[st.wMonth - 1]);
        } else if (run == 3) {
          out->append(locale.monthsAbbr[st.wMonth - 1]);
        } else {
          appendNumber(out, st.wMonth, run);
        }
        break;
      case u'y':
        // The full year has no leading zeros: 1 January 100 is "1/1/100".
        if (run >= 3)
          appendNumber(out, st.wYear, 1);
        else
          appendNumber(out, st.wYear % 100, run);
        break;
      case u'h': appendNumber(out, st.wHour % 12 == 0 ? 12 : st.wHour % 12, run >= 2 ? 2 : 1); break;
      case u'H': appendNumber(out, st.wHour, run >= 2 ? 2 : 1); break;
      case u'm': appendNumber(out, st.wMinute, run >= 2 ? 2 : 1); break;
      case u's': appendNumber(out, st.wSecond, run >= 2 ? 2 : 1); break;
      case u't': {
        const char16_t* designator = st.wHour < 12 ? locale.amDesignator : locale.pmDesignator;
        if (run >= 2)
          out->append(designator);
        else if (*designator)
          out->push_back(designator[0]);
        break;
      }
      default: out->append(static_cast<size_t>(run), c); break;
    }
    p += run;
  }
}

// ---- parsing --------------------------------------------------------------

enum TokenFlag : unsigned {
  kMonthName = 1,  // the number came from a month name
  kDateSep = 2,    // followed by a date separator
  kTimeSep = 4,    // followed by a time separator
  kAm = 8,
  kPm = 16,
};

struct Token {
  long value;
  unsigned flags;
};

constexpr int kMaxTokens = 6;

bool isLetter(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= 0xC0 && c <= 0x24F && c != 0xD7 && c != 0xF7);
}

// The longest-listed name that the text starts with: months (full, then
// abbreviated), days, then AM/PM. Returns its length, 0 for none.
size_t matchName(const char16_t* p, const LocaleInfo& locale, int* month, int* ampm) {
  *month = 0;
  *ampm = 0;
  auto matches = [p](const char16_t* name) -> size_t {
    size_t n = TextLength(name);
    if (!n) return 0;
    for (size_t i = 0; i < n; ++i)
      if (!p[i] || FoldCase(p[i]) != FoldCase(name[i])) return 0;
    return n;
  };
  for (const char16_t* const* names : {locale.months, locale.monthsAbbr}) {
    for (int i = 0; i < 12; ++i) {
      if (size_t n = matches(names[i])) {
        *month = i + 1;
        return n;
      }
    }
  }
  for (const char16_t* const* names : {locale.days, locale.daysAbbr})
    for (int i = 0; i < 7; ++i)
      if (size_t n = matches(names[i])) return n;
  if (size_t n = matches(locale.amDesignator)) {
    *ampm = kAm;
    return n;
  }
  if (size_t n = matches(locale.pmDesignator)) {
    *ampm = kPm;
    return n;
  }
  return 0;
}

HRESULT tokenize(const char16_t* p, const LocaleInfo& locale, Token* tokens, int* count, unsigned* ampm) {
  int n = 0;
  int dateSeps = 0;
  *ampm = 0;
  auto markAmPm = [&](unsigned flag) {
    if (!n || *ampm) return false;
    tokens[n - 1].flags |= flag;
    *ampm = flag;
    return true;
  };
  while (*p) {
    const char16_t c = *p;
    if (c >= u'0' && c <= u'9') {
      if (n == kMaxTokens) return DISP_E_TYPEMISMATCH;
      long v = 0;
      for (; *p >= u'0' && *p <= u'9'; ++p)
        if (v < 100000) v = v * 10 + (*p - u'0');
      tokens[n++] = {v, 0};
      continue;
    }
    if (isLetter(c)) {
      int month, flag;
      size_t len = matchName(p, locale, &month, &flag);
      if (len) {
        if (month) {
          if (n == kMaxTokens) return DISP_E_TYPEMISMATCH;
          tokens[n++] = {month, kMonthName | kDateSep};
        } else if (flag && !markAmPm(static_cast<unsigned>(flag))) {
          return DISP_E_TYPEMISMATCH;
        }
        p += len;
        continue;
      }
      // "a" and "p" stand for AM and PM, an "m" after them is optional.
      if ((c == u'a' || c == u'A' || c == u'p' || c == u'P') && markAmPm((c == u'a' || c == u'A') ? kAm : kPm)) {
        ++p;
        if (*p == u'm' || *p == u'M') ++p;
        continue;
      }
      return DISP_E_TYPEMISMATCH;
    }
    if (c == u':' || c == u'.' || c == u'-' || c == u'/' || c == locale.dateSep) {
      if (!n || !p[1]) return DISP_E_TYPEMISMATCH;
      // "." is a date separator where the locale writes dates with it, else a time separator.
      const bool date = c == u'-' || c == u'/' || c == locale.dateSep;
      if (date) {
        if (++dateSeps > 2) return DISP_E_TYPEMISMATCH;
        tokens[n - 1].flags |= kDateSep;
      } else {
        tokens[n - 1].flags |= kTimeSep;
      }
      ++p;
      continue;
    }
    if (c == u',' || IsBlank(c)) {
      if (c == u',' && !p[1]) return DISP_E_TYPEMISMATCH;
      ++p;
      continue;
    }
    return DISP_E_TYPEMISMATCH;
  }
  *count = n;
  return S_OK;
}

bool validMonthDay(long day, long month, long year) {
  static const int kDays[] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (day < 1 || month < 1 || month > 12) return false;
  return day <= kDays[month] || (month == 2 && day == 29 && isLeapYear(year));
}

enum Order : unsigned { kMDY = 1, kDMY = 2, kYMD = 4, kYDM = 8, kMYD = 16 };

// Tries the orders in `allowed`, the locale's order first, then the orders
// that agree with it, then any other; the first valid date wins.
bool assignOrder(long v1, long v2, long v3, unsigned allowed, DateOrder localeOrder, long* day, long* month,
                 long* year) {
  static const Order kSequence[] = {kMDY, kYMD, kYDM, kDMY, kMYD};
  for (int attempt = 0; attempt < 3 && allowed; ++attempt) {
    unsigned trying = allowed;
    if (attempt == 0) {
      trying &= localeOrder == DateOrder::MDY ? kMDY : (localeOrder == DateOrder::DMY ? kDMY : kYMD);
    } else if (attempt == 1) {
      trying &= localeOrder == DateOrder::DMY ? ~(kMDY | kYDM | kMYD) : ~(kDMY | kYDM);
    }
    for (Order order : kSequence) {
      if (!(trying & order)) continue;
      long d, m, y;
      switch (order) {
        case kMDY: m = v1, d = v2, y = v3; break;
        case kDMY: d = v1, m = v2, y = v3; break;
        case kYMD: y = v1, m = v2, d = v3; break;
        case kYDM: y = v1, d = v2, m = v3; break;
        default: m = v1, y = v2, d = v3; break;
      }
      if (validMonthDay(d, m, y)) {
        *day = d, *month = m, *year = y;
        return true;
      }
      allowed &= ~static_cast<unsigned>(order);
    }
  }
  return false;
}

HRESULT makeDate(const Token* t, int count, DateOrder localeOrder, SYSTEMTIME* st) {
  if (count == 0) {
    st->wYear = 1899, st->wMonth = 12, st->wDay = 30;
    return S_OK;
  }
  if (count == 1 || count > 3) return DISP_E_TYPEMISMATCH;
  long v1 = t[0].value, v2 = t[1].value, v3;
  if (count == 2) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    v3 = now.wYear;
  } else {
    v3 = t[2].value;
  }
  unsigned allowed;
  if (t[0].flags & kMonthName) {
    allowed = kMDY;
  } else if (t[1].flags & kMonthName) {
    allowed = kDMY | (count > 2 ? kYMD : 0u);
  } else if (count > 2 && (t[2].flags & kMonthName)) {
    allowed = kYDM;
  } else {
    allowed = kMDY | kDMY | (count > 2 ? kYMD | kYDM : 0u);
  }
  long day, month, year;
  bool ok = assignOrder(v1, v2, v3, allowed, localeOrder, &day, &month, &year);
  if (!ok && count == 2) {
    // Month and year without a day: the first of the month.
    ok = assignOrder(v1, v2, 1, kYMD | kMYD, localeOrder, &day, &month, &year);
  }
  if (!ok) return DISP_E_TYPEMISMATCH;
  year = twoDigitYear(year);
  if (year > 9999) return DISP_E_TYPEMISMATCH;
  st->wYear = static_cast<WORD>(year);
  st->wMonth = static_cast<WORD>(month);
  st->wDay = static_cast<WORD>(day);
  return S_OK;
}

}  // namespace

bool DateToSystemTime(double date, SYSTEMTIME* st) {
  if (!(date > kDateMin - 1.0 && date < kDateMax + 1.0)) return false;
  const double whole = date < 0 ? std::ceil(date) : std::floor(date);
  const double fraction = std::fabs(date - whole);
  // Round to the second; exactly half a second goes down.
  const long long ms = std::llround(fraction * 86400000.0);
  long seconds = static_cast<long>(ms / 1000);
  if (ms % 1000 > 500) ++seconds;
  long day = static_cast<long>(whole);
  if (seconds >= 86400) {
    seconds -= 86400;
    ++day;
  }
  fillSystemTime(day, seconds, st);
  return true;
}

bool SystemTimeToDate(const SYSTEMTIME& st, double* date) {
  if (st.wMonth > 12 || st.wDay > 31 || st.wYear > 9999) return false;
  long year = twoDigitYear(st.wYear);
  long month = st.wMonth;
  if (month == 0) {
    month = 12;
    --year;
  }
  const long seconds = st.wHour * 3600L + st.wMinute * 60L + st.wSecond;
  const long day = daysFromCivil(year, month, 1) - kEpochDays + (st.wDay - 1) + seconds / 86400;
  if (day < kDateMin || day > kDateMax) return false;
  const double time = static_cast<double>(seconds % 86400) / 86400.0;
  *date = static_cast<double>(day) + (day < 0 ? -time : time);
  return true;
}

HRESULT FormatDate(double date, const LocaleInfo& locale, DateTextForm form, std::u16string* out) {
  SYSTEMTIME st;
  if (!DateToSystemTime(date, &st)) return E_INVALIDARG;
  if (form == DateTextForm::Automatic) {
    const double whole = date < 0 ? std::ceil(date) : std::floor(date);
    const double part = date - whole;
    if (whole == 0.0)
      form = DateTextForm::TimeOnly;
    else if (part > -1e-12 && part < 1e-12)
      form = DateTextForm::DateOnly;
    else
      form = DateTextForm::DateAndTime;
  }
  out->clear();
  if (form != DateTextForm::TimeOnly) applyPattern(locale.shortDate, st, locale, out);
  if (form != DateTextForm::DateOnly) {
    if (!out->empty()) out->push_back(u' ');
    applyPattern(locale.timeFormat, st, locale, out);
  }
  return S_OK;
}

HRESULT ParseDate(const char16_t* text, const LocaleInfo& locale, DateTextForm form, double* out) {
  if (!text) return DISP_E_TYPEMISMATCH;
  Token tokens[kMaxTokens];
  int count = 0;
  unsigned ampm = 0;
  HRESULT hr = tokenize(text, locale, tokens, &count, &ampm);
  if (FAILED(hr)) return hr;
  if (count == 0) return DISP_E_TYPEMISMATCH;

  // The time: numbers joined by time separators, or a single number with
  // AM/PM. Everything else is the date, which must stand on one side of it.
  int timeStart = -1, timeCount = 0;
  for (int i = 0; i < count; ++i) {
    if (tokens[i].flags & kTimeSep) {
      timeStart = i;
      timeCount = 1;
      while (timeStart + timeCount < count && (tokens[timeStart + timeCount - 1].flags & kTimeSep)) ++timeCount;
      if (tokens[timeStart + timeCount - 1].flags & kTimeSep) return DISP_E_TYPEMISMATCH;
      break;
    }
  }
  if (timeStart < 0 && ampm) {
    for (int i = 0; i < count; ++i)
      if (tokens[i].flags & (kAm | kPm)) timeStart = i, timeCount = 1;
  }
  SYSTEMTIME st = {};
  const Token* dateTokens = tokens;
  int dateCount = count;
  if (timeStart >= 0) {
    if (timeCount > 3) return DISP_E_TYPEMISMATCH;
    for (int i = timeStart; i < timeStart + timeCount; ++i) {
      if (tokens[i].flags & kMonthName) return DISP_E_TYPEMISMATCH;
      if ((tokens[i].flags & (kAm | kPm)) && i != timeStart + timeCount - 1) return DISP_E_TYPEMISMATCH;
    }
    const long hour = tokens[timeStart].value;
    const long minute = timeCount > 1 ? tokens[timeStart + 1].value : 0;
    const long second = timeCount > 2 ? tokens[timeStart + 2].value : 0;
    if (hour > 23 || minute > 59 || second > 59) return DISP_E_TYPEMISMATCH;
    st.wHour = static_cast<WORD>(hour);
    st.wMinute = static_cast<WORD>(minute);
    st.wSecond = static_cast<WORD>(second);
    if (ampm == kPm && st.wHour < 12) st.wHour = static_cast<WORD>(st.wHour + 12);
    if (ampm == kAm && st.wHour == 12) st.wHour = 0;
    if (timeStart == 0) {
      dateTokens = tokens + timeCount;
      dateCount = count - timeCount;
    } else if (timeStart + timeCount == count) {
      dateCount = timeStart;
    } else {
      return DISP_E_TYPEMISMATCH;
    }
    for (int i = 0; i < dateCount; ++i)
      if (dateTokens[i].flags & (kAm | kPm)) return DISP_E_TYPEMISMATCH;
  } else if (ampm) {
    return DISP_E_TYPEMISMATCH;
  }

  hr = makeDate(dateTokens, dateCount, locale.dateOrder, &st);
  if (FAILED(hr)) return hr;
  if (form == DateTextForm::TimeOnly) {
    st.wYear = 1899, st.wMonth = 12, st.wDay = 30;
  } else if (form == DateTextForm::DateOnly) {
    st.wHour = st.wMinute = st.wSecond = 0;
  }
  return SystemTimeToDate(st, out) ? S_OK : DISP_E_TYPEMISMATCH;
}

}  // namespace veltrane::platform::detail

extern "C" {

INT SystemTimeToVariantTime(SYSTEMTIME* lpSystemTime, DOUBLE* pvtime) {
  if (!lpSystemTime || !pvtime) return FALSE;
  return veltrane::platform::detail::SystemTimeToDate(*lpSystemTime, pvtime) ? TRUE : FALSE;
}

INT VariantTimeToSystemTime(DOUBLE vtime, SYSTEMTIME* lpSystemTime) {
  if (!lpSystemTime) return FALSE;
  return veltrane::platform::detail::DateToSystemTime(vtime, lpSystemTime) ? TRUE : FALSE;
}

static void systemTimeFromClock(bool local, SYSTEMTIME* st) {
  if (!st) return;
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  time_t seconds = ts.tv_sec;
  tm parts;
  if (local)
    localtime_r(&seconds, &parts);
  else
    gmtime_r(&seconds, &parts);
  st->wYear = static_cast<WORD>(parts.tm_year + 1900);
  st->wMonth = static_cast<WORD>(parts.tm_mon + 1);
  st->wDayOfWeek = static_cast<WORD>(parts.tm_wday);
  st->wDay = static_cast<WORD>(parts.tm_mday);
  st->wHour = static_cast<WORD>(parts.tm_hour);
  st->wMinute = static_cast<WORD>(parts.tm_min);
  st->wSecond = static_cast<WORD>(parts.tm_sec > 59 ? 59 : parts.tm_sec);
  st->wMilliseconds = static_cast<WORD>(ts.tv_nsec / 1000000);
}

void GetLocalTime(SYSTEMTIME* lpSystemTime) { systemTimeFromClock(true, lpSystemTime); }

void GetSystemTime(SYSTEMTIME* lpSystemTime) { systemTimeFromClock(false, lpSystemTime); }

}  // extern "C"
