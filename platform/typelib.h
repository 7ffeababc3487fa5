// Type descriptions of the component's type library, as the generator writes
// them from shell/veltrane.idl, and the ITypeLib / ITypeInfo objects that
// bindings read them through.
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

// The generated description of VELTRANELib.
const LibraryData& VeltraneTypeLibrary();

// The class of that id, or null.
const ClassIdentity* FindClassIdentity(REFCLSID clsid);

// ITypeInfo of a library type; for a dual interface its dispatch view.
HRESULT GetTypeInfoOfType(const TypeData& type, ITypeInfo** ppTInfo);

// The default of an optional parameter in the parameter's type (a VARIANT
// parameter keeps the literal's type); S_FALSE when it has none.
HRESULT DefaultValueOf(const ParamInfo& p, VARIANT* out);

// Index of a type within the library, or -1 if it is not one of its types.
int IndexOfType(const TypeData& type);

}  // namespace veltrane::tlb

template <class Itf>
struct veltrane_dispatch_table;

extern "C" {
// The registered type library of that id; major version must match, minor may be lower.
HRESULT LoadRegTypeLib(REFGUID rguid, WORD wVerMajor, WORD wVerMinor, LCID lcid, ITypeLib** pptlib);
}

namespace veltrane::tlb {

// Makes every class of the library known to the class table by its identity,
// without a factory, so that ProgIDFromCLSID and CLSIDFromProgID answer for
// all of them (error records name their source class by ProgID). Factories
// registered later for the same class id take the entry over.
HRESULT RegisterClassIdentities();

}  // namespace veltrane::tlb
