#include "runtime/hresult_text.h"

#include <gtest/gtest.h>

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
  EXPECT_EQ(HResultMessage(static_cast<HRESULT>(0x80040201)), u"0x80040201");
  EXPECT_EQ(HResultMessage(static_cast<HRESULT>(0x12345)), u"0x00012345");
  EXPECT_EQ(HResultName(static_cast<HRESULT>(0x80040201)), u"");
  EXPECT_FALSE(HResultKnown(static_cast<HRESULT>(0x80040201)));
}

TEST(HResultMessage, Win32CodesThroughTheirResult) {
  EXPECT_EQ(HResultMessage(HRESULT_FROM_WIN32(2)), u"The system cannot find the file specified.");
  EXPECT_EQ(HResultMessage(HRESULT_FROM_WIN32(0x7E)), u"The specified module could not be found.");
}

}  // namespace
