// COM runtime: apartments, task memory, GUID text, class activation, ProgIDs.
#pragma once

#include "oaidl.h"

enum COINIT {
  COINIT_APARTMENTTHREADED = 0x2,
  COINIT_MULTITHREADED = 0x0,
  COINIT_DISABLE_OLE1DDE = 0x4,
  COINIT_SPEED_OVER_MEMORY = 0x8
};
enum CLSCTX {
  CLSCTX_INPROC_SERVER = 0x1,
  CLSCTX_INPROC_HANDLER = 0x2,
  CLSCTX_LOCAL_SERVER = 0x4,
  CLSCTX_REMOTE_SERVER = 0x10,
  CLSCTX_INPROC = CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER,
  CLSCTX_ALL = CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER
};
#define CHARS_IN_GUID 39

// A class known to the activation table. getClassObject is the class's
// DllGetClassObject-style entry; creatable classes are reachable through
// CoCreateInstance/CoGetClassObject, all of them through the ProgID calls.
struct COCLASS_REGISTRATION {
  const CLSID* clsid;
  const OLECHAR* progId;                    // "Veltrane.RfcSession.1"
  const OLECHAR* versionIndependentProgId;  // "Veltrane.RfcSession"; may be null
  bool creatable;
  HRESULT (*getClassObject)(REFCLSID rclsid, REFIID riid, void** ppv);
};

extern "C" {
VELTRANE_API HRESULT CoInitialize(LPVOID pvReserved);
VELTRANE_API HRESULT CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit);
VELTRANE_API void CoUninitialize();
VELTRANE_API HRESULT CoGetApartmentType(INT* pAptType, INT* pAptQualifier);

VELTRANE_API LPVOID CoTaskMemAlloc(SIZE_T cb);
VELTRANE_API LPVOID CoTaskMemRealloc(LPVOID pv, SIZE_T cb);
VELTRANE_API void CoTaskMemFree(LPVOID pv);

VELTRANE_API INT StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, INT cchMax);
VELTRANE_API HRESULT StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz);
VELTRANE_API HRESULT StringFromIID(REFIID rclsid, LPOLESTR* lplpsz);
VELTRANE_API HRESULT CLSIDFromString(LPCOLESTR lpsz, CLSID* pclsid);
VELTRANE_API HRESULT IIDFromString(LPCOLESTR lpsz, IID* lpiid);
VELTRANE_API HRESULT CoCreateGuid(GUID* pguid);

VELTRANE_API HRESULT CoRegisterClassTable(const COCLASS_REGISTRATION* entries, UINT count);
VELTRANE_API HRESULT CoRevokeClassTable(const COCLASS_REGISTRATION* entries);
VELTRANE_API HRESULT CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pvReserved, REFIID riid, LPVOID* ppv);
VELTRANE_API HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid,
                                      LPVOID* ppv);
VELTRANE_API HRESULT CLSIDFromProgID(LPCOLESTR lpszProgID, CLSID* lpclsid);
VELTRANE_API HRESULT ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* lplpszProgID);

VELTRANE_API HRESULT CoGetGlobalInterfaceTable(IGlobalInterfaceTable** ppGIT);
}

// Apartments on Linux. A single-threaded apartment receives calls that other
// apartments make on its objects (through interfaces taken from the global
// interface table) as queued work; the thread runs them while it pumps.
// CoPumpMessages runs what is queued for the calling thread's apartment,
// waiting up to timeoutMs (INFINITE: without limit) for the first call to
// arrive; it returns how many it ran. A thread that waits for a call it made
// into another apartment pumps its own queue meanwhile.
#define INFINITE 0xFFFFFFFFu
enum APTTYPE { APTTYPE_CURRENT = -1, APTTYPE_STA = 0, APTTYPE_MTA = 1, APTTYPE_NA = 2, APTTYPE_MAINSTA = 3 };
extern "C" {
VELTRANE_API DWORD CoPumpMessages(DWORD timeoutMs);
// Interfaces whose calls can cross apartments through a dispatch proxy:
// IUnknown, IDispatch and every dispinterface registered here.
VELTRANE_API HRESULT CoRegisterDispatchInterface(REFIID riid);
}
