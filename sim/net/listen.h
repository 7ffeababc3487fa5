// Opens a TCP acceptor of a front: address and port (0 picks a free one), reuse of the address,
// the system's backlog. Returns the port. Throws std::runtime_error with the reason.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <stdexcept>
#include <string>

namespace vsim::net {

inline unsigned short listen(boost::asio::ip::tcp::acceptor& a, const std::string& address, unsigned short port) {
  namespace asio = boost::asio;
  boost::system::error_code ec;
  const auto addr = asio::ip::make_address(address, ec);
  if (ec) throw std::runtime_error("invalid listen address " + address + ": " + ec.message());
  const asio::ip::tcp::endpoint ep(addr, port);
  a.open(ep.protocol(), ec);
  if (!ec) a.set_option(asio::socket_base::reuse_address(true), ec);
  if (!ec) a.bind(ep, ec);
  if (!ec) a.listen(asio::socket_base::max_listen_connections, ec);
  if (ec) throw std::runtime_error("cannot listen on " + address + ":" + std::to_string(port) + ": " + ec.message());
  return a.local_endpoint().port();
}

}  // namespace vsim::net
