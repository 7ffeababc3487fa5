// The object map: the classes that clients create by class id, each with the
// function that makes a new instance. tools/typelibgen.py generates it from
// the library's creatable coclasses that the build implements (a back end
// names its class with veltrane_creatable() in its CMakeLists.txt). Every
// other class of the library is made by these objects and is known to the
// class table by its identity only.
#pragma once

#include <span>

#include "platform/objbase.h"

namespace veltrane::shell {

struct ObjectEntry {
  const CLSID* clsid;
  HRESULT (*createInstance)(REFIID riid, void** ppv);
};

// A new instance of Class, asked for riid.
template <class Class>
HRESULT CreateObjectOf(REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  Class* object = nullptr;
  HRESULT hr = Class::CreateInstance(&object);
  if (FAILED(hr)) return hr;
  hr = object->QueryInterface(riid, ppv);
  object->Release();
  return hr;
}

// The entries in the order of the map.
std::span<const ObjectEntry> ObjectMap();

// The entry of a class id, or null.
inline const ObjectEntry* FindObjectEntry(REFCLSID clsid) {
  for (const ObjectEntry& e : ObjectMap())
    if (*e.clsid == clsid) return &e;
  return nullptr;
}

}  // namespace veltrane::shell
