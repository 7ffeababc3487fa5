// Shared by the server tests: veltrane-sim with the interfaces of data/, a
// registered server of each class pointed at its gateway, a sink that
// answers the server's events, and the system's calls into the registered
// program (Z_VSIM_CALL_PROGRAM), made from a thread of their own while the
// test's apartment pumps.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "call_sets.h"
#include "nwrfc/nwrfc_library.h"
#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "testing/sim_process.h"
#include "veltrane/event_sink.h"
#include "veltrane_tlb.h"

namespace servertest {

vsim::testing::SimProcess& Sim();
std::u16string SdkDir();
// The directory of our librfcum.so.
std::u16string RfcSdkDir();
std::u16string Wide(const std::string& text);
std::string Narrow(std::u16string_view text);
std::string Text(BSTR text);
// A program ID of its own for each use.
std::u16string NewProgramId(const char* what);
// The loaded SDK (loaded from SdkDir() when needed).
const veltrane::nwrfc::EntryPoints& Sdk();

// What a call of the system into a registered program gave.
struct ProgramCall {
  std::string programId, function, parameters = "{}";
  std::string mode = "S", tid, confirm = "X";
  long timeoutMs = 20000;
};
struct ProgramAnswer {
  RFC_RC rc = RFC_UNKNOWN_ERROR;
  std::string key, message;  // of a failed call
  std::string result, exception, exceptionText, tidUsed;
  bool executedBefore = false;
};
// Runs Z_VSIM_CALL_PROGRAM as DEMO on a thread of its own; the calling
// thread pumps its apartment meanwhile (bounded, so a broken build fails
// instead of hanging).
ProgramAnswer CallProgram(const ProgramCall& call);
// The same without pumping: the answer arrives on the future.
std::thread StartProgramCall(const ProgramCall& call, ProgramAnswer* answer, std::atomic<bool>* done);
// Pumps the calling apartment until done holds or the time is up; false then.
bool PumpUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = std::chrono::seconds(60));
// Shutdown from a thread of its own while the calling apartment pumps, so
// that an event still on its way to this apartment cannot hold it up.
HRESULT ShutdownPumping(IRfcServer* server);
// Z_VSIM_GATEWAY with action: the number of registered connections.
long Gateway(const std::string& action);
// Drops every registered program at the gateway (DROP).
long DropPrograms();
// Connections registered at the gateway now (LIST).
long RegisteredPrograms();
// A function module's interface from the system's dictionary.
CComPtr<IFunctionCall> ImportInterface(const char16_t* name);

// A _RfcServerEvents sink. Each event is noted as "<Event> <detail>" (the
// function, the user or the transaction ID) with the thread it ran on, then
// handed to the handler set for it, if any.
class ServerSink : public CEventSink {
 public:
  using Handler = std::function<HRESULT(IDispatch* argument)>;

  static CComPtr<ServerSink> Create() {
    CComPtr<ServerSink> sink;
    sink.Attach(new ServerSink());
    return sink;
  }

  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*, EXCEPINFO*,
                                   UINT*) override;

  void On(DISPID event, Handler handler);
  // Advises the sink to server's connection point from the calling apartment.
  DWORD AdviseTo(IRfcServer* server);
  std::vector<std::string> Events();
  std::vector<std::thread::id> Threads();
  // True when at least n events have come.
  bool WaitFor(size_t n, std::chrono::milliseconds limit = std::chrono::seconds(30));

 private:
  ServerSink() : CEventSink(DIID__RfcServerEvents) {}
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::map<DISPID, Handler> m_handlers;
  std::vector<std::string> m_events;
  std::vector<std::thread::id> m_threads;
};

// The events' DISPIDs.
enum : DISPID {
  kIncomingCall = 1,
  kLogon = 2,
  kServerError = 3,
  kTransactionCheck = 4,
  kTransactionCommit = 5,
  kTransactionRollback = 6,
  kTransactionConfirm = 7
};

// The argument of an event as the interface it is.
template <class Itf>
CComPtr<Itf> As(IDispatch* argument) {
  CComPtr<Itf> itf;
  if (argument) argument->QueryInterface(__uuidof(Itf), reinterpret_cast<void**>(&itf));
  return itf;
}

// The server's IsListening and Error.
inline bool IsListening(IRfcServer* server) {
  VARIANT_BOOL listening = VARIANT_FALSE;
  server->get_IsListening(&listening);
  return listening == VARIANT_TRUE;
}
inline bool ErrorSet(IRfcServer* server) {
  VARIANT_BOOL error = VARIANT_FALSE;
  server->get_Error(&error);
  return error == VARIANT_TRUE;
}

// A test with an apartment on its thread and a fresh trace.
class ServerTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

// The values of a parameter of a call, by group ("Importing" ...) and name.
using test_support::Parameter;
using test_support::SetValue;
using test_support::Value;
std::string TextOf(const VARIANT& value);
long NumberOf(const VARIANT& value);

}  // namespace servertest
