// HTTP requests and responses as the service sees them, independent of the server library.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vsim::soap {

struct HttpRequest {
  std::string method;                                        // upper case
  std::string target;                                        // path and query, as received
  std::vector<std::pair<std::string, std::string>> headers;  // names in lower case
  std::string body;
  std::string peer;  // address:port of the client

  // The first header of that name (any case), or empty.
  std::string header(std::string_view name) const;
  // Every header of that name joined with "; " (for Cookie).
  std::string headers_joined(std::string_view name) const;
};

struct HttpResponse {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  // Instructions for the server, from fault injection:
  std::int64_t delayMs = 0;   // answer only after this time
  bool closeHalfway = false;  // send the head and half the body, then close the connection
  bool close = false;         // close the connection after the answer

  void set(std::string name, std::string value) { headers.emplace_back(std::move(name), std::move(value)); }
};

const char* statusText(int status);

}  // namespace vsim::soap
