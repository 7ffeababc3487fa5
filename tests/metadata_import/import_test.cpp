// Metadata import through the dictionary functions, against veltrane-sim:
// function interfaces, structures in the one-byte layout, table types, the
// type cache, and the failures of the import.
#include <gtest/gtest.h>

#include <memory>

#include "platform/oleauto.h"
#include "caller_session.h"
#include "sim_caller.h"
#include "abap/metadata_import.h"
#include "testing/sim_process.h"
#include "veltrane_tlb.h"

using import_test::CCallerSession;
using import_test::SimCaller;

namespace {

std::u16string Str(BSTR s) { return s ? std::u16string(s, SysStringLen(s)) : std::u16string(); }

class MetadataImportTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { s_sim = std::make_unique<vsim::testing::SimProcess>(); }
  static void TearDownTestSuite() {
    EXPECT_EQ(s_sim->stop(), 0);
    s_sim.reset();
  }

  void SetUp() override {
    caller = std::make_unique<SimCaller>(s_sim->soapUrl());
    ASSERT_EQ(CCallerSession::CreateInstance(&session.p), S_OK);
    session->caller = caller.get();
  }

  CComPtr<IFunctionCall> ImportCall(const char16_t* name, VARIANT_BOOL ignore = VARIANT_FALSE) {
    CComPtr<IFunctionCall> call;
    EXPECT_EQ(CreateFunctionCall(&call), S_OK);
    call->put_Function(CComBSTR(name));
    EXPECT_EQ(session->Importer().Call(CComBSTR(name), ignore, call), S_OK);
    return call;
  }

  // The session's ImportType: the cache first, then the import.
  CComPtr<IRfcType> ImportType(const char16_t* name) {
    CComPtr<IRfcType> type;
    EXPECT_EQ(session->ImportType(CComBSTR(name), &type), S_OK);
    return type;
  }

  static std::unique_ptr<vsim::testing::SimProcess> s_sim;
  std::unique_ptr<SimCaller> caller;
  CComPtr<CCallerSession> session;
};

std::unique_ptr<vsim::testing::SimProcess> MetadataImportTest::s_sim;

CComPtr<IRfcParameters> Set(IFunctionCall* call, char which) {
  CComPtr<IRfcParameters> p;
  switch (which) {
    case 'I': call->get_Importing(&p); break;
    case 'E': call->get_Exporting(&p); break;
    case 'C': call->get_Changing(&p); break;
    default: call->get_Tables(&p); break;
  }
  return p;
}

LONG CountOf(IRfcParameters* p) {
  LONG n = -1;
  p->get_Count(&n);
  return n;
}

CComPtr<IRfcParameter> Param(IRfcParameters* set, const std::u16string& name) {
  CComPtr<IRfcParameter> p;
  set->get_Item(CComVariant(name), &p);
  return p;
}

struct TypeView {
  std::u16string name;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  ABAPTYPE scalar = TYPE_CHAR;
  SHORT length = -1, decimals = -1;
  LONG offset = -2, offsetC1 = -2, size = -2, sizeC1 = -2;
};

TypeView View(IRfcType* t) {
  TypeView v;
  CComBSTR name;
  t->get_name(&name);
  v.name = Str(name);
  t->get_Kind(&v.kind);
  if (v.kind == RFCTYPEKIND_SCALAR) {
    t->get_ScalarType(&v.scalar);
    t->get_ScalarLength(&v.length);
    t->get_ScalarDecimals(&v.decimals);
  }
  t->get_StructOffset(&v.offset);
  t->get_structOffsetC1(&v.offsetC1);
  t->get_StructLength(&v.size);
  t->get_structLengthC1(&v.sizeC1);
  return v;
}

CComVariant Get(IRfcParameters* set, const std::u16string& name) {
  CComVariant v;
  Param(set, name)->get_value(&v);
  return v;
}

CComPtr<IRfcType> TypeOf(IRfcParameter* p) {
  CComPtr<IRfcType> t;
  p->get_RfcType(&t);
  return t;
}

CComPtr<IRfcType> Member(IRfcType* structure, LONG i) {
  CComPtr<IRfcTypes> fields;
  structure->get_StructFields(&fields);
  CComPtr<IRfcType> t;
  fields->get_Item(CComVariant(i), &t);
  return t;
}

LONG MemberCount(IRfcType* structure) {
  CComPtr<IRfcTypes> fields;
  structure->get_StructFields(&fields);
  LONG n = -1;
  if (fields) fields->get_Count(&n);
  return n;
}

// ------------------------------------------------------------- structures

TEST_F(MetadataImportTest, FlatStructureInTheOneByteLayout) {
  CComPtr<IRfcType> flat = ImportType(u"ZVSIM_FLAT");
  ASSERT_TRUE(flat);
  TypeView s = View(flat);
  EXPECT_EQ(s.name, u"ZVSIM_FLAT");
  EXPECT_EQ(s.kind, RFCTYPEKIND_STRUCT);
  EXPECT_EQ(s.sizeC1, 64);
  EXPECT_EQ(s.size, 128);
  struct Expected {
    const char16_t* name;
    ABAPTYPE type;
    SHORT length, decimals;
    LONG offset;
  } expected[] = {
      {u"CHAR", TYPE_CHAR, 10, 0, 0},   {u"NUMC", TYPE_NUM, 8, 0, 10}, {u"DATE", TYPE_DATE, 8, 0, 18},
      {u"TIME", TYPE_TIME, 6, 0, 26},   {u"RAW", TYPE_BYTE, 4, 0, 32}, {u"PACKED", TYPE_BCD, 8, 2, 36},
      {u"FLOAT", TYPE_FLOAT, 8, 0, 48}, {u"INT", TYPE_INT, 4, 0, 56},  {u"INT1", TYPE_INT1, 1, 0, 60},
      {u"INT2", TYPE_INT2, 2, 0, 62},
  };
  ASSERT_EQ(MemberCount(flat), LONG(std::size(expected)));
  for (LONG i = 0; i < LONG(std::size(expected)); ++i) {
    TypeView m = View(Member(flat, i + 1));
    const Expected& e = expected[i];
    EXPECT_EQ(m.name, e.name);
    EXPECT_EQ(m.kind, RFCTYPEKIND_SCALAR) << i;
    EXPECT_EQ(m.scalar, e.type) << i;
    EXPECT_EQ(m.length, e.length) << i;
    EXPECT_EQ(m.decimals, e.decimals) << i;
    EXPECT_EQ(m.offset, e.offset) << i;
    EXPECT_EQ(m.offsetC1, -1) << i;
    EXPECT_EQ(m.size, -1) << i;
    EXPECT_EQ(m.sizeC1, -1) << i;
  }
  EXPECT_EQ(caller->calls[u"RFC_GET_UNICODE_STRUCTURE"], 1);
}

TEST_F(MetadataImportTest, NestedStructureIsTakenFlat) {
  CComPtr<IRfcType> nested = ImportType(u"ZVSIM_NESTED");
  ASSERT_TRUE(nested);
  // ID, then the fields of FLAT with their path names, then NOTE; the row of
  // FLAT itself (EXID u) is skipped.
  ASSERT_EQ(MemberCount(nested), 12);
  EXPECT_EQ(View(Member(nested, 1)).name, u"ID");
  EXPECT_EQ(View(Member(nested, 2)).name, u"FLAT-CHAR");
  EXPECT_EQ(View(Member(nested, 2)).offset, 8);  // FLAT is aligned for its float
  EXPECT_EQ(View(Member(nested, 11)).name, u"FLAT-INT2");
  EXPECT_EQ(View(Member(nested, 12)).name, u"NOTE");
}

TEST_F(MetadataImportTest, DeepStructureKeepsStringsAndSkipsTheRest) {
  CComPtr<IRfcType> deep = ImportType(u"ZVSIM_DEEP");
  ASSERT_TRUE(deep);
  std::vector<std::u16string> names;
  for (LONG i = 1; i <= MemberCount(deep); ++i) names.push_back(View(Member(deep, i)).name);
  ASSERT_GE(names.size(), 3u);
  EXPECT_EQ(names[0], u"ID");
  EXPECT_EQ(names[1], u"TEXT");
  EXPECT_EQ(View(Member(deep, 2)).scalar, TYPE_STRING);
  EXPECT_EQ(names[2], u"DATA");
  EXPECT_EQ(View(Member(deep, 3)).scalar, TYPE_XSTRING);
  for (const auto& n : names) {
    EXPECT_NE(n, u"FLAT");
    EXPECT_NE(n, u"ROWS");
  }
}

TEST_F(MetadataImportTest, UnknownStructureIsEmpty) {
  CComPtr<IRfcType> none = ImportType(u"ZNO_SUCH_STRUCTURE");
  ASSERT_TRUE(none);
  EXPECT_TRUE(caller->error);
  EXPECT_EQ(View(none).kind, RFCTYPEKIND_STRUCT);
  EXPECT_EQ(View(none).sizeC1, 0);
  EXPECT_EQ(MemberCount(none), 0);
}

// --------------------------------------------------------------- functions

TEST_F(MetadataImportTest, EveryTypeInEveryDirection) {
  CComPtr<IFunctionCall> call = ImportCall(u"Z_VSIM_TYPES");
  EXPECT_FALSE(caller->error);
  struct Scalar {
    const char16_t* suffix;
    ABAPTYPE type;
    SHORT length, decimals;
  } scalars[] = {
      // INTLENGTH of a Unicode system counts the bytes of two-byte characters.
      {u"CHAR", TYPE_CHAR, 20, 0},  {u"NUMC", TYPE_NUM, 16, 0},     {u"DATE", TYPE_DATE, 16, 0},
      {u"TIME", TYPE_TIME, 12, 0},  {u"RAW", TYPE_BYTE, 4, 0},      {u"PACKED", TYPE_BCD, 15, 2},
      {u"FLOAT", TYPE_FLOAT, 0, 0}, {u"INT", TYPE_INT, 0, 0},       {u"INT1", TYPE_INT1, 0, 0},
      {u"INT2", TYPE_INT2, 0, 0},   {u"STRING", TYPE_STRING, 0, 0}, {u"XSTRING", TYPE_XSTRING, 0, 0},
  };
  const std::pair<char, const char16_t*> directions[] = {{'I', u"IV_"}, {'E', u"EV_"}, {'C', u"CV_"}};
  for (auto [set, prefix] : directions) {
    for (const Scalar& s : scalars) {
      std::u16string name = std::u16string(prefix) + s.suffix;
      CComPtr<IRfcParameter> p = Param(Set(call, set), name);
      ASSERT_TRUE(p) << std::string(name.begin(), name.end());
      TypeView t = View(TypeOf(p));
      EXPECT_EQ(t.kind, RFCTYPEKIND_SCALAR);
      EXPECT_EQ(t.scalar, s.type) << std::string(name.begin(), name.end());
      EXPECT_EQ(t.length, s.length) << std::string(name.begin(), name.end());
      EXPECT_EQ(t.decimals, s.decimals) << std::string(name.begin(), name.end());
      VARIANT_BOOL optional = VARIANT_FALSE;
      p->get_Optional(&optional);
      EXPECT_EQ(optional, set == 'E' ? VARIANT_FALSE : VARIANT_TRUE) << std::string(name.begin(), name.end());
    }
  }
  // Texts of the parameters.
  CComBSTR text;
  Param(Set(call, 'I'), u"IV_CHAR")->get_Description(&text);
  EXPECT_EQ(Str(text), u"Importing CHAR");
  // Structures share the imported type; a table type comes through
  // RFC_GET_NAMETAB; a table parameter gets an unnamed table type.
  CComPtr<IRfcType> is = TypeOf(Param(Set(call, 'I'), u"IS_FLAT"));
  EXPECT_EQ(View(is).kind, RFCTYPEKIND_STRUCT);
  EXPECT_EQ(View(is).name, u"ZVSIM_FLAT");
  EXPECT_EQ(is.p, TypeOf(Param(Set(call, 'E'), u"ES_FLAT")).p);
  CComPtr<IRfcType> it = TypeOf(Param(Set(call, 'I'), u"IT_FLAT"));
  EXPECT_EQ(View(it).kind, RFCTYPEKIND_TABLE);
  EXPECT_EQ(View(it).name, u"ZVSIM_FLAT_TT");
  CComPtr<IRfcType> itRow;
  it->get_RowType(&itRow);
  EXPECT_EQ(itRow.p, is.p);
  CComPtr<IRfcType> tt = TypeOf(Param(Set(call, 'T'), u"TT_FLAT"));
  EXPECT_EQ(View(tt).kind, RFCTYPEKIND_TABLE);
  EXPECT_EQ(View(tt).name, u"");
  CComPtr<IRfcType> ttRow;
  tt->get_RowType(&ttRow);
  EXPECT_EQ(ttRow.p, is.p);
  // Deep parameters are left out, the others are all there.
  EXPECT_FALSE(Param(Set(call, 'I'), u"IS_DEEP"));
  EXPECT_FALSE(Param(Set(call, 'E'), u"ES_DEEP"));
  EXPECT_EQ(CountOf(Set(call, 'I')), 14);
  EXPECT_EQ(CountOf(Set(call, 'E')), 14);
  EXPECT_EQ(CountOf(Set(call, 'C')), 14);
  EXPECT_EQ(CountOf(Set(call, 'T')), 1);
  // Order is that of PARAMS.
  CComPtr<IRfcParameter> first;
  Set(call, 'I')->get_Item(CComVariant(LONG(1)), &first);
  CComBSTR firstName;
  first->get_name(&firstName);
  EXPECT_EQ(Str(firstName), u"IV_CHAR");
  // One exchange for the interface, one per structure, two per table type.
  EXPECT_EQ(caller->calls[u"RFC_GET_FUNCTION_INTERFACE"], 1);
  EXPECT_EQ(caller->calls[u"RFC_GET_NAMETAB"], 3);            // IT_FLAT, ET_FLAT, CT_FLAT
  EXPECT_EQ(caller->calls[u"RFC_GET_UNICODE_STRUCTURE"], 2);  // RFC_FUNINT, ZVSIM_FLAT
}

TEST_F(MetadataImportTest, DefaultsOptionalFlagsAndExceptions) {
  CComPtr<IFunctionCall> call = ImportCall(u"RFC_GET_FUNCTION_INTERFACE");
  CComPtr<IRfcParameter> language = Param(Set(call, 'I'), u"LANGUAGE");
  ASSERT_TRUE(language);
  CComBSTR value;
  language->get_DefaultValue(&value);
  EXPECT_EQ(Str(value), u"SY-LANGU");
  VARIANT_BOOL optional = VARIANT_FALSE;
  language->get_Optional(&optional);
  EXPECT_EQ(optional, VARIANT_TRUE);
  CComPtr<IRfcParameter> funcname = Param(Set(call, 'I'), u"FUNCNAME");
  funcname->get_Optional(&optional);
  EXPECT_EQ(optional, VARIANT_FALSE);
  // Exceptions (class X) are no parameters.
  EXPECT_FALSE(Param(Set(call, 'I'), u"FU_NOT_FOUND"));
  EXPECT_FALSE(Param(Set(call, 'E'), u"FU_NOT_FOUND"));
  EXPECT_EQ(CountOf(Set(call, 'T')), 2);
}

TEST_F(MetadataImportTest, StructuresComeFromTheCacheTheSecondTime) {
  ImportCall(u"Z_VSIM_TYPES");
  int before = caller->total;
  ImportCall(u"STFC_STRUCTURE");
  // RFC_FUNINT and ZVSIM_FLAT are cached; STFC_STRUCTURE needs only its own.
  EXPECT_EQ(caller->calls[u"RFC_GET_FUNCTION_INTERFACE"], 2);
  EXPECT_GT(caller->total, before);
  int afterSecond = caller->total;
  ImportType(u"ZVSIM_FLAT");
  ImportType(u"RFC_FUNINT");
  EXPECT_EQ(caller->total, afterSecond);
}

TEST_F(MetadataImportTest, IgnoreUnsupportedParamsChangesNothing) {
  CComBSTR a, b;
  ImportCall(u"Z_VSIM_TYPES", VARIANT_FALSE)->ToXML(&a);
  ImportCall(u"Z_VSIM_TYPES", VARIANT_TRUE)->ToXML(&b);
  EXPECT_EQ(Str(a), Str(b));
}

TEST_F(MetadataImportTest, UnknownModuleLeavesAnEmptyCall) {
  CComPtr<IFunctionCall> call = ImportCall(u"Z_NO_SUCH_MODULE");
  EXPECT_TRUE(caller->error);
  EXPECT_EQ(caller->group, RFCERROR_APPLICATION_EXCEPTION);
  for (char set : {'I', 'E', 'C', 'T'}) EXPECT_EQ(CountOf(Set(call, set)), 0);
}

TEST_F(MetadataImportTest, TableTypeWithoutRowStructure) {
  CComPtr<IRfcType> type;
  ASSERT_EQ(CreateRfcType(&type), S_OK);
  EXPECT_EQ(session->Importer().TableType(CComBSTR(u"ZNO_SUCH_TT"), type), HRESULT(0x80040209));
  CComPtr<IErrorInfo> info;
  ASSERT_EQ(GetErrorInfo(0, &info), S_OK);
  CComBSTR description;
  info->GetDescription(&description);
  EXPECT_EQ(Str(description), u"Import of type not possible (no structure?)");
  EXPECT_EQ(View(type).kind, RFCTYPEKIND_UNDEFINED);
}

TEST_F(MetadataImportTest, TableTypeOfAStructure) {
  CComPtr<IRfcType> type;
  ASSERT_EQ(CreateRfcType(&type), S_OK);
  ASSERT_EQ(session->Importer().TableType(CComBSTR(u"ZVSIM_FLAT_TT"), type), S_OK);
  EXPECT_EQ(View(type).kind, RFCTYPEKIND_TABLE);
  EXPECT_EQ(View(type).name, u"ZVSIM_FLAT_TT");
  CComPtr<IRfcType> row;
  type->get_RowType(&row);
  EXPECT_EQ(View(row).name, u"ZVSIM_FLAT");
}

TEST_F(MetadataImportTest, NotConnected) {
  session->connected = false;
  CComPtr<IFunctionCall> call;
  ASSERT_EQ(CreateFunctionCall(&call), S_OK);
  CComPtr<IRfcType> type;
  ASSERT_EQ(CreateRfcType(&type), S_OK);
  EXPECT_EQ(session->Importer().Call(CComBSTR(u"Z_VSIM_TYPES"), VARIANT_FALSE, call), HRESULT(0x80040208));
  EXPECT_EQ(session->Importer().Type(CComBSTR(u"ZVSIM_FLAT"), type), HRESULT(0x80040208));
  EXPECT_EQ(session->Importer().TableType(CComBSTR(u"ZVSIM_FLAT_TT"), type), HRESULT(0x80040208));
  CComPtr<IErrorInfo> info;
  ASSERT_EQ(GetErrorInfo(0, &info), S_OK);
  CComBSTR description;
  info->GetDescription(&description);
  EXPECT_EQ(Str(description), u"Not connected (call connect() before executing this method)");
  EXPECT_EQ(caller->total, 0);
}

TEST_F(MetadataImportTest, FailingCallEndsTheImport) {
  session->failCalls = true;
  CComPtr<IFunctionCall> call;
  ASSERT_EQ(CreateFunctionCall(&call), S_OK);
  EXPECT_EQ(session->Importer().Call(CComBSTR(u"Z_VSIM_TYPES"), VARIANT_FALSE, call), HRESULT(0x80040207));
  // The failed call stays running until the client aborts it.
  VARIANT_BOOL active = VARIANT_FALSE;
  EXPECT_EQ(session->get_CallActive(&active), S_OK);
  EXPECT_EQ(active, VARIANT_TRUE);
  CComPtr<IRfcType> type;
  ASSERT_EQ(CreateRfcType(&type), S_OK);
  EXPECT_EQ(session->Importer().Type(CComBSTR(u"ZVSIM_FLAT"), type), HRESULT(0x8004020A));
  EXPECT_EQ(session->AbortCall(), S_OK);
  EXPECT_EQ(session->Importer().Type(CComBSTR(u"ZVSIM_FLAT"), type), HRESULT(0x80040207));
  EXPECT_EQ(caller->total, 0);
}

// ------------------------------------------------------ a call end to end

TEST_F(MetadataImportTest, ValuesTravelThroughTheSimulator) {
  CComPtr<IFunctionCall> call = ImportCall(u"Z_VSIM_TYPES");
  CComPtr<IRfcParameters> imp = Set(call, 'I');
  Param(imp, u"IV_CHAR")->put_value(CComVariant(u"a&b"));
  Param(imp, u"IV_DATE")->put_value(CComVariant(u"20240229"));
  Param(imp, u"IV_TIME")->put_value(CComVariant(u"12:34:56"));
  Param(imp, u"IV_INT")->put_value(CComVariant(LONG(42)));
  Param(imp, u"IV_PACKED")->put_value(CComVariant(u"-12.5"));
  Param(Set(call, 'C'), u"CV_INT1")->put_value(CComVariant(LONG(255)));
  ASSERT_EQ(caller->Call(call), S_OK);
  ASSERT_FALSE(caller->error) << std::string(caller->faultText.begin(), caller->faultText.end());
  CComPtr<IRfcParameters> exp = Set(call, 'E');
  CComVariant v;
  v = Get(exp, u"EV_CHAR");
  EXPECT_EQ(Str(v.bstrVal), u"a&b");
  v = Get(exp, u"EV_DATE");
  EXPECT_EQ(v.vt, VT_DATE);
  v = Get(exp, u"EV_TIME");
  EXPECT_EQ(v.vt, VT_DATE);
  v = Get(exp, u"EV_INT");
  EXPECT_EQ(v.vt, VT_I8);
  EXPECT_EQ(v.llVal, 42);
  v = Get(exp, u"EV_PACKED");
  EXPECT_EQ(Str(v.bstrVal), u"-12.50");
  v = Get(Set(call, 'C'), u"CV_INT1");
  EXPECT_EQ(v.llVal, 0);  // 255 + 1 wraps
}

TEST_F(MetadataImportTest, NegativeIntegersGoOutUnsignedAndAreRefused) {
  CComPtr<IFunctionCall> call = ImportCall(u"Z_VSIM_TYPES");
  Param(Set(call, 'I'), u"IV_INT")->put_value(CComVariant(LONG(-1)));
  ASSERT_EQ(caller->Call(call), S_OK);
  EXPECT_TRUE(caller->error);
  EXPECT_EQ(caller->group, RFCERROR_COMMUNICATION);
}

}  // namespace
