#include "rfc/rfc_server.h"

#include <atomic>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/write.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "net/listen.h"
#include "rfc/rfc_service.h"

namespace vsim::rfc {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using error_code = boost::system::error_code;

namespace {

// A frame that follows no protocol: a plausible header and bytes that decode to nothing.
std::string garbageFrame() {
  std::string body = "\xEE\x01garbage\xff\xfe\x00\x13 from a misbehaving system";
  std::string frame(proto::kFrameHeaderSize, '\0');
  for (size_t i = 0; i < proto::kFrameHeaderSize; ++i) frame[i] = static_cast<char>((body.size() >> (8 * i)) & 0xff);
  return frame + body;
}

class Connection : public std::enable_shared_from_this<Connection>, public ProgramLink {
 public:
  Connection(tcp::socket socket, RfcService& service, RfcGateway& gateway, asio::thread_pool& pool, Log& log,
             std::uint32_t maxFrame)
      : socket_(std::move(socket)),
        service_(service),
        gateway_(gateway),
        pool_(pool),
        log_(log),
        maxFrame_(maxFrame),
        timer_(socket_.get_executor()) {
    error_code ec;
    auto ep = socket_.remote_endpoint(ec);
    state_.peer = ec ? std::string("?") : ep.address().to_string() + ":" + std::to_string(ep.port());
    socket_.set_option(tcp::no_delay(true), ec);
  }

  void start() {
    asio::dispatch(socket_.get_executor(), [self = shared_from_this()] { self->readHeader(); });
  }

  // ProgramLink
  std::string exchange(std::string frame, std::chrono::milliseconds timeout) override {
    std::unique_lock lock(mutex_);
    // A program is listed before its registration answer is out; a call waits for that answer.
    answered_.wait(lock, [&] { return !announcing_ || closed_; });
    if (closed_) throw std::runtime_error("connection to program " + program_ + " lost");
    answer_.reset();
    waiting_ = true;
    lock.unlock();
    asio::post(socket_.get_executor(),
               [self = shared_from_this(), f = std::make_shared<std::string>(std::move(frame))] {
                 asio::async_write(self->socket_, asio::buffer(*f), [self, f](error_code ec, std::size_t) {
                   if (ec) self->close();
                 });
               });
    lock.lock();
    const bool answered = answered_.wait_for(lock, timeout, [&] { return answer_.has_value() || closed_; });
    waiting_ = false;
    if (!answered) {
      lock.unlock();
      drop();
      throw std::runtime_error("program " + program_ + " did not answer in time");
    }
    if (!answer_) throw std::runtime_error("connection to program " + program_ + " lost");
    std::string body = std::move(*answer_);
    answer_.reset();
    return body;
  }

  void drop() override {
    {
      std::lock_guard lock(mutex_);
      closed_ = true;
      answered_.notify_all();
    }
    asio::post(socket_.get_executor(), [self = shared_from_this()] { self->close(); });
  }

  const std::string& programId() const override { return program_; }

 private:
  void readHeader() {
    asio::async_read(socket_, asio::buffer(header_), [self = shared_from_this()](error_code ec, std::size_t) {
      if (ec) return self->close();
      self->onHeader();
    });
  }

  void onHeader() {
    std::uint32_t n = 0;
    try {
      n = proto::frameLength(header_, maxFrame_);
    } catch (const proto::ProtocolError& e) {
      log_.write(LogLevel::Warn, "rfc " + state_.peer + " " + e.what() + "; connection closed");
      return close();
    }
    body_.resize(n);
    asio::async_read(socket_, asio::buffer(body_), [self = shared_from_this()](error_code ec, std::size_t) {
      if (ec) return self->close();
      self->onFrame();
    });
  }

  void onFrame() {
    if (!program_.empty()) return onProgramFrame();
    auto self = shared_from_this();
    const auto start = std::chrono::steady_clock::now();
    asio::post(pool_, [self, start] {
      Reply reply = self->service_.handle(self->state_, self->body_);
      asio::post(self->socket_.get_executor(),
                 [self, start, reply = std::move(reply)]() mutable { self->onReply(std::move(reply), start); });
    });
  }

  void onProgramFrame() {
    bool unasked = false;
    {
      std::lock_guard lock(mutex_);
      if (waiting_ && !answer_) {
        answer_ = std::move(body_);
        body_.clear();
      } else {
        unasked = true;
      }
      answered_.notify_all();
    }
    if (unasked) {
      log_.write(LogLevel::Warn, "rfc " + state_.peer + " program " + program_ + " sent a frame nobody asked for");
      return close();
    }
    readHeader();
  }

  void logRequest(const Reply& reply, std::chrono::steady_clock::time_point start) {
    if (body_.empty()) return;
    const auto kind = static_cast<proto::MessageKind>(static_cast<std::uint8_t>(body_[0]));
    const bool failed =
        !reply.frame.empty() && reply.frame[proto::kFrameHeaderSize] == static_cast<char>(proto::MessageKind::Error);
    const LogLevel level = reply.close && failed ? LogLevel::Warn : LogLevel::Info;
    if (!log_.enabled(level)) return;
    const auto ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    char took[32];
    std::snprintf(took, sizeof took, "%.1fms", ms);
    std::string answer = "-";
    if (reply.frame.size() > proto::kFrameHeaderSize) {
      const auto k = static_cast<std::uint8_t>(reply.frame[proto::kFrameHeaderSize]);
      answer = proto::messageKindKnown(k) ? proto::messageKindName(static_cast<proto::MessageKind>(k)) : "?";
    }
    std::string line = "rfc " + state_.peer + " " + (state_.logon ? state_.logon->user : "-") + " " +
                       (proto::messageKindKnown(static_cast<std::uint8_t>(kind)) ? proto::messageKindName(kind) : "?") +
                       " " + (reply.function.empty() ? "-" : reply.function) + " " + answer + " " +
                       std::to_string(reply.frame.size()) + " " + took;
    if (reply.fault) line += " fault=" + faultText(*reply.fault);
    if (failed) {
      try {
        proto::Reader r(reply.frame.data() + proto::kFrameHeaderSize + 1,
                        reply.frame.size() - proto::kFrameHeaderSize - 1);
        line += " (" + proto::readError(r).message + ")";
      } catch (const proto::ProtocolError&) {}
    }
    log_.write(level, line);
  }

  void onReply(Reply reply, std::chrono::steady_clock::time_point start, bool delayed = false) {
    if (!delayed && reply.fault && reply.fault->kind == FaultSpec::Kind::Delay) {
      timer_.expires_after(std::chrono::milliseconds(reply.fault->value));
      timer_.async_wait([self = shared_from_this(), reply = std::move(reply), start](error_code ec) mutable {
        if (ec) return self->close();
        self->onReply(std::move(reply), start, true);
      });
      return;
    }
    logRequest(reply, start);
    if (reply.fault && reply.fault->kind == FaultSpec::Kind::Close) return close();
    if (reply.fault && reply.fault->kind == FaultSpec::Kind::Malformed) {
      reply.frame = garbageFrame();
      reply.close = true;
    }
    if (!state_.registeredProgram.empty() && program_.empty() && !reply.close) {
      // Listed before the answer goes out, so that a caller who has the answer finds the program.
      program_ = state_.registeredProgram;
      {
        std::lock_guard lock(mutex_);
        announcing_ = true;
      }
      log_.write(LogLevel::Info, "rfc " + state_.peer + " program " + program_ + " registered");
      gateway_.add(shared_from_this());
    }
    if (reply.frame.empty()) {
      if (reply.close) return close();
      return readHeader();
    }
    auto frame = std::make_shared<std::string>(std::move(reply.frame));
    const bool closeAfter = reply.close;
    asio::async_write(socket_, asio::buffer(*frame),
                      [self = shared_from_this(), frame, closeAfter](error_code ec, std::size_t) {
                        if (ec || closeAfter) return self->close();
                        self->announced();
                        self->readHeader();
                      });
  }

  // The registration answer, if one was on its way, is written.
  void announced() {
    {
      std::lock_guard lock(mutex_);
      if (!announcing_) return;
      announcing_ = false;
      answered_.notify_all();
    }
  }

  void close() {
    error_code ec;
    if (socket_.is_open()) {
      socket_.shutdown(tcp::socket::shutdown_both, ec);
      socket_.close(ec);
    }
    timer_.cancel();
    {
      std::lock_guard lock(mutex_);
      closed_ = true;
      answered_.notify_all();
    }
    if (!program_.empty()) gateway_.remove(this);
  }

  tcp::socket socket_;
  RfcService& service_;
  RfcGateway& gateway_;
  asio::thread_pool& pool_;
  Log& log_;
  std::uint32_t maxFrame_;
  asio::steady_timer timer_;
  char header_[proto::kFrameHeaderSize];
  std::string body_;
  ConnectionState state_;
  std::string program_;  // set once the registration is accepted

  std::mutex mutex_;
  // Notified with mutex_ held: a waiter that wakes goes on (and may let go of
  // the last reference) only once the notification is over.
  std::condition_variable answered_;
  std::optional<std::string> answer_;
  bool waiting_ = false;
  bool closed_ = false;
  bool announcing_ = false;  // the registration answer is on its way
};

}  // namespace

struct RfcServer::Impl {
  Impl(System& s, Log& l, Options o)
      : system(s), log(l), options(o), service(s, l), gateway(s, l), pool(o.workers ? o.workers : 1), acceptor(ioc) {}

  void accept() {
    acceptor.async_accept(asio::make_strand(ioc), [this](error_code ec, tcp::socket socket) {
      if (ec) {
        if (ec == asio::error::operation_aborted || !acceptor.is_open()) return;
      } else {
        std::make_shared<Connection>(std::move(socket), service, gateway, pool, log, options.maxFrame)->start();
      }
      accept();
    });
  }

  System& system;
  Log& log;
  Options options;
  RfcService service;
  RfcGateway gateway;
  asio::io_context ioc;
  asio::thread_pool pool;
  tcp::acceptor acceptor;
  std::vector<std::thread> threads;
  std::atomic<bool> stopped{false};
};

RfcServer::RfcServer(System& system, Log& log, Options options) : impl_(std::make_unique<Impl>(system, log, options)) {}

RfcServer::~RfcServer() { stop(); }

RfcGateway& RfcServer::gateway() { return impl_->gateway; }

std::uint64_t RfcServer::requestCount() const { return impl_->service.requestCount(); }

unsigned short RfcServer::listen(const std::string& address, unsigned short port) {
  return net::listen(impl_->acceptor, address, port);
}

void RfcServer::start() {
  impl_->system.setGateway(&impl_->gateway);
  impl_->accept();
  const unsigned n = impl_->options.ioThreads ? impl_->options.ioThreads : 1;
  for (unsigned i = 0; i < n; ++i) impl_->threads.emplace_back([this] { impl_->ioc.run(); });
}

void RfcServer::stop() {
  if (!impl_ || impl_->stopped.exchange(true)) return;
  if (impl_->system.gateway() == &impl_->gateway) impl_->system.setGateway(nullptr);
  impl_->gateway.dropAll();
  asio::post(impl_->ioc, [this] {
    error_code ec;
    impl_->acceptor.close(ec);
  });
  impl_->pool.stop();
  impl_->pool.join();
  impl_->ioc.stop();
  for (auto& t : impl_->threads)
    if (t.joinable()) t.join();
  impl_->threads.clear();
}

}  // namespace vsim::rfc
