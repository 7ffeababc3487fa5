// What the NW server does its own way.
#include <unistd.h>

#include <fstream>
#include <iterator>

#include <boost/filesystem.hpp>

#include "nwrfc/nwrfc_library.h"
#include "runtime/trace.h"
#include "server_contract.h"

namespace servertest {
namespace {

const ServerClass& NW() {
  static const ServerClass cls = ServerClasses().front();
  return cls;
}

class NWServer : public ServerTest {
 protected:
  void TearDown() override {
    if (m_server) ShutdownPumping(m_server);
    m_server.Release();
    ServerTest::TearDown();
  }

  std::u16string m_program;
  CComPtr<IRfcServer> m_server;
};

TEST_F(NWServer, ServeWithoutTheSdkFailsWith547) {
  if (veltrane::nwrfc::NWRfcLibrary::Loaded()) GTEST_SKIP() << "the SDK is loaded in this process already";
  m_server = NewServer(NW(), "NOSDK", &m_program);
  const std::string empty = (boost::filesystem::temp_directory_path() / "veltrane-no-sdk").string();
  boost::filesystem::create_directories(empty);
  m_server->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(Wide(empty)));
  EXPECT_EQ(m_server->Serve(), static_cast<HRESULT>(0x80040000 + 547));
  EXPECT_FALSE(IsListening(m_server));
}

TEST_F(NWServer, ServeWithAWrongGatewayFailsWith543AndStartsNoThread) {
  m_server = NewServer(NW(), "WRONGGW", &m_program);
  m_server->put_GatewayService(CComBSTR(u"1"));
  EXPECT_EQ(m_server->Serve(), static_cast<HRESULT>(0x80040000 + 543));
  EXPECT_FALSE(IsListening(m_server));
  EXPECT_TRUE(ErrorSet(m_server));
  CComPtr<IRfcServerErrorInfo> info;
  m_server->get_ErrorInfo(&info);
  ERRORGROUP group = RFCERROR_NO_ERROR;
  LONG rc = 0;
  CComBSTR message;
  info->get_ERRORGROUP(&group);
  info->get_RfcRc(&rc);
  info->get_Message(&message);
  EXPECT_EQ(rc, RFC_COMMUNICATION_FAILURE);
  EXPECT_EQ(group, static_cast<ERRORGROUP>(RFC_ERROR_GROUP::COMMUNICATION_FAILURE)) << "the SDK's group, unmapped";
  EXPECT_GT(message.Length(), 0u);
  EXPECT_EQ(m_server->Shutdown(), S_OK);
}

TEST_F(NWServer, ShutdownWithoutServeOnlyClearsIsListening) {
  m_server = NewServer(NW(), "IDLE", &m_program);
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  EXPECT_FALSE(IsListening(m_server));
  EXPECT_FALSE(ErrorSet(m_server));
}

TEST_F(NWServer, ShutdownFromAHandlerOnTheServerThreadRaisesTheJoinError) {
  m_server = NewServer(NW(), "SELFJOIN", &m_program);
  // A sink of the multithreaded apartment is called on the server thread.
  HRESULT fromHandler = S_OK;
  std::string description;
  CComPtr<IRfcServer> server = m_server;
  std::thread mta([&] {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    CComPtr<ServerSink> sink = ServerSink::Create();
    sink->On(kIncomingCall, [&](IDispatch*) {
      fromHandler = server->Shutdown();
      CComPtr<IErrorInfo> error;
      if (GetErrorInfo(0, &error) == S_OK && error) {
        CComBSTR text;
        error->GetDescription(&text);
        description = Text(text);
      }
      return S_OK;
    });
    sink->AdviseTo(server);
    CoUninitialize();
  });
  mta.join();
  ASSERT_EQ(m_server->Serve(), S_OK);
  ProgramCall call;
  call.programId = Narrow(m_program);
  call.function = "Z_SRV_ANY";
  CallProgram(call);
  EXPECT_TRUE(FAILED(fromHandler));
  EXPECT_NE(description.find("boost thread: trying joining itself"), std::string::npos) << description;
}

TEST_F(NWServer, AnUnknownFunctionJoinsTheSharedTableButNotRegisteredFunctions) {
  m_server = NewServer(NW(), "SHARED", &m_program);
  ASSERT_EQ(m_server->Serve(), S_OK);
  ProgramCall call;
  call.programId = Narrow(m_program);
  call.function = "Z_SRV_SHARED_UNKNOWN";
  EXPECT_EQ(CallProgram(call).rc, RFC_OK);
  CComPtr<IFunctionCalls> registered;
  m_server->get_RegisteredFunctions(&registered);
  LONG count = -1;
  registered->get_Count(&count);
  EXPECT_EQ(count, 0);
  // A second server of the class serves the entry the first one made.
  std::u16string second;
  CComPtr<IRfcServer> other = NewServer(NW(), "SHARED2", &second);
  CComPtr<ServerSink> sink = ServerSink::Create();
  sink->AdviseTo(other);
  ASSERT_EQ(m_server->Shutdown(), S_OK);
  ASSERT_EQ(other->Serve(), S_OK);
  call.programId = Narrow(second);
  EXPECT_EQ(CallProgram(call).rc, RFC_OK);
  const auto events = sink->Events();
  EXPECT_NE(std::find(events.begin(), events.end(), "IncomingCall Z_SRV_SHARED_UNKNOWN"), events.end());
  other->Shutdown();
}

TEST_F(NWServer, ARestartWithTheGatewayDownFiresServerErrorAgainAtOnce) {
  // A system of its own, stopped under the registered server.
  auto sim = std::make_unique<vsim::testing::SimProcess>();
  m_server = NewServer(NW(), "GWDOWN", &m_program);
  m_server->put_GatewayHost(CComBSTR(Wide(sim->rfcHost())));
  m_server->put_GatewayService(CComBSTR(Wide(std::to_string(sim->rfcPort()))));
  CComPtr<ServerSink> sink = ServerSink::Create();
  int errors = 0;
  sink->On(kServerError, [&errors](IDispatch* argument) {
    ++errors;
    // Three attempts, then no more.
    return As<IRfcServerErrorInfo>(argument)->put_Restart(errors < 4 ? VARIANT_TRUE : VARIANT_FALSE);
  });
  sink->AdviseTo(m_server);
  ASSERT_EQ(m_server->Serve(), S_OK);
  sim->stop();
  ASSERT_TRUE(PumpUntil([&] { return errors >= 4; }, std::chrono::seconds(60)));
  ASSERT_TRUE(PumpUntil([&] { return !IsListening(m_server); }, std::chrono::seconds(30)));
  EXPECT_TRUE(ErrorSet(m_server));
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  EXPECT_EQ(errors, 4) << "no attempt after Restart was left false";
}

TEST_F(NWServer, OptionsOpenTheTraceUnderTheServersName) {
  const std::string file =
      (boost::filesystem::temp_directory_path() / ("veltrane-nwserver-" + std::to_string(::getpid()) + ".trc"))
          .string();
  boost::filesystem::remove(file);
  m_server = NewServer(NW(), "TRACE", &m_program);
  m_server->put_Option(CComBSTR(u"trace.file"), CComBSTR(Wide(file)));
  CComPtr<IFunctionCall> echo = ImportInterface(u"Z_SRV_ECHO");
  m_server->InstallFunction(echo);
  ASSERT_EQ(m_server->Serve(), S_OK);
  ProgramCall call;
  call.programId = Narrow(m_program);
  call.function = "Z_SRV_ECHO";
  EXPECT_EQ(CallProgram(call).rc, RFC_OK);
  m_server->Shutdown();
  std::ifstream in(file);
  const std::string trace((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  for (const char* line :
       {"[NWRfcServer]", "Veltrane version=", "Trying to register server: program_id=", "RfcRegisterServer: success",
        "look up function: Z_SRV_ECHO", "function definition found", "received call to Z_SRV_ECHO: dispatching",
        "dispatched call to Z_SRV_ECHO: success", "Logon(fn=Z_SRV_ECHO,client=001,user=DEMO,progName=SAPLZVSIM",
        "allowed=yes", "Shutdown requested, exiting"})
    EXPECT_NE(trace.find(line), std::string::npos) << line;
  boost::filesystem::remove(file);
}

TEST_F(NWServer, TraceLevelIsFoldedToUpperCaseAndAnUnknownTextLeavesIt) {
  m_server = NewServer(NW(), "LEVEL", &m_program);
  SetTraceLevel(TRACE_INFORMATION);
  m_server->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"warning"));
  EXPECT_EQ(TraceLevel(), TRACE_WARNING);
  m_server->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"Error"));
  EXPECT_EQ(TraceLevel(), TRACE_ERROR);
  m_server->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"verbose"));
  EXPECT_EQ(TraceLevel(), TRACE_ERROR) << "a text of no meaning changes nothing";
  m_server->put_Option(CComBSTR(u"trace.level"), CComBSTR(u"3"));
  EXPECT_EQ(TraceLevel(), TRACE_INFORMATION);
  CComBSTR stored;
  m_server->get_Option(CComBSTR(u"trace.level"), &stored);
  EXPECT_EQ(Text(stored), "3");
}

TEST_F(NWServer, ASecondServeRunsASecondThreadAndShutdownEndsBoth) {
  m_server = NewServer(NW(), "TWICE", &m_program);
  const long before = RegisteredPrograms();
  ASSERT_EQ(m_server->Serve(), S_OK);
  ASSERT_EQ(m_server->Serve(), S_OK);
  EXPECT_EQ(RegisteredPrograms(), before + 2) << "each Serve registers, and both threads listen";
  ProgramCall call;
  call.programId = Narrow(m_program);
  call.function = "Z_SRV_ANY";
  EXPECT_EQ(CallProgram(call).rc, RFC_OK);
  EXPECT_EQ(ShutdownPumping(m_server), S_OK);
  EXPECT_FALSE(IsListening(m_server));
  EXPECT_TRUE(PumpUntil([&] { return RegisteredPrograms() == before; }, std::chrono::seconds(10)))
      << "Shutdown has ended the first thread too";
  EXPECT_NE(CallProgram(call).rc, RFC_OK);
}

}  // namespace
}  // namespace servertest
