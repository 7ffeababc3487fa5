// Registered servers: RfcAccept with its argument forms, installed functions and the global one,
// RfcDispatch, RfcGetData/RfcSendData, the Raise calls, the system calls the library answers,
// transaction control, the logon handler and the attached context; called by the system's
// Z_VSIM_CALL_PROGRAM through the gateway.
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>

#include "rfc_fixture.h"

using namespace rfctest;
using namespace std::chrono_literals;

namespace {

struct Seen {
  std::mutex mutex;
  std::vector<std::string> events;
  std::set<std::string> executed;
  std::string logonUser, logonClient, logonFunction;
  bool refuseLogon = false;
  int echoes = 0;
};
Seen seen;

void note(const std::string& e) {
  std::lock_guard lock(seen.mutex);
  seen.events.push_back(e);
}

// Z_ECHO: TEXT (CHAR 20) in, ECHO (CHAR 20) and DOUBLE (INT) out, NUMBER (INT) in; ROWS of NAME (CHAR 10).
// Z_FAIL: HOW (CHAR 10): EXCEPTION raises NO_DATA with a table row, MESSAGE raises with a text,
// GIVE_UP returns a failure code.
RFC_RC serve(RFC_HANDLE h) {
  RFC_FUNCTIONNAME name{};
  if (RfcGetNameU(h, name) != RFC_OK) return RFC_FAILURE;
  const std::string function = text(name);
  note("call " + function);
  SAP_UC text20[20], how[10];
  setField(text20, 20, "");
  setField(how, 10, "");
  RFC_INT number = 0;
  Parameters in;
  in.add("TEXT", RFCTYPE_CHAR, text20, sizeof text20).add("NUMBER", RFCTYPE_INT, &number, 4);
  in.add("HOW", RFCTYPE_CHAR, how, sizeof how);
  Tables tables;
  tables.add("ROWS", RFCTYPE_CHAR, 20, false);
  if (RfcGetDataU(h, in.data(), tables.data()) != RFC_OK) return RFC_FAILURE;
  ITAB_H rows = tables.data()[0].ithandle;
  if (function == "Z_ECHO") {
    {
      std::lock_guard lock(seen.mutex);
      ++seen.echoes;
    }
    RFC_INT doubled = 2 * number;
    Parameters out;
    out.add("ECHO", RFCTYPE_CHAR, text20, sizeof text20).add("DOUBLE", RFCTYPE_INT, &doubled, 4);
    if (rows) setField(ItAppLineU(rows), 10, "added");
    return RfcSendDataU(h, out.data(), tables.data());
  }
  if (function == "Z_FAIL") {
    const std::string mode = field(how, 10);
    if (rows) setField(ItAppLineU(rows), 10, "partial");
    std::u16string exception = u"NO_DATA", message = u"Nothing found for you";
    if (mode == "EXCEPTION") return RfcRaiseTablesU(h, exception.data(), tables.data());
    if (mode == "MESSAGE") return RfcRaiseErrorMessageU(h, exception.data(), nullptr, message.data());
    return RFC_FAILURE;
  }
  std::u16string exception = u"UNKNOWN";
  return RfcRaiseU(h, exception.data());
}

int onCheck(RFC_TID tid, RFC_HANDLE) {
  note("check " + text(tid));
  std::lock_guard lock(seen.mutex);
  return seen.executed.count(text(tid)) ? 1 : 0;
}
int onCommit(RFC_TID tid, RFC_HANDLE) {
  note("commit " + text(tid));
  std::lock_guard lock(seen.mutex);
  seen.executed.insert(text(tid));
  return 0;
}
void onRollback(RFC_TID tid, RFC_HANDLE, int) { note("rollback " + text(tid)); }
void onConfirm(RFC_TID tid, RFC_HANDLE) {
  note("confirm " + text(tid));
  std::lock_guard lock(seen.mutex);
  seen.executed.erase(text(tid));
}

RFC_EXTERNAL_LOGON_RC onLogon(RFC_HANDLE, RFC_EXTERNAL_LOGON_CNTL* control, rfc_char_t* message) {
  std::lock_guard lock(seen.mutex);
  seen.logonUser = text(control->user);
  seen.logonClient = text(control->client);
  seen.logonFunction = text(control->function_name);
  if (!seen.refuseLogon) return RFC_EXTERNAL_LOGON_OK;
  const std::u16string why = u"Not on Sundays";
  std::copy(why.begin(), why.end(), message);
  message[why.size()] = 0;
  return RFC_EXTERNAL_LOGON_FAILED;
}

std::atomic<int> disconnects{0}, frees{0};
void onDisconnect(RFC_HANDLE, unsigned, void* context) {
  if (context == &seen) ++disconnects;
}
void onFree(RFC_HANDLE, unsigned, void* context) {
  if (context == &seen) ++frees;
}

std::string programId(const std::string& name) { return "VSIM.C." + name + "." + std::to_string(::getpid()); }

// A registered program serving on its own thread with RfcListen and RfcDispatch, as a server
// worker does, until stopped or its connection ends.
class Program {
 public:
  explicit Program(const std::string& id, std::vector<std::string> args = {}) : id_(id) {
    if (args.empty()) args = {"server", "-a" + id, "-g" + rfcHost(), "-x" + rfcPort()};
    std::vector<std::u16string> texts;
    for (const auto& a : args) texts.push_back(u(a));
    std::vector<rfc_char_t*> argv;
    for (auto& t : texts) argv.push_back(t.data());
    argv.push_back(nullptr);
    handle_ = RfcAcceptU(argv.data());
    EXPECT_NE(handle_, RFC_HANDLE_NULL) << lastError();
    if (!handle_) return;
    EXPECT_EQ(RfcAttachContextU(handle_, onDisconnect, onFree, &seen), RFC_OK);
    EXPECT_EQ(RfcInstallExternalLogonHandlerU(handle_, onLogon), RFC_OK);
    thread_ = std::thread([this] {
      while (!stop_) {
        RFC_RC rc = RfcListenU(handle_);
        if (rc == RFC_RETRY) {
          std::this_thread::sleep_for(10ms);
          continue;
        }
        if (rc == RFC_OK) rc = RfcDispatchU(handle_);
        if (rc != RFC_OK) {
          ended_ = rc;
          break;
        }
      }
    });
  }
  ~Program() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    RfcCloseU(handle_);
  }
  RFC_RC waitForEnd() {
    thread_.join();
    return ended_;
  }
  const std::string& id() const { return id_; }
  RFC_HANDLE handle() const { return handle_; }

 private:
  std::string id_;
  RFC_HANDLE handle_ = 0;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::atomic<RFC_RC> ended_{RFC_OK};
};

// Z_VSIM_CALL_PROGRAM's answer.
struct Answer {
  RFC_RC rc = RFC_FAILURE;
  std::string exception;  // of the call itself
  std::string result, programException, programText, executedBefore;
};

class Server : public Connected {
 protected:
  static void SetUpTestSuite() {
    RFC_FUNCTIONNAME echo{}, fail{}, global{};
    const std::u16string e = u"Z_ECHO", f = u"Z_FAIL", g = u"%%USER_GLOBAL_SERVER";
    std::copy(e.begin(), e.end(), echo);
    std::copy(f.begin(), f.end(), fail);
    std::copy(g.begin(), g.end(), global);
    std::u16string docu = u"Echoes its text";
    ASSERT_EQ(RfcInstallFunctionU(echo, nullptr, docu.data()), RFC_OK) << "the global entry serves it";
    ASSERT_EQ(RfcInstallFunctionU(fail, serve, nullptr), RFC_OK);
    ASSERT_EQ(RfcInstallFunctionU(global, serve, nullptr), RFC_OK);
    RfcInstallTransactionControl2U(onCheck, onCommit, onRollback, onConfirm);
  }
  void SetUp() override {
    Connected::SetUp();
    std::lock_guard lock(seen.mutex);
    seen.events.clear();
    seen.refuseLogon = false;
  }

  Answer callProgram(const std::string& program, const std::string& function, const std::string& json,
                     const std::string& mode = "S", const std::string& tid = "", const std::string& confirm = "X") {
    std::u16string id = u(program), fn = u(function), m = u(mode), t = u(tid), c = u(confirm);
    id.resize(64, u' ');
    fn.resize(30, u' ');
    t.resize(24, u' ');
    RFC_STRING parameters = RfcAllocStringU(static_cast<unsigned>(json.size()));
    std::memcpy(parameters, json.data(), json.size());
    RFC_INT timeout = 10000;
    Parameters in;
    in.add("PROGRAM_ID", RFCTYPE_CHAR, id.data(), 128).add("FUNCTION", RFCTYPE_CHAR, fn.data(), 60);
    in.add("PARAMETERS", RFCTYPE_STRING, &parameters, 0).add("MODE", RFCTYPE_CHAR, m.data(), 2);
    in.add("TID", RFCTYPE_CHAR, t.data(), 48).add("CONFIRM", RFCTYPE_CHAR, c.data(), 2);
    in.add("TIMEOUT_MS", RFCTYPE_INT, &timeout, 4);
    RFC_STRING result = nullptr, exceptionText = nullptr;
    SAP_UC exception[30], before[1];
    Parameters out;
    out.add("RESULT", RFCTYPE_STRING, &result, 0).add("EXCEPTION_TEXT", RFCTYPE_STRING, &exceptionText, 0);
    out.add("EXCEPTION", RFCTYPE_CHAR, exception, sizeof exception).add("EXECUTED_BEFORE", RFCTYPE_CHAR, before, 2);
    std::u16string call = u"Z_VSIM_CALL_PROGRAM";
    rfc_char_t* raised = nullptr;
    Answer a;
    a.rc = RfcCallReceiveExU(h, call.data(), in.data(), out.data(), nullptr, nullptr, &raised);
    if (raised) a.exception = text(raised);
    if (a.rc == RFC_OK) {
      a.result = result ? reinterpret_cast<char*>(result) : "";
      a.programText = exceptionText ? reinterpret_cast<char*>(exceptionText) : "";
      a.programException = field(exception, 30);
      a.executedBefore = field(before, 1);
    }
    RfcFreeStringU(parameters);
    RfcFreeStringU(result);
    RfcFreeStringU(exceptionText);
    return a;
  }
};

// The gateway lists a program shortly after its registration is answered.
void waitUntilListed(const std::string& id) {
  const RFC_HANDLE h = open();
  std::u16string fn = u"Z_VSIM_GATEWAY";
  for (int i = 0; i < 500; ++i) {
    RFC_STRING programs = nullptr;
    Parameters out;
    out.add("PROGRAMS", RFCTYPE_STRING, &programs, 0);
    ASSERT_EQ(RfcCallReceiveExU(h, fn.data(), nullptr, out.data(), nullptr, nullptr, nullptr), RFC_OK) << lastError();
    const bool listed = programs && std::string(reinterpret_cast<char*>(programs)).find(id) != std::string::npos;
    RfcFreeStringU(programs);
    if (listed) break;
    std::this_thread::sleep_for(10ms);
  }
  RfcCloseU(h);
}

TEST_F(Server, ASynchronousCallGetsAndSendsData) {
  Program program(programId("SYNC"));
  const Answer a = callProgram(program.id(), "Z_ECHO", R"({"TEXT":"hello","NUMBER":21,"ROWS":["given"]})");
  ASSERT_EQ(a.rc, RFC_OK) << a.exception << " " << lastError();
  EXPECT_NE(a.result.find(R"("ECHO":"hello")"), std::string::npos) << a.result;
  EXPECT_NE(a.result.find(R"("DOUBLE":42)"), std::string::npos) << a.result;
  EXPECT_NE(a.result.find(R"("ROWS":["given","added"])"), std::string::npos) << a.result;
  EXPECT_EQ(a.programException, "");
  std::lock_guard lock(seen.mutex);
  EXPECT_EQ(seen.logonUser, "DEMO");
  EXPECT_EQ(seen.logonClient, "001");
  EXPECT_EQ(seen.logonFunction, "Z_ECHO");
}

TEST_F(Server, SeparateArgumentsWorkAsGluedOnes) {
  const std::string id = programId("SEPARATE");
  Program program(id, {"-a", id, "-g", rfcHost(), "-x", rfcPort(), "-t"});
  const Answer a = callProgram(program.id(), "Z_ECHO", R"({"TEXT":"separate"})");
  ASSERT_EQ(a.rc, RFC_OK) << a.exception;
  EXPECT_NE(a.result.find("separate"), std::string::npos);
}

TEST_F(Server, AcceptExtTakesACommandLine) {
  const std::string id = programId("EXT");
  std::u16string line = u("-a " + id + " -g " + rfcHost() + " -x " + rfcPort());
  const RFC_HANDLE h2 = RfcAcceptExtU(line.data());
  ASSERT_NE(h2, RFC_HANDLE_NULL) << lastError();
  EXPECT_EQ(RfcListenU(h2), RFC_RETRY) << "nothing waits yet";
  EXPECT_EQ(RfcWaitForRequestU(h2, 0), RFC_RETRY);
  RfcCloseU(h2);
}

TEST_F(Server, BadArgumentsAreRefused) {
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{"server", "-gHOST", "-x3300"},
                                             {"server", "-aID", "-g"},
                                             {"server", "-aID", "-gH", "-xsapgw00", "-q"},
                                             {"server", "-aID", "-gH", "-xsapgw00", "-DDEST"},
                                             {"server", "-aID", "-g" + rfcHost(), "-xnot_a_service"}}) {
    std::vector<std::u16string> texts;
    for (const auto& a : args) texts.push_back(u(a));
    std::vector<rfc_char_t*> argv;
    for (auto& t : texts) argv.push_back(t.data());
    argv.push_back(nullptr);
    EXPECT_EQ(RfcAcceptU(argv.data()), RFC_HANDLE_NULL) << args.back();
    EXPECT_NE(lastError(), "none");
  }
}

TEST_F(Server, RaisedExceptionsComeBackWithTablesAndTexts) {
  Program program(programId("RAISE"));
  Answer a = callProgram(program.id(), "Z_FAIL", R"({"HOW":"EXCEPTION","ROWS":[]})");
  ASSERT_EQ(a.rc, RFC_OK) << a.exception;
  EXPECT_EQ(a.programException, "NO_DATA");
  EXPECT_NE(a.result.find("partial"), std::string::npos) << "tables come back with it: " << a.result;

  a = callProgram(program.id(), "Z_FAIL", R"({"HOW":"MESSAGE"})");
  ASSERT_EQ(a.rc, RFC_OK) << a.exception;
  EXPECT_EQ(a.programException, "NO_DATA");
  EXPECT_EQ(a.programText, "Nothing found for you");
}

TEST_F(Server, AFailingFunctionEndsTheConnection) {
  Program program(programId("GIVEUP"));
  const Answer a = callProgram(program.id(), "Z_FAIL", R"({"HOW":"GIVE_UP"})");
  EXPECT_EQ(a.rc, RFC_EXCEPTION);
  EXPECT_EQ(a.exception, "SYSTEM_FAILURE");
  EXPECT_EQ(program.waitForEnd(), RFC_FAILURE);
  EXPECT_EQ(disconnects.load() > 0, true);
}

TEST_F(Server, UnknownFunctionsGoToTheGlobalServer) {
  Program program(programId("GLOBAL"));
  const Answer a = callProgram(program.id(), "Z_ANYTHING", "{}");
  ASSERT_EQ(a.rc, RFC_OK) << a.exception;
  EXPECT_EQ(a.programException, "UNKNOWN");
  std::lock_guard lock(seen.mutex);
  EXPECT_EQ(seen.events.back(), "call Z_ANYTHING");
}

TEST_F(Server, TheLibraryAnswersSystemCalls) {
  Program program(programId("SYSTEM"));
  Answer a = callProgram(program.id(), "RFC_PING", "{}");
  EXPECT_EQ(a.rc, RFC_OK) << a.exception;
  a = callProgram(program.id(), "RFC_SYSTEM_INFO", "{}");
  EXPECT_NE(a.result.find("RFCPROTO"), std::string::npos) << a.result;
  a = callProgram(program.id(), "RFC_DOCU", "{}");
  EXPECT_NE(a.result.find("Echoes its text"), std::string::npos) << a.result;
  std::lock_guard lock(seen.mutex);
  EXPECT_TRUE(seen.events.empty()) << "no function of the program ran";
}

TEST_F(Server, TransactionsRunOnceInCheckCommitConfirmOrder) {
  Program program(programId("TRFC"));
  const std::string tid = "0A1B2C3D4E5F60718293A4C6";
  Answer a = callProgram(program.id(), "Z_ECHO", R"({"NUMBER":1})", "T", tid, "");
  ASSERT_EQ(a.rc, RFC_OK) << a.exception;
  EXPECT_EQ(a.executedBefore, "");
  a = callProgram(program.id(), "Z_ECHO", R"({"NUMBER":1})", "T", tid, "X");
  ASSERT_EQ(a.rc, RFC_OK) << a.exception;
  EXPECT_EQ(a.executedBefore, "X") << "the check knew the ID";
  std::lock_guard lock(seen.mutex);
  const std::vector<std::string> expected = {"check " + tid, "call Z_ECHO", "commit " + tid, "check " + tid,
                                             "confirm " + tid};
  EXPECT_EQ(seen.events, expected);
}

TEST_F(Server, AFailedTransactionIsRolledBack) {
  Program program(programId("ROLLBACK"));
  const std::string tid = "0A1B2C3D4E5F60718293A4D7";
  const Answer a = callProgram(program.id(), "Z_FAIL", R"({"HOW":"EXCEPTION"})", "T", tid, "");
  ASSERT_EQ(a.rc, RFC_OK) << a.exception;
  EXPECT_EQ(a.programException, "NO_DATA");
  std::lock_guard lock(seen.mutex);
  const std::vector<std::string> expected = {"check " + tid, "call Z_FAIL", "rollback " + tid};
  EXPECT_EQ(seen.events, expected);
}

TEST_F(Server, TheLogonHandlerCanRefuseAndEndTheConnection) {
  Program program(programId("LOGON"));
  {
    std::lock_guard lock(seen.mutex);
    seen.refuseLogon = true;
  }
  const Answer a = callProgram(program.id(), "Z_ECHO", R"({"TEXT":"x"})");
  EXPECT_EQ(a.rc, RFC_EXCEPTION);
  EXPECT_NE(lastError().find("Not on Sundays"), std::string::npos);
  EXPECT_EQ(program.waitForEnd(), RFC_CLOSED);
  std::lock_guard lock(seen.mutex);
  EXPECT_TRUE(seen.events.empty());
}

TEST_F(Server, ADroppedGatewayConnectionEndsDispatchWithClosed) {
  const int before = disconnects.load(), freedBefore = frees.load();
  {
    Program program(programId("DROP"));
    waitUntilListed(program.id());
    std::u16string drop = u"DROP      ";
    Parameters in;
    in.add("ACTION", RFCTYPE_CHAR, drop.data(), 20);
    std::u16string fn = u"Z_VSIM_GATEWAY";
    ASSERT_EQ(RfcCallReceiveExU(h, fn.data(), in.data(), nullptr, nullptr, nullptr, nullptr), RFC_OK) << lastError();
    EXPECT_EQ(program.waitForEnd(), RFC_CLOSED);
    EXPECT_EQ(disconnects.load(), before + 1);
    void* context = nullptr;
    EXPECT_EQ(RfcGetAttachedContextU(program.handle(), &context, nullptr), RFC_OK);
    EXPECT_EQ(context, &seen);
    EXPECT_EQ(RfcAttachContextU(program.handle(), nullptr, nullptr, nullptr), RFC_INVALID_PARAMETER) << "once only";
  }
  EXPECT_EQ(frees.load(), freedBefore + 1) << "RfcClose frees the context";
  EXPECT_EQ(disconnects.load(), before + 1) << "reported once";
}

TEST_F(Server, GetNameServesSystemCallsOnTheWay) {
  const std::string id = programId("GETNAME");
  std::vector<std::u16string> texts = {u("-a" + id), u("-g" + rfcHost()), u("-x" + rfcPort())};
  std::vector<rfc_char_t*> argv = {texts[0].data(), texts[1].data(), texts[2].data(), nullptr};
  const RFC_HANDLE server = RfcAcceptU(argv.data());
  ASSERT_NE(server, RFC_HANDLE_NULL) << "argv[0] may be a flag: " << lastError();
  std::thread caller([&] {
    callProgram(id, "RFC_PING", "{}");
    callProgram(id, "Z_ECHO", R"({"TEXT":"by hand"})");
  });
  RFC_FUNCTIONNAME name{};
  ASSERT_EQ(RfcGetNameExU(server, name), RFC_SYSTEM_CALLED) << "the ping was served";
  ASSERT_EQ(RfcGetNameU(server, name), RFC_OK);
  EXPECT_EQ(text(name), "Z_ECHO");
  SAP_UC text20[20];
  Parameters in;
  in.add("TEXT", RFCTYPE_CHAR, text20, sizeof text20);
  ASSERT_EQ(RfcGetDataU(server, in.data(), nullptr), RFC_OK);
  EXPECT_EQ(field(text20, 20), "by hand");
  Parameters out;
  out.add("ECHO", RFCTYPE_CHAR, text20, sizeof text20);
  EXPECT_EQ(RfcSendDataU(server, out.data(), nullptr), RFC_OK);
  EXPECT_EQ(RfcSendDataU(server, out.data(), nullptr), RFC_FAILURE) << "answered already";
  caller.join();
  RfcCloseU(server);
}

}  // namespace
