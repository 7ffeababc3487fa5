#include "soap/http_server.h"

#include <atomic>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <cctype>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "net/listen.h"

namespace vsim::soap {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;

namespace {

std::string lower(std::string s) {
  for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(tcp::socket socket, const HttpServer::Handler& handler, asio::thread_pool& pool,
             const HttpServer::Options& options)
      : stream_(std::move(socket)), handler_(handler), pool_(pool), options_(options), timer_(stream_.get_executor()) {
    beast::error_code ec;
    auto ep = stream_.socket().remote_endpoint(ec);
    peer_ = ec ? std::string("?") : ep.address().to_string() + ":" + std::to_string(ep.port());
  }

  void start() {
    asio::dispatch(stream_.get_executor(), [self = shared_from_this()] { self->readHeader(); });
  }

 private:
  void readHeader() {
    parser_.emplace();
    parser_->body_limit(options_.bodyLimit);
    parser_->header_limit(64 * 1024);
    stream_.expires_after(std::chrono::seconds(options_.idleTimeoutSeconds));
    http::async_read_header(stream_, buffer_, *parser_,
                            [self = shared_from_this()](beast::error_code ec, std::size_t) { self->onHeader(ec); });
  }

  void onHeader(beast::error_code ec) {
    if (ec) return onReadError(ec);
    const auto& req = parser_->get();
    auto expect = req.find(http::field::expect);
    if (expect != req.end() && lower(std::string(expect->value())) == "100-continue" && !parser_->is_done()) {
      static const std::string kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
      asio::async_write(stream_, asio::buffer(kContinue),
                        [self = shared_from_this()](beast::error_code ec2, std::size_t) {
                          if (ec2) return self->close();
                          self->readBody();
                        });
      return;
    }
    readBody();
  }

  void readBody() {
    http::async_read(stream_, buffer_, *parser_, [self = shared_from_this()](beast::error_code ec, std::size_t) {
      if (ec) return self->onReadError(ec);
      self->onRequest();
    });
  }

  void onReadError(beast::error_code ec) {
    if (ec == http::error::end_of_stream || ec == asio::error::eof || ec == asio::error::connection_reset ||
        ec == beast::error::timeout || ec == asio::error::operation_aborted)
      return close();
    if (ec.category() == http::make_error_code(http::error::body_limit).category()) {
      HttpResponse r;
      r.status = ec == http::error::body_limit ? 413 : 400;
      r.set("Content-Type", "text/plain; charset=utf-8");
      r.body = std::string("malformed HTTP request: ") + ec.message() + "\n";
      r.close = true;
      keepAlive_ = false;
      version_ = 11;
      return send(std::move(r));
    }
    close();
  }

  void onRequest() {
    http::request<http::string_body> req = parser_->release();
    keepAlive_ = req.keep_alive();
    version_ = req.version();
    HttpRequest r;
    r.method = std::string(req.method_string());
    r.target = std::string(req.target());
    for (const auto& f : req) r.headers.emplace_back(lower(std::string(f.name_string())), std::string(f.value()));
    r.body = std::move(req.body());
    r.peer = peer_;
    stream_.expires_never();
    asio::post(pool_, [self = shared_from_this(), r = std::move(r)]() mutable {
      HttpResponse resp;
      try {
        resp = self->handler_(r);
      } catch (const std::exception& e) {
        resp.status = 500;
        resp.set("Content-Type", "text/plain; charset=utf-8");
        resp.body = std::string("internal error: ") + e.what() + "\n";
      }
      asio::post(self->stream_.get_executor(),
                 [self, resp = std::move(resp)]() mutable { self->onHandled(std::move(resp)); });
    });
  }

  void onHandled(HttpResponse resp) {
    if (resp.delayMs > 0) {
      const auto delay = resp.delayMs;
      resp.delayMs = 0;
      timer_.expires_after(std::chrono::milliseconds(delay));
      timer_.async_wait([self = shared_from_this(), resp = std::move(resp)](beast::error_code ec) mutable {
        if (ec) return self->close();
        self->onHandled(std::move(resp));
      });
      return;
    }
    if (resp.closeHalfway) return sendHalf(resp);
    send(std::move(resp));
  }

  // Head and half of the body, then the connection is closed: a transfer broken off half-way.
  void sendHalf(const HttpResponse& resp) {
    auto text = std::make_shared<std::string>();
    *text = "HTTP/1.1 " + std::to_string(resp.status) + " " + statusText(resp.status) + "\r\n";
    for (const auto& [n, v] : resp.headers) *text += n + ": " + v + "\r\n";
    *text += "Content-Length: " + std::to_string(resp.body.size()) + "\r\n\r\n";
    *text += resp.body.substr(0, resp.body.size() / 2);
    stream_.expires_after(std::chrono::seconds(options_.idleTimeoutSeconds));
    asio::async_write(stream_, asio::buffer(*text),
                      [self = shared_from_this(), text](beast::error_code, std::size_t) { self->close(); });
  }

  void send(HttpResponse resp) {
    auto res = std::make_shared<http::response<http::string_body>>();
    res->version(version_);
    res->result(static_cast<unsigned>(resp.status));
    res->set(http::field::server, "SAP NetWeaver Application Server / ABAP 758");
    for (const auto& [n, v] : resp.headers) res->insert(n, v);
    res->body() = std::move(resp.body);
    const bool keep = keepAlive_ && !resp.close;
    res->keep_alive(keep);
    res->prepare_payload();
    stream_.expires_after(std::chrono::seconds(options_.idleTimeoutSeconds));
    http::async_write(stream_, *res, [self = shared_from_this(), res, keep](beast::error_code ec, std::size_t) {
      if (ec || !keep) return self->close();
      self->readHeader();
    });
  }

  void close() {
    beast::error_code ec;
    stream_.socket().shutdown(tcp::socket::shutdown_both, ec);
    stream_.socket().close(ec);
  }

  beast::tcp_stream stream_;
  const HttpServer::Handler& handler_;
  asio::thread_pool& pool_;
  const HttpServer::Options& options_;
  asio::steady_timer timer_;
  beast::flat_buffer buffer_;
  std::optional<http::request_parser<http::string_body>> parser_;
  bool keepAlive_ = true;
  unsigned version_ = 11;
  std::string peer_;
};

}  // namespace

struct HttpServer::Impl {
  Impl(Handler h, Options o) : handler(std::move(h)), options(o), pool(o.workers ? o.workers : 1), acceptor(ioc) {}

  void accept() {
    acceptor.async_accept(asio::make_strand(ioc), [this](beast::error_code ec, tcp::socket socket) {
      if (ec) {
        if (ec == asio::error::operation_aborted || !acceptor.is_open()) return;
      } else {
        std::make_shared<Connection>(std::move(socket), handler, pool, options)->start();
      }
      accept();
    });
  }

  Handler handler;
  Options options;
  asio::io_context ioc;
  asio::thread_pool pool;
  tcp::acceptor acceptor;
  std::vector<std::thread> threads;
  std::atomic<bool> stopped{false};
};

HttpServer::HttpServer(Handler handler, Options options) : impl_(std::make_unique<Impl>(std::move(handler), options)) {}

HttpServer::~HttpServer() { stop(); }

unsigned short HttpServer::listen(const std::string& address, unsigned short port) {
  return net::listen(impl_->acceptor, address, port);
}

void HttpServer::start() {
  impl_->accept();
  const unsigned n = impl_->options.ioThreads ? impl_->options.ioThreads : 1;
  for (unsigned i = 0; i < n; ++i) impl_->threads.emplace_back([this] { impl_->ioc.run(); });
}

void HttpServer::stop() {
  if (!impl_ || impl_->stopped.exchange(true)) return;
  asio::post(impl_->ioc, [this] {
    beast::error_code ec;
    impl_->acceptor.close(ec);
  });
  impl_->pool.stop();
  impl_->pool.join();
  impl_->ioc.stop();
  for (auto& t : impl_->threads)
    if (t.joinable()) t.join();
  impl_->threads.clear();
}

}  // namespace vsim::soap
