// The gateway of the RFC front: server programs register with a program ID and keep their
// connection; function modules call them through it (engine::Gateway).
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/gateway.h"
#include "engine/log.h"
#include "engine/system.h"
#include "rfc_protocol/values.h"

namespace vsim::rfc {

// The connection of one registered program, as the gateway uses it.
class ProgramLink {
 public:
  virtual ~ProgramLink() = default;
  // Sends a frame and waits up to `timeout` for the program's answer (a frame body, kind byte
  // first). Throws std::runtime_error when the connection is lost or the time is up; the link is
  // then dropped.
  virtual std::string exchange(std::string frame, std::chrono::milliseconds timeout) = 0;
  // Ends the connection.
  virtual void drop() = 0;
  virtual const std::string& programId() const = 0;
};

class RfcGateway : public Gateway {
 public:
  RfcGateway(System& system, Log& log) : system_(system), log_(log) {}

  void add(std::shared_ptr<ProgramLink> link);
  void remove(const ProgramLink* link);

  ProgramResult call(const ProgramCall& call) override;
  size_t dropAll() override;
  std::vector<std::string> programs() const override;

 private:
  struct Entry {
    std::shared_ptr<ProgramLink> link;
    bool busy = false;
  };
  // An idle link of the program, waited for up to the deadline; null when none is registered.
  std::shared_ptr<ProgramLink> acquire(const std::string& programId, std::chrono::steady_clock::time_point deadline);
  void release(const ProgramLink* link);

  System& system_;
  Log& log_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Entry> links_;
};

// Parameters between JSON text and the wire, for calls driven over SOAP or the command line.
// Strings become CHAR, whole numbers INT (INT8 beyond 32 bits), other numbers FLOAT, true and
// false "X" and blank, objects structures, arrays tables. Throws std::invalid_argument.
proto::NamedValues valuesFromJson(const std::string& json);
// Back to JSON: bytes as hexadecimal text, tables as arrays of objects (of values for elementary rows).
std::string valuesToJson(const proto::NamedValues& values);

}  // namespace vsim::rfc
