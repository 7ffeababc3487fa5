// Shared by the files that define the exported entry points: the generated declarations (so a
// definition that differs from the list does not compile) and the lookups of handles.
#pragma once

#include "nwrfc/nwrfc_functions.h"
#include "nwrfc_sdk/connection.h"
#include "nwrfc_sdk/containers.h"
#include "nwrfc_sdk/errors.h"
#include "nwrfc_sdk/text.h"
#include "nwrfc_sdk/trace.h"

namespace nwrfc {

// An open connection; a closed one is an invalid handle, as for the SDK.
inline Connection& openConnection(RFC_CONNECTION_HANDLE h) {
  Connection& c = resolve<Connection>(h, "RFC_CONNECTION_HANDLE");
  if (!c.isOpen()) fail(RFC_INVALID_HANDLE, "An invalid handle 'RFC_CONNECTION_HANDLE' was passed to the API call");
  return c;
}

inline Container& container(DATA_CONTAINER_HANDLE h) { return resolve<Container>(h, "DATA_CONTAINER_HANDLE"); }
inline TableContainer& table(RFC_TABLE_HANDLE h) { return resolve<TableContainer>(h, "RFC_TABLE_HANDLE"); }
inline FunctionContainer& function(RFC_FUNCTION_HANDLE h) {
  return resolve<FunctionContainer>(h, "RFC_FUNCTION_HANDLE");
}

inline void requireOut(const void* p, const char* what) {
  if (!p) fail(RFC_INVALID_PARAMETER, std::string("Parameter ") + what + " is null");
}

inline RFC_CONNECTION_HANDLE connectionHandle(Connection* c) {
  return reinterpret_cast<RFC_CONNECTION_HANDLE>(static_cast<Object*>(c));
}

}  // namespace nwrfc
