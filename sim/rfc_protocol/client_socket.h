// The client end of an RFC protocol connection: a blocking TCP socket that sends and receives
// whole frames. Used by the SDK libraries, one connection per handle.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "rfc_protocol/frame.h"

namespace vsim::proto {

// The connection failed or the partner closed it.
class IoError : public std::runtime_error {
 public:
  IoError(const std::string& what, bool closedByPeer = false) : std::runtime_error(what), closedByPeer_(closedByPeer) {}
  bool closedByPeer() const { return closedByPeer_; }

 private:
  bool closedByPeer_;
};

class ClientSocket {
 public:
  ClientSocket() = default;
  ~ClientSocket();
  ClientSocket(ClientSocket&& o) noexcept;
  ClientSocket& operator=(ClientSocket&& o) noexcept;
  ClientSocket(const ClientSocket&) = delete;
  ClientSocket& operator=(const ClientSocket&) = delete;

  // Resolves `host` and connects to `port` (a number) within `timeout`. Throws IoError with the
  // reason, such as "connection refused".
  static ClientSocket connect(const std::string& host, const std::string& port, std::chrono::milliseconds timeout);

  // Sends a complete frame. Throws IoError.
  void send(const std::string& frame);
  // Waits up to `timeout` (negative: without limit) for the next frame and returns its body, kind
  // byte first; nullopt when nothing arrived in time. Throws IoError, and ProtocolError for a
  // frame the limit refuses.
  std::optional<std::string> receive(std::chrono::milliseconds timeout, std::uint32_t maxFrame = kDefaultMaxFrame);
  // True when data (or the end of the stream) is ready to be read within `timeout`.
  bool readable(std::chrono::milliseconds timeout);

  bool open() const { return fd_ >= 0; }
  void close();
  // The address of the partner, as "host:port".
  const std::string& peer() const { return peer_; }

 private:
  explicit ClientSocket(int fd, std::string peer) : fd_(fd), peer_(std::move(peer)) {}
  void readExactly(char* data, size_t size);
  int fd_ = -1;
  std::string peer_;
};

}  // namespace vsim::proto
