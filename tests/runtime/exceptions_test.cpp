#include "runtime/exceptions.h"

#include <gtest/gtest.h>

#include "runtime/string_table.h"
#include "veltrane_errors.h"

namespace {

TEST(BaseException, IsAStandardExceptionWithItsText) {
  try {
    throw BaseException("narrow \xC3\xA4");
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "narrow \xC3\xA4");
  }
}

TEST(CXVeltrane, KindWithMessageAndNoContext) {
  CXVeltrane e(4, u"not a number");
  EXPECT_STREQ(e.what(), "NUMERIC_CONVERSION(4) : not a number");
  EXPECT_EQ(e.Kind(), 4);
  EXPECT_EQ(e.KindName(), u"NUMERIC_CONVERSION");
  EXPECT_EQ(e.Message(), u"not a number");
  EXPECT_EQ(e.Context(), u"");
  EXPECT_EQ(e.Value(), u"");
}

TEST(CXVeltrane, ContextAndValue) {
  CXVeltrane e(CXVeltrane::NUMERIC_CONVERSION, u"not a number", u"RfcVariantToData(),TYPE_INT", u"abc");
  EXPECT_STREQ(e.what(), "NUMERIC_CONVERSION(4) : not a number(RfcVariantToData(),TYPE_INT, value=abc)");
}

TEST(CXVeltrane, ContextWithoutValue) {
  CXVeltrane e(CXVeltrane::DATE_TIME_CONVERSION, u"bad date", u"RfcVariantToData(),TYPE_DATE");
  EXPECT_STREQ(e.what(), "DATE_TIME_CONVERSION(5) : bad date(RfcVariantToData(),TYPE_DATE)");
}

TEST(CXVeltrane, ValueWithoutContextIsNotShown) {
  CXVeltrane e(CXVeltrane::STRING_CONVERSION, u"m", nullptr, u"v");
  EXPECT_STREQ(e.what(), "STRING_CONVERSION(3) : m");
  EXPECT_EQ(e.Value(), u"v");
}

TEST(CXVeltrane, NullTextsReadAsEmpty) {
  CXVeltrane e(CXVeltrane::TIMEOUT, static_cast<const char16_t*>(nullptr), nullptr, nullptr);
  EXPECT_STREQ(e.what(), "TIMEOUT(11) : ");
  EXPECT_EQ(e.Message(), u"");
}

TEST(CXVeltrane, NonAsciiTextIsUtf8) {
  CXVeltrane e(CXVeltrane::OTHER, u"Gr\u00FC\u00DFe", u"\u20AC");
  EXPECT_STREQ(e.what(),
               "OTHER(15) : Gr\xC3\xBC\xC3\x9F"
               "e(\xE2\x82\xAC)");
}

TEST(CXVeltrane, KindTable) {
  struct Row {
    int kind;
    const char16_t* name;
    UINT code;
  };
  const Row rows[] = {
      {0, u"MEMORY_ALLOC_EXCEPTION", 535},
      {1, u"XSTRING_ARRAYDIMS_EXCEPTION", 536},
      {2, u"VARIANTARRAY_EXCEPTION", 534},
      {3, u"STRING_CONVERSION", 532},
      {4, u"NUMERIC_CONVERSION", 531},
      {5, u"DATE_TIME_CONVERSION", 533},
      {6, u"BCD_CONVERSION_TOO_LARGE", 530},
      {7, u"BCD_CONVERSION_INVALID", 530},
      {8, u"ERROR_INSTALL_STRUCT", 537},
      {9, u"ERROR_COMPLEX_TYPE", 518},
      {10, u"ERROR_FILE_ACCESS", 519},
      {11, u"TIMEOUT", 519},
      {12, u"SOAP_ERROR", 519},
      {13, u"WINHTTP_ERROR", 519},
      {14, u"COM_ERROR", 519},
      {15, u"OTHER", 519},
  };
  for (const auto& r : rows) {
    CXVeltrane e(r.kind, u"m");
    EXPECT_EQ(e.KindName(), r.name) << r.kind;
    EXPECT_EQ(static_cast<UINT>(e.ClientText()), r.code) << r.kind;
    EXPECT_FALSE(StringTableText(r.code).empty());
  }
}

TEST(CXVeltrane, KindOutsideTheTableIsNamedOther) {
  CXVeltrane e(99, u"m");
  EXPECT_EQ(e.Kind(), 99);
  EXPECT_EQ(e.KindName(), u"OTHER");
  EXPECT_STREQ(e.what(), "OTHER(99) : m");
  EXPECT_EQ(static_cast<UINT>(e.ClientText()), 519u);
  EXPECT_EQ(CXVeltrane(-1, u"m").KindName(), u"OTHER");
}

TEST(CXSoapErrorResponse, TextAndMembers) {
  CXSoapErrorResponse e(105, u"SOAP-ENV:Client", u"NOT_FOUND", u"detail text");
  EXPECT_STREQ(e.what(), "CXSoapErrorResponse: SOAP-ENV:Client NOT_FOUND detail text");
  EXPECT_EQ(e.Kind(), CXVeltrane::SOAP_ERROR);
  EXPECT_EQ(e.Group(), 105);
  EXPECT_EQ(e.FaultCode(), u"SOAP-ENV:Client");
  EXPECT_EQ(e.FaultText(), u"NOT_FOUND");
  EXPECT_EQ(e.Detail(), u"detail text");
  EXPECT_EQ(static_cast<UINT>(e.ClientText()), 519u);
  const CXVeltrane& base = e;
  EXPECT_STREQ(base.what(), "CXSoapErrorResponse: SOAP-ENV:Client NOT_FOUND detail text");
}

TEST(CXWinHTTPError, NamedCodes) {
  CXWinHTTPError timeout(12002);
  EXPECT_STREQ(timeout.what(), "ERROR_WINHTTP_TIMEOUT");
  EXPECT_EQ(timeout.Kind(), CXVeltrane::WINHTTP_ERROR);
  EXPECT_EQ(timeout.Code(), 12002u);
  EXPECT_STREQ(CXWinHTTPError(12029).what(), "ERROR_WINHTTP_CANNOT_CONNECT");
  EXPECT_STREQ(CXWinHTTPError(12001).what(), "ERROR_WINHTTP_OUT_OF_HANDLES");
  EXPECT_STREQ(CXWinHTTPError(12189).what(), "ERROR_WINHTTP_RESERVED_189");
  EXPECT_STREQ(CXWinHTTPError(12192).what(), "ERROR_WINHTTP_FEATURE_DISABLED");
}

TEST(CXWinHTTPError, OtherNumbers) {
  // A gap in the range, with no system message.
  EXPECT_STREQ(CXWinHTTPError(12003).what(), "Unknown error code 12003");
  EXPECT_STREQ(CXWinHTTPError(12193).what(), "Unknown error code 12193");
  // A number with a system message.
  EXPECT_STREQ(CXWinHTTPError(5).what(), "Access is denied.");
  EXPECT_STREQ(CXWinHTTPError(0x57).what(), "The parameter is incorrect.");
}

TEST(CXCOMError, TextIsThePlatformText) {
  CXCOMError e(E_INVALIDARG);
  EXPECT_STREQ(e.what(), "The parameter is incorrect.");
  EXPECT_EQ(e.Result(), E_INVALIDARG);
  EXPECT_EQ(e.Kind(), CXVeltrane::COM_ERROR);
  EXPECT_EQ(static_cast<UINT>(e.ClientText()), 519u);
  EXPECT_STREQ(CXCOMError(E_POINTER).what(), "Invalid pointer");
  EXPECT_STREQ(CXCOMError(static_cast<HRESULT>(0x80040207)).what(), "0x80040207");
}

TEST(CXCOMError, ThrowIfFailed) {
  EXPECT_EQ(ThrowIfFailed(S_FALSE), S_FALSE);
  try {
    ThrowIfFailed(E_FAIL);
    ADD_FAILURE();
  } catch (const CXVeltrane& e) {
    const auto* com = dynamic_cast<const CXCOMError*>(&e);
    ASSERT_NE(com, nullptr);
    EXPECT_EQ(com->Result(), E_FAIL);
  }
}

TEST(SEHException, Text) {
  _SEHException e(0xC0000005);
  EXPECT_STREQ(e.what(), "SEH Exception 0xc0000005\n");
  EXPECT_EQ(e.Code(), 0xC0000005u);
  const BaseException& base = e;
  EXPECT_STREQ(base.what(), "SEH Exception 0xc0000005\n");
  EXPECT_STREQ(_SEHException(0x1F).what(), "SEH Exception     0x1f\n");
}

TEST(Exceptions, CatchOrderAtASessionBoundary) {
  auto classify = [](auto thrower) -> std::string {
    try {
      thrower();
    } catch (const CXVeltrane&) {
      return "CXVeltrane";
    } catch (const std::exception&) {
      return "std";
    } catch (...) {
      return "other";
    }
    return "none";
  };
  EXPECT_EQ(classify([] { throw CXWinHTTPError(12002); }), "CXVeltrane");
  EXPECT_EQ(classify([] { throw CXCOMError(E_FAIL); }), "CXVeltrane");
  EXPECT_EQ(classify([] { throw _SEHException(1); }), "std");
  EXPECT_EQ(classify([] { throw 1; }), "other");
}

}  // namespace
