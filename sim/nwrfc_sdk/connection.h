// A connection to veltrane-sim over the RFC protocol: a client logged on to an ABAP session, or a
// server program registered at the gateway. One request is answered before the next is sent.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "nwrfc_sdk/config.h"
#include "nwrfc_sdk/descriptions.h"
#include "rfc_protocol/client_socket.h"
#include "rfc_protocol/messages.h"

namespace nwrfc {

class Connection : public Object {
 public:
  static bool accepts(ObjectKind k) { return k == ObjectKind::Connection; }
  enum class Role { Client, Server };

  // Connects and logs on; RFC_COMMUNICATION_FAILURE, RFC_LOGON_FAILURE...
  static std::unique_ptr<Connection> open(const ConnectionParameters& params);
  // Connects to the gateway and registers the program ID.
  static std::unique_ptr<Connection> registerServer(const ConnectionParameters& params);
  ~Connection() override;

  Role role() const { return role_; }
  bool isOpen() const { return socket_.open(); }
  // Sends a request and returns the answer's body (kind first). A lost connection closes this
  // one and throws RFC_COMMUNICATION_FAILURE; an ERROR answer throws its record (closing the
  // connection when the system closes it).
  std::string request(const std::string& frame);
  // For servers: the next frame within `timeout`, or nullopt; RFC_COMMUNICATION_FAILURE.
  std::optional<std::string> receive(std::chrono::milliseconds timeout);
  void send(const std::string& frame);
  // Ends the connection; `politely` tells the system first.
  void close(bool politely);

  const vsim::proto::Pairs& attributes() const { return attributes_; }
  std::string attribute(const std::string& name) const { return vsim::proto::pairValue(attributes_, name); }
  const std::u16string& systemId() const { return sysId_; }
  const ConnectionParameters& parameters() const { return params_; }
  // The attributes of the call a server is dispatching (the caller's client, user...).
  vsim::proto::Pairs callAttributes;
  // One call at a time on a connection.
  std::recursive_mutex& callMutex() { return callMutex_; }

  // Function and type descriptions of this connection's system, from its repository or the system.
  FunctionPtr functionDescription(std::u16string_view name);
  TypePtr typeDescription(std::u16string_view name);

 private:
  Connection(Role role, ConnectionParameters params);
  void openSocket(const Endpoint& e);
  void logon(vsim::proto::MessageKind kind, vsim::proto::Pairs params);
  [[noreturn]] void lost(const std::string& why);

  Role role_;
  ConnectionParameters params_;
  vsim::proto::ClientSocket socket_;
  vsim::proto::Pairs attributes_;
  std::u16string sysId_;
  std::recursive_mutex callMutex_;
};

// An error answer's record, or RFC_INVALID_PROTOCOL for an answer of another kind than `expected`.
// Returns a reader positioned behind the kind byte.
vsim::proto::Reader expectAnswer(const std::string& body, vsim::proto::MessageKind expected);

// Descriptions built from the system's.
FunctionPtr buildFunction(const vsim::proto::FunctionInfo& info);
TypePtr buildType(const std::vector<vsim::proto::TypeInfo>& types);

}  // namespace nwrfc
