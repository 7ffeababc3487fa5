// Values on the wire. A value is its type byte and a body; the body of a text, number or bytes is
// one item, a structure lists its fields by name, and a table names its columns once and then
// holds its rows as bodies only. A values section is a count and that many name and value pairs.
//
// Both ends usually walk a section with Reader and their own storage; WireValue is the generic
// tree for the gateway, tests and tools.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "rfc_protocol/codec.h"

namespace vsim::proto {

inline constexpr int kMaxValueDepth = 32;

struct WireValue {
  WireType type = WireType::Char;
  std::string text;  // Text and Bytes forms
  std::int64_t integer = 0;
  double real = 0;
  std::vector<std::pair<std::string, WireValue>> fields;  // Structure
  std::vector<std::pair<std::string, WireType>> columns;  // Table
  std::vector<std::vector<WireValue>> rows;               // Table: one body per column

  static WireValue ofText(WireType t, std::string s);
  static WireValue ofInteger(WireType t, std::int64_t v);
  static WireValue ofReal(double v);
  // A field of a structure by name, or null.
  const WireValue* field(std::string_view name) const;
  bool operator==(const WireValue& o) const;
};
using NamedValues = std::vector<std::pair<std::string, WireValue>>;

void writeValue(Writer& w, const WireValue& v);
void writeBody(Writer& w, const WireValue& v);
WireValue readValue(Reader& r, int depth = 0);
WireValue readBody(Reader& r, WireType type, int depth = 0);
void writeValues(Writer& w, const NamedValues& values);
NamedValues readValues(Reader& r);

// Passes over one body without keeping it (a value nobody asked for).
void skipBody(Reader& r, WireType type, int depth = 0);

// Table bodies: the column list, then the row count; rows follow as column bodies in order.
// Checks that the rows can fit in what is left of the message.
struct TableHeader {
  std::vector<std::pair<std::string, WireType>> columns;
  size_t rows = 0;
};
TableHeader readTableHeader(Reader& r);
void writeTableHeader(Writer& w, const std::vector<std::pair<std::string, WireType>>& columns, size_t rows);

}  // namespace vsim::proto
