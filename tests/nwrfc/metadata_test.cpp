// The metadata bridge: ImportCall and ImportType from the SDK's
// descriptions, and descriptions for the SDK from object-model calls and
// types (NWRFCCreateFunctionDesc, CNWRFCField).
#include "loopback.h"
#include "model/model.h"
#include "nwrfc/nwrfc_field.h"
#include "nwrfc/nwrfc_function_desc.h"
#include "nwrfc/sdk_text.h"
#include "nwrfc_fixture.h"
#include "platform/unicode.h"
#include "runtime/trace.h"

namespace nwtest {
namespace {

using veltrane::nwrfc::SapText;

constexpr HRESULT kFunctionNotFound = static_cast<HRESULT>(0x8004021C);
constexpr HRESULT kTypeDoesNotExist = static_cast<HRESULT>(0x8004020C);

using Metadata = SessionTest;

struct TypeFacts {
  std::string name;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  long type = -2, length = 0, decimals = 0;
  long ucLength = 0, nucLength = 0, ucOffset = 0, nucOffset = 0;
};

TypeFacts Facts(IRfcType* t) {
  TypeFacts f;
  CComBSTR name;
  t->get_name(&name);
  f.name = Text(name);
  t->get_Kind(&f.kind);
  ABAPTYPE type = TYPE_CHAR;
  t->get_ScalarType(&type);
  f.type = type;
  SHORT length = 0, decimals = 0;
  t->get_ScalarLength(&length);
  t->get_ScalarDecimals(&decimals);
  f.length = length;
  f.decimals = decimals;
  LONG v = 0;
  t->get_StructLength(&v);
  f.ucLength = v;
  t->get_structLengthC1(&v);
  f.nucLength = v;
  t->get_StructOffset(&v);
  f.ucOffset = v;
  t->get_structOffsetC1(&v);
  f.nucOffset = v;
  return f;
}

CComPtr<IRfcType> TypeOf(IRfcParameter* p) {
  CComPtr<IRfcType> t;
  EXPECT_EQ(p->get_RfcType(&t), S_OK);
  return t;
}

CComPtr<IRfcType> MemberType(IRfcType* structure, const char16_t* name) {
  CComPtr<IRfcTypes> members;
  structure->get_StructFields(&members);
  CComPtr<IRfcType> t;
  EXPECT_EQ(members->get_Item(CComVariant(name), &t), S_OK) << Narrow(name);
  return t;
}

std::vector<std::string> Names(IRfcParameters* parameters) {
  std::vector<std::string> names;
  LONG count = 0;
  parameters->get_Count(&count);
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> p;
    parameters->get_Item(CComVariant(i), &p);
    CComBSTR name;
    p->get_name(&name);
    names.push_back(Text(name));
  }
  return names;
}

// --------------------------------------------------------- SDK to model

TEST_F(Metadata, AScalarKeepsTheSdksLayoutAndAPackedNumberCountsDigits) {
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_TYPES");
  ASSERT_TRUE(call);
  const TypeFacts packed = Facts(TypeOf(Parameter(call, u"Importing", u"IV_PACKED")));
  EXPECT_EQ(packed.kind, RFCTYPEKIND_SCALAR);
  EXPECT_EQ(packed.type, TYPE_BCD);
  EXPECT_EQ(packed.length, 15) << "8 bytes hold 15 digits";
  EXPECT_EQ(packed.decimals, 2);
  EXPECT_EQ(packed.nucLength, 8);
  EXPECT_EQ(packed.ucLength, 8);
  const TypeFacts text = Facts(TypeOf(Parameter(call, u"Importing", u"IV_CHAR")));
  EXPECT_EQ(text.name, "IV_CHAR");
  EXPECT_EQ(text.type, TYPE_CHAR);
  EXPECT_EQ(text.length, 10);
  EXPECT_EQ(text.nucLength, 10);
  EXPECT_EQ(text.ucLength, 20);
  EXPECT_EQ(text.ucOffset, 0);
}

TEST_F(Metadata, EveryMemberOfAFlatStructureHasItsOffsets) {
  CComPtr<IRfcType> flat;
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"ZVSIM_FLAT"), &flat), S_OK) << ErrorDescription();
  const TypeFacts f = Facts(flat);
  EXPECT_EQ(f.name, "ZVSIM_FLAT");
  EXPECT_EQ(f.kind, RFCTYPEKIND_STRUCT);
  EXPECT_GT(f.ucLength, f.nucLength);
  const TypeFacts numc = Facts(MemberType(flat, u"NUMC"));
  EXPECT_EQ(numc.type, TYPE_NUM);
  EXPECT_EQ(numc.nucOffset, 10);
  EXPECT_EQ(numc.ucOffset, 20);
  EXPECT_EQ(Facts(MemberType(flat, u"PACKED")).length, 15);
  EXPECT_EQ(Facts(MemberType(flat, u"INT1")).type, TYPE_INT1);
}

TEST_F(Metadata, ADeepStructureKeepsItsNesting) {
  CComPtr<IRfcType> deep;
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"ZVSIM_DEEP"), &deep), S_OK) << ErrorDescription();
  EXPECT_EQ(Facts(deep).kind, RFCTYPEKIND_STRUCT);
  CComPtr<IRfcType> flat = MemberType(deep, u"FLAT");
  EXPECT_EQ(Facts(flat).kind, RFCTYPEKIND_STRUCT);
  EXPECT_EQ(Facts(flat).name, "FLAT") << "the field's name, not the dictionary's";
  EXPECT_EQ(Facts(MemberType(flat, u"CHAR")).type, TYPE_CHAR);
  CComPtr<IRfcType> rows = MemberType(deep, u"ROWS");
  EXPECT_EQ(Facts(rows).kind, RFCTYPEKIND_TABLE);
  CComPtr<IRfcType> row;
  rows->get_RowType(&row);
  EXPECT_EQ(Facts(row).name, "ZVSIM_FLAT");
  EXPECT_EQ(Facts(MemberType(deep, u"TEXT")).type, TYPE_STRING);
  EXPECT_EQ(Facts(MemberType(deep, u"DATA")).type, TYPE_XSTRING);
}

TEST_F(Metadata, ATableParameterBearsItsNameAndItsRowsTheDictionarysName) {
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_TYPES");
  ASSERT_TRUE(call);
  for (const auto& [group, name] : {std::pair{u"Tables", u"TT_FLAT"}, std::pair{u"Exporting", u"ET_FLAT"}}) {
    CComPtr<IRfcType> table = TypeOf(Parameter(call, group, name));
    EXPECT_EQ(Facts(table).name, Narrow(name));
    EXPECT_EQ(Facts(table).kind, RFCTYPEKIND_TABLE);
    CComPtr<IRfcType> row;
    table->get_RowType(&row);
    ASSERT_TRUE(row);
    EXPECT_EQ(Facts(row).name, "ZVSIM_FLAT");
    EXPECT_EQ(Facts(row).kind, RFCTYPEKIND_STRUCT);
  }
}

TEST_F(Metadata, ParametersComeInTheSdksOrderWithTheirTexts) {
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_ROWS");
  ASSERT_TRUE(call);
  CComPtr<IRfcParameters> importing;
  call->get_Importing(&importing);
  EXPECT_EQ(Names(importing), (std::vector<std::string>{"ROW_COUNT", "TEXT_PREFIX"}));
  CComPtr<IRfcParameter> prefix = Parameter(call, u"Importing", u"TEXT_PREFIX");
  VARIANT_BOOL optional = VARIANT_FALSE;
  prefix->get_Optional(&optional);
  EXPECT_EQ(optional, VARIANT_TRUE);
  CComBSTR text, defaultValue;
  prefix->get_Description(&text);
  prefix->get_DefaultValue(&defaultValue);
  EXPECT_EQ(Text(text), "Text in front of the row number");
  EXPECT_EQ(Text(defaultValue), "'Row'");
  CComPtr<IRfcParameter> count = Parameter(call, u"Importing", u"ROW_COUNT");
  count->get_Optional(&optional);
  EXPECT_EQ(optional, VARIANT_FALSE);
  CComPtr<IRfcParameters> tables;
  call->get_Tables(&tables);
  EXPECT_EQ(Names(tables), (std::vector<std::string>{"ROWS"}));
}

TEST_F(Metadata, UnknownTypesImportAsScalarsOfTypeMinusOneWhateverTheFlagSays) {
  for (const VARIANT_BOOL ignore : {VARIANT_FALSE, VARIANT_TRUE}) {
    CComPtr<IFunctionCall> call;
    ASSERT_EQ(m_session->ImportCall(CComBSTR(u"Z_VSIM_NEW_TYPES"), ignore, &call), S_OK) << ErrorDescription();
    CComPtr<IRfcParameters> importing;
    call->get_Importing(&importing);
    const std::vector<std::string> names = Names(importing);
    ASSERT_FALSE(names.empty());
    for (const std::string& name : names) {
      const TypeFacts f = Facts(TypeOf(Parameter(call, u"Importing", Utf8ToWide(name).c_str())));
      EXPECT_EQ(f.kind, RFCTYPEKIND_SCALAR) << name;
      EXPECT_EQ(f.type, -1) << name;
    }
    // The session's cache answers the second time.
    m_session.Release();
    m_session = ConnectedSession();
  }
}

TEST_F(Metadata, AnUnknownModuleIs540WithTheSystemsAnswerInErrorInfo) {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(m_session->ImportCall(CComBSTR(u"Z_NO_SUCH_MODULE"), VARIANT_FALSE, &call), kFunctionNotFound);
  EXPECT_FALSE(call);
  EXPECT_EQ(ErrorDescription(), "function module not found");
  EXPECT_TRUE(ErrorFlag(m_session));
  const ErrorText e = ErrorOf(m_session);
  EXPECT_EQ(e.key, "FU_NOT_FOUND");
  EXPECT_EQ(e.group, RFCERROR_APPLICATION_EXCEPTION);
}

TEST_F(Metadata, AnUnknownTypeIs524) {
  CComPtr<IRfcType> type;
  EXPECT_EQ(m_session->ImportType(CComBSTR(u"ZNO_SUCH_TYPE"), &type), kTypeDoesNotExist);
  EXPECT_EQ(ErrorDescription(), "Type does not exist (or is not activated)");
  EXPECT_TRUE(ErrorFlag(m_session));
}

TEST_F(Metadata, WithoutAConnectionAnImportIs520) {
  CComPtr<IRfcSession> fresh = NewSession();
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(fresh->ImportCall(CComBSTR(u"STFC_CONNECTION"), VARIANT_FALSE, &call), static_cast<HRESULT>(0x80040208));
  CComPtr<IRfcType> type;
  EXPECT_EQ(fresh->ImportType(CComBSTR(u"ZVSIM_FLAT"), &type), static_cast<HRESULT>(0x80040208));
}

TEST_F(Metadata, OneRequestBringsAWholeDescriptionWhateverItsDepth) {
  ASSERT_EQ(Sdk().RfcClearRepository(u"VSM", nullptr), RFC_OK) << "the SDK would answer from its repository";
  const long before = RfcRequests();
  CComPtr<IRfcType> deep;
  ASSERT_EQ(m_session->ImportType(CComBSTR(u"ZVSIM_DEEP"), &deep), S_OK);
  EXPECT_EQ(RfcRequests(), before + 1);
}

// --------------------------------------------------------- model to SDK

CComPtr<IRfcType> NewType() {
  CComPtr<IRfcType> t;
  EXPECT_EQ(CreateRfcType(&t), S_OK);
  return t;
}

TEST_F(Metadata, AHandBuiltScalarGetsTwoBytesACharacterAndPackedBytesFromItsDigits) {
  RFC_ERROR_INFO info{};
  CComPtr<IRfcType> text = NewType();
  text->DefineScalar(CComBSTR(u"TEXT"), TYPE_CHAR, 10, 0, -1);
  CNWRFCField a(Sdk(), &info, CLSID_NWRfcSession);
  ASSERT_EQ(a.Define(u"TEXT", text), S_OK);
  EXPECT_EQ(a.ucLength, 20);
  EXPECT_EQ(a.nucLength, 10);

  CComPtr<IRfcType> packed = NewType();
  packed->DefineScalar(CComBSTR(u"AMOUNT"), TYPE_BCD, 9, 2, -1);
  CNWRFCField b(Sdk(), &info, CLSID_NWRfcSession);
  ASSERT_EQ(b.Define(u"AMOUNT", packed), S_OK);
  EXPECT_EQ(b.ucLength, 10);
  EXPECT_EQ(b.nucLength, 5);
  EXPECT_EQ(b.decimals, 2);

  CComPtr<IRfcType> integer = NewType();
  integer->DefineScalar(CComBSTR(u"N"), TYPE_INT, 4, -1, -1);
  CNWRFCField c(Sdk(), &info, CLSID_NWRfcSession);
  ASSERT_EQ(c.Define(u"N", integer), S_OK);
  EXPECT_EQ(c.ucLength, 8) << "the factor 2 applies to every scalar";
  EXPECT_EQ(c.decimals, 0) << "decimals of -1 become 0";
}

TEST_F(Metadata, ATableHasNoLayoutOfItsOwn) {
  RFC_ERROR_INFO info{};
  CComPtr<IRfcType> row = NewType();
  row->DefineStruct(CComBSTR(u"ROW"));
  row->AddScalarStructField(CComBSTR(u"A"), TYPE_CHAR, 3, 0, 0, 0, 6, 3);
  CComPtr<IRfcType> table = NewType();
  table->DefineTable(CComBSTR(u"LINES"), row);
  table->put_StructLength(99);
  CNWRFCField field(Sdk(), &info, CLSID_NWRfcSession);
  ASSERT_EQ(field.Define(u"LINES", table), S_OK);
  EXPECT_EQ(field.kind, RFCTYPEKIND_TABLE);
  EXPECT_EQ(field.ucLength, 0);
  EXPECT_EQ(field.nucLength, 0);
  EXPECT_EQ(field.length, 0);
}

TEST_F(Metadata, ALongParameterNameIsCutToThirtyCharacters) {
  RFC_ERROR_INFO info{};
  CComPtr<IRfcType> t = NewType();
  t->DefineScalar(CComBSTR(u"X"), TYPE_CHAR, 1, 0, -1);
  CNWRFCField field(Sdk(), &info, CLSID_NWRfcSession);
  const std::u16string name = u"ABCDEFGHIJKLMNOPQRSTUVWXYZ12345";  // 31
  ASSERT_EQ(field.Define(name, t), S_OK);
  field.description = std::u16string(100, u'd');
  field.defaultValue = std::u16string(40, u'v');
  RFC_PARAMETER_DESC desc{};
  ASSERT_EQ(field.fillParameterDesc(RFC_IMPORT, desc), S_OK);
  EXPECT_EQ(SapText(desc.name), name.substr(0, 30));
  EXPECT_EQ(SapText(desc.parameterText).size(), 79u);
  EXPECT_EQ(SapText(desc.defaultValue).size(), 30u);
  EXPECT_EQ(desc.type, RFCTYPE_CHAR);
  EXPECT_EQ(desc.direction, RFC_IMPORT);
  EXPECT_EQ(desc.typeDescHandle, nullptr);
}

TEST_F(Metadata, AStructureWithoutALengthReachesTheSdkAsItStands) {
  RFC_ERROR_INFO info{};
  CComPtr<IRfcType> s = NewType();
  s->DefineStruct(CComBSTR(u"ZHAND"));
  s->AddScalarStructField(CComBSTR(u"A"), TYPE_CHAR, 3, 0, 0, 0, 6, 3);
  CNWRFCField field(Sdk(), &info, CLSID_NWRfcSession);
  ASSERT_EQ(field.Define(u"ZHAND", s), S_OK);
  EXPECT_EQ(field.ucLength, -1);
  RFC_TYPE_DESC_HANDLE desc = nullptr;
  ASSERT_EQ(field.createTypeDesc(&desc), S_OK) << Narrow(SapText(info.message));
  unsigned nuc = 0, uc = 0;
  ASSERT_EQ(Sdk().RfcGetTypeLength(desc, &nuc, &uc, nullptr), RFC_OK);
  EXPECT_EQ(nuc, 4294967295u);
  EXPECT_EQ(uc, 4294967295u);
}

// Fields of two type descriptions, one by one, down to the last member.
void ExpectSameType(RFC_TYPE_DESC_HANDLE actual, RFC_TYPE_DESC_HANDLE expected, const std::string& where) {
  unsigned fields = 0, systemFields = 0, nuc = 0, uc = 0, systemNuc = 0, systemUc = 0;
  Sdk().RfcGetFieldCount(actual, &fields, nullptr);
  Sdk().RfcGetFieldCount(expected, &systemFields, nullptr);
  EXPECT_EQ(fields, systemFields) << where;
  Sdk().RfcGetTypeLength(actual, &nuc, &uc, nullptr);
  Sdk().RfcGetTypeLength(expected, &systemNuc, &systemUc, nullptr);
  EXPECT_EQ(nuc, systemNuc) << where;
  EXPECT_EQ(uc, systemUc) << where;
  for (unsigned f = 0; f < systemFields && f < fields; ++f) {
    RFC_FIELD_DESC a{}, e{};
    Sdk().RfcGetFieldDescByIndex(actual, f, &a, nullptr);
    Sdk().RfcGetFieldDescByIndex(expected, f, &e, nullptr);
    const std::string field = where + "-" + Narrow(SapText(e.name));
    EXPECT_EQ(SapText(a.name), SapText(e.name));
    EXPECT_EQ(a.type, e.type) << field;
    EXPECT_EQ(a.nucOffset, e.nucOffset) << field;
    EXPECT_EQ(a.ucOffset, e.ucOffset) << field;
    EXPECT_EQ(a.decimals, e.decimals) << field;
    // A table or string has no length of its own to report.
    if (e.type != RFCTYPE_TABLE && e.type != RFCTYPE_STRING && e.type != RFCTYPE_XSTRING)
      EXPECT_EQ(a.ucLength, e.ucLength) << field;
    if (e.typeDescHandle && a.typeDescHandle) ExpectSameType(a.typeDescHandle, e.typeDescHandle, field);
    EXPECT_EQ(!a.typeDescHandle, !e.typeDescHandle) << field;
  }
}

// A description made from a call describes what the system's own description
// of the module says, parameter by parameter and field by field.
void ExpectTheSystemsDescription(IFunctionCall* call, const char16_t* module) {
  RFC_ERROR_INFO info{};
  RFC_FUNCTION_DESC_HANDLE made = nullptr;
  ASSERT_EQ(NWRFCCreateFunctionDesc(Sdk(), call, &info, &made, CLSID_NWRfcSession), S_OK)
      << Narrow(SapText(info.message));
  ASSERT_TRUE(made);
  RawConnection connection;
  RFC_FUNCTION_DESC_HANDLE system = Sdk().RfcGetFunctionDesc(connection.handle(), module, &info);
  ASSERT_TRUE(system);
  unsigned count = 0, systemCount = 0;
  Sdk().RfcGetParameterCount(made, &count, nullptr);
  Sdk().RfcGetParameterCount(system, &systemCount, nullptr);
  ASSERT_EQ(count, systemCount);
  for (unsigned i = 0; i < systemCount; ++i) {
    RFC_PARAMETER_DESC expected{}, actual{};
    Sdk().RfcGetParameterDescByIndex(system, i, &expected, nullptr);
    ASSERT_EQ(Sdk().RfcGetParameterDescByName(made, expected.name, &actual, nullptr), RFC_OK)
        << Narrow(SapText(expected.name));
    const std::string name = Narrow(SapText(expected.name));
    EXPECT_EQ(actual.type, expected.type) << name;
    EXPECT_EQ(actual.direction, expected.direction) << name;
    // A table parameter has no layout of its own; its row type has.
    EXPECT_EQ(actual.nucLength, expected.type == RFCTYPE_TABLE ? 0u : expected.nucLength) << name;
    EXPECT_EQ(actual.ucLength, expected.type == RFCTYPE_TABLE ? 0u : expected.ucLength) << name;
    EXPECT_EQ(actual.decimals, expected.decimals) << name;
    EXPECT_EQ(actual.optional, expected.optional) << name;
    EXPECT_EQ(SapText(actual.parameterText), SapText(expected.parameterText)) << name;
    if (!expected.typeDescHandle) continue;
    ASSERT_TRUE(actual.typeDescHandle) << name;
    ExpectSameType(actual.typeDescHandle, expected.typeDescHandle, name);
  }
}

TEST_F(Metadata, AFunctionDescriptionFromAnImportedCallMatchesTheSystems) {
  CComPtr<IFunctionCall> call = Import(u"STFC_STRUCTURE");
  ASSERT_TRUE(call);
  ExpectTheSystemsDescription(call, u"STFC_STRUCTURE");
  RFC_ERROR_INFO info{};
  RFC_FUNCTION_DESC_HANDLE made = nullptr;
  ASSERT_EQ(NWRFCCreateFunctionDesc(Sdk(), call, &info, &made, CLSID_NWRfcSession), S_OK);
  // A container of it takes values by the names of the call.
  RFC_FUNCTION_HANDLE function = Sdk().RfcCreateFunction(made, &info);
  ASSERT_TRUE(function) << Narrow(SapText(info.message));
  SetString(Structure(function, u"IMPORTSTRUCT"), u"RFCCHAR4", u"ABCD");
  EXPECT_EQ(GetString(Structure(function, u"IMPORTSTRUCT"), u"RFCCHAR4"), u"ABCD");
  Sdk().RfcDestroyFunction(function, nullptr);
}

// The XML form keeps no type code and no layout of a structure: its
// structures are described as structures, laid out from their members as
// the dictionary lays them out, nested and deep ones too.
TEST_F(Metadata, AFunctionDescriptionFromTheXmlFormOfACallMatchesTheSystems) {
  for (const char16_t* module : {u"STFC_STRUCTURE", u"Z_VSIM_TYPES"}) {
    CComPtr<IFunctionCall> imported = Import(module);
    ASSERT_TRUE(imported);
    CComBSTR xml;
    ASSERT_EQ(imported->ToXML(&xml), S_OK);
    CComPtr<IFunctionCall> call;
    m_session->CreateCall(&call);
    ASSERT_EQ(call->FromXML(xml), S_OK);
    SCOPED_TRACE(Narrow(module));
    ExpectTheSystemsDescription(call, module);
  }
}

TEST_F(Metadata, AFunctionDescriptionFromAHandBuiltCall) {
  CComPtr<IFunctionCall> call;
  m_session->CreateCall(&call);
  call->put_Function(CComBSTR(u"Z_HAND_BUILT"));
  CComPtr<IRfcParameters> importing, tables;
  call->get_Importing(&importing);
  call->get_Tables(&tables);
  importing->AddScalar(CComBSTR(u"NAME"), TYPE_CHAR, 12, 0, CComVariant());
  CComPtr<IRfcParameter> name;
  importing->get_Item(CComVariant(u"NAME"), &name);
  name->put_Optional(VARIANT_TRUE);
  name->put_DefaultValue(CComBSTR(u"'X'"));
  name->put_Description(CComBSTR(u"A name"));
  CComPtr<IRfcType> row = NewType();
  row->DefineStruct(CComBSTR(u"ZROW"));
  row->AddScalarStructField(CComBSTR(u"ID"), TYPE_NUM, 4, 0, 0, 0, 8, 4);
  row->AddScalarStructField(CComBSTR(u"AMOUNT"), TYPE_BCD, 9, 2, 8, 4, 5, 5);
  row->put_StructLength(16);
  row->put_structLengthC1(9);
  tables->AddTable(CComBSTR(u"LINES"), row);

  RFC_ERROR_INFO info{};
  RFC_FUNCTION_DESC_HANDLE desc = nullptr;
  ASSERT_EQ(NWRFCCreateFunctionDesc(Sdk(), call, &info, &desc, CLSID_NWRfcSession), S_OK)
      << Narrow(SapText(info.message));
  RFC_PARAMETER_DESC p{};
  ASSERT_EQ(Sdk().RfcGetParameterDescByName(desc, u"NAME", &p, nullptr), RFC_OK);
  EXPECT_EQ(p.direction, RFC_IMPORT);
  EXPECT_EQ(p.nucLength, 12u);
  EXPECT_EQ(p.ucLength, 24u);
  EXPECT_EQ(p.optional, 1);
  EXPECT_EQ(SapText(p.defaultValue), u"'X'");
  EXPECT_EQ(SapText(p.parameterText), u"A name");
  ASSERT_EQ(Sdk().RfcGetParameterDescByName(desc, u"LINES", &p, nullptr), RFC_OK);
  EXPECT_EQ(p.direction, RFC_TABLES);
  EXPECT_EQ(p.type, RFCTYPE_TABLE);
  ASSERT_TRUE(p.typeDescHandle);
  RFC_ABAP_NAME typeName{};
  Sdk().RfcGetTypeName(p.typeDescHandle, typeName, nullptr);
  EXPECT_EQ(SapText(typeName), u"LINES") << "the table's type bears the table's name";
  unsigned nuc = 0, uc = 0;
  Sdk().RfcGetTypeLength(p.typeDescHandle, &nuc, &uc, nullptr);
  EXPECT_EQ(nuc, 9u);
  EXPECT_EQ(uc, 16u);
  RFC_FIELD_DESC amount{};
  ASSERT_EQ(Sdk().RfcGetFieldDescByIndex(p.typeDescHandle, 1, &amount, nullptr), RFC_OK);
  EXPECT_EQ(SapText(amount.name), u"AMOUNT");
  EXPECT_EQ(amount.type, RFCTYPE_BCD);
  EXPECT_EQ(amount.nucLength, 5u);
  EXPECT_EQ(amount.decimals, 2u);
}

}  // namespace
}  // namespace nwtest
