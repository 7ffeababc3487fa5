#include "rfc/wire_values.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "engine/convert.h"
#include "rfc_protocol/values.h"

namespace vsim::rfc {

using proto::WireForm;
using proto::WireType;

namespace {

void writeBody(proto::Writer& w, const TypeDesc& type, const Value& value);

std::vector<std::pair<std::string, WireType>> columnsOf(const TypeDesc& row) {
  std::vector<std::pair<std::string, WireType>> columns;
  if (row.kind == Kind::Struct) {
    columns.reserve(row.components.size());
    for (const auto& c : row.components) columns.emplace_back(c.name, wireTypeOf(*c.type));
  } else {
    columns.emplace_back(std::string(), wireTypeOf(row));
  }
  return columns;
}

void writeStructBody(proto::Writer& w, const TypeDesc& type, const Value& value) {
  const auto& items = value.items();
  w.varint(type.components.size());
  for (size_t i = 0; i < type.components.size(); ++i) {
    const auto& c = type.components[i];
    w.text(c.name);
    const Value fallback = i < items.size() ? Value() : initialValue(*c.type);
    writeValue(w, *c.type, i < items.size() ? items[i] : fallback);
  }
}

void writeTableBody(proto::Writer& w, const TypeDesc& type, const Value& value) {
  const TypeDesc& row = *type.row;
  const auto& rows = value.items();
  proto::writeTableHeader(w, columnsOf(row), rows.size());
  if (row.kind == Kind::Struct) {
    for (const Value& r : rows) {
      const auto& items = r.items();
      for (size_t i = 0; i < row.components.size(); ++i) writeBody(w, *row.components[i].type, items.at(i));
    }
  } else {
    for (const Value& r : rows) writeBody(w, row, r);
  }
}

void writeBody(proto::Writer& w, const TypeDesc& type, const Value& value) {
  switch (type.kind) {
    case Kind::Int:
    case Kind::Int1:
    case Kind::Int2:
    case Kind::Int8: w.svarint(value.integer()); break;
    case Kind::Float: w.f64(value.real()); break;
    case Kind::Struct: writeStructBody(w, type, value); break;
    case Kind::Table: writeTableBody(w, type, value); break;
    case Kind::Char: w.text(trimRight(value.text())); break;
    default: w.text(value.text()); break;  // texts, bytes, packed and decimal floats
  }
}

// The plain text of a scalar body as sent, for a conversion into another type.
std::string plainText(proto::Reader& r, WireType sent) {
  switch (proto::wireForm(sent)) {
    case WireForm::Integer: return std::to_string(r.svarint());
    case WireForm::Real: {
      const double d = r.f64();
      if (!std::isfinite(d)) throw ConversionError("a floating point number that is not finite");
      char buf[64];
      auto [p, ec] = std::to_chars(buf, buf + sizeof buf, d);
      return std::string(buf, ec == std::errc() ? p : buf);
    }
    case WireForm::Bytes: return hexEncode(r.text());
    default: return std::string(r.text());
  }
}

std::int64_t checkedInteger(std::int64_t v, const TypeDesc& target) {
  std::int64_t lo = std::numeric_limits<std::int32_t>::min(), hi = std::numeric_limits<std::int32_t>::max();
  if (target.kind == Kind::Int1) lo = 0, hi = 255;
  if (target.kind == Kind::Int2) lo = -32768, hi = 32767;
  if (target.kind == Kind::Int8)
    lo = std::numeric_limits<std::int64_t>::min(), hi = std::numeric_limits<std::int64_t>::max();
  if (v < lo || v > hi)
    throw ConversionError("value " + std::to_string(v) + " overflows type " + kindName(target.kind));
  return v;
}

Value readScalar(proto::Reader& r, WireType sent, const TypeDesc& target) {
  const WireForm form = proto::wireForm(sent);
  if (form == WireForm::Structure || form == WireForm::Table) {
    proto::skipBody(r, sent);
    throw ConversionError(std::string("a ") + proto::wireTypeName(sent) + " does not fit a field of type " +
                          kindName(target.kind));
  }
  if (sent == wireTypeOf(target)) {
    switch (target.kind) {
      case Kind::Int:
      case Kind::Int1:
      case Kind::Int2:
      case Kind::Int8: return Value(checkedInteger(r.svarint(), target));
      case Kind::Float: {
        const double d = r.f64();
        if (!std::isfinite(d)) throw ConversionError("a floating point number that is not finite");
        return Value(d);
      }
      case Kind::XString: return Value(std::string(r.text()));
      case Kind::Raw: {
        std::string bytes(r.text());
        if (bytes.size() > static_cast<size_t>(target.length))
          throw ConversionError("too many bytes for a field of " + std::to_string(target.length));
        bytes.resize(static_cast<size_t>(target.length), '\0');
        return Value(std::move(bytes));
      }
      case Kind::String: return Value(std::string(r.text()));
      default: return parseValue(target, r.text(), TextForm::Plain);
    }
  }
  if ((target.kind == Kind::Raw || target.kind == Kind::XString) && form == WireForm::Text)
    return parseValue(target, r.text(), TextForm::Plain);  // hexadecimal text
  return parseValue(target, plainText(r, sent), TextForm::Plain);
}

Value readStruct(proto::Reader& r, const TypeDesc& target, int depth) {
  Value v = initialValue(target);
  const size_t n = r.count(2);
  for (size_t i = 0; i < n; ++i) {
    const std::string_view name = r.text();
    const WireType t = r.type();
    const int c = target.find(name);
    if (c < 0) {
      proto::skipBody(r, t, depth + 1);
      continue;
    }
    v.items()[static_cast<size_t>(c)] = readValue(r, t, *target.components[static_cast<size_t>(c)].type, depth + 1);
  }
  return v;
}

Value readTable(proto::Reader& r, const TypeDesc& target, int depth) {
  const TypeDesc& row = *target.row;
  const proto::TableHeader h = proto::readTableHeader(r);
  std::vector<int> map(h.columns.size(), -1);
  for (size_t c = 0; c < h.columns.size(); ++c) {
    if (row.kind == Kind::Struct)
      map[c] = row.find(h.columns[c].first);
    else if (c == 0)
      map[c] = 0;
  }
  Value out(Value::List{});
  auto& rows = out.items();
  rows.reserve(h.rows);
  const Value initial = initialValue(row);
  for (size_t i = 0; i < h.rows; ++i) {
    rows.push_back(initial);
    Value& v = rows.back();
    for (size_t c = 0; c < h.columns.size(); ++c) {
      const WireType t = h.columns[c].second;
      if (map[c] < 0) {
        proto::skipBody(r, t, depth + 1);
      } else if (row.kind == Kind::Struct) {
        v.items()[static_cast<size_t>(map[c])] =
            readValue(r, t, *row.components[static_cast<size_t>(map[c])].type, depth + 1);
      } else {
        v = readValue(r, t, row, depth + 1);
      }
    }
  }
  return out;
}

}  // namespace

WireType wireTypeOf(const TypeDesc& type) {
  switch (type.kind) {
    case Kind::Char: return WireType::Char;
    case Kind::Numc: return WireType::Num;
    case Kind::Date: return WireType::Date;
    case Kind::Time: return WireType::Time;
    case Kind::Raw: return WireType::Byte;
    case Kind::Packed: return WireType::Bcd;
    case Kind::Float: return WireType::Float;
    case Kind::Int: return WireType::Int;
    case Kind::Int1: return WireType::Int1;
    case Kind::Int2: return WireType::Int2;
    case Kind::String: return WireType::String;
    case Kind::XString: return WireType::XString;
    case Kind::Struct: return WireType::Structure;
    case Kind::Table: return WireType::Table;
    case Kind::Int8: return WireType::Int8;
    case Kind::DecF16: return WireType::DecF16;
    case Kind::DecF34: return WireType::DecF34;
    case Kind::UtcLong: return WireType::UtcLong;
  }
  return WireType::Char;
}

void writeValue(proto::Writer& w, const TypeDesc& type, const Value& value) {
  w.type(wireTypeOf(type));
  writeBody(w, type, value);
}

Value readValue(proto::Reader& r, WireType sent, const TypeDesc& target, int depth) {
  if (depth > proto::kMaxValueDepth) throw proto::ProtocolError("values nested too deeply");
  switch (target.kind) {
    case Kind::Struct:
      if (sent != WireType::Structure) {
        proto::skipBody(r, sent, depth);
        throw ConversionError(std::string("a ") + proto::wireTypeName(sent) + " does not fit structure " + target.name);
      }
      return readStruct(r, target, depth);
    case Kind::Table:
      if (sent != WireType::Table) {
        proto::skipBody(r, sent, depth);
        throw ConversionError(std::string("a ") + proto::wireTypeName(sent) + " does not fit a table");
      }
      return readTable(r, target, depth);
    default: return readScalar(r, sent, target);
  }
}

}  // namespace vsim::rfc
