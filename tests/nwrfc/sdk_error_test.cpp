// The SDK's error record as ErrorInfo shows it: the group mapping and the
// whole record kept.
#include "nwrfc/sdk_error.h"
#include "nwrfc/sdk_text.h"
#include "nwrfc_fixture.h"

namespace nwtest {
namespace {

using veltrane::nwrfc::CopySapText;
using veltrane::nwrfc::ErrorGroupOf;
using veltrane::nwrfc::ErrorRecordOf;

TEST(SdkError, EachGroupOfTheSdkHasItsErrorGroup) {
  EXPECT_EQ(ErrorGroupOf(RFC_ERROR_GROUP::OK), RFCERROR_NO_ERROR);
  EXPECT_EQ(ErrorGroupOf(RFC_ERROR_GROUP::ABAP_APPLICATION_FAILURE), RFCERROR_APPLICATION_EXCEPTION);
  EXPECT_EQ(ErrorGroupOf(RFC_ERROR_GROUP::ABAP_RUNTIME_FAILURE), RFCERROR_PROGRAM);
  EXPECT_EQ(ErrorGroupOf(RFC_ERROR_GROUP::LOGON_FAILURE), RFCERROR_LOGON_FAILURE);
  EXPECT_EQ(ErrorGroupOf(RFC_ERROR_GROUP::COMMUNICATION_FAILURE), RFCERROR_COMMUNICATION);
  EXPECT_EQ(ErrorGroupOf(RFC_ERROR_GROUP::EXTERNAL_RUNTIME_FAILURE), RFCERROR_PROGRAM);
  EXPECT_EQ(ErrorGroupOf(RFC_ERROR_GROUP::EXTERNAL_APPLICATION_FAILURE), RFCERROR_PROGRAM);
  EXPECT_EQ(ErrorGroupOf(RFC_ERROR_GROUP::EXTERNAL_AUTHORIZATION_FAILURE), RFCERROR_PROGRAM);
  EXPECT_EQ(ErrorGroupOf(RFC_ERROR_GROUP::EXTERNAL_AUTHENTICATION_FAILURE), RFCERROR_INTERNAL);
  EXPECT_EQ(ErrorGroupOf(RFC_ERROR_GROUP::CRYPTOLIB_FAILURE), RFCERROR_INTERNAL);
  EXPECT_EQ(ErrorGroupOf(static_cast<RFC_ERROR_GROUP>(77)), RFCERROR_INTERNAL);
}

TEST(SdkError, TheRecordKeepsEverythingTheSdkGave) {
  RFC_ERROR_INFO info{};
  info.code = RFC_ABAP_MESSAGE;
  info.group = RFC_ERROR_GROUP::ABAP_RUNTIME_FAILURE;
  CopySapText(info.key, u"ZV-002");
  CopySapText(info.message, u"Stop here");
  CopySapText(info.abapMsgClass, u"ZV");
  CopySapText(info.abapMsgType, u"E");
  CopySapText(info.abapMsgNumber, u"002");
  CopySapText(info.abapMsgV1, u"one");
  CopySapText(info.abapMsgV4, u"four");
  const RfcErrorRecord r = ErrorRecordOf(info);
  EXPECT_EQ(r.group, RFCERROR_PROGRAM);
  EXPECT_EQ(r.key, u"ZV-002");
  EXPECT_EQ(r.message, u"Stop here");
  EXPECT_EQ(r.code, RFC_ABAP_MESSAGE);
  EXPECT_EQ(r.messageClass, u"ZV");
  EXPECT_EQ(r.messageType, u"E");
  EXPECT_EQ(r.messageNumber, u"002");
  EXPECT_EQ(r.messageV1, u"one");
  EXPECT_EQ(r.messageV2, u"");
  EXPECT_EQ(r.messageV4, u"four");
}

TEST(SdkError, ABufferWithoutTerminatorIsReadToItsEnd) {
  SAP_UC text[3] = {u'a', u'b', u'c'};
  EXPECT_EQ(veltrane::nwrfc::SapText(text), u"abc");
  SAP_UC cut[4];
  CopySapText(cut, u"longer");
  EXPECT_EQ(std::u16string(cut), u"lon");
}

}  // namespace
}  // namespace nwtest
