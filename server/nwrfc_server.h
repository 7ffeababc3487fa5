// CNWRfcServer: the registered server on the NW RFC SDK (NWRfcServer,
// "Veltrane.NWRfcServer"), with IRfcServer and _RfcServerEvents as the
// classic server has them (server_base.h).
//
// The SDK asks for a function's description when a call arrives, so one
// generic server function serves every call, and the description comes from
// the process-wide table of installed functions (NWRFCCreateFunctionDesc).
// A function nobody installed is described as a call without parameters and
// added to that table: IncomingCall fires for it all the same.
//
// Serve registers at the gateway and starts the server thread (an apartment
// of its own), which loops around RfcListenAndDispatch with a 1-second
// time-out, so Shutdown only sets a flag and joins. A lost connection fires
// ServerError with the ErrorInfo object; its Restart decides whether the
// thread registers again, at once and without limit, or ends. Error, once
// set by a failure, stays set through a restart that works.
//
// The process-wide tables (installed functions, servers by connection) are
// shared by all objects of the class: two servers in one process serve the
// same functions.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <boost/thread/thread.hpp>

#include "nwrfc/nwrfc_mixin.h"
#include "nwrfc/nwrfc_types.h"
#include "platform/com_object.h"
#include "server/server_base.h"
#include "veltrane_decl.h"

class CNWRfcServer
    : public CComObjectBase<CNWRfcServer, CoClassNWRfcServer<CNWRfcServer, IRfcServerImpl<CNWRfcServer>>,
                            IConnectionPointContainerImpl<CNWRfcServer, IRfcServerImpl<CNWRfcServer>::Events>>,
      public CNWRfcMixin<CNWRfcServer> {
 public:
  CNWRfcServer() = default;
  ~CNWRfcServer() override;

  HRESULT FinalConstruct() { return IRfcServerImpl<CNWRfcServer>::FinalConstruct(); }

  // "trace.file" opens the trace under "NWRfcServer"; "trace.level" sets the level.
  HRESULT STDMETHODCALLTYPE put_Option(BSTR name, BSTR newVal) override;
  HRESULT STDMETHODCALLTYPE Serve() override;
  // Stops the server thread and waits for it. From the server thread itself
  // (a handler of a sink without an apartment of its own) the wait fails
  // with "boost thread: trying joining itself".
  HRESULT STDMETHODCALLTYPE Shutdown() override;
  // Into the process-wide table under its Function, replacing an entry of
  // that name, and AddFunction on RegisteredFunctions.
  HRESULT STDMETHODCALLTYPE InstallFunction(IFunctionCall* fn) override;

  // The SDK's callbacks, by connection.
  RFC_RC dispatch(RFC_CONNECTION_HANDLE connection, RFC_FUNCTION_HANDLE function, RFC_ERROR_INFO* errorInfo);
  RFC_RC auth_check(RFC_CONNECTION_HANDLE connection, RFC_SECURITY_ATTRIBUTES* attributes, RFC_ERROR_INFO* errorInfo);
  RFC_RC transaction(veltrane::server::TransactionEvent event, const SAP_UC* tid);

 private:
  friend class CNWRfcMixin<CNWRfcServer>;

  // For CNWRfcMixin.
  std::u16string SdkOption(std::u16string_view name) const { return OptionValue(name); }
  // Publishes an SDK result: a record with code 0 clears Error and ErrorInfo;
  // any other sets Error and ErrorInfo (the SDK's group unmapped, key,
  // message, code), traces it and reports code for this class.
  HRESULT PublishRfcResult(const RFC_ERROR_INFO& info, std::u16string_view context, Text code);

  RFC_CONNECTION_HANDLE register_server();
  void run(RFC_CONNECTION_HANDLE connection);
  // Fires ServerError; without a restart wished, the thread is to stop.
  void LoopFailed();

  // The record of InitSDK and Serve.
  RFC_ERROR_INFO m_sdkError{};
  // Written by Serve, Shutdown and run; each read by another thread.
  std::atomic<bool> m_stopRequested{false};
  std::atomic<bool> m_threadRunning{false};
  boost::thread m_thread;
  // Threads of earlier Serve calls, ended by Shutdown or the destructor.
  std::vector<boost::thread> m_replaced;
};
