// The WHERE condition of an ABAP SELECT as RFC_READ_TABLE takes it in OPTIONS:
// comparisons (= EQ <> NE < LT > GT <= LE >= GE), [NOT] LIKE with ESCAPE, [NOT] IN (...),
// [NOT] BETWEEN ... AND ..., IS [NOT] NULL, IS [NOT] INITIAL, AND, OR, NOT and parentheses.
// Operands are literals in quotes or back quotes, numbers, or other columns.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "engine/types.h"

namespace vsim {

class WhereError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class WhereClause {
 public:
  // Compiles a condition against a row structure; an empty text matches every row.
  // Throws WhereError for a condition that does not parse or names an unknown column.
  static WhereClause compile(std::string_view text, const TypeDesc& row);
  bool matches(const Value& row) const;
  bool matchesAll() const { return nodes_.empty(); }

  enum class Op { And, Or, Not, Eq, Ne, Lt, Gt, Le, Ge, Like, In, Between, IsNull, IsInitial };
  struct Operand {
    int field = -1;       // a column, or
    Value literal;        // a literal converted to the left column's type
    std::string pattern;  // LIKE pattern
  };
  struct Node {
    Op op = Op::And;
    int left = -1, right = -1;  // children of And, Or, Not (left only)
    int field = -1;             // left column of a predicate
    std::vector<Operand> operands;
    char escape = 0;
  };

 private:
  bool eval(int node, const Value& row) const;

  const TypeDesc* row_ = nullptr;
  std::vector<Node> nodes_;
  int root_ = -1;
  friend class WhereParser;
};

// LIKE matching: % any sequence, _ one character, with an optional escape character.
bool likeMatch(std::string_view text, std::string_view pattern, char escape);

}  // namespace vsim
