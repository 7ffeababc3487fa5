// CRfcServer: the registered server on the classic RFC SDK (RfcServer,
// "Veltrane.RfcServer"), with IRfcServer and _RfcServerEvents as
// server_base.h shares them with the NW server.
//
// CRfcServerWorker is its thread: RfcAcceptU with -a -g -x (and -t when
// "trace.file" is set), one global function "%%USER_GLOBAL_SERVER" that
// receives every call, a loop of RfcListenU and RfcDispatchU that pauses
// up to 50 ms when nothing waits (a pause that ends as soon as a request
// arrives or the stop flag is set), and the callbacks, which find the worker
// by the context attached to the handle and call the owner's table. The worker
// knows nothing of COM events. A loop that ends on a failure reports to the
// owner; the ServerError handler's Restart on the object it was given
// decides whether the worker accepts again, at once and without limit.
// "server.poll_interval" is stored and traced but the pause stays at 50 ms.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include <boost/thread/thread.hpp>

#include "platform/com_object.h"
#include "rfc/rfc_library.h"
#include "server/server_base.h"
#include "veltrane_decl.h"

class CRfcServerWorker;

// What the worker calls; the owner is handed back as the first argument.
struct RfcServerCallbacks {
  void* owner = nullptr;
  void (*on_rfc_serve)(void* owner, IFunctionCall* call) = nullptr;
  void (*on_rfc_logon)(void* owner, IRfcServerLogonInfo* info) = nullptr;
  void (*on_rfc_error)(void* owner, CRfcServerErrorInfo* info, bool fire) = nullptr;
  void (*on_rfc_check)(void* owner, IRfcTransactionInfo* info) = nullptr;
  void (*on_rfc_commit)(void* owner, IRfcTransactionInfo* info) = nullptr;
  void (*on_rfc_rollback)(void* owner, IRfcTransactionInfo* info) = nullptr;
  void (*on_rfc_confirm)(void* owner, IRfcTransactionInfo* info) = nullptr;
};

class CRfcServerWorker {
 public:
  CRfcServerWorker() = default;
  ~CRfcServerWorker();
  CRfcServerWorker(const CRfcServerWorker&) = delete;
  CRfcServerWorker& operator=(const CRfcServerWorker&) = delete;

  // Stops a running thread, starts a new one and returns when it has
  // entered its main loop or ended.
  void Start(const veltrane::sdk::rfc::EntryPoints& sdk, const std::u16string& programId,
             const std::u16string& gatewayHost, const std::u16string& gatewayService, IFunctionCalls* functions,
             bool sdkTrace);
  // Sets the stop flag and waits for the thread's end.
  void Stop();
  bool Listening() const { return m_listening; }
  veltrane::sdk::rfc::RFC_HANDLE Handle() const { return m_handle; }
  int PollInterval() const { return m_pollInterval; }

  RfcServerCallbacks callbacks;

  // The SDK's callbacks reach these through the attached context.
  veltrane::sdk::rfc::RFC_RC DispatchCall(veltrane::sdk::rfc::RFC_HANDLE handle, const std::u16string& name);
  bool DispatchLogon(const veltrane::server::LogonRequest& request);
  long DispatchTransaction(veltrane::server::TransactionEvent event, const std::u16string& tid);
  const veltrane::sdk::rfc::EntryPoints& Sdk() const { return *m_sdk; }

 private:
  void Run();
  // The pause of the main loop after a look that found no request: at most
  // the poll interval, over at once when the stop flag is set. With
  // lookForRequests it looks again now and then, step apart (growing up to
  // a limit), and is over as soon as RfcListenU has something to say.
  void Pause(veltrane::sdk::rfc::RFC_HANDLE handle, bool lookForRequests, std::chrono::microseconds& step);
  // False when the thread is to end.
  bool InstallRegisteredFunctions();
  // Fills a fresh error info from the SDK's last error (or the failure
  // text) and hands it to the owner; with fire, the handler's Restart.
  bool Report(int rc, bool fire);
  veltrane::sdk::rfc::RFC_RC SendOutgoingData(veltrane::sdk::rfc::RFC_HANDLE handle, IFunctionCall* call);

  const veltrane::sdk::rfc::EntryPoints* m_sdk = nullptr;
  std::u16string m_argA, m_argG, m_argX;
  CComPtr<IFunctionCalls> m_functions;
  bool m_sdkTrace = false;
  // Written by the worker, read by the client's thread.
  std::atomic<veltrane::sdk::rfc::RFC_HANDLE> m_handle{0};
  std::atomic<bool> m_listening{false};
  std::atomic<bool> m_stop{false};
  std::u16string m_failureText;
  int m_pollInterval = 50;
  // Wakes a pause when the stop flag is set.
  std::mutex m_pauseMutex;
  std::condition_variable m_wake;
  // The started signal: only the first round of a thread gives it.
  std::mutex m_mutex;
  std::condition_variable m_started;
  bool m_startedSignal = false;
  bool m_threadEnded = false;
  boost::thread m_thread;
};

// Holds the worker and starts it.
class CIntRfcServer {
 public:
  virtual ~CIntRfcServer() = default;

  // The worker's pause in ms: 50, whatever was stored.
  int WorkerPollInterval() const { return m_worker.PollInterval(); }

 protected:
  // pollInterval is taken and not used: the worker's pause is 50 ms.
  void StartServer(const veltrane::sdk::rfc::EntryPoints& sdk, const std::u16string& programId,
                   const std::u16string& gatewayHost, const std::u16string& gatewayService, IFunctionCalls* functions,
                   bool sdkTrace, int pollInterval);

  CRfcServerWorker m_worker;
};

class CRfcServer : public CComObjectBase<CRfcServer, CoClassRfcServer<CRfcServer, IRfcServerImpl<CRfcServer>>,
                                         IConnectionPointContainerImpl<CRfcServer, IRfcServerImpl<CRfcServer>::Events>>,
                   public CIntRfcServer {
 public:
  CRfcServer() = default;
  ~CRfcServer() override;

  HRESULT FinalConstruct() { return IRfcServerImpl<CRfcServer>::FinalConstruct(); }

  // Stores anything; "trace.file" opens the trace under "Veltrane".
  HRESULT STDMETHODCALLTYPE put_Option(BSTR name, BSTR newVal) override;
  // True while the worker is in its main loop.
  HRESULT STDMETHODCALLTYPE get_IsListening(VARIANT_BOOL* pVal) override;
  // Succeeds in all cases; a failed start shows in Error and ErrorInfo.
  HRESULT STDMETHODCALLTYPE Serve() override;
  HRESULT STDMETHODCALLTYPE Shutdown() override;
  HRESULT STDMETHODCALLTYPE InstallFunction(IFunctionCall* fn) override;

  // The stored "server.poll_interval" (50 without one).
  int StoredPollInterval() const { return m_pollInterval; }

 private:
  static void OnServe(void* owner, IFunctionCall* call);
  static void OnLogon(void* owner, IRfcServerLogonInfo* info);
  static void OnError(void* owner, CRfcServerErrorInfo* info, bool fire);
  static void OnCheck(void* owner, IRfcTransactionInfo* info);
  static void OnCommit(void* owner, IRfcTransactionInfo* info);
  static void OnRollback(void* owner, IRfcTransactionInfo* info);
  static void OnConfirm(void* owner, IRfcTransactionInfo* info);

  bool m_sdkTrace = false;
  int m_pollInterval = 50;
};
