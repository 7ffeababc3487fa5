// Database tables of the simulated system. Filled at start-up, read-only afterwards.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/types.h"

namespace vsim {

struct DbTable {
  std::string name;
  TypePtr type;                  // the row structure; the dictionary holds it under the table's name
  int keyFields = 1;             // the first components form the primary key
  bool clientDependent = false;  // first component MANDT: a logon sees only its client's rows
  bool restricted = false;       // RFC_READ_TABLE refuses it (NOT_AUTHORIZED)
  std::vector<Value> rows;       // structure values, in key order after sortByKey()

  void sortByKey();
  // A row from plain texts by component name; components left out are initial.
  Value makeRow(const std::map<std::string, std::string>& fields) const;
};

class TableStore {
 public:
  DbTable& add(DbTable table);  // the name must be new
  const DbTable* find(std::string_view name) const;
  DbTable* findMutable(std::string_view name);
  std::vector<std::string> names() const;

 private:
  std::map<std::string, std::unique_ptr<DbTable>, std::less<>> tables_;
};

}  // namespace vsim
