// The RFC front of the simulated system: a TCP port on an asynchronous event loop. Requests of a
// connection are answered one after the other (a connection is an ABAP session); they run on a
// pool of workers, so a slow module never holds up other connections. Registered server
// programs keep their connection, which then belongs to the gateway.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/log.h"
#include "engine/system.h"
#include "rfc/gateway.h"
#include "rfc_protocol/frame.h"

namespace vsim::rfc {

class RfcServer {
 public:
  struct Options {
    unsigned ioThreads = 2;
    unsigned workers = 16;
    std::uint32_t maxFrame = proto::kDefaultMaxFrame;
  };

  RfcServer(System& system, Log& log, Options options);
  ~RfcServer();
  RfcServer(const RfcServer&) = delete;
  RfcServer& operator=(const RfcServer&) = delete;

  // Binds and listens; port 0 picks a free port. Returns the port. Throws std::runtime_error.
  unsigned short listen(const std::string& address, unsigned short port);
  // Starts the event loop threads and the workers, and offers the gateway to the system.
  void start();
  // Drops registered programs, stops accepting, lets running requests finish. Idempotent.
  void stop();

  RfcGateway& gateway();
  std::uint64_t requestCount() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vsim::rfc
