#include "rfc_fixture.h"

#include "platform/unicode.h"
#include "runtime/trace.h"
#include "sim_logon.h"

namespace rfctest {

vsim::testing::SimProcess& Sim() {
  static vsim::testing::SimProcess sim;
  return sim;
}

std::u16string ConnectString() {
  return Utf8ToWide("ASHOST=" + Sim().rfcHost() + " GWSERV=" + std::to_string(Sim().rfcPort()) + " TOUPPER=0");
}

std::u16string SdkDir() { return VELTRANE_RFC_SDK_DIR; }

std::string Control(const std::string& what) { return test_support::ControlSim(Sim(), what); }

CComPtr<IRfcSession> NewSession(const char16_t* user, const char16_t* password) {
  CComPtr<IRfcSession> session;
  EXPECT_EQ(CoCreateInstance(CLSID_RfcSession, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcSession,
                             reinterpret_cast<void**>(&session)),
            S_OK);
  if (!session) return session;
  session->put_Option(CComBSTR(u"librfc.path"), CComBSTR(SdkDir()));
  CComPtr<IRfcSystemData> system;
  session->get_RfcSystemData(&system);
  system->put_ConnectString(CComBSTR(ConnectString()));
  test_support::SetSimLogon(session, user, password);
  return session;
}

std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }

std::string Text(const VARIANT& value) {
  if (value.vt != VT_BSTR) return "<vt " + std::to_string(value.vt) + ">";
  return Narrow(BstrView(value.bstrVal));
}

ErrorText ErrorOf(ISession* session) {
  ErrorText text;
  CComPtr<IRfcError> error;
  session->get_ErrorInfo(&error);
  if (!error) return text;
  ERRORGROUP group{};
  error->get_ERRORGROUP(&group);
  text.group = group;
  CComBSTR key, message, module;
  error->get_ErrorGroupTxt(&key);
  error->get_Message(&message);
  error->get_ModuleName(&module);
  text.key = Narrow(key.View());
  text.message = Narrow(message.View());
  text.module = Narrow(module.View());
  return text;
}

CComPtr<IRfcParameter> Parameter(IFunctionCall* call, const char16_t* group, const char16_t* name) {
  CComPtr<IRfcParameters> parameters;
  const std::u16string_view g(group);
  if (g == u"Importing") call->get_Importing(&parameters);
  if (g == u"Exporting") call->get_Exporting(&parameters);
  if (g == u"Changing") call->get_Changing(&parameters);
  if (g == u"Tables") call->get_Tables(&parameters);
  CComPtr<IRfcParameter> parameter;
  if (parameters) parameters->get_Item(CComVariant(name), &parameter);
  return parameter;
}

CComVariant Value(IFunctionCall* call, const char16_t* group, const char16_t* name) {
  CComVariant value;
  CComPtr<IRfcParameter> parameter = Parameter(call, group, name);
  EXPECT_TRUE(parameter) << Narrow(name);
  if (parameter) parameter->get_value(&value);
  return value;
}

void SetValue(IFunctionCall* call, const char16_t* group, const char16_t* name, const CComVariant& value) {
  CComPtr<IRfcParameter> parameter = Parameter(call, group, name);
  ASSERT_TRUE(parameter) << Narrow(name);
  EXPECT_EQ(parameter->put_value(value), S_OK) << Narrow(name);
}

CComPtr<IRfcRows> Rows(IFunctionCall* call, const char16_t* group, const char16_t* name) {
  CComPtr<IRfcRows> rows;
  CComPtr<IRfcParameter> parameter = Parameter(call, group, name);
  EXPECT_TRUE(parameter) << Narrow(name);
  if (parameter) parameter->get_Rows(&rows);
  return rows;
}

CComVariant Cell(IRfcRows* rows, long row, const char16_t* column) {
  CComPtr<IRfcFields> fields;
  rows->get_Item(row, &fields);
  CComVariant value;
  if (!fields) return value;
  CComPtr<IRfcField> field;
  fields->get_Item(CComVariant(column), &field);
  if (field) field->get_value(&value);
  return value;
}

AdvisedSink::AdvisedSink(ISession* session) : m_sink(new test_support::EventSink(session)) {
  CComQIPtr<IConnectionPointContainer> container(session);
  EXPECT_TRUE(container && container->FindConnectionPoint(DIID__SessionEvents, &m_point) == S_OK);
  if (m_point) EXPECT_EQ(m_point->Advise(m_sink, &m_cookie), S_OK);
}

AdvisedSink::~AdvisedSink() {
  if (m_point) m_point->Unadvise(m_cookie);
  m_sink->Release();
}

void RfcTest::SetUp() {
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  TraceResetForTesting();
}

void RfcTest::TearDown() {
  TraceResetForTesting();
  CoUninitialize();
}

void SessionTest::SetUp() {
  RfcTest::SetUp();
  m_session = NewSession();
  ASSERT_TRUE(m_session);
  ASSERT_EQ(m_session->Connect(), S_OK) << ErrorDescription();
  ASSERT_TRUE(Connected(m_session)) << ErrorOf(m_session).message;
}

void SessionTest::TearDown() {
  if (m_session) m_session->Disconnect();
  m_session.Release();
  RfcTest::TearDown();
}

CComPtr<IFunctionCall> SessionTest::Import(const char16_t* name, VARIANT_BOOL ignoreUnsupportedParams) {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(m_session->ImportCall(CComBSTR(name), ignoreUnsupportedParams, &call), S_OK) << ErrorDescription();
  return call;
}

}  // namespace rfctest
