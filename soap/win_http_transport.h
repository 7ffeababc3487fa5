// The HTTP layer of the SOAP back end. WinHttpTransport is one connection
// setting to one server; WinHttpRequest is one POST in flight. Requests run
// asynchronously on libcurl's multi interface, driven by one worker thread
// per transport (the counterpart of WinHTTP's asynchronous mode): the
// worker delivers the notifications of a request one at a time, and its
// status moves through the numbers below. A thread that sends and then
// waits (SendAndAwait) runs the exchange itself while no other request of
// the transport is under way, with the same notifications, and so costs no
// hand-off between threads.
//
//   WinHttpTransport t(systemData, logonData);
//   t.Connect();
//   std::unique_ptr<WinHttpRequest> r = t.CreateRequest(call, 0);
//   r->Send(envelope, 0);
//   WinHttpResponse answer = r->AwaitResponse(30000);
//   // or, waiting at once: r->SendAndAwait(envelope, 30000)
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/atlbase.h"
#include "veltrane_tlb.h"

// Status numbers of a request; the gaps are deliberate.
enum WINHTTP_REQUEST_STATUS : int32_t {
  REQUEST_STATUS_INITIAL = 0,
  REQUEST_STATUS_SENDING = 1,       // the request is about to be handed to the worker
  REQUEST_STATUS_BODY_WRITTEN = 4,  // the body has been written
  REQUEST_STATUS_RECEIVING = 5,     // the request is sent; waiting for the answer's head
  REQUEST_STATUS_HEADERS = 6,       // status code and content type have been read
  REQUEST_STATUS_COMPLETE = 8,      // the answer is complete
  REQUEST_STATUS_FAILED = 9,        // the request has failed
};

// The notifications the worker delivers, by WinHTTP's numbers.
enum WINHTTP_NOTIFICATION : uint32_t {
  WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE = 0x00400000,
  WINHTTP_CALLBACK_STATUS_WRITE_COMPLETE = 0x00100000,
  WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE = 0x00020000,
  WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE = 0x00040000,
  WINHTTP_CALLBACK_STATUS_READ_COMPLETE = 0x00080000,
  WINHTTP_CALLBACK_STATUS_REQUEST_ERROR = 0x00200000,
};

// The value of the SOAPAction header: the SAP service URI prefix, a slash
// and the function name, between double quotes.
inline constexpr const char* kSoapActionFormat = "\"urn:sap-com:document:sap:rfc:functions/%s\"";

// What a finished request hands out.
struct WinHttpResponse {
  std::u16string statusCode;   // "200"
  std::u16string contentType;  // empty without the header
  std::string body;            // bytes as received
};

namespace veltrane::winhttp {
class Engine;
class RequestCore;
}  // namespace veltrane::winhttp

class WinHttpRequest;

// Called on each status change, on the thread that changed the status.
using WinHttpStatusCallback = void (*)(WinHttpRequest* request, int32_t status, void* context);

class WinHttpRequest {
 public:
  ~WinHttpRequest();
  WinHttpRequest(const WinHttpRequest&) = delete;
  WinHttpRequest& operator=(const WinHttpRequest&) = delete;

  // Hands the request to the worker; the body is copied. totalLength is
  // used only for an empty body. Throws CXWinHTTPError when refused.
  void Send(std::string_view body, uint32_t totalLength);

  // Send(body, 0) followed by AwaitResponse(limitMs), with the same status
  // changes, notifications, traces and outcomes. While no other request of
  // the transport is under way and no callback is set, the calling thread
  // runs the exchange itself instead of handing it to the worker; as soon
  // as another request is handed over, a callback is set or the transport
  // closes, the worker takes the exchange on and this thread waits for it.
  WinHttpResponse SendAndAwait(std::string_view body, long limitMs);

  // Takes effect on the next status change; a change already made is not
  // repeated. Null removes the callback.
  void SetCallback(WinHttpStatusCallback callback, void* context);

  // Waits until the request is final or limitMs has passed, in steps of at
  // most 500 milliseconds that end as soon as the request is final; then
  // closes the request. Throws CXWinHTTPError for a failed request and
  // CXVeltrane TIMEOUT when the limit ran out.
  WinHttpResponse AwaitResponse(long limitMs);

  // Takes the callback off, then closes the request; no callback arrives
  // afterwards. Safe to call twice.
  void Close();

  int32_t Status() const;
  DWORD LastError() const;
  const std::u16string& Path() const { return m_path; }

 private:
  friend class WinHttpTransport;
  WinHttpRequest(std::shared_ptr<veltrane::winhttp::RequestCore> core, std::u16string path);
  // Send's checks, status 1 and the body; the hand-over is the caller's.
  void Prepare(std::string_view body, uint32_t totalLength);
  void WaitFinal(std::chrono::steady_clock::time_point deadline);
  // Closes the request and gives its outcome.
  WinHttpResponse Finish();

  std::shared_ptr<veltrane::winhttp::RequestCore> m_core;
  std::u16string m_path;
};

class WinHttpTransport {
 public:
  WinHttpTransport(IHttpSystemData* systemData, ILogonData* logonData);
  ~WinHttpTransport();
  WinHttpTransport(const WinHttpTransport&) = delete;
  WinHttpTransport& operator=(const WinHttpTransport&) = delete;

  // Opens the session (worker, cookie store, proxy setting) and the
  // connection (host and port). Throws CXWinHTTPError.
  void Connect();
  // Routes every request through the named proxy: "host:port" when port is
  // at least 1, else the host alone (port 80, as for a named proxy).
  void SetProxy(std::u16string_view host, long port);
  // HTTPS instead of HTTP, with the server's certificate and name verified
  // against the system's certificate store or caFile; before Connect.
  void UseTls(bool tls, std::string caFile);
  // A new request for call, ready to send; sessionMode 1 and 2 append
  // "&session_mode=1" and "&session_mode=2" to the query.
  std::unique_ptr<WinHttpRequest> CreateRequest(IFunctionCall* call, int sessionMode);
  // Closes the connection, then the session. Requests still open fail.
  void Close();

  // The cookies the transport keeps, in Netscape form, one per line.
  std::string CookieList() const;
  bool IsOpen() const { return m_session != nullptr; }

 private:
  std::shared_ptr<veltrane::winhttp::Engine> m_session;  // session handle
  std::string m_connection;                              // connection: "http://host[:port]" or "https://..."
  bool m_tls = false;
  std::string m_caFile;  // empty: the system's store
  std::string m_proxy;   // named proxy, "host[:port]"; empty for none
  bool m_proxyPortGiven = false;
  CComPtr<IHttpSystemData> m_systemData;
  CComPtr<ILogonData> m_logonData;
};

bool IsFinalStatus(int32_t status);

// Number of a libcurl failure as WinHTTP would report its cause.
DWORD WinHttpErrorFromCurl(int curlCode);
