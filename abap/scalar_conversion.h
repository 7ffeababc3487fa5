// Scalar helpers shared by the back ends: dates and times between the
// ABAP character forms and variants, fixed-width digit parsing, and the
// tables that translate between ABAPTYPE, dictionary letters, field sizes
// and pad characters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/oaidl.h"
#include "veltrane_tlb.h"

// ---------------------------------------------------------------- tables

// The code itself for the twelve scalar codes (CHAR, DATE, BCD, TIME, BYTE,
// NUM, FLOAT, INT, INT2, INT1, STRING, XSTRING), -1 for anything else.
int32_t RfcScalarType(int32_t code);

// Dictionary letter to ABAPTYPE: C D P T X N F I s b g y; -1 for others.
int32_t RfcTypeFromLetter(char16_t letter);

// ABAPTYPE to dictionary letter; 0 for a code without one.
char16_t RfcLetterFromType(int32_t code);

// Type code, ScalarLength and ScalarDecimals of a dictionary field.
struct RfcFieldInfo {
  int32_t type = -1;
  int32_t length = 0;
  int32_t decimals = 0;
};

// Fills info from a dictionary letter, a length in bytes and decimals.
// P keeps its decimals and turns bytes into digits (length * 2 - 1);
// C D N T X keep the length with decimals 0; F I b g s y get 0 and 0.
// An unknown letter sets the type to -1 and returns false.
bool RfcTypeFromFieldInfo(char16_t letter, int32_t length, int32_t decimals, RfcFieldInfo& info);

// h: TABLE, u: STRUCT, v: COMPLEX_STRUCT, everything else SCALAR.
RFCTYPEKIND RfcKindFromLetter(char16_t letter);

// The pad character of a fresh field: blank for CHAR, "0" for DATE, TIME
// and NUM, 0 (none) for all others.
char16_t RfcPadChar(int32_t code);

// Size of a scalar in an SDK buffer of the two-byte (C2) and the one-byte
// (C1) layout; 0 for codes without a scalar form. length is ScalarLength.
uint32_t RfcFieldLengthC2(int32_t code, uint32_t length);
uint32_t RfcFieldLengthC1(int32_t code, uint32_t length);

// --------------------------------------------------------- text helpers

// The value text of conversion failures and trace lines: "{null}",
// "{binary}" for any array, "{empty}" for VT_EMPTY and VT_ERROR, else the
// value converted to a string (the empty text when it does not convert).
std::u16string VariantTraceText(const VARIANT& value);

// True for exactly 8 ASCII digits with month 01..12 and day 01..31 (the
// year is not looked at, the day not checked against the month).
bool RfcIsDateText(std::u16string_view text);

// A fixed-width number: leading and trailing blanks are skipped; with
// allowSign a "-" in the very first place of the field, or else in the last
// non-blank place, makes the result negative; other non-digits are
// skipped; no digits give 0.
int64_t RfcParseDigits(const char16_t* chars, size_t count, bool allowSign);

// ------------------------------------------------------ dates and times

// Reads 8 code units YYYYMMDD. With year, month and day all 0 (digits by
// RfcParseDigits, so blanks count as 0) the result stays VT_EMPTY and 1 is
// returned. Otherwise the result is a VT_DATE at midnight and the value of
// SystemTimeToVariantTime is returned; an impossible date leaves the
// VT_DATE with value 0 and no failure.
int RfcDateToVariant(VARIANT* result, const char16_t* chars);

// Reads 6 code units HHMMSS, formats "HH:MM:SS" and converts that to
// VT_DATE; a text the platform does not read as a time stays a VT_BSTR.
// Returns the result of the conversion.
HRESULT RfcTimeToVariant(VARIANT* result, const char16_t* chars);

// How a writer spells the date it makes. An SDK's buffer field takes the
// year padded with blanks, and a value that is no date at all fails without
// texts; the SOAP codec's text takes the year padded with zeros, and the
// failure names the conversion and the value.
struct DateSpelling {
  char16_t yearPad;                   // fills a year of fewer than four digits
  const char16_t* conversionMessage;  // null: the failure has no texts
  const char16_t* conversionContext;
};
inline constexpr DateSpelling kSdkDateSpelling{u' ', nullptr, nullptr};
inline constexpr DateSpelling kSoapDateSpelling{u'0', u"cannot convert to date", u"RfcValueToString(),TYPE_DATE"};

// Writes 8 code units YYYYMMDD for value, changing value in place when it
// must be converted. VT_NULL writes 8 NUL units; VT_EMPTY, VT_I4 0,
// "00000000", "" and " " write "00000000"; a date text (RfcIsDateText) is
// copied. Anything else goes through VT_DATE and is spelled as `spelling`
// says; failures raise CXVeltrane DATE_TIME_CONVERSION.
void RfcVariantToDate(char16_t* target, VARIANT* value, const DateSpelling& spelling = kSdkDateSpelling);

// Writes 6 code units HHMMSS. VT_NULL writes 6 NUL units; VT_EMPTY, VT_I4
// 0, "000000", "" and " " write "000000"; six digits are copied; eight
// characters in "0".."9:" are a clock text whose separators are dropped.
// Anything else goes through VT_DATE; failures raise CXVeltrane
// DATE_TIME_CONVERSION "not a valid time".
void RfcVariantToTime(char16_t* target, VARIANT* value);
