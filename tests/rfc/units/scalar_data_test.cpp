// One scalar between a variant and the classic SDK's buffer form, with the
// SDK's converters replaced by recorders where the test decides what the SDK
// answers. The same conversions against our librfcum.so are in
// ../marshal_test.cpp.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "model/model.h"
#include "platform/atlbase.h"
#include "platform/oleauto.h"
#include "rfc/scalar_data.h"
#include "runtime/exceptions.h"

using namespace veltrane::sdk::rfc;

namespace {

// What the fake SDK was given and will answer.
struct FakeSdk {
  static inline std::u16string bcdText;
  static inline int bcdDecimals = 0;
  static inline int bcdSize = 0;
  static inline int bcdResult = 0;
  static inline std::u16string bcdCharText = u"   12.50-";
  static inline int bcdCharResult = 0;
  static inline bool allocFails = false;
  static inline int resizeResult = 0;
  static inline std::vector<unsigned char> xstringData;
  static inline std::vector<std::vector<unsigned char>> strings;

  static void Reset() {
    bcdText.clear();
    bcdDecimals = bcdSize = bcdResult = bcdCharResult = resizeResult = 0;
    bcdCharText = u"   12.50-";
    allocFails = false;
    strings.clear();
  }

  static int CharToBcd(char16_t* text, int length, int* decimals, unsigned char*, int size) {
    bcdText.assign(text, static_cast<size_t>(length));
    bcdDecimals = *decimals;
    bcdSize = size;
    return bcdResult;
  }
  static int BcdToChar(unsigned char*, int, int, char16_t* buffer, int length) {
    for (int i = 0; i < length && i < static_cast<int>(bcdCharText.size()); ++i) buffer[i] = bcdCharText[i];
    return bcdCharResult;
  }
  static unsigned char* AllocString(unsigned size) {
    if (allocFails) return nullptr;
    strings.emplace_back(size, 0);
    return strings.back().data();
  }
  static RFC_RC ResizeXString(RFC_XSTRING* x, int size) {
    if (resizeResult == 1) return RFC_FAILURE;
    xstringData.assign(static_cast<size_t>(size), 0);
    x->length = size;
    x->content = xstringData.data();
    return static_cast<RFC_RC>(resizeResult);
  }
};

EntryPoints MakeSdk() {
  EntryPoints sdk;
  sdk.RfcConvertCharToBcdU = &FakeSdk::CharToBcd;
  sdk.RfcConvertBcdToCharU = &FakeSdk::BcdToChar;
  sdk.RfcAllocStringU = &FakeSdk::AllocString;
  sdk.RfcResizeXStringU = &FakeSdk::ResizeXString;
  return sdk;
}
const EntryPoints kSdk = MakeSdk();

class ScalarData : public ::testing::Test {
 protected:
  void SetUp() override { FakeSdk::Reset(); }
  void TearDown() override { SetThreadLocale(m_locale); }

  LCID m_locale = GetThreadLocale();
};

std::u16string Units(const char16_t* field, size_t count) { return std::u16string(field, count); }

std::u16string Str(const VARIANT& v) {
  return v.vt == VT_BSTR ? std::u16string(v.bstrVal, SysStringLen(v.bstrVal)) : u"<not text>";
}

CComVariant Bytes(std::vector<unsigned char> bytes) {
  CComVariant value;
  RfcRawToVariantSafeArray(&value, bytes.data(), static_cast<uint32_t>(bytes.size()));
  return value;
}

// Runs body and gives the kind, message and context of the CXVeltrane it raises.
template <class Body>
std::vector<std::u16string> Raised(Body&& body, int32_t* kind) {
  try {
    body();
  } catch (const CXVeltrane& e) {
    *kind = e.Kind();
    return {e.Message(), e.Context(), e.Value()};
  }
  *kind = -1;
  return {};
}

// ------------------------------------------------------------------ NUM

TEST_F(ScalarData, NumTooLongLeavesZerosAndRaisesNothing) {
  char16_t field[10];
  CComVariant value(u"123456789012");
  EXPECT_EQ(RfcVariantToData(field, TYPE_NUM, 10, 0, &value, kSdk), 0);
  EXPECT_EQ(Units(field, 10), u"0000000000");
}

TEST_F(ScalarData, NumShortTextIsRightAlignedUnchecked) {
  char16_t field[10];
  CComVariant digits(u"123");
  RfcVariantToData(field, TYPE_NUM, 10, 0, &digits, kSdk);
  EXPECT_EQ(Units(field, 10), u"0000000123");
  CComVariant letters(u"ABC");
  RfcVariantToData(field, TYPE_NUM, 10, 0, &letters, kSdk);
  EXPECT_EQ(Units(field, 10), u"0000000ABC");
}

TEST_F(ScalarData, NumFromANumberBecomesItsText) {
  char16_t field[4];
  CComVariant value(42L);
  RfcVariantToData(field, TYPE_NUM, 4, 0, &value, kSdk);
  EXPECT_EQ(Units(field, 4), u"0042");
  EXPECT_EQ(value.vt, VT_BSTR);
}

// ----------------------------------------------------------------- CHAR

TEST_F(ScalarData, CharCutsWithoutAWordAndKeepsTheCallersFill) {
  char16_t field[6] = {u'.', u'.', u'.', u'.', u'.', u'.'};
  CComVariant longer(u"ABCDEFGH");
  RfcVariantToData(field, TYPE_CHAR, 6, 0, &longer, kSdk);
  EXPECT_EQ(Units(field, 6), u"ABCDEF");
  char16_t blank[6] = {u' ', u' ', u' ', u' ', u' ', u' '};
  CComVariant shorter(u"AB");
  RfcVariantToData(blank, TYPE_CHAR, 6, 0, &shorter, kSdk);
  EXPECT_EQ(Units(blank, 6), u"AB    ");
}

TEST_F(ScalarData, CharStopsAtAnEmbeddedNulAndFillsTheCountedStretch) {
  char16_t field[6] = {u' ', u' ', u' ', u' ', u' ', u' '};
  CComVariant value;
  value.vt = VT_BSTR;
  const char16_t text[] = {u'A', 0, u'B', u'C'};
  value.bstrVal = SysAllocStringLen(text, 4);
  RfcVariantToData(field, TYPE_CHAR, 6, 0, &value, kSdk);
  EXPECT_EQ(Units(field, 6), std::u16string(u"A\0\0\0  ", 6));
}

TEST_F(ScalarData, CharFromSomethingWithoutTextFails) {
  char16_t field[4];
  CComVariant value;
  value.vt = VT_UNKNOWN;
  value.punkVal = nullptr;
  int32_t kind = 0;
  auto texts = Raised([&] { RfcVariantToData(field, TYPE_CHAR, 4, 0, &value, kSdk); }, &kind);
  EXPECT_EQ(kind, CXVeltrane::STRING_CONVERSION);
  EXPECT_EQ(texts[0], u"cannot convert to string");
  EXPECT_EQ(texts[1], u"RfcVariantToData(),TYPE_CHAR");
}

// ----------------------------------------------------------------- BCD

TEST_F(ScalarData, BcdGetsTheTextItsLengthDecimalsAndPackedSize) {
  unsigned char field[5];
  CComVariant value(u"-12.50");
  RfcVariantToData(field, TYPE_BCD, 9, 2, &value, kSdk);
  EXPECT_EQ(FakeSdk::bcdText, u"-12.50");
  EXPECT_EQ(FakeSdk::bcdDecimals, 2);
  EXPECT_EQ(FakeSdk::bcdSize, 5);
}

TEST_F(ScalarData, BcdOfADoubleUnderAGermanLocaleShowsTheCommaToTheSdk) {
  SetThreadLocale(0x0407);
  unsigned char field[5];
  CComVariant value(1.5);
  RfcVariantToData(field, TYPE_BCD, 9, 1, &value, kSdk);
  EXPECT_EQ(FakeSdk::bcdText, u"1,5");
}

TEST_F(ScalarData, BcdResultsOfTheSdkBecomeTheirFailures) {
  unsigned char field[5];
  int32_t kind = 0;
  FakeSdk::bcdResult = 2;
  CComVariant big(u"1234567890");
  auto texts = Raised([&] { RfcVariantToData(field, TYPE_BCD, 9, 0, &big, kSdk); }, &kind);
  EXPECT_EQ(kind, CXVeltrane::BCD_CONVERSION_TOO_LARGE);
  EXPECT_EQ(texts[0], u"number too large");
  EXPECT_EQ(texts[1], u"RfcVariantToData(),TYPE_BCD");
  EXPECT_EQ(texts[2], u"1234567890");
  for (int result : {3, 4}) {
    FakeSdk::bcdResult = result;
    CComVariant bad(u"1x");
    texts = Raised([&] { RfcVariantToData(field, TYPE_BCD, 9, 0, &bad, kSdk); }, &kind);
    EXPECT_EQ(kind, CXVeltrane::BCD_CONVERSION_INVALID);
    EXPECT_EQ(texts[0], u"invalid format");
  }
  for (int result : {1, 5, -1}) {
    FakeSdk::bcdResult = result;
    CComVariant done(u"1");
    EXPECT_EQ(Raised([&] { RfcVariantToData(field, TYPE_BCD, 9, 0, &done, kSdk); }, &kind).size(), 0u) << result;
  }
}

TEST_F(ScalarData, BcdThatIsNoTextFailsWithoutTexts) {
  unsigned char field[5];
  CComVariant value;
  value.vt = VT_UNKNOWN;
  value.punkVal = nullptr;
  int32_t kind = 0;
  auto texts = Raised([&] { RfcVariantToData(field, TYPE_BCD, 9, 0, &value, kSdk); }, &kind);
  EXPECT_EQ(kind, CXVeltrane::STRING_CONVERSION);
  EXPECT_EQ(texts, (std::vector<std::u16string>{u"", u"", u""}));
}

TEST_F(ScalarData, BcdReadsTrimmedOnBothSides) {
  unsigned char field[5] = {};
  CComVariant value;
  RfcDataToVariant(&value, field, TYPE_BCD, 5, 2, kSdk);
  EXPECT_EQ(Str(value), u"12.50-");
  FakeSdk::bcdCharResult = 1;
  int32_t kind = 0;
  auto texts = Raised([&] { RfcDataToVariant(&value, field, TYPE_BCD, 5, 2, kSdk); }, &kind);
  EXPECT_EQ(kind, CXVeltrane::BCD_CONVERSION_INVALID);
  EXPECT_EQ(texts[1], u"RfcDataToVariant(), RFCTYPE_BCD");
}

// --------------------------------------------------------- dates, times

TEST_F(ScalarData, DateOfI4ZeroIsInitialAndOfI2ZeroIsDayZero) {
  char16_t field[8];
  CComVariant zero;
  zero.vt = VT_I4;
  zero.lVal = 0;
  RfcVariantToData(field, TYPE_DATE, 8, 0, &zero, kSdk);
  EXPECT_EQ(Units(field, 8), u"00000000");
  CComVariant shortZero(static_cast<short>(0));
  RfcVariantToData(field, TYPE_DATE, 8, 0, &shortZero, kSdk);
  EXPECT_EQ(Units(field, 8), u"18991230");
}

TEST_F(ScalarData, DateOfNullIsNulUnitsAndOfEmptyIsZeros) {
  char16_t field[8];
  CComVariant null;
  null.vt = VT_NULL;
  RfcVariantToData(field, TYPE_DATE, 8, 0, &null, kSdk);
  EXPECT_EQ(Units(field, 8), std::u16string(8, u'\0'));
  CComVariant empty;
  RfcVariantToData(field, TYPE_DATE, 8, 0, &empty, kSdk);
  EXPECT_EQ(Units(field, 8), u"00000000");
}

TEST_F(ScalarData, DateTextWithMonth13GoesToThePlatformsDateParser) {
  char16_t field[8] = {};
  CComVariant value(u"19991301");
  CComVariant parsed(u"19991301");
  const bool platformReadsIt = SUCCEEDED(VariantChangeType(&parsed, &parsed, 0, VT_DATE));
  int32_t kind = 0;
  Raised([&] { RfcVariantToData(field, TYPE_DATE, 8, 0, &value, kSdk); }, &kind);
  if (platformReadsIt) {
    EXPECT_EQ(kind, -1);
    EXPECT_EQ(value.vt, VT_DATE);
  } else {
    EXPECT_EQ(kind, CXVeltrane::DATE_TIME_CONVERSION);
  }
  EXPECT_NE(Units(field, 8), u"19991301");
}

TEST_F(ScalarData, ClockTextIntoTimeDropsTheSeparatorsButAHyphenIsNoClock) {
  char16_t field[6];
  CComVariant clock(u"12:34:56");
  RfcVariantToData(field, TYPE_TIME, 6, 0, &clock, kSdk);
  EXPECT_EQ(Units(field, 6), u"123456");
  CComVariant hyphens(u"12-34-56");
  int32_t kind = 0;
  Raised([&] { RfcVariantToData(field, TYPE_TIME, 6, 0, &hyphens, kSdk); }, &kind);
  // Not the clock form: it went to VT_DATE, which read it or failed.
  if (kind == -1)
    EXPECT_EQ(hyphens.vt, VT_DATE);
  else
    EXPECT_EQ(kind, CXVeltrane::DATE_TIME_CONVERSION);
}

TEST_F(ScalarData, BlankCharAndBlankDateRead) {
  const char16_t blanks[8] = {u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' '};
  CComVariant value;
  RfcDataToVariant(&value, blanks, TYPE_CHAR, 16, 0, kSdk);
  EXPECT_EQ(value.vt, VT_BSTR);
  EXPECT_EQ(Str(value), u"");
  RfcDataToVariant(&value, blanks, TYPE_DATE, 16, 0, kSdk);
  EXPECT_EQ(value.vt, VT_EMPTY);
}

TEST_F(ScalarData, CharAndNumKeepLeadingBlanksAndZeros) {
  const char16_t num[5] = {u'0', u'0', u'4', u'2', u' '};
  CComVariant value;
  RfcDataToVariant(&value, num, TYPE_NUM, 10, 0, kSdk);
  EXPECT_EQ(Str(value), u"0042");
  const char16_t text[4] = {u' ', u'a', u'b', u' '};
  RfcDataToVariant(&value, text, TYPE_CHAR, 8, 0, kSdk);
  EXPECT_EQ(Str(value), u" ab");
}

// -------------------------------------------------------------- numbers

TEST_F(ScalarData, Int1Of200ReadsBackAsMinus56) {
  unsigned char field = 0;
  CComVariant value(200L);
  RfcVariantToData(&field, TYPE_INT1, 0, 0, &value, kSdk);
  EXPECT_EQ(field, 200);
  CComVariant back;
  RfcDataToVariant(&back, &field, TYPE_INT1, 1, 0, kSdk);
  EXPECT_EQ(back.vt, VT_I1);
  EXPECT_EQ(back.cVal, -56);
}

TEST_F(ScalarData, NumbersOutOfRangeFailWithTheirTexts) {
  unsigned char field[8];
  struct Case {
    int32_t type;
    CComVariant value;
    const char16_t* message;
    const char16_t* context;
  } cases[] = {
      {TYPE_INT1, CComVariant(256L), u"cannot convert to int1", u"RfcVariantToData(),TYPE_INT1"},
      {TYPE_INT2, CComVariant(40000L), u"cannot convert to int2", u"RfcVariantToData(),TYPE_INT2"},
      {TYPE_INT, CComVariant(u"x"), u"cannot convert to int", u"RfcVariantToData(),TYPE_INT"},
      {TYPE_FLOAT, CComVariant(u"x"), u"cannot convert to float", u"RfcVariantToData(),TYPE_FLOAT"},
  };
  for (auto& c : cases) {
    int32_t kind = 0;
    auto texts = Raised([&] { RfcVariantToData(field, c.type, 0, 0, &c.value, kSdk); }, &kind);
    EXPECT_EQ(kind, CXVeltrane::NUMERIC_CONVERSION) << c.type;
    if (texts.size() == 3) {
      EXPECT_EQ(texts[0], c.message);
      EXPECT_EQ(texts[1], c.context);
    }
  }
}

TEST_F(ScalarData, NumbersRoundTrip) {
  unsigned char field[8];
  CComVariant value(u"2.5");
  RfcVariantToData(field, TYPE_FLOAT, 0, 0, &value, kSdk);
  CComVariant back;
  RfcDataToVariant(&back, field, TYPE_FLOAT, 8, 0, kSdk);
  EXPECT_EQ(back.vt, VT_R8);
  EXPECT_EQ(back.dblVal, 2.5);
  CComVariant i4(-7L);
  RfcVariantToData(field, TYPE_INT, 0, 0, &i4, kSdk);
  RfcDataToVariant(&back, field, TYPE_INT, 4, 0, kSdk);
  EXPECT_EQ(back.vt, VT_I4);
  EXPECT_EQ(back.lVal, -7);
  CComVariant i2(u"-300");
  RfcVariantToData(field, TYPE_INT2, 0, 0, &i2, kSdk);
  RfcDataToVariant(&back, field, TYPE_INT2, 2, 0, kSdk);
  EXPECT_EQ(back.vt, VT_I2);
  EXPECT_EQ(back.iVal, -300);
}

// ---------------------------------------------------------------- bytes

TEST_F(ScalarData, ZeroLengthArrayIntoAByteFieldOfLengthZeroCopiesNothing) {
  unsigned char field[2] = {7, 7};
  CComVariant value = Bytes({});
  RfcVariantToData(field, TYPE_BYTE, 0, 0, &value, kSdk);
  EXPECT_EQ(field[0], 7);
  EXPECT_EQ(field[1], 7);
}

TEST_F(ScalarData, ByteFieldTakesTheDeclaredLengthAndEmptyOrNullZeroIt) {
  unsigned char field[3] = {9, 9, 9};
  CComVariant value = Bytes({1, 2, 3, 4});
  RfcVariantToData(field, TYPE_BYTE, 3, 0, &value, kSdk);
  EXPECT_EQ(std::vector<unsigned char>(field, field + 3), (std::vector<unsigned char>{1, 2, 3}));
  CComVariant null;
  null.vt = VT_NULL;
  RfcVariantToData(field, TYPE_BYTE, 3, 0, &null, kSdk);
  EXPECT_EQ(std::vector<unsigned char>(field, field + 3), (std::vector<unsigned char>{0, 0, 0}));
}

TEST_F(ScalarData, ByteFieldOfSomethingNotAnArrayFails) {
  unsigned char field[3];
  CComVariant value(3.5);
  int32_t kind = 0;
  auto texts = Raised([&] { RfcVariantToData(field, TYPE_BYTE, 3, 0, &value, kSdk); }, &kind);
  EXPECT_EQ(kind, CXVeltrane::XSTRING_ARRAYDIMS_EXCEPTION);
  EXPECT_EQ(texts[1], u"RfcVariantSafeArrayToRaw(),1");
}

TEST_F(ScalarData, RawOfSizeZeroIsAnEmptyArray) {
  CComVariant value;
  RfcRawToVariantSafeArray(&value, nullptr, 0);
  EXPECT_EQ(value.vt, VT_ARRAY | VT_UI1);
  LONG lower = 1, upper = 5;
  SafeArrayGetLBound(value.parray, 1, &lower);
  SafeArrayGetUBound(value.parray, 1, &upper);
  EXPECT_EQ(lower, 0);
  EXPECT_EQ(upper, -1);
}

// --------------------------------------------------- strings, xstrings

TEST_F(ScalarData, StringGoesOutAsUtf8InMemoryOfTheSdk) {
  unsigned char* field = nullptr;
  CComVariant value(u"Gr\u00fc\u00dfe");
  RfcVariantToData(&field, TYPE_STRING, 0, 0, &value, kSdk);
  ASSERT_NE(field, nullptr);
  EXPECT_STREQ(reinterpret_cast<char*>(field),
               "Gr\xc3\xbc\xc3\x9f"
               "e");
  CComVariant back;
  RfcDataToVariant(&back, &field, TYPE_STRING, 8, 0, kSdk);
  EXPECT_EQ(Str(back), u"Gr\u00fc\u00dfe");
}

TEST_F(ScalarData, StringWithoutMemoryFailsWithoutTexts) {
  unsigned char* field = nullptr;
  FakeSdk::allocFails = true;
  CComVariant value(u"x");
  int32_t kind = 0;
  auto texts = Raised([&] { RfcVariantToData(&field, TYPE_STRING, 0, 0, &value, kSdk); }, &kind);
  EXPECT_EQ(kind, CXVeltrane::MEMORY_ALLOC_EXCEPTION);
  EXPECT_EQ(texts, (std::vector<std::u16string>{u"", u"", u""}));
}

TEST_F(ScalarData, BadUtf8ReadsAsTheEmptyText) {
  const char bad[] = "a\xff";
  const char* pointer = bad;
  CComVariant back;
  RfcDataToVariant(&back, &pointer, TYPE_STRING, 8, 0, kSdk);
  EXPECT_EQ(back.vt, VT_BSTR);
  EXPECT_EQ(Str(back), u"");
}

TEST_F(ScalarData, XStringIsResizedAndFilled) {
  RFC_XSTRING record{0, nullptr};
  CComVariant value = Bytes({0xde, 0xad, 0xbe});
  RfcVariantToData(&record, TYPE_XSTRING, 0, 0, &value, kSdk);
  EXPECT_EQ(record.length, 3);
  EXPECT_EQ(FakeSdk::xstringData, (std::vector<unsigned char>{0xde, 0xad, 0xbe}));
  CComVariant back;
  RfcDataToVariant(&back, &record, TYPE_XSTRING, 16, 0, kSdk);
  ASSERT_EQ(back.vt, VT_ARRAY | VT_UI1);
  EXPECT_EQ(std::memcmp(back.parray->pvData, FakeSdk::xstringData.data(), 3), 0);
}

TEST_F(ScalarData, XStringFailures) {
  RFC_XSTRING record{0, nullptr};
  int32_t kind = 0;
  CComVariant notBytes(2.5);
  auto texts = Raised([&] { RfcVariantToData(&record, TYPE_XSTRING, 0, 0, &notBytes, kSdk); }, &kind);
  EXPECT_EQ(kind, CXVeltrane::XSTRING_ARRAYDIMS_EXCEPTION);
  EXPECT_EQ(texts[1], u"RfcVariantToData(),TYPE_XSTRING");
  FakeSdk::resizeResult = 1;
  CComVariant value = Bytes({1});
  texts = Raised([&] { RfcVariantToData(&record, TYPE_XSTRING, 0, 0, &value, kSdk); }, &kind);
  EXPECT_EQ(kind, CXVeltrane::MEMORY_ALLOC_EXCEPTION);
  EXPECT_EQ(texts[1], u"RfcVariantToData(),TYPE_XSTRING");
}

// ---------------------------------------------------------- other codes

TEST_F(ScalarData, CodesWithoutAScalarFormDoNothing) {
  unsigned char field[4] = {5, 5, 5, 5};
  CComVariant value(u"x");
  for (int32_t code : {int32_t{TYPE_ITAB}, int32_t{TYPE_STRUCTURE}, 11, 99, -1}) {
    EXPECT_EQ(RfcVariantToData(field, code, 4, 0, &value, kSdk), 0);
    EXPECT_EQ(field[0], 5);
  }
  CComVariant back(u"old");
  EXPECT_EQ(RfcDataToVariant(&back, field, 31, 4, 0, kSdk), 0);
  EXPECT_EQ(back.vt, VT_EMPTY);
  back = u"old";
  RfcDataToVariant(&back, nullptr, TYPE_CHAR, 4, 0, kSdk);
  EXPECT_EQ(back.vt, VT_EMPTY);
  back = u"old";
  RfcDataToVariant(&back, field, TYPE_ITAB, 4, 0, kSdk);
  EXPECT_EQ(back.vt, VT_EMPTY);
}

// ------------------------------------------- into a table's row store

// One stored row of a table of the given scalar members, its store and its
// number there.
struct StoredRow {
  CComPtr<IRfcRows> rows;
  RowStore* store = nullptr;
  size_t row = 0;

  explicit StoredRow(std::initializer_list<std::pair<const char16_t*, ABAPTYPE>> members) {
    CComPtr<IRfcType> structure, table;
    CreateRfcType(&structure);
    structure->DefineStruct(CComBSTR(u"ZROW"));
    for (const auto& [name, type] : members)
      structure->AddScalarStructField(CComBSTR(name), type, 4, 2, -1, -1, -1, -1);
    CreateRfcType(&table);
    table->DefineTable(CComBSTR(u""), structure);
    CComPtr<IFunctionCall> call;
    CreateFunctionCall(&call);
    CComPtr<IRfcParameters> tables;
    call->get_Tables(&tables);
    tables->AddParameter(CComBSTR(u"T"), table);
    CComPtr<IRfcParameter> parameter;
    tables->get_Item(CComVariant(u"T"), &parameter);
    parameter->get_Rows(&rows);
    EXPECT_EQ(RfcRowsAppendStored(rows, 1, &store, &row), S_OK);
  }
  CComVariant Value(const char16_t* name) {
    CComPtr<IRfcFields> fields;
    rows->get_Item(1, &fields);
    CComPtr<IRfcField> field;
    fields->get_Item(CComVariant(name), &field);
    CComVariant value;
    field->get_value(&value);
    return value;
  }
};

TEST_F(ScalarData, FieldsGoIntoTheStoreAsTheyWouldIntoAVariant) {
  StoredRow stored({{u"C", TYPE_CHAR},
                    {u"N", TYPE_NUM},
                    {u"P", TYPE_BCD},
                    {u"S", TYPE_STRING},
                    {u"I", TYPE_INT},
                    {u"D", TYPE_DATE},
                    {u"X", TYPE_BYTE}});
  ASSERT_TRUE(stored.store);
  // A text at an odd address of the line, blanks behind it.
  unsigned char line[16] = {};
  std::memcpy(line + 1, u"ab  ", 8);
  RfcDataToStore(*stored.store, stored.row, 0, line + 1, TYPE_CHAR, 8, 0, kSdk);
  const char16_t numc[] = u"0042";
  RfcDataToStore(*stored.store, stored.row, 1, numc, TYPE_NUM, 8, 0, kSdk);
  const unsigned char packed[3] = {0x01, 0x25, 0x0D};
  RfcDataToStore(*stored.store, stored.row, 2, packed, TYPE_BCD, 3, 2, kSdk);
  const char* text =
      "Gr\xc3\xbc\xc3\x9f"
      "e";
  RfcDataToStore(*stored.store, stored.row, 3, &text, TYPE_STRING, 8, 0, kSdk);
  const int32_t number = -7;
  RfcDataToStore(*stored.store, stored.row, 4, &number, TYPE_INT, 4, 0, kSdk);
  const char16_t date[] = u"20240229";
  RfcDataToStore(*stored.store, stored.row, 5, date, TYPE_DATE, 16, 0, kSdk);
  const unsigned char bytes[2] = {0xDE, 0xAD};
  RfcDataToStore(*stored.store, stored.row, 6, bytes, TYPE_BYTE, 2, 0, kSdk);

  EXPECT_EQ(Str(stored.Value(u"C")), u"ab");
  EXPECT_EQ(Str(stored.Value(u"N")), u"0042");
  EXPECT_EQ(Str(stored.Value(u"P")), u"12.50-") << "the SDK's text, trimmed";
  EXPECT_EQ(Str(stored.Value(u"S")), u"Gr\u00fc\u00dfe");
  EXPECT_EQ(stored.Value(u"I").vt, VT_I4);
  EXPECT_EQ(stored.Value(u"I").lVal, -7);
  CComVariant expected;
  RfcDataToVariant(&expected, date, TYPE_DATE, 16, 0, kSdk);
  EXPECT_EQ(stored.Value(u"D").vt, VT_DATE);
  EXPECT_EQ(stored.Value(u"D").date, expected.date);
  CComVariant raw = stored.Value(u"X");
  ASSERT_EQ(raw.vt, VT_ARRAY | VT_UI1);
  EXPECT_EQ(static_cast<const unsigned char*>(raw.parray->pvData)[1], 0xAD);
}

TEST_F(ScalarData, BadUtf8AndANullStringGoIntoTheStoreAsTheEmptyText) {
  StoredRow stored({{u"S", TYPE_STRING}, {u"T", TYPE_STRING}});
  ASSERT_TRUE(stored.store);
  const char bad[] = "a\xff";
  const char* pointer = bad;
  RfcDataToStore(*stored.store, stored.row, 0, &pointer, TYPE_STRING, 8, 0, kSdk);
  const char* none = nullptr;
  RfcDataToStore(*stored.store, stored.row, 1, &none, TYPE_STRING, 8, 0, kSdk);
  EXPECT_EQ(stored.Value(u"S").vt, VT_BSTR);
  EXPECT_EQ(Str(stored.Value(u"S")), u"");
  EXPECT_EQ(Str(stored.Value(u"T")), u"");
}

TEST_F(ScalarData, APackedNumberTheSdkRefusesFailsTheStoreAsTheVariant) {
  StoredRow stored({{u"P", TYPE_BCD}});
  ASSERT_TRUE(stored.store);
  FakeSdk::bcdCharResult = 1;
  const unsigned char packed[3] = {};
  int32_t kind = 0;
  auto texts = Raised([&] { RfcDataToStore(*stored.store, stored.row, 0, packed, TYPE_BCD, 3, 2, kSdk); }, &kind);
  EXPECT_EQ(kind, CXVeltrane::BCD_CONVERSION_INVALID);
  EXPECT_EQ(texts[1], u"RfcDataToVariant(), RFCTYPE_BCD");
}

}  // namespace
