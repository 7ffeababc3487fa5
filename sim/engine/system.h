// The simulated ABAP system: dictionary, function modules, tables and users, shared by all fronts.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "engine/dictionary.h"
#include "engine/faults.h"
#include "engine/function.h"
#include "engine/gateway.h"
#include "engine/table_store.h"
#include "engine/transactions.h"
#include "engine/users.h"

namespace vsim {

struct SystemInfo {
  std::string sysid = "VSM";
  std::string host = "vsimhost";
  std::string instance = "00";
  std::string release = "758";
  std::string kernel = "793";
  std::string dbsys = "HDB";
  std::string opsys = "Linux";
  std::string ipAddress = "127.0.0.1";
  std::string defaultClient = "001";
};

struct SystemOptions {
  // Rows of the flight table SFLIGHT; 0 gives the standard 3120.
  std::size_t flightRows = 0;
  // Upper bound of any wait a function module does (Z_VSIM_WAIT), in milliseconds.
  std::int64_t maxWaitMs = 600000;
  // Upper bound of the rows Z_VSIM_ROWS generates.
  std::int64_t maxGeneratedRows = 10000000;
};

class System {
 public:
  // The standard system: dictionary, modules, tables and logons.
  explicit System(SystemOptions options = {});
  System(const System&) = delete;
  System& operator=(const System&) = delete;

  Dictionary& dictionary() { return dictionary_; }
  FunctionRegistry& functions() { return functions_; }
  TableStore& tables() { return tables_; }
  const TableStore& tables() const { return tables_; }
  UserStore& users() { return users_; }
  const SystemInfo& info() const { return info_; }
  const SystemOptions& options() const { return options_; }
  FaultBoard& faults() { return faults_; }
  TransactionLog& transactions() { return transactions_; }

  // The gateway of registered programs, set by the front that offers it (none: null).
  void setGateway(Gateway* gateway) { gateway_ = gateway; }
  Gateway* gateway() const { return gateway_; }
  // Ends the connections of all registered programs; 0 without a gateway.
  size_t dropRegisteredPrograms();

  // Requests the RFC front has taken (the control endpoint's status shows them).
  void noteRfcRequest() { ++rfcRequests_; }
  std::uint64_t rfcRequests() const { return rfcRequests_; }

  // Counters by name, for test modules that show how often they ran. Returns the new value.
  std::int64_t count(const std::string& key, std::int64_t add);

  // Notes of the test BAPI Z_VSIM_NOTE_CREATE, by key: those committed.
  struct Note {
    std::int64_t number = 0;
    std::string text, user;
  };
  void addNote(const std::string& key, Note note);
  std::vector<Note> notes(const std::string& key) const;

  // Runs a call: defaults for the importing parameters not supplied, the authorization check,
  // then the module. Throws AbapException or SystemFailure.
  void execute(Call& call, Session& session);
  // Prepares a call of a module by name; SystemFailure FU_NOT_FOUND when it does not exist.
  Call prepare(const std::string& function);

  // Waits up to `ms` (bounded by maxWaitMs); returns early, with false, on shutdown.
  bool sleepFor(std::int64_t ms);
  void shutdown();
  bool stopping() const { return stopping_; }

  // Today's date and the time of day as SY-DATUM and SY-UZEIT give them (UTC).
  static std::string today();
  static std::string now();

  // Logon tickets (the MYSAPSSO2 cookie): base64 text, valid for `seconds`. Signed with a secret
  // of this process; good for tests, not for security.
  std::string issueTicket(const Logon& logon, std::int64_t seconds = 8 * 3600) const;
  std::optional<Logon> checkTicket(const std::string& ticket) const;

  // Plain text of a default value as written in an interface, for the given logon.
  std::string evaluateDefault(const std::string& expr, const Logon& logon) const;

  // Interface helpers for the module definitions.
  Parameter param(Direction d, const std::string& name, const std::string& typeRef, bool optional = false,
                  const std::string& defaultValue = {}, const std::string& text = {}) const;

 private:
  SystemInfo info_;
  SystemOptions options_;
  Dictionary dictionary_;
  FunctionRegistry functions_;
  TableStore tables_;
  UserStore users_;
  std::mutex waitMutex_;
  std::condition_variable waitCv_;
  std::atomic<bool> stopping_{false};
  std::string ticketSecret_;
  FaultBoard faults_;
  TransactionLog transactions_;
  std::atomic<Gateway*> gateway_{nullptr};
  std::atomic<std::uint64_t> rfcRequests_{0};
  std::mutex countersMutex_;
  std::map<std::string, std::int64_t> counters_;
  mutable std::mutex notesMutex_;
  std::map<std::string, std::vector<Note>> notes_;
};

// Standard content, one concern per file.
void installDictionary(System& system);
void installData(System& system);
void generateFlights(System& system, std::size_t rows);
void installBasisModules(System& system);
void installMetadataModules(System& system);
void installReadTable(System& system);
void installSecurityModules(System& system);
void installFlightModules(System& system);
void installTestModules(System& system);
void installGatewayModules(System& system);
void installLuwModules(System& system);

}  // namespace vsim
