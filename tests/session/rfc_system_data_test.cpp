// IRfcSystemData: the connection data of the RFC sessions, stored as given.
#include "fake_session.h"

#include <gtest/gtest.h>

#include "session/rfc_system_data.h"

using namespace session_test;

namespace {

CComPtr<IRfcSystemData> NewData() {
  CComPtr<CRfcSystemData> data;
  EXPECT_EQ(CRfcSystemData::CreateInstance(&data.p), S_OK);
  return CComPtr<IRfcSystemData>(data.p);
}

TEST(RfcSystemData, StartsEmptyWithoutSwitches) {
  auto data = NewData();
  CComBSTR text;
  ASSERT_EQ(data->get_ConnectString(&text), S_OK);
  EXPECT_TRUE(text.m_str != nullptr);
  EXPECT_EQ(text.Length(), 0u);
  SHORT mode = -1;
  ASSERT_EQ(data->get_VisualMode(&mode), S_OK);
  EXPECT_EQ(mode, 0);
  VARIANT_BOOL debug = VARIANT_TRUE;
  ASSERT_EQ(data->get_Debug(&debug), S_OK);
  EXPECT_EQ(debug, VARIANT_FALSE);
}

TEST(RfcSystemData, KeepsWhatIsGivenUnchecked) {
  auto data = NewData();
  ASSERT_EQ(data->put_ConnectString(CComBSTR(u"ASHOST=host SYSNR=00 \"odd")), S_OK);
  ASSERT_EQ(data->put_VisualMode(7), S_OK);
  ASSERT_EQ(data->put_Debug(1), S_OK);
  CComBSTR text;
  data->get_ConnectString(&text);
  EXPECT_EQ(Str(text), u"ASHOST=host SYSNR=00 \"odd");
  SHORT mode = 0;
  data->get_VisualMode(&mode);
  EXPECT_EQ(mode, 7);
  VARIANT_BOOL debug = 0;
  data->get_Debug(&debug);
  EXPECT_EQ(debug, 1);
  CComPtr<CRfcSystemData> impl;
  CRfcSystemData::CreateInstance(&impl.p);
  impl->put_ConnectString(CComBSTR(u"x"));
  EXPECT_EQ(impl->ConnectString(), u"x");
}

TEST(RfcSystemData, NullPointersAreRefused) {
  auto data = NewData();
  EXPECT_EQ(data->get_ConnectString(nullptr), E_POINTER);
  EXPECT_EQ(data->get_VisualMode(nullptr), E_POINTER);
  EXPECT_EQ(data->get_Debug(nullptr), E_POINTER);
  ASSERT_EQ(data->put_ConnectString(nullptr), S_OK);
  CComPtr<CRfcSystemData> impl;
  CRfcSystemData::CreateInstance(&impl.p);
  impl->put_ConnectString(nullptr);
  EXPECT_TRUE(impl->ConnectString().empty());
}

}  // namespace
