#include "rfc_sdk/connection.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "rfc_sdk/text.h"

namespace rfcsdk {

namespace proto = vsim::proto;
using proto::MessageKind;

namespace {

std::atomic<long long> connectTimeoutMs{[] {
  const char* env = std::getenv("CPIC_CONNECT_TIMEOUT");  // seconds
  const long long s = env ? std::atoll(env) : 0;
  return s > 0 ? s * 1000 : 60000;
}()};

[[noreturn]] void protocolFailure(const std::string& why) { fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, why); }

}  // namespace

void setConnectTimeout(std::chrono::milliseconds t) { connectTimeoutMs = t.count(); }

Connection::Connection(Role role, bool trace) : role_(role), trace_(trace) {}

Connection::~Connection() { close(false); }

void Connection::trace(veltrane::sdk::rfc::Entry entry, const std::string& detail) {
  if (!trace_) return;
  if (traceFile_.empty()) {
    const char* dir = std::getenv("RFC_TRACE_DIR");
    traceFile_ = std::string(dir && *dir ? dir : ".") + "/rfc" + std::to_string(::getpid()) + "_" +
                 std::to_string(handle_) + ".trc";
  }
  std::ofstream(traceFile_, std::ios::app)
      << veltrane::sdk::rfc::entryName(entry) << (detail.empty() ? "" : " ") << detail << '\n';
}

void Connection::connectTo(const std::string& host, const std::string& port) {
  host_ = host;
  port_ = port;
  try {
    socket_ = proto::ClientSocket::connect(host, port, std::chrono::milliseconds(connectTimeoutMs.load()));
  } catch (const proto::IoError& e) {
    fail(RFC_FAILURE, RFC_ERROR_COMMUNICATION, "Connect to " + host + ":" + port + " failed: " + e.what());
  }
  open_ = true;
}

void Connection::logon(MessageKind kind, proto::Pairs params) {
  proto::FrameBuilder f(kind);
  proto::OpenRequest m;
  m.params = std::move(params);
  proto::writeOpen(f.writer(), m);
  const std::string answer = request(f.finish());
  proto::Reader r(answer);
  if (static_cast<MessageKind>(r.u8()) != MessageKind::LogonOk) protocolFailure("The system did not answer the logon");
  try {
    attributes_ = proto::readOpenReply(r).attributes;
  } catch (const proto::ProtocolError& e) {
    protocolFailure(e.what());
  }
  if (std::string t = attribute("ticket"); !t.empty()) ticket_ = std::move(t);
}

std::shared_ptr<Connection> Connection::open(const ConnectOptions& o) {
  const std::string type = o.choice("TYPE", "3", {"3", "2", "E"});
  if (type != "3")
    fail(RFC_FAILURE, RFC_ERROR_PROGRAM,
         "TYPE=" + type + " is not supported by this library; only TYPE=3 (ABAP systems)");
  for (const char* id : {"DEST", "MSHOST", "R3NAME", "GROUP", "X509CERT", "EXTIDDATA", "EXTIDTYPE", "TPNAME"})
    if (o.has(id)) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, std::string(id) + " is not supported by this library");
  if (o.choice("SNC_MODE", "0", {"0", "1"}) == "1")
    fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "SNC is not supported by this library");
  const std::string toUpper = o.choice("TOUPPER", "1", {"0", "1"});
  o.choice("USE_SAPGUI", "0", {"0", "1", "2"});
  o.choice("ABAP_DEBUG", "0", {"0", "1"});
  o.choice("LCHECK", "1", {"0", "1"});
  const bool getTicket = o.choice("GETSSO2", "0", {"0", "1"}) == "1";
  const bool trace = o.choice("TRACE", "0", {"0", "1"}) == "1";

  const std::string host = o.get("ASHOST");
  if (host.empty()) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "ASHOST is missing in the connect string");
  std::string port;
  if (o.has("GWSERV")) {
    port = gatewayPort(o.get("GWSERV"));
  } else {
    const std::string sysnr = o.get("SYSNR");
    if (sysnr.size() != 2 || sysnr.find_first_not_of("0123456789") != std::string::npos)
      fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "SYSNR is missing or not two digits in the connect string");
    port = std::to_string(3300 + std::stoi(sysnr));
  }

  proto::Pairs pairs;
  auto add = [&](const char* id, const char* name, bool upper) {
    if (o.has(id)) pairs.emplace_back(name, upper ? upperAscii(o.get(id)) : o.get(id));
  };
  add("CLIENT", "client", false);
  add("USER", "user", toUpper == "1");
  add("PASSWD", "passwd", toUpper == "1");
  add("LANG", "lang", true);
  add("MYSAPSSO2", "mysapsso2", false);
  if (getTicket) pairs.emplace_back("getsso2", "1");
  pairs.emplace_back("program", proto::programName());

  std::shared_ptr<Connection> c(new Connection(Role::Client, trace));
  c->connectTo(host, port);
  c->logonPairs_ = pairs;
  c->logon(MessageKind::Logon, std::move(pairs));
  return c;
}

std::shared_ptr<Connection> Connection::registerAt(const ServerOptions& o) {
  std::shared_ptr<Connection> c(new Connection(Role::Server, o.trace));
  c->connectTo(o.gatewayHost, gatewayPort(o.gatewayService));
  c->logon(MessageKind::Register, {{"program_id", o.programId}, {"program", proto::programName()}});
  return c;
}

void Connection::lost(const std::string& why) {
  socket_.close();
  open_ = false;
  callOut_ = false;
  fail(RFC_SYS_EXCEPTION, RFC_ERROR_COMMUNICATION, why);
}

void Connection::send(const std::string& frame) {
  std::lock_guard lock(io_);
  if (!open_) fail(RFC_FAILURE, RFC_ERROR_COMMUNICATION, "The connection is closed");
  try {
    socket_.send(frame);
  } catch (const proto::IoError& e) {
    lost(std::string("Connection to partner broken: ") + e.what());
  }
}

// The next frame within `timeout`; `nothing` tells that none came in time. An ERROR frame is
// returned as it is.
std::string Connection::receiveLocked(std::chrono::milliseconds timeout, bool* nothing) {
  if (!open_) fail(RFC_FAILURE, RFC_ERROR_COMMUNICATION, "The connection is closed");
  try {
    std::optional<std::string> body = socket_.receive(timeout);
    if (!body) {
      *nothing = true;
      return {};
    }
    if (body->empty() || !proto::messageKindKnown(static_cast<std::uint8_t>((*body)[0]))) {
      socket_.close();
      open_ = false;
      protocolFailure("The partner sent a frame that follows no protocol");
    }
    *nothing = false;
    return std::move(*body);
  } catch (const proto::IoError& e) {
    lost(e.closedByPeer() ? "Connection closed by the partner"
                          : std::string("Connection to partner broken: ") + e.what());
  } catch (const proto::ProtocolError& e) {
    socket_.close();
    open_ = false;
    protocolFailure(e.what());
  }
}

namespace {

// Throws the record of an ERROR answer.
void raiseIfError(const std::string& body, bool& closes) {
  if (static_cast<MessageKind>(body[0]) != MessageKind::Error) return;
  proto::ErrorInfo e;
  try {
    proto::Reader r(body.data() + 1, body.size() - 1);
    e = proto::readError(r);
  } catch (const proto::ProtocolError& ex) {
    closes = true;
    protocolFailure(ex.what());
  }
  closes = e.closes;
  const ErrorRecord record = recordOf(e);
  throw Failure(e.closes ? RFC_SYS_EXCEPTION : RFC_FAILURE, record);
}

}  // namespace

std::string Connection::request(const std::string& frame) {
  std::lock_guard lock(io_);
  if (callOut_) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "A call is out on this handle; receive its answer first");
  send(frame);
  bool nothing = false;
  std::string body;
  do body = receiveLocked(std::chrono::milliseconds(-1), &nothing);
  while (nothing);
  bool closes = false;
  try {
    raiseIfError(body, closes);
  } catch (const Failure&) {
    if (closes) close(false);
    throw;
  }
  return body;
}

void Connection::startCall(const std::string& frame) {
  std::lock_guard lock(io_);
  if (callOut_) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "A call is out on this handle; receive its answer first");
  send(frame);
  answer_.reset();
  callOut_ = true;
}

RFC_RC Connection::listen() {
  std::lock_guard lock(io_);
  if (!open_) {
    setLastError({RFC_ERROR_COMMUNICATION, groupKey(RFC_ERROR_COMMUNICATION), "The connection is closed"});
    return RFC_CLOSED;
  }
  if (role_ == Role::Server) {
    try {
      return socket_.readable(std::chrono::milliseconds(0)) ? RFC_OK : RFC_RETRY;
    } catch (const proto::IoError& e) {
      lost(e.what());
    }
  }
  if (!callOut_) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "No call is waiting for its answer on this handle");
  if (answer_) return RFC_OK;
  bool nothing = false;
  try {
    std::string body = receiveLocked(std::chrono::milliseconds(0), &nothing);
    if (nothing) return RFC_RETRY;
    answer_ = std::move(body);
    return RFC_OK;
  } catch (const Failure& f) {
    setLastError(f.record());
    return open_ ? RFC_FAILURE : RFC_CLOSED;
  }
}

std::string Connection::takeAnswer() {
  std::unique_lock lock(io_);
  if (!callOut_) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "No call is waiting for its answer on this handle");
  while (!answer_) {
    // Waits in slices so that a cancel from another thread gets the connection.
    if (cancelling_) {
      lock.unlock();
      while (cancelling_) std::this_thread::sleep_for(std::chrono::milliseconds(5));
      fail(RFC_CANCELED, RFC_ERROR_CANCELLED, "The call was cancelled");
    }
    bool nothing = false;
    std::string body = receiveLocked(std::chrono::milliseconds(50), &nothing);
    if (!nothing) answer_ = std::move(body);
  }
  callOut_ = false;
  std::string body = std::move(*answer_);
  answer_.reset();
  return body;
}

RFC_RC Connection::cancel(RFC_CANCEL_TYPE type) {
  cancelling_ = true;
  std::lock_guard lock(io_);
  struct Reset {
    std::atomic<bool>& flag;
    ~Reset() { flag = false; }
  } reset{cancelling_};
  if (!open_) fail(RFC_CLOSED, RFC_ERROR_COMMUNICATION, "The connection is closed");
  if (role_ != Role::Client || !callOut_) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "No call is running on this handle");
  // The system cannot be interrupted in a call: the connection that carries it goes, and for a
  // hard or soft cancel a new one with the same logon takes its place (a new user context).
  socket_.close();
  open_ = false;
  callOut_ = false;
  answer_.reset();
  if (type == RFC_CANCEL_CLOSE) {
    setLastError(
        {RFC_ERROR_CANCELLED, groupKey(RFC_ERROR_CANCELLED), "The call was cancelled; the connection is closed"});
    return RFC_CLOSED;
  }
  try {
    connectTo(host_, port_);
    logon(MessageKind::Logon, logonPairs_);
  } catch (const Failure& f) {
    socket_.close();
    open_ = false;
    setLastError(f.record());
    return RFC_CLOSED;
  }
  return RFC_CANCELED;
}

// Waits in slices, so that a close from another thread gets the connection.
std::optional<std::string> Connection::nextRequest(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (true) {
    std::chrono::milliseconds slice(50);
    if (timeout.count() >= 0) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      slice = std::max(std::chrono::milliseconds(0), std::min(slice, left));
    }
    {
      std::lock_guard lock(io_);
      if (!open_) fail(RFC_CLOSED, RFC_ERROR_COMMUNICATION, "The connection is closed");
      bool nothing = false;
      try {
        std::string body = receiveLocked(slice, &nothing);
        if (!nothing) return body;
      } catch (const Failure& f) {
        if (!open_) throw Failure(RFC_CLOSED, f.record());
        throw;
      }
    }
    if (timeout.count() >= 0 && std::chrono::steady_clock::now() >= deadline) return std::nullopt;
  }
}

RFC_RC Connection::waitForRequest(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (true) {
    {
      std::lock_guard lock(io_);
      if (!open_) fail(RFC_CLOSED, RFC_ERROR_COMMUNICATION, "The connection is closed");
      try {
        if (socket_.readable(std::chrono::milliseconds(timeout.count() < 0 ? 50 : 0))) return RFC_OK;
      } catch (const proto::IoError& e) {
        lost(e.what());
      }
    }
    if (timeout.count() >= 0) {
      if (std::chrono::steady_clock::now() >= deadline) return RFC_RETRY;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
}

void Connection::close(bool politely) {
  std::lock_guard lock(io_);
  if (politely && open_) {
    try {
      socket_.send(proto::FrameBuilder(MessageKind::Close).finish());
    } catch (const proto::IoError&) {}
  }
  socket_.close();
  open_ = false;
  callOut_ = false;
}

std::optional<std::string> Connection::takeTicket() {
  std::lock_guard lock(io_);
  std::optional<std::string> t = std::move(ticket_);
  ticket_.reset();
  return t;
}

const proto::FunctionInfo& Connection::describeFunction(const std::string& name) {
  std::lock_guard lock(io_);
  if (auto it = functions_.find(name); it != functions_.end()) return it->second;
  proto::FrameBuilder f(MessageKind::DescribeFunction);
  f.writer().text(name);
  const std::string answer = request(f.finish());
  proto::Reader r(answer);
  if (static_cast<MessageKind>(r.u8()) != MessageKind::FunctionDesc) protocolFailure("Expected a function description");
  try {
    return functions_[name] = proto::readFunctionInfo(r);
  } catch (const proto::ProtocolError& e) {
    protocolFailure(e.what());
  }
}

std::vector<proto::TypeInfo> Connection::describeType(const std::string& name) {
  proto::FrameBuilder f(MessageKind::DescribeType);
  f.writer().text(name);
  const std::string answer = request(f.finish());
  proto::Reader r(answer);
  if (static_cast<MessageKind>(r.u8()) != MessageKind::TypeDesc) protocolFailure("Expected a type description");
  try {
    auto types = proto::readTypeList(r);
    r.expectEnd();
    if (types.empty()) protocolFailure("The system described no type");
    return types;
  } catch (const proto::ProtocolError& e) {
    protocolFailure(e.what());
  }
}

namespace {

// Handle numbers go round 1..kHandleNumbers: a closed handle's number comes back only after the
// others, so a late second close of it finds no newer connection.
constexpr RFC_HANDLE kHandleNumbers = 4096;

struct Handles {
  std::mutex mutex;
  std::map<RFC_HANDLE, std::shared_ptr<Connection>> open;
  RFC_HANDLE last = 0;
};

Handles& handles() {
  static Handles* h = new Handles();
  return *h;
}

}  // namespace

RFC_HANDLE addConnection(std::shared_ptr<Connection> c) {
  Handles& h = handles();
  std::lock_guard lock(h.mutex);
  if (h.open.size() >= kHandleNumbers)
    fail(RFC_FAILURE, RFC_ERROR_RESOURCE, "All " + std::to_string(kHandleNumbers) + " handles are open");
  RFC_HANDLE n = h.last;
  do n = n % kHandleNumbers + 1;
  while (h.open.count(n));
  h.last = n;
  c->setHandle(n);
  h.open[n] = std::move(c);
  return n;
}

std::shared_ptr<Connection> connectionOf(RFC_HANDLE handle) {
  Handles& h = handles();
  std::lock_guard lock(h.mutex);
  auto it = h.open.find(handle);
  if (it == h.open.end())
    fail(RFC_INVALID_HANDLE, RFC_ERROR_PROGRAM, "Handle " + std::to_string(handle) + " is not a connection");
  return it->second;
}

std::vector<std::shared_ptr<Connection>> removeConnections(RFC_HANDLE handle) {
  Handles& h = handles();
  std::lock_guard lock(h.mutex);
  std::vector<std::shared_ptr<Connection>> out;
  for (auto it = h.open.begin(); it != h.open.end();) {
    if (handle ? it->first == handle : it->second->owner() == std::this_thread::get_id()) {
      out.push_back(std::move(it->second));
      it = h.open.erase(it);
    } else {
      ++it;
    }
  }
  return out;
}

}  // namespace rfcsdk
