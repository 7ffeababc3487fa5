// Shared by the conformance tests of our NW RFC SDK: veltrane-sim for the whole program, logon
// parameters, and small helpers for SAP_UC texts and handles.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "nwrfc/nwrfc_functions.h"

namespace sdktest {

std::u16string u(const std::string& s);
std::string utf8(const SAP_UC* s);
std::string utf8(std::u16string_view s);

// Address of the simulated system's RFC front, and its SOAP URL.
const std::string& rfcHost();
std::string rfcPort();
const std::string& soapUrl();

// Connection parameters built from name=value pairs (the texts live as long as the object).
class Params {
 public:
  Params() = default;
  Params(std::initializer_list<std::pair<std::string, std::string>> pairs);
  // The default logon: the simulated system, client 001, DEMO, Welcome1, EN.
  static Params logon();
  Params& set(const std::string& name, const std::string& value);
  Params& remove(const std::string& name);
  const RFC_CONNECTION_PARAMETER* data();
  unsigned count() const { return static_cast<unsigned>(pairs_.size()); }

 private:
  std::vector<std::pair<std::u16string, std::u16string>> pairs_;
  std::vector<RFC_CONNECTION_PARAMETER> array_;
};

RFC_CONNECTION_HANDLE open(Params p = Params::logon());

// A function container for a module, with its description from the connection.
class Call {
 public:
  Call(RFC_CONNECTION_HANDLE c, const std::string& function);
  ~Call();
  RFC_FUNCTION_HANDLE handle() const { return handle_; }
  operator DATA_CONTAINER_HANDLE() const { return handle_; }
  RFC_RC invoke(RFC_ERROR_INFO* info = nullptr);

  void setString(const std::string& name, const std::string& value);
  void setInt(const std::string& name, int value);
  std::string getString(const std::string& name);  // through RfcGetString
  int getInt(const std::string& name);

 private:
  RFC_CONNECTION_HANDLE connection_;
  RFC_FUNCTION_HANDLE handle_ = nullptr;
};

// Field access on any container by UTF-8 name.
std::string getString(DATA_CONTAINER_HANDLE c, const std::string& name);
void setString(DATA_CONTAINER_HANDLE c, const std::string& name, const std::string& value);

// "RFC_OK" and so on, with the record's key and message when not OK.
std::string describe(RFC_RC rc, const RFC_ERROR_INFO& info);

// A test with a connection of the default logon and an error record.
class Connected : public ::testing::Test {
 protected:
  void SetUp() override { c = open(); }
  void TearDown() override { RfcCloseConnection(c, nullptr); }
  RFC_CONNECTION_HANDLE c = nullptr;
  RFC_ERROR_INFO info{};
};

// Starts a fault of the RFC front for the next request of this user (Z_VSIM_FAULT).
void planFault(const std::string& fault, const std::string& user = "DEMO");

}  // namespace sdktest

#define EXPECT_RC(expected, call, info) EXPECT_EQ((expected), (call)) << sdktest::describe((expected), (info))
