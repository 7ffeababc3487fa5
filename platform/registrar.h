// The registrar: registry scripts, the text form in which a component
// describes the keys it registers, run against the registry (winreg.h).
//
//   HKCR
//   {
//     NoRemove CLSID
//     {
//       ForceRemove {9A07C80C-494E-4594-AFEB-7FB489423047} = s 'RfcSession Class'
//       {
//         InprocServer32 = s '%MODULE%'
//         {
//           val ThreadingModel = s 'Apartment'
//         }
//       }
//     }
//   }
//
// A script is a list of root keys (HKCR, HKCU, HKLM, or their long names),
// each with a block of keys. Tokens are separated by white space; a name in
// single quotes may hold any character, "''" standing for a quote. A key is
// [NoRemove | ForceRemove | Delete] NAME [= TYPE 'VALUE'] [{ ... }], a value
// "val NAME = TYPE 'VALUE'"; TYPE is s (text), d (number, decimal or 0x),
// b (bytes as hexadecimal digits) or m (texts separated by "\0").
//
// Registering creates keys and sets values; ForceRemove first deletes the
// key with everything below it, Delete only deletes it. Unregistering
// deletes a ForceRemove key with everything below it, a plain key once it
// has no subkeys left, and the values named by val; NoRemove keys and Delete
// keys stay.
//
// Before it is read a script is preprocessed: "%NAME%" is replaced by the
// value of the variable NAME ("%%" stands for "%"; a name that no variable
// has fails with DISP_E_EXCEPTION), and with per-user registration on, every
// root key HKCR is rewritten into HKCU\Software\Classes.
#pragma once

#include "platform/wtypes.h"

// A replacement variable of a script.
struct _ATL_REGMAP_ENTRY {
  LPCOLESTR szKey;
  LPCOLESTR szData;
};

extern "C" {
// Per-user registration for the process: scripts written for HKCR then
// register below HKCU\Software\Classes, and type libraries for the user.
VELTRANE_API HRESULT AtlSetPerUserRegistration(bool bEnable);
VELTRANE_API HRESULT AtlGetPerUserRegistration(bool* pbEnabled);

// Registers (bRegister true) or unregisters the keys of a script, with the
// variables of map (ended by an entry with a null szKey; map may be null).
// All changes of a run are written together, or none (a failed run leaves
// the registry as it was). Failures: DISP_E_EXCEPTION for a script that
// cannot be read, HRESULT_FROM_WIN32 of the registry's error.
VELTRANE_API HRESULT AtlUpdateRegistryFromScript(LPCOLESTR script, BOOL bRegister, const _ATL_REGMAP_ENTRY* map);
}
