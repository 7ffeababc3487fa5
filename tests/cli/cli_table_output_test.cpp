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
  EXPECT_STREQ(sqliteColumnType("I"), "INTEGER");
  EXPECT_STREQ(sqliteColumnType("b"), "INTEGER");
  EXPECT_STREQ(sqliteColumnType("s"), "INTEGER");
  EXPECT_STREQ(sqliteColumnType("F"), "REAL");
  EXPECT_STREQ(sqliteColumnType("P"), "NUMERIC");
  EXPECT_STREQ(sqliteColumnType("D"), "TEXT");
  EXPECT_STREQ(sqliteColumnType("N"), "TEXT");
  EXPECT_STREQ(sqliteColumnType("C"), "TEXT");
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
