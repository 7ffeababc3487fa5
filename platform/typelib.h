// Type descriptions of type libraries, as tools/typelibgen.py writes them
// from a library's description, and the ITypeLib / ITypeInfo objects that
// bindings read them through. A library reaches the platform by
// registration (RegisterTypeLibrary); the platform names none of its own.
#pragma once

#include "platform/oaidl.h"

#ifndef MEMBERID_NIL
#define MEMBERID_NIL DISPID_UNKNOWN
#endif
#ifndef TYPEFLAG_FRESTRICTED
#define TYPEFLAG_FRESTRICTED 0x200
#endif
#ifndef TYPEFLAG_FDISPATCHABLE
#define TYPEFLAG_FDISPATCHABLE 0x1000
#endif
#ifndef VARFLAG_FREADONLY
#define VARFLAG_FREADONLY 0x1
#endif

namespace veltrane::tlb {

// Late-bound entry of one member. `args` holds the arguments in declaration
// order, each already of the member's type (see ParamInfo::vt); [out]
// arguments come back in their slot, the [retval] in `result`.
using Thunk = HRESULT (*)(IDispatch* self, VARIANT* args, VARIANT* result);

enum class DefaultKind : uint8_t { None, Integer, Real, String };

// References from a parameter or an interface to another type: an index into
// LibraryData::types, or one of these.
inline constexpr int16_t kNoRef = -1;
inline constexpr int16_t kRefIUnknown = -2;
inline constexpr int16_t kRefIDispatch = -3;

struct ParamInfo {
  const OLECHAR* name;
  VARTYPE vt;           // type of the value: VT_I4 for enums, VT_DISPATCH/VT_UNKNOWN for interfaces
  int16_t ref;          // the enum or interface type, or kNoRef
  uint8_t indirection;  // pointer levels beyond the value: 1 for [out] and [retval]
  USHORT flags;         // PARAMFLAG_*
  DefaultKind defaultKind;
  LONGLONG defaultInteger;
  DOUBLE defaultReal;
  const OLECHAR* defaultString;
};

struct MemberInfo {
  const OLECHAR* name;
  DISPID dispid;
  INVOKEKIND invkind;
  WORD funcFlags;    // FUNCFLAG_*
  SHORT slot;        // vtable slot counted from QueryInterface; -1 for dispinterface members
  VARTYPE returnVt;  // VT_HRESULT, or VT_VOID for an event declared void
  SHORT paramCount;  // all parameters, the [retval] included
  const ParamInfo* params;
  const OLECHAR* doc;
  Thunk thunk;  // null for dispinterface members
};

struct EnumValueInfo {
  const OLECHAR* name;
  LONG value;
  const OLECHAR* doc;
};

struct ImplTypeInfo {
  int16_t ref;  // the implemented interface
  INT flags;    // IMPLTYPEFLAG_*
};

struct TypeData {
  const OLECHAR* name;
  const GUID* guid;  // null for an enum without uuid
  TYPEKIND kind;     // TKIND_ENUM, TKIND_INTERFACE (dual or not), TKIND_DISPATCH, TKIND_COCLASS
  WORD typeFlags;
  const OLECHAR* doc;
  int16_t base;     // interfaces: the base interface
  SHORT firstSlot;  // interfaces: vtable slot of the first own member
  USHORT memberCount;
  const MemberInfo* members;  // own members in slot order
  USHORT dispatchCount;
  const MemberInfo* const* dispatchMembers;  // all members, those of the bases first
  USHORT valueCount;
  const EnumValueInfo* values;
  USHORT implCount;
  const ImplTypeInfo* impls;
};

// Identity of a class: what registration and error records name it by.
struct ClassIdentity {
  const CLSID* clsid;
  const OLECHAR* name;                           // "RfcSession"
  const OLECHAR* progId;                         // "Veltrane.RfcSession.1"
  const OLECHAR* versionIndependentProgId;       // "Veltrane.RfcSession"
  const OLECHAR* clsidProgId;                    // ProgID stored under the class id
  const OLECHAR* clsidVersionIndependentProgId;  // version-independent ProgID stored under the class id
  const OLECHAR* description;                    // "RfcSession Class"
  bool creatable;                                // marked creatable in the type library
  bool activatable;                              // in the object map: clients may create it by its class id
  bool control;
};

struct LibraryData {
  const OLECHAR* name;
  const GUID* libid;
  WORD majorVersion;
  WORD minorVersion;
  LCID lcid;
  const OLECHAR* doc;
  USHORT typeCount;
  const TypeData* types;
  USHORT classCount;
  const ClassIdentity* classes;
};

// Makes a library known to the process: LoadRegTypeLib finds it by its id,
// its types answer GetTypeInfo, and its classes FindClassIdentity. A library
// registers itself when it is loaded; registering it again changes nothing.
VELTRANE_API HRESULT RegisterTypeLibrary(const LibraryData& library);

// The registered library whose tables hold `type`, or null.
VELTRANE_API const LibraryData* LibraryOfType(const TypeData& type);

// The class of that id in a registered library, or null.
VELTRANE_API const ClassIdentity* FindClassIdentity(REFCLSID clsid);

// ITypeInfo of a library type; for a dual interface its dispatch view.
VELTRANE_API HRESULT GetTypeInfoOfType(const TypeData& type, ITypeInfo** ppTInfo);

// The default of an optional parameter in the parameter's type (a VARIANT
// parameter keeps the literal's type); S_FALSE when it has none.
VELTRANE_API HRESULT DefaultValueOf(const ParamInfo& p, VARIANT* out);

// Index of a type within its registered library, or -1.
VELTRANE_API int IndexOfType(const TypeData& type);

}  // namespace veltrane::tlb

template <class Itf>
struct veltrane_dispatch_table;

enum SYSKIND { SYS_WIN16 = 0, SYS_WIN32 = 1, SYS_MAC = 2, SYS_WIN64 = 3 };

extern "C" {
// The registered type library of that id; major version must match, minor
// may be lower. A library that no code of the process has registered yet is
// looked up in the registry, below TypeLib\{id}\<major>.<minor>\<lcid>\linux64,
// and the file named there is loaded, which registers it.
VELTRANE_API HRESULT LoadRegTypeLib(REFGUID rguid, WORD wVerMajor, WORD wVerMinor, LCID lcid, ITypeLib** pptlib);

// Writes a library of the process into the registry (winreg.h): for the
// machine below HKEY_LOCAL_MACHINE\Software\Classes, for the user below
// HKEY_CURRENT_USER\Software\Classes. TypeLib\{id}\<major>.<minor> with the
// library's description, FLAGS, HELPDIR and <lcid>\linux64 holding szFullPath;
// Interface\{iid} for each dispatch and dual interface, with its name,
// ProxyStubClsid32 and TypeLib. SYSKIND is taken as the platform's own.
VELTRANE_API HRESULT RegisterTypeLib(ITypeLib* ptlib, LPCOLESTR szFullPath, LPCOLESTR szHelpDir);
VELTRANE_API HRESULT RegisterTypeLibForUser(ITypeLib* ptlib, LPOLESTR szFullPath, LPOLESTR szHelpDir);
// Removes what the registration wrote, for a library of the process.
VELTRANE_API HRESULT UnRegisterTypeLib(REFGUID libID, WORD wVerMajor, WORD wVerMinor, LCID lcid, SYSKIND syskind);
VELTRANE_API HRESULT UnRegisterTypeLibForUser(REFGUID libID, WORD wMajorVerNum, WORD wMinorVerNum, LCID lcid,
                                              SYSKIND syskind);
}

namespace veltrane::tlb {

// Registers the library, and makes every class of it known to the class
// table by its identity,
// without a factory, so that ProgIDFromCLSID and CLSIDFromProgID answer for
// all of them (error records name their source class by ProgID). Factories
// registered later for the same class id take the entry over.
VELTRANE_API HRESULT RegisterClassIdentities(const LibraryData& library);

}  // namespace veltrane::tlb
