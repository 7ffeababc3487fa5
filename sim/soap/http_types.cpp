#include "soap/http_types.h"

#include <cctype>

namespace vsim::soap {

namespace {

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  return true;
}

}  // namespace

std::string HttpRequest::header(std::string_view name) const {
  for (const auto& [n, v] : headers)
    if (equalsIgnoreCase(n, name)) return v;
  return {};
}

std::string HttpRequest::headers_joined(std::string_view name) const {
  std::string out;
  for (const auto& [n, v] : headers) {
    if (!equalsIgnoreCase(n, name)) continue;
    if (!out.empty()) out += "; ";
    out += v;
  }
  return out;
}

const char* statusText(int status) {
  switch (status) {
    case 200: return "OK";
    case 201: return "Created";
    case 204: return "No Content";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 408: return "Request Timeout";
    case 413: return "Payload Too Large";
    case 415: return "Unsupported Media Type";
    case 429: return "Too Many Requests";
    case 500: return "Internal Server Error";
    case 502: return "Bad Gateway";
    case 503: return "Service Unavailable";
    case 504: return "Gateway Timeout";
    default: return "Status";
  }
}

}  // namespace vsim::soap
