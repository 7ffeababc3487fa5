#include "engine/system.h"

#include <ctime>
#include <random>

#include "engine/convert.h"

namespace vsim {

System::System(SystemOptions options) : options_(options) {
  std::random_device rd;
  for (int i = 0; i < 4; ++i) ticketSecret_ += std::to_string(rd());
  installDictionary(*this);
  installData(*this);
  installBasisModules(*this);
  installMetadataModules(*this);
  installReadTable(*this);
  installSecurityModules(*this);
  installFlightModules(*this);
  installTestModules(*this);
  installGatewayModules(*this);
  installLuwModules(*this);
}

size_t System::dropRegisteredPrograms() {
  Gateway* g = gateway_;
  return g ? g->dropAll() : 0;
}

std::int64_t System::count(const std::string& key, std::int64_t add) {
  std::lock_guard lock(countersMutex_);
  return counters_[key] += add;
}

void System::addNote(const std::string& key, Note note) {
  std::lock_guard lock(notesMutex_);
  notes_[key].push_back(std::move(note));
}

std::vector<System::Note> System::notes(const std::string& key) const {
  std::lock_guard lock(notesMutex_);
  auto it = notes_.find(key);
  return it == notes_.end() ? std::vector<Note>{} : it->second;
}

Parameter System::param(Direction d, const std::string& name, const std::string& typeRef, bool optional,
                        const std::string& defaultValue, const std::string& text) const {
  Parameter p;
  p.name = name;
  p.direction = d;
  p.typeRef = typeRef;
  TypePtr t = dictionary_.resolve(typeRef);
  if (d == Direction::Tables) {
    if (t->kind == Kind::Table) t = t->row;
    if (t->kind != Kind::Struct) throw std::invalid_argument("TABLES parameter " + name + " needs a structure");
    t = makeTable({}, t);
  }
  p.type = std::move(t);
  p.optional = optional || !defaultValue.empty();
  p.defaultValue = defaultValue;
  p.text = text.empty() ? p.type->text : text;
  if (p.text.empty() && d == Direction::Tables) p.text = p.type->row->text;
  return p;
}

Call System::prepare(const std::string& function) {
  FunctionPtr fm = functions_.find(function);
  if (!fm) throw SystemFailure("FU_NOT_FOUND", "Function module \"" + function + "\" not found");
  return Call(std::move(fm));
}

void System::execute(Call& call, Session& session) {
  const FunctionModule& fm = call.function();
  const Logon& logon = session.logon();
  if (!users_.mayCall(logon.client, logon.user, fm.name))
    throw SystemFailure("RFC_AUTHORIZATION_FAILURE",
                        "User " + logon.user + " has no RFC authorization for function module " + fm.name + ".");
  for (size_t i = 0; i < fm.params.size(); ++i) {
    const Parameter& p = fm.params[i];
    if (p.direction != Direction::Importing || call.supplied(i) || p.defaultValue.empty() || !p.type->isScalar())
      continue;
    try {
      call.value(i) = parseValue(*p.type, evaluateDefault(p.defaultValue, logon), TextForm::Plain);
    } catch (const ConversionError&) {
      // A default that does not fit leaves the initial value, as the ABAP runtime would.
    }
  }
  CallContext ctx(*this, session, call);
  fm.handler(ctx);
}

std::string System::evaluateDefault(const std::string& expr, const Logon& logon) const {
  const std::string e(trim(expr));
  if (e == "SPACE") return "";
  if (e == "SY-LANGU") return logon.language;
  if (e == "SY-UNAME") return logon.user;
  if (e == "SY-MANDT") return logon.client;
  if (e == "SY-DATUM") return today();
  if (e == "SY-UZEIT") return now();
  if (e == "SY-SYSID") return info_.sysid;
  if (e.size() >= 2 && (e.front() == '\'' || e.front() == '`') && e.back() == e.front())
    return e.substr(1, e.size() - 2);
  return e;
}

namespace {

std::string ticketMac(const std::string& secret, const std::string& payload) {
  std::uint64_t h = 1469598103934665603ULL;
  for (char c : secret + "|" + payload + "|" + secret) h = (h ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  char buf[20];
  std::snprintf(buf, sizeof buf, "%016llx", static_cast<unsigned long long>(h));
  return buf;
}

// Version 2, code page 4103, as the tickets of an ABAP system begin.
const std::string kTicketHeader = std::string(
    "\x02"
    "4103"
    "\x01\x00",
    7);

}  // namespace

std::string System::issueTicket(const Logon& logon, std::int64_t seconds) const {
  const std::string payload = info_.sysid + "|" + logon.client + "|" + logon.user + "|" + logon.language + "|" +
                              std::to_string(static_cast<long long>(std::time(nullptr) + seconds));
  return base64Encode(kTicketHeader + payload + "|" + ticketMac(ticketSecret_, payload));
}

std::optional<Logon> System::checkTicket(const std::string& ticket) const {
  std::string raw;
  try {
    raw = base64Decode(ticket);
  } catch (const ConversionError&) {
    return std::nullopt;
  }
  if (raw.compare(0, kTicketHeader.size(), kTicketHeader) != 0) return std::nullopt;
  raw.erase(0, kTicketHeader.size());
  const size_t bar = raw.rfind('|');
  if (bar == std::string::npos) return std::nullopt;
  const std::string payload = raw.substr(0, bar);
  if (raw.substr(bar + 1) != ticketMac(ticketSecret_, payload)) return std::nullopt;
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t i = 0; i <= payload.size(); ++i)
    if (i == payload.size() || payload[i] == '|') {
      parts.push_back(payload.substr(start, i - start));
      start = i + 1;
    }
  if (parts.size() != 5 || parts[0] != info_.sysid) return std::nullopt;
  if (std::atoll(parts[4].c_str()) < static_cast<long long>(std::time(nullptr))) return std::nullopt;
  auto user = users_.find(parts[1], parts[2]);
  if (!user || user->locked) return std::nullopt;
  return Logon{parts[1], parts[2], parts[3]};
}

bool System::sleepFor(std::int64_t ms) {
  if (ms <= 0) return !stopping_;
  if (ms > options_.maxWaitMs) ms = options_.maxWaitMs;
  std::unique_lock lock(waitMutex_);
  return !waitCv_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return stopping_.load(); });
}

void System::shutdown() {
  {
    std::lock_guard lock(waitMutex_);
    stopping_ = true;
  }
  waitCv_.notify_all();
}

std::string System::today() {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[16];
  std::strftime(buf, sizeof buf, "%Y%m%d", &tm);
  return buf;
}

std::string System::now() {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[16];
  std::strftime(buf, sizeof buf, "%H%M%S", &tm);
  return buf;
}

}  // namespace vsim
