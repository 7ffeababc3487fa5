// Registered servers: a program registers at the gateway, and a function module of the system
// calls it synchronously or transactionally with the caller's logon passed on.
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <set>
#include <thread>

#include "sdk_fixture.h"

using namespace sdktest;

namespace {

// What the program's handlers saw; they are plain functions, as the SDK calls them.
struct Seen {
  std::mutex mutex;
  std::set<std::u16string> executed;  // transaction IDs committed and not yet confirmed
  std::vector<std::string> events;
  std::string user, client, language, program;
  int echoes = 0;
  bool deny = false;
};
Seen seen;

void note(const std::string& e) {
  std::lock_guard lock(seen.mutex);
  seen.events.push_back(e);
}

RFC_TYPE_DESC_HANDLE rowType() {
  static RFC_TYPE_DESC_HANDLE t = [] {
    RFC_TYPE_DESC_HANDLE t = RfcCreateTypeDesc(u"ZPROGRAM_ROW", nullptr);
    RFC_FIELD_DESC f{};
    const std::u16string name = u"NAME";
    std::copy(name.begin(), name.end(), f.name);
    f.type = RFCTYPE_CHAR;
    f.nucLength = 10;
    f.ucLength = 20;
    RfcAddTypeField(t, &f, nullptr);
    RfcSetTypeLength(t, 10, 20, nullptr);
    return t;
  }();
  return t;
}

void addParameter(RFC_FUNCTION_DESC_HANDLE f, const std::u16string& name, RFCTYPE type, RFC_DIRECTION d, unsigned nuc,
                  RFC_TYPE_DESC_HANDLE sub = nullptr) {
  RFC_PARAMETER_DESC p{};
  std::copy(name.begin(), name.end(), p.name);
  p.type = type;
  p.direction = d;
  p.nucLength = nuc;
  p.ucLength = type == RFCTYPE_CHAR ? 2 * nuc : nuc;
  p.typeDescHandle = sub;
  ASSERT_EQ(RfcAddParameter(f, &p, nullptr), RFC_OK);
}

RFC_RC describe(const SAP_UC* function, RFC_ATTRIBUTES attributes, RFC_FUNCTION_DESC_HANDLE* out) {
  const std::u16string name(function);
  note("describe " + utf8(name) + " for " + utf8(attributes.user));
  if (name != u"Z_ECHO" && name != u"Z_FAIL") return RFC_NOT_FOUND;
  static RFC_FUNCTION_DESC_HANDLE echo = [] {
    RFC_FUNCTION_DESC_HANDLE f = RfcCreateFunctionDesc(u"Z_ECHO", nullptr);
    addParameter(f, u"TEXT", RFCTYPE_STRING, RFC_IMPORT, 8);
    addParameter(f, u"NUMBER", RFCTYPE_INT, RFC_IMPORT, 4);
    addParameter(f, u"ECHO", RFCTYPE_STRING, RFC_EXPORT, 8);
    addParameter(f, u"DOUBLE", RFCTYPE_INT, RFC_EXPORT, 4);
    addParameter(f, u"ROWS", RFCTYPE_TABLE, RFC_TABLES, 10, rowType());
    return f;
  }();
  static RFC_FUNCTION_DESC_HANDLE failing = [] {
    RFC_FUNCTION_DESC_HANDLE f = RfcCreateFunctionDesc(u"Z_FAIL", nullptr);
    addParameter(f, u"HOW", RFCTYPE_CHAR, RFC_IMPORT, 10);
    addParameter(f, u"ROWS", RFCTYPE_TABLE, RFC_TABLES, 10, rowType());
    return f;
  }();
  *out = name == u"Z_ECHO" ? echo : failing;
  return RFC_OK;
}

RFC_RC serve(RFC_CONNECTION_HANDLE c, RFC_FUNCTION_HANDLE f, RFC_ERROR_INFO* info) {
  RFC_ABAP_NAME name;
  RfcGetFunctionName(RfcDescribeFunction(f, nullptr), name, nullptr);
  RFC_ATTRIBUTES a;
  if (RfcGetConnectionAttributes(c, &a, nullptr) == RFC_OK) {
    std::lock_guard lock(seen.mutex);
    seen.user = utf8(a.user);
    seen.client = utf8(a.client);
    seen.language = utf8(a.language);
  }
  if (std::u16string(name) == u"Z_FAIL") {
    const std::string how = getString(f, "HOW");
    RFC_TABLE_HANDLE rows;
    RfcGetTable(f, u"ROWS", &rows, nullptr);
    setString(RfcAppendNewRow(rows, nullptr), "NAME", "partial");
    if (how == "EXCEPTION") {
      std::u16string key = u"NO_DATA";
      std::copy(key.begin(), key.end(), info->key);
      return RFC_ABAP_EXCEPTION;
    }
    std::u16string text = u"The program gave up";
    std::copy(text.begin(), text.end(), info->message);
    return RFC_EXTERNAL_FAILURE;
  }
  {
    std::lock_guard lock(seen.mutex);
    ++seen.echoes;
  }
  const std::string text = getString(f, "TEXT");
  RFC_INT n = 0;
  RfcGetInt(f, u"NUMBER", &n, nullptr);
  setString(f, "ECHO", text);
  RfcSetInt(f, u"DOUBLE", 2 * n, nullptr);
  RFC_TABLE_HANDLE rows;
  RfcGetTable(f, u"ROWS", &rows, nullptr);
  setString(RfcAppendNewRow(rows, nullptr), "NAME", "added");
  return RFC_OK;
}

RFC_RC authorize(RFC_CONNECTION_HANDLE, RFC_SECURITY_ATTRIBUTES* s, RFC_ERROR_INFO* info) {
  {
    std::lock_guard lock(seen.mutex);
    seen.program = utf8(s->progName);
    if (!seen.deny) return RFC_OK;
  }
  std::u16string text = u"Not for you";
  std::copy(text.begin(), text.end(), info->message);
  return RFC_AUTHORIZATION_FAILURE;
}

RFC_RC onCheck(RFC_CONNECTION_HANDLE, const SAP_UC* tid) {
  std::lock_guard lock(seen.mutex);
  seen.events.push_back("check " + utf8(tid));
  return seen.executed.count(tid) ? RFC_EXECUTED : RFC_OK;
}
RFC_RC onCommit(RFC_CONNECTION_HANDLE, const SAP_UC* tid) {
  std::lock_guard lock(seen.mutex);
  seen.events.push_back("commit " + utf8(tid));
  seen.executed.insert(tid);
  return RFC_OK;
}
RFC_RC onRollback(RFC_CONNECTION_HANDLE, const SAP_UC* tid) {
  note("rollback " + utf8(tid));
  return RFC_OK;
}
RFC_RC onConfirm(RFC_CONNECTION_HANDLE, const SAP_UC* tid) {
  std::lock_guard lock(seen.mutex);
  seen.events.push_back("confirm " + utf8(tid));
  seen.executed.erase(tid);
  return RFC_OK;
}

// A registered program serving on its own thread until stopped or its connection ends.
class Program {
 public:
  explicit Program(std::string id) : id_(std::move(id)) {
    Params p{{"program_id", id_}, {"gwhost", rfcHost()}, {"gwserv", rfcPort()}};
    RFC_ERROR_INFO info;
    handle_ = RfcRegisterServer(p.data(), p.count(), &info);
    EXPECT_NE(handle_, nullptr) << sdktest::describe(info.code, info);
    thread_ = std::thread([this] {
      RFC_ERROR_INFO info;
      while (!stop_) {
        const RFC_RC rc = RfcListenAndDispatch(handle_, 1, &info);
        if (rc != RFC_OK && rc != RFC_RETRY && rc != RFC_ABAP_EXCEPTION) {
          ended_ = rc;
          break;
        }
      }
    });
  }
  ~Program() {
    stop_ = true;
    thread_.join();
    RfcCloseConnection(handle_, nullptr);
  }
  RFC_RC waitForEnd() {
    thread_.join();
    thread_ = std::thread([] {});
    return ended_;
  }
  const std::string& id() const { return id_; }

 private:
  std::string id_;
  RFC_CONNECTION_HANDLE handle_ = nullptr;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::atomic<RFC_RC> ended_{RFC_OK};
};

class Server : public Connected {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(RfcInstallGenericServerFunction(serve, describe, nullptr), RFC_OK);
    ASSERT_EQ(RfcInstallAuthorizationCheckHandler(authorize, nullptr), RFC_OK);
    ASSERT_EQ(RfcInstallTransactionHandlers(nullptr, onCheck, onCommit, onRollback, onConfirm, nullptr), RFC_OK);
  }
  void SetUp() override {
    Connected::SetUp();
    std::lock_guard lock(seen.mutex);
    seen.events.clear();
    seen.deny = false;
  }

  // Z_VSIM_CALL_PROGRAM with these importing values; returns the invoke's result.
  RFC_RC callProgram(Call& call, const std::string& program, const std::string& function, const std::string& json,
                     const std::string& mode = "S", const std::string& tid = "", const std::string& confirm = "X") {
    call.setString("PROGRAM_ID", program);
    call.setString("FUNCTION", function);
    call.setString("PARAMETERS", json);
    call.setString("MODE", mode);
    if (!tid.empty()) call.setString("TID", tid);
    call.setString("CONFIRM", confirm);
    call.setInt("TIMEOUT_MS", 10000);
    return call.invoke(&info);
  }
  static std::string programId(const std::string& name) { return "VSIM." + name + "." + std::to_string(::getpid()); }
};

TEST_F(Server, ASynchronousCallWithTheCallersLogonPassedOn) {
  Program program(programId("SYNC"));
  Call call(c, "Z_VSIM_CALL_PROGRAM");
  ASSERT_EQ(callProgram(call, program.id(), "Z_ECHO", R"({"TEXT":"hello","NUMBER":21,"ROWS":[{"NAME":"given"}]})"),
            RFC_OK)
      << sdktest::describe(info.code, info);
  const std::string result = call.getString("RESULT");
  EXPECT_NE(result.find(R"("ECHO":"hello")"), std::string::npos) << result;
  EXPECT_NE(result.find(R"("DOUBLE":42)"), std::string::npos) << result;
  EXPECT_NE(result.find(R"("ROWS":[{"NAME":"given"},{"NAME":"added"}])"), std::string::npos) << result;
  EXPECT_EQ(call.getString("EXCEPTION"), "");
  std::lock_guard lock(seen.mutex);
  EXPECT_EQ(seen.user, "DEMO");
  EXPECT_EQ(seen.client, "001");
  EXPECT_EQ(seen.language, "E");
  EXPECT_EQ(seen.program, "SAPLZVSIM");
}

TEST_F(Server, TransactionalCallsRunOnceAndAreConfirmed) {
  Program program(programId("TRFC"));
  const std::string tid = "0A1B2C3D4E5F60718293A4B5";
  int before;
  {
    std::lock_guard lock(seen.mutex);
    before = seen.echoes;
  }
  Call first(c, "Z_VSIM_CALL_PROGRAM");
  ASSERT_EQ(callProgram(first, program.id(), "Z_ECHO", R"({"NUMBER":1})", "T", tid, ""), RFC_OK)
      << sdktest::describe(info.code, info);
  EXPECT_EQ(first.getString("TID_USED"), tid);
  EXPECT_EQ(first.getString("EXECUTED_BEFORE"), "");
  Call again(c, "Z_VSIM_CALL_PROGRAM");
  ASSERT_EQ(callProgram(again, program.id(), "Z_ECHO", R"({"NUMBER":1})", "T", tid, "X"), RFC_OK);
  EXPECT_EQ(again.getString("EXECUTED_BEFORE"), "X") << "the program's check knew the ID";
  std::lock_guard lock(seen.mutex);
  EXPECT_EQ(seen.echoes, before + 1) << "executed exactly once";
  const std::vector<std::string> expected = {"check " + tid, "describe Z_ECHO for DEMO", "commit " + tid,
                                             "check " + tid, "confirm " + tid};
  EXPECT_EQ(seen.events, expected);
  EXPECT_EQ(seen.executed.count(std::u16string(u(tid))), 0u) << "forgotten on confirm";
}

TEST_F(Server, ExceptionsFailuresAndUnknownFunctions) {
  Program program(programId("FAIL"));
  Call exception(c, "Z_VSIM_CALL_PROGRAM");
  ASSERT_EQ(callProgram(exception, program.id(), "Z_FAIL", R"({"HOW":"EXCEPTION"})"), RFC_OK);
  EXPECT_EQ(exception.getString("EXCEPTION"), "NO_DATA");
  EXPECT_NE(exception.getString("RESULT").find("partial"), std::string::npos) << "tables come back with it";

  Call failure(c, "Z_VSIM_CALL_PROGRAM");
  EXPECT_EQ(callProgram(failure, program.id(), "Z_FAIL", R"({"HOW":"GIVE_UP"})"), RFC_ABAP_EXCEPTION);
  EXPECT_EQ(utf8(info.key), "SYSTEM_FAILURE");
  EXPECT_EQ(program.waitForEnd(), RFC_EXTERNAL_FAILURE) << "the program's connection ends after a failure";
}

TEST_F(Server, AnUnknownFunctionIsRefusedAndEndsTheConnection) {
  Program program(programId("NOTFOUND"));
  Call call(c, "Z_VSIM_CALL_PROGRAM");
  EXPECT_EQ(callProgram(call, program.id(), "Z_NOPE", "{}"), RFC_ABAP_EXCEPTION);
  EXPECT_EQ(utf8(info.key), "SYSTEM_FAILURE");
  EXPECT_EQ(program.waitForEnd(), RFC_NOT_FOUND);
}

TEST_F(Server, TheAuthorizationHandlerRefusesCalls) {
  Program program(programId("AUTH"));
  {
    std::lock_guard lock(seen.mutex);
    seen.deny = true;
  }
  Call call(c, "Z_VSIM_CALL_PROGRAM");
  EXPECT_EQ(callProgram(call, program.id(), "Z_ECHO", R"({"TEXT":"x"})"), RFC_ABAP_EXCEPTION);
  EXPECT_EQ(utf8(info.key), "SYSTEM_FAILURE");
  EXPECT_NE(utf8(info.message).find("Not for you"), std::string::npos);
  {
    std::lock_guard lock(seen.mutex);
    seen.deny = false;
  }
  Call allowed(c, "Z_VSIM_CALL_PROGRAM");
  EXPECT_EQ(callProgram(allowed, program.id(), "Z_ECHO", R"({"TEXT":"x"})"), RFC_OK) << "the program still serves";
}

TEST_F(Server, UnknownProgramIdsGiveTheSystemsError) {
  Call call(c, "Z_VSIM_CALL_PROGRAM");
  EXPECT_EQ(callProgram(call, "NOT.REGISTERED", "Z_ECHO", "{}"), RFC_ABAP_EXCEPTION);
  EXPECT_EQ(utf8(info.key), "COMMUNICATION_FAILURE");
  EXPECT_NE(utf8(info.abapMsgV1).find("NOT.REGISTERED"), std::string::npos);
}

TEST_F(Server, TheFaultSwitchDropsRegisteredPrograms) {
  Program program(programId("DROP"));
  Call drop(c, "Z_VSIM_GATEWAY");
  drop.setString("ACTION", "DROP");
  ASSERT_EQ(drop.invoke(&info), RFC_OK);
  EXPECT_GE(drop.getInt("COUNT"), 1);
  EXPECT_EQ(program.waitForEnd(), RFC_COMMUNICATION_FAILURE);
  Program again(programId("DROP"));
  Call call(c, "Z_VSIM_CALL_PROGRAM");
  EXPECT_EQ(callProgram(call, again.id(), "Z_ECHO", R"({"TEXT":"back"})"), RFC_OK) << "registered anew";
}

TEST_F(Server, ListenReturnsRetryWhenNothingArrives) {
  Params p{{"program_id", programId("IDLE")}, {"gwhost", rfcHost()}, {"gwserv", rfcPort()}};
  RFC_CONNECTION_HANDLE h = RfcRegisterServer(p.data(), p.count(), &info);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(RfcListenAndDispatch(h, 0, &info), RFC_RETRY);
  EXPECT_EQ(RfcInvoke(h, nullptr, &info), RFC_INVALID_HANDLE);
  RFC_CONNECTION_HANDLE client = open();
  EXPECT_EQ(RfcListenAndDispatch(client, 0, &info), RFC_INVALID_PARAMETER) << "a client connection does not listen";
  RfcCloseConnection(client, nullptr);
  EXPECT_EQ(RfcCloseConnection(h, &info), RFC_OK);
  Params missing{{"gwhost", rfcHost()}, {"gwserv", rfcPort()}};
  EXPECT_EQ(RfcRegisterServer(missing.data(), missing.count(), &info), nullptr);
  EXPECT_EQ(info.code, RFC_INVALID_PARAMETER);
}

}  // namespace
