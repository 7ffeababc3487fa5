#include "soap/win_http_transport.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include <boost/format.hpp>

#include "runtime/exceptions.h"
#include "runtime/trace.h"
#include "platform/unicode.h"
#include "veltrane_errors.h"

namespace veltrane::winhttp {

namespace {

void GlobalInit() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::string BstrUtf8(const CComBSTR& s) { return WideToUtf8(std::u16string_view(s.m_str ? s.m_str : u"", s.Length())); }

std::u16string BstrWide(const CComBSTR& s) { return std::u16string(s.m_str ? s.m_str : u"", s.Length()); }

const char* NotificationName(uint32_t code) {
  switch (code) {
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE: return "WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE";
    case WINHTTP_CALLBACK_STATUS_WRITE_COMPLETE: return "WINHTTP_CALLBACK_STATUS_WRITE_COMPLETE";
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE: return "WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE";
    case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE: return "WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE";
    case WINHTTP_CALLBACK_STATUS_READ_COMPLETE: return "WINHTTP_CALLBACK_STATUS_READ_COMPLETE";
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR: return "WINHTTP_CALLBACK_STATUS_REQUEST_ERROR";
    default: return nullptr;
  }
}

bool IsFinal(int32_t status) { return status == REQUEST_STATUS_COMPLETE || status == REQUEST_STATUS_FAILED; }

}  // namespace

// One request as the driver of the transfers sees it. Lives as long as the
// client's WinHttpRequest or the engine holds it, whichever is longer, so
// that the driver never touches freed memory when the client closes and
// destroys the request during a notification.
class RequestCore {
 public:
  RequestCore(std::shared_ptr<Engine> engine, uint64_t id) : m_engine(std::move(engine)), m_id(id) {}
  ~RequestCore();

  // ---- shared state, under m_mutex
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  int32_t m_status = REQUEST_STATUS_INITIAL;
  DWORD m_error = 0;
  WinHttpStatusCallback m_callback = nullptr;
  void* m_context = nullptr;
  WinHttpRequest* m_owner = nullptr;
  bool m_closed = false;
  bool m_inNotify = false;

  // ---- fixed after CreateRequest
  std::shared_ptr<Engine> m_engine;
  const uint64_t m_id;
  CURL* m_easy = nullptr;  // request handle
  std::string m_settings;  // the transport-wide settings of m_easy
  curl_slist* m_headers = nullptr;
  std::string m_body;

  // ---- driver only: what libcurl handed over, and the progress of the notifications
  std::string m_headStatus;  // status code of the last head seen
  std::string m_headType;    // its Content-Type
  std::string m_lastHeadStatus;
  std::string m_lastHeadType;
  bool m_headersComplete = false;
  std::deque<std::string> m_chunks;
  bool m_done = false;
  CURLcode m_result = CURLE_OK;
  bool m_sentNotified = false;
  bool m_headersNotified = false;
  bool m_wantData = false;
  bool m_finalDelivered = false;
  bool m_attached = false;

  // ---- written by the notifications, read by the client after status 8
  std::u16string m_statusCode;
  std::u16string m_contentType;
  std::unique_ptr<char[]> m_readBuffer;
  std::string m_response;

  void UpdateStatus(int32_t status);
  void StoreError(DWORD error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_error = error;
  }
  int32_t Status() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_status;
  }

  // The steps that the notifications run.
  void StartReceiveResponse();
  void ReceiveHeaders();
  void QueryData();
  void ReadData(DWORD count);
  void OnReadComplete(DWORD count);
  void Notify(uint32_t code, DWORD length);

  static size_t OnHeader(char* data, size_t size, size_t count, void* self);
  static size_t OnBody(char* data, size_t size, size_t count, void* self);
};

// The session handle: the multi handle with its connection cache, the
// cookie store shared by the transport's requests, and the worker thread.
// One thread at a time runs the transfers (the driver): the worker while
// requests are handed over to it, or a client's thread that waits for its
// own request while nothing else runs (Claim, Drive). Handing over passes
// through m_mutex.
class Engine : public std::enable_shared_from_this<Engine> {
 public:
  Engine() {
    GlobalInit();
    m_multi = curl_multi_init();
    m_share = curl_share_init();
    if (m_share) {
      curl_share_setopt(m_share, CURLSHOPT_LOCKFUNC, &Engine::Lock);
      curl_share_setopt(m_share, CURLSHOPT_UNLOCKFUNC, &Engine::Unlock);
      curl_share_setopt(m_share, CURLSHOPT_USERDATA, this);
      curl_share_setopt(m_share, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    }
  }
  ~Engine() {
    for (const IdleHandle& idle : m_idle) curl_easy_cleanup(idle.easy);
    if (m_multi) curl_multi_cleanup(m_multi);
    if (m_share) curl_share_cleanup(m_share);
  }

  bool Valid() const { return m_multi && m_share; }

  // Request handles are kept for the next requests of the transport, as a
  // client of libcurl keeps its one handle: a fresh handle costs libcurl
  // several microseconds of setting up in every exchange. A kept handle is
  // not reset (a reset loses the cookie engine's list without freeing it);
  // the next request sets every option of its own anew, and a handle is
  // taken again only for the same transport-wide settings (TLS, proxy),
  // whose options have no value that restores their default.
  CURL* TakeHandle(const std::string& settings, bool& fresh) {
    {
      std::lock_guard<std::mutex> lock(m_idleMutex);
      for (auto it = m_idle.begin(); it != m_idle.end(); ++it) {
        if (it->settings != settings) continue;
        CURL* easy = it->easy;
        m_idle.erase(it);
        fresh = false;
        return easy;
      }
    }
    fresh = true;
    return curl_easy_init();
  }
  // Takes back the handle of a request that is over; settings is empty
  // for a handle whose setting up failed.
  void GiveBack(CURL* easy, std::string settings) {
    // Nothing of the request stays behind in the handle.
    curl_easy_setopt(easy, CURLOPT_PRIVATE, nullptr);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, nullptr);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, nullptr);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, nullptr);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, nullptr);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(-1));
    if (!settings.empty()) {
      std::lock_guard<std::mutex> lock(m_idleMutex);
      if (m_idle.size() < kIdleHandles) {
        m_idle.push_back({easy, std::move(settings)});
        return;
      }
    }
    curl_easy_cleanup(easy);
  }
  CURLSH* Share() const { return m_share; }
  uint64_t NextId() { return ++m_lastId; }

  void Start() {
    std::shared_ptr<Engine> self = shared_from_this();
    m_thread = std::thread([self] { self->Run(); });
  }

  bool OnWorker() const { return std::this_thread::get_id() == m_workerId.load(); }
  // True on the thread that runs the transfers at this moment: the worker,
  // or a client's thread that drives its own exchange (Drive).
  bool OnDriver() const { return std::this_thread::get_id() == m_driverId.load(); }

  void Post(std::shared_ptr<RequestCore> core, bool add) {
    bool polling = false;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (m_stopping) {
        if (add) throw CXWinHTTPError(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
        return;
      }
      m_commands.push_back({std::move(core), add});
      polling = Driven() && !OnDriver();
    }
    // A driver waits in curl_multi_poll, an idle worker on m_wake.
    if (polling) curl_multi_wakeup(m_multi);
    m_wake.notify_one();
  }

  // Wakes the driver so that it looks again whether the worker is wanted.
  void Nudge() {
    bool polling = false;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      polling = Driven() && !OnDriver();
    }
    if (polling) curl_multi_wakeup(m_multi);
  }

  // Stops the transfers; requests still running end as cancelled. On the
  // thread that drives them (a handler that closes the transport) the worker
  // is let go and ends after the handler returns.
  void Shutdown() {
    bool polling = false;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (m_stopping) return;
      m_stopping = true;
      polling = Driven();
    }
    if (polling) curl_multi_wakeup(m_multi);
    m_wake.notify_all();
    if (!m_thread.joinable()) return;
    if (OnWorker() || OnDriver())
      m_thread.detach();
    else
      m_thread.join();
  }

  // Lets the calling thread run the transfers itself, for core's exchange,
  // when nothing else runs: no request attached or handed over, no driver,
  // and no callback on core (a request with a callback is the worker's).
  bool Claim(RequestCore& core) {
    {
      std::lock_guard<std::mutex> lock(core.m_mutex);
      if (core.m_callback) return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stopping || Driven() || m_busy || !m_commands.empty()) return false;
    m_driverId = std::this_thread::get_id();
    return true;
  }

  // Runs core's exchange on the thread that claimed the transfers, until it
  // is final or the deadline has passed, or until the worker is wanted:
  // another request was handed over, core got a callback, or the transport
  // closes. Then lets the transfers go; a request not yet final goes on on
  // the worker.
  void Drive(const std::shared_ptr<RequestCore>& core, std::chrono::steady_clock::time_point deadline) {
    Attach(core);
    for (;;) {
      for (const auto& ready : Transfer()) Pump(ready);
      if (IsFinal(core->Status()) || WorkerWanted(*core)) break;
      const auto left = deadline - std::chrono::steady_clock::now();
      if (left <= std::chrono::steady_clock::duration::zero()) break;
      const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
      curl_multi_poll(m_multi, nullptr, 0, static_cast<int>(std::min<long long>(ms, 500)), nullptr);
    }
    Release();
  }

  // Drives the transfers from a notification handler until core is final
  // or the deadline has passed: a handler may wait for a request of its own.
  void RunNested(const std::shared_ptr<RequestCore>& core, std::chrono::steady_clock::time_point deadline) {
    while (!IsFinal(core->Status()) && std::chrono::steady_clock::now() < deadline && !Stopping()) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      RunOnce(static_cast<int>(std::clamp<long long>(left.count(), 0, 100)), core.get());
    }
  }

  std::string CookieList() {
    std::string out;
    CURL* easy = curl_easy_init();
    if (!easy) return out;
    curl_easy_setopt(easy, CURLOPT_COOKIEFILE, "");
    curl_easy_setopt(easy, CURLOPT_SHARE, m_share);
    curl_slist* cookies = nullptr;
    if (curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &cookies) == CURLE_OK) {
      for (curl_slist* c = cookies; c; c = c->next) {
        out += c->data;
        out += '\n';
      }
      curl_slist_free_all(cookies);
    }
    curl_easy_cleanup(easy);
    return out;
  }

 private:
  struct Command {
    std::shared_ptr<RequestCore> core;
    bool add;
  };

  static void Lock(CURL*, curl_lock_data data, curl_lock_access, void* self) {
    static_cast<Engine*>(self)->m_shareLocks[static_cast<size_t>(data) % kLockCount].lock();
  }
  static void Unlock(CURL*, curl_lock_data data, void* self) {
    static_cast<Engine*>(self)->m_shareLocks[static_cast<size_t>(data) % kLockCount].unlock();
  }

  // Under m_mutex.
  bool Driven() const { return m_driverId.load() != std::thread::id(); }

  bool Stopping() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stopping;
  }

  bool WorkerWanted(RequestCore& core) {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (m_stopping || !m_commands.empty()) return true;
    }
    std::lock_guard<std::mutex> lock(core.m_mutex);
    return core.m_callback != nullptr;
  }

  // Ends a driver's turn; the worker takes over what is left.
  void Release() {
    bool work = false;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_driverId = std::thread::id();
      m_busy = !m_attached.empty() || !m_failed.empty();
      work = m_busy || m_stopping || !m_commands.empty();
    }
    if (work) m_wake.notify_one();
  }

  // The worker runs the transfers whenever there are any and no client's
  // thread drives them; in between it sleeps on m_wake, not in libcurl.
  void Run() {
    m_workerId = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
      m_wake.wait(lock, [&] { return !Driven() && (m_stopping || m_busy || !m_commands.empty()); });
      m_driverId = m_workerId.load();
      if (m_stopping) break;
      lock.unlock();
      RunOnce(1000);
      lock.lock();
      m_driverId = std::thread::id();
      m_busy = !m_attached.empty() || !m_failed.empty();
    }
    lock.unlock();
    // Requests still running end as cancelled.
    TakeCommands();
    for (auto& [id, core] : m_attached) {
      curl_multi_remove_handle(m_multi, core->m_easy);
      core->m_attached = false;
      std::lock_guard<std::mutex> coreLock(core->m_mutex);
      if (!IsFinal(core->m_status)) {
        core->m_error = ERROR_WINHTTP_OPERATION_CANCELLED;
        core->m_status = REQUEST_STATUS_FAILED;
        core->m_changed.notify_all();
      }
    }
    m_attached.clear();
  }

  void Attach(const std::shared_ptr<RequestCore>& c) {
    RequestCore& core = *c;
    if (core.m_attached || core.Status() == REQUEST_STATUS_FAILED) return;
    if (curl_multi_add_handle(m_multi, core.m_easy) != CURLM_OK) {
      core.StoreError(ERROR_WINHTTP_INTERNAL_ERROR);
      core.m_done = true;
      core.m_result = CURLE_FAILED_INIT;
      m_failed.push_back(c);
      return;
    }
    core.m_attached = true;
    m_attached[core.m_id] = c;
  }

  void TakeCommands() {
    std::vector<Command> commands;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      commands.swap(m_commands);
    }
    for (Command& c : commands) {
      RequestCore& core = *c.core;
      if (c.add) {
        Attach(c.core);
      } else if (core.m_attached) {
        curl_multi_remove_handle(m_multi, core.m_easy);
        core.m_attached = false;
        m_attached.erase(core.m_id);
      }
    }
  }

  // Lets libcurl move the transfers on; returns the requests that have
  // something to deliver or may have.
  std::vector<std::shared_ptr<RequestCore>> Transfer() {
    int running = 0;
    curl_multi_perform(m_multi, &running);
    std::vector<std::shared_ptr<RequestCore>> ready;
    ready.swap(m_failed);
    int queued = 0;
    while (CURLMsg* msg = curl_multi_info_read(m_multi, &queued)) {
      if (msg->msg != CURLMSG_DONE) continue;
      CURL* easy = msg->easy_handle;
      const CURLcode result = msg->data.result;
      RequestCore* raw = nullptr;
      curl_easy_getinfo(easy, CURLINFO_PRIVATE, reinterpret_cast<char**>(&raw));
      curl_multi_remove_handle(m_multi, easy);
      if (!raw) continue;
      auto it = m_attached.find(raw->m_id);
      if (it == m_attached.end()) continue;
      raw->m_done = true;
      raw->m_result = result;
      raw->m_attached = false;
      ready.push_back(it->second);
      m_attached.erase(it);
    }
    for (auto& [id, core] : m_attached) ready.push_back(core);
    return ready;
  }

  // One pass over the transfers, then a wait for more, unless until (a
  // request waited for) has become final.
  void RunOnce(int pollMs, RequestCore* until = nullptr) {
    TakeCommands();
    for (const auto& core : Transfer()) Pump(core);
    if (until && IsFinal(until->Status())) return;
    if (!Stopping()) curl_multi_poll(m_multi, nullptr, 0, pollMs, nullptr);
  }

  // Runs one notification of core, unless the request is closed.
  template <class Step>
  bool Deliver(const std::shared_ptr<RequestCore>& core, Step step) {
    {
      std::lock_guard<std::mutex> lock(core->m_mutex);
      if (core->m_closed) return false;
      core->m_inNotify = true;
    }
    try {
      step();
    } catch (const std::exception& e) {
      TRACE_LOG(TRACE_ERROR, (boost::format("WinHttpTransport: exception in a status handler: %1%") % e.what()));
    } catch (...) {
      TRACE_LOG(TRACE_ERROR, "WinHttpTransport: unknown exception in a status handler");
    }
    std::lock_guard<std::mutex> lock(core->m_mutex);
    core->m_inNotify = false;
    core->m_changed.notify_all();
    return !core->m_closed;
  }

  // Delivers what libcurl has handed over since the last pass, in the
  // order of WinHTTP's notifications.
  void Pump(const std::shared_ptr<RequestCore>& core) {
    RequestCore& r = *core;
    if (r.m_finalDelivered) return;
    if (r.Status() == REQUEST_STATUS_FAILED) {
      r.m_finalDelivered = true;
      return;
    }
    if (r.m_headersComplete && !r.m_sentNotified) {
      r.m_sentNotified = true;
      if (!Deliver(core, [&] { r.Notify(WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE, 0); })) return;
    }
    if (r.m_headersComplete && !r.m_headersNotified) {
      r.m_headersNotified = true;
      if (!Deliver(core, [&] { r.Notify(WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE, 0); })) return;
    }
    if (r.Status() == REQUEST_STATUS_FAILED) {
      r.m_finalDelivered = true;
      return;
    }
    while (r.m_wantData && !r.m_chunks.empty()) {
      r.m_wantData = false;
      const DWORD count = static_cast<DWORD>(r.m_chunks.front().size());
      if (!Deliver(core, [&] { r.Notify(WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE, count); })) return;
      if (r.m_readBuffer) {
        r.m_chunks.pop_front();
        if (!Deliver(core, [&] { r.Notify(WINHTTP_CALLBACK_STATUS_READ_COMPLETE, count); })) return;
      }
    }
    if (!r.m_done) return;
    if (r.m_result == CURLE_OK && r.m_headersNotified) {
      if (!r.m_wantData || !r.m_chunks.empty()) return;
      r.m_wantData = false;
      r.m_finalDelivered = true;
      Deliver(core, [&] { r.Notify(WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE, 0); });
    } else {
      r.m_finalDelivered = true;
      r.StoreError(r.m_result == CURLE_OK ? ERROR_WINHTTP_INVALID_SERVER_RESPONSE : WinHttpErrorFromCurl(r.m_result));
      Deliver(core, [&] { r.Notify(WINHTTP_CALLBACK_STATUS_REQUEST_ERROR, 0); });
    }
  }

  static constexpr size_t kLockCount = 8;
  static constexpr size_t kIdleHandles = 4;

  CURLM* m_multi = nullptr;
  CURLSH* m_share = nullptr;
  std::array<std::mutex, kLockCount> m_shareLocks;
  std::thread m_thread;
  std::atomic<std::thread::id> m_workerId{};
  std::atomic<uint64_t> m_lastId{0};

  struct IdleHandle {
    CURL* easy;
    std::string settings;
  };
  std::mutex m_idleMutex;
  std::vector<IdleHandle> m_idle;  // handles of requests that are over

  std::atomic<std::thread::id> m_driverId{};  // the thread that runs the transfers; none between turns

  std::mutex m_mutex;
  std::condition_variable m_wake;  // the idle worker sleeps here
  std::vector<Command> m_commands;
  bool m_stopping = false;
  bool m_busy = false;  // requests attached, as the last driver left them

  std::map<uint64_t, std::shared_ptr<RequestCore>> m_attached;  // driver only
  std::vector<std::shared_ptr<RequestCore>> m_failed;           // driver only
};

RequestCore::~RequestCore() {
  if (m_easy) m_engine->GiveBack(m_easy, std::move(m_settings));
  if (m_headers) curl_slist_free_all(m_headers);
}

void RequestCore::UpdateStatus(int32_t status) {
  TRACE_LOG(TRACE_INFORMATION, (boost::format("WinHttpResponse::UpdateStatus: got status %1%") % status));
  WinHttpStatusCallback callback = nullptr;
  void* context = nullptr;
  WinHttpRequest* owner = nullptr;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_status = status;
    callback = m_callback;
    context = m_context;
    owner = m_owner;
    m_changed.notify_all();
  }
  if (callback && owner) callback(owner, status, context);
}

void RequestCore::StartReceiveResponse() {
  UpdateStatus(REQUEST_STATUS_RECEIVING);
  // The answer's head is already on its way: libcurl reads it without a
  // further call, so the receive step cannot be refused here.
}

void RequestCore::ReceiveHeaders() {
  TRACE_LOG(TRACE_INFORMATION, "WinHttpTransport::ReceiveHeaders");
  try {
    m_statusCode = Utf8ToWideLossy(m_lastHeadStatus);
    m_contentType = Utf8ToWideLossy(m_lastHeadType);
    UpdateStatus(REQUEST_STATUS_HEADERS);
    QueryData();
    TRACE_LOG(TRACE_INFORMATION, "WinHttpTransport::ReceiveHeaders: ok");
  } catch (const CXWinHTTPError& e) {
    TRACE_LOG(TRACE_ERROR, (boost::format("WinHttpTransport::ReceiveHeaders: Exception %1%") % e.what()));
    UpdateStatus(REQUEST_STATUS_FAILED);
    StoreError(e.Code());
  } catch (const std::exception& e) {
    TRACE_LOG(TRACE_ERROR, (boost::format("WinHttpTransport::ReceiveHeaders: Exception %1%") % e.what()));
    UpdateStatus(REQUEST_STATUS_FAILED);
  }
}

void RequestCore::QueryData() { m_wantData = true; }

void RequestCore::ReadData(DWORD count) {
  TRACE_LOG(TRACE_INFORMATION, (boost::format("WinHttpRequest::ReadData(%1%)") % count));
  if (count == 0) {
    TRACE_LOG(TRACE_INFORMATION, (boost::format("finished reading response in %1%") % m_response.size()));
    UpdateStatus(REQUEST_STATUS_COMPLETE);
    return;
  }
  m_readBuffer.reset(new char[count + 1]());
  std::memcpy(m_readBuffer.get(), m_chunks.front().data(), count);
}

void RequestCore::OnReadComplete(DWORD count) {
  TRACE_LOG(TRACE_INFORMATION, (boost::format("WinHttpTransport::OnReadComplete (%1%)") % count));
  m_response.append(m_readBuffer.get(), count);
  m_readBuffer.reset();
  QueryData();
}

void RequestCore::Notify(uint32_t code, DWORD length) {
  if (const char* name = NotificationName(code))
    TRACE_LOG(TRACE_INFORMATION, name);
  else
    TRACE_LOG(TRACE_INFORMATION, (boost::format("WinHttpTransport: StatusCallback %1%") % code));
  switch (code) {
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE: StartReceiveResponse(); break;
    case WINHTTP_CALLBACK_STATUS_WRITE_COMPLETE: UpdateStatus(REQUEST_STATUS_BODY_WRITTEN); break;
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE: ReceiveHeaders(); break;
    case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE: ReadData(length); break;
    case WINHTTP_CALLBACK_STATUS_READ_COMPLETE: OnReadComplete(length); break;
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR: UpdateStatus(REQUEST_STATUS_FAILED); break;
    default: break;
  }
}

size_t RequestCore::OnHeader(char* data, size_t size, size_t count, void* self) {
  auto* r = static_cast<RequestCore*>(self);
  std::string_view line(data, size * count);
  while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.remove_suffix(1);
  if (line.starts_with("HTTP/")) {
    // A new head: "HTTP/1.1 200 OK". Interim heads (1xx) are replaced by the final one.
    const size_t a = line.find(' ');
    const size_t b = a == std::string_view::npos ? a : line.find(' ', a + 1);
    r->m_headStatus = a == std::string_view::npos ? std::string() : std::string(line.substr(a + 1, b - a - 1));
    r->m_headType.clear();
  } else if (line.empty()) {
    if (!r->m_headStatus.empty() && r->m_headStatus[0] != '1') {
      r->m_lastHeadStatus = r->m_headStatus;
      r->m_lastHeadType = r->m_headType;
      r->m_headersComplete = true;
    }
  } else {
    const size_t colon = line.find(':');
    if (colon != std::string_view::npos && colon == 12 && strncasecmp(line.data(), "Content-Type", 12) == 0) {
      std::string_view value = line.substr(colon + 1);
      while (!value.empty() && (value.front() == ' ' || value.front() == '\t')) value.remove_prefix(1);
      while (!value.empty() && (value.back() == ' ' || value.back() == '\t')) value.remove_suffix(1);
      r->m_headType = std::string(value);
    }
  }
  return size * count;
}

size_t RequestCore::OnBody(char* data, size_t size, size_t count, void* self) {
  auto* r = static_cast<RequestCore*>(self);
  const size_t n = size * count;
  if (n > 0) r->m_chunks.emplace_back(data, n);
  return n;
}

}  // namespace veltrane::winhttp

using veltrane::winhttp::Engine;
using veltrane::winhttp::RequestCore;

DWORD WinHttpErrorFromCurl(int curlCode) {
  switch (static_cast<CURLcode>(curlCode)) {
    case CURLE_OK: return 0;
    case CURLE_COULDNT_CONNECT: return ERROR_WINHTTP_CANNOT_CONNECT;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return ERROR_WINHTTP_NAME_NOT_RESOLVED;
    case CURLE_OPERATION_TIMEDOUT: return ERROR_WINHTTP_TIMEOUT;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING: return ERROR_WINHTTP_CONNECTION_ERROR;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM: return ERROR_WINHTTP_INVALID_SERVER_RESPONSE;
    case CURLE_URL_MALFORMAT: return ERROR_WINHTTP_INVALID_URL;
    case CURLE_UNSUPPORTED_PROTOCOL: return ERROR_WINHTTP_UNRECOGNIZED_SCHEME;
    case CURLE_ABORTED_BY_CALLBACK: return ERROR_WINHTTP_OPERATION_CANCELLED;
    case CURLE_TOO_MANY_REDIRECTS: return ERROR_WINHTTP_REDIRECT_FAILED;
    case CURLE_LOGIN_DENIED: return ERROR_WINHTTP_LOGIN_FAILURE;
    case CURLE_PEER_FAILED_VERIFICATION: return ERROR_WINHTTP_SECURE_INVALID_CERT;
    case CURLE_SSL_CONNECT_ERROR: return ERROR_WINHTTP_SECURE_FAILURE;
    case CURLE_OUT_OF_MEMORY: return ERROR_WINHTTP_OUT_OF_HANDLES;
    default: return ERROR_WINHTTP_INTERNAL_ERROR;
  }
}

// ------------------------------------------------------------ WinHttpRequest

namespace {
constexpr int kSpinRounds = 200;
}

WinHttpRequest::WinHttpRequest(std::shared_ptr<RequestCore> core, std::u16string path)
    : m_core(std::move(core)), m_path(std::move(path)) {
  m_core->m_owner = this;
}

WinHttpRequest::~WinHttpRequest() {
  TRACE_LOG(TRACE_INFORMATION, "WinHttpRequest::~WinHttpRequest()");
  Close();
  std::lock_guard<std::mutex> lock(m_core->m_mutex);
  m_core->m_owner = nullptr;
}

void WinHttpRequest::Prepare(std::string_view body, uint32_t totalLength) {
  RequestCore& r = *m_core;
  {
    std::lock_guard<std::mutex> lock(r.m_mutex);
    if (r.m_closed || r.m_status != REQUEST_STATUS_INITIAL) throw CXWinHTTPError(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
  }
  r.UpdateStatus(REQUEST_STATUS_SENDING);
  r.m_body.assign(body.data(), body.size());
  curl_easy_setopt(r.m_easy, CURLOPT_POSTFIELDSIZE_LARGE,
                   static_cast<curl_off_t>(body.empty() ? totalLength : body.size()));
  curl_easy_setopt(r.m_easy, CURLOPT_POSTFIELDS, r.m_body.c_str());
}

void WinHttpRequest::Send(std::string_view body, uint32_t totalLength) {
  Prepare(body, totalLength);
  m_core->m_engine->Post(m_core, true);
}

WinHttpResponse WinHttpRequest::SendAndAwait(std::string_view body, long limitMs) {
  Engine& engine = *m_core->m_engine;
  Prepare(body, 0);
  if (limitMs <= 0 || engine.OnDriver() || !engine.Claim(*m_core)) {
    engine.Post(m_core, true);
    return AwaitResponse(limitMs);
  }
  TRACE_LOG(TRACE_INFORMATION, "WinHttpRequest::AwaitResponse");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
  engine.Drive(m_core, deadline);
  // The worker has the rest when it was wanted before the end.
  WaitFinal(deadline);
  return Finish();
}

void WinHttpRequest::SetCallback(WinHttpStatusCallback callback, void* context) {
  {
    std::lock_guard<std::mutex> lock(m_core->m_mutex);
    if (m_core->m_closed) return;
    m_core->m_callback = callback;
    m_core->m_context = context;
  }
  // A client's thread that drives this request hands it to the worker.
  if (callback) m_core->m_engine->Nudge();
}

WinHttpResponse WinHttpRequest::AwaitResponse(long limitMs) {
  TRACE_LOG(TRACE_INFORMATION, "WinHttpRequest::AwaitResponse");
  if (limitMs > 0) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    if (m_core->m_engine->OnDriver())
      m_core->m_engine->RunNested(m_core, deadline);
    else
      WaitFinal(deadline);
  }
  return Finish();
}

void WinHttpRequest::WaitFinal(std::chrono::steady_clock::time_point deadline) {
  RequestCore& r = *m_core;
  std::unique_lock<std::mutex> lock(r.m_mutex);
  // A short answer over a fast line is often there within a few dozen
  // microseconds: look again a little before going to sleep.
  for (int i = 0; i < kSpinRounds && !IsFinalStatus(r.m_status); ++i) {
    lock.unlock();
    std::this_thread::yield();
    lock.lock();
  }
  while (!IsFinalStatus(r.m_status)) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) break;
    r.m_changed.wait_until(lock, std::min(deadline, now + std::chrono::milliseconds(500)));
  }
}

WinHttpResponse WinHttpRequest::Finish() {
  RequestCore& r = *m_core;
  Close();
  int32_t status;
  DWORD error;
  {
    std::lock_guard<std::mutex> lock(r.m_mutex);
    status = r.m_status;
    error = r.m_error;
  }
  if (status == REQUEST_STATUS_FAILED) throw CXWinHTTPError(error);
  if (status != REQUEST_STATUS_COMPLETE) throw CXVeltrane(CXVeltrane::TIMEOUT, u"");
  return WinHttpResponse{r.m_statusCode, r.m_contentType, r.m_response};
}

void WinHttpRequest::Close() {
  RequestCore& r = *m_core;
  {
    std::unique_lock<std::mutex> lock(r.m_mutex);
    if (r.m_closed) return;
    r.m_callback = nullptr;
    r.m_context = nullptr;
    r.m_closed = true;
    // A notification running on the driver ends before the request counts as closed.
    if (!r.m_engine->OnDriver()) r.m_changed.wait(lock, [&] { return !r.m_inNotify; });
    // Never handed over, or complete and already taken off by the worker.
    if (r.m_status == REQUEST_STATUS_INITIAL || r.m_status == REQUEST_STATUS_COMPLETE) return;
  }
  r.m_engine->Post(m_core, false);
}

int32_t WinHttpRequest::Status() const { return m_core->Status(); }

DWORD WinHttpRequest::LastError() const {
  std::lock_guard<std::mutex> lock(m_core->m_mutex);
  return m_core->m_error;
}

bool IsFinalStatus(int32_t status) { return status == REQUEST_STATUS_COMPLETE || status == REQUEST_STATUS_FAILED; }

// ---------------------------------------------------------- WinHttpTransport

WinHttpTransport::WinHttpTransport(IHttpSystemData* systemData, ILogonData* logonData)
    : m_systemData(systemData), m_logonData(logonData) {}

WinHttpTransport::~WinHttpTransport() { Close(); }

void WinHttpTransport::Connect() {
  if (!m_systemData || !m_logonData) throw CXWinHTTPError(ERROR_WINHTTP_NOT_INITIALIZED);
  CComBSTR proxyHost, proxyUser, proxyPassword;
  LONG proxyPort = 0;
  ThrowIfFailed(m_systemData->get_ProxyHost(&proxyHost));
  ThrowIfFailed(m_systemData->get_ProxyUser(&proxyUser));
  ThrowIfFailed(m_systemData->get_ProxyPassword(&proxyPassword));
  ThrowIfFailed(m_systemData->get_ProxyPort(&proxyPort));

  Close();
  auto engine = std::make_shared<Engine>();
  if (!engine->Valid()) throw CXWinHTTPError(ERROR_WINHTTP_OUT_OF_HANDLES);
  engine->Start();
  m_session = engine;
  m_proxy.clear();
  if (proxyHost.Length() > 0) SetProxy(veltrane::winhttp::BstrWide(proxyHost), proxyPort);

  CComBSTR host;
  LONG port = 0;
  ThrowIfFailed(m_systemData->get_Host(&host));
  ThrowIfFailed(m_systemData->get_Port(&port));
  if (host.Length() == 0) {
    Close();
    throw CXWinHTTPError(ERROR_WINHTTP_INVALID_URL);
  }
  if (port < 0 || port > 65535) {
    Close();
    throw CXWinHTTPError(ERROR_WINHTTP_INVALID_URL);
  }
  std::string name = veltrane::winhttp::BstrUtf8(host);
  if (name.find(':') != std::string::npos && name.front() != '[') name = "[" + name + "]";
  m_connection = (m_tls ? "https://" : "http://") + name;
  if (port > 0) m_connection += ":" + std::to_string(port);
}

void WinHttpTransport::UseTls(bool tls, std::string caFile) {
  m_tls = tls;
  m_caFile = std::move(caFile);
}

void WinHttpTransport::SetProxy(std::u16string_view host, long port) {
  std::string text = WideToUtf8(host);
  if (port >= 1) text += ":" + std::to_string(port);
  TRACE_LOG(TRACE_INFORMATION, (boost::format("using proxy %1%") % text));
  m_proxy = text;
  m_proxyPortGiven = port >= 1;
}

std::unique_ptr<WinHttpRequest> WinHttpTransport::CreateRequest(IFunctionCall* call, int sessionMode) {
  if (!m_session) throw CXWinHTTPError(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
  if (!call) throw CXCOMError(E_POINTER);
  CComBSTR endpoint, client, language, function;
  ThrowIfFailed(m_systemData->get_SoapEndpoint(&endpoint));
  ThrowIfFailed(m_logonData->get_Client(&client));
  ThrowIfFailed(m_logonData->get_Language(&language));
  ThrowIfFailed(call->get_Function(&function));

  std::string path = "/" + veltrane::winhttp::BstrUtf8(endpoint) +
                     "?sap-client=" + veltrane::winhttp::BstrUtf8(client) +
                     "&sap-language=" + veltrane::winhttp::BstrUtf8(language);
  if (sessionMode == 1) path += "&session_mode=1";
  if (sessionMode == 2) path += "&session_mode=2";

  auto core = std::make_shared<RequestCore>(m_session, m_session->NextId());
  std::unique_ptr<WinHttpRequest> request(new WinHttpRequest(core, Utf8ToWide(path)));
  // The options every request of the transport shares, set on a fresh handle.
  std::string settings = m_tls ? "https " + m_caFile : std::string("http");
  if (!m_proxy.empty()) settings += (m_proxyPortGiven ? " proxy " : " proxy:80 ") + m_proxy;
  bool fresh = false;
  CURL* easy = m_session->TakeHandle(settings, fresh);
  if (!easy) throw CXWinHTTPError(ERROR_WINHTTP_OUT_OF_HANDLES);
  core->m_easy = easy;
  bool ok = true;
  if (fresh) {
    ok &= curl_easy_setopt(easy, CURLOPT_POST, 1L) == CURLE_OK;
    ok &= curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1)) == CURLE_OK;
    ok &= curl_easy_setopt(easy, CURLOPT_USERAGENT, "Veltrane") == CURLE_OK;
    ok &= curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L) == CURLE_OK;
    ok &= curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &RequestCore::OnHeader) == CURLE_OK;
    ok &= curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &RequestCore::OnBody) == CURLE_OK;
    // WinHTTP's default limits: 60 seconds to connect, 30 seconds without data.
    ok &= curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, 60000L) == CURLE_OK;
    ok &= curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L) == CURLE_OK;
    ok &= curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, 30L) == CURLE_OK;
    // Session cookies live in the transport's store and go out with every request.
    ok &= curl_easy_setopt(easy, CURLOPT_COOKIEFILE, "") == CURLE_OK;
    ok &= curl_easy_setopt(easy, CURLOPT_SHARE, m_session->Share()) == CURLE_OK;
    if (m_tls) {
      ok &= curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L) == CURLE_OK;
      ok &= curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L) == CURLE_OK;
      if (!m_caFile.empty()) ok &= curl_easy_setopt(easy, CURLOPT_CAINFO, m_caFile.c_str()) == CURLE_OK;
    }
    if (!m_proxy.empty()) {
      ok &= curl_easy_setopt(easy, CURLOPT_PROXY, ("http://" + m_proxy).c_str()) == CURLE_OK;
      if (!m_proxyPortGiven) ok &= curl_easy_setopt(easy, CURLOPT_PROXYPORT, 80L) == CURLE_OK;
      ok &= curl_easy_setopt(easy, CURLOPT_NOPROXY, "") == CURLE_OK;
    }
    if (!ok) throw CXWinHTTPError(ERROR_WINHTTP_INVALID_OPTION);
  }
  core->m_settings = std::move(settings);

  // The options of this request.
  const std::string url = m_connection + path;
  ok &= curl_easy_setopt(easy, CURLOPT_URL, url.c_str()) == CURLE_OK;
  ok &= curl_easy_setopt(easy, CURLOPT_PRIVATE, core.get()) == CURLE_OK;
  ok &= curl_easy_setopt(easy, CURLOPT_HEADERDATA, core.get()) == CURLE_OK;
  ok &= curl_easy_setopt(easy, CURLOPT_WRITEDATA, core.get()) == CURLE_OK;
  if (!ok) throw CXWinHTTPError(ERROR_WINHTTP_INVALID_OPTION);

  CComBSTR user, password, proxyUser, proxyPassword, ticket;
  ThrowIfFailed(m_logonData->get_User(&user));
  ThrowIfFailed(m_logonData->get_Password(&password));
  ThrowIfFailed(m_systemData->get_ProxyUser(&proxyUser));
  ThrowIfFailed(m_systemData->get_ProxyPassword(&proxyPassword));
  ThrowIfFailed(m_logonData->get_SSO2Ticket(&ticket));
  // Basic credentials go out with the first request, without waiting for a
  // challenge. Null restores what a kept handle had of an earlier request.
  const bool withUser = user.Length() > 0, withProxyUser = proxyUser.Length() > 0;
  const std::string userText = veltrane::winhttp::BstrUtf8(user), passwordText = veltrane::winhttp::BstrUtf8(password);
  const std::string proxyUserText = veltrane::winhttp::BstrUtf8(proxyUser);
  const std::string proxyPasswordText = veltrane::winhttp::BstrUtf8(proxyPassword);
  ok &= curl_easy_setopt(easy, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC)) == CURLE_OK;
  ok &= curl_easy_setopt(easy, CURLOPT_USERNAME, withUser ? userText.c_str() : nullptr) == CURLE_OK;
  ok &= curl_easy_setopt(easy, CURLOPT_PASSWORD, withUser ? passwordText.c_str() : nullptr) == CURLE_OK;
  ok &= curl_easy_setopt(easy, CURLOPT_PROXYAUTH, static_cast<long>(CURLAUTH_BASIC)) == CURLE_OK;
  ok &= curl_easy_setopt(easy, CURLOPT_PROXYUSERNAME, withProxyUser ? proxyUserText.c_str() : nullptr) == CURLE_OK;
  ok &= curl_easy_setopt(easy, CURLOPT_PROXYPASSWORD, withProxyUser ? proxyPasswordText.c_str() : nullptr) == CURLE_OK;
  if (!ok) throw CXWinHTTPError(ERROR_WINHTTP_LOGIN_FAILURE);

  const std::string action =
      "SOAPAction: \"urn:sap-com:document:sap:rfc:functions/" + veltrane::winhttp::BstrUtf8(function) + "\"";
  const char* lines[] = {"Content-Type: text/xml; charset=UTF-8", "Accept-Charset: UTF-8", action.c_str(),
                         // What WinHTTP does not send either.
                         "Accept:", "Expect:"};
  for (const char* line : lines) {
    curl_slist* next = curl_slist_append(core->m_headers, line);
    if (!next) throw CXWinHTTPError(ERROR_WINHTTP_OUT_OF_HANDLES);
    core->m_headers = next;
  }
  if (curl_easy_setopt(easy, CURLOPT_HTTPHEADER, core->m_headers) != CURLE_OK)
    throw CXWinHTTPError(ERROR_WINHTTP_INVALID_HEADER);
  // The ticket joins the transport's cookies in the one Cookie header.
  const std::string cookie = ticket.Length() > 0 ? "MYSAPSSO2=" + veltrane::winhttp::BstrUtf8(ticket) : std::string();
  if (curl_easy_setopt(easy, CURLOPT_COOKIE, cookie.empty() ? nullptr : cookie.c_str()) != CURLE_OK)
    throw CXWinHTTPError(ERROR_WINHTTP_INVALID_HEADER);
  return request;
}

void WinHttpTransport::Close() {
  m_connection.clear();
  if (m_session) {
    m_session->Shutdown();
    m_session.reset();
  }
}

std::string WinHttpTransport::CookieList() const { return m_session ? m_session->CookieList() : std::string(); }
