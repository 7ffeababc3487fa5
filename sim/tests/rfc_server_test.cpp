// The RFC front over real sockets: bad frames end one connection with a log line, and the
// system serves on.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "rfc_protocol/client_socket.h"
#include "rfc_protocol/messages.h"
#include "testing/sim_process.h"

namespace {

using namespace vsim::proto;

class RfcFront : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    vsim::testing::SimOptions o;
    o.logLevel = "info";
    o.logFile = logFile();
    o.args = {"--rfc-max-frame", "1"};
    sim = new vsim::testing::SimProcess(o);
  }
  static void TearDownTestSuite() {
    EXPECT_EQ(sim->stop(), 0);
    delete sim;
    std::filesystem::remove(logFile());
  }
  static std::string logFile() { return ::testing::TempDir() + "rfc_front_" + std::to_string(::getpid()) + ".log"; }
  static std::string log() {
    std::ifstream in(logFile());
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  }
  ClientSocket connect() {
    return ClientSocket::connect(sim->rfcHost(), std::to_string(sim->rfcPort()), std::chrono::seconds(5));
  }
  std::string logonFrame() {
    FrameBuilder f(MessageKind::Logon);
    writeOpen(f.writer(), {kVersion, {{"user", "DEMO"}, {"passwd", "Welcome1"}}});
    return f.finish();
  }
  bool works() {
    ClientSocket s = connect();
    s.send(logonFrame());
    auto body = s.receive(std::chrono::seconds(5));
    return body && static_cast<MessageKind>((*body)[0]) == MessageKind::LogonOk;
  }
  static vsim::testing::SimProcess* sim;
};
vsim::testing::SimProcess* RfcFront::sim = nullptr;

TEST_F(RfcFront, ReadyLineNamesTheRfcAddress) {
  EXPECT_EQ(sim->rfcHost(), "127.0.0.1");
  EXPECT_GT(sim->rfcPort(), 0);
  EXPECT_TRUE(works());
}

TEST_F(RfcFront, AnOversizedFrameEndsThatConnectionOnly) {
  ClientSocket s = connect();
  const std::string header("\x00\x00\x20\x00", 4);  // 2 MiB, over the limit of 1 MiB
  s.send(header);
  EXPECT_THROW(s.receive(std::chrono::seconds(5)), IoError);
  EXPECT_TRUE(works());
  EXPECT_NE(log().find("exceeds the limit of 1048576; connection closed"), std::string::npos) << log();
}

TEST_F(RfcFront, AnHttpRequestOnTheRfcPortIsRefused) {
  ClientSocket s = connect();
  s.send("POST /sap/bc/soap/rfc HTTP/1.1\r\n\r\n");
  EXPECT_THROW(s.receive(std::chrono::seconds(5)), IoError);
  EXPECT_TRUE(works());
}

TEST_F(RfcFront, GarbageInAFrameGetsAnErrorAndTheConnectionEnds) {
  ClientSocket s = connect();
  s.send(std::string("\x03\x00\x00\x00\x7f\x01\x02", 7));
  auto body = s.receive(std::chrono::seconds(5));
  ASSERT_TRUE(body);
  ASSERT_EQ(static_cast<MessageKind>((*body)[0]), MessageKind::Error);
  Reader r(body->data() + 1, body->size() - 1);
  EXPECT_EQ(readError(r).rc, rc::kInvalidProtocol);
  EXPECT_THROW(s.receive(std::chrono::seconds(5)), IoError);
  EXPECT_TRUE(works());
}

TEST_F(RfcFront, APartnerThatDisappearsMidFrameHurtsNobody) {
  {
    ClientSocket s = connect();
    s.send(std::string("\x10\x00\x00\x00\x01", 5));  // announces 16 bytes, sends one
  }
  EXPECT_TRUE(works());
}

}  // namespace
