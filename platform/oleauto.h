// OLE Automation data types: BSTR, VARIANT, SAFEARRAY, DISPPARAMS, EXCEPINFO,
// and the functions that work on them.
#pragma once

#include "unknwn.h"

struct IDispatch;
struct IRecordInfo;

enum VARENUM : VARTYPE {
  VT_EMPTY = 0,
  VT_NULL = 1,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_R4 = 4,
  VT_R8 = 5,
  VT_CY = 6,
  VT_DATE = 7,
  VT_BSTR = 8,
  VT_DISPATCH = 9,
  VT_ERROR = 10,
  VT_BOOL = 11,
  VT_VARIANT = 12,
  VT_UNKNOWN = 13,
  VT_DECIMAL = 14,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_VOID = 24,
  VT_HRESULT = 25,
  VT_PTR = 26,
  VT_SAFEARRAY = 27,
  VT_CARRAY = 28,
  VT_USERDEFINED = 29,
  VT_LPSTR = 30,
  VT_LPWSTR = 31,
  VT_RECORD = 36,
  VT_INT_PTR = 37,
  VT_UINT_PTR = 38,
  VT_FILETIME = 64,
  VT_BLOB = 65,
  VT_STREAM = 66,
  VT_STORAGE = 67,
  VT_STREAMED_OBJECT = 68,
  VT_STORED_OBJECT = 69,
  VT_BLOB_OBJECT = 70,
  VT_CF = 71,
  VT_CLSID = 72,
  VT_VERSIONED_STREAM = 73,
  VT_BSTR_BLOB = 0xfff,
  VT_VECTOR = 0x1000,
  VT_ARRAY = 0x2000,
  VT_BYREF = 0x4000,
  VT_RESERVED = 0x8000,
  VT_ILLEGAL = 0xffff,
  VT_ILLEGALMASKED = 0xfff,
  VT_TYPEMASK = 0xfff
};

struct SAFEARRAYBOUND {
  ULONG cElements;
  LONG lLbound;
};

// rgsabound is stored in reverse order of the dimensions, as the platform does.
struct SAFEARRAY {
  USHORT cDims;
  USHORT fFeatures;
  ULONG cbElements;
  ULONG cLocks;
  PVOID pvData;
  SAFEARRAYBOUND rgsabound[1];
};
typedef SAFEARRAY* LPSAFEARRAY;

#define FADF_AUTO 0x0001
#define FADF_STATIC 0x0002
#define FADF_EMBEDDED 0x0004
#define FADF_FIXEDSIZE 0x0010
#define FADF_RECORD 0x0020
#define FADF_HAVEIID 0x0040
#define FADF_HAVEVARTYPE 0x0080
#define FADF_BSTR 0x0100
#define FADF_UNKNOWN 0x0200
#define FADF_DISPATCH 0x0400
#define FADF_VARIANT 0x0800
#define FADF_RESERVED 0xF008

struct VARIANT {
  union {
    struct {
      VARTYPE vt;
      WORD wReserved1;
      WORD wReserved2;
      WORD wReserved3;
      union {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        SHORT iVal;
        FLOAT fltVal;
        DOUBLE dblVal;
        VARIANT_BOOL boolVal;
        SCODE scode;
        CY cyVal;
        DATE date;
        BSTR bstrVal;
        IUnknown* punkVal;
        IDispatch* pdispVal;
        SAFEARRAY* parray;
        BYTE* pbVal;
        SHORT* piVal;
        LONG* plVal;
        LONGLONG* pllVal;
        FLOAT* pfltVal;
        DOUBLE* pdblVal;
        VARIANT_BOOL* pboolVal;
        SCODE* pscode;
        CY* pcyVal;
        DATE* pdate;
        BSTR* pbstrVal;
        IUnknown** ppunkVal;
        IDispatch** ppdispVal;
        SAFEARRAY** pparray;
        VARIANT* pvarVal;
        PVOID byref;
        CHAR cVal;
        USHORT uiVal;
        ULONG ulVal;
        ULONGLONG ullVal;
        INT intVal;
        UINT uintVal;
        DECIMAL* pdecVal;
        CHAR* pcVal;
        USHORT* puiVal;
        ULONG* pulVal;
        ULONGLONG* pullVal;
        INT* pintVal;
        UINT* puintVal;
        struct {
          PVOID pvRecord;
          IRecordInfo* pRecInfo;
        };
      };
    };
    DECIMAL decVal;
  };
};
typedef VARIANT VARIANTARG;
typedef VARIANT* LPVARIANT;
typedef VARIANT* LPVARIANTARG;
static_assert(sizeof(VARIANT) == 24, "VARIANT layout");

#define V_VT(X) ((X)->vt)
#define V_ISBYREF(X) (V_VT(X) & VT_BYREF)
#define V_ISARRAY(X) (V_VT(X) & VT_ARRAY)
#define V_UNION(X, Y) ((X)->Y)
#define V_RECORDINFO(X) ((X)->pRecInfo)
#define V_RECORD(X) ((X)->pvRecord)
#define V_UI1(X) V_UNION(X, bVal)
#define V_UI1REF(X) V_UNION(X, pbVal)
#define V_I2(X) V_UNION(X, iVal)
#define V_I2REF(X) V_UNION(X, piVal)
#define V_I4(X) V_UNION(X, lVal)
#define V_I4REF(X) V_UNION(X, plVal)
#define V_I8(X) V_UNION(X, llVal)
#define V_I8REF(X) V_UNION(X, pllVal)
#define V_R4(X) V_UNION(X, fltVal)
#define V_R4REF(X) V_UNION(X, pfltVal)
#define V_R8(X) V_UNION(X, dblVal)
#define V_R8REF(X) V_UNION(X, pdblVal)
#define V_I1(X) V_UNION(X, cVal)
#define V_I1REF(X) V_UNION(X, pcVal)
#define V_UI2(X) V_UNION(X, uiVal)
#define V_UI2REF(X) V_UNION(X, puiVal)
#define V_UI4(X) V_UNION(X, ulVal)
#define V_UI4REF(X) V_UNION(X, pulVal)
#define V_UI8(X) V_UNION(X, ullVal)
#define V_UI8REF(X) V_UNION(X, pullVal)
#define V_INT(X) V_UNION(X, intVal)
#define V_INTREF(X) V_UNION(X, pintVal)
#define V_UINT(X) V_UNION(X, uintVal)
#define V_UINTREF(X) V_UNION(X, puintVal)
#define V_CY(X) V_UNION(X, cyVal)
#define V_CYREF(X) V_UNION(X, pcyVal)
#define V_DATE(X) V_UNION(X, date)
#define V_DATEREF(X) V_UNION(X, pdate)
#define V_BSTR(X) V_UNION(X, bstrVal)
#define V_BSTRREF(X) V_UNION(X, pbstrVal)
#define V_DISPATCH(X) V_UNION(X, pdispVal)
#define V_DISPATCHREF(X) V_UNION(X, ppdispVal)
#define V_ERROR(X) V_UNION(X, scode)
#define V_ERRORREF(X) V_UNION(X, pscode)
#define V_BOOL(X) V_UNION(X, boolVal)
#define V_BOOLREF(X) V_UNION(X, pboolVal)
#define V_UNKNOWN(X) V_UNION(X, punkVal)
#define V_UNKNOWNREF(X) V_UNION(X, ppunkVal)
#define V_VARIANTREF(X) V_UNION(X, pvarVal)
#define V_ARRAY(X) V_UNION(X, parray)
#define V_ARRAYREF(X) V_UNION(X, pparray)
#define V_BYREF(X) V_UNION(X, byref)
#define V_DECIMAL(X) ((X)->decVal)
#define V_DECIMALREF(X) V_UNION(X, pdecVal)

struct DISPPARAMS {
  VARIANTARG* rgvarg;
  DISPID* rgdispidNamedArgs;
  UINT cArgs;
  UINT cNamedArgs;
};

struct EXCEPINFO {
  WORD wCode;
  WORD wReserved;
  BSTR bstrSource;
  BSTR bstrDescription;
  BSTR bstrHelpFile;
  DWORD dwHelpContext;
  PVOID pvReserved;
  HRESULT(STDMETHODCALLTYPE* pfnDeferredFillIn)(EXCEPINFO*);
  SCODE scode;
};

#define DISPATCH_METHOD 0x1
#define DISPATCH_PROPERTYGET 0x2
#define DISPATCH_PROPERTYPUT 0x4
#define DISPATCH_PROPERTYPUTREF 0x8

#define DISPID_UNKNOWN (-1)
#define DISPID_VALUE (0)
#define DISPID_PROPERTYPUT (-3)
#define DISPID_NEWENUM (-4)
#define DISPID_EVALUATE (-5)
#define DISPID_CONSTRUCTOR (-6)
#define DISPID_DESTRUCTOR (-7)
#define DISPID_COLLECT (-8)

// VariantChangeType(Ex) flags.
#define VARIANT_NOVALUEPROP 0x01
#define VARIANT_ALPHABOOL 0x02
#define VARIANT_NOUSEROVERRIDE 0x04
#define VARIANT_CALENDAR_HIJRI 0x08
#define VARIANT_LOCALBOOL 0x10
#define VARIANT_CALENDAR_THAI 0x20
#define VARIANT_CALENDAR_GREGORIAN 0x40
#define VARIANT_USE_NLS 0x80

// VarCmp results and flags.
#define VARCMP_LT 0
#define VARCMP_EQ 1
#define VARCMP_GT 2
#define VARCMP_NULL 3
#define NORM_IGNORECASE 0x00000001
#define NORM_IGNORENONSPACE 0x00000002
#define NORM_IGNORESYMBOLS 0x00000004
#define NORM_IGNOREWIDTH 0x00020000
#define NORM_IGNOREKANATYPE 0x00010000

// VariantTimeToSystemTime / SystemTimeToVariantTime range.
#define VTDATEGRE_MIN (-657434)  // 1 January 100
#define VTDATEGRE_MAX 2958465    // 31 December 9999

extern "C" {
// BSTR
VELTRANE_API BSTR SysAllocString(const OLECHAR* psz);
VELTRANE_API BSTR SysAllocStringLen(const OLECHAR* pch, UINT cch);
VELTRANE_API BSTR SysAllocStringByteLen(const char* psz, UINT len);
VELTRANE_API INT SysReAllocString(BSTR* pbstr, const OLECHAR* psz);
VELTRANE_API INT SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len);
VELTRANE_API void SysFreeString(BSTR bstr);
VELTRANE_API UINT SysStringLen(BSTR bstr);
VELTRANE_API UINT SysStringByteLen(BSTR bstr);

// VARIANT
VELTRANE_API void VariantInit(VARIANTARG* pvarg);
VELTRANE_API HRESULT VariantClear(VARIANTARG* pvarg);
VELTRANE_API HRESULT VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc);
VELTRANE_API HRESULT VariantCopyInd(VARIANT* pvarDest, const VARIANTARG* pvargSrc);
VELTRANE_API HRESULT VariantChangeType(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, USHORT wFlags, VARTYPE vt);
VELTRANE_API HRESULT VariantChangeTypeEx(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, LCID lcid, USHORT wFlags,
                                         VARTYPE vt);
VELTRANE_API HRESULT VarCmp(LPVARIANT pvarLeft, LPVARIANT pvarRight, LCID lcid, ULONG dwFlags);
VELTRANE_API HRESULT VarBstrCmp(BSTR bstrLeft, BSTR bstrRight, LCID lcid, ULONG dwFlags);

// Dates: days since 30 December 1899, the fraction being the time of day.
VELTRANE_API INT SystemTimeToVariantTime(SYSTEMTIME* lpSystemTime, DOUBLE* pvtime);
VELTRANE_API INT VariantTimeToSystemTime(DOUBLE vtime, SYSTEMTIME* lpSystemTime);
VELTRANE_API void GetLocalTime(SYSTEMTIME* lpSystemTime);
VELTRANE_API void GetSystemTime(SYSTEMTIME* lpSystemTime);

// SAFEARRAY
VELTRANE_API SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT cDims, SAFEARRAYBOUND* rgsabound);
VELTRANE_API SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements);
VELTRANE_API HRESULT SafeArrayAllocDescriptor(UINT cDims, SAFEARRAY** ppsaOut);
VELTRANE_API HRESULT SafeArrayAllocDescriptorEx(VARTYPE vt, UINT cDims, SAFEARRAY** ppsaOut);
VELTRANE_API HRESULT SafeArrayAllocData(SAFEARRAY* psa);
VELTRANE_API HRESULT SafeArrayDestroyDescriptor(SAFEARRAY* psa);
VELTRANE_API HRESULT SafeArrayDestroyData(SAFEARRAY* psa);
VELTRANE_API HRESULT SafeArrayDestroy(SAFEARRAY* psa);
VELTRANE_API HRESULT SafeArrayCopy(SAFEARRAY* psa, SAFEARRAY** ppsaOut);
VELTRANE_API HRESULT SafeArrayCopyData(SAFEARRAY* psaSource, SAFEARRAY* psaTarget);
VELTRANE_API HRESULT SafeArrayRedim(SAFEARRAY* psa, SAFEARRAYBOUND* psaboundNew);
VELTRANE_API UINT SafeArrayGetDim(SAFEARRAY* psa);
VELTRANE_API UINT SafeArrayGetElemsize(SAFEARRAY* psa);
VELTRANE_API HRESULT SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound);
VELTRANE_API HRESULT SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound);
VELTRANE_API HRESULT SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt);
VELTRANE_API HRESULT SafeArrayLock(SAFEARRAY* psa);
VELTRANE_API HRESULT SafeArrayUnlock(SAFEARRAY* psa);
VELTRANE_API HRESULT SafeArrayAccessData(SAFEARRAY* psa, void** ppvData);
VELTRANE_API HRESULT SafeArrayUnaccessData(SAFEARRAY* psa);
VELTRANE_API HRESULT SafeArrayGetElement(SAFEARRAY* psa, LONG* rgIndices, void* pv);
VELTRANE_API HRESULT SafeArrayPutElement(SAFEARRAY* psa, LONG* rgIndices, void* pv);
VELTRANE_API HRESULT SafeArrayPtrOfIndex(SAFEARRAY* psa, LONG* rgIndices, void** ppvData);

// Locale of the calling thread; en-US (0x0409) unless set.
VELTRANE_API LCID GetThreadLocale();
VELTRANE_API BOOL SetThreadLocale(LCID Locale);
VELTRANE_API LCID GetUserDefaultLCID();
VELTRANE_API LCID GetSystemDefaultLCID();
}

// Flags of the typed conversion functions (Var*From*).
#define VAR_TIMEVALUEONLY 0x00000001
#define VAR_DATEVALUEONLY 0x00000002
#define VAR_LOCALBOOL 0x00000010
#define LOCALE_USE_NLS 0x10000000
#define LOCALE_NOUSEROVERRIDE 0x80000000

extern "C" {
// Typed conversions with the rules of VariantChangeTypeEx.
VELTRANE_API HRESULT VarI4FromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, LONG* plOut);
VELTRANE_API HRESULT VarI8FromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, LONGLONG* pi64Out);
VELTRANE_API HRESULT VarR8FromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, DOUBLE* pdblOut);
VELTRANE_API HRESULT VarCyFromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, CY* pcyOut);
VELTRANE_API HRESULT VarDecFromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, DECIMAL* pdecOut);
VELTRANE_API HRESULT VarBoolFromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, VARIANT_BOOL* pboolOut);
VELTRANE_API HRESULT VarDateFromStr(const OLECHAR* strIn, LCID lcid, ULONG dwFlags, DATE* pdateOut);
VELTRANE_API HRESULT VarBstrFromI4(LONG lIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut);
VELTRANE_API HRESULT VarBstrFromI8(LONGLONG i64In, LCID lcid, ULONG dwFlags, BSTR* pbstrOut);
VELTRANE_API HRESULT VarBstrFromR4(FLOAT fltIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut);
VELTRANE_API HRESULT VarBstrFromR8(DOUBLE dblIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut);
VELTRANE_API HRESULT VarBstrFromCy(CY cyIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut);
VELTRANE_API HRESULT VarBstrFromDec(const DECIMAL* pdecIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut);
VELTRANE_API HRESULT VarBstrFromBool(VARIANT_BOOL boolIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut);
VELTRANE_API HRESULT VarBstrFromDate(DATE dateIn, LCID lcid, ULONG dwFlags, BSTR* pbstrOut);
VELTRANE_API HRESULT VarR8FromDec(const DECIMAL* pdecIn, DOUBLE* pdblOut);
VELTRANE_API HRESULT VarDecFromR8(DOUBLE dblIn, DECIMAL* pdecOut);
VELTRANE_API HRESULT VarCyFromR8(DOUBLE dblIn, CY* pcyOut);
VELTRANE_API HRESULT VarR8FromCy(CY cyIn, DOUBLE* pdblOut);
// Signed and unsigned integers of one width, by value: what does not fit
// is DISP_E_OVERFLOW (VariantChangeTypeEx keeps the bits instead).
VELTRANE_API HRESULT VarI1FromUI1(BYTE bIn, CHAR* pcOut);
VELTRANE_API HRESULT VarUI1FromI1(CHAR cIn, BYTE* pbOut);
VELTRANE_API HRESULT VarI2FromUI2(USHORT uiIn, SHORT* psOut);
VELTRANE_API HRESULT VarUI2FromI2(SHORT sIn, USHORT* puiOut);
VELTRANE_API HRESULT VarI4FromUI4(ULONG ulIn, LONG* plOut);
VELTRANE_API HRESULT VarUI4FromI4(LONG lIn, ULONG* pulOut);
VELTRANE_API HRESULT VarI8FromUI8(ULONGLONG ui64In, LONGLONG* pi64Out);
VELTRANE_API HRESULT VarUI8FromI8(LONGLONG i64In, ULONGLONG* pui64Out);
VELTRANE_API HRESULT VarDecCmp(const DECIMAL* pdecLeft, const DECIMAL* pdecRight);
// VT_ARRAY | VT_UI1 <-> VT_BSTR: the bytes of the text.
VELTRANE_API HRESULT BstrFromVector(SAFEARRAY* psa, BSTR* pbstr);
VELTRANE_API HRESULT VectorFromBstr(BSTR bstr, SAFEARRAY** ppsa);
}
