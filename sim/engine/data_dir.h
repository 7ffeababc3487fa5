// Extensions of the system from a data directory of JSON files (format in docs/sim.md).
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace vsim {

class System;

class DataDirError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct DataDirSummary {
  std::vector<std::string> files;
  int elements = 0, structures = 0, tableTypes = 0, tables = 0, rows = 0, users = 0, clients = 0, functions = 0;
};

// Loads every *.json file of `dir` in name order. Throws DataDirError naming the file and the
// place in it for anything it cannot take.
DataDirSummary loadDataDir(System& system, const std::string& dir);
// Loads one JSON document given as text; `origin` names it in failures.
DataDirSummary loadDataText(System& system, const std::string& text, const std::string& origin);

}  // namespace vsim
