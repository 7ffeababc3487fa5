// Function interfaces and structures from the classic SDK's dictionary calls.
#include "abap/scalar_conversion.h"
#include "rfc_fixture.h"

namespace rfctest {
namespace {

using Metadata = SessionTest;

CComPtr<IRfcType> TypeOf(IRfcParameter* parameter) {
  CComPtr<IRfcType> type;
  if (parameter) parameter->get_RfcType(&type);
  return type;
}

CComPtr<IRfcType> Member(IRfcType* structure, const char16_t* name) {
  CComPtr<IRfcTypes> fields;
  structure->get_StructFields(&fields);
  CComPtr<IRfcType> field;
  if (fields) fields->get_Item(CComVariant(name), &field);
  return field;
}

TEST_F(Metadata, AnUnknownFunctionReports540AndLeavesErrorInfoAlone) {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(m_session->ImportCall(CComBSTR(u"Z_DOES_NOT_EXIST"), VARIANT_FALSE, &call),
            static_cast<HRESULT>(0x8004021C));
  EXPECT_FALSE(ErrorFlag(m_session));
}

TEST_F(Metadata, AnotherFailureOfTheInterfaceReadIsErrorWithTheModuleAndACallWithoutParameters) {
  // A name of blanks alone: the SDK refuses it, with no exception text.
  CComPtr<IFunctionCall> call;
  ASSERT_EQ(m_session->ImportCall(CComBSTR(u"   "), VARIANT_FALSE, &call), S_OK) << ErrorDescription();
  ASSERT_TRUE(call);
  for (auto get : {&IFunctionCall::get_Importing, &IFunctionCall::get_Exporting, &IFunctionCall::get_Changing,
                   &IFunctionCall::get_Tables}) {
    CComPtr<IRfcParameters> parameters;
    ((*call).*get)(&parameters);
    LONG count = -1;
    parameters->get_Count(&count);
    EXPECT_EQ(count, 0);
  }
  EXPECT_TRUE(ErrorFlag(m_session));
  const ErrorText error = ErrorOf(m_session);
  EXPECT_EQ(error.group, 101);
  EXPECT_EQ(error.key, "RFCERROR_PROGRAM");
  EXPECT_EQ(error.module, "   ");
}

TEST_F(Metadata, ScalarParametersCarryTheirAttributes) {
  CComPtr<IFunctionCall> call = Import(u"STFC_CONNECTION");
  ASSERT_TRUE(call);
  CComPtr<IRfcParameter> requtext = Parameter(call, u"Importing", u"REQUTEXT");
  ASSERT_TRUE(requtext);
  CComPtr<IRfcType> type = TypeOf(requtext);
  ABAPTYPE code{};
  SHORT length = 0;
  type->get_ScalarType(&code);
  type->get_ScalarLength(&length);
  EXPECT_EQ(code, TYPE_CHAR);
  EXPECT_EQ(length, 255);
  CComBSTR description;
  requtext->get_Description(&description);
  EXPECT_EQ(Narrow(description.View()), "Request text");
  EXPECT_TRUE(Parameter(call, u"Exporting", u"ECHOTEXT"));
}

TEST_F(Metadata, ATableParameterOfAStructureIsAnUnnamedTableOfIt) {
  CComPtr<IFunctionCall> call = Import(u"BAPI_FLIGHT_GETLIST");
  ASSERT_TRUE(call);
  CComPtr<IRfcType> type = TypeOf(Parameter(call, u"Tables", u"FLIGHT_LIST"));
  ASSERT_TRUE(type);
  RFCTYPEKIND kind{};
  type->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_TABLE);
  CComBSTR name;
  type->get_name(&name);
  EXPECT_EQ(Narrow(name.View()), "");
  CComPtr<IRfcType> row;
  type->get_RowType(&row);
  ASSERT_TRUE(row);
  CComBSTR rowName;
  row->get_name(&rowName);
  EXPECT_EQ(Narrow(rowName.View()), "BAPISFLDAT");
}

TEST_F(Metadata, ADeepStructureIsLeftOutWhenAskedAndRefusedOtherwise) {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(m_session->ImportCall(CComBSTR(u"Z_VSIM_TYPES"), VARIANT_FALSE, &call), static_cast<HRESULT>(0x80040206));
  CComPtr<IFunctionCall> lenient = Import(u"Z_VSIM_TYPES", VARIANT_TRUE);
  ASSERT_TRUE(lenient);
  EXPECT_FALSE(Parameter(lenient, u"Importing", u"IS_DEEP"));
  EXPECT_TRUE(Parameter(lenient, u"Importing", u"IS_FLAT"));
}

TEST_F(Metadata, ATableTypeCountsAsUnsupportedOutsideTables) {
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_TYPES", VARIANT_TRUE);
  ASSERT_TRUE(call);
  EXPECT_FALSE(Parameter(call, u"Importing", u"IT_FLAT"));
  EXPECT_FALSE(Parameter(call, u"Exporting", u"ET_FLAT"));
  EXPECT_TRUE(Parameter(call, u"Tables", u"TT_FLAT"));
}

TEST_F(Metadata, FieldsKeepBothLayoutsAndTheirLengths) {
  CComPtr<IRfcType> flat;
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"ZVSIM_FLAT"), &flat), S_OK) << ErrorDescription();
  CComPtr<IRfcType> packed = Member(flat, u"PACKED"), chars = Member(flat, u"CHAR"), raw = Member(flat, u"RAW");
  ASSERT_TRUE(packed && chars && raw);
  SHORT length = 0;
  LONG c2 = 0, c1 = 0;
  // P8.2: 8 bytes, 15 digits.
  packed->get_ScalarLength(&length);
  packed->get_StructLength(&c2);
  EXPECT_EQ(c2, 8);
  EXPECT_EQ(length, 15);
  EXPECT_EQ(RfcFieldLengthC2(TYPE_BCD, static_cast<uint32_t>(length)), 8u) << "the digits give the bytes back";
  chars->get_ScalarLength(&length);
  chars->get_StructLength(&c2);
  chars->get_structLengthC1(&c1);
  EXPECT_EQ(length, 10);
  EXPECT_EQ(c2, 20);
  EXPECT_EQ(c1, 10);
  raw->get_ScalarLength(&length);
  raw->get_StructLength(&c2);
  EXPECT_EQ(length, 4);
  EXPECT_EQ(c2, 4);
}

TEST_F(Metadata, ATableTypeIsATableOfItsRowStructure) {
  CComPtr<IRfcType> table;
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"ZVSIM_FLAT_TT"), &table), S_OK) << ErrorDescription();
  RFCTYPEKIND kind{};
  table->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_TABLE);
  CComBSTR name;
  table->get_name(&name);
  EXPECT_EQ(Narrow(name.View()), "ZVSIM_FLAT_TT");
  CComPtr<IRfcType> row;
  ASSERT_EQ(table->get_RowType(&row), S_OK);
  ASSERT_TRUE(row);
  row->get_Kind(&kind);
  EXPECT_EQ(kind, RFCTYPEKIND_STRUCT);
  CComPtr<IRfcType> packed = Member(row, u"PACKED");
  ASSERT_TRUE(packed);
  LONG c2 = 0;
  packed->get_StructLength(&c2);
  EXPECT_EQ(c2, 8);
}

TEST_F(Metadata, AStructureThatIsNotThereReports524) {
  CComPtr<IRfcType> type;
  EXPECT_EQ(m_session->ImportType(CComBSTR(u"ZNO_SUCH_STRUCTURE"), &type), static_cast<HRESULT>(0x8004020C));
}

TEST_F(Metadata, WithoutAConnectionTheImportReports520) {
  m_session->Disconnect();
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(m_session->ImportCall(CComBSTR(u"RFC_PING"), VARIANT_FALSE, &call), static_cast<HRESULT>(0x80040208));
}

}  // namespace
}  // namespace rfctest
