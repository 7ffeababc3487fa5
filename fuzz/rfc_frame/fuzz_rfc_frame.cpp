// Fuzz target of the RFC protocol: raw bytes are split into frames as the front reads them, each
// frame goes to the service of a connection that logged on (logon, descriptions, calls with their
// values, transactions), and every message decoder gets the frame's body on its own.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/system.h"
#include "rfc/rfc_service.h"
#include "rfc_protocol/frame.h"
#include "rfc_protocol/messages.h"
#include "rfc_protocol/values.h"

namespace {

struct Sim {
  Sim() {
    vsim::SystemOptions o;
    o.maxWaitMs = 0;
    o.maxGeneratedRows = 500;
    system = std::make_unique<vsim::System>(o);
    service = std::make_unique<vsim::rfc::RfcService>(*system, log);
  }
  vsim::Log log{vsim::LogLevel::Off};
  std::unique_ptr<vsim::System> system;
  std::unique_ptr<vsim::rfc::RfcService> service;
};

template <class F>
void tolerate(F&& f) {
  try {
    f();
  } catch (const vsim::proto::ProtocolError&) {}
}

void decodeAlone(std::string_view body) {
  using namespace vsim::proto;
  tolerate([&] {
    Reader r(body);
    readOpen(r);
  });
  tolerate([&] {
    Reader r(body);
    readOpenReply(r);
  });
  tolerate([&] {
    Reader r(body);
    readError(r);
  });
  tolerate([&] {
    Reader r(body);
    readFunctionInfo(r);
  });
  tolerate([&] {
    Reader r(body);
    readTypeList(r);
  });
  tolerate([&] {
    Reader r(body);
    readInvokeHead(r);
    readValues(r);
  });
  tolerate([&] {
    Reader r(body);
    readTransactionHead(r);
  });
  tolerate([&] {
    Reader r(body);
    readCallHead(r);
    readValues(r);
  });
  tolerate([&] {
    Reader r(body);
    readValue(r);
  });
  tolerate([&] {
    Reader r(body);
    skipBody(r, r.type());
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Sim sim;
  const char* bytes = reinterpret_cast<const char*>(data);
  vsim::rfc::ConnectionState state;
  state.logon = vsim::Logon{"001", "DEMO", "E"};
  state.session = std::make_unique<vsim::Session>(*state.logon);
  vsim::proto::FrameDecoder frames(1 << 20);
  frames.feed(bytes, size);
  try {
    while (auto body = frames.next()) {
      decodeAlone(body->substr(body->empty() ? 0 : 1));
      vsim::rfc::Reply reply = sim.service->handle(state, *body);
      if (reply.close) break;
    }
  } catch (const vsim::proto::ProtocolError&) {}
  decodeAlone(std::string_view(bytes, size));
  return 0;
}
