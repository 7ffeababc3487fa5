#include "runtime/string_table.h"

namespace {

constexpr const char16_t* kTexts[kLastStringCode - kFirstStringCode + 1] = {
    /* 513 */ u"The object has already been initialized",
    /* 514 */ u"The object has not been initialized",
    /* 515 */ u"This operation is only allowed on structures and tables",
    /* 516 */ u"Object is not a structure",
    /* 517 */ u"Object is not a table",
    /* 518 */ u"complex data structures are not supported",
    /* 519 */ u"An unexpected error has occured - check trace for details",
    /* 520 */ u"Not connected (call connect() before executing this method)",
    /* 521 */ u"Import of type not possible (no structure?)",
    /* 522 */
    u"It is not possible to start more than one call per session in parallel (finish the active call first)",
    /* 523 */ u"Already connected to the server",
    /* 524 */ u"Type does not exist (or is not activated)",
    /* 525 */ u"The requested parameter does not exist",
    /* 526 */ u"Canceled by user",
    /* 527 */ u"In order to change the password, the old password must be provided via LogonData",
    /* 528 */ u"'librfc32u.dll' not found",
    /* 529 */ u"'librfc32u.dll' corrupt or incompatible",
    /* 530 */ u"BCD value too large or invalid",
    /* 531 */ u"value is not numeric",
    /* 532 */ u"error in string conversion",
    /* 533 */ u"invalid date/time",
    /* 534 */ u"error while processing VARIANT array",
    /* 535 */ u"memory allocation failed",
    /* 536 */ u"invalid array type for XSTRING",
    /* 537 */ u"error installing struct (invalid structure definition)",
    /* 538 */ u"invalid function module name",
    /* 539 */ u"timeout while waiting for RfcCancel() to finish",
    /* 540 */ u"function module not found",
    /* 541 */ u"unknown parameter type",
    /* 542 */
    u"'librfc32u.dll' not found, corrupt or incompatible\n"
    u"(install \"RFC Libraries for Unicode\" or check SAP GUI Installation)",
    /* 543 */ u"RFC Error (check ErrorInfo for details)",
    /* 544 */ u"Unknown or invalid transaction ID",
    /* 545 */
    u"Option \"sso2.create_ticket_module\" is required for NWRFC.\n"
    u"See docs/nwrfc.md in the Veltrane documentation.",
    /* 546 */ u"Invalid connection string",
    /* 547 */
    u"'sapnwrfc.dll' not found, install NWRFCSDK and/or set option 'nwrfc.path'\n"
    u"See docs/nwrfc.md in the Veltrane documentation.",
    /* 548 */ u"option 'nwrfc.ini_path' must be valid file or directory",
};

}  // namespace

std::u16string_view StringTableText(UINT code) {
  if (code < kFirstStringCode || code > kLastStringCode) return {};
  return kTexts[code - kFirstStringCode];
}

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
