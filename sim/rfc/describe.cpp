#include "rfc/describe.h"

#include <map>

#include "rfc/wire_values.h"

namespace vsim::rfc {

namespace {

std::uint32_t u32(int v) { return static_cast<std::uint32_t>(v < 0 ? 0 : v); }

std::uint32_t decimalsOf(const TypeDesc& t) {
  return (t.kind == Kind::Packed || t.kind == Kind::Float) ? u32(t.decimals) : 0;
}

// Collects type descriptions in dependency order; a type is described once.
class TypeList {
 public:
  // The reference (position + 1) of a structure type, or of a table's row structure.
  std::uint32_t add(const TypeDesc& type) {
    if (type.kind == Kind::Table) return addRow(*type.row);
    return addStruct(type);
  }
  std::vector<proto::TypeInfo> take() { return std::move(types_); }

 private:
  std::uint32_t addRow(const TypeDesc& row) {
    if (row.kind == Kind::Struct) return addStruct(row);
    // Rows of an elementary type are described as a structure with one unnamed field.
    if (auto it = known_.find(&row); it != known_.end()) return it->second;
    proto::TypeInfo t;
    t.nucLength = u32(row.size[B1]);
    t.ucLength = u32(row.size[B2]);
    t.fields.push_back(field("", row, {}));
    return remember(&row, std::move(t));
  }

  std::uint32_t addStruct(const TypeDesc& s) {
    if (auto it = known_.find(&s); it != known_.end()) return it->second;
    proto::TypeInfo t;
    t.name = s.name;
    t.nucLength = u32(s.size[B1]);
    t.ucLength = u32(s.size[B2]);
    for (const auto& c : s.components) t.fields.push_back(field(c.name, *c.type, c.offset));
    return remember(&s, std::move(t));
  }

  proto::FieldInfo field(const std::string& name, const TypeDesc& type, const std::array<int, 3>& offset) {
    proto::FieldInfo f;
    f.name = name;
    f.type = wireTypeOf(type);
    f.nucLength = u32(type.size[B1]);
    f.ucLength = u32(type.size[B2]);
    f.nucOffset = u32(offset[B1]);
    f.ucOffset = u32(offset[B2]);
    f.decimals = decimalsOf(type);
    if (!type.isScalar()) f.typeRef = add(type);
    return f;
  }

  std::uint32_t remember(const TypeDesc* key, proto::TypeInfo t) {
    types_.push_back(std::move(t));
    const auto ref = static_cast<std::uint32_t>(types_.size());
    known_[key] = ref;
    return ref;
  }

  std::vector<proto::TypeInfo> types_;
  std::map<const TypeDesc*, std::uint32_t> known_;
};

proto::Direction directionOf(Direction d) {
  switch (d) {
    case Direction::Importing: return proto::Direction::Import;
    case Direction::Exporting: return proto::Direction::Export;
    case Direction::Changing: return proto::Direction::Changing;
    case Direction::Tables: return proto::Direction::Tables;
  }
  return proto::Direction::Import;
}

}  // namespace

proto::FunctionInfo describeFunction(const FunctionModule& fm) {
  proto::FunctionInfo f;
  f.name = fm.name;
  TypeList types;
  for (const Parameter& p : fm.params) {
    const TypeDesc& t = *p.type;
    proto::ParameterInfo d;
    d.name = p.name;
    d.type = wireTypeOf(t);
    d.direction = directionOf(p.direction);
    const TypeDesc& layout = t.kind == Kind::Table ? *t.row : t;
    d.nucLength = u32(layout.size[B1]);
    d.ucLength = u32(layout.size[B2]);
    d.decimals = decimalsOf(t);
    if (!t.isScalar()) d.typeRef = types.add(t);
    d.defaultValue = p.defaultValue;
    d.text = p.text;
    d.optional = p.optional;
    f.parameters.push_back(std::move(d));
  }
  f.types = types.take();
  for (const auto& e : fm.exceptions) f.exceptions.push_back({e.name, e.text});
  return f;
}

std::vector<proto::TypeInfo> describeType(const TypeDesc& type) {
  TypeList types;
  types.add(type);
  return types.take();
}

}  // namespace vsim::rfc
