#include "bsp/bsp_url.h"

#include "runtime/base64.h"
#include "runtime/wformat.h"

namespace veltrane::bsp {

namespace {

constexpr std::u16string_view kSapParams = u"sap-params";

void AppendLogonParameter(std::u16string& url, std::u16string_view name, std::u16string_view value) {
  if (value.empty() || url.find(name) != std::u16string::npos) return;
  url += url.find(u'?') != std::u16string::npos ? u'&' : u'?';
  url += name;
  url += u'=';
  url += value;
}

std::vector<NameValue> ReadPairs(std::u16string_view query) {
  std::vector<NameValue> pairs;
  size_t pos = 0;
  for (;;) {
    const size_t eq = query.find(u'=', pos);
    if (eq == std::u16string_view::npos) break;
    const size_t amp = query.find(u'&', eq + 1);
    const size_t end = amp == std::u16string_view::npos ? query.size() : amp;
    pairs.emplace_back(query.substr(pos, eq - pos), query.substr(eq + 1, end - eq - 1));
    if (amp == std::u16string_view::npos) break;
    pos = amp + 1;
  }
  return pairs;
}

// Base64 into Latin-1: one character per byte.
std::u16string DecodeLatin1(std::u16string_view base64) {
  const std::vector<uint8_t> bytes = Base64DecodeUntilInvalid(base64);
  return std::u16string(bytes.begin(), bytes.end());
}

}  // namespace

std::u16string BuildUrl(std::u16string_view application, const UrlSource& source) {
  std::u16string url;
  if (application.find(u"://") != std::u16string_view::npos) {
    url = application;
  } else {
    std::u16string protocol = source.protocol;
    if (protocol.find(u"://") == std::u16string::npos) protocol += u"://";
    std::u16string path(application);
    if (path.empty() || path[0] != u'/') path.insert(0, u"/");
    url = FormatW(u"%s%s:%i%s", protocol, source.host, source.port, path);
  }
  AppendLogonParameter(url, u"sap-client", source.client);
  AppendLogonParameter(url, u"sap-language", source.language);
  std::u16string parameters;
  for (const auto& [name, value] : source.parameters) parameters += u"&" + name + u"=" + value;
  return FormatW(u"%s%s", url, parameters);
}

std::vector<ReturnedParameter> ReturnedParameters(std::u16string_view finalUrl) {
  std::vector<ReturnedParameter> out;
  const size_t question = finalUrl.rfind(u'?');
  if (question == std::u16string_view::npos) return out;
  const std::vector<NameValue> pairs = ReadPairs(finalUrl.substr(question + 1));
  if (pairs.empty()) return out;
  if (pairs.front().first == kSapParams) {
    for (auto& [name, value] : ReadPairs(DecodeLatin1(pairs.front().second)))
      out.push_back({std::move(name), std::move(value), true});
    return out;
  }
  for (size_t i = 0; i < pairs.size(); ++i) out.push_back({pairs[i].first, pairs[i].second, i > 0});
  return out;
}

WindowRect TargetRectangle(int screenWidth, int screenHeight, LONG left, LONG top, LONG width, LONG height) {
  if (left > screenWidth) left = screenWidth / 2;
  if (top > screenHeight) top = screenHeight / 2;
  return {left, top, left + width, top + height};
}

}  // namespace veltrane::bsp
