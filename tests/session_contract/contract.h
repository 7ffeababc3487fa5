// The contract every session class keeps, whatever its back end: the frame
// of ISession (options, errors, the cached imports, the type cache, the
// service calls, the table reader), synchronous and asynchronous calls,
// CallFinished, aborting, and failures reported through the result only.
// Where the back ends differ by design (a second call while one runs,
// aborting, CallActive while CallFinished is fired), each says what it does. The tests (contract_test.cpp) run once per back end;
// backends.cpp lists the back ends, one line each.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "event_sink.h"
#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "veltrane_tlb.h"

namespace contract {

using test_support::EventSink;

// The simulated system as one back end reaches it.
class ContractSystem {
 public:
  virtual ~ContractSystem() = default;
  // A new session of the back end's class, pointed at the system and logged
  // on as user; not connected.
  virtual CComPtr<ISession> NewSession(const char16_t* user = u"DEMO", const char16_t* password = u"Welcome1") = 0;
  // The system takes this long before it answers the next request.
  virtual void DelayNextAnswer(int milliseconds) = 0;
  // The requests the system has answered so far.
  virtual long Requests() = 0;
  // Forgets what DelayNextAnswer asked for.
  virtual void Reset() = 0;
};

// What AbortCall does to a running call: stop it (no answer, no
// CallFinished), or nothing, where the back end's SDK cannot stop a call.
enum class AbortCall { StopsTheCall, LetsTheCallFinish };

// What a CallFunction gets while an asynchronous call runs: text 522, the
// first call going on; or the back end's SDK, which serves it.
enum class SecondCall { Refused, GoesToTheSdk };

// What CallActive says in CallFinished: false where the call ended before
// the event; true where the back end clears it after the event, on the
// call's thread (the suite then does not look at it right after the event).
enum class ActiveInCallFinished { No, Yes };

// What ImportCall gives when a parameter it added cannot be fetched back by
// its name: text 519, the failure raised and caught at the boundary; or the
// failing step's own result, where the back end's import checks each step.
enum class ImportFailure { Unexpected, ItsOwnResult };

// Where an ABAP exception's name goes: the record's key, or its message with
// the key left empty.
enum class ExceptionName { InTheKey, InTheMessage };

// One back end: its name, what SessionType says, how to reach the system,
// and where it differs by design.
struct SessionBackend {
  std::string name;
  std::u16string sessionType;
  std::function<std::unique_ptr<ContractSystem>()> start;
  AbortCall abort = AbortCall::StopsTheCall;
  SecondCall secondCall = SecondCall::Refused;
  ActiveInCallFinished activeInCallFinished = ActiveInCallFinished::No;
  ImportFailure importFailure = ImportFailure::Unexpected;
  ExceptionName exceptionName = ExceptionName::InTheKey;
};

inline std::string PrintBackend(const ::testing::TestParamInfo<SessionBackend>& info) { return info.param.name; }

// The modules the contract adds to the simulated system.
inline std::string ContractDataDir() { return std::string(VELTRANE_SOURCE_DIR) + "/tests/session_contract/data"; }

// The fixture: one system per back end for the whole program, a fresh
// session for each test.
class SessionContract : public ::testing::TestWithParam<SessionBackend> {
 protected:
  void SetUp() override;
  void TearDown() override;

  ContractSystem& System() { return *m_system; }

  CComPtr<IFunctionCall> NewCall(const char16_t* function);
  CComPtr<IFunctionCall> Import(const char16_t* function);
  static void Set(IFunctionCall* call, const char16_t* name, const CComVariant& value);
  static std::string Exported(IFunctionCall* call, const char16_t* name);

  bool Connected();
  bool Active();
  bool ErrorSet();
  struct ErrorText {
    long group;
    std::string key, message, module;
  };
  ErrorText Error();
  static std::string ErrorDescription();

  void Advise();

  CComPtr<ISession> m_session;
  EventSink* m_sink = nullptr;

 private:
  ContractSystem* m_system = nullptr;
  CComPtr<IConnectionPoint> m_point;
  DWORD m_cookie = 0;
};

}  // namespace contract
