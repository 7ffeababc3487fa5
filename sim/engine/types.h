// ABAP type descriptions and values of the simulated system.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

namespace vsim {

enum class Kind : std::uint8_t {
  Char,     // C
  Numc,     // N
  Date,     // D
  Time,     // T
  Raw,      // X
  Packed,   // P
  Float,    // F
  Int,      // I
  Int1,     // b
  Int2,     // s
  String,   // g
  XString,  // y
  Struct,   // u (flat) or v (deep)
  Table,    // h
  Int8,     // 8
  DecF16,   // a: decimal floating point, 16 digits
  DecF34,   // e: decimal floating point, 34 digits
  UtcLong,  // p: time stamp, UTC, 100 ns
};

// Layouts of a structure by bytes per character: one-byte, two-byte, four-byte.
enum Layout : int { B1 = 0, B2 = 1, B4 = 2 };

struct TypeDesc;
using TypePtr = std::shared_ptr<const TypeDesc>;

struct Component {
  std::string name;
  TypePtr type;
  std::string element;  // data element the component refers to, if any
  std::string text;     // short text
  std::array<int, 3> offset{};
};

struct TypeDesc {
  std::string name;  // dictionary name; empty for an inline type
  Kind kind = Kind::Char;
  int length = 0;  // characters for C and N, bytes for X and P
  int decimals = 0;
  std::string text;
  std::vector<Component> components;  // Struct
  TypePtr row;                        // Table
  std::array<int, 3> size{};
  std::array<int, 3> align{};
  bool deep = false;    // holds a string or a table, at any depth
  bool nested = false;  // holds a structure component

  bool isScalar() const { return kind != Kind::Struct && kind != Kind::Table; }
  bool isCharLike() const {
    return kind == Kind::Char || kind == Kind::Numc || kind == Kind::Date || kind == Kind::Time;
  }
  bool isNumeric() const {
    return kind == Kind::Packed || kind == Kind::Float || kind == Kind::Int || kind == Kind::Int1 ||
           kind == Kind::Int2 || kind == Kind::Int8 || kind == Kind::DecF16 || kind == Kind::DecF34;
  }
  // Index of a component by name, -1 when absent.
  int find(std::string_view component) const;
  // Dictionary type letter (EXID): C N D T X P F I b s g y u v h 8 a e p.
  char exid() const;
  // Length as the dictionary states it (characters, digits for P, output width for numbers).
  int ddicLength() const;

  std::unordered_map<std::string, int> index;
};

TypePtr makeScalar(Kind kind, int length = 0, int decimals = 0, std::string name = {}, std::string text = {});
TypePtr makeStruct(std::string name, std::vector<Component> components, std::string text = {});
TypePtr makeTable(std::string name, TypePtr row, std::string text = {});
// A copy of a type under another dictionary name and text (a data element over a domain).
TypePtr renamed(const TypePtr& type, std::string name, std::string text);

const char* kindName(Kind kind);

// A value of any ABAP type. Scalars: C, N, D, T, P, g hold text (C without trailing blanks,
// N zero-padded, D YYYYMMDD, T HHMMSS, P a canonical decimal with all its decimals);
// X and y hold raw bytes as text; F a double; I, b, s, 8 an integer; a and e a decimal text
// without exponent ("0" initially); p "YYYY-MM-DDTHH:MM:SS.FFFFFFF" or empty (initial). Structures hold one value
// per component, tables one structure value (or scalar value) per row.
class Value {
 public:
  using List = std::vector<Value>;

  Value() = default;
  explicit Value(std::string text) : v_(std::move(text)) {}
  explicit Value(const char* text) : v_(std::string(text)) {}
  explicit Value(std::int64_t i) : v_(i) {}
  explicit Value(int i) : v_(static_cast<std::int64_t>(i)) {}
  explicit Value(double f) : v_(f) {}
  explicit Value(List items) : v_(std::move(items)) {}

  bool isText() const { return std::holds_alternative<std::string>(v_); }
  bool isInt() const { return std::holds_alternative<std::int64_t>(v_); }
  bool isFloat() const { return std::holds_alternative<double>(v_); }
  bool isList() const { return std::holds_alternative<List>(v_); }

  const std::string& text() const;
  std::string& text();
  std::int64_t integer() const;
  double real() const;
  const List& items() const;
  List& items();

  // Component of a structure value by name.
  Value& operator[](std::string_view component);
  const Value& at(const TypeDesc& type, std::string_view component) const;

  void bind(const TypeDesc* type) { type_ = type; }
  const TypeDesc* type() const { return type_; }

  bool operator==(const Value& other) const { return v_ == other.v_; }

 private:
  std::variant<std::monostate, std::string, std::int64_t, double, List> v_;
  const TypeDesc* type_ = nullptr;  // set on structure values for access by name
};

// The initial value of a type.
Value initialValue(const TypeDesc& type);
bool isInitial(const TypeDesc& type, const Value& value);

}  // namespace vsim
