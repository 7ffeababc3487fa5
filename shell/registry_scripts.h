// The module's registry scripts (shell/registry/*.rgs, embedded at build
// time by tools/rgsgen.py), each with its resource number and the class it
// registers; the module's own script has no class.
#pragma once

#include <span>

#include "platform/objbase.h"
#include "veltrane_tlb.h"

namespace veltrane::shell {

struct RegistryScript {
  int resource;
  const CLSID* clsid;  // null: the module's own script
  const char16_t* text;
};

std::span<const RegistryScript> RegistryScripts();

// The script of a class, or null.
inline const RegistryScript* ScriptOf(REFCLSID clsid) {
  for (const RegistryScript& s : RegistryScripts())
    if (s.clsid && *s.clsid == clsid) return &s;
  return nullptr;
}

// The module's own script.
inline const RegistryScript& ModuleScript() {
  for (const RegistryScript& s : RegistryScripts())
    if (!s.clsid) return s;
  return RegistryScripts().front();
}

}  // namespace veltrane::shell
