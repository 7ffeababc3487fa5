// Registration of the module: its scripts for every class of the object map
// and its type library, in the registry of the machine or, with per-user
// registration on, of the user (platform/registrar.h).
#pragma once

#include "platform/wtypes.h"

namespace veltrane::shell {

// Registers (or unregisters) the module's own script, then each class of the
// object map in its order, then the type library. Everything of one run is
// written together or not at all; the first failure ends the run and is
// returned.
HRESULT UpdateRegistration(bool doRegister);

// True for the command text of DllInstall that asks for per-user
// registration: "user" in any case, with nothing after it.
bool IsPerUserCommand(LPCWSTR command);

}  // namespace veltrane::shell
