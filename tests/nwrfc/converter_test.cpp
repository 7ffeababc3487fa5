// CNWRFCDataConverter row by row, against function containers of our SDK:
// what FillOutgoingArgs writes and switches, what FillIncomingArgs reads.
#include "loopback.h"
#include "nwrfc/nwrfc_data_converter.h"
#include "nwrfc/sdk_text.h"
#include "nwrfc_fixture.h"
#include "platform/unicode.h"
#include "runtime/exceptions.h"
#include "runtime/trace.h"

namespace nwtest {
namespace {

using veltrane::nwrfc::SapText;

constexpr HRESULT kRfcError = static_cast<HRESULT>(0x8004021F);
constexpr HRESULT kInvalidDateTime = static_cast<HRESULT>(0x80040215);

class Converter : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    m_call = Import(u"Z_VSIM_TYPES");
    m_connection = std::make_unique<RawConnection>();
    m_function = std::make_unique<Function>(*m_connection, u"Z_VSIM_TYPES");
  }
  void TearDown() override {
    m_function.reset();
    m_connection.reset();
    m_call.Release();
    SessionTest::TearDown();
  }

  HRESULT Out() { return Converter_().FillOutgoingArgs(m_call, fn()); }
  HRESULT In(RFC_RC result = RFC_OK) { return Converter_().FillIncomingArgs(result, fn(), m_call); }
  CNWRFCDataConverter Converter_() { return CNWRFCDataConverter(Sdk(), &m_info, CLSID_NWRfcSession); }
  RFC_FUNCTION_HANDLE fn() const { return m_function->handle(); }

  // A call of the same module whose parameter name has the model's type
  // `type`: what the converter sends shows in the SDK's field as it stands.
  CComPtr<IFunctionCall> CallWith(const char16_t* name, ABAPTYPE type, short length, const CComVariant& value) {
    CComPtr<IFunctionCall> call;
    m_session->CreateCall(&call);
    call->put_Function(CComBSTR(u"Z_VSIM_TYPES"));
    CComPtr<IRfcParameters> importing;
    call->get_Importing(&importing);
    EXPECT_EQ(importing->AddScalar(CComBSTR(name), type, length, 0, value), S_OK);
    return call;
  }

  void SetInt(const char16_t* name, RFC_INT value) { ASSERT_EQ(Sdk().RfcSetInt(fn(), name, value, nullptr), RFC_OK); }

  CComPtr<IFunctionCall> m_call;
  std::unique_ptr<RawConnection> m_connection;
  std::unique_ptr<Function> m_function;
  RFC_ERROR_INFO m_info{};
};

// ------------------------------------------------------------- switching

TEST_F(Converter, AnEmptyImportingParameterIsSwitchedOffAFilledOneWritten) {
  SetValue(m_call, u"Importing", u"IV_NUMC", CComVariant(u"1234"));
  ASSERT_EQ(Out(), S_OK);
  EXPECT_FALSE(IsActive(fn(), u"IV_CHAR"));
  EXPECT_TRUE(IsActive(fn(), u"IV_NUMC"));
  EXPECT_EQ(GetString(fn(), u"IV_NUMC"), u"00001234");
}

TEST_F(Converter, AnEmptyChangingParameterOrTableStaysActiveAndUnwritten) {
  SetString(fn(), u"CV_CHAR", u"before");
  RFC_TABLE_HANDLE table = Table(fn(), u"TT_FLAT");
  ASSERT_EQ(Sdk().RfcAppendNewRows(table, 2, nullptr), RFC_OK);
  ASSERT_EQ(Out(), S_OK);
  EXPECT_TRUE(IsActive(fn(), u"CV_CHAR"));
  EXPECT_EQ(GetString(fn(), u"CV_CHAR"), u"before");
  EXPECT_TRUE(IsActive(fn(), u"TT_FLAT"));
  EXPECT_EQ(RowCount(table), 2u);
}

TEST_F(Converter, ANotRequestedParameterIsSwitchedOffButItsValueStillWritten) {
  CComPtr<IRfcParameter> p = Parameter(m_call, u"Importing", u"IV_CHAR");
  p->put_value(CComVariant(u"sent"));
  p->put_IsRequested(VARIANT_FALSE);
  ASSERT_EQ(Out(), S_OK);
  EXPECT_FALSE(IsActive(fn(), u"IV_CHAR"));
  EXPECT_EQ(GetString(fn(), u"IV_CHAR"), u"sent");
}

TEST_F(Converter, ExportingParametersFollowIsRequested) {
  Parameter(m_call, u"Exporting", u"EV_NUMC")->put_IsRequested(VARIANT_FALSE);
  ASSERT_EQ(Out(), S_OK);
  EXPECT_TRUE(IsActive(fn(), u"EV_CHAR"));
  EXPECT_FALSE(IsActive(fn(), u"EV_NUMC"));
  EXPECT_TRUE(IsActive(fn(), u"EV_DATE"));
}

// Reading stops at the first parameter nobody asked for: those behind it
// keep their values though they were asked for.
TEST_F(Converter, ReadingAGroupEndsAtTheFirstParameterNotRequested) {
  SetString(fn(), u"EV_CHAR", u"front");
  SetString(fn(), u"EV_NUMC", u"42");
  SetString(fn(), u"EV_DATE", u"20240229");
  Parameter(m_call, u"Exporting", u"EV_NUMC")->put_IsRequested(VARIANT_FALSE);
  SetValue(m_call, u"Exporting", u"EV_DATE", CComVariant(7L));
  const CComVariant before = Value(m_call, u"Exporting", u"EV_DATE");
  ASSERT_EQ(In(), S_OK);
  EXPECT_EQ(Text(Value(m_call, u"Exporting", u"EV_CHAR")), "front");
  EXPECT_EQ(Value(m_call, u"Exporting", u"EV_NUMC").vt, VT_EMPTY);
  const CComVariant kept = Value(m_call, u"Exporting", u"EV_DATE");
  EXPECT_EQ(kept.vt, before.vt);
  EXPECT_EQ(kept.llVal, before.llVal) << "EV_DATE stands behind EV_NUMC";
}

TEST_F(Converter, AfterAnAbapExceptionOnlyTablesAreRead) {
  SetString(fn(), u"EV_CHAR", u"not read");
  SetString(fn(), u"CV_CHAR", u"not read");
  RFC_TABLE_HANDLE table = Table(fn(), u"TT_FLAT");
  ASSERT_EQ(Sdk().RfcAppendNewRows(table, 1, nullptr), RFC_OK);
  SetString(table, u"CHAR", u"read");
  ASSERT_EQ(In(RFC_ABAP_EXCEPTION), S_OK);
  EXPECT_EQ(Value(m_call, u"Exporting", u"EV_CHAR").vt, VT_EMPTY);
  EXPECT_EQ(Value(m_call, u"Changing", u"CV_CHAR").vt, VT_EMPTY);
  CComPtr<IRfcRows> rows = Rows(m_call, u"Tables", u"TT_FLAT");
  LONG count = 0;
  rows->get_Count(&count);
  ASSERT_EQ(count, 1);
}

TEST_F(Converter, AnyOtherFailureReadsNothing) {
  SetString(fn(), u"EV_CHAR", u"not read");
  ASSERT_EQ(In(RFC_ABAP_MESSAGE), S_OK);
  EXPECT_EQ(Value(m_call, u"Exporting", u"EV_CHAR").vt, VT_EMPTY);
}

// ----------------------------------------------------------------- tables

TEST_F(Converter, ATableOfNoRowsEmptiesTheRowsItHeld) {
  CComPtr<IRfcRows> rows = Rows(m_call, u"Tables", u"TT_FLAT");
  rows->AddRows(3);
  ASSERT_EQ(In(), S_OK);
  LONG count = -1;
  rows->get_Count(&count);
  EXPECT_EQ(count, 0);
}

TEST_F(Converter, AnEmptyTableWrittenReplacesWhatTheContainerHeld) {
  RFC_TABLE_HANDLE table = Table(fn(), u"TT_FLAT");
  ASSERT_EQ(Sdk().RfcAppendNewRows(table, 3, nullptr), RFC_OK);
  CComPtr<IRfcParameter> p = Parameter(m_call, u"Tables", u"TT_FLAT");
  CComPtr<IRfcField> field;
  p->get_InternalField(&field);
  ASSERT_EQ(Converter_().putRfcField(field, fn(), true, u""), S_OK);
  EXPECT_EQ(RowCount(table), 0u);
}

TEST_F(Converter, RowsGoOutAndComeBackInOrder) {
  CComPtr<IRfcRows> rows = Rows(m_call, u"Tables", u"TT_FLAT");
  for (int i = 1; i <= 3; ++i) {
    CComPtr<IRfcFields> row;
    rows->AddRow(&row);
    CComPtr<IRfcField> text, number;
    row->get_Item(CComVariant(u"CHAR"), &text);
    row->get_Item(CComVariant(u"INT"), &number);
    text->put_value(CComVariant(Utf8ToWide("row " + std::to_string(i)).c_str()));
    number->put_value(CComVariant(static_cast<LONG>(i * 10)));
  }
  RFC_TABLE_HANDLE table = Table(fn(), u"TT_FLAT");
  ASSERT_EQ(Sdk().RfcAppendNewRows(table, 5, nullptr), RFC_OK);
  ASSERT_EQ(Out(), S_OK);
  ASSERT_EQ(RowCount(table), 3u);
  ASSERT_EQ(Sdk().RfcMoveTo(table, 2, nullptr), RFC_OK);
  EXPECT_EQ(GetString(table, u"CHAR"), u"row 3");
  EXPECT_EQ(GetString(table, u"INT"), u"30");

  rows->RemoveAll();
  ASSERT_EQ(In(), S_OK);
  LONG count = 0;
  rows->get_Count(&count);
  ASSERT_EQ(count, 3);
  CComPtr<IRfcFields> second;
  rows->get_Item(2, &second);
  CComPtr<IRfcField> text, number;
  second->get_Item(CComVariant(u"CHAR"), &text);
  second->get_Item(CComVariant(u"INT"), &number);
  CComVariant t, n;
  text->get_value(&t);
  number->get_value(&n);
  EXPECT_EQ(Text(t), "row 2");
  EXPECT_EQ(n.vt, VT_I8);
  EXPECT_EQ(n.llVal, 20);
}

// A row's field without a value is not written: the container keeps the
// initial date rather than the NULs that a written null would give.
TEST_F(Converter, AFieldWithoutAValueIsNotTouchedEvenInARow) {
  CComPtr<IRfcRows> rows = Rows(m_call, u"Tables", u"TT_FLAT");
  CComPtr<IRfcFields> row;
  rows->AddRow(&row);
  CComPtr<IRfcField> text, date;
  row->get_Item(CComVariant(u"CHAR"), &text);
  row->get_Item(CComVariant(u"DATE"), &date);
  text->put_value(CComVariant(u"x"));
  CComVariant null;
  null.vt = VT_NULL;
  date->put_value(null);
  ASSERT_EQ(Out(), S_OK);
  RFC_TABLE_HANDLE table = Table(fn(), u"TT_FLAT");
  ASSERT_EQ(RowCount(table), 1u);
  ASSERT_EQ(Sdk().RfcMoveToFirstRow(table, nullptr), RFC_OK);
  EXPECT_EQ(GetString(table, u"DATE"), u"00000000");

  // In a structure the container keeps what it held.
  RFC_STRUCTURE_HANDLE flat = Structure(fn(), u"IS_FLAT");
  SetString(flat, u"NUMC", u"77");
  Member(m_call, u"Importing", u"IS_FLAT", u"CHAR")->put_value(CComVariant(u"set"));
  ASSERT_EQ(Out(), S_OK);
  EXPECT_EQ(GetString(flat, u"NUMC"), u"00000077");
  EXPECT_EQ(GetString(flat, u"CHAR"), u"set");
}

// ---------------------------------------------------------------- reading

TEST_F(Converter, CharactersLoseTrailingBlanksStringsKeepAll) {
  SetString(fn(), u"EV_CHAR", u"  ab");
  SetString(fn(), u"EV_STRING", u"  a b  ");
  SetString(fn(), u"EV_NUMC", u"1234");
  ASSERT_EQ(In(), S_OK);
  EXPECT_EQ(Text(Value(m_call, u"Exporting", u"EV_CHAR")), "  ab");
  EXPECT_EQ(Text(Value(m_call, u"Exporting", u"EV_STRING")), "  a b  ");
  EXPECT_EQ(Text(Value(m_call, u"Exporting", u"EV_NUMC")), "00001234") << "leading zeros stay";
}

TEST_F(Converter, APackedNumberReadsAsText) {
  SetString(fn(), u"EV_PACKED", u"-1234.5");
  ASSERT_EQ(In(), S_OK);
  EXPECT_EQ(Text(Value(m_call, u"Exporting", u"EV_PACKED")), "-1234.50");
}

TEST_F(Converter, AnIntegerReadsAsItsUnsigned32BitsAndGoesBackUnchanged) {
  SetInt(u"EV_INT", -1);
  ASSERT_EQ(In(), S_OK);
  const CComVariant read = Value(m_call, u"Exporting", u"EV_INT");
  ASSERT_EQ(read.vt, VT_I8);
  EXPECT_EQ(read.llVal, 4294967295LL);
  SetValue(m_call, u"Importing", u"IV_INT", read);
  ASSERT_EQ(Out(), S_OK);
  RFC_INT back = 0;
  ASSERT_EQ(Sdk().RfcGetInt(fn(), u"IV_INT", &back, nullptr), RFC_OK);
  EXPECT_EQ(back, -1);
}

TEST_F(Converter, AOneByteIntegerGoesThroughTheSignedVariant) {
  ASSERT_EQ(Sdk().RfcSetInt1(fn(), u"EV_INT1", 200, nullptr), RFC_OK);
  ASSERT_EQ(In(), S_OK);
  const CComVariant read = Value(m_call, u"Exporting", u"EV_INT1");
  ASSERT_EQ(read.vt, VT_I1);
  EXPECT_EQ(read.cVal, -56);
  SetValue(m_call, u"Importing", u"IV_INT1", CComVariant(200L));
  EXPECT_EQ(Out(), DISP_E_OVERFLOW) << "a value above 127 does not change to VT_I1";
}

TEST_F(Converter, NumbersDatesTimesAndBytes) {
  ASSERT_EQ(Sdk().RfcSetFloat(fn(), u"EV_FLOAT", 2.5, nullptr), RFC_OK);
  ASSERT_EQ(Sdk().RfcSetInt2(fn(), u"EV_INT2", -7, nullptr), RFC_OK);
  SetString(fn(), u"EV_DATE", u"20240229");
  SetString(fn(), u"EV_TIME", u"235958");
  const SAP_RAW raw[] = {0x01, 0xFF};
  ASSERT_EQ(Sdk().RfcSetXString(fn(), u"EV_RAW", raw, 2, nullptr), RFC_OK);
  const SAP_RAW bytes[] = {0xCA, 0xFE, 0x00};
  ASSERT_EQ(Sdk().RfcSetXString(fn(), u"EV_XSTRING", bytes, 3, nullptr), RFC_OK);
  ASSERT_EQ(In(), S_OK);
  const CComVariant f = Value(m_call, u"Exporting", u"EV_FLOAT");
  EXPECT_EQ(f.vt, VT_R8);
  EXPECT_EQ(f.dblVal, 2.5);
  const CComVariant i2 = Value(m_call, u"Exporting", u"EV_INT2");
  EXPECT_EQ(i2.vt, VT_I2);
  EXPECT_EQ(i2.iVal, -7);
  CComVariant date = Value(m_call, u"Exporting", u"EV_DATE");
  ASSERT_EQ(date.vt, VT_DATE);
  SYSTEMTIME st{};
  VariantTimeToSystemTime(date.date, &st);
  EXPECT_EQ(st.wYear, 2024);
  EXPECT_EQ(st.wMonth, 2);
  EXPECT_EQ(st.wDay, 29);
  CComVariant time = Value(m_call, u"Exporting", u"EV_TIME");
  ASSERT_EQ(time.vt, VT_DATE);
  VariantTimeToSystemTime(time.date, &st);
  EXPECT_EQ(st.wHour, 23);
  EXPECT_EQ(st.wSecond, 58);
  const CComVariant fixed = Value(m_call, u"Exporting", u"EV_RAW");
  ASSERT_EQ(fixed.vt, VT_ARRAY | VT_UI1);
  LONG upper = -1;
  SafeArrayGetUBound(fixed.parray, 1, &upper);
  EXPECT_EQ(upper, 3) << "a fixed field keeps its length";
  const CComVariant any = Value(m_call, u"Exporting", u"EV_XSTRING");
  ASSERT_EQ(any.vt, VT_ARRAY | VT_UI1);
  SafeArrayGetUBound(any.parray, 1, &upper);
  EXPECT_EQ(upper, 2);
  const unsigned char* data = static_cast<const unsigned char*>(any.parray->pvData);
  EXPECT_EQ(data[0], 0xCA);
  EXPECT_EQ(data[1], 0xFE);
}

TEST_F(Converter, AnAllZeroDateReadsAsEmpty) {
  SetString(fn(), u"EV_DATE", u"00000000");
  SetValue(m_call, u"Exporting", u"EV_DATE", CComVariant(1L));
  ASSERT_EQ(In(), S_OK);
  EXPECT_EQ(Value(m_call, u"Exporting", u"EV_DATE").vt, VT_EMPTY);
}

TEST_F(Converter, ADateThatIsNoDateReadsAs533) {
  SetString(fn(), u"EV_DATE", u"20241399");
  EXPECT_EQ(In(), kInvalidDateTime);
  EXPECT_EQ(ErrorDescription(), "invalid date/time");
}

// ---------------------------------------------------------------- writing

TEST_F(Converter, APackedNumberOfBlanksGoesOutAsZeroOtherwiseAsWritten) {
  CComPtr<IFunctionCall> blanks = CallWith(u"IV_CHAR", TYPE_BCD, 9, CComVariant(u"   "));
  ASSERT_EQ(Converter_().FillOutgoingArgs(blanks, fn()), S_OK);
  EXPECT_EQ(GetString(fn(), u"IV_CHAR"), u"0");
  CComPtr<IFunctionCall> digits = CallWith(u"IV_CHAR", TYPE_BCD, 9, CComVariant(u" 12 "));
  ASSERT_EQ(Converter_().FillOutgoingArgs(digits, fn()), S_OK);
  EXPECT_EQ(GetString(fn(), u"IV_CHAR"), u" 12") << "the blanks in front stay; the SDK pads behind";
}

TEST_F(Converter, ValuesChangeToTheTypeOfTheirParameter) {
  SetValue(m_call, u"Importing", u"IV_CHAR", CComVariant(42L));
  SetValue(m_call, u"Importing", u"IV_FLOAT", CComVariant(u"1.5"));
  SetValue(m_call, u"Importing", u"IV_INT2", CComVariant(u"-3"));
  SetValue(m_call, u"Importing", u"IV_STRING", CComVariant(u" s "));
  SetValue(m_call, u"Importing", u"IV_TIME", CComVariant(u"12:34:56"));
  SetValue(m_call, u"Importing", u"IV_DATE", CComVariant(u"20240101"));
  ASSERT_EQ(Out(), S_OK);
  EXPECT_EQ(GetString(fn(), u"IV_CHAR"), u"42");
  EXPECT_EQ(GetString(fn(), u"IV_STRING"), u" s ");
  EXPECT_EQ(GetString(fn(), u"IV_TIME"), u"123456");
  EXPECT_EQ(GetString(fn(), u"IV_DATE"), u"20240101");
  RFC_FLOAT f = 0;
  Sdk().RfcGetFloat(fn(), u"IV_FLOAT", &f, nullptr);
  EXPECT_EQ(f, 1.5);
  RFC_INT2 i = 0;
  Sdk().RfcGetInt2(fn(), u"IV_INT2", &i, nullptr);
  EXPECT_EQ(i, -3);
}

TEST_F(Converter, BytesGoOutFromAByteArray) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 3);
  static_cast<unsigned char*>(array->pvData)[0] = 0xAB;
  CComVariant value;
  value.vt = VT_ARRAY | VT_UI1;
  value.parray = array;
  SetValue(m_call, u"Importing", u"IV_XSTRING", value);
  ASSERT_EQ(Out(), S_OK);
  SAP_RAW read[8] = {};
  unsigned length = 0;
  ASSERT_EQ(Sdk().RfcGetXString(fn(), u"IV_XSTRING", read, 8, &length, nullptr), RFC_OK);
  EXPECT_EQ(length, 3u);
  EXPECT_EQ(read[0], 0xAB);
}

// A byte-array variant whose array holds wider elements.
TEST_F(Converter, AnArrayOfWiderElementsSendsNothing) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 0, 2);
  CComVariant value;
  value.vt = VT_ARRAY | VT_UI1;
  value.parray = array;
  CComPtr<IFunctionCall> call = CallWith(u"IV_XSTRING", TYPE_XSTRING, 0, CComVariant());
  SetValue(call, u"Importing", u"IV_XSTRING", value);
  const SAP_RAW before[] = {0x11};
  ASSERT_EQ(Sdk().RfcSetXString(fn(), u"IV_XSTRING", before, 1, nullptr), RFC_OK);
  ASSERT_EQ(Converter_().FillOutgoingArgs(call, fn()), S_OK);
  unsigned length = 0;
  SAP_RAW read[4] = {};
  Sdk().RfcGetXString(fn(), u"IV_XSTRING", read, 4, &length, nullptr);
  EXPECT_EQ(length, 1u);
}

TEST_F(Converter, ADateThatDoesNotConvertRaises) {
  SetValue(m_call, u"Importing", u"IV_DATE", CComVariant(u"not a date"));
  EXPECT_THROW(Out(), CXVeltrane);
}

TEST_F(Converter, AFieldTheSdkDoesNotKnowIsAnSdkFailure) {
  CComPtr<IFunctionCall> call = CallWith(u"IV_NOPE", TYPE_CHAR, 4, CComVariant(u"x"));
  EXPECT_EQ(Converter_().FillOutgoingArgs(call, fn()), kRfcError);
  EXPECT_NE(m_info.code, RFC_OK);
  EXPECT_NE(SapText(m_info.message).find(u"IV_NOPE"), std::u16string::npos) << Narrow(SapText(m_info.message));
}

// ------------------------------------------------------------ the trace

TEST_F(Converter, ParametersAndStructuresAreTracedRowsNot) {
  soaptest::TempFile trace("values.trc");
  TraceOpen(u"Veltrane", Utf8ToWide(trace.path()), true);
  SetTraceLevel(TRACE_INFORMATION);
  SetValue(m_call, u"Importing", u"IV_CHAR", CComVariant(u"plain"));
  Member(m_call, u"Importing", u"IS_FLAT", u"CHAR")->put_value(CComVariant(u"nested"));
  CComPtr<IRfcFields> row;
  Rows(m_call, u"Tables", u"TT_FLAT")->AddRow(&row);
  CComPtr<IRfcField> cell;
  row->get_Item(CComVariant(u"CHAR"), &cell);
  cell->put_value(CComVariant(u"inrow"));
  ASSERT_EQ(Out(), S_OK);
  const std::string text = trace.read();
  EXPECT_NE(text.find("IV_CHAR=plain"), std::string::npos) << text;
  EXPECT_NE(text.find("IS_FLAT-CHAR=nested"), std::string::npos) << text;
  EXPECT_EQ(text.find("inrow"), std::string::npos) << text;
}

}  // namespace
}  // namespace nwtest
