// A connection of our classic RFC SDK to veltrane-sim over the RFC protocol: a client logged on to
// an ABAP session, or a server program registered at the gateway. Handles are small positive
// numbers, reused after RfcClose.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "rfc/rfc_entry_points.h"
#include "rfc_protocol/client_socket.h"
#include "rfc_protocol/messages.h"
#include "rfc_sdk/errors.h"
#include "rfc_sdk/options.h"

namespace rfcsdk {

// The connect timeout of RfcSetSystemTimeout, process-wide.
void setConnectTimeout(std::chrono::milliseconds t);

class Connection {
 public:
  enum class Role { Client, Server };

  // Connects and logs on. Throws Failure (group RFC_ERROR_LOGON_FAILURE for a refused logon).
  static std::shared_ptr<Connection> open(const ConnectOptions& options);
  // Connects to the gateway and registers the program ID.
  static std::shared_ptr<Connection> registerAt(const ServerOptions& options);
  ~Connection();

  Role role() const { return role_; }
  bool isOpen() const { return open_; }
  RFC_HANDLE handle() const { return handle_; }
  void setHandle(RFC_HANDLE h) { handle_ = h; }
  std::thread::id owner() const { return owner_; }

  // One request, one answer (kind byte first). An ERROR answer throws its record; a lost
  // connection throws RFC_SYS_EXCEPTION with group RFC_ERROR_COMMUNICATION and closes this one.
  std::string request(const std::string& frame);
  void send(const std::string& frame);

  // The call cycle of a client: the request goes out, RfcListen looks whether the answer is there
  // without blocking (RFC_OK, RFC_RETRY, or RFC_CLOSED when the partner has gone), and the answer
  // is taken, waiting for it when needed. Cancel works on a call that is out.
  void startCall(const std::string& frame);
  bool callOut() const { return callOut_; }
  RFC_RC listen();
  std::string takeAnswer();
  RFC_RC cancel(RFC_CANCEL_TYPE type);

  // For a server: the next frame from the gateway within `timeout` (negative: without limit), or
  // nullopt; throws Failure RFC_CLOSED when the gateway ended the connection.
  std::optional<std::string> nextRequest(std::chrono::milliseconds timeout);
  // For a server: RFC_OK when a request waits within `timeout`, else RFC_RETRY.
  RFC_RC waitForRequest(std::chrono::milliseconds timeout);

  void close(bool politely);

  std::string attribute(const std::string& name) const { return vsim::proto::pairValue(attributes_, name); }
  // The ticket of a logon with GETSSO2=1, handed out once.
  std::optional<std::string> takeTicket();
  // The function's description, cached per connection.
  const vsim::proto::FunctionInfo& describeFunction(const std::string& name);
  std::vector<vsim::proto::TypeInfo> describeType(const std::string& name);

  // The text *exception points to after a receive: valid until the next call on this handle.
  std::u16string exceptionText;
  // The function of the call that is out.
  std::string functionOut;

  // What a server handle keeps: its handlers and context, and the call it is serving.
  struct ServerState {
    RFC_EXTERNAL_LOGON logonHandler = nullptr;
    bool contextAttached = false;
    RFC_ON_DISCONNECT onDisconnect = nullptr;
    RFC_ON_FREE onFree = nullptr;
    void* context = nullptr;
    bool disconnectReported = false;
    bool inCall = false;
    std::string frame;    // the CALL frame
    size_t valuesAt = 0;  // where its values section starts
    vsim::proto::CallHead head;
    std::string reply;  // the answer the function's data made, sent after it returns
  };
  ServerState server;

  // With TRACE=1 (-t for a server): a line naming the entry point, from the list, and `detail`.
  void trace(veltrane::sdk::rfc::Entry entry, const std::string& detail = {});

 private:
  Connection(Role role, bool trace);
  void connectTo(const std::string& host, const std::string& port);
  void logon(vsim::proto::MessageKind kind, vsim::proto::Pairs params);
  std::string receiveLocked(std::chrono::milliseconds timeout, bool* nothing);
  [[noreturn]] void lost(const std::string& why);

  Role role_;
  RFC_HANDLE handle_ = 0;
  std::thread::id owner_ = std::this_thread::get_id();
  std::recursive_mutex io_;
  vsim::proto::ClientSocket socket_;
  std::atomic<bool> open_{false};
  std::atomic<bool> callOut_{false};
  std::atomic<bool> cancelling_{false};
  std::optional<std::string> answer_;
  vsim::proto::Pairs logonPairs_;
  std::string host_, port_;
  vsim::proto::Pairs attributes_;
  std::optional<std::string> ticket_;
  std::map<std::string, vsim::proto::FunctionInfo> functions_;
  bool trace_ = false;
  std::string traceFile_;
};

// The table of handles.
RFC_HANDLE addConnection(std::shared_ptr<Connection> c);
// The connection of a handle; throws Failure RFC_INVALID_HANDLE.
std::shared_ptr<Connection> connectionOf(RFC_HANDLE h);
// The connections to close for RfcClose(h): h's, or for 0 all of the calling thread.
std::vector<std::shared_ptr<Connection>> removeConnections(RFC_HANDLE h);

}  // namespace rfcsdk
