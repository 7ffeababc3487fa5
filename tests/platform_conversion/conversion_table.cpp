// Readable text of UTF-16 strings for test messages.
#include "conversion_table.h"

#include <cstdio>

std::string Printable(const char16_t* s, size_t n) {
  std::string out = "\"";
  for (size_t i = 0; i < n; ++i) {
    char16_t c = s[i];
    if (c >= 0x20 && c < 0x7F) {
      out.push_back(static_cast<char>(c));
    } else {
      char buf[16];
      std::snprintf(buf, sizeof buf, "\\u%04X", static_cast<unsigned>(c));
      out += buf;
    }
  }
  return out + "\"";
}
