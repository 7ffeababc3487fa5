// veltrane-sim over real HTTP: started as a program, spoken to with libcurl and with curl.
#include <arpa/inet.h>
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "testing/sim_process.h"

namespace {

using vsim::testing::SimOptions;
using vsim::testing::SimProcess;

std::string envelope(const std::string& function, const std::string& params) {
  return "<S:Envelope xmlns:S=\"http://schemas.xmlsoap.org/soap/envelope/\" "
         "xmlns:a=\"urn:sap-com:document:sap:rfc:functions\">"
         "<S:Body><a:" +
         function + ">" + params + "</a:" + function + "></S:Body></S:Envelope>";
}

bool contains(const std::string& s, const std::string& part) { return s.find(part) != std::string::npos; }

struct Reply {
  CURLcode code = CURLE_OK;
  long status = 0;
  long connects = 0;  // connections libcurl had to open for this transfer
  std::string body;
  std::string headers;
};

// One client with its own cookie engine, like a session of a real client.
class Client {
 public:
  explicit Client(std::string base) : base_(std::move(base)), curl_(curl_easy_init()) {
    curl_easy_setopt(curl_, CURLOPT_COOKIEFILE, "");
    curl_easy_setopt(curl_, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl_, CURLOPT_TIMEOUT_MS, 60000L);
  }
  ~Client() { curl_easy_cleanup(curl_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void logon(const std::string& user, const std::string& password) {
    user_ = user;
    password_ = password;
  }

  Reply post(const std::string& pathAndQuery, const std::string& body, std::vector<std::string> headers = {}) {
    return perform("POST", pathAndQuery, body, std::move(headers));
  }
  Reply get(const std::string& pathAndQuery) { return perform("GET", pathAndQuery, "", {}); }
  Reply call(const std::string& function, const std::string& params,
             const std::string& query = "?sap-client=001&sap-language=EN", std::vector<std::string> headers = {}) {
    return post("/sap/bc/soap/rfc" + query, envelope(function, params), std::move(headers));
  }

 private:
  static size_t collect(char* data, size_t size, size_t n, void* out) {
    static_cast<std::string*>(out)->append(data, size * n);
    return size * n;
  }

  Reply perform(const std::string& method, const std::string& path, const std::string& body,
                std::vector<std::string> headers) {
    Reply r;
    const std::string url = base_ + path;
    curl_easy_setopt(curl_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &r.body);
    curl_easy_setopt(curl_, CURLOPT_HEADERFUNCTION, collect);
    curl_easy_setopt(curl_, CURLOPT_HEADERDATA, &r.headers);
    if (method == "POST") {
      curl_easy_setopt(curl_, CURLOPT_POST, 1L);
      curl_easy_setopt(curl_, CURLOPT_POSTFIELDS, body.c_str());
      curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    } else {
      curl_easy_setopt(curl_, CURLOPT_HTTPGET, 1L);
    }
    if (!user_.empty()) {
      curl_easy_setopt(curl_, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
      curl_easy_setopt(curl_, CURLOPT_USERNAME, user_.c_str());
      curl_easy_setopt(curl_, CURLOPT_PASSWORD, password_.c_str());
    } else {
      curl_easy_setopt(curl_, CURLOPT_HTTPAUTH, CURLAUTH_NONE);
      curl_easy_setopt(curl_, CURLOPT_USERNAME, nullptr);
      curl_easy_setopt(curl_, CURLOPT_PASSWORD, nullptr);
    }
    curl_slist* list = curl_slist_append(nullptr, "Content-Type: text/xml; charset=UTF-8");
    list = curl_slist_append(list, "SOAPAction: \"urn:sap-com:document:sap:rfc:functions\"");
    for (const auto& h : headers) list = curl_slist_append(list, h.c_str());
    curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, list);
    r.code = curl_easy_perform(curl_);
    curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &r.status);
    curl_easy_getinfo(curl_, CURLINFO_NUM_CONNECTS, &r.connects);
    curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, nullptr);
    curl_slist_free_all(list);
    return r;
  }

  std::string base_;
  CURL* curl_;
  std::string user_, password_;
};

std::string between(const std::string& s, const std::string& open, const std::string& close) {
  const size_t a = s.find(open);
  if (a == std::string::npos) return "<missing " + open + ">";
  const size_t b = s.find(close, a + open.size());
  return s.substr(a + open.size(), b - a - open.size());
}

// Runs a shell command and returns its standard output.
std::string shell(const std::string& command, int* status = nullptr) {
  std::string out;
  FILE* p = popen(command.c_str(), "r");
  if (!p) return out;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  const int s = pclose(p);
  if (status) *status = WIFEXITED(s) ? WEXITSTATUS(s) : -1;
  return out;
}

class Http : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    sim_ = new SimProcess();
  }
  static void TearDownTestSuite() {
    const int status = sim_->stop();
    EXPECT_EQ(status, 0) << "veltrane-sim did not shut down cleanly";
    delete sim_;
    sim_ = nullptr;
  }
  void TearDown() override {
    Client control(sim_->soapUrl());
    control.post("/vsim/control/reset", "");
  }
  static std::string url() { return sim_->soapUrl(); }
  static std::unique_ptr<Client> demo() {
    auto c = std::make_unique<Client>(url());
    c->logon("DEMO", "Welcome1");
    return c;
  }
  static SimProcess* sim_;
};
SimProcess* Http::sim_ = nullptr;

TEST_F(Http, ReadyLineAndDefaultLogon) {
  EXPECT_EQ(sim_->soapUrl().rfind("http://127.0.0.1:", 0), 0u);
  EXPECT_GT(sim_->soapPort(), 0);
  EXPECT_EQ(sim_->addresses().at("soap"), sim_->soapUrl());
  Reply r = demo()->call("RFC_PING", "");
  ASSERT_EQ(r.code, CURLE_OK);
  EXPECT_EQ(r.status, 200);
  EXPECT_TRUE(contains(
      r.body, "<a:RFC_PING.Response xmlns:a=\"urn:sap-com:document:sap:rfc:functions\"></a:RFC_PING.Response>"))
      << r.body;
  EXPECT_TRUE(contains(r.headers, "Set-Cookie: SAP_SESSIONID_VSM_001="));
}

TEST_F(Http, EveryStandardModule) {
  auto c = demo();
  Reply info = c->call("RFC_SYSTEM_INFO", "");
  EXPECT_EQ(between(info.body, "<RFCPROTO>", "</RFCPROTO>"), "011");
  EXPECT_EQ(between(info.body, "<RFCMACH>", "</RFCMACH>"), "  390");
  EXPECT_EQ(between(info.body, "<RFCDAYST>", "</RFCDAYST>"), "");
  Reply conn = c->call("STFC_CONNECTION", "<REQUTEXT>Grüße &amp; more</REQUTEXT>");
  EXPECT_EQ(between(conn.body, "<ECHOTEXT>", "</ECHOTEXT>"), "Grüße &#38; more");
  Reply st = c->call("STFC_STRUCTURE",
                     "<IMPORTSTRUCT><RFCINT4>42</RFCINT4><RFCDATE>2024-02-29</RFCDATE><RFCHEX3>q83v</RFCHEX3>"
                     "</IMPORTSTRUCT><RFCTABLE/>");
  EXPECT_TRUE(contains(st.body, "<ECHOSTRUCT><RFCFLOAT>0E0</RFCFLOAT>")) << st.body;
  EXPECT_TRUE(contains(st.body, "<RFCTABLE><item><RFCFLOAT>0E0</RFCFLOAT>"));
  EXPECT_TRUE(contains(st.body, "<RFCHEX3>q83v</RFCHEX3>"));
  EXPECT_TRUE(contains(st.body, "<RFCDATE>2024-02-29</RFCDATE>"));
  Reply iface = c->call("RFC_GET_FUNCTION_INTERFACE", "<FUNCNAME>RFC_READ_TABLE</FUNCNAME><PARAMS/>");
  EXPECT_TRUE(contains(iface.body,
                       "<item><PARAMCLASS>I</PARAMCLASS><PARAMETER>QUERY_TABLE</PARAMETER><TABNAME>DD02L</TABNAME>"
                       "<FIELDNAME>TABNAME</FIELDNAME><EXID>C</EXID>"))
      << iface.body;
  EXPECT_TRUE(contains(iface.body, "<PARAMCLASS>X</PARAMCLASS><PARAMETER>DATA_BUFFER_EXCEEDED</PARAMETER>"));
  Reply noParams = c->call("RFC_GET_FUNCTION_INTERFACE", "<FUNCNAME>RFC_READ_TABLE</FUNCNAME>");
  EXPECT_EQ(noParams.status, 200);
  EXPECT_FALSE(contains(noParams.body, "<PARAMS>"));  // a table left out of the request stays out
  Reply ustruct =
      c->call("RFC_GET_UNICODE_STRUCTURE",
              "<TABNAME>RFC_FUNINT</TABNAME><ALLOW_HALF_DEEP>X</ALLOW_HALF_DEEP><SKIP_UTF16_INFO>X</SKIP_UTF16_INFO>"
              "<SKIP_UCS_4_INFO>X</SKIP_UCS_4_INFO><B1_TABLENGTH>0</B1_TABLENGTH><FIELDS/>");
  EXPECT_TRUE(contains(ustruct.body, "<B1_TABLENGTH>"));
  EXPECT_TRUE(contains(ustruct.body,
                       "<FIELDNAME>PARAMCLASS</FIELDNAME><POSITION>1</POSITION><EXID>C</EXID><DECIMALS>0</DECIMALS>"
                       "<OFFSET_B1>0</OFFSET_B1><LENGTH_B1>1</LENGTH_B1>"))
      << ustruct.body;
  Reply nametab = c->call("RFC_GET_NAMETAB", "<TABNAME>ZVSIM_FLAT_TT</TABNAME>");
  EXPECT_EQ(between(nametab.body, "<REFNAME>", "</REFNAME>"), "ZVSIM_FLAT");
  Reply read = c->call(
      "RFC_READ_TABLE",
      "<QUERY_TABLE>SCARR</QUERY_TABLE><DELIMITER> </DELIMITER><NO_DATA> </NO_DATA><ROWSKIPS>0</ROWSKIPS>"
      "<ROWCOUNT>2</ROWCOUNT><OPTIONS><item><TEXT>CARRID LIKE &apos;A%&apos;</TEXT></item></OPTIONS>"
      "<FIELDS><item><FIELDNAME>CARRID</FIELDNAME></item><item><FIELDNAME>CARRNAME</FIELDNAME></item></FIELDS><DATA/>");
  EXPECT_TRUE(
      contains(read.body, "<DATA><item><WA>AA American Airlines</WA></item><item><WA>AC Air Canada</WA></item></DATA>"))
      << read.body;
  Reply check = c->call("SUSR_LOGIN_CHECK_RFC", "");
  EXPECT_EQ(check.status, 200);
  Reply uni = c->call("SLDAG_CHECK_FOR_UNICODE", "");
  EXPECT_EQ(between(uni.body, "<UNICODE>", "</UNICODE>"), "1");
  Reply attrs = c->call("RFC_GET_ATTRIBUTES", "");
  EXPECT_EQ(between(attrs.body, "<USER>", "</USER>"), "DEMO");
  Reply flights =
      c->call("BAPI_FLIGHT_GETLIST",
              "<AIRLINE>LH</AIRLINE><MAX_ROWS>3</MAX_ROWS><DATE_RANGE><item><SIGN>I</SIGN><OPTION>GE</OPTION>"
              "<LOW>2025-06-01</LOW></item></DATE_RANGE><FLIGHT_LIST/><RETURN/>");
  EXPECT_EQ(flights.status, 200);
  size_t rows = 0;
  for (size_t p = flights.body.find("<AIRLINEID>LH</AIRLINEID>"); p != std::string::npos;
       p = flights.body.find("<AIRLINEID>LH</AIRLINEID>", p + 1))
    ++rows;
  EXPECT_EQ(rows, 3u);
  EXPECT_TRUE(contains(flights.body, "<PRICE>")) << flights.body;
  EXPECT_TRUE(contains(flights.body, "<RETURN></RETURN>"));
}

TEST_F(Http, TestModules) {
  auto c = demo();
  Reply types = c->call(
      "Z_VSIM_TYPES",
      "<IV_INT1>200</IV_INT1><IV_INT2>-300</IV_INT2><IV_XSTRING>AAEC</IV_XSTRING><CV_INT>41</CV_INT>"
      "<CV_TIME>23:59:59</CV_TIME><CS_FLAT><CHAR>abc</CHAR></CS_FLAT><TT_FLAT><item><INT>1</INT></item></TT_FLAT>");
  EXPECT_EQ(between(types.body, "<EV_INT1>", "</EV_INT1>"), "200");
  EXPECT_EQ(between(types.body, "<EV_INT2>", "</EV_INT2>"), "-300");
  EXPECT_EQ(between(types.body, "<EV_XSTRING>", "</EV_XSTRING>"), "AAEC");
  EXPECT_EQ(between(types.body, "<CV_INT>", "</CV_INT>"), "42");
  EXPECT_EQ(between(types.body, "<CV_TIME>", "</CV_TIME>"), "00:00:00");
  EXPECT_EQ(between(types.body, "<CS_FLAT><CHAR>", "</CHAR>"), "ABC");
  EXPECT_EQ(between(types.body,
                    "<TT_FLAT><item><CHAR></CHAR><NUMC>00000001</NUMC><DATE>0000-00-00</DATE><TIME>00:00:01</TIME>",
                    "</INT>"),
            "<RAW>/////w==</RAW><PACKED>1.00</PACKED><FLOAT>0E0</FLOAT><INT>2");

  Reply rows = c->call("Z_VSIM_ROWS", "<ROW_COUNT>1000</ROW_COUNT><ROWS/>");
  EXPECT_EQ(between(rows.body, "<COUNT>", "</COUNT>"), "1000");
  EXPECT_TRUE(contains(rows.body, "<item><ROW_NO>1000</ROW_NO><TEXT>Row 1000</TEXT><AMOUNT>1250.00</AMOUNT>"));
  Reply wait = c->call("Z_VSIM_WAIT", "<MILLISECONDS>50</MILLISECONDS>");
  EXPECT_EQ(wait.status, 200);
  EXPECT_GE(std::stoi(between(wait.body, "<WAITED>", "</WAITED>")), 50);
}

TEST_F(Http, ExceptionsAndFailuresAsFaults) {
  auto c = demo();
  Reply plain = c->call("Z_VSIM_RAISE", "<EXCEPTION>NOT_FOUND</EXCEPTION>");
  EXPECT_EQ(plain.status, 500);
  EXPECT_TRUE(contains(plain.body,
                       "<SOAP-ENV:Fault><faultcode>SOAP-ENV:Client</faultcode><faultstring>NOT_FOUND</faultstring>"
                       "<detail><rfc:Z_VSIM_RAISE.Exception xmlns:rfc=\"urn:sap-com:document:sap:rfc:functions\">"
                       "<Name>NOT_FOUND</Name><Text>NOT_FOUND</Text></rfc:Z_VSIM_RAISE.Exception>"))
      << plain.body;
  Reply msg = c->call("Z_VSIM_RAISE",
                      "<EXCEPTION>FAILED</EXCEPTION><MESSAGE_ID>ZVSIM</MESSAGE_ID><MESSAGE_NUMBER>12</MESSAGE_NUMBER>"
                      "<MESSAGE_TEXT>Order &amp;1 failed</MESSAGE_TEXT><MESSAGE_V1>4711</MESSAGE_V1>");
  EXPECT_TRUE(contains(msg.body,
                       "<Name>FAILED</Name><Text>Order 4711 failed</Text><Message><ID>ZVSIM</ID><Type>E</Type>"
                       "<Number>012</Number></Message>"))
      << msg.body;
  Reply state = c->call("Z_VSIM_RAISE", "<MESSAGE_TEXT>Something went wrong</MESSAGE_TEXT>");
  EXPECT_EQ(state.status, 500);
  EXPECT_TRUE(
      contains(state.body,
               "<rfc:Error xmlns:rfc=\"urn:sap-com:document:sap:soap:functions\"><type>ERROR_MESSAGE_STATE</type>"
               "<message>Something went wrong</message></rfc:Error>"));
  Reply expired = Client(url()).call("SUSR_LOGIN_CHECK_RFC", "");
  EXPECT_EQ(expired.status, 401);
  Client ex(url());
  ex.logon("EXPIRED", "Welcome1");
  Reply pw = ex.call("SUSR_LOGIN_CHECK_RFC", "");
  EXPECT_EQ(pw.status, 500);
  EXPECT_TRUE(contains(pw.body, "<Name>PASSWORD_EXPIRED</Name><Text>PASSWORD_EXPIRED</Text>"));
  Reply unknown = c->call("Z_DOES_NOT_EXIST", "");
  EXPECT_EQ(unknown.status, 500);
  EXPECT_TRUE(contains(unknown.body, "not found"));
  Client restricted(url());
  restricted.logon("RESTRICTED", "Welcome1");
  EXPECT_EQ(restricted.call("RFC_PING", "").status, 200);
  Reply denied = restricted.call("RFC_READ_TABLE", "<QUERY_TABLE>T000</QUERY_TABLE>");
  EXPECT_EQ(denied.status, 500);
  EXPECT_TRUE(contains(denied.body, "<faultstring>RFC_AUTHORIZATION_FAILURE: "));
}

TEST_F(Http, LogonVariants) {
  Client none(url());
  Reply r = none.call("RFC_PING", "");
  EXPECT_EQ(r.status, 401);
  EXPECT_TRUE(contains(r.headers, "WWW-Authenticate: Basic realm=\"SAP NetWeaver Application Server [VSM/001]\""));
  EXPECT_TRUE(contains(r.body, "<h1>Logon failed</h1>"));
  Client locked(url());
  locked.logon("LOCKED", "Welcome1");
  EXPECT_EQ(locked.call("RFC_PING", "").status, 401);
  Client otherClient(url());
  otherClient.logon("DEMO", "Welcome1");
  EXPECT_EQ(otherClient.call("STFC_CONNECTION", "", "?sap-client=100").status, 200);
  EXPECT_EQ(otherClient.call("RFC_PING", "", "?sap-client=066").status, 401);

  // The security session cookie carries the logon without credentials.
  Client cookieOnly(url());
  cookieOnly.logon("DEMO", "Welcome1");
  ASSERT_EQ(cookieOnly.call("RFC_PING", "").status, 200);
  cookieOnly.logon("", "");
  Reply again = cookieOnly.call("RFC_PING", "");
  EXPECT_EQ(again.status, 200);
  EXPECT_FALSE(contains(again.headers, "Set-Cookie"));

  Client ticketSource(url());
  const std::string ticket = ticketSource.post("/vsim/control/ticket?client=001&user=DEMO", "").body;
  ASSERT_EQ(ticket.substr(0, 9), "AjQxMDMBA");
  Client sso(url());
  Reply viaTicket =
      sso.call("STFC_CONNECTION", "", "?sap-client=001", {"Cookie: MYSAPSSO2=" + ticket.substr(0, ticket.size() - 1)});
  EXPECT_EQ(viaTicket.status, 200) << viaTicket.body;
  auto c = demo();
  Reply fromModule = c->call("Z_VSIM_SSO2_TICKET", "");
  const std::string t2 = between(fromModule.body, "<TICKET>", "</TICKET>");
  EXPECT_EQ(Client(url()).call("RFC_PING", "", "?sap-client=001", {"Cookie: MYSAPSSO2=" + t2}).status, 200);
}

TEST_F(Http, StatefulSessions) {
  auto c = demo();
  auto value = [](const Reply& r) { return between(r.body, "<VALUE>", "</VALUE>"); };
  EXPECT_EQ(value(c->call("Z_VSIM_COUNTER", "")), "1");
  EXPECT_EQ(value(c->call("Z_VSIM_COUNTER", "")), "1");  // stateless by default
  Reply open = c->call("Z_VSIM_COUNTER", "", "?sap-client=001&sap-language=EN&session_mode=1");
  EXPECT_EQ(value(open), "1");
  EXPECT_TRUE(contains(open.headers, "Set-Cookie: sap-contextid=SID%3aANON%3avsimhost_VSM_00%3a"));
  EXPECT_EQ(value(c->call("Z_VSIM_COUNTER", "<STEP>10</STEP>")), "11");
  auto other = demo();  // another client, its own cookies
  EXPECT_EQ(value(other->call("Z_VSIM_COUNTER", "")), "1");
  Reply close = c->call("Z_VSIM_COUNTER", "", "?sap-client=001&session_mode=2");
  EXPECT_EQ(value(close), "12");
  EXPECT_TRUE(contains(close.headers, "sap-contextid=; expires=Thu, 01 Jan 1970 00:00:00 GMT"));
  EXPECT_EQ(value(c->call("Z_VSIM_COUNTER", "")), "1");
}

TEST_F(Http, InjectedFaults) {
  auto c = demo();
  // Delay: the answer comes, later; the order of events is what is checked, not the time.
  Reply delayed = c->call("RFC_PING", "", "?sap-client=001&vsim-fault=delay:300");
  EXPECT_EQ(delayed.status, 200);
  Reply status = c->call("RFC_PING", "", "?sap-client=001", {"X-Vsim-Fault: status:503"});
  EXPECT_EQ(status.status, 503);
  Reply half = c->call("Z_VSIM_ROWS", "<ROW_COUNT>200</ROW_COUNT><ROWS/>", "?sap-client=001", {"X-Vsim-Fault: close"});
  EXPECT_EQ(half.code, CURLE_PARTIAL_FILE);
  Reply malformed = c->call("RFC_PING", "", "?sap-client=001", {"X-Vsim-Fault: malformed"});
  EXPECT_EQ(malformed.status, 200);
  EXPECT_FALSE(contains(malformed.body, "</SOAP-ENV:Envelope>"));
  Reply ns = c->call("RFC_PING", "", "?sap-client=001", {"X-Vsim-Fault: namespace"});
  EXPECT_TRUE(contains(ns.body, "xmlns:a=\"urn:vsim:not-the-rfc-namespace\""));

  Client control(url());
  Reply set = control.post("/vsim/control/fault?fault=status:502&user=DEMO&count=1", "");
  EXPECT_EQ(set.status, 200);
  EXPECT_EQ(c->call("RFC_PING", "").status, 502);
  EXPECT_EQ(c->call("RFC_PING", "").status, 200);
  // A fault for one stateful context only.
  Reply open = c->call("Z_VSIM_COUNTER", "", "?sap-client=001&session_mode=1");
  const std::string ctx = between(open.headers, "sap-contextid=", ";");
  control.post("/vsim/control/fault?fault=status:504&count=0&context=" + ctx, "");
  EXPECT_EQ(c->call("Z_VSIM_COUNTER", "").status, 504);
  EXPECT_EQ(demo()->call("Z_VSIM_COUNTER", "").status, 200);
  EXPECT_TRUE(contains(control.post("/vsim/control/status", "").body, "\"fault\":\"status:504\""));
  // A visit of a browser changes nothing.
  Reply get = control.get("/vsim/control/reset");
  EXPECT_EQ(get.status, 405);
  EXPECT_TRUE(contains(get.headers, "Allow: POST")) << get.headers;
  EXPECT_TRUE(contains(control.post("/vsim/control/status", "").body, "\"fault\":\"status:504\""));
}

TEST_F(Http, AFaultMayLetRequestsPassFirst) {
  Client control(url());
  EXPECT_EQ(control.post("/vsim/control/fault?fault=status:503&user=DEMO&pass=2", "").status, 200);
  auto c = demo();
  EXPECT_EQ(c->call("RFC_PING", "").status, 200);
  EXPECT_EQ(c->call("RFC_PING", "").status, 200);
  EXPECT_EQ(c->call("RFC_PING", "").status, 503);
  EXPECT_EQ(c->call("RFC_PING", "").status, 200);
  EXPECT_EQ(control.post("/vsim/control/fault?fault=close&pass=x", "").status, 400);
}

TEST_F(Http, FiftyConcurrentClients) {
  constexpr int kClients = 50, kCalls = 8;
  std::atomic<int> ok{0}, bad{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kClients; ++i) {
    threads.emplace_back([&, i] {
      Client c(url());
      c.logon("DEMO", "Welcome1");
      for (int k = 0; k < kCalls; ++k) {
        const std::string text = "client " + std::to_string(i) + " call " + std::to_string(k);
        Reply r = k % 2 ? c.call("STFC_CONNECTION", "<REQUTEXT>" + text + "</REQUTEXT>")
                        : c.call("RFC_READ_TABLE", "<QUERY_TABLE>SPFLI</QUERY_TABLE><ROWCOUNT>5</ROWCOUNT><DATA/>");
        const bool good =
            r.code == CURLE_OK && r.status == 200 &&
            (k % 2 ? contains(r.body, "<ECHOTEXT>" + text + "</ECHOTEXT>") : contains(r.body, "<WA>001AA 0017"));
        (good ? ok : bad)++;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(bad.load(), 0);
  EXPECT_EQ(ok.load(), kClients * kCalls);
}

TEST_F(Http, MalformedRequestsAreAnswered) {
  auto c = demo();
  Reply bad = c->post("/sap/bc/soap/rfc?sap-client=001", "<S:Envelope xmlns:S=");
  EXPECT_EQ(bad.status, 500);
  EXPECT_TRUE(contains(bad.body, "<faultcode>SOAP-ENV:Client</faultcode>"));
  Reply empty = c->post("/sap/bc/soap/rfc?sap-client=001", "");
  EXPECT_EQ(empty.status, 500);
  Reply wrongValue = c->call("Z_VSIM_TYPES", "<IV_INT>twelve</IV_INT>");
  EXPECT_EQ(wrongValue.status, 500);
  EXPECT_TRUE(contains(wrongValue.body, "CONVERSION_ERROR"));
  EXPECT_EQ(c->get("/sap/bc/soap/rfc?sap-client=001").status, 405);
  EXPECT_EQ(c->get("/sap/public/ping").status, 200);
  EXPECT_EQ(c->get("/no/such/path").status, 404);
  std::string big(1 << 20, 'x');
  Reply huge = c->post("/sap/bc/soap/rfc?sap-client=001", "<a>" + big + "</a>");
  EXPECT_EQ(huge.status, 500);

  // Broken HTTP on a raw socket: a 400 answer, and the server goes on.
  const std::string host = "127.0.0.1";
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(fd, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(sim_->soapPort());
  inet_pton(AF_INET, host.c_str(), &addr.sin_addr);
  ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  const std::string garbage = "POST /sap/bc/soap/rfc HTTP/1.1\r\nContent-Length: nope\r\n\r\n";
  ASSERT_EQ(write(fd, garbage.data(), garbage.size()), static_cast<ssize_t>(garbage.size()));
  std::string answer;
  char buf[1024];
  ssize_t n;
  while ((n = read(fd, buf, sizeof buf)) > 0) answer.append(buf, static_cast<size_t>(n));
  close(fd);
  EXPECT_EQ(answer.rfind("HTTP/1.1 400", 0), 0u) << answer;
  EXPECT_EQ(c->call("RFC_PING", "").status, 200);
}

TEST_F(Http, KeepAliveReusesTheConnection) {
  auto c = demo();
  Reply first = c->call("RFC_PING", "");
  ASSERT_EQ(first.status, 200);
  EXPECT_EQ(first.connects, 1);
  for (int i = 0; i < 5; ++i) {
    Reply r = c->call("STFC_CONNECTION", "<REQUTEXT>again</REQUTEXT>");
    ASSERT_EQ(r.status, 200);
    EXPECT_EQ(r.connects, 0) << "call " << i << " opened a new connection";
  }
  // An exception answer (500) keeps the connection too.
  Reply fault = c->call("Z_VSIM_RAISE", "<EXCEPTION>FAILED</EXCEPTION>");
  EXPECT_EQ(fault.status, 500);
  EXPECT_EQ(c->call("RFC_PING", "").connects, 0);
}

TEST_F(Http, CurlOnTheCommandLine) {
  const std::string base = url() + "/sap/bc/soap/rfc?sap-client=001&sap-language=EN";
  const std::string dir = testing::TempDir() + "vsim_curl";
  std::filesystem::create_directories(dir);
  const std::string request = dir + "/ping.xml";
  std::ofstream(request) << envelope("STFC_CONNECTION", "<REQUTEXT>from curl</REQUTEXT>");
  int status = -1;
  std::string out = shell(
      "curl -s --noproxy '*' -u DEMO:Welcome1 -H 'Content-Type: text/xml; charset=utf-8' "
      "-H 'SOAPAction: \"\"' --data-binary @" +
          request + " -w '\\n%{http_code}' '" + base + "'",
      &status);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(contains(out, "<ECHOTEXT>from curl</ECHOTEXT>")) << out;
  EXPECT_EQ(out.substr(out.size() - 3), "200");
  out = shell("curl -s --noproxy '*' -o /dev/null -w '%{http_code}' --data-binary @" + request + " '" + base + "'");
  EXPECT_EQ(out, "401");
  // A stateful session with curl's cookie jar.
  const std::string jar = dir + "/jar.txt";
  const std::string counter = dir + "/counter.xml";
  std::ofstream(counter) << envelope("Z_VSIM_COUNTER", "");
  const std::string cmd =
      "curl -s --noproxy '*' -u DEMO:Welcome1 -b " + jar + " -c " + jar + " --data-binary @" + counter + " '";
  shell(cmd + base + "&session_mode=1'");
  out = shell(cmd + base + "'");
  EXPECT_TRUE(contains(out, "<VALUE>2</VALUE>")) << out;
  out = shell(cmd + base + "&session_mode=2'");
  EXPECT_TRUE(contains(out, "<VALUE>3</VALUE>")) << out;
  out = shell(cmd + base + "'");
  EXPECT_TRUE(contains(out, "<VALUE>1</VALUE>")) << out;
  // The control endpoint with curl.
  out = shell("curl -s --noproxy '*' -X POST '" + url() + "/vsim/control/fault?fault=status:503'");
  EXPECT_TRUE(contains(out, "\"id\":")) << out;
  out = shell("curl -s --noproxy '*' -u DEMO:Welcome1 -o /dev/null -w '%{http_code}' --data-binary @" + request + " '" +
              base + "'");
  EXPECT_EQ(out, "503");
}

// Programs of their own: data directory, options, signals.
TEST(Program, DataDirectoryAndShutdownBySigint) {
  SimOptions o;
  o.args = {"--data-dir", VSIM_DATA_DIR};
  SimProcess sim(o);
  Client c(sim.soapUrl());
  c.logon("DEMO", "Welcome1");
  Reply echo = c.call("_-VSIM_-ECHO", "<TEXT>round trip</TEXT>");
  EXPECT_EQ(echo.status, 200) << echo.body;
  EXPECT_TRUE(contains(echo.body, "<a:_-VSIM_-ECHO.Response")) << echo.body;
  EXPECT_TRUE(contains(echo.body, "<RESULT>round trip</RESULT>"));
  Reply read = c.call("RFC_READ_TABLE", "<QUERY_TABLE>ZVSIM_CARS</QUERY_TABLE><DELIMITER>;</DELIMITER><DATA/>");
  EXPECT_TRUE(contains(read.body, "<WA>001;000001;Red")) << read.body;
  Reply car = c.call("Z_VSIM_CAR_GET", "<ID>2</ID>");
  EXPECT_TRUE(contains(car.body, "<COLOR>Blue</COLOR>")) << car.body;
  Reply missing = c.call("Z_VSIM_CAR_GET", "<ID>99</ID>");
  EXPECT_TRUE(contains(missing.body, "<Name>NOT_FOUND</Name>")) << missing.body;
  EXPECT_EQ(sim.stop(SIGINT), 0);
}

TEST(Program, RejectsBadOptionsAndData) {
  const std::string program = SimProcess::defaultProgram();
  int status = -1;
  std::string out = shell(program + " --soap-port nope 2>&1", &status);
  EXPECT_EQ(status, 2);
  EXPECT_TRUE(contains(out, "--soap-port needs a number")) << out;
  out = shell(program + " --bogus 2>&1", &status);
  EXPECT_EQ(status, 2);
  EXPECT_TRUE(contains(out, "unknown option --bogus"));
  out = shell(program + " --data-dir /nonexistent/dir --soap-port 0 2>&1", &status);
  EXPECT_EQ(status, 2);
  EXPECT_TRUE(contains(out, "not a directory")) << out;
  out = shell(program + " --help", &status);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(contains(out, "client 001, user DEMO, password Welcome1"));
  SimOptions o;
  o.program = "/nonexistent/veltrane-sim";
  o.startTimeout = std::chrono::milliseconds(5000);
  EXPECT_THROW(SimProcess{o}, std::runtime_error);
  EXPECT_THROW(SimProcess::parseReadyLine("something else"), std::runtime_error);
  auto fields = SimProcess::parseReadyLine("veltrane-sim listening soap=http://127.0.0.1:1 rfc=127.0.0.1:2");
  EXPECT_EQ(fields.at("rfc"), "127.0.0.1:2");
}

TEST(Program, ListensBeyondLoopbackOnlyWhenAllowedAndThenWantsTheToken) {
  int status = -1;
  const std::string out =
      shell(SimProcess::defaultProgram() + " --host 0.0.0.0 --soap-port 0 --rfc-port 0 2>&1", &status);
  EXPECT_EQ(status, 2);
  EXPECT_TRUE(contains(out, "--host 0.0.0.0 is beyond loopback: give --allow-remote to listen there")) << out;

  SimOptions o;
  o.args = {"--host", "0.0.0.0", "--allow-remote"};
  SimProcess sim(o);
  const std::string token = sim.addresses().at("token");
  EXPECT_EQ(token.size(), 32u);
  Client c(sim.soapUrl());
  EXPECT_EQ(c.post("/vsim/control/reset", "").status, 403);
  EXPECT_EQ(c.post("/vsim/control/reset", "", {"X-Vsim-Token: wrong"}).status, 403);
  EXPECT_EQ(c.post("/vsim/control/reset", "", {"X-Vsim-Token: " + token}).status, 200);
  EXPECT_EQ(c.get("/vsim/control/status").status, 405);
}

}  // namespace
