// The RFC front's handling of one connection's requests, apart from the network: logon, function
// and type descriptions, calls, transactional RFC, and the registration of a server program.
// One connection is one ABAP session.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "engine/log.h"
#include "engine/system.h"
#include "rfc_protocol/messages.h"

namespace vsim::rfc {

// What the service knows of one connection.
struct ConnectionState {
  std::string peer;
  std::optional<Logon> logon;
  std::unique_ptr<Session> session;
  // Set when the partner registered as a server program: the connection now belongs to the gateway.
  std::string registeredProgram;
  proto::Pairs registerParams;
};

struct Reply {
  std::string frame;               // empty: nothing to send
  bool close = false;              // end the connection after sending
  std::optional<FaultSpec> fault;  // a planned fault of the front for this answer
  std::string function;            // for the log
};

class RfcService {
 public:
  RfcService(System& system, Log& log) : system_(system), log_(log) {}

  // Answers one frame body (kind byte first). Never throws for bad input: a frame that does not
  // follow the protocol gets an INVALID_PROTOCOL error and closes the connection.
  Reply handle(ConnectionState& c, std::string_view body);

  // The error reply of an ABAP system's kind, as a complete frame.
  static std::string errorFrame(const proto::ErrorInfo& e);

  std::uint64_t requestCount() const { return requests_; }

 private:
  Reply logon(ConnectionState& c, proto::Reader& r);
  Reply registerProgram(ConnectionState& c, proto::Reader& r);
  Reply describeFunction(ConnectionState& c, proto::Reader& r);
  Reply describeType(ConnectionState& c, proto::Reader& r);
  Reply invoke(ConnectionState& c, proto::Reader& r);
  Reply transaction(ConnectionState& c, proto::Reader& r);
  // The call of one InvokeHead and its values section.
  std::unique_ptr<Call> readCall(proto::Reader& r, proto::InvokeHead& head);

  System& system_;
  Log& log_;
  std::atomic<std::uint64_t> requests_{0};
};

// Error records of the ABAP side, with the NW RFC SDK's codes.
proto::ErrorInfo logonFailure(const std::string& message);
proto::ErrorInfo exceptionError(const AbapException& e);
proto::ErrorInfo systemError(const SystemFailure& e);
proto::ErrorInfo protocolError(const std::string& message);

// Attributes of the system and logon that a partner sees (sysId, host, client, user, language...).
proto::Pairs connectionAttributes(const System& system, const Logon& logon, const std::string& isoLanguage);

}  // namespace vsim::rfc
