// The table reader on the fake back end: what goes out to RFC_READ_TABLE,
// how row texts become typed values, paging, options and failures.
#include "fake_session.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

#include "platform/oleauto.h"
#include "runtime/trace.h"
#include "platform/unicode.h"
#include "session/table_reader.h"

using namespace session_test;

namespace {

FakeTable FlightTable() {
  FakeTable t;
  t.columns = {{u"CARRID", 3, u'C'}, {u"CONNID", 4, u'N'}, {u"FLDATE", 8, u'D'},
               {u"PRICE", 10, u'P'}, {u"SEATS", 11, u'I'}, {u"DEPTIME", 6, u'T'},
               {u"RATE", 24, u'F'},  {u"CODE", 4, u'X'},   {u"NOTE", 10, u'C'}};
  t.rows = {
      {u"AA", u"0017", u"20240131", u"  422.94", u"        385", u"123456", u"1.5E+02", u"0A1F", u" padded"},
      {u"LH", u"0400", u"00000000", u"  666.00", u"           ", u"000000", u"-2.5E-01", u"FFFF", u""},
      {u"UA", u"0941", u"        ", u"   -1.00", u"        42-", u"235959", u"0.0E+00", u"  0 ", u"x"},
  };
  return t;
}

class TableReaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    TraceResetForTesting();
    session = NewSoapSession();
    session->tables[u"SFLIGHT"] = FlightTable();
    ASSERT_EQ(session->GetTableReader(CComBSTR(u"SFLIGHT"), &reader), S_OK);
  }
  void TearDown() override { TraceResetForTesting(); }

  CComPtr<IStringList> Fields() {
    CComPtr<IStringList> l;
    reader->get_Fields(&l);
    return l;
  }
  CComPtr<IStringList> Query() {
    CComPtr<IStringList> l;
    reader->get_Query(&l);
    return l;
  }
  std::vector<std::u16string> List(IStringList* l) {
    std::vector<std::u16string> out;
    LONG n = 0;
    l->get_Count(&n);
    for (LONG i = 1; i <= n; ++i) {
      CComBSTR s;
      l->get_Item(i, &s);
      out.push_back(Str(s));
    }
    return out;
  }
  CComPtr<IRfcRows> Rows() {
    CComPtr<IRfcRows> r;
    reader->get_Rows(&r);
    return r;
  }
  CComVariant Cell(LONG row, const char16_t* field) {
    CComPtr<IRfcFields> fields;
    CComPtr<IRfcRows> rows = Rows();
    if (rows) rows->get_Item(row, &fields);
    return FieldOf(fields, field);
  }
  void SetOption(const char16_t* name, const char16_t* value) {
    ASSERT_EQ(reader->put_Option(CComBSTR(name), CComBSTR(value)), S_OK);
  }

  CComPtr<CFakeSoapSession> session;
  CComPtr<ITableReader> reader;
};

const std::vector<std::u16string> kAllColumns = {u"CARRID",  u"CONNID", u"FLDATE", u"PRICE", u"SEATS",
                                                 u"DEPTIME", u"RATE",   u"CODE",   u"NOTE"};

TEST_F(TableReaderTest, RowsAreNullBeforeTheFirstRead) {
  CComPtr<IRfcRows> rows;
  rows.p = reinterpret_cast<IRfcRows*>(0x1);
  ASSERT_EQ(reader->get_Rows(&rows), S_OK);
  EXPECT_TRUE(rows.p == nullptr);
  VARIANT_BOOL error = -1;
  reader->get_Error(&error);
  EXPECT_EQ(error, VARIANT_FALSE);
  EXPECT_TRUE(session->calledFunctions.empty());
  EXPECT_EQ(session->callImports, 0);
}

TEST_F(TableReaderTest, ReadSendsTheScalarsAsGiven) {
  ASSERT_EQ(reader->Read(0, 0), S_OK);
  const ReadRequest& r = session->lastRead;
  EXPECT_EQ(TextOf(r.queryTable), u"SFLIGHT");
  EXPECT_EQ(TextOf(r.delimiter), u" ");
  EXPECT_EQ(TextOf(r.noData), u" ");
  ASSERT_EQ(V_VT(&r.rowCount), VT_I4);
  EXPECT_EQ(V_I4(&r.rowCount), 0);
  ASSERT_EQ(V_VT(&r.rowSkips), VT_I4);
  EXPECT_EQ(V_I4(&r.rowSkips), 0);
  ASSERT_EQ(session->importedCalls, std::vector<std::u16string>{u"RFC_READ_TABLE"});
  EXPECT_EQ(session->importFlags[0], VARIANT_TRUE);
  LONG n = 0;
  Rows()->get_Count(&n);
  EXPECT_EQ(n, 3);  // ROWCOUNT 0: the server sends all
}

TEST_F(TableReaderTest, EmptyFieldsListIsFilledWithTheServersColumns) {
  ASSERT_EQ(reader->Read(10, 0), S_OK);
  EXPECT_TRUE(session->lastRead.fields.empty());
  EXPECT_EQ(List(Fields()), kAllColumns);
  CComPtr<IRfcType> rowType;
  Rows()->get_RfcType(&rowType);
  CComBSTR name;
  rowType->get_name(&name);
  EXPECT_EQ(Str(name), u"SFLIGHT");
  CComPtr<IRfcTypes> members;
  rowType->get_StructFields(&members);
  LONG count = 0;
  members->get_Count(&count);
  EXPECT_EQ(count, 9);
}

TEST_F(TableReaderTest, ValuesAreTypedByTheServersLetters) {
  ASSERT_EQ(reader->Read(10, 0), S_OK);
  // C and N: trimmed text.
  EXPECT_EQ(TextOf(Cell(1, u"CARRID")), u"AA");
  EXPECT_EQ(Vt(Cell(1, u"CONNID")), VT_BSTR);
  EXPECT_EQ(TextOf(Cell(1, u"CONNID")), u"0017");
  EXPECT_EQ(TextOf(Cell(1, u"NOTE")), u"padded");
  // D: a date, the all-zero and the blank date are empty.
  CComVariant date = Cell(1, u"FLDATE");
  ASSERT_EQ(V_VT(&date), VT_DATE);
  SYSTEMTIME st{};
  ASSERT_TRUE(VariantTimeToSystemTime(V_DATE(&date), &st));
  EXPECT_EQ(st.wYear, 2024);
  EXPECT_EQ(st.wMonth, 1);
  EXPECT_EQ(st.wDay, 31);
  EXPECT_EQ(Vt(Cell(2, u"FLDATE")), VT_EMPTY);
  EXPECT_EQ(Vt(Cell(3, u"FLDATE")), VT_EMPTY);
  // P stays text.
  EXPECT_EQ(Vt(Cell(1, u"PRICE")), VT_BSTR);
  EXPECT_EQ(TextOf(Cell(1, u"PRICE")), u"422.94");
  EXPECT_EQ(TextOf(Cell(3, u"PRICE")), u"-1.00");
  // I: numbers; blanks give 0; a sign is read.
  CComVariant seats = Cell(1, u"SEATS");
  ASSERT_EQ(V_VT(&seats), VT_I4);
  EXPECT_EQ(V_I4(&seats), 385);
  EXPECT_EQ(I4(Cell(2, u"SEATS")), 0);
  EXPECT_EQ(Vt(Cell(2, u"SEATS")), VT_I4);
  EXPECT_EQ(I4(Cell(3, u"SEATS")), -42);
  // T: a time of day.
  CComVariant time = Cell(1, u"DEPTIME");
  ASSERT_EQ(V_VT(&time), VT_DATE);
  EXPECT_NEAR(V_DATE(&time), (12 * 3600 + 34 * 60 + 56) / 86400.0, 1e-9);
  EXPECT_EQ(Date(Cell(2, u"DEPTIME")), 0.0);
  // F: a double.
  CComVariant rate = Cell(1, u"RATE");
  ASSERT_EQ(V_VT(&rate), VT_R8);
  EXPECT_DOUBLE_EQ(V_R8(&rate), 150.0);
  EXPECT_DOUBLE_EQ(R8(Cell(2, u"RATE")), -0.25);
  // X: exactly the characters, untrimmed.
  EXPECT_EQ(TextOf(Cell(1, u"CODE")), u"0A1F");
  EXPECT_EQ(TextOf(Cell(3, u"CODE")), u"  0 ");
}

TEST_F(TableReaderTest, RowTextShorterThanTheLastOffsetGivesEmptyText) {
  ASSERT_EQ(reader->Read(10, 0), S_OK);
  // Row 2 ends after CODE: NOTE lies beyond the text.
  CComVariant note = Cell(2, u"NOTE");
  ASSERT_EQ(V_VT(&note), VT_BSTR);
  EXPECT_EQ(TextOf(note), u"");
  // Row 3's NOTE is cut by the end of the text.
  EXPECT_EQ(TextOf(Cell(3, u"NOTE")), u"x");
}

TEST_F(TableReaderTest, RawStringsKeepBlanksAndMakeEveryFieldText) {
  for (const char16_t* on : {u"1", u"X", u"x"}) {
    CComPtr<ITableReader> raw;
    ASSERT_EQ(session->GetTableReader(CComBSTR(u"SFLIGHT"), &raw), S_OK);
    ASSERT_EQ(raw->put_Option(CComBSTR(u"tablereader.rawstrings"), CComBSTR(on)), S_OK);
    ASSERT_EQ(raw->Read(10, 0), S_OK);
    CComPtr<IStringList> fields;
    raw->get_Fields(&fields);
    LONG n = 0;
    fields->get_Count(&n);
    EXPECT_EQ(n, 9);
    CComPtr<IRfcRows> rows;
    raw->get_Rows(&rows);
    CComPtr<IRfcFields> row;
    rows->get_Item(1, &row);
    // The transport drops the blanks at the end of the row text.
    EXPECT_EQ(TextOf(FieldOf(row, u"NOTE")), u" padded");
    EXPECT_EQ(TextOf(FieldOf(row, u"CARRID")), u"AA ");
    CComVariant seats = FieldOf(row, u"SEATS");
    EXPECT_EQ(V_VT(&seats), VT_BSTR);
    EXPECT_EQ(TextOf(seats), u"        385");
    EXPECT_EQ(TextOf(FieldOf(row, u"FLDATE")), u"20240131");
    CComPtr<IRfcType> rowType;
    rows->get_RfcType(&rowType);
    CComPtr<IRfcTypes> members;
    rowType->get_StructFields(&members);
    LONG count = 0;
    members->get_Count(&count);
    ASSERT_EQ(count, 9);
    for (LONG i = 1; i <= count; ++i) {
      CComPtr<IRfcType> member;
      members->get_Item(CComVariant(i), &member);
      ABAPTYPE type = TYPE_INT;
      member->get_ScalarType(&type);
      EXPECT_EQ(type, TYPE_CHAR) << i;
    }
  }
}

TEST_F(TableReaderTest, OtherRawStringsValuesCountAsOff) {
  for (const char16_t* off : {u"yes", u"true", u"X ", u"2", u"", u"0"}) {
    CComPtr<ITableReader> r;
    ASSERT_EQ(session->GetTableReader(CComBSTR(u"SFLIGHT"), &r), S_OK);
    r->put_Option(CComBSTR(u"tablereader.rawstrings"), CComBSTR(off));
    ASSERT_EQ(r->Read(1, 0), S_OK);
    CComPtr<IRfcRows> rows;
    r->get_Rows(&rows);
    CComPtr<IRfcFields> row;
    rows->get_Item(1, &row);
    EXPECT_EQ(TextOf(FieldOf(row, u"NOTE")), u"padded") << WideToUtf8(off);
    EXPECT_EQ(Vt(FieldOf(row, u"SEATS")), VT_I4);
  }
}

TEST_F(TableReaderTest, RowTypeMembersFollowTheServersFields) {
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  CComPtr<IRfcType> rowType;
  Rows()->get_RfcType(&rowType);
  CComPtr<IRfcTypes> members;
  rowType->get_StructFields(&members);
  const struct {
    const char16_t* name;
    ABAPTYPE type;
    SHORT length;
  } expected[] = {{u"CARRID", TYPE_CHAR, 3}, {u"CONNID", TYPE_NUM, 4}, {u"FLDATE", TYPE_DATE, 8},
                  {u"PRICE", TYPE_BCD, 10},  {u"SEATS", TYPE_INT, 11}, {u"DEPTIME", TYPE_TIME, 6},
                  {u"RATE", TYPE_FLOAT, 24}, {u"CODE", TYPE_BYTE, 4},  {u"NOTE", TYPE_CHAR, 10}};
  LONG i = 1;
  for (const auto& e : expected) {
    CComPtr<IRfcType> member;
    ASSERT_EQ(members->get_Item(CComVariant(i++), &member), S_OK);
    CComBSTR name;
    member->get_name(&name);
    ABAPTYPE type{};
    member->get_ScalarType(&type);
    SHORT length = 0;
    member->get_ScalarLength(&length);
    EXPECT_EQ(Str(name), e.name);
    EXPECT_EQ(type, e.type) << WideToUtf8(e.name);
    EXPECT_EQ(length, e.length) << WideToUtf8(e.name);
  }
}

TEST_F(TableReaderTest, SecondReadKeepsTheColumnsAndReplacesRows) {
  CComPtr<IStringList> fields = Fields();
  fields->Add(CComBSTR(u"CONNID"));
  fields->Add(CComBSTR(u"CARRID"));
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  EXPECT_EQ(session->lastRead.fields, (std::vector<std::u16string>{u"CONNID", u"CARRID"}));
  EXPECT_EQ(List(fields), (std::vector<std::u16string>{u"CONNID", u"CARRID"}));
  CComPtr<IRfcRows> first = Rows();
  EXPECT_EQ(TextOf(Cell(1, u"CARRID")), u"AA");

  ASSERT_EQ(reader->Read(5, 100), S_OK);
  EXPECT_EQ(V_I4(&session->lastRead.rowSkips), 100);
  EXPECT_EQ(V_I4(&session->lastRead.rowCount), 5);
  EXPECT_EQ(session->lastRead.fields, (std::vector<std::u16string>{u"CONNID", u"CARRID"}));
  CComPtr<IRfcRows> second = Rows();
  EXPECT_NE(first.p, second.p);
  LONG n = -1;
  second->get_Count(&n);
  EXPECT_EQ(n, 0);
  // The first result stays as it was.
  first->get_Count(&n);
  EXPECT_EQ(n, 1);
  // The transport call was imported once and is reused.
  EXPECT_EQ(session->callImports, 1);
  EXPECT_EQ(session->calledFunctions.size(), 2u);
  EXPECT_EQ(session->sentCalls[0].p, session->sentCalls[1].p);
}

TEST_F(TableReaderTest, PagingPassesStartAtAsRowsToSkip) {
  ASSERT_EQ(reader->Read(1, 1), S_OK);
  EXPECT_EQ(TextOf(Cell(1, u"CARRID")), u"LH");
  ASSERT_EQ(reader->Read(2, 1), S_OK);
  EXPECT_EQ(ColumnTexts(Rows(), u"CARRID"), (std::vector<std::u16string>{u"LH", u"UA"}));
  ASSERT_EQ(reader->Read(-3, -1), S_OK);
  EXPECT_EQ(V_I4(&session->lastRead.rowCount), -3);
  EXPECT_EQ(V_I4(&session->lastRead.rowSkips), -1);
}

TEST_F(TableReaderTest, QueryLinesGoOutUnchangedAndStay) {
  CComPtr<IStringList> query = Query();
  const std::u16string longLine(100, u'A');
  query->Add(CComBSTR(u"CARRID = 'AA'"));
  query->Add(CComBSTR(u" OR CARRID = 'LH'"));
  query->Add(CComBSTR(std::u16string_view(longLine)));
  ASSERT_EQ(reader->Read(0, 0), S_OK);
  ASSERT_EQ(session->lastRead.options.size(), 3u);
  EXPECT_EQ(session->lastRead.options[0], u"CARRID = 'AA'");
  EXPECT_EQ(session->lastRead.options[1], u" OR CARRID = 'LH'");
  // The field holds the value as put; the server's field length is the client's concern.
  EXPECT_EQ(session->lastRead.options[2], longLine);
  EXPECT_EQ(List(query).size(), 3u);
  query->RemoveAll();
  ASSERT_EQ(reader->Read(0, 0), S_OK);
  EXPECT_TRUE(session->lastRead.options.empty());
}

TEST_F(TableReaderTest, ServerFailureIsCopiedAndReadSucceeds) {
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  CComPtr<IRfcRows> before = Rows();
  ASSERT_EQ(reader->put_Table(CComBSTR(u"NO_SUCH_TABLE")), S_OK);
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  VARIANT_BOOL error = 0;
  reader->get_Error(&error);
  EXPECT_EQ(error, VARIANT_TRUE);
  CComPtr<IRfcError> info;
  ASSERT_EQ(reader->get_ErrorInfo(&info), S_OK);
  ERRORGROUP group{};
  CComBSTR key, message, module;
  info->get_ERRORGROUP(&group);
  info->get_ErrorGroupTxt(&key);
  info->get_Message(&message);
  info->get_ModuleName(&module);
  EXPECT_EQ(group, RFCERROR_APPLICATION_EXCEPTION);
  EXPECT_EQ(Str(key), u"TABLE_NOT_AVAILABLE");
  EXPECT_EQ(Str(message), u"TABLE_NOT_AVAILABLE");
  EXPECT_EQ(Str(module), u"RFC_READ_TABLE");
  EXPECT_EQ(Rows().p, before.p);

  // Error stays after a later successful read.
  reader->put_Table(CComBSTR(u"SFLIGHT"));
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  reader->get_Error(&error);
  EXPECT_EQ(error, VARIANT_TRUE);
  EXPECT_NE(Rows().p, before.p);
}

TEST_F(TableReaderTest, UnknownFieldIsAServerFailure) {
  Fields()->Add(CComBSTR(u"NOPE"));
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  VARIANT_BOOL error = 0;
  reader->get_Error(&error);
  EXPECT_EQ(error, VARIANT_TRUE);
  CComPtr<IRfcError> info;
  reader->get_ErrorInfo(&info);
  CComBSTR message;
  info->get_Message(&message);
  EXPECT_EQ(Str(message), u"FIELD_NOT_VALID");
  EXPECT_TRUE(Rows().p == nullptr);
  // Fields is left as the client set it.
  EXPECT_EQ(List(Fields()), std::vector<std::u16string>{u"NOPE"});
}

TEST_F(TableReaderTest, TransportCallOptionIsReadAtTheFirstReadOnly) {
  SetOption(u"tablereader.transportcall", u"Z_READ_TABLE");
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  SetOption(u"tablereader.transportcall", u"RFC_READ_TABLE");
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  EXPECT_EQ(session->importedCalls, std::vector<std::u16string>{u"Z_READ_TABLE"});
  EXPECT_EQ(session->calledFunctions, (std::vector<std::u16string>{u"Z_READ_TABLE", u"Z_READ_TABLE"}));

  CComPtr<ITableReader> other;
  session->GetTableReader(CComBSTR(u"SFLIGHT"), &other);
  other->put_Option(CComBSTR(u"tablereader.transportcall"), CComBSTR(u""));
  ASSERT_EQ(other->Read(1, 0), S_OK);
  EXPECT_EQ(session->importedCalls.back(), u"RFC_READ_TABLE");
}

TEST_F(TableReaderTest, ReaderOptionsReadNullUntilSet) {
  CComBSTR value =
      Overwritten([&](BSTR* out) { EXPECT_EQ(reader->get_Option(CComBSTR(u"tablereader.rawstrings"), out), S_OK); });
  EXPECT_TRUE(value.m_str == nullptr);
  SetOption(u"any.name", u"v");
  ASSERT_EQ(reader->get_Option(CComBSTR(u"any.name"), &value), S_OK);
  EXPECT_EQ(Str(value), u"v");
  value.Empty();
  reader->get_Option(CComBSTR(u"Any.Name"), &value);
  EXPECT_TRUE(value.m_str == nullptr);
  // The session's options are not the reader's.
  session->put_Option(CComBSTR(u"tablereader.rawstrings"), CComBSTR(u"X"));
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  EXPECT_EQ(TextOf(Cell(1, u"NOTE")), u"padded");
}

TEST_F(TableReaderTest, ImportFailureEndsReadAndIsRetriedNextTime) {
  session->connected = false;
  EXPECT_EQ(reader->Read(1, 0), static_cast<HRESULT>(0x80040208));
  EXPECT_TRUE(Rows().p == nullptr);
  session->connected = true;
  ASSERT_EQ(reader->Read(1, 0), S_OK);
  EXPECT_EQ(session->callImports, 1);
}

TEST_F(TableReaderTest, ErrorAfterTheImportIsCopiedAndGivesEFail) {
  session->importWithWarning = u"Z_WARN_READ";
  SetOption(u"tablereader.transportcall", u"Z_WARN_READ");
  EXPECT_EQ(reader->Read(1, 0), E_FAIL);
  VARIANT_BOOL error = 0;
  reader->get_Error(&error);
  EXPECT_EQ(error, VARIANT_TRUE);
  CComPtr<IRfcError> info;
  reader->get_ErrorInfo(&info);
  CComBSTR message;
  info->get_Message(&message);
  EXPECT_EQ(Str(message), u"import warning");
  EXPECT_TRUE(session->calledFunctions.empty());
}

TEST_F(TableReaderTest, CallFailureIsReturnedUnchanged) {
  session->callActive = true;
  EXPECT_EQ(reader->Read(1, 0), static_cast<HRESULT>(0x8004020A));
  session->callActive = false;
  session->connected = false;
  EXPECT_EQ(reader->Read(1, 0), static_cast<HRESULT>(0x80040208));
}

TEST_F(TableReaderTest, LengthThatIsNoNumberEndsRead) {
  session->tables[u"BROKEN"] = FlightTable();
  session->tables[u"BROKEN"].badLength = true;
  reader->put_Table(CComBSTR(u"BROKEN"));
  EXPECT_EQ(reader->Read(1, 0), DISP_E_TYPEMISMATCH);
}

TEST_F(TableReaderTest, ExceptionInReadGives519) {
  const auto path = std::filesystem::temp_directory_path() / ("veltrane_reader_" + std::to_string(getpid()) + ".trc");
  std::filesystem::remove(path);
  session->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(path.string())));
  session->handler = [](IFunctionCall*) -> HRESULT { throw std::runtime_error("broken back end"); };
  EXPECT_EQ(reader->Read(1, 0), static_cast<HRESULT>(0x80040207));
  ErrorRecord r = TakeError();
  EXPECT_EQ(r.description, u"An unexpected error has occured - check trace for details");
  EXPECT_EQ(r.source, u"Veltrane.TableReader.1");
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_NE(text.str().find("unexpected error - terminating\n"), std::string::npos);
  std::filesystem::remove(path);
}

TEST_F(TableReaderTest, TraceLinesOfARead) {
  const auto path = std::filesystem::temp_directory_path() / ("veltrane_reader_" + std::to_string(getpid()) + ".trc");
  std::filesystem::remove(path);
  session->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(path.string())));
  ASSERT_EQ(reader->Read(2, 1), S_OK);
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  const std::string text = s.str();
  size_t at = 0;
  for (const char* line : {"CTableReader::Read()\n", "\tQUERY_TABLE=SFLIGHT\n", "\tROWCOUNT=2\n", "\tROWSKIPS=1\n",
                           "set OPTIONS\n", "set FIELDS\n", "executing call...\n", "done\n",
                           "got 2 rows with 9 fields, parsing...\n", "CTableReader::Read(): leaving\n"}) {
    const size_t found = text.find(line, at);
    ASSERT_NE(found, std::string::npos) << line << "\n" << text;
    at = found;
  }
  std::filesystem::remove(path);
}

TEST_F(TableReaderTest, TableIsSettable) {
  CComBSTR table;
  reader->get_Table(&table);
  EXPECT_EQ(Str(table), u"SFLIGHT");
  session->tables[u"SCARR"] =
      FakeTable{{{u"CARRID", 3, u'C'}, {u"CARRNAME", 20, u'C'}}, {{u"AA", u"American Airlines"}}};
  reader->put_Table(CComBSTR(u"SCARR"));
  ASSERT_EQ(reader->Read(0, 0), S_OK);
  EXPECT_EQ(TextOf(session->lastRead.queryTable), u"SCARR");
  EXPECT_EQ(TextOf(Cell(1, u"CARRNAME")), u"American Airlines");
  CComPtr<IRfcType> rowType;
  Rows()->get_RfcType(&rowType);
  CComBSTR name;
  rowType->get_name(&name);
  EXPECT_EQ(Str(name), u"SCARR");
}

// The value rules on row texts directly.
struct ValueCase {
  const char16_t* row;
  LONG offset;
  LONG length;
  char16_t letter;
  bool raw;
  VARTYPE vt;
  const char16_t* text;  // the value as text, for VT_BSTR
};

TEST(TableReaderValue, RulesByLetter) {
  const ValueCase cases[] = {
      {u"AB  CD  ", 2, 4, u'C', false, VT_BSTR, u"CD"},
      {u"AB  CD  ", 2, 4, u'C', true, VT_BSTR, u"  CD"},
      {u"AB", 2, 4, u'C', false, VT_BSTR, u""},
      {u"AB", 5, 4, u'N', false, VT_BSTR, u""},
      {u"ABC", 1, 10, u'g', true, VT_BSTR, u"BC"},
      {u"\tx\t", 0, 3, u'P', false, VT_BSTR, u"x"},
      {u"  FF  ", 1, 4, u'X', false, VT_BSTR, u" FF "},
      {u"  FF  ", 1, 4, u'y', false, VT_BSTR, u" FF "},
      {u"  12-", 0, 5, u'I', false, VT_I4, nullptr},
      {u"x 7", 1, 2, u'b', false, VT_I4, nullptr},
      {u"s-7", 1, 2, u's', false, VT_I4, nullptr},
      {u"12", 0, 8, u'D', false, VT_DATE, nullptr},  // year 12, no month: an impossible date
      {u"", 0, 8, u'D', false, VT_EMPTY, nullptr},
      {u"X20240229", 1, 8, u'D', false, VT_DATE, nullptr},
      {u"X0000", 1, 8, u'D', false, VT_EMPTY, nullptr},
      {u"120000", 0, 6, u'T', false, VT_DATE, nullptr},
      {u" 3.25E+01", 0, 9, u'F', false, VT_R8, nullptr},
      {u"abc", 0, 3, u'F', false, VT_R8, nullptr},
  };
  for (const ValueCase& c : cases) {
    CTableReader::FieldRecord f;
    f.offset = c.offset;
    f.length = c.length;
    f.letter = c.letter;
    CComVariant v;
    ASSERT_EQ(CTableReader::MakeValue(c.row, f, c.raw, &v), S_OK);
    EXPECT_EQ(V_VT(&v), c.vt) << WideToUtf8(c.row) << " " << static_cast<char>(c.letter);
    if (c.text && V_VT(&v) == VT_BSTR) EXPECT_EQ(Str(V_BSTR(&v)), c.text) << WideToUtf8(c.row);
  }
  CTableReader::FieldRecord f{u"F", 0, 5, u'I'};
  CComVariant v;
  CTableReader::MakeValue(u"  12-", f, false, &v);
  EXPECT_EQ(V_I4(&v), -12);
  f = {u"F", 1, 2, u's'};
  CTableReader::MakeValue(u"s-7", f, false, &v);
  EXPECT_EQ(V_I4(&v), -7);
  f = {u"F", 0, 9, u'F'};
  CTableReader::MakeValue(u" 3.25E+01", f, false, &v);
  EXPECT_DOUBLE_EQ(V_R8(&v), 32.5);
  f = {u"F", 0, 3, u'F'};
  CTableReader::MakeValue(u"abc", f, false, &v);
  EXPECT_EQ(V_R8(&v), 0.0);
  f = {u"F", 0, 6, u'T'};
  CTableReader::MakeValue(u"120000", f, false, &v);
  EXPECT_DOUBLE_EQ(V_DATE(&v), 0.5);
}

}  // namespace
