// veltrane read-table: reads a table through the session's table reader,
// in pages, and in several reads per page when the fields do not fit one
// data line of RFC_READ_TABLE.
#include <unistd.h>

#include <iostream>
#include <limits>
#include <memory>

#include "commands.h"
#include "connection.h"
#include "base64.h"
#include "failure.h"
#include "output.h"
#include "table_plan.h"
#include "text.h"

namespace veltrane::cli {

namespace {

constexpr std::int64_t kDefaultPageSize = 10000;

CComPtr<IRfcParameter> parameter(IFunctionCall* call, HRESULT (STDMETHODCALLTYPE IFunctionCall::*get)(IRfcParameters**),
                                 const char* name) {
  CComPtr<IRfcParameters> params;
  check((call->*get)(&params), "reading the parameters of RFC_READ_TABLE");
  CComPtr<IRfcParameter> p;
  check(params->get_Item(CComVariant(bstr(name)), &p), std::string("finding parameter ") + name + " of RFC_READ_TABLE");
  return p;
}

CComPtr<IRfcRows> tableRows(IFunctionCall* call, const char* name) {
  CComPtr<IRfcRows> rows;
  check(parameter(call, &IFunctionCall::get_Tables, name)->get_Rows(&rows), std::string("reading table ") + name);
  return rows;
}

CComVariant rowValue(IRfcFields* row, const char* name) {
  CComPtr<IRfcField> f;
  check(row->get_Item(CComVariant(bstr(name)), &f), std::string("reading field ") + name);
  CComVariant v;
  check(f->get_value(&v), std::string("reading field ") + name);
  return v;
}

void setRowValue(IRfcFields* row, const char* name, const std::string& text) {
  CComPtr<IRfcField> f;
  check(row->get_Item(CComVariant(bstr(name)), &f), std::string("reading field ") + name);
  check(f->put_value(CComVariant(toUtf16(text))), std::string("setting field ") + name);
}

std::string variantText(const VARIANT& v) {
  CComVariant text;
  if (FAILED(VariantChangeType(&text, &v, 0, VT_BSTR))) return {};
  return utf8(text.bstrVal);
}

// The fields to read with their widths, from RFC_READ_TABLE with NO_DATA:
// the system checks the names and the selection, and sends no rows.
std::vector<FieldLayout> readLayout(Connection& connection, const std::string& table,
                                    const std::vector<std::string>& fields, const std::vector<std::string>& query) {
  CComPtr<IFunctionCall> call = connection.importCall("RFC_READ_TABLE");
  check(parameter(call, &IFunctionCall::get_Importing, "QUERY_TABLE")->put_value(CComVariant(toUtf16(table))),
        "setting QUERY_TABLE");
  check(parameter(call, &IFunctionCall::get_Importing, "DELIMITER")->put_value(CComVariant(u" ")), "setting DELIMITER");
  check(parameter(call, &IFunctionCall::get_Importing, "NO_DATA")->put_value(CComVariant(u"X")), "setting NO_DATA");
  CComPtr<IRfcRows> options = tableRows(call, "OPTIONS");
  check(options->RemoveAll(), "emptying OPTIONS");
  for (const auto& line : query) {
    CComPtr<IRfcFields> row;
    check(options->AddRow(&row), "adding to OPTIONS");
    setRowValue(row, "TEXT", line);
  }
  CComPtr<IRfcRows> fieldRows = tableRows(call, "FIELDS");
  check(fieldRows->RemoveAll(), "emptying FIELDS");
  for (const auto& name : fields) {
    CComPtr<IRfcFields> row;
    check(fieldRows->AddRow(&row), "adding to FIELDS");
    setRowValue(row, "FIELDNAME", name);
  }
  check(tableRows(call, "DATA")->RemoveAll(), "emptying DATA");
  connection.call(call, "RFC_READ_TABLE");

  CComPtr<IRfcRows> answer = tableRows(call, "FIELDS");
  LONG count = 0;
  check(answer->get_Count(&count), "counting FIELDS");
  std::vector<FieldLayout> layout;
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcFields> row;
    check(answer->get_Item(i, &row), "reading FIELDS");
    FieldLayout f;
    f.name = trim(variantText(rowValue(row, "FIELDNAME")));
    const std::string length = trim(variantText(rowValue(row, "LENGTH")));
    auto n = parseInteger(length);
    if (!n || *n < 0 || *n > 65535)
      throw std::runtime_error("RFC_READ_TABLE gave the length '" + length + "' for field " + f.name);
    f.length = static_cast<int>(*n);
    f.type = trim(variantText(rowValue(row, "TYPE")));
    layout.push_back(std::move(f));
  }
  if (layout.empty()) throw std::runtime_error("RFC_READ_TABLE lists no fields for table " + table);
  return layout;
}

// Where the rows go: streamed as JSON, or collected for an aligned table.
class RowSink {
 public:
  virtual ~RowSink() = default;
  virtual void add(Json row) = 0;
  virtual void finish() = 0;
};

class JsonSink : public RowSink {
 public:
  JsonSink(const std::string& table, const std::vector<FieldLayout>& layout) {
    Json names = Json::array();
    for (const auto& f : layout) names.push_back(f.name);
    std::cout << "{\n  \"table\": " << Json(table).dump() << ",\n  \"fields\": " << names.dump() << ",\n  \"rows\": [";
  }
  void add(Json row) override {
    std::cout << (rows_ == 0 ? "\n    " : ",\n    ") << row.dump(-1, ' ', false, Json::error_handler_t::replace);
    ++rows_;
    checkOutput();
  }
  void finish() override { std::cout << (rows_ == 0 ? "]\n}\n" : "\n  ]\n}\n") << std::flush; }

 private:
  size_t rows_ = 0;
};

class TableSink : public RowSink {
 public:
  explicit TableSink(const std::vector<FieldLayout>& layout) {
    for (const auto& f : layout) {
      table_.headers.push_back(f.name);
      const bool numeric = f.type == "I" || f.type == "b" || f.type == "s" || f.type == "F" || f.type == "P";
      table_.rightAligned.push_back(numeric);
    }
  }
  void add(Json row) override {
    std::vector<std::string> cells;
    for (const auto& name : table_.headers) cells.push_back(row.contains(name) ? cellText(row[name]) : "");
    table_.rows.push_back(std::move(cells));
  }
  void finish() override {
    printTable(std::cout, table_);
    std::cout << "(" << table_.rows.size() << (table_.rows.size() == 1 ? " row)\n" : " rows)\n") << std::flush;
  }

 private:
  TextTable table_;
};

class Progress {
 public:
  explicit Progress(bool wanted)
      : enabled_(wanted || ::isatty(STDERR_FILENO) == 1), terminal_(::isatty(STDERR_FILENO) == 1) {}
  void update(std::int64_t rows) {
    if (!enabled_) return;
    if (terminal_) {
      std::cerr << "\rread " << rows << " rows..." << std::flush;
      shown_ = true;
    } else {
      std::cerr << "read " << rows << " rows...\n";
    }
  }
  void done() {
    if (shown_) std::cerr << "\n";
  }

 private:
  bool enabled_;
  bool terminal_;
  bool shown_ = false;
};

// A field of a row read. RAW fields come as the hexadecimal text of the
// data line; they print as base64, as binary values of `call` do.
Json rowFieldJson(IRfcField* field, const FieldLayout& layout, bool raw) {
  Json value = fieldToJson(field);
  if (raw || layout.type != "X" || !value.is_string()) return value;
  if (auto text = hexToBase64(trim(value.get<std::string>()))) return *text;
  return value;
}

// One page: a read per field group, joined by position.
std::vector<Json> readPage(ITableReader* reader, const std::vector<FieldLayout>& layout,
                           const std::vector<std::vector<size_t>>& groups, LONG count, LONG start,
                           const std::string& table, bool raw) {
  std::vector<std::vector<Json>> partial(groups.size());
  CComPtr<IStringList> fields;
  check(reader->get_Fields(&fields), "reading the field list of the reader");
  for (size_t g = 0; g < groups.size(); ++g) {
    check(fields->RemoveAll(), "emptying the field list");
    for (size_t i : groups[g]) check(fields->Add(bstr(layout[i].name)), "adding to the field list");
    checkReader(reader->Read(count, start), reader, "reading table " + table);
    CComPtr<IRfcRows> rows;
    check(reader->get_Rows(&rows), "reading the rows of " + table);
    LONG n = 0;
    if (rows) check(rows->get_Count(&n), "counting rows");
    for (LONG r = 1; r <= n; ++r) {
      CComPtr<IRfcFields> row;
      check(rows->get_Item(r, &row), "reading a row");
      Json object = Json::object();
      for (size_t i : groups[g]) {
        CComPtr<IRfcField> f;
        if (FAILED(row->get_Item(CComVariant(bstr(layout[i].name)), &f)) || !f)
          throw std::runtime_error("the rows of " + table + " lack the field " + layout[i].name);
        object[layout[i].name] = rowFieldJson(f, layout[i], raw);
      }
      partial[g].push_back(std::move(object));
    }
    if (g > 0 && partial[g].size() != partial[0].size())
      throw std::runtime_error("the partial reads of " + table + " gave " + std::to_string(partial[0].size()) +
                               " and " + std::to_string(partial[g].size()) +
                               " rows: the table changed while it was read");
  }
  std::vector<Json> joined;
  joined.reserve(partial[0].size());
  for (size_t r = 0; r < partial[0].size(); ++r) {
    Json row = Json::object();
    for (size_t g = 0; g < groups.size(); ++g)
      for (auto& [k, v] : partial[g][r].items()) row[k] = std::move(v);
    // Back into the order of the field list.
    Json ordered = Json::object();
    for (const auto& f : layout) ordered[f.name] = std::move(row[f.name]);
    joined.push_back(std::move(ordered));
  }
  return joined;
}

int runReadTable(const ParsedArgs& args) {
  if (args.positionals().size() != 1) throw UsageError("read-table needs exactly one TABLE");
  const Format format = outputFormat(args);
  const std::string table = upperAscii(args.positionals()[0]);
  const std::vector<std::string> fields = fieldList(args.values("fields"));
  const std::vector<std::string> query = selectionLines(args.values("where"));
  constexpr std::int64_t kLongMax = std::numeric_limits<LONG>::max();
  const std::int64_t max = args.number("max", 0, 0, std::numeric_limits<std::int64_t>::max());
  const std::int64_t skip = args.number("skip", 0, 0, kLongMax);
  const std::int64_t pageSize = args.number("page-size", kDefaultPageSize, 0, kLongMax);

  Connection connection(connectionSettings(args));
  const std::vector<FieldLayout> layout = readLayout(connection, table, fields, query);
  requireFittingFields(layout);
  const auto groups = splitFields(layout);

  CComPtr<ITableReader> reader = connection.tableReader(table);
  const bool raw = args.has("raw");
  if (raw) check(reader->put_Option(bstr("tablereader.rawstrings"), bstr("X")), "setting raw mode");
  CComPtr<IStringList> lines;
  check(reader->get_Query(&lines), "reading the selection of the reader");
  for (const auto& line : query) check(lines->Add(bstr(line)), "adding to the selection");

  std::unique_ptr<RowSink> sink;
  if (format == Format::Json) {
    sink = std::make_unique<JsonSink>(table, layout);
  } else {
    sink = std::make_unique<TableSink>(layout);
  }
  Progress progress(args.has("progress"));
  std::int64_t total = 0;
  // A failure part-way leaves the rows so far as a whole document, and says
  // where to go on.
  try {
    for (;;) {
      std::int64_t want = pageSize > 0 ? pageSize : 0;  // 0: everything in one read
      if (max > 0) want = want > 0 ? std::min(want, max - total) : max - total;
      if (max > 0 && want <= 0) break;
      want = std::min(want, kLongMax);
      const std::int64_t start = skip + total;
      if (start > kLongMax) throw UsageError("the rows to skip and read go beyond " + std::to_string(kLongMax));
      std::vector<Json> rows =
          readPage(reader, layout, groups, static_cast<LONG>(want), static_cast<LONG>(start), table, raw);
      const auto got = static_cast<std::int64_t>(rows.size());
      for (auto& row : rows) sink->add(std::move(row));
      total += got;
      progress.update(total);
      if (want == 0 || got < want) break;
    }
  } catch (const OutputError&) {
    throw;
  } catch (const std::exception&) {
    progress.done();
    sink->finish();
    const std::int64_t next = skip + total;
    noteForFailure("resumeSkip", next,
                   std::to_string(total) + (total == 1 ? " row was" : " rows were") +
                       " written before the failure; go on with --skip " + std::to_string(next));
    throw;
  }
  progress.done();
  sink->finish();
  connection.close();
  return 0;
}

}  // namespace

Command readTableCommand() {
  return {"read-table",
          "TABLE",
          "read rows of a database table",
          "Reads TABLE with RFC_READ_TABLE through the session's table reader.\n"
          "\n"
          "The fields' widths are asked first (RFC_READ_TABLE with NO_DATA). When the chosen\n"
          "fields do not fit the 512-character data line, each page is read once per group\n"
          "of fields that fits, and the rows are joined back by position; this relies on the\n"
          "system returning rows in the same order for the same selection, which holds as\n"
          "long as the table does not change during the read.\n"
          "\n"
          "Rows are read in pages of --page-size rows; with --max the reading stops after\n"
          "that many rows. A progress line goes to standard error when it is a terminal or\n"
          "--progress is given. Pages, like the field groups, are independent reads: rows\n"
          "added or removed meanwhile may be missed or read twice.\n"
          "\n"
          "Example:\n"
          "  veltrane read-table SFLIGHT --fields CARRID,CONNID,FLDATE,PRICE \\\n"
          "      --where \"CARRID = 'LH'\" --max 10 --format table",
          {
              {"fields", "F1,F2,...", "fields to read, in this order (default: all); may be repeated", true},
              {"where", "CONDITION", "selection in ABAP syntax; several are joined with AND", true},
              {"max", "N", "read at most N rows (default 0: all)"},
              {"skip", "N", "skip the first N rows (default 0)"},
              {"page-size", "N", "rows per read (default 10000; 0: all in one read)"},
              {"progress", "", "show progress on standard error also when it is not a terminal"},
              {"raw", "", "deliver all fields as untrimmed text"},
          },
          true,
          runReadTable};
}

}  // namespace veltrane::cli
