// Descriptions: a function's interface as a table of RFC_U_FUNINT rows, a structure's flat fields
// with both layouts, installed structures, and the type letters.
#include <cstring>
#include <map>

#include "rfc_fixture.h"

using namespace rfctest;

namespace {

using Metadata = Connected;

std::map<std::string, RFC_U_FUNINT> interfaceOf(RFC_HANDLE h, const std::string& function) {
  std::map<std::string, RFC_U_FUNINT> rows;
  std::u16string name = u(function);
  ITAB_H table = nullptr;
  rfc_char_t* exception = nullptr;
  EXPECT_EQ(RfcGetFunctionInfoAsTableU(h, name.data(), &table, &exception), RFC_OK) << lastError();
  if (!table) return rows;
  EXPECT_EQ(ItLengU(table), sizeof(RFC_U_FUNINT));
  for (unsigned i = 1; i <= ItFillU(table); ++i) {
    RFC_U_FUNINT row;
    EXPECT_EQ(ItCpyLineU(table, i, &row), 0);
    rows[field(row.Parameter, 30)] = row;
  }
  ItDeleteU(table);
  return rows;
}

TEST_F(Metadata, TheInterfaceTableHasOneRowPerParameterAndException) {
  auto rows = interfaceOf(h, "STFC_CONNECTION");
  ASSERT_TRUE(rows.count("REQUTEXT"));
  const RFC_U_FUNINT& req = rows["REQUTEXT"];
  EXPECT_EQ(req.Paramclass[0], u'I');
  EXPECT_EQ(req.Exid[0], u'C');
  EXPECT_EQ(req.Length_b1, 255);
  EXPECT_EQ(req.Length_b2, 510);
  EXPECT_EQ(rows["ECHOTEXT"].Paramclass[0], u'E');

  rows = interfaceOf(h, "Z_VSIM_ROWS");
  EXPECT_EQ(rows["ROWS"].Paramclass[0], u'T');
  EXPECT_EQ(rows["ROWS"].Exid[0], u'u') << "a table names the structure of its rows";
  EXPECT_EQ(field(rows["ROWS"].Tabname, 30), "ZVSIM_ROW");
  EXPECT_EQ(rows["TEXT_PREFIX"].Optional[0], u'X');
  EXPECT_EQ(field(rows["TEXT_PREFIX"].Default, 21), "'Row'");
  EXPECT_EQ(rows["INVALID_COUNT"].Paramclass[0], u'X');
  EXPECT_NE(field(rows["INVALID_COUNT"].Paramtext, 79).find("negative"), std::string::npos);

  rows = interfaceOf(h, "Z_VSIM_TYPES");
  EXPECT_EQ(rows["IV_PACKED"].Exid[0], u'P');
  EXPECT_EQ(rows["IV_PACKED"].Decimals, 2);
  EXPECT_EQ(rows["IV_STRING"].Exid[0], u'g');
  EXPECT_EQ(rows["IV_XSTRING"].Exid[0], u'y');
  EXPECT_EQ(rows["IS_FLAT"].Exid[0], u'u');
  EXPECT_EQ(rows["IS_DEEP"].Exid[0], u'v');
  EXPECT_EQ(rows["IT_FLAT"].Exid[0], u'h') << "a table type outside TABLES";
  EXPECT_EQ(rows["CV_INT"].Paramclass[0], u'C');
}

TEST_F(Metadata, AnUnknownFunctionIsTheExceptionFuNotFound) {
  std::u16string name = u"Z_NOT_THERE";
  ITAB_H table = nullptr;
  rfc_char_t* exception = nullptr;
  EXPECT_EQ(RfcGetFunctionInfoAsTableU(h, name.data(), &table, &exception), RFC_EXCEPTION);
  EXPECT_EQ(text(exception), "FU_NOT_FOUND");
  EXPECT_EQ(table, nullptr);
}

TEST_F(Metadata, AGivenTableReceivesTheRows) {
  std::u16string name = u"STFC_CONNECTION", tname = u"funcinfo";
  ITAB_H table = ItCreateU(tname.data(), sizeof(RFC_U_FUNINT), 1, 0);
  ASSERT_EQ(RfcGetFunctionInfoAsTableU(h, name.data(), &table, nullptr), RFC_OK);
  EXPECT_EQ(ItFillU(table), 3u);
  ItDeleteU(table);
}

TEST_F(Metadata, AStructureGivesItsFieldsInBothLayoutsAndInstallsOnce) {
  std::u16string name = u"ZVSIM_FLAT";
  unsigned heads = 99, count = 0, b1 = 0, b2 = 0, b4 = 0;
  RFC_TYPE_HEAD* head = nullptr;
  RFC_UNICODE_TYPE_ELEMENT* fields = nullptr;
  RFCTYPE kind = RFCTYPE_NULL;
  RFC_STRUCT_TYPE_ID id = {};
  RFC_TYPEHANDLE handle = 0;
  ASSERT_EQ(RfcGetStructureInfoFlatU(h, name.data(), 1, &heads, &head, &count, &fields, &kind, &b1, &b2, &b4, id,
                                     &handle, nullptr),
            RFC_OK)
      << lastError();
  EXPECT_EQ(heads, 0u);
  EXPECT_EQ(kind, RFCTYPE_STRUCTURE);
  ASSERT_GE(count, 6u);
  EXPECT_EQ(text(fields[0].name), "CHAR");
  EXPECT_EQ(fields[0].type, static_cast<unsigned>(RFCTYPE_CHAR));
  EXPECT_EQ(fields[0].c1_length, 10u);
  EXPECT_EQ(fields[0].c2_length, 20u);
  EXPECT_EQ(fields[0].c4_length, 40u);
  EXPECT_EQ(text(fields[5].name), "PACKED");
  EXPECT_EQ(fields[5].c2_length, 8u) << "P8.2: eight bytes";
  EXPECT_EQ(fields[5].decimals, 2u);
  EXPECT_GT(b2, b1);
  EXPECT_GT(b4, b2);
  EXPECT_GE(handle, 256u);
  EXPECT_NE(id[0] | id[15], 0);
  RfcReleaseStructInfoU(head, fields);

  RFC_TYPEHANDLE again = 0;
  fields = nullptr;
  ASSERT_EQ(RfcGetStructureInfoFlatU(h, name.data(), 1, nullptr, nullptr, &count, &fields, nullptr, nullptr, nullptr,
                                     nullptr, nullptr, &again, nullptr),
            RFC_OK);
  EXPECT_EQ(again, handle) << "installing a name twice gives the earlier handle";
  RfcReleaseStructInfoU(nullptr, fields);
}

TEST_F(Metadata, ATableTypeIsKindItabWithTheFieldsOfItsRow) {
  std::u16string table = u"zvsim_flat_tt", row = u"ZVSIM_FLAT";
  unsigned count = 0, rowCount = 0, b2 = 0, rowB2 = 0;
  RFC_UNICODE_TYPE_ELEMENT *fields = nullptr, *rowFields = nullptr;
  RFCTYPE kind = RFCTYPE_NULL, rowKind = RFCTYPE_NULL;
  ASSERT_EQ(RfcGetStructureInfoFlatU(h, table.data(), 0, nullptr, nullptr, &count, &fields, &kind, nullptr, &b2,
                                     nullptr, nullptr, nullptr, nullptr),
            RFC_OK)
      << lastError();
  ASSERT_EQ(RfcGetStructureInfoFlatU(h, row.data(), 0, nullptr, nullptr, &rowCount, &rowFields, &rowKind, nullptr,
                                     &rowB2, nullptr, nullptr, nullptr, nullptr),
            RFC_OK);
  EXPECT_EQ(kind, RFCTYPE_ITAB);
  EXPECT_EQ(rowKind, RFCTYPE_STRUCTURE) << "a name in lower case is the same structure";
  ASSERT_EQ(count, rowCount);
  EXPECT_EQ(b2, rowB2);
  EXPECT_EQ(text(fields[0].name), "CHAR");
  EXPECT_EQ(fields[count - 1].c2_offset, rowFields[count - 1].c2_offset);
  RfcReleaseStructInfoU(nullptr, fields);
  RfcReleaseStructInfoU(nullptr, rowFields);

  ITAB_H described = nullptr;
  kind = RFCTYPE_NULL;
  ASSERT_EQ(RfcGetStructureInfoAsTableU(h, table.data(), &described, nullptr, &kind, nullptr, nullptr, nullptr, nullptr,
                                        nullptr),
            RFC_OK);
  EXPECT_EQ(kind, RFCTYPE_ITAB);
  EXPECT_EQ(ItFillU(described), count);
  ItDeleteU(described);
}

TEST_F(Metadata, ANestedFlatStructureIsFlattened) {
  std::u16string name = u"ZVSIM_NESTED";
  unsigned count = 0;
  RFC_UNICODE_TYPE_ELEMENT* fields = nullptr;
  ASSERT_EQ(RfcGetStructureInfoFlatU(h, name.data(), 0, nullptr, nullptr, &count, &fields, nullptr, nullptr, nullptr,
                                     nullptr, nullptr, nullptr, nullptr),
            RFC_OK)
      << lastError();
  ASSERT_GT(count, 3u);
  EXPECT_EQ(text(fields[0].name), "ID");
  EXPECT_EQ(text(fields[1].name), "CHAR");
  EXPECT_EQ(fields[1].c2_offset, 8u);
  RfcReleaseStructInfoU(nullptr, fields);
}

TEST_F(Metadata, ADeepStructureIsNotSupported) {
  std::u16string name = u"ZVSIM_DEEP";
  unsigned count = 5;
  RFC_UNICODE_TYPE_ELEMENT* fields = nullptr;
  EXPECT_EQ(RfcGetStructureInfoFlatU(h, name.data(), 1, nullptr, nullptr, &count, &fields, nullptr, nullptr, nullptr,
                                     nullptr, nullptr, nullptr, nullptr),
            RFC_CALL_NOT_SUPPORTED);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(fields, nullptr);
}

TEST_F(Metadata, AnUnknownStructureIsTableNotActive) {
  std::u16string name = u"ZNOT_A_STRUCTURE";
  unsigned count = 0;
  RFC_UNICODE_TYPE_ELEMENT* fields = nullptr;
  rfc_char_t* exception = nullptr;
  EXPECT_EQ(RfcGetStructureInfoFlatU(h, name.data(), 0, nullptr, nullptr, &count, &fields, nullptr, nullptr, nullptr,
                                     nullptr, nullptr, nullptr, &exception),
            RFC_EXCEPTION);
  EXPECT_EQ(text(exception), "TABLE_NOT_ACTIVE");
}

TEST_F(Metadata, StructureInfoAsTable) {
  std::u16string name = u"ZVSIM_ROW";
  ITAB_H table = nullptr;
  unsigned b2 = 0;
  ASSERT_EQ(
      RfcGetStructureInfoAsTableU(h, name.data(), &table, nullptr, nullptr, nullptr, &b2, nullptr, nullptr, nullptr),
      RFC_OK)
      << lastError();
  ASSERT_EQ(ItFillU(table), 4u);
  const auto* amount = static_cast<const RFC_U_FIELDS*>(ItGetLineU(table, 3));
  EXPECT_EQ(field(amount->Fieldname, 30), "AMOUNT");
  EXPECT_EQ(amount->Exid[0], u'P');
  EXPECT_EQ(amount->Decimals, 2);
  EXPECT_EQ(amount->Position, 3);
  EXPECT_EQ(b2, 108u);
  ItDeleteU(table);
}

TEST(Install, AUnicodeStructureCarriesAStructureParameter) {
  // STFC_STRUCTURE's RFCTEST, installed from our own element list.
  const RFC_HANDLE h = open();
  std::u16string name = u"RFCTEST";
  unsigned count = 0;
  RFC_UNICODE_TYPE_ELEMENT* fields = nullptr;
  ASSERT_EQ(RfcGetStructureInfoFlatU(h, name.data(), 0, nullptr, nullptr, &count, &fields, nullptr, nullptr, nullptr,
                                     nullptr, nullptr, nullptr, nullptr),
            RFC_OK);
  std::u16string own = u"ZRFCTEST_OWN";
  RFC_TYPEHANDLE type = 0, twice = 0;
  ASSERT_EQ(RfcInstallUnicodeStructureU(own.data(), fields, count, 0, nullptr, &type), RFC_OK) << lastError();
  EXPECT_EQ(RfcInstallUnicodeStructureU(own.data(), fields, count, 0, nullptr, &twice), RFC_OK);
  EXPECT_EQ(type, twice);
  EXPECT_EQ(RfcInstallUnicodeStructureU(own.data(), fields, count, 1, nullptr, &twice), RFC_INVALID_PARAMETER);
  unsigned length = 0, offsetData1 = 0;
  for (unsigned i = 0; i < count; ++i) {
    length = std::max(length, fields[i].c2_offset + fields[i].c2_length);
    if (text(fields[i].name) == "RFCDATA1") offsetData1 = fields[i].c2_offset;
  }
  RfcReleaseStructInfoU(nullptr, fields);

  std::vector<unsigned char> in(length + 8, 0), echo(length + 8, 0);
  setField(in.data() + offsetData1, 50, "structured");
  Parameters exporting, importing;
  exporting.add("IMPORTSTRUCT", type, in.data(), length);
  importing.add("ECHOSTRUCT", type, echo.data(), length);
  std::u16string fn = u"STFC_STRUCTURE";
  ASSERT_EQ(RfcCallReceiveExU(h, fn.data(), exporting.data(), importing.data(), nullptr, nullptr, nullptr), RFC_OK)
      << lastError();
  EXPECT_EQ(field(echo.data() + offsetData1, 50), "structured");
  RfcCloseU(h);
}

TEST(Install, RfcInstallStructurePlacesTheFields) {
  std::u16string name = u"ZPLACED", a = u"A", b = u"B", c = u"C";
  RFC_TYPE_ELEMENT elements[] = {
      {a.data(), RFCTYPE_CHAR, 6, 0}, {b.data(), RFCTYPE_INT, 4, 0}, {c.data(), RFCTYPE_FLOAT, 8, 0}};
  RFC_TYPEHANDLE type = 0;
  ASSERT_EQ(RfcInstallStructureU(name.data(), elements, 3, &type), RFC_OK) << lastError();
  EXPECT_GE(type, 256u);
}

TEST(ExidToRfcType, MapsTheTypeLetters) {
  const std::pair<char16_t, RFCTYPE> letters[] = {
      {u'C', RFCTYPE_CHAR},   {u'N', RFCTYPE_NUM},       {u'P', RFCTYPE_BCD},      {u'D', RFCTYPE_DATE},
      {u'T', RFCTYPE_TIME},   {u'I', RFCTYPE_INT},       {u'F', RFCTYPE_FLOAT},    {u'X', RFCTYPE_BYTE},
      {u'g', RFCTYPE_STRING}, {u's', RFCTYPE_INT2},      {u'b', RFCTYPE_INT1},     {u'y', RFCTYPE_XSTRING},
      {u'h', RFCTYPE_ITAB},   {u'u', RFCTYPE_STRUCTURE}, {u'v', RFCTYPE_STRUCTURE}};
  for (const auto& [letter, type] : letters) {
    RFCTYPE out = RFCTYPE_NULL;
    EXPECT_EQ(RfcExidToRfcTypeU(letter, &out), RFC_OK);
    EXPECT_EQ(out, type) << static_cast<char>(letter);
  }
  RFCTYPE out;
  EXPECT_EQ(RfcExidToRfcTypeU(u'Q', &out), RFC_INVALID_PARAMETER);
}

}  // namespace
