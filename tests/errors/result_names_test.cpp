#include "platform/result_names.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

struct Case {
  HRESULT hr;
  const char16_t* name;
  const char16_t* message;
};

TEST(HResultMessage, Table) {
  const Case cases[] = {
      {E_INVALIDARG, u"E_INVALIDARG", u"The parameter is incorrect."},
      {E_POINTER, u"E_POINTER", u"Invalid pointer"},
      {E_NOTIMPL, u"E_NOTIMPL", u"Not implemented"},
      {E_FAIL, u"E_FAIL", u"Unspecified error"},
      {E_UNEXPECTED, u"E_UNEXPECTED", u"Catastrophic failure"},
      {E_NOINTERFACE, u"E_NOINTERFACE", u"No such interface supported"},
      {E_OUTOFMEMORY, u"E_OUTOFMEMORY", u"Not enough memory resources are available to complete this operation."},
      {E_ACCESSDENIED, u"E_ACCESSDENIED", u"Access is denied."},
      {DISP_E_TYPEMISMATCH, u"DISP_E_TYPEMISMATCH", u"Type mismatch."},
      {DISP_E_OVERFLOW, u"DISP_E_OVERFLOW", u"Out of present range."},
      {DISP_E_BADINDEX, u"DISP_E_BADINDEX", u"Invalid index."},
      {DISP_E_EXCEPTION, u"DISP_E_EXCEPTION", u"Exception occurred."},
      {DISP_E_MEMBERNOTFOUND, u"DISP_E_MEMBERNOTFOUND", u"Member not found."},
      {DISP_E_PARAMNOTOPTIONAL, u"DISP_E_PARAMNOTOPTIONAL", u"Parameter not optional."},
      {DISP_E_BADVARTYPE, u"DISP_E_BADVARTYPE", u"Bad variable type."},
      {DISP_E_DIVBYZERO, u"DISP_E_DIVBYZERO", u"Division by zero."},
      {REGDB_E_CLASSNOTREG, u"REGDB_E_CLASSNOTREG", u"Class not registered"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(HResultMessage(c.hr), c.message) << std::hex << c.hr;
    EXPECT_EQ(HResultName(c.hr), c.name) << std::hex << c.hr;
    EXPECT_TRUE(HResultKnown(c.hr));
  }
}

TEST(HResultMessage, UnknownCodeIsTheCodeAlone) {
  EXPECT_EQ(HResultMessage(static_cast<HRESULT>(0x80040250)), u"0x80040250");
  EXPECT_EQ(HResultMessage(static_cast<HRESULT>(0x12345)), u"0x00012345");
  EXPECT_EQ(HResultName(static_cast<HRESULT>(0x80040250)), u"");
  EXPECT_FALSE(HResultKnown(static_cast<HRESULT>(0x80040250)));
}

// Codes the component returns have a name; the connection-point codes have
// no text of the platform's, so their message stays the number.
TEST(HResultMessage, ConnectionPointCodesAreNamedWithoutAText) {
  EXPECT_EQ(HResultName(CONNECT_E_NOCONNECTION), u"CONNECT_E_NOCONNECTION");
  EXPECT_EQ(HResultName(CONNECT_E_ADVISELIMIT), u"CONNECT_E_ADVISELIMIT");
  EXPECT_EQ(HResultName(CONNECT_E_CANNOTCONNECT), u"CONNECT_E_CANNOTCONNECT");
  EXPECT_EQ(HResultName(CONNECT_E_OVERRIDDEN), u"CONNECT_E_OVERRIDDEN");
  EXPECT_EQ(static_cast<uint32_t>(CONNECT_E_NOCONNECTION), 0x80040200u);
  EXPECT_EQ(HResultMessage(CONNECT_E_ADVISELIMIT), u"0x80040201");
  EXPECT_FALSE(HResultKnown(CONNECT_E_CANNOTCONNECT));
}

TEST(HResultMessage, DisconnectedObject) {
  EXPECT_EQ(static_cast<uint32_t>(RPC_E_DISCONNECTED), 0x80010108u);
  EXPECT_EQ(HResultName(RPC_E_DISCONNECTED), u"RPC_E_DISCONNECTED");
  EXPECT_EQ(HResultMessage(RPC_E_DISCONNECTED), u"The object invoked has disconnected from its clients.");
}

TEST(HResultMessage, SuccessCodes) {
  EXPECT_EQ(HResultName(S_OK), u"S_OK");
  EXPECT_EQ(HResultName(S_FALSE), u"S_FALSE");
  EXPECT_EQ(HResultMessage(S_FALSE), u"0x00000001");
  EXPECT_EQ(NOERROR, S_OK);
}

// Every code of the lookups has its macro, with the same number.
TEST(HResultMessage, EveryRowIsUniqueAndNamed) {
  std::set<uint32_t> codes;
  for (const auto& row : veltrane::errors::kResults) {
    EXPECT_TRUE(codes.insert(row.code).second) << std::hex << row.code;
    EXPECT_NE(std::u16string(row.name), u"");
  }
  EXPECT_EQ(codes.size(), std::size(veltrane::errors::kResults));
}

TEST(HResultMessage, Win32CodesThroughTheirResult) {
  EXPECT_EQ(HResultMessage(HRESULT_FROM_WIN32(2)), u"The system cannot find the file specified.");
  EXPECT_EQ(HResultMessage(HRESULT_FROM_WIN32(0x7E)), u"The specified module could not be found.");
}

}  // namespace
