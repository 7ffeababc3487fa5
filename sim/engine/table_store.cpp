#include "engine/table_store.h"

#include <algorithm>
#include <stdexcept>

#include "engine/convert.h"

namespace vsim {

void DbTable::sortByKey() {
  const TypeDesc& t = *type;
  const size_t keys = std::min(static_cast<size_t>(keyFields), t.components.size());
  std::stable_sort(rows.begin(), rows.end(), [&](const Value& a, const Value& b) {
    for (size_t i = 0; i < keys; ++i) {
      const int c = compareValues(*t.components[i].type, a.items()[i], b.items()[i]);
      if (c) return c < 0;
    }
    return false;
  });
}

Value DbTable::makeRow(const std::map<std::string, std::string>& fields) const {
  Value row = initialValue(*type);
  for (const auto& [name, text] : fields) {
    const int i = type->find(name);
    if (i < 0) throw std::invalid_argument("table " + this->name + " has no field " + name);
    const auto& c = type->components[static_cast<size_t>(i)];
    try {
      row.items()[static_cast<size_t>(i)] = parseValue(*c.type, text, TextForm::Plain);
    } catch (const ConversionError& e) {
      throw std::invalid_argument("table " + this->name + " field " + name + ": " + e.what());
    }
  }
  return row;
}

DbTable& TableStore::add(DbTable table) {
  if (!table.type || table.type->kind != Kind::Struct)
    throw std::invalid_argument("table " + table.name + " needs a row structure");
  if (table.type->deep) throw std::invalid_argument("table " + table.name + " must be flat");
  auto name = table.name;
  auto [it, fresh] = tables_.emplace(name, std::make_unique<DbTable>(std::move(table)));
  if (!fresh) throw std::invalid_argument("table " + name + " exists already");
  return *it->second;
}

const DbTable* TableStore::find(std::string_view name) const {
  auto it = tables_.find(name);
  return it == tables_.end() ? nullptr : it->second.get();
}

DbTable* TableStore::findMutable(std::string_view name) {
  auto it = tables_.find(name);
  return it == tables_.end() ? nullptr : it->second.get();
}

std::vector<std::string> TableStore::names() const {
  std::vector<std::string> out;
  for (const auto& [n, t] : tables_) out.push_back(n);
  return out;
}

}  // namespace vsim
