// The RFC front's service without the network: logon, descriptions, calls, transactions, and
// what it answers to input that follows no protocol.
#include <gtest/gtest.h>

#include "engine/system.h"
#include "rfc/describe.h"
#include "rfc/gateway.h"
#include "rfc/rfc_service.h"
#include "rfc/wire_values.h"
#include "rfc_protocol/messages.h"
#include "rfc_protocol/values.h"

namespace vsim::rfc {
namespace {

using proto::MessageKind;

struct Answer {
  MessageKind kind;
  std::string body;  // behind the kind byte
  bool close;
};

class Service : public ::testing::Test {
 protected:
  Answer send(const std::string& frame) {
    const std::string body = frame.substr(proto::kFrameHeaderSize);
    Reply r = service.handle(state, body);
    Answer a{MessageKind::Ok, {}, r.close};
    if (!r.frame.empty()) {
      a.kind = static_cast<MessageKind>(r.frame[proto::kFrameHeaderSize]);
      a.body = r.frame.substr(proto::kFrameHeaderSize + 1);
    }
    return a;
  }
  Answer logon(proto::Pairs params) {
    proto::FrameBuilder f(MessageKind::Logon);
    proto::writeOpen(f.writer(), {proto::kVersion, std::move(params)});
    return send(f.finish());
  }
  static proto::ErrorInfo error(const Answer& a) {
    proto::Reader r(a.body);
    return proto::readError(r);
  }
  Answer invoke(const std::string& function, const proto::NamedValues& values) {
    proto::FrameBuilder f(MessageKind::Invoke);
    proto::writeInvokeHead(f.writer(), {function, {}});
    proto::writeValues(f.writer(), values);
    return send(f.finish());
  }

  System system{SystemOptions{0, 0, 1000}};
  Log log{LogLevel::Off};
  RfcService service{system, log};
  ConnectionState state;
};

TEST_F(Service, LogonRefusalsCloseTheConnection) {
  const Answer a = logon({{"client", "001"}, {"user", "DEMO"}, {"passwd", "nope"}});
  ASSERT_EQ(a.kind, MessageKind::Error);
  EXPECT_TRUE(a.close);
  const proto::ErrorInfo e = error(a);
  EXPECT_EQ(e.rc, proto::rc::kLogonFailure);
  EXPECT_EQ(e.group, proto::group::kLogon);
  EXPECT_EQ(e.message, "Name or password is incorrect (repeat logon)");
}

TEST_F(Service, RequestsBeforeTheLogonAreAProtocolError) {
  const Answer a = invoke("RFC_PING", {});
  ASSERT_EQ(a.kind, MessageKind::Error);
  EXPECT_TRUE(a.close);
  EXPECT_EQ(error(a).rc, proto::rc::kInvalidProtocol);
}

TEST_F(Service, AnotherProtocolVersionIsRefused) {
  proto::FrameBuilder f(MessageKind::Logon);
  proto::writeOpen(f.writer(), {static_cast<std::uint16_t>(proto::kVersion + 1), {}});
  const Answer a = send(f.finish());
  ASSERT_EQ(a.kind, MessageKind::Error);
  EXPECT_EQ(error(a).rc, 10);  // RFC_VERSION_MISMATCH
}

TEST_F(Service, GarbageUnknownKindsAndTrailingBytesAreRefused) {
  for (const std::string& body : {std::string("\xEE"), std::string("\x01garbage"), std::string("\x09trailing")}) {
    Reply r = service.handle(state, body);
    ASSERT_FALSE(r.frame.empty());
    EXPECT_EQ(static_cast<MessageKind>(r.frame[proto::kFrameHeaderSize]), MessageKind::Error);
    EXPECT_TRUE(r.close) << body;
  }
}

TEST_F(Service, CallsConvertWhatThePartnerSends) {
  ASSERT_EQ(logon({{"user", "DEMO"}, {"passwd", "Welcome1"}}).kind, MessageKind::LogonOk);
  // INT sent as text, CHAR sent as a number, NUMC as an integer: converted as ABAP moves them.
  const Answer a = invoke("Z_VSIM_TYPES", {{"IV_INT", proto::WireValue::ofText(proto::WireType::Char, " 42 ")},
                                           {"IV_CHAR", proto::WireValue::ofInteger(proto::WireType::Int, 7)},
                                           {"IV_NUMC", proto::WireValue::ofInteger(proto::WireType::Int, 12)},
                                           {"UNKNOWN", proto::WireValue::ofReal(1.0)}});
  ASSERT_EQ(a.kind, MessageKind::Result);
  proto::Reader r(a.body);
  const proto::NamedValues out = proto::readValues(r);
  auto find = [&](const std::string& n) -> const proto::WireValue& {
    for (const auto& [k, v] : out)
      if (k == n) return v;
    throw std::runtime_error("no " + n);
  };
  EXPECT_EQ(find("EV_INT").integer, 42);
  EXPECT_EQ(find("EV_CHAR").text, "7");
  EXPECT_EQ(find("EV_NUMC").text, "00000012");
  EXPECT_EQ(find("EV_DATE").type, proto::WireType::Date);
  EXPECT_EQ(find("EV_DATE").text, "00000000");
}

TEST_F(Service, AValueThatDoesNotFitEndsTheCallAsARuntimeError) {
  ASSERT_EQ(logon({{"user", "DEMO"}, {"passwd", "Welcome1"}}).kind, MessageKind::LogonOk);
  const Answer a = invoke("Z_VSIM_TYPES", {{"IV_INT1", proto::WireValue::ofInteger(proto::WireType::Int, 300)}});
  ASSERT_EQ(a.kind, MessageKind::Error);
  const proto::ErrorInfo e = error(a);
  EXPECT_EQ(e.rc, proto::rc::kAbapRuntimeFailure);
  EXPECT_EQ(e.key, "CONVT_NO_NUMBER");
  EXPECT_TRUE(a.close);
}

TEST(Describe, BothLayoutsAndNamedRowTypes) {
  System system{SystemOptions{0, 0, 1000}};
  const proto::FunctionInfo f = describeFunction(*system.functions().find("STFC_STRUCTURE"));
  ASSERT_EQ(f.parameters.size(), 4u);
  const proto::ParameterInfo& imp = f.parameters[0];
  EXPECT_EQ(imp.name, "IMPORTSTRUCT");
  EXPECT_EQ(imp.nucLength, 144u);
  EXPECT_EQ(imp.ucLength, 264u);
  ASSERT_GT(imp.typeRef, 0u);
  EXPECT_EQ(f.types[imp.typeRef - 1].name, "RFCTEST");
  const auto string = describeType(*system.dictionary().find("STRINGTAB"));
  ASSERT_EQ(string.size(), 1u);
  ASSERT_EQ(string[0].fields.size(), 1u);
  EXPECT_EQ(string[0].fields[0].name, "") << "elementary rows have one unnamed field";
}

TEST(Gateway, JsonToValuesAndBack) {
  const proto::NamedValues v =
      valuesFromJson(R"({"text":"a","n":5,"big":5000000000,"f":1.5,"flag":true,"s":{"X":1},"t":[{"A":"x"},{"B":2}]})");
  ASSERT_EQ(v.size(), 7u);
  EXPECT_EQ(v[0].first, "TEXT");
  EXPECT_EQ(v[1].second.type, proto::WireType::Int);
  EXPECT_EQ(v[2].second.type, proto::WireType::Int8);
  EXPECT_EQ(v[4].second.text, "X");
  EXPECT_EQ(v[6].second.columns.size(), 2u);
  EXPECT_EQ(
      valuesToJson(v),
      R"({"TEXT":"a","N":5,"BIG":5000000000,"F":1.5,"FLAG":"X","S":{"X":1},"T":[{"A":"x","B":0},{"A":"","B":2}]})");
  EXPECT_THROW(valuesFromJson("[1]"), std::invalid_argument);
  EXPECT_THROW(valuesFromJson("{\"t\":[1,\"a\"]}"), std::invalid_argument);
  EXPECT_THROW(valuesFromJson("{"), std::invalid_argument);
}

}  // namespace
}  // namespace vsim::rfc
