#include "soap/bsp_pages.h"

#include "engine/convert.h"
#include "soap/basic_logon.h"
#include "soap/soap_codec.h"
#include "soap/soap_service.h"

namespace vsim::soap {

namespace {

std::string escaped(const std::string& text) {
  std::string out;
  appendEscaped(out, text);
  return out;
}

HttpResponse page(int status, const std::string& title, const std::string& body) {
  HttpResponse r;
  r.status = status;
  r.set("Content-Type", "text/html; charset=utf-8");
  r.set("Cache-Control", "no-store");
  r.body = "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>" + escaped(title) +
           "</title><style>"
           "body{margin:0;font-family:sans-serif;font-size:15px;background:#f7f7f7}"
           "#banner{background:#0a6ed1;color:#fff;padding:12px 16px;font-size:20px;font-weight:bold}"
           "main{padding:8px 16px}td{padding:2px 12px 2px 0}"
           "</style></head><body><div id=\"banner\">" +
           escaped(title) + "</div><main>" + body + "</main></body></html>";
  return r;
}

HttpResponse redirect(const std::string& target) {
  HttpResponse r;
  r.status = 302;
  r.set("Location", target);
  r.set("Content-Type", "text/html; charset=utf-8");
  r.body = "<html><body>Moved to <a href=\"" + escaped(target) + "\">" + escaped(target) + "</a></body></html>";
  return r;
}

// The query of a target as received, without the "?".
std::string rawQuery(const std::string& target) {
  const size_t q = target.find('?');
  return q == std::string::npos ? std::string() : target.substr(q + 1);
}

std::string parameterTable(const std::map<std::string, std::string>& query) {
  std::string out = "<table id=\"parameters\">";
  for (const auto& [name, value] : query)
    out += "<tr><td>" + escaped(name) + "</td><td>" + escaped(value) + "</td></tr>";
  return out + "</table>";
}

}  // namespace

BspPages::Visitor BspPages::visitor(const HttpRequest& request, const std::map<std::string, std::string>& query) {
  Visitor v;
  auto q = [&](const char* key) {
    auto it = query.find(key);
    return it == query.end() ? std::string() : it->second;
  };
  v.client = q("sap-client").empty() ? system_.info().defaultClient : q("sap-client");
  const auto cookies = parseCookies(request.headers_joined("cookie"));
  auto ticketCookie = cookies.find("MYSAPSSO2");
  std::optional<Logon> ticket;
  if (ticketCookie == cookies.end()) {
    v.ticketState = "not sent";
  } else if ((ticket = system_.checkTicket(urlDecode(ticketCookie->second, false)))) {
    v.ticketState = "valid ticket of " + ticket->user + " in client " + ticket->client;
  } else {
    v.ticketState = "sent, not valid";
  }
  UserStore& users = system_.users();
  const BasicLogon basic = readBasicLogon(request.header("authorization"));
  if (basic.state == BasicLogon::State::Readable) {
    const LogonResult result = users.check(v.client, basic.user, basic.password);
    if (result == LogonResult::Ok) {
      v.user = basic.user;
      v.language = users.find(v.client, basic.user)->language;
    } else {
      v.refusal = "Logon failed for user \"" + basic.user + "\": " + logonResultText(result);
    }
  } else if (basic.state == BasicLogon::State::Unreadable) {
    v.refusal = "Logon data is not readable";
  } else if (ticket && ticket->client == v.client) {
    v.user = ticket->user;
    v.language = ticket->language;
  } else {
    v.refusal = "No logon data was provided";
  }
  if (auto l = q("sap-language"); !l.empty())
    if (auto key = users.languageKey(l)) v.language = *key;
  return v;
}

HttpResponse BspPages::handle(const HttpRequest& request, const std::string& name,
                              const std::map<std::string, std::string>& query, std::string& user) {
  if (name == "sso.htm") {
    const Visitor v = visitor(request, query);
    return page(200, "Logon ticket", "<p id=\"ticket\">MYSAPSSO2: " + escaped(v.ticketState) + "</p>");
  }
  if (name == "finish.htm") return redirect("exit.htm?" + rawQuery(request.target));
  if (name == "sapparams.htm") return redirect("exit.htm?sap-params=" + base64Encode(rawQuery(request.target)));
  if (name == "exit.htm") return page(200, "Done", "<p>The application has ended.</p>" + parameterTable(query));
  if (name == "close.htm")
    return page(200, "Closing", "<p>This page closes its window.</p><script>window.close();</script>");
  if (name != "start.htm") return page(404, "Not Found", "<p>The page " + escaped(name) + " does not exist</p>");

  const Visitor v = visitor(request, query);
  if (v.user.empty()) {
    HttpResponse r = page(401, "Logon failed", "<p id=\"refusal\">" + escaped(v.refusal) + "</p>");
    r.set("WWW-Authenticate",
          "Basic realm=\"SAP NetWeaver Application Server [" + system_.info().sysid + "/" + v.client + "]\"");
    return r;
  }
  user = v.user;
  const auto iso = system_.users().languageIso(v.language);
  return page(200, "Veltrane BSP demo",
              "<p id=\"logon\">Logged on as " + escaped(v.user) + " in client " + escaped(v.client) + ", language " +
                  escaped(iso ? *iso : v.language) + "</p><p id=\"ticket\">MYSAPSSO2: " + escaped(v.ticketState) +
                  "</p>" + parameterTable(query) +
                  "<p><input id=\"entry\" autofocus size=\"30\"></p><p>"
                  "<button id=\"finish\" onclick=\"location.href='finish.htm?ENTRY='+"
                  "encodeURIComponent(document.getElementById('entry').value)+'&amp;RESULT=OK'\">Finish</button> "
                  "<button id=\"close\" onclick=\"window.close()\">Close window</button></p>");
}

}  // namespace vsim::soap
