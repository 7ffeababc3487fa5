#include "rfc_protocol/client_socket.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vsim::proto {

namespace {

std::string errnoText(int e) { return std::strerror(e); }

int pollOne(int fd, short events, std::chrono::milliseconds timeout) {
  pollfd p{fd, events, 0};
  const int ms = timeout.count() < 0 ? -1 : static_cast<int>(std::min<long long>(timeout.count(), 1 << 30));
  for (;;) {
    const int n = ::poll(&p, 1, ms);
    if (n >= 0) return n;
    if (errno != EINTR) throw IoError("poll: " + errnoText(errno));
  }
}

}  // namespace

ClientSocket::~ClientSocket() { close(); }

ClientSocket::ClientSocket(ClientSocket&& o) noexcept : fd_(o.fd_), peer_(std::move(o.peer_)) { o.fd_ = -1; }

ClientSocket& ClientSocket::operator=(ClientSocket&& o) noexcept {
  if (this != &o) {
    close();
    fd_ = o.fd_;
    peer_ = std::move(o.peer_);
    o.fd_ = -1;
  }
  return *this;
}

void ClientSocket::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

ClientSocket ClientSocket::connect(const std::string& host, const std::string& port,
                                   std::chrono::milliseconds timeout) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int rc = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &list);
  if (rc != 0) throw IoError("host " + host + " unknown: " + gai_strerror(rc));
  std::string failure = "no address for " + host;
  for (addrinfo* a = list; a; a = a->ai_next) {
    const int fd = ::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
    if (fd < 0) {
      failure = "socket: " + errnoText(errno);
      continue;
    }
    int err = 0;
    if (::connect(fd, a->ai_addr, a->ai_addrlen) != 0) {
      err = errno;
      if (err == EINPROGRESS) {
        if (pollOne(fd, POLLOUT, timeout) == 0) {
          err = ETIMEDOUT;
        } else {
          socklen_t len = sizeof err;
          ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len);
        }
      }
    }
    if (err != 0) {
      ::close(fd);
      failure = "partner '" + host + ":" + port + "' not reached: " + errnoText(err);
      continue;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    const int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    ::freeaddrinfo(list);
    return ClientSocket(fd, host + ":" + port);
  }
  ::freeaddrinfo(list);
  throw IoError(failure);
}

void ClientSocket::send(const std::string& frame) {
  if (fd_ < 0) throw IoError("connection is closed");
  size_t done = 0;
  while (done < frame.size()) {
    const ssize_t n = ::send(fd_, frame.data() + done, frame.size() - done, MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR) continue;
      const bool peer = errno == EPIPE || errno == ECONNRESET;
      throw IoError("send: " + errnoText(errno), peer);
    }
    done += static_cast<size_t>(n);
  }
}

void ClientSocket::readExactly(char* data, size_t size) {
  size_t done = 0;
  while (done < size) {
    const ssize_t n = ::recv(fd_, data + done, size - done, 0);
    if (n == 0) throw IoError("connection closed by partner", true);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw IoError("recv: " + errnoText(errno), errno == ECONNRESET);
    }
    done += static_cast<size_t>(n);
  }
}

bool ClientSocket::readable(std::chrono::milliseconds timeout) {
  if (fd_ < 0) throw IoError("connection is closed");
  return pollOne(fd_, POLLIN, timeout) > 0;
}

std::optional<std::string> ClientSocket::receive(std::chrono::milliseconds timeout, std::uint32_t maxFrame) {
  if (!readable(timeout)) return std::nullopt;
  char header[kFrameHeaderSize];
  readExactly(header, sizeof header);
  const std::uint32_t n = frameLength(header, maxFrame);
  std::string body;
  body.resize(n);
  readExactly(body.data(), n);
  return body;
}

}  // namespace vsim::proto
