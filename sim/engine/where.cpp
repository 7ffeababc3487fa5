#include "engine/where.h"

#include <cctype>

#include "engine/convert.h"

namespace vsim {

namespace {

enum class Tok { End, Ident, String, Number, LParen, RParen, Comma, Cmp };

struct Token {
  Tok kind = Tok::End;
  std::string text;  // identifiers upper case; literal contents; operator spelling
  size_t pos = 0;
};

std::vector<Token> tokenize(std::string_view s) {
  std::vector<Token> out;
  size_t i = 0;
  auto isIdentStart = [](char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || c == '/'; };
  auto isIdent = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '/' || c == '~'; };
  while (i < s.size()) {
    const char c = s[i];
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      ++i;
      continue;
    }
    Token t;
    t.pos = i;
    if (c == '\'' || c == '`') {
      const char q = c;
      std::string lit;
      ++i;
      bool closed = false;
      while (i < s.size()) {
        if (s[i] == q) {
          if (i + 1 < s.size() && s[i + 1] == q) {
            lit += q;
            i += 2;
            continue;
          }
          ++i;
          closed = true;
          break;
        }
        lit += s[i++];
      }
      if (!closed) throw WhereError("literal at position " + std::to_string(t.pos + 1) + " is not closed");
      t.kind = Tok::String;
      t.text = std::move(lit);
    } else if (c == '(' || c == ')' || c == ',') {
      t.kind = c == '(' ? Tok::LParen : (c == ')' ? Tok::RParen : Tok::Comma);
      t.text = std::string(1, c);
      ++i;
    } else if (c == '<' || c == '>' || c == '=') {
      std::string op(1, c);
      if (i + 1 < s.size() && (s[i + 1] == '=' || s[i + 1] == '>' || s[i + 1] == '<')) {
        const std::string two = op + s[i + 1];
        if (two == "<=" || two == ">=" || two == "<>" || two == "><" || two == "=<" || two == "=>") op = two;
      }
      i += op.size();
      t.kind = Tok::Cmp;
      t.text = op;
    } else if (std::isdigit(static_cast<unsigned char>(c)) ||
               ((c == '-' || c == '+') && i + 1 < s.size() && std::isdigit(static_cast<unsigned char>(s[i + 1])))) {
      size_t j = i + 1;
      while (j < s.size() && (std::isdigit(static_cast<unsigned char>(s[j])) || s[j] == '.')) ++j;
      t.kind = Tok::Number;
      t.text = std::string(s.substr(i, j - i));
      i = j;
    } else if (isIdentStart(c)) {
      size_t j = i + 1;
      while (j < s.size() && isIdent(s[j])) ++j;
      t.kind = Tok::Ident;
      t.text = toUpper(s.substr(i, j - i));
      i = j;
    } else {
      throw WhereError("unexpected character '" + std::string(1, c) + "' at position " + std::to_string(i + 1));
    }
    out.push_back(std::move(t));
  }
  Token end;
  end.pos = s.size();
  out.push_back(end);
  return out;
}

std::u32string decode(std::string_view s) {
  std::u32string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    const auto c = static_cast<unsigned char>(s[i]);
    int extra = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : 0;
    if (i + static_cast<size_t>(extra) >= s.size() + (extra ? 0 : 1)) extra = 0;
    char32_t cp = extra ? (c & (0x3F >> extra)) : c;
    for (int k = 1; k <= extra; ++k)
      cp = (cp << 6) | (static_cast<unsigned char>(s[i + static_cast<size_t>(k)]) & 0x3F);
    out += cp;
    i += static_cast<size_t>(extra) + 1;
  }
  return out;
}

}  // namespace

bool likeMatch(std::string_view text, std::string_view pattern, char escape) {
  const std::u32string t = decode(text), p = decode(pattern);
  // Pattern items: literal characters, '_' (any one), '%' (any run).
  struct Item {
    char32_t ch;
    int kind;  // 0 literal, 1 one, 2 any
  };
  std::vector<Item> items;
  for (size_t i = 0; i < p.size(); ++i) {
    if (escape && p[i] == static_cast<unsigned char>(escape) && i + 1 < p.size()) {
      items.push_back({p[++i], 0});
    } else if (p[i] == U'%') {
      items.push_back({0, 2});
    } else if (p[i] == U'_') {
      items.push_back({0, 1});
    } else {
      items.push_back({p[i], 0});
    }
  }
  // Greedy matching with one back-track point: linear in practice, O(n*m) at worst.
  size_t ti = 0, pi = 0, star = std::string::npos, mark = 0;
  while (ti < t.size()) {
    if (pi < items.size() && items[pi].kind != 2 && (items[pi].kind == 1 || items[pi].ch == t[ti])) {
      ++ti;
      ++pi;
    } else if (pi < items.size() && items[pi].kind == 2) {
      star = pi++;
      mark = ti;
    } else if (star != std::string::npos) {
      pi = star + 1;
      ti = ++mark;
    } else {
      return false;
    }
  }
  while (pi < items.size() && items[pi].kind == 2) ++pi;
  return pi == items.size();
}

class WhereParser {
 public:
  WhereParser(std::vector<Token> tokens, WhereClause& out) : toks_(std::move(tokens)), w_(out) {}

  int parseOr(int depth) {
    if (depth > 64) throw WhereError("condition nested too deeply");
    int left = parseAnd(depth);
    while (keyword("OR")) {
      const int right = parseAnd(depth);
      left = add(WhereClause::Op::Or, left, right);
    }
    return left;
  }

  void expectEnd() {
    if (peek().kind != Tok::End) throw error("unexpected '" + peek().text + "'");
  }

 private:
  const Token& peek(size_t ahead = 0) const { return toks_[std::min(pos_ + ahead, toks_.size() - 1)]; }
  Token next() {
    Token t = peek();
    if (pos_ < toks_.size() - 1) ++pos_;
    return t;
  }
  bool keyword(const char* kw) {
    if (peek().kind == Tok::Ident && peek().text == kw) {
      next();
      return true;
    }
    return false;
  }
  WhereError error(const std::string& what) const {
    return WhereError(what + " at position " + std::to_string(peek().pos + 1));
  }
  int add(WhereClause::Op op, int left = -1, int right = -1) {
    WhereClause::Node n;
    n.op = op;
    n.left = left;
    n.right = right;
    w_.nodes_.push_back(std::move(n));
    return static_cast<int>(w_.nodes_.size()) - 1;
  }

  int parseAnd(int depth) {
    int left = parseNot(depth);
    while (keyword("AND")) {
      const int right = parseNot(depth);
      left = add(WhereClause::Op::And, left, right);
    }
    return left;
  }

  int parseNot(int depth) {
    if (keyword("NOT")) return add(WhereClause::Op::Not, parseNot(depth + 1));
    if (peek().kind == Tok::LParen) {
      next();
      const int inner = parseOr(depth + 1);
      if (next().kind != Tok::RParen) throw error("')' expected");
      return inner;
    }
    return parsePredicate();
  }

  int column(const Token& t) const {
    std::string name = t.text;
    if (auto tilde = name.rfind('~'); tilde != std::string::npos) name = name.substr(tilde + 1);
    const int i = w_.row_->find(name);
    return i;
  }

  const TypeDesc& fieldType(int field) const { return *w_.row_->components[static_cast<size_t>(field)].type; }

  // A literal or a column as the right side of a predicate on `field`.
  WhereClause::Operand operand(int field) {
    Token t = next();
    WhereClause::Operand o;
    if (t.kind == Tok::Ident) {
      o.field = column(t);
      if (o.field < 0) throw WhereError("unknown column " + t.text + " at position " + std::to_string(t.pos + 1));
      return o;
    }
    if (t.kind != Tok::String && t.kind != Tok::Number)
      throw WhereError("operand expected at position " + std::to_string(t.pos + 1));
    const TypeDesc& ft = fieldType(field);
    if (ft.kind == Kind::Char || ft.kind == Kind::String) {
      o.literal = Value(std::string(trimRight(t.text)));
      return o;
    }
    try {
      o.literal = parseValue(ft, t.text, TextForm::Plain);
    } catch (const ConversionError& e) {
      throw WhereError(std::string(e.what()) + " at position " + std::to_string(t.pos + 1));
    }
    return o;
  }

  int parsePredicate() {
    Token f = next();
    if (f.kind != Tok::Ident) throw WhereError("column expected at position " + std::to_string(f.pos + 1));
    const int field = column(f);
    if (field < 0) throw WhereError("unknown column " + f.text + " at position " + std::to_string(f.pos + 1));
    const bool negated = keyword("NOT");
    int node;
    if (keyword("LIKE")) {
      const TypeDesc& ft = fieldType(field);
      if (!ft.isCharLike() && ft.kind != Kind::String) throw error("LIKE needs a character-like column");
      Token p = next();
      if (p.kind != Tok::String) throw WhereError("pattern expected at position " + std::to_string(p.pos + 1));
      node = add(WhereClause::Op::Like);
      WhereClause::Operand o;
      o.pattern = std::string(trimRight(p.text));
      if (keyword("ESCAPE")) {
        Token e = next();
        if (e.kind != Tok::String || e.text.size() != 1) throw WhereError("one escape character expected");
        w_.nodes_[static_cast<size_t>(node)].escape = e.text[0];
      }
      w_.nodes_[static_cast<size_t>(node)].operands.push_back(std::move(o));
    } else if (keyword("IN")) {
      if (next().kind != Tok::LParen) throw error("'(' expected after IN");
      std::vector<WhereClause::Operand> ops;
      do {
        ops.push_back(operand(field));
      } while (peek().kind == Tok::Comma && (next(), true));
      if (next().kind != Tok::RParen) throw error("')' expected");
      node = add(WhereClause::Op::In);
      w_.nodes_[static_cast<size_t>(node)].operands = std::move(ops);
    } else if (keyword("BETWEEN")) {
      auto lo = operand(field);
      if (!keyword("AND")) throw error("AND expected in BETWEEN");
      auto hi = operand(field);
      node = add(WhereClause::Op::Between);
      w_.nodes_[static_cast<size_t>(node)].operands = {std::move(lo), std::move(hi)};
    } else if (!negated && keyword("IS")) {
      const bool isNot = keyword("NOT");
      if (keyword("NULL"))
        node = add(WhereClause::Op::IsNull);
      else if (keyword("INITIAL"))
        node = add(WhereClause::Op::IsInitial);
      else
        throw error("NULL or INITIAL expected");
      w_.nodes_[static_cast<size_t>(node)].field = field;
      return isNot ? add(WhereClause::Op::Not, node) : node;
    } else if (!negated) {
      Token op = next();
      WhereClause::Op o;
      const std::string& s = op.text;
      if (op.kind == Tok::Cmp || op.kind == Tok::Ident) {
        if (s == "=" || s == "EQ")
          o = WhereClause::Op::Eq;
        else if (s == "<>" || s == "><" || s == "NE")
          o = WhereClause::Op::Ne;
        else if (s == "<" || s == "LT")
          o = WhereClause::Op::Lt;
        else if (s == ">" || s == "GT")
          o = WhereClause::Op::Gt;
        else if (s == "<=" || s == "=<" || s == "LE")
          o = WhereClause::Op::Le;
        else if (s == ">=" || s == "=>" || s == "GE")
          o = WhereClause::Op::Ge;
        else
          throw WhereError("comparison operator expected at position " + std::to_string(op.pos + 1));
      } else {
        throw WhereError("comparison operator expected at position " + std::to_string(op.pos + 1));
      }
      node = add(o);
      w_.nodes_[static_cast<size_t>(node)].operands.push_back(operand(field));
    } else {
      throw error("LIKE, IN or BETWEEN expected after NOT");
    }
    w_.nodes_[static_cast<size_t>(node)].field = field;
    return negated ? add(WhereClause::Op::Not, node) : node;
  }

  std::vector<Token> toks_;
  size_t pos_ = 0;
  WhereClause& w_;
};

WhereClause WhereClause::compile(std::string_view text, const TypeDesc& row) {
  WhereClause w;
  w.row_ = &row;
  std::vector<Token> tokens = tokenize(text);
  if (tokens.size() == 1) return w;
  WhereParser p(std::move(tokens), w);
  w.root_ = p.parseOr(0);
  p.expectEnd();
  return w;
}

bool WhereClause::matches(const Value& row) const { return nodes_.empty() || eval(root_, row); }

bool WhereClause::eval(int index, const Value& row) const {
  const Node& n = nodes_[static_cast<size_t>(index)];
  switch (n.op) {
    case Op::And: return eval(n.left, row) && eval(n.right, row);
    case Op::Or: return eval(n.left, row) || eval(n.right, row);
    case Op::Not: return !eval(n.left, row);
    default: break;
  }
  const auto& items = row.items();
  const TypeDesc& ft = *row_->components[static_cast<size_t>(n.field)].type;
  const Value& v = items[static_cast<size_t>(n.field)];
  auto cmp = [&](const Operand& o) {
    if (o.field < 0) return compareValues(ft, v, o.literal);
    const TypeDesc& ot = *row_->components[static_cast<size_t>(o.field)].type;
    const Value& ov = items[static_cast<size_t>(o.field)];
    if (ot.kind == ft.kind) return compareValues(ft, v, ov);
    if (ft.isNumeric() && ot.isNumeric()) {
      const double a = ft.kind == Kind::Packed ? std::stod(v.text()) : v.real();
      const double b = ot.kind == Kind::Packed ? std::stod(ov.text()) : ov.real();
      return a < b ? -1 : (b < a ? 1 : 0);
    }
    const std::string a = formatPlain(ft, v), b = formatPlain(ot, ov);
    return a < b ? -1 : (b < a ? 1 : 0);
  };
  switch (n.op) {
    case Op::Eq: return cmp(n.operands[0]) == 0;
    case Op::Ne: return cmp(n.operands[0]) != 0;
    case Op::Lt: return cmp(n.operands[0]) < 0;
    case Op::Gt: return cmp(n.operands[0]) > 0;
    case Op::Le: return cmp(n.operands[0]) <= 0;
    case Op::Ge: return cmp(n.operands[0]) >= 0;
    case Op::Like: return likeMatch(trimRight(v.text()), n.operands[0].pattern, n.escape);
    case Op::In:
      for (const auto& o : n.operands)
        if (cmp(o) == 0) return true;
      return false;
    case Op::Between: return cmp(n.operands[0]) >= 0 && cmp(n.operands[1]) <= 0;
    case Op::IsNull: return false;
    case Op::IsInitial: return isInitial(ft, v);
    default: return false;
  }
}

}  // namespace vsim
