// Fuzz target of veltrane-sim's request path: raw bytes are read as an HTTP request by the same
// parser the server uses, then handed to the service (logon, sessions, SOAP parsing, the modules,
// the answer). The SOAP parser also gets the raw bytes as a body on their own.
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/system.h"
#include "soap/soap_codec.h"
#include "soap/soap_service.h"

namespace {

namespace http = boost::beast::http;

struct Sim {
  Sim() {
    vsim::SystemOptions o;
    o.maxWaitMs = 0;
    o.maxGeneratedRows = 500;
    system = std::make_unique<vsim::System>(o);
    service = std::make_unique<vsim::soap::SoapService>(*system, log);
  }
  vsim::Log log{vsim::LogLevel::Off};
  std::unique_ptr<vsim::System> system;
  std::unique_ptr<vsim::soap::SoapService> service;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Sim sim;
  const std::string input(reinterpret_cast<const char*>(data), size);

  std::unique_ptr<vsim::Call> call;
  try {
    vsim::soap::parseRequest(*sim.system, input, call);
  } catch (const vsim::soap::SoapFault&) {
  } catch (const vsim::SystemFailure&) {}

  http::request_parser<http::string_body> parser;
  parser.eager(true);
  boost::beast::error_code ec;
  size_t used = 0;
  while (used < input.size() && !parser.is_done()) {
    const size_t n = parser.put(boost::asio::buffer(input.data() + used, input.size() - used), ec);
    if (ec == http::error::need_more) break;
    if (ec) return 0;
    if (n == 0) break;
    used += n;
  }
  if (!parser.is_done() && parser.got_some()) parser.put_eof(ec);
  if (ec || !parser.is_done()) return 0;
  auto req = parser.release();
  vsim::soap::HttpRequest r;
  r.method = std::string(req.method_string());
  r.target = std::string(req.target());
  for (const auto& f : req) {
    std::string name(f.name_string());
    for (auto& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    r.headers.emplace_back(name, std::string(f.value()));
  }
  r.body = req.body();
  r.peer = "fuzz";
  vsim::soap::HttpResponse resp = sim.service->handle(r);
  if (resp.status < 100 || resp.status > 599) __builtin_trap();
  return 0;
}
