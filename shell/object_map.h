// The object map: the classes that clients create by class id, each with the
// function that makes a new instance. Every other class of the library is
// made by these objects and is known to the class table by its identity only.
#pragma once

#include "platform/objbase.h"

#include <span>

namespace veltrane::shell {

struct ObjectEntry {
  const CLSID* clsid;
  HRESULT (*createInstance)(REFIID riid, void** ppv);
};

// The entries in the order of the map.
std::span<const ObjectEntry> ObjectMap();

// The entry of a class id, or null.
const ObjectEntry* FindObjectEntry(REFCLSID clsid);

}  // namespace veltrane::shell
