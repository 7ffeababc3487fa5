// veltrane-sim: starts the simulated ABAP system with its SOAP and RFC fronts.
#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <boost/asio/ip/address.hpp>

#include "engine/data_dir.h"
#include "engine/system.h"
#include "rfc/rfc_server.h"
#include "soap/http_server.h"
#include "engine/log.h"
#include "soap/soap_service.h"

namespace {

constexpr const char* kUsage =
    "usage: veltrane-sim [options]\n"
    "  --soap-port PORT     port of the SOAP front, 0 picks a free one (default 8000)\n"
    "  --rfc-port PORT      port of the RFC front and gateway, 0 picks a free one (default 3300)\n"
    "  --rfc-max-frame MB   largest RFC frame accepted, in MiB (default 256)\n"
    "  --host ADDRESS       address to listen on (default 127.0.0.1); one beyond loopback needs --allow-remote\n"
    "  --allow-remote       allow --host to name an address beyond loopback; the control endpoints then\n"
    "                       need the token of the ready line in the header X-Vsim-Token\n"
    "  --data-dir DIR       load the *.json files of DIR: tables, types, users, function modules\n"
    "  --log-level LEVEL    off, error, warn, info or debug (default info); one line per request at info\n"
    "  --flight-rows N      rows of the flight table SFLIGHT (default 3120)\n"
    "  --workers N          threads that run function modules (default 16)\n"
    "  --max-wait-ms N      upper bound of Z_VSIM_WAIT (default 600000)\n"
    "  --version            print the version and exit\n"
    "  --help               print this text and exit\n"
    "When ready, the first line on standard output is\n"
    "  veltrane-sim listening soap=http://HOST:PORT rfc=HOST:PORT [token=TOKEN]\n"
    "Default logon: client 001, user DEMO, password Welcome1, language EN.\n";

[[noreturn]] void usageError(const std::string& message) {
  std::fprintf(stderr, "veltrane-sim: %s\n%s", message.c_str(), kUsage);
  std::exit(2);
}

long long number(const std::string& option, const char* text, long long lo, long long hi) {
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text, &end, 10);
  if (errno || !end || *end || end == text || v < lo || v > hi)
    usageError(option + " needs a number from " + std::to_string(lo) + " to " + std::to_string(hi) + ", not '" + text +
               "'");
  return v;
}

bool loopback(const std::string& host) {
  boost::system::error_code ec;
  const auto address = boost::asio::ip::make_address(host, ec);
  return !ec && address.is_loopback();
}

// 128 random bits as hexadecimal text.
std::string randomToken() {
  unsigned char bytes[16];
  std::FILE* f = std::fopen("/dev/urandom", "rb");
  if (!f || std::fread(bytes, 1, sizeof bytes, f) != sizeof bytes) {
    std::fprintf(stderr, "veltrane-sim: cannot read /dev/urandom for the control token\n");
    std::exit(1);
  }
  std::fclose(f);
  std::string token;
  char hex[3];
  for (unsigned char b : bytes) {
    std::snprintf(hex, sizeof hex, "%02x", b);
    token += hex;
  }
  return token;
}

}  // namespace

int main(int argc, char** argv) {
  std::string host = "127.0.0.1", dataDir, logLevel = "info";
  long long port = 8000, rfcPort = 3300;
  bool allowRemote = false;
  vsim::SystemOptions systemOptions;
  vsim::soap::HttpServer::Options serverOptions;
  vsim::rfc::RfcServer::Options rfcOptions;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    auto value = [&]() -> const char* {
      if (i + 1 >= argc) usageError(a + " needs a value");
      return argv[++i];
    };
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (a == "--version") {
      std::printf("veltrane-sim %s\n", VELTRANE_SIM_VERSION);
      return 0;
    } else if (a == "--soap-port") {
      port = number(a, value(), 0, 65535);
    } else if (a == "--rfc-port") {
      rfcPort = number(a, value(), 0, 65535);
    } else if (a == "--rfc-max-frame") {
      rfcOptions.maxFrame = static_cast<std::uint32_t>(number(a, value(), 1, 2047)) << 20;
    } else if (a == "--host") {
      host = value();
    } else if (a == "--allow-remote") {
      allowRemote = true;
    } else if (a == "--data-dir") {
      dataDir = value();
    } else if (a == "--log-level") {
      logLevel = value();
    } else if (a == "--flight-rows") {
      systemOptions.flightRows = static_cast<std::size_t>(number(a, value(), 1, 50000000));
    } else if (a == "--workers") {
      serverOptions.workers = static_cast<unsigned>(number(a, value(), 1, 1024));
      rfcOptions.workers = serverOptions.workers;
    } else if (a == "--max-wait-ms") {
      systemOptions.maxWaitMs = number(a, value(), 0, 86400000);
    } else {
      usageError("unknown option " + a);
    }
  }
  const bool remote = !loopback(host);
  if (remote && !allowRemote) usageError("--host " + host + " is beyond loopback: give --allow-remote to listen there");
  vsim::soap::ServiceOptions serviceOptions;
  if (remote) serviceOptions.controlToken = randomToken();
  const auto level = vsim::parseLogLevel(logLevel);
  if (!level) usageError("unknown log level " + logLevel);
  vsim::Log log(*level);

  std::unique_ptr<vsim::System> system;
  try {
    system = std::make_unique<vsim::System>(systemOptions);
    if (!dataDir.empty()) {
      const auto sum = vsim::loadDataDir(*system, dataDir);
      log.write(vsim::LogLevel::Info, "data directory " + dataDir + ": " + std::to_string(sum.files.size()) +
                                          " files, " + std::to_string(sum.tables) + " tables, " +
                                          std::to_string(sum.rows) + " rows, " + std::to_string(sum.functions) +
                                          " function modules, " + std::to_string(sum.users) + " users");
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "veltrane-sim: %s\n", e.what());
    return 2;
  }

  // Signals are taken by sigwait in this thread only; every thread started later inherits the mask.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);

  vsim::soap::SoapService service(*system, log, serviceOptions);
  vsim::soap::HttpServer server([&service](const vsim::soap::HttpRequest& r) { return service.handle(r); },
                                serverOptions);
  vsim::rfc::RfcServer rfcServer(*system, log, rfcOptions);
  unsigned short bound, rfcBound;
  try {
    bound = server.listen(host, static_cast<unsigned short>(port));
    rfcBound = rfcServer.listen(host, static_cast<unsigned short>(rfcPort));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "veltrane-sim: %s\n", e.what());
    return 1;
  }
  server.start();
  rfcServer.start();
  const std::string shown = (host == "0.0.0.0" || host == "::") ? "127.0.0.1" : host;
  const std::string url = host.find(':') != std::string::npos && host != "::" ? "[" + host + "]" : shown;
  std::printf("veltrane-sim listening soap=http://%s:%u rfc=%s:%u%s\n", url.c_str(), static_cast<unsigned>(bound),
              url.c_str(), static_cast<unsigned>(rfcBound),
              serviceOptions.controlToken.empty() ? "" : (" token=" + serviceOptions.controlToken).c_str());
  std::fflush(stdout);
  log.write(vsim::LogLevel::Info, "system " + system->info().sysid + " ready, SOAP front on port " +
                                      std::to_string(bound) + ", RFC front on port " + std::to_string(rfcBound));

  int sig = 0;
  sigwait(&signals, &sig);
  log.write(vsim::LogLevel::Info, std::string("shutting down on ") + (sig == SIGINT ? "SIGINT" : "SIGTERM"));
  system->shutdown();
  rfcServer.stop();
  server.stop();
  log.write(vsim::LogLevel::Info, "stopped after " + std::to_string(service.requestCount()) + " SOAP and " +
                                      std::to_string(rfcServer.requestCount()) + " RFC requests");
  return 0;
}
