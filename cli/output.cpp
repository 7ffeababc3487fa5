#include "output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "failure.h"
#include "text.h"

namespace veltrane::cli {

OptionDef formatOption() { return {"format", "json|table", "output as JSON (default) or as an aligned table"}; }

Format outputFormat(const ParsedArgs& args) {
  const std::string f = args.valueOr("format", "json");
  if (f == "json") return Format::Json;
  if (f == "table") return Format::Table;
  throw UsageError("option --format: '" + f + "' is not a format (json or table)");
}

OptionDef errorFormatOption() {
  return {"error-format", "text|json", "failures as text (default) or as one JSON object on standard error"};
}

ErrorFormat errorFormat(const std::vector<std::string>& args) {
  std::string value = "text";
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--") break;
    if (args[i] == "--error-format" && i + 1 < args.size()) value = args[++i];
    if (args[i].rfind("--error-format=", 0) == 0) value = args[i].substr(15);
  }
  if (value == "json") return ErrorFormat::Json;
  if (value != "text") throw UsageError("option --error-format: '" + value + "' is not a format (text or json)");
  return ErrorFormat::Text;
}

namespace {

[[noreturn]] void outputFailed(int error) {
  std::cout.clear();
  std::clearerr(stdout);
  throw OutputError(std::string("writing the output failed: ") + (error ? std::strerror(error) : "write error"));
}

}  // namespace

// Called right after writing, while errno still tells why a write failed.
void checkOutput() {
  const int error = errno;
  if (!std::cout.good() || std::ferror(stdout)) outputFailed(error);
}

void finishOutput() {
  errno = 0;
  std::cout.flush();
  if (!std::cout.good()) outputFailed(errno);
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) outputFailed(errno);
}

void printJson(std::ostream& out, const Json& value) {
  out << value.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
  if (&out == &std::cout) checkOutput();
}

std::string cellText(const Json& value) {
  std::string text;
  if (value.is_null()) {
    text = "";
  } else if (value.is_string()) {
    text = value.get<std::string>();
  } else {
    text = value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  }
  std::string shown;
  shown.reserve(text.size());
  for (char c : text) {
    if (c == '\n') {
      shown += "\\n";
    } else if (c == '\r') {
      shown += "\\r";
    } else if (c == '\t') {
      shown += "\\t";
    } else {
      shown += c;
    }
  }
  return shown;
}

void printProperties(std::ostream& out, const Json& object, Format format) {
  if (format == Format::Json) return printJson(out, object);
  TextTable table{{"PROPERTY", "VALUE"}, {}, {}};
  for (const auto& [key, value] : object.items()) table.rows.push_back({key, cellText(value)});
  printTable(out, table);
}

void printTable(std::ostream& out, const TextTable& table) {
  const size_t columns = table.headers.size();
  std::vector<size_t> width(columns, 0);
  for (size_t c = 0; c < columns; ++c) width[c] = displayWidth(table.headers[c]);
  for (const auto& row : table.rows)
    for (size_t c = 0; c < columns && c < row.size(); ++c) width[c] = std::max(width[c], displayWidth(row[c]));

  auto line = [&](const std::vector<std::string>& cells) {
    std::string text;
    for (size_t c = 0; c < columns; ++c) {
      const std::string& cell = c < cells.size() ? cells[c] : std::string();
      const size_t pad = width[c] - std::min(width[c], displayWidth(cell));
      const bool right = c < table.rightAligned.size() && table.rightAligned[c];
      if (c > 0) text += "  ";
      if (right) text.append(pad, ' ');
      text += cell;
      if (!right) text.append(pad, ' ');
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    out << text << "\n";
  };
  line(table.headers);
  std::vector<std::string> rule;
  for (size_t c = 0; c < columns; ++c) rule.emplace_back(width[c], '-');
  line(rule);
  for (const auto& row : table.rows) line(row);
  if (&out == &std::cout) checkOutput();
}

}  // namespace veltrane::cli
