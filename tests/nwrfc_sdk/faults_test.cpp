// Faults of the RFC front: a dropped connection, a delayed answer, a garbage frame.
#include <chrono>

#include "sdk_fixture.h"

using namespace sdktest;

namespace {

TEST(Faults, ADroppedConnectionIsACommunicationFailure) {
  RFC_CONNECTION_HANDLE c = open(Params::logon().set("user", "DEVELOPER"));
  planFault("close", "DEVELOPER");
  Call call(c, "STFC_CONNECTION");
  RFC_ERROR_INFO info;
  EXPECT_EQ(call.invoke(&info), RFC_COMMUNICATION_FAILURE);
  EXPECT_EQ(info.group, RFC_ERROR_GROUP::COMMUNICATION_FAILURE);
  EXPECT_EQ(RfcPing(c, &info), RFC_INVALID_HANDLE);
  RfcCloseConnection(c, nullptr);
}

TEST(Faults, AGarbageFrameIsAnInvalidProtocol) {
  RFC_CONNECTION_HANDLE c = open(Params::logon().set("user", "DEVELOPER"));
  planFault("malformed", "DEVELOPER");
  Call call(c, "STFC_CONNECTION");
  RFC_ERROR_INFO info;
  EXPECT_EQ(call.invoke(&info), RFC_INVALID_PROTOCOL);
  EXPECT_EQ(info.group, RFC_ERROR_GROUP::COMMUNICATION_FAILURE);
  EXPECT_EQ(RfcPing(c, &info), RFC_INVALID_HANDLE);
  RfcCloseConnection(c, nullptr);
  RFC_CONNECTION_HANDLE fresh = open();
  EXPECT_EQ(RfcPing(fresh, &info), RFC_OK) << "the system serves on";
  RfcCloseConnection(fresh, nullptr);
}

TEST(Faults, ADelayedAnswerStillArrives) {
  RFC_CONNECTION_HANDLE c = open(Params::logon().set("user", "DEVELOPER"));
  planFault("delay:300", "DEVELOPER");
  Call call(c, "STFC_CONNECTION");
  call.setString("REQUTEXT", "late");
  const auto start = std::chrono::steady_clock::now();
  RFC_ERROR_INFO info;
  EXPECT_EQ(call.invoke(&info), RFC_OK);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
  EXPECT_EQ(call.getString("ECHOTEXT"), "late");
  RfcCloseConnection(c, nullptr);
}

}  // namespace
