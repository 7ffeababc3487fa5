// The ABAP dictionary of the simulated system: data elements, structures, table types.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "engine/types.h"

namespace vsim {

class Dictionary {
 public:
  struct Field {
    Field(std::string n, std::string t, std::string x = {})
        : name(std::move(n)), type(std::move(t)), text(std::move(x)) {}
    std::string name;
    std::string type;  // a type reference, see resolve()
    std::string text;  // empty: the text of the referenced element
  };

  // A dictionary type by name, or null.
  TypePtr find(std::string_view name) const;
  // A type reference: a dictionary name; TABLE-FIELD for a component of a structure ("SY" stands
  // for "SYST"); or a built-in type: C<n>, N<n>, X<n>, P<n>[.<d>], D, T, F, I, INT1, INT2, STRING, XSTRING.
  // Throws std::invalid_argument for an unknown reference.
  TypePtr resolve(std::string_view ref) const;

  void add(TypePtr type);  // the type's name must be new
  TypePtr addElement(const std::string& name, Kind kind, int length, int decimals, const std::string& text);
  TypePtr addElement(const std::string& name, const std::string& typeRef, const std::string& text);
  TypePtr addStructure(const std::string& name, const std::vector<Field>& fields, const std::string& text);
  TypePtr addTableType(const std::string& name, const std::string& rowRef, const std::string& text);

  std::vector<std::string> names() const;

  static TypePtr builtin(std::string_view ref);  // null when ref is no built-in type

 private:
  mutable std::mutex mutex_;
  std::map<std::string, TypePtr, std::less<>> types_;
};

}  // namespace vsim
