// The NW session's connect string on arbitrary text: it splits into pairs or
// is refused, and never fails otherwise. Pairs have a name; written again
// with every token quoted, they split into the same pairs.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "nwrfc/connection_parameters.h"
#include "platform/unicode.h"

namespace {

using veltrane::nwrfc::ConnectionParameters;
using veltrane::nwrfc::InvalidConnectString;
using veltrane::nwrfc::NormaliseBackslashes;
using Pairs = std::vector<std::pair<std::u16string, std::u16string>>;

// The pairs of text, or false when it is refused.
bool Split(std::u16string_view text, Pairs* pairs) {
  ConnectionParameters parameters;
  try {
    parameters.AddConnectString(NormaliseBackslashes(text));
  } catch (const InvalidConnectString&) {
    return false;
  }
  *pairs = parameters.Pairs();
  return true;
}

void Fail(const char* what, std::u16string_view text) {
  std::fprintf(stderr, "%s: %s\n", what, WideToUtf8Lossy(text).c_str());
  std::abort();
}

// name=value as one quoted token.
std::u16string Quoted(const std::u16string& name, const std::u16string& value) {
  std::u16string token = u"\"";
  for (char16_t c : name + u"=" + value) {
    if (c == u'\\' || c == u'"') token += u'\\';
    token += c;
  }
  return token + u"\"";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::u16string text = Utf8ToWideLossy(std::string_view(reinterpret_cast<const char*>(data), size));
  Pairs pairs;
  try {
    if (!Split(text, &pairs)) return 0;
  } catch (const std::exception& e) {
    Fail(e.what(), text);
  }
  std::u16string again;
  for (const auto& [name, value] : pairs) {
    if (name.empty()) Fail("a pair without a name", text);
    again += (again.empty() ? u"" : u" ") + Quoted(name, value);
  }
  Pairs second;
  if (!Split(again, &second) || second != pairs) Fail("the pairs written again split differently", again);
  return 0;
}
