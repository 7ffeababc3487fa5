#include "nwrfc_fixture.h"

#include <memory>
#include <regex>

#include "platform/unicode.h"
#include "runtime/trace.h"
#include "sim_logon.h"

namespace nwtest {

namespace {

vsim::testing::SimOptions Options() {
  vsim::testing::SimOptions options;
  options.args = {"--data-dir", std::string(VELTRANE_SOURCE_DIR) + "/tests/nwrfc/data"};
  return options;
}

std::u16string Wide(const std::string& text) { return Utf8ToWide(text); }

}  // namespace

vsim::testing::SimProcess& Sim() {
  static vsim::testing::SimProcess sim(Options());
  return sim;
}

std::u16string ConnectString() {
  return Wide("ashost=" + Sim().rfcHost() + " gwserv=" + std::to_string(Sim().rfcPort()));
}

std::u16string SdkDir() { return VELTRANE_NWRFC_SDK_DIR; }

std::string Control(const std::string& what) { return test_support::ControlSim(Sim(), what); }

long RfcRequests() {
  const std::string body = Control("status");
  std::smatch m;
  if (!std::regex_search(body, m, std::regex("\"rfcRequests\":([0-9]+)"))) return -1;
  return std::stol(m[1]);
}

CComPtr<IRfcSession> NewSession(const char16_t* user, const char16_t* password) {
  CComPtr<IRfcSession> session;
  EXPECT_EQ(CoCreateInstance(CLSID_NWRfcSession, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                             reinterpret_cast<void**>(&session)),
            S_OK);
  if (!session) return session;
  session->put_Option(CComBSTR(u"nwrfc.path"), CComBSTR(SdkDir()));
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(CComBSTR(ConnectString()));
  test_support::SetSimLogon(session, user, password);
  return session;
}

CComPtr<IRfcSession> ConnectedSession(const char16_t* user) {
  CComPtr<IRfcSession> session = NewSession(user);
  EXPECT_EQ(session->Connect(), S_OK) << ErrorDescription();
  return session;
}

const veltrane::nwrfc::EntryPoints& Sdk() {
  if (!veltrane::nwrfc::NWRfcLibrary::Loaded()) ConnectedSession();
  return *veltrane::nwrfc::NWRfcLibrary::Loaded();
}

SessionSink* SessionSink::AdviseTo(ISession* session) {
  auto* sink = new SessionSink(session);
  CComQIPtr<IConnectionPointContainer> container(session);
  CComPtr<IConnectionPoint> point;
  DWORD cookie = 0;
  EXPECT_TRUE(container && container->FindConnectionPoint(DIID__SessionEvents, &point) == S_OK);
  if (point) {
    EXPECT_EQ(point->Advise(sink, &cookie), S_OK);
  }
  return sink;
}

ULONG SessionSink::Release() {
  const ULONG left = EventSink::Release();
  // Only the test's own reference is left.
  if (left == 1) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_released = true;
    m_letGo.notify_all();
  }
  return left;
}

bool SessionSink::WaitUntilLetGo() {
  std::unique_lock<std::mutex> lock(m_mutex);
  return m_letGo.wait_for(lock, std::chrono::seconds(90), [&] { return m_released; });
}

RawConnection::RawConnection() {
  const std::u16string host = Wide(Sim().rfcHost()), port = Wide(std::to_string(Sim().rfcPort()));
  const RFC_CONNECTION_PARAMETER params[] = {{u"ashost", host.c_str()}, {u"gwserv", port.c_str()}, {u"client", u"001"},
                                             {u"user", u"DEMO"},        {u"passwd", u"Welcome1"},  {u"lang", u"EN"}};
  RFC_ERROR_INFO info{};
  m_handle = Sdk().RfcOpenConnection(params, 6, &info);
  EXPECT_NE(m_handle, nullptr) << Narrow(info.message);
}

RawConnection::~RawConnection() {
  if (m_handle) Sdk().RfcCloseConnection(m_handle, nullptr);
}

Function::Function(const RawConnection& connection, const char16_t* name) {
  RFC_ERROR_INFO info{};
  RFC_FUNCTION_DESC_HANDLE desc = Sdk().RfcGetFunctionDesc(connection.handle(), name, &info);
  EXPECT_NE(desc, nullptr) << Narrow(info.message);
  if (desc) m_handle = Sdk().RfcCreateFunction(desc, &info);
}

Function::~Function() {
  if (m_handle) Sdk().RfcDestroyFunction(m_handle, nullptr);
}

std::u16string GetString(DATA_CONTAINER_HANDLE container, const char16_t* name) {
  SAP_UC buffer[512];
  unsigned length = 0;
  RFC_ERROR_INFO info{};
  const RFC_RC rc = Sdk().RfcGetString(container, name, buffer, 512, &length, &info);
  EXPECT_EQ(rc, RFC_OK) << Narrow(name) << ": " << Narrow(info.message);
  return rc == RFC_OK ? std::u16string(buffer, length) : std::u16string();
}

void SetString(DATA_CONTAINER_HANDLE container, const char16_t* name, std::u16string_view value) {
  RFC_ERROR_INFO info{};
  EXPECT_EQ(Sdk().RfcSetString(container, name, value.data(), static_cast<unsigned>(value.size()), &info), RFC_OK)
      << Narrow(name) << ": " << Narrow(info.message);
}

bool IsActive(RFC_FUNCTION_HANDLE function, const char16_t* name) {
  int active = -1;
  RFC_ERROR_INFO info{};
  EXPECT_EQ(Sdk().RfcIsParameterActive(function, name, &active, &info), RFC_OK) << Narrow(info.message);
  return active == 1;
}

RFC_STRUCTURE_HANDLE Structure(DATA_CONTAINER_HANDLE container, const char16_t* name) {
  RFC_STRUCTURE_HANDLE handle = nullptr;
  RFC_ERROR_INFO info{};
  EXPECT_EQ(Sdk().RfcGetStructure(container, name, &handle, &info), RFC_OK) << Narrow(info.message);
  return handle;
}

RFC_TABLE_HANDLE Table(DATA_CONTAINER_HANDLE container, const char16_t* name) {
  RFC_TABLE_HANDLE handle = nullptr;
  RFC_ERROR_INFO info{};
  EXPECT_EQ(Sdk().RfcGetTable(container, name, &handle, &info), RFC_OK) << Narrow(info.message);
  return handle;
}

unsigned RowCount(RFC_TABLE_HANDLE table) {
  unsigned count = 0;
  EXPECT_EQ(Sdk().RfcGetRowCount(table, &count, nullptr), RFC_OK);
  return count;
}

long ExportedNumber(IFunctionCall* call, const char16_t* name) {
  CComVariant value = Value(call, u"Exporting", name);
  EXPECT_EQ(value.ChangeType(VT_I4), S_OK) << Narrow(name);
  return value.vt == VT_I4 ? value.lVal : -1;
}

CComPtr<IRfcField> Member(IFunctionCall* call, const char16_t* group, const char16_t* structure,
                          const char16_t* member) {
  CComPtr<IRfcFields> fields;
  CComPtr<IRfcField> field;
  if (CComPtr<IRfcParameter> p = Parameter(call, group, structure)) p->get_Fields(&fields);
  EXPECT_TRUE(fields) << Narrow(structure);
  if (fields) EXPECT_EQ(fields->get_Item(CComVariant(member), &field), S_OK) << Narrow(member);
  return field;
}

CComPtr<IRfcRows> Rows(IFunctionCall* call, const char16_t* group, const char16_t* name) {
  CComPtr<IRfcRows> rows;
  if (CComPtr<IRfcParameter> p = Parameter(call, group, name)) EXPECT_EQ(p->get_Rows(&rows), S_OK);
  return rows;
}

CComPtr<IFunctionCall> CallReadingAnInvalidDate(ISession* session) {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(session->CreateCall(&call), S_OK);
  if (!call) return call;
  call->put_Function(CComBSTR(u"Z_VSIM_TYPES"));
  CComPtr<IRfcParameters> importing, exporting;
  call->get_Importing(&importing);
  call->get_Exporting(&exporting);
  importing->AddScalar(CComBSTR(u"IV_CHAR"), TYPE_CHAR, 10, 0, CComVariant(u"20241399"));
  exporting->AddScalar(CComBSTR(u"EV_CHAR"), TYPE_DATE, 8, 0, CComVariant());
  return call;
}

std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }

std::string Text(BSTR text) { return Narrow(BstrView(text)); }

std::string Text(const VARIANT& value) {
  if (value.vt != VT_BSTR) return "<vt " + std::to_string(value.vt) + ">";
  return Text(value.bstrVal);
}

ErrorText ErrorOf(ISession* session) {
  ErrorText e;
  CComPtr<IRfcError> info;
  EXPECT_EQ(session->get_ErrorInfo(&info), S_OK);
  if (!info) return e;
  ERRORGROUP group = RFCERROR_NO_ERROR;
  info->get_ERRORGROUP(&group);
  e.group = group;
  CComBSTR key, message;
  info->get_ErrorGroupTxt(&key);
  info->get_Message(&message);
  e.key = Text(key);
  e.message = Text(message);
  return e;
}

void NWTest::SetUp() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }

void NWTest::TearDown() {
  TraceResetForTesting();
  CoUninitialize();
}

void SessionTest::SetUp() {
  NWTest::SetUp();
  m_session = ConnectedSession();
}

void SessionTest::TearDown() {
  m_session.Release();
  NWTest::TearDown();
}

void SessionTest::ExpectItEndsUnseen(SessionSink* sink) {
  EXPECT_TRUE(Active());
  ASSERT_EQ(m_session->Disconnect(), S_OK);
  EXPECT_TRUE(Active()) << "the invoke ended and CallActive stays true";
  m_session.Release();
  ASSERT_TRUE(sink->WaitUntilLetGo()) << "the session goes when the call's thread has ended";
  EXPECT_EQ(sink->Count(), 0);
  sink->Release();
}

CComPtr<IFunctionCall> SessionTest::Import(const char16_t* name, VARIANT_BOOL ignoreUnsupportedParams) {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(m_session->ImportCall(CComBSTR(name), ignoreUnsupportedParams, &call), S_OK) << ErrorDescription();
  return call;
}

}  // namespace nwtest
