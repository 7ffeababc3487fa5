#include "rfc_sdk/values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "rfc_protocol/values.h"
#include "rfc_sdk/bcd.h"
#include "rfc_sdk/errors.h"
#include "rfc_sdk/text.h"

namespace rfcsdk {

namespace proto = vsim::proto;
using proto::WireForm;
using proto::WireType;

namespace {

[[noreturn]] void cannotConvert(const std::string& what) {
  throw Failure(RFC_CONVERSION, {RFC_ERROR_PROGRAM, "CONVT_NO_NUMBER", what});
}

std::u16string_view units(const unsigned char* p, unsigned bytes) {
  return bounded(reinterpret_cast<const SAP_UC*>(p), bytes / 2);
}

SAP_UC* unitsOut(unsigned char* p) { return reinterpret_cast<SAP_UC*>(p); }

template <class T>
T load(const unsigned char* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

template <class T>
void store(unsigned char* p, T v) {
  std::memcpy(p, &v, sizeof v);
}

std::string digitsText(const unsigned char* p, unsigned bytes) {
  std::string s = utf8Of(units(p, bytes));
  s.resize(bytes / 2, '0');
  return s;
}

std::string packedText(const Slot& s, const unsigned char* p) {
  if (std::all_of(p, p + s.length, [](unsigned char b) { return b == 0; })) return "0";
  std::string text;
  if (unpackDecimal(p, static_cast<int>(s.length), s.decimals < 0 ? 0 : s.decimals, text) != kBcdOk)
    cannotConvert("The bytes of a packed number are not a valid packed number");
  return text;
}

std::string hex(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char b : bytes) {
    out += kDigits[b >> 4];
    out += kDigits[b & 0xF];
  }
  return out;
}

std::string realText(double v) {
  char buf[64];
  const auto r = std::to_chars(buf, buf + sizeof buf, v);
  return std::string(buf, r.ptr);
}

// A body read as one of the scalar forms.
struct Scalar {
  WireForm form = WireForm::Text;
  std::string_view text;  // Text and Bytes
  std::int64_t integer = 0;
  double real = 0;
  std::string owned;  // a text made from a number
  std::string_view asText() {
    if (form == WireForm::Integer) owned = std::to_string(integer), text = owned;
    if (form == WireForm::Real) owned = realText(real), text = owned;
    return text;
  }
};

Scalar readScalar(proto::Reader& r, WireType type) {
  Scalar s;
  s.form = proto::wireForm(type);
  switch (s.form) {
    case WireForm::Text:
    case WireForm::Bytes: s.text = r.text(); break;
    case WireForm::Integer: s.integer = r.svarint(); break;
    case WireForm::Real: s.real = r.f64(); break;
    default: break;
  }
  return s;
}

std::int64_t integerOf(Scalar& v) {
  if (v.form == WireForm::Integer) return v.integer;
  if (v.form == WireForm::Real) {
    if (!std::isfinite(v.real) || std::fabs(v.real) > 9.2e18) cannotConvert("A number is out of range");
    return std::llround(v.real);
  }
  std::string_view t = trimRight(v.text);
  while (!t.empty() && t.front() == ' ') t.remove_prefix(1);
  if (t.empty()) return 0;
  bool negative = false;
  if (t.back() == '-') negative = true, t.remove_suffix(1);
  std::int64_t n = 0;
  if (!t.empty() && t.front() == '+') t.remove_prefix(1);
  const auto res = std::from_chars(t.data(), t.data() + t.size(), n);
  if (res.ec != std::errc() || res.ptr != t.data() + t.size())
    cannotConvert("'" + std::string(v.text) + "' is not a number");
  return negative ? -n : n;
}

double realOf(Scalar& v) {
  if (v.form == WireForm::Real) return v.real;
  if (v.form == WireForm::Integer) return static_cast<double>(v.integer);
  const std::string t(trimRight(v.text));
  if (t.empty()) return 0;
  char* end = nullptr;
  const double d = std::strtod(t.c_str(), &end);
  if (end == t.c_str() || *end) cannotConvert("'" + t + "' is not a number");
  return d;
}

template <class T>
T ranged(std::int64_t n) {
  if (n < std::numeric_limits<T>::min() || n > std::numeric_limits<T>::max())
    cannotConvert("The number " + std::to_string(n) + " does not fit its field");
  return static_cast<T>(n);
}

void putDigits(unsigned char* p, unsigned units_, std::string_view text, bool rightAligned) {
  std::u16string u = utf16Of(text);
  if (u.size() > units_) {
    if (!rightAligned) cannotConvert("'" + std::string(text) + "' is longer than its field");
    u.erase(0, u.size() - units_);
  }
  const size_t pad = units_ - u.size();
  SAP_UC* out = unitsOut(p);
  if (rightAligned) {
    std::fill(out, out + pad, u'0');
    std::copy(u.begin(), u.end(), out + pad);
  } else {
    std::copy(u.begin(), u.end(), out);
    std::fill(out + u.size(), out + units_, u'0');
  }
}

RFC_STRING newString(std::string_view utf8) {
  auto* s = static_cast<unsigned char*>(std::malloc(utf8.size() + 1));
  if (!s) throw std::bad_alloc();
  std::memcpy(s, utf8.data(), utf8.size());
  s[utf8.size()] = 0;
  return s;
}

void storeScalar(const Slot& s, unsigned char* p, Scalar v) {
  switch (s.type) {
    case RFCTYPE_CHAR:
      putPadded(unitsOut(p), s.length / 2, utf16Of(v.form == WireForm::Bytes ? hex(v.text) : std::string(v.asText())));
      return;
    case RFCTYPE_NUM: {
      std::string_view t = v.asText();
      if (v.form == WireForm::Integer && v.integer < 0) cannotConvert("A NUMC field takes no negative number");
      if (t.find_first_not_of("0123456789 ") != std::string_view::npos)
        cannotConvert("'" + std::string(t) + "' is not a NUMC value");
      putDigits(p, s.length / 2, trimRight(t), true);
      return;
    }
    case RFCTYPE_DATE:
    case RFCTYPE_TIME: putDigits(p, s.length / 2, v.asText(), false); return;
    case RFCTYPE_BCD: {
      int decimals = s.decimals;
      std::string text(v.asText());
      if (text.find_first_not_of(' ') == std::string::npos) text = "0";
      const int rc = packDecimal(text, decimals, p, static_cast<int>(s.length));
      if (rc == kBcdTooShort) cannotConvert("The number " + text + " does not fit its packed field");
      if (rc != kBcdOk) cannotConvert("'" + text + "' is not a number");
      return;
    }
    case RFCTYPE_BYTE: {
      if (v.form != WireForm::Bytes) cannotConvert("A byte field takes bytes only");
      const size_t n = std::min<size_t>(s.length, v.text.size());
      std::memcpy(p, v.text.data(), n);
      std::memset(p + n, 0, s.length - n);
      return;
    }
    case RFCTYPE_INT: store(p, ranged<std::int32_t>(integerOf(v))); return;
    case RFCTYPE_INT2: store(p, ranged<std::int16_t>(integerOf(v))); return;
    case RFCTYPE_INT1: store(p, ranged<std::uint8_t>(integerOf(v))); return;
    case RFCTYPE_FLOAT: store(p, realOf(v)); return;
    case RFCTYPE_STRING: {
      const std::string text = v.form == WireForm::Bytes ? hex(v.text) : std::string(v.asText());
      store(p, newString(text));
      return;
    }
    case RFCTYPE_XSTRING: {
      if (v.form != WireForm::Bytes) cannotConvert("An XSTRING takes bytes only");
      auto* x = reinterpret_cast<RFC_XSTRING*>(p);
      resizeXString(*x, v.text.size());
      if (!v.text.empty()) std::memcpy(x->content, v.text.data(), v.text.size());
      return;
    }
    default: cannotConvert("Type " + std::to_string(s.type) + " cannot take a value");
  }
}

const Field* findField(const Structure& s, std::string_view name) {
  for (const Field& f : s.fields)
    if (f.name == name) return &f;
  for (const Field& f : s.fields)
    if (sameIgnoringCase(f.name, name)) return &f;
  return nullptr;
}

}  // namespace

void resizeXString(RFC_XSTRING& x, size_t n) {
  if (n == 0) {
    std::free(x.content);
    x.content = nullptr;
    x.length = 0;
    return;
  }
  if (n > static_cast<size_t>(std::numeric_limits<RFC_INT>::max())) throw std::bad_alloc();
  auto* grown = static_cast<RFC_BYTE*>(std::realloc(x.content, n));
  if (!grown) throw std::bad_alloc();
  x.content = grown;
  x.length = static_cast<RFC_INT>(n);
}

WireType wireTypeOf(const Slot& s) {
  switch (s.type) {
    case RFCTYPE_CHAR: return WireType::Char;
    case RFCTYPE_NUM: return WireType::Num;
    case RFCTYPE_DATE: return WireType::Date;
    case RFCTYPE_TIME: return WireType::Time;
    case RFCTYPE_BCD: return WireType::Bcd;
    case RFCTYPE_BYTE: return WireType::Byte;
    case RFCTYPE_INT: return WireType::Int;
    case RFCTYPE_INT2: return WireType::Int2;
    case RFCTYPE_INT1: return WireType::Int1;
    case RFCTYPE_FLOAT: return WireType::Float;
    case RFCTYPE_STRING: return WireType::String;
    case RFCTYPE_XSTRING: return WireType::XString;
    default: return WireType::Structure;
  }
}

void writeValue(proto::Writer& w, const Slot& s, const unsigned char* p) {
  w.type(wireTypeOf(s));
  writeBody(w, s, p);
}

void writeBody(proto::Writer& w, const Slot& s, const unsigned char* p) {
  if (s.structure) {
    w.varint(s.structure->fields.size());
    for (const Field& f : s.structure->fields) {
      w.text(f.name);
      writeValue(w, f.slot, p + f.offset);
    }
    return;
  }
  switch (s.type) {
    case RFCTYPE_CHAR: w.text(trimRight(utf8Of(units(p, s.length)))); return;
    case RFCTYPE_NUM:
    case RFCTYPE_DATE:
    case RFCTYPE_TIME: w.text(digitsText(p, s.length)); return;
    case RFCTYPE_BCD: w.text(packedText(s, p)); return;
    case RFCTYPE_BYTE: w.text(std::string_view(reinterpret_cast<const char*>(p), s.length)); return;
    case RFCTYPE_INT: w.svarint(load<std::int32_t>(p)); return;
    case RFCTYPE_INT2: w.svarint(load<std::int16_t>(p)); return;
    case RFCTYPE_INT1: w.svarint(load<std::uint8_t>(p)); return;
    case RFCTYPE_FLOAT: w.f64(load<double>(p)); return;
    case RFCTYPE_STRING: {
      const auto* text = reinterpret_cast<const char*>(load<RFC_STRING>(p));
      w.text(text ? std::string_view(text) : std::string_view());
      return;
    }
    case RFCTYPE_XSTRING: {
      const auto x = load<RFC_XSTRING>(p);
      if (x.length < 0 || (x.length > 0 && !x.content)) cannotConvert("An XSTRING has a negative length or no content");
      w.text(std::string_view(reinterpret_cast<const char*>(x.content), static_cast<size_t>(x.length)));
      return;
    }
    default: cannotConvert("Type " + std::to_string(s.type) + " cannot be sent");
  }
}

void writeTable(proto::Writer& w, const Slot& row, InternalTable* t) {
  w.type(WireType::Table);
  std::vector<std::pair<std::string, WireType>> columns;
  if (row.structure)
    for (const Field& f : row.structure->fields) columns.emplace_back(f.name, wireTypeOf(f.slot));
  else
    columns.emplace_back("", wireTypeOf(row));
  const unsigned rows = t ? t->fill() : 0;
  proto::writeTableHeader(w, columns, rows);
  for (unsigned i = 1; i <= rows; ++i) writeBody(w, row, t->row(i));
}

void initialize(const Slot& s, unsigned char* p) {
  if (s.structure) {
    std::memset(p, 0, s.structure->length);
    for (const Field& f : s.structure->fields) initialize(f.slot, p + f.offset);
    return;
  }
  switch (s.type) {
    case RFCTYPE_CHAR: std::fill_n(unitsOut(p), s.length / 2, u' '); return;
    case RFCTYPE_NUM:
    case RFCTYPE_DATE:
    case RFCTYPE_TIME: std::fill_n(unitsOut(p), s.length / 2, u'0'); return;
    case RFCTYPE_BCD:
      std::memset(p, 0, s.length);
      p[s.length - 1] = 0x0C;
      return;
    case RFCTYPE_STRING: store<RFC_STRING>(p, nullptr); return;
    case RFCTYPE_XSTRING: store(p, RFC_XSTRING{0, nullptr}); return;
    default: std::memset(p, 0, s.length); return;
  }
}

void readInto(proto::Reader& r, WireType type, const Slot& s, unsigned char* p, int depth) {
  if (depth > proto::kMaxValueDepth) throw proto::ProtocolError("values nested too deeply");
  const WireForm form = proto::wireForm(type);
  if (s.structure) {
    if (form != WireForm::Structure) {
      proto::skipBody(r, type, depth);
      cannotConvert("A structure " + s.structure->name + " cannot take a scalar value");
    }
    const size_t n = r.count(2);
    for (size_t i = 0; i < n; ++i) {
      const std::string_view name = r.text();
      const WireType t = r.type();
      if (const Field* f = findField(*s.structure, name))
        readInto(r, t, f->slot, p + f->offset, depth + 1);
      else
        proto::skipBody(r, t, depth + 1);
    }
    return;
  }
  if (form == WireForm::Structure || form == WireForm::Table) {
    proto::skipBody(r, type, depth);
    cannotConvert(std::string("A value of type ") + proto::wireTypeName(type) + " does not fit a scalar field");
  }
  storeScalar(s, p, readScalar(r, type));
}

void readTable(proto::Reader& r, WireType type, const Slot& row, InternalTable& t) {
  if (type != WireType::Table) {
    proto::skipBody(r, type, 0);
    cannotConvert(std::string("A table cannot take a value of type ") + proto::wireTypeName(type));
  }
  const proto::TableHeader h = proto::readTableHeader(r);
  struct Column {
    const Slot* slot = nullptr;
    unsigned offset = 0;
    WireType type;
  };
  std::vector<Column> columns;
  for (const auto& [name, ctype] : h.columns) {
    Column c{nullptr, 0, ctype};
    if (!row.structure) {
      if (columns.empty()) c.slot = &row;
    } else if (const Field* f = findField(*row.structure, name)) {
      c.slot = &f->slot;
      c.offset = f->offset;
    }
    columns.push_back(c);
  }
  t.clear();
  t.reserve(h.rows);
  for (size_t i = 0; i < h.rows; ++i) {
    unsigned char* p = t.append();
    initialize(row, p);
    for (const Column& c : columns) {
      if (c.slot)
        readInto(r, c.type, *c.slot, p + c.offset, 1);
      else
        proto::skipBody(r, c.type, 1);
    }
  }
}

}  // namespace rfcsdk
