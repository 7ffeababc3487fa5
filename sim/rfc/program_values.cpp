#include "rfc/program_values.h"

#include <charconv>
#include <functional>
#include <vector>

#include "engine/convert.h"

namespace vsim::rfc {

namespace {

using proto::WireForm;
using proto::WireType;
using proto::WireValue;
using Rule = std::function<void(WireValue&, const TypeDesc&)>;

// Applies rule to every scalar of v that type declares packed, through structures and tables.
// Returns the wire type the value has afterwards.
WireType walk(WireValue& v, const TypeDesc& type, const Rule& rule, int depth) {
  if (depth > proto::kMaxValueDepth) return v.type;
  if (type.kind == Kind::Struct && v.type == WireType::Structure) {
    for (auto& [name, field] : v.fields)
      if (const int c = type.find(toUpper(name)); c >= 0)
        walk(field, *type.components[static_cast<size_t>(c)].type, rule, depth + 1);
  } else if (type.kind == Kind::Table && v.type == WireType::Table && type.row) {
    const TypeDesc& row = *type.row;
    for (size_t c = 0; c < v.columns.size(); ++c) {
      const TypeDesc* column = nullptr;
      if (row.kind != Kind::Struct)
        column = c == 0 ? &row : nullptr;
      else if (const int i = row.find(toUpper(v.columns[c].first)); i >= 0)
        column = row.components[static_cast<size_t>(i)].type.get();
      if (!column) continue;
      // A column keeps one wire type: the rule applies to all its cells or to none.
      std::vector<WireValue> cells;
      WireType columnType = v.columns[c].second;
      bool same = true;
      for (auto& r : v.rows) {
        if (c >= r.size()) continue;
        cells.push_back(r[c]);
        const WireType t = walk(cells.back(), *column, rule, depth + 1);
        same = same && (cells.size() == 1 || t == columnType);
        columnType = t;
      }
      if (!same) continue;
      size_t i = 0;
      for (auto& r : v.rows)
        if (c < r.size()) r[c] = std::move(cells[i++]);
      v.columns[c].second = columnType;
    }
  } else if (type.kind == Kind::Packed) {
    rule(v, type);
  }
  return v.type;
}

void walkParameters(proto::NamedValues& values, const FunctionModule& function, const Rule& rule) {
  for (auto& [name, value] : values)
    if (const int p = function.find(name); p >= 0 && function.params[static_cast<size_t>(p)].type)
      walk(value, *function.params[static_cast<size_t>(p)].type, rule, 0);
}

std::string textOf(const WireValue& v) {
  switch (proto::wireForm(v.type)) {
    case WireForm::Text: return v.text;
    case WireForm::Integer: return std::to_string(v.integer);
    case WireForm::Real: {
      char buf[64];
      const auto r = std::to_chars(buf, buf + sizeof buf, v.real);
      return std::string(buf, r.ptr);
    }
    default: throw ConversionError("no number");
  }
}

// The digits of a packed number's text with the point placed `decimals` from the right.
std::string placed(std::string_view text, int decimals) {
  text = trim(text);
  std::string sign;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    if (text.front() == '-') sign = "-";
    text.remove_prefix(1);
  } else if (!text.empty() && text.back() == '-') {
    sign = "-";
    text.remove_suffix(1);
  }
  std::string digits;
  for (char c : text)
    if (c != '.') digits += c;
  if (digits.empty()) throw ConversionError("no digits");
  if (digits.size() <= static_cast<size_t>(decimals))
    digits.insert(0, static_cast<size_t>(decimals) + 1 - digits.size(), '0');
  if (decimals > 0) digits.insert(digits.size() - static_cast<size_t>(decimals), ".");
  return sign + digits;
}

}  // namespace

void packedForProgram(proto::NamedValues& values, const FunctionModule& function) {
  walkParameters(values, function, [](WireValue& v, const TypeDesc& type) {
    try {
      v = WireValue::ofText(WireType::Bcd, packedCanonical(textOf(v), type.length, type.decimals));
    } catch (const ConversionError&) {}
  });
}

void packedFromProgram(proto::NamedValues& values, const FunctionModule& function) {
  walkParameters(values, function, [](WireValue& v, const TypeDesc& type) {
    if (v.type != WireType::Bcd) return;
    try {
      v.text = packedCanonical(placed(v.text, type.decimals), type.length, type.decimals);
    } catch (const ConversionError&) {}
  });
}

}  // namespace vsim::rfc
