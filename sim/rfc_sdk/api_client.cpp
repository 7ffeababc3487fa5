// Entry points of a client: open and close, the call cycle, cancel, the last error, tRFC, tickets.
#include <cstring>

#include "rfc_protocol/values.h"
#include "rfc_sdk/api.h"

namespace veltrane::sdk::rfc {

using namespace rfcsdk;
namespace proto = vsim::proto;
using proto::MessageKind;

namespace {

RFC_RC failed(RFC_RC rc) { return rc; }

// Decimals of the function's packed scalar parameters, from its description when one is needed.
DecimalsOf decimalsFor(Connection& c, const std::string& function) {
  return [&c, function](const std::string& name) -> int {
    try {
      for (const proto::ParameterInfo& p : c.describeFunction(function).parameters)
        if (p.name == name) return static_cast<int>(p.decimals);
    } catch (const Failure&) {}
    return -1;
  };
}

std::string invokeFrame(Connection& c, const std::string& function, const Outgoing& out) {
  proto::FrameBuilder f(MessageKind::Invoke, 1024);
  proto::writeInvokeHead(f.writer(), {function, {}});
  writeSection(f.writer(), out, decimalsFor(c, function));
  return f.finish();
}

// The answer of a call into the receiving arrays: RFC_OK, RFC_EXCEPTION, RFC_SYS_EXCEPTION.
RFC_RC receive(Connection& c, const Incoming& in, const std::string& function, rfc_char_t** exception) {
  c.exceptionText.clear();
  if (exception) *exception = nullptr;
  auto setException = [&](const std::string& text) {
    c.exceptionText = utf16Of(text);
    if (exception) *exception = c.exceptionText.data();
  };
  std::string body;
  try {
    body = c.takeAnswer();
  } catch (const Failure& f) {
    if (f.rc() != RFC_SYS_EXCEPTION) throw;
    setLastError(f.record());
    setException("COMMUNICATION_FAILURE");
    return RFC_SYS_EXCEPTION;
  }
  proto::Reader r(body);
  const auto kind = static_cast<MessageKind>(r.u8());
  try {
    if (kind == MessageKind::Result) {
      readSection(r, in, decimalsFor(c, function));
      return RFC_OK;
    }
    if (kind == MessageKind::Exception || kind == MessageKind::Error) {
      const proto::ErrorInfo e = readErrorBody(r);
      const ErrorRecord record = recordOf(e);
      setLastError(record);
      if (kind == MessageKind::Exception) {
        readSection(r, {nullptr, nullptr, in.tables}, nullptr);
        setException(e.key);
        return RFC_EXCEPTION;
      }
      if (!e.closes) return RFC_FAILURE;
      c.close(false);
      setException(record.group == RFC_ERROR_COMMUNICATION ? "COMMUNICATION_FAILURE" : "SYSTEM_FAILURE");
      return RFC_SYS_EXCEPTION;
    }
  } catch (const proto::ProtocolError& e) {
    fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, e.what());
  }
  fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, std::string("Unexpected answer ") + proto::messageKindName(kind));
}

}  // namespace

RFC_HANDLE RfcOpenExU(rfc_char_t* connectParam, RFC_ERROR_INFO_EX* errorInfo) {
  return guard(
      [&]() -> RFC_HANDLE {
        requireArgument(connectParam, "connect string");
        auto c = Connection::open(ConnectOptions::parse(utf8Of(terminated(connectParam))));
        const RFC_HANDLE h = addConnection(c);
        c->trace(Entry::RfcOpenExU, "handle " + std::to_string(h));
        return h;
      },
      [&](RFC_RC) -> RFC_HANDLE {
        peekLastError(errorInfo);
        return RFC_HANDLE_NULL;
      });
}

void RfcCloseU(RFC_HANDLE handle) {
  guard(
      [&] {
        for (const auto& c : removeConnections(handle)) releaseConnection(*c);
      },
      [](RFC_RC) {});
}

RFC_RC RfcSetSystemTimeoutU(RFC_INT timeout) {
  return guardRc([&] {
    if (timeout <= 0) fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "The timeout must be above 0 milliseconds");
    setConnectTimeout(std::chrono::milliseconds(timeout));
  });
}

RFC_RC RfcCallExU(RFC_HANDLE handle, rfc_char_t* function, RFC_PARAMETER* exporting, RFC_PARAMETER* changing,
                  RFC_TABLE* tables) {
  return guard(
      [&]() -> RFC_RC {
        auto c = client(handle);
        const std::string name = objectName(function, "function");
        c->trace(Entry::RfcCallExU, name);
        c->functionOut = name;
        c->startCall(invokeFrame(*c, name, {exporting, changing, tables, true}));
        return RFC_OK;
      },
      [](RFC_RC) { return RFC_FAILURE; });
}

RFC_RC RfcReceiveExU(RFC_HANDLE handle, RFC_PARAMETER* importing, RFC_PARAMETER* changing, RFC_TABLE* tables,
                     rfc_char_t** exception) {
  return guard(
      [&]() -> RFC_RC {
        auto c = client(handle);
        c->trace(Entry::RfcReceiveExU);
        return receive(*c, {importing, changing, tables}, c->functionOut, exception);
      },
      failed);
}

RFC_RC RfcCallReceiveExU(RFC_HANDLE handle, rfc_char_t* function, RFC_PARAMETER* exporting, RFC_PARAMETER* importing,
                         RFC_PARAMETER* changing, RFC_TABLE* tables, rfc_char_t** exception) {
  return guard(
      [&]() -> RFC_RC {
        auto c = client(handle);
        const std::string name = objectName(function, "function");
        c->trace(Entry::RfcCallReceiveExU, name);
        c->functionOut = name;
        c->startCall(invokeFrame(*c, name, {exporting, changing, tables, true}));
        return receive(*c, {importing, changing, tables}, name, exception);
      },
      failed);
}

RFC_RC RfcListenU(RFC_HANDLE handle) {
  return guard([&]() -> RFC_RC { return connectionOf(handle)->listen(); }, failed);
}

RFC_RC RfcCancelU(RFC_HANDLE handle, RFC_CANCEL_TYPE type) {
  return guard(
      [&]() -> RFC_RC {
        // Read as a number: a caller may pass any value.
        unsigned raw;
        std::memcpy(&raw, &type, sizeof raw);
        if (raw > RFC_CANCEL_CLOSE)
          fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "Unknown cancel type " + std::to_string(raw));
        auto c = client(handle);
        c->trace(Entry::RfcCancelU, std::to_string(raw));
        return c->cancel(type);
      },
      failed);
}

int RfcLastErrorExU(RFC_ERROR_INFO_EX* errorInfo) { return fetchLastError(errorInfo); }

RFC_RC RfcIsValidHandleU(RFC_HANDLE handle, RFC_ERROR_INFO_EX* errorInfo) {
  return guard(
      [&]() -> RFC_RC {
        auto c = connectionOf(handle);
        if (!c->isOpen())
          fail(RFC_CLOSED, RFC_ERROR_COMMUNICATION,
               "The connection of handle " + std::to_string(handle) + " is closed");
        if (c->owner() != std::this_thread::get_id())
          fail(RFC_NOT_OWNER, RFC_ERROR_PROGRAM, "Handle " + std::to_string(handle) + " was opened by another thread");
        return RFC_OK;
      },
      [&](RFC_RC rc) {
        peekLastError(errorInfo);
        return rc;
      });
}

RFC_RC RfcCreateTransIDU(RFC_HANDLE handle, RFC_TID tid) {
  return guardRc([&] {
    requireArgument(tid, "tid");
    auto c = client(handle);
    const std::string answer = c->request(proto::FrameBuilder(MessageKind::NewTid).finish());
    proto::Reader r(answer);
    if (static_cast<MessageKind>(r.u8()) != MessageKind::Tid)
      fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, "Expected a transaction ID");
    try {
      putTerminated(tid, sizeof(RFC_TID) / sizeof(SAP_UC), utf16Of(proto::readShortText(r, 64)));
    } catch (const proto::ProtocolError& e) {
      fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, e.what());
    }
    c->trace(Entry::RfcCreateTransIDU, utf8Of(terminated(tid)));
  });
}

namespace {

std::string tidText(const SAP_UC* tid) {
  const std::string t = utf8Of(trimRight(bounded(tid, 24)));
  if (t.empty()) fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "The transaction ID is empty");
  return t;
}

void expectOk(const std::string& answer) {
  proto::Reader r(answer);
  if (static_cast<MessageKind>(r.u8()) != MessageKind::Ok) fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, "Expected OK");
}

}  // namespace

RFC_RC RfcIndirectCallExU(RFC_HANDLE handle, rfc_char_t* function, RFC_PARAMETER* exporting, RFC_TABLE* tables,
                          RFC_TID tid) {
  return guard(
      [&]() -> RFC_RC {
        auto c = client(handle);
        const std::string name = objectName(function, "function");
        const std::string id = tidText(tid);
        c->trace(Entry::RfcIndirectCallExU, name + " " + id);
        proto::FrameBuilder f(MessageKind::Transaction, 1024);
        proto::writeTransactionHead(f.writer(), {id, "", 1});
        proto::writeInvokeHead(f.writer(), {name, {}});
        writeSection(f.writer(), {exporting, nullptr, tables, true}, decimalsFor(*c, name));
        const std::string answer = c->request(f.finish());
        proto::Reader r(answer);
        const auto kind = static_cast<MessageKind>(r.u8());
        if (kind == MessageKind::Exception) {
          const ErrorRecord record = recordOf(readErrorBody(r));
          throw Failure(RFC_EXCEPTION, record);
        }
        if (kind != MessageKind::Ok) fail(RFC_FAILURE, RFC_ERROR_PROTOCOL, "Expected OK");
        return RFC_OK;
      },
      failed);
}

RFC_RC RfcConfirmTransIDU(RFC_HANDLE handle, RFC_TID tid) {
  return guardRc([&] {
    auto c = client(handle);
    const std::string id = tidText(tid);
    c->trace(Entry::RfcConfirmTransIDU, id);
    proto::FrameBuilder f(MessageKind::Confirm);
    f.writer().text(id);
    expectOk(c->request(f.finish()));
  });
}

RFC_RC RfcGetTicketU(RFC_HANDLE handle, RFC_CHAR* ticket) {
  return guardRc([&] {
    auto c = client(handle);
    requireArgument(ticket, "ticket buffer");
    std::optional<std::string> t = c->takeTicket();
    if (!t)
      fail(RFC_FAILURE, RFC_ERROR_PROGRAM,
           "No ticket: open the connection with GETSSO2=1; its ticket is handed out once");
    const std::u16string u = utf16Of(*t);
    std::copy(u.begin(), u.end(), ticket);
    ticket[u.size()] = 0;
  });
}

}  // namespace veltrane::sdk::rfc
