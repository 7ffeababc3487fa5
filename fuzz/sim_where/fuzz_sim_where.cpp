// A WHERE condition on arbitrary text, against every table of the system:
// it compiles or is refused with a WhereError, and a compiled one decides
// every row. NOT of a condition without NULLs decides each row the other
// way. The text also serves as a LIKE pattern (up to its first blank) for
// the rest of it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "engine/system.h"
#include "engine/where.h"

namespace {

vsim::System& Sys() {
  static vsim::System system;
  return system;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (const std::string& name : Sys().tables().names()) {
    const vsim::DbTable& table = *Sys().tables().find(name);
    try {
      const vsim::WhereClause where = vsim::WhereClause::compile(text, *table.type);
      const bool plain = text.find("NULL") == std::string::npos && !text.empty();
      const vsim::WhereClause negated = plain ? vsim::WhereClause::compile("NOT ( " + text + " )", *table.type) : where;
      for (const auto& row : table.rows) {
        const bool match = where.matches(row);
        if (plain && negated.matches(row) == match) {
          std::fprintf(stderr, "%s: NOT ( %s ) decides a row as the condition does\n", name.c_str(), text.c_str());
          std::abort();
        }
      }
    } catch (const vsim::WhereError&) {}
  }
  const size_t blank = text.find(' ');
  const std::string_view pattern = std::string_view(text).substr(0, blank);
  const std::string_view subject =
      blank == std::string::npos ? std::string_view() : std::string_view(text).substr(blank + 1);
  vsim::likeMatch(subject, pattern, 0);
  vsim::likeMatch(subject, pattern, '#');
  return 0;
}
