#include "nwrfc_sdk/marshal.h"

#include <charconv>
#include <cstring>

#include "nwrfc_sdk/scalars.h"
#include "nwrfc_sdk/text.h"
#include "rfc_protocol/values.h"

namespace nwrfc {

namespace proto = vsim::proto;
using proto::WireForm;
using proto::WireType;

namespace {

// UTF-8 of SAP_UC units straight from a record; reuses one buffer per thread.
std::string& utf8Scratch() {
  thread_local std::string scratch;
  scratch.clear();
  return scratch;
}

void appendUtf8(std::string& out, const unsigned char* p, size_t units) {
  for (size_t i = 0; i < units; ++i) {
    char16_t c;
    std::memcpy(&c, p + 2 * i, 2);
    if (c < 0x80) {
      out += static_cast<char>(c);
      continue;
    }
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units) {
      char16_t d;
      std::memcpy(&d, p + 2 * (i + 1), 2);
      if (d >= 0xDC00 && d <= 0xDFFF) {
        out += toUtf8(std::u16string{c, d});
        ++i;
        continue;
      }
    }
    out += toUtf8(std::u16string_view(&c, 1));
  }
}

// Writes UTF-8 as SAP_UC units into `units` places of a record, padding with `pad`.
void putUtf8(unsigned char* p, size_t units, std::string_view utf8, char16_t pad) {
  size_t n = 0;
  size_t i = 0;
  for (; i < utf8.size() && n < units && static_cast<unsigned char>(utf8[i]) < 0x80; ++i, ++n) {
    const char16_t c = static_cast<char16_t>(utf8[i]);
    std::memcpy(p + 2 * n, &c, 2);
  }
  if (i < utf8.size() && n < units) {
    const std::u16string rest = toUtf16(utf8.substr(i));
    for (size_t k = 0; k < rest.size() && n < units; ++k, ++n) std::memcpy(p + 2 * n, &rest[k], 2);
  }
  for (; n < units; ++n) std::memcpy(p + 2 * n, &pad, 2);
}

WireType wireTypeOf(const Slot& s) {
  if (!supported(s.type)) fail(RFC_NOT_SUPPORTED, std::string("Type ") + typeName(s.type) + " cannot be sent");
  return static_cast<WireType>(s.type);
}

const std::string* bytesAside(const Record& r, const Slot& s) {
  Store::Item* it = r.store->item(r.at(s));
  return it ? std::get_if<std::string>(it) : nullptr;
}

void writeBody(proto::Writer& w, const Record& r, const Slot& s);

void writeStructure(proto::Writer& w, const Record& r) {
  const Layout& l = *r.layout;
  w.varint(l.slots.size());
  for (const Slot& s : l.slots) {
    w.text(s.utf8Name);
    writeSlot(w, r, s);
  }
}

void writeTable(proto::Writer& w, const Record& r, const Slot& s) {
  TableContainer* t = nullptr;
  if (Store::Item* it = r.store->item(r.at(s)))
    if (auto* p = std::get_if<std::unique_ptr<TableContainer>>(it)) t = p->get();
  const Layout& rows = s.sub->layout();
  std::vector<std::pair<std::string, WireType>> columns;
  columns.reserve(rows.slots.size());
  for (const Slot& c : rows.slots) columns.emplace_back(c.utf8Name, wireTypeOf(c));
  const size_t n = t ? t->rows() : 0;
  proto::writeTableHeader(w, columns, n);
  for (size_t i = 0; i < n; ++i) {
    const Record row = t->row(i);
    for (const Slot& c : rows.slots) writeBody(w, row, c);
  }
}

void writeBody(proto::Writer& w, const Record& r, const Slot& s) {
  const unsigned char* p = r.at(s);
  switch (s.type) {
    case RFCTYPE_CHAR: {
      size_t n = s.chars;
      while (n > 0 && p[2 * (n - 1)] == ' ' && p[2 * (n - 1) + 1] == 0) --n;
      std::string& out = utf8Scratch();
      appendUtf8(out, p, n);
      w.text(out);
      break;
    }
    case RFCTYPE_NUM:
    case RFCTYPE_DATE:
    case RFCTYPE_TIME: {
      std::string& out = utf8Scratch();
      appendUtf8(out, p, s.chars);
      w.text(out);
      break;
    }
    case RFCTYPE_BCD: {
      char buf[48];
      w.text(std::string_view(buf, packedToChars(p, s.length, s.decimals, buf)));
      break;
    }
    case RFCTYPE_BYTE: w.text(std::string_view(reinterpret_cast<const char*>(p), s.length)); break;
    case RFCTYPE_INT:
    case RFCTYPE_INT1:
    case RFCTYPE_INT2:
    case RFCTYPE_INT8: w.svarint(getInteger(r, s, RFCTYPE_INT8)); break;
    case RFCTYPE_FLOAT: {
      double d;
      std::memcpy(&d, p, sizeof d);
      w.f64(d);
      break;
    }
    case RFCTYPE_STRING: {
      Store::Item* it = r.store->item(p);
      const std::u16string* t = it ? std::get_if<std::u16string>(it) : nullptr;
      w.text(t ? toUtf8(*t) : std::string());
      break;
    }
    case RFCTYPE_XSTRING:
    case RFCTYPE_UTCLONG: {
      const std::string* b = bytesAside(r, s);
      w.text(b ? *b : std::string());
      break;
    }
    case RFCTYPE_DECF16:
    case RFCTYPE_DECF34: {
      const std::string* b = bytesAside(r, s);
      w.text(b ? *b : std::string("0"));
      break;
    }
    case RFCTYPE_STRUCTURE: writeStructure(w, {&s.sub->layout(), const_cast<unsigned char*>(p), r.store}); break;
    case RFCTYPE_TABLE: writeTable(w, r, s); break;
    default: wireTypeOf(s);  // refuses the type
  }
}

// The text of a body sent in another type than the slot's, for the setters' conversions.
std::u16string sentText(proto::Reader& in, WireType sent) {
  switch (proto::wireForm(sent)) {
    case WireForm::Integer: return toUtf16(std::to_string(in.svarint()));
    case WireForm::Real: {
      char buf[64];
      const double d = in.f64();
      auto [p, ec] = std::to_chars(buf, buf + sizeof buf, d);
      return toUtf16(std::string(buf, ec == std::errc() ? p : buf));
    }
    case WireForm::Bytes: {
      const std::string_view b = in.text();
      static const char digits[] = "0123456789ABCDEF";
      std::string hex;
      for (unsigned char c : b) {
        hex += digits[c >> 4];
        hex += digits[c & 15];
      }
      return toUtf16(hex);
    }
    default: return toUtf16(in.text());
  }
}

void readStructure(proto::Reader& in, const Record& r, int depth) {
  const size_t n = in.count(2);
  for (size_t i = 0; i < n; ++i) {
    const std::string_view name = in.text();
    const WireType t = in.type();
    const int k = r.layout->find(toUtf16(name));
    if (k < 0) {
      proto::skipBody(in, t, depth + 1);
      continue;
    }
    readSlot(in, t, r, r.layout->slots[static_cast<size_t>(k)], depth + 1);
  }
}

void readTable(proto::Reader& in, const Record& r, const Slot& s, int depth) {
  Store::Item* it = r.store->item(r.at(s));
  TableContainer* t = nullptr;
  if (it)
    if (auto* p = std::get_if<std::unique_ptr<TableContainer>>(it)) t = p->get();
  if (!t) {
    auto& item = r.store->put(r.at(s), std::make_unique<TableContainer>(s.sub, nullptr));
    t = std::get<std::unique_ptr<TableContainer>>(item).get();
  }
  t->clear();
  const proto::TableHeader h = proto::readTableHeader(in);
  const Layout& rows = t->layout();
  std::vector<int> map(h.columns.size(), -1);
  for (size_t c = 0; c < h.columns.size(); ++c) map[c] = rows.find(toUtf16(h.columns[c].first));
  t->append(h.rows);
  for (size_t i = 0; i < h.rows; ++i) {
    const Record row = t->row(i);
    for (size_t c = 0; c < h.columns.size(); ++c) {
      if (map[c] < 0)
        proto::skipBody(in, h.columns[c].second, depth + 1);
      else
        readSlot(in, h.columns[c].second, row, rows.slots[static_cast<size_t>(map[c])], depth + 1);
    }
  }
  t->moveTo(h.rows ? 0 : -1);
}

}  // namespace

void writeSlot(proto::Writer& w, const Record& r, const Slot& s) {
  w.type(wireTypeOf(s));
  writeBody(w, r, s);
}

void readSlot(proto::Reader& in, WireType sent, const Record& r, const Slot& s, int depth) {
  if (depth > proto::kMaxValueDepth) throw proto::ProtocolError("values nested too deeply");
  const auto type = static_cast<RFCTYPE>(sent);
  unsigned char* p = r.at(s);
  if (type != s.type) {
    const WireForm form = proto::wireForm(sent);
    if (form == WireForm::Structure || form == WireForm::Table || s.type == RFCTYPE_STRUCTURE ||
        s.type == RFCTYPE_TABLE) {
      proto::skipBody(in, sent, depth);
      fail(RFC_CONVERSION_FAILURE, std::string("A value of type ") + typeName(type) + " does not fit field " +
                                       s.utf8Name + " of type " + typeName(s.type));
    }
    if (form == WireForm::Integer) return setInteger(r, s, in.svarint(), type);
    if (form == WireForm::Real) return setFloat(r, s, in.f64());
    if (form == WireForm::Bytes && (s.type == RFCTYPE_BYTE || s.type == RFCTYPE_XSTRING)) {
      const std::string_view b = in.text();
      return setBytes(r, s, reinterpret_cast<const SAP_RAW*>(b.data()), static_cast<unsigned>(b.size()));
    }
    return setText(r, s, sentText(in, sent), TextSetter::String);
  }
  switch (s.type) {
    case RFCTYPE_CHAR: return putUtf8(p, s.chars, in.text(), u' ');
    case RFCTYPE_NUM:
    case RFCTYPE_DATE:
    case RFCTYPE_TIME: {
      const std::string_view t = in.text();
      if (t.size() == s.chars) return putUtf8(p, s.chars, t, u'0');
      return setText(r, s, toUtf16(t), TextSetter::Chars);
    }
    case RFCTYPE_BCD: {
      const std::string_view t = in.text();
      try {
        textToPacked(t, p, s.length, s.decimals);
      } catch (const std::exception&) {
        fail(RFC_CONVERSION_FAILURE, "Packed number " + std::string(t) + " does not fit field " + s.utf8Name);
      }
      return;
    }
    case RFCTYPE_BYTE: {
      const std::string_view b = in.text();
      std::memset(p, 0, s.length);
      std::memcpy(p, b.data(), std::min<size_t>(b.size(), s.length));
      return;
    }
    case RFCTYPE_INT:
    case RFCTYPE_INT1:
    case RFCTYPE_INT2:
    case RFCTYPE_INT8: return setInteger(r, s, in.svarint(), s.type);
    case RFCTYPE_FLOAT: return setFloat(r, s, in.f64());
    case RFCTYPE_STRING: {
      const std::string_view t = in.text();
      if (t.empty()) return r.store->release(p);
      r.store->put(p, toUtf16(t));
      return;
    }
    case RFCTYPE_XSTRING: {
      const std::string_view b = in.text();
      if (b.empty()) return r.store->release(p);
      r.store->put(p, std::string(b));
      return;
    }
    case RFCTYPE_DECF16:
    case RFCTYPE_DECF34:
    case RFCTYPE_UTCLONG: return setText(r, s, toUtf16(in.text()), TextSetter::String);
    case RFCTYPE_STRUCTURE: return readStructure(in, {&s.sub->layout(), p, r.store}, depth);
    case RFCTYPE_TABLE: return readTable(in, r, s, depth);
    default: proto::skipBody(in, sent, depth);
  }
}

void writeParameters(proto::Writer& w, FunctionContainer& f, Outgoing which) {
  const Record r = f.record();
  const auto& slots = r.layout->slots;
  std::vector<unsigned> chosen;
  for (unsigned i = 0; i < slots.size(); ++i) {
    if (!f.active(i)) continue;
    const RFC_DIRECTION d = slots[i].direction;
    bool take = false;
    switch (which) {
      case Outgoing::Request: take = d != RFC_EXPORT && f.supplied(i); break;
      case Outgoing::Answer: take = d != RFC_IMPORT; break;
      case Outgoing::TablesOnly: take = d == RFC_TABLES; break;
    }
    if (take) chosen.push_back(i);
  }
  w.varint(chosen.size());
  for (unsigned i : chosen) {
    w.text(slots[i].utf8Name);
    writeSlot(w, r, slots[i]);
  }
}

std::vector<std::string> inactiveParameters(FunctionContainer& f) {
  std::vector<std::string> out;
  const Record r = f.record();
  for (unsigned i = 0; i < r.layout->slots.size(); ++i)
    if (!f.active(i)) out.push_back(r.layout->slots[i].utf8Name);
  return out;
}

void readParameters(proto::Reader& in, FunctionContainer& f) {
  const Record r = f.record();
  const size_t n = in.count(3);
  for (size_t i = 0; i < n; ++i) {
    const std::string_view name = in.text();
    const WireType t = in.type();
    const int k = r.layout->find(toUtf16(name));
    if (k < 0) {
      proto::skipBody(in, t);
      continue;
    }
    readSlot(in, t, r, r.layout->slots[static_cast<size_t>(k)]);
  }
}

}  // namespace nwrfc
