#include "rfc/rfc_service.h"

#include <algorithm>
#include <set>

#include "engine/convert.h"
#include "rfc/describe.h"
#include "rfc/wire_values.h"
#include "rfc_protocol/values.h"

namespace vsim::rfc {

namespace {

using proto::MessageKind;

std::string vars(const AbapMessage& m) {
  std::string out;
  for (const auto& v : m.vars)
    if (!v.empty()) out += " " + v;
  return out;
}

void putMessage(proto::ErrorInfo& e, const AbapMessage& m) {
  e.msgClass = m.id;
  e.msgType = m.type;
  e.msgNumber = m.number;
  e.msgVars = m.vars;
}

Reply frameReply(std::string frame) {
  Reply r;
  r.frame = std::move(frame);
  return r;
}

Reply errorReply(const proto::ErrorInfo& e) {
  Reply r = frameReply(RfcService::errorFrame(e));
  r.close = e.closes;
  return r;
}

Reply okReply() { return frameReply(proto::FrameBuilder(MessageKind::Ok).finish()); }

// Exporting, changing and tables values of a call that ran, or only its tables after an exception.
void writeResults(proto::Writer& w, const Call& call, const std::set<std::string, std::less<>>& inactive,
                  bool tablesOnly) {
  const auto& params = call.function().params;
  std::vector<size_t> chosen;
  for (size_t i = 0; i < params.size(); ++i) {
    const Parameter& p = params[i];
    if (p.direction == Direction::Importing || inactive.count(p.name)) continue;
    if (tablesOnly && p.direction != Direction::Tables) continue;
    chosen.push_back(i);
  }
  w.varint(chosen.size());
  for (size_t i : chosen) {
    w.text(params[i].name);
    writeValue(w, *params[i].type, call.value(i));
  }
}

}  // namespace

proto::ErrorInfo logonFailure(const std::string& message) {
  proto::ErrorInfo e;
  e.rc = proto::rc::kLogonFailure;
  e.group = proto::group::kLogon;
  e.key = "RFC_LOGON_FAILURE";
  e.message = message;
  e.closes = true;
  return e;
}

proto::ErrorInfo exceptionError(const AbapException& ex) {
  proto::ErrorInfo e;
  e.rc = proto::rc::kAbapException;
  e.group = proto::group::kAbapApplication;
  e.key = ex.name();
  if (const auto& m = ex.message()) {
    putMessage(e, *m);
    e.message = "ID:" + m->id + " Type:" + m->type + " Number:" + m->number + vars(*m);
  } else {
    e.message = ex.name();
  }
  return e;
}

proto::ErrorInfo systemError(const SystemFailure& f) {
  proto::ErrorInfo e;
  e.group = proto::group::kAbapRuntime;
  e.message = f.message();
  e.closes = true;
  if (const auto& m = f.abapMessage()) {
    e.rc = proto::rc::kAbapMessage;
    e.key = m->id.empty() ? f.key() : m->id;
    putMessage(e, *m);
  } else {
    e.rc = proto::rc::kAbapRuntimeFailure;
    e.key = f.key();
  }
  return e;
}

proto::ErrorInfo protocolError(const std::string& message) {
  proto::ErrorInfo e;
  e.rc = proto::rc::kInvalidProtocol;
  e.group = proto::group::kCommunication;
  e.key = "RFC_INVALID_PROTOCOL";
  e.message = message;
  e.closes = true;
  return e;
}

proto::Pairs connectionAttributes(const System& system, const Logon& logon, const std::string& isoLanguage) {
  const SystemInfo& i = system.info();
  return {{"sysId", i.sysid},
          {"host", i.host},
          {"sysNumber", i.instance},
          {"client", logon.client},
          {"user", logon.user},
          {"language", logon.language},
          {"isoLanguage", isoLanguage},
          {"partnerRel", i.release},
          {"kernelRel", i.kernel},
          {"partnerCodepage", "4103"},
          {"partnerSystemCodepage", "4103"},
          {"partnerType", "3"},
          {"partnerIP", i.ipAddress},
          {"partnerBytesPerChar", "2"}};
}

std::string RfcService::errorFrame(const proto::ErrorInfo& e) {
  proto::FrameBuilder f(MessageKind::Error);
  proto::writeError(f.writer(), e);
  return f.finish();
}

Reply RfcService::handle(ConnectionState& c, std::string_view body) {
  ++requests_;
  try {
    proto::Reader r(body);
    const std::uint8_t kind = r.u8();
    if (!proto::messageKindKnown(kind)) throw proto::ProtocolError("unknown message kind " + std::to_string(kind));
    const auto k = static_cast<MessageKind>(kind);
    if (k == MessageKind::Logon) return logon(c, r);
    if (k == MessageKind::Register) return registerProgram(c, r);
    if (!c.logon) throw proto::ProtocolError(std::string(proto::messageKindName(k)) + " before the logon");
    switch (k) {
      case MessageKind::DescribeFunction: return describeFunction(c, r);
      case MessageKind::DescribeType: return describeType(c, r);
      case MessageKind::Invoke: return invoke(c, r);
      case MessageKind::Transaction: return transaction(c, r);
      case MessageKind::Confirm: {
        const std::string tid = proto::readShortText(r, 64);
        r.expectEnd();
        system_.transactions().confirm(tid);
        return okReply();
      }
      case MessageKind::NewTid: {
        r.expectEnd();
        proto::FrameBuilder f(MessageKind::Tid);
        f.writer().text(TransactionLog::newTid());
        return frameReply(f.finish());
      }
      case MessageKind::Ping: r.expectEnd(); return okReply();
      case MessageKind::Close: {
        Reply reply;
        reply.close = true;
        return reply;
      }
      default: throw proto::ProtocolError(std::string(proto::messageKindName(k)) + " is not a request");
    }
  } catch (const proto::ProtocolError& e) {
    return errorReply(protocolError(e.what()));
  }
}

Reply RfcService::logon(ConnectionState& c, proto::Reader& r) {
  if (c.logon) throw proto::ProtocolError("second logon on one connection");
  const proto::OpenRequest m = proto::readOpen(r);
  if (m.version != proto::kVersion) {
    proto::ErrorInfo e = protocolError("protocol version " + std::to_string(m.version) + " is not supported; " +
                                       "this system speaks version " + std::to_string(proto::kVersion));
    e.rc = 10;  // RFC_VERSION_MISMATCH
    return errorReply(e);
  }
  UserStore& users = system_.users();
  auto param = [&](const char* name) { return proto::pairValue(m.params, name); };
  std::string client = param("client");
  if (client.empty()) client = system_.info().defaultClient;
  if (!users.hasClient(client))
    return errorReply(logonFailure("Client " + client + " is not available in this system"));
  Logon logon;
  if (const std::string ticket = param("mysapsso2"); !ticket.empty()) {
    auto t = system_.checkTicket(ticket);
    if (!t || t->client != client) return errorReply(logonFailure("Logon ticket is not valid"));
    logon = *t;
  } else {
    const std::string user = toUpper(param("user"));
    if (user.empty()) return errorReply(logonFailure("No logon data was provided"));
    switch (users.check(client, user, param("passwd"))) {
      case LogonResult::Ok: break;
      case LogonResult::Locked: return errorReply(logonFailure("User is locked. Please notify the person responsible"));
      case LogonResult::UnknownClient:
        return errorReply(logonFailure("Client " + client + " is not available in this system"));
      default: return errorReply(logonFailure("Name or password is incorrect (repeat logon)"));
    }
    logon = Logon{client, user, users.find(client, user)->language};
  }
  if (const std::string lang = param("lang"); !lang.empty()) {
    auto key = users.languageKey(lang);
    if (!key) return errorReply(logonFailure("Language " + lang + " is not available in this system"));
    logon.language = *key;
  }
  proto::OpenReply reply;
  reply.attributes = connectionAttributes(system_, logon, users.languageIso(logon.language).value_or(""));
  reply.attributes.emplace_back("progName", "SAPMSSY1");
  if (param("getsso2") == "1") reply.attributes.emplace_back("ticket", system_.issueTicket(logon));
  c.logon = logon;
  c.session = std::make_unique<Session>(logon);
  proto::FrameBuilder f(MessageKind::LogonOk);
  proto::writeOpenReply(f.writer(), reply);
  return frameReply(f.finish());
}

Reply RfcService::registerProgram(ConnectionState& c, proto::Reader& r) {
  if (c.logon || !c.registeredProgram.empty()) throw proto::ProtocolError("registration on a used connection");
  const proto::OpenRequest m = proto::readOpen(r);
  if (m.version != proto::kVersion) {
    proto::ErrorInfo e = protocolError("protocol version " + std::to_string(m.version) + " is not supported");
    e.rc = 10;
    return errorReply(e);
  }
  const std::string program = proto::pairValue(m.params, "program_id");
  if (program.empty() || program.size() > 64) {
    proto::ErrorInfo e;
    e.rc = proto::rc::kCommunicationFailure;
    e.group = proto::group::kCommunication;
    e.key = "RFC_COMMUNICATION_FAILURE";
    e.message = program.empty() ? "Program ID is missing" : "Program ID " + program + " is longer than 64 characters";
    e.closes = true;
    return errorReply(e);
  }
  c.registeredProgram = program;
  c.registerParams = m.params;
  proto::OpenReply reply;
  reply.attributes = {{"sysId", system_.info().sysid}, {"host", system_.info().host}, {"programId", program}};
  proto::FrameBuilder f(MessageKind::LogonOk);
  proto::writeOpenReply(f.writer(), reply);
  Reply out = frameReply(f.finish());
  out.function = program;
  return out;
}

Reply RfcService::describeFunction(ConnectionState& c, proto::Reader& r) {
  const std::string name = toUpper(proto::readShortText(r, 64));
  r.expectEnd();
  FunctionPtr fm = system_.functions().find(name);
  Reply reply;
  if (!fm) {
    AbapMessage m{"FL", "E", "046", "Function module \"" + name + "\" not found", {name, "", "", ""}};
    reply = errorReply(exceptionError(AbapException("FU_NOT_FOUND", m)));
  } else {
    proto::FrameBuilder f(MessageKind::FunctionDesc);
    proto::writeFunctionInfo(f.writer(), rfc::describeFunction(*fm));
    reply = frameReply(f.finish());
  }
  reply.function = name;
  return reply;
}

Reply RfcService::describeType(ConnectionState& c, proto::Reader& r) {
  const std::string name = toUpper(proto::readShortText(r, 64));
  r.expectEnd();
  TypePtr t = system_.dictionary().find(name);
  if (t && t->kind == Kind::Table && t->row->kind != Kind::Struct) t = nullptr;
  Reply reply;
  if (!t || t->isScalar()) {
    AbapMessage m{"DDIC", "E", "001", "Type " + name + " is not active or does not exist", {name, "", "", ""}};
    reply = errorReply(exceptionError(AbapException("NOT_FOUND", m)));
  } else {
    proto::FrameBuilder f(MessageKind::TypeDesc);
    proto::writeTypeList(f.writer(), rfc::describeType(*t));
    reply = frameReply(f.finish());
  }
  reply.function = name;
  return reply;
}

std::unique_ptr<Call> RfcService::readCall(proto::Reader& r, proto::InvokeHead& head) {
  head = proto::readInvokeHead(r);
  auto call = std::make_unique<Call>(system_.prepare(toUpper(head.function)));
  const auto& params = call->function().params;
  const size_t n = r.count(3);
  for (size_t i = 0; i < n; ++i) {
    const std::string_view name = r.text();
    const proto::WireType type = r.type();
    const int p = call->find(name);
    if (p < 0 || params[static_cast<size_t>(p)].direction == Direction::Exporting) {
      proto::skipBody(r, type);
      continue;
    }
    try {
      call->supply(static_cast<size_t>(p), readValue(r, type, *params[static_cast<size_t>(p)].type));
    } catch (const ConversionError& e) {
      throw SystemFailure("CONVT_NO_NUMBER", "Parameter " + std::string(name) + ": " + e.what());
    }
  }
  return call;
}

Reply RfcService::invoke(ConnectionState& c, proto::Reader& r) {
  proto::InvokeHead head;
  std::unique_ptr<Call> call;
  Reply reply;
  try {
    call = readCall(r, head);
    r.expectEnd();
    reply.function = call->function().name;
    reply.fault = system_.faults().take(Front::Rfc, *c.logon);
    system_.execute(*call, *c.session);
    const std::set<std::string, std::less<>> inactive(head.inactive.begin(), head.inactive.end());
    proto::FrameBuilder f(MessageKind::Result, 1024);
    writeResults(f.writer(), *call, inactive, false);
    reply.frame = f.finish();
  } catch (const AbapException& e) {
    proto::FrameBuilder f(MessageKind::Exception);
    proto::writeError(f.writer(), exceptionError(e));
    writeResults(f.writer(), *call, {}, true);
    reply.frame = f.finish();
  } catch (const SystemFailure& e) {
    const auto fault = reply.fault;
    const auto function = reply.function.empty() ? toUpper(head.function) : reply.function;
    reply = errorReply(systemError(e));
    reply.fault = fault;
    reply.function = function;
  }
  return reply;
}

Reply RfcService::transaction(ConnectionState& c, proto::Reader& r) {
  const proto::TransactionHead head = proto::readTransactionHead(r);
  if (head.tid.empty() || head.tid.size() > 24) throw proto::ProtocolError("transaction ID of bad length");
  Reply reply;
  try {
    std::vector<std::unique_ptr<Call>> calls;
    for (std::uint32_t i = 0; i < head.count; ++i) {
      proto::InvokeHead unit;
      calls.push_back(readCall(r, unit));
      reply.function += (reply.function.empty() ? "" : ",") + calls.back()->function().name;
    }
    r.expectEnd();
    reply.fault = system_.faults().take(Front::Rfc, *c.logon);
    system_.transactions().run(head.tid, [&] {
      Session unit(*c.logon);  // a transaction runs in a session of its own
      for (auto& call : calls) system_.execute(*call, unit);
    });
    const auto fault = reply.fault;
    const auto functions = reply.function;
    reply = okReply();
    reply.fault = fault;
    reply.function = functions;
  } catch (const AbapException& e) {
    proto::FrameBuilder f(MessageKind::Exception);
    proto::writeError(f.writer(), exceptionError(e));
    f.writer().varint(0);
    reply.frame = f.finish();
  } catch (const SystemFailure& e) {
    proto::ErrorInfo info = systemError(e);
    info.closes = false;
    reply.frame = errorFrame(info);
  }
  return reply;
}

}  // namespace vsim::rfc
