// Where read-table's rows go, page by page as they arrive: a JSON document
// written as it grows, JSON lines, CSV, an aligned table (collected, since
// its widths need every row), or a table of an SQLite database.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <veltrane.h>

#include "table_plan.h"

namespace veltrane::cli {

enum class TableFormat { Json, Jsonl, Csv, Table };

// --format of read-table: json, jsonl, csv or table.
TableFormat tableFormat(const std::string& name);

class TableOutput {
 public:
  virtual ~TableOutput() = default;
  // One row, its values in the order of the layout; borrowed for the call.
  virtual void row(const std::vector<VARIANT>& values) = 0;
  // A page has been handed over: what is buffered goes out.
  virtual void flush() = 0;
  // No more rows.
  virtual void finish() = 0;
};

// Text to out in a format.
std::unique_ptr<TableOutput> textOutput(TableFormat format, std::ostream& out, const std::string& table,
                                        const std::vector<FieldLayout>& layout);

// Rows into a new table named like the ABAP table in the SQLite database
// at path (created when missing), with column types from the dictionary's
// type letters. An existing table of that name is an error; so is a
// database that cannot be opened. All rows go in one transaction, committed
// by finish: a failure leaves the database as it was.
std::unique_ptr<TableOutput> sqliteOutput(const std::string& path, const std::string& table,
                                          const std::vector<FieldLayout>& layout);

// Significant digits SQLite keeps when it turns a decimal text into a number.
inline constexpr int kSqliteExactDigits = 15;

// The SQLite column type of a field, by its RFC_READ_TABLE type letter: a
// packed number is NUMERIC while its width holds no more digits than SQLite
// keeps, and TEXT (its exact decimal text) beyond.
const char* sqliteColumnType(const FieldLayout& field);

}  // namespace veltrane::cli
