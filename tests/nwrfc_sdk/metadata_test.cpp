// Function and type descriptions: from the system with both layouts, built by the application,
// repositories per system ID.
#include "sdk_fixture.h"

using namespace sdktest;

namespace {

class Metadata : public Connected {};

RFC_PARAMETER_DESC parameter(RFC_FUNCTION_DESC_HANDLE f, const std::string& name) {
  RFC_PARAMETER_DESC p{};
  EXPECT_EQ(RfcGetParameterDescByName(f, u(name).c_str(), &p, nullptr), RFC_OK) << name;
  return p;
}

TEST_F(Metadata, StfcStructureWithBothLayouts) {
  RFC_FUNCTION_DESC_HANDLE f = RfcGetFunctionDesc(c, u"STFC_STRUCTURE", &info);
  ASSERT_NE(f, nullptr) << describe(info.code, info);
  unsigned count = 0;
  ASSERT_EQ(RfcGetParameterCount(f, &count, &info), RFC_OK);
  EXPECT_EQ(count, 4u);
  const RFC_PARAMETER_DESC imp = parameter(f, "IMPORTSTRUCT");
  EXPECT_EQ(imp.type, RFCTYPE_STRUCTURE);
  EXPECT_EQ(imp.direction, RFC_IMPORT);
  EXPECT_EQ(imp.nucLength, 144u);
  EXPECT_EQ(imp.ucLength, 264u);
  EXPECT_EQ(imp.optional, 0);
  EXPECT_EQ(utf8(imp.parameterText), "Import structure");
  const RFC_PARAMETER_DESC table = parameter(f, "RFCTABLE");
  EXPECT_EQ(table.type, RFCTYPE_TABLE);
  EXPECT_EQ(table.direction, RFC_TABLES);
  EXPECT_EQ(table.ucLength, 264u);
  EXPECT_EQ(parameter(f, "RESPTEXT").direction, RFC_EXPORT);

  RFC_TYPE_DESC_HANDLE t = imp.typeDescHandle;
  ASSERT_NE(t, nullptr);
  RFC_ABAP_NAME name;
  ASSERT_EQ(RfcGetTypeName(t, name, &info), RFC_OK);
  EXPECT_EQ(utf8(name), "RFCTEST");
  unsigned fields = 0, nuc = 0, uc = 0;
  ASSERT_EQ(RfcGetFieldCount(t, &fields, &info), RFC_OK);
  EXPECT_EQ(fields, 12u);
  ASSERT_EQ(RfcGetTypeLength(t, &nuc, &uc, &info), RFC_OK);
  EXPECT_EQ(nuc, 144u);
  EXPECT_EQ(uc, 264u);
  RFC_FIELD_DESC fd;
  ASSERT_EQ(RfcGetFieldDescByName(t, u"RFCINT4", &fd, &info), RFC_OK);
  EXPECT_EQ(fd.type, RFCTYPE_INT);
  EXPECT_EQ(fd.nucLength, 4u);
  EXPECT_EQ(fd.ucLength, 4u);
  EXPECT_EQ(fd.nucOffset % 4, 0u);
  ASSERT_EQ(RfcGetFieldDescByIndex(t, 0, &fd, &info), RFC_OK);
  EXPECT_EQ(utf8(fd.name), "RFCFLOAT");
  EXPECT_EQ(fd.decimals, 16u);
  ASSERT_EQ(RfcGetFieldDescByName(t, u"RFCCHAR4", &fd, &info), RFC_OK);
  EXPECT_EQ(fd.nucLength, 4u);
  EXPECT_EQ(fd.ucLength, 8u);
  EXPECT_EQ(RfcGetFieldDescByIndex(t, 12, &fd, &info), RFC_INVALID_PARAMETER);
  RFC_PARAMETER_DESC beyond;
  EXPECT_EQ(RfcGetParameterDescByIndex(f, 4, &beyond, &info), RFC_INVALID_PARAMETER);
}

TEST_F(Metadata, DefaultsOptionalFlagsDecimalsAndExceptions) {
  RFC_FUNCTION_DESC_HANDLE f = RfcGetFunctionDesc(c, u"Z_VSIM_RAISE", &info);
  ASSERT_NE(f, nullptr);
  const RFC_PARAMETER_DESC type = parameter(f, "MESSAGE_TYPE");
  EXPECT_EQ(utf8(type.defaultValue), "'E'");
  EXPECT_EQ(type.optional, 1);
  unsigned n = 0;
  ASSERT_EQ(RfcGetExceptionCount(f, &n, &info), RFC_OK);
  EXPECT_EQ(n, 4u);
  RFC_EXCEPTION_DESC e;
  ASSERT_EQ(RfcGetExceptionDescByName(f, u"NOT_FOUND", &e, &info), RFC_OK);
  EXPECT_EQ(utf8(e.message), "Object not found");

  RFC_FUNCTION_DESC_HANDLE types = RfcGetFunctionDesc(c, u"Z_VSIM_TYPES", &info);
  ASSERT_NE(types, nullptr);
  const RFC_PARAMETER_DESC packed = parameter(types, "IV_PACKED");
  EXPECT_EQ(packed.type, RFCTYPE_BCD);
  EXPECT_EQ(packed.nucLength, 8u);
  EXPECT_EQ(packed.ucLength, 8u);
  EXPECT_EQ(packed.decimals, 2u);
  EXPECT_EQ(parameter(types, "IV_CHAR").ucLength, 20u);
  EXPECT_EQ(parameter(types, "IV_DATE").nucLength, 8u);
  EXPECT_EQ(parameter(types, "IV_STRING").type, RFCTYPE_STRING);
  const RFC_PARAMETER_DESC deep = parameter(types, "IS_DEEP");
  RFC_FIELD_DESC rows;
  ASSERT_EQ(RfcGetFieldDescByName(deep.typeDescHandle, u"ROWS", &rows, &info), RFC_OK);
  EXPECT_EQ(rows.type, RFCTYPE_TABLE);
  RFC_ABAP_NAME rowName;
  ASSERT_EQ(RfcGetTypeName(rows.typeDescHandle, rowName, &info), RFC_OK);
  EXPECT_EQ(utf8(rowName), "ZVSIM_FLAT");
  const RFC_PARAMETER_DESC newer = parameter(RfcGetFunctionDesc(c, u"Z_VSIM_NEW_TYPES", &info), "IV_DECF34");
  EXPECT_EQ(newer.type, RFCTYPE_DECF34);
  EXPECT_EQ(newer.ucLength, 16u);
}

TEST_F(Metadata, UnknownFunctionGivesTheSystemsException) {
  EXPECT_EQ(RfcGetFunctionDesc(c, u"Z_DOES_NOT_EXIST", &info), nullptr);
  EXPECT_EQ(info.code, RFC_ABAP_EXCEPTION);
  EXPECT_EQ(info.group, RFC_ERROR_GROUP::ABAP_APPLICATION_FAILURE);
  EXPECT_EQ(utf8(info.key), "FU_NOT_FOUND");
  EXPECT_EQ(utf8(info.message), "ID:FL Type:E Number:046 Z_DOES_NOT_EXIST");
  EXPECT_EQ(utf8(info.abapMsgClass), "FL");
  EXPECT_EQ(utf8(info.abapMsgNumber), "046");
  EXPECT_EQ(utf8(info.abapMsgV1), "Z_DOES_NOT_EXIST");
  EXPECT_EQ(RfcPing(c, &info), RFC_OK) << "an exception leaves the connection usable";
}

TEST_F(Metadata, TypeDescriptionsAndTheRepositoryPerSystem) {
  RFC_TYPE_DESC_HANDLE t = RfcGetTypeDesc(c, u"ZVSIM_NESTED", &info);
  ASSERT_NE(t, nullptr) << describe(info.code, info);
  RFC_FIELD_DESC flat;
  ASSERT_EQ(RfcGetFieldDescByName(t, u"FLAT", &flat, &info), RFC_OK);
  EXPECT_EQ(flat.type, RFCTYPE_STRUCTURE);
  EXPECT_NE(flat.typeDescHandle, nullptr);
  EXPECT_EQ(RfcGetTypeDesc(c, u"NO_SUCH_TYPE", &info), nullptr);
  EXPECT_EQ(info.code, RFC_ABAP_EXCEPTION);

  RFC_FUNCTION_DESC_HANDLE f = RfcGetFunctionDesc(c, u"STFC_CONNECTION", &info);
  EXPECT_EQ(RfcGetCachedFunctionDesc(u"VSM", u"STFC_CONNECTION", &info), f);
  EXPECT_EQ(RfcGetCachedFunctionDesc(u"OTHER", u"STFC_CONNECTION", &info), nullptr);
  EXPECT_EQ(info.code, RFC_NOT_FOUND);
  EXPECT_EQ(RfcDestroyFunctionDesc(f, &info), RFC_ILLEGAL_STATE) << "repository descriptions stay";
  ASSERT_EQ(RfcClearRepository(u"VSM", &info), RFC_OK);
  EXPECT_EQ(RfcGetCachedFunctionDesc(u"VSM", u"STFC_CONNECTION", &info), nullptr);
}

TEST_F(Metadata, BuiltDescriptionsNeedTheirLengthAndFreezeWhenUsed) {
  RFC_TYPE_DESC_HANDLE t = RfcCreateTypeDesc(u"ZMY_ROW", &info);
  ASSERT_NE(t, nullptr);
  RFC_FIELD_DESC id{};
  std::u16string n = u"ID";
  std::copy(n.begin(), n.end(), id.name);
  id.type = RFCTYPE_CHAR;
  id.nucLength = 4;
  id.ucLength = 8;
  ASSERT_EQ(RfcAddTypeField(t, &id, &info), RFC_OK);
  EXPECT_EQ(RfcAddTypeField(t, &id, &info), RFC_INVALID_PARAMETER) << "a name once";
  EXPECT_EQ(RfcCreateStructure(t, &info), nullptr);
  EXPECT_EQ(info.code, RFC_ILLEGAL_STATE) << "no RfcSetTypeLength yet";
  ASSERT_EQ(RfcSetTypeLength(t, 4, 8, &info), RFC_OK);
  RFC_STRUCTURE_HANDLE s = RfcCreateStructure(t, &info);
  ASSERT_NE(s, nullptr);
  RFC_FIELD_DESC more = id;
  more.name[0] = u'X';
  EXPECT_EQ(RfcAddTypeField(t, &more, &info), RFC_ILLEGAL_STATE);
  EXPECT_EQ(RfcSetTypeLength(t, 8, 16, &info), RFC_ILLEGAL_STATE);
  EXPECT_EQ(RfcDestroyTypeDesc(t, &info), RFC_ILLEGAL_STATE) << "a structure uses it";
  EXPECT_EQ(RfcDestroyStructure(s, &info), RFC_OK);
  EXPECT_EQ(RfcDestroyTypeDesc(t, &info), RFC_OK);
  unsigned count = 0;
  EXPECT_EQ(RfcGetFieldCount(t, &count, &info), RFC_INVALID_HANDLE);

  RFC_TYPE_DESC_HANDLE bad = RfcCreateTypeDesc(u"ZBAD", &info);
  id.ucOffset = 4;  // 8 bytes from offset 4 do not fit in 8
  ASSERT_EQ(RfcAddTypeField(bad, &id, &info), RFC_OK);
  ASSERT_EQ(RfcSetTypeLength(bad, 4, 8, &info), RFC_OK);
  EXPECT_EQ(RfcCreateStructure(bad, &info), nullptr);
  EXPECT_EQ(info.code, RFC_INVALID_PARAMETER);
}

TEST_F(Metadata, ALengthBeyondWhatCanBeLaidOutIsRefused) {
  RFC_TYPE_DESC_HANDLE t = RfcCreateTypeDesc(u"ZHUGE", &info);
  RFC_FIELD_DESC id{};
  id.name[0] = u'A';
  id.type = RFCTYPE_CHAR;
  id.nucLength = 4;
  id.ucLength = 8;
  ASSERT_EQ(RfcAddTypeField(t, &id, &info), RFC_OK);
  ASSERT_EQ(RfcSetTypeLength(t, 0xFFFFFFFFu, 0xFFFFFFFFu, &info), RFC_OK) << "taken as it stands";
  EXPECT_EQ(RfcCreateStructure(t, &info), nullptr);
  EXPECT_EQ(info.code, RFC_INVALID_PARAMETER);
  EXPECT_NE(std::u16string(info.message).find(u"4294967295 bytes"), std::u16string::npos);

  // A parameter of it, and parameters that together pass the limit.
  RFC_FUNCTION_DESC_HANDLE f = RfcCreateFunctionDesc(u"Z_HUGE", &info);
  RFC_PARAMETER_DESC p{};
  p.name[0] = u'P';
  p.type = RFCTYPE_STRUCTURE;
  p.direction = RFC_IMPORT;
  p.typeDescHandle = t;
  ASSERT_EQ(RfcAddParameter(f, &p, &info), RFC_OK);
  EXPECT_EQ(RfcCreateFunction(f, &info), nullptr);
  EXPECT_EQ(info.code, RFC_INVALID_PARAMETER);
  RFC_FUNCTION_DESC_HANDLE g = RfcCreateFunctionDesc(u"Z_LONG", &info);
  for (char16_t c : {u'A', u'B'}) {
    RFC_PARAMETER_DESC b{};
    b.name[0] = c;
    b.type = RFCTYPE_BYTE;
    b.direction = RFC_IMPORT;
    b.nucLength = b.ucLength = 0xFFFFFFF0u;
    ASSERT_EQ(RfcAddParameter(g, &b, &info), RFC_OK);
  }
  EXPECT_EQ(RfcCreateFunction(g, &info), nullptr);
  EXPECT_EQ(info.code, RFC_INVALID_PARAMETER);
}

TEST_F(Metadata, FunctionDescriptionsBuiltByTheApplication) {
  RFC_FUNCTION_DESC_HANDLE f = RfcCreateFunctionDesc(u"Z_MY_FUNCTION", &info);
  ASSERT_NE(f, nullptr);
  RFC_PARAMETER_DESC p{};
  std::u16string n = u"TEXT";
  std::copy(n.begin(), n.end(), p.name);
  p.type = RFCTYPE_CHAR;
  p.direction = RFC_IMPORT;
  p.nucLength = 10;
  p.ucLength = 20;
  ASSERT_EQ(RfcAddParameter(f, &p, &info), RFC_OK);
  p.type = RFCTYPE_STRUCTURE;
  p.name[0] = u'S';
  EXPECT_EQ(RfcAddParameter(f, &p, &info), RFC_INVALID_PARAMETER) << "a structure needs its type";
  RFC_ABAP_NAME name;
  ASSERT_EQ(RfcGetFunctionName(f, name, &info), RFC_OK);
  EXPECT_EQ(utf8(name), "Z_MY_FUNCTION");
  RFC_FUNCTION_HANDLE h = RfcCreateFunction(f, &info);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(RfcDescribeFunction(h, &info), f);
  EXPECT_EQ(RfcAddParameter(f, &p, &info), RFC_ILLEGAL_STATE) << "frozen once a function exists";
  EXPECT_EQ(RfcDestroyFunction(h, &info), RFC_OK);
  EXPECT_EQ(RfcDestroyFunctionDesc(f, &info), RFC_OK);
}

TEST_F(Metadata, AStructureWithoutFieldsLaysOutEmpty) {
  RFC_TYPE_DESC_HANDLE t = RfcCreateTypeDesc(u"ZEMPTY", &info);
  ASSERT_NE(t, nullptr);
  RFC_FUNCTION_DESC_HANDLE f = RfcCreateFunctionDesc(u"Z_EMPTY", &info);
  RFC_PARAMETER_DESC p{};
  p.name[0] = u'S';
  p.type = RFCTYPE_STRUCTURE;
  p.direction = RFC_IMPORT;
  p.typeDescHandle = t;
  ASSERT_EQ(RfcAddParameter(f, &p, &info), RFC_OK);
  RFC_FUNCTION_HANDLE h = RfcCreateFunction(f, &info);
  ASSERT_NE(h, nullptr) << utf8(info.message);
  RFC_STRUCTURE_HANDLE s = nullptr;
  EXPECT_EQ(RfcGetStructure(h, u"S", &s, &info), RFC_OK);
  EXPECT_NE(s, nullptr);
  EXPECT_EQ(RfcDestroyFunction(h, &info), RFC_OK);
  EXPECT_EQ(RfcDestroyFunctionDesc(f, &info), RFC_OK);
}

}  // namespace
