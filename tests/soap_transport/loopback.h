// Test helpers for the HTTP transport: a recording HTTP server on loopback,
// a forwarding proxy in front of veltrane-sim, control requests to the
// simulator, a free port nobody listens on, and a temporary trace file.
#pragma once

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace soaptest {

// One request as the server saw it.
struct SeenRequest {
  std::string requestLine;
  std::vector<std::pair<std::string, std::string>> headers;  // in order, names as sent
  std::string body;

  // The value of the first header named name (case-insensitive), or "" and found false.
  std::string header(const std::string& name, bool* found = nullptr) const {
    for (const auto& [n, v] : headers) {
      if (n.size() == name.size() && std::equal(n.begin(), n.end(), name.begin(),
                                                [](char a, char b) { return std::tolower(a) == std::tolower(b); })) {
        if (found) *found = true;
        return v;
      }
    }
    if (found) *found = false;
    return {};
  }
  bool has(const std::string& name) const {
    bool found = false;
    header(name, &found);
    return found;
  }
};

inline bool ReadAll(int fd, std::string& buffer, size_t want) {
  char chunk[4096];
  while (buffer.size() < want) {
    const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) return false;
    buffer.append(chunk, static_cast<size_t>(n));
  }
  return true;
}

// Reads one request from fd; false at the end of the connection.
inline bool ReadRequest(int fd, std::string& pending, SeenRequest& out, std::string* raw = nullptr) {
  char chunk[4096];
  size_t end;
  while ((end = pending.find("\r\n\r\n")) == std::string::npos) {
    const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) return false;
    pending.append(chunk, static_cast<size_t>(n));
  }
  const std::string head = pending.substr(0, end);
  pending.erase(0, end + 4);
  std::istringstream lines(head);
  std::string line;
  std::getline(lines, line);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  out = SeenRequest{};
  out.requestLine = line;
  size_t length = 0;
  while (std::getline(lines, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string value = line.substr(colon + 1);
    while (!value.empty() && value.front() == ' ') value.erase(0, 1);
    out.headers.emplace_back(line.substr(0, colon), value);
  }
  const std::string cl = out.header("Content-Length");
  if (!cl.empty()) length = std::stoul(cl);
  if (!ReadAll(fd, pending, length)) return false;
  out.body = pending.substr(0, length);
  pending.erase(0, length);
  if (raw) *raw = head + "\r\n\r\n" + out.body;
  return true;
}

inline bool SendAll(int fd, const std::string& data) {
  size_t sent = 0;
  while (sent < data.size()) {
    const ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

inline int ListenLoopback(unsigned short* port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) throw std::runtime_error("socket");
  int one = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || ::listen(fd, 16) != 0) {
    ::close(fd);
    throw std::runtime_error("bind/listen");
  }
  socklen_t len = sizeof addr;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  *port = ntohs(addr.sin_port);
  return fd;
}

// A port on loopback where nobody listens.
inline unsigned short ClosedPort() {
  unsigned short port = 0;
  const int fd = ListenLoopback(&port);
  ::close(fd);
  return port;
}

// Serves each connection on a thread of its own; each request is
// recorded and answered by the handler, which writes to the socket itself
// and returns false to close the connection.
class LoopbackServer {
 public:
  using Handler = std::function<bool(int fd, const SeenRequest& request)>;

  explicit LoopbackServer(Handler handler) : m_handler(std::move(handler)) {
    m_listen = ListenLoopback(&m_port);
    m_thread = std::thread([this] { Run(); });
  }
  ~LoopbackServer() {
    m_stop = true;
    ::shutdown(m_listen, SHUT_RDWR);
    m_thread.join();
    ::close(m_listen);
  }
  unsigned short port() const { return m_port; }

  std::vector<SeenRequest> requests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
  }
  size_t connections() const { return m_connections.load(); }

  // A canned answer: status line text, headers (each ending in \r\n), body.
  static bool Answer(int fd, const std::string& status, const std::string& headers, const std::string& body,
                     bool keepAlive = true) {
    std::string out = "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
                      "\r\n" + (keepAlive ? "" : "Connection: close\r\n") + "\r\n" + body;
    return SendAll(fd, out) && keepAlive;
  }

 private:
  void Run() {
    while (!m_stop) {
      pollfd p{m_listen, POLLIN, 0};
      if (::poll(&p, 1, 200) <= 0) continue;
      const int fd = ::accept(m_listen, nullptr, nullptr);
      if (fd < 0) continue;
      ++m_connections;
      std::lock_guard<std::mutex> lock(m_mutex);
      m_open.push_back(fd);
      m_workers.emplace_back([this, fd] { Serve(fd); });
    }
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      for (int fd : m_open) ::shutdown(fd, SHUT_RDWR);
    }
    for (std::thread& t : m_workers) t.join();
    for (int fd : m_open) ::close(fd);
  }

  void Serve(int fd) {
    std::string pending;
    SeenRequest request;
    while (!m_stop && ReadRequest(fd, pending, request)) {
      {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.push_back(request);
      }
      if (!m_handler(fd, request)) break;
    }
    ::shutdown(fd, SHUT_RDWR);
  }

  Handler m_handler;
  int m_listen = -1;
  unsigned short m_port = 0;
  std::atomic<bool> m_stop{false};
  std::atomic<size_t> m_connections{0};
  mutable std::mutex m_mutex;
  std::vector<SeenRequest> m_requests;
  std::vector<int> m_open;
  std::vector<std::thread> m_workers;
  std::thread m_thread;
};

// A forward proxy for plain HTTP: records what the client sent to it and
// passes each request on to the target port in origin form, one connection
// per request.
class ForwardProxy {
 public:
  explicit ForwardProxy(unsigned short targetPort)
      : m_target(targetPort), m_server([this](int fd, const SeenRequest& r) { return Forward(fd, r); }) {}
  unsigned short port() const { return m_server.port(); }
  std::vector<SeenRequest> requests() const { return m_server.requests(); }

 private:
  bool Forward(int fd, const SeenRequest& request) {
    // "POST http://host:port/path HTTP/1.1" -> "POST /path HTTP/1.1"
    std::string line = request.requestLine;
    const size_t scheme = line.find("http://");
    if (scheme != std::string::npos) {
      const size_t path = line.find('/', scheme + 7);
      line.erase(scheme, path - scheme);
    }
    std::string out = line + "\r\n";
    for (const auto& [n, v] : request.headers) {
      std::string lower = n;
      for (char& c : lower) c = static_cast<char>(std::tolower(c));
      if (lower == "proxy-authorization" || lower == "proxy-connection" || lower == "connection") continue;
      out += n + ": " + v + "\r\n";
    }
    out += "Connection: close\r\n\r\n" + request.body;
    const int up = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(m_target);
    if (::connect(up, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || !SendAll(up, out)) {
      ::close(up);
      LoopbackServer::Answer(fd, "502 Bad Gateway", "", "", false);
      return false;
    }
    char chunk[4096];
    ssize_t n;
    while ((n = ::recv(up, chunk, sizeof chunk, 0)) > 0) SendAll(fd, std::string(chunk, static_cast<size_t>(n)));
    ::close(up);
    return false;
  }

  unsigned short m_target;
  LoopbackServer m_server;
};

// A control request to the simulator, such as "fault?fault=delay:3000".
inline long SimControl(const std::string& baseUrl, const std::string& what, std::string* body = nullptr) {
  CURL* curl = curl_easy_init();
  const std::string url = baseUrl + "/vsim/control/" + what;
  std::string sink;
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_POST, 1L);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, "");
  curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
  curl_easy_setopt(
      curl, CURLOPT_WRITEFUNCTION, +[](char* d, size_t s, size_t n, void* out) {
        static_cast<std::string*>(out)->append(d, s * n);
        return s * n;
      });
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &sink);
  long status = 0;
  if (curl_easy_perform(curl) == CURLE_OK) curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_cleanup(curl);
  while (!sink.empty() && (sink.back() == '\n' || sink.back() == '\r')) sink.pop_back();
  if (body) *body = sink;
  return status;
}

// A file name in a fresh temporary directory, removed with the object.
class TempFile {
 public:
  explicit TempFile(const std::string& name) {
    char tmpl[] = "/tmp/veltrane-soap-XXXXXX";
    if (!::mkdtemp(tmpl)) throw std::runtime_error("mkdtemp");
    m_dir = tmpl;
    m_path = m_dir + "/" + name;
  }
  ~TempFile() { std::filesystem::remove_all(m_dir); }
  const std::string& path() const { return m_path; }
  std::string read() const {
    std::ifstream in(m_path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }

 private:
  std::string m_dir;
  std::string m_path;
};

inline bool Contains(const std::string& s, const std::string& part) { return s.find(part) != std::string::npos; }

}  // namespace soaptest
