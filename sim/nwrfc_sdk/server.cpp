#include "nwrfc_sdk/server.h"

#include <unistd.h>

#include <cstring>
#include <map>
#include <mutex>

#include "nwrfc_sdk/containers.h"
#include "nwrfc_sdk/marshal.h"
#include "nwrfc_sdk/text.h"
#include "nwrfc_sdk/trace.h"

namespace nwrfc {

namespace proto = vsim::proto;
using proto::MessageKind;

namespace {

struct TransactionHandlers {
  RFC_ON_CHECK_TRANSACTION check = nullptr;
  RFC_ON_COMMIT_TRANSACTION commit = nullptr;
  RFC_ON_ROLLBACK_TRANSACTION rollback = nullptr;
  RFC_ON_CONFIRM_TRANSACTION confirm = nullptr;
};

struct Installed {
  FunctionPtr desc;
  RFC_SERVER_FUNCTION function = nullptr;
};

// Installed handlers, process-wide as in the SDK. The key "" stands for any system.
struct Handlers {
  std::mutex mutex;
  ServerHandlers server;
  std::map<std::pair<std::u16string, std::u16string>, Installed> functions;
  std::map<std::u16string, TransactionHandlers> transactions;
};

Handlers& handlers() {
  static Handlers* h = new Handlers();
  return *h;
}

RFC_CONNECTION_HANDLE handleOf(Connection& c) {
  return reinterpret_cast<RFC_CONNECTION_HANDLE>(static_cast<Object*>(&c));
}

void sendFailure(Connection& c, const ErrorRecord& r) {
  proto::FrameBuilder f(MessageKind::CallFailure);
  proto::writeError(f.writer(), wireOf(r));
  c.send(f.finish());
}

ErrorRecord makeRecord(RFC_RC rc, RFC_ERROR_GROUP group, const std::string& key, const std::string& message) {
  ErrorRecord r;
  r.code = rc;
  r.group = group;
  r.key = key;
  r.message = message;
  return r;
}

TransactionHandlers transactionHandlers(const std::u16string& sysId) {
  Handlers& h = handlers();
  std::lock_guard lock(h.mutex);
  if (auto it = h.transactions.find(sysId); it != h.transactions.end()) return it->second;
  if (auto it = h.transactions.find(u""); it != h.transactions.end()) return it->second;
  return {};
}

RFC_RC dispatchCall(Connection& c, proto::Reader& in, RFC_ERROR_INFO* info) {
  const proto::CallHead head = proto::readCallHead(in);
  c.callAttributes = head.attributes;
  const std::u16string caller = toUtf16(proto::pairValue(head.attributes, "sysId"));
  const std::u16string name = toUtf16(head.function);
  const std::u16string tid = toUtf16(head.tid);
  const bool transactional = head.type == proto::CallType::Transactional;
  trace().detail("incoming call of " + head.function + (transactional ? " in transaction " + head.tid : ""));
  const TransactionHandlers th = transactional ? transactionHandlers(caller) : TransactionHandlers{};

  if (th.check) {
    const RFC_RC rc = th.check(handleOf(c), tid.c_str());
    if (rc == RFC_EXECUTED) {
      proto::FrameBuilder f(MessageKind::CallResult);
      proto::writeCallResultHead(f.writer(), true);
      f.writer().varint(0);
      c.send(f.finish());
      return RFC_OK;
    }
    if (rc != RFC_OK) {
      const ErrorRecord r = makeRecord(rc, RFC_ERROR_GROUP::EXTERNAL_APPLICATION_FAILURE, rcName(rc),
                                       "Transaction " + head.tid + " was refused by the program's check");
      sendFailure(c, r);
      fillError(info, r);
      return rc;
    }
  }

  FunctionPtr desc;
  RFC_SERVER_FUNCTION function = nullptr;
  ServerHandlers server;
  {
    Handlers& h = handlers();
    std::lock_guard lock(h.mutex);
    server = h.server;
    for (const std::u16string& sys : {caller, std::u16string()})
      if (auto it = h.functions.find({sys, name}); it != h.functions.end()) {
        desc = it->second.desc;
        function = it->second.function;
        break;
      }
  }
  if (!function && server.generic && server.describe) {
    RFC_ATTRIBUTES attributes;
    fillAttributes(c, attributes);
    RFC_FUNCTION_DESC_HANDLE fdh = nullptr;
    if (server.describe(name.c_str(), attributes, &fdh) == RFC_OK && fdh) {
      desc = functionOf(fdh);
      function = server.generic;
    }
  }
  if (!function) {
    const ErrorRecord r = makeRecord(RFC_NOT_FOUND, RFC_ERROR_GROUP::EXTERNAL_APPLICATION_FAILURE, "FU_NOT_FOUND",
                                     "Function " + head.function + " is not available in this server");
    sendFailure(c, r);
    c.close(false);
    fillError(info, r);
    return RFC_NOT_FOUND;
  }

  auto container = std::make_unique<FunctionContainer>(desc);
  readParameters(in, *container);
  const auto fh = handleOf<RFC_FUNCTION_HANDLE>(container.get());

  if (server.authorize) {
    RFC_SECURITY_ATTRIBUTES security{};
    std::u16string sysId = caller, client = toUtf16(proto::pairValue(head.attributes, "client")),
                   user = toUtf16(proto::pairValue(head.attributes, "user")),
                   program = toUtf16(proto::pairValue(head.attributes, "progName")), snc;
    security.functionName = name.empty() ? nullptr : const_cast<SAP_UC*>(name.c_str());
    security.sysId = sysId.data();
    security.client = client.data();
    security.user = user.data();
    security.progName = program.data();
    security.sncName = snc.data();
    RFC_ERROR_INFO denied{};
    if (server.authorize(handleOf(c), &security, &denied) != RFC_OK) {
      ErrorRecord r = nwrfc::recordOf(denied);
      r.code = RFC_AUTHORIZATION_FAILURE;
      r.group = RFC_ERROR_GROUP::EXTERNAL_AUTHORIZATION_FAILURE;
      if (r.message.empty()) r.message = "The program refused " + head.function + " for user " + toUtf8(user);
      if (r.key.empty()) r.key = rcName(RFC_AUTHORIZATION_FAILURE);
      sendFailure(c, r);
      return RFC_OK;  // the call was answered; the connection serves on
    }
  }

  RFC_ERROR_INFO handlerInfo{};
  const RFC_RC rc = function(handleOf(c), fh, &handlerInfo);
  if (info) *info = handlerInfo;
  if (rc == RFC_OK) {
    if (th.commit) th.commit(handleOf(c), tid.c_str());
    proto::FrameBuilder f(MessageKind::CallResult, 1024);
    proto::writeCallResultHead(f.writer(), false);
    writeParameters(f.writer(), *container, Outgoing::Answer);
    c.send(f.finish());
    if (info) clearError(info);
    return RFC_OK;
  }
  if (transactional && th.rollback) th.rollback(handleOf(c), tid.c_str());
  ErrorRecord r = nwrfc::recordOf(handlerInfo);
  r.code = rc;
  if (rc == RFC_ABAP_EXCEPTION) {
    r.group = RFC_ERROR_GROUP::ABAP_APPLICATION_FAILURE;
    if (r.message.empty()) r.message = r.key;
    proto::FrameBuilder f(MessageKind::CallException);
    proto::writeError(f.writer(), wireOf(r));
    writeParameters(f.writer(), *container, Outgoing::TablesOnly);
    c.send(f.finish());
    return rc;
  }
  if (rc == RFC_ABAP_MESSAGE) {
    r.group = RFC_ERROR_GROUP::ABAP_RUNTIME_FAILURE;
  } else {
    r.group = RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE;
    if (r.key.empty()) r.key = "SYSTEM_FAILURE";
  }
  if (r.message.empty()) r.message = std::string("The program's function ended with ") + rcName(rc);
  sendFailure(c, r);
  c.close(false);
  return rc;
}

}  // namespace

void installFunction(const std::u16string* sysId, FunctionPtr desc, RFC_SERVER_FUNCTION function) {
  Handlers& h = handlers();
  std::lock_guard lock(h.mutex);
  h.functions[{sysId ? *sysId : std::u16string(), desc->name()}] = {std::move(desc), function};
}

void installGeneric(RFC_SERVER_FUNCTION function, RFC_FUNC_DESC_CALLBACK describe) {
  Handlers& h = handlers();
  std::lock_guard lock(h.mutex);
  h.server.generic = function;
  h.server.describe = describe;
}

void installAuthorization(RFC_ON_AUTHORIZATION_CHECK check) {
  Handlers& h = handlers();
  std::lock_guard lock(h.mutex);
  h.server.authorize = check;
}

void installTransactionHandlers(const std::u16string* sysId, RFC_ON_CHECK_TRANSACTION check,
                                RFC_ON_COMMIT_TRANSACTION commit, RFC_ON_ROLLBACK_TRANSACTION rollback,
                                RFC_ON_CONFIRM_TRANSACTION confirm) {
  Handlers& h = handlers();
  std::lock_guard lock(h.mutex);
  h.transactions[sysId ? *sysId : std::u16string()] = {check, commit, rollback, confirm};
}

RFC_RC listenAndDispatch(Connection& c, std::chrono::milliseconds timeout, RFC_ERROR_INFO* info) {
  std::optional<std::string> body = c.receive(timeout);
  if (!body) {
    fillError(info, makeRecord(RFC_RETRY, RFC_ERROR_GROUP::OK, rcName(RFC_RETRY), "No call arrived in time"));
    return RFC_RETRY;
  }
  proto::Reader in(*body);
  const auto kind = static_cast<MessageKind>(in.u8());
  try {
    if (kind == MessageKind::Call) return dispatchCall(c, in, info);
    if (kind == MessageKind::ConfirmCall) {
      const std::string tid = proto::readShortText(in, 64);
      const TransactionHandlers th = transactionHandlers(toUtf16(proto::pairValue(c.callAttributes, "sysId")));
      if (th.confirm) th.confirm(handleOf(c), toUtf16(tid).c_str());
      c.send(proto::FrameBuilder(MessageKind::ConfirmOk).finish());
      return RFC_OK;
    }
    throw proto::ProtocolError(std::string("unexpected ") + proto::messageKindName(kind));
  } catch (const proto::ProtocolError& e) {
    c.close(false);
    fail(RFC_INVALID_PROTOCOL, RFC_ERROR_GROUP::COMMUNICATION_FAILURE, e.what());
  }
}

void fillAttributes(Connection& c, RFC_ATTRIBUTES& a) {
  std::memset(static_cast<void*>(&a), 0, sizeof a);
  const bool server = c.role() == Connection::Role::Server;
  auto attr = [&](const char* n) {
    if (server) {
      const std::string v = proto::pairValue(c.callAttributes, n);
      if (!v.empty()) return v;
    }
    return c.attribute(n);
  };
  char host[101] = {};
  ::gethostname(host, sizeof host - 1);
  copyTerminated(a.dest, c.parameters().get("dest"));
  copyTerminated(a.host, std::string(host));
  copyTerminated(a.partnerHost, attr("host"));
  copyTerminated(a.sysNumber, attr("sysNumber"));
  copyTerminated(a.sysId, attr("sysId"));
  copyTerminated(a.client, attr("client"));
  copyTerminated(a.user, attr("user"));
  copyTerminated(a.language, attr("language"));
  copyTerminated(a.trace, std::to_string(trace().level()));
  copyTerminated(a.isoLanguage, attr("isoLanguage"));
  copyTerminated(a.codepage, std::string("4103"));
  copyTerminated(a.partnerCodepage, attr("partnerCodepage"));
  copyTerminated(a.rfcRole, std::string(server ? "S" : "C"));
  copyTerminated(a.type, std::string("E"));
  copyTerminated(a.partnerType, std::string("3"));
  copyTerminated(a.rel, std::string("750"));
  copyTerminated(a.partnerRel, attr("partnerRel"));
  copyTerminated(a.kernelRel, attr("kernelRel"));
  copyTerminated(a.progName, attr("progName"));
  copyTerminated(a.partnerBytesPerChar, attr("partnerBytesPerChar"));
  copyTerminated(a.partnerSystemCodepage, attr("partnerSystemCodepage"));
  copyTerminated(a.partnerIP, attr("partnerIP"));
}

}  // namespace nwrfc
