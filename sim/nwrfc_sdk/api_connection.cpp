// Entry points of connections, calls and transactional RFC.
#include <random>

#include "nwrfc_sdk/api.h"
#include "nwrfc_sdk/marshal.h"
#include "nwrfc_sdk/server.h"
#include "nwrfc_sdk/transaction.h"

using namespace nwrfc;
namespace proto = vsim::proto;

RFC_CONNECTION_HANDLE RfcOpenConnection(const RFC_CONNECTION_PARAMETER* connectionParams, unsigned paramCount,
                                        RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_CONNECTION_HANDLE>(errorInfo, [&] {
    return connectionHandle(own(Connection::open(ConnectionParameters::collect(connectionParams, paramCount))));
  });
}

RFC_RC RfcCloseConnection(RFC_CONNECTION_HANDLE rfcHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    Connection& c = resolve<Connection>(rfcHandle, "RFC_CONNECTION_HANDLE");
    trace().call(Entry::RfcCloseConnection);
    {
      std::lock_guard lock(c.callMutex());
      c.close(true);
    }
    disown(&c);
  });
}

RFC_RC RfcIsConnectionHandleValid(RFC_CONNECTION_HANDLE rfcHandle, int* isValid, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    if (isValid) *isValid = 0;
    openConnection(rfcHandle);
    if (isValid) *isValid = 1;
  });
}

RFC_RC RfcPing(RFC_CONNECTION_HANDLE rfcHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    Connection& c = openConnection(rfcHandle);
    std::lock_guard lock(c.callMutex());
    trace().call(Entry::RfcPing);
    expectAnswer(c.request(proto::FrameBuilder(proto::MessageKind::Ping).finish()), proto::MessageKind::Ok);
  });
}

RFC_RC RfcGetConnectionAttributes(RFC_CONNECTION_HANDLE rfcHandle, RFC_ATTRIBUTES* attr, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    requireOut(attr, "attr");
    fillAttributes(openConnection(rfcHandle), *attr);
  });
}

RFC_RC RfcInvoke(RFC_CONNECTION_HANDLE rfcHandle, RFC_FUNCTION_HANDLE funcHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    Connection& c = openConnection(rfcHandle);
    FunctionContainer& f = function(funcHandle);
    if (c.role() != Connection::Role::Client)
      fail(RFC_ILLEGAL_STATE, "A registered server's connection cannot call functions of the system");
    std::lock_guard lock(c.callMutex());
    const std::string name = toUtf8(f.description()->name());
    trace().call(Entry::RfcInvoke, name);
    proto::FrameBuilder frame(proto::MessageKind::Invoke, 1024);
    proto::writeInvokeHead(frame.writer(), {name, inactiveParameters(f)});
    writeParameters(frame.writer(), f, Outgoing::Request);
    const std::string answer = c.request(frame.finish());
    proto::Reader r(answer);
    const auto kind = static_cast<proto::MessageKind>(r.u8());
    try {
      if (kind == proto::MessageKind::Exception) {
        const ErrorRecord e = recordOf(proto::readError(r));
        readParameters(r, f);
        throw SdkError(e);
      }
      r = expectAnswer(answer, proto::MessageKind::Result);
      readParameters(r, f);
      r.expectEnd();
    } catch (const proto::ProtocolError& e) {
      c.close(false);
      fail(RFC_INVALID_PROTOCOL, RFC_ERROR_GROUP::COMMUNICATION_FAILURE, e.what());
    }
  });
}

RFC_RC RfcGetTransactionID(RFC_CONNECTION_HANDLE rfcHandle, RFC_TID tid, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    requireOut(tid, "tid");
    std::string id;
    if (rfcHandle) {
      Connection& c = openConnection(rfcHandle);
      std::lock_guard lock(c.callMutex());
      const std::string answer = c.request(proto::FrameBuilder(proto::MessageKind::NewTid).finish());
      proto::Reader r = expectAnswer(answer, proto::MessageKind::Tid);
      id = proto::readShortText(r, 24);
    } else {
      static std::mutex m;
      static std::mt19937_64 rng{std::random_device{}()};
      std::lock_guard lock(m);
      char buf[32];
      std::snprintf(buf, sizeof buf, "%016llX%08llX", static_cast<unsigned long long>(rng()),
                    static_cast<unsigned long long>(rng() & 0xffffffffULL));
      id = buf;
    }
    copyTerminated(tid, 25, id);
  });
}

RFC_TRANSACTION_HANDLE RfcCreateTransaction(RFC_CONNECTION_HANDLE rfcHandle, RFC_TID tid, const SAP_UC* queueName,
                                            RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_TRANSACTION_HANDLE>(errorInfo, [&] {
    Connection& c = openConnection(rfcHandle);
    const std::string id = toUtf8(ucView(tid, 25));
    if (id.empty() || id.size() > 24) fail(RFC_INVALID_PARAMETER, "Transaction ID '" + id + "' is not valid");
    auto t = std::make_unique<Transaction>(c, id, toUtf8(ucView(queueName)));
    return reinterpret_cast<RFC_TRANSACTION_HANDLE>(static_cast<Object*>(own(std::move(t))));
  });
}

RFC_RC RfcInvokeInTransaction(RFC_TRANSACTION_HANDLE tHandle, RFC_FUNCTION_HANDLE funcHandle,
                              RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    Transaction& t = resolve<Transaction>(tHandle, "RFC_TRANSACTION_HANDLE");
    FunctionContainer& f = function(funcHandle);
    std::string unit;
    proto::Writer w(unit);
    proto::writeInvokeHead(w, {toUtf8(f.description()->name()), {}});
    writeParameters(w, f, Outgoing::Request);
    t.add(std::move(unit));
  });
}

RFC_RC RfcSubmitTransaction(RFC_TRANSACTION_HANDLE tHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { resolve<Transaction>(tHandle, "RFC_TRANSACTION_HANDLE").submit(); });
}

RFC_RC RfcConfirmTransaction(RFC_TRANSACTION_HANDLE tHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { resolve<Transaction>(tHandle, "RFC_TRANSACTION_HANDLE").confirm(); });
}

RFC_RC RfcDestroyTransaction(RFC_TRANSACTION_HANDLE tHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { disown(&resolve<Transaction>(tHandle, "RFC_TRANSACTION_HANDLE")); });
}
