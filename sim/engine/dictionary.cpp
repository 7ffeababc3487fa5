#include "engine/dictionary.h"

#include <charconv>
#include <stdexcept>

namespace vsim {

namespace {

bool parseInt(std::string_view s, int& out) {
  if (s.empty()) return false;
  auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return ec == std::errc() && p == s.data() + s.size();
}

}  // namespace

TypePtr Dictionary::builtin(std::string_view ref) {
  if (ref == "D") return makeScalar(Kind::Date);
  if (ref == "T") return makeScalar(Kind::Time);
  if (ref == "F") return makeScalar(Kind::Float);
  if (ref == "I") return makeScalar(Kind::Int);
  if (ref == "INT1" || ref == "b") return makeScalar(Kind::Int1);
  if (ref == "INT2" || ref == "s") return makeScalar(Kind::Int2);
  if (ref == "STRING" || ref == "g") return makeScalar(Kind::String);
  if (ref == "XSTRING" || ref == "y") return makeScalar(Kind::XString);
  if (ref == "INT8" || ref == "8") return makeScalar(Kind::Int8);
  if (ref == "DECFLOAT16" || ref == "a") return makeScalar(Kind::DecF16);
  if (ref == "DECFLOAT34" || ref == "e") return makeScalar(Kind::DecF34);
  if (ref == "UTCLONG" || ref == "p") return makeScalar(Kind::UtcLong);
  if (ref.size() < 2) return nullptr;
  const char k = ref[0];
  int length = 0, decimals = 0;
  if (k == 'C' || k == 'N' || k == 'X') {
    if (!parseInt(ref.substr(1), length)) return nullptr;
    return makeScalar(k == 'C' ? Kind::Char : (k == 'N' ? Kind::Numc : Kind::Raw), length);
  }
  if (k == 'P') {
    std::string_view rest = ref.substr(1);
    const size_t dot = rest.find('.');
    if (!parseInt(rest.substr(0, dot), length)) return nullptr;
    if (dot != std::string_view::npos && !parseInt(rest.substr(dot + 1), decimals)) return nullptr;
    return makeScalar(Kind::Packed, length, decimals);
  }
  return nullptr;
}

TypePtr Dictionary::find(std::string_view name) const {
  std::lock_guard lock(mutex_);
  auto it = types_.find(name);
  return it == types_.end() ? nullptr : it->second;
}

TypePtr Dictionary::resolve(std::string_view ref) const {
  if (auto t = builtin(ref)) return t;
  if (auto t = find(ref)) return t;
  const size_t dash = ref.find('-');
  if (dash != std::string_view::npos && dash > 0) {
    std::string table(ref.substr(0, dash));
    if (table == "SY") table = "SYST";
    if (auto s = find(table); s && s->kind == Kind::Struct) {
      const int i = s->find(ref.substr(dash + 1));
      if (i >= 0) return s->components[static_cast<size_t>(i)].type;
    }
  }
  throw std::invalid_argument("unknown type " + std::string(ref));
}

void Dictionary::add(TypePtr type) {
  if (!type || type->name.empty()) throw std::invalid_argument("a dictionary type needs a name");
  std::lock_guard lock(mutex_);
  if (!types_.emplace(type->name, type).second)
    throw std::invalid_argument("dictionary type " + type->name + " exists already");
}

TypePtr Dictionary::addElement(const std::string& name, Kind kind, int length, int decimals, const std::string& text) {
  auto t = makeScalar(kind, length, decimals, name, text);
  add(t);
  return t;
}

TypePtr Dictionary::addElement(const std::string& name, const std::string& typeRef, const std::string& text) {
  TypePtr base = resolve(typeRef);
  if (!base->isScalar()) throw std::invalid_argument("data element " + name + " must have a scalar type");
  auto t = renamed(base, name, text);
  add(t);
  return t;
}

TypePtr Dictionary::addStructure(const std::string& name, const std::vector<Field>& fields, const std::string& text) {
  std::vector<Component> components;
  components.reserve(fields.size());
  for (const auto& f : fields) {
    Component c;
    c.name = f.name;
    c.type = resolve(f.type);
    c.element = c.type->name;
    c.text = f.text.empty() ? c.type->text : f.text;
    components.push_back(std::move(c));
  }
  auto t = makeStruct(name, std::move(components), text);
  add(t);
  return t;
}

TypePtr Dictionary::addTableType(const std::string& name, const std::string& rowRef, const std::string& text) {
  auto t = makeTable(name, resolve(rowRef), text);
  add(t);
  return t;
}

std::vector<std::string> Dictionary::names() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  out.reserve(types_.size());
  for (const auto& [n, t] : types_) out.push_back(n);
  return out;
}

}  // namespace vsim
