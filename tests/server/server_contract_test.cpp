// What every registered server does when the simulated system calls it through its gateway.
#include <future>
#include <set>

#include "platform/apartment.h"
#include "server_contract.h"

namespace servertest {
namespace {

class ServerContract : public ServerTest, public ::testing::WithParamInterface<ServerClass> {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    m_server = NewServer(GetParam(), "C", &m_program);
    ASSERT_TRUE(m_server);
    m_sink = ServerSink::Create();
    m_cookie = m_sink->AdviseTo(m_server);
    m_echo = ImportInterface(u"Z_SRV_ECHO");
    ASSERT_TRUE(m_echo);
  }
  void TearDown() override {
    if (m_server) ShutdownPumping(m_server);
    m_server.Release();
    m_sink.Release();
    m_echo.Release();
    ServerTest::TearDown();
  }

  void Serve() {
    ASSERT_EQ(m_server->InstallFunction(m_echo), S_OK);
    ASSERT_EQ(m_server->Serve(), S_OK);
    EXPECT_TRUE(IsListening(m_server));
  }
  ProgramAnswer Call(const std::string& function, const std::string& parameters, const std::string& mode = "S",
                     const std::string& tid = "", const std::string& confirm = "X") {
    ProgramCall call;
    call.programId = Narrow(m_program);
    call.function = function;
    call.parameters = parameters;
    call.mode = mode;
    call.tid = tid;
    call.confirm = confirm;
    return CallProgram(call);
  }
  ProgramCall ProgramCallOf(const std::string& function, const std::string& parameters) {
    ProgramCall call;
    call.programId = Narrow(m_program);
    call.function = function;
    call.parameters = parameters;
    return call;
  }
  static bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }

  std::u16string m_program;
  CComPtr<IRfcServer> m_server;
  CComPtr<ServerSink> m_sink;
  DWORD m_cookie = 0;
  CComPtr<IFunctionCall> m_echo;
};

std::string NameOf(const ::testing::TestParamInfo<ServerClass>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Servers, ServerContract, ::testing::ValuesIn(ServerClasses()), NameOf);

// The handler of Z_SRV_ECHO: every group read, every group written.
HRESULT Echo(IDispatch* argument) {
  CComPtr<IFunctionCall> call = As<IFunctionCall>(argument);
  const std::string text = TextOf(Value(call, u"Importing", u"IV_TEXT"));
  const long number = NumberOf(Value(call, u"Importing", u"IV_NUMBER"));
  CComVariant amount = Value(call, u"Importing", u"IV_AMOUNT");
  CComVariant date = Value(call, u"Importing", u"IV_DATE");
  SetValue(call, u"Exporting", u"EV_TEXT", CComVariant(CComBSTR(Wide("echo:" + text))));
  SetValue(call, u"Exporting", u"EV_NUMBER", CComVariant(static_cast<LONG>(2 * number)));
  SetValue(call, u"Exporting", u"EV_AMOUNT", amount);
  SetValue(call, u"Exporting", u"EV_DATE", date);
  CComPtr<IRfcFields> in, out;
  Parameter(call, u"Importing", u"IS_PAIR")->get_Fields(&in);
  Parameter(call, u"Exporting", u"ES_PAIR")->get_Fields(&out);
  for (const char16_t* member : {u"KEY", u"NUMBER"}) {
    CComPtr<IRfcField> from, to;
    in->get_Item(CComVariant(member), &from);
    out->get_Item(CComVariant(member), &to);
    CComVariant v;
    from->get_value(&v);
    to->put_value(v);
  }
  SetValue(call, u"Changing", u"CV_COUNTER",
           CComVariant(static_cast<LONG>(NumberOf(Value(call, u"Changing", u"CV_COUNTER")) + 1)));
  CComPtr<IRfcRows> rows;
  Parameter(call, u"Tables", u"T_PAIRS")->get_Rows(&rows);
  LONG count = 0;
  rows->get_Count(&count);
  CComPtr<IRfcFields> row;
  rows->AddRow(&row);
  CComPtr<IRfcField> key, n;
  row->get_Item(CComVariant(u"KEY"), &key);
  row->get_Item(CComVariant(u"NUMBER"), &n);
  key->put_value(CComVariant(u"added"));
  n->put_value(CComVariant(static_cast<LONG>(count)));
  return S_OK;
}

const char* kEchoParameters =
    R"({"IV_TEXT":"hello","IV_NUMBER":21,"IV_AMOUNT":2.5,"IV_DATE":"20240229",)"
    R"("IS_PAIR":{"KEY":"k1","NUMBER":7},"CV_COUNTER":41,"T_PAIRS":[{"KEY":"given","NUMBER":1}]})";

TEST_P(ServerContract, ServesASynchronousCallWithEveryKindOfParameter) {
  m_sink->On(kIncomingCall, Echo);
  Serve();
  const ProgramAnswer a = Call("Z_SRV_ECHO", kEchoParameters);
  ASSERT_EQ(a.rc, RFC_OK) << a.key << ": " << a.message;
  EXPECT_EQ(a.exception, "");
  EXPECT_TRUE(Contains(a.result, R"("EV_TEXT":"echo:hello")")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("EV_NUMBER":42)")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("EV_AMOUNT":2.5)")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("EV_DATE":"20240229")")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("ES_PAIR":{"KEY":"k1","NUMBER":7})")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("CV_COUNTER":42)")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("T_PAIRS":[{"KEY":"given","NUMBER":1},{"KEY":"added","NUMBER":1}])")) << a.result;
  const auto events = m_sink->Events();
  EXPECT_NE(std::find(events.begin(), events.end(), "IncomingCall Z_SRV_ECHO"), events.end());
}

// The XML form reads a structure back without its type code and layout;
// the server serves the interface all the same.
TEST_P(ServerContract, ServesAnInterfaceReadFromItsXmlForm) {
  CComBSTR xml;
  ASSERT_EQ(m_echo->ToXML(&xml), S_OK);
  CComPtr<ISession> session;
  ASSERT_EQ(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISession,
                             reinterpret_cast<void**>(&session)),
            S_OK);
  CComPtr<IFunctionCall> fromXml;
  ASSERT_EQ(session->CreateCall(&fromXml), S_OK);
  ASSERT_EQ(fromXml->FromXML(xml), S_OK);
  m_echo = fromXml;
  m_sink->On(kIncomingCall, Echo);
  Serve();
  const ProgramAnswer a = Call("Z_SRV_ECHO", kEchoParameters);
  ASSERT_EQ(a.rc, RFC_OK) << a.key << ": " << a.message;
  EXPECT_TRUE(Contains(a.result, R"("ES_PAIR":{"KEY":"k1","NUMBER":7})")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("T_PAIRS":[{"KEY":"given","NUMBER":1},{"KEY":"added","NUMBER":1}])")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("EV_TEXT":"echo:hello")")) << a.result;
}

// The handler of Z_SRV_PACKED: seven times the price, the amount doubled,
// the price in a structure and in a row added to the table.
HRESULT Prices(IDispatch* argument) {
  CComPtr<IFunctionCall> call = As<IFunctionCall>(argument);
  CComVariant price = Value(call, u"Importing", u"IV_PRICE"), amount = Value(call, u"Changing", u"CV_AMOUNT");
  if (FAILED(price.ChangeType(VT_R8)) || FAILED(amount.ChangeType(VT_R8))) return E_FAIL;
  SetValue(call, u"Exporting", u"EV_TOTAL", CComVariant(7 * price.dblVal));
  SetValue(call, u"Changing", u"CV_AMOUNT", CComVariant(2 * amount.dblVal));
  CComPtr<IRfcFields> priced;
  Parameter(call, u"Exporting", u"ES_PRICED")->get_Fields(&priced);
  CComPtr<IRfcRows> rows;
  Parameter(call, u"Tables", u"T_PRICED")->get_Rows(&rows);
  CComPtr<IRfcFields> row;
  rows->AddRow(&row);
  for (IRfcFields* fields : {priced.p, row.p}) {
    CComPtr<IRfcField> key, value;
    fields->get_Item(CComVariant(u"KEY"), &key);
    fields->get_Item(CComVariant(u"PRICE"), &value);
    key->put_value(CComVariant(u"added"));
    value->put_value(price);
  }
  return S_OK;
}

// A packed number keeps its decimals both ways, whatever the SDK passes of
// them: scalars of each direction, fields of a structure and of table rows.
TEST_P(ServerContract, PackedNumbersKeepTheirDecimalsInEveryDirection) {
  m_echo = ImportInterface(u"Z_SRV_PACKED");
  ASSERT_TRUE(m_echo);
  std::vector<double> seen;
  m_sink->On(kIncomingCall, [&seen](IDispatch* argument) {
    CComPtr<IFunctionCall> call = As<IFunctionCall>(argument);
    CComPtr<IRfcRows> rows;
    Parameter(call, u"Tables", u"T_PRICED")->get_Rows(&rows);
    CComPtr<IRfcFields> first;
    rows->get_Item(1, &first);
    CComPtr<IRfcField> given;
    first->get_Item(CComVariant(u"PRICE"), &given);
    for (CComVariant v :
         {Value(call, u"Importing", u"IV_PRICE"), Value(call, u"Changing", u"CV_AMOUNT"), CComVariant()}) {
      if (v.vt == VT_EMPTY) given->get_value(&v);
      seen.push_back(SUCCEEDED(v.ChangeType(VT_R8)) ? v.dblVal : -1);
    }
    return Prices(argument);
  });
  Serve();
  const ProgramAnswer a =
      Call("Z_SRV_PACKED", R"({"IV_PRICE":"1.5","CV_AMOUNT":2.25,"T_PRICED":[{"KEY":"given","PRICE":"0.5"}]})");
  ASSERT_EQ(a.rc, RFC_OK) << a.key << ": " << a.message;
  EXPECT_EQ(seen, (std::vector<double>{1.5, 2.25, 0.5})) << "what the system sent";
  EXPECT_TRUE(Contains(a.result, R"("EV_TOTAL":"10.50")")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("CV_AMOUNT":"4.500")")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("ES_PRICED":{"KEY":"added","PRICE":"1.50"})")) << a.result;
  EXPECT_TRUE(Contains(a.result, R"("T_PRICED":[{"KEY":"given","PRICE":"0.50"},{"KEY":"added","PRICE":"1.50"}])"))
      << a.result;
}

TEST_P(ServerContract, HandlersRunInTheApartmentThatAdvised) {
  Serve();
  ASSERT_EQ(Call("Z_SRV_ECHO", "{}").rc, RFC_OK);
  const auto threads = m_sink->Threads();
  ASSERT_FALSE(threads.empty());
  for (const auto& t : threads) EXPECT_EQ(t, std::this_thread::get_id());
}

TEST_P(ServerContract, EachCallGetsAFreshCopyOfThePrototype) {
  m_sink->On(kIncomingCall, [](IDispatch* argument) {
    CComPtr<IFunctionCall> call = As<IFunctionCall>(argument);
    // Whatever a call leaves in its copy, the next one starts empty.
    const long counter = NumberOf(Value(call, u"Changing", u"CV_COUNTER"));
    SetValue(call, u"Exporting", u"EV_NUMBER", CComVariant(static_cast<LONG>(counter)));
    SetValue(call, u"Changing", u"CV_COUNTER", CComVariant(static_cast<LONG>(counter + 100)));
    return S_OK;
  });
  Serve();
  EXPECT_TRUE(Contains(Call("Z_SRV_ECHO", R"({"CV_COUNTER":5})").result, R"("EV_NUMBER":5)"));
  EXPECT_TRUE(Contains(Call("Z_SRV_ECHO", "{}").result, R"("EV_NUMBER":0)"));
  CComVariant prototype = Value(m_echo, u"Changing", u"CV_COUNTER");
  EXPECT_NE(NumberOf(prototype), 105) << "the installed prototype stays clean";
}

TEST_P(ServerContract, AnAbapExceptionSendsTablesButNoExportingValues) {
  m_sink->On(kIncomingCall, [](IDispatch* argument) {
    CComPtr<IFunctionCall> call = As<IFunctionCall>(argument);
    Echo(argument);
    return call->RaiseException(CComBSTR(u"NOT_FOUND"), CComBSTR(u"Nothing for hello"));
  });
  Serve();
  const ProgramAnswer a = Call("Z_SRV_ECHO", kEchoParameters);
  ASSERT_EQ(a.rc, RFC_OK) << a.message;
  EXPECT_EQ(a.exception, "NOT_FOUND") << a.result;
  EXPECT_TRUE(Contains(a.result, "added")) << "tables come back: " << a.result;
  EXPECT_FALSE(Contains(a.result, "echo:hello")) << "exporting values do not: " << a.result;
  EXPECT_FALSE(Contains(a.result, "CV_COUNTER\":42")) << "nor changing ones: " << a.result;
  EXPECT_TRUE(IsListening(m_server)) << "an exception leaves the connection serving";
  EXPECT_EQ(Call("Z_SRV_ECHO", "{}").rc, RFC_OK);
}

TEST_P(ServerContract, AnExceptionWithAnEmptyNameIsNoException) {
  m_sink->On(kIncomingCall, [](IDispatch* argument) {
    Echo(argument);
    return As<IFunctionCall>(argument)->RaiseException(CComBSTR(u""), CComBSTR(u"ignored"));
  });
  Serve();
  const ProgramAnswer a = Call("Z_SRV_ECHO", R"({"IV_TEXT":"x"})");
  ASSERT_EQ(a.rc, RFC_OK);
  EXPECT_EQ(a.exception, "");
  EXPECT_TRUE(Contains(a.result, "echo:x")) << a.result;
}

TEST_P(ServerContract, AHandlerThatFails) {
  int errors = 0;
  m_sink->On(kIncomingCall, [](IDispatch* argument) {
    SetValue(As<IFunctionCall>(argument), u"Exporting", u"EV_TEXT", CComVariant(u"before the failure"));
    return E_FAIL;
  });
  m_sink->On(kServerError, [&errors](IDispatch* argument) {
    ++errors;
    return As<IRfcServerErrorInfo>(argument)->put_Restart(VARIANT_TRUE);
  });
  Serve();
  const ProgramAnswer a = Call("Z_SRV_ECHO", "{}");
  if (GetParam().failedHandlerFailsTheCall) {
    // The SDK answers with a system failure carrying the failure's text and
    // ends the connection; the restart registers the program again.
    EXPECT_EQ(a.rc, RFC_ABAP_EXCEPTION);
    EXPECT_EQ(a.key, "SYSTEM_FAILURE");
    EXPECT_TRUE(Contains(a.message, "Unspecified error")) << a.message;
    ASSERT_TRUE(PumpUntil([&] { return errors >= 1 && IsListening(m_server); }, std::chrono::seconds(30)));
    m_sink->On(kIncomingCall, Echo);
    EXPECT_TRUE(Contains(Call("Z_SRV_ECHO", R"({"IV_TEXT":"again"})").result, "echo:again"));
  } else {
    ASSERT_EQ(a.rc, RFC_OK) << a.message;
    EXPECT_TRUE(Contains(a.result, "before the failure")) << a.result;
    EXPECT_TRUE(IsListening(m_server));
    EXPECT_EQ(errors, 0);
  }
}

TEST_P(ServerContract, AnAnswerThatCannotBeSentIsASystemFailure) {
  // A parameter without a type cannot be sent: the server gives up the call,
  // the SDK answers with a system failure and ends the connection, and
  // ServerError's restart keeps the program serving.
  int errors = 0;
  m_sink->On(kIncomingCall, [](IDispatch* argument) {
    CComPtr<IRfcParameters> exporting;
    As<IFunctionCall>(argument)->get_Exporting(&exporting);
    return exporting->AddParameter(CComBSTR(u"UNSENDABLE"), nullptr);
  });
  m_sink->On(kServerError, [&errors](IDispatch* argument) {
    ++errors;
    return As<IRfcServerErrorInfo>(argument)->put_Restart(VARIANT_TRUE);
  });
  Serve();
  const ProgramAnswer a = Call("Z_SRV_ECHO", "{}");
  EXPECT_EQ(a.rc, RFC_ABAP_EXCEPTION) << a.result;
  EXPECT_EQ(a.key, "SYSTEM_FAILURE") << a.message;
  ASSERT_TRUE(PumpUntil([&] { return errors >= 1 && IsListening(m_server); }, std::chrono::seconds(30)));
  EXPECT_TRUE(ErrorSet(m_server));
  m_sink->On(kIncomingCall, Echo);
  EXPECT_TRUE(Contains(Call("Z_SRV_ECHO", R"({"IV_TEXT":"again"})").result, "echo:again"));
}

TEST_P(ServerContract, AnUnknownFunctionArrivesWithoutParameters) {
  LONG counts[4] = {-1, -1, -1, -1};
  m_sink->On(kIncomingCall, [&counts](IDispatch* argument) {
    CComPtr<IFunctionCall> call = As<IFunctionCall>(argument);
    CComPtr<IRfcParameters> groups[4];
    call->get_Importing(&groups[0]);
    call->get_Exporting(&groups[1]);
    call->get_Changing(&groups[2]);
    call->get_Tables(&groups[3]);
    for (int i = 0; i < 4; ++i) groups[i]->get_Count(&counts[i]);
    return S_OK;
  });
  Serve();
  const ProgramAnswer a = Call("Z_SRV_NEVER_INSTALLED", R"({"IV_TEXT":"lost"})");
  EXPECT_EQ(a.rc, RFC_OK) << a.message;
  const auto events = m_sink->Events();
  EXPECT_NE(std::find(events.begin(), events.end(), "IncomingCall Z_SRV_NEVER_INSTALLED"), events.end());
  for (LONG c : counts) EXPECT_EQ(c, 0);
  CComPtr<IFunctionCalls> registered;
  m_server->get_RegisteredFunctions(&registered);
  LONG count = 0;
  registered->get_Count(&count);
  EXPECT_EQ(count, 1) << "only the installed function is registered";
}

TEST_P(ServerContract, ARefusedLogonStopsTheCallBeforeIncomingCall) {
  std::string user, client;
  m_sink->On(kLogon, [&](IDispatch* argument) {
    CComPtr<IRfcServerLogonInfo> info = As<IRfcServerLogonInfo>(argument);
    CComBSTR u, c;
    info->get_User(&u);
    info->get_Client(&c);
    user = Text(u);
    client = Text(c);
    return info->put_RequestAllowed(VARIANT_FALSE);
  });
  Serve();
  const ProgramAnswer a = Call("Z_SRV_ECHO", "{}");
  EXPECT_NE(a.rc, RFC_OK);
  EXPECT_EQ(user, "DEMO");
  EXPECT_EQ(client, "001");
  for (const auto& e : m_sink->Events()) EXPECT_NE(e.rfind("IncomingCall", 0), 0u) << e;
}

TEST_P(ServerContract, ALogonWithoutAHandlerIsAllowed) {
  Serve();
  EXPECT_EQ(Call("Z_SRV_ECHO", "{}").rc, RFC_OK);
  const auto events = m_sink->Events();
  EXPECT_NE(std::find(events.begin(), events.end(), "Logon DEMO"), events.end());
  EXPECT_NE(std::find(events.begin(), events.end(), "IncomingCall Z_SRV_ECHO"), events.end());
}

// A handler that keeps transactions as a program must: executed IDs are
// answered RFC_EXECUTED (16) until confirmed.
void KeepTransactions(ServerSink* sink, std::set<std::string>* executed, int* runs, long executedStatus) {
  sink->On(kTransactionCheck, [executed, executedStatus](IDispatch* argument) {
    CComPtr<IRfcTransactionInfo> info = As<IRfcTransactionInfo>(argument);
    CComBSTR tid;
    info->get_TransactionID(&tid);
    return info->put_Status(executed->count(Text(tid)) ? executedStatus : 0);
  });
  sink->On(kTransactionCommit, [executed](IDispatch* argument) {
    CComPtr<IRfcTransactionInfo> info = As<IRfcTransactionInfo>(argument);
    CComBSTR tid;
    info->get_TransactionID(&tid);
    executed->insert(Text(tid));
    return info->put_Status(0);
  });
  sink->On(kTransactionConfirm, [executed](IDispatch* argument) {
    CComBSTR tid;
    As<IRfcTransactionInfo>(argument)->get_TransactionID(&tid);
    executed->erase(Text(tid));
    return S_OK;
  });
  sink->On(kIncomingCall, [runs](IDispatch*) {
    ++*runs;
    return S_OK;
  });
}

std::vector<std::string> Without(const std::vector<std::string>& events, const std::string& prefix) {
  std::vector<std::string> kept;
  for (const auto& e : events)
    if (e.rfind(prefix, 0) != 0) kept.push_back(e);
  return kept;
}

TEST_P(ServerContract, ATransactionRunsCheckCallCommitAndConfirmInOrder) {
  std::set<std::string> executed;
  int runs = 0;
  KeepTransactions(m_sink, &executed, &runs, GetParam().executedStatus);
  Serve();
  const std::string tid = "0A1B2C3D4E5F60718293A4B6";
  const ProgramAnswer a = Call("Z_SRV_ECHO", "{}", "T", tid, "X");
  ASSERT_EQ(a.rc, RFC_OK) << a.message;
  EXPECT_EQ(a.tidUsed, tid);
  const std::vector<std::string> expected = {"TransactionCheck " + tid, "IncomingCall Z_SRV_ECHO",
                                             "TransactionCommit " + tid, "TransactionConfirm " + tid};
  EXPECT_EQ(Without(m_sink->Events(), "Logon"), expected);
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(executed.empty()) << "forgotten on confirm";
}

TEST_P(ServerContract, TheSameTransactionTwiceRunsOnce) {
  std::set<std::string> executed;
  int runs = 0;
  KeepTransactions(m_sink, &executed, &runs, GetParam().executedStatus);
  Serve();
  const std::string tid = "0A1B2C3D4E5F60718293A4B7";
  ASSERT_EQ(Call("Z_SRV_ECHO", "{}", "T", tid, "").rc, RFC_OK);
  const ProgramAnswer again = Call("Z_SRV_ECHO", "{}", "T", tid, "X");
  ASSERT_EQ(again.rc, RFC_OK) << again.message;
  EXPECT_TRUE(again.executedBefore) << "the check's answer reached the system";
  EXPECT_EQ(runs, 1) << "executed exactly once";
  const std::vector<std::string> expected = {"TransactionCheck " + tid, "IncomingCall Z_SRV_ECHO",
                                             "TransactionCommit " + tid, "TransactionCheck " + tid,
                                             "TransactionConfirm " + tid};
  EXPECT_EQ(Without(m_sink->Events(), "Logon"), expected);
}

TEST_P(ServerContract, AFailedTransactionIsRolledBack) {
  std::set<std::string> executed;
  int runs = 0;
  KeepTransactions(m_sink, &executed, &runs, GetParam().executedStatus);
  m_sink->On(kIncomingCall, [](IDispatch* argument) {
    return As<IFunctionCall>(argument)->RaiseException(CComBSTR(u"NOT_FOUND"), CComBSTR(u""));
  });
  Serve();
  const std::string tid = "0A1B2C3D4E5F60718293A4B8";
  const ProgramAnswer a = Call("Z_SRV_ECHO", "{}", "T", tid, "X");
  EXPECT_EQ(a.exception, "NOT_FOUND");
  const std::vector<std::string> expected = {"TransactionCheck " + tid, "IncomingCall Z_SRV_ECHO",
                                             "TransactionRollback " + tid};
  EXPECT_EQ(Without(m_sink->Events(), "Logon"), expected);
  EXPECT_TRUE(executed.empty());
}

TEST_P(ServerContract, ACheckWithoutAnAnswerKeepsTheTransactionFromRunning) {
  // The check's status stays 65534, which is not "go ahead".
  long status = 0;
  m_sink->On(kTransactionCheck, [&status](IDispatch* argument) {
    LONG s = 0;
    As<IRfcTransactionInfo>(argument)->get_Status(&s);
    status = s;
    return S_OK;
  });
  Serve();
  const ProgramAnswer a = Call("Z_SRV_ECHO", "{}", "T", "0A1B2C3D4E5F60718293A4B9", "X");
  EXPECT_NE(a.rc, RFC_OK);
  EXPECT_EQ(status, 65534);
  // The refusal ends the program's connection.
  EXPECT_TRUE(PumpUntil([&] { return !IsListening(m_server); }));
  for (const auto& e : m_sink->Events()) EXPECT_NE(e.rfind("IncomingCall", 0), 0u) << e;
}

TEST_P(ServerContract, ADroppedGatewayFiresServerErrorAndARestartRegistersAgain) {
  int errors = 0;
  m_sink->On(kServerError, [&errors](IDispatch* argument) {
    ++errors;
    return As<IRfcServerErrorInfo>(argument)->put_Restart(VARIANT_TRUE);
  });
  Serve();
  ASSERT_EQ(Call("Z_SRV_ECHO", "{}").rc, RFC_OK);
  EXPECT_GE(DropPrograms(), 1);
  ASSERT_TRUE(PumpUntil([&] { return errors >= 1; }, std::chrono::seconds(30)));
  // Registered again: the system reaches the program once more.
  ASSERT_TRUE(PumpUntil([&] { return IsListening(m_server); }, std::chrono::seconds(30)));
  const ProgramAnswer a = Call("Z_SRV_ECHO", "{}");
  EXPECT_EQ(a.rc, RFC_OK) << a.message;
  EXPECT_TRUE(ErrorSet(m_server)) << "Error stays set after a restart that worked";
  CComPtr<IRfcServerErrorInfo> info;
  m_server->get_ErrorInfo(&info);
  LONG rc = 0;
  info->get_RfcRc(&rc);
  EXPECT_NE(rc, 0) << "ErrorInfo keeps the loss";
}

TEST_P(ServerContract, WithoutARestartADroppedGatewayEndsListening) {
  Serve();
  EXPECT_GE(DropPrograms(), 1);
  ASSERT_TRUE(m_sink->WaitFor(1));
  EXPECT_EQ(m_sink->Events().back().rfind("ServerError", 0), 0u);
  ASSERT_TRUE(PumpUntil([&] { return !IsListening(m_server); }, std::chrono::seconds(30)));
  EXPECT_TRUE(ErrorSet(m_server));
  EXPECT_NE(Call("Z_SRV_ECHO", "{}").rc, RFC_OK) << "nobody is registered";
}

TEST_P(ServerContract, ShutdownWhileIdleAndWithoutServe) {
  EXPECT_EQ(m_server->Shutdown(), S_OK) << "without Serve it only returns";
  EXPECT_FALSE(IsListening(m_server));
  EXPECT_FALSE(ErrorSet(m_server));
  Serve();
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  EXPECT_FALSE(IsListening(m_server));
  EXPECT_FALSE(ErrorSet(m_server)) << "a stop while idle is no failure";
  EXPECT_TRUE(m_sink->Events().empty()) << "and fires no ServerError";
  EXPECT_NE(Call("Z_SRV_ECHO", "{}").rc, RFC_OK) << "the program is gone from the gateway";
  EXPECT_EQ(m_server->Shutdown(), S_OK) << "a second Shutdown";
}

TEST_P(ServerContract, WithoutASinkALogonIsAllowedAndATransactionIsNotRun) {
  CComQIPtr<IConnectionPointContainer> container(m_server);
  CComPtr<IConnectionPoint> point;
  ASSERT_EQ(container->FindConnectionPoint(DIID__RfcServerEvents, &point), S_OK);
  ASSERT_EQ(point->Unadvise(m_cookie), S_OK);
  Serve();
  // RequestAllowed stays true, and the answer goes out as the copy stands.
  const ProgramAnswer a = Call("Z_SRV_ECHO", R"({"IV_TEXT":"nobody"})");
  EXPECT_EQ(a.rc, RFC_OK) << a.message;
  EXPECT_FALSE(Contains(a.result, "nobody")) << a.result;
  // The check's Status stays 65534, which does not let the transaction run.
  EXPECT_NE(Call("Z_SRV_ECHO", "{}", "T", "0A1B2C3D4E5F60718293A4C2", "X").rc, RFC_OK);
  EXPECT_TRUE(m_sink->Events().empty());
}

TEST_P(ServerContract, ShutdownWhileACallRunsLetsTheCallFinish) {
  // The sink lives in an apartment of its own that pumps; its handler holds
  // the call until the client's Shutdown has begun.
  std::promise<void> advised;
  std::atomic<bool> inCall{false}, release{false}, stop{false};
  std::thread apartment([&] {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    CComPtr<ServerSink> sink = ServerSink::Create();
    sink->On(kIncomingCall, [&](IDispatch* argument) {
      inCall = true;
      while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(5));
      SetValue(As<IFunctionCall>(argument), u"Exporting", u"EV_TEXT", CComVariant(u"finished"));
      return S_OK;
    });
    sink->AdviseTo(m_server);
    advised.set_value();
    while (!stop) CoPumpMessages(10);
    sink.Release();
    CoUninitialize();
  });
  advised.get_future().wait();
  Serve();
  ProgramAnswer answer;
  std::atomic<bool> done{false};
  std::thread caller = StartProgramCall(ProgramCallOf("Z_SRV_ECHO", "{}"), &answer, &done);
  ASSERT_TRUE(PumpUntil([&] { return inCall.load(); }));
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    release = true;
  });
  EXPECT_EQ(m_server->Shutdown(), S_OK);
  EXPECT_FALSE(IsListening(m_server));
  releaser.join();
  caller.join();
  EXPECT_EQ(answer.rc, RFC_OK) << answer.message;
  EXPECT_TRUE(Contains(answer.result, "finished")) << answer.result;
  stop = true;
  apartment.join();
}

TEST_P(ServerContract, ShutdownFromTheApartmentOfAPendingHandlerWaitsOnItself) {
  // The warned deadlock: the server thread waits for a handler of the
  // client's apartment while that apartment waits in Shutdown without
  // pumping. A time-out detects it; closing the apartment then ends it.
  CComPtr<IRfcServer> server = m_server;
  std::atomic<bool> arrived{false};
  // A sink of the multithreaded apartment, advised first, is called on the
  // server thread itself before the client's: it tells that a call arrived.
  std::thread mta([&] {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    CComPtr<ServerSink> first = ServerSink::Create();
    first->On(kLogon, [&](IDispatch*) {
      arrived = true;
      return S_OK;
    });
    first->AdviseTo(server);
    CoUninitialize();
  });
  mta.join();
  std::shared_ptr<veltrane::platform::Apartment> clientApartment;
  std::promise<void> ready;
  std::atomic<bool> returned{false};
  HRESULT shutdown = E_FAIL;
  std::thread client([&] {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    clientApartment = veltrane::platform::CurrentApartment();
    CComPtr<ServerSink> sink = ServerSink::Create();
    sink->AdviseTo(server);
    ready.set_value();
    while (!arrived) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    shutdown = server->Shutdown();
    returned = true;
    sink.Release();
    CoUninitialize();
  });
  ready.get_future().wait();
  Serve();
  ProgramAnswer answer;
  std::atomic<bool> done{false};
  std::thread caller = StartProgramCall(ProgramCallOf("Z_SRV_ECHO", "{}"), &answer, &done);
  // This test's own sink keeps being served meanwhile.
  EXPECT_FALSE(PumpUntil([&] { return returned.load(); }, std::chrono::seconds(3))) << "the deadlock is there";
  clientApartment->close();
  ASSERT_TRUE(PumpUntil([&] { return returned.load(); }));
  EXPECT_EQ(shutdown, S_OK);
  client.join();
  ASSERT_TRUE(PumpUntil([&] { return done.load(); }));
  caller.join();
  EXPECT_EQ(answer.rc, RFC_OK) << "the call was answered once the apartment had gone";
}

TEST_P(ServerContract, InstallFunctionTwiceLeavesItToTheCollection) {
  ASSERT_EQ(m_server->InstallFunction(m_echo), S_OK);
  ASSERT_EQ(m_server->InstallFunction(m_echo), S_OK);
  CComPtr<IFunctionCalls> registered;
  m_server->get_RegisteredFunctions(&registered);
  LONG count = 0;
  registered->get_Count(&count);
  EXPECT_EQ(count, 2) << "duplicates stay in the list";
}

TEST_P(ServerContract, OptionsStoreAnythingAndUnknownOnesReadEmpty) {
  CComBSTR value;
  EXPECT_EQ(m_server->get_Option(CComBSTR(u"no.such.option"), &value), S_OK);
  EXPECT_EQ(value.Length(), 0u);
  EXPECT_EQ(m_server->put_Option(CComBSTR(u"my.option"), CComBSTR(u"kept")), S_OK);
  value.Empty();
  m_server->get_Option(CComBSTR(u"my.option"), &value);
  EXPECT_EQ(Text(value), "kept");
}

}  // namespace
}  // namespace servertest
