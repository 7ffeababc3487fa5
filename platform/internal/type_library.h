// The tables behind a type library object of the platform.
#pragma once

#include "platform/typelib.h"

namespace veltrane::tlb {

// The data of a library that RegisterTypeLibrary made known, or null for
// any other object.
const LibraryData* LibraryOfTypeLib(ITypeLib* lib);

// Loads the file that the registry names for a library of that id and
// version (the major equal, the minor at least the one asked for); false
// when there is none or it cannot be loaded.
bool LoadRegisteredLibraryFile(REFGUID libID, WORD major, WORD minor);

}  // namespace veltrane::tlb
