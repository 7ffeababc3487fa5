// The classic connect string, built from RfcSystemData and LogonData.
#include <gtest/gtest.h>

#include "rfc/connect_string.h"

namespace {

TEST(ClassicConnectString, AnUnderscoreInTheUserQuotesIt) {
  ClassicLogon logon;
  logon.connectString = u"ASHOST=h SYSNR=00";
  logon.user = u"A_B";
  EXPECT_EQ(BuildClassicConnectString(logon).text, u"ASHOST=h SYSNR=00 USER=\"A_B\"");
}

TEST(ClassicConnectString, EveryCharacterOfTheSetQuotesAndOthersDoNot) {
  for (char16_t c : std::u16string(u" \"\\,/@:;_")) {
    const std::u16string value = std::u16string(u"a") + c;
    EXPECT_EQ(QuoteLogonValue(value).front(), u'"') << int(c);
  }
  EXPECT_EQ(QuoteLogonValue(u"plain-Value.1#"), u"plain-Value.1#");
}

TEST(ClassicConnectString, AQuoteInThePasswordGetsABackslash) {
  ClassicLogon logon;
  logon.password = u"pa\"ss";
  EXPECT_EQ(BuildClassicConnectString(logon).text, u" PASSWD=\"pa\\\"ss\"");
}

TEST(ClassicConnectString, LanguageGoesOutInUpperCase) {
  ClassicLogon logon;
  logon.language = u"de";
  EXPECT_EQ(BuildClassicConnectString(logon).text, u" LANG=DE");
}

TEST(ClassicConnectString, VisualModeAndDebug) {
  ClassicLogon logon;
  logon.connectString = u"X=1";
  logon.visualMode = 2;
  EXPECT_EQ(BuildClassicConnectString(logon).text, u"X=1 USE_SAPGUI=2");
  logon.visualMode = 0;
  logon.debug = false;
  EXPECT_EQ(BuildClassicConnectString(logon).text, u"X=1");
  logon.debug = true;
  EXPECT_EQ(BuildClassicConnectString(logon).text, u"X=1 ABAP_DEBUG=1");
}

TEST(ClassicConnectString, AnEmptyConnectStringStartsWithABlank) {
  ClassicLogon logon;
  logon.client = u"001";
  EXPECT_EQ(BuildClassicConnectString(logon).text, u" CLIENT=001");
}

TEST(ClassicConnectString, EveryPieceInItsOrder) {
  ClassicLogon logon;
  logon.connectString = u"ASHOST=h";
  logon.client = u"001";
  logon.user = u"DEMO";
  logon.password = u"secret";
  logon.language = u"en";
  logon.sso2Ticket = u"TICKET";
  logon.x509Cert = u"CERT";
  logon.extIdData = u"EXT";
  logon.extIdType = u"TYPE";
  logon.visualMode = 1;
  logon.debug = true;
  const ClassicConnectString built = BuildClassicConnectString(logon);
  EXPECT_EQ(built.text,
            u"ASHOST=h CLIENT=001 USER=DEMO PASSWD=secret LANG=EN MYSAPSSO2=TICKET X509CERT=CERT EXTIDDATA=EXT "
            u"EXTIDTYPE=TYPE USE_SAPGUI=1 ABAP_DEBUG=1");
  EXPECT_EQ(built.traced,
            u"ASHOST=h CLIENT=001 USER=DEMO PASSWD=****** LANG=EN MYSAPSSO2=TICKET X509CERT=CERT EXTIDDATA=EXT "
            u"EXTIDTYPE=TYPE USE_SAPGUI=1 ABAP_DEBUG=1");
}

TEST(ClassicConnectString, TheTraceHidesTheFirstOccurrenceOfTheQuotedPassword) {
  ClassicLogon logon;
  logon.user = u"U";
  logon.password = u"a b";
  const ClassicConnectString built = BuildClassicConnectString(logon);
  EXPECT_EQ(built.text, u" USER=U PASSWD=\"a b\"");
  EXPECT_EQ(built.traced, u" USER=U PASSWD=*****");
  EXPECT_EQ(built.traced.find(u"a b"), std::u16string::npos);
}

}  // namespace
