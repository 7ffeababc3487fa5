// COM runtime: task memory, GUID text, the class table behind activation,
// ProgIDs and the module's lock count. A class or ProgID that the class
// table lacks is looked up in the registry (registry_activation.h).
#include "platform/apartment.h"
#include "platform/com_object.h"
#include "platform/registry_activation.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>

namespace veltrane::platform {

namespace {
std::atomic<LONG> g_moduleLocks{0};
}

void ModuleLock() { ++g_moduleLocks; }
void ModuleUnlock() { --g_moduleLocks; }
LONG ModuleLockCount() { return g_moduleLocks.load(); }

}  // namespace veltrane::platform

namespace {

struct GuidLess {
  bool operator()(const GUID& a, const GUID& b) const { return std::memcmp(&a, &b, sizeof(GUID)) < 0; }
};

struct ClassEntry {
  COCLASS_REGISTRATION reg;
  const COCLASS_REGISTRATION* table;
};

std::mutex g_classMutex;
std::map<GUID, ClassEntry, GuidLess>& classTable() {
  static std::map<GUID, ClassEntry, GuidLess> table;
  return table;
}

bool lookupClass(REFCLSID clsid, COCLASS_REGISTRATION* out) {
  std::lock_guard<std::mutex> lock(g_classMutex);
  auto it = classTable().find(clsid);
  if (it == classTable().end()) return false;
  *out = it->second.reg;
  return true;
}

char16_t upperAscii(char16_t c) { return (c >= u'a' && c <= u'z') ? char16_t(c - 32) : c; }

bool equalsNoCase(const OLECHAR* a, const OLECHAR* b) {
  if (!a || !b) return false;
  for (; *a && *b; ++a, ++b)
    if (upperAscii(*a) != upperAscii(*b)) return false;
  return *a == *b;
}

int hexDigit(OLECHAR c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Reads "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}".
bool parseGuid(LPCOLESTR s, GUID* out) {
  static const char pattern[] = "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}";
  uint8_t bytes[16];
  int nibble = 0;
  for (size_t i = 0; i < sizeof(pattern) - 1; ++i) {
    if (!s[i]) return false;
    if (pattern[i] == 'X') {
      const int d = hexDigit(s[i]);
      if (d < 0) return false;
      if (nibble % 2 == 0)
        bytes[nibble / 2] = static_cast<uint8_t>(d << 4);
      else
        bytes[nibble / 2] |= static_cast<uint8_t>(d);
      ++nibble;
    } else if (s[i] != static_cast<OLECHAR>(pattern[i])) {
      return false;
    }
  }
  if (s[sizeof(pattern) - 1]) return false;
  out->Data1 = (uint32_t(bytes[0]) << 24) | (uint32_t(bytes[1]) << 16) | (uint32_t(bytes[2]) << 8) | bytes[3];
  out->Data2 = static_cast<uint16_t>((bytes[4] << 8) | bytes[5]);
  out->Data3 = static_cast<uint16_t>((bytes[6] << 8) | bytes[7]);
  std::memcpy(out->Data4, bytes + 8, 8);
  return true;
}

LPOLESTR taskString(const OLECHAR* s) {
  size_t n = 0;
  while (s[n]) ++n;
  auto* out = static_cast<LPOLESTR>(CoTaskMemAlloc((n + 1) * sizeof(OLECHAR)));
  if (out) std::memcpy(out, s, (n + 1) * sizeof(OLECHAR));
  return out;
}

}  // namespace

extern "C" {

LPVOID CoTaskMemAlloc(SIZE_T cb) { return std::malloc(cb ? cb : 1); }
LPVOID CoTaskMemRealloc(LPVOID pv, SIZE_T cb) { return std::realloc(pv, cb ? cb : 1); }
void CoTaskMemFree(LPVOID pv) { std::free(pv); }

INT StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, INT cchMax) {
  if (!lpsz || cchMax < CHARS_IN_GUID) return 0;
  char text[CHARS_IN_GUID + 1];
  std::snprintf(text, sizeof(text), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", rguid.Data1, rguid.Data2,
                rguid.Data3, rguid.Data4[0], rguid.Data4[1], rguid.Data4[2], rguid.Data4[3], rguid.Data4[4],
                rguid.Data4[5], rguid.Data4[6], rguid.Data4[7]);
  for (int i = 0; i < CHARS_IN_GUID; ++i) lpsz[i] = static_cast<OLECHAR>(text[i]);
  return CHARS_IN_GUID;
}

HRESULT StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz) {
  if (!lplpsz) return E_INVALIDARG;
  *lplpsz = static_cast<LPOLESTR>(CoTaskMemAlloc(CHARS_IN_GUID * sizeof(OLECHAR)));
  if (!*lplpsz) return E_OUTOFMEMORY;
  StringFromGUID2(rclsid, *lplpsz, CHARS_IN_GUID);
  return S_OK;
}

HRESULT StringFromIID(REFIID riid, LPOLESTR* lplpsz) { return StringFromCLSID(riid, lplpsz); }

HRESULT CLSIDFromString(LPCOLESTR lpsz, CLSID* pclsid) {
  if (!pclsid) return E_INVALIDARG;
  if (!lpsz) {
    *pclsid = CLSID_NULL;
    return S_OK;
  }
  if (lpsz[0] == u'{') {
    if (parseGuid(lpsz, pclsid)) return S_OK;
    *pclsid = CLSID_NULL;
    return CO_E_CLASSSTRING;
  }
  // The platform also accepts a ProgID here.
  if (SUCCEEDED(CLSIDFromProgID(lpsz, pclsid))) return S_OK;
  *pclsid = CLSID_NULL;
  return CO_E_CLASSSTRING;
}

HRESULT IIDFromString(LPCOLESTR lpsz, IID* lpiid) {
  if (!lpiid) return E_INVALIDARG;
  if (!lpsz) {
    *lpiid = IID_NULL;
    return S_OK;
  }
  if (parseGuid(lpsz, lpiid)) return S_OK;
  return CO_E_IIDSTRING;
}

HRESULT CoCreateGuid(GUID* pguid) {
  if (!pguid) return E_INVALIDARG;
  // The generator lives on the heap: the library's thread-local block must stay
  // small enough for a process to load the library after it started (dlopen,
  // as the Python module is loaded), which glibc serves from a reserve of 512 bytes.
  static thread_local std::unique_ptr<std::mt19937_64> rng;
  if (!rng) rng = std::make_unique<std::mt19937_64>(std::random_device{}());
  uint64_t a = (*rng)(), b = (*rng)();
  std::memcpy(pguid, &a, 8);
  std::memcpy(reinterpret_cast<char*>(pguid) + 8, &b, 8);
  pguid->Data3 = static_cast<uint16_t>((pguid->Data3 & 0x0FFF) | 0x4000);   // version 4
  pguid->Data4[0] = static_cast<uint8_t>((pguid->Data4[0] & 0x3F) | 0x80);  // RFC 4122 variant
  return S_OK;
}

HRESULT CoRegisterClassTable(const COCLASS_REGISTRATION* entries, UINT count) {
  if (!entries && count) return E_INVALIDARG;
  std::lock_guard<std::mutex> lock(g_classMutex);
  for (UINT i = 0; i < count; ++i) {
    if (!entries[i].clsid) return E_INVALIDARG;
    classTable()[*entries[i].clsid] = ClassEntry{entries[i], entries};
  }
  return S_OK;
}

HRESULT CoRevokeClassTable(const COCLASS_REGISTRATION* entries) {
  std::lock_guard<std::mutex> lock(g_classMutex);
  bool any = false;
  for (auto it = classTable().begin(); it != classTable().end();) {
    if (it->second.table == entries) {
      it = classTable().erase(it);
      any = true;
    } else {
      ++it;
    }
  }
  return any ? S_OK : S_FALSE;
}

HRESULT CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID, REFIID riid, LPVOID* ppv) {
  if (!ppv) return E_INVALIDARG;
  *ppv = nullptr;
  if (!veltrane::platform::CurrentApartment()) return CO_E_NOTINITIALIZED;
  if (!(dwClsContext & (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER))) return REGDB_E_CLASSNOTREG;
  COCLASS_REGISTRATION reg;
  if (lookupClass(rclsid, &reg) && reg.creatable && reg.getClassObject) return reg.getClassObject(rclsid, riid, ppv);
  // A class the process does not hold comes from the library the registry names.
  return veltrane::platform::RegisteredClassObject(rclsid, riid, ppv);
}

HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid, LPVOID* ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  IClassFactory* factory = nullptr;
  HRESULT hr = CoGetClassObject(rclsid, dwClsContext, nullptr, IID_IClassFactory, reinterpret_cast<void**>(&factory));
  if (FAILED(hr)) return hr;
  hr = factory->CreateInstance(pUnkOuter, riid, ppv);
  factory->Release();
  return hr;
}

HRESULT CLSIDFromProgID(LPCOLESTR lpszProgID, CLSID* lpclsid) {
  if (!lpszProgID || !lpclsid) return E_INVALIDARG;
  {
    std::lock_guard<std::mutex> lock(g_classMutex);
    for (const auto& [clsid, entry] : classTable()) {
      if (equalsNoCase(entry.reg.progId, lpszProgID) || equalsNoCase(entry.reg.versionIndependentProgId, lpszProgID)) {
        *lpclsid = clsid;
        return S_OK;
      }
    }
  }
  if (veltrane::platform::RegisteredProgIdClass(lpszProgID, lpclsid)) return S_OK;
  *lpclsid = CLSID_NULL;
  return CO_E_CLASSSTRING;
}

HRESULT ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* lplpszProgID) {
  if (!lplpszProgID) return E_INVALIDARG;
  *lplpszProgID = nullptr;
  COCLASS_REGISTRATION reg;
  std::u16string registered;
  const OLECHAR* name = nullptr;
  if (lookupClass(clsid, &reg)) {
    name = reg.progId ? reg.progId : reg.versionIndependentProgId;
  } else {
    registered = veltrane::platform::RegisteredClassProgId(clsid);
    if (!registered.empty()) name = registered.c_str();
  }
  if (!name) return REGDB_E_CLASSNOTREG;
  *lplpszProgID = taskString(name);
  return *lplpszProgID ? S_OK : E_OUTOFMEMORY;
}

}  // extern "C"
