// Shared by the NW back end's tests: veltrane-sim with the modules of
// data/, NW sessions pointed at it through our libsapnwrfc.so, a connection
// of the SDK itself to look into containers, and small helpers.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "call_sets.h"
#include "event_sink.h"
#include "nwrfc/nwrfc_library.h"
#include "session_state.h"
#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "testing/sim_process.h"
#include "veltrane_tlb.h"

namespace nwtest {

// The simulated system for the whole program, started on first need.
vsim::testing::SimProcess& Sim();
// "ashost=127.0.0.1 gwserv=<port>".
std::u16string ConnectString();
// The directory of our libsapnwrfc.so.
std::u16string SdkDir();
// A control request to the simulated system ("fault?front=rfc&fault=close").
std::string Control(const std::string& what);
// Requests of the RFC front so far.
long RfcRequests();

// A new NW session on the simulated system, with our SDK's directory, the
// connect string and the logon data; not connected.
CComPtr<IRfcSession> NewSession(const char16_t* user = u"DEMO", const char16_t* password = u"Welcome1");
// The same, connected.
CComPtr<IRfcSession> ConnectedSession(const char16_t* user = u"DEMO");
// The loaded SDK; connects a session first when needed.
const veltrane::nwrfc::EntryPoints& Sdk();

// A connection of the SDK itself, as DEMO.
class RawConnection {
 public:
  RawConnection();
  ~RawConnection();
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;
  RFC_CONNECTION_HANDLE handle() const { return m_handle; }

 private:
  RFC_CONNECTION_HANDLE m_handle = nullptr;
};

// A function container of a module, destroyed with the object.
class Function {
 public:
  Function(const RawConnection& connection, const char16_t* name);
  ~Function();
  Function(const Function&) = delete;
  Function& operator=(const Function&) = delete;
  RFC_FUNCTION_HANDLE handle() const { return m_handle; }
  operator DATA_CONTAINER_HANDLE() const { return m_handle; }

 private:
  RFC_FUNCTION_HANDLE m_handle = nullptr;
};

// Field access on a container through the SDK, by name.
std::u16string GetString(DATA_CONTAINER_HANDLE container, const char16_t* name);
void SetString(DATA_CONTAINER_HANDLE container, const char16_t* name, std::u16string_view value);
bool IsActive(RFC_FUNCTION_HANDLE function, const char16_t* name);
RFC_STRUCTURE_HANDLE Structure(DATA_CONTAINER_HANDLE container, const char16_t* name);
RFC_TABLE_HANDLE Table(DATA_CONTAINER_HANDLE container, const char16_t* name);
unsigned RowCount(RFC_TABLE_HANDLE table);

// The parameter of a group ("Importing" ...) of a call, by name.
using test_support::Parameter;
using test_support::Value;
// An exporting parameter's value as a number.
long ExportedNumber(IFunctionCall* call, const char16_t* name);
using test_support::SetValue;
// The field below a structure parameter.
CComPtr<IRfcField> Member(IFunctionCall* call, const char16_t* group, const char16_t* structure,
                          const char16_t* member);
CComPtr<IRfcRows> Rows(IFunctionCall* call, const char16_t* group, const char16_t* name);
// A call of Z_VSIM_TYPES that declares EV_CHAR a date, which the value the
// system gives back ("20241399") is not: the call's results cannot be read.
CComPtr<IFunctionCall> CallReadingAnInvalidDate(ISession* session);

// UTF-8 for messages and comparisons; BSTR and VARIANT texts.
std::string Narrow(std::u16string_view text);
std::string Text(BSTR text);
std::string Text(const VARIANT& value);  // a string value, or "<vt N>"

// The session's ErrorInfo (reading it clears Error).
struct ErrorText {
  long group = 0;
  std::string key, message;
};
ErrorText ErrorOf(ISession* session);
using test_support::CallActive;
using test_support::Connected;
using test_support::ErrorDescription;
using test_support::ErrorFlag;

// A CallFinished sink (test_support::EventSink) advised to a session, which
// also tells when the session let go of it: the session does so when it
// goes, after the client's last Release and at the end of the asynchronous
// call that holds it. The caller holds one reference and keeps no other to
// the session's connection point.
class SessionSink : public test_support::EventSink {
 public:
  static SessionSink* AdviseTo(ISession* session);

  ULONG STDMETHODCALLTYPE Release() override;
  // True when the session let go of the sink; the bound only keeps a broken
  // build from hanging.
  bool WaitUntilLetGo();

 private:
  using EventSink::EventSink;

  std::mutex m_mutex;
  std::condition_variable m_letGo;
  bool m_released = false;
};

// A test with COM on the thread and a fresh trace state.
class NWTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

// The same with a session of DEMO, connected.
class SessionTest : public NWTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // ImportCall on the session, expected to succeed.
  CComPtr<IFunctionCall> Import(const char16_t* name, VARIANT_BOOL ignoreUnsupportedParams = VARIANT_FALSE);
  bool Active() { return CallActive(m_session); }
  // For an asynchronous call just started that fails on its thread: it ends
  // without CallFinished to sink, and CallActive stays true. Disconnects,
  // which waits for the invoke, then lets go of the session and of sink.
  void ExpectItEndsUnseen(SessionSink* sink);

  CComPtr<IRfcSession> m_session;
};

}  // namespace nwtest
