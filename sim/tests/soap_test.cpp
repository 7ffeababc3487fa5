// The SOAP codec and the HTTP service, without a network.
#include <gtest/gtest.h>

#include "engine/convert.h"
#include "soap/soap_codec.h"
#include "soap/soap_service.h"

namespace vsim::soap {
namespace {

std::string envelope(const std::string& function, const std::string& params, const std::string& prefix = "urn") {
  return "<soapenv:Envelope xmlns:soapenv=\"http://schemas.xmlsoap.org/soap/envelope/\" xmlns:" + prefix +
         "=\"urn:sap-com:document:sap:rfc:functions\"><soapenv:Header/><soapenv:Body><" + prefix + ":" + function +
         ">" + params + "</" + prefix + ":" + function + "></soapenv:Body></soapenv:Envelope>";
}

bool contains(const std::string& s, const std::string& part) { return s.find(part) != std::string::npos; }

System& sys() {
  static System s;
  return s;
}

TEST(Codec, ParsesRequestAndEchoesPrefix) {
  std::unique_ptr<Call> call;
  SoapRequest r = parseRequest(
      sys(), envelope("STFC_CONNECTION", "<REQUTEXT>a&amp;b &#60;x&#62;</REQUTEXT><UNKNOWN>1</UNKNOWN>", "n1"), call);
  EXPECT_EQ(r.function, "STFC_CONNECTION");
  EXPECT_EQ(r.prefix, "n1");
  sys().execute(*call, *std::make_unique<Session>(Logon{"001", "DEMO", "E"}));
  const std::string out = buildResponse(r, *call);
  EXPECT_TRUE(contains(out, "<n1:STFC_CONNECTION.Response xmlns:n1=\"urn:sap-com:document:sap:rfc:functions\">"))
      << out;
  EXPECT_TRUE(contains(out, "<ECHOTEXT>a&#38;b &#60;x&#62;</ECHOTEXT><RESPTEXT>")) << out;
  EXPECT_FALSE(contains(out, "REQUTEXT"));  // importing parameters are not echoed
  EXPECT_EQ(out.find("<?xml version=\"1.0\" encoding=\"utf-8\"?><SOAP-ENV:Envelope"), 0u);
  EXPECT_FALSE(contains(out, "\n"));
}

TEST(Codec, DefaultNamespaceAndNamespacedNames) {
  std::unique_ptr<Call> call;
  const std::string doc =
      "<Envelope xmlns=\"http://schemas.xmlsoap.org/soap/envelope/\"><Body><RFC_PING "
      "xmlns=\"urn:sap-com:document:sap:rfc:functions\"/>"
      "</Body></Envelope>";
  SoapRequest r = parseRequest(sys(), doc, call);
  EXPECT_EQ(r.prefix, "");
  const std::string out = buildResponse(r, *call);
  EXPECT_TRUE(contains(
      out, "<rfc:RFC_PING.Response xmlns:rfc=\"urn:sap-com:document:sap:rfc:functions\"></rfc:RFC_PING.Response>"))
      << out;
  EXPECT_EQ(xmlName("/VSIM/ECHO"), "_-VSIM_-ECHO");
  EXPECT_EQ(abapName("_-VSIM_-ECHO"), "/VSIM/ECHO");
}

TEST(Codec, TablesOnlyWhenSentAndAlphabeticalOrder) {
  std::unique_ptr<Call> call;
  SoapRequest r = parseRequest(sys(),
                               envelope("RFC_READ_TABLE",
                                        "<QUERY_TABLE>T000</QUERY_TABLE><ROWCOUNT>1</ROWCOUNT><DATA/"
                                        "><FIELDS><item><FIELDNAME>MANDT</FIELDNAME></item></FIELDS>"),
                               call);
  sys().execute(*call, *std::make_unique<Session>(Logon{"001", "DEMO", "E"}));
  const std::string out = buildResponse(r, *call);
  const size_t data = out.find("<DATA>"), fields = out.find("<FIELDS>");
  ASSERT_NE(data, std::string::npos);
  ASSERT_NE(fields, std::string::npos);
  EXPECT_LT(data, fields);
  EXPECT_FALSE(contains(out, "<OPTIONS>"));  // not in the request, so not in the answer
  EXPECT_TRUE(contains(out, "<DATA><item><WA>000</WA></item></DATA>")) << out;
  EXPECT_TRUE(contains(out, "<FIELDTEXT>Client</FIELDTEXT>")) << out;
}

TEST(Codec, ValueFormsBothWays) {
  std::unique_ptr<Call> call;
  const std::string params =
      "<IV_DATE>20240229</IV_DATE><IV_TIME>12:34:56</IV_TIME><IV_RAW>q83v7w==</IV_RAW><IV_PACKED>-1.5</IV_PACKED>"
      "<IV_FLOAT>-3.14E2</IV_FLOAT><IV_INT xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
      "xsi:nil=\"true\">5</IV_INT>"
      "<IV_CHAR>  "
      "lead</IV_CHAR><IV_STRING><![CDATA[<raw>]]></IV_STRING><IS_FLAT><DATE>2024-01-31</DATE><NOPE>x</NOPE></IS_FLAT>"
      "<IT_FLAT><item><INT>1</INT></item><row><INT>2</INT></row></IT_FLAT><TT_FLAT/>";
  SoapRequest r = parseRequest(sys(), envelope("Z_VSIM_TYPES", params), call);
  sys().execute(*call, *std::make_unique<Session>(Logon{"001", "DEMO", "E"}));
  const std::string out = buildResponse(r, *call);
  for (const char* part :
       {"<EV_DATE>2024-02-29</EV_DATE>", "<EV_TIME>12:34:56</EV_TIME>", "<EV_RAW>q83v7w==</EV_RAW>",
        "<EV_PACKED>-1.50</EV_PACKED>", "<EV_FLOAT>-3.14E2</EV_FLOAT>", "<EV_INT>0</EV_INT>",
        "<EV_CHAR>  lead</EV_CHAR>", "<EV_STRING>&#60;raw&#62;</EV_STRING>", "<EV_NUMC>00000000</EV_NUMC>",
        "<CV_DATE>0000-00-00</CV_DATE>", "<EV_XSTRING></EV_XSTRING>",
        "<ES_FLAT><CHAR></CHAR><NUMC>00000000</NUMC><DATE>2024-01-31</DATE>", "<ET_FLAT><item><CHAR></CHAR>",
        "<TT_FLAT><item>", "<ES_DEEP><ID>0000</ID><TEXT></TEXT><DATA></DATA><FLAT>"})
    EXPECT_TRUE(contains(out, part)) << part;
  EXPECT_EQ(call->value("ET_FLAT").items().size(), 2u);  // rows of any element name
}

TEST(Codec, RefusesWhatIsNoRequest) {
  struct C {
    std::string doc;
    std::string code;
    std::string text;
  };
  std::string deep;
  for (int i = 0; i < 5000; ++i) deep += "<a>";
  const C cases[] = {
      {"", "Client", "Empty request"},
      {"<a><b></a>", "Client", "XML parse error"},
      {"not xml", "Client", "XML parse error"},
      {"<x/>", "Client", "No SOAP envelope"},
      {"<e:Envelope xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\"><e:Body/></e:Envelope>", "VersionMismatch",
       "not SOAP 1.1"},
      {"<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\"/>", "Client", "No SOAP body"},
      {"<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\"><e:Body/></e:Envelope>", "Client",
       "No function module"},
      {"<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\"><e:Body><x:RFC_PING "
       "xmlns:x=\"urn:other\"/></e:Body></e:Envelope>",
       "Client", "is not in namespace"},
      {deep, "Client", "nested too deeply"},
  };
  for (const auto& c : cases) {
    std::unique_ptr<Call> call;
    try {
      parseRequest(sys(), c.doc, call);
      ADD_FAILURE() << "accepted: " << c.doc.substr(0, 80);
    } catch (const SoapFault& e) {
      EXPECT_EQ(e.code(), c.code) << c.doc.substr(0, 80);
      EXPECT_TRUE(contains(e.what(), c.text)) << e.what();
      const std::string fault = buildSoapFault(e);
      EXPECT_TRUE(contains(fault, "<faultcode>SOAP-ENV:" + c.code + "</faultcode>"));
    }
  }
  std::unique_ptr<Call> call;
  try {
    parseRequest(sys(), envelope("Z_NOPE", ""), call);
    ADD_FAILURE();
  } catch (const SystemFailure& e) {
    EXPECT_EQ(e.key(), "FU_NOT_FOUND");
  }
  try {
    parseRequest(sys(), envelope("Z_VSIM_TYPES", "<IV_INT>4294967294</IV_INT>"), call);
    ADD_FAILURE();
  } catch (const SystemFailure& e) {
    EXPECT_EQ(e.key(), "CONVERSION_ERROR");
    EXPECT_TRUE(contains(e.message(), "IV_INT")) << e.message();
  }
}

TEST(Codec, FaultDocuments) {
  const std::string plain = buildExceptionFault("/VSIM/X", AbapException("NOT_FOUND"));
  EXPECT_TRUE(contains(plain, "<faultcode>SOAP-ENV:Client</faultcode><faultstring>NOT_FOUND</faultstring>"));
  EXPECT_TRUE(contains(plain,
                       "<detail><rfc:_-VSIM_-X.Exception xmlns:rfc=\"urn:sap-com:document:sap:rfc:functions\">"
                       "<Name>NOT_FOUND</Name><Text>NOT_FOUND</Text></rfc:_-VSIM_-X.Exception></detail>"))
      << plain;
  const std::string withMessage =
      buildExceptionFault("F", AbapException("FAILED", AbapMessage{"ZX", "E", "007", "It's <bad>", {"a", "", "", ""}}));
  EXPECT_TRUE(contains(withMessage,
                       "<Name>FAILED</Name><Text>It&#39;s &#60;bad&#62;</Text><Message><ID>ZX</ID><Type>E</Type>"
                       "<Number>007</Number></Message><Attributes><V1>a</V1><V2></V2><V3></V3><V4></V4></Attributes>"))
      << withMessage;
  const std::string system =
      buildSystemFault(SystemFailure("RFC_AUTHORIZATION_FAILURE", "User X has no RFC authorization"));
  EXPECT_TRUE(
      contains(system, "<faultstring>RFC_AUTHORIZATION_FAILURE: User X has no RFC authorization</faultstring>"));
  EXPECT_TRUE(
      contains(system,
               "<rfc:Error xmlns:rfc=\"urn:sap-com:document:sap:soap:functions\"><type>RFC_AUTHORIZATION_FAILURE</type>"
               "<message>User X has no RFC authorization</message></rfc:Error>"));
}

// The service, request by request.
class Service : public ::testing::Test {
 protected:
  System system;
  Log log{LogLevel::Off};
  SoapService service{system, log};

  static std::string basic(const std::string& user, const std::string& password) {
    return "Basic " + base64Encode(user + ":" + password);
  }
  HttpResponse post(const std::string& target, const std::string& body, const std::string& auth,
                    std::vector<std::pair<std::string, std::string>> headers = {}) {
    HttpRequest r;
    r.method = "POST";
    r.target = target;
    r.body = body;
    r.peer = "test";
    if (!auth.empty()) r.headers.emplace_back("authorization", auth);
    for (auto& h : headers) r.headers.push_back(h);
    return service.handle(r);
  }
  static std::vector<std::string> cookies(const HttpResponse& r) {
    std::vector<std::string> out;
    for (const auto& [n, v] : r.headers)
      if (n == "Set-Cookie") out.push_back(v);
    return out;
  }
  static std::string cookieValue(const HttpResponse& r, const std::string& name) {
    for (const auto& c : cookies(r))
      if (c.compare(0, name.size() + 1, name + "=") == 0)
        return c.substr(name.size() + 1, c.find(';') - name.size() - 1);
    return {};
  }
  static std::string header(const HttpResponse& r, const std::string& name) {
    for (const auto& [n, v] : r.headers)
      if (n == name) return v;
    return {};
  }
  std::string counter(const std::string& query, const std::string& cookie, HttpResponse* out = nullptr) {
    HttpResponse r = post(std::string(kRfcPath) + "?sap-client=001" + query, envelope("Z_VSIM_COUNTER", ""),
                          basic("DEMO", "Welcome1"), {{"cookie", cookie}});
    if (out) *out = r;
    const size_t a = r.body.find("<VALUE>"), b = r.body.find("</VALUE>");
    return a == std::string::npos ? r.body : r.body.substr(a + 7, b - a - 7);
  }
};

TEST_F(Service, LogonFailures) {
  const std::string body = envelope("RFC_PING", "");
  struct C {
    std::string target, auth, reason;
  };
  const C cases[] = {
      {"/sap/bc/soap/rfc?sap-client=001", "", "No logon data was provided"},
      {"/sap/bc/soap/rfc?sap-client=001", basic("DEMO", "wrong"), "Name or password is incorrect"},
      {"/sap/bc/soap/rfc?sap-client=001", basic("NOBODY", "x"), "Name or password is incorrect"},
      {"/sap/bc/soap/rfc?sap-client=001", basic("LOCKED", "Welcome1"), "User is locked"},
      {"/sap/bc/soap/rfc?sap-client=999", basic("DEMO", "Welcome1"), "Client 999 is not available"},
      {"/sap/bc/soap/rfc?sap-client=001", "Basic !!!", "not readable"},
      {"/sap/bc/soap/rfc?sap-client=001", "Basic " + base64Encode("nocolon"), "not readable"},
  };
  for (const auto& c : cases) {
    HttpResponse r = post(c.target, body, c.auth);
    EXPECT_EQ(r.status, 401) << c.reason;
    EXPECT_TRUE(contains(r.body, "<h1>Logon failed</h1>")) << r.body;
    EXPECT_TRUE(contains(r.body, c.reason)) << r.body;
    EXPECT_TRUE(contains(header(r, "WWW-Authenticate"), "Basic realm=\"SAP NetWeaver Application Server [VSM/"))
        << c.reason;
  }
}

TEST_F(Service, SecuritySessionCookieAndTicket) {
  HttpResponse first = post("/sap/bc/soap/rfc?sap-client=001", envelope("RFC_PING", ""), basic("demo", "Welcome1"));
  ASSERT_EQ(first.status, 200) << first.body;
  const std::string id = cookieValue(first, "SAP_SESSIONID_VSM_001");
  ASSERT_FALSE(id.empty());
  EXPECT_EQ(cookieValue(first, "sap-usercontext"), "sap-client=001");
  HttpResponse again = post("/sap/bc/soap/rfc?sap-client=001", envelope("RFC_PING", ""), "",
                            {{"cookie", "SAP_SESSIONID_VSM_001=" + id}});
  EXPECT_EQ(again.status, 200);
  EXPECT_TRUE(cookies(again).empty());  // the logon is reused, nothing is set again
  HttpResponse otherClient = post("/sap/bc/soap/rfc?sap-client=100", envelope("RFC_PING", ""), "",
                                  {{"cookie", "SAP_SESSIONID_VSM_001=" + id}});
  EXPECT_EQ(otherClient.status, 401);

  const std::string ticket = system.issueTicket(Logon{"001", "DEMO", "E"});
  HttpResponse sso = post("/sap/bc/soap/rfc?sap-client=001", envelope("STFC_CONNECTION", ""), "",
                          {{"cookie", "MYSAPSSO2=" + urlEncode(ticket)}});
  EXPECT_EQ(sso.status, 200) << sso.body;
  EXPECT_TRUE(contains(sso.body, "001/DEMO/E"));
  HttpResponse header = post("/sap/bc/soap/rfc", envelope("RFC_PING", ""), "", {{"mysapsso2", ticket}});
  EXPECT_EQ(header.status, 200);
  EXPECT_EQ(
      post("/sap/bc/soap/rfc?sap-client=100", envelope("RFC_PING", ""), "", {{"cookie", "MYSAPSSO2=" + ticket}}).status,
      401);
  EXPECT_EQ(post("/sap/bc/soap/rfc", envelope("RFC_PING", ""), "", {{"cookie", "MYSAPSSO2=AjQxMDMBAbogus"}}).status,
            401);
}

TEST_F(Service, LanguageFromQuery) {
  HttpResponse r = post("/sap/bc/soap/rfc?sap-client=001&sap-language=DE", envelope("STFC_CONNECTION", ""),
                        basic("DEMO", "Welcome1"));
  EXPECT_TRUE(contains(r.body, "001/DEMO/D")) << r.body;
  HttpResponse d =
      post("/sap/bc/soap/rfc?sap-client=001", envelope("STFC_CONNECTION", ""), basic("DEVELOPER", "Welcome1"));
  EXPECT_TRUE(contains(d.body, "001/DEVELOPER/D")) << d.body;
}

TEST_F(Service, StatelessUnlessSessionModeOne) {
  EXPECT_EQ(counter("", ""), "1");
  EXPECT_EQ(counter("", ""), "1");
  HttpResponse opened;
  EXPECT_EQ(counter("&session_mode=1", "", &opened), "1");
  const std::string ctx = cookieValue(opened, "sap-contextid");
  ASSERT_TRUE(contains(ctx, "SID%3aANON%3avsimhost_VSM_00%3a")) << ctx;
  ASSERT_TRUE(contains(ctx, "-NEW"));
  bool scoped = false;
  for (const auto& c : cookies(opened))
    scoped = scoped || (contains(c, "sap-contextid=") && contains(c, "path=/sap/bc/soap/rfc"));
  EXPECT_TRUE(scoped);
  EXPECT_EQ(service.contextCount(), 1u);
  EXPECT_EQ(counter("", "sap-contextid=" + ctx), "2");
  EXPECT_EQ(counter("", "sap-contextid=" + ctx), "3");
  HttpResponse closed;
  EXPECT_EQ(counter("&session_mode=2", "sap-contextid=" + ctx, &closed), "4");
  EXPECT_TRUE(contains(cookies(closed).back(), "expires=Thu, 01 Jan 1970"));
  EXPECT_EQ(service.contextCount(), 0u);
  HttpResponse stale;
  EXPECT_EQ(counter("", "sap-contextid=" + ctx, &stale), "1");
  EXPECT_TRUE(contains(cookies(stale).back(), "sap-contextid=; expires="));
  // A context belongs to its user.
  EXPECT_EQ(counter("&session_mode=1", "", &opened), "1");
  const std::string mine = cookieValue(opened, "sap-contextid");
  HttpResponse foreign = post("/sap/bc/soap/rfc?sap-client=001", envelope("Z_VSIM_COUNTER", ""),
                              basic("DEVELOPER", "Welcome1"), {{"cookie", "sap-contextid=" + mine}});
  EXPECT_TRUE(contains(foreign.body, "<VALUE>1</VALUE>"));
  EXPECT_EQ(counter("", "sap-contextid=" + mine), "2");
}

TEST_F(Service, FaultsAnswersAndErrors) {
  const std::string rfc = "/sap/bc/soap/rfc?sap-client=001";
  HttpResponse ex = post(rfc, envelope("Z_VSIM_RAISE", "<EXCEPTION>NOT_FOUND</EXCEPTION>"), basic("DEMO", "Welcome1"));
  EXPECT_EQ(ex.status, 500);
  EXPECT_TRUE(contains(ex.body, "<rfc:Z_VSIM_RAISE.Exception"));
  EXPECT_EQ(header(ex, "Content-Type"), "text/xml; charset=utf-8");
  HttpResponse unknown = post(rfc, envelope("Z_NOPE", ""), basic("DEMO", "Welcome1"));
  EXPECT_EQ(unknown.status, 500);
  EXPECT_TRUE(contains(unknown.body, "Function module &#34;Z_NOPE&#34; not found"));
  HttpResponse bad = post(rfc, "<broken", basic("DEMO", "Welcome1"));
  EXPECT_EQ(bad.status, 500);
  EXPECT_TRUE(contains(bad.body, "XML parse error"));
  HttpResponse denied =
      post(rfc, envelope("RFC_READ_TABLE", "<QUERY_TABLE>T000</QUERY_TABLE>"), basic("RESTRICTED", "Welcome1"));
  EXPECT_EQ(denied.status, 500);
  EXPECT_TRUE(contains(denied.body, "RFC_AUTHORIZATION_FAILURE"));

  HttpRequest get;
  get.method = "GET";
  get.target = rfc;
  get.headers.emplace_back("authorization", basic("DEMO", "Welcome1"));
  EXPECT_EQ(service.handle(get).status, 405);
  get.target = "/sap/public/ping";
  EXPECT_EQ(service.handle(get).status, 200);
  get.target = "/nothing/here";
  EXPECT_EQ(service.handle(get).status, 404);
}

TEST_F(Service, InjectedFaults) {
  const std::string rfc = "/sap/bc/soap/rfc?sap-client=001";
  const std::string ping = envelope("RFC_PING", "");
  const auto auth = basic("DEMO", "Welcome1");
  EXPECT_EQ(post(rfc, ping, auth, {{"x-vsim-fault", "status:503"}}).status, 503);
  EXPECT_EQ(post(rfc + "&vsim-fault=delay:250", ping, auth).delayMs, 250);
  EXPECT_TRUE(post(rfc, ping, auth, {{"x-vsim-fault", "close"}}).closeHalfway);
  EXPECT_EQ(post(rfc, ping, auth, {{"x-vsim-fault", "bogus"}}).status, 400);
  HttpResponse malformed = post(rfc, ping, auth, {{"x-vsim-fault", "malformed"}});
  EXPECT_EQ(malformed.status, 200);
  std::unique_ptr<Call> call;
  EXPECT_THROW(parseRequest(system, malformed.body, call), SoapFault);
  HttpResponse ns = post(rfc, ping, auth, {{"x-vsim-fault", "namespace"}});
  EXPECT_TRUE(contains(ns.body, "urn:vsim:not-the-rfc-namespace"));
  EXPECT_FALSE(contains(ns.body, "urn:sap-com:document:sap:rfc:functions"));

  auto control = [&](const std::string& path) {
    HttpRequest r;
    r.method = "POST";
    r.target = std::string(kControlPath) + path;
    return service.handle(r);
  };
  EXPECT_EQ(control("fault?fault=status:502&user=developer&count=2").status, 200);
  EXPECT_EQ(post(rfc, ping, auth).status, 200);  // another user
  EXPECT_EQ(post(rfc, ping, basic("DEVELOPER", "Welcome1")).status, 502);
  EXPECT_TRUE(contains(control("status").body, "\"remaining\":1"));
  EXPECT_EQ(post(rfc, ping, basic("DEVELOPER", "Welcome1")).status, 502);
  EXPECT_EQ(post(rfc, ping, basic("DEVELOPER", "Welcome1")).status, 200);  // used up
  EXPECT_EQ(control("fault?fault=namespace&count=0").status, 200);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(contains(post(rfc, ping, auth).body, "urn:vsim:not-the-rfc-namespace"));
  EXPECT_TRUE(contains(control("reset").body, "\"cleared\":1"));
  EXPECT_FALSE(contains(post(rfc, ping, auth).body, "urn:vsim:not-the-rfc-namespace"));
  EXPECT_EQ(control("fault?fault=delay:abc").status, 400);
  EXPECT_EQ(control("fault?fault=status:700").status, 400);
  EXPECT_EQ(control("nothing").status, 404);
  HttpResponse ticket = control("ticket?client=001&user=demo");
  ASSERT_EQ(ticket.status, 200);
  EXPECT_TRUE(system.checkTicket(std::string(trim(ticket.body))));
  EXPECT_EQ(control("ticket?user=NOBODY").status, 404);
}

TEST(Query, ParsesQueriesAndCookies) {
  auto q = parseQuery("/x?sap-client=001&sap-language=EN&session_mode=1&a=b%20c&flag");
  EXPECT_EQ(q["sap-client"], "001");
  EXPECT_EQ(q["a"], "b c");
  EXPECT_TRUE(q.count("flag"));
  auto c = parseCookies("a=1; sap-contextid=\"SID%3aX\" ;b=");
  EXPECT_EQ(c["a"], "1");
  EXPECT_EQ(c["sap-contextid"], "SID%3aX");
  EXPECT_EQ(c["b"], "");
  EXPECT_EQ(urlDecode(urlEncode("SID:ANON:h_VSM_00:ab-NEW")), "SID:ANON:h_VSM_00:ab-NEW");
  EXPECT_TRUE(parseFault("delay:10"));
  EXPECT_FALSE(parseFault("delay:"));
  EXPECT_FALSE(parseFault("close:1"));
}

}  // namespace
}  // namespace vsim::soap
