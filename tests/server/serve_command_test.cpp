// veltrane serve: the simulated system calls a program whose calls commands answer.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include <boost/filesystem.hpp>

#include "server_fixture.h"

extern char** environ;

namespace servertest {
namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// A command answering STFC_CONNECTION: REQUTEXT "raise" raises NOT_FOUND,
// "crash" kills the command, "garbage" prints no JSON, anything else is echoed.
const char* kAnswer = R"(python3 -c '
import json, os, sys
data = json.load(sys.stdin)
text = data["REQUTEXT"]
if text == "raise":
    print(json.dumps({"exception": "NOT_FOUND"})); sys.exit(1)
if text == "crash":
    os.kill(os.getpid(), 9)
if text == "garbage":
    print("no json"); sys.exit(0)
print(json.dumps({"ECHOTEXT": text, "RESPTEXT": "served by a command"}))
')";

class ServeCommand : public ServerTest {
 protected:
  void TearDown() override {
    if (m_pid > 0) {
      ::kill(m_pid, SIGKILL);
      ::waitpid(m_pid, nullptr, 0);
    }
    boost::filesystem::remove(m_log);
    ServerTest::TearDown();
  }

  // Starts veltrane serve; true once it says it is registered. more goes
  // before the answer of STFC_CONNECTION.
  bool Start(const std::string& programId, const std::string& backend = "nwrfc",
             const std::vector<std::string>& more = {}) {
    m_log =
        (boost::filesystem::temp_directory_path() / ("veltrane-serve-" + std::to_string(::getpid()) + ".log")).string();
    const std::string port = std::to_string(Sim().rfcPort());
    std::vector<std::string> args = {VELTRANE_CLI,
                                     "serve",
                                     "--backend",
                                     backend,
                                     "--program-id",
                                     programId,
                                     "--host",
                                     Sim().rfcHost(),
                                     "--gwserv",
                                     port,
                                     "--user",
                                     "DEMO",
                                     "--sdk",
                                     Narrow(backend == "rfc" ? RfcSdkDir() : SdkDir()),
                                     std::string("STFC_CONNECTION=") + kAnswer};
    // The classic SDK upper-cases the password unless told otherwise.
    if (backend == "rfc") args.insert(args.end() - 1, {"--connect", "TOUPPER=0"});
    args.insert(args.end() - 1, more.begin(), more.end());
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    std::vector<std::string> env = {"VELTRANE_PASSWORD=Welcome1", "PATH=/usr/bin:/bin"};
    for (char** e = environ; *e; ++e)
      if (std::string(*e).rfind("ASAN_", 0) == 0 || std::string(*e).rfind("UBSAN_", 0) == 0 ||
          std::string(*e).rfind("TSAN_", 0) == 0 || std::string(*e).rfind("LD_", 0) == 0)
        env.push_back(*e);
    std::vector<char*> envp;
    for (auto& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, m_log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    const int rc = posix_spawn(&m_pid, VELTRANE_CLI, &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return false;
    return PumpUntil([&] { return ReadFile(m_log).find("registered at") != std::string::npos; },
                     std::chrono::seconds(60));
  }

  ProgramAnswer Call(const std::string& programId, const std::string& text) {
    ProgramCall call;
    call.programId = programId;
    call.function = "STFC_CONNECTION";
    call.parameters = R"({"REQUTEXT":")" + text + R"("})";
    return CallProgram(call);
  }

  // The system's call of text fails with a system failure, not an
  // exception of the function, and the program is soon served again.
  void ExpectSystemFailureAndServingOn(const std::string& program, const std::string& text) {
    const ProgramAnswer failed = Call(program, text);
    EXPECT_EQ(failed.rc, RFC_ABAP_EXCEPTION) << text << ": " << failed.result;
    EXPECT_EQ(failed.key, "SYSTEM_FAILURE") << text << ": " << failed.message;
    EXPECT_EQ(failed.exception, "") << text;
    EXPECT_TRUE(PumpUntil([&] { return Call(program, "again").rc == RFC_OK; }, std::chrono::seconds(30)))
        << text << ": the server serves on\n"
        << ReadFile(m_log);
  }

  // STFC_CONNECTION answered by the command: an echo, an exception, and two
  // system failures after which it serves on.
  void ExpectTheCommandsAnswers(const std::string& program) {
    const ProgramAnswer echo = Call(program, "hello");
    ASSERT_EQ(echo.rc, RFC_OK) << echo.message;
    EXPECT_NE(echo.result.find(R"("ECHOTEXT":"hello")"), std::string::npos) << echo.result;
    EXPECT_NE(echo.result.find("served by a command"), std::string::npos) << echo.result;
    const ProgramAnswer raised = Call(program, "raise");
    ASSERT_EQ(raised.rc, RFC_OK) << raised.message;
    EXPECT_EQ(raised.exception, "NOT_FOUND");
    ExpectSystemFailureAndServingOn(program, "crash");
    ExpectSystemFailureAndServingOn(program, "garbage");
  }

  // SIGTERM ends the command with status 0.
  void ExpectAnOrderlyStop() {
    ASSERT_EQ(::kill(m_pid, SIGTERM), 0);
    int status = -1;
    ASSERT_TRUE(PumpUntil([&] { return ::waitpid(m_pid, &status, WNOHANG) == m_pid; }, std::chrono::seconds(30)));
    m_pid = -1;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }

  pid_t m_pid = -1;
  std::string m_log;
};

TEST_F(ServeCommand, CommandsAnswerTheSystemsCalls) {
  const std::string program = Narrow(NewProgramId("SERVE"));
  ASSERT_TRUE(Start(program)) << ReadFile(m_log);

  ASSERT_NO_FATAL_FAILURE(ExpectTheCommandsAnswers(program));
  ASSERT_NO_FATAL_FAILURE(ExpectAnOrderlyStop());
  const std::string log = ReadFile(m_log);
  EXPECT_NE(log.find("serve: STFC_CONNECTION for DEMO: ok"), std::string::npos) << log;
  EXPECT_NE(log.find("serve: STFC_CONNECTION for DEMO: exception NOT_FOUND"), std::string::npos) << log;
  // The shell reports its command's death as an exit status of 128 + 9.
  EXPECT_NE(log.find("serve: STFC_CONNECTION for DEMO: failed: the command exited with 137"), std::string::npos) << log;
  EXPECT_NE(log.find("serve: STFC_CONNECTION for DEMO: failed: the command's output is no JSON"), std::string::npos)
      << log;
  EXPECT_NE(log.find("serve: shutting down"), std::string::npos) << log;
}

TEST_F(ServeCommand, TheClassicBackendServesToo) {
  const std::string program = Narrow(NewProgramId("SERVERFC"));
  ASSERT_TRUE(Start(program, "rfc")) << ReadFile(m_log);
  ASSERT_NO_FATAL_FAILURE(ExpectTheCommandsAnswers(program));
  ExpectAnOrderlyStop();
}

// Z_SRV_ECHO's interface in its XML form, with a structure and a table of
// structures: the command echoes them, on either back end.
TEST_F(ServeCommand, AnInterfaceWithStructuresFromItsXmlForm) {
  CComPtr<IFunctionCall> echo = ImportInterface(u"Z_SRV_ECHO");
  ASSERT_TRUE(echo);
  CComBSTR xml;
  ASSERT_EQ(echo->ToXML(&xml), S_OK);
  const std::string file =
      (boost::filesystem::temp_directory_path() / ("z_srv_echo-" + std::to_string(::getpid()) + ".xml")).string();
  std::ofstream(file) << Text(xml);
  struct Remove {
    std::string file;
    ~Remove() { boost::filesystem::remove(file); }
  } removeFile{file};
  const std::string command = R"(Z_SRV_ECHO=python3 -c '
import json, sys
data = json.load(sys.stdin)
rows = data["T_PAIRS"]
print(json.dumps({"ES_PAIR": data["IS_PAIR"], "T_PAIRS": rows + [{"KEY": "added", "NUMBER": len(rows)}]}))
')";
  for (const char* backend : {"nwrfc", "rfc"}) {
    SCOPED_TRACE(backend);
    const std::string program = Narrow(NewProgramId("SERVEXML"));
    ASSERT_TRUE(Start(program, backend, {"--interface", file, command})) << ReadFile(m_log);
    ProgramCall call;
    call.programId = program;
    call.function = "Z_SRV_ECHO";
    call.parameters = R"({"IS_PAIR":{"KEY":"k1","NUMBER":7},"T_PAIRS":[{"KEY":"given","NUMBER":1}]})";
    const ProgramAnswer a = CallProgram(call);
    ASSERT_EQ(a.rc, RFC_OK) << a.key << ": " << a.message << "\n" << ReadFile(m_log);
    EXPECT_NE(a.result.find(R"("ES_PAIR":{"KEY":"k1","NUMBER":7})"), std::string::npos) << a.result;
    EXPECT_NE(a.result.find(R"("T_PAIRS":[{"KEY":"given","NUMBER":1},{"KEY":"added","NUMBER":1}])"), std::string::npos)
        << a.result;
    ::kill(m_pid, SIGTERM);
    ::waitpid(m_pid, nullptr, 0);
    m_pid = -1;
  }
}

TEST_F(ServeCommand, ADroppedGatewayIsRegisteredAgain) {
  const std::string program = Narrow(NewProgramId("SERVEDROP"));
  ASSERT_TRUE(Start(program)) << ReadFile(m_log);
  ASSERT_EQ(Call(program, "before").rc, RFC_OK);
  EXPECT_GE(DropPrograms(), 1);
  ASSERT_TRUE(PumpUntil([&] { return ReadFile(m_log).find("registering again") != std::string::npos; }))
      << ReadFile(m_log);
  ASSERT_TRUE(PumpUntil([&] { return Call(program, "after").rc == RFC_OK; }, std::chrono::seconds(60)));
}

}  // namespace
}  // namespace servertest
