#include "abap/scalar_conversion.h"

#include <cstdio>
#include <cstring>

#include "platform/atlbase.h"
#include "platform/oleauto.h"
#include "runtime/exceptions.h"
#include "runtime/variant_name.h"

namespace {

// How ScalarLength becomes a size or a declared length.
enum class Measure : uint8_t {
  Fixed,    // the row's size, whatever the length
  PerUnit,  // length units of the row's size each
  Packed,   // length / 2 + 1 bytes, the length being digits
};

// A dictionary field's declared length: kept, turned from bytes into digits
// (length * 2 - 1, decimals kept), or dropped (0 and 0).
enum class DeclaredLength : uint8_t { Kept, BytesToDigits, None };

// One row per scalar ABAPTYPE: its dictionary letter, the pad character of a
// fresh field, its size in the two-byte (C2) and one-byte (C1) layouts, and
// what a dictionary field's length means for it.
struct ScalarRow {
  int32_t code;
  char16_t letter;
  char16_t pad;
  Measure measure;
  uint32_t sizeC2;
  uint32_t sizeC1;
  DeclaredLength declared;
};

constexpr ScalarRow kScalars[] = {
    {TYPE_CHAR, u'C', u' ', Measure::PerUnit, 2, 1, DeclaredLength::Kept},
    {TYPE_DATE, u'D', u'0', Measure::Fixed, 16, 8, DeclaredLength::Kept},
    {TYPE_BCD, u'P', 0, Measure::Packed, 0, 0, DeclaredLength::BytesToDigits},
    {TYPE_TIME, u'T', u'0', Measure::Fixed, 12, 6, DeclaredLength::Kept},
    {TYPE_BYTE, u'X', 0, Measure::PerUnit, 1, 1, DeclaredLength::Kept},
    {TYPE_NUM, u'N', u'0', Measure::PerUnit, 2, 1, DeclaredLength::Kept},
    {TYPE_FLOAT, u'F', 0, Measure::Fixed, 8, 8, DeclaredLength::None},
    {TYPE_INT, u'I', 0, Measure::Fixed, 4, 4, DeclaredLength::None},
    {TYPE_INT2, u's', 0, Measure::Fixed, 2, 2, DeclaredLength::None},
    {TYPE_INT1, u'b', 0, Measure::Fixed, 1, 1, DeclaredLength::None},
    {TYPE_STRING, u'g', 0, Measure::Fixed, 8, 8, DeclaredLength::None},     // a pointer
    {TYPE_XSTRING, u'y', 0, Measure::Fixed, 16, 16, DeclaredLength::None},  // a 32-bit length and a pointer
};

const ScalarRow* FindScalar(int32_t code) {
  for (const auto& row : kScalars)
    if (row.code == code) return &row;
  return nullptr;
}

const ScalarRow* FindLetter(char16_t letter) {
  for (const auto& row : kScalars)
    if (row.letter == letter) return &row;
  return nullptr;
}

uint32_t SizeOf(int32_t code, uint32_t length, uint32_t ScalarRow::*size) {
  const ScalarRow* row = FindScalar(code);
  if (!row) return 0;
  switch (row->measure) {
    case Measure::Fixed: return row->*size;
    case Measure::PerUnit: return length * (row->*size);
    case Measure::Packed: return length / 2 + 1;
  }
  return 0;
}

bool IsDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

// Value equality of the "initial" tests: by type first, texts by VarCmp.
bool IsInitialText(const VARIANT& value, const char16_t* zeros) {
  if (value.vt != VT_BSTR) return false;
  const char16_t* candidates[] = {zeros, u"", u" "};
  for (const char16_t* text : candidates) {
    CComVariant other(text);
    if (VarCmp(const_cast<VARIANT*>(&value), &other, LOCALE_USER_DEFAULT, 0) == VARCMP_EQ) return true;
  }
  return false;
}

bool IsInitialValue(const VARIANT& value, const char16_t* zeros) {
  if (value.vt == VT_EMPTY) return true;
  if (value.vt == VT_I4 && value.lVal == 0) return true;
  return IsInitialText(value, zeros);
}

// A number into width places, right-aligned, pad in front.
void PutNumber(char16_t* target, unsigned value, int width, char16_t pad) {
  int i = width;
  do {
    target[--i] = static_cast<char16_t>(u'0' + value % 10);
    value /= 10;
  } while (value != 0 && i > 0);
  while (i > 0) target[--i] = pad;
}

// The first steps of the date and the time rule, alike but for the width:
// VT_NULL writes NUL units, an initial value the zeros. True when written.
bool WroteNullOrInitial(char16_t* target, const VARIANT& value, const char16_t* zeros, size_t width) {
  if (value.vt == VT_NULL) {
    std::memset(target, 0, width * sizeof(char16_t));
    return true;
  }
  if (!IsInitialValue(value, zeros)) return false;
  std::memcpy(target, zeros, width * sizeof(char16_t));
  return true;
}

}  // namespace

int32_t RfcScalarType(int32_t code) { return FindScalar(code) ? code : -1; }

int32_t RfcTypeFromLetter(char16_t letter) {
  const ScalarRow* row = FindLetter(letter);
  return row ? row->code : -1;
}

char16_t RfcLetterFromType(int32_t code) {
  const ScalarRow* row = FindScalar(code);
  return row ? row->letter : 0;
}

bool RfcTypeFromFieldInfo(char16_t letter, int32_t length, int32_t decimals, RfcFieldInfo& info) {
  const ScalarRow* row = FindLetter(letter);
  info.type = row ? row->code : -1;
  info.length = 0;
  info.decimals = 0;
  if (!row) return false;
  switch (row->declared) {
    case DeclaredLength::Kept: info.length = length; break;
    case DeclaredLength::BytesToDigits:
      info.length = length * 2 - 1;
      info.decimals = decimals;
      break;
    case DeclaredLength::None: break;
  }
  return true;
}

RFCTYPEKIND RfcKindFromLetter(char16_t letter) {
  switch (letter) {
    case u'h': return RFCTYPEKIND_TABLE;
    case u'u': return RFCTYPEKIND_STRUCT;
    case u'v': return RFCTYPEKIND_COMPLEX_STRUCT;
    default: return RFCTYPEKIND_SCALAR;
  }
}

char16_t RfcPadChar(int32_t code) {
  const ScalarRow* row = FindScalar(code);
  return row ? row->pad : 0;
}

uint32_t RfcFieldLengthC2(int32_t code, uint32_t length) { return SizeOf(code, length, &ScalarRow::sizeC2); }

uint32_t RfcFieldLengthC1(int32_t code, uint32_t length) { return SizeOf(code, length, &ScalarRow::sizeC1); }

std::u16string VariantTraceText(const VARIANT& value) {
  if (value.vt == VT_NULL) return u"{null}";
  if (value.vt & VT_ARRAY) return u"{binary}";
  if (value.vt == VT_EMPTY || value.vt == VT_ERROR) return u"{empty}";
  CComVariant text;
  if (FAILED(VariantChangeType(&text, &value, 0, VT_BSTR)) || text.vt != VT_BSTR) {
    std::u16string name = u"{";
    name += VariantTypeName(value.vt);
    name += u'}';
    return name;
  }
  return std::u16string(text.bstrVal ? text.bstrVal : u"", SysStringLen(text.bstrVal));
}

bool RfcIsDateText(std::u16string_view text) {
  if (text.size() != 8) return false;
  for (char16_t c : text)
    if (!IsDigit(c)) return false;
  int month = (text[4] - u'0') * 10 + (text[5] - u'0');
  int day = (text[6] - u'0') * 10 + (text[7] - u'0');
  return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

int64_t RfcParseDigits(const char16_t* chars, size_t count, bool allowSign) {
  if (!chars || count == 0) return 0;
  size_t begin = 0;
  size_t end = count;
  while (begin < end && chars[begin] == u' ') ++begin;
  while (end > begin && chars[end - 1] == u' ') --end;
  bool negative = false;
  if (allowSign && begin < end) negative = chars[0] == u'-' || chars[end - 1] == u'-';
  uint64_t result = 0;
  for (size_t i = begin; i < end; ++i)
    if (IsDigit(chars[i])) result = result * 10 + static_cast<uint64_t>(chars[i] - u'0');
  int64_t value = static_cast<int64_t>(result);
  return negative ? -value : value;
}

int RfcDateToVariant(VARIANT* result, const char16_t* chars) {
  VariantClear(result);
  int64_t year = RfcParseDigits(chars, 4, false);
  int64_t month = RfcParseDigits(chars + 4, 2, false);
  int64_t day = RfcParseDigits(chars + 6, 2, false);
  if (year == 0 && month == 0 && day == 0) return 1;
  result->vt = VT_DATE;
  result->date = 0.0;
  SYSTEMTIME st{};
  st.wYear = static_cast<WORD>(year);
  st.wMonth = static_cast<WORD>(month);
  st.wDay = static_cast<WORD>(day);
  DOUBLE date = 0.0;
  int ok = SystemTimeToVariantTime(&st, &date);
  if (ok) result->date = date;
  return ok;
}

HRESULT RfcTimeToVariant(VARIANT* result, const char16_t* chars) {
  VariantClear(result);
  unsigned hour = static_cast<unsigned>(RfcParseDigits(chars, 2, false));
  unsigned minute = static_cast<unsigned>(RfcParseDigits(chars + 2, 2, false));
  unsigned second = static_cast<unsigned>(RfcParseDigits(chars + 4, 2, false));
  // A time of the day: the fraction the platform makes of its text, without
  // the text (tables read many).
  if (hour < 24 && minute < 60 && second < 60) {
    result->vt = VT_DATE;
    result->date = static_cast<double>(hour * 3600 + minute * 60 + second) / 86400.0;
    return S_OK;
  }
  char text[9];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u", hour, minute, second);
  char16_t wide[9];
  for (int i = 0; i < 9; ++i) wide[i] = static_cast<char16_t>(text[i]);
  result->vt = VT_BSTR;
  result->bstrVal = SysAllocString(wide);
  return VariantChangeType(result, result, 0, VT_DATE);
}

void RfcVariantToDate(char16_t* target, VARIANT* value, const DateSpelling& spelling) {
  if (WroteNullOrInitial(target, *value, u"00000000", 8)) return;
  if (value->vt == VT_BSTR && RfcIsDateText(std::u16string_view(value->bstrVal, SysStringLen(value->bstrVal)))) {
    std::memcpy(target, value->bstrVal, 8 * sizeof(char16_t));
    return;
  }
  if (FAILED(VariantChangeType(value, value, 0, VT_DATE))) {
    if (!spelling.conversionMessage) throw CXVeltrane(CXVeltrane::DATE_TIME_CONVERSION, u"");
    throw CXVeltrane(CXVeltrane::DATE_TIME_CONVERSION, spelling.conversionMessage, spelling.conversionContext,
                     VariantTraceText(*value));
  }
  SYSTEMTIME st{};
  if (!VariantTimeToSystemTime(value->date, &st))
    throw CXVeltrane(CXVeltrane::DATE_TIME_CONVERSION, u"not a valid date", u"RfcVariantToData(),TYPE_DATE",
                     VariantTraceText(*value));
  PutNumber(target, st.wYear, 4, spelling.yearPad);
  PutNumber(target + 4, st.wMonth, 2, u'0');
  PutNumber(target + 6, st.wDay, 2, u'0');
}

void RfcVariantToTime(char16_t* target, VARIANT* value) {
  if (WroteNullOrInitial(target, *value, u"000000", 6)) return;
  if (value->vt == VT_BSTR) {
    std::u16string_view text(value->bstrVal, SysStringLen(value->bstrVal));
    bool digits = text.size() == 6;
    for (size_t i = 0; digits && i < text.size(); ++i) digits = IsDigit(text[i]);
    if (digits) {
      std::memcpy(target, text.data(), 6 * sizeof(char16_t));
      return;
    }
    bool clock = text.size() == 8;
    for (size_t i = 0; clock && i < text.size(); ++i) clock = text[i] >= u'0' && text[i] <= u':';
    if (clock) {
      const size_t places[] = {0, 1, 3, 4, 6, 7};
      for (size_t i = 0; i < 6; ++i) target[i] = text[places[i]];
      return;
    }
  }
  SYSTEMTIME st{};
  if (value->vt != VT_DATE) {
    std::u16string before = VariantTraceText(*value);
    if (FAILED(VariantChangeType(value, value, 0, VT_DATE)))
      throw CXVeltrane(CXVeltrane::DATE_TIME_CONVERSION, u"not a valid time", u"RfcVariantToData(),TYPE_TIME", before);
  }
  if (!VariantTimeToSystemTime(value->date, &st))
    throw CXVeltrane(CXVeltrane::DATE_TIME_CONVERSION, u"not a valid time", u"RfcVariantToData(),TYPE_TIME",
                     VariantTraceText(*value));
  PutNumber(target, st.wHour, 2, u'0');
  PutNumber(target + 2, st.wMinute, 2, u'0');
  PutNumber(target + 4, st.wSecond, 2, u'0');
}
