#include "runtime/string_table.h"

int LoadStringTable(UINT code, OLECHAR* buffer, int size) {
  if (!buffer || size <= 0) return 0;
  std::u16string_view text = StringTableText(code);
  size_t n = text.size() < static_cast<size_t>(size - 1) ? text.size() : static_cast<size_t>(size - 1);
  text.copy(buffer, n);
  buffer[n] = 0;
  return static_cast<int>(n);
}

HRESULT DecodeInternalError(LONG errcode, BSTR* text) {
  if (!text) return E_POINTER;
  *text = nullptr;
  if (errcode < 0) return S_OK;
  std::u16string_view found = StringTableText(static_cast<UINT>(errcode));
  if (found.empty()) return S_OK;
  *text = SysAllocStringLen(found.data(), static_cast<UINT>(found.size()));
  return *text ? S_OK : E_OUTOFMEMORY;
}
