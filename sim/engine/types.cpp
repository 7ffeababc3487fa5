#include "engine/types.h"

#include <stdexcept>

namespace vsim {

namespace {

constexpr int kCharBytes[3] = {1, 2, 4};

// Size and alignment of a scalar or a reference in one layout.
void scalarLayout(TypeDesc& t) {
  for (int l = 0; l < 3; ++l) {
    const int cs = kCharBytes[l];
    int size = 0, align = 1;
    switch (t.kind) {
      case Kind::Char:
      case Kind::Numc:
        size = t.length * cs;
        align = cs;
        break;
      case Kind::Date:
        size = 8 * cs;
        align = cs;
        break;
      case Kind::Time:
        size = 6 * cs;
        align = cs;
        break;
      case Kind::Raw:
      case Kind::Packed:
        size = t.length;
        align = 1;
        break;
      case Kind::Float:
        size = 8;
        align = 8;
        break;
      case Kind::Int:
        size = 4;
        align = 4;
        break;
      case Kind::Int2:
        size = 2;
        align = 2;
        break;
      case Kind::Int8:
      case Kind::UtcLong:
      case Kind::DecF16:
        size = 8;
        align = 8;
        break;
      case Kind::DecF34:
        size = 16;
        align = 16;
        break;
      case Kind::Int1:
        size = 1;
        align = 1;
        break;
      case Kind::String:
      case Kind::XString:
      case Kind::Table:
        size = 8;
        align = 8;
        break;  // references
      case Kind::Struct: break;
    }
    t.size[l] = size;
    t.align[l] = align;
  }
}

int roundUp(int n, int a) { return a <= 1 ? n : (n + a - 1) / a * a; }

}  // namespace

int TypeDesc::find(std::string_view component) const {
  auto it = index.find(std::string(component));
  return it == index.end() ? -1 : it->second;
}

char TypeDesc::exid() const {
  switch (kind) {
    case Kind::Char: return 'C';
    case Kind::Numc: return 'N';
    case Kind::Date: return 'D';
    case Kind::Time: return 'T';
    case Kind::Raw: return 'X';
    case Kind::Packed: return 'P';
    case Kind::Float: return 'F';
    case Kind::Int: return 'I';
    case Kind::Int1: return 'b';
    case Kind::Int2: return 's';
    case Kind::String: return 'g';
    case Kind::XString: return 'y';
    case Kind::Struct: return deep ? 'v' : 'u';
    case Kind::Table: return 'h';
    case Kind::Int8: return '8';
    case Kind::DecF16: return 'a';
    case Kind::DecF34: return 'e';
    case Kind::UtcLong: return 'p';
  }
  return ' ';
}

int TypeDesc::ddicLength() const {
  switch (kind) {
    case Kind::Char:
    case Kind::Numc:
    case Kind::Raw: return length;
    case Kind::Date: return 8;
    case Kind::Time: return 6;
    case Kind::Packed: return 2 * length - 1;
    case Kind::Float: return 16;
    case Kind::Int: return 10;
    case Kind::Int1: return 3;
    case Kind::Int2: return 5;
    case Kind::Int8: return 19;
    case Kind::DecF16: return 16;
    case Kind::DecF34: return 34;
    case Kind::UtcLong: return 27;
    default: return 0;
  }
}

const char* kindName(Kind kind) {
  switch (kind) {
    case Kind::Char: return "CHAR";
    case Kind::Numc: return "NUMC";
    case Kind::Date: return "DATS";
    case Kind::Time: return "TIMS";
    case Kind::Raw: return "RAW";
    case Kind::Packed: return "DEC";
    case Kind::Float: return "FLTP";
    case Kind::Int: return "INT4";
    case Kind::Int1: return "INT1";
    case Kind::Int2: return "INT2";
    case Kind::String: return "STRING";
    case Kind::XString: return "RAWSTRING";
    case Kind::Struct: return "STRUCTURE";
    case Kind::Table: return "TABLE";
    case Kind::Int8: return "INT8";
    case Kind::DecF16: return "DECFLOAT16";
    case Kind::DecF34: return "DECFLOAT34";
    case Kind::UtcLong: return "UTCLONG";
  }
  return "?";
}

TypePtr makeScalar(Kind kind, int length, int decimals, std::string name, std::string text) {
  if (kind == Kind::Struct || kind == Kind::Table) throw std::invalid_argument("makeScalar: not a scalar kind");
  if ((kind == Kind::Char || kind == Kind::Numc || kind == Kind::Raw) && (length < 1 || length > 262143))
    throw std::invalid_argument("makeScalar: length out of range");
  if (kind == Kind::Packed && (length < 1 || length > 16 || decimals < 0 || decimals > 2 * length - 1))
    throw std::invalid_argument("makeScalar: packed length or decimals out of range");
  auto t = std::make_shared<TypeDesc>();
  t->name = std::move(name);
  t->kind = kind;
  t->length = (kind == Kind::Char || kind == Kind::Numc || kind == Kind::Raw || kind == Kind::Packed) ? length : 0;
  t->decimals = (kind == Kind::Packed) ? decimals : (kind == Kind::Float ? 16 : 0);
  t->text = std::move(text);
  t->deep = (kind == Kind::String || kind == Kind::XString);
  scalarLayout(*t);
  return t;
}

TypePtr makeStruct(std::string name, std::vector<Component> components, std::string text) {
  auto t = std::make_shared<TypeDesc>();
  t->name = std::move(name);
  t->kind = Kind::Struct;
  t->text = std::move(text);
  t->components = std::move(components);
  for (int l = 0; l < 3; ++l) {
    int offset = 0, align = 1;
    for (auto& c : t->components) {
      if (!c.type) throw std::invalid_argument("makeStruct: component " + c.name + " has no type");
      const int a = c.type->align[l];
      offset = roundUp(offset, a);
      c.offset[l] = offset;
      offset += c.type->size[l];
      if (a > align) align = a;
    }
    t->align[l] = align;
    t->size[l] = roundUp(offset, align);
  }
  for (size_t i = 0; i < t->components.size(); ++i) {
    const auto& c = t->components[i];
    if (!t->index.emplace(c.name, static_cast<int>(i)).second)
      throw std::invalid_argument("makeStruct: duplicate component " + c.name + " in " + t->name);
    if (c.type->deep || c.type->kind == Kind::Table) t->deep = true;
    if (c.type->kind == Kind::Struct) t->nested = true;
  }
  return t;
}

TypePtr makeTable(std::string name, TypePtr row, std::string text) {
  if (!row) throw std::invalid_argument("makeTable: no row type");
  auto t = std::make_shared<TypeDesc>();
  t->name = std::move(name);
  t->kind = Kind::Table;
  t->text = std::move(text);
  t->row = std::move(row);
  t->deep = true;
  scalarLayout(*t);
  return t;
}

TypePtr renamed(const TypePtr& type, std::string name, std::string text) {
  auto t = std::make_shared<TypeDesc>(*type);
  t->name = std::move(name);
  t->text = std::move(text);
  return t;
}

const std::string& Value::text() const {
  if (auto p = std::get_if<std::string>(&v_)) return *p;
  static const std::string empty;
  return empty;
}

std::string& Value::text() {
  if (!std::holds_alternative<std::string>(v_)) v_ = std::string();
  return std::get<std::string>(v_);
}

std::int64_t Value::integer() const {
  if (auto p = std::get_if<std::int64_t>(&v_)) return *p;
  if (auto p = std::get_if<double>(&v_)) return static_cast<std::int64_t>(*p);
  return 0;
}

double Value::real() const {
  if (auto p = std::get_if<double>(&v_)) return *p;
  if (auto p = std::get_if<std::int64_t>(&v_)) return static_cast<double>(*p);
  return 0.0;
}

const Value::List& Value::items() const {
  if (auto p = std::get_if<List>(&v_)) return *p;
  static const List empty;
  return empty;
}

Value::List& Value::items() {
  if (!std::holds_alternative<List>(v_)) v_ = List();
  return std::get<List>(v_);
}

Value& Value::operator[](std::string_view component) {
  if (!type_) throw std::logic_error("component access on a value without a structure type");
  const int i = type_->find(component);
  if (i < 0) throw std::logic_error("no component " + std::string(component) + " in " + type_->name);
  return items().at(static_cast<size_t>(i));
}

const Value& Value::at(const TypeDesc& type, std::string_view component) const {
  const int i = type.find(component);
  if (i < 0) throw std::logic_error("no component " + std::string(component) + " in " + type.name);
  return items().at(static_cast<size_t>(i));
}

Value initialValue(const TypeDesc& type) {
  switch (type.kind) {
    case Kind::Char:
    case Kind::String:
    case Kind::XString: return Value(std::string());
    case Kind::Numc: return Value(std::string(static_cast<size_t>(type.length), '0'));
    case Kind::Date: return Value(std::string(8, '0'));
    case Kind::Time: return Value(std::string(6, '0'));
    case Kind::Raw: return Value(std::string(static_cast<size_t>(type.length), '\0'));
    case Kind::Packed:
      return Value(type.decimals > 0 ? "0." + std::string(static_cast<size_t>(type.decimals), '0') : std::string("0"));
    case Kind::Float: return Value(0.0);
    case Kind::Int:
    case Kind::Int1:
    case Kind::Int2:
    case Kind::Int8: return Value(std::int64_t{0});
    case Kind::DecF16:
    case Kind::DecF34: return Value(std::string("0"));
    case Kind::UtcLong: return Value(std::string());
    case Kind::Struct: {
      Value::List items;
      items.reserve(type.components.size());
      for (const auto& c : type.components) items.push_back(initialValue(*c.type));
      Value v(std::move(items));
      v.bind(&type);
      return v;
    }
    case Kind::Table: return Value(Value::List());
  }
  return Value();
}

bool isInitial(const TypeDesc& type, const Value& value) {
  switch (type.kind) {
    case Kind::Struct: {
      const auto& items = value.items();
      for (size_t i = 0; i < type.components.size() && i < items.size(); ++i)
        if (!isInitial(*type.components[i].type, items[i])) return false;
      return true;
    }
    case Kind::Table: return value.items().empty();
    default: return value == initialValue(type);
  }
}

}  // namespace vsim
