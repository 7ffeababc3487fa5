// Where a value stands in a call, for the texts of failures: the parameter
// group and name at the top, then fields and rows down to the value. A path
// is a chain of frames on the converter's stack, each pointing at its parent,
// so following it costs nothing until a failure asks for its text.
//
//   const FieldPath param = FieldPath::Parameter(u"TABLES", u"ET_ROWS").Named(u"ET_ROWS");
//   const FieldPath row = FieldPath::Row(&param, 3);
//   const FieldPath cell = FieldPath::Field(&row, u"CARRID");
//   cell.Text()           -> "ET_ROWS[3]-CARRID"
//   cell.Group()          -> "TABLES", cell.ParameterName() -> "ET_ROWS"
//
// The texts are views: a frame lives no longer than the names it points at.
#pragma once

#include <string>
#include <string_view>

class FieldPath {
 public:
  FieldPath() = default;

  // The top of a path: a parameter of a group ("IMPORTING", "TABLES", ...).
  static FieldPath Parameter(const char16_t* group, std::u16string_view parameter) {
    FieldPath p;
    p.m_group = group;
    p.m_parameter = parameter;
    return p;
  }
  // A field below parent (a structure or a parameter).
  static FieldPath Field(const FieldPath* parent, std::u16string_view name) {
    FieldPath p;
    p.m_parent = parent;
    p.m_field = name;
    return p;
  }
  // A row of parent's table, counted from 1.
  static FieldPath Row(const FieldPath* parent, long row) {
    FieldPath p;
    p.m_parent = parent;
    p.m_row = row;
    return p;
  }

  // This frame with its field named; the parent stays.
  FieldPath Named(std::u16string_view name) const {
    FieldPath p = *this;
    p.m_field = name;
    return p;
  }

  // The frame at the top of the chain.
  const FieldPath& Top() const {
    const FieldPath* top = this;
    while (top->m_parent) top = top->m_parent;
    return *top;
  }
  // Group and parameter of the top frame; null and empty below a bare field.
  const char16_t* Group() const { return Top().m_group; }
  std::u16string_view ParameterName() const { return Top().m_parameter; }

  // Field names joined by "-", each row as "[n]": "ES_HEAD-ITEMS[2]-PRICE".
  std::u16string Text() const;

 private:
  const char16_t* m_group = nullptr;
  std::u16string_view m_parameter;
  const FieldPath* m_parent = nullptr;
  std::u16string_view m_field;
  long m_row = 0;  // a row of the parent's table, 1-based; 0: not a row
};
