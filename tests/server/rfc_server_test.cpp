// What the classic server does its own way.
#include <unistd.h>

#include <fstream>
#include <iterator>

#include <boost/filesystem.hpp>

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
  bool Listening() {
    VARIANT_BOOL listening = VARIANT_FALSE;
    m_server->get_IsListening(&listening);
    return listening == VARIANT_TRUE;
  }
  bool ErrorFlag() {
    VARIANT_BOOL error = VARIANT_FALSE;
    m_server->get_Error(&error);
    return error == VARIANT_TRUE;
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

  std::u16string m_program;
  CComPtr<IRfcServer> m_server;
  CComPtr<ServerSink> m_sink;
};

TEST_F(ClassicServer, ServeWithAWrongGatewaySucceedsAndShowsTheFailure) {
  Create("WRONGGW");
  m_server->put_GatewayService(CComBSTR(u"1"));
  Serve();
  EXPECT_FALSE(Listening()) << "Serve returns once the thread has ended";
  EXPECT_TRUE(ErrorFlag());
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
  ASSERT_TRUE(Listening());
  EXPECT_GE(DropPrograms(), 1);
  ASSERT_TRUE(m_sink->WaitFor(1));
  ASSERT_TRUE(PumpUntil([&] { return !Listening(); }, std::chrono::seconds(30)));
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
  ASSERT_TRUE(Listening());
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
  ASSERT_TRUE(Listening());
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

}  // namespace
}  // namespace servertest
