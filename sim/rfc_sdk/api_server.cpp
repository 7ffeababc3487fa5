// Entry points of a registered server: accept, the installed functions and handlers, dispatch,
// and the data of the call being served.
#include <unistd.h>

#include <map>
#include <mutex>

#include "rfc_protocol/values.h"
#include "rfc_sdk/api.h"

namespace rfcsdk {

namespace proto = vsim::proto;
using proto::MessageKind;

proto::ErrorInfo readErrorBody(proto::Reader& r) {
  try {
    return proto::readError(r);
  } catch (const proto::ProtocolError& e) {
    fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, e.what());
  }
}

void releaseConnection(Connection& c) {
  c.close(true);
  Connection::ServerState& s = c.server;
  if (!s.contextAttached) return;
  if (!s.disconnectReported && s.onDisconnect) s.onDisconnect(c.handle(), 0, s.context);
  s.disconnectReported = true;
  if (s.onFree) s.onFree(c.handle(), 0, s.context);
}

namespace {

constexpr const char* kGlobalServer = "%%USER_GLOBAL_SERVER";

struct Installed {
  RFC_ONCALL function = nullptr;
  std::string docu;
};

// Installed functions and transaction handlers, process-wide as in the SDK.
struct Registry {
  std::mutex mutex;
  std::map<std::string, Installed> functions;
  RFC_ON_CHECK_TID_EX checkEx = nullptr;
  RFC_ON_COMMIT_EX commitEx = nullptr;
  RFC_ON_ROLLBACK_EX rollbackEx = nullptr;
  RFC_ON_CONFIRM_TID_EX confirmEx = nullptr;
  RFC_ON_CHECK_TID check = nullptr;
  RFC_ON_COMMIT commit = nullptr;
  RFC_ON_ROLLBACK rollback = nullptr;
  RFC_ON_CONFIRM_TID confirm = nullptr;
};

Registry& registry() {
  static Registry* r = new Registry();
  return *r;
}

std::string functionName(const SAP_UC* name) {
  return upperAscii(utf8Of(trimRight(bounded(name, sizeof(RFC_FUNCTIONNAME) / sizeof(SAP_UC)))));
}

std::string failureFrame(std::uint8_t rc, std::uint8_t group, const std::string& key, const std::string& message) {
  proto::FrameBuilder f(MessageKind::CallFailure);
  proto::ErrorInfo e;
  e.rc = rc;
  e.group = group;
  e.key = key;
  e.message = message;
  proto::writeError(f.writer(), e);
  return f.finish();
}

std::string resultFrame(bool executedBefore, const Outgoing& out) {
  proto::FrameBuilder f(MessageKind::CallResult, 1024);
  proto::writeCallResultHead(f.writer(), executedBefore);
  writeSection(f.writer(), out, nullptr);
  return f.finish();
}

std::string exceptionFrame(const std::string& exception, const std::string& message, const RFC_TABLE* tables) {
  proto::FrameBuilder f(MessageKind::CallException, 1024);
  proto::ErrorInfo e;
  e.rc = proto::rc::kAbapException;
  e.group = proto::group::kAbapApplication;
  e.key = exception;
  e.message = message.empty() ? exception : message;
  proto::writeError(f.writer(), e);
  writeSection(f.writer(), {nullptr, nullptr, tables, true}, nullptr);
  return f.finish();
}

bool isFailure(const std::string& frame) {
  const auto kind = static_cast<MessageKind>(frame[proto::kFrameHeaderSize]);
  return kind == MessageKind::CallException || kind == MessageKind::CallFailure;
}

// A one-field row of characters, for the library's own answers.
std::string charColumnTable(const std::string& name, const std::vector<std::string>& lines) {
  std::string s;
  proto::Writer w(s);
  w.text(name);
  w.type(proto::WireType::Table);
  proto::writeTableHeader(w, {{"", proto::WireType::Char}}, lines.size());
  for (const auto& l : lines) w.text(l);
  return s;
}

// RFC_PING, RFC_DOCU and RFC_SYSTEM_INFO, answered by the library; false for other functions.
bool answerSystemCall(Connection& c, const std::string& name) {
  proto::FrameBuilder f(MessageKind::CallResult, 512);
  proto::writeCallResultHead(f.writer(), false);
  proto::Writer& w = f.writer();
  if (name == "RFC_PING") {
    w.varint(0);
  } else if (name == "RFC_DOCU") {
    std::vector<std::string> lines;
    {
      Registry& r = registry();
      std::lock_guard lock(r.mutex);
      for (const auto& [fn, installed] : r.functions) {
        if (fn == kGlobalServer) continue;
        lines.push_back(fn);
        if (!installed.docu.empty()) lines.push_back("  " + installed.docu);
      }
    }
    w.varint(1);
    w.buffer() += charColumnTable("DOCU", lines);
  } else if (name == "RFC_SYSTEM_INFO") {
    char host[65] = {};
    ::gethostname(host, sizeof host - 1);
    const std::pair<const char*, std::string> fields[] = {
        {"RFCPROTO", "011"}, {"RFCCHARTYP", "4103"}, {"RFCINTTYP", "LIT"}, {"RFCFLOTYP", "IE3"},
        {"RFCHOST", host},   {"RFCOPSYS", "Linux"},  {"RFCSAPRL", "640"},  {"RFCKERNRL", "640"}};
    w.varint(1);
    w.text("RFCSI_EXPORT");
    w.type(proto::WireType::Structure);
    w.varint(std::size(fields));
    for (const auto& [field, value] : fields) {
      w.text(field);
      w.type(proto::WireType::Char);
      w.text(value);
    }
  } else {
    return false;
  }
  c.send(f.finish());
  return true;
}

// Hands a call's frame to the handle: the head is read, the values wait for RfcGetData.
void beginCall(Connection& c, std::string frame) {
  proto::Reader r(frame);
  r.u8();
  Connection::ServerState& s = c.server;
  try {
    s.head = proto::readCallHead(r);
  } catch (const proto::ProtocolError& e) {
    c.close(false);
    fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, e.what());
  }
  s.valuesAt = static_cast<size_t>(r.position() - frame.data());
  s.frame = std::move(frame);
  s.reply.clear();
  s.inCall = true;
}

void reportDisconnect(Connection& c) {
  Connection::ServerState& s = c.server;
  if (s.contextAttached && !s.disconnectReported && s.onDisconnect) s.onDisconnect(c.handle(), 0, s.context);
  s.disconnectReported = true;
}

// The next frame from the gateway; RFC_CLOSED when it has gone.
std::string next(Connection& c) {
  try {
    return *c.nextRequest(std::chrono::milliseconds(-1));
  } catch (const Failure& f) {
    if (f.rc() == RFC_CLOSED) reportDisconnect(c);
    throw;
  }
}

void confirm(Connection& c, const std::string& frame) {
  proto::Reader r(frame);
  r.u8();
  std::u16string tid;
  try {
    tid = utf16Of(proto::readShortText(r, 64));
  } catch (const proto::ProtocolError& e) {
    fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, e.what());
  }
  RFC_TID id{};
  putTerminated(id, 25, tid);
  Registry& reg = registry();
  RFC_ON_CONFIRM_TID_EX confirmEx;
  RFC_ON_CONFIRM_TID plain;
  {
    std::lock_guard lock(reg.mutex);
    confirmEx = reg.confirmEx;
    plain = reg.confirm;
  }
  c.trace(Entry::RfcDispatchU, "confirm " + utf8Of(tid));
  if (confirmEx)
    confirmEx(id, c.handle());
  else if (plain)
    plain(id);
  c.send(proto::FrameBuilder(MessageKind::ConfirmOk).finish());
}

// The external logon handler's verdict; a refusal answers the call and ends the connection.
bool logonAllowed(Connection& c) {
  Connection::ServerState& s = c.server;
  if (!s.logonHandler) return true;
  RFC_EXTERNAL_LOGON_CNTL control{};
  auto attr = [&](const char* n) { return utf16Of(proto::pairValue(s.head.attributes, n)); };
  putTerminated(control.function_name, 31, utf16Of(s.head.function));
  putTerminated(control.client, 4, attr("client"));
  putTerminated(control.language, 2, attr("language"));
  putTerminated(control.user, 13, attr("user"));
  putTerminated(control.tcode, 21, attr("tcode"));
  rfc_char_t message[257] = {};
  if (s.logonHandler(c.handle(), &control, message) == RFC_EXTERNAL_LOGON_OK) return true;
  std::string text = utf8Of(terminated(message));
  if (text.empty()) text = "Logon refused by the registered program";
  c.send(failureFrame(proto::rc::kLogonFailure, proto::group::kLogon, "RFC_ERROR_LOGON_FAILURE", text));
  c.close(false);
  reportDisconnect(c);
  s.inCall = false;
  return false;
}

// The transaction check: 0 runs the call, 1 answers "executed before", anything else refuses.
int checkTransaction(Connection& c, RFC_TID tid) {
  Registry& reg = registry();
  std::lock_guard lock(reg.mutex);
  if (reg.checkEx) return reg.checkEx(tid, c.handle());
  if (reg.check) return reg.check(tid);
  return 0;
}

void endTransaction(Connection& c, RFC_TID tid, bool success, std::string& reply) {
  Registry& reg = registry();
  RFC_ON_COMMIT_EX commitEx;
  RFC_ON_COMMIT commit;
  RFC_ON_ROLLBACK_EX rollbackEx;
  RFC_ON_ROLLBACK rollback;
  {
    std::lock_guard lock(reg.mutex);
    commitEx = reg.commitEx;
    commit = reg.commit;
    rollbackEx = reg.rollbackEx;
    rollback = reg.rollback;
  }
  if (success) {
    if (commitEx) {
      if (commitEx(tid, c.handle()) == 0) return;
      reply = failureFrame(proto::rc::kExternalFailure, proto::group::kExternalRuntime, "SYSTEM_FAILURE",
                           "The program could not commit transaction " + utf8Of(terminated(tid)));
    } else {
      if (commit) commit(tid);
      return;
    }
  }
  if (rollbackEx)
    rollbackEx(tid, c.handle(), c.isOpen() ? 1 : 0);
  else if (rollback)
    rollback(tid);
}

RFC_RC serveCall(Connection& c, std::string frame) {
  beginCall(c, std::move(frame));
  Connection::ServerState& s = c.server;
  struct End {
    Connection::ServerState& s;
    ~End() { s.inCall = false; }
  } end{s};
  const std::string name = s.head.function;
  const bool transactional = s.head.type == proto::CallType::Transactional;
  c.trace(Entry::RfcDispatchU, name + (transactional ? " tid " + s.head.tid : ""));
  if (!logonAllowed(c)) return RFC_CLOSED;

  RFC_TID tid{};
  putTerminated(tid, 25, utf16Of(s.head.tid));
  if (transactional) {
    const int check = checkTransaction(c, tid);
    if (check == 1) {
      c.send(resultFrame(true, {}));
      return RFC_OK;
    }
    if (check != 0) {
      c.send(failureFrame(proto::rc::kExternalFailure, proto::group::kExternalRuntime, "SYSTEM_FAILURE",
                          "Transaction " + s.head.tid + " could not be locked by the program"));
      return RFC_OK;
    }
  }
  if (answerSystemCall(c, name)) return RFC_OK;

  RFC_ONCALL function = nullptr;
  {
    Registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    if (auto it = reg.functions.find(name); it != reg.functions.end()) function = it->second.function;
    if (!function)
      if (auto it = reg.functions.find(kGlobalServer); it != reg.functions.end()) function = it->second.function;
  }
  if (!function) {
    c.send(failureFrame(proto::rc::kNotFound, proto::group::kExternalApplication, "FU_NOT_FOUND",
                        "Function " + name + " is not installed in this program"));
    return RFC_OK;
  }
  const RFC_RC rc = function(c.handle());
  if (!c.isOpen()) return RFC_CLOSED;
  if (rc != RFC_OK && s.reply.empty()) {
    if (transactional) endTransaction(c, tid, false, s.reply);
    c.send(failureFrame(proto::rc::kExternalFailure, proto::group::kExternalRuntime, "SYSTEM_FAILURE",
                        "The program's function " + name + " ended with code " + std::to_string(rc)));
    releaseConnection(c);
    return rc;
  }
  if (s.reply.empty()) s.reply = resultFrame(false, {});
  if (transactional) endTransaction(c, tid, !isFailure(s.reply), s.reply);
  c.send(s.reply);
  return rc;
}

// Stores (in a dispatch) or sends (after RfcGetName) the answer of the call being served.
RFC_RC answer(Connection& c, std::string frame) {
  Connection::ServerState& s = c.server;
  if (!s.inCall) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "No call is being served on this handle");
  if (!s.reply.empty()) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "The call being served was answered already");
  s.reply = std::move(frame);
  return RFC_OK;
}

RFC_HANDLE accept(const std::vector<std::string>& args) {
  auto c = Connection::registerAt(parseServerArguments(args));
  const RFC_HANDLE h = addConnection(c);
  c->trace(Entry::RfcAcceptU, "handle " + std::to_string(h));
  return h;
}

// The next call's name, serving system calls and confirmations on the way. RFC_SYSTEM_CALLED
// after a system call when `once`.
RFC_RC waitForName(Connection& c, SAP_UC* name, bool once) {
  while (true) {
    std::string frame = next(c);
    const auto kind = static_cast<MessageKind>(frame[0]);
    if (kind == MessageKind::ConfirmCall) {
      confirm(c, frame);
      if (once) return RFC_SYSTEM_CALLED;
      continue;
    }
    if (kind != MessageKind::Call) fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, "Unexpected request from the gateway");
    beginCall(c, std::move(frame));
    if (answerSystemCall(c, c.server.head.function)) {
      c.server.inCall = false;
      if (once) return RFC_SYSTEM_CALLED;
      continue;
    }
    c.server.reply = "manual";  // RfcSendData or a Raise sends at once
    putTerminated(name, 31, utf16Of(c.server.head.function));
    return RFC_OK;
  }
}

RFC_RC sendOrStore(Connection& c, std::string frame) {
  Connection::ServerState& s = c.server;
  if (s.inCall && s.reply == "manual") {
    s.inCall = false;
    s.reply.clear();
    c.send(frame);
    return RFC_OK;
  }
  return answer(c, std::move(frame));
}

}  // namespace

}  // namespace rfcsdk

namespace veltrane::sdk::rfc {

using namespace rfcsdk;
using rfcsdk::proto::MessageKind;

RFC_HANDLE RfcAcceptU(rfc_char_t** argv) {
  return guard(
      [&]() -> RFC_HANDLE {
        requireArgument(argv, "argv");
        std::vector<std::string> args;
        for (size_t i = 0; argv[i]; ++i) args.push_back(utf8Of(terminated(argv[i])));
        // argv[0] is the program's name unless it is a flag already.
        if (!args.empty() && (args[0].empty() || args[0][0] != '-')) args.erase(args.begin());
        return accept(args);
      },
      [](RFC_RC) { return RFC_HANDLE_NULL; });
}

RFC_HANDLE RfcAcceptExtU(rfc_char_t* commandLine) {
  return guard(
      [&]() -> RFC_HANDLE {
        requireArgument(commandLine, "command line");
        return accept(splitCommandLine(utf8Of(terminated(commandLine))));
      },
      [](RFC_RC) { return RFC_HANDLE_NULL; });
}

RFC_RC RfcInstallFunctionU(RFC_FUNCTIONNAME name, RFC_ONCALL function, rfc_char_t* docu) {
  return guardRc([&] {
    requireArgument(name, "name");
    const std::string n = functionName(name);
    if (n.empty()) fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "The function's name is empty");
    Registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    reg.functions[n] = {function, utf8Of(terminated(docu))};
  });
}

RFC_RC RfcUninstallFunctionU(RFC_FUNCTIONNAME name) {
  return guardRc([&] {
    requireArgument(name, "name");
    Registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    if (!reg.functions.erase(functionName(name)))
      fail(RFC_NOT_FOUND, RFC_ERROR_PROGRAM, "Function " + functionName(name) + " is not installed");
  });
}

RFC_RC RfcDispatchU(RFC_HANDLE handle) {
  return guard(
      [&]() -> RFC_RC {
        auto c = server(handle);
        if (c->server.inCall) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "A call is being served on this handle already");
        std::string frame = next(*c);
        const auto kind = static_cast<MessageKind>(frame[0]);
        if (kind == MessageKind::ConfirmCall) {
          confirm(*c, frame);
          return RFC_OK;
        }
        if (kind != MessageKind::Call) {
          c->close(false);
          fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, "Unexpected request from the gateway");
        }
        return serveCall(*c, std::move(frame));
      },
      [](RFC_RC rc) { return rc; });
}

RFC_RC RfcWaitForRequestU(RFC_HANDLE handle, RFC_INT seconds) {
  return guard(
      [&]() -> RFC_RC {
        return server(handle)->waitForRequest(std::chrono::milliseconds(seconds < 0 ? -1 : seconds * 1000LL));
      },
      [](RFC_RC rc) { return rc; });
}

RFC_RC RfcGetNameU(RFC_HANDLE handle, RFC_FUNCTIONNAME name) {
  return guardRc([&] {
    requireArgument(name, "name");
    auto c = server(handle);
    if (c->server.inCall) {
      putTerminated(name, 31, utf16Of(c->server.head.function));
      return;
    }
    waitForName(*c, name, false);
  });
}

RFC_RC RfcGetNameExU(RFC_HANDLE handle, RFC_FUNCTIONNAME name) {
  return guard(
      [&]() -> RFC_RC {
        requireArgument(name, "name");
        auto c = server(handle);
        if (c->server.inCall) {
          putTerminated(name, 31, utf16Of(c->server.head.function));
          return RFC_OK;
        }
        return waitForName(*c, name, true);
      },
      [](RFC_RC rc) { return rc; });
}

RFC_RC RfcGetDataU(RFC_HANDLE handle, RFC_PARAMETER* parameters, RFC_TABLE* tables) {
  return guardRc([&] {
    auto c = server(handle);
    Connection::ServerState& s = c->server;
    if (!s.inCall) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "No call is being served on this handle");
    proto::Reader r(s.frame.data() + s.valuesAt, s.frame.size() - s.valuesAt);
    try {
      readSection(r, {parameters, nullptr, tables}, nullptr);
    } catch (const proto::ProtocolError& e) {
      fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, e.what());
    }
  });
}

RFC_RC RfcSendDataU(RFC_HANDLE handle, RFC_PARAMETER* parameters, RFC_TABLE* tables) {
  return guardRc([&] {
    auto c = server(handle);
    sendOrStore(*c, resultFrame(false, {parameters, nullptr, tables, true}));
  });
}

RFC_RC RfcRaiseU(RFC_HANDLE handle, rfc_char_t* exception) {
  return RfcRaiseErrorMessageU(handle, exception, nullptr, nullptr);
}

RFC_RC RfcRaiseTablesU(RFC_HANDLE handle, rfc_char_t* exception, RFC_TABLE* tables) {
  return RfcRaiseErrorMessageU(handle, exception, tables, nullptr);
}

RFC_RC RfcRaiseErrorMessageU(RFC_HANDLE handle, rfc_char_t* exception, RFC_TABLE* tables, rfc_char_t* message) {
  return guardRc([&] {
    auto c = server(handle);
    const std::string key = upperAscii(utf8Of(trimRight(terminated(exception))));
    if (key.empty()) fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "The exception's name is empty");
    const std::string text = utf8Of(trimRight(bounded(message, 200)));
    sendOrStore(*c, exceptionFrame(key, text, tables));
  });
}

void RfcInstallTransactionControl2U(RFC_ON_CHECK_TID_EX onCheck, RFC_ON_COMMIT_EX onCommit,
                                    RFC_ON_ROLLBACK_EX onRollback, RFC_ON_CONFIRM_TID_EX onConfirm) {
  Registry& reg = registry();
  std::lock_guard lock(reg.mutex);
  reg.checkEx = onCheck;
  reg.commitEx = onCommit;
  reg.rollbackEx = onRollback;
  reg.confirmEx = onConfirm;
}

void RfcInstallTransactionControlU(RFC_ON_CHECK_TID onCheck, RFC_ON_COMMIT onCommit, RFC_ON_ROLLBACK onRollback,
                                   RFC_ON_CONFIRM_TID onConfirm) {
  Registry& reg = registry();
  std::lock_guard lock(reg.mutex);
  reg.check = onCheck;
  reg.commit = onCommit;
  reg.rollback = onRollback;
  reg.confirm = onConfirm;
}

RFC_RC RfcInstallExternalLogonHandlerU(RFC_HANDLE handle, RFC_EXTERNAL_LOGON handler) {
  return guardRc([&] { server(handle)->server.logonHandler = handler; });
}

RFC_RC RfcAttachContextU(RFC_HANDLE handle, RFC_ON_DISCONNECT onDisconnect, RFC_ON_FREE onFree, void* context) {
  return guardRc([&] {
    auto c = connectionOf(handle);
    Connection::ServerState& s = c->server;
    if (s.contextAttached)
      fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "A context is attached to this handle already");
    s.contextAttached = true;
    s.onDisconnect = onDisconnect;
    s.onFree = onFree;
    s.context = context;
  });
}

RFC_RC RfcGetAttachedContextU(RFC_HANDLE handle, void** context, int* fromCarrier) {
  return guardRc([&] {
    auto c = connectionOf(handle);
    if (!context) fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "Argument context is null");
    if (!c->server.contextAttached) fail(RFC_FAILURE, RFC_ERROR_PROGRAM, "No context is attached to this handle");
    *context = c->server.context;
    if (fromCarrier) *fromCarrier = 0;
  });
}

void RfcEnvironmentU(RFC_ENV* environment) {
  if (environment) setErrorHandler(environment->errorhandler);
}

}  // namespace veltrane::sdk::rfc
