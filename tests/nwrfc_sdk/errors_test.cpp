// ABAP exceptions, messages and runtime errors, with the SDK's codes and groups, and what becomes
// of the connection after each.
#include "sdk_fixture.h"

using namespace sdktest;

namespace {

class Errors : public Connected {};

TEST_F(Errors, AnExceptionKeepsTheConnection) {
  Call call(c, "Z_VSIM_RAISE");
  call.setString("EXCEPTION", "NOT_FOUND");
  EXPECT_EQ(call.invoke(&info), RFC_ABAP_EXCEPTION);
  EXPECT_EQ(info.code, RFC_ABAP_EXCEPTION);
  EXPECT_EQ(info.group, RFC_ERROR_GROUP::ABAP_APPLICATION_FAILURE);
  EXPECT_EQ(utf8(info.key), "NOT_FOUND");
  EXPECT_EQ(utf8(info.abapMsgClass), "");
  EXPECT_EQ(RfcPing(c, &info), RFC_OK);
}

TEST_F(Errors, AnExceptionWithAMessageCarriesItsClassTypeNumberAndVariables) {
  Call call(c, "Z_VSIM_RAISE");
  call.setString("EXCEPTION", "INVALID_INPUT");
  call.setString("MESSAGE_ID", "ZVSIM");
  call.setString("MESSAGE_NUMBER", "123");
  call.setString("MESSAGE_TEXT", "Value &1 of &2 is wrong");
  call.setString("MESSAGE_V1", "42");
  call.setString("MESSAGE_V2", "FIELD");
  call.setString("MESSAGE_V3", "three");
  call.setString("MESSAGE_V4", "four");
  EXPECT_EQ(call.invoke(&info), RFC_ABAP_EXCEPTION);
  EXPECT_EQ(utf8(info.key), "INVALID_INPUT");
  EXPECT_EQ(utf8(info.abapMsgClass), "ZVSIM");
  EXPECT_EQ(utf8(info.abapMsgType), "E");
  EXPECT_EQ(utf8(info.abapMsgNumber), "123");
  EXPECT_EQ(utf8(info.abapMsgV1), "42");
  EXPECT_EQ(utf8(info.abapMsgV2), "FIELD");
  EXPECT_EQ(utf8(info.abapMsgV3), "three");
  EXPECT_EQ(utf8(info.abapMsgV4), "four");
  EXPECT_EQ(utf8(info.message), "ID:ZVSIM Type:E Number:123 42 FIELD three four");
}

TEST_F(Errors, ExceptionsStillBringTheTablesBack) {
  Call call(c, "Z_VSIM_ROWS");
  call.setInt("ROW_COUNT", -1);
  RFC_TABLE_HANDLE t;
  ASSERT_EQ(RfcGetTable(call, u"ROWS", &t, &info), RFC_OK);
  RfcAppendNewRows(t, 2, nullptr);
  EXPECT_EQ(call.invoke(&info), RFC_ABAP_EXCEPTION);
  EXPECT_EQ(utf8(info.key), "INVALID_COUNT");
  unsigned n = 9;
  RfcGetRowCount(t, &n, nullptr);
  EXPECT_EQ(n, 2u) << "the system returned the table as it got it";
}

struct Ending {
  const char* name;
  const char* messageType;
  const char* runtimeError;
  RFC_RC rc;
  const char* key;
};

class ClosingErrors : public ::testing::TestWithParam<Ending> {};

TEST_P(ClosingErrors, CloseTheConnection) {
  const Ending& e = GetParam();
  RFC_CONNECTION_HANDLE c = open();
  Call call(c, "Z_VSIM_RAISE");
  if (*e.messageType) {
    call.setString("MESSAGE_ID", "ZVSIM");
    call.setString("MESSAGE_NUMBER", "007");
    call.setString("MESSAGE_TYPE", e.messageType);
    call.setString("MESSAGE_TEXT", "Stop &1");
    call.setString("MESSAGE_V1", "here");
  } else {
    call.setString("RUNTIME_ERROR", e.runtimeError);
  }
  RFC_ERROR_INFO info;
  EXPECT_EQ(call.invoke(&info), e.rc) << describe(e.rc, info);
  EXPECT_EQ(info.group, RFC_ERROR_GROUP::ABAP_RUNTIME_FAILURE);
  EXPECT_EQ(utf8(info.key), e.key);
  if (*e.messageType) {
    EXPECT_EQ(utf8(info.message), "Stop here");
    EXPECT_EQ(utf8(info.abapMsgType), e.messageType);
    EXPECT_EQ(utf8(info.abapMsgNumber), "007");
    EXPECT_EQ(utf8(info.abapMsgV1), "here");
  }
  EXPECT_EQ(RfcPing(c, &info), RFC_INVALID_HANDLE) << "the connection was closed";
  EXPECT_EQ(RfcCloseConnection(c, &info), RFC_OK);
}

INSTANTIATE_TEST_SUITE_P(Table, ClosingErrors,
                         ::testing::Values(Ending{"MessageE", "E", "", RFC_ABAP_MESSAGE, "ZVSIM"},
                                           Ending{"MessageA", "A", "", RFC_ABAP_MESSAGE, "ZVSIM"},
                                           Ending{"MessageX", "X", "", RFC_ABAP_MESSAGE, "ZVSIM"},
                                           Ending{"RuntimeError", "", "COMPUTE_INT_ZERODIVIDE",
                                                  RFC_ABAP_RUNTIME_FAILURE, "COMPUTE_INT_ZERODIVIDE"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Errors, AValueTheSystemCannotConvertIsARuntimeError) {
  // A description of the application's own that calls IV_NUMC a character field.
  RFC_FUNCTION_DESC_HANDLE f = RfcCreateFunctionDesc(u"Z_VSIM_TYPES", &info);
  RFC_PARAMETER_DESC p{};
  const std::u16string name = u"IV_NUMC";
  std::copy(name.begin(), name.end(), p.name);
  p.type = RFCTYPE_CHAR;
  p.direction = RFC_IMPORT;
  p.nucLength = 10;
  p.ucLength = 20;
  ASSERT_EQ(RfcAddParameter(f, &p, &info), RFC_OK);
  RFC_FUNCTION_HANDLE h = RfcCreateFunction(f, &info);
  setString(h, "IV_NUMC", "abc");
  EXPECT_EQ(RfcInvoke(c, h, &info), RFC_ABAP_RUNTIME_FAILURE);
  EXPECT_EQ(utf8(info.key), "CONVT_NO_NUMBER");
  RfcDestroyFunction(h, nullptr);
  RfcDestroyFunctionDesc(f, nullptr);
}

TEST_F(Errors, ARestrictedUserGetsARuntimeFailure) {
  RFC_CONNECTION_HANDLE r = open(Params::logon().set("user", "RESTRICTED"));
  Call call(r, "Z_VSIM_COUNTER");
  EXPECT_EQ(call.invoke(&info), RFC_ABAP_RUNTIME_FAILURE);
  EXPECT_EQ(utf8(info.key), "RFC_AUTHORIZATION_FAILURE");
  RfcCloseConnection(r, nullptr);
}

}  // namespace
