// Installed structures: flat layouts with a type handle, process-wide as in the SDK. A handle below
// kFirstStructureHandle is a scalar RFCTYPE code. A Slot says how one value lies in memory.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "rfc/rfc_types.h"

namespace rfcsdk {

using namespace veltrane::sdk::rfc;

inline constexpr RFC_TYPEHANDLE kFirstStructureHandle = 256;

struct Structure;

// One value: its type, its bytes in the two-byte layout, its decimals, and for a structure its
// description. STRING and XSTRING values are an RFC_STRING and an RFC_XSTRING.
struct Slot {
  RFCTYPE type = RFCTYPE_CHAR;
  unsigned length = 0;
  int decimals = 0;  // -1: the scale a received text brings
  std::shared_ptr<const Structure> structure;
};

struct Field {
  std::string name;  // UTF-8, as installed
  Slot slot;
  unsigned offset = 0;  // two-byte layout
  unsigned c1Length = 0, c1Offset = 0;
};

struct Structure {
  std::string name;
  std::vector<Field> fields;
  unsigned length = 0;  // two-byte layout
  unsigned c1Length = 0;
  unsigned alignment = 1;
};

// Installs a structure and gives its handle; a name installed before gives the earlier handle.
RFC_TYPEHANDLE installStructure(Structure s);
// The structure of a handle, or null for a scalar code or an unknown handle.
std::shared_ptr<const Structure> installedStructure(RFC_TYPEHANDLE handle);
// The handle of an installed name, or 0.
RFC_TYPEHANDLE installedHandle(const std::string& name);

// The slot of a type handle and a length in bytes. Throws Failure RFC_INVALID_PARAMETER for an
// unknown handle or a length that cannot hold the value.
Slot slotOf(RFC_TYPEHANDLE type, unsigned length, int decimals = 0);

// Alignment of a value in the two-byte layout, and its size (for STRING and XSTRING the size of
// their handles).
unsigned alignmentOf(const Slot& s);
bool isCharacterLike(RFCTYPE t);
// Places fields one after another, each at its alignment, in both layouts.
void layOut(Structure& s);

// The RFCTYPE of an ABAP type letter (C, N, P, ...), for RfcExidToRfcType; false if none.
bool typeOfLetter(char16_t letter, RFCTYPE& out);
// The letter of a type, for the function interface; '?' if none.
char16_t letterOfType(RFCTYPE type);

}  // namespace rfcsdk
