// The module's entry points, as an in-process server exports them.
#pragma once

#include "veltrane/platform/objbase.h"

extern "C" {
// S_OK when no object and no server lock of the library is alive, else S_FALSE.
VELTRANE_API HRESULT DllCanUnloadNow();
// The class factory of a creatable class; CLASS_E_CLASSNOTAVAILABLE otherwise.
VELTRANE_API HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv);
// Registers every class of the library and its type library in the registry
// (<veltrane/platform/winreg.h>): for the machine, or for the user when
// per-user registration is on (AtlSetPerUserRegistration). All or nothing.
VELTRANE_API HRESULT DllRegisterServer();
// Removes what DllRegisterServer wrote.
VELTRANE_API HRESULT DllUnregisterServer();
// With the command text "user" (any case) switches per-user registration on
// for the process; then unregisters (bInstall false) or registers, and after
// a failed registration unregisters and returns the registration's failure.
VELTRANE_API HRESULT DllInstall(BOOL bInstall, LPCWSTR pszCmdLine);
}
