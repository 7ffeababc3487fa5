#include "table_output.h"

#include <sqlite3.h>

#include <cerrno>
#include <cstring>
#include <charconv>
#include <iostream>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "failure.h"
#include "output.h"
#include "text.h"
#include "values.h"

namespace veltrane::cli {

namespace {

// The ABAP type that decides how a date value is written.
ABAPTYPE columnType(const FieldLayout& f) {
  if (f.type == "D") return TYPE_DATE;
  if (f.type == "T") return TYPE_TIME;
  return TYPE_CHAR;
}

std::vector<ABAPTYPE> columnTypes(const std::vector<FieldLayout>& layout) {
  std::vector<ABAPTYPE> types;
  for (const auto& f : layout) types.push_back(columnType(f));
  return types;
}

template <class T>
void appendNumber(std::string& out, T value) {
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  out.append(buf, end);
}

void appendDate(std::string& out, DATE date, ABAPTYPE type) {
  SYSTEMTIME st{};
  if (!VariantTimeToSystemTime(date, &st)) return;
  char buf[48];
  int n;
  if (type == TYPE_TIME)
    n = std::snprintf(buf, sizeof buf, "%02u:%02u:%02u", st.wHour, st.wMinute, st.wSecond);
  else if (type == TYPE_DATE)
    n = std::snprintf(buf, sizeof buf, "%04u-%02u-%02u", st.wYear, st.wMonth, st.wDay);
  else
    n = std::snprintf(buf, sizeof buf, "%04u-%02u-%02uT%02u:%02u:%02u", st.wYear, st.wMonth, st.wDay, st.wHour,
                      st.wMinute, st.wSecond);
  out.append(buf, static_cast<size_t>(n > 0 ? n : 0));
}

bool needsJsonEscape(std::string_view text) {
  for (unsigned char c : text)
    if (c < 0x20 || c == '"' || c == '\\') return true;
  return false;
}

// A value as JSON, as variantToJson and the library's dump write it; the
// common kinds without building a JSON value.
void appendJson(std::string& out, const VARIANT& v, ABAPTYPE type) {
  switch (v.vt) {
    case VT_EMPTY:
    case VT_NULL: out += "null"; return;
    case VT_BSTR: {
      const size_t start = out.size();
      out += '"';
      appendUtf8(out, std::u16string_view(v.bstrVal ? v.bstrVal : u"", v.bstrVal ? SysStringLen(v.bstrVal) : 0));
      if (needsJsonEscape(std::string_view(out).substr(start + 1))) {
        const std::string text = out.substr(start + 1);
        out.resize(start);
        out += Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
        return;
      }
      out += '"';
      return;
    }
    case VT_I2: appendNumber(out, static_cast<std::int64_t>(v.iVal)); return;
    case VT_I4: appendNumber(out, static_cast<std::int64_t>(v.lVal)); return;
    case VT_I8: appendNumber(out, static_cast<std::int64_t>(v.llVal)); return;
    case VT_DATE: {
      SYSTEMTIME st{};
      if (!VariantTimeToSystemTime(v.date, &st)) {
        out += "null";
        return;
      }
      out += '"';
      appendDate(out, v.date, type);
      out += '"';
      return;
    }
    default: out += variantToJson(v, type).dump(-1, ' ', false, Json::error_handler_t::replace); return;
  }
}

// A value as plain text: strings as they are, numbers and dates as JSON
// writes them, nothing for no value.
void appendPlain(std::string& out, const VARIANT& v, ABAPTYPE type) {
  switch (v.vt) {
    case VT_EMPTY:
    case VT_NULL: return;
    case VT_BSTR:
      appendUtf8(out, std::u16string_view(v.bstrVal ? v.bstrVal : u"", v.bstrVal ? SysStringLen(v.bstrVal) : 0));
      return;
    case VT_I2: appendNumber(out, static_cast<std::int64_t>(v.iVal)); return;
    case VT_I4: appendNumber(out, static_cast<std::int64_t>(v.lVal)); return;
    case VT_I8: appendNumber(out, static_cast<std::int64_t>(v.llVal)); return;
    case VT_DATE: appendDate(out, v.date, type); return;
    default: {
      const Json j = variantToJson(v, type);
      if (j.is_null()) return;
      out += j.is_string() ? j.get<std::string>() : j.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
  }
}

// Pages of text are collected in a buffer and written at once.
class BufferedOutput : public TableOutput {
 public:
  explicit BufferedOutput(std::ostream& out) : out_(out) {}
  void flush() override {
    errno = 0;
    out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    out_.flush();
    buffer_.clear();
    // Standard output fails as every output of the command does.
    if (&out_ == &std::cout) checkOutput();
    if (!out_) {
      const int error = errno;
      out_.clear();
      throw OutputError(std::string("writing the output failed: ") + (error ? std::strerror(error) : "write error"));
    }
  }

 protected:
  std::ostream& out_;
  std::string buffer_;
};

class JsonOutput : public BufferedOutput {
 public:
  JsonOutput(std::ostream& out, const std::string& table, const std::vector<FieldLayout>& layout)
      : BufferedOutput(out), types_(columnTypes(layout)) {
    Json names = Json::array();
    for (const auto& f : layout) {
      names.push_back(f.name);
      keys_.push_back(Json(f.name).dump(-1, ' ', false, Json::error_handler_t::replace) + ":");
    }
    buffer_ += "{\n  \"table\": " + Json(table).dump() + ",\n  \"fields\": " + names.dump() + ",\n  \"rows\": [";
  }
  void row(const std::vector<VARIANT>& values) override {
    buffer_ += rows_++ == 0 ? "\n    {" : ",\n    {";
    for (size_t i = 0; i < values.size(); ++i) {
      if (i > 0) buffer_ += ',';
      buffer_ += keys_[i];
      appendJson(buffer_, values[i], types_[i]);
    }
    buffer_ += '}';
  }
  void finish() override {
    buffer_ += rows_ == 0 ? "]\n}\n" : "\n  ]\n}\n";
    flush();
  }

 private:
  std::vector<ABAPTYPE> types_;
  std::vector<std::string> keys_;
  size_t rows_ = 0;
};

class JsonlOutput : public BufferedOutput {
 public:
  JsonlOutput(std::ostream& out, const std::vector<FieldLayout>& layout)
      : BufferedOutput(out), types_(columnTypes(layout)) {
    for (const auto& f : layout)
      keys_.push_back(Json(f.name).dump(-1, ' ', false, Json::error_handler_t::replace) + ":");
  }
  void row(const std::vector<VARIANT>& values) override {
    buffer_ += '{';
    for (size_t i = 0; i < values.size(); ++i) {
      if (i > 0) buffer_ += ',';
      buffer_ += keys_[i];
      appendJson(buffer_, values[i], types_[i]);
    }
    buffer_ += "}\n";
  }
  void finish() override { flush(); }

 private:
  std::vector<ABAPTYPE> types_;
  std::vector<std::string> keys_;
};

// RFC 4180 fields: quoted when they hold a comma, a quote or a line break,
// quotes doubled; lines end in LF.
class CsvOutput : public BufferedOutput {
 public:
  CsvOutput(std::ostream& out, const std::vector<FieldLayout>& layout)
      : BufferedOutput(out), types_(columnTypes(layout)) {
    for (size_t i = 0; i < layout.size(); ++i) {
      if (i > 0) buffer_ += ',';
      appendField(layout[i].name);
    }
    buffer_ += '\n';
  }
  void row(const std::vector<VARIANT>& values) override {
    for (size_t i = 0; i < values.size(); ++i) {
      if (i > 0) buffer_ += ',';
      cell_.clear();
      appendPlain(cell_, values[i], types_[i]);
      appendField(cell_);
    }
    buffer_ += '\n';
  }
  void finish() override { flush(); }

 private:
  void appendField(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
      buffer_ += text;
      return;
    }
    buffer_ += '"';
    for (char c : text) {
      if (c == '"') buffer_ += '"';
      buffer_ += c;
    }
    buffer_ += '"';
  }

  std::vector<ABAPTYPE> types_;
  std::string cell_;
};

class AlignedOutput : public TableOutput {
 public:
  AlignedOutput(std::ostream& out, const std::vector<FieldLayout>& layout) : out_(out), types_(columnTypes(layout)) {
    for (const auto& f : layout) {
      table_.headers.push_back(f.name);
      const bool numeric = f.type == "I" || f.type == "b" || f.type == "s" || f.type == "F" || f.type == "P";
      table_.rightAligned.push_back(numeric);
    }
  }
  void row(const std::vector<VARIANT>& values) override {
    std::vector<std::string> cells;
    cells.reserve(values.size());
    for (size_t i = 0; i < values.size(); ++i) cells.push_back(cellText(variantToJson(values[i], types_[i])));
    table_.rows.push_back(std::move(cells));
  }
  void flush() override {}
  void finish() override {
    printTable(out_, table_);
    out_ << "(" << table_.rows.size() << (table_.rows.size() == 1 ? " row)\n" : " rows)\n") << std::flush;
  }

 private:
  std::ostream& out_;
  std::vector<ABAPTYPE> types_;
  TextTable table_;
};

std::string quotedIdentifier(const std::string& name) {
  std::string out = "\"";
  for (char c : name) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

class SqliteOutput : public TableOutput {
 public:
  SqliteOutput(const std::string& path, const std::string& table, const std::vector<FieldLayout>& layout)
      : path_(path), types_(columnTypes(layout)) {
    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK) {
      const std::string why = db_ ? sqlite3_errmsg(db_) : "out of memory";
      sqlite3_close(db_);
      db_ = nullptr;
      throw std::runtime_error("cannot open the database " + path + ": " + why);
    }
    exec("BEGIN");
    std::string create = "CREATE TABLE " + quotedIdentifier(table) + " (";
    std::string insert = "INSERT INTO " + quotedIdentifier(table) + " VALUES (";
    for (size_t i = 0; i < layout.size(); ++i) {
      if (i > 0) {
        create += ", ";
        insert += ", ";
      }
      create += quotedIdentifier(layout[i].name) + " " + sqliteColumnType(layout[i]);
      insert += "?";
    }
    create += ")";
    insert += ")";
    if (sqlite3_exec(db_, create.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
      const std::string why = sqlite3_errmsg(db_);
      close();
      throw std::runtime_error("cannot create table " + table + " in the database " + path + ": " + why);
    }
    if (sqlite3_prepare_v2(db_, insert.c_str(), -1, &insert_, nullptr) != SQLITE_OK) fail("preparing the insert");
  }
  ~SqliteOutput() override { close(); }

  void row(const std::vector<VARIANT>& values) override {
    for (size_t i = 0; i < values.size(); ++i) bind(static_cast<int>(i + 1), values[i], types_[i]);
    if (sqlite3_step(insert_) != SQLITE_DONE) fail("inserting a row");
    sqlite3_reset(insert_);
    sqlite3_clear_bindings(insert_);
  }
  void flush() override {}
  void finish() override {
    exec("COMMIT");
    close();
  }

 private:
  void bind(int at, const VARIANT& v, ABAPTYPE type) {
    int rc = SQLITE_OK;
    switch (v.vt) {
      case VT_EMPTY:
      case VT_NULL: rc = sqlite3_bind_null(insert_, at); break;
      case VT_I2: rc = sqlite3_bind_int64(insert_, at, v.iVal); break;
      case VT_I4: rc = sqlite3_bind_int64(insert_, at, v.lVal); break;
      case VT_I8: rc = sqlite3_bind_int64(insert_, at, v.llVal); break;
      case VT_R4: rc = sqlite3_bind_double(insert_, at, v.fltVal); break;
      case VT_R8: rc = sqlite3_bind_double(insert_, at, v.dblVal); break;
      default: {
        cell_.clear();
        appendPlain(cell_, v, type);
        rc = sqlite3_bind_text(insert_, at, cell_.data(), static_cast<int>(cell_.size()), SQLITE_TRANSIENT);
      }
    }
    if (rc != SQLITE_OK) fail("binding a value");
  }
  void exec(const char* sql) {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(sql);
  }
  [[noreturn]] void fail(const std::string& what) {
    const std::string why = db_ ? sqlite3_errmsg(db_) : "closed";
    close();
    throw std::runtime_error("writing to the database " + path_ + " failed (" + what + "): " + why);
  }
  // Without a COMMIT the open transaction rolls back.
  void close() {
    if (insert_) sqlite3_finalize(insert_);
    insert_ = nullptr;
    if (db_) sqlite3_close(db_);
    db_ = nullptr;
  }

  std::string path_;
  std::vector<ABAPTYPE> types_;
  sqlite3* db_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  std::string cell_;
};

}  // namespace

TableFormat tableFormat(const std::string& name) {
  if (name == "json") return TableFormat::Json;
  if (name == "jsonl") return TableFormat::Jsonl;
  if (name == "csv") return TableFormat::Csv;
  if (name == "table") return TableFormat::Table;
  throw UsageError("option --format: '" + name + "' is not a format (json, jsonl, csv or table)");
}

std::unique_ptr<TableOutput> textOutput(TableFormat format, std::ostream& out, const std::string& table,
                                        const std::vector<FieldLayout>& layout) {
  switch (format) {
    case TableFormat::Jsonl: return std::make_unique<JsonlOutput>(out, layout);
    case TableFormat::Csv: return std::make_unique<CsvOutput>(out, layout);
    case TableFormat::Table: return std::make_unique<AlignedOutput>(out, layout);
    default: return std::make_unique<JsonOutput>(out, table, layout);
  }
}

std::unique_ptr<TableOutput> sqliteOutput(const std::string& path, const std::string& table,
                                          const std::vector<FieldLayout>& layout) {
  return std::make_unique<SqliteOutput>(path, table, layout);
}

const char* sqliteColumnType(const FieldLayout& field) {
  const std::string& letter = field.type;
  if (letter == "I" || letter == "b" || letter == "s" || letter == "8") return "INTEGER";
  if (letter == "F") return "REAL";
  if (letter == "P") return field.length <= kSqliteExactDigits ? "NUMERIC" : "TEXT";
  return "TEXT";
}

}  // namespace veltrane::cli
