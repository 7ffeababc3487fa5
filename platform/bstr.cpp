// BSTR: a length-prefixed UTF-16 string. The 32-bit prefix holds the length
// in bytes; the text is followed by a null character. A null BSTR reads as
// empty but stays distinct from an allocated empty string.
#include "platform/oleauto.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kPrefix = sizeof(uint32_t);

BSTR allocBytes(const void* data, size_t bytes) {
  if (bytes > 0x7FFFFFF0u) return nullptr;
  // Prefix, payload and a two-byte terminator (plus one byte when odd).
  auto* block = static_cast<char*>(std::malloc(kPrefix + bytes + sizeof(OLECHAR) + 1));
  if (!block) return nullptr;
  uint32_t len = static_cast<uint32_t>(bytes);
  std::memcpy(block, &len, kPrefix);
  char* text = block + kPrefix;
  if (data)
    std::memcpy(text, data, bytes);
  else
    std::memset(text, 0, bytes);
  std::memset(text + bytes, 0, sizeof(OLECHAR) + 1);
  return reinterpret_cast<BSTR>(text);
}

char* blockOf(BSTR b) { return reinterpret_cast<char*>(b) - kPrefix; }

size_t wideLength(const OLECHAR* s) {
  size_t n = 0;
  while (s[n]) ++n;
  return n;
}

}  // namespace

extern "C" {

BSTR SysAllocString(const OLECHAR* psz) {
  if (!psz) return nullptr;
  return allocBytes(psz, wideLength(psz) * sizeof(OLECHAR));
}

BSTR SysAllocStringLen(const OLECHAR* pch, UINT cch) {
  return allocBytes(pch, static_cast<size_t>(cch) * sizeof(OLECHAR));
}

BSTR SysAllocStringByteLen(const char* psz, UINT len) { return allocBytes(psz, len); }

void SysFreeString(BSTR bstr) {
  if (bstr) std::free(blockOf(bstr));
}

UINT SysStringByteLen(BSTR bstr) {
  if (!bstr) return 0;
  uint32_t len;
  std::memcpy(&len, blockOf(bstr), kPrefix);
  return len;
}

UINT SysStringLen(BSTR bstr) { return SysStringByteLen(bstr) / sizeof(OLECHAR); }

INT SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len) {
  if (!pbstr) return FALSE;
  BSTR fresh;
  if (psz) {
    fresh = SysAllocStringLen(psz, len);
  } else {
    // Without a source the old content is kept, as far as it reaches.
    fresh = SysAllocStringLen(nullptr, len);
    if (fresh && *pbstr) {
      UINT keep = SysStringLen(*pbstr);
      std::memcpy(fresh, *pbstr, (keep < len ? keep : len) * sizeof(OLECHAR));
    }
  }
  if (!fresh) return FALSE;
  SysFreeString(*pbstr);
  *pbstr = fresh;
  return TRUE;
}

INT SysReAllocString(BSTR* pbstr, const OLECHAR* psz) {
  if (!pbstr) return FALSE;
  BSTR fresh = SysAllocString(psz);
  if (psz && !fresh) return FALSE;
  SysFreeString(*pbstr);
  *pbstr = fresh;
  return TRUE;
}

}  // extern "C"
