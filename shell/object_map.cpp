#include "shell/object_map.h"

#include "soap/soap_session.h"

namespace veltrane::shell {

namespace {

// Classes are entered here as their implementations arrive; until a class is
// listed, creating it by its class id fails with CLASS_E_CLASSNOTAVAILABLE.
constexpr ObjectEntry kEntries[] = {
    {&CLSID_SoapSession, &CSoapSession::CreateObject}, {nullptr, nullptr},  // end marker, not an entry
};

}  // namespace

std::span<const ObjectEntry> ObjectMap() { return {kEntries, sizeof(kEntries) / sizeof(kEntries[0]) - 1}; }

const ObjectEntry* FindObjectEntry(REFCLSID clsid) {
  for (const ObjectEntry& e : ObjectMap())
    if (*e.clsid == clsid) return &e;
  return nullptr;
}

}  // namespace veltrane::shell
