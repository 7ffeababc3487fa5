// The contract every registered server class keeps, written once. A class
// joins it with one entry in servers.cpp: how to create it and point it at
// the simulated system's gateway.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "server_fixture.h"

namespace servertest {

struct ServerClass {
  std::string name;  // for the tests' names
  CLSID clsid;
  // Sets what the class needs beyond ProgramID, GatewayHost and GatewayService.
  std::function<void(IRfcServer*)> configure;
  // The Status a check handler sets for a transaction already executed:
  // the server passes it to its SDK as it stands.
  long executedStatus;
  // True when a handler that fails (a failed Invoke) fails the call, so
  // that the caller gets a system failure; false when the answer goes out
  // with what the handler had filled.
  bool failedHandlerFailsTheCall;
};

inline void PrintTo(const ServerClass& cls, std::ostream* out) { *out << cls.name; }

// The classes that keep the contract (servers.cpp).
std::vector<ServerClass> ServerClasses();

// A server of the class with a program ID of its own, pointed at the gateway.
CComPtr<IRfcServer> NewServer(const ServerClass& cls, const char* what, std::u16string* programId);

}  // namespace servertest
