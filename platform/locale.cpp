// Locales: the data of en-US, en-GB, de-DE and the invariant locale, the
// resolution of default and language-only identifiers, the per-thread
// locale, and simple case folding.
#include "platform/internal/locale_data.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

namespace veltrane::platform::detail {
namespace {

#define ENGLISH_MONTHS                                                                                          \
  {                                                                                                             \
    u"January", u"February", u"March", u"April", u"May", u"June", u"July", u"August", u"September", u"October", \
        u"November", u"December"                                                                                \
  }
#define ENGLISH_MONTHS_ABBR \
  { u"Jan", u"Feb", u"Mar", u"Apr", u"May", u"Jun", u"Jul", u"Aug", u"Sep", u"Oct", u"Nov", u"Dec" }
#define ENGLISH_DAYS \
  { u"Sunday", u"Monday", u"Tuesday", u"Wednesday", u"Thursday", u"Friday", u"Saturday" }
#define ENGLISH_DAYS_ABBR \
  { u"Sun", u"Mon", u"Tue", u"Wed", u"Thu", u"Fri", u"Sat" }

const LocaleInfo kEnglishUS = {0x0409,         "en-US",
                               u'.',           u',',
                               u'-',           u'+',
                               u"$",           DateOrder::MDY,
                               u'/',           u':',
                               u"M/d/yyyy",    u"h:mm:ss tt",
                               u"AM",          u"PM",
                               ENGLISH_MONTHS, ENGLISH_MONTHS_ABBR,
                               ENGLISH_DAYS,   ENGLISH_DAYS_ABBR,
                               u"True",        u"False"};

const LocaleInfo kEnglishGB = {0x0809,         "en-GB",
                               u'.',           u',',
                               u'-',           u'+',
                               u"\u00A3",      DateOrder::DMY,
                               u'/',           u':',
                               u"dd/MM/yyyy",  u"HH:mm:ss",
                               u"AM",          u"PM",
                               ENGLISH_MONTHS, ENGLISH_MONTHS_ABBR,
                               ENGLISH_DAYS,   ENGLISH_DAYS_ABBR,
                               u"True",        u"False"};

const LocaleInfo kGermanDE = {
    0x0407,
    "de-DE",
    u',',
    u'.',
    u'-',
    u'+',
    u"\u20AC",
    DateOrder::DMY,
    u'.',
    u':',
    u"dd.MM.yyyy",
    u"HH:mm:ss",
    u"AM",
    u"PM",
    {u"Januar", u"Februar", u"M\u00E4rz", u"April", u"Mai", u"Juni", u"Juli", u"August", u"September", u"Oktober",
     u"November", u"Dezember"},
    {u"Jan", u"Feb", u"M\u00E4r", u"Apr", u"Mai", u"Jun", u"Jul", u"Aug", u"Sep", u"Okt", u"Nov", u"Dez"},
    {u"Sonntag", u"Montag", u"Dienstag", u"Mittwoch", u"Donnerstag", u"Freitag", u"Samstag"},
    {u"So", u"Mo", u"Di", u"Mi", u"Do", u"Fr", u"Sa"},
    u"Wahr",
    u"Falsch"};

const LocaleInfo kInvariant = {0x007F,         "invariant",
                               u'.',           u',',
                               u'-',           u'+',
                               u"\u00A4",      DateOrder::MDY,
                               u'/',           u':',
                               u"MM/dd/yyyy",  u"HH:mm:ss",
                               u"AM",          u"PM",
                               ENGLISH_MONTHS, ENGLISH_MONTHS_ABBR,
                               ENGLISH_DAYS,   ENGLISH_DAYS_ABBR,
                               u"True",        u"False"};

const LocaleInfo* const kLocales[] = {&kEnglishUS, &kEnglishGB, &kGermanDE, &kInvariant};

// Language-only identifiers (SUBLANG_NEUTRAL) and the locale they stand for.
struct NeutralLanguage {
  LANGID language;
  LCID locale;
};
const NeutralLanguage kNeutralLanguages[] = {{0x0009, 0x0409}, {0x0007, 0x0407}};

constexpr LCID kFallbackLcid = 0x0409;
constexpr LCID kCustomDefault = 0x0C00;
constexpr LCID kCustomUnspecified = 0x1000;
constexpr LCID kCustomUiDefault = 0x1400;

const LocaleInfo* findExact(LANGID language) {
  for (const LocaleInfo* info : kLocales)
    if (LANGIDFROMLCID(info->lcid) == language) return info;
  for (const NeutralLanguage& n : kNeutralLanguages)
    if (n.language == language) return findExact(LANGIDFROMLCID(n.locale));
  return nullptr;
}

LCID userDefaultFromEnvironment() {
  const char* value = std::getenv("VELTRANE_LCID");
  if (!value || !*value) return kFallbackLcid;
  LCID lcid = ParseLocaleName(value);
  return lcid ? lcid : kFallbackLcid;
}

thread_local LCID t_threadLocale = 0;

}  // namespace

const LocaleInfo& EnglishLocale() { return kEnglishUS; }

const LocaleInfo* FindLocale(LCID lcid) {
  switch (lcid) {
    case LOCALE_NEUTRAL:
    case LOCALE_USER_DEFAULT:
    case kCustomDefault:
    case kCustomUnspecified:
    case kCustomUiDefault: lcid = GetUserDefaultLCID(); break;
    case LOCALE_SYSTEM_DEFAULT: lcid = GetSystemDefaultLCID(); break;
    default: break;
  }
  // Bits 20 and above are reserved; the sort id (bits 16 to 19) selects an
  // alternative ordering, which these locales share with the default one.
  if (lcid >> 20) return nullptr;
  return findExact(LANGIDFROMLCID(lcid));
}

HRESULT LookupLocale(LCID lcid, const LocaleInfo** out) {
  *out = FindLocale(lcid);
  return *out ? S_OK : DISP_E_UNKNOWNLCID;
}

LCID ParseLocaleName(const char* text) {
  if (!text) return 0;
  std::string s(text);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.pop_back();
  size_t start = 0;
  while (start < s.size() && std::isspace(static_cast<unsigned char>(s[start]))) ++start;
  s = s.substr(start);
  if (s.empty()) return 0;

  auto known = [](unsigned long value) -> LCID {
    if (value > 0xFFFFFu) return 0;
    const LocaleInfo* info = FindLocale(static_cast<LCID>(value));
    return info ? info->lcid : 0;
  };
  if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    char* end = nullptr;
    unsigned long value = std::strtoul(s.c_str() + 2, &end, 16);
    return *end ? 0 : known(value);
  }
  if (std::isdigit(static_cast<unsigned char>(s[0]))) {
    char* end = nullptr;
    unsigned long value = std::strtoul(s.c_str(), &end, 10);
    return *end ? 0 : known(value);
  }

  // A tag: language, optional region; encoding and modifier are ignored.
  size_t cut = s.find_first_of(".@");
  if (cut != std::string::npos) s.resize(cut);
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (s == "invariant") return 0x007F;
  std::string language = s, region;
  size_t sep = s.find_first_of("-_");
  if (sep != std::string::npos) {
    language = s.substr(0, sep);
    region = s.substr(sep + 1);
  }
  if (language == "en") {
    if (region.empty() || region == "us") return 0x0409;
    if (region == "gb" || region == "uk") return 0x0809;
    return 0;
  }
  if (language == "de") {
    if (region.empty() || region == "de") return 0x0407;
    return 0;
  }
  return 0;
}

char16_t FoldCase(char16_t c) {
  if (c < 0x80) return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 0x20) : c;
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return static_cast<char16_t>(c + 0x20);
  if (c >= 0x100 && c <= 0x17F) {
    if (c == 0x130) return u'i';
    if (c == 0x178) return 0xFF;
    bool evenUpper = (c <= 0x137) || (c >= 0x14A && c <= 0x177);
    bool oddUpper = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    if (evenUpper && (c % 2 == 0)) return static_cast<char16_t>(c + 1);
    if (oddUpper && (c % 2 == 1)) return static_cast<char16_t>(c + 1);
    return c;
  }
  if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) return static_cast<char16_t>(c + 0x20);
  if (c == 0x386) return 0x3AC;
  if (c >= 0x388 && c <= 0x38A) return static_cast<char16_t>(c + 0x25);
  if (c == 0x38C) return 0x3CC;
  if (c == 0x38E || c == 0x38F) return static_cast<char16_t>(c + 0x3F);
  if (c >= 0x410 && c <= 0x42F) return static_cast<char16_t>(c + 0x20);
  if (c >= 0x400 && c <= 0x40F) return static_cast<char16_t>(c + 0x50);
  if (c >= 0xFF21 && c <= 0xFF3A) return static_cast<char16_t>(c + 0x20);
  return c;
}

char16_t UpperCase(char16_t c) {
  if (c < 0x80) return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 0x20) : c;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return static_cast<char16_t>(c - 0x20);
  if (c == 0xFF) return 0x178;
  if (c >= 0x100 && c <= 0x17F) {
    if (c == 0x131) return u'I';
    bool evenUpper = (c <= 0x137) || (c >= 0x14A && c <= 0x177);
    bool oddUpper = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    if (evenUpper && (c % 2 == 1)) return static_cast<char16_t>(c - 1);
    if (oddUpper && (c % 2 == 0) && c != 0x138) return static_cast<char16_t>(c - 1);
    return c;
  }
  if (c >= 0x3B1 && c <= 0x3C9 && c != 0x3C2) return static_cast<char16_t>(c - 0x20);
  if (c == 0x3AC) return 0x386;
  if (c >= 0x3AD && c <= 0x3AF) return static_cast<char16_t>(c - 0x25);
  if (c == 0x3CC) return 0x38C;
  if (c == 0x3CD || c == 0x3CE) return static_cast<char16_t>(c - 0x3F);
  if (c >= 0x430 && c <= 0x44F) return static_cast<char16_t>(c - 0x20);
  if (c >= 0x450 && c <= 0x45F) return static_cast<char16_t>(c - 0x50);
  if (c >= 0xFF41 && c <= 0xFF5A) return static_cast<char16_t>(c - 0x20);
  return c;
}

bool EqualsNoCase(const char16_t* a, const char16_t* b, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (FoldCase(a[i]) != FoldCase(b[i])) return false;
  return true;
}

bool IsBlank(char16_t c) {
  if (c <= 0x20) return c == u' ' || (c >= u'\t' && c <= u'\r');
  switch (c) {
    case 0x85:
    case 0xA0:
    case 0x1680:
    case 0x2028:
    case 0x2029:
    case 0x202F:
    case 0x205F:
    case 0x3000: return true;
    default: return c >= 0x2000 && c <= 0x200A;
  }
}

size_t TextLength(const char16_t* s) {
  size_t n = 0;
  if (s)
    while (s[n]) ++n;
  return n;
}

}  // namespace veltrane::platform::detail

using veltrane::platform::detail::FindLocale;

extern "C" {

LCID GetUserDefaultLCID() {
  static const LCID lcid = veltrane::platform::detail::userDefaultFromEnvironment();
  return lcid;
}

LCID GetSystemDefaultLCID() { return GetUserDefaultLCID(); }

LCID GetThreadLocale() {
  LCID lcid = veltrane::platform::detail::t_threadLocale;
  return lcid ? lcid : GetUserDefaultLCID();
}

BOOL SetThreadLocale(LCID Locale) {
  const veltrane::platform::detail::LocaleInfo* info = FindLocale(Locale);
  if (!info) return FALSE;
  // Keep a specific identifier with its sort id; defaults and language-only
  // identifiers become the locale they stand for.
  bool specific = (Locale & 0xFFFF) == LANGIDFROMLCID(info->lcid);
  veltrane::platform::detail::t_threadLocale = specific ? Locale : info->lcid;
  return TRUE;
}

}  // extern "C"
