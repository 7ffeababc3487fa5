// Activation of classes that the process does not hold: the registry names
// the library of a class (CLSID\{clsid}\InprocServer32) and the class of a
// ProgID (<ProgID>\CLSID). A library is loaded once and stays loaded.
#pragma once

#include <string>

#include "platform/objbase.h"

namespace veltrane::platform {

// The class object of a registered class, from its library's
// DllGetClassObject; REGDB_E_CLASSNOTREG when the registry has no library
// for it or the library cannot be loaded or has no such entry.
HRESULT RegisteredClassObject(REFCLSID clsid, REFIID riid, void** ppv);

// The class of a registered ProgID; false when there is none.
bool RegisteredProgIdClass(LPCOLESTR progId, CLSID* clsid);

// The ProgID registered for a class, or empty.
std::u16string RegisteredClassProgId(REFCLSID clsid);

}  // namespace veltrane::platform
