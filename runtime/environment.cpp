#include "runtime/environment.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "platform/unicode.h"

namespace {

std::optional<std::u16string> Lookup(std::u16string_view name) {
  if (name.empty()) return std::nullopt;
  std::string narrow = WideToUtf8Lossy(name);
  const char* value = std::getenv(narrow.c_str());
  if (!value) return std::nullopt;
  return Utf8ToWideLossy(value);
}

bool IsNameStart(char16_t c) { return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || c == u'_'; }
bool IsNameChar(char16_t c) { return IsNameStart(c) || (c >= u'0' && c <= u'9'); }

}  // namespace

std::u16string ExpandEnvironment(std::u16string_view text, size_t limit) {
  std::u16string out;
  size_t i = 0;
  if (!text.empty() && text[0] == u'~' && (text.size() == 1 || text[1] == u'/')) {
    if (auto home = Lookup(u"HOME")) {
      out = *home;
      i = 1;
    }
  }
  while (i < text.size()) {
    char16_t c = text[i];
    if (c == u'%') {
      size_t close = text.find(u'%', i + 1);
      if (close == std::u16string_view::npos) {
        out.append(text.substr(i));
        break;
      }
      auto value = Lookup(text.substr(i + 1, close - i - 1));
      if (value)
        out += *value;
      else
        out.append(text.substr(i, close - i + 1));
      i = close + 1;
    } else if (c == u'$' && i + 1 < text.size() && text[i + 1] == u'{') {
      size_t close = text.find(u'}', i + 2);
      if (close == std::u16string_view::npos) {
        out.append(text.substr(i));
        break;
      }
      auto value = Lookup(text.substr(i + 2, close - i - 2));
      if (value)
        out += *value;
      else
        out.append(text.substr(i, close - i + 1));
      i = close + 1;
    } else if (c == u'$' && i + 1 < text.size() && IsNameStart(text[i + 1])) {
      size_t end = i + 2;
      while (end < text.size() && IsNameChar(text[end])) ++end;
      auto value = Lookup(text.substr(i + 1, end - i - 1));
      if (value)
        out += *value;
      else
        out.append(text.substr(i, end - i));
      i = end;
    } else {
      out.push_back(c);
      ++i;
    }
  }
  if (limit > 0 && out.size() > limit - 1) {
    out.resize(limit - 1);
    if (!out.empty() && out.back() >= 0xD800 && out.back() <= 0xDBFF) out.pop_back();
  }
  if (limit == 0) out.clear();
  return out;
}

std::u16string ExecutablePath() {
  std::vector<char> buffer(4096);
  for (;;) {
    const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (n < 0) return {};
    if (static_cast<size_t>(n) < buffer.size()) return Utf8ToWide(std::string(buffer.data(), static_cast<size_t>(n)));
    buffer.resize(buffer.size() * 2);
  }
}

std::u16string LibraryPath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&ExecutablePath), &info) == 0 || !info.dli_fname) return {};
  std::string path = info.dli_fname;
  // dladdr names the file as it was loaded; make a relative name absolute.
  if (!path.empty() && path[0] != '/') {
    if (char* real = realpath(path.c_str(), nullptr)) {
      path = real;
      std::free(real);
    }
  }
  return Utf8ToWide(path);
}
