#include "rfc_protocol/values.h"

#include "rfc_protocol/messages.h"

namespace vsim::proto {

namespace {

void checkDepth(int depth) {
  if (depth > kMaxValueDepth) throw ProtocolError("values nested too deeply");
}

}  // namespace

WireValue WireValue::ofText(WireType t, std::string s) {
  WireValue v;
  v.type = t;
  v.text = std::move(s);
  return v;
}

WireValue WireValue::ofInteger(WireType t, std::int64_t i) {
  WireValue v;
  v.type = t;
  v.integer = i;
  return v;
}

WireValue WireValue::ofReal(double d) {
  WireValue v;
  v.type = WireType::Float;
  v.real = d;
  return v;
}

const WireValue* WireValue::field(std::string_view name) const {
  for (const auto& [n, v] : fields)
    if (n == name) return &v;
  return nullptr;
}

bool WireValue::operator==(const WireValue& o) const {
  if (type != o.type) return false;
  switch (wireForm(type)) {
    case WireForm::Text:
    case WireForm::Bytes: return text == o.text;
    case WireForm::Integer: return integer == o.integer;
    case WireForm::Real: return real == o.real;
    case WireForm::Structure: return fields == o.fields;
    case WireForm::Table: return columns == o.columns && rows == o.rows;
  }
  return false;
}

void writeBody(Writer& w, const WireValue& v) {
  switch (wireForm(v.type)) {
    case WireForm::Text:
    case WireForm::Bytes: w.text(v.text); break;
    case WireForm::Integer: w.svarint(v.integer); break;
    case WireForm::Real: w.f64(v.real); break;
    case WireForm::Structure:
      w.varint(v.fields.size());
      for (const auto& [n, f] : v.fields) {
        w.text(n);
        writeValue(w, f);
      }
      break;
    case WireForm::Table:
      writeTableHeader(w, v.columns, v.rows.size());
      for (const auto& row : v.rows)
        for (size_t c = 0; c < v.columns.size(); ++c) {
          if (c < row.size() && row[c].type == v.columns[c].second) {
            writeBody(w, row[c]);
          } else {
            WireValue initial;
            initial.type = v.columns[c].second;
            writeBody(w, initial);
          }
        }
      break;
  }
}

void writeValue(Writer& w, const WireValue& v) {
  w.type(v.type);
  writeBody(w, v);
}

WireValue readBody(Reader& r, WireType type, int depth) {
  checkDepth(depth);
  WireValue v;
  v.type = type;
  switch (wireForm(type)) {
    case WireForm::Text:
    case WireForm::Bytes: v.text = std::string(r.text()); break;
    case WireForm::Integer: v.integer = r.svarint(); break;
    case WireForm::Real: v.real = r.f64(); break;
    case WireForm::Structure: {
      v.fields.resize(r.count(2));
      for (auto& [n, f] : v.fields) {
        n = readShortText(r);
        f = readValue(r, depth + 1);
      }
      break;
    }
    case WireForm::Table: {
      TableHeader h = readTableHeader(r);
      v.columns = std::move(h.columns);
      v.rows.resize(h.rows);
      for (auto& row : v.rows) {
        row.reserve(v.columns.size());
        for (const auto& c : v.columns) row.push_back(readBody(r, c.second, depth + 1));
      }
      break;
    }
  }
  return v;
}

WireValue readValue(Reader& r, int depth) {
  const WireType t = r.type();
  return readBody(r, t, depth);
}

void writeValues(Writer& w, const NamedValues& values) {
  w.varint(values.size());
  for (const auto& [n, v] : values) {
    w.text(n);
    writeValue(w, v);
  }
}

NamedValues readValues(Reader& r) {
  NamedValues values(r.count(3));
  for (auto& [n, v] : values) {
    n = readShortText(r);
    v = readValue(r);
  }
  return values;
}

void skipBody(Reader& r, WireType type, int depth) {
  checkDepth(depth);
  switch (wireForm(type)) {
    case WireForm::Text:
    case WireForm::Bytes: r.text(); break;
    case WireForm::Integer: r.svarint(); break;
    case WireForm::Real: r.f64(); break;
    case WireForm::Structure: {
      const size_t n = r.count(2);
      for (size_t i = 0; i < n; ++i) {
        r.text();
        skipBody(r, r.type(), depth + 1);
      }
      break;
    }
    case WireForm::Table: {
      const TableHeader h = readTableHeader(r);
      for (size_t i = 0; i < h.rows; ++i)
        for (const auto& c : h.columns) skipBody(r, c.second, depth + 1);
      break;
    }
  }
}

TableHeader readTableHeader(Reader& r) {
  TableHeader h;
  h.columns.resize(r.count(2));
  for (auto& [n, t] : h.columns) {
    n = readShortText(r);
    t = r.type();
  }
  const std::uint64_t rows = r.varint();
  // Every column body takes at least one byte.
  if (h.columns.empty() ? rows != 0 : rows > r.remaining() / h.columns.size())
    throw ProtocolError("row count larger than the message");
  h.rows = static_cast<size_t>(rows);
  return h;
}

void writeTableHeader(Writer& w, const std::vector<std::pair<std::string, WireType>>& columns, size_t rows) {
  w.varint(columns.size());
  for (const auto& [n, t] : columns) {
    w.text(n);
    w.type(t);
  }
  w.varint(rows);
}

}  // namespace vsim::proto
