// A BSP application of the simulated system at /sap/bc/bsp/sap/zvsim_bsp/,
// the counterpart of what a BSP window shows:
//
//   start.htm      demands a logon (HTTP Basic, or a MYSAPSSO2 ticket) and
//                  shows the user, client, language, whether the ticket
//                  cookie arrived, the parameters received, a field to type
//                  into, "Finish" and "Close window" buttons
//   sso.htm        no logon: shows whether the MYSAPSSO2 cookie arrived, and
//                  for whom its ticket is valid
//   finish.htm     redirects to exit.htm with the query it received
//   sapparams.htm  redirects to exit.htm?sap-params=<Base64 of its query>
//   exit.htm       the exit page: shows the parameters it received
//   close.htm      a page that closes its window by script when loaded
#pragma once

#include <map>
#include <string>

#include "engine/system.h"
#include "soap/http_types.h"

namespace vsim::soap {

inline constexpr const char* kBspPath = "/sap/bc/bsp/sap/zvsim_bsp/";

class BspPages {
 public:
  explicit BspPages(System& system) : system_(system) {}
  // The page below kBspPath; user is set to the logged-on user.
  HttpResponse handle(const HttpRequest& request, const std::string& page,
                      const std::map<std::string, std::string>& query, std::string& user);

 private:
  struct Visitor {
    std::string client;
    std::string user;      // empty: not logged on
    std::string language;  // one-letter key
    std::string ticketState;
    std::string refusal;  // why the logon failed
  };
  Visitor visitor(const HttpRequest& request, const std::map<std::string, std::string>& query);

  System& system_;
};

}  // namespace vsim::soap
