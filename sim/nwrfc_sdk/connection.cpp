#include "nwrfc_sdk/connection.h"

#include <unistd.h>

#include <cstring>

#include "nwrfc_sdk/text.h"
#include "nwrfc_sdk/trace.h"

namespace nwrfc {

namespace proto = vsim::proto;
using proto::MessageKind;

namespace {

constexpr auto kConnectTimeout = std::chrono::seconds(20);

[[noreturn]] void protocolFailure(const std::string& why) {
  fail(RFC_INVALID_PROTOCOL, RFC_ERROR_GROUP::COMMUNICATION_FAILURE, why);
}

}  // namespace

Connection::Connection(Role role, ConnectionParameters params)
    : Object(ObjectKind::Connection), role_(role), params_(std::move(params)) {}

Connection::~Connection() = default;

void Connection::openSocket(const Endpoint& e) {
  try {
    socket_ = proto::ClientSocket::connect(e.host, e.port, kConnectTimeout);
  } catch (const proto::IoError& ex) {
    fail(RFC_COMMUNICATION_FAILURE, RFC_ERROR_GROUP::COMMUNICATION_FAILURE, ex.what());
  }
}

void Connection::logon(MessageKind kind, proto::Pairs pairs) {
  proto::FrameBuilder f(kind);
  proto::OpenRequest m;
  m.params = std::move(pairs);
  proto::writeOpen(f.writer(), m);
  const std::string answer = request(f.finish());
  proto::Reader r = expectAnswer(answer, MessageKind::LogonOk);
  proto::OpenReply reply = proto::readOpenReply(r);
  attributes_ = std::move(reply.attributes);
  sysId_ = toUtf16(attribute("sysId"));
}

std::unique_ptr<Connection> Connection::open(const ConnectionParameters& params) {
  const Endpoint e = applicationServer(params);
  std::unique_ptr<Connection> c(new Connection(Role::Client, params));
  trace().call(Entry::RfcOpenConnection, params.traceText());
  c->openSocket(e);
  proto::Pairs pairs;
  for (const char* name : {"client", "user", "passwd", "lang", "mysapsso2", "getsso2"})
    if (params.has(name)) pairs.emplace_back(name, params.get(name));
  pairs.emplace_back("program", proto::programName());
  c->logon(MessageKind::Logon, std::move(pairs));
  return c;
}

std::unique_ptr<Connection> Connection::registerServer(const ConnectionParameters& params) {
  std::string program = params.get("program_id");
  if (program.empty()) program = params.get("tpname");
  if (program.empty()) fail(RFC_INVALID_PARAMETER, "Parameter PROGRAM_ID is missing.");
  const Endpoint e = gateway(params);
  std::unique_ptr<Connection> c(new Connection(Role::Server, params));
  trace().call(Entry::RfcRegisterServer, params.traceText());
  c->openSocket(e);
  c->logon(MessageKind::Register, {{"program_id", program}, {"program", proto::programName()}});
  return c;
}

void Connection::lost(const std::string& why) {
  socket_.close();
  fail(RFC_COMMUNICATION_FAILURE, RFC_ERROR_GROUP::COMMUNICATION_FAILURE, why);
}

void Connection::send(const std::string& frame) {
  try {
    socket_.send(frame);
  } catch (const proto::IoError& e) {
    lost(std::string("connection to partner broken: ") + e.what());
  }
}

std::optional<std::string> Connection::receive(std::chrono::milliseconds timeout) {
  try {
    auto body = socket_.receive(timeout);
    if (body && (body->empty() || !proto::messageKindKnown(static_cast<std::uint8_t>((*body)[0])))) {
      socket_.close();
      protocolFailure("The partner sent a frame that follows no protocol");
    }
    return body;
  } catch (const proto::IoError& e) {
    lost(e.closedByPeer() ? "connection closed by partner" : std::string("connection to partner broken: ") + e.what());
  } catch (const proto::ProtocolError& e) {
    socket_.close();
    protocolFailure(e.what());
  }
}

std::string Connection::request(const std::string& frame) {
  if (!socket_.open()) fail(RFC_INVALID_HANDLE, "An invalid handle 'RFC_CONNECTION_HANDLE' was passed to the API call");
  send(frame);
  std::optional<std::string> body = receive(std::chrono::milliseconds(-1));
  if (static_cast<MessageKind>((*body)[0]) == MessageKind::Error) {
    proto::ErrorInfo e;
    try {
      proto::Reader r(body->data() + 1, body->size() - 1);
      e = proto::readError(r);
    } catch (const proto::ProtocolError& ex) {
      socket_.close();
      protocolFailure(ex.what());
    }
    if (e.closes) socket_.close();
    throw SdkError(recordOf(e));
  }
  return std::move(*body);
}

void Connection::close(bool politely) {
  if (politely && socket_.open()) {
    try {
      socket_.send(proto::FrameBuilder(MessageKind::Close).finish());
    } catch (const proto::IoError&) {}
  }
  socket_.close();
}

proto::Reader expectAnswer(const std::string& body, MessageKind expected) {
  proto::Reader r(body);
  const auto kind = static_cast<MessageKind>(r.u8());
  if (kind != expected)
    protocolFailure(std::string("Expected ") + proto::messageKindName(expected) + ", received " +
                    proto::messageKindName(kind));
  return r;
}

namespace {

std::vector<TypePtr> buildTypes(const std::vector<proto::TypeInfo>& types) {
  std::vector<TypePtr> built;
  built.reserve(types.size());
  for (const proto::TypeInfo& t : types) {
    auto d = std::make_shared<TypeDescription>(toUtf16(t.name));
    for (const proto::FieldInfo& f : t.fields) {
      RFC_FIELD_DESC fd{};
      copyTerminated(fd.name, f.name);
      fd.type = static_cast<RFCTYPE>(f.type);
      fd.nucLength = f.nucLength;
      fd.nucOffset = f.nucOffset;
      fd.ucLength = f.ucLength;
      fd.ucOffset = f.ucOffset;
      fd.decimals = f.decimals;
      if (f.typeRef) fd.typeDescHandle = handleOf(built.at(f.typeRef - 1).get());
      d->addField(fd);
    }
    d->setLength(t.nucLength, t.ucLength);
    built.push_back(std::move(d));
  }
  return built;
}

}  // namespace

TypePtr buildType(const std::vector<proto::TypeInfo>& types) {
  std::vector<TypePtr> built = buildTypes(types);
  return built.empty() ? nullptr : built.back();
}

FunctionPtr buildFunction(const proto::FunctionInfo& info) {
  const std::vector<TypePtr> built = buildTypes(info.types);
  auto fn = std::make_shared<FunctionDescription>(toUtf16(info.name));
  for (const proto::ParameterInfo& p : info.parameters) {
    RFC_PARAMETER_DESC pd{};
    copyTerminated(pd.name, p.name);
    pd.type = static_cast<RFCTYPE>(p.type);
    pd.direction = static_cast<RFC_DIRECTION>(p.direction == proto::Direction::Tables ? RFC_TABLES
                                                                                      : static_cast<int>(p.direction));
    pd.nucLength = p.nucLength;
    pd.ucLength = p.ucLength;
    pd.decimals = p.decimals;
    if (p.typeRef) pd.typeDescHandle = handleOf(built.at(p.typeRef - 1).get());
    copyTerminated(pd.defaultValue, p.defaultValue);
    copyTerminated(pd.parameterText, p.text);
    pd.optional = p.optional ? 1 : 0;
    fn->addParameter(pd);
  }
  for (const proto::ExceptionInfo& e : info.exceptions) {
    RFC_EXCEPTION_DESC ed{};
    copyTerminated(ed.key, e.key);
    copyTerminated(ed.message, e.text);
    fn->addException(ed);
  }
  return fn;
}

FunctionPtr Connection::functionDescription(std::u16string_view name) {
  const std::u16string upper = toUtf16(upperAscii(toUtf8(name)));
  if (FunctionPtr cached = descriptions().cachedFunction(sysId_, upper)) return cached;
  proto::FrameBuilder f(MessageKind::DescribeFunction);
  f.writer().text(toUtf8(upper));
  const std::string answer = request(f.finish());
  proto::Reader r = expectAnswer(answer, MessageKind::FunctionDesc);
  FunctionPtr fn;
  try {
    fn = buildFunction(proto::readFunctionInfo(r));
  } catch (const proto::ProtocolError& e) {
    protocolFailure(e.what());
  }
  descriptions().cache(sysId_, fn);
  return fn;
}

TypePtr Connection::typeDescription(std::u16string_view name) {
  const std::u16string upper = toUtf16(upperAscii(toUtf8(name)));
  if (TypePtr cached = descriptions().cachedType(sysId_, upper)) return cached;
  proto::FrameBuilder f(MessageKind::DescribeType);
  f.writer().text(toUtf8(upper));
  const std::string answer = request(f.finish());
  proto::Reader r = expectAnswer(answer, MessageKind::TypeDesc);
  TypePtr t;
  try {
    const auto types = proto::readTypeList(r);
    r.expectEnd();
    t = buildType(types);
  } catch (const proto::ProtocolError& e) {
    protocolFailure(e.what());
  }
  if (!t) protocolFailure("The system described no type");
  descriptions().cache(sysId_, t);
  return t;
}

}  // namespace nwrfc
