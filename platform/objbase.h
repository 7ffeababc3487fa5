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
HRESULT CoInitialize(LPVOID pvReserved);
HRESULT CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit);
void CoUninitialize();
HRESULT CoGetApartmentType(INT* pAptType, INT* pAptQualifier);

LPVOID CoTaskMemAlloc(SIZE_T cb);
LPVOID CoTaskMemRealloc(LPVOID pv, SIZE_T cb);
void CoTaskMemFree(LPVOID pv);

INT StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, INT cchMax);
HRESULT StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz);
HRESULT StringFromIID(REFIID rclsid, LPOLESTR* lplpsz);
HRESULT CLSIDFromString(LPCOLESTR lpsz, CLSID* pclsid);
HRESULT IIDFromString(LPCOLESTR lpsz, IID* lpiid);
HRESULT CoCreateGuid(GUID* pguid);

HRESULT CoRegisterClassTable(const COCLASS_REGISTRATION* entries, UINT count);
HRESULT CoRevokeClassTable(const COCLASS_REGISTRATION* entries);
HRESULT CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pvReserved, REFIID riid, LPVOID* ppv);
HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid, LPVOID* ppv);
HRESULT CLSIDFromProgID(LPCOLESTR lpszProgID, CLSID* lpclsid);
HRESULT ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* lplpszProgID);

HRESULT CoGetGlobalInterfaceTable(IGlobalInterfaceTable** ppGIT);
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
DWORD CoPumpMessages(DWORD timeoutMs);
// Interfaces whose calls can cross apartments through a dispatch proxy:
// IUnknown, IDispatch and every dispinterface registered here.
HRESULT CoRegisterDispatchInterface(REFIID riid);
}
