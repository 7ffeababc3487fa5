// The classic marshalling objects on our librfcum.so, without a call: the
// structure layouts handed to the SDK, the buffers of unset scalars, the
// internal tables of normal and file-mode tables and what reads back.
#include <cstring>
#include <fstream>

#include "model/model.h"
#include "platform/unicode.h"
#include "rfc/marshal.h"
#include "rfc/rfc_library.h"
#include "rfc_fixture.h"
#include "runtime/exceptions.h"
#include "temp_dir.h"

namespace rfctest {
namespace {

using namespace veltrane::rfc;
using veltrane::sdk::rfc::RFC_ITMODE_BYREFERENCE;

class Marshal : public RfcTest {
 protected:
  void SetUp() override {
    RfcTest::SetUp();
    m_sdk = &RfcLibrary::Load(SdkDir());
  }
  const EntryPoints& Sdk() const { return *m_sdk; }

  // A hand-defined structure: each field (name, type, length, decimals) with
  // its offsets and lengths left to the layout.
  struct FieldSpec {
    const char16_t* name;
    ABAPTYPE type;
    SHORT length;
    SHORT decimals = 0;
  };
  static CComPtr<IRfcType> Structure(const char16_t* name, std::initializer_list<FieldSpec> fields) {
    CComPtr<IRfcType> type;
    EXPECT_EQ(CreateRfcType(&type), S_OK);
    EXPECT_EQ(type->DefineStruct(CComBSTR(name)), S_OK);
    for (const FieldSpec& f : fields)
      EXPECT_EQ(type->AddScalarStructField(CComBSTR(f.name), f.type, f.length, f.decimals, -1, -1, -1, -1), S_OK);
    return type;
  }
  static CComPtr<IRfcType> TableOf(IRfcType* row) {
    CComPtr<IRfcType> table;
    EXPECT_EQ(CreateRfcType(&table), S_OK);
    EXPECT_EQ(table->DefineTable(CComBSTR(u""), row), S_OK);
    return table;
  }
  // A call whose Tables hold one parameter T of the given table type.
  static CComPtr<IRfcParameters> TablesWith(IRfcType* table) {
    CComPtr<IFunctionCall> call;
    EXPECT_EQ(CreateFunctionCall(&call), S_OK);
    CComPtr<IRfcParameters> tables;
    call->get_Tables(&tables);
    EXPECT_EQ(tables->AddParameter(CComBSTR(u"T"), table), S_OK);
    return tables;
  }
  static CComPtr<IRfcRows> RowsOf(IRfcParameters* parameters) {
    CComPtr<IRfcParameter> parameter;
    parameters->get_Item(CComVariant(u"T"), &parameter);
    CComPtr<IRfcRows> rows;
    parameter->get_Rows(&rows);
    return rows;
  }
  static void Put(IRfcRows* rows, LONG row, LONG column, const CComVariant& value) {
    CComPtr<IRfcFields> fields;
    ASSERT_EQ(rows->get_Item(row, &fields), S_OK);
    CComPtr<IRfcField> field;
    ASSERT_EQ(fields->get_Item(CComVariant(static_cast<int32_t>(column)), &field), S_OK);
    ASSERT_EQ(field->put_value(value), S_OK);
  }
  // The code units of a field of a line.
  static std::u16string Units(const void* line, unsigned offset, unsigned count) {
    std::u16string text(count, u'\0');
    std::memcpy(text.data(), static_cast<const unsigned char*>(line) + offset, count * sizeof(char16_t));
    return text;
  }
  static int32_t Int(const void* line, unsigned offset) {
    int32_t value = 0;
    std::memcpy(&value, static_cast<const unsigned char*>(line) + offset, sizeof value);
    return value;
  }

  const EntryPoints* m_sdk = nullptr;
};

// ------------------------------------------------------------ layouts

TEST_F(Marshal, TwoInt2AfterOneCharSitAt2And4AndInTheOneByteLayoutAt1And3) {
  CComPtr<IRfcType> type = Structure(u"ZMT_INT2", {{u"C", TYPE_CHAR, 1}, {u"A", TYPE_INT2, 0}, {u"B", TYPE_INT2, 0}});
  CIntRfcT1StructDef def(Sdk(), type);
  ASSERT_EQ(def.FieldCount(), 3u);
  EXPECT_EQ(def.Element(0).c2_length, 2u);
  EXPECT_EQ(def.Element(0).c1_length, 1u);
  EXPECT_EQ(def.Element(1).c2_offset, 2u);
  EXPECT_EQ(def.Element(2).c2_offset, 4u);
  EXPECT_EQ(def.Element(1).c1_offset, 1u);
  EXPECT_EQ(def.Element(2).c1_offset, 3u);
  EXPECT_EQ(def.RowLength(), 8u) << "the row is aligned to 4";
  EXPECT_NE(def.Handle(), 0u);
}

TEST_F(Marshal, FloatAndIntAlignTo4AndPackedFieldsTakeHalfTheirDigitsPlusOne) {
  CComPtr<IRfcType> type = Structure(u"ZMT_ALIGN", {{u"C", TYPE_CHAR, 3},
                                                    {u"F", TYPE_FLOAT, 0},
                                                    {u"P", TYPE_BCD, 9, 2},
                                                    {u"I", TYPE_INT, 0},
                                                    {u"X", TYPE_BYTE, 3},
                                                    {u"D", TYPE_DATE, 8},
                                                    {u"T", TYPE_TIME, 6},
                                                    {u"N", TYPE_NUM, 4}});
  CIntRfcT1StructDef def(Sdk(), type);
  // C: 6 bytes; F at 8, not at 8 by its own size but at 4's multiple after 6.
  EXPECT_EQ(def.Element(1).c2_offset, 8u);
  EXPECT_EQ(def.Element(1).c1_offset, 4u);
  // P9.2: 5 bytes in both layouts, its decimals kept.
  EXPECT_EQ(def.Element(2).c2_offset, 16u);
  EXPECT_EQ(def.Element(2).c2_length, 5u);
  EXPECT_EQ(def.Element(2).c1_length, 5u);
  EXPECT_EQ(def.Element(2).decimals, 2u);
  // I after 21 bytes: 24; in the one-byte layout after 4 + 8 + 5 = 17: 20.
  EXPECT_EQ(def.Element(3).c2_offset, 24u);
  EXPECT_EQ(def.Element(3).c1_offset, 20u);
  EXPECT_EQ(def.Element(4).c2_offset, 28u);
  EXPECT_EQ(def.Element(4).c2_length, 3u);
  // DATE, TIME and NUM: two bytes a character, one in the one-byte layout.
  EXPECT_EQ(def.Element(5).c2_offset, 31u);
  EXPECT_EQ(def.Element(5).c2_length, 16u);
  EXPECT_EQ(def.Element(5).c1_length, 8u);
  EXPECT_EQ(def.Element(6).c2_length, 12u);
  EXPECT_EQ(def.Element(6).c1_length, 6u);
  EXPECT_EQ(def.Element(7).c2_offset, 59u);
  EXPECT_EQ(def.Element(7).c2_length, 8u);
  EXPECT_EQ(def.RowLength(), 68u);
}

TEST_F(Marshal, AnExplicitStructLengthIsTheRowLengthEvenIfTheFieldsNeedMore) {
  CComPtr<IRfcType> type = Structure(u"ZMT_SHORT", {{u"C", TYPE_CHAR, 10}, {u"I", TYPE_INT, 0}});
  ASSERT_EQ(type->put_StructLength(12), S_OK);
  CIntRfcT1StructDef def(Sdk(), type);
  EXPECT_EQ(def.RowLength(), 12u);
  EXPECT_EQ(def.Element(1).c2_offset, 20u);
}

TEST_F(Marshal, GivenOffsetsAndLengthsOfAnImportedStructureAreTakenAsTheyAre) {
  CComPtr<IRfcType> type;
  ASSERT_EQ(CreateRfcType(&type), S_OK);
  ASSERT_EQ(type->DefineStruct(CComBSTR(u"ZMT_GIVEN")), S_OK);
  ASSERT_EQ(type->AddScalarStructField(CComBSTR(u"A"), TYPE_CHAR, 2, 0, 0, 0, 4, 2), S_OK);
  // An INT2 at an odd one-byte offset, as a non-Unicode system lays it out.
  ASSERT_EQ(type->AddScalarStructField(CComBSTR(u"B"), TYPE_INT2, 0, 0, 4, 3, 2, 2), S_OK);
  ASSERT_EQ(type->AddScalarStructField(CComBSTR(u"C"), TYPE_BCD, 9, 2, 12, 5, 5, 5), S_OK);
  ASSERT_EQ(type->put_StructLength(20), S_OK);
  CIntRfcT1StructDef def(Sdk(), type);
  EXPECT_EQ(def.Element(1).c1_offset, 3u);
  EXPECT_EQ(def.Element(1).c2_offset, 4u);
  EXPECT_EQ(def.Element(2).c2_offset, 12u);
  EXPECT_EQ(def.Element(2).c1_offset, 5u);
  EXPECT_EQ(def.RowLength(), 20u);
}

TEST_F(Marshal, AnInstalledStructureIsInstalledAgainUnderItsNameWithTheSameHandle) {
  CComPtr<IRfcType> type = Structure(u"ZMT_TWICE", {{u"C", TYPE_CHAR, 4}});
  CIntRfcT1StructDef first(Sdk(), type), second(Sdk(), type);
  EXPECT_NE(first.Handle(), 0u);
  EXPECT_EQ(first.Handle(), second.Handle());
}

TEST_F(Marshal, AFreshLineIsZeroWithEachPaddedFieldFilled) {
  CComPtr<IRfcType> type =
      Structure(u"ZMT_PAD", {{u"C", TYPE_CHAR, 2}, {u"N", TYPE_NUM, 3}, {u"D", TYPE_DATE, 8}, {u"P", TYPE_BCD, 3}});
  CIntRfcT1StructDef def(Sdk(), type);
  std::vector<unsigned char> line(def.RowLength(), 0xAA);
  def.InitLine(line.data());
  EXPECT_EQ(Units(line.data(), 0, 2), u"  ");
  EXPECT_EQ(Units(line.data(), 4, 3), u"000");
  EXPECT_EQ(Units(line.data(), 10, 8), u"00000000");
  EXPECT_EQ(line[26], 0);
  EXPECT_EQ(line[27], 0);
}

// ------------------------------------------------------------ scalars

TEST_F(Marshal, AnUnsetNumGoesOutAsZerosAndAnUnsetPackedAsZeroBytes) {
  CComPtr<IFunctionCall> call;
  ASSERT_EQ(CreateFunctionCall(&call), S_OK);
  CComPtr<IRfcParameters> importing;
  call->get_Importing(&importing);
  CComPtr<IRfcType> num, packed, chars;
  ASSERT_EQ(CreateRfcType(&num), S_OK);
  ASSERT_EQ(CreateRfcType(&packed), S_OK);
  ASSERT_EQ(CreateRfcType(&chars), S_OK);
  num->DefineScalar(CComBSTR(u"N5"), TYPE_NUM, 5, 0, -1);
  packed->DefineScalar(CComBSTR(u"P7"), TYPE_BCD, 7, 2, -1);
  chars->DefineScalar(CComBSTR(u"C3"), TYPE_CHAR, 3, 0, -1);
  ASSERT_EQ(importing->AddParameter(CComBSTR(u"A_NUM"), num), S_OK);
  ASSERT_EQ(importing->AddParameter(CComBSTR(u"B_PACKED"), packed), S_OK);
  ASSERT_EQ(importing->AddParameter(CComBSTR(u"C_CHAR"), chars), S_OK);
  CIntRfcParams params(Sdk(), importing, nullptr);
  const RFC_PARAMETER* entries = params.Entries();
  ASSERT_TRUE(entries);
  EXPECT_EQ(entries[0].leng, 10u);
  EXPECT_EQ(Units(entries[0].addr, 0, 5), u"00000");
  ASSERT_EQ(entries[1].leng, 4u);
  const auto* bytes = static_cast<const unsigned char*>(entries[1].addr);
  EXPECT_EQ(bytes[0] | bytes[1] | bytes[2] | bytes[3], 0);
  EXPECT_EQ(Units(entries[2].addr, 0, 3), u"   ");
  EXPECT_EQ(entries[3].name, nullptr) << "ended by an all-zero entry";
}

// ------------------------------------------------------------ tables

TEST_F(Marshal, AnEmptyTableStillHasAnInternalTableAndReadsBackNoRows) {
  CComPtr<IRfcParameters> tables = TablesWith(TableOf(Structure(u"ZMT_EMPTY", {{u"C", TYPE_CHAR, 4}})));
  CIntRfcTables marshalled(Sdk(), tables, true);
  RFC_TABLE* entry = marshalled.Entries();
  ASSERT_TRUE(entry && entry->ithandle);
  EXPECT_EQ(entry->itmode, RFC_ITMODE_BYREFERENCE);
  EXPECT_EQ(Sdk().ItFillU(entry->ithandle), 0u);
  marshalled.getValues();
  LONG count = -1;
  RowsOf(tables)->get_Count(&count);
  EXPECT_EQ(count, 0);
}

TEST_F(Marshal, RowsGoIntoTheLinesAndWhatTheLinesHoldReplacesThemOnTheWayBack) {
  CComPtr<IRfcParameters> tables = TablesWith(TableOf(Structure(
      u"ZMT_ROWS", {{u"C", TYPE_CHAR, 4}, {u"I", TYPE_INT, 0}, {u"P", TYPE_BCD, 5, 2}, {u"N", TYPE_NUM, 3}})));
  CComPtr<IRfcRows> rows = RowsOf(tables);
  ASSERT_EQ(rows->AddRows(2), S_OK);
  Put(rows, 1, 1, CComVariant(u"ab"));
  Put(rows, 1, 2, CComVariant(static_cast<int32_t>(7)));
  Put(rows, 1, 3, CComVariant(u"2.25"));
  Put(rows, 2, 3, CComVariant(u"-1.5"));
  Put(rows, 2, 4, CComVariant(u"7"));
  CIntRfcTables marshalled(Sdk(), tables, true);
  ITAB_H table = marshalled.Entries()->ithandle;
  ASSERT_EQ(Sdk().ItFillU(table), 2u);
  const void* first = Sdk().ItGetLineU(table, 1);
  EXPECT_EQ(Units(first, 0, 4), u"ab  ");
  EXPECT_EQ(Int(first, 8), 7);
  // The module's answer: the first line changed, a third appended with a
  // packed number alone.
  std::memcpy(static_cast<unsigned char*>(Sdk().ItGetLineU(table, 1)), u"WXYZ", 8);
  auto* third = static_cast<unsigned char*>(Sdk().ItAppLineU(table));
  std::memset(third, 0, marshalled.Entries()->leng);
  std::memcpy(third + 12, static_cast<const unsigned char*>(Sdk().ItGetLineU(table, 2)) + 12, 3);
  marshalled.getValues();
  LONG count = 0;
  rows->get_Count(&count);
  ASSERT_EQ(count, 3);
  EXPECT_EQ(Text(Cell(rows, 1, u"C")), "WXYZ");
  EXPECT_EQ(Cell(rows, 1, u"I").lVal, 7);
  EXPECT_EQ(Text(Cell(rows, 1, u"P")), "2.25");
  EXPECT_EQ(Text(Cell(rows, 2, u"P")), "1.50-") << "the SDK's text, its sign behind";
  EXPECT_EQ(Text(Cell(rows, 2, u"N")), "007");
  EXPECT_EQ(Text(Cell(rows, 3, u"C")), "");
  EXPECT_EQ(Text(Cell(rows, 3, u"P")), "1.50-");
  EXPECT_EQ(Cell(rows, 3, u"I").lVal, 0);
}

class FileMode : public Marshal {
 protected:
  // Rows of (NAME, INDEX, DATA) with DATA a chunk of 4 bytes.
  void SetUp() override {
    Marshal::SetUp();
    m_tables = TablesWith(
        TableOf(Structure(u"ZMT_FILE", {{u"NAME", TYPE_CHAR, 8}, {u"INDEX", TYPE_INT, 0}, {u"DATA", TYPE_BYTE, 4}})));
    m_rows = RowsOf(m_tables);
  }
  std::string File(const std::string& name, const std::string& content) {
    const std::string path = m_dir.file(name);
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
  void AddSource(const std::string& name, const std::string& path) {
    CComPtr<IRfcFields> row;
    ASSERT_EQ(m_rows->AddRow(&row), S_OK);
    LONG count = 0;
    m_rows->get_Count(&count);
    Put(m_rows, count, 1, CComVariant(Utf8ToWide(name).c_str()));
    Put(m_rows, count, 3, CComVariant(Utf8ToWide(path).c_str()));
  }
  struct Line {
    std::u16string name;
    int32_t index;
    std::string data;
  };
  std::vector<Line> Lines(CIntRfcTables& marshalled) {
    std::vector<Line> lines;
    ITAB_H table = marshalled.Entries()->ithandle;
    for (unsigned i = 1; i <= Sdk().ItFillU(table); ++i) {
      const auto* line = static_cast<const unsigned char*>(Sdk().ItGetLineU(table, i));
      lines.push_back({Units(line, 0, 8), Int(line, 16), std::string(reinterpret_cast<const char*>(line + 20), 4)});
    }
    return lines;
  }

  TempDir m_dir;
  CComPtr<IRfcParameters> m_tables;
  CComPtr<IRfcRows> m_rows;
};

TEST_F(FileMode, AFileIsCutIntoChunksWithTheOtherColumnsAndTheIndexOnEachLine) {
  AddSource("first", File("a", std::string("abcdefgh", 8)));
  AddSource("second", File("b", "xyz"));
  ASSERT_EQ(m_rows->SetFileMode(3, 2), S_OK);
  CIntRfcTables marshalled(Sdk(), m_tables, true);
  EXPECT_EQ(marshalled.Entries()->itmode, 1);
  const std::vector<Line> lines = Lines(marshalled);
  // A file of twice the chunk gives three lines, the last without data.
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].name, u"first   ");
  EXPECT_EQ(lines[0].index, 1);
  EXPECT_EQ(lines[0].data, "abcd");
  EXPECT_EQ(lines[1].data, "efgh");
  EXPECT_EQ(lines[2].name, u"first   ");
  EXPECT_EQ(lines[2].index, 1);
  EXPECT_EQ(lines[2].data, std::string(4, '\0'));
  // The path in the data column is not copied: a short file keeps its part.
  EXPECT_EQ(lines[3].name, u"second  ");
  EXPECT_EQ(lines[3].index, 2);
  EXPECT_EQ(lines[3].data, std::string("xyz\0", 4));
  // Never read back.
  marshalled.getValues();
  LONG count = 0;
  m_rows->get_Count(&count);
  EXPECT_EQ(count, 2);
}

TEST_F(FileMode, AnEmptyFileGivesOneLineWithTheIndexAndNoData) {
  AddSource("empty", File("e", ""));
  ASSERT_EQ(m_rows->SetFileMode(3, 2), S_OK);
  CIntRfcTables marshalled(Sdk(), m_tables, true);
  const std::vector<Line> lines = Lines(marshalled);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].index, 1);
  EXPECT_EQ(lines[0].data, std::string(4, '\0'));
}

TEST_F(FileMode, IndexColumnZeroWritesNoIndex) {
  AddSource("one", File("o", "12"));
  Put(m_rows, 1, 2, CComVariant(static_cast<int32_t>(99)));
  ASSERT_EQ(m_rows->SetFileMode(3, 0), S_OK);
  CIntRfcTables marshalled(Sdk(), m_tables, true);
  const std::vector<Line> lines = Lines(marshalled);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].index, 99) << "the source row's own value stays";
}

TEST_F(FileMode, NoSourceRowsGiveAnEmptyTableInFileMode) {
  ASSERT_EQ(m_rows->SetFileMode(3, 2), S_OK);
  CIntRfcTables marshalled(Sdk(), m_tables, true);
  EXPECT_EQ(marshalled.Entries()->itmode, 1);
  EXPECT_EQ(Sdk().ItFillU(marshalled.Entries()->ithandle), 0u);
}

TEST_F(FileMode, AFileThatCannotBeOpenedIsErrorFileAccessWithItsPath) {
  AddSource("gone", m_dir.file("missing"));
  ASSERT_EQ(m_rows->SetFileMode(3, 2), S_OK);
  try {
    CIntRfcTables marshalled(Sdk(), m_tables, true);
    FAIL() << "no failure";
  } catch (const CXVeltrane& e) {
    EXPECT_EQ(e.Kind(), CXVeltrane::ERROR_FILE_ACCESS);
    EXPECT_NE(std::string(e.what()).find("missing"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("CIntRfcFile()"), std::string::npos) << e.what();
  }
}

}  // namespace
}  // namespace rfctest
