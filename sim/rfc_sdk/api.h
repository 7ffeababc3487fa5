// Shared by the files that define the exported entry points: the generated declarations (so a
// definition that differs from the list does not compile), handles and guards.
#pragma once

#include "rfc/rfc_functions.h"
#include "rfc_sdk/connection.h"
#include "rfc_sdk/errors.h"
#include "rfc_sdk/itab.h"
#include "rfc_sdk/parameters.h"
#include "rfc_sdk/text.h"

namespace rfcsdk {

inline void requireArgument(const void* p, const char* what) {
  if (!p) fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, std::string("Argument ") + what + " is null");
}

// The name of a function or structure: upper-case UTF-8, refused when empty.
inline std::string objectName(const SAP_UC* name, const char* what) {
  const std::string n = upperAscii(utf8Of(trimRight(terminated(name))));
  if (n.empty()) fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, std::string("The name of the ") + what + " is empty");
  return n;
}

inline std::shared_ptr<Connection> client(RFC_HANDLE h) {
  auto c = connectionOf(h);
  if (c->role() != Connection::Role::Client)
    fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "Handle " + std::to_string(h) + " belongs to a server");
  return c;
}

inline std::shared_ptr<Connection> server(RFC_HANDLE h) {
  auto c = connectionOf(h);
  if (c->role() != Connection::Role::Server)
    fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "Handle " + std::to_string(h) + " is not a server's");
  return c;
}

// An ITAB_H given by ItCreate.
inline InternalTable* table(ITAB_H h) { return static_cast<InternalTable*>(h); }

// Reads the message after an ERROR or EXCEPTION kind byte.
vsim::proto::ErrorInfo readErrorBody(vsim::proto::Reader& r);
// Sends the close of a handle's connection and tells the server context about it.
void releaseConnection(Connection& c);

}  // namespace rfcsdk
