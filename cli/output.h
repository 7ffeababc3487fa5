// Printing results: JSON (the default) or aligned text tables.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "args.h"
#include "values.h"

namespace veltrane::cli {

enum class Format { Json, Table };

OptionDef formatOption();
Format outputFormat(const ParsedArgs& args);

void printJson(std::ostream& out, const Json& value);

struct TextTable {
  std::vector<std::string> headers;
  std::vector<bool> rightAligned;  // per column; missing entries mean left
  std::vector<std::vector<std::string>> rows;
};

// Columns separated by two blanks, a dashed line under the headers, trailing
// blanks cut.
void printTable(std::ostream& out, const TextTable& table);

// A flat result object: as JSON, or as a PROPERTY/VALUE table of its members.
void printProperties(std::ostream& out, const Json& object, Format format);

// A JSON value as a cell: strings bare, null empty, objects and arrays as
// compact JSON; line breaks and tabs shown as \n, \r, \t.
std::string cellText(const Json& value);

}  // namespace veltrane::cli
