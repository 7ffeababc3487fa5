// Shared by the conformance tests of our classic RFC SDK: veltrane-sim for the whole program, the
// connect string, parameter arrays that own their names, and small text helpers.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "rfc/rfc_functions.h"

namespace rfctest {

using namespace veltrane::sdk::rfc;

std::u16string u(const std::string& ascii);
std::string text(std::u16string_view s);  // ASCII only; other units become '?'
std::string text(const SAP_UC* s);
// A blank-padded field of `units` code units.
std::string field(const void* p, size_t units);
void setField(void* p, size_t units, const std::string& value);

const std::string& rfcHost();
std::string rfcPort();

// "ASHOST=... GWSERV=... CLIENT=001 USER=DEMO PASSWD=Welcome1 LANG=EN TOUPPER=0" and `extra`.
std::string connectString(const std::string& extra = {});
// Opens a connection; fails the test when refused.
RFC_HANDLE open(const std::string& extra = {});

// The thread's last error ("group key: message"), or "none".
std::string lastError();

// Null-terminated arrays of parameters and tables whose names live with the object.
class Parameters {
 public:
  Parameters& add(const std::string& name, RFC_TYPEHANDLE type, void* addr, unsigned leng);
  RFC_PARAMETER* data();

 private:
  std::vector<std::unique_ptr<std::u16string>> names_;
  std::vector<RFC_PARAMETER> entries_{RFC_PARAMETER{}};  // ends with the terminator
};

class Tables {
 public:
  ~Tables();
  // A table entry; with `create` the table is created here (and deleted with the object).
  Tables& add(const std::string& name, RFC_TYPEHANDLE rowType, unsigned rowLength, bool create = true);
  RFC_TABLE* data();
  ITAB_H handle(size_t i) const { return entries_.at(i).ithandle; }

 private:
  std::vector<std::unique_ptr<std::u16string>> names_;
  std::vector<RFC_TABLE> entries_{RFC_TABLE{}};
};

// A test with a connection of the default logon.
class Connected : public ::testing::Test {
 protected:
  void SetUp() override { h = open(); }
  void TearDown() override { RfcCloseU(h); }
  RFC_HANDLE h = 0;
};

// Calls a function synchronously with CHAR parameters in and out (each of `units` code units).
struct CharCall {
  RFC_RC rc = RFC_OK;
  std::string exception;
  std::vector<std::string> results;
};
CharCall callChars(RFC_HANDLE h, const std::string& function, const std::vector<std::pair<std::string, std::string>>& in,
                   const std::vector<std::pair<std::string, unsigned>>& out, unsigned units = 64);

}  // namespace rfctest
