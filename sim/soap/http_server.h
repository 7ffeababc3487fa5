// HTTP/1.1 server on an asynchronous event loop. Requests are handed to a pool of workers, so a
// slow function module never blocks other connections; answers go back on the connection's strand.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "soap/http_types.h"

namespace vsim::soap {

class HttpServer {
 public:
  using Handler = std::function<HttpResponse(const HttpRequest&)>;

  struct Options {
    unsigned ioThreads = 2;
    unsigned workers = 16;
    std::uint64_t bodyLimit = 64ull * 1024 * 1024;
    unsigned idleTimeoutSeconds = 60;
  };

  HttpServer(Handler handler, Options options);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // Binds and listens; port 0 picks a free port. Returns the port. Throws std::runtime_error.
  unsigned short listen(const std::string& address, unsigned short port);
  // Starts the event loop threads and the workers; returns at once.
  void start();
  // Stops accepting, lets running handlers finish, ends the threads. Idempotent.
  void stop();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vsim::soap
