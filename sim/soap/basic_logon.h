// HTTP Basic logon data of a request, as the fronts of the HTTP port read it.
#pragma once

#include <string>

namespace vsim::soap {

struct BasicLogon {
  enum class State { Absent, Readable, Unreadable };
  State state = State::Absent;
  std::string user;  // upper case
  std::string password;
};

// Reads an Authorization header: Absent when it is not "Basic ...",
// Unreadable when its Base64 or the colon is missing.
BasicLogon readBasicLogon(const std::string& authorization);

}  // namespace vsim::soap
