// Texts between the component and the NW RFC SDK. SAP_UC is a UTF-16 code
// unit, as the component's strings are, so texts pass without conversion;
// only the SDK's fixed buffers need care: a read stops at the terminator or
// at the end of the buffer, a write is cut to fit and always terminated.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "nwrfc/nwrfc_types.h"

namespace veltrane::nwrfc {

// The text in a buffer of capacity units, up to its terminator.
inline std::u16string_view SapText(const SAP_UC* text, size_t capacity) {
  if (!text) return {};
  size_t n = 0;
  while (n < capacity && text[n] != 0) ++n;
  return {text, n};
}
template <size_t N>
std::u16string_view SapText(const SAP_UC (&text)[N]) {
  return SapText(text, N);
}

// A text the SDK hands out with its terminator (RfcGetRcAsString, ...);
// null reads as empty.
inline std::u16string_view SapText(const SAP_UC* text) {
  return text ? std::u16string_view(text) : std::u16string_view();
}

// Copies text into a buffer of N units, cut to N - 1 and terminated.
template <size_t N>
void CopySapText(SAP_UC (&target)[N], std::u16string_view text) {
  const size_t n = text.size() < N - 1 ? text.size() : N - 1;
  text.copy(target, n);
  target[n] = 0;
}

}  // namespace veltrane::nwrfc
