// Automation interfaces: IDispatch, ITypeInfo (read side), IEnumVARIANT,
// error records, connection points, class factories, the global interface table.
#pragma once

#include "oleauto.h"

struct ITypeInfo;
struct ITypeLib;

extern VELTRANE_API const IID IID_IDispatch;
extern VELTRANE_API const IID IID_ITypeInfo;
extern VELTRANE_API const IID IID_ITypeLib;
extern VELTRANE_API const IID IID_IEnumVARIANT;
extern VELTRANE_API const IID IID_IErrorInfo;
extern VELTRANE_API const IID IID_ICreateErrorInfo;
extern VELTRANE_API const IID IID_ISupportErrorInfo;
extern VELTRANE_API const IID IID_IConnectionPointContainer;
extern VELTRANE_API const IID IID_IConnectionPoint;
extern VELTRANE_API const IID IID_IEnumConnections;
extern VELTRANE_API const IID IID_IEnumConnectionPoints;
extern VELTRANE_API const IID IID_IClassFactory;
extern VELTRANE_API const IID IID_IGlobalInterfaceTable;
extern VELTRANE_API const CLSID CLSID_StdGlobalInterfaceTable;

struct IDispatch : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* pctinfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid,
                                                  DISPID* rgDispId) = 0;
  virtual HRESULT STDMETHODCALLTYPE Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags,
                                           DISPPARAMS* pDispParams, VARIANT* pVarResult, EXCEPINFO* pExcepInfo,
                                           UINT* puArgErr) = 0;

 protected:
  ~IDispatch() = default;
};
typedef IDispatch* LPDISPATCH;
VELTRANE_DECLARE_IID(IDispatch, IID_IDispatch);

// Type descriptions, read side.
enum TYPEKIND {
  TKIND_ENUM = 0,
  TKIND_RECORD,
  TKIND_MODULE,
  TKIND_INTERFACE,
  TKIND_DISPATCH,
  TKIND_COCLASS,
  TKIND_ALIAS,
  TKIND_UNION,
  TKIND_MAX
};
enum FUNCKIND { FUNC_VIRTUAL = 0, FUNC_PUREVIRTUAL, FUNC_NONVIRTUAL, FUNC_STATIC, FUNC_DISPATCH };
enum INVOKEKIND { INVOKE_FUNC = 1, INVOKE_PROPERTYGET = 2, INVOKE_PROPERTYPUT = 4, INVOKE_PROPERTYPUTREF = 8 };
enum CALLCONV { CC_FASTCALL = 0, CC_CDECL = 1, CC_STDCALL = 4 };
enum VARKIND { VAR_PERINSTANCE = 0, VAR_STATIC, VAR_CONST, VAR_DISPATCH };

#define PARAMFLAG_NONE 0x00
#define PARAMFLAG_FIN 0x01
#define PARAMFLAG_FOUT 0x02
#define PARAMFLAG_FLCID 0x04
#define PARAMFLAG_FRETVAL 0x08
#define PARAMFLAG_FOPT 0x10
#define PARAMFLAG_FHASDEFAULT 0x20

#define TYPEFLAG_FAPPOBJECT 0x01
#define TYPEFLAG_FCANCREATE 0x02
#define TYPEFLAG_FHIDDEN 0x10
#define TYPEFLAG_FCONTROL 0x20
#define TYPEFLAG_FDUAL 0x40
#define TYPEFLAG_FNONEXTENSIBLE 0x80
#define TYPEFLAG_FOLEAUTOMATION 0x100
#define FUNCFLAG_FRESTRICTED 0x1
#define FUNCFLAG_FSOURCE 0x2
#define FUNCFLAG_FHIDDEN 0x40
#define FUNCFLAG_FDEFAULTBIND 0x20
#define IMPLTYPEFLAG_FDEFAULT 0x1
#define IMPLTYPEFLAG_FSOURCE 0x2

typedef DWORD HREFTYPE;

struct TYPEDESC {
  union {
    TYPEDESC* lptdesc;
    HREFTYPE hreftype;
  };
  VARTYPE vt;
};
struct PARAMDESCEX {
  ULONG cBytes;
  VARIANTARG varDefaultValue;
};
struct PARAMDESC {
  PARAMDESCEX* pparamdescex;
  USHORT wParamFlags;
};
struct ELEMDESC {
  TYPEDESC tdesc;
  PARAMDESC paramdesc;
};
struct FUNCDESC {
  MEMBERID memid;
  SCODE* lprgscode;
  ELEMDESC* lprgelemdescParam;
  FUNCKIND funckind;
  INVOKEKIND invkind;
  CALLCONV callconv;
  SHORT cParams;
  SHORT cParamsOpt;
  SHORT oVft;
  SHORT cScodes;
  ELEMDESC elemdescFunc;
  WORD wFuncFlags;
};
struct VARDESC {
  MEMBERID memid;
  LPOLESTR lpstrSchema;
  union {
    ULONG oInst;
    VARIANT* lpvarValue;
  };
  ELEMDESC elemdescVar;
  WORD wVarFlags;
  VARKIND varkind;
};
struct TYPEATTR {
  GUID guid;
  LCID lcid;
  DWORD dwReserved;
  MEMBERID memidConstructor;
  MEMBERID memidDestructor;
  LPOLESTR lpstrSchema;
  ULONG cbSizeInstance;
  TYPEKIND typekind;
  WORD cFuncs;
  WORD cVars;
  WORD cImplTypes;
  WORD cbSizeVft;
  WORD cbAlignment;
  WORD wTypeFlags;
  WORD wMajorVerNum;
  WORD wMinorVerNum;
  TYPEDESC tdescAlias;
  WORD idldescType;
};

// The read side of a type description, enough for a binding to list an
// object's members (names, DISPIDs, kinds, argument names and types).
struct ITypeInfo : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetTypeAttr(TYPEATTR** ppTypeAttr) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFuncDesc(UINT index, FUNCDESC** ppFuncDesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetVarDesc(UINT index, VARDESC** ppVarDesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetNames(MEMBERID memid, BSTR* rgBstrNames, UINT cMaxNames, UINT* pcNames) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRefTypeOfImplType(UINT index, HREFTYPE* pRefType) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetImplTypeFlags(UINT index, INT* pImplTypeFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(LPOLESTR* rgszNames, UINT cNames, MEMBERID* pMemId) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDocumentation(MEMBERID memid, BSTR* pBstrName, BSTR* pBstrDocString,
                                                     DWORD* pdwHelpContext, BSTR* pBstrHelpFile) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRefTypeInfo(HREFTYPE hRefType, ITypeInfo** ppTInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetContainingTypeLib(ITypeLib** ppTLib, UINT* pIndex) = 0;
  virtual void STDMETHODCALLTYPE ReleaseTypeAttr(TYPEATTR* pTypeAttr) = 0;
  virtual void STDMETHODCALLTYPE ReleaseFuncDesc(FUNCDESC* pFuncDesc) = 0;
  virtual void STDMETHODCALLTYPE ReleaseVarDesc(VARDESC* pVarDesc) = 0;

 protected:
  ~ITypeInfo() = default;
};
VELTRANE_DECLARE_IID(ITypeInfo, IID_ITypeInfo);

struct ITypeLib : IUnknown {
  virtual UINT STDMETHODCALLTYPE GetTypeInfoCount() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, ITypeInfo** ppTInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfoType(UINT index, TYPEKIND* pTKind) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfoOfGuid(REFGUID guid, ITypeInfo** ppTinfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDocumentation(INT index, BSTR* pBstrName, BSTR* pBstrDocString,
                                                     DWORD* pdwHelpContext, BSTR* pBstrHelpFile) = 0;

 protected:
  ~ITypeLib() = default;
};
VELTRANE_DECLARE_IID(ITypeLib, IID_ITypeLib);

struct IEnumVARIANT : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) = 0;
  virtual HRESULT STDMETHODCALLTYPE Skip(ULONG celt) = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** ppEnum) = 0;

 protected:
  ~IEnumVARIANT() = default;
};
VELTRANE_DECLARE_IID(IEnumVARIANT, IID_IEnumVARIANT);

struct IErrorInfo : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetGUID(GUID* pGUID) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSource(BSTR* pBstrSource) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDescription(BSTR* pBstrDescription) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* pBstrHelpFile) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* pdwHelpContext) = 0;

 protected:
  ~IErrorInfo() = default;
};
VELTRANE_DECLARE_IID(IErrorInfo, IID_IErrorInfo);

struct ICreateErrorInfo : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE SetGUID(REFGUID rguid) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSource(LPOLESTR szSource) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetDescription(LPOLESTR szDescription) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetHelpFile(LPOLESTR szHelpFile) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetHelpContext(DWORD dwHelpContext) = 0;

 protected:
  ~ICreateErrorInfo() = default;
};
VELTRANE_DECLARE_IID(ICreateErrorInfo, IID_ICreateErrorInfo);

struct ISupportErrorInfo : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) = 0;

 protected:
  ~ISupportErrorInfo() = default;
};
VELTRANE_DECLARE_IID(ISupportErrorInfo, IID_ISupportErrorInfo);

struct IConnectionPointContainer;
struct IEnumConnections;
struct IEnumConnectionPoints;

struct CONNECTDATA {
  IUnknown* pUnk;
  DWORD dwCookie;
};

struct IConnectionPoint : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* pIID) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** ppCPC) = 0;
  virtual HRESULT STDMETHODCALLTYPE Advise(IUnknown* pUnkSink, DWORD* pdwCookie) = 0;
  virtual HRESULT STDMETHODCALLTYPE Unadvise(DWORD dwCookie) = 0;
  virtual HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** ppEnum) = 0;

 protected:
  ~IConnectionPoint() = default;
};
VELTRANE_DECLARE_IID(IConnectionPoint, IID_IConnectionPoint);

struct IConnectionPointContainer : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** ppEnum) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) = 0;

 protected:
  ~IConnectionPointContainer() = default;
};
VELTRANE_DECLARE_IID(IConnectionPointContainer, IID_IConnectionPointContainer);

struct IEnumConnections : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG cConnections, CONNECTDATA* rgcd, ULONG* pcFetched) = 0;
  virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cConnections) = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE Clone(IEnumConnections** ppEnum) = 0;

 protected:
  ~IEnumConnections() = default;
};
VELTRANE_DECLARE_IID(IEnumConnections, IID_IEnumConnections);

struct IEnumConnectionPoints : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG cConnections, IConnectionPoint** ppCP, ULONG* pcFetched) = 0;
  virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cConnections) = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE Clone(IEnumConnectionPoints** ppEnum) = 0;

 protected:
  ~IEnumConnectionPoints() = default;
};
VELTRANE_DECLARE_IID(IEnumConnectionPoints, IID_IEnumConnectionPoints);

struct IClassFactory : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) = 0;
  virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) = 0;

 protected:
  ~IClassFactory() = default;
};
VELTRANE_DECLARE_IID(IClassFactory, IID_IClassFactory);

struct IGlobalInterfaceTable : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE RegisterInterfaceInGlobal(IUnknown* pUnk, REFIID riid, DWORD* pdwCookie) = 0;
  virtual HRESULT STDMETHODCALLTYPE RevokeInterfaceFromGlobal(DWORD dwCookie) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetInterfaceFromGlobal(DWORD dwCookie, REFIID riid, void** ppv) = 0;

 protected:
  ~IGlobalInterfaceTable() = default;
};
VELTRANE_DECLARE_IID(IGlobalInterfaceTable, IID_IGlobalInterfaceTable);

extern "C" {
VELTRANE_API HRESULT CreateErrorInfo(ICreateErrorInfo** pperrinfo);
VELTRANE_API HRESULT SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo);
VELTRANE_API HRESULT GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo);
}
