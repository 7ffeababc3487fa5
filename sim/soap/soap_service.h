// The HTTP service of the simulated system: SOAP RFC at /sap/bc/soap/rfc with logon, security
// sessions and stateful contexts, /sap/public/ping, a BSP application (bsp_pages.h), and the
// test-control endpoint /vsim/control/.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "engine/faults.h"
#include "engine/system.h"
#include "soap/bsp_pages.h"
#include "soap/http_types.h"
#include "engine/log.h"

namespace vsim::soap {

inline constexpr const char* kRfcPath = "/sap/bc/soap/rfc";
inline constexpr const char* kControlPath = "/vsim/control/";

using vsim::FaultSpec;
using vsim::parseFault;

struct ServiceOptions {
  std::chrono::seconds securitySessionTimeout{1800};
  std::chrono::seconds contextTimeout{600};
  // When not empty, a control request needs it in the header X-Vsim-Token.
  std::string controlToken;
};

class SoapService {
 public:
  SoapService(System& system, Log& log, ServiceOptions options = {});
  // Answers one request. Thread-safe; calls of one stateful context run one after the other.
  HttpResponse handle(const HttpRequest& request);

  std::size_t contextCount() const;
  std::uint64_t requestCount() const { return requests_; }

 private:
  struct SecuritySession {
    Logon logon;
    std::chrono::steady_clock::time_point lastUsed;
  };
  struct Context {
    std::mutex mutex;
    std::unique_ptr<Session> session;
    std::chrono::steady_clock::time_point lastUsed;
  };
  HttpResponse soap(const HttpRequest& request, const std::map<std::string, std::string>& query,
                    const std::map<std::string, std::string>& cookies, std::string& function, std::string& user);
  HttpResponse control(const HttpRequest& request, const std::string& path,
                       const std::map<std::string, std::string>& query);
  HttpResponse logonFailed(const std::string& client, const std::string& reason) const;
  std::string newId(size_t bytes);
  void prune();

  System& system_;
  Log& log_;
  ServiceOptions options_;
  BspPages bsp_;
  mutable std::mutex mutex_;
  std::map<std::string, SecuritySession> securitySessions_;
  std::map<std::string, std::shared_ptr<Context>> contexts_;
  std::mt19937_64 rng_;
  std::atomic<std::uint64_t> requests_{0};
};

// Query parameters and cookies.
std::map<std::string, std::string> parseQuery(const std::string& target);
std::map<std::string, std::string> parseCookies(const std::string& header);
std::string urlDecode(std::string_view s, bool plusAsSpace = true);
std::string urlEncode(std::string_view s);

}  // namespace vsim::soap
