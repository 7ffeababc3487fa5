#include "soap/soap_service.h"

#include <cctype>
#include <cstdio>

#include "engine/convert.h"
#include "soap/basic_logon.h"
#include "soap/soap_codec.h"

namespace vsim::soap {

namespace {

constexpr const char* kContextCookie = "sap-contextid";
constexpr const char* kExpired = "expires=Thu, 01 Jan 1970 00:00:00 GMT";
constexpr const char* kOtherNamespace = "urn:vsim:not-the-rfc-namespace";

std::string jsonString(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

HttpResponse textResponse(int status, const std::string& contentType, std::string body) {
  HttpResponse r;
  r.status = status;
  r.set("Content-Type", contentType);
  r.body = std::move(body);
  return r;
}

HttpResponse htmlPage(int status, const std::string& title, const std::string& text) {
  std::string body = "<html><head><title>" + title + "</title></head><body><h1>" + title + "</h1><p>";
  appendEscaped(body, text);
  body += "</p></body></html>";
  return textResponse(status, "text/html; charset=utf-8", std::move(body));
}

HttpResponse badRequest(const std::string& text) { return textResponse(400, "text/plain; charset=utf-8", text + "\n"); }

// The session id inside a context cookie "SID:ANON:<host>_<SID>_<nr>:<id>-NEW".
std::string contextIdOf(const std::string& cookie) {
  const std::string decoded = urlDecode(cookie);
  const size_t colon = decoded.rfind(':');
  std::string id = colon == std::string::npos ? decoded : decoded.substr(colon + 1);
  const size_t dash = id.rfind('-');
  if (dash != std::string::npos) id.erase(dash);
  return id;
}

void applyFault(HttpResponse& r, const FaultSpec& f) {
  switch (f.kind) {
    case FaultSpec::Kind::Delay: r.delayMs = f.value; break;
    case FaultSpec::Kind::Close: r.closeHalfway = true; break;
    case FaultSpec::Kind::Status: {
      HttpResponse s = htmlPage(static_cast<int>(f.value), statusText(static_cast<int>(f.value)),
                                "Status " + std::to_string(f.value) + " was requested by fault injection");
      for (const auto& h : r.headers)
        if (h.first == "Set-Cookie") s.headers.push_back(h);
      r = std::move(s);
      break;
    }
    case FaultSpec::Kind::Malformed: r.body = r.body.substr(0, r.body.size() / 2) + "<<&/SOAP-ENV:Body"; break;
    case FaultSpec::Kind::Namespace: {
      const std::string from = kRfcNs;
      for (size_t p = r.body.find(from); p != std::string::npos; p = r.body.find(from, p + 1))
        r.body.replace(p, from.size(), kOtherNamespace);
      break;
    }
  }
}

}  // namespace

std::string urlDecode(std::string_view s, bool plusAsSpace) {
  std::string out;
  out.reserve(s.size());
  auto hex = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size() && hex(s[i + 1]) >= 0 && hex(s[i + 2]) >= 0) {
      out += static_cast<char>(hex(s[i + 1]) * 16 + hex(s[i + 2]));
      i += 2;
    } else if (s[i] == '+' && plusAsSpace) {
      out += ' ';
    } else {
      out += s[i];
    }
  }
  return out;
}

std::string urlEncode(std::string_view s) {
  std::string out;
  for (unsigned char c : s) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
      out += static_cast<char>(c);
    } else {
      char buf[4];
      std::snprintf(buf, sizeof buf, "%%%02x", c);
      out += buf;
    }
  }
  return out;
}

std::map<std::string, std::string> parseQuery(const std::string& target) {
  std::map<std::string, std::string> out;
  const size_t q = target.find('?');
  if (q == std::string::npos) return out;
  std::string_view rest(target);
  rest.remove_prefix(q + 1);
  while (!rest.empty()) {
    const size_t amp = rest.find('&');
    std::string_view pair = rest.substr(0, amp);
    const size_t eq = pair.find('=');
    std::string key = urlDecode(pair.substr(0, eq));
    std::string value = eq == std::string_view::npos ? std::string() : urlDecode(pair.substr(eq + 1));
    if (!key.empty()) out.emplace(std::move(key), std::move(value));
    if (amp == std::string_view::npos) break;
    rest.remove_prefix(amp + 1);
  }
  return out;
}

std::map<std::string, std::string> parseCookies(const std::string& header) {
  std::map<std::string, std::string> out;
  std::string_view rest(header);
  while (!rest.empty()) {
    const size_t semi = rest.find(';');
    std::string_view pair = trim(rest.substr(0, semi));
    const size_t eq = pair.find('=');
    if (eq != std::string_view::npos && eq > 0) {
      std::string value(trim(pair.substr(eq + 1)));
      if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
      out.emplace(std::string(trim(pair.substr(0, eq))), std::move(value));
    }
    if (semi == std::string_view::npos) break;
    rest.remove_prefix(semi + 1);
  }
  return out;
}

SoapService::SoapService(System& system, Log& log, ServiceOptions options)
    : system_(system), log_(log), options_(options), bsp_(system), rng_(std::random_device{}()) {}

std::size_t SoapService::contextCount() const {
  std::lock_guard lock(mutex_);
  return contexts_.size();
}

std::string SoapService::newId(size_t bytes) {
  std::string raw;
  for (size_t i = 0; i < bytes; i += 8) {
    const std::uint64_t v = rng_();
    raw.append(reinterpret_cast<const char*>(&v), std::min<size_t>(8, bytes - i));
  }
  return hexEncode(raw);
}

void SoapService::prune() {
  const auto now = std::chrono::steady_clock::now();
  for (auto it = securitySessions_.begin(); it != securitySessions_.end();)
    it = now - it->second.lastUsed > options_.securitySessionTimeout ? securitySessions_.erase(it) : std::next(it);
  for (auto it = contexts_.begin(); it != contexts_.end();)
    it = now - it->second->lastUsed > options_.contextTimeout ? contexts_.erase(it) : std::next(it);
}

HttpResponse SoapService::logonFailed(const std::string& client, const std::string& reason) const {
  HttpResponse r = htmlPage(401, "Logon failed", reason);
  r.headers.clear();
  r.set("Content-Type", "text/html; charset=utf-8");
  r.set("WWW-Authenticate",
        "Basic realm=\"SAP NetWeaver Application Server [" + system_.info().sysid + "/" + client + "]\"");
  r.set("Set-Cookie", "sap-usercontext=sap-client=" + client + "; path=/");
  r.body = "<html><head><title>Logon Error Message</title></head><body><h1>Logon failed</h1><p>";
  appendEscaped(r.body, reason);
  r.body += "</p></body></html>";
  return r;
}

HttpResponse SoapService::handle(const HttpRequest& request) {
  const std::uint64_t number = ++requests_;
  const auto start = std::chrono::steady_clock::now();
  const std::string path = request.target.substr(0, request.target.find('?'));
  const auto query = parseQuery(request.target);
  std::string function, user;
  HttpResponse r;
  try {
    if (path == kRfcPath) {
      r = soap(request, query, parseCookies(request.headers_joined("cookie")), function, user);
    } else if (path.compare(0, std::char_traits<char>::length(kBspPath), kBspPath) == 0) {
      r = bsp_.handle(request, path.substr(std::char_traits<char>::length(kBspPath)), query, user);
    } else if (path == "/sap/public/ping") {
      r = textResponse(200, "text/html; charset=utf-8", "<html><body>Server reached.</body></html>");
    } else if (path.compare(0, std::char_traits<char>::length(kControlPath), kControlPath) == 0) {
      r = control(request, path.substr(std::char_traits<char>::length(kControlPath)), query);
    } else {
      r = htmlPage(404, "Not Found", "The service " + path + " does not exist");
    }
  } catch (const std::exception& e) {
    log_.write(LogLevel::Error, "request " + std::to_string(number) + " failed: " + e.what());
    r = textResponse(500, "text/plain; charset=utf-8", std::string("internal error: ") + e.what() + "\n");
  }
  const auto ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  const LogLevel level = r.status < 400 ? LogLevel::Info : LogLevel::Warn;
  if (log_.enabled(level)) {
    char took[32];
    std::snprintf(took, sizeof took, "%.1fms", ms);
    std::string line = "soap " + request.peer + " " + request.method + " " + request.target + " " +
                       (user.empty() ? "-" : user) + " " + (function.empty() ? "-" : function) + " " +
                       std::to_string(r.status) + " " + std::to_string(r.body.size()) + " " + took;
    if (r.delayMs) line += " fault=delay:" + std::to_string(r.delayMs);
    if (r.closeHalfway) line += " fault=close";
    log_.write(level, line);
  }
  if (log_.enabled(LogLevel::Debug)) {
    log_.write(LogLevel::Debug, "request body: " + request.body.substr(0, 4000));
    log_.write(LogLevel::Debug, "response body: " + r.body.substr(0, 4000));
  }
  return r;
}

HttpResponse SoapService::soap(const HttpRequest& request, const std::map<std::string, std::string>& query,
                               const std::map<std::string, std::string>& cookies, std::string& function,
                               std::string& user) {
  UserStore& users = system_.users();
  auto q = [&](const char* key) {
    auto it = query.find(key);
    return it == query.end() ? std::string() : it->second;
  };
  auto cookie = [&](const std::string& key) {
    auto it = cookies.find(key);
    return it == cookies.end() ? std::string() : it->second;
  };
  std::string client = q("sap-client");
  const bool clientGiven = !client.empty();
  if (!clientGiven) client = system_.info().defaultClient;

  std::optional<FaultSpec> fault;
  std::string faultSpec = request.header("x-vsim-fault");
  if (faultSpec.empty()) faultSpec = q("vsim-fault");
  if (!faultSpec.empty()) {
    fault = parseFault(faultSpec);
    if (!fault) return badRequest("invalid fault specification: " + faultSpec);
  }

  // Logon: Basic authentication, a logon ticket, or the security session cookie.
  std::optional<Logon> logon;
  std::string language;
  const std::string authorization = request.header("authorization");
  const std::string ticket =
      !cookie("MYSAPSSO2").empty() ? urlDecode(cookie("MYSAPSSO2"), false) : request.header("mysapsso2");
  std::string sessionCookie = "SAP_SESSIONID_" + system_.info().sysid + "_" + client;
  bool basic = false;
  const BasicLogon basicLogon = readBasicLogon(authorization);
  if (basicLogon.state != BasicLogon::State::Absent) {
    if (!users.hasClient(client)) return logonFailed(client, "Client " + client + " is not available in this system");
    if (basicLogon.state == BasicLogon::State::Unreadable) return logonFailed(client, "Logon data is not readable");
    const std::string& name = basicLogon.user;
    switch (users.check(client, name, basicLogon.password)) {
      case LogonResult::Ok: break;
      case LogonResult::Locked: return logonFailed(client, "User is locked. Please notify the person responsible");
      case LogonResult::UnknownClient:
        return logonFailed(client, "Client " + client + " is not available in this system");
      default: return logonFailed(client, "Name or password is incorrect (repeat logon)");
    }
    logon = Logon{client, name, users.find(client, name)->language};
    basic = true;
  } else if (!ticket.empty()) {
    auto t = system_.checkTicket(ticket);
    if (!t || (clientGiven && t->client != client)) return logonFailed(client, "Logon ticket is not valid");
    client = t->client;
    sessionCookie = "SAP_SESSIONID_" + system_.info().sysid + "_" + client;
    logon = t;
  } else if (!cookie(sessionCookie).empty()) {
    std::lock_guard lock(mutex_);
    auto it = securitySessions_.find(cookie(sessionCookie));
    if (it != securitySessions_.end() && it->second.logon.client == client) {
      it->second.lastUsed = std::chrono::steady_clock::now();
      logon = it->second.logon;
    }
  }
  if (!logon) {
    if (!users.hasClient(client)) return logonFailed(client, "Client " + client + " is not available in this system");
    return logonFailed(client, "No logon data was provided");
  }
  if (auto l = q("sap-language"); !l.empty())
    if (auto key = users.languageKey(l)) logon->language = *key;
  user = logon->user;

  HttpResponse r;
  // The security session: a Basic logon without a valid session cookie of the same user opens one.
  {
    std::lock_guard lock(mutex_);
    if (requests_ % 256 == 0) prune();
    const auto now = std::chrono::steady_clock::now();
    auto it = securitySessions_.find(cookie(sessionCookie));
    const bool valid = it != securitySessions_.end() && it->second.logon.client == logon->client &&
                       it->second.logon.user == logon->user;
    if (valid) {
      it->second.lastUsed = now;
    } else if (basic) {
      const std::string id = newId(16);
      securitySessions_[id] = {*logon, now};
      r.set("Set-Cookie", sessionCookie + "=" + id + "; path=/; HttpOnly");
      r.set("Set-Cookie", "sap-usercontext=sap-client=" + client + "; path=/");
    }
  }

  if (request.method != "POST") {
    HttpResponse m = htmlPage(405, "Method Not Allowed", "The SOAP RFC service takes POST requests only");
    m.set("Allow", "POST");
    return m;
  }

  // The ABAP session: stateless unless a context is opened with session_mode=1.
  const std::string mode = q("session_mode");
  const std::string contextCookie = cookie(kContextCookie);
  std::string contextId = contextCookie.empty() ? std::string() : contextIdOf(contextCookie);
  std::shared_ptr<Context> context;
  {
    std::lock_guard lock(mutex_);
    auto it = contextId.empty() ? contexts_.end() : contexts_.find(contextId);
    if (it != contexts_.end() && it->second->session->logon().client == logon->client &&
        it->second->session->logon().user == logon->user)
      context = it->second;
    if (!context && !contextCookie.empty())
      r.set("Set-Cookie", std::string(kContextCookie) + "=; " + kExpired + "; path=" + kRfcPath);
    if (!context && mode == "1") {
      contextId = newId(16);
      context = std::make_shared<Context>();
      context->session = std::make_unique<Session>(*logon);
      contexts_[contextId] = context;
      const SystemInfo& info = system_.info();
      r.set("Set-Cookie",
            std::string(kContextCookie) + "=" +
                urlEncode("SID:ANON:" + info.host + "_" + info.sysid + "_" + info.instance + ":" + contextId + "-NEW") +
                "; path=" + kRfcPath);
    }
    if (context) context->lastUsed = std::chrono::steady_clock::now();
  }
  if (!fault) fault = system_.faults().take(Front::Soap, *logon, context ? contextId : std::string());

  std::unique_ptr<Session> stateless;
  std::unique_lock<std::mutex> contextLock;
  Session* session;
  if (context) {
    contextLock = std::unique_lock(context->mutex);
    session = context->session.get();
  } else {
    stateless = std::make_unique<Session>(*logon);
    session = stateless.get();
  }
  std::unique_ptr<Call> call;
  try {
    SoapRequest req = parseRequest(system_, request.body, call);
    function = req.function;
    system_.execute(*call, *session);
    r.body = buildResponse(req, *call);
  } catch (const AbapException& e) {
    r.status = 500;
    r.body = buildExceptionFault(function, e);
  } catch (const SystemFailure& e) {
    r.status = 500;
    r.body = buildSystemFault(e);
  } catch (const SoapFault& e) {
    r.status = 500;
    r.body = buildSoapFault(e);
  }
  if (contextLock.owns_lock()) contextLock.unlock();
  r.set("Content-Type", "text/xml; charset=utf-8");
  if (context && mode == "2") {
    std::lock_guard lock(mutex_);
    contexts_.erase(contextId);
    r.set("Set-Cookie", std::string(kContextCookie) + "=; " + kExpired + "; path=" + kRfcPath);
  }
  if (fault) applyFault(r, *fault);
  return r;
}

HttpResponse SoapService::control(const HttpRequest& request, const std::string& path,
                                  const std::map<std::string, std::string>& query) {
  auto q = [&](const char* key) {
    auto it = query.find(key);
    return it == query.end() ? std::string() : it->second;
  };
  // A page a browser only visits, or a request from elsewhere, changes nothing.
  if (request.method != "POST") {
    HttpResponse r = htmlPage(405, "Method Not Allowed", "Control endpoints take POST only");
    r.set("Allow", "POST");
    return r;
  }
  if (!options_.controlToken.empty() && request.header("x-vsim-token") != options_.controlToken)
    return htmlPage(403, "Forbidden", "Control endpoints need the token of the ready line in X-Vsim-Token");
  if (path == "fault") {
    auto f = parseFault(q("fault"));
    if (!f) return badRequest("fault= needs delay:MS, close, status:CODE, malformed or namespace");
    FaultRule rule;
    rule.fault = *f;
    const auto front = parseFront(q("front"));
    if (!front) return badRequest("front= is soap or rfc");
    if (!faultFitsFront(*f, *front)) return badRequest("the RFC front takes delay:MS, close or malformed");
    rule.front = *front;
    rule.client = q("client");
    rule.user = toUpper(q("user"));
    rule.context = q("context").empty() ? std::string() : contextIdOf(q("context"));
    const std::string count = q("count");
    if (!count.empty()) {
      if (count.size() > 9 || count.find_first_not_of("0123456789") != std::string::npos)
        return badRequest("count= needs a number (0: until reset)");
      rule.remaining = std::stoll(count);
    }
    const std::string pass = q("pass");
    if (!pass.empty()) {
      if (pass.size() > 9 || pass.find_first_not_of("0123456789") != std::string::npos)
        return badRequest("pass= needs a number");
      rule.pass = std::stoll(pass);
    }
    const int id = system_.faults().add(rule);
    return textResponse(200, "application/json", "{\"id\":" + std::to_string(id) + "}\n");
  }
  if (path == "reset") {
    const size_t n = system_.faults().clear();
    return textResponse(200, "application/json", "{\"cleared\":" + std::to_string(n) + "}\n");
  }
  if (path == "status") {
    const auto rules = system_.faults().rules();
    std::string body;
    {
      std::lock_guard lock(mutex_);
      body = "{\"requests\":" + std::to_string(requests_.load()) +
             ",\"rfcRequests\":" + std::to_string(system_.rfcRequests()) +
             ",\"contexts\":" + std::to_string(contexts_.size()) +
             ",\"securitySessions\":" + std::to_string(securitySessions_.size()) + ",\"faults\":[";
    }
    for (size_t i = 0; i < rules.size(); ++i) {
      const FaultRule& f = rules[i];
      if (i) body += ",";
      body += "{\"id\":" + std::to_string(f.id) + ",\"fault\":" + jsonString(faultText(f.fault)) +
              ",\"front\":" + jsonString(frontName(f.front)) + ",\"client\":" + jsonString(f.client) +
              ",\"user\":" + jsonString(f.user) + ",\"context\":" + jsonString(f.context) +
              ",\"remaining\":" + std::to_string(f.remaining) + "}";
    }
    body += "]}\n";
    return textResponse(200, "application/json", body);
  }
  if (path == "gateway/drop") {
    const size_t n = system_.dropRegisteredPrograms();
    return textResponse(200, "application/json", "{\"dropped\":" + std::to_string(n) + "}\n");
  }
  if (path == "ticket") {
    Logon logon{q("client").empty() ? system_.info().defaultClient : q("client"), toUpper(q("user")), "E"};
    auto u = system_.users().find(logon.client, logon.user);
    if (!u) return htmlPage(404, "Not Found", "No user " + logon.user + " in client " + logon.client);
    logon.language = u->language;
    std::int64_t seconds = 8 * 3600;
    if (const std::string s = q("seconds"); !s.empty()) {
      if (s.size() > 9 || s.find_first_not_of("0123456789") != std::string::npos)
        return badRequest("seconds= needs a number");
      seconds = std::stoll(s);
    }
    return textResponse(200, "text/plain", system_.issueTicket(logon, seconds) + "\n");
  }
  return htmlPage(404, "Not Found", "Control endpoints: fault, reset, status, ticket, gateway/drop");
}

}  // namespace vsim::soap
