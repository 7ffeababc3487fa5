#include "runtime/xml_depth.h"

#include <algorithm>
#include <cstring>

size_t ElementDepth(std::string_view s) {
  const size_t end = std::min(s.size(), s.find('\0'));
  s = s.substr(0, end);
  size_t depth = 0, deepest = 0, i = 0;
  auto skipPast = [&](std::string_view terminator, size_t from) {
    size_t at = s.find(terminator, from);
    return at == std::string_view::npos ? end : at + terminator.size();
  };
  while (i < end) {
    const void* hit = std::memchr(s.data() + i, '<', end - i);
    if (!hit) break;
    i = static_cast<size_t>(static_cast<const char*>(hit) - s.data());
    std::string_view rest = s.substr(i);
    if (rest.starts_with("<!--")) {
      i = skipPast("-->", i + 4);
    } else if (rest.starts_with("<![CDATA[")) {
      i = skipPast("]]>", i + 9);
    } else if (rest.starts_with("<?")) {
      i = skipPast("?>", i + 2);
    } else if (rest.starts_with("<!")) {
      int brackets = 0;
      for (i += 2; i < end && !(s[i] == '>' && brackets == 0); ++i) {
        if (s[i] == '[') ++brackets;
        if (s[i] == ']' && brackets > 0) --brackets;
      }
      ++i;
    } else if (rest.starts_with("</")) {
      if (depth > 0) --depth;
      i = skipPast(">", i + 2);
    } else {
      deepest = std::max(deepest, ++depth);
      // The tag ends at the first '>' outside quoted attribute values.
      char quote = 0;
      size_t j = i + 1;
      for (; j < end; ++j) {
        char c = s[j];
        if (quote) {
          if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
          quote = c;
        } else if (c == '>') {
          break;
        }
      }
      if (j < end && j > i + 1 && s[j - 1] == '/' && depth > 0) --depth;
      i = j + 1;
    }
  }
  return deepest;
}

size_t ElementDepth(const char* s) {
  size_t depth = 0, deepest = 0;
  auto skipPast = [](const char* from, const char* terminator) {
    const char* at = std::strstr(from, terminator);
    return at ? at + std::strlen(terminator) : from + std::strlen(from);
  };
  const char* p = s;
  for (;;) {
    p = strchrnul(p, '<');
    if (!*p) break;
    if (p[1] == '!' && p[2] == '-' && p[3] == '-') {
      p = skipPast(p + 4, "-->");
    } else if (p[1] == '!' && std::strncmp(p, "<![CDATA[", 9) == 0) {
      p = skipPast(p + 9, "]]>");
    } else if (p[1] == '?') {
      p = skipPast(p + 2, "?>");
    } else if (p[1] == '!') {
      int brackets = 0;
      for (p += 2; *p && !(*p == '>' && brackets == 0); ++p) {
        if (*p == '[') ++brackets;
        if (*p == ']' && brackets > 0) --brackets;
      }
      if (!*p) break;
      ++p;
    } else if (p[1] == '/') {
      if (depth > 0) --depth;
      p = strchrnul(p + 2, '>');
      if (!*p) break;
      ++p;
    } else {
      deepest = std::max(deepest, ++depth);
      // The tag ends at the first '>' outside quoted attribute values.
      char quote = 0;
      const char* q = p + 1;
      for (; *q; ++q) {
        if (quote) {
          if (*q == quote) quote = 0;
        } else if (*q == '"' || *q == '\'') {
          quote = *q;
        } else if (*q == '>') {
          break;
        }
      }
      if (!*q) break;
      if (q > p + 1 && q[-1] == '/' && depth > 0) --depth;
      p = q + 1;
    }
  }
  return deepest;
}
