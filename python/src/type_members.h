// What the type information says of an object's members: names, DISPIDs,
// kinds and arguments. Read once per interface and shared.
#pragma once

#include "common.h"

#include <memory>
#include <unordered_map>
#include <vector>

namespace vpy {

struct Member {
  std::string name;  // as the type information spells it
  DISPID dispid = DISPID_UNKNOWN;
  bool method = false;
  bool get = false;
  bool put = false;
  bool putref = false;
  bool hidden = false;          // hidden or restricted: left out of dir()
  short getRequired = 0;        // arguments the get cannot do without
  short methodParams = 0;       // parameters of the method, its [retval] excluded
  std::vector<bool> methodOut;  // per parameter: [out], to be returned
  bool methodReturns = false;   // the method has a [retval]
};

struct TypeMembers {
  std::string typeName;  // "ISoapSession"
  std::vector<Member> members;
  std::unordered_map<std::string, size_t> byName;  // upper case
  std::unordered_map<DISPID, size_t> byId;

  const Member* Find(std::string_view name) const;
  const Member* FindId(DISPID id) const;
};

// The members of the object's type information (its first ITypeInfo), or null
// when it offers none. Call with the GIL held: the cache relies on it.
std::shared_ptr<const TypeMembers> MembersOf(IDispatch* dispatch);

// The event names of a dispatch interface's type information, by DISPID.
std::unordered_map<DISPID, std::string> EventNames(ITypeInfo* info);

}  // namespace vpy
