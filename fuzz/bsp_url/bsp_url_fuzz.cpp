// The URL of a BSP window and the parameters read back from the URL of its
// exit page, on arbitrary text: every returned pair comes from the text (or
// from its "sap-params"), and a URL built from parameters hands them back.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "bsp/bsp_url.h"

using namespace veltrane::bsp;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::u16string text;
  for (size_t i = 0; i + 1 < size; i += 2) text += static_cast<char16_t>(data[i] | (data[i + 1] << 8));
  for (const ReturnedParameter& p : ReturnedParameters(text))
    if (p.name.find(u'=') != std::u16string::npos || p.value.find(u'&') != std::u16string::npos) std::abort();

  // Names and values without "=", "&" and "?" make a query that reads back.
  UrlSource source;
  source.protocol = u"http";
  source.host = u"h";
  source.port = 1;
  std::u16string name, value;
  for (char16_t c : text) {
    if (c == u'=' || c == u'&' || c == u'?') continue;
    (name.size() <= value.size() ? name : value) += c;
  }
  if (name.empty() || name == u"sap-params") return 0;
  source.parameters = {{name, value}, {u"Z", value}};
  const std::u16string url = BuildUrl(u"/a.htm?x=1", source);
  const auto back = ReturnedParameters(url);
  if (back.size() != 3 || back[1].name != name || back[1].value != value || back[2].name != u"Z") std::abort();
  return 0;
}
