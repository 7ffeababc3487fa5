// Printing results: JSON (the default) or aligned text tables.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "args.h"
#include "failure.h"
#include "values.h"

namespace veltrane::cli {

enum class Format { Json, Table };

OptionDef formatOption();
Format outputFormat(const ParsedArgs& args);

// --error-format text|json, read from the whole command line before
// anything else, so that it also governs usage errors.
OptionDef errorFormatOption();
ErrorFormat errorFormat(const std::vector<std::string>& args);

// Throws OutputError when standard output has failed so far (a full disk,
// a closed pipe); finishOutput flushes first.
void checkOutput();
void finishOutput();

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
