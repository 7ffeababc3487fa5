// Values of every type in both directions, and the getters' and setters' conversion rules.
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <cstring>

#include "sdk_fixture.h"

using namespace sdktest;

namespace {

class Values : public Connected {};

struct Scalar {
  const char* suffix;
  const char* in;       // set with RfcSetString
  const char* echo;     // EV_ read with RfcGetString
  const char* changed;  // CV_ read with RfcGetString
};

// Z_VSIM_TYPES echoes IV_ into EV_ and changes CV_ (upper case, +1, a day, a second, bytes inverted, doubled).
const Scalar kScalars[] = {
    {"CHAR", "Grüße", "Grüße", "GRüßE"},  // the system upper-cases ASCII letters
    {"NUMC", "42", "00000042", "00000043"},
    {"DATE", "20241231", "20241231", "20250101"},
    {"TIME", "235959", "235959", "000000"},
    {"RAW", "0a0B0c0D", "0A0B0C0D", "F5F4F3F2"},
    {"PACKED", "-12.345", "-12.35", "-11.35"},
    {"FLOAT", "1.5", "1.5E+00", "3E+00"},
    {"INT", "-7", "-7", "-6"},
    {"INT1", "200", "200", "201"},
    {"INT2", "-32768", "-32768", "-32767"},
    {"STRING", "  any length  ", "  any length  ", "  ANY LENGTH  "},
    {"XSTRING", "cafe", "CAFE", "3501"},
};

TEST_F(Values, EveryScalarTypeInEveryDirection) {
  Call call(c, "Z_VSIM_TYPES");
  for (const Scalar& s : kScalars) {
    call.setString(std::string("IV_") + s.suffix, s.in);
    call.setString(std::string("CV_") + s.suffix, s.in);
  }
  ASSERT_EQ(call.invoke(&info), RFC_OK) << describe(info.code, info);
  for (const Scalar& s : kScalars) {
    EXPECT_EQ(call.getString(std::string("EV_") + s.suffix), s.echo) << s.suffix;
    EXPECT_EQ(call.getString(std::string("CV_") + s.suffix), s.changed) << s.suffix;
  }
}

TEST_F(Values, StructuresNestedStructuresAndDeepOnes) {
  Call call(c, "Z_VSIM_TYPES");
  RFC_STRUCTURE_HANDLE flat, deep, deepFlat;
  ASSERT_EQ(RfcGetStructure(call, u"IS_FLAT", &flat, &info), RFC_OK);
  setString(flat, "CHAR", "abc");
  setString(flat, "PACKED", "1.25");
  setString(flat, "INT", "12");
  ASSERT_EQ(RfcGetStructure(call, u"IS_DEEP", &deep, &info), RFC_OK);
  setString(deep, "TEXT", "a string");
  setString(deep, "DATA", "00FF");
  ASSERT_EQ(RfcGetStructure(deep, u"FLAT", &deepFlat, &info), RFC_OK);
  setString(deepFlat, "NUMC", "7");
  RFC_TABLE_HANDLE rows;
  ASSERT_EQ(RfcGetTable(deep, u"ROWS", &rows, &info), RFC_OK);
  for (int i = 0; i < 3; ++i) setString(RfcAppendNewRow(rows, nullptr), "INT", std::to_string(i));
  ASSERT_EQ(call.invoke(&info), RFC_OK) << describe(info.code, info);

  RFC_STRUCTURE_HANDLE es, ed, edFlat;
  ASSERT_EQ(RfcGetStructure(call, u"ES_FLAT", &es, &info), RFC_OK);
  EXPECT_EQ(getString(es, "CHAR"), "abc");
  EXPECT_EQ(getString(es, "PACKED"), "1.25");
  ASSERT_EQ(RfcGetStructure(call, u"ES_DEEP", &ed, &info), RFC_OK);
  EXPECT_EQ(getString(ed, "TEXT"), "a string");
  EXPECT_EQ(getString(ed, "DATA"), "00FF");
  ASSERT_EQ(RfcGetStructure(ed, u"FLAT", &edFlat, &info), RFC_OK);
  EXPECT_EQ(getString(edFlat, "NUMC"), "00000007");
  RFC_TABLE_HANDLE back;
  ASSERT_EQ(RfcGetTable(ed, u"ROWS", &back, &info), RFC_OK);
  unsigned n = 0;
  RfcGetRowCount(back, &n, nullptr);
  ASSERT_EQ(n, 3u);
  ASSERT_EQ(RfcMoveTo(back, 2, &info), RFC_OK);
  EXPECT_EQ(getString(back, "INT"), "2") << "a table handle reads its current row";

  RFC_STRUCTURE_HANDLE again;
  ASSERT_EQ(RfcGetStructure(call, u"ES_FLAT", &again, &info), RFC_OK);
  EXPECT_EQ(again, es) << "the same sub-container each time";
}

TEST_F(Values, NewerTypesTravelToo) {
  Call call(c, "Z_VSIM_NEW_TYPES");
  call.setString("IV_INT8", "-9007199254740993");
  call.setString("IV_DECF16", "1234.5678");
  call.setString("IV_DECF34", "-1.5E+300");
  call.setString("IV_UTCLONG", "2024-02-29T12:34:56.1234567");
  RFC_ERROR_INFO i;
  ASSERT_EQ(RfcSetInt8(call, u"CV_INT8", 41, &i), RFC_OK);
  call.setString("CV_DECF16", "2.5");
  ASSERT_EQ(call.invoke(&info), RFC_OK) << describe(info.code, info);
  RFC_INT8 big = 0;
  ASSERT_EQ(RfcGetInt8(call, u"EV_INT8", &big, &info), RFC_OK);
  EXPECT_EQ(big, -9007199254740993L);
  EXPECT_EQ(call.getString("EV_DECF16"), "1234.5678");
  EXPECT_EQ(call.getString("EV_DECF34"), "-1.5E+300");
  EXPECT_EQ(call.getString("EV_UTCLONG"), "2024-02-29T12:34:56.1234567");
  EXPECT_EQ(call.getString("CV_INT8"), "42");
  EXPECT_EQ(call.getString("CV_DECF16"), "-2.5");
  double d = 0;
  ASSERT_EQ(RfcGetFloat(call, u"EV_DECF16", &d, &info), RFC_OK);
  EXPECT_DOUBLE_EQ(d, 1234.5678);
}

// One field of Z_VSIM_TYPES' IS_FLAT for the conversion table below.
class Field : public Values {
 protected:
  void SetUp() override {
    Values::SetUp();
    call = std::make_unique<Call>(c, "Z_VSIM_TYPES");
    ASSERT_EQ(RfcGetStructure(*call, u"IS_FLAT", &flat, &info), RFC_OK);
  }
  std::unique_ptr<Call> call;
  RFC_STRUCTURE_HANDLE flat = nullptr;
};

TEST_F(Field, GetCharsPadsWithBlanksAndConvertsNumbers) {
  ASSERT_EQ(RfcSetInt(flat, u"INT", 4711, &info), RFC_OK);
  SAP_UC buf[10];
  ASSERT_EQ(RfcGetChars(flat, u"INT", buf, 10, &info), RFC_OK);
  EXPECT_EQ(std::u16string(buf, 10), u"4711      ");
  setString(flat, "CHAR", "abc");
  ASSERT_EQ(RfcGetChars(flat, u"CHAR", buf, 10, &info), RFC_OK);
  EXPECT_EQ(std::u16string(buf, 10), u"abc       ") << "blank-padded, no terminator";
  setString(flat, "CHAR", "abcdefgh");
  EXPECT_EQ(RfcGetChars(flat, u"CHAR", buf, 5, &info), RFC_BUFFER_TOO_SMALL);
  EXPECT_EQ(info.group, RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE);
  setString(flat, "RAW", "01AB");
  ASSERT_EQ(RfcGetChars(flat, u"RAW", buf, 8, &info), RFC_OK);
  EXPECT_EQ(std::u16string(buf, 8), u"01AB0000") << "bytes as hexadecimal";
}

TEST_F(Field, GetNumRightAlignsWithZeros) {
  ASSERT_EQ(RfcSetInt(flat, u"INT", 42, &info), RFC_OK);
  SAP_UC buf[6];
  ASSERT_EQ(RfcGetNum(flat, u"INT", buf, 6, &info), RFC_OK);
  EXPECT_EQ(std::u16string(buf, 6), u"000042");
  setString(flat, "NUMC", "123");
  ASSERT_EQ(RfcGetNum(flat, u"NUMC", buf, 6, &info), RFC_OK);
  EXPECT_EQ(std::u16string(buf, 6), u"000123");
}

TEST_F(Field, GetStringReportsTheLengthAndNeedsRoomForTheTerminator) {
  setString(flat, "CHAR", "hello");
  SAP_UC buf[5];
  unsigned length = 0;
  EXPECT_EQ(RfcGetString(flat, u"CHAR", buf, 5, &length, &info), RFC_BUFFER_TOO_SMALL);
  EXPECT_EQ(length, 5u);
  SAP_UC big[6];
  ASSERT_EQ(RfcGetString(flat, u"CHAR", big, 6, &length, &info), RFC_OK);
  EXPECT_EQ(utf8(big), "hello");
}

TEST_F(Field, DatesAndTimesAreExactlyEightAndSixUnits) {
  SAP_UC date[9];
  date[8] = u'#';
  ASSERT_EQ(RfcGetDate(flat, u"DATE", date, &info), RFC_OK);
  EXPECT_EQ(std::u16string(date, 9), u"00000000#") << "initial date, nothing written behind";
  ASSERT_EQ(RfcSetDate(flat, u"DATE", u"20240229", &info), RFC_OK);
  ASSERT_EQ(RfcGetDate(flat, u"DATE", date, &info), RFC_OK);
  EXPECT_EQ(std::u16string(date, 8), u"20240229");
  SAP_UC time[6];
  ASSERT_EQ(RfcSetTime(flat, u"TIME", u"123456", &info), RFC_OK);
  ASSERT_EQ(RfcGetTime(flat, u"TIME", time, &info), RFC_OK);
  EXPECT_EQ(std::u16string(time, 6), u"123456");
  EXPECT_EQ(RfcSetDate(flat, u"DATE", u"2024-2-9", &info), RFC_CONVERSION_FAILURE);
}

TEST_F(Field, NumbersFromTextFailWithTheSdksMessage) {
  const std::u16string a = u"A";
  EXPECT_EQ(RfcSetString(flat, u"FLOAT", a.c_str(), 1, &info), RFC_CONVERSION_FAILURE);
  EXPECT_EQ(utf8(info.message),
            "Cannot convert string value A at position 0 for the field FLOAT to type RFCTYPE_FLOAT");
  EXPECT_EQ(utf8(info.key), "RFC_CONVERSION_FAILURE");
  const std::u16string twelveX = u"12X";
  EXPECT_EQ(RfcSetString(flat, u"INT", twelveX.c_str(), 3, &info), RFC_CONVERSION_FAILURE);
  EXPECT_NE(utf8(info.message).find("at position 2"), std::string::npos);
  const std::u16string n = u"1.2";
  EXPECT_EQ(RfcSetString(flat, u"FLOAT", n.c_str(), 3, &info), RFC_OK);
}

// A German locale, compiled into a directory of the test's own when the machine has none.
bool germanNumbers() {
  if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8")) return true;
  const std::string dir = "/tmp/nwrfc_locales_" + std::to_string(::getpid());
  const std::string command = "mkdir -p " + dir + " && localedef -i de_DE -f UTF-8 " + dir + "/de_DE.UTF-8 2>/dev/null";
  if (std::system(command.c_str()) != 0) return false;
  ::setenv("LOCPATH", dir.c_str(), 1);
  return std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
}

TEST_F(Field, FloatTextFollowsTheLocalesDecimalSeparator) {
  ASSERT_TRUE(germanNumbers()) << "the package 'locales' provides de_DE";
  const std::u16string dot = u"1.2", comma = u"1,2";
  EXPECT_EQ(RfcSetString(flat, u"FLOAT", dot.c_str(), 3, &info), RFC_CONVERSION_FAILURE);
  EXPECT_EQ(RfcSetString(flat, u"FLOAT", comma.c_str(), 3, &info), RFC_OK);
  std::setlocale(LC_NUMERIC, "C");
  double d = 0;
  ASSERT_EQ(RfcGetFloat(flat, u"FLOAT", &d, &info), RFC_OK);
  EXPECT_DOUBLE_EQ(d, 1.2);
}

TEST_F(Field, SmallIntegersCheckTheirRange) {
  ASSERT_EQ(RfcSetInt(flat, u"INT", 300, &info), RFC_OK);
  RFC_INT1 one = 0;
  EXPECT_EQ(RfcGetInt1(flat, u"INT", &one, &info), RFC_CONVERSION_FAILURE);
  RFC_INT2 two = 0;
  ASSERT_EQ(RfcGetInt2(flat, u"INT", &two, &info), RFC_OK);
  EXPECT_EQ(two, 300);
  EXPECT_EQ(RfcSetInt(flat, u"INT1", 256, &info), RFC_CONVERSION_FAILURE);
  EXPECT_EQ(RfcSetInt(flat, u"INT2", 40000, &info), RFC_CONVERSION_FAILURE);
  ASSERT_EQ(RfcSetInt1(flat, u"INT1", 255, &info), RFC_OK);
  ASSERT_EQ(RfcGetInt1(flat, u"INT1", &one, &info), RFC_OK);
  EXPECT_EQ(one, 255);
}

TEST_F(Field, FloatsIntoCharactersAndDigits) {
  ASSERT_EQ(RfcSetFloat(flat, u"CHAR", 1.5, &info), RFC_OK);
  EXPECT_EQ(getString(flat, "CHAR"), "1.5E+00") << "scientific notation in a character field";
  ASSERT_EQ(RfcSetFloat(flat, u"NUMC", 42.9, &info), RFC_OK);
  EXPECT_EQ(getString(flat, "NUMC"), "00000042") << "cut to a whole number in digits";
  ASSERT_EQ(RfcSetFloat(flat, u"PACKED", 2.345, &info), RFC_OK);
  EXPECT_EQ(getString(flat, "PACKED"), "2.35");
}

TEST_F(Field, BytesFromHexadecimalOfEvenLengthInEitherCase) {
  const std::u16string odd = u"ABC", lower = u"beef";
  EXPECT_EQ(RfcSetString(flat, u"RAW", odd.c_str(), 3, &info), RFC_CONVERSION_FAILURE);
  ASSERT_EQ(RfcSetString(flat, u"RAW", lower.c_str(), 4, &info), RFC_OK);
  SAP_RAW raw[4];
  unsigned length = 0;
  ASSERT_EQ(RfcGetXString(flat, u"RAW", raw, 4, &length, &info), RFC_OK);
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(raw[0], 0xBE);
  EXPECT_EQ(raw[2], 0x00) << "padded with zero bytes";
  EXPECT_EQ(RfcGetXString(flat, u"RAW", raw, 2, &length, &info), RFC_BUFFER_TOO_SMALL);
  const SAP_RAW five[] = {1, 2, 3, 4, 5};
  EXPECT_EQ(RfcSetBytes(flat, u"RAW", five, 5, &info), RFC_CONVERSION_FAILURE);
}

TEST_F(Field, StringLengthOnlyForStringsAndEmptyStringsClear) {
  unsigned length = 9;
  EXPECT_EQ(RfcGetStringLength(flat, u"CHAR", &length, &info), RFC_INVALID_PARAMETER);
  ASSERT_EQ(RfcSetString(*call, u"IV_STRING", u"abc", 3, &info), RFC_OK);
  ASSERT_EQ(RfcGetStringLength(*call, u"IV_STRING", &length, &info), RFC_OK);
  EXPECT_EQ(length, 3u);
  ASSERT_EQ(RfcSetString(*call, u"IV_STRING", u"", 0, &info), RFC_OK);
  ASSERT_EQ(RfcGetStringLength(*call, u"IV_STRING", &length, &info), RFC_OK);
  EXPECT_EQ(length, 0u);
  const SAP_RAW bytes[] = {0xCA, 0xFE, 0x00};
  ASSERT_EQ(RfcSetXString(*call, u"IV_XSTRING", bytes, 3, &info), RFC_OK);
  ASSERT_EQ(RfcGetStringLength(*call, u"IV_XSTRING", &length, &info), RFC_OK);
  EXPECT_EQ(length, 3u) << "bytes for XSTRING";
}

TEST_F(Field, UnknownNamesAndNullHandles) {
  const std::u16string v = u"x";
  EXPECT_EQ(RfcSetString(flat, u"XXX", v.c_str(), 1, &info), RFC_INVALID_PARAMETER);
  EXPECT_EQ(utf8(info.message), "field 'XXX' not found");
  EXPECT_EQ(RfcSetString(nullptr, u"CHAR", v.c_str(), 1, &info), RFC_INVALID_HANDLE);
  EXPECT_EQ(utf8(info.message), "An invalid handle 'DATA_CONTAINER_HANDLE' was passed to the API call");
  EXPECT_EQ(RfcSetString(flat, u"CHAR", v.c_str(), 1, nullptr), RFC_OK) << "a null record is accepted";
}

TEST_F(Values, OnlySuppliedImportsTravelSoDefaultsApply) {
  // Z_VSIM_RAISE has MESSAGE_TYPE default 'E': an untouched import keeps the system's default.
  Call call(c, "Z_VSIM_RAISE");
  call.setString("MESSAGE_TEXT", "as default");
  EXPECT_EQ(call.invoke(&info), RFC_ABAP_MESSAGE) << describe(info.code, info);
  EXPECT_EQ(utf8(info.abapMsgType), "E");
  RfcCloseConnection(c, nullptr);
  c = open();
  Call inactive(c, "Z_VSIM_TYPES");
  call.setString("MESSAGE_TEXT", "");
  inactive.setString("IV_INT", "5");
  ASSERT_EQ(RfcSetParameterActive(inactive, u"IV_INT", 0, &info), RFC_OK);
  ASSERT_EQ(RfcSetParameterActive(inactive, u"EV_CHAR", 0, &info), RFC_OK);
  int active = 1;
  ASSERT_EQ(RfcIsParameterActive(inactive, u"IV_INT", &active, &info), RFC_OK);
  EXPECT_EQ(active, 0);
  ASSERT_EQ(inactive.invoke(&info), RFC_OK);
  EXPECT_EQ(inactive.getString("EV_INT"), "0") << "a switched-off import is not sent";
}

}  // namespace
