// Calls of the classic session against veltrane-sim through our librfcum.so:
// connect, synchronous and asynchronous calls, aborts, failures.
#include <dirent.h>

#include <algorithm>
#include <future>
#include <thread>

#include "rfc/call_event.h"
#include "platform/unicode.h"
#include "rfc_fixture.h"
#include "temp_dir.h"

namespace rfctest {
namespace {

using Calls = SessionTest;

TEST_F(Calls, SessionTypeIsRfc) {
  CComBSTR type;
  ASSERT_EQ(m_session->get_SessionType(&type), S_OK);
  EXPECT_EQ(Narrow(type.View()), "RFC");
}

TEST_F(Calls, SynchronousCallEchoesTheText) {
  CComPtr<IFunctionCall> call = Import(u"STFC_CONNECTION");
  ASSERT_TRUE(call);
  SetValue(call, u"Importing", u"REQUTEXT", CComVariant(u"hello classic"));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK) << ErrorDescription();
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
  EXPECT_EQ(Text(Value(call, u"Exporting", u"ECHOTEXT")), "hello classic");
}

TEST_F(Calls, ConnectTwiceReports523AndKeepsTheConnection) {
  EXPECT_EQ(m_session->Connect(), static_cast<HRESULT>(0x8004020B));
  EXPECT_TRUE(Connected(m_session));
  CComPtr<IFunctionCall> call = Import(u"RFC_PING");
  EXPECT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
}

TEST_F(Calls, AnEmptyFunctionNameReports538) {
  CComPtr<IFunctionCall> call;
  ASSERT_EQ(m_session->CreateCall(&call), S_OK);
  EXPECT_EQ(m_session->CallFunction(call, VARIANT_TRUE), static_cast<HRESULT>(0x8004021A));
}

TEST_F(Calls, AnAbapExceptionIsGroup105WithItsName) {
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_RAISE");
  ASSERT_TRUE(call);
  SetValue(call, u"Importing", u"EXCEPTION", CComVariant(u"NOT_FOUND"));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  EXPECT_TRUE(ErrorFlag(m_session));
  const ErrorText error = ErrorOf(m_session);
  EXPECT_EQ(error.group, 105);
  EXPECT_EQ(error.message, "NOT_FOUND");
  EXPECT_EQ(error.key, "");
  EXPECT_FALSE(ErrorFlag(m_session));
}

TEST_F(Calls, AnAbapExceptionStillReadsTheTablesBack) {
  CComPtr<IFunctionCall> call = Import(u"RFC_READ_TABLE");
  ASSERT_TRUE(call);
  SetValue(call, u"Importing", u"QUERY_TABLE", CComVariant(u"SFLIGHT"));
  CComPtr<IRfcRows> fields = Rows(call, u"Tables", u"FIELDS"), data = Rows(call, u"Tables", u"DATA");
  CComPtr<IRfcFields> row;
  ASSERT_EQ(fields->AddRow(&row), S_OK);
  CComPtr<IRfcField> name;
  ASSERT_EQ(row->get_Item(CComVariant(u"FIELDNAME"), &name), S_OK);
  ASSERT_EQ(name->put_value(CComVariant(u"NO_SUCH_FIELD")), S_OK);
  ASSERT_EQ(data->AddRows(2), S_OK);
  CComPtr<IRfcFields> sent;
  ASSERT_EQ(data->get_Item(1, &sent), S_OK);
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  const ErrorText error = ErrorOf(m_session);
  EXPECT_EQ(error.group, 105);
  EXPECT_EQ(error.message, "FIELD_NOT_VALID");
  // The SDK's tables are read back: new rows replace the ones sent.
  LONG count = -1;
  data->get_Count(&count);
  EXPECT_EQ(count, 2);
  CComPtr<IRfcFields> received;
  ASSERT_EQ(data->get_Item(1, &received), S_OK);
  EXPECT_NE(received.p, sent.p);
  fields->get_Count(&count);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(Text(Cell(fields, 1, u"FIELDNAME")), "NO_SUCH_FIELD");
}

TEST_F(Calls, AnswersThatAreNotThereYetOnlyMakeTheCallPollAgain) {
  TempDir dir;
  const std::string file = dir.file("trace.txt");
  m_session->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(file)));
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_WAIT");
  SetValue(call, u"Importing", u"MILLISECONDS", CComVariant(static_cast<int32_t>(300)));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
  EXPECT_GE(Value(call, u"Exporting", u"WAITED").lVal, 300);
  const std::string trace = ReadFile(file);
  const size_t listen = trace.find("listenForResult");
  const size_t received = trace.find("RfcReceiveEx() finished with RFC_OK");
  ASSERT_NE(listen, std::string::npos) << trace;
  ASSERT_NE(received, std::string::npos) << trace;
  // A dot for each poll, at least one a sixteenth of the way (and no more
  // than 100 ms) apart.
  const std::string polls = trace.substr(listen, received - listen);
  EXPECT_GE(std::count(polls.begin(), polls.end(), '.'), 3) << polls;
  EXPECT_EQ(polls.find("Strange result"), std::string::npos) << polls;
}

TEST_F(Calls, TablesComeBackAndAnEmptyOneReadsZeroRows) {
  CComPtr<IFunctionCall> call = Import(u"BAPI_FLIGHT_GETLIST");
  ASSERT_TRUE(call);
  SetValue(call, u"Importing", u"AIRLINE", CComVariant(u"LH"));
  SetValue(call, u"Importing", u"MAX_ROWS", CComVariant(static_cast<int32_t>(3)));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_TRUE), S_OK) << ErrorDescription();
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
  LONG flights = 0, ranges = -1;
  Rows(call, u"Tables", u"FLIGHT_LIST")->get_Count(&flights);
  Rows(call, u"Tables", u"DATE_RANGE")->get_Count(&ranges);
  EXPECT_EQ(flights, 3);
  EXPECT_EQ(ranges, 0);
  EXPECT_EQ(Text(Cell(Rows(call, u"Tables", u"FLIGHT_LIST"), 1, u"AIRLINEID")), "LH");
}

TEST_F(Calls, AReadBackThatFailsOnTheCallsThreadEndsASynchronousCall) {
  // A packed number the system does not fill reads back as zero bytes,
  // which the SDK refuses to convert: the thread's read-back fails.
  CComPtr<IFunctionCall> call = Import(u"STFC_CONNECTION");
  ASSERT_TRUE(call);
  CComPtr<IRfcType> packed;
  ASSERT_EQ(m_session->CreateType(&packed), S_OK);
  packed->DefineScalar(CComBSTR(u"P5"), TYPE_BCD, 5, 0, -1);
  CComPtr<IRfcParameters> exporting;
  call->get_Exporting(&exporting);
  ASSERT_EQ(exporting->AddParameter(CComBSTR(u"ZZ_UNKNOWN"), packed), S_OK);
  SetValue(call, u"Importing", u"REQUTEXT", CComVariant(u"x"));
  auto done = std::async(std::launch::async, [&] {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const HRESULT hr = m_session->CallFunction(call, VARIANT_TRUE);
    CoUninitialize();
    return hr;
  });
  ASSERT_EQ(done.wait_for(std::chrono::seconds(30)), std::future_status::ready) << "the call does not come back";
  EXPECT_EQ(done.get(), S_OK);
  // The session takes the next call.
  CComPtr<IFunctionCall> ping = Import(u"RFC_PING");
  EXPECT_EQ(m_session->CallFunction(ping, VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
}

TEST_F(Calls, AbortCallWithNothingRunningSucceeds) { EXPECT_EQ(m_session->AbortCall(), S_OK); }

TEST_F(Calls, DisconnectAlwaysSucceeds) {
  EXPECT_EQ(m_session->Disconnect(), S_OK);
  EXPECT_FALSE(Connected(m_session));
  EXPECT_EQ(m_session->Disconnect(), S_OK);
  CComPtr<IFunctionCall> call;
  m_session->CreateCall(&call);
  call->put_Function(CComBSTR(u"RFC_PING"));
  EXPECT_EQ(m_session->CallFunction(call, VARIANT_TRUE), static_cast<HRESULT>(0x80040208));
}

TEST_F(Calls, AsynchronousCallFiresCallFinishedAndASecondCallIsRefused) {
  AdvisedSink sink(m_session);
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_WAIT");
  SetValue(call, u"Importing", u"MILLISECONDS", CComVariant(static_cast<int32_t>(300)));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
  VARIANT_BOOL active = VARIANT_FALSE;
  m_session->get_CallActive(&active);
  EXPECT_EQ(active, VARIANT_TRUE);
  CComPtr<IFunctionCall> second = Import(u"RFC_PING");
  EXPECT_EQ(m_session->CallFunction(second, VARIANT_TRUE), static_cast<HRESULT>(0x8004020A));
  ASSERT_TRUE(sink->WaitFor(1));
  EXPECT_GE(Value(call, u"Exporting", u"WAITED").lVal, 300);
  EXPECT_FALSE(ErrorFlag(m_session));
}

TEST_F(Calls, TheRunningCallHasANamedEventThatGoesWithIt) {
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_WAIT");
  SetValue(call, u"Importing", u"MILLISECONDS", CComVariant(static_cast<int32_t>(400)));
  auto events = [] {
    int count = 0;
    if (DIR* dir = opendir("/dev/shm")) {
      const std::string prefix = "sem.VeltraneThreadRunning";
      const std::string suffix = "." + std::to_string(getpid());
      while (dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.rfind(prefix, 0) == 0 && name.size() > suffix.size() &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
          ++count;
      }
      closedir(dir);
    }
    return count;
  };
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
  EXPECT_EQ(events(), 1);
  ASSERT_EQ(m_session->AbortCall(), S_OK);
  EXPECT_EQ(events(), 0);
}

TEST_F(Calls, AbortCallCancelsWithoutCallFinishedAndLeavesNoError) {
  AdvisedSink sink(m_session);
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_WAIT");
  SetValue(call, u"Importing", u"MILLISECONDS", CComVariant(static_cast<int32_t>(2000)));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  ASSERT_EQ(m_session->AbortCall(), S_OK);
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
  EXPECT_EQ(sink->Count(), 0);
  VARIANT_BOOL active = VARIANT_TRUE;
  m_session->get_CallActive(&active);
  EXPECT_EQ(active, VARIANT_FALSE);
  // The connection stays for the next call.
  CComPtr<IFunctionCall> ping = Import(u"RFC_PING");
  EXPECT_EQ(m_session->CallFunction(ping, VARIANT_TRUE), S_OK);
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
}

TEST_F(Calls, ACallAbortedBeforeItsFirstPollIsCancelledWithoutListening) {
  TempDir dir;
  const std::string file = dir.file("trace.txt");
  m_session->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(file)));
  // The first poll comes 2 ms after the send; an abort at once is there first
  // (a slow machine may miss that now and then: a few tries).
  bool withoutListening = false;
  for (int attempt = 0; attempt < 5 && !withoutListening; ++attempt) {
    CComPtr<IFunctionCall> call = Import(u"Z_VSIM_WAIT");
    SetValue(call, u"Importing", u"MILLISECONDS", CComVariant(static_cast<int32_t>(1000)));
    ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
    ASSERT_EQ(m_session->AbortCall(), S_OK);
    const std::string trace = ReadFile(file);
    const size_t start = trace.rfind("\tlistenForResult\n");
    const size_t aborted = trace.find("listenForResult(): Thread aborted", start);
    ASSERT_NE(start, std::string::npos) << trace;
    ASSERT_NE(aborted, std::string::npos) << trace;
    const std::string polls = trace.substr(start, aborted - start);
    withoutListening = polls.find('.') == std::string::npos;
  }
  EXPECT_TRUE(withoutListening);
  EXPECT_FALSE(ErrorFlag(m_session)) << ErrorOf(m_session).message;
  CComPtr<IFunctionCall> ping = Import(u"RFC_PING");
  EXPECT_EQ(m_session->CallFunction(ping, VARIANT_TRUE), S_OK);
}

TEST_F(Calls, DisconnectAbortsARunningCallWithoutCallFinished) {
  AdvisedSink sink(m_session);
  CComPtr<IFunctionCall> call = Import(u"Z_VSIM_WAIT");
  SetValue(call, u"Importing", u"MILLISECONDS", CComVariant(static_cast<int32_t>(5000)));
  ASSERT_EQ(m_session->CallFunction(call, VARIANT_FALSE), S_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(m_session->Disconnect(), S_OK);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4)) << "the call was waited out";
  EXPECT_FALSE(Connected(m_session));
  VARIANT_BOOL active = VARIANT_TRUE;
  m_session->get_CallActive(&active);
  EXPECT_EQ(active, VARIANT_FALSE);
  EXPECT_EQ(sink->Count(), 0);
  // A new connection takes calls again.
  ASSERT_EQ(m_session->Connect(), S_OK);
  CComPtr<IFunctionCall> ping = Import(u"RFC_PING");
  EXPECT_EQ(m_session->CallFunction(ping, VARIANT_TRUE), S_OK);
}

TEST_F(Calls, ASessionReleasedWhileACallRunsLastsUntilTheCallEndsThenDisconnects) {
  TempDir dir;
  const std::string file = dir.file("trace.txt");
  CComPtr<IRfcSession> session = NewSession();
  session->put_Option(CComBSTR(u"trace.file"), CComBSTR(Utf8ToWide(file)));
  ASSERT_EQ(session->Connect(), S_OK);
  CComPtr<IFunctionCall> call;
  ASSERT_EQ(session->ImportCall(CComBSTR(u"Z_VSIM_WAIT"), VARIANT_FALSE, &call), S_OK);
  SetValue(call, u"Importing", u"MILLISECONDS", CComVariant(static_cast<int32_t>(300)));
  ASSERT_EQ(session->CallFunction(call, VARIANT_FALSE), S_OK);
  session.Release();
  std::string trace;
  for (int i = 0; i < 100 && trace.find("Veltrane: Session Disconnect") == std::string::npos; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    trace = ReadFile(file);
  }
  const size_t received = trace.find("RfcReceiveEx() finished with RFC_OK");
  const size_t disconnected = trace.find("Veltrane: Session Disconnect");
  ASSERT_NE(disconnected, std::string::npos) << trace;
  EXPECT_LT(received, disconnected) << trace;
  EXPECT_EQ(trace.find("Thread aborted"), std::string::npos) << trace;
  EXPECT_GE(Value(call, u"Exporting", u"WAITED").lVal, 300);
}

}  // namespace
}  // namespace rfctest
