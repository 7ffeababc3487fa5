// What the classic server does its own way.
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <vector>

#include <boost/filesystem.hpp>

#include "runtime/trace.h"
#include "server/rfc_server.h"
#include "sim_logon.h"
#include "server_contract.h"

namespace servertest {
namespace {

const ServerClass& Classic() {
  static const ServerClass cls = [] {
    for (const ServerClass& c : ServerClasses())
      if (c.name == "RfcServer") return c;
    return ServerClass{};
  }();
  return cls;
}

class ClassicServer : public ServerTest {
 protected:
  void TearDown() override {
    if (m_server) ShutdownPumping(m_server);
    m_server.Release();
    m_sink.Release();
    ServerTest::TearDown();
  }
  void Create(const char* what) {
    m_server = NewServer(Classic(), what, &m_program);
    ASSERT_TRUE(m_server);
    m_sink = ServerSink::Create();
    m_sink->AdviseTo(m_server);
  }
  void Serve() {
    CComPtr<IFunctionCall> echo = ImportInterface(u"Z_SRV_ECHO");
    ASSERT_EQ(m_server->InstallFunction(echo), S_OK);
    ASSERT_EQ(m_server->Serve(), S_OK);
  }
  ProgramAnswer CallEcho() {
    ProgramCall call;
    call.programId = Narrow(m_program);
    call.function = "Z_SRV_ECHO";
    call.parameters = "{}";
    return CallProgram(call);
  }
  static std::string TraceFile(const char* what) {
    const std::string file = (boost::filesystem::temp_directory_path() /
                              ("veltrane-rfcserver-" + std::string(what) + std::to_string(::getpid()) + ".trc"))
                                 .string();
    boost::filesystem::remove(file);
    return file;
  }
  static std::string Read(const std::string& file) {
    std::ifstream in(file);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  }
  // The trace's texts without their frames (time and tag), one per line;
  // handle and thread numbers become "#".
  static std::vector<std::string> Messages(const std::string& file) {
    std::vector<std::string> lines;
    std::istringstream in(Read(file));
    std::string line;
    while (std::getline(in, line)) {
      // A piece written without a frame is followed by the next framed line.
      line = std::regex_replace(line, std::regex("[0-9]{8} [0-9:]{8}\t\\[[A-Za-z]+\\]\t"), "");
      lines.push_back(std::regex_replace(line, std::regex("(handle|thread) 0x[0-9a-f]+"), "$1 #"));
    }
    return lines;
  }
  // The lines from the first that starts with first to the next that starts with last.
  static std::vector<std::string> Between(const std::vector<std::string>& lines, const std::string& first,
                                          const std::string& last) {
    std::vector<std::string> block;
    for (const std::string& line : lines) {
      if (block.empty() && line.rfind(first, 0) != 0) continue;
      block.push_back(line);
      if (line.rfind(last, 0) == 0) break;
    }
    return block;
  }

  std::u16string m_program;
  CComPtr<IRfcServer> m_server;
  CComPtr<ServerSink> m_sink;
};

TEST_F(ClassicServer, ServeWithAWrongGatewaySucceedsAndShowsTheFailure) {
  Create("WRONGGW");
  m_server->put_GatewayService(CComBSTR(u"1"));
  Serve();
  EXPECT_FALSE(IsListening(m_server)) << "Serve returns once the thread has ended";
  EXPECT_TRUE(ErrorSet(m_server));
  CComPtr<IRfcServerErrorInfo> info;
  m_server->get_ErrorInfo(&info);
  LONG rc = -1;
  CComBSTR message;
  info->get_RfcRc(&rc);
  info->get_Message(&message);
  EXPECT_EQ(rc, 0) << "the accept is reported with rc 0";
  EXPECT_GT(message.Length(), 0u);
  EXPECT_TRUE(m_sink->Events().empty()) << "a failed accept fires no ServerError";
  EXPECT_EQ(m_server->Shutdown(), S_OK);
}

TEST_F(ClassicServer, RestartOnTheErrorInfoPropertyHasNoEffect) {
  Create("COPY");
  CComPtr<IRfcServer> server = m_server;
  m_sink->On(kServerError, [server](IDispatch*) {
    CComPtr<IRfcServerErrorInfo> copy;
    server->get_ErrorInfo(&copy);
    return copy->put_Restart(VARIANT_TRUE);
  });
  Serve();
  ASSERT_TRUE(IsListening(m_server));
  EXPECT_GE(DropPrograms(), 1);
  ASSERT_TRUE(m_sink->WaitFor(1));
  ASSERT_TRUE(PumpUntil([&] { return !IsListening(m_server); }, std::chrono::seconds(30)));
  EXPECT_NE(CallEcho().rc, RFC_OK) << "no restart: nobody is registered";
  CComPtr<IRfcServerErrorInfo> info;
  m_server->get_ErrorInfo(&info);
  LONG rc = 0;
  info->get_RfcRc(&rc);
  EXPECT_NE(rc, 0);
}

TEST_F(ClassicServer, ThePollIntervalOptionIsTracedAndTheSdkTraceAsked) {
  const std::string file = TraceFile("poll");
  Create("POLL");
  m_server->put_Option(CComBSTR(u"trace.file"), CComBSTR(Wide(file)));
  m_server->put_Option(CComBSTR(u"server.poll_interval"), CComBSTR(u"1000"));
  Serve();
  ASSERT_TRUE(IsListening(m_server));
  EXPECT_EQ(CallEcho().rc, RFC_OK);
  EXPECT_EQ(CallEcho().rc, RFC_OK);
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  const std::string trace = Read(file);
  for (const char* line :
       {"Starting new server instance", "set custom poll interval: 1000", "CRfcServer().Serve()", "argv[0]='-a",
        "argv[3]='-t'", "Installing function: 'Z_SRV_ECHO'...ok", "Installing %USER_GLOBAL_SERVER: 0",
        "entering main loop...", "Dispatching call to 'Z_SRV_ECHO'...", "found prototype for: Z_SRV_ECHO",
        "SDKLogonCallback: entering...", "CRfcServer::on_rfc_serve(): fire IncomingCall event",
        "leaving: SendOutgoingData() - rc=0x0", "Shutting down server instance", "Ensuring Rfc is really closed",
        "UnInstalling function: 'Z_SRV_ECHO'...", "leaving main loop. restart = 0"})
    EXPECT_NE(trace.find(line), std::string::npos) << line;
  boost::filesystem::remove(file);
}

TEST_F(ClassicServer, WithoutTraceFileArgvThreeIsNull) {
  const std::string file = TraceFile("argv");
  // The trace is the process's: another object opens it.
  CComPtr<IRfcServer> other = NewServer(Classic(), "OTHER", &m_program);
  ASSERT_TRUE(other);
  other->put_Option(CComBSTR(u"trace.file"), CComBSTR(Wide(file)));
  Create("NOTRACE");
  Serve();
  ASSERT_TRUE(IsListening(m_server));
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  const std::string trace = Read(file);
  EXPECT_NE(trace.find("argv[3]='(null)'"), std::string::npos) << trace;
  EXPECT_EQ(trace.find("Starting new server instance"), std::string::npos);
  boost::filesystem::remove(file);
}

TEST_F(ClassicServer, AHandlerThatKeepsTheCheckStatusStopsTheTransaction) {
  Create("TID");
  int runs = 0;
  m_sink->On(kIncomingCall, [&runs](IDispatch*) {
    ++runs;
    return S_OK;
  });
  Serve();
  ProgramCall call;
  call.programId = Narrow(m_program);
  call.function = "Z_SRV_ECHO";
  call.parameters = "{}";
  call.mode = "T";
  call.tid = "0A1B2C3D4E5F60718293A4C1";
  call.confirm = "X";
  CallProgram(call);
  EXPECT_EQ(runs, 0) << "65534 is not 0: the SDK does not execute";
}

TEST_F(ClassicServer, ADispatchTracesBothDirectionsLineByLine) {
  const std::string file = TraceFile("exact");
  Create("EXACT");
  m_server->put_Option(CComBSTR(u"trace.file"), CComBSTR(Wide(file)));
  m_sink->On(kIncomingCall, [](IDispatch* argument) {
    CComPtr<IFunctionCall> call = As<IFunctionCall>(argument);
    SetValue(call, u"Exporting", u"EV_TEXT", CComVariant(u"echo"));
    SetValue(call, u"Exporting", u"EV_NUMBER", CComVariant(static_cast<LONG>(42)));
    return S_OK;
  });
  Serve();
  ProgramCall call;
  call.programId = Narrow(m_program);
  call.function = "Z_SRV_ECHO";
  call.parameters = R"({"IV_TEXT":"hello","IV_NUMBER":21,"IS_PAIR":{"KEY":"k1","NUMBER":7}})";
  ASSERT_EQ(CallProgram(call).rc, RFC_OK);
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  const std::vector<std::string> block =
      Between(Messages(file), "SDKFunctionCallback for handle", "CRfcServerWorker: leaving DispatchCall");
  const std::vector<std::string> expected = {
      "SDKFunctionCallback for handle # called in thread #...", "Dispatching call to 'Z_SRV_ECHO'...",
      "CRfcServerWorker: DispatchCall()", "found prototype for: Z_SRV_ECHO",
      // Receiving: the importing and changing parameters, then the tables.
      "scalar param 'IV_TEXT' (type=0 len=20 dec=0 blen=40)", "scalar param 'IV_NUMBER' (type=8 len=4 dec=0 blen=4)",
      "scalar param 'IV_AMOUNT' (type=7 len=8 dec=16 blen=8)", "scalar param 'IV_DATE' (type=1 len=8 dec=0 blen=16)",
      "struct param 'IS_PAIR'\t(IS_PAIR(fc=2,leng=24) val=| | |)",
      "scalar param 'CV_COUNTER' (type=8 len=4 dec=0 blen=4)", "CIntRfcTables::CIntRfcTables(...)", "Table: T_PAIRS",
      "CIntRfcTable::CIntRfcTable(): entering", "ZSRV_PAIR(fc=2,leng=24)got 2 columns", "table name:ZSRV_PAIR",
      "internal struct installed ok, leng=24", "CIntRfcTable::CIntRfcTable(): leaving",
      "CIntRfcTables::CIntRfcTables(): leaving", "receiving data...ok",
      // What came, in the order of the names.
      "received scalar 'CV_COUNTER' val=0", "received struct 'IS_PAIR' val=|k1|7|", "received scalar 'IV_AMOUNT' val=0",
      "received scalar 'IV_DATE' val={empty}", "received scalar 'IV_NUMBER' val=21",
      "received scalar 'IV_TEXT' val=hello", "importing.getValues: 0x0", "received table 'T_PAIRS' val=[]",
      "tables.getValues: 0x0", "IMPORTING:", "\tIV_TEXT\t\thello", "\tIV_NUMBER\t\t21", "\tIV_AMOUNT\t\t0",
      "\tIV_DATE\t\t{empty}", "\tIS_PAIR\t\t", "CRfcServer::on_rfc_serve(): fire IncomingCall event",
      "CRfcServer::on_rfc_serve(): returned from IncomingCall evt.",
      // Sending: the exporting and changing parameters, then the tables.
      "entering: SendOutgoingData()", "scalar param 'EV_TEXT' (type=0 len=40 dec=0 blen=80 val=echo)",
      "scalar param 'EV_NUMBER' (type=8 len=4 dec=0 blen=4 val=42)",
      "scalar param 'EV_AMOUNT' (type=7 len=8 dec=16 blen=8)", "scalar param 'EV_DATE' (type=1 len=8 dec=0 blen=16)",
      "struct param 'ES_PAIR'\t(ES_PAIR(fc=2,leng=24) val=| | |)",
      "scalar param 'CV_COUNTER' (type=8 len=4 dec=0 blen=4 val=0)", "CIntRfcTables::CIntRfcTables(...)",
      "Table: T_PAIRS", "CIntRfcTable::CIntRfcTable(): entering", "ZSRV_PAIR(fc=2,leng=24)got 2 columns",
      "table name:ZSRV_PAIR", "internal struct installed ok, leng=24", "CIntRfcTable::CIntRfcTable(): leaving",
      "CIntRfcTables::CIntRfcTables(): leaving", "leaving: SendOutgoingData() - rc=0x0",
      "CRfcServerWorker: leaving DispatchCall (rc=0)"};
  EXPECT_EQ(block, expected);
  boost::filesystem::remove(file);
}

TEST_F(ClassicServer, TraceLevelIsOnlyStoredAndNoLevelSilencesTheWorker) {
  const std::string file = TraceFile("level");
  Create("LEVEL");
  m_server->put_Option(CComBSTR(u"trace.file"), CComBSTR(Wide(file)));
  ASSERT_EQ(TraceLevel(), TRACE_INFORMATION) << "opening the trace sets level 3";
  m_server->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"ERROR"));
  EXPECT_EQ(TraceLevel(), TRACE_INFORMATION) << "this server's options do not include trace.level";
  CComBSTR stored;
  m_server->get_Option(CComBSTR(u"trace.level"), &stored);
  EXPECT_EQ(Text(stored), "ERROR");
  // The level is the process's: another object lowers it to errors alone.
  std::u16string other;
  CComPtr<IRfcServer> nw = NewServer(ServerClasses().front(), "LEVELNW", &other);
  nw->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"error"));
  ASSERT_EQ(TraceLevel(), TRACE_ERROR);
  Serve();
  ProgramCall call;
  call.programId = Narrow(m_program);
  call.function = "Z_SRV_ECHO";
  call.parameters = R"({"IV_TEXT":"quiet"})";
  ASSERT_EQ(CallProgram(call).rc, RFC_OK);
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  // The worker's lines are not filtered by the level.
  const std::vector<std::string> lines = Messages(file);
  for (const char* line : {"entering main loop...", "receiving data...ok", "IMPORTING:", "\tIV_TEXT\t\tquiet",
                           "leaving: SendOutgoingData() - rc=0x0", "leaving main loop. restart = 0"})
    EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
  boost::filesystem::remove(file);
}

TEST_F(ClassicServer, AFailedHandlerIsTracedAndTheAnswerGoesOutWithWhatItFilled) {
  // A handler's failure is no failure of the dispatch: on_rfc_serve traces
  // it, and the worker sends what the handler had filled, with rc 0. No
  // report, no ServerError; the server listens on.
  const std::string file = TraceFile("failed");
  Create("FAILED");
  m_server->put_Option(CComBSTR(u"trace.file"), CComBSTR(Wide(file)));
  int errors = 0;
  m_sink->On(kIncomingCall, [](IDispatch* argument) {
    SetValue(As<IFunctionCall>(argument), u"Exporting", u"EV_TEXT", CComVariant(u"before the failure"));
    return E_FAIL;
  });
  m_sink->On(kServerError, [&errors](IDispatch*) {
    ++errors;
    return S_OK;
  });
  Serve();
  const ProgramAnswer a = CallEcho();
  ASSERT_EQ(a.rc, RFC_OK) << a.key << ": " << a.message;
  EXPECT_EQ(a.exception, "");
  EXPECT_NE(a.result.find(R"("EV_TEXT":"before the failure")"), std::string::npos) << a.result;
  EXPECT_TRUE(IsListening(m_server));
  EXPECT_FALSE(ErrorSet(m_server));
  EXPECT_EQ(errors, 0);
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  const std::vector<std::string> block = Between(Messages(file), "CRfcServer::on_rfc_serve(): fire IncomingCall event",
                                                 "CRfcServerWorker: leaving DispatchCall");
  ASSERT_GE(block.size(), 4u);
  EXPECT_EQ(block[1], "ERROR: COM exception in IncomingCall event handler: 0x80004005");
  EXPECT_EQ(block[2], "CRfcServer::on_rfc_serve(): returned from IncomingCall evt.");
  EXPECT_EQ(block[3], "entering: SendOutgoingData()");
  EXPECT_EQ(block.back(), "CRfcServerWorker: leaving DispatchCall (rc=0)");
  boost::filesystem::remove(file);
}

TEST_F(ClassicServer, AnAnswerThatCannotBeSentIsReportedWithTheMarshallingsText) {
  // A handler's failure is absorbed here; an answer the worker cannot
  // marshal makes it give the call up with result 3, which ends the loop:
  // ServerError carries the marshalling's text in group 101.
  Create("UNSENDABLE");
  long group = 0, rc = 0;
  std::string message;
  m_sink->On(kIncomingCall, [](IDispatch* argument) {
    CComPtr<IRfcParameters> exporting;
    As<IFunctionCall>(argument)->get_Exporting(&exporting);
    return exporting->AddParameter(CComBSTR(u"UNSENDABLE"), nullptr);
  });
  m_sink->On(kServerError, [&](IDispatch* argument) {
    CComPtr<IRfcServerErrorInfo> info = As<IRfcServerErrorInfo>(argument);
    ERRORGROUP g{};
    LONG r = 0;
    CComBSTR text;
    info->get_ERRORGROUP(&g);
    info->get_RfcRc(&r);
    info->get_Message(&text);
    group = g;
    rc = r;
    message = Text(text);
    return S_OK;
  });
  Serve();
  EXPECT_EQ(CallEcho().key, "SYSTEM_FAILURE");
  ASSERT_TRUE(PumpUntil([&] { return rc != 0 && !IsListening(m_server); }, std::chrono::seconds(30)));
  EXPECT_EQ(rc, 3);
  EXPECT_EQ(group, 101);
  EXPECT_FALSE(message.empty());
}

TEST_F(ClassicServer, ShutdownClosesTheWorkersHandleAgainAndEndsNoNewerConnection) {
  // The worker closes its handle when the gateway drops it, and a session
  // connects. Shutdown's "Ensuring Rfc is really closed" closes the worker's
  // handle a second time; the session's connection has another number.
  const std::string file = TraceFile("reuse");
  Create("REUSE");
  m_server->put_Option(CComBSTR(u"trace.file"), CComBSTR(Wide(file)));
  Serve();
  ASSERT_TRUE(IsListening(m_server));
  EXPECT_GE(DropPrograms(), 1);
  ASSERT_TRUE(PumpUntil([&] { return Read(file).find("leaving main loop. restart = 0") != std::string::npos; }));
  CComPtr<IRfcSession> session;
  ASSERT_EQ(CoCreateInstance(CLSID_RfcSession, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                             reinterpret_cast<void**>(&session)),
            S_OK);
  session->put_Option(CComBSTR(u"librfc.path"), CComBSTR(RfcSdkDir()));
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(
      CComBSTR(Wide("ASHOST=" + Sim().rfcHost() + " GWSERV=" + std::to_string(Sim().rfcPort()) + " TOUPPER=0")));
  test_support::SetSimLogon(session, u"DEMO", u"Welcome1");
  ASSERT_EQ(session->Connect(), S_OK);
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  EXPECT_NE(Read(file).find("Ensuring Rfc is really closed"), std::string::npos);
  CComPtr<IFunctionCall> ping;
  ASSERT_EQ(session->ImportCall(CComBSTR(u"STFC_CONNECTION"), VARIANT_FALSE, &ping), S_OK);
  ASSERT_EQ(session->CallFunction(ping, VARIANT_TRUE), S_OK);
  VARIANT_BOOL failed = VARIANT_TRUE;
  session->get_Error(&failed);
  EXPECT_EQ(failed, VARIANT_FALSE) << "the session's connection is still open";
  session->Disconnect();
  boost::filesystem::remove(file);
}

TEST_F(ClassicServer, ASecondServeStopsTheFirstWorker) {
  Create("TWICE");
  const long before = RegisteredPrograms();
  Serve();
  ASSERT_EQ(m_server->Serve(), S_OK);
  EXPECT_TRUE(IsListening(m_server));
  EXPECT_TRUE(PumpUntil([&] { return RegisteredPrograms() == before + 1; }, std::chrono::seconds(10)))
      << "the first worker is gone";
  EXPECT_EQ(CallEcho().rc, RFC_OK);
}

TEST_F(ClassicServer, AClosedConnectionFiresServerErrorWithRc6) {
  Create("CLOSED");
  Serve();
  EXPECT_GE(DropPrograms(), 1);
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_EQ(m_sink->Events().front(), "ServerError 6");
  ASSERT_TRUE(PumpUntil([&] { return !IsListening(m_server); }, std::chrono::seconds(30)));
}

TEST_F(ClassicServer, AShutdownWithoutServeOnlyTracesAndReturnsSuccess) {
  const std::string file = TraceFile("idle");
  Create("IDLE");
  m_server->put_Option(CComBSTR(u"trace.file"), CComBSTR(Wide(file)));
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  const std::vector<std::string> block = Between(Messages(file), "Shutting down server instance", "Ensuring Rfc");
  EXPECT_EQ(block, (std::vector<std::string>{"Shutting down server instance", std::string(80, '-'),
                                             "Ensuring Rfc is really closed"}));
  EXPECT_FALSE(IsListening(m_server));
  EXPECT_FALSE(ErrorSet(m_server));
  EXPECT_TRUE(m_sink->Events().empty());
  boost::filesystem::remove(file);
}

TEST_F(ClassicServer, ACustomPollIntervalIsStoredAndThePauseStays50Ms) {
  Create("POLLVALUE");
  m_server->put_Option(CComBSTR(u"server.poll_interval"), CComBSTR(u"1000"));
  Serve();
  auto* server = static_cast<CRfcServer*>(m_server.p);
  EXPECT_EQ(server->StoredPollInterval(), 1000);
  EXPECT_EQ(server->WorkerPollInterval(), 50);
}

}  // namespace
}  // namespace servertest
