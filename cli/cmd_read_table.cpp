// veltrane read-table: reads a table through the session's table reader,
// in pages, and in several reads per page when the fields do not fit one
// data line of RFC_READ_TABLE.
#include <unistd.h>

#include <future>
#include <iostream>
#include <limits>
#include <memory>

#include "commands.h"
#include "connection.h"
#include "base64.h"
#include "failure.h"
#include "output.h"
#include "table_output.h"
#include "table_plan.h"
#include "table_rows.h"
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

// One read of a page for a group of fields: the reader's rows of it.
CComPtr<IRfcRows> readGroup(ITableReader* reader, const std::vector<FieldLayout>& layout,
                            const std::vector<size_t>& group, LONG count, LONG start, const std::string& table) {
  CComPtr<IStringList> fields;
  check(reader->get_Fields(&fields), "reading the field list of the reader");
  check(fields->RemoveAll(), "emptying the field list");
  for (size_t i : group) check(fields->Add(bstr(layout[i].name)), "adding to the field list");
  checkReader(reader->Read(count, start), reader, "reading table " + table);
  CComPtr<IRfcRows> rows;
  check(reader->get_Rows(&rows), "reading the rows of " + table);
  return rows;
}

// The rows of one page: one set of rows per field group.
struct Page {
  std::vector<CComPtr<IRfcRows>> parts;
  LONG count = 0;
};

Page readPage(ITableReader* reader, const std::vector<FieldLayout>& layout,
              const std::vector<std::vector<size_t>>& groups, LONG count, LONG start, const std::string& table) {
  Page page;
  for (size_t g = 0; g < groups.size(); ++g) {
    CComPtr<IRfcRows> rows = readGroup(reader, layout, groups[g], count, start, table);
    LONG n = 0;
    if (rows) check(rows->get_Count(&n), "counting rows");
    if (g == 0) page.count = n;
    if (g > 0 && n != page.count)
      throw std::runtime_error("the partial reads of " + table + " gave " + std::to_string(page.count) + " and " +
                               std::to_string(n) + " rows: the table changed while it was read");
    page.parts.push_back(std::move(rows));
  }
  return page;
}

// RAW fields come as the hexadecimal text of the data line; they print as
// base64, as binary values of `call` do.
void rawAsBase64(VARIANT& value, CComVariant& held) {
  if (value.vt != VT_BSTR) return;
  if (auto text = hexToBase64(trim(utf8(value.bstrVal)))) {
    held = CComVariant(bstr(*text));
    value = held;
  }
}

// Hands the rows of a page to the output, joined across the field groups
// by position, in the order of the field list.
void writePage(const Page& page, const std::vector<FieldLayout>& layout, const std::vector<std::vector<size_t>>& groups,
               const std::string& table, bool raw, TableOutput& output) {
  std::vector<RowValues> readers;
  readers.reserve(groups.size());
  for (size_t g = 0; g < groups.size(); ++g) readers.emplace_back(page.parts[g], layout, groups[g], table);
  std::vector<size_t> binary;
  if (!raw)
    for (size_t i = 0; i < layout.size(); ++i)
      if (layout[i].type == "X") binary.push_back(i);
  std::vector<VARIANT> values(layout.size());
  std::vector<CComVariant> held(layout.size());
  for (LONG r = 1; r <= page.count; ++r) {
    for (RowValues& reader : readers) reader.read(r, values, held);
    for (size_t i : binary) rawAsBase64(values[i], held[i]);
    output.row(values);
  }
  output.flush();
  checkOutput();
}

// Reads a page on a thread of its own, while the page before is written.
std::future<Page> readPageAhead(ITableReader* reader, const std::vector<FieldLayout>& layout,
                                const std::vector<std::vector<size_t>>& groups, LONG count, LONG start,
                                const std::string& table) {
  return std::async(std::launch::async, [=, &layout, &groups] {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    struct Uninitialize {
      ~Uninitialize() { CoUninitialize(); }
    } uninitialize;
    return readPage(reader, layout, groups, count, start, table);
  });
}

int runReadTable(const ParsedArgs& args) {
  if (args.positionals().size() != 1) throw UsageError("read-table needs exactly one TABLE");
  const TableFormat format = tableFormat(args.valueOr("format", "json"));
  const std::string table = upperAscii(args.positionals()[0]);
  const std::vector<std::string> fields = fieldList(args.values("fields"));
  const std::vector<std::string> query = selectionLines(args.values("where"));
  constexpr std::int64_t kLongMax = std::numeric_limits<LONG>::max();
  const std::int64_t max = args.number("max", 0, 0, std::numeric_limits<std::int64_t>::max());
  const std::int64_t skip = args.number("skip", 0, 0, kLongMax);
  const std::int64_t pageSize = args.number("page-size", kDefaultPageSize, 0, kLongMax);
  const std::string database = args.valueOr("sqlite", "");
  if (args.has("sqlite") && database.empty()) throw UsageError("option --sqlite needs a file name");

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

  std::unique_ptr<TableOutput> output =
      database.empty() ? textOutput(format, std::cout, table, layout) : sqliteOutput(database, table, layout);
  Progress progress(args.has("progress"));

  // The rows of the next read, or -1 when the reading is done; 0 reads
  // everything at once.
  auto nextWant = [&](std::int64_t total) -> std::int64_t {
    std::int64_t want = pageSize > 0 ? pageSize : 0;
    if (max > 0) want = want > 0 ? std::min(want, max - total) : max - total;
    if (max > 0 && want <= 0) return -1;
    if (skip + total > kLongMax) throw UsageError("the rows to skip and read go beyond " + std::to_string(kLongMax));
    return std::min(want, kLongMax);
  };

  std::int64_t total = 0;
  // A failure part-way leaves the rows so far as a whole document, and says
  // where to go on.
  try {
    std::int64_t want = nextWant(total);
    Page page;
    if (want >= 0) page = readPage(reader, layout, groups, static_cast<LONG>(want), static_cast<LONG>(skip), table);
    while (want >= 0) {
      const std::int64_t got = page.count;
      const bool more = want > 0 && got == want;
      const std::int64_t nextTotal = total + got;
      const std::int64_t next = more ? nextWant(nextTotal) : -1;
      // With one group the next page is read while this one is written;
      // several groups share the reader's field list, so they go in turn.
      std::future<Page> ahead;
      if (next >= 0 && groups.size() == 1)
        ahead =
            readPageAhead(reader, layout, groups, static_cast<LONG>(next), static_cast<LONG>(skip + nextTotal), table);
      writePage(page, layout, groups, table, raw, *output);
      page = Page();
      total = nextTotal;
      progress.update(total);
      want = next;
      if (want < 0) break;
      page = ahead.valid()
                 ? ahead.get()
                 : readPage(reader, layout, groups, static_cast<LONG>(want), static_cast<LONG>(skip + total), table);
    }
  } catch (const OutputError&) {
    throw;
  } catch (const std::exception&) {
    progress.done();
    output->finish();
    const std::int64_t next = skip + total;
    noteForFailure("resumeSkip", next,
                   std::to_string(total) + (total == 1 ? " row was" : " rows were") +
                       " written before the failure; go on with --skip " + std::to_string(next));
    throw;
  }
  progress.done();
  output->finish();
  if (!database.empty()) {
    Json summary = Json::object();
    summary["table"] = table;
    summary["rows"] = total;
    summary["database"] = database;
    printProperties(std::cout, summary, format == TableFormat::Table ? Format::Table : Format::Json);
  }
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
          "Each page is written as it arrives, while the next one is read: the memory the\n"
          "command needs depends on the page size, not on the number of rows. --format\n"
          "jsonl writes one JSON object per row and line, csv a header line and one line per\n"
          "row. --sqlite FILE writes the rows into a new table named like TABLE in the\n"
          "SQLite database FILE (created when missing), with column types from the\n"
          "dictionary, in one transaction, and prints a summary.\n"
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
              {"format", "json|jsonl|csv|table",
               "output as a JSON document (default), JSON lines, CSV or an aligned table"},
              {"sqlite", "FILE", "write the rows into a new table of the SQLite database FILE"},
          },
          false,
          runReadTable};
}

}  // namespace veltrane::cli
