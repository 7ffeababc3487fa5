// Basic types of the portable COM / OLE Automation layer, under the
// platform's own names and sizes (LP64 Linux, UTF-16 OLECHAR).
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/export.h"

#define STDMETHODCALLTYPE
#define STDAPICALLTYPE
#define STDMETHOD(m) virtual HRESULT m
#define STDMETHOD_(t, m) virtual t m
#define STDMETHODIMP HRESULT
#define STDMETHODIMP_(t) t
#define STDAPI extern "C" HRESULT
#define PURE = 0

typedef int32_t HRESULT;
typedef int32_t SCODE;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef uint32_t DWORD;
typedef uint16_t WORD;
typedef uint8_t BYTE;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef int32_t INT;
typedef uint32_t UINT;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef char CHAR;
typedef float FLOAT;
typedef double DOUBLE;
typedef int32_t BOOL;
typedef void* PVOID;
typedef void* LPVOID;
typedef intptr_t INT_PTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t ULONG_PTR;
typedef uintptr_t SIZE_T;

typedef char16_t OLECHAR;
typedef char16_t WCHAR;
typedef OLECHAR* LPOLESTR;
typedef const OLECHAR* LPCOLESTR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef OLECHAR* BSTR;

typedef int16_t VARIANT_BOOL;
#define VARIANT_TRUE ((VARIANT_BOOL)-1)
#define VARIANT_FALSE ((VARIANT_BOOL)0)
#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

typedef double DATE;
typedef uint16_t VARTYPE;
typedef LONG DISPID;
typedef DWORD LCID;
typedef WORD LANGID;
typedef LONG MEMBERID;

struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};
typedef GUID IID;
typedef GUID CLSID;
typedef const GUID& REFGUID;
typedef const IID& REFIID;
typedef const CLSID& REFCLSID;

inline bool operator==(const GUID& a, const GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return false;
  return true;
}
inline bool operator!=(const GUID& a, const GUID& b) { return !(a == b); }
inline bool IsEqualGUID(REFGUID a, REFGUID b) { return a == b; }
inline bool IsEqualIID(REFIID a, REFIID b) { return a == b; }
inline bool IsEqualCLSID(REFCLSID a, REFCLSID b) { return a == b; }
extern VELTRANE_API const GUID GUID_NULL;
#define IID_NULL GUID_NULL
#define CLSID_NULL GUID_NULL

// 64-bit currency: value times 10,000.
union CY {
  struct {
    uint32_t Lo;
    int32_t Hi;
  };
  LONGLONG int64;
};
typedef CY CURRENCY;

// 96-bit unsigned integer with a power-of-ten scale (0..28) and a sign.
struct DECIMAL {
  USHORT wReserved;
  union {
    struct {
      BYTE scale;
      BYTE sign;
    };
    USHORT signscale;
  };
  ULONG Hi32;
  union {
    struct {
      ULONG Lo32;
      ULONG Mid32;
    };
    ULONGLONG Lo64;
  };
};
#define DECIMAL_NEG ((BYTE)0x80)
#define DEC_MAX_SCALE 28

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

// Result codes.
#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)
#define HRESULT_CODE(hr) ((hr)&0xFFFF)
#define HRESULT_FACILITY(hr) (((hr) >> 16) & 0x1fff)
#define SCODE_CODE(sc) ((sc)&0xFFFF)
#define SEVERITY_SUCCESS 0
#define SEVERITY_ERROR 1
#define FACILITY_NULL 0
#define FACILITY_RPC 1
#define FACILITY_DISPATCH 2
#define FACILITY_ITF 4
#define FACILITY_WIN32 7
#define MAKE_HRESULT(sev, fac, code) ((HRESULT)(((uint32_t)(sev) << 31) | ((uint32_t)(fac) << 16) | ((uint32_t)(code))))
#define MAKE_SCODE(sev, fac, code) MAKE_HRESULT(sev, fac, code)
#define _HRESULT_TYPEDEF_(x) ((HRESULT)(x))
inline constexpr HRESULT HRESULT_FROM_WIN32(uint32_t x) {
  return (HRESULT)x <= 0 ? (HRESULT)x : (HRESULT)((x & 0x0000FFFF) | (FACILITY_WIN32 << 16) | 0x80000000);
}

// S_OK, E_FAIL, ... : one macro per code of errors/errors.table.
#include "platform/result_codes.h"
#define NOERROR S_OK

// Locale identifiers.
#define MAKELANGID(p, s) ((((WORD)(s)) << 10) | (WORD)(p))
#define MAKELCID(lgid, srtid) ((DWORD)((((DWORD)((WORD)(srtid))) << 16) | ((DWORD)((WORD)(lgid)))))
#define LANGIDFROMLCID(lcid) ((WORD)(lcid))
#define LOCALE_USER_DEFAULT ((LCID)0x0400)
#define LOCALE_SYSTEM_DEFAULT ((LCID)0x0800)
#define LOCALE_INVARIANT ((LCID)0x007F)
#define LOCALE_NEUTRAL ((LCID)0x0000)
#define LANG_ENGLISH_US_LCID ((LCID)0x0409)
#define LANG_GERMAN_DE_LCID ((LCID)0x0407)
