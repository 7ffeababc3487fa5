// The URL of a BSP window, the parameters a page returns, and the window's
// rectangle on the screen.
#include "bsp/bsp_url.h"

#include <gtest/gtest.h>

using namespace veltrane::bsp;

namespace {

UrlSource Server(std::u16string protocol = u"http") {
  UrlSource s;
  s.protocol = std::move(protocol);
  s.host = u"bsp.example.com";
  s.port = 8000;
  return s;
}

}  // namespace

TEST(BuildUrl, RelativeApplicationWithSlashStandsOnProtocolHostAndPort) {
  EXPECT_EQ(BuildUrl(u"/sap/bc/bsp/sap/zapp/start.htm", Server()),
            u"http://bsp.example.com:8000/sap/bc/bsp/sap/zapp/start.htm");
}

TEST(BuildUrl, RelativeApplicationWithoutSlashGetsOne) {
  EXPECT_EQ(BuildUrl(u"sap/bc/bsp/sap/zapp/start.htm", Server()),
            u"http://bsp.example.com:8000/sap/bc/bsp/sap/zapp/start.htm");
}

TEST(BuildUrl, ProtocolWithAndWithoutSeparatorGiveTheSameUrl) {
  EXPECT_EQ(BuildUrl(u"/a.htm", Server(u"https")), BuildUrl(u"/a.htm", Server(u"https://")));
  EXPECT_EQ(BuildUrl(u"/a.htm", Server(u"https")), u"https://bsp.example.com:8000/a.htm");
}

TEST(BuildUrl, AbsoluteUrlIgnoresTheServerAndKeepsItsClient) {
  UrlSource s = Server();
  s.client = u"800";
  s.language = u"DE";
  EXPECT_EQ(BuildUrl(u"http://other:1/app.htm?sap-client=100", s),
            u"http://other:1/app.htm?sap-client=100&sap-language=DE");
}

TEST(BuildUrl, ClientAndLanguageFollowQuestionMarkThenAmpersand) {
  UrlSource s = Server();
  s.client = u"001";
  s.language = u"EN";
  EXPECT_EQ(BuildUrl(u"/a.htm", s), u"http://bsp.example.com:8000/a.htm?sap-client=001&sap-language=EN");
  EXPECT_EQ(BuildUrl(u"/a.htm?x=1", s), u"http://bsp.example.com:8000/a.htm?x=1&sap-client=001&sap-language=EN");
}

TEST(BuildUrl, EmptyClientAddsNoClient) {
  UrlSource s = Server();
  s.language = u"EN";
  EXPECT_EQ(BuildUrl(u"/a.htm", s), u"http://bsp.example.com:8000/a.htm?sap-language=EN");
}

TEST(BuildUrl, LanguageNamedInTheUrlIsNotRepeated) {
  UrlSource s = Server();
  s.language = u"EN";
  EXPECT_EQ(BuildUrl(u"/a.htm?sap-language=DE", s), u"http://bsp.example.com:8000/a.htm?sap-language=DE");
}

TEST(BuildUrl, ParametersAlwaysStartWithAmpersand) {
  UrlSource s = Server();
  s.parameters = {{u"A", u"1"}, {u"B", u"x y"}};
  EXPECT_EQ(BuildUrl(u"/a.htm", s), u"http://bsp.example.com:8000/a.htm&A=1&B=x y");
  s.client = u"001";
  EXPECT_EQ(BuildUrl(u"/a.htm", s), u"http://bsp.example.com:8000/a.htm?sap-client=001&A=1&B=x y");
}

TEST(ReturnedParameters, FirstPairUntracedTheOthersTraced) {
  const auto p = ReturnedParameters(u"http://h:1/exit.htm?A=1&B=2&C=");
  ASSERT_EQ(p.size(), 3u);
  EXPECT_EQ(p[0].name, u"A");
  EXPECT_EQ(p[0].value, u"1");
  EXPECT_FALSE(p[0].traced);
  EXPECT_EQ(p[1].name, u"B");
  EXPECT_TRUE(p[1].traced);
  EXPECT_EQ(p[2].name, u"C");
  EXPECT_EQ(p[2].value, u"");
}

TEST(ReturnedParameters, UrlWithoutQuestionMarkOrEmptyGivesNothing) {
  EXPECT_TRUE(ReturnedParameters(u"http://h:1/exit.htm").empty());
  EXPECT_TRUE(ReturnedParameters(u"").empty());
  EXPECT_TRUE(ReturnedParameters(u"http://h:1/exit.htm?novalue").empty());
}

TEST(ReturnedParameters, QueryBehindTheLastQuestionMarkIsRead) {
  const auto p = ReturnedParameters(u"http://h/a?x=1?b=%41");
  ASSERT_EQ(p.size(), 1u);
  EXPECT_EQ(p[0].name, u"b");
  EXPECT_EQ(p[0].value, u"%41");  // no percent-decoding
}

TEST(ReturnedParameters, SapParamsCarriesTheQueryInBase64) {
  // "A=1&B=two" in Base64, then a pair that is ignored.
  const auto p = ReturnedParameters(u"http://h/exit.htm?sap-params=QT0xJkI9dHdv&C=3");
  ASSERT_EQ(p.size(), 2u);
  EXPECT_EQ(p[0].name, u"A");
  EXPECT_EQ(p[0].value, u"1");
  EXPECT_TRUE(p[0].traced);
  EXPECT_EQ(p[1].name, u"B");
  EXPECT_EQ(p[1].value, u"two");
  EXPECT_TRUE(p[1].traced);
}

TEST(ReturnedParameters, SapParamsDecodesIntoLatin1AndStopsAtTheFirstForeignCharacter) {
  // "N=\xC3\xA4" (UTF-8 of a-umlaut) stays two Latin-1 characters; "=" ends the text.
  const auto p = ReturnedParameters(u"http://h/exit.htm?sap-params=Tj3DpA==");
  ASSERT_EQ(p.size(), 1u);
  EXPECT_EQ(p[0].value, std::u16string({0xC3, 0xA4}));
  const auto cut = ReturnedParameters(u"http://h/exit.htm?sap-params=QT0x*JkI9dHdv");
  ASSERT_EQ(cut.size(), 1u);
  EXPECT_EQ(cut[0].name, u"A");
  EXPECT_EQ(cut[0].value, u"1");
}

TEST(ReturnedParameters, SapParamsAfterTheFirstPairIsAnOrdinaryParameter) {
  const auto p = ReturnedParameters(u"http://h/exit.htm?A=1&sap-params=QT0x");
  ASSERT_EQ(p.size(), 2u);
  EXPECT_EQ(p[1].name, u"sap-params");
  EXPECT_EQ(p[1].value, u"QT0x");
}

TEST(TargetRectangle, LeftBeyondTheScreenMovesToHalfItsWidth) {
  const WindowRect r = TargetRectangle(1920, 1080, 5000, 100, 500, 300);
  EXPECT_EQ(r.left, 960);
  EXPECT_EQ(r.top, 100);
  EXPECT_EQ(r.right, 1460);
  EXPECT_EQ(r.bottom, 400);
}

TEST(TargetRectangle, TopBeyondTheScreenMovesToHalfItsHeightAndEdgesAreNotLimited) {
  const WindowRect r = TargetRectangle(1920, 1080, 1900, 2000, 500, 300);
  EXPECT_EQ(r.left, 1900);
  EXPECT_EQ(r.top, 540);
  EXPECT_EQ(r.right, 2400);
  EXPECT_EQ(r.bottom, 840);
  const WindowRect edge = TargetRectangle(1920, 1080, 1920, 1080, 10, 10);
  EXPECT_EQ(edge.left, 1920);
  EXPECT_EQ(edge.top, 1080);
}
