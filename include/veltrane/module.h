// The module's entry points, as an in-process server exports them.
#pragma once

#include "veltrane/platform/objbase.h"

extern "C" {
// S_OK when no object and no server lock of the library is alive, else S_FALSE.
VELTRANE_API HRESULT DllCanUnloadNow();
// The class factory of a creatable class; CLASS_E_CLASSNOTAVAILABLE otherwise.
VELTRANE_API HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv);
}
