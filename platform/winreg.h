// The registry: keys and values under the predefined roots, kept in files of
// the registry store (registry_store.h has the places and the format):
//
//   HKEY_LOCAL_MACHINE  the machine's file
//   HKEY_CURRENT_USER   the user's file
//   HKEY_CLASSES_ROOT   a view of HKEY_CURRENT_USER\Software\Classes over
//                       HKEY_LOCAL_MACHINE\Software\Classes: a key is read
//                       from the user's classes when it stands there; a
//                       write goes there when the key exists there, and to
//                       the machine's classes otherwise
//
// The functions return system error numbers (ERROR_SUCCESS,
// ERROR_FILE_NOT_FOUND, ...). Each change is written to its file at once,
// atomically, unless a transaction of the calling thread is open
// (veltrane::platform::RegistryTransaction), which writes all of its changes
// when it commits and none when it does not.
#pragma once

#include "wtypes.h"

typedef struct HKEY__* HKEY;
typedef HKEY* PHKEY;
typedef DWORD REGSAM;
typedef DWORD* LPDWORD;
typedef BYTE* LPBYTE;
typedef LONG LSTATUS;

#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000000u)))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000001u)))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000002u)))

#define ERROR_SUCCESS 0

#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_MULTI_SZ 7
#define REG_QWORD 11

#define REG_OPTION_NON_VOLATILE 0x0
#define REG_CREATED_NEW_KEY 0x1
#define REG_OPENED_EXISTING_KEY 0x2

#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_CREATE_SUB_KEY 0x0004
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_READ 0x20019
#define KEY_WRITE 0x20006
#define KEY_ALL_ACCESS 0xF003F

extern "C" {
// Opens the key at subKey below hKey, creating it and its parents where
// missing. Access rights and security attributes are not checked.
VELTRANE_API LSTATUS RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass, DWORD dwOptions,
                                     REGSAM samDesired, const void* lpSecurityAttributes, PHKEY phkResult,
                                     LPDWORD lpdwDisposition);
// Opens an existing key; ERROR_FILE_NOT_FOUND when there is none.
VELTRANE_API LSTATUS RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);
VELTRANE_API LSTATUS RegCloseKey(HKEY hKey);
// A null or empty name is the key's default value.
VELTRANE_API LSTATUS RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE* lpData,
                                    DWORD cbData);
// With lpData null, *lpcbData receives the size; with a buffer too small,
// ERROR_MORE_DATA and the size.
VELTRANE_API LSTATUS RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                                      LPDWORD lpcbData);
VELTRANE_API LSTATUS RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName);
// Deletes a key without subkeys (ERROR_ACCESS_DENIED for one with).
VELTRANE_API LSTATUS RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey);
VELTRANE_API LSTATUS RegDeleteKeyExW(HKEY hKey, LPCWSTR lpSubKey, REGSAM samDesired, DWORD Reserved);
// Deletes the key at subKey (or, with subKey null, the subkeys and values of
// hKey) with everything below it.
VELTRANE_API LSTATUS RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey);
// The name of the subkey at index (0 first, in name order);
// ERROR_NO_MORE_ITEMS past the last. The last three arguments are unused.
VELTRANE_API LSTATUS RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName, LPDWORD lpReserved,
                                   LPWSTR lpClass, LPDWORD lpcchClass, void* lpftLastWriteTime);
}
