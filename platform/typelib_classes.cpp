// The classes of the type library in the process's class table.
#include "platform/objbase.h"
#include "platform/typelib.h"

#include <deque>
#include <mutex>
#include <vector>

namespace veltrane::tlb {

HRESULT RegisterClassIdentities(const LibraryData& lib) {
  // Registered tables must outlive their registration.
  static std::mutex mutex;
  static std::deque<std::vector<COCLASS_REGISTRATION>> tables;
  std::lock_guard<std::mutex> lock(mutex);
  HRESULT hr = RegisterTypeLibrary(lib);
  if (FAILED(hr)) return hr;
  std::vector<COCLASS_REGISTRATION> entries;
  for (USHORT i = 0; i < lib.classCount; ++i) {
    const ClassIdentity& c = lib.classes[i];
    // A class that is already known, with its factory or without, stays as it is.
    LPOLESTR known = nullptr;
    if (SUCCEEDED(ProgIDFromCLSID(*c.clsid, &known))) {
      CoTaskMemFree(known);
      continue;
    }
    entries.push_back(
        COCLASS_REGISTRATION{c.clsid, c.clsidProgId, c.clsidVersionIndependentProgId, c.activatable, nullptr});
  }
  if (entries.empty()) return S_OK;
  tables.push_back(std::move(entries));
  return CoRegisterClassTable(tables.back().data(), static_cast<UINT>(tables.back().size()));
}

}  // namespace veltrane::tlb
