// Where read-table's rows go: the text formats and the SQLite database,
// directly, without a system.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "failure.h"
#include "table_output.h"

using namespace veltrane::cli;
namespace fs = std::filesystem;

namespace {

std::vector<FieldLayout> Layout() {
  return {{"NAME", 20, "C"}, {"COUNT", 10, "I"}, {"DAY", 8, "D"}, {"PRICE", 15, "P"}, {"RATE", 16, "F"}};
}

CComVariant Date(int y, int m, int d) {
  SYSTEMTIME st{};
  st.wYear = static_cast<WORD>(y);
  st.wMonth = static_cast<WORD>(m);
  st.wDay = static_cast<WORD>(d);
  CComVariant v;
  v.vt = VT_DATE;
  SystemTimeToVariantTime(&st, &v.date);
  return v;
}

// Two rows: one with text that needs quoting, one without values.
std::vector<std::vector<CComVariant>> Rows() {
  std::vector<CComVariant> first{CComVariant(u"Smith, \"Jr\"\nsecond line"), CComVariant(LONG(42)), Date(2024, 2, 29),
                                 CComVariant(u"12.50"), CComVariant(2.5)};
  std::vector<CComVariant> second(5);
  second[0] = CComVariant(u"gr\u00fc\u00df");
  return {first, second};
}

// The values of a row as the output borrows them.
std::vector<VARIANT> Borrowed(const std::vector<CComVariant>& row) { return {row.begin(), row.end()}; }

std::string Write(TableFormat format) {
  std::ostringstream out;
  auto output = textOutput(format, out, "ZT", Layout());
  for (const auto& row : Rows()) output->row(Borrowed(row));
  output->flush();
  output->finish();
  return out.str();
}

class Database : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = fs::temp_directory_path() / ("veltrane-sqlite-test-" + std::to_string(::getpid()) + ".db");
    fs::remove(path_);
  }
  void TearDown() override { fs::remove(path_); }

  // The rows of a query, each value as text ("NULL" for none) and with its
  // storage class.
  std::vector<std::string> Query(const std::string& sql) {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
    sqlite3_stmt* stmt = nullptr;
    std::vector<std::string> out;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK) {
      while (sqlite3_step(stmt) == SQLITE_ROW) {
        std::string row;
        for (int c = 0; c < sqlite3_column_count(stmt); ++c) {
          if (c > 0) row += "|";
          const int type = sqlite3_column_type(stmt, c);
          const char* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, c));
          row += type == SQLITE_NULL ? "NULL" : std::string(text);
          row += type == SQLITE_INTEGER ? ":i" : type == SQLITE_FLOAT ? ":f" : type == SQLITE_TEXT ? ":t" : "";
        }
        out.push_back(row);
      }
    } else {
      out.push_back(std::string("error: ") + sqlite3_errmsg(db));
    }
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return out;
  }

  fs::path path_;
};

}  // namespace

TEST(TableOutput, JsonIsOneDocumentWrittenAsItGrows) {
  EXPECT_EQ(Write(TableFormat::Json),
            "{\n  \"table\": \"ZT\",\n  \"fields\": [\"NAME\",\"COUNT\",\"DAY\",\"PRICE\",\"RATE\"],\n  \"rows\": [\n"
            "    {\"NAME\":\"Smith, \\\"Jr\\\"\\nsecond line\",\"COUNT\":42,\"DAY\":\"2024-02-29\",\"PRICE\":\"12.50\","
            "\"RATE\":2.5},\n"
            "    {\"NAME\":\"gr\u00fc\u00df\",\"COUNT\":null,\"DAY\":null,\"PRICE\":null,\"RATE\":null}\n  ]\n}\n");
  std::ostringstream out;
  textOutput(TableFormat::Json, out, "ZT", Layout())->finish();
  EXPECT_EQ(out.str(),
            "{\n  \"table\": \"ZT\",\n  \"fields\": [\"NAME\",\"COUNT\",\"DAY\",\"PRICE\",\"RATE\"],\n"
            "  \"rows\": []\n}\n");
}

TEST(TableOutput, JsonLinesHoldOneObjectPerRow) {
  EXPECT_EQ(Write(TableFormat::Jsonl),
            "{\"NAME\":\"Smith, \\\"Jr\\\"\\nsecond line\",\"COUNT\":42,\"DAY\":\"2024-02-29\",\"PRICE\":\"12.50\","
            "\"RATE\":2.5}\n"
            "{\"NAME\":\"gr\u00fc\u00df\",\"COUNT\":null,\"DAY\":null,\"PRICE\":null,\"RATE\":null}\n");
}

TEST(TableOutput, CsvQuotesWhatNeedsIt) {
  EXPECT_EQ(Write(TableFormat::Csv),
            "NAME,COUNT,DAY,PRICE,RATE\n"
            "\"Smith, \"\"Jr\"\"\nsecond line\",42,2024-02-29,12.50,2.5\n"
            "gr\u00fc\u00df,,,,\n");
}

TEST(TableOutput, PagesGoOutWhenTheyAreHandedOver) {
  std::ostringstream out;
  auto output = textOutput(TableFormat::Jsonl, out, "ZT", Layout());
  output->row(Borrowed(Rows()[0]));
  EXPECT_EQ(out.str(), "");
  output->flush();
  EXPECT_NE(out.str(), "");
}

TEST(TableOutput, AnUnknownFormatIsAUsageError) {
  EXPECT_EQ(tableFormat("jsonl"), TableFormat::Jsonl);
  EXPECT_EQ(tableFormat("csv"), TableFormat::Csv);
  try {
    tableFormat("xml");
    FAIL();
  } catch (const UsageError& e) {
    EXPECT_STREQ(e.what(), "option --format: 'xml' is not a format (json, jsonl, csv or table)");
  }
}

TEST(TableOutput, ColumnTypesComeFromTheDictionary) {
  EXPECT_STREQ(sqliteColumnType({"F", 10, "I"}), "INTEGER");
  EXPECT_STREQ(sqliteColumnType({"F", 3, "b"}), "INTEGER");
  EXPECT_STREQ(sqliteColumnType({"F", 5, "s"}), "INTEGER");
  EXPECT_STREQ(sqliteColumnType({"F", 19, "8"}), "INTEGER");
  EXPECT_STREQ(sqliteColumnType({"F", 16, "F"}), "REAL");
  EXPECT_STREQ(sqliteColumnType({"F", 8, "D"}), "TEXT");
  EXPECT_STREQ(sqliteColumnType({"F", 6, "T"}), "TEXT");
  EXPECT_STREQ(sqliteColumnType({"F", 10, "N"}), "TEXT");
  EXPECT_STREQ(sqliteColumnType({"F", 20, "C"}), "TEXT");
  EXPECT_STREQ(sqliteColumnType({"F", 20, "g"}), "TEXT");
  EXPECT_STREQ(sqliteColumnType({"F", 4, "X"}), "TEXT");
  // Packed numbers: NUMERIC while every value has at most 15 digits, which
  // SQLite keeps; wider ones as their exact text.
  EXPECT_STREQ(sqliteColumnType({"F", 15, "P"}), "NUMERIC");
  EXPECT_STREQ(sqliteColumnType({"F", 1, "P"}), "NUMERIC");
  EXPECT_STREQ(sqliteColumnType({"F", 16, "P"}), "TEXT");
  EXPECT_STREQ(sqliteColumnType({"F", 31, "P"}), "TEXT");
}

// Texts that need escaping in JSON (control characters, quotes, a
// backslash), characters beyond the BMP as one four-byte sequence, and a
// lone surrogate as U+FFFD, which keeps the output valid UTF-8.
std::vector<std::vector<CComVariant>> EscapedRows() {
  const std::u16string lone{char16_t(0xD800), u'x', char16_t(0xDC00)};
  CComVariant nul;
  nul.vt = VT_BSTR;
  nul.bstrVal = SysAllocStringLen(u"a\0b", 3);
  CComVariant unpaired;
  unpaired.vt = VT_BSTR;
  unpaired.bstrVal = SysAllocStringLen(lone.data(), static_cast<UINT>(lone.size()));
  return {{CComVariant(u"tab\there\r\x01\x1f\x7f\\"), CComVariant(u"\U0001F600\u20AC")},
          {unpaired, nul},
          {CComVariant(u"a\rb"), CComVariant(u" lead, and trail ")},
          {CComVariant(u"\"\""), CComVariant(u"")}};
}

std::string WriteEscaped(TableFormat format) {
  std::ostringstream out;
  const std::vector<FieldLayout> layout{{"A", 20, "C"}, {"B", 20, "C"}};
  auto output = textOutput(format, out, "ZT", layout);
  for (const auto& row : EscapedRows()) output->row(Borrowed(row));
  output->finish();
  return out.str();
}

TEST(TableOutput, JsonLinesEscapeControlCharactersAndKeepUtf8Valid) {
  EXPECT_EQ(WriteEscaped(TableFormat::Jsonl),
            "{\"A\":\"tab\\there\\r\\u0001\\u001f\x7f\\\\\",\"B\":\"\xF0\x9F\x98\x80\xE2\x82\xAC\"}\n"
            "{\"A\":\"\xEF\xBF\xBDx\xEF\xBF\xBD\",\"B\":\"a\\u0000b\"}\n"
            "{\"A\":\"a\\rb\",\"B\":\" lead, and trail \"}\n"
            "{\"A\":\"\\\"\\\"\",\"B\":\"\"}\n");
}

TEST(TableOutput, CsvQuotesCommasQuotesAndLineBreaksOnly) {
  const std::string nul("a\0b", 3);
  EXPECT_EQ(WriteEscaped(TableFormat::Csv),
            "A,B\n"
            "\"tab\there\r\x01\x1f\x7f\\\",\xF0\x9F\x98\x80\xE2\x82\xAC\n"
            "\xEF\xBF\xBDx\xEF\xBF\xBD," +
                nul +
                "\n"
                "\"a\rb\",\" lead, and trail \"\n"
                "\"\"\"\"\"\",\n");
}

TEST(TableOutput, NoRowsIsStillAWholeOutput) {
  const std::vector<FieldLayout> layout{{"A,B", 20, "C"}, {"Q\"", 20, "C"}};
  std::ostringstream csv, jsonl, json;
  textOutput(TableFormat::Csv, csv, "ZT", layout)->finish();
  textOutput(TableFormat::Jsonl, jsonl, "ZT", layout)->finish();
  textOutput(TableFormat::Json, json, "ZT", layout)->finish();
  EXPECT_EQ(csv.str(), "\"A,B\",\"Q\"\"\"\n");
  EXPECT_EQ(jsonl.str(), "");
  EXPECT_EQ(json.str(), "{\n  \"table\": \"ZT\",\n  \"fields\": [\"A,B\",\"Q\\\"\"],\n  \"rows\": []\n}\n");
}

TEST_F(Database, RowsGoIntoANewTypedTable) {
  auto output = sqliteOutput(path_.string(), "ZT", Layout());
  for (const auto& row : Rows()) output->row(Borrowed(row));
  output->flush();
  output->finish();
  EXPECT_EQ(Query("SELECT name, type FROM pragma_table_info('ZT') ORDER BY cid"),
            (std::vector<std::string>{"NAME:t|TEXT:t", "COUNT:t|INTEGER:t", "DAY:t|TEXT:t", "PRICE:t|NUMERIC:t",
                                      "RATE:t|REAL:t"}));
  EXPECT_EQ(Query("SELECT * FROM ZT ORDER BY rowid"),
            (std::vector<std::string>{"Smith, \"Jr\"\nsecond line:t|42:i|2024-02-29:t|12.5:f|2.5:f",
                                      "gr\u00fc\u00df:t|NULL|NULL|NULL|NULL"}));
}

// Packed numbers read back with all their decimals: up to 15 digits as
// numbers, wider ones as their text.
TEST_F(Database, PackedNumbersKeepTheirDecimals) {
  const std::vector<FieldLayout> layout{{"AMOUNT", 15, "P"}, {"WIDE", 31, "P"}};
  auto output = sqliteOutput(path_.string(), "ZP", layout);
  const std::vector<std::vector<CComVariant>> rows{
      {CComVariant(u"9999999999999.99"), CComVariant(u"123456789012345678901234567.8901")},
      {CComVariant(u"-0.01"), CComVariant(u"-99999999999999999999.99")},
      {CComVariant(u"12.50"), CComVariant(u"0.10")},
      {CComVariant(), CComVariant()}};
  for (const auto& row : rows) output->row(Borrowed(row));
  output->finish();
  EXPECT_EQ(Query("SELECT name, type FROM pragma_table_info('ZP') ORDER BY cid"),
            (std::vector<std::string>{"AMOUNT:t|NUMERIC:t", "WIDE:t|TEXT:t"}));
  EXPECT_EQ(Query("SELECT AMOUNT, WIDE FROM ZP ORDER BY rowid"),
            (std::vector<std::string>{"9999999999999.99:f|123456789012345678901234567.8901:t",
                                      "-0.01:f|-99999999999999999999.99:t", "12.5:f|0.10:t", "NULL|NULL"}));
  EXPECT_EQ(Query("SELECT count(*) FROM ZP WHERE AMOUNT > 12"), std::vector<std::string>{"2:i"});
}

TEST_F(Database, NoRowsMakeAnEmptyTable) {
  sqliteOutput(path_.string(), "ZT", Layout())->finish();
  EXPECT_EQ(Query("SELECT count(*) FROM ZT"), std::vector<std::string>{"0:i"});
  EXPECT_EQ(Query("SELECT count(*) FROM pragma_table_info('ZT')"), std::vector<std::string>{"5:i"});
}

TEST_F(Database, AnExistingTableIsAnErrorAndStaysAsItWas) {
  sqliteOutput(path_.string(), "ZT", Layout())->finish();
  try {
    sqliteOutput(path_.string(), "ZT", Layout());
    FAIL();
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()).rfind("cannot create table ZT in the database " + path_.string() + ":", 0), 0u)
        << e.what();
  }
  EXPECT_EQ(Query("SELECT count(*) FROM ZT"), std::vector<std::string>{"0:i"});
}

TEST_F(Database, RowsWithoutFinishAreNotKept) {
  {
    auto output = sqliteOutput(path_.string(), "ZT", Layout());
    output->row(Borrowed(Rows()[0]));
  }
  EXPECT_EQ(Query("SELECT count(*) FROM sqlite_master WHERE name = 'ZT'"), std::vector<std::string>{"0:i"});
}

TEST_F(Database, ADatabaseThatCannotBeOpenedIsAnError) {
  EXPECT_THROW(sqliteOutput("/nonexistent-dir/x.db", "ZT", Layout()), std::runtime_error);
}
